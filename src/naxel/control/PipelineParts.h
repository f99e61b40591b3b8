#pragma once

/// The parts of the pipeline of one chip by their names: every stage's configuration, status and state
/// machine.
///
/// The root state machine makes them all. Each can be looked up, replaced and taken away by itself, which
/// is for tests and for who puts a stage of his own into the pipeline:
///
/// - A configuration that is put in is bound to the stage's state machine; with none the stage is unbound
///   and does not take part in a kick.
/// - A status is what the stage controller looks at; without one it does not wait for the stage. A state
///   machine keeps to the status that it was made with, so a new status wants a new state machine.
/// - A state machine that is taken out reacts to nothing any more.
///
/// The parts refer to each other as they were made: what one reads of another is in its configuration.

#include "naxel/control/StageSmColl.h"

namespace Naxel {

class AggregatorConfig;
class AggregatorStatus;
class ComboLabelEncoderConfig;
class ComboLabelEncoderStatus;
class ComboLabelInfo;
class ComboLabelResolverConfig;
class ComboLabelResolverStatus;
class ComboLabelSplitConfig;
class ComboLabelSplitStatus;
class EncoderConfig;
class GenSetKeyGenerator;
class LoaderConfig;
class LoaderStatus;
class NaxelStageControllerSm;
class PrefixEncoderStatus;
class PrefixXformConfig;
class PrefixXformStatus;
class RangeEncoderConfig;
class RangeEncoderStatus;
class RangeSplitConfig;
class RangeSplitStatus;
class RuleExpanderConfig;
class RuleExpanderStatus;
class StageControllerConfig;
class StageControllerStatus;
class AggregatorSm;
class NaxelPrefixXformSm;
class PrefixLabelEncoderSm;
class RangeSplitSm;
class RangeEncoderSm;
class ComboLabelResolverSm;
class ComboLabelSplitSm;
class ComboLabelEncoderSm;
class RuleExpanderSm;
class LoaderSm;

class NAXEL_EXPORT PipelineParts : public Mox::RefCounted {
 public:
  template <class K>
  using Configs = StageSmConfig::Coll<K>;
  template <class K>
  using Statuses = StageSmStatus::Coll<K>;
  template <class K, class Sm>
  using Sms = Mox::OrderedMap<K, Mox::Ptr<Sm>>;

  ~PipelineParts() override;

  Mox::Ptr<StageControllerConfig> const& stageControllerConfig() const {
    return stageControllerConfig_;
  }
  void stageControllerConfigIs(Mox::Ptr<StageControllerConfig> v);
  void stageControllerConfigDel();
  Mox::Ptr<StageControllerStatus> const& stageControllerStatus() const {
    return stageControllerStatus_;
  }
  void stageControllerStatusIs(Mox::Ptr<StageControllerStatus> v);
  void stageControllerStatusDel();
  Mox::Ptr<NaxelStageControllerSm> const& stageControllerSm() const { return stageControllerSm_; }
  void stageControllerSmIs(Mox::Ptr<NaxelStageControllerSm> v);
  void stageControllerSmDel();

  /// Never null, as is the next.
  Mox::Ptr<StageSmConfig> const& stageSmConfig() const { return stageSmConfig_; }
  Mox::Ptr<StageSmStatus> const& stageSmStatus() const { return stageSmStatus_; }
  /// One for all kinds of sets of the chip, so that a key names one set and is never given twice.
  Mox::Ptr<GenSetKeyGenerator> const& genSetKeyGen() const { return genSetKeyGen_; }
  void genSetKeyGenIs(Mox::Ptr<GenSetKeyGenerator> v);
  void genSetKeyGenDel();

  Mox::Ptr<AggregatorConfig> aggregatorConfig() const;
  void aggregatorConfigIs(Mox::Ptr<AggregatorConfig> v);
  void aggregatorConfigDel();
  Mox::Ptr<AggregatorStatus> aggregatorStatus() const;
  void aggregatorStatusIs(Mox::Ptr<AggregatorStatus> v);
  void aggregatorStatusDel();
  Mox::Ptr<AggregatorSm> const& aggregatorSm() const { return aggregatorSm_; }
  void aggregatorSmIs(Mox::Ptr<AggregatorSm> v);
  void aggregatorSmDel();

  Mox::Ptr<RuleExpanderConfig> ruleExpanderConfig() const;
  void ruleExpanderConfigIs(Mox::Ptr<RuleExpanderConfig> v);
  void ruleExpanderConfigDel();
  Mox::Ptr<RuleExpanderStatus> ruleExpanderStatus() const;
  void ruleExpanderStatusIs(Mox::Ptr<RuleExpanderStatus> v);
  void ruleExpanderStatusDel();
  Mox::Ptr<RuleExpanderSm> const& ruleExpanderSm() const { return ruleExpanderSm_; }
  void ruleExpanderSmIs(Mox::Ptr<RuleExpanderSm> v);
  void ruleExpanderSmDel();

