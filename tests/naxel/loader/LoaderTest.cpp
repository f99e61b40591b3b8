/// The handshake of the loader with drivers of all tempers.

#include "support/Handshake.h"

namespace Test {
namespace {

using namespace Naxel;
TEST(LoaderTest, ARefusalIsTracedOnceAndNamesTablesReasonsAndOutput) {
  ByHand w;
  auto const empty = w.pdConfig->currPDData();
  w.pdStatus->refusalReasonIs(PDTable::proto, "of a table that does not refuse");
  for (bool first : {true, false}) {
    Traced traced;
    auto const before = w.pdConfig->currPDData();
    w.kick();
    EXPECT_EQ(w.pdConfig->prevPDData(), before);
    auto const offered = w.pdConfig->currPDData();
    w.pdStatus->refusalReasonIs(PDTable::dscp, first ? "no room" : "");
    for (PDTable table : allPDTables())
      if (table == PDTable::dscp || (first && table == PDTable::v6Destination))
        w.one(table, ResponseState::failed);
      else if (table == PDTable::aclEntries)
        EXPECT_EQ(w.driver.log.back(), "acquire");  // not before all have answered
      else
        w.one(table, ResponseState::hitless);
    EXPECT_EQ(w.acl(ResponseState::hitful), running);
    EXPECT_EQ(w.driver.log.back(), "revert");
    EXPECT_EQ(w.loader().lastFailedState(), FailureData(offered, w.id()));
    EXPECT_EQ(w.pdConfig->currPDData(), before);
    w.acl(ResponseState::reverted);
    EXPECT_EQ(w.say(ResponseState::reverted), failure);
    EXPECT_EQ(w.failureText(), first
                                   ? "the driver refused resources for IPv6 destination prefixes, "
                                     "DSCP values (no room)"
                                   : "the driver refused resources for DSCP values");
    EXPECT_EQ(traced.count("Failed resource acquisition: DSCP values"), 1);
    EXPECT_EQ(traced.count("DSCP values: no room"), first);
    EXPECT_EQ(traced.count("Failed resource acquisition"), first ? 2 : 1);
    EXPECT_EQ(w.loader().lastFailedState(), FailureData(offered, w.id()));
    // What is brought back: an empty output at first.
    EXPECT_EQ(w.pdConfig->currPDData(), before);
    if (!first) break;
    EXPECT_EQ(before, empty);
    w.loadedAtOnce();
    w.rules(secondRules);
  }
  w.driver.automatic = true;
  kickOk(w);
}

TEST(LoaderTest, TheTableExaminedLastDecidesBetweenAnswersThatDiffer) {
  for (PDTable odd : allPDTables())
    for (auto answer : {ResponseState::hitless, ResponseState::hitful}) {
      SCOPED_TRACE(testing::Message() << odd << " is not " << answer);
      ByHand w;
      Traced traced;
      for (long kicks : {1, 2}) {
        w.kick();
        tableStatusIs(
            *w.pdStatus, odd,
            ResourceStatus(w.id(), answer == ResponseState::hitless ? ResponseState::hitful
                                                                    : ResponseState::hitless));
        for (PDTable table : allPDTables())
          if (table != odd) w.one(table, answer);
        bool const agree = odd == PDTable::tcpFlags;  // which need not answer at all
        bool const hitless = (answer == ResponseState::hitless) != (odd == PDTable::aclEntries);
        EXPECT_EQ(w.driver.log.back(), hitless ? "load" : "denyAll");
        EXPECT_EQ(w.root->loaderSm()->isHitless(), hitless);
        w.obey();
        ASSERT_EQ(w.say(ResponseState::loaded), hitless ? success : running);
        EXPECT_EQ(w.obey(), success);
        ASSERT_EQ(traced.count(""), agree ? 0 : kicks);
        if (agree) continue;
        std::string const side = answer == ResponseState::hitless ? "hitful" : "hitless";
        EXPECT_EQ(traced.count(side + " for " + tableTitle(odd)), kicks) << traced.lines[0];
      }
    }
}

TEST(LoaderTest, NothingIsLoadedBeforeThePolicyIsConfirmed) {
  ByHand w;
  w.kick();
  w.say(ResponseState::hitful);
  w.kick();  // which changes nothing of what is outstanding
  w.say(ResponseState::hitful);
  Log const waiting{"acquire", "denyAll", "acquire"};
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
  EXPECT_EQ(w.driver.log.size(), 5u);
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

TEST(LoaderTest, ADriverThatSaysAgainWhatItHasLoadedIsHeardAndNotAnswered) {
  ByHand w;
  w.kick();
  w.finish(ResponseState::hitless);
  auto const log = w.driver.log;
  Traced traced(1);
  PrefixXformKey const key(Lumox::ipv4(), true);
  w.pdStatus->pdPrefixXformEntryStatusDel(key);
  for (auto state : {ResponseState::hitless, ResponseState::reverted}) w.acl(state);
  EXPECT_EQ(traced.count("complete again"), 0);
  w.one(PDTable::v4Source, ResponseState::loaded);
  EXPECT_EQ(w.acl(ResponseState::loaded), success);
  EXPECT_EQ(traced.count("complete again"), 1);
  EXPECT_EQ(w.driver.log, log);
}

TEST(LoaderTest, ANewOutputCanBeMadeWithoutARequest) {
  ByHand w;
  auto const first = w.loadedAtOnce();
  w.root->loaderSm()->doPDLoad();
  auto const second = w.pdConfig->currPDData();
  EXPECT_NE(second, first);
  EXPECT_EQ(full(*second), full(*first));
  EXPECT_EQ(w.pdConfig->prevPDData(), first);
  EXPECT_TRUE(w.driver.log.empty());
  // A root that goes with the first write leaves the second.
  w.pdConfig->prevPDDataDel();
  auto const loader = w.root->loaderSm();
  At<PDConfig::Notifiee> const leaver(1, *w.pdConfig, [&] { w.root = nullptr; });
  loader->doPDLoad();
  EXPECT_EQ(w.pdConfig->prevPDData(), first);
  EXPECT_EQ(w.pdConfig->currPDData(), second);
}

TEST(LoaderTest, WithoutEntriesOfTheExpanderTheKickFailsInWords) {
  World w(firstRules);
  auto const entries = w.root->loaderConfig()->ruleExpanderLoaderInfo();
  w.root->loaderConfig()->ruleExpanderLoaderInfoIs(nullptr);
  kickFails(w, NaxelActiveStage::stageLoader, "the rule expander has left no entries for the chip");
  w.root->loaderConfig()->ruleExpanderLoaderInfoIs(entries);
  kickOk(w);
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
