#pragma once

/// What the rule expander reads and writes.

#include "naxel/encoder/EncoderTypes.h"
#include "naxel/loader/PDData.h"
#include "naxel/types/MatchFields.h"

namespace Naxel {

/// One field of an entry: the pair and whether it is compared.
class TcamFieldData : public Mox::ValueType<TcamFieldData> {
 public:
  static constexpr std::string_view typeName = "Naxel::TcamFieldData";
  TcamFieldData() = default;
  TcamFieldData(EncodedLabelWithMask const& label, bool match) : encLabel_(label), match_(match) {}
  explicit TcamFieldData(Mox::TextCursor& c) { Mox::TextForm<TcamFieldData>::read(c, *this); }

  EncodedLabelWithMask const& encLabel() const { return encLabel_; }
  bool match() const { return match_; }

  static constexpr auto fields() {
    return std::make_tuple(Mox::field("encLabel", &TcamFieldData::encLabel_),
                           Mox::field("match", &TcamFieldData::match_));
  }

 private:
  EncodedLabelWithMask encLabel_;
  bool match_ = false;
};

/// All inputs of the expander, read-only. The transform statuses tell a set that covers nothing
/// from one whose field is not transformed on this chip.
class NAXEL_EXPORT RuleExpanderConfig : public StageConfig {
 public:
  explicit RuleExpanderConfig(Mox::Ptr<AggregatorStatus const> status)
      : aggregatorStatus_(std::move(status)) {}
  std::string_view fwkType() const override { return "Naxel::RuleExpanderConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  Mox::Ptr<AggregatorStatus const> const& aggregatorStatus() const { return aggregatorStatus_; }

  Mox::Ptr<ComboLabelInfo const> comboLabelInfo(ComboLabelSetType type) const {
    return Mox::lookup(comboLabelInfo_, type);
  }
  void comboLabelInfoIs(ComboLabelSetType type, Mox::Ptr<ComboLabelInfo const> v) {
    comboLabelInfo_.set(type, std::move(v));
  }
  Mox::Ptr<EncoderStatus const> prefixEncoderStatus(PrefixXformKey const& key) const {
    return Mox::lookup(prefixEncoderStatus_, key);
  }
  Mox::Ptr<EncoderStatus const> rangeEncoderStatus(RangeSetType type) const {
    return Mox::lookup(rangeEncoderStatus_, type);
  }
  Mox::Ptr<EncoderStatus const> comboLabelEncoderStatus(ComboLabelSetType type) const {
    return Mox::lookup(comboLabelEncoderStatus_, type);
  }
  Mox::Ptr<XformStatus const> prefixXformStatus(PrefixXformKey const& key) const {
    return Mox::lookup(prefixXformStatus_, key);
  }
  Mox::Ptr<XformStatus const> rangeSplitStatus(RangeSetType type) const {
    return Mox::lookup(rangeSplitStatus_, type);
  }
  Mox::Ptr<XformStatus const> comboLabelSplitStatus(ComboLabelSetType type) const {
    return Mox::lookup(comboLabelSplitStatus_, type);
  }
  /// Adds the encoder of a key together with the transform that feeds it.
  void prefixEncoderStatusIs(PrefixXformKey const& key, Mox::Ptr<EncoderStatus const> encoder,
                             Mox::Ptr<XformStatus const> xform) {
    prefixEncoderStatus_.set(key, std::move(encoder));
    prefixXformStatus_.set(key, std::move(xform));
  }
  void rangeEncoderStatusIs(RangeSetType type, Mox::Ptr<EncoderStatus const> encoder,
                            Mox::Ptr<XformStatus const> xform) {
    rangeEncoderStatus_.set(type, std::move(encoder));
    rangeSplitStatus_.set(type, std::move(xform));
  }
  void comboLabelEncoderStatusIs(ComboLabelSetType type, Mox::Ptr<EncoderStatus const> encoder,
                                 Mox::Ptr<XformStatus const> xform) {
    comboLabelEncoderStatus_.set(type, std::move(encoder));
    comboLabelSplitStatus_.set(type, std::move(xform));
  }

 private:
  Mox::Ptr<AggregatorStatus const> aggregatorStatus_;
  Mox::OrderedMap<ComboLabelSetType, Mox::Ptr<ComboLabelInfo const>> comboLabelInfo_;
  Mox::OrderedMap<PrefixXformKey, Mox::Ptr<EncoderStatus const>> prefixEncoderStatus_;
  Mox::OrderedMap<RangeSetType, Mox::Ptr<EncoderStatus const>> rangeEncoderStatus_;
  Mox::OrderedMap<ComboLabelSetType, Mox::Ptr<EncoderStatus const>> comboLabelEncoderStatus_;
  Mox::OrderedMap<PrefixXformKey, Mox::Ptr<XformStatus const>> prefixXformStatus_;
  Mox::OrderedMap<RangeSetType, Mox::Ptr<XformStatus const>> rangeSplitStatus_;
  Mox::OrderedMap<ComboLabelSetType, Mox::Ptr<XformStatus const>> comboLabelSplitStatus_;
};

class NAXEL_EXPORT RuleExpanderStatus : public StageStatus {
 public:
  RuleExpanderStatus() : ruleExpanderLoaderInfo_(Mox::makePtr<PDAclColl>()) {}
  std::string_view fwkType() const override { return "Naxel::RuleExpanderStatus"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// The entries of all rules. The collection is rebuilt in place by every kick; its ACLs and their rules are
  /// replaced where they change.
  Mox::Ptr<PDAclColl> const& ruleExpanderLoaderInfo() const { return ruleExpanderLoaderInfo_; }

 private:
  Mox::Ptr<PDAclColl> ruleExpanderLoaderInfo_;
};

}  // namespace Naxel