  Mox::Ptr<LoaderConfig> loaderConfig() const;
  void loaderConfigIs(Mox::Ptr<LoaderConfig> v);
  void loaderConfigDel();
  Mox::Ptr<LoaderStatus> loaderStatus() const;
  void loaderStatusIs(Mox::Ptr<LoaderStatus> v);
  void loaderStatusDel();
  Mox::Ptr<LoaderSm> const& loaderSm() const { return loaderSm_; }
  void loaderSmIs(Mox::Ptr<LoaderSm> v);
  void loaderSmDel();

  Configs<PrefixXformKey> const& prefixXformConfig() const {
    return stageSmConfig_->prefixXformConfig();
  }
  Mox::Ptr<PrefixXformConfig> prefixXformConfig(PrefixXformKey const& key) const;
  void prefixXformConfigIs(PrefixXformKey const& key, Mox::Ptr<PrefixXformConfig> v);
  void prefixXformConfigDel(PrefixXformKey const& key);
  void prefixXformConfigDelAll();
  Statuses<PrefixXformKey> const& prefixXformStatus() const {
    return stageSmStatus_->prefixXformStatus();
  }
  Mox::Ptr<PrefixXformStatus> prefixXformStatus(PrefixXformKey const& key) const;
  void prefixXformStatusIs(PrefixXformKey const& key, Mox::Ptr<PrefixXformStatus> v);
  void prefixXformStatusDel(PrefixXformKey const& key) {
    stageSmStatus_->prefixXformStatusDel(key);
  }
  void prefixXformStatusDelAll() { stageSmStatus_->prefixXformStatusDelAll(); }
  Sms<PrefixXformKey, NaxelPrefixXformSm> const& prefixXformSm() const { return prefixXformSm_; }
  Mox::Ptr<NaxelPrefixXformSm> prefixXformSm(PrefixXformKey const& key) const;
  void prefixXformSmIs(PrefixXformKey const& key, Mox::Ptr<NaxelPrefixXformSm> v);
  void prefixXformSmDel(PrefixXformKey const& key);
  void prefixXformSmDelAll();

  Configs<PrefixXformKey> const& prefixEncoderConfig() const {
    return stageSmConfig_->prefixEncoderConfig();
  }
  Mox::Ptr<EncoderConfig> prefixEncoderConfig(PrefixXformKey const& key) const;
  void prefixEncoderConfigIs(PrefixXformKey const& key, Mox::Ptr<EncoderConfig> v);
  void prefixEncoderConfigDel(PrefixXformKey const& key);
  void prefixEncoderConfigDelAll();
  Statuses<PrefixXformKey> const& prefixEncoderStatus() const {
    return stageSmStatus_->prefixEncoderStatus();
  }
  Mox::Ptr<PrefixEncoderStatus> prefixEncoderStatus(PrefixXformKey const& key) const;
  void prefixEncoderStatusIs(PrefixXformKey const& key, Mox::Ptr<PrefixEncoderStatus> v);
  void prefixEncoderStatusDel(PrefixXformKey const& key) {
    stageSmStatus_->prefixEncoderStatusDel(key);
  }
  void prefixEncoderStatusDelAll() { stageSmStatus_->prefixEncoderStatusDelAll(); }
  Sms<PrefixXformKey, PrefixLabelEncoderSm> const& prefixEncoderSm() const {
    return prefixEncoderSm_;
  }
  Mox::Ptr<PrefixLabelEncoderSm> prefixEncoderSm(PrefixXformKey const& key) const;
  void prefixEncoderSmIs(PrefixXformKey const& key, Mox::Ptr<PrefixLabelEncoderSm> v);
  void prefixEncoderSmDel(PrefixXformKey const& key);
  void prefixEncoderSmDelAll();

  Configs<RangeSetType> const& rangeSplitConfig() const {
    return stageSmConfig_->rangeSplitConfig();
  }
  Mox::Ptr<RangeSplitConfig> rangeSplitConfig(RangeSetType const& key) const;
  void rangeSplitConfigIs(RangeSetType const& key, Mox::Ptr<RangeSplitConfig> v);
  void rangeSplitConfigDel(RangeSetType const& key);
  void rangeSplitConfigDelAll();
  Statuses<RangeSetType> const& rangeSplitStatus() const {
    return stageSmStatus_->rangeSplitStatus();
  }
  Mox::Ptr<RangeSplitStatus> rangeSplitStatus(RangeSetType const& key) const;
  void rangeSplitStatusIs(RangeSetType const& key, Mox::Ptr<RangeSplitStatus> v);
  void rangeSplitStatusDel(RangeSetType const& key) { stageSmStatus_->rangeSplitStatusDel(key); }
  void rangeSplitStatusDelAll() { stageSmStatus_->rangeSplitStatusDelAll(); }
  Sms<RangeSetType, RangeSplitSm> const& rangeSplitSm() const { return rangeSplitSm_; }
  Mox::Ptr<RangeSplitSm> rangeSplitSm(RangeSetType const& key) const;
  void rangeSplitSmIs(RangeSetType const& key, Mox::Ptr<RangeSplitSm> v);
  void rangeSplitSmDel(RangeSetType const& key);
  void rangeSplitSmDelAll();

