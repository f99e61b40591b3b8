#pragma once

/// Encoded labels and the label collections keyed by generic set, which transforms, encoders,
/// expander and output model share. A transform gives every disjoint piece a plain label; an
/// encoder turns plain labels into encoded labels, values of a fixed bit width in a TCAM key field,
/// and describes every set by value/mask pairs over them.

#include "acl/ParamConfig.h"
#include "mox/Entity.h"
#include "mox/FlatSet.h"
#include "mox/InlineSet.h"
#include "mox/OrderedMap.h"
#include "naxel/genset/GenSetTypes.h"

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <tuple>

namespace Naxel {

namespace Compact {
struct KeptSets;
}

/// Of a table, what the next encoding of its field needs to leave most of it as it is; null where labels are not kept.
class KeepsSets {
 public:
  std::shared_ptr<Compact::KeptSets const> const& keptSets() const { return keptSets_; }
  void keptSetsIs(std::shared_ptr<Compact::KeptSets const> v) { keptSets_ = std::move(v); }

 private:
  std::shared_ptr<Compact::KeptSets const> keptSets_;
};

/// A label value as it stands in the TCAM key.
class EncodedLabel : public Mox::NumberValue<EncodedLabel, uint16_t> {
 public:
  using NumberValue::NumberValue;
  constexpr EncodedLabel() = default;
  explicit EncodedLabel(Mox::TextCursor& c) { Mox::TextForm<EncodedLabel>::read(c, *this); }
};

/// A mask over an encoded label: a 1 bit is compared, a 0 bit is ignored.
class LabelMask : public Mox::NumberValue<LabelMask, uint16_t> {
 public:
  using NumberValue::NumberValue;
  constexpr LabelMask() = default;
  explicit LabelMask(Mox::TextCursor& c) { Mox::TextForm<LabelMask>::read(c, *this); }
};

/// One value/mask pair. The default, with mask 0, matches everything.
class EncodedLabelWithMask : public Mox::ValueType<EncodedLabelWithMask> {
 public:
  static constexpr std::string_view typeName = "Naxel::EncodedLabelWithMask";
  EncodedLabelWithMask() = default;
  EncodedLabelWithMask(EncodedLabel label, LabelMask mask) : label_(label), mask_(mask) {}
  EncodedLabelWithMask(uint16_t label, uint16_t mask) : label_(label), mask_(mask) {}
  explicit EncodedLabelWithMask(Mox::TextCursor& c) {
    Mox::TextForm<EncodedLabelWithMask>::read(c, *this);
  }

  EncodedLabel label() const { return label_; }
  LabelMask mask() const { return mask_; }
  uint32_t orderKey() const { return uint32_t{label_.value()} << 16 | mask_.value(); }
  bool matches(uint32_t value) const { return ((value ^ label_.value()) & mask_.value()) == 0; }

  static constexpr auto fields() {
    return std::make_tuple(Mox::field("label", &EncodedLabelWithMask::label_),
                           Mox::field("mask", &EncodedLabelWithMask::mask_));
  }

 private:
  EncodedLabel label_;
  LabelMask mask_;
};

/// Inclusive range of encoded labels.
class EncodedLabelRange : public Mox::ValueType<EncodedLabelRange> {
 public:
  static constexpr std::string_view typeName = "Naxel::EncodedLabelRange";
  EncodedLabelRange() = default;
  EncodedLabelRange(EncodedLabel start, EncodedLabel end) : start_(start), end_(end) {}
  explicit EncodedLabelRange(Mox::TextCursor& c) {
    Mox::TextForm<EncodedLabelRange>::read(c, *this);
  }

  EncodedLabel start() const { return start_; }
  EncodedLabel end() const { return end_; }
  uint32_t orderKey() const { return uint32_t{start_.value()} << 16 | end_.value(); }

