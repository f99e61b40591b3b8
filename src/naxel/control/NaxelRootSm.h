#pragma once

/// The entry point of the library for one chip.
///
/// The agent creates a root state machine with the chip's input and output entities; it builds and
/// owns the whole pipeline, turns a kick request in RootConfig into a kick of the stage controller,
/// and reports course and outcome in RootStatus. A constructed root is complete. Everything runs on
/// the activity thread of the timer wheel.
///
/// Every request counts: two requests at one reading of the clock, or one after the clock has
/// stepped back, are different kicks, because the pipeline's kick time is the present time or the
/// next number above the last kick's, whichever is larger. A cancel that is requested while nothing
/// runs ends as `naxelCancelled`.

#include "acl/ParamConfig.h"
#include "naxel/control/NaxelStageControllerSm.h"
#include "naxel/control/RootTypes.h"
#include "naxel/encoder/EncoderTypes.h"
#include "naxel/expander/RuleExpanderTypes.h"
#include "naxel/loader/HwCapability.h"
#include "naxel/loader/NaxelLoaderTypes.h"
#include "naxel/xform/NaxelXformTypes.h"

namespace Naxel {

class NAXEL_EXPORT NaxelRootSm : public Mox::RefCounted {
 public:
  /// No argument may be null. `pdConfig` may have been in use by an earlier root: its last request
  /// and the output in force are taken over.
  NaxelRootSm(Obel::ChipId chipId, Mox::Ptr<ChipHwCapability const> hwCapability,
              Mox::Ptr<RootConfig> rootConfig, Mox::Ptr<RootStatus> rootStatus,
              Mox::Ptr<AclConfigColl const> aclConfigColl,
              Mox::Ptr<Acl::ParamConfig const> paramConfig, Mox::Ptr<PDConfig> pdConfig,
              Mox::Ptr<PDStatus> pdStatus, Mox::Ptr<Obel::TimerWheel> timerWheel);
  ~NaxelRootSm() override;

  Obel::ChipId chipId() const { return chipId_; }
  Mox::Ptr<RootConfig> const& rootConfig() const { return rootConfig_; }
  /// Unbinds the configuration: no further request is seen.
  void rootConfigDel();
  Mox::Ptr<RootStatus> const& rootStatus() const { return rootStatus_; }
  bool initialized() const { return initialized_; }

  Mox::Ptr<StageControllerConfig> const& stageControllerConfig() const {
    return stageControllerConfig_;
  }
  Mox::Ptr<StageControllerStatus> const& stageControllerStatus() const {
    return stageControllerStatus_;
  }
  Mox::Ptr<NaxelStageControllerSm> const& stageControllerSm() const { return stageControllerSm_; }
  Mox::Ptr<StageSmConfig> const& stageSmConfig() const { return stageSmConfig_; }
  Mox::Ptr<StageSmStatus> const& stageSmStatus() const { return stageSmStatus_; }
  Mox::Ptr<GenSetKeyGenerator> const& genSetKeyGen() const { return genSetKeyGen_; }

  Mox::Ptr<AggregatorStatus> const& aggregatorStatus() const { return aggregatorStatus_; }
  Mox::Ptr<PrefixXformStatus> prefixXformStatus(PrefixXformKey const& key) const {
    return Mox::lookup(prefixXformStatus_, key);
  }
  Mox::Ptr<RangeSplitStatus> rangeSplitStatus(RangeSetType type) const {
    return Mox::lookup(rangeSplitStatus_, type);
  }
  Mox::Ptr<ComboLabelResolverStatus> comboLabelResolverStatus(ComboLabelSetType type) const {
    return Mox::lookup(comboLabelResolverStatus_, type);
  }
  Mox::Ptr<ComboLabelSplitStatus> comboLabelSplitStatus(ComboLabelSetType type) const {
    return Mox::lookup(comboLabelSplitStatus_, type);
  }
  Mox::Ptr<PrefixEncoderStatus> prefixEncoderStatus(PrefixXformKey const& key) const {
    return Mox::lookup(prefixEncoderStatus_, key);
  }
  Mox::Ptr<RangeEncoderStatus> rangeEncoderStatus(RangeSetType type) const {
    return Mox::lookup(rangeEncoderStatus_, type);
  }
  Mox::Ptr<ComboLabelEncoderStatus> comboLabelEncoderStatus(ComboLabelSetType type) const {
    return Mox::lookup(comboLabelEncoderStatus_, type);
  }
  Mox::Ptr<RuleExpanderStatus> const& ruleExpanderStatus() const { return ruleExpanderStatus_; }
  Mox::Ptr<LoaderConfig> const& loaderConfig() const { return loaderConfig_; }
  Mox::Ptr<LoaderStatus> const& loaderStatus() const { return loaderStatus_; }
  /// The state machine of the loader.
  Mox::Ptr<StageSm> const& loaderSm() const { return loaderSm_; }

