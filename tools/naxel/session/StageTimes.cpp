#include "session/StageTimes.h"

#include <chrono>
#include <utility>

namespace NaxelTool {

class StageTimes::Reactor : public Naxel::StageStatus::Notifiee {
 public:
  Reactor(Mox::Ptr<Naxel::StageStatus> status, StageTimes& all, Naxel::NaxelActiveStage which,
          double (*now)())
      : status_(std::move(status)),
        all_(all),
        which_(which),
        stage_(all.stages_[static_cast<size_t>(which)]),
        now_(now) {
    notifierIs(status_.get());
  }
  void onStatus() override {
    Naxel::StageStatusType const status = status_->status();
    if (status == Naxel::StageStatusType::init) return;
    if (status == Naxel::StageStatusType::inProgress) {
      all_.starts(which_);
      started_ = now_();
      return;
    }
    stage_.seconds += now_() - started_;
    ++stage_.outcome[status];
  }

 private:
  Mox::Ptr<Naxel::StageStatus> status_;
  StageTimes& all_;
  Naxel::NaxelActiveStage which_;
  Stage& stage_;
  double (*now_)();
  double started_ = 0;
};

double StageTimes::wallSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

StageTimes::~StageTimes() = default;

StageTimes::StageTimes(Naxel::StageSmStatus const& statuses, double (*now)()) {
  for (size_t s = 1; s < stages; ++s) {
    auto const stage = static_cast<Naxel::NaxelActiveStage>(s);
    statuses.forEachKeyed(stage, [&](auto const&, Mox::Ptr<Naxel::StageStatus> const& status) {
      reactors_.push_back(std::make_unique<Reactor>(status, *this, stage, now));
    });
  }
}

void StageTimes::starts(Naxel::NaxelActiveStage stage) {
  if (std::exchange(running_, stage) != stage && watcher_) watcher_(stage);
}

}  // namespace NaxelTool
