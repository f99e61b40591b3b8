/// The root over the whole pipeline: what the agent sees of its requests, and what it may do from
/// within a notification.

#include "sequences/Fresh.h"

namespace Test {
namespace {

using namespace Naxel;
using Stage = NaxelActiveStage;
using Progress = NaxelProgress;

constexpr char rules[] = "edge 10 r src 10.0.0.0/8 dst 20.0.0.0/8 dport 80\nedge 20 s proto 6";

/// Notes the progress, and does something at chosen notifications.
class Agent : public RootStatus::Notifiee {
 public:
  explicit Agent(World& world) { notifierIs(world.rootStatus.get()); }
  std::vector<Progress> seen;
  std::function<void(Progress)> onProgress = [](Progress) {};
  std::function<void()> onCount = [] {};

 private:
  void onKickProgress() override {
    Progress const p = static_cast<RootStatus const*>(notifier())->kickProgress();
    seen.push_back(p);
    onProgress(p);
  }
  void onKickCount() override { onCount(); }
};

/// Does something when a stage's status becomes `when`.
class Trap : public StageStatus::Notifiee {
 public:
  Trap(World& world, Stage stage, StageStatusType when, std::function<void()> action)
      : when_(when), action_(std::move(action)) {
    world.root->stageSmStatus()->forEach(stage, [&](StageStatus& s) { notifierIs(&s); });
  }

