#pragma once

/// The configurations and statuses of the transform stages and of the combo label resolver: what
/// the stages that cut overlapping sets into disjoint pieces read and publish.

#include "mox/Stamp.h"
#include "naxel/control/StageTypes.h"
#include "naxel/encoder/LabelTypes.h"
#include "naxel/genset/NaxelAggregatorTypes.h"

#include <optional>

namespace Naxel {

/// Output common to all transforms.
class NAXEL_EXPORT XformStatus : public StageStatus {
 public:
  XformStatus() : plainLabelListMap_(Mox::makePtr<PlainLabelListMap>()) {}
  std::string_view fwkType() const override { return "Naxel::XformStatus"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// For each set the labels of the disjoint groups that make it up. A set that covers nothing has
  /// no list.
  Mox::Ptr<PlainLabelListMap> const& plainLabelListMap() const { return plainLabelListMap_; }
  /// Publishes a newly built map in place of the present one.
  void plainLabelListMapIs(Mox::Ptr<PlainLabelListMap> v) {
    plainLabelListMap_ = std::move(v);
    published();
  }
  /// Drawn anew with everything that is published: equal stamps are the same output.
  Mox::Stamp stamp() const { return stamp_; }

  /// True while the published output is not that of a run that ended in success: it may have more
  /// pieces than the width allows. Later stages refuse it, also when the transform reports that an
  /// unchanged input was skipped.
  bool outputUnusable() const { return outputUnusable_; }
  void outputUnusableIs(bool v) { outputUnusable_ = v; }
  /// Why the output is unusable; outlives the kick that found out.
  std::string const& unusableReason() const { return unusableReason_; }
  void unusableReasonIs(std::string v) { unusableReason_ = std::move(v); }

  /// True when a set's absence from the map means that the set covers nothing.
  bool answersForSets() const {
    return status() == StageStatusType::finishedSuccess ||
           status() == StageStatusType::finishedSkipped;
  }

 protected:
  void published() { stamp_ = Mox::newStamp(); }

 private:
  Mox::Ptr<PlainLabelListMap> plainLabelListMap_;
  Mox::Stamp stamp_ = Mox::newStamp();
  bool outputUnusable_ = false;
  std::string unusableReason_;
};
NAXEL_EXPORT Mox::Ptr<XformStatus> xformStatusFactory();

class NAXEL_EXPORT PrefixXformConfig : public StageConfig {
 public:
  PrefixXformConfig(PrefixXformKey const& key, Mox::Ptr<PrefixAggregatorInfo const> info)
      : key_(key), aggregatorInfo_(std::move(info)) {}
  std::string_view fwkType() const override { return "Naxel::PrefixXformConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  PrefixXformKey const& key() const { return key_; }
  /// The prefix sets of this family and side.
  Mox::Ptr<PrefixAggregatorInfo const> const& aggregatorInfo() const { return aggregatorInfo_; }

 private:
  PrefixXformKey key_;
  Mox::Ptr<PrefixAggregatorInfo const> aggregatorInfo_;
};

class NAXEL_EXPORT PrefixXformStatus : public XformStatus {
 public:
  using LabelMap = Mox::FlatMap<Lumox::IpGenPrefix, PlainLabel>;
  explicit PrefixXformStatus(PrefixXformKey const& key) : key_(key) {}
  std::string_view fwkType() const override { return "Naxel::PrefixXformStatus"; }
  Mox::AttributeTable const& attributeTable() const override;

  PrefixXformKey const& key() const { return key_; }
  /// For every prefix of the trie the label of the addresses under it that no longer prefix takes.
  LabelMap const& prefixToLabelMap() const { return prefixToLabelMap_; }
  void prefixToLabelMapIs(LabelMap v) {
    if (v.empty() && prefixToLabelMap_.empty()) return;
    prefixToLabelMap_ = std::move(v);
    published();
  }

