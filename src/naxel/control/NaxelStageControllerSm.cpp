#include "naxel/control/NaxelStageControllerSm.h"

#include "mox/Assert.h"
#include "mox/KeepAlive.h"
#include "naxel/types/NaxelTrace.h"

namespace Naxel {

namespace {

/// Members of a keyed stage are judged worst first: one failure, or one that still runs, must not
/// hide behind another that skipped.
int severity(StageStatusType s) {
  switch (s) {
    case StageStatusType::finishedFailed: return 4;
    case StageStatusType::init: return 3;
    case StageStatusType::inProgress: return 2;
    case StageStatusType::finishedSkipped:
    case StageStatusType::finishedNotEnabled:
    case StageStatusType::cancelled: return 1;
    case StageStatusType::finishedSuccess: break;
  }
  return 0;
}

}  // namespace

void NaxelStageControllerSm::StatusReactor::handleStatus() {
  if (auto line = trace(8))
    line << "handleStatus " << static_cast<StageStatus const*>(notifier())->status();
  // Deferred to the timer: a stage reports from within the write that starts it. To review here would nest
  // all stages in one call, and would judge a keyed stage before all of its members have started.
  sm_.scheduleReview();
}

void NaxelStageControllerSm::StageStatusReactor::bind(NaxelActiveStage stage) {
  auto& reactors = reactors_[stage];
  reactors.clear();
  sm_.stageStatus_->forEach(stage, [&](StageStatus& status) {
    reactors.push_back(std::make_unique<StatusReactor>(sm_, status));
  });
  // What was waited for may be gone, and what has come may have answered.
  sm_.scheduleReview();
}

NaxelStageControllerSm::NaxelStageControllerSm(Obel::ChipId chipId,
                                               Mox::Ptr<StageControllerConfig> config,
                                               Mox::Ptr<StageControllerStatus> status,
                                               Mox::Ptr<StageSmConfig> stageConfig,
                                               Mox::Ptr<StageSmStatus> stageStatus,
                                               Mox::Ptr<Obel::TimerWheel> timerWheel)
    : StageSm(chipId, std::move(config), status),
      status_(std::move(status)),
      stageConfig_(std::move(stageConfig)),
      stageStatus_(std::move(stageStatus)),
      timerWheel_(timerWheel),
      timer_(*this, std::move(timerWheel)) {
  stageStatusReactor_.notifierIs(stageStatus_.get());
  for (size_t s = 1; s < Mox::EnumNames<NaxelActiveStage>::value.size(); ++s)
    stageStatusReactor_.bind(static_cast<NaxelActiveStage>(s));
  handleInitialized();
}

NaxelStageControllerSm::~NaxelStageControllerSm() = default;

void NaxelStageControllerSm::handleInitialized() {
  if (auto line = trace(8)) line << "handleInitialized";
  initialized_ = true;
}

void NaxelStageControllerSm::moxDoZombieReactors(bool zombie) {
  StageSm::moxDoZombieReactors(zombie);
  initialized_ = !zombie;
  if (zombie) timer_.earliestExpiryDel();
}

void NaxelStageControllerSm::doStartKick() {
  if (!initialized_) return;
  if (kickRequest() == NaxelKickRequest::naxelStart) {
    activeStage_ = NaxelActiveStage::stageInit;
    // Before the inputs are taken, which are those of an entity that may be out of its place.
    if (obstacle_) return doFailKick(obstacle_);
    try {
      if (prepare_) prepare_();
    } catch (...) {
      // The frame reports the failure; that no stage has caused it is said here.
      status_->lastFailedStageIs(activeStage_);
      throw;
    }
    return transitStage();
  }
  MOX_ASSERT_TEXT(status_->status() == StageStatusType::inProgress,
                  "status()->status() == inProgress_");
  scheduleReview();
}

void NaxelStageControllerSm::transitStage() {
  if (auto line = trace(8)) line << "transitStage";
  if (!initialized_ || !config()) return;
  status_->progressInc();
  // Whoever is told of the progress may cancel.
  if (kickRequest() == NaxelKickRequest::naxelCancel) {
    if (auto line = trace(4)) line << "This round of naxel kick is cancelled";
    return doSetStatus(StageStatusType::cancelled);
  }
  NaxelActiveStage const old = activeStage_;
  if (auto line = trace(4)) line << "[" << chipId() << "] Ready to transit out of " << old;
  if (old > NaxelActiveStage::stageLoader) MOX_ASSERT(false && "unknown stage");
  bool const last = old == NaxelActiveStage::stageLoader;
  activeStage_ = last ? NaxelActiveStage::stageInit
                      : static_cast<NaxelActiveStage>(static_cast<unsigned>(old) + 1);
  if (auto line = trace(4))
    line << "[" << chipId() << "] Transited from " << old << " to " << activeStage_;
  if (last) return doSetStatus(StageStatusType::finishedSuccess);
  // The review must come even if nothing changes: a keyed stage may have no members, and a status
  // may end where it began. It is scheduled first, because a stage may start another kick from
  // within.
  scheduleReview();
  Mox::Seconds const kickTime = config()->kickTime();
  stageConfig_->forEach(activeStage_, [&](StageConfig& c) {
    // A member may start another kick or unbind this controller from within. The rest of the stage belongs
    // to that kick then, and is not started for this one.
    if (config() && config()->kickTime() == kickTime) c.kickTimeIs(kickTime);
  });
}

void NaxelStageControllerSm::scheduleReview() {
  if (auto line = trace(8)) line << "scheduleReview";
  if (initialized_) timer_.earliestExpiryIs(timerWheel_->now());
}

StageStatusType NaxelStageControllerSm::doCheckStageStatus(StageStatus const& status) const {
  // A stage that has not started yet still shows how it ended in an earlier kick, and so does a loader that
  // answers an old one late.
  bool const present = config() && status.kickTime() == config()->kickTime();
  return present ? status.status() : StageStatusType::init;
}

StageStatusType NaxelStageControllerSm::doCheckKeyed(NaxelActiveStage stage) const {
  // A stage without members is passed at once.
  StageStatusType worst = StageStatusType::finishedSuccess;
  stageStatus_->forEach(stage, [&](StageStatus const& status) {
    StageStatusType const s = doCheckStageStatus(status);
    if (severity(s) > severity(worst)) worst = s;
  });
  return worst;
}

StageStatusType NaxelStageControllerSm::doCheckPrefixXformStatus() const {
  return doCheckKeyed(NaxelActiveStage::stagePrefixXform);
}
StageStatusType NaxelStageControllerSm::doCheckRangeSplitStatus() const {
  return doCheckKeyed(NaxelActiveStage::stageRangeSplit);
}
StageStatusType NaxelStageControllerSm::doCheckComboLabelResolverStatus() const {
  return doCheckKeyed(NaxelActiveStage::stageComboLabelResolver);
}
StageStatusType NaxelStageControllerSm::doCheckComboLabelSplitStatus() const {
  return doCheckKeyed(NaxelActiveStage::stageComboLabelSplit);
}
StageStatusType NaxelStageControllerSm::doCheckPrefixEncoderStatus() const {
  return doCheckKeyed(NaxelActiveStage::stagePrefixEncoder);
}
StageStatusType NaxelStageControllerSm::doCheckRangeEncoderStatus() const {
  return doCheckKeyed(NaxelActiveStage::stageRangeEncoder);
}
StageStatusType NaxelStageControllerSm::doCheckComboLabelEncoderStatus() const {
  return doCheckKeyed(NaxelActiveStage::stageComboLabelEncoder);
}

std::string NaxelStageControllerSm::failureTextOf(NaxelActiveStage stage) const {
  std::string text;
  stageStatus_->forEach(stage, [&](StageStatus const& status) {
    if (text.empty() && doCheckStageStatus(status) == StageStatusType::finishedFailed)
      text = status.failureText();
  });
  return text;
}

void NaxelStageControllerSm::doEndFailed(NaxelActiveStage stage,
                                         std::function<std::string()> const& text) {
  // Everything that explains the failure is written before the status, whose watchers read it.
  status_->lastFailedStageIs(stage);
  try {
    std::string reason = text();
    auto const& loader = stageStatus_->loaderStatus();
    if (loader && !loader->caution().empty()) reason += "; " + loader->caution();
    status_->failureTextIs(std::move(reason));
  } catch (std::bad_alloc const&) {
    // The failure itself still has to be reported.
  }
  // Before the status as well: a watcher may start the next kick, which must begin with the first stage.
  activeStage_ = NaxelActiveStage::stageInit;
  doSetStatus(StageStatusType::finishedFailed);
}

void NaxelStageControllerSm::doFailKick(char const* why) {
  // Reactors of the status may take the owner of this controller down.
  auto const alive = Mox::keepAlive(this);
  if (!initialized_ || !config() || status_->status() != StageStatusType::inProgress) return;
  if (auto line = trace(0)) line << "[" << chipId() << "] The kick fails: " << why;
  doEndFailed(activeStage_, [why] { return std::string(why); });
}

void NaxelStageControllerSm::obstacleIs(char const* why) {
  obstacle_ = why;
  if (why) doFailKick(why);
}

std::string NaxelStageControllerSm::waitingFor() const {
  if (!config() || status_->status() != StageStatusType::inProgress) return {};
  // A review is due, so what the stages say now is about to be acted on.
  if (timer_.earliestExpiry() >= 0) return "the next pass of the timer wheel";
  std::string missing;
  stageStatus_->forEach(activeStage_, [&](StageStatus const& status) {
    StageStatusType const s = doCheckStageStatus(status);
    if (s != StageStatusType::init && s != StageStatusType::inProgress) return;
    missing += (missing.empty() ? ": " : ", ") + std::string(status.fwkType()) + " says " +
               Mox::stringValue(s);
  });
  return Mox::stringValue(activeStage_) + " has to end" + missing;
}

StageStatusType NaxelStageControllerSm::checkActiveStage() const {
  auto const single = [&](Mox::Ptr<StageStatus> const& status) {
    // What has been taken out of the pipeline is not waited for.
    return status ? doCheckStageStatus(*status) : StageStatusType::finishedSuccess;
  };
  switch (activeStage_) {
    case NaxelActiveStage::stageAggregator: return single(stageStatus_->aggregatorStatus());
    case NaxelActiveStage::stagePrefixXform: return doCheckPrefixXformStatus();
    case NaxelActiveStage::stageRangeSplit: return doCheckRangeSplitStatus();
    case NaxelActiveStage::stageComboLabelResolver: return doCheckComboLabelResolverStatus();
    case NaxelActiveStage::stageComboLabelSplit: return doCheckComboLabelSplitStatus();
    case NaxelActiveStage::stagePrefixEncoder: return doCheckPrefixEncoderStatus();
    case NaxelActiveStage::stageRangeEncoder: return doCheckRangeEncoderStatus();
    case NaxelActiveStage::stageComboLabelEncoder: return doCheckComboLabelEncoderStatus();
    case NaxelActiveStage::stageRuleExpander: return single(stageStatus_->ruleExpanderStatus());
    case NaxelActiveStage::stageLoader: return single(stageStatus_->loaderStatus());
    case NaxelActiveStage::stageInit: break;
  }
  MOX_ASSERT(false && "unknown stage");
  return StageStatusType::init;
}

void NaxelStageControllerSm::doReview() {
  if (auto line = trace(8)) line << "doReview";
  if (!initialized_ || !config()) return;
  // Reactors of the status may take the owner of this controller down.
  auto const alive = Mox::keepAlive(this);
  // A stage may answer long after its kick has ended; only a running kick is reviewed.
  if (status_->status() != StageStatusType::inProgress) return;
  if (kickRequest() == NaxelKickRequest::naxelCancel) {
    if (auto line = trace(4)) line << "[" << chipId() << "] This round of naxel kick is cancelled";
    return doSetStatus(StageStatusType::cancelled);
  }
  // No stage of this kick has been started yet.
  if (activeStage_ == NaxelActiveStage::stageInit) return transitStage();
  switch (checkActiveStage()) {
    case StageStatusType::finishedFailed:
      if (auto line = trace(0))
        line << "Stage " << activeStage_ << " for chip " << chipId() << " failed";
      return doEndFailed(activeStage_, [this] { return failureTextOf(activeStage_); });
    case StageStatusType::inProgress:
      if (auto line = trace(1))
        line << "Stage " << activeStage_ << " for chip " << chipId() << " is still running";
      return;
    case StageStatusType::init:
      if (auto line = trace(1))
        line << "Stage " << activeStage_ << " for chip " << chipId() << " is initializing";
      return;
    case StageStatusType::finishedSuccess:
    case StageStatusType::finishedSkipped:
    case StageStatusType::finishedNotEnabled:
    case StageStatusType::cancelled: return transitStage();
  }
}

}  // namespace Naxel
