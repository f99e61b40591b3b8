#pragma once

/// Measures the stages of a kick from outside, by the statuses that they publish.

#include "naxel/agent/Metrics.h"
#include "naxel/control/StageSmColl.h"

#include <functional>
#include <memory>
#include <vector>

namespace Naxel {

/// The keys of a stage are summed up.
class NAXEL_EXPORT StageTimes {
 public:
  /// Seconds of the machine's steady clock.
  static double wallSeconds();

  /// Watches the statuses that there are, from now on. `now` says what is measured, in seconds.
  explicit StageTimes(StageSmStatus const& statuses, double (*now)() = wallSeconds);
  StageTimes(StageTimes const&) = delete;
  StageTimes& operator=(StageTimes const&) = delete;
  ~StageTimes();

  /// By stage.
  std::array<StageMetrics, stageCount> const& stages() const { return stages_; }
  StageMetrics const& stage(NaxelActiveStage stage) const {
    return stages_[static_cast<size_t>(stage)];
  }
  /// Called at the start of each stage, once for all its keys.
  void watcherIs(std::function<void(NaxelActiveStage)> f) { watcher_ = std::move(f); }
  /// Takes in statuses whose notification is under way and has not come here yet: the outcome of a kick is told
  /// from within that of its last stage.
  void settle();
  /// Forgets what has been measured.
  void clear() {
    stages_ = {};
    running_ = NaxelActiveStage::stageInit;
  }

 private:
  class Reactor;

  void starts(NaxelActiveStage stage);

  std::array<StageMetrics, stageCount> stages_;
  std::function<void(NaxelActiveStage)> watcher_;
  NaxelActiveStage running_ = NaxelActiveStage::stageInit;
  std::vector<std::unique_ptr<Reactor>> reactors_;
};

}  // namespace Naxel