  Configs<RangeSetType> const& rangeEncoderConfig() const {
    return stageSmConfig_->rangeEncoderConfig();
  }
  Mox::Ptr<RangeEncoderConfig> rangeEncoderConfig(RangeSetType const& key) const;
  void rangeEncoderConfigIs(RangeSetType const& key, Mox::Ptr<RangeEncoderConfig> v);
  void rangeEncoderConfigDel(RangeSetType const& key);
  void rangeEncoderConfigDelAll();
  Statuses<RangeSetType> const& rangeEncoderStatus() const {
    return stageSmStatus_->rangeEncoderStatus();
  }
  Mox::Ptr<RangeEncoderStatus> rangeEncoderStatus(RangeSetType const& key) const;
  void rangeEncoderStatusIs(RangeSetType const& key, Mox::Ptr<RangeEncoderStatus> v);
  void rangeEncoderStatusDel(RangeSetType const& key) {
    stageSmStatus_->rangeEncoderStatusDel(key);
  }
  void rangeEncoderStatusDelAll() { stageSmStatus_->rangeEncoderStatusDelAll(); }
  Sms<RangeSetType, RangeEncoderSm> const& rangeEncoderSm() const { return rangeEncoderSm_; }
  Mox::Ptr<RangeEncoderSm> rangeEncoderSm(RangeSetType const& key) const;
  void rangeEncoderSmIs(RangeSetType const& key, Mox::Ptr<RangeEncoderSm> v);
  void rangeEncoderSmDel(RangeSetType const& key);
  void rangeEncoderSmDelAll();

  Mox::OrderedMap<ComboLabelSetType, Mox::Ptr<ComboLabelInfo>> const& comboLabelInfo() const {
    return comboLabelInfo_;
  }
  Mox::Ptr<ComboLabelInfo> comboLabelInfo(ComboLabelSetType type) const;
  void comboLabelInfoIs(ComboLabelSetType type, Mox::Ptr<ComboLabelInfo> v);
  void comboLabelInfoDel(ComboLabelSetType type);
  void comboLabelInfoDelAll();

  Configs<ComboLabelSetType> const& comboLabelResolverConfig() const {
    return stageSmConfig_->comboLabelResolverConfig();
  }
  Mox::Ptr<ComboLabelResolverConfig> comboLabelResolverConfig(ComboLabelSetType const& key) const;
  void comboLabelResolverConfigIs(ComboLabelSetType const& key,
                                  Mox::Ptr<ComboLabelResolverConfig> v);
  void comboLabelResolverConfigDel(ComboLabelSetType const& key);
  void comboLabelResolverConfigDelAll();
  Statuses<ComboLabelSetType> const& comboLabelResolverStatus() const {
    return stageSmStatus_->comboLabelResolverStatus();
  }
  Mox::Ptr<ComboLabelResolverStatus> comboLabelResolverStatus(ComboLabelSetType const& key) const;
  void comboLabelResolverStatusIs(ComboLabelSetType const& key,
                                  Mox::Ptr<ComboLabelResolverStatus> v);
  void comboLabelResolverStatusDel(ComboLabelSetType const& key) {
    stageSmStatus_->comboLabelResolverStatusDel(key);
  }
  void comboLabelResolverStatusDelAll() { stageSmStatus_->comboLabelResolverStatusDelAll(); }
  Sms<ComboLabelSetType, ComboLabelResolverSm> const& comboLabelResolverSm() const {
    return comboLabelResolverSm_;
  }
  Mox::Ptr<ComboLabelResolverSm> comboLabelResolverSm(ComboLabelSetType const& key) const;
  void comboLabelResolverSmIs(ComboLabelSetType const& key, Mox::Ptr<ComboLabelResolverSm> v);
  void comboLabelResolverSmDel(ComboLabelSetType const& key);
  void comboLabelResolverSmDelAll();

