/// The handshake of the loader with drivers of all tempers.

#include "naxel/loader/NaxelLoaderSm.h"
#include "sequences/Fresh.h"

namespace Test {
namespace {

using namespace Naxel;
using Log = std::vector<std::string>;
constexpr auto running = NaxelProgress::naxelRunning;
constexpr auto success = NaxelProgress::naxelFinishedSuccess;
constexpr auto failure = NaxelProgress::naxelFinishedFail;
constexpr auto denyAll = GlobalAclControl::denyAll;
constexpr auto doNotApply = GlobalAclControl::doNotApply;

constexpr char firstRules[] = "edge 10 r src 10.0.0.0/8 dport 80";
constexpr char secondRules[] = "edge 10 r src 11.0.0.0/8 dport 80\nedge 20 s dport 443 drop";
constexpr char thirdRules[] = "edge 10 r src 12.0.0.0/8";

/// A world whose driver answers and confirms by hand only.
struct ByHand : World {
  explicit ByHand(char const* rules = firstRules) : World(rules) { manual(); }
  void manual() { driver.automatic = driver.confirms = false; }
  /// A kick that the driver answers at once; then by hand again.
  Mox::Ptr<PDData const> loadedAtOnce() {
    driver.automatic = driver.confirms = true;
    EXPECT_EQ(kick(), success);
    manual();
    driver.log.clear();
    return pdConfig->currPDData();
  }
  Mox::Seconds id() const { return pdConfig->pdResourceConfig().requestId(); }
  NaxelProgress say(ResponseState state, Mox::Seconds toRequest = 0) {
    driver.answerAll(ResourceStatus(toRequest ? toRequest : id(), state));
    return run();
  }
  NaxelProgress acl(ResponseState state) {
    pdStatus->pdAclRuleEntryStatusIs(ResourceStatus(id(), state));
    return run();
  }
  NaxelProgress tcpFlags(ResponseState state) {
    pdStatus->pdTcpFlagsXformEntryStatusIs(ResourceStatus(id(), state));
    return run();
  }
  NaxelProgress confirm() {
    driver.confirmPolicy();
    return run();
  }
  void cancel() {
    request(NaxelKickRequest::naxelCancel);
    EXPECT_EQ(run(), NaxelProgress::naxelCancelled);
  }
  LoaderStatus const& loader() const { return *root->loaderStatus(); }
};

TEST(LoaderTest, AHitlessChangeIsAcquiredAndLoaded) {
  ByHand w;
  EXPECT_EQ(w.kick(), running);
  EXPECT_EQ(w.driver.log, (Log{"acquire"}));
  ASSERT_TRUE(w.pdConfig->prevPDData());
  EXPECT_EQ(dump(*w.pdConfig->prevPDData()), "");
  auto const offered = w.pdConfig->currPDData();
  EXPECT_EQ(w.say(ResponseState::hitless), running);
  EXPECT_EQ(w.driver.log, (Log{"acquire", "load"}));
  EXPECT_EQ(w.say(ResponseState::loaded), success);
  EXPECT_EQ(w.pdConfig->currPDData(), offered);
  EXPECT_EQ(full(*offered), freshTables(w));
  w.rules(secondRules);
  EXPECT_EQ(w.kick(), running);
  EXPECT_EQ(w.pdConfig->prevPDData(), offered);
  EXPECT_NE(w.pdConfig->currPDData(), offered);
}

TEST(LoaderTest, TheReasonNamesTheTablesThatWereRefusedAndNoOther) {
  ByHand w;
  w.kick();
  w.pdStatus->pdDscpXformEntryStatusIs(ResourceStatus(w.id(), ResponseState::failed));
  w.pdStatus->pdPrefixXformEntryStatusIs(PrefixXformKey(Lumox::ipv6(), false),
                                         ResourceStatus(w.id(), ResponseState::failed));
  EXPECT_EQ(w.driver.log, (Log{"acquire"}));  // not before all have answered
  w.say(ResponseState::hitless);
  EXPECT_EQ(w.driver.log, (Log{"acquire", "revert"}));
  EXPECT_EQ(w.say(ResponseState::reverted), failure);
  EXPECT_NE(w.failureText().find("DSCP values"), std::string::npos) << w.failureText();
  EXPECT_NE(w.failureText().find("IPv6 destination prefixes"), std::string::npos);
  EXPECT_EQ(w.failureText().find("IPv4"), std::string::npos);
  EXPECT_EQ(w.failureText().find("ACL"), std::string::npos);
  // The first kick of all: what is brought back is an empty output.
  ASSERT_TRUE(w.pdConfig->currPDData());
  EXPECT_EQ(dump(w.tables()), "");
  // The next refusal is another one's.
  w.kick();
  w.pdStatus->pdIcmpXformEntryStatusIs(ResourceStatus(w.id(), ResponseState::failed));
  w.say(ResponseState::hitless);
  EXPECT_EQ(w.say(ResponseState::reverted), failure);
  EXPECT_NE(w.failureText().find("ICMP types"), std::string::npos) << w.failureText();
  EXPECT_EQ(w.failureText().find("DSCP"), std::string::npos);
  w.driver.automatic = true;
  kickOk(w);
}

TEST(LoaderTest, NothingIsLoadedBeforeThePolicyIsConfirmed) {
  ByHand w;
  w.kick();
  w.say(ResponseState::hitful);
  Log const waiting{"acquire", "denyAll"};
  EXPECT_EQ(w.driver.log, waiting);
  PrefixXformKey const key(Lumox::ipv4(), true);
  w.tcpFlags(ResponseState::hitful);
  w.acl(ResponseState::hitless);
  w.acl(ResponseState::hitful);
  w.pdStatus->pdPrefixXformEntryStatusDel(key);
  w.pdStatus->pdPrefixXformEntryStatusIs(key, ResourceStatus(w.id(), ResponseState::hitful));
  EXPECT_EQ(w.run(), running);
  EXPECT_EQ(w.driver.log, waiting);
  w.confirm();
  EXPECT_EQ(w.driver.log.back(), "load");
  EXPECT_EQ(w.say(ResponseState::loaded), running);
  EXPECT_EQ(w.driver.log.back(), "doNotApply");
  EXPECT_EQ(w.confirm(), success);
  EXPECT_EQ(w.driver.log.size(), 4u);
}

TEST(LoaderTest, ATableCountsOnlyWithTheAnswerToTheStandingRequest) {
  ByHand w;
  auto const before = w.id();
  w.kick();
  for (Mox::Seconds other : {before, w.id() - 1, w.id() + 1})
    for (ResponseState state : {ResponseState::failed, ResponseState::hitless})
      EXPECT_EQ(w.say(state, other ? other : 0.5), running);
  for (ResponseState state : {ResponseState::loaded, ResponseState::reverted})
    EXPECT_EQ(w.say(state), running);
  EXPECT_EQ(w.driver.log, (Log{"acquire"}));
  w.say(ResponseState::hitless);
  EXPECT_EQ(w.driver.log, (Log{"acquire", "load"}));
  // The answers to the acquire still stand, under the same id.
  EXPECT_EQ(w.acl(ResponseState::hitful), running);
  EXPECT_EQ(w.acl(ResponseState::loaded), running);
  EXPECT_EQ(w.say(ResponseState::loaded, w.id() - 1), running);
  w.say(ResponseState::loaded);
  EXPECT_EQ(w.progress(), success);
}

TEST(LoaderTest, TheTableForTcpFlagsIsNotWaitedForButMayRefuse) {
  for (ResponseState late : {ResponseState::hitless, ResponseState::loaded, ResponseState::failed,
                             ResponseState::reverted}) {
    ByHand w;
    w.kick();
    w.say(ResponseState::hitless);
    w.tcpFlags(late);
    EXPECT_EQ(w.driver.log, (Log{"acquire", "load"}));
    EXPECT_EQ(w.say(ResponseState::loaded), success);
    w.tcpFlags(ResponseState::hitful);
    EXPECT_EQ(w.tcpFlags(late), success);
    EXPECT_EQ(w.driver.log, (Log{"acquire", "load"}));
  }
  for (bool hitful : {false, true}) {
    ByHand w;
    w.kick();
    if (hitful) {  // the policy is already on its way
      w.say(ResponseState::hitful);
      w.tcpFlags(ResponseState::failed);
    } else {
      w.tcpFlags(ResponseState::failed);
      w.say(ResponseState::hitless);
    }
    EXPECT_EQ(w.driver.log.back(), "revert");
    w.tcpFlags(ResponseState::reverted);
    if (hitful) {
      EXPECT_EQ(w.say(ResponseState::reverted), running);
      EXPECT_EQ(w.confirm(), running);
      EXPECT_EQ(w.driver.log, (Log{"acquire", "denyAll", "revert", "doNotApply"}));
      EXPECT_EQ(w.confirm(), failure);
    } else {
      EXPECT_EQ(w.say(ResponseState::reverted), failure);
    }
    EXPECT_NE(w.failureText().find("TCP flags"), std::string::npos);
    EXPECT_EQ(w.tcpFlags(ResponseState::hitless), failure);
  }
}

TEST(LoaderTest, ANewRootTakesOverWhatIsInForceAndThePolicy) {
  enum { acquiring, loading, reverting };
  for (int state : {acquiring, loading, reverting}) {
    SCOPED_TRACE(state);
    ByHand w;
    auto const good = w.loadedAtOnce();
    w.rules(secondRules);
    w.kick();
    auto const offered = w.pdConfig->currPDData();
    auto const oldId = w.id();
    if (state == loading) {
      w.say(ResponseState::hitful);
      w.confirm();
    }
    if (state == reverting) w.say(ResponseState::failed);
    w.buildRoot();
    // Answers to the old root's request, before and after the new one's first.
    w.say(state == loading ? ResponseState::loaded : ResponseState::reverted);
    w.clock.nowIs(1);
    w.rules(thirdRules);
    w.kick();
    EXPECT_GT(w.id(), oldId);
    EXPECT_EQ(w.pdConfig->prevPDData(), state == loading ? offered : good);
    w.say(ResponseState::hitless);
    w.say(ResponseState::loaded);
    if (state == loading) {
      EXPECT_EQ(w.driver.log.back(), "doNotApply");
      w.confirm();
    }
    EXPECT_EQ(w.progress(), success);
    EXPECT_EQ(full(w.tables()), freshTables(w));
  }
}

TEST(LoaderDeathTest, ADriverThatBreaksTheContractEndsTheProcess) {
  ByHand w;
  w.kick();
  w.say(ResponseState::hitless);
  EXPECT_DEATH(w.say(ResponseState::failed), "Failed to load data into acquired resources");
  EXPECT_DEATH(
      {
        w.acl(ResponseState::failed);  // one table, before the others have answered
        w.say(ResponseState::loaded);
        w.acl(ResponseState::failed);
      },
      "Failed to load data into acquired resources");
  w.say(ResponseState::loaded);
  EXPECT_DEATH(w.acl(ResponseState::failed), "ACL entries: answer .*failed.* to .*load");
}

}  // namespace
}  // namespace Test
