#pragma once

/// The configurations and statuses of all stages of one chip, gathered for the stage controller.
/// The root state machine creates both entities and adds each member as it makes it; the controller
/// watches the statuses and writes the kick time of the configurations.

#include "mox/HashMap.h"
#include "naxel/control/StageTypes.h"
#include "naxel/genset/GenSetTypes.h"

namespace Naxel {

class NAXEL_EXPORT StageSmConfig : public Mox::Entity {
 public:
  template <class K>
  using Coll = Mox::HashMap<K, Mox::Ptr<StageConfig>>;

  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onAggregatorConfig() {}
    virtual void onPrefixXformConfig(PrefixXformKey const&) {}
    virtual void onRangeSplitConfig(RangeSetType const&) {}
    virtual void onComboLabelResolverConfig(ComboLabelSetType const&) {}
    virtual void onComboLabelSplitConfig(ComboLabelSetType const&) {}
    virtual void onPrefixEncoderConfig(PrefixXformKey const&) {}
    virtual void onRangeEncoderConfig(RangeSetType const&) {}
    virtual void onComboLabelEncoderConfig(ComboLabelSetType const&) {}
    virtual void onRuleExpanderConfig() {}
    virtual void onLoaderConfig() {}
  };
  std::string_view fwkType() const override { return "Naxel::StageSmConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  Mox::Ptr<StageConfig> const& aggregatorConfig() const { return aggregatorConfig_; }
  void aggregatorConfigIs(Mox::Ptr<StageConfig> v) {
    attrIs(aggregatorConfig_, std::move(v), &Notifiee::onAggregatorConfig);
  }
  Coll<PrefixXformKey> const& prefixXformConfig() const { return prefixXformConfig_; }
  void prefixXformConfigIs(PrefixXformKey const& key, Mox::Ptr<StageConfig> v) {
    itemSet(prefixXformConfig_, key, std::move(v), &Notifiee::onPrefixXformConfig);
  }
  void prefixXformConfigDel(PrefixXformKey const& key) {
    itemDel(prefixXformConfig_, key, &Notifiee::onPrefixXformConfig);
  }
  Coll<RangeSetType> const& rangeSplitConfig() const { return rangeSplitConfig_; }
  void rangeSplitConfigIs(RangeSetType const& key, Mox::Ptr<StageConfig> v) {
    itemSet(rangeSplitConfig_, key, std::move(v), &Notifiee::onRangeSplitConfig);
  }
  void rangeSplitConfigDel(RangeSetType const& key) {
    itemDel(rangeSplitConfig_, key, &Notifiee::onRangeSplitConfig);
  }
  Coll<ComboLabelSetType> const& comboLabelResolverConfig() const {
    return comboLabelResolverConfig_;
  }
  void comboLabelResolverConfigIs(ComboLabelSetType const& key, Mox::Ptr<StageConfig> v) {
    itemSet(comboLabelResolverConfig_, key, std::move(v), &Notifiee::onComboLabelResolverConfig);
  }
  void comboLabelResolverConfigDel(ComboLabelSetType const& key) {
    itemDel(comboLabelResolverConfig_, key, &Notifiee::onComboLabelResolverConfig);
  }
  Coll<ComboLabelSetType> const& comboLabelSplitConfig() const { return comboLabelSplitConfig_; }
  void comboLabelSplitConfigIs(ComboLabelSetType const& key, Mox::Ptr<StageConfig> v) {
    itemSet(comboLabelSplitConfig_, key, std::move(v), &Notifiee::onComboLabelSplitConfig);
  }
  void comboLabelSplitConfigDel(ComboLabelSetType const& key) {
    itemDel(comboLabelSplitConfig_, key, &Notifiee::onComboLabelSplitConfig);
  }
  Coll<PrefixXformKey> const& prefixEncoderConfig() const { return prefixEncoderConfig_; }
  void prefixEncoderConfigIs(PrefixXformKey const& key, Mox::Ptr<StageConfig> v) {
    itemSet(prefixEncoderConfig_, key, std::move(v), &Notifiee::onPrefixEncoderConfig);
  }
  void prefixEncoderConfigDel(PrefixXformKey const& key) {
    itemDel(prefixEncoderConfig_, key, &Notifiee::onPrefixEncoderConfig);
  }
  Coll<RangeSetType> const& rangeEncoderConfig() const { return rangeEncoderConfig_; }
  void rangeEncoderConfigIs(RangeSetType const& key, Mox::Ptr<StageConfig> v) {
    itemSet(rangeEncoderConfig_, key, std::move(v), &Notifiee::onRangeEncoderConfig);
  }
  void rangeEncoderConfigDel(RangeSetType const& key) {
    itemDel(rangeEncoderConfig_, key, &Notifiee::onRangeEncoderConfig);
  }
  Coll<ComboLabelSetType> const& comboLabelEncoderConfig() const {
    return comboLabelEncoderConfig_;
  }
  void comboLabelEncoderConfigIs(ComboLabelSetType const& key, Mox::Ptr<StageConfig> v) {
    itemSet(comboLabelEncoderConfig_, key, std::move(v), &Notifiee::onComboLabelEncoderConfig);
  }
  void comboLabelEncoderConfigDel(ComboLabelSetType const& key) {
    itemDel(comboLabelEncoderConfig_, key, &Notifiee::onComboLabelEncoderConfig);
  }
  Mox::Ptr<StageConfig> const& ruleExpanderConfig() const { return ruleExpanderConfig_; }
  void ruleExpanderConfigIs(Mox::Ptr<StageConfig> v) {
    attrIs(ruleExpanderConfig_, std::move(v), &Notifiee::onRuleExpanderConfig);
  }
  Mox::Ptr<StageConfig> const& loaderConfig() const { return loaderConfig_; }
  void loaderConfigIs(Mox::Ptr<StageConfig> v) {
    attrIs(loaderConfig_, std::move(v), &Notifiee::onLoaderConfig);
  }

  /// Calls `f(StageConfig&)` for every member of a stage, in the order in which they were added.
  template <class F>
  void forEach(NaxelActiveStage stage, F f) const {
    auto const one = [&](Mox::Ptr<StageConfig> const& m) {
      if (m) f(*m);
    };
    auto const all = [&](auto const& coll) {
      for (auto const& [key, m] : coll) one(m);
    };
    switch (stage) {
      case NaxelActiveStage::stageInit: break;
      case NaxelActiveStage::stageAggregator: one(aggregatorConfig_); break;
      case NaxelActiveStage::stagePrefixXform: all(prefixXformConfig_); break;
      case NaxelActiveStage::stageRangeSplit: all(rangeSplitConfig_); break;
      case NaxelActiveStage::stageComboLabelResolver: all(comboLabelResolverConfig_); break;
      case NaxelActiveStage::stageComboLabelSplit: all(comboLabelSplitConfig_); break;
      case NaxelActiveStage::stagePrefixEncoder: all(prefixEncoderConfig_); break;
      case NaxelActiveStage::stageRangeEncoder: all(rangeEncoderConfig_); break;
      case NaxelActiveStage::stageComboLabelEncoder: all(comboLabelEncoderConfig_); break;
      case NaxelActiveStage::stageRuleExpander: one(ruleExpanderConfig_); break;
      case NaxelActiveStage::stageLoader: one(loaderConfig_); break;
    }
  }

 private:
  Mox::Ptr<StageConfig> aggregatorConfig_;
  Coll<PrefixXformKey> prefixXformConfig_;
  Coll<RangeSetType> rangeSplitConfig_;
  Coll<ComboLabelSetType> comboLabelResolverConfig_;
  Coll<ComboLabelSetType> comboLabelSplitConfig_;
  Coll<PrefixXformKey> prefixEncoderConfig_;
  Coll<RangeSetType> rangeEncoderConfig_;
  Coll<ComboLabelSetType> comboLabelEncoderConfig_;
  Mox::Ptr<StageConfig> ruleExpanderConfig_;
  Mox::Ptr<StageConfig> loaderConfig_;
};

class NAXEL_EXPORT StageSmStatus : public Mox::Entity {
 public:
  template <class K>
  using Coll = Mox::HashMap<K, Mox::Ptr<StageStatus>>;

  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onAggregatorStatus() {}
    virtual void onPrefixXformStatus(PrefixXformKey const&) {}
    virtual void onRangeSplitStatus(RangeSetType const&) {}
    virtual void onComboLabelResolverStatus(ComboLabelSetType const&) {}
    virtual void onComboLabelSplitStatus(ComboLabelSetType const&) {}
    virtual void onPrefixEncoderStatus(PrefixXformKey const&) {}
    virtual void onRangeEncoderStatus(RangeSetType const&) {}
    virtual void onComboLabelEncoderStatus(ComboLabelSetType const&) {}
    virtual void onRuleExpanderStatus() {}
    virtual void onLoaderStatus() {}
  };
  std::string_view fwkType() const override { return "Naxel::StageSmStatus"; }
  Mox::AttributeTable const& attributeTable() const override;

