#pragma once

/// The configurations and statuses of all stages of one chip, gathered for the stage controller.
/// The root state machine creates both entities and adds each member as it makes it; the controller
/// watches the statuses and writes the kick time of the configurations. A member that is not there does
/// not take part in a kick.

#include "mox/HashMap.h"
#include "mox/OrderedMap.h"
#include "naxel/control/StageTypes.h"
#include "naxel/genset/GenSetTypes.h"

#include <variant>

namespace Naxel {

class NAXEL_EXPORT StageSmConfig : public Mox::Entity {
 public:
  // A hash table is iterated in the order of insertion, which is that of the root and the same in every
  // process.
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
  void aggregatorConfigDel() { aggregatorConfigIs(nullptr); }

  Coll<PrefixXformKey> const& prefixXformConfig() const { return prefixXformConfig_; }
  Mox::Ptr<StageConfig> prefixXformConfig(PrefixXformKey const& key) const {
    return Mox::lookup(prefixXformConfig_, key);
  }
  bool prefixXformConfigHas(PrefixXformKey const& key) const {
    return prefixXformConfig_.contains(key);
  }
  void prefixXformConfigIs(PrefixXformKey const& key, Mox::Ptr<StageConfig> v) {
    itemSet(prefixXformConfig_, key, std::move(v), &Notifiee::onPrefixXformConfig);
  }
  void prefixXformConfigDel(PrefixXformKey const& key) {
    itemDel(prefixXformConfig_, key, &Notifiee::onPrefixXformConfig);
  }
  void prefixXformConfigDelAll() { collDelAll(prefixXformConfig_, &Notifiee::onPrefixXformConfig); }

  Coll<RangeSetType> const& rangeSplitConfig() const { return rangeSplitConfig_; }
  Mox::Ptr<StageConfig> rangeSplitConfig(RangeSetType const& key) const {
    return Mox::lookup(rangeSplitConfig_, key);
  }
  bool rangeSplitConfigHas(RangeSetType const& key) const {
    return rangeSplitConfig_.contains(key);
  }
  void rangeSplitConfigIs(RangeSetType const& key, Mox::Ptr<StageConfig> v) {
    itemSet(rangeSplitConfig_, key, std::move(v), &Notifiee::onRangeSplitConfig);
  }
  void rangeSplitConfigDel(RangeSetType const& key) {
    itemDel(rangeSplitConfig_, key, &Notifiee::onRangeSplitConfig);
  }
  void rangeSplitConfigDelAll() { collDelAll(rangeSplitConfig_, &Notifiee::onRangeSplitConfig); }

  Coll<ComboLabelSetType> const& comboLabelResolverConfig() const {
    return comboLabelResolverConfig_;
  }
  Mox::Ptr<StageConfig> comboLabelResolverConfig(ComboLabelSetType const& key) const {
    return Mox::lookup(comboLabelResolverConfig_, key);
  }
  bool comboLabelResolverConfigHas(ComboLabelSetType const& key) const {
    return comboLabelResolverConfig_.contains(key);
  }
  void comboLabelResolverConfigIs(ComboLabelSetType const& key, Mox::Ptr<StageConfig> v) {
    itemSet(comboLabelResolverConfig_, key, std::move(v), &Notifiee::onComboLabelResolverConfig);
  }
  void comboLabelResolverConfigDel(ComboLabelSetType const& key) {
    itemDel(comboLabelResolverConfig_, key, &Notifiee::onComboLabelResolverConfig);
  }
  void comboLabelResolverConfigDelAll() {
    collDelAll(comboLabelResolverConfig_, &Notifiee::onComboLabelResolverConfig);
  }

  Coll<ComboLabelSetType> const& comboLabelSplitConfig() const { return comboLabelSplitConfig_; }
  Mox::Ptr<StageConfig> comboLabelSplitConfig(ComboLabelSetType const& key) const {
    return Mox::lookup(comboLabelSplitConfig_, key);
  }
  bool comboLabelSplitConfigHas(ComboLabelSetType const& key) const {
    return comboLabelSplitConfig_.contains(key);
  }
  void comboLabelSplitConfigIs(ComboLabelSetType const& key, Mox::Ptr<StageConfig> v) {
    itemSet(comboLabelSplitConfig_, key, std::move(v), &Notifiee::onComboLabelSplitConfig);
  }
  void comboLabelSplitConfigDel(ComboLabelSetType const& key) {
    itemDel(comboLabelSplitConfig_, key, &Notifiee::onComboLabelSplitConfig);
  }
  void comboLabelSplitConfigDelAll() {
    collDelAll(comboLabelSplitConfig_, &Notifiee::onComboLabelSplitConfig);
  }

