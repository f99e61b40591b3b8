/// The stage controller over stages that the test plays by hand.

#include "support/Handshake.h"

namespace Test {
namespace {

using namespace Naxel;
using Stage = NaxelActiveStage;
using Status = StageStatusType;

/// A stage that notes its start and does what it is told.
class FakeStage : public StageSm {
 public:
  FakeStage(std::string name, Log& log)
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
  Log& log_;
};

struct Bench {
  Traced traced{9};  // what is traced may read what is not there
  Mox::ManualClock clock;
  Mox::Activity activity{clock};
  Mox::Ptr<Obel::TimerWheel> wheel = Mox::makePtr<Obel::TimerWheel>(activity);
  Mox::Ptr<StageControllerConfig> config = Mox::makePtr<StageControllerConfig>();
  Mox::Ptr<StageControllerStatus> status = Mox::makePtr<StageControllerStatus>();
  Mox::Ptr<StageSmConfig> stageConfig = Mox::makePtr<StageSmConfig>();
  Mox::Ptr<StageSmStatus> stageStatus = Mox::makePtr<StageSmStatus>();
  Mox::Ptr<NaxelStageControllerSm> sm = Mox::makePtr<NaxelStageControllerSm>(
      Obel::ChipId(0), config, status, stageConfig, stageStatus, wheel);
  Log log;
  std::vector<Mox::Ptr<FakeStage>> stages;

  using C = StageSmConfig;
  using S = StageSmStatus;

