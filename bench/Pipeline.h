#pragma once

/// One chip's pipeline as the benchmarks time it, with a driver that answers at once and copies
/// nothing.

#include "acl/ParamConfig.h"
#include "naxel/control/NaxelRootSm.h"

#include <array>
#include <memory>
#include <vector>

namespace Bench {

/// Seconds that this thread has spent on the processor: on an idle machine the time of the wall, and
/// little disturbed by other programs on a busy one.
double threadSeconds();

/// Answers every request from within the write: resources are there, hitless, loaded.
class AtOnceDriver : private Naxel::PDConfig::Notifiee {
 public:
  AtOnceDriver(Naxel::PDConfig& config, Naxel::PDStatus& status);

 private:
  void onPdResourceConfig() override;
  void onGlobalAclControl() override;

  Naxel::PDConfig& config_;
  Naxel::PDStatus& status_;
};

class Pipeline {
 public:
  static constexpr size_t stages = 11;  ///< as many as NaxelActiveStage has values

  Pipeline(Mox::Ptr<Naxel::AclConfigColl const> acls,
           Mox::Ptr<Naxel::ChipHwCapability const> capability);

  /// Writes a new kick time and runs the activity until the kick has ended. Returns its seconds.
  /// Throws std::runtime_error, with the reason, where it did not succeed.
  double kick();

  /// Seconds of a stage in the last kick, all its keys together.
  double stageSeconds(Naxel::NaxelActiveStage stage) const {
    return seconds_[static_cast<size_t>(stage)];
  }
  /// TCAM entries of all ACLs.
  size_t entries() const { return pdConfig_->currPDData()->pdAclColl()->numFilters(); }

 private:
  class StageWatch : public Naxel::StageStatus::Notifiee {
   public:
    StageWatch(Naxel::StageStatus& status, double& seconds) : status_(status), seconds_(seconds) {
      notifierIs(&status);
    }
    void onStatus() override;

   private:
    Naxel::StageStatus& status_;
    double& seconds_;
    double started_ = 0;
  };

  void watch(Naxel::NaxelActiveStage stage, Naxel::StageStatus& status);
  void watchStages();

  Mox::ManualClock clock_;
  Mox::Activity activity_{clock_};
  Mox::Ptr<Obel::TimerWheel> wheel_;
  Mox::Ptr<Naxel::RootConfig> rootConfig_;
  Mox::Ptr<Naxel::RootStatus> rootStatus_;
  Mox::Ptr<Naxel::PDConfig> pdConfig_;
  Mox::Ptr<Naxel::PDStatus> pdStatus_;
  AtOnceDriver driver_;
  Mox::Ptr<Naxel::NaxelRootSm> root_;
  std::array<double, stages> seconds_{};
  std::vector<std::unique_ptr<StageWatch>> watches_;
};

}  // namespace Bench
