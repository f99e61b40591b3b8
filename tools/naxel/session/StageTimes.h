#pragma once

/// Measures the stages of a kick from outside, by the statuses that they publish.

#include "naxel/control/StageSmColl.h"

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace NaxelTool {

/// The keys of a stage are summed up.
class StageTimes {
 public:
  struct Stage {
    double seconds = 0;
    std::map<Naxel::StageStatusType, size_t> outcome;  ///< how many statuses ended how
  };
  static constexpr size_t stages = Mox::EnumNames<Naxel::NaxelActiveStage>::value.size();

  /// Seconds of the machine's steady clock.
  static double wallSeconds();

  /// Watches the statuses that there are, from now on. `now` says what is measured, in seconds.
  explicit StageTimes(Naxel::StageSmStatus const& statuses, double (*now)() = wallSeconds);
  StageTimes(StageTimes const&) = delete;
  StageTimes& operator=(StageTimes const&) = delete;
  ~StageTimes();

  Stage const& stage(Naxel::NaxelActiveStage stage) const {
    return stages_[static_cast<size_t>(stage)];
  }
  /// Called at the start of each stage, once for all its keys.
  void watcherIs(std::function<void(Naxel::NaxelActiveStage)> f) { watcher_ = std::move(f); }
  /// Forgets what has been measured.
  void clear() {
    stages_ = {};
    running_ = Naxel::NaxelActiveStage::stageInit;
  }

 private:
  class Reactor;

  void starts(Naxel::NaxelActiveStage stage);

  std::array<Stage, stages> stages_;
  std::function<void(Naxel::NaxelActiveStage)> watcher_;
  Naxel::NaxelActiveStage running_ = Naxel::NaxelActiveStage::stageInit;
  std::vector<std::unique_ptr<Reactor>> reactors_;
};

}  // namespace NaxelTool