  Mox::Ptr<StageStatus> const& aggregatorStatus() const { return aggregatorStatus_; }
  void aggregatorStatusIs(Mox::Ptr<StageStatus> v) {
    attrIs(aggregatorStatus_, std::move(v), &Notifiee::onAggregatorStatus);
  }
  Coll<PrefixXformKey> const& prefixXformStatus() const { return prefixXformStatus_; }
  void prefixXformStatusIs(PrefixXformKey const& key, Mox::Ptr<StageStatus> v) {
    itemSet(prefixXformStatus_, key, std::move(v), &Notifiee::onPrefixXformStatus);
  }
  void prefixXformStatusDel(PrefixXformKey const& key) {
    itemDel(prefixXformStatus_, key, &Notifiee::onPrefixXformStatus);
  }
  Coll<RangeSetType> const& rangeSplitStatus() const { return rangeSplitStatus_; }
  void rangeSplitStatusIs(RangeSetType const& key, Mox::Ptr<StageStatus> v) {
    itemSet(rangeSplitStatus_, key, std::move(v), &Notifiee::onRangeSplitStatus);
  }
  void rangeSplitStatusDel(RangeSetType const& key) {
    itemDel(rangeSplitStatus_, key, &Notifiee::onRangeSplitStatus);
  }
  Coll<ComboLabelSetType> const& comboLabelResolverStatus() const {
    return comboLabelResolverStatus_;
  }
  void comboLabelResolverStatusIs(ComboLabelSetType const& key, Mox::Ptr<StageStatus> v) {
    itemSet(comboLabelResolverStatus_, key, std::move(v), &Notifiee::onComboLabelResolverStatus);
  }
  void comboLabelResolverStatusDel(ComboLabelSetType const& key) {
    itemDel(comboLabelResolverStatus_, key, &Notifiee::onComboLabelResolverStatus);
  }
  Coll<ComboLabelSetType> const& comboLabelSplitStatus() const { return comboLabelSplitStatus_; }
  void comboLabelSplitStatusIs(ComboLabelSetType const& key, Mox::Ptr<StageStatus> v) {
    itemSet(comboLabelSplitStatus_, key, std::move(v), &Notifiee::onComboLabelSplitStatus);
  }
  void comboLabelSplitStatusDel(ComboLabelSetType const& key) {
    itemDel(comboLabelSplitStatus_, key, &Notifiee::onComboLabelSplitStatus);
  }
  Coll<PrefixXformKey> const& prefixEncoderStatus() const { return prefixEncoderStatus_; }
  void prefixEncoderStatusIs(PrefixXformKey const& key, Mox::Ptr<StageStatus> v) {
    itemSet(prefixEncoderStatus_, key, std::move(v), &Notifiee::onPrefixEncoderStatus);
  }
  void prefixEncoderStatusDel(PrefixXformKey const& key) {
    itemDel(prefixEncoderStatus_, key, &Notifiee::onPrefixEncoderStatus);
  }
  Coll<RangeSetType> const& rangeEncoderStatus() const { return rangeEncoderStatus_; }
  void rangeEncoderStatusIs(RangeSetType const& key, Mox::Ptr<StageStatus> v) {
    itemSet(rangeEncoderStatus_, key, std::move(v), &Notifiee::onRangeEncoderStatus);
  }
  void rangeEncoderStatusDel(RangeSetType const& key) {
    itemDel(rangeEncoderStatus_, key, &Notifiee::onRangeEncoderStatus);
  }
  Coll<ComboLabelSetType> const& comboLabelEncoderStatus() const {
    return comboLabelEncoderStatus_;
  }
  void comboLabelEncoderStatusIs(ComboLabelSetType const& key, Mox::Ptr<StageStatus> v) {
    itemSet(comboLabelEncoderStatus_, key, std::move(v), &Notifiee::onComboLabelEncoderStatus);
  }
  void comboLabelEncoderStatusDel(ComboLabelSetType const& key) {
    itemDel(comboLabelEncoderStatus_, key, &Notifiee::onComboLabelEncoderStatus);
  }
  Mox::Ptr<StageStatus> const& ruleExpanderStatus() const { return ruleExpanderStatus_; }
  void ruleExpanderStatusIs(Mox::Ptr<StageStatus> v) {
    attrIs(ruleExpanderStatus_, std::move(v), &Notifiee::onRuleExpanderStatus);
  }
  Mox::Ptr<StageStatus> const& loaderStatus() const { return loaderStatus_; }
  void loaderStatusIs(Mox::Ptr<StageStatus> v) {
    attrIs(loaderStatus_, std::move(v), &Notifiee::onLoaderStatus);
  }

