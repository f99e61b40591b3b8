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

TEST(LoaderTest, AHitfulChangeIsLoadedUnderThePolicyOfTheAgent) {
  for (bool permit : {false, true}) {
    World w(firstRules);
    w.params->permitDuringUpdateIs(permit);
    w.driver.acquireAnswer = ResponseState::hitful;
    Log const expected{"acquire", permit ? "permitAll" : "denyAll", "load", "doNotApply"};
    for (char const* rules : {firstRules, secondRules}) {
      w.rules(rules);
      kickOk(w);
      EXPECT_EQ(w.driver.log, expected);
      w.driver.log.clear();
    }
  }
}

TEST(LoaderTest, ARefusedAcquireBringsThePreviousOutputBack) {
  World w(firstRules, 3);
  kickOk(w);
  auto const good = w.pdConfig->currPDData();
  w.driver.log.clear();
  w.driver.acquireAnswer = ResponseState::failed;
  w.rules(secondRules);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(w.kick(), failure);
    EXPECT_EQ(w.rootStatus->kickMessage(), "Naxel failed at stageLoader on chip 3");
    EXPECT_EQ(w.pdConfig->currPDData(), good);
    auto const refused = w.root->loaderStatus()->lastFailedState();
    EXPECT_EQ(refused.responseId(), w.pdConfig->pdResourceConfig().requestId());
    EXPECT_EQ(full(*refused.pdData()), freshTables(w));
  }
  EXPECT_EQ(w.driver.log, (Log{"acquire", "revert", "acquire", "revert"}));
  w.driver.acquireAnswer = ResponseState::hitless;
  kickOk(w);
  EXPECT_EQ(w.pdConfig->prevPDData(), good);
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
  EXPECT_NE(w.failureText().find("dscp"), std::string::npos) << w.failureText();
  EXPECT_NE(w.failureText().find("ipv6 destination"), std::string::npos);
  EXPECT_EQ(w.failureText().find("ipv4"), std::string::npos);
  EXPECT_EQ(w.failureText().find("ACL"), std::string::npos);
  // The first kick of all: what is brought back is an empty output.
  ASSERT_TRUE(w.pdConfig->currPDData());
  EXPECT_EQ(dump(w.tables()), "");
  w.driver.automatic = true;
  kickOk(w);
}

