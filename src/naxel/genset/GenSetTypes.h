#pragma once

/// The small values by which generic sets, their pieces and the per-kind collections are named.

#include "lumox/AddressFamily.h"
#include "mox/Enum.h"
#include "mox/Value.h"
#include "naxel/types/ControlEnums.h"
#include "naxel/types/MatchFields.h"

#include <array>
#include <cstdint>
#include <string_view>
#include <tuple>

namespace Naxel {

/// Name of a generic set; 0 means no set. Keys are never reused while the root state machine lives.
class GenSetKey : public Mox::NumberValue<GenSetKey, uint64_t> {
 public:
  using NumberValue::NumberValue;
  constexpr GenSetKey() = default;
  explicit GenSetKey(Mox::TextCursor& c) { Mox::TextForm<GenSetKey>::read(c, *this); }
  constexpr explicit operator bool() const { return value() != 0; }
};

/// Label that a transform gives one disjoint piece. It says nothing about the TCAM and is given
/// afresh whenever the transform runs.
class PlainLabel : public Mox::NumberValue<PlainLabel, uint32_t> {
 public:
  using NumberValue::NumberValue;
  constexpr PlainLabel() = default;
  explicit PlainLabel(Mox::TextCursor& c) { Mox::TextForm<PlainLabel>::read(c, *this); }
};

/// Address family and side; four of them per chip.
class PrefixXformKey : public Mox::ValueType<PrefixXformKey> {
 public:
  static constexpr std::string_view typeName = "Naxel::PrefixXformKey";
  PrefixXformKey() = default;
  PrefixXformKey(Lumox::AddressFamily af, bool src) : af_(af), src_(src) {}
  explicit PrefixXformKey(Mox::TextCursor& c) { Mox::TextForm<PrefixXformKey>::read(c, *this); }

  Lumox::AddressFamily af() const { return af_; }
  /// True for the source side, false for the destination side.
  bool src() const { return src_; }

  static constexpr auto fields() {
    return std::make_tuple(Mox::field("af", &PrefixXformKey::af_),
                           Mox::field("src", &PrefixXformKey::src_));
  }

  /// All four keys in the order in which they are created: IPv4 source and destination, then IPv6.
  static std::array<PrefixXformKey, 4> const& all() {
    static std::array<PrefixXformKey, 4> const keys = {
        PrefixXformKey(Lumox::ipv4(), true), PrefixXformKey(Lumox::ipv4(), false),
        PrefixXformKey(Lumox::ipv6(), true), PrefixXformKey(Lumox::ipv6(), false)};
    return keys;
  }

 private:
  Lumox::AddressFamily af_ = Lumox::ipv4();
  bool src_ = false;
};

/// A source and a destination set.
class GenSetKeyPair : public Mox::ValueType<GenSetKeyPair> {
 public:
  static constexpr std::string_view typeName = "Naxel::GenSetKeyPair";
  GenSetKeyPair() = default;
  GenSetKeyPair(GenSetKey src, GenSetKey dst) : src_(src), dst_(dst) {}
  explicit GenSetKeyPair(Mox::TextCursor& c) { Mox::TextForm<GenSetKeyPair>::read(c, *this); }

  GenSetKey src() const { return src_; }
  GenSetKey dst() const { return dst_; }

  static constexpr auto fields() {
    return std::make_tuple(Mox::field("src", &GenSetKeyPair::src_),
                           Mox::field("dst", &GenSetKeyPair::dst_));
  }

 private:
  GenSetKey src_;
  GenSetKey dst_;
};

/// Inclusive range of the values of one packet field. `first` above `last`, or more than 16 bits, raises
/// Mox::RangeError.
class RangeSetElem : public Mox::ValueType<RangeSetElem> {
 public:
  static constexpr std::string_view typeName = "Naxel::RangeSetElem";
  RangeSetElem() = default;
  RangeSetElem(uint32_t first, uint32_t last)
      : first_(static_cast<uint16_t>(first)), last_(static_cast<uint16_t>(last)) {
    if (first > 0xffff || last > 0xffff)
      throw Mox::RangeError("RangeSetElem::first or RangeSetElem::last > 65535 not allowed");
    check(*this);
  }
  explicit RangeSetElem(Mox::TextCursor& c) { Mox::TextForm<RangeSetElem>::read(c, *this); }

  uint16_t first() const { return first_; }
  uint16_t last() const { return last_; }
  uint32_t orderKey() const { return uint32_t{first_} << 16 | last_; }

  static constexpr auto fields() {
    return std::make_tuple(Mox::field("first", &RangeSetElem::first_),
                           Mox::field("last", &RangeSetElem::last_, &RangeSetElem::check));
  }
  static void check(RangeSetElem const& e) {
    if (e.first_ > e.last_)
      throw Mox::RangeError("RangeSetElem::first > RangeSetElem::last not allowed");
  }

 private:
  uint16_t first_ = 0;
  uint16_t last_ = 0;
};

/// One cell of the product of a source and a destination label list.
class GenCombo : public Mox::ValueType<GenCombo> {
 public:
  static constexpr std::string_view typeName = "Naxel::GenCombo";
  GenCombo() = default;
  GenCombo(PlainLabel src, PlainLabel dst) : srcLabel_(src), dstLabel_(dst) {}
  explicit GenCombo(Mox::TextCursor& c) { Mox::TextForm<GenCombo>::read(c, *this); }

  PlainLabel srcLabel() const { return srcLabel_; }
  PlainLabel dstLabel() const { return dstLabel_; }
  uint64_t orderKey() const { return uint64_t{srcLabel_.value()} << 32 | dstLabel_.value(); }

  static constexpr auto fields() {
    return std::make_tuple(Mox::field("srcLabel", &GenCombo::srcLabel_),
                           Mox::field("dstLabel", &GenCombo::dstLabel_));
  }

 private:
  PlainLabel srcLabel_;
  PlainLabel dstLabel_;
};

/// The kind of a combination set: source with destination prefixes of one family, or source with
/// destination ports.
enum class ComboLabelSetType : uint8_t {
  ipv4SrcDstPrefix,
  ipv6SrcDstPrefix,
  srcDstL4Port,
  comboLabelSetMax  ///< the count, never a real type
};

/// The real types in order.
inline std::array<ComboLabelSetType, 3> const& allComboLabelSetTypes() {
  static constexpr std::array<ComboLabelSetType, 3> types = {ComboLabelSetType::ipv4SrcDstPrefix,
                                                             ComboLabelSetType::ipv6SrcDstPrefix,
                                                             ComboLabelSetType::srcDstL4Port};
  return types;
}
/// The combination of source and destination prefixes of a family.
constexpr ComboLabelSetType prefixComboType(Lumox::AddressFamily af) {
  return af == Lumox::ipv4() ? ComboLabelSetType::ipv4SrcDstPrefix
                             : ComboLabelSetType::ipv6SrcDstPrefix;
}

}  // namespace Naxel

template <>
struct Mox::EnumNames<Naxel::ComboLabelSetType> {
  static constexpr std::array<std::string_view, 4> value = {"ipv4SrcDstPrefix", "ipv6SrcDstPrefix",
                                                            "srcDstL4Port", "comboLabelSetMax"};
};
