/// What a kick says that does not go on.

#include "support/Handshake.h"

namespace Test {
namespace {

using namespace Naxel;

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
  void progress(std::function<void()> const& f) {
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
  w.play("hitless-1");  // what answers nothing is no progress
  EXPECT_EQ(w.after(10), 1u);
  EXPECT_EQ(w.traced.count("No progress for 10 s: " + w.root->waitingFor()), 1);
  EXPECT_EQ(w.traced.count("TCP flags"), 0);
  // One line each time, however much has been missed.
  for (auto const& [seconds, lines] :
       {std::pair(19.9, 1u), {20, 2}, {39.9, 2}, {40, 3}, {500, 4}, {639, 4}})
    EXPECT_EQ(w.after(seconds), lines) << seconds;

  std::string const id = " of id " + valueToStrep(w.id()), to = "to" + id.substr(3);
  std::pair<char const*, Log> const steps[] = {
      {"tcp:hitless",
       {"answer the acquire" + id, "lengths (hitless to id", "; answered: TCP flags hitless"}},
      {"hitful",
       {"answered the acquire" + id, "put policy denyAll in force: it reports doNotApply"}},
      {"confirm", {"answer the load" + id, "DSCP values (hitful " + to + "), ACL entries (hitful"}},
      {"acl:loaded", {"; answered: ACL entries loaded"}},
      {"loaded", {"answered the load" + id, "put policy doNotApply in force: it reports denyAll"}}};
  for (auto const& step : steps) {
    w.progress([&] { w.play(step.first); });
    EXPECT_EQ(w.after(9.9), 0u);
    EXPECT_EQ(w.after(10), 1u);
    for (std::string const& text : step.second)
      EXPECT_EQ(w.traced.count(text), 1) << text << "\n" << w.traced.lines[0];
  }
  w.progress([&] { EXPECT_EQ(w.confirm(), success); });
  EXPECT_EQ(w.root->waitingFor(), "");
  // Whatever the driver says now is no progress of a kick.
  w.progress([&] { w.report(denyAll); });
  EXPECT_EQ(w.after(1000), 0u);
  EXPECT_LT(w.activity.untilTimer(), 0);
  // The handshake of a cancelled kick goes on.
  w.progress([&] { w.play("kick failed cancel"); });
  EXPECT_EQ(w.after(10), 1u);
  EXPECT_EQ(w.traced.count("answer the revert of id " + valueToStrep(w.id())), 1);
  w.progress([&] { w.play("reverted"); });
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
  w.request();
  w.root->stageControllerConfigDel();
  EXPECT_EQ(w.root->waitingFor(), "there is no stage controller, or it is not bound");
}

}  // namespace
}  // namespace Test
