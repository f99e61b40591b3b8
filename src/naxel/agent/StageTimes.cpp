#include "naxel/agent/StageTimes.h"

#include <chrono>
#include <utility>

namespace Naxel {

class StageTimes::Reactor : public StageStatus::Notifiee {
 public:
  Reactor(Mox::Ptr<StageStatus> status, StageTimes& all, NaxelActiveStage which, double (*now)())
      : status_(std::move(status)),
        all_(all),
        which_(which),
        stage_(all.stages_[static_cast<size_t>(which)]),
        now_(now) {
    notifierIs(status_.get());
  }
  void onStatus() override {
    StageStatusType const status = status_->status();
    if (status == StageStatusType::init) return;
    if (status == StageStatusType::inProgress) {
      all_.starts(which_);
      started_ = now_();
      isRunning_ = true;
      isSettled_ = false;
      return;
    }
    if (!std::exchange(isSettled_, false)) count(status);
  }
  void settle() {
    StageStatusType const status = status_->status();
    if (!isRunning_ || status == StageStatusType::init || status == StageStatusType::inProgress)
      return;
    count(status);
    isSettled_ = true;
  }

 private:
  void count(StageStatusType status) {
    stage_.seconds += now_() - started_;
    ++stage_.outcome[status];
    isRunning_ = false;
  }

  Mox::Ptr<StageStatus> status_;
  StageTimes& all_;
  NaxelActiveStage which_;
  StageMetrics& stage_;
  double (*now_)();
  double started_ = 0;
  bool isRunning_ = false;
  bool isSettled_ = false;  // counted already, ahead of its notification
};

double StageTimes::wallSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

StageTimes::~StageTimes() = default;

StageTimes::StageTimes(StageSmStatus const& statuses, double (*now)()) {
  for (size_t s = 1; s < stageCount; ++s) {
    auto const stage = static_cast<NaxelActiveStage>(s);
    statuses.forEachKeyed(stage, [&](auto const&, Mox::Ptr<StageStatus> const& status) {
      reactors_.push_back(std::make_unique<Reactor>(status, *this, stage, now));
    });
  }
}

void StageTimes::settle() {
  for (auto const& reactor : reactors_) reactor->settle();
}

void StageTimes::starts(NaxelActiveStage stage) {
  if (std::exchange(running_, stage) != stage && watcher_) watcher_(stage);
}

}  // namespace Naxel