 private:
  class RootConfigReactor : public RootConfig::Notifiee {
   public:
    explicit RootConfigReactor(NaxelRootSm& sm) : sm_(sm) {}
    void onNaxelKickTime() override { sm_.handleNaxelKickTime(); }

   private:
    NaxelRootSm& sm_;
  };
  class StageStatusReactor : public StageStatus::Notifiee {
   public:
    explicit StageStatusReactor(NaxelRootSm& sm) : sm_(sm) {}
    void onStatus() override { sm_.handleStageStatus(); }

   private:
    NaxelRootSm& sm_;
  };
  class LoaderInfoReactor;

  void handleNaxelKickTime();
  void handleStageStatus();
  void handleInitialized();
  void buildPrefixSide();
  void buildRangeSide();
  void buildComboSide();
  Mox::Seconds nextKickTime() const;
  /// Keeps the loader's configuration in step with an encoder's loader info.
  template <class Status, class Pass>
  void watchLoaderInfo(Mox::Ptr<Status> status, Pass pass);

  Obel::ChipId chipId_;
  Mox::Ptr<ChipHwCapability const> hwCapability_;
  Mox::Ptr<RootConfig> rootConfig_;
  Mox::Ptr<RootStatus> rootStatus_;
  Mox::Ptr<AclConfigColl const> aclConfigColl_;
  Mox::Ptr<Acl::ParamConfig const> paramConfig_;
  Mox::Ptr<PDConfig> pdConfig_;
  Mox::Ptr<PDStatus> pdStatus_;
  Mox::Ptr<Obel::TimerWheel> timerWheel_;

  Mox::Ptr<StageControllerConfig> stageControllerConfig_;
  Mox::Ptr<StageControllerStatus> stageControllerStatus_;
  Mox::Ptr<StageSmConfig> stageSmConfig_;
  Mox::Ptr<StageSmStatus> stageSmStatus_;
  Mox::Ptr<GenSetKeyGenerator> genSetKeyGen_;
  Mox::Ptr<AggregatorConfig> aggregatorConfig_;
  Mox::Ptr<AggregatorStatus> aggregatorStatus_;
  Mox::Ptr<LoaderConfig> loaderConfig_;
  Mox::Ptr<LoaderStatus> loaderStatus_;
  Mox::Ptr<RuleExpanderConfig> ruleExpanderConfig_;
  Mox::Ptr<RuleExpanderStatus> ruleExpanderStatus_;
  Mox::OrderedMap<PrefixXformKey, Mox::Ptr<PrefixXformStatus>> prefixXformStatus_;
  Mox::OrderedMap<PrefixXformKey, Mox::Ptr<PrefixEncoderStatus>> prefixEncoderStatus_;
  Mox::OrderedMap<RangeSetType, Mox::Ptr<RangeSplitStatus>> rangeSplitStatus_;
  Mox::OrderedMap<RangeSetType, Mox::Ptr<RangeEncoderStatus>> rangeEncoderStatus_;
  Mox::OrderedMap<ComboLabelSetType, Mox::Ptr<ComboLabelInfo>> comboLabelInfo_;
  Mox::OrderedMap<ComboLabelSetType, Mox::Ptr<ComboLabelResolverStatus>> comboLabelResolverStatus_;
  Mox::OrderedMap<ComboLabelSetType, Mox::Ptr<ComboLabelSplitStatus>> comboLabelSplitStatus_;
  Mox::OrderedMap<ComboLabelSetType, Mox::Ptr<ComboLabelEncoderStatus>> comboLabelEncoderStatus_;

  std::vector<std::unique_ptr<LoaderInfoReactor>> loaderInfoReactors_;
  std::vector<Mox::Ptr<StageSm>> stageSms_;  // in the order of their creation
  Mox::Ptr<StageSm> loaderSm_;
  Mox::Ptr<NaxelStageControllerSm> stageControllerSm_;
  bool initialized_ = false;
  RootConfigReactor rootConfigReactor_{*this};
  StageStatusReactor stageStatusReactor_{*this};
};
NAXEL_EXPORT Mox::Ptr<NaxelRootSm> naxelRootSmFactory(
    Obel::ChipId chipId, Mox::Ptr<ChipHwCapability const> hwCapability,
    Mox::Ptr<RootConfig> rootConfig, Mox::Ptr<RootStatus> rootStatus,
    Mox::Ptr<AclConfigColl const> aclConfigColl, Mox::Ptr<Acl::ParamConfig const> paramConfig,
    Mox::Ptr<PDConfig> pdConfig, Mox::Ptr<PDStatus> pdStatus,
    Mox::Ptr<Obel::TimerWheel> timerWheel);

}  // namespace Naxel