  /// Calls `f(StageStatus&)` for every member of a stage, in the order in which they were added.
  template <class F>
  void forEach(NaxelActiveStage stage, F f) const {
    auto const one = [&](Mox::Ptr<StageStatus> const& m) {
      if (m) f(*m);
    };
    auto const all = [&](auto const& coll) {
      for (auto const& [key, m] : coll) one(m);
    };
    switch (stage) {
      case NaxelActiveStage::stageInit: break;
      case NaxelActiveStage::stageAggregator: one(aggregatorStatus_); break;
      case NaxelActiveStage::stagePrefixXform: all(prefixXformStatus_); break;
      case NaxelActiveStage::stageRangeSplit: all(rangeSplitStatus_); break;
      case NaxelActiveStage::stageComboLabelResolver: all(comboLabelResolverStatus_); break;
      case NaxelActiveStage::stageComboLabelSplit: all(comboLabelSplitStatus_); break;
      case NaxelActiveStage::stagePrefixEncoder: all(prefixEncoderStatus_); break;
      case NaxelActiveStage::stageRangeEncoder: all(rangeEncoderStatus_); break;
      case NaxelActiveStage::stageComboLabelEncoder: all(comboLabelEncoderStatus_); break;
      case NaxelActiveStage::stageRuleExpander: one(ruleExpanderStatus_); break;
      case NaxelActiveStage::stageLoader: one(loaderStatus_); break;
    }
  }

 private:
  Mox::Ptr<StageStatus> aggregatorStatus_;
  Coll<PrefixXformKey> prefixXformStatus_;
  Coll<RangeSetType> rangeSplitStatus_;
  Coll<ComboLabelSetType> comboLabelResolverStatus_;
  Coll<ComboLabelSetType> comboLabelSplitStatus_;
  Coll<PrefixXformKey> prefixEncoderStatus_;
  Coll<RangeSetType> rangeEncoderStatus_;
  Coll<ComboLabelSetType> comboLabelEncoderStatus_;
  Mox::Ptr<StageStatus> ruleExpanderStatus_;
  Mox::Ptr<StageStatus> loaderStatus_;
};

}  // namespace Naxel
