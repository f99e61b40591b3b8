#include "session/StageTimes.h"

#include <chrono>

namespace NaxelTool {

class StageTimes::Reactor : public Naxel::StageStatus::Notifiee {
 public:
  Reactor(Mox::Ptr<Naxel::StageStatus> status, Stage& stage, double (*now)())
      : status_(std::move(status)), stage_(stage), now_(now) {
    notifierIs(status_.get());
  }
  void onStatus() override {
    Naxel::StageStatusType const status = status_->status();
    if (status == Naxel::StageStatusType::init) return;
    if (status == Naxel::StageStatusType::inProgress) {
      started_ = now_();
      return;
    }
    stage_.seconds += now_() - started_;
    ++stage_.outcome[status];
  }

 private:
  Mox::Ptr<Naxel::StageStatus> status_;
  Stage& stage_;
  double (*now_)();
  double started_ = 0;
};

double StageTimes::wallSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

StageTimes::~StageTimes() = default;

StageTimes::StageTimes(Naxel::StageSmStatus const& statuses, double (*now)()) {
  for (size_t s = 1; s < stages; ++s)
    statuses.forEachKeyed(static_cast<Naxel::NaxelActiveStage>(s),
                          [&](auto const&, Mox::Ptr<Naxel::StageStatus> const& status) {
                            reactors_.push_back(std::make_unique<Reactor>(status, stages_[s], now));
                          });
}

}  // namespace NaxelTool