TEST(LoaderTest, ARefusalThatStillStandsIsNoAnswerToTheRevert) {
  ByHand w;
  auto const good = w.loadedAtOnce();
  w.rules(secondRules);
  w.kick();
  w.say(ResponseState::failed);
  ASSERT_EQ(w.driver.log, (Log{"acquire", "revert"}));
  EXPECT_EQ(w.acl(ResponseState::hitless), running);
  EXPECT_EQ(w.acl(ResponseState::failed), running);
  EXPECT_EQ(w.acl(ResponseState::reverted), running);  // one table of many
  EXPECT_EQ(w.say(ResponseState::reverted), failure);
  EXPECT_EQ(w.driver.log.size(), 2u);
  EXPECT_EQ(w.pdConfig->currPDData(), good);
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

TEST(LoaderTest, AllFourPrefixTablesAreWaitedFor) {
  ByHand w;
  w.kick();
  for (ResponseState state : {ResponseState::hitless, ResponseState::loaded}) {
    ResourceStatus const answer(w.id(), state);
    for (RangeSetType type : allRangeSetTypes()) w.pdStatus->rangeStatusIs(type, answer);
    for (ComboLabelSetType type : allComboLabelSetTypes()) w.pdStatus->comboStatusIs(type, answer);
    w.acl(state);
    auto const requests = w.driver.log.size();
    for (PrefixXformKey const& key : PrefixXformKey::all()) {
      EXPECT_EQ(w.run(), running);
      EXPECT_EQ(w.driver.log.size(), requests);
      w.pdStatus->pdPrefixXformEntryStatusIs(key, answer);
    }
  }
  EXPECT_EQ(w.run(), success);
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

TEST(LoaderTest, StatusesBeforeTheFirstRequestAreNoAnswers) {
  ByHand w;
  w.driver.answerAll(ResourceStatus(0, ResponseState::hitful));
  w.driver.answerAll(ResourceStatus(0, ResponseState::failed), true);
  w.driver.answerAll(ResourceStatus(0, ResponseState::hitless));
  w.pdStatus->globalAclControlIs(denyAll);  // the chip boots closed
  EXPECT_EQ(w.run(), NaxelProgress::naxelInitialized);
  w.kick();
  w.say(ResponseState::hitless);
  EXPECT_EQ(w.driver.log.back(), "load");
  EXPECT_EQ(w.say(ResponseState::loaded), running);
  EXPECT_EQ(w.driver.log.back(), "doNotApply");
  EXPECT_EQ(w.confirm(), success);
  EXPECT_EQ(w.pdStatus->globalAclControl(), doNotApply);
}

TEST(LoaderTest, AnInterruptedPolicyIsLiftedByTheNextEnd) {
  for (ResponseState next : {ResponseState::hitless, ResponseState::hitful, ResponseState::failed})
    for (bool cancelled : {false, true}) {
      ByHand w;
      w.kick();
      w.say(ResponseState::hitful);
      w.confirm();
      ASSERT_EQ(w.driver.log.back(), "load");
      if (cancelled) w.cancel();
      w.driver.log.clear();
      EXPECT_EQ(w.kick(), running);
      w.say(next);
      bool const refused = next == ResponseState::failed;
      EXPECT_EQ(w.say(refused ? ResponseState::reverted : ResponseState::loaded), running);
      EXPECT_EQ(w.driver.log, (Log{"acquire", refused ? "revert" : "load", "doNotApply"}));
      EXPECT_EQ(w.confirm(), refused ? failure : success);
    }
}

// Only one change of policy may be outstanding, or the driver performs them too late.
TEST(LoaderTest, APolicyWaitsForTheConfirmationOfTheOneBefore) {
  ByHand w;
  w.kick();
  w.say(ResponseState::hitful);
  w.cancel();
  w.kick();
  w.say(ResponseState::hitful);
  EXPECT_EQ(w.driver.log, (Log{"acquire", "denyAll", "acquire"}));
  w.confirm();
  EXPECT_EQ(w.driver.log.back(), "load");
  w.say(ResponseState::loaded);
  EXPECT_EQ(w.driver.log.back(), "doNotApply");
  // Mirrored: the lifting is unconfirmed when the next kick wants the policy.
  w.driver.log.clear();
  w.kick();
  w.say(ResponseState::hitful);
  EXPECT_EQ(w.driver.log, (Log{"acquire"}));
  w.confirm();
  EXPECT_EQ(w.driver.log, (Log{"acquire", "denyAll"}));
  w.cancel();
  // A hitless kick over an unconfirmed policy.
  w.driver.log.clear();
  w.kick();
  w.say(ResponseState::hitless);
  EXPECT_EQ(w.say(ResponseState::loaded), running);
  EXPECT_EQ(w.driver.log, (Log{"acquire", "load"}));
  EXPECT_EQ(w.confirm(), running);
  EXPECT_EQ(w.driver.log, (Log{"acquire", "load", "doNotApply"}));
  EXPECT_EQ(w.confirm(), success);
  // A confirmation that comes while a kick waits for its tables.
  w.kick();
  w.say(ResponseState::hitful);
  w.cancel();
  w.kick();
  EXPECT_EQ(w.confirm(), running);
  EXPECT_EQ(w.driver.log.back(), "acquire");
  EXPECT_EQ(w.pdStatus->globalAclControl(), denyAll);
}

TEST(LoaderTest, WhatWasOfferedAndNeverLoadedIsNotBroughtBack) {
  ByHand w;
  auto const good = w.loadedAtOnce();
  w.rules(secondRules);
  w.kick();
  auto const offered = w.pdConfig->currPDData();
  auto const oldId = w.id();
  w.cancel();
  w.rules(thirdRules);
  w.kick();
  EXPECT_EQ(w.pdConfig->prevPDData(), good);
  EXPECT_EQ(w.say(ResponseState::hitless, oldId), running);  // the cancelled acquire, late
  EXPECT_EQ(w.driver.log, (Log{"acquire", "acquire"}));
  w.say(ResponseState::failed);
  EXPECT_EQ(w.say(ResponseState::reverted), failure);
  EXPECT_EQ(w.pdConfig->currPDData(), good);
  EXPECT_NE(w.loader().lastFailedState().pdData(), offered);
}

TEST(LoaderTest, ALoadThatIsUnderWayWhenANewKickBeginsIsInForce) {
  ByHand w;
  w.loadedAtOnce();
  w.rules(secondRules);
  w.kick();
  w.say(ResponseState::hitless);
  auto const loading = w.pdConfig->currPDData();
  auto const oldId = w.id();
  w.rules(thirdRules);
  EXPECT_EQ(w.kick(), running);
  EXPECT_EQ(w.pdConfig->prevPDData(), loading);
  EXPECT_EQ(w.say(ResponseState::loaded, oldId), running);
  w.say(ResponseState::failed);
  EXPECT_EQ(w.say(ResponseState::reverted), failure);
  EXPECT_EQ(w.pdConfig->currPDData(), loading);
}

TEST(LoaderTest, ACancelledLoaderGoesOnAndItsEndIsOfNoInterest) {
  ByHand w;
  w.kick();
  w.cancel();
  w.say(ResponseState::hitful);
  w.confirm();
  w.say(ResponseState::loaded);
  EXPECT_EQ(w.confirm(), NaxelProgress::naxelCancelled);
  EXPECT_EQ(w.driver.log, (Log{"acquire", "denyAll", "load", "doNotApply"}));
  EXPECT_EQ(w.loader().status(), StageStatusType::finishedSuccess);
  w.driver.automatic = true;
  kickOk(w);
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

TEST(LoaderTest, AnOutputOnceOfferedNeverChanges) {
  World w(firstRules);
  setWidths(w, Chip::combos);
  std::vector<std::pair<Mox::Ptr<PDData const>, std::string>> seen;
  char const* const all[] = {secondRules, thirdRules,         firstRules, "edge 30 x proto 6",
                             "acl empty", "edge 5 y len 5-9", firstRules};
  int step = 0;
  for (char const* rules : all) {
    w.driver.acquireAnswer = ++step % 3 == 0 ? ResponseState::failed : ResponseState::hitful;
    w.kick();
    for (auto const& data : {w.pdConfig->currPDData(), w.pdConfig->prevPDData(),
                             w.root->loaderStatus()->lastFailedState().pdData()})
      if (data) seen.emplace_back(data, full(*data));
    if (step == 5) w.acls->aclDelAll();
    w.rules(rules);
    for (auto const& [data, text] : seen) EXPECT_EQ(full(*data), text);
  }
}

/// Answers one table per pass, in one of three orders, with an older answer in between.
TEST(LoaderTest, TablesMayAnswerOneByOneInAnyOrder) {
  for (bool hitful : {false, true})
    for (unsigned seed = 0; seed < 15; ++seed) {
      ByHand w;
      w.driver.confirms = true;
      w.rules(secondRules);
      w.kick();
      for (int round = 0; round < 2; ++round) {
        ResponseState const state = round == 1 ? ResponseState::loaded
                                    : hitful   ? ResponseState::hitful
                                               : ResponseState::hitless;
        for (unsigned i = 0; i < 15; ++i) {
          ResourceStatus const answer(w.id(), state);
          unsigned const table = (seed + i * 7) % 15;
          auto const requests = w.driver.log.size();
          if (table < 4)
            w.pdStatus->pdPrefixXformEntryStatusIs(PrefixXformKey::all()[table], answer);
          else if (table < 7)
            w.pdStatus->comboStatusIs(allComboLabelSetTypes()[table - 4], answer);
          else if (table < 14)
            w.pdStatus->rangeStatusIs(allRangeSetTypes()[table - 7], answer);
          else
            w.pdStatus->pdAclRuleEntryStatusIs(answer);
          w.pdStatus->pdTcpFlagsXformEntryStatusIs(ResourceStatus(i, ResponseState::failed));
          EXPECT_EQ(w.driver.log.size() > requests, i == 14 && (hitful || round == 0));
          EXPECT_EQ(w.run(), i == 14 && round == 1 ? success : running);
        }
      }
      EXPECT_EQ(w.driver.log, hitful ? (Log{"acquire", "denyAll", "load", "doNotApply"})
                                     : (Log{"acquire", "load"}));
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
  EXPECT_DEATH(w.pdStatus->globalAclControlIs(denyAll), "globalAclControl");
  w.say(ResponseState::loaded);
  EXPECT_DEATH(w.pdStatus->globalAclControlIs(denyAll), "globalAclControl");
}

TEST(LoaderTest, AnAnswerThatChangesAfterTheEndStartsNothing) {
  ByHand w;
  w.loadedAtOnce();
  for (ResponseState state : {ResponseState::hitless, ResponseState::hitful}) w.acl(state);
  EXPECT_EQ(w.say(ResponseState::reverted, w.id() - 1), success);
  EXPECT_TRUE(w.driver.log.empty());
  w.driver.automatic = true;
  w.rules(secondRules);
  kickOk(w);
}

}  // namespace
}  // namespace Test
