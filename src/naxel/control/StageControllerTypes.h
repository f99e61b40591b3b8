#pragma once

/// Configuration and status of the stage controller.

#include "naxel/control/StageTypes.h"

namespace Naxel {

class NAXEL_EXPORT StageControllerConfig : public StageConfig {
 public:
  std::string_view fwkType() const override { return "Naxel::StageControllerConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// Whether the kick time starts a kick or cancels the present one. Write it before the kick time.
  NaxelKickRequest kickRequest() const { return kickRequest_; }
  void kickRequestIs(NaxelKickRequest v) { kickRequest_ = v; }

 private:
  NaxelKickRequest kickRequest_ = NaxelKickRequest::naxelStart;
};

class NAXEL_EXPORT StageControllerStatus : public StageStatus {
 public:
  std::string_view fwkType() const override { return "Naxel::StageControllerStatus"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// The stage that failed in the last failed kick.
  NaxelActiveStage lastFailedStage() const { return lastFailedStage_; }
  void lastFailedStageIs(NaxelActiveStage v) { lastFailedStage_ = v; }

 private:
  NaxelActiveStage lastFailedStage_ = NaxelActiveStage::stageInit;
};

}  // namespace Naxel