 private:
  PrefixXformKey key_;
  LabelMap prefixToLabelMap_;
};

class NAXEL_EXPORT RangeSplitConfig : public StageConfig {
 public:
  RangeSplitConfig(RangeSetType key, Mox::Ptr<RangeSplitAggregatorInfo> info)
      : key_(key), aggregatorInfo_(std::move(info)) {}
  std::string_view fwkType() const override { return "Naxel::RangeSplitConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  RangeSetType key() const { return key_; }
  Mox::Ptr<RangeSplitAggregatorInfo> const& aggregatorInfo() const { return aggregatorInfo_; }

 private:
  RangeSetType key_;
  Mox::Ptr<RangeSplitAggregatorInfo> aggregatorInfo_;
};

class NAXEL_EXPORT RangeSplitStatus : public XformStatus {
 public:
  using LabelMap = Mox::FlatMap<RangeSetElem, PlainLabel>;
  explicit RangeSplitStatus(RangeSetType key) : key_(key) {}
  std::string_view fwkType() const override { return "Naxel::RangeSplitStatus"; }
  Mox::AttributeTable const& attributeTable() const override;

  RangeSetType key() const { return key_; }
  /// Each elementary range with the label of the sets that contain it.
  LabelMap const& rangeToPlainLabelMap() const { return rangeToPlainLabelMap_; }
  void rangeToPlainLabelMapIs(LabelMap v) {
    if (v.empty() && rangeToPlainLabelMap_.empty()) return;
    rangeToPlainLabelMap_ = std::move(v);
    published();
  }

 private:
  RangeSetType key_;
  LabelMap rangeToPlainLabelMap_;
};

/// The combination sets of one type and which of them serves which pair of sets.
class NAXEL_EXPORT ComboLabelInfo : public Mox::Entity {
 public:
  explicit ComboLabelInfo(ComboLabelSetType type) : type_(type) {}
  std::string_view fwkType() const override { return "Naxel::ComboLabelInfo"; }
  Mox::AttributeTable const& attributeTable() const override;

  ComboLabelSetType type() const { return type_; }
  /// In the order of insertion.
  Mox::HashMap<GenSetKey, Mox::Ptr<ComboLabelSet>> const& comboLabelSetColl() const {
    return comboLabelSetColl_;
  }
  Mox::Ptr<ComboLabelSet> comboLabelSetColl(GenSetKey key) const {
    return Mox::lookup(comboLabelSetColl_, key);
  }
  Mox::Ptr<ComboLabelSet> comboLabelSetCollIs(GenSetKey key, ComboLabelSetType type);
  bool comboLabelSetCollHas(GenSetKey key) const { return comboLabelSetColl_.contains(key); }
  void comboLabelSetCollDel(GenSetKey key) { comboLabelSetColl_.erase(key); }
  void comboLabelSetCollDelAll() { comboLabelSetColl_.clear(); }

  Mox::HashMap<GenSetKeyPair, GenSetKey> const& srcDstToComboMap() const {
    return srcDstToComboMap_;
  }
  /// The combination set of a pair; key 0 when there is none.
  /// O(1) on average.
  GenSetKey srcDstToComboMap(GenSetKeyPair const& pair) const;
  void srcDstToComboMapIs(GenSetKeyPair const& pair, GenSetKey key) {
    srcDstToComboMap_.set(pair, key);
    stamp_.renew();
  }
  void srcDstToComboMapDel(GenSetKeyPair const& pair) {
    if (srcDstToComboMap_.erase(pair)) stamp_.renew();
  }
  void srcDstToComboMapDelAll() {
    if (srcDstToComboMap_.empty()) return;
    srcDstToComboMap_.clear();
    stamp_.renew();
  }
  bool srcDstToComboMapHas(GenSetKeyPair const& pair) const {
    return srcDstToComboMap_.contains(pair);
  }
  /// Stamp of which set serves which pair.
  Mox::Stamp stamp() const { return stamp_.get(); }