  static constexpr auto fields() {
    return std::make_tuple(Mox::field("start", &EncodedLabelRange::start_),
                           Mox::field("end", &EncodedLabelRange::end_));
  }

 private:
  EncodedLabel start_;
  EncodedLabel end_;
};

/// An encoded source and an encoded destination label.
class EncodedComboLabel : public Mox::ValueType<EncodedComboLabel> {
 public:
  static constexpr std::string_view typeName = "Naxel::EncodedComboLabel";
  EncodedComboLabel() = default;
  EncodedComboLabel(EncodedLabel src, EncodedLabel dst) : srcLabel_(src), dstLabel_(dst) {}
  explicit EncodedComboLabel(Mox::TextCursor& c) {
    Mox::TextForm<EncodedComboLabel>::read(c, *this);
  }

  EncodedLabel srcLabel() const { return srcLabel_; }
  EncodedLabel dstLabel() const { return dstLabel_; }
  uint32_t orderKey() const { return uint32_t{srcLabel_.value()} << 16 | dstLabel_.value(); }

  static constexpr auto fields() {
    return std::make_tuple(Mox::field("srcLabel", &EncodedComboLabel::srcLabel_),
                           Mox::field("dstLabel", &EncodedComboLabel::dstLabel_));
  }

 private:
  EncodedLabel srcLabel_;
  EncodedLabel dstLabel_;
};

/// The plain labels whose pieces make up one generic set, ascending. Of many lists that are made at once the
/// labels stand in one array of the map that owns them; a list that is changed takes them into its own.
class NAXEL_EXPORT PlainLabelList : public Mox::Entity {
 public:
  explicit PlainLabelList(GenSetKey key) : key_(key) {}
  /// A list of labels that stand elsewhere, ascending, for as long as it lives.
  PlainLabelList(GenSetKey key, std::span<PlainLabel const> labels) : key_(key), label_(labels) {}
  std::string_view fwkType() const override { return "Naxel::PlainLabelList"; }
  Mox::AttributeTable const& attributeTable() const override;

  GenSetKey key() const { return key_; }
  /// Ends with the list, and with its next change.
  Mox::FlatSetView<PlainLabel> const& label() const { return label_; }
  bool labelHas(PlainLabel l) const { return label_.contains(l); }
  void labelIs(PlainLabel l) {
    change([&](auto& own) { own.insert(l); });
  }
  /// Takes over all labels at once, in any order.
  void labelIs(std::vector<PlainLabel> all) {
    change([&](auto& own) { own.adopt(std::move(all)); });
  }
  void labelDel(PlainLabel l) {
    change([&](auto& own) { own.erase(l); });
  }
  void labelDelAll() {
    change([](auto& own) { own.clear(); });
  }

  /// 64-bit hash of the labels, computed once after each change.
  uint64_t contentHash() const;

 private:
  using Own = Mox::FlatSet<PlainLabel>;
  template <class F>
  void change(F f) {
    f(own());
    label_ = *own_;
  }
  Own& own();

  GenSetKey key_;
  Mox::FlatSetView<PlainLabel> label_;
  std::unique_ptr<Own> own_;  // of a list that has been changed
  mutable std::optional<uint64_t> contentHash_;
};

/// The label lists of all sets of one transform, by ascending key. They live as long as the map, and so do
/// those that have been deleted from it.
class NAXEL_EXPORT PlainLabelListMap : public Mox::Entity {
 public:
  std::string_view fwkType() const override { return "Naxel::PlainLabelListMap"; }
  Mox::AttributeTable const& attributeTable() const override;

  Mox::FlatMap<GenSetKey, PlainLabelList*> const& plainLabelList() const { return plainLabelList_; }
  /// The list of a set, or null.
  PlainLabelList const* plainLabelList(GenSetKey key) const;
  /// The list of a set, made without labels if absent.
  PlainLabelList& plainLabelListIs(GenSetKey key);
  /// Makes all lists of an empty map at once: those of `keys`, which are ascending, end at `ends` among the
  /// labels. A list without labels is not made.
  void plainLabelListsAre(std::span<GenSetKey const> keys, std::span<uint32_t const> ends,
                          std::vector<PlainLabel> labels);
  void plainLabelListDel(GenSetKey key) { plainLabelList_.erase(key); }
  void plainLabelListDelAll() { plainLabelList_.clear(); }