  Coll<PrefixXformKey> const& prefixEncoderConfig() const { return prefixEncoderConfig_; }
  Mox::Ptr<StageConfig> prefixEncoderConfig(PrefixXformKey const& key) const {
    return Mox::lookup(prefixEncoderConfig_, key);
  }
  bool prefixEncoderConfigHas(PrefixXformKey const& key) const {
    return prefixEncoderConfig_.contains(key);
  }
  void prefixEncoderConfigIs(PrefixXformKey const& key, Mox::Ptr<StageConfig> v) {
    itemSet(prefixEncoderConfig_, key, std::move(v), &Notifiee::onPrefixEncoderConfig);
  }
  void prefixEncoderConfigDel(PrefixXformKey const& key) {
    itemDel(prefixEncoderConfig_, key, &Notifiee::onPrefixEncoderConfig);
  }
  void prefixEncoderConfigDelAll() {
    collDelAll(prefixEncoderConfig_, &Notifiee::onPrefixEncoderConfig);
  }

  Coll<RangeSetType> const& rangeEncoderConfig() const { return rangeEncoderConfig_; }
  Mox::Ptr<StageConfig> rangeEncoderConfig(RangeSetType const& key) const {
    return Mox::lookup(rangeEncoderConfig_, key);
  }
  bool rangeEncoderConfigHas(RangeSetType const& key) const {
    return rangeEncoderConfig_.contains(key);
  }
  void rangeEncoderConfigIs(RangeSetType const& key, Mox::Ptr<StageConfig> v) {
    itemSet(rangeEncoderConfig_, key, std::move(v), &Notifiee::onRangeEncoderConfig);
  }
  void rangeEncoderConfigDel(RangeSetType const& key) {
    itemDel(rangeEncoderConfig_, key, &Notifiee::onRangeEncoderConfig);
  }
  void rangeEncoderConfigDelAll() {
    collDelAll(rangeEncoderConfig_, &Notifiee::onRangeEncoderConfig);
  }

  Coll<ComboLabelSetType> const& comboLabelEncoderConfig() const {
    return comboLabelEncoderConfig_;
  }
  Mox::Ptr<StageConfig> comboLabelEncoderConfig(ComboLabelSetType const& key) const {
    return Mox::lookup(comboLabelEncoderConfig_, key);
  }
  bool comboLabelEncoderConfigHas(ComboLabelSetType const& key) const {
    return comboLabelEncoderConfig_.contains(key);
  }
  void comboLabelEncoderConfigIs(ComboLabelSetType const& key, Mox::Ptr<StageConfig> v) {
    itemSet(comboLabelEncoderConfig_, key, std::move(v), &Notifiee::onComboLabelEncoderConfig);
  }
  void comboLabelEncoderConfigDel(ComboLabelSetType const& key) {
    itemDel(comboLabelEncoderConfig_, key, &Notifiee::onComboLabelEncoderConfig);
  }
  void comboLabelEncoderConfigDelAll() {
    collDelAll(comboLabelEncoderConfig_, &Notifiee::onComboLabelEncoderConfig);
  }

  Mox::Ptr<StageConfig> const& ruleExpanderConfig() const { return ruleExpanderConfig_; }
  void ruleExpanderConfigIs(Mox::Ptr<StageConfig> v) {
    attrIs(ruleExpanderConfig_, std::move(v), &Notifiee::onRuleExpanderConfig);
  }
  void ruleExpanderConfigDel() { ruleExpanderConfigIs(nullptr); }

  Mox::Ptr<StageConfig> const& loaderConfig() const { return loaderConfig_; }
  void loaderConfigIs(Mox::Ptr<StageConfig> v) {
    attrIs(loaderConfig_, std::move(v), &Notifiee::onLoaderConfig);
  }
  void loaderConfigDel() { loaderConfigIs(nullptr); }

