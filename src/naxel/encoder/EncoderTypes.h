#pragma once

/// Configuration, status and loader info of the label encoder stages.

#include "acl/ParamConfig.h"
#include "mox/Assert.h"
#include "mox/Stamp.h"
#include "naxel/control/StageTypes.h"
#include "naxel/encoder/LabelTypes.h"
#include "naxel/xform/NaxelXformTypes.h"

namespace Naxel {

class PDData;

/// Which encoded label each entry of a hardware transform table must yield. A record is made anew
/// by every run of its encoder and never changed afterwards.
class NAXEL_EXPORT PrefixXformLoaderInfo : public Mox::Entity, public KeepsSets {
 public:
  using LabelMap = Mox::FlatMap<Lumox::IpGenPrefix, EncodedLabel>;
  std::string_view fwkType() const override { return "Naxel::PrefixXformLoaderInfo"; }
  Mox::AttributeTable const& attributeTable() const override;
  LabelMap const& prefixToLabelMap() const { return prefixToLabelMap_; }
  /// Takes over all entries at once, in any order.
  void prefixToLabelMapIs(std::vector<LabelMap::value_type> all) {
    prefixToLabelMap_.adopt(std::move(all));
  }

 private:
  LabelMap prefixToLabelMap_;
};

class NAXEL_EXPORT RangeSplitLoaderInfo : public Mox::Entity, public KeepsSets {
 public:
  using LabelMap = Mox::FlatMap<RangeSetElem, EncodedLabel>;
  std::string_view fwkType() const override { return "Naxel::RangeSplitLoaderInfo"; }
  Mox::AttributeTable const& attributeTable() const override;
  LabelMap const& rangeToEncodedLabelMap() const { return rangeToEncodedLabelMap_; }
  /// Takes over all entries at once, in any order.
  void rangeToEncodedLabelMapIs(std::vector<LabelMap::value_type> all) {
    rangeToEncodedLabelMap_.adopt(std::move(all));
  }

 private:
  LabelMap rangeToEncodedLabelMap_;
};

class NAXEL_EXPORT ComboLabelLoaderInfo : public Mox::Entity, public KeepsSets {
 public:
  using LabelMap = Mox::FlatMap<EncodedComboLabel, EncodedLabel>;
  std::string_view fwkType() const override { return "Naxel::ComboLabelLoaderInfo"; }
  Mox::AttributeTable const& attributeTable() const override;
  LabelMap const& encComboToEncodedLabelMap() const { return encComboToEncodedLabelMap_; }
  /// Takes over all entries at once, in any order.
  void encComboToEncodedLabelMapIs(std::vector<std::pair<EncodedComboLabel, EncodedLabel>> all) {
    encComboToEncodedLabelMap_.adopt(std::move(all));
  }

 private:
  LabelMap encComboToEncodedLabelMap_;
};

/// Output common to all encoders.
class NAXEL_EXPORT EncoderStatus : public StageStatus {
 public:
  using LabelMap = Mox::FlatMap<PlainLabel, EncodedLabel>;
  using MaskListMap = Mox::FlatMap<GenSetKey, Mox::Ptr<EncodedLabelWithMaskList>>;

  class NAXEL_EXPORT Notifiee : public StageStatus::Notifiee {
   public:
    virtual void onLoaderInfo() {}
  };
  std::string_view fwkType() const override { return "Naxel::EncoderStatus"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// The encoded label of every plain label of the run. Empty in raw mode and after a failure.
  LabelMap const& plainToEncodedLabel() const { return plainToEncodedLabel_; }
  bool plainToEncodedLabelHas(PlainLabel l) const { return encodedLabel(l) != nullptr; }
  /// The encoded label of a plain label, or null. O(1) where the labels are 1, 2, 3, ...
  EncodedLabel const* encodedLabel(PlainLabel l) const {
    size_t const guess = size_t{l.value()} - 1;
    if (guess < plainToEncodedLabel_.size() && plainToEncodedLabel_[guess].first == l)
      return &plainToEncodedLabel_[guess].second;
    return plainToEncodedLabel_.get(l);
  }
  /// The encoded label of a plain label that the run has encoded.
  EncodedLabel encodedLabelOf(PlainLabel l) const {
    EncodedLabel const* const encoded = encodedLabel(l);
    MOX_ASSERT(encoded);
    return *encoded;
  }
  /// Publishes a newly built map in place of the present one.
  void plainToEncodedLabelIs(LabelMap v) { plainToEncodedLabel_ = std::move(v); }
  void plainToEncodedLabelDelAll() { plainToEncodedLabel_.clear(); }

  /// The final value/mask pairs of each set. A set that covers nothing has no list.
  MaskListMap const& encodedLabelList() const { return encodedLabelList_; }
  EncodedLabelWithMaskList const* encodedLabelList(GenSetKey key) const;
  void encodedLabelListIs(MaskListMap v) {
    encodedLabelList_ = std::move(v);
    stamp_ = Mox::newStamp();
  }
  void encodedLabelListDelAll() {
    if (!encodedLabelList_.empty()) encodedLabelListIs({});
  }
  /// How often labels that were to be kept were encoded afresh all the same, because there was no room or little to
  /// keep.
  uint64_t encodedAfresh() const { return encodedAfresh_; }
  void encodedAfreshIs(uint64_t v) { encodedAfresh_ = v; }
  /// By which code the labels above are encoded.
  Acl::LabelCode labelCode() const { return labelCode_; }
  void labelCodeIs(Acl::LabelCode v) { labelCode_ = v; }

  /// Drawn anew when pairs are published or withdrawn: equal stamps are the same pairs.
  Mox::Stamp stamp() const { return stamp_; }

 private:
  LabelMap plainToEncodedLabel_;
  MaskListMap encodedLabelList_;
  Acl::LabelCode labelCode_ = Acl::LabelCode::aligned;
  uint64_t encodedAfresh_ = 0;
  Mox::Stamp stamp_ = Mox::newStamp();
};
NAXEL_EXPORT Mox::Ptr<EncoderStatus> encoderStatusFactory();

/// Status of the encoder of one key, with its loader info: null where there is no transform table.
template <class Key, class Info>
class KeyedEncoderStatus : public EncoderStatus {
 public:
  explicit KeyedEncoderStatus(Key const& key) : key_(key) {}
  Key const& key() const { return key_; }
  Mox::Ptr<Info const> const& loaderInfo() const { return loaderInfo_; }
  void loaderInfoIs(Mox::Ptr<Info const> v) {
    attrIs(loaderInfo_, std::move(v), &Notifiee::onLoaderInfo);
  }
  Mox::AttributeTable const& attributeTable() const override {
    static Mox::AttributeTable const table =
        Mox::joinTables(EncoderStatus::attributeTable(),
                        {Mox::attribute<&KeyedEncoderStatus::key_>("key"),
                         Mox::attribute<&KeyedEncoderStatus::loaderInfo_>("loaderInfo")});
    return table;
  }

