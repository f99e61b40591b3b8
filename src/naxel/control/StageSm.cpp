#include "naxel/control/StageSm.h"

#include "mox/KeepAlive.h"
#include "naxel/types/NaxelTrace.h"

namespace Naxel {

StageSm::StageSm(Obel::ChipId chipId, Mox::Ptr<StageConfig> config, Mox::Ptr<StageStatus> status)
    : chipId_(chipId), config_(std::move(config)), status_(std::move(status)) {
  MOX_ASSERT(config_ && status_);
  configReactor_.notifierIs(config_.get());
}

StageSm::~StageSm() = default;

void StageSm::configIs(Mox::Ptr<StageConfig> config) {
  if (config_ != config) doForget();  // what was remembered is about another input
  config_ = std::move(config);
  configReactor_.notifierIs(config_.get());
}

void StageSm::moxDoZombieReactors(bool zombie) {
  configReactor_.notifierIs(zombie ? nullptr : config_.get());
}

void StageSm::handleKickTime() {
  if (!config_) return;
  // Reactors of the statuses below may take the owner of this stage down.
  auto const alive = Mox::keepAlive(this);
  try {
    // Inside the frame as well: its watchers run within this write.
    doSetStatus(StageStatusType::inProgress);
    doStartKick();
  } catch (std::exception const& e) {
    doFailThrown(e.what());
  } catch (...) {
    doFailThrown("unknown exception");
  }
}

void StageSm::doRunStage() {
  Look look = doLook();
  switch (look.at) {
    case Look::At::off:
      // Forgotten first, so that an output which could be cleared only in part is not taken for a result by
      // the next kick.
      doForget();
      doClearOutput();
      return doSetStatus(StageStatusType::finishedNotEnabled);
    // What is remembered stays: it describes the output that stands.
    case Look::At::unchanged: return doSetStatus(StageStatusType::finishedSkipped);
    case Look::At::refused: return doFail(std::move(look.reason));
    case Look::At::unusable: doForget(); return doFail(std::move(look.reason));
    case Look::At::work: break;
  }
  // From here on the output is neither that of the last run nor that of this one, and whatever ends the work
  // early must leave it to be done again.
  doForget();
  if (auto reason = doWork()) return doFail(std::move(*reason));
  doRemember();
  doSetStatus(StageStatusType::finishedSuccess);
}

void StageSm::doSetStatus(StageStatusType s) {
  if (!config_) return;
  // An old reason must not stand beside a new outcome. The kick time comes before the status, because a
  // status with an older one counts as not answered.
  if (s != StageStatusType::finishedFailed) status_->failureTextIs(std::string());
  status_->kickTimeIs(config_->kickTime());
  status_->statusIs(s);
}

void StageSm::doFail(std::string text) {
  status_->failureTextIs(std::move(text));
  doSetStatus(StageStatusType::finishedFailed);
}

void StageSm::doFailThrown(char const* what) noexcept {
  // First of all, and without allocating: the report below may fail where memory is short.
  doForget();
  try {
    if (auto line = trace(0)) line << status_->fwkType() << ": stage failed: " << what;
    status_->failureTextIs(what);
  } catch (...) {
    // Out of memory: the failure itself still has to be reported.
  }
  try {
    doSetStatus(StageStatusType::finishedFailed);
  } catch (...) {
    // Setting the two scalars does not throw, and handlers that throw are caught by the framework.
  }
}

}  // namespace Naxel