 private:
  void onStatus() override {
    if (static_cast<StageStatus const*>(notifier())->status() == when_) action_();
  }
  StageStatusType when_;
  std::function<void()> action_;
};

TEST(RootTest, RequestsAreCountedAndTheirCourseIsReported) {
  World w(rules, 3);
  Agent agent(w);
  EXPECT_EQ(w.progress(), Progress::naxelInitialized);
  EXPECT_TRUE(w.root->initialized());
  w.request();
  EXPECT_EQ(w.progress(), Progress::naxelRunning);
  w.run();
  w.rootConfig->naxelKickTimeIs(w.rootConfig->naxelKickTime());  // no new value, no request
  EXPECT_EQ(w.rootStatus->kickCount(), 1u);
  EXPECT_EQ(w.rootStatus->kickTime(), w.rootConfig->naxelKickTime());
  w.rules("edge 30 bad dport 2-1");
  w.kick();
  EXPECT_EQ(w.rootStatus->kickMessage(), "Naxel failed at stageAggregator on chip 3");
  w.request(NaxelKickRequest::naxelCancel);
  w.run();
  // A cancel leaves the text of the last failure.
  EXPECT_EQ(w.rootStatus->kickMessage(), "Naxel failed at stageAggregator on chip 3");
  w.acls->acl("edge")->ruleByNameDel("bad");
  w.rootConfig->naxelKickRequestIs(NaxelKickRequest::naxelStart);
  w.rootConfig->naxelKickTimeIs(-5);  // the agent's own number
  EXPECT_EQ(w.rootStatus->kickMessage(), "");
  w.run();
  EXPECT_EQ(w.rootStatus->kickCount(), 4u);
  EXPECT_EQ(w.rootStatus->kickTime(), -5);
  EXPECT_EQ(agent.seen,
            (std::vector<Progress>{Progress::naxelRunning, Progress::naxelFinishedSuccess,
                                   Progress::naxelRunning, Progress::naxelFinishedFail,
                                   Progress::naxelRunning, Progress::naxelCancelled,
                                   Progress::naxelRunning, Progress::naxelFinishedSuccess}));
}

TEST(RootTest, WhatStandsAtConstructionIsNoRequestAndAnUnboundConfigurationMakesNone) {
  World w(rules);
  w.rootConfig->naxelKickTimeIs(7);
  w.buildRoot();
  w.run();
  auto const count = w.rootStatus->kickCount();
  w.kick();
  EXPECT_EQ(w.rootStatus->kickCount(), count + 1);
  w.root->rootConfigDel();
  w.kick();
  EXPECT_EQ(w.rootStatus->kickCount(), count + 1);
}

TEST(RootTest, RequestsAtOneReadingOfTheClockAreDifferentKicks) {
  World w(rules);
  w.request();
  auto const first = w.root->stageControllerConfig()->kickTime();
  EXPECT_EQ(first, w.clock.now());
  w.rules("edge 30 t dport 443");
  w.request();
  EXPECT_GT(w.root->stageControllerConfig()->kickTime(), first);
  EXPECT_EQ(w.run(), Progress::naxelFinishedSuccess);
  EXPECT_EQ(full(w.tables()), freshTables(w));
  w.rules("edge 30 t dport 444");
  kickOk(w);
  EXPECT_EQ(w.rootStatus->kickCount(), 3u);
}

TEST(RootTest, AClockThatStepsBackNeitherHangsNorRepeatsAKick) {
  World w(rules);
  kickOk(w);
  auto last = w.pdConfig->pdResourceConfig().requestId();
  for (Mox::Seconds now : {400.0, 400.0, 1000.0, 1.0}) {
    w.clock.nowIs(now);
    w.rules("edge 30 t dport " + std::to_string(static_cast<int>(last) % 7 + 1));
    kickOk(w);
    EXPECT_GT(w.pdConfig->pdResourceConfig().requestId(), last);
    last = w.pdConfig->pdResourceConfig().requestId();
  }
  // In the middle of a kick, with a review due.
  w.clock.nowIs(5000);
  w.rules("edge 30 t dport 99");
  w.request();
  w.runUntilStage(Stage::stageRangeSplit);
  w.clock.nowIs(10);
  EXPECT_EQ(w.run(), Progress::naxelFinishedSuccess);
  EXPECT_EQ(full(w.tables()), freshTables(w));
}

TEST(RootTest, AKickMayBeRequestedFromWithinANotification) {
  for (Progress when : {Progress::naxelRunning, Progress::naxelFinishedSuccess,
                        Progress::naxelFinishedFail, Progress::naxelCancelled}) {
    SCOPED_TRACE(when);
    World w(rules);
    Agent agent(w);
    int left = 3;
    agent.onProgress = [&](Progress p) {
      if (p != when || left-- <= 0) return;
      if (w.acls->acl("bad")) w.acls->aclDel("bad");
      w.rules("edge 30 t dport " + std::to_string(left + 1));
      w.request();
    };
    if (when == Progress::naxelFinishedFail) w.rules("bad 10 r dport 2-1");
    w.request();
    if (when == Progress::naxelCancelled) w.request(NaxelKickRequest::naxelCancel);
    EXPECT_EQ(w.run(), Progress::naxelFinishedSuccess);
    EXPECT_EQ(full(w.tables()), freshTables(w));
    EXPECT_EQ(w.rootStatus->kickTime(), w.rootConfig->naxelKickTime());
    EXPECT_EQ(w.rootStatus->kickCount(), w.rootConfig->naxelKickTime());
  }
}

TEST(RootTest, ACancelFromWithinANotificationIsTheNewerRequest) {
  World w(rules);
  Agent agent(w);
  agent.onProgress = [&](Progress p) {
    if (p == Progress::naxelRunning &&
        w.rootConfig->naxelKickRequest() == NaxelKickRequest::naxelStart)
      w.request(NaxelKickRequest::naxelCancel);
  };
  w.request();
  EXPECT_EQ(w.run(), Progress::naxelCancelled);
  EXPECT_TRUE(w.driver.log.empty());
  agent.onProgress = [](Progress) {};
  kickOk(w);
}

TEST(RootTest, ARequestFromWithinTheCountIsTheLastOneHandled) {
  World w(rules);
  Agent agent(w);
  agent.onCount = [&] {
    if (w.rootStatus->kickCount() == 1) w.request();
  };
  EXPECT_EQ(w.kick(), Progress::naxelFinishedSuccess);
  EXPECT_EQ(w.rootStatus->kickCount(), 2u);
  EXPECT_EQ(w.rootStatus->kickTime(), 2);
}

TEST(RootTest, TheRootMayBeTakenDownFromWithinAnyNotification) {
  for (Progress when : {Progress::naxelRunning, Progress::naxelFinishedSuccess,
                        Progress::naxelFinishedFail, Progress::naxelCancelled})
    for (bool rebuild : {false, true}) {
      SCOPED_TRACE(when);
      World w(rules);
      Agent agent(w);
      bool done = false;
      agent.onProgress = [&](Progress p) {
        if (p != when || done) return;
        done = true;
        rebuild ? w.buildRoot() : void(w.root = nullptr);
      };
      if (when == Progress::naxelFinishedFail) w.driver.acquireAnswer = ResponseState::failed;
      w.request();
      if (when == Progress::naxelCancelled) w.request(NaxelKickRequest::naxelCancel);
      w.run();
      EXPECT_TRUE(done);
      w.driver.acquireAnswer = ResponseState::hitless;
      if (!rebuild) w.buildRoot();
      kickOk(w);
    }
  for (unsigned stage = 1; stage <= static_cast<unsigned>(Stage::stageLoader); ++stage)
    for (StageStatusType when : {StageStatusType::inProgress, StageStatusType::finishedSuccess}) {
      SCOPED_TRACE(stage);
      World w(rules);
      setWidths(w, Chip::combos);
      w.driver.acquireAnswer = ResponseState::hitful;
      Trap trap(w, static_cast<Stage>(stage), when, [&] { w.root = nullptr; });
      w.kick();
      EXPECT_FALSE(w.root);
      w.buildRoot();
      w.rules("edge 30 t dport 443");
      kickOk(w);
      EXPECT_EQ(w.pdConfig->globalAclControl(), GlobalAclControl::doNotApply);
    }
}

TEST(RootTest, ARootTakenDownInAnyStageLeavesNothingBehind) {
  for (unsigned stage = 0; stage <= static_cast<unsigned>(Stage::stageLoader); ++stage) {
    SCOPED_TRACE(stage);
    World w(rules);
    w.driver.automatic = w.driver.confirms = false;
    w.request();
    w.runUntilStage(static_cast<Stage>(stage));
    w.root = nullptr;
    EXPECT_FALSE(w.activity.runPass());
    auto const log = w.driver.log;
    w.driver.answer();  // nobody is there to hear it
    w.pdStatus->globalAclControlIs(GlobalAclControl::doNotApply);
    EXPECT_EQ(w.driver.log, log);
    w.buildRoot();
    w.driver.automatic = w.driver.confirms = true;
    kickOk(w);
  }
}

/// Takes the root down, or replaces it, when the driver is asked for something.
class Saboteur : public PDConfig::Notifiee {
 public:
  Saboteur(World& world, RequestState when) : world_(world), when_(when) {
    notifierIs(world.pdConfig.get());
  }