 private:
  std::vector<PlainLabel> labels_;    // of the lists that were made at once
  std::deque<PlainLabelList> lists_;  // which does not move them
  Mox::FlatMap<GenSetKey, PlainLabelList*> plainLabelList_;
};

/// The value/mask pairs that match exactly the encoded labels of one generic set, together with the
/// spare labels of its blocks, which no piece carries.
class NAXEL_EXPORT EncodedLabelWithMaskList : public Mox::Entity {
 public:
  explicit EncodedLabelWithMaskList(GenSetKey key) : key_(key) {}
  std::string_view fwkType() const override { return "Naxel::EncodedLabelWithMaskList"; }
  Mox::AttributeTable const& attributeTable() const override;

  GenSetKey key() const { return key_; }
  using Pairs = Mox::InlineSet<EncodedLabelWithMask, 4>;
  Pairs const& encLabelAndMask() const { return encLabelAndMask_; }
  bool encLabelAndMaskHas(EncodedLabelWithMask const& e) const {
    return encLabelAndMask_.contains(e);
  }
  void encLabelAndMaskIs(EncodedLabelWithMask const& e) { change().insert(e); }
  /// Takes over all pairs at once, in any order.
  void encLabelAndMaskIs(std::span<EncodedLabelWithMask const> all) { change().adopt(all); }
  void encLabelAndMaskDel(EncodedLabelWithMask const& e) { change().erase(e); }
  void encLabelAndMaskDelAll() { change().clear(); }

  /// How many pairs the set has by a label code. They are those above where it has been encoded by one only.
  size_t pairsBy(Acl::LabelCode code) const {
    return pairsBy_ ? (*pairsBy_)[static_cast<size_t>(code)] : encLabelAndMask_.size();
  }
  /// Whether it has been encoded by one code only.
  bool hasOneCode() const { return !pairsBy_; }
  /// By the aligned and by the compact code.
  void pairsByIs(uint32_t aligned, uint32_t compact) { pairsBy_ = {aligned, compact}; }

  /// 64-bit hash of the pairs, computed once after each change.
  uint64_t contentHash() const;

 private:
  Pairs& change() {
    contentHash_.reset();
    return encLabelAndMask_;
  }

  GenSetKey key_;
  Pairs encLabelAndMask_;
  std::optional<std::array<uint32_t, 2>> pairsBy_;
  mutable std::optional<uint64_t> contentHash_;
};

/// The encoded labels of one generic set as ranges.
class NAXEL_EXPORT EncodedLabelRangeList : public Mox::Entity {
 public:
  explicit EncodedLabelRangeList(GenSetKey key) : key_(key) {}
  std::string_view fwkType() const override { return "Naxel::EncodedLabelRangeList"; }
  Mox::AttributeTable const& attributeTable() const override;

  GenSetKey key() const { return key_; }
  Mox::FlatSet<EncodedLabelRange> const& encLabelRange() const { return encLabelRange_; }
  void encLabelRangeIs(EncodedLabelRange const& r) { encLabelRange_.insert(r); }
  /// Takes over all ranges at once, in any order.
  void encLabelRangeIs(std::vector<EncodedLabelRange> all) { encLabelRange_.adopt(std::move(all)); }
  void encLabelRangeDel(EncodedLabelRange const& r) { encLabelRange_.erase(r); }
  void encLabelRangeDelAll() { encLabelRange_.clear(); }

 private:
  GenSetKey key_;
  Mox::FlatSet<EncodedLabelRange> encLabelRange_;
};

}  // namespace Naxel
