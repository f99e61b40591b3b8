/// Agents and drivers that restart in the middle of a handshake, and policies that nobody asked for.

#include "support/Handshake.h"

namespace Test {
namespace {

using namespace Naxel;

TEST(RestartTest, WhatTheDriverBringsAlongStaysUntilALoadHasSucceeded) {
  enum class Boot { beforeTheRoot, beforeTheKick, inTheKick };
  struct Case {
    GlobalAclControl own;
    bool permit;
    GlobalAclControl temporary;
  };
  // What the driver has closed by itself is not opened.
  for (Case const c : {Case{denyAll, false, denyAll}, Case{denyAll, true, denyAll},
                       Case{permitAll, false, denyAll}, Case{permitAll, true, permitAll}})
    for (Boot boot : {Boot::beforeTheRoot, Boot::beforeTheKick, Boot::inTheKick})
      for (bool used : {false, true})
        for (auto answer : {ResponseState::hitless, ResponseState::hitful}) {
          SCOPED_TRACE(testing::Message()
                       << c.own << c.permit << static_cast<int>(boot) << used << answer);
          ByHand w;
          if (used) w.loadedAtOnce();
          w.params->permitDuringUpdateIs(c.permit);
          w.rules(secondRules);
          Traced traced;
          if (boot == Boot::beforeTheRoot) w.root = nullptr;
          if (boot != Boot::inTheKick) w.pdStatus->globalAclControlIs(c.own);
          if (boot == Boot::beforeTheRoot) w.buildRoot();
          w.clock.nowInc(1);
          w.kick();
          if (boot == Boot::inTheKick) w.report(c.own);
          bool const surprise = boot == Boot::inTheKick || (boot == Boot::beforeTheKick && used);
          EXPECT_EQ(traced.count("reports policy " + Mox::stringValue(c.own) + " by itself"),
                    surprise);
          // Written down, so that it is no change; over a pair in use an older one may be on its way.
          EXPECT_EQ(w.pdConfig->globalAclControl() != c.own, boot == Boot::beforeTheRoot && used);
          EXPECT_EQ(w.finish(ResponseState::failed), failure);
          EXPECT_EQ(w.askedBut(c.own), (Log{"acquire", "revert"}));
          std::string const caution =
              "policy " + Mox::stringValue(c.own) +
              " that the driver brought along is in force; the first load that succeeds lifts it";
          EXPECT_NE(w.failureText().find("ACL entries; " + caution), std::string::npos)
              << w.failureText();
          w.rules("edge 90 bad dport 2-1");
          kickFails(w, NaxelActiveStage::stageAggregator, caution);
          w.acls->acl("edge")->ruleByNameDel("bad");

          w.driver.log.clear();
          w.kick();
          EXPECT_EQ(w.finish(answer), success);
          Log expected{"acquire", "load", "doNotApply"};
          if (answer == ResponseState::hitful && c.temporary != c.own)
            expected.insert(expected.begin() + 1, Mox::stringValue(c.temporary));
          EXPECT_EQ(w.askedBut(c.own), expected);
          EXPECT_EQ(w.loader().caution(), "");
          EXPECT_EQ(full(w.tables()), freshTables(w));
        }
}

TEST(RestartTest, AChangeThatTheAgentBeforeHasNotSeenConfirmedIsSuperseded) {
  struct Case {
    GlobalAclControl asked, inForce;
    ResponseState answer;
    Log log;
  };
  auto const hitless = ResponseState::hitless;
  auto const hitful = ResponseState::hitful;
  auto const refused = ResponseState::failed;
  Case const cases[] = {{doNotApply, denyAll, hitful, {"acquire", "load", "doNotApply"}},
                        {doNotApply, denyAll, hitless, {"acquire", "load", "doNotApply"}},
                        {denyAll, doNotApply, hitful, {"acquire", "denyAll", "load"}},
                        {denyAll, doNotApply, hitless, {"acquire", "load"}},
                        {denyAll, doNotApply, refused, {"acquire", "revert"}},
                        {denyAll, permitAll, hitful, {"acquire", "denyAll", "load", "doNotApply"}},
                        {permitAll, denyAll, hitful, {"acquire", "load", "doNotApply"}}};
  for (Case const& c : cases)
    for (bool late : {false, true}) {
      SCOPED_TRACE(testing::Message() << c.asked << c.inForce << c.answer << late);
      ByHand w;
      w.loadedAtOnce();
      w.root = nullptr;
      w.pdConfig->globalAclControlIs(c.asked);
      w.report(c.inForce);
      w.buildRoot();
      w.clock.nowInc(1);
      w.rules(secondRules);
      w.driver.log.clear();
      w.kick();
      Traced traced(1);
      // A driver that finishes the old change first: it says so, and then goes by what stands.
      auto const finishOld = [&] {
        if (!late || w.pdConfig->globalAclControl() == c.asked) return;
        late = false;
        bool const news = w.pdStatus->globalAclControl() != c.asked;
        auto const before = w.progress();
        auto const log = w.driver.log;
        EXPECT_EQ(w.report(c.asked), before);
        EXPECT_EQ(w.driver.log, log);
        EXPECT_EQ(traced.count("late confirmation of " + Mox::stringValue(c.asked)), news);
        w.confirm();
      };
      w.say(c.answer);
      finishOld();
      w.obey();
      w.say(c.answer == refused ? ResponseState::reverted : ResponseState::loaded);
      finishOld();
      EXPECT_EQ(w.obey(), c.answer == refused ? failure : success);
      EXPECT_EQ(w.askedBut(c.inForce), c.log);
      EXPECT_EQ(w.pdStatus->globalAclControl(), doNotApply);
      EXPECT_EQ(w.loader().caution(), "");
      // The old value once more is the driver's own.
      w.report(c.asked);
      EXPECT_EQ(traced.count("by itself"), c.asked != doNotApply);
    }
}

TEST(RestartTest, APolicyOverAPairInUseIsTheDriversUnlessALoadMayHaveLeftIt) {
  struct Case {
    bool used;
    char const* script;
    bool left;
  };
  for (Case const& c :
       {Case{true, "kick hitful", true}, Case{true, "kick hitless", true},  // a load
        Case{true, "kick failed", false},                                   // a revert
        Case{true, "kick", false},                                          // no answer
        Case{false, "kick hitful", false}})                                 // over empty tables
  {
    SCOPED_TRACE(testing::Message() << c.used << c.script);
    ByHand w;
    if (c.used) w.loadedAtOnce();
    w.rules(secondRules);
    w.play(c.script);
    w.root = nullptr;
    w.pdConfig->globalAclControlIs(denyAll);
    w.driver.confirmPolicy();
    w.buildRoot();
    EXPECT_EQ(w.loader().caution().starts_with("policy denyAll of an interrupted load"), c.left);
    w.clock.nowInc(1);
    w.kick();
    EXPECT_EQ(w.finish(ResponseState::failed), failure);
    EXPECT_EQ(w.pdStatus->globalAclControl(), c.left ? doNotApply : denyAll);
  }
}

TEST(RestartTest, ADriverThatPutsOnePolicyInForceAfterTheOtherEndsTheKickInWords) {
  for (bool loaded : {false, true}) {
    ByHand w;
    auto const good = w.loadedAtOnce();
    w.rules(secondRules);
    w.play(loaded ? "kick hitful confirm loaded" : "kick hitful");
    Traced traced;
    for (int i = 1; i <= 8; ++i) {
      EXPECT_EQ(w.progress(), running);
      EXPECT_NE(w.driver.log.back(), "revert");
      w.report(i % 2 ? permitAll : loaded ? denyAll : doNotApply);
    }
    EXPECT_EQ(traced.count("by itself"), 8);
    EXPECT_EQ(w.play(loaded ? "" : "reverted"), failure);
    EXPECT_NE(w.failureText().find("8 times in this kick"), std::string::npos) << w.failureText();
    EXPECT_EQ(w.failureText().starts_with("the new tables are loaded, but"), loaded);
    EXPECT_EQ(w.pdConfig->currPDData() == good, !loaded);
    // The next kick has as many again.
    w.driver.automatic = w.driver.confirms = true;
    w.driver.acquireAnswer = ResponseState::hitful;
    kickOk(w);
  }
}

TEST(RestartTest, ARootThatIsLetGoOfInAnyNotificationWritesNothingMore) {
  enum Watched { rootStatus, pdConfig, loaderStatus };
  for (Watched watched : {rootStatus, pdConfig, loaderStatus})
    for (bool atOnce : {false, true})
      for (auto own : {doNotApply, denyAll, permitAll})
        for (auto answer : {ResponseState::hitless, ResponseState::hitful, ResponseState::failed})
          for (int at = 1;; ++at) {
            SCOPED_TRACE(testing::Message() << watched << atOnce << own << answer << at);
            ASSERT_LT(at, 12);
            ByHand w;
            w.loadedAtOnce();
            w.rules("edge 90 bad dport 2-1");
            w.kick();  // leaves a message, which the next start takes back
            w.acls->acl("edge")->ruleByNameDel("bad");
            if (watched == pdConfig) {
              w.report(own);
            } else {  // the agent before has asked for it
              w.root = nullptr;
              w.pdConfig->globalAclControlIs(own);
              w.buildRoot();
            }
            w.rules(secondRules);
            w.driver.automatic = w.driver.confirms = atOnce;
            w.driver.acquireAnswer = answer;
            auto const loader = w.root->loaderStatus();
            auto const aggregator = w.root->aggregatorStatus();
            PDConfig const& pd = *w.pdConfig;
            RootStatus const& said = *w.rootStatus;
            auto const stands = [&] {
              return std::tuple(pd.prevPDData(), pd.currPDData(), pd.globalAclControl(),
                                pd.pdResourceConfig());
            };
            auto const all = [&] {
              return std::tuple(stands(), said.kickCount(), said.kickTime(), said.kickMessage(),
                                said.kickProgress(), aggregator->kickTime());
            };
            auto stood = all();
            auto const leave = [&] {
              stood = all();
              w.root = nullptr;
            };
            auto const atIf = [&](Watched entity) { return watched == entity ? at : 99; };
            At<RootStatus::Notifiee> const first(atIf(rootStatus), *w.rootStatus, leave);
            At<PDConfig::Notifiee> const second(atIf(pdConfig), *w.pdConfig, leave);
            At<LoaderStatus::Notifiee> const third(atIf(loaderStatus), *loader, leave);
            w.kick();
            if (!atOnce) w.finish(answer);
            if (w.root) break;
            EXPECT_TRUE(all() == stood);
            // The next root goes on from there, and has not asked for what is answered now.
            w.buildRoot();
            auto const state = pd.pdResourceConfig().requestState();
            EXPECT_EQ(w.root->loaderSm()->inForce(),
                      state == RequestState::acquire ? pd.prevPDData() : pd.currPDData());
            w.say(state == RequestState::load ? ResponseState::loaded : ResponseState::reverted);
            EXPECT_NE(w.progress(), running);
            EXPECT_TRUE(stands() == std::get<0>(stood));
            w.driver.automatic = w.driver.confirms = true;
            w.driver.acquireAnswer = ResponseState::hitful;
            kickOk(w);
            EXPECT_EQ(w.pdStatus->globalAclControl(), doNotApply);
          }
}

}  // namespace
}  // namespace Test