 private:
  void onPdResourceConfig() override {
    if (world_.root && world_.driver.current().requestState() == when_) world_.root = nullptr;
  }
  World& world_;
  RequestState when_;
};

TEST(RootTest, ARootMayBeTakenDownByItsDriver) {
  for (RequestState when : {RequestState::acquire, RequestState::load, RequestState::revert}) {
    SCOPED_TRACE(when);
    World w(rules);
    kickOk(w);
    w.rules("edge 30 t dport 443");
    w.driver.log.clear();
    w.driver.acquireAnswer =
        when == RequestState::revert ? ResponseState::failed : ResponseState::hitful;
    // Behind the automatic driver: its answers stand when the root goes.
    Saboteur saboteur(w, when);
    w.kick();
    EXPECT_FALSE(w.root);
    saboteur.notifierIs(nullptr);
    w.driver.acquireAnswer = ResponseState::hitless;
    w.buildRoot();
    kickOk(w);
    EXPECT_EQ(w.pdConfig->globalAclControl(), GlobalAclControl::doNotApply);
  }
}

TEST(RootTest, AnExceptionOutOfAStageFailsTheKickAndTheNextOneWorks) {
  World w(rules);
  kickOk(w);
  // The product of the fields is beyond all bounds.
  std::string huge = "edge 30 huge";
  for (char const* field : {" sport ", " dport ", " len "}) {
    huge += field;
    for (int i = 0; i < 170; ++i) huge += (i ? "," : "") + std::to_string(i * 7919 % 65536);
  }
  w.rules(huge);
  for (int i = 0; i < 2; ++i) kickFails(w, Stage::stageRuleExpander);
  w.acls->acl("edge")->ruleByNameDel("huge");
  kickOk(w);
}

TEST(RootTest, AHandlerThatThrowsStopsNoKick) {
  World w(rules);
  Agent agent(w);
  agent.onProgress = [](Progress) { throw std::runtime_error("agent"); };
  Trap trap(w, Stage::stageAggregator, StageStatusType::finishedSuccess,
            [] { throw std::runtime_error("trap"); });
  kickOk(w);
}

TEST(RootTest, TwoChipsOnOneActivityDoNotDisturbEachOther) {
  World a(rules, 1);
  World b("core 10 r dport 2-1", 2);
  a.request();
  b.request();
  a.run();
  b.run();
  EXPECT_EQ(a.progress(), Progress::naxelFinishedSuccess);
  EXPECT_EQ(b.rootStatus->kickMessage(), "Naxel failed at stageAggregator on chip 2");
}

}  // namespace
}  // namespace Test
