/// The handshake of the loader with drivers of all tempers.

#include "support/Handshake.h"

namespace Test {
namespace {

using namespace Naxel;

// What can be reached from a published output cannot be written.
template <class T>
T const& reached();
template <class... Pointers>
constexpr bool readOnly =
    (std::is_const_v<std::remove_reference_t<decltype(*reached<Pointers>())>> && ...);
static_assert(
    readOnly<decltype(reached<PDConfig>().currPDData()), decltype(reached<PDConfig>().prevPDData()),
             decltype(reached<FailureData>().pdData()), decltype(reached<PDData>().hwCapability()),
             decltype(reached<PDData>().rangeColl(RangeSetType::dscp)),
             decltype(reached<PDData>().comboColl(ComboLabelSetType::srcDstL4Port)),
             decltype(reached<PDData>().pdPrefixXformEntryColl(PrefixXformKey())),
             PDData::PrefixColls::mapped_type, decltype(reached<PDData>().pdAclColl()),
             decltype(reached<PDAclColl>().pdAcl(PDAclKey())), PDAclColl::AclColl::mapped_type,
             PDAclRuleColl::RuleColl::mapped_type,
             decltype(reached<PDAclRuleColl>().rule(AceIndex()))>);
static_assert(!std::is_convertible_v<Mox::Ptr<PDData const>, Mox::Ptr<PDData>>);
static_assert(!std::is_convertible_v<PDData*, Mox::Ptr<PDData>>);

TEST(LoaderTest, ARefusalIsTracedOnceAndNamesTablesReasonsAndOutput) {
  ByHand w;
  w.pdStatus->refusalReasonIs(PDTable::proto, "of a table that does not refuse");
  for (bool first : {true, false}) {
    Traced traced;
    // What is brought back: an empty output at first.
    auto const before = first ? w.pdConfig->currPDData() : w.loadedAtOnce();
    w.rules(secondRules);
    w.kick();
    EXPECT_EQ(w.pdConfig->prevPDData(), before);
    auto const offered = w.pdConfig->currPDData();
    w.pdStatus->refusalReasonIs(PDTable::dscp, first ? "no room" : "");
    for (PDTable table : allPDTables()) {
      EXPECT_EQ(w.driver.log.back(), "acquire");  // not before all have answered
      bool const refuses = table == PDTable::dscp || (first && table == PDTable::v6Destination);
      w.one(table, refuses ? ResponseState::failed : ResponseState::hitless);
    }
    EXPECT_EQ(w.driver.log.back(), "revert");
    EXPECT_EQ(w.loader().lastFailedState(), FailureData(offered, w.id()));
    EXPECT_EQ(w.play("acl:reverted reverted"), failure);
    EXPECT_EQ(w.failureText(), first
                                   ? "the driver refused resources for IPv6 destination prefixes, "
                                     "DSCP values (no room)"
                                   : "the driver refused resources for DSCP values");
    EXPECT_EQ(traced.count("Failed resource acquisition: DSCP values"), 1);
    EXPECT_EQ(traced.count("DSCP values: no room"), first);
    EXPECT_EQ(traced.count("Failed resource acquisition"), first ? 2 : 1);
    EXPECT_EQ(w.loader().lastFailedState(), FailureData(offered, w.id()));
    EXPECT_EQ(w.pdConfig->currPDData(), before);
    w.rules(thirdRules);
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

TEST(LoaderTest, EachStepWaitsForTheAnswersToItsOwnRequest) {
  struct Case {
    char const* script;
    char const* log;
    NaxelProgress end;
  };
  Case const cases[] = {
      // Nothing is loaded before the policy is confirmed; a newer kick changes nothing of what is outstanding.
      {"kick hitful kick hitful tcp:hitful acl:hitless acl:hitful", "acquire denyAll acquire",
       running},
      {"kick hitful kick hitful confirm loaded", "acquire denyAll acquire load doNotApply",
       running},
      {"kick hitful confirm loaded confirm", "acquire denyAll load doNotApply", success},
      // A table counts only with the answer to the standing request; those to the acquire have the id of the load.
      {"kick hitless-1 failed-1 hitless+1 failed+1 loaded reverted", "acquire", running},
      {"kick hitless acl:hitful acl:loaded loaded-1", "acquire load", running},
      {"kick hitless loaded hitless loaded-1 reverted", "acquire load", success},
      // The table for TCP flags is not waited for, but may refuse, even where the policy is on its way.
      {"kick hitless tcp:hitless loaded tcp:hitful tcp:failed", "acquire load", success},
      {"kick hitless tcp:failed loaded tcp:reverted tcp:loaded", "acquire load", success},
      {"kick tcp:failed hitless tcp:reverted reverted tcp:hitless", "acquire revert", failure},
      {"kick hitful tcp:failed tcp:reverted reverted", "acquire denyAll revert", running},
      {"kick hitful tcp:failed reverted confirm", "acquire denyAll revert doNotApply", running},
      {"kick hitful tcp:failed reverted confirm confirm", "acquire denyAll revert doNotApply",
       failure}};
  for (Case const& c : cases) {
    SCOPED_TRACE(c.script);
    Traced const quiet;
    ByHand w;
    EXPECT_EQ(w.play(c.script), c.end);
    std::istringstream words(c.log);
    EXPECT_EQ(w.driver.log, Log(std::istream_iterator<std::string>(words), {}));
    EXPECT_EQ(w.failureText(),
              c.end == failure ? "the driver refused resources for TCP flags" : "");
  }
}

TEST(LoaderTest, ADriverThatSaysAgainWhatItHasLoadedIsHeardAndNotAnswered) {
  ByHand w;
  w.play("kick hitless loaded");
  auto const log = w.driver.log;
  Traced traced(1);
  w.pdStatus->pdPrefixXformEntryStatusDel(PrefixXformKey(Lumox::ipv4(), true));
  w.play("acl:hitless acl:reverted");
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
  EXPECT_NE(w.pdConfig->currPDData(), first);
  EXPECT_EQ(full(w.tables()), full(*first));
  EXPECT_EQ(w.pdConfig->prevPDData(), first);
  EXPECT_TRUE(w.driver.log.empty());
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
  w.play("kick hitless");
  // Even one table, before the others have answered.
  for (char const* script : {"failed", "acl:failed loaded acl:failed"})
    EXPECT_DEATH(w.play(script), "Failed to load data into acquired resources");
  w.play("loaded");
  EXPECT_DEATH(w.play("acl:failed"), "ACL entries: answer .*failed.* to .*load");
}

}  // namespace
}  // namespace Test
