#include "session/StageTimes.h"

namespace NaxelTool {

void StageTimes::watch(Naxel::NaxelActiveStage stage, Naxel::StageStatus& status) {
  reactors_.push_back(std::make_unique<Reactor>(status, stages_[static_cast<size_t>(stage)]));
}

void StageTimes::Reactor::onStatus() {
  Naxel::StageStatusType const status = status_.status();
  if (status == Naxel::StageStatusType::init) return;
  if (status == Naxel::StageStatusType::inProgress) {
    started_ = Clock::now();
    return;
  }
  stage_.seconds += std::chrono::duration<double>(Clock::now() - started_).count();
  ++stage_.outcome[status];
}

}  // namespace NaxelTool
