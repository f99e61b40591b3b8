/// What a kick says that does not go on.

#include "naxel/xform/NaxelPrefixXformSm.h"
#include "support/Handshake.h"

namespace Test {
namespace {

using namespace Naxel;

bool has(std::string const& text, std::string const& part) {
  return text.find(part) != std::string::npos;
}

/// A world with the lines of level 0.
struct Silence : ByHand {
  Traced traced;
  double begun = clock.now();
  /// Sets the clock to so long after the last progress.
  size_t after(double seconds) {
    clock.nowIs(begun + seconds);
    run();
    return traced.lines.size();
  }
  /// Something that brings the kick on.
  template <class F>
  void progress(F f) {
    begun = clock.now();
    f();
    traced.lines.clear();
  }
};

TEST(SilenceTest, IsToldAfterTheLimitAndAfterEachDoubling) {
  Silence w;
  EXPECT_EQ(w.root->waitingFor(), "");
  w.request();
  EXPECT_EQ(w.root->waitingFor(), "the next pass of the timer wheel");
  w.run();
  EXPECT_LT(w.wheel->untilDue(), 0);  // it only watches
  EXPECT_EQ(w.activity.untilTimer(), 10);
  EXPECT_FALSE(w.activity.runUntil([] { return false; }));
  EXPECT_EQ(w.after(9.9), 0u);
  w.say(ResponseState::hitless, w.id() - 1);  // what answers nothing is no progress
  EXPECT_EQ(w.after(10), 1u);
  EXPECT_TRUE(has(w.traced.lines[0], "No progress for 10 s: " + w.root->waitingFor()));
  EXPECT_FALSE(has(w.traced.lines[0], "TCP flags"));
  EXPECT_EQ(w.after(19.9), 1u);
  EXPECT_EQ(w.after(20), 2u);
  EXPECT_EQ(w.after(39.9), 2u);
  EXPECT_EQ(w.after(40), 3u);
  EXPECT_EQ(w.after(500), 4u);  // one line, however much has been missed
  EXPECT_EQ(w.after(639), 4u);

  std::string const id = " of id " + valueToStrep(w.id());
  struct Step {
    std::function<void()> bring;
    std::vector<std::string> said;
  };
  Step const steps[] = {
      {[&] { w.one(PDTable::dscp, ResponseState::hitful); },
       {"answer the acquire" + id, "lengths (hitless to id", "; answered: DSCP values hitful"}},
      {[&] { w.say(ResponseState::hitful); },
       {"answered the acquire" + id, "put policy denyAll in force: it reports doNotApply"}},
      {[&] { w.confirm(); },
       {"answer the load" + id,
        "DSCP values (hitful to" + id.substr(3) + "), ACL entries (hitful"}},
      {[&] { w.acl(ResponseState::loaded); }, {"; answered: ACL entries loaded"}},
      {[&] { w.say(ResponseState::loaded); },
       {"answered the load" + id, "put policy doNotApply in force: it reports denyAll"}}};
  for (Step const& step : steps) {
    w.progress(step.bring);
    EXPECT_EQ(w.after(9.9), 0u);
    EXPECT_EQ(w.after(10), 1u);
    for (std::string const& text : step.said)
      EXPECT_TRUE(has(w.traced.lines[0], text)) << text << "\n" << w.traced.lines[0];
  }
  w.progress([&] { EXPECT_EQ(w.confirm(), success); });
  EXPECT_EQ(w.root->waitingFor(), "");
  // Whatever the driver says now is no progress of a kick.
  w.report(denyAll);
  w.traced.lines.clear();
  EXPECT_EQ(w.after(1000), 0u);
  EXPECT_LT(w.activity.untilTimer(), 0);

  // The handshake of a cancelled kick goes on.
  w.kick();
  w.progress([&] { w.say(ResponseState::failed); });
  w.cancel();
  w.traced.lines.clear();
  EXPECT_EQ(w.after(10), 1u);
  EXPECT_TRUE(has(w.traced.lines[0], "answer the revert of id " + valueToStrep(w.id())));
  w.say(ResponseState::reverted);
  w.traced.lines.clear();
  EXPECT_EQ(w.after(1000), 0u);
}

TEST(SilenceTest, TheLimitIsTheAgentsAndNoneIsNoLimit) {
  for (double limit : {0.0, -1.0, 3.0}) {
    Silence w;
    w.params->silenceLimitIs(limit);
    w.progress([&] { w.kick(); });
    w.params->silenceLimitIs(1);  // counts from the next kick on
    EXPECT_EQ(w.after(2.9), 0u);
    EXPECT_EQ(w.after(3), limit > 0);
    EXPECT_EQ(w.after(1e6), limit > 0 ? 2u : 0u);
    w.progress([&] { w.one(PDTable::proto, ResponseState::hitless); });
    EXPECT_EQ(w.after(2.9), 0u);
    EXPECT_EQ(w.after(1e6), limit > 0);
  }
  // Less than the clock can tell from none.
  Silence w;
  w.clock.nowIs(1.7e9);
  w.params->silenceLimitIs(1e-9);
  w.request();
  EXPECT_TRUE(w.activity.runUntilIdle(1000));
}

TEST(SilenceTest, AStageThatNeverEndsIsNamed) {
  Silence w;
  PrefixXformKey const key(Lumox::ipv4(), true);
  w.root->prefixXformConfigDel(key);
  EXPECT_EQ(w.kick(), running);
  EXPECT_EQ(w.root->waitingFor(),
            "stagePrefixXform has to end: Naxel::PrefixXformStatus says init");
  EXPECT_EQ(w.after(10), 1u);
  w.root->stageControllerConfigDel();
  EXPECT_EQ(w.root->waitingFor(), "there is no stage controller, or it is not bound");
}

}  // namespace
}  // namespace Test
