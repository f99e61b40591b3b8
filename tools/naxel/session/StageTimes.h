#pragma once

/// Measures the stages of a kick from outside, by the statuses that they publish.

#include "naxel/control/StageTypes.h"

#include <array>
#include <chrono>
#include <map>
#include <memory>
#include <vector>

namespace NaxelTool {

/// Watches any number of statuses per stage; a stage that has one per key is summed up.
class StageTimes {
 public:
  struct Stage {
    double seconds = 0;
    std::map<Naxel::StageStatusType, size_t> outcome;  ///< how many statuses ended how
  };

  /// Must go before the status.
  void watch(Naxel::NaxelActiveStage stage, Naxel::StageStatus& status);

  Stage const& stage(Naxel::NaxelActiveStage stage) const {
    return stages_[static_cast<size_t>(stage)];
  }

 private:
  using Clock = std::chrono::steady_clock;

  class Reactor : public Naxel::StageStatus::Notifiee {
   public:
    Reactor(Naxel::StageStatus& status, Stage& stage) : status_(status), stage_(stage) {
      notifierIs(&status);
    }
    void onStatus() override;

   private:
    Naxel::StageStatus& status_;
    Stage& stage_;
    Clock::time_point started_;
  };

  std::array<Stage, 11> stages_;
  std::vector<std::unique_ptr<Reactor>> reactors_;
};

}  // namespace NaxelTool