  /// Calls `f(StageConfig&)` for every member of a stage, in the order in which they were added.
  template <class F>
  void forEach(NaxelActiveStage stage, F f) const {
    forEachKeyed(stage, [&](auto const&, Mox::Ptr<StageConfig> const& m) { f(*m); });
  }
  /// Calls `f(key, Mox::Ptr<StageConfig>)`; the key is a std::monostate for a stage of one member.
  template <class F>
  void forEachKeyed(NaxelActiveStage stage, F f) const {
    auto const one = [&](Mox::Ptr<StageConfig> const& m) {
      if (m) f(std::monostate(), m);
    };
    auto const all = [&](auto const& coll) {
      for (auto const& [key, m] : coll)
        if (m) f(key, m);
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
  void aggregatorStatusDel() { aggregatorStatusIs(nullptr); }

  Coll<PrefixXformKey> const& prefixXformStatus() const { return prefixXformStatus_; }
  Mox::Ptr<StageStatus> prefixXformStatus(PrefixXformKey const& key) const {
    return Mox::lookup(prefixXformStatus_, key);
  }
  bool prefixXformStatusHas(PrefixXformKey const& key) const {
    return prefixXformStatus_.contains(key);
  }
  void prefixXformStatusIs(PrefixXformKey const& key, Mox::Ptr<StageStatus> v) {
    itemSet(prefixXformStatus_, key, std::move(v), &Notifiee::onPrefixXformStatus);
  }
  void prefixXformStatusDel(PrefixXformKey const& key) {
    itemDel(prefixXformStatus_, key, &Notifiee::onPrefixXformStatus);
  }
  void prefixXformStatusDelAll() { collDelAll(prefixXformStatus_, &Notifiee::onPrefixXformStatus); }

  Coll<RangeSetType> const& rangeSplitStatus() const { return rangeSplitStatus_; }
  Mox::Ptr<StageStatus> rangeSplitStatus(RangeSetType const& key) const {
    return Mox::lookup(rangeSplitStatus_, key);
  }
  bool rangeSplitStatusHas(RangeSetType const& key) const {
    return rangeSplitStatus_.contains(key);
  }
  void rangeSplitStatusIs(RangeSetType const& key, Mox::Ptr<StageStatus> v) {
    itemSet(rangeSplitStatus_, key, std::move(v), &Notifiee::onRangeSplitStatus);
  }
  void rangeSplitStatusDel(RangeSetType const& key) {
    itemDel(rangeSplitStatus_, key, &Notifiee::onRangeSplitStatus);
  }
  void rangeSplitStatusDelAll() { collDelAll(rangeSplitStatus_, &Notifiee::onRangeSplitStatus); }

  Coll<ComboLabelSetType> const& comboLabelResolverStatus() const {
    return comboLabelResolverStatus_;
  }
  Mox::Ptr<StageStatus> comboLabelResolverStatus(ComboLabelSetType const& key) const {
    return Mox::lookup(comboLabelResolverStatus_, key);
  }
  bool comboLabelResolverStatusHas(ComboLabelSetType const& key) const {
    return comboLabelResolverStatus_.contains(key);
  }
  void comboLabelResolverStatusIs(ComboLabelSetType const& key, Mox::Ptr<StageStatus> v) {
    itemSet(comboLabelResolverStatus_, key, std::move(v), &Notifiee::onComboLabelResolverStatus);
  }
  void comboLabelResolverStatusDel(ComboLabelSetType const& key) {
    itemDel(comboLabelResolverStatus_, key, &Notifiee::onComboLabelResolverStatus);
  }
  void comboLabelResolverStatusDelAll() {
    collDelAll(comboLabelResolverStatus_, &Notifiee::onComboLabelResolverStatus);
  }

  Coll<ComboLabelSetType> const& comboLabelSplitStatus() const { return comboLabelSplitStatus_; }
  Mox::Ptr<StageStatus> comboLabelSplitStatus(ComboLabelSetType const& key) const {
    return Mox::lookup(comboLabelSplitStatus_, key);
  }
  bool comboLabelSplitStatusHas(ComboLabelSetType const& key) const {
    return comboLabelSplitStatus_.contains(key);
  }
  void comboLabelSplitStatusIs(ComboLabelSetType const& key, Mox::Ptr<StageStatus> v) {
    itemSet(comboLabelSplitStatus_, key, std::move(v), &Notifiee::onComboLabelSplitStatus);
  }
  void comboLabelSplitStatusDel(ComboLabelSetType const& key) {
    itemDel(comboLabelSplitStatus_, key, &Notifiee::onComboLabelSplitStatus);
  }
  void comboLabelSplitStatusDelAll() {
    collDelAll(comboLabelSplitStatus_, &Notifiee::onComboLabelSplitStatus);
  }

  Coll<PrefixXformKey> const& prefixEncoderStatus() const { return prefixEncoderStatus_; }
  Mox::Ptr<StageStatus> prefixEncoderStatus(PrefixXformKey const& key) const {
    return Mox::lookup(prefixEncoderStatus_, key);
  }
  bool prefixEncoderStatusHas(PrefixXformKey const& key) const {
    return prefixEncoderStatus_.contains(key);
  }
  void prefixEncoderStatusIs(PrefixXformKey const& key, Mox::Ptr<StageStatus> v) {
    itemSet(prefixEncoderStatus_, key, std::move(v), &Notifiee::onPrefixEncoderStatus);
  }
  void prefixEncoderStatusDel(PrefixXformKey const& key) {
    itemDel(prefixEncoderStatus_, key, &Notifiee::onPrefixEncoderStatus);
  }
  void prefixEncoderStatusDelAll() {
    collDelAll(prefixEncoderStatus_, &Notifiee::onPrefixEncoderStatus);
  }

  Coll<RangeSetType> const& rangeEncoderStatus() const { return rangeEncoderStatus_; }
  Mox::Ptr<StageStatus> rangeEncoderStatus(RangeSetType const& key) const {
    return Mox::lookup(rangeEncoderStatus_, key);
  }
  bool rangeEncoderStatusHas(RangeSetType const& key) const {
    return rangeEncoderStatus_.contains(key);
  }
  void rangeEncoderStatusIs(RangeSetType const& key, Mox::Ptr<StageStatus> v) {
    itemSet(rangeEncoderStatus_, key, std::move(v), &Notifiee::onRangeEncoderStatus);
  }
  void rangeEncoderStatusDel(RangeSetType const& key) {
    itemDel(rangeEncoderStatus_, key, &Notifiee::onRangeEncoderStatus);
  }
  void rangeEncoderStatusDelAll() {
    collDelAll(rangeEncoderStatus_, &Notifiee::onRangeEncoderStatus);
  }

  Coll<ComboLabelSetType> const& comboLabelEncoderStatus() const {
    return comboLabelEncoderStatus_;
  }
  Mox::Ptr<StageStatus> comboLabelEncoderStatus(ComboLabelSetType const& key) const {
    return Mox::lookup(comboLabelEncoderStatus_, key);
  }
  bool comboLabelEncoderStatusHas(ComboLabelSetType const& key) const {
    return comboLabelEncoderStatus_.contains(key);
  }
  void comboLabelEncoderStatusIs(ComboLabelSetType const& key, Mox::Ptr<StageStatus> v) {
    itemSet(comboLabelEncoderStatus_, key, std::move(v), &Notifiee::onComboLabelEncoderStatus);
  }
  void comboLabelEncoderStatusDel(ComboLabelSetType const& key) {
    itemDel(comboLabelEncoderStatus_, key, &Notifiee::onComboLabelEncoderStatus);
  }
  void comboLabelEncoderStatusDelAll() {
    collDelAll(comboLabelEncoderStatus_, &Notifiee::onComboLabelEncoderStatus);
  }

  Mox::Ptr<StageStatus> const& ruleExpanderStatus() const { return ruleExpanderStatus_; }
  void ruleExpanderStatusIs(Mox::Ptr<StageStatus> v) {
    attrIs(ruleExpanderStatus_, std::move(v), &Notifiee::onRuleExpanderStatus);
  }
  void ruleExpanderStatusDel() { ruleExpanderStatusIs(nullptr); }

  Mox::Ptr<StageStatus> const& loaderStatus() const { return loaderStatus_; }
  void loaderStatusIs(Mox::Ptr<StageStatus> v) {
    attrIs(loaderStatus_, std::move(v), &Notifiee::onLoaderStatus);
  }
  void loaderStatusDel() { loaderStatusIs(nullptr); }

  /// Calls `f(StageStatus&)` for every member of a stage, in the order in which they were added.
  template <class F>
  void forEach(NaxelActiveStage stage, F f) const {
    forEachKeyed(stage, [&](auto const&, Mox::Ptr<StageStatus> const& m) { f(*m); });
  }
  /// Calls `f(key, Mox::Ptr<StageStatus>)`; the key is a std::monostate for a stage of one member.
  template <class F>
  void forEachKeyed(NaxelActiveStage stage, F f) const {
    auto const one = [&](Mox::Ptr<StageStatus> const& m) {
      if (m) f(std::monostate(), m);
    };
    auto const all = [&](auto const& coll) {
      for (auto const& [key, m] : coll)
        if (m) f(key, m);
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