 private:
  ComboLabelSetType type_;
  Mox::HashMap<GenSetKey, Mox::Ptr<ComboLabelSet>> comboLabelSetColl_;
  Mox::HashMap<GenSetKeyPair, GenSetKey> srcDstToComboMap_;
  Mox::ContentStamp stamp_;
};

class NAXEL_EXPORT ComboLabelResolverConfig : public StageConfig {
 public:
  ComboLabelResolverConfig(ComboLabelSetType key, Mox::Ptr<XformStatus const> srcXform,
                           Mox::Ptr<XformStatus const> dstXform,
                           Mox::Ptr<AggregatorStatus const> aggInfo)
      : key_(key),
        srcXform_(std::move(srcXform)),
        dstXform_(std::move(dstXform)),
        aggInfo_(std::move(aggInfo)) {}
  std::string_view fwkType() const override { return "Naxel::ComboLabelResolverConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  ComboLabelSetType key() const { return key_; }
  /// The transforms that label the two sides.
  Mox::Ptr<XformStatus const> const& srcXform() const { return srcXform_; }
  Mox::Ptr<XformStatus const> const& dstXform() const { return dstXform_; }
  Mox::Ptr<AggregatorStatus const> const& aggInfo() const { return aggInfo_; }

 private:
  ComboLabelSetType key_;
  Mox::Ptr<XformStatus const> srcXform_;
  Mox::Ptr<XformStatus const> dstXform_;
  Mox::Ptr<AggregatorStatus const> aggInfo_;
};

class NAXEL_EXPORT ComboLabelResolverStatus : public StageStatus {
 public:
  ComboLabelResolverStatus(ComboLabelSetType key, Mox::Ptr<ComboLabelInfo> info)
      : key_(key),
        comboLabelInfo_(std::move(info)),
        genSetUsageInfo_(Mox::makePtr<GenSetUsageInfo>()) {}
  std::string_view fwkType() const override { return "Naxel::ComboLabelResolverStatus"; }
  Mox::AttributeTable const& attributeTable() const override;

  ComboLabelSetType key() const { return key_; }
  Mox::Ptr<ComboLabelInfo> const& comboLabelInfo() const { return comboLabelInfo_; }
  /// How many rules use each combination set.
  Mox::Ptr<GenSetUsageInfo> const& genSetUsageInfo() const { return genSetUsageInfo_; }

 private:
  ComboLabelSetType key_;
  Mox::Ptr<ComboLabelInfo> comboLabelInfo_;
  Mox::Ptr<GenSetUsageInfo> genSetUsageInfo_;
};

class NAXEL_EXPORT ComboLabelSplitConfig : public StageConfig {
 public:
  ComboLabelSplitConfig(ComboLabelSetType key, Mox::Ptr<ComboLabelInfo> info)
      : key_(key), comboLabelInfo_(std::move(info)) {}
  std::string_view fwkType() const override { return "Naxel::ComboLabelSplitConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  ComboLabelSetType key() const { return key_; }
  Mox::Ptr<ComboLabelInfo> const& comboLabelInfo() const { return comboLabelInfo_; }

 private:
  ComboLabelSetType key_;
  Mox::Ptr<ComboLabelInfo> comboLabelInfo_;
};

class NAXEL_EXPORT ComboLabelSplitStatus : public XformStatus {
 public:
  using LabelMap = Mox::FlatMap<GenCombo, PlainLabel>;
  explicit ComboLabelSplitStatus(ComboLabelSetType key) : key_(key) {}
  std::string_view fwkType() const override { return "Naxel::ComboLabelSplitStatus"; }
  Mox::AttributeTable const& attributeTable() const override;

  ComboLabelSetType key() const { return key_; }
  /// Each combination that occurs with the label of the sets that hold it.
  LabelMap const& comboToPlainLabelMap() const { return comboToPlainLabelMap_; }
  void comboToPlainLabelMapIs(LabelMap v) {
    if (v.empty() && comboToPlainLabelMap_.empty()) return;
    comboToPlainLabelMap_ = std::move(v);
    published();
  }

 private:
  ComboLabelSetType key_;
  LabelMap comboToPlainLabelMap_;
};

}  // namespace Naxel