  Configs<ComboLabelSetType> const& comboLabelSplitConfig() const {
    return stageSmConfig_->comboLabelSplitConfig();
  }
  Mox::Ptr<ComboLabelSplitConfig> comboLabelSplitConfig(ComboLabelSetType const& key) const;
  void comboLabelSplitConfigIs(ComboLabelSetType const& key, Mox::Ptr<ComboLabelSplitConfig> v);
  void comboLabelSplitConfigDel(ComboLabelSetType const& key);
  void comboLabelSplitConfigDelAll();
  Statuses<ComboLabelSetType> const& comboLabelSplitStatus() const {
    return stageSmStatus_->comboLabelSplitStatus();
  }
  Mox::Ptr<ComboLabelSplitStatus> comboLabelSplitStatus(ComboLabelSetType const& key) const;
  void comboLabelSplitStatusIs(ComboLabelSetType const& key, Mox::Ptr<ComboLabelSplitStatus> v);
  void comboLabelSplitStatusDel(ComboLabelSetType const& key) {
    stageSmStatus_->comboLabelSplitStatusDel(key);
  }
  void comboLabelSplitStatusDelAll() { stageSmStatus_->comboLabelSplitStatusDelAll(); }
  Sms<ComboLabelSetType, ComboLabelSplitSm> const& comboLabelSplitSm() const {
    return comboLabelSplitSm_;
  }
  Mox::Ptr<ComboLabelSplitSm> comboLabelSplitSm(ComboLabelSetType const& key) const;
  void comboLabelSplitSmIs(ComboLabelSetType const& key, Mox::Ptr<ComboLabelSplitSm> v);
  void comboLabelSplitSmDel(ComboLabelSetType const& key);
  void comboLabelSplitSmDelAll();

  Configs<ComboLabelSetType> const& comboLabelEncoderConfig() const {
    return stageSmConfig_->comboLabelEncoderConfig();
  }
  Mox::Ptr<ComboLabelEncoderConfig> comboLabelEncoderConfig(ComboLabelSetType const& key) const;
  void comboLabelEncoderConfigIs(ComboLabelSetType const& key, Mox::Ptr<ComboLabelEncoderConfig> v);
  void comboLabelEncoderConfigDel(ComboLabelSetType const& key);
  void comboLabelEncoderConfigDelAll();
  Statuses<ComboLabelSetType> const& comboLabelEncoderStatus() const {
    return stageSmStatus_->comboLabelEncoderStatus();
  }
  Mox::Ptr<ComboLabelEncoderStatus> comboLabelEncoderStatus(ComboLabelSetType const& key) const;
  void comboLabelEncoderStatusIs(ComboLabelSetType const& key, Mox::Ptr<ComboLabelEncoderStatus> v);
  void comboLabelEncoderStatusDel(ComboLabelSetType const& key) {
    stageSmStatus_->comboLabelEncoderStatusDel(key);
  }
  void comboLabelEncoderStatusDelAll() { stageSmStatus_->comboLabelEncoderStatusDelAll(); }
  Sms<ComboLabelSetType, ComboLabelEncoderSm> const& comboLabelEncoderSm() const {
    return comboLabelEncoderSm_;
  }
  Mox::Ptr<ComboLabelEncoderSm> comboLabelEncoderSm(ComboLabelSetType const& key) const;
  void comboLabelEncoderSmIs(ComboLabelSetType const& key, Mox::Ptr<ComboLabelEncoderSm> v);
  void comboLabelEncoderSmDel(ComboLabelSetType const& key);
  void comboLabelEncoderSmDelAll();

 protected:
  PipelineParts();
  /// Has no state machine react any more.
  void takeDown();
  /// Watches the stage controller's status, which has been replaced.
  virtual void onStageControllerStatus() = 0;

 private:
  Mox::Ptr<StageControllerConfig> stageControllerConfig_;
  Mox::Ptr<StageControllerStatus> stageControllerStatus_;
  Mox::Ptr<NaxelStageControllerSm> stageControllerSm_;
  Mox::Ptr<StageSmConfig> stageSmConfig_;
  Mox::Ptr<StageSmStatus> stageSmStatus_;
  Mox::Ptr<GenSetKeyGenerator> genSetKeyGen_;
  Mox::OrderedMap<ComboLabelSetType, Mox::Ptr<ComboLabelInfo>> comboLabelInfo_;
  Mox::Ptr<AggregatorSm> aggregatorSm_;
  Mox::Ptr<RuleExpanderSm> ruleExpanderSm_;
  Mox::Ptr<LoaderSm> loaderSm_;
  Sms<PrefixXformKey, NaxelPrefixXformSm> prefixXformSm_;
  Sms<PrefixXformKey, PrefixLabelEncoderSm> prefixEncoderSm_;
  Sms<RangeSetType, RangeSplitSm> rangeSplitSm_;
  Sms<RangeSetType, RangeEncoderSm> rangeEncoderSm_;
  Sms<ComboLabelSetType, ComboLabelResolverSm> comboLabelResolverSm_;
  Sms<ComboLabelSetType, ComboLabelSplitSm> comboLabelSplitSm_;
  Sms<ComboLabelSetType, ComboLabelEncoderSm> comboLabelEncoderSm_;
};

}  // namespace Naxel
