/// The stage controller over stages that the test plays by hand.

#include "mox/Trace.h"
#include "naxel/control/NaxelStageControllerSm.h"
#include "naxel/types/NaxelTrace.h"

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace Test {
namespace {

using namespace Naxel;
using Stage = NaxelActiveStage;
using Status = StageStatusType;

PrefixXformKey const v4src(Lumox::ipv4(), true);
PrefixXformKey const v4dst(Lumox::ipv4(), false);

/// A stage that notes its start and does what it is told.
class FakeStage : public StageSm {
 public:
  FakeStage(std::string name, std::vector<std::string>& log)
      : StageSm(Obel::ChipId(0), Mox::makePtr<StageConfig>(), Mox::makePtr<StageStatus>()),
        name_(std::move(name)),
        log_(log) {}
  std::function<void(FakeStage&)> work = [](FakeStage& s) { s.end(Status::finishedSuccess); };
  void doStartKick() override {
    log_.push_back(name_);
    work(*this);
  }
  void end(Status s) { doSetStatus(s); }
  void fail(std::string text) { doFail(std::move(text)); }

 private:
  std::string name_;
  std::vector<std::string>& log_;
};

struct Bench {
  // Everything is traced, into nothing: what is traced may read what is not there.
  Bench() : sink(Mox::traceSinkIs({})) { naxelTrace().levelIs(9); }
  ~Bench() {
    naxelTrace().levelIs(0);
    Mox::traceSinkIs(sink);
  }
  Mox::TraceSink sink;
  Mox::ManualClock clock;
  Mox::Activity activity{clock};
  Mox::Ptr<Obel::TimerWheel> wheel = Mox::makePtr<Obel::TimerWheel>(activity);
  Mox::Ptr<StageControllerConfig> config = Mox::makePtr<StageControllerConfig>();
  Mox::Ptr<StageControllerStatus> status = Mox::makePtr<StageControllerStatus>();
  Mox::Ptr<StageSmConfig> stageConfig = Mox::makePtr<StageSmConfig>();
  Mox::Ptr<StageSmStatus> stageStatus = Mox::makePtr<StageSmStatus>();
  Mox::Ptr<NaxelStageControllerSm> sm = Mox::makePtr<NaxelStageControllerSm>(
      Obel::ChipId(0), config, status, stageConfig, stageStatus, wheel);
  std::vector<std::string> log;

  /// Puts a stage in, under the first or the second key of a keyed one.
  Mox::Ptr<FakeStage> add(Stage stage, bool second = false) {
    auto const s = Mox::makePtr<FakeStage>(Mox::stringValue(stage) + (second ? "2" : ""), log);
    PrefixXformKey const& key = second ? v4dst : v4src;
    auto const range = second ? RangeSetType::dscp : RangeSetType::srcPort;
    auto const combo =
        second ? ComboLabelSetType::srcDstL4Port : ComboLabelSetType::ipv4SrcDstPrefix;
    switch (stage) {
      case Stage::stageInit: break;
      case Stage::stageAggregator:
        stageConfig->aggregatorConfigIs(s->config());
        stageStatus->aggregatorStatusIs(s->status());
        break;
      case Stage::stagePrefixXform:
        stageConfig->prefixXformConfigIs(key, s->config());
        stageStatus->prefixXformStatusIs(key, s->status());
        break;
      case Stage::stageRangeSplit:
        stageConfig->rangeSplitConfigIs(range, s->config());
        stageStatus->rangeSplitStatusIs(range, s->status());
        break;
      case Stage::stageComboLabelResolver:
        stageConfig->comboLabelResolverConfigIs(combo, s->config());
        stageStatus->comboLabelResolverStatusIs(combo, s->status());
        break;
      case Stage::stageComboLabelSplit:
        stageConfig->comboLabelSplitConfigIs(combo, s->config());
        stageStatus->comboLabelSplitStatusIs(combo, s->status());
        break;
      case Stage::stagePrefixEncoder:
        stageConfig->prefixEncoderConfigIs(key, s->config());
        stageStatus->prefixEncoderStatusIs(key, s->status());
        break;
      case Stage::stageRangeEncoder:
        stageConfig->rangeEncoderConfigIs(range, s->config());
        stageStatus->rangeEncoderStatusIs(range, s->status());
        break;
      case Stage::stageComboLabelEncoder:
        stageConfig->comboLabelEncoderConfigIs(combo, s->config());
        stageStatus->comboLabelEncoderStatusIs(combo, s->status());
        break;
      case Stage::stageRuleExpander:
        stageConfig->ruleExpanderConfigIs(s->config());
        stageStatus->ruleExpanderStatusIs(s->status());
        break;
      case Stage::stageLoader:
        stageConfig->loaderConfigIs(s->config());
        stageStatus->loaderStatusIs(s->status());
        break;
    }
    return s;
  }
  std::vector<Mox::Ptr<FakeStage>> addAll() {
    std::vector<Mox::Ptr<FakeStage>> stages;
    for (Stage s : all()) stages.push_back(add(s));
    return stages;
  }
  static std::vector<Stage> all() {
    std::vector<Stage> stages;
    for (unsigned s = 1; s <= static_cast<unsigned>(Stage::stageLoader); ++s)
      stages.push_back(static_cast<Stage>(s));
    return stages;
  }
  static bool keyed(Stage s) { return s > Stage::stageAggregator && s < Stage::stageRuleExpander; }
  void request(NaxelKickRequest what = NaxelKickRequest::naxelStart) {
    config->kickRequestIs(what);
    config->kickTimeIs(config->kickTime() + 1);
  }
  Status run() {
    EXPECT_TRUE(activity.runUntilIdle(1000));
    return status->status();
  }
  Status kick() {
    request();
    return run();
  }
};

TEST(ControllerTest, StagesWithoutMembersPassAtOnce) {
  Bench b;
  EXPECT_EQ(b.kick(), Status::finishedSuccess);
  auto const aggregator = b.add(Stage::stageAggregator);
  auto const loader = b.add(Stage::stageLoader);
  EXPECT_EQ(b.kick(), Status::finishedSuccess);
  EXPECT_EQ(b.log, (std::vector<std::string>{"stageAggregator", "stageLoader"}));
}

TEST(ControllerTest, AStageThatHasNotAnsweredThisKickIsWaitedFor) {
  for (Stage stage : Bench::all()) {
    SCOPED_TRACE(stage);
    Bench b;
    auto const s = b.add(stage);
    ASSERT_EQ(b.kick(), Status::finishedSuccess);
    s->work = [](FakeStage&) {};
    EXPECT_EQ(b.kick(), Status::inProgress);
    EXPECT_EQ(b.sm->activeStage(), stage);
    s->end(Status::init);
    EXPECT_EQ(b.run(), Status::inProgress);
    // An answer to the kick before this one, of either kind.
    for (Status late : {Status::finishedSuccess, Status::finishedFailed}) {
      s->status()->kickTimeIs(b.config->kickTime() - 1);
      s->status()->statusIs(late);
      EXPECT_EQ(b.run(), Status::inProgress);
      EXPECT_EQ(b.sm->activeStage(), stage);
    }
    s->status()->statusIs(Status::inProgress);
    s->end(Status::cancelled);  // of a stage this is no end of the kick
    EXPECT_EQ(b.run(), Status::finishedSuccess);
  }
}

TEST(ControllerTest, AFailedStageEndsTheKickAndTheNextOneStartsOver) {
  for (Stage stage : Bench::all()) {
    SCOPED_TRACE(stage);
    Bench b;
    auto const stages = b.addAll();
    auto const& failing = stages[static_cast<size_t>(stage) - 1];
    failing->work = [](FakeStage& s) { s.fail("too many"); };
    EXPECT_EQ(b.kick(), Status::finishedFailed);
    EXPECT_EQ(b.status->lastFailedStage(), stage);
    EXPECT_EQ(b.status->failureText(), "too many");
    EXPECT_EQ(b.sm->activeStage(), Stage::stageInit);
    EXPECT_EQ(b.log.size(), static_cast<size_t>(stage));
    // Whatever the stages say after the end starts nothing.
    stages[0]->end(Status::inProgress);
    stages[0]->end(Status::finishedSuccess);
    failing->end(Status::finishedSuccess);
    EXPECT_EQ(b.run(), Status::finishedFailed);
    EXPECT_EQ(b.sm->activeStage(), Stage::stageInit);
    EXPECT_EQ(b.log.size(), static_cast<size_t>(stage));
    failing->work = [](FakeStage&) { throw std::runtime_error("no such thing"); };
    EXPECT_EQ(b.kick(), Status::finishedFailed);
    EXPECT_EQ(b.status->failureText(), "no such thing");
    failing->work = [](FakeStage&) { throw 1; };
    EXPECT_EQ(b.kick(), Status::finishedFailed);
    failing->work = [](FakeStage& s) { s.end(Status::finishedSuccess); };
    EXPECT_EQ(b.kick(), Status::finishedSuccess);
    EXPECT_EQ(b.status->failureText(), "");
  }
}

TEST(ControllerTest, OneMemberThatFailsOrRunsHidesBehindNoOther) {
  // From the worst to the best.
  std::vector<Status> const order = {Status::finishedFailed, Status::init, Status::inProgress,
                                     Status::finishedSkipped, Status::finishedSuccess};
  for (Stage stage : Bench::all()) {
    if (!Bench::keyed(stage)) continue;
    for (size_t i = 0; i < order.size(); ++i)
      for (size_t j = 0; j < order.size(); ++j) {
        SCOPED_TRACE(testing::Message() << stage << " " << order[i] << " " << order[j]);
        Bench b;
        auto const one = b.add(stage), two = b.add(stage, true);
        one->work = [&](FakeStage& s) { s.end(order[i]); };
        two->work = [&](FakeStage& s) { s.end(order[j]); };
        size_t const worst = std::min(i, j);
        Status const expected = worst == 0  ? Status::finishedFailed
                                : worst > 2 ? Status::finishedSuccess
                                            : Status::inProgress;
        EXPECT_EQ(b.kick(), expected);
      }
  }
}

TEST(ControllerTest, ACancelEndsTheKickInWhateverStageItIs) {
  for (Stage stage : Bench::all()) {
    SCOPED_TRACE(stage);
    Bench b;
    auto const stages = b.addAll();
    auto const& slow = stages[static_cast<size_t>(stage) - 1];
    slow->work = [](FakeStage&) {};
    b.kick();
    b.request(NaxelKickRequest::naxelCancel);
    EXPECT_EQ(b.status->status(), Status::inProgress);
    EXPECT_EQ(b.run(), Status::cancelled);
    EXPECT_EQ(b.sm->activeStage(), stage);
    EXPECT_EQ(b.status->kickTime(), b.config->kickTime());
    // The stage was not told; what it says now is of no interest.
    slow->end(Status::finishedFailed);
    EXPECT_EQ(b.run(), Status::cancelled);
    EXPECT_EQ(b.log.size(), static_cast<size_t>(stage));
    slow->work = [](FakeStage& s) { s.end(Status::finishedSuccess); };
    b.log.clear();
    EXPECT_EQ(b.kick(), Status::finishedSuccess);
    EXPECT_EQ(b.log.size(), stages.size());
  }
}

TEST(ControllerTest, AStageWhoseStatusIsTakenAwayIsNotWaitedForAnyMore) {
  using S = StageSmStatus;
  std::pair<Stage, void (S::*)()> const cases[] = {
      {Stage::stageAggregator, &S::aggregatorStatusDel},
      {Stage::stagePrefixXform, &S::prefixXformStatusDelAll},
      {Stage::stageRangeSplit, &S::rangeSplitStatusDelAll},
      {Stage::stageComboLabelResolver, &S::comboLabelResolverStatusDelAll},
      {Stage::stageComboLabelSplit, &S::comboLabelSplitStatusDelAll},
      {Stage::stagePrefixEncoder, &S::prefixEncoderStatusDelAll},
      {Stage::stageRangeEncoder, &S::rangeEncoderStatusDelAll},
      {Stage::stageComboLabelEncoder, &S::comboLabelEncoderStatusDelAll},
      {Stage::stageRuleExpander, &S::ruleExpanderStatusDel},
      {Stage::stageLoader, &S::loaderStatusDel}};
  for (auto const& [stage, del] : cases) {
    SCOPED_TRACE(stage);
    Bench b;
    auto const stages = b.addAll();
    auto const& gone = stages[static_cast<size_t>(stage) - 1];
    gone->work = [](FakeStage&) {};
    EXPECT_EQ(b.kick(), Status::inProgress);
    ((*b.stageStatus).*del)();
    EXPECT_EQ(b.run(), Status::finishedSuccess);
    EXPECT_EQ(b.log.size(), stages.size());
    gone->end(Status::finishedFailed);
    EXPECT_EQ(b.run(), Status::finishedSuccess);
    gone->configDel();
    gone->end(Status::finishedSuccess);
    EXPECT_EQ(gone->status()->status(), Status::finishedFailed);
  }
}

TEST(ControllerTest, AnObstacleFailsTheRunningKickAndAllThatCome) {
  Bench b;
  auto const slow = b.add(Stage::stageRangeSplit);
  slow->work = [](FakeStage&) {};
  b.kick();
  b.sm->configDel();
  b.sm->obstacleIs("nothing is bound");
  EXPECT_EQ(b.status->failureText(), "");
  b.sm->configIs(b.config);
  b.sm->obstacleIs("no chip");
  EXPECT_EQ(b.status->lastFailedStage(), Stage::stageRangeSplit);
  slow->end(Status::finishedSuccess);
  EXPECT_EQ(b.run(), Status::finishedFailed);
  EXPECT_EQ(b.kick(), Status::finishedFailed);
  EXPECT_EQ(b.status->failureText(), "no chip");
  EXPECT_EQ(b.log.size(), 1u);
  b.sm->obstacleDel();
  slow->work = [](FakeStage& s) { s.end(Status::finishedSuccess); };
  EXPECT_EQ(b.kick(), Status::finishedSuccess);
}

}  // namespace
}  // namespace Test