 private:
  Key key_;
  Mox::Ptr<Info const> loaderInfo_;
};

class NAXEL_EXPORT PrefixEncoderStatus
    : public KeyedEncoderStatus<PrefixXformKey, PrefixXformLoaderInfo> {
 public:
  using KeyedEncoderStatus::KeyedEncoderStatus;
  std::string_view fwkType() const override { return "Naxel::PrefixEncoderStatus"; }
};
class NAXEL_EXPORT RangeEncoderStatus
    : public KeyedEncoderStatus<RangeSetType, RangeSplitLoaderInfo> {
 public:
  using KeyedEncoderStatus::KeyedEncoderStatus;
  std::string_view fwkType() const override { return "Naxel::RangeEncoderStatus"; }
};
class NAXEL_EXPORT ComboLabelEncoderStatus
    : public KeyedEncoderStatus<ComboLabelSetType, ComboLabelLoaderInfo> {
 public:
  using KeyedEncoderStatus::KeyedEncoderStatus;
  std::string_view fwkType() const override { return "Naxel::ComboLabelEncoderStatus"; }
};

/// Points an encoder at the transform that feeds it.
class NAXEL_EXPORT EncoderConfig : public StageConfig {
 public:
  explicit EncoderConfig(Mox::Ptr<XformStatus const> xform);
  ~EncoderConfig() override;
  std::string_view fwkType() const override { return "Naxel::EncoderConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  Mox::Ptr<XformStatus const> const& xformStatus() const { return xformStatus_; }
  /// The code to encode labels by. Default aligned.
  Acl::LabelCode labelCode() const { return labelCode_; }
  void labelCodeIs(Acl::LabelCode v) { labelCode_ = v; }
  /// The output in force whose labels are to be kept; null where they are encoded afresh each time.
  Mox::Ptr<PDData const> const& basis() const { return basis_; }
  /// And how many entries of rules may be written anew to improve upon it.
  uint64_t repairRows() const { return repairRows_; }
  void basisIs(Mox::Ptr<PDData const> v, uint64_t repairRows);

 private:
  Mox::Ptr<XformStatus const> xformStatus_;
  Acl::LabelCode labelCode_ = Acl::LabelCode::aligned;
  Mox::Ptr<PDData const> basis_;
  uint64_t repairRows_ = 0;
};
NAXEL_EXPORT Mox::Ptr<EncoderConfig> encoderConfigFactory(Mox::Ptr<XformStatus const> xformStatus);

/// Adds the range sets themselves, which are encoded where the chip has no label width.
class NAXEL_EXPORT RangeEncoderConfig : public EncoderConfig {
 public:
  RangeEncoderConfig(Mox::Ptr<XformStatus const> xform,
                     Mox::Ptr<RangeSplitAggregatorInfo const> info)
      : EncoderConfig(std::move(xform)), aggregatorInfo_(std::move(info)) {}
  std::string_view fwkType() const override { return "Naxel::RangeEncoderConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  Mox::Ptr<RangeSplitAggregatorInfo const> const& aggregatorInfo() const { return aggregatorInfo_; }

 private:
  Mox::Ptr<RangeSplitAggregatorInfo const> aggregatorInfo_;
};

/// Adds the encoders of the two sides, whose labels are the key of the combination table.
class NAXEL_EXPORT ComboLabelEncoderConfig : public EncoderConfig {
 public:
  ComboLabelEncoderConfig(Mox::Ptr<XformStatus const> xform, Mox::Ptr<EncoderStatus const> src,
                          Mox::Ptr<EncoderStatus const> dst)
      : EncoderConfig(std::move(xform)),
        srcEncStatus_(std::move(src)),
        dstEncStatus_(std::move(dst)) {}
  std::string_view fwkType() const override { return "Naxel::ComboLabelEncoderConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  Mox::Ptr<EncoderStatus const> const& srcEncStatus() const { return srcEncStatus_; }
  Mox::Ptr<EncoderStatus const> const& dstEncStatus() const { return dstEncStatus_; }

 private:
  Mox::Ptr<EncoderStatus const> srcEncStatus_;
  Mox::Ptr<EncoderStatus const> dstEncStatus_;
};

}  // namespace Naxel