  /// Puts a stage in, under the first or the second key of a keyed one.
  Mox::Ptr<FakeStage> add(Stage stage, bool second = false) {
    auto const s = Mox::makePtr<FakeStage>(Mox::stringValue(stage) + (second ? "2" : ""), log);
    auto const put = [&](auto configIs, auto statusIs, auto del, auto const&... key) {
      ((*stageConfig).*configIs)(key..., s->config());
      ((*stageStatus).*statusIs)(key..., s->status());
      takeAway = [this, del] { ((*stageStatus).*del)(); };
      return stages.emplace_back(s);
    };
    PrefixXformKey const prefix(Lumox::ipv4(), second);
    auto const range = second ? RangeSetType::dscp : RangeSetType::srcPort;
    auto const combo =
        second ? ComboLabelSetType::srcDstL4Port : ComboLabelSetType::ipv4SrcDstPrefix;
#define SINGLE(NAME) return put(&C::NAME##ConfigIs, &S::NAME##StatusIs, &S::NAME##StatusDel)
#define KEYED(NAME, KEY) \
  return put(&C::NAME##ConfigIs, &S::NAME##StatusIs, &S::NAME##StatusDelAll, KEY)
    switch (stage) {
      case Stage::stageInit: break;
      case Stage::stageAggregator: SINGLE(aggregator);
      case Stage::stagePrefixXform: KEYED(prefixXform, prefix);
      case Stage::stageRangeSplit: KEYED(rangeSplit, range);
      case Stage::stageComboLabelResolver: KEYED(comboLabelResolver, combo);
      case Stage::stageComboLabelSplit: KEYED(comboLabelSplit, combo);
      case Stage::stagePrefixEncoder: KEYED(prefixEncoder, prefix);
      case Stage::stageRangeEncoder: KEYED(rangeEncoder, range);
      case Stage::stageComboLabelEncoder: KEYED(comboLabelEncoder, combo);
      case Stage::stageRuleExpander: SINGLE(ruleExpander);
      case Stage::stageLoader: SINGLE(loader);
    }
#undef SINGLE
#undef KEYED
    return nullptr;
  }
  std::function<void()> takeAway;  // the status of the stage that was put in last
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

/// For each stage a bench of all of them.
void forEachStage(std::function<void(Bench&, FakeStage&, Stage)> const& test) {
  for (Stage stage = Stage::stageAggregator; stage <= Stage::stageLoader;
       stage = static_cast<Stage>(static_cast<unsigned>(stage) + 1)) {
    SCOPED_TRACE(stage);
    Bench b;
    for (unsigned s = 1; s <= static_cast<unsigned>(Stage::stageLoader); ++s)
      if (static_cast<Stage>(s) != stage) b.add(static_cast<Stage>(s));
    test(b, *b.add(stage), stage);
  }
}

void succeed(FakeStage& s) { s.end(Status::finishedSuccess); }
void wait(FakeStage&) {}

TEST(ControllerTest, AStageThatHasNotAnsweredThisKickIsWaitedForWhileItsStatusStands) {
  forEachStage([](Bench& b, FakeStage& s, Stage stage) {
    ASSERT_EQ(b.kick(), Status::finishedSuccess);
    s.work = wait;
    EXPECT_EQ(b.kick(), Status::inProgress);
    EXPECT_EQ(b.sm->activeStage(), stage);
    EXPECT_EQ(b.sm->waitingFor(),
              Mox::stringValue(stage) + " has to end: Naxel::StageStatus says inProgress");
    s.end(Status::init);
    EXPECT_EQ(b.run(), Status::inProgress);
    // An answer to the kick before this one, of either kind.
    for (Status late : {Status::finishedSuccess, Status::finishedFailed}) {
      s.status()->kickTimeIs(b.config->kickTime() - 1);
      s.status()->statusIs(late);
      EXPECT_EQ(b.run(), Status::inProgress);
      EXPECT_EQ(b.sm->activeStage(), stage);
    }
    s.status()->statusIs(Status::inProgress);
    s.end(Status::cancelled);  // of a stage this is no end of the kick
    EXPECT_EQ(b.run(), Status::finishedSuccess);

    EXPECT_EQ(b.kick(), Status::inProgress);
    b.takeAway();
    EXPECT_EQ(b.run(), Status::finishedSuccess);
    EXPECT_EQ(b.log.size(), 30u);
    s.end(Status::finishedFailed);
    EXPECT_EQ(b.run(), Status::finishedSuccess);
    s.configDel();
    s.end(Status::finishedSuccess);
    EXPECT_EQ(s.status()->status(), Status::finishedFailed);
  });
}

TEST(ControllerTest, AFailedStageEndsTheKickAndTheNextOneStartsOver) {
  forEachStage([](Bench& b, FakeStage& s, Stage stage) {
    std::pair<void (*)(FakeStage&), std::string> const failures[] = {
        {[](FakeStage& f) { f.fail("too many"); }, "too many"},
        {[](FakeStage&) { throw std::runtime_error("no such thing"); }, "no such thing"},
        {[](FakeStage&) { throw 1; }, "unknown exception"}};
    for (auto const& [work, text] : failures) {
      b.log.clear();
      s.work = work;
      EXPECT_EQ(b.kick(), Status::finishedFailed);
      EXPECT_EQ(b.status->lastFailedStage(), stage);
      EXPECT_EQ(b.status->failureText(), text);
      // Whatever the stages say after the end starts nothing.
      s.end(Status::inProgress);
      s.end(Status::finishedSuccess);
      EXPECT_EQ(b.run(), Status::finishedFailed);
      EXPECT_EQ(b.sm->activeStage(), Stage::stageInit);
      EXPECT_EQ(b.log.size(), static_cast<size_t>(stage));
    }
    s.work = succeed;
    EXPECT_EQ(b.kick(), Status::finishedSuccess);
    EXPECT_EQ(b.status->failureText(), "");
  });
}

TEST(ControllerTest, OneMemberThatFailsOrRunsHidesBehindNoOther) {
  // From the worst to the best.
  std::vector<Status> const order = {Status::finishedFailed, Status::init, Status::inProgress,
                                     Status::finishedSkipped, Status::finishedSuccess};
  forEachStage([&](Bench& b, FakeStage& one, Stage stage) {
    if (stage == Stage::stageAggregator || stage >= Stage::stageRuleExpander) return;
    auto const two = b.add(stage, true);
    for (size_t i = 0; i < order.size(); ++i)
      for (size_t j = 0; j < order.size(); ++j) {
        one.work = [&](FakeStage& s) { s.end(order[i]); };
        two->work = [&](FakeStage& s) { s.end(order[j]); };
        size_t const worst = std::min(i, j);
        EXPECT_EQ(b.kick(), worst == 0  ? Status::finishedFailed
                            : worst > 2 ? Status::finishedSuccess
                                        : Status::inProgress)
            << order[i] << order[j];
      }
  });
}

TEST(ControllerTest, ACancelEndsTheKickInWhateverStageItIs) {
  forEachStage([](Bench& b, FakeStage& s, Stage stage) {
    s.work = wait;
    b.kick();
    b.request(NaxelKickRequest::naxelCancel);
    EXPECT_EQ(b.status->status(), Status::inProgress);
    EXPECT_EQ(b.run(), Status::cancelled);
    EXPECT_EQ(b.sm->activeStage(), stage);
    EXPECT_EQ(b.status->kickTime(), b.config->kickTime());
    // The stage was not told; what it says now is of no interest.
    s.end(Status::finishedFailed);
    EXPECT_EQ(b.run(), Status::cancelled);
    EXPECT_EQ(b.log.size(), static_cast<size_t>(stage));
    s.work = succeed;
    EXPECT_EQ(b.kick(), Status::finishedSuccess);
    EXPECT_EQ(b.log.size(), static_cast<size_t>(stage) + 10);
  });
}

TEST(ControllerTest, AKickFromWithinAStageStartsNoFurtherMemberOfTheOneBefore) {
  Bench b;  // the other stages, which have no members, pass at once
  auto const one = b.add(Stage::stageRangeSplit), two = b.add(Stage::stageRangeSplit, true);
  for (auto const& s : {one, two})
    s->work = [&](FakeStage& self) {
      if (b.log.size() == 1) b.request();
      succeed(self);
    };
  EXPECT_EQ(b.kick(), Status::finishedSuccess);
  EXPECT_EQ(b.log.size(), 3u) << b.log[1];
}

}  // namespace
}  // namespace Test
