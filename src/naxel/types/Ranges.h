#pragma once

/// Closed intervals of the match fields of a rule. All of them are values of two 32-bit ends; the
/// typed ones differ in the field that they serve, in the bound of that field and in the interval
/// that means "any", 0..bound. The order of the two ends is not validated here: whoever compiles a
/// rule does that.

#include "mox/Errors.h"
#include "mox/Value.h"
#include "naxel/types/MatchFields.h"

#include <cstdint>
#include <string_view>
#include <tuple>

namespace Naxel {

/// Common shape of all ranges. T may hide checkStart and checkEnd to bound its ends.
template <class T>
class RangeValue : public Mox::ValueType<T> {
 public:
  constexpr RangeValue() = default;
  RangeValue(uint32_t start, uint32_t end) {
    rangeStartIs(start);
    rangeEndIs(end);
  }

  uint32_t rangeStart() const { return rangeStart_; }
  uint32_t rangeEnd() const { return rangeEnd_; }
  uint64_t orderKey() const { return uint64_t{rangeStart_} << 32 | rangeEnd_; }
  /// Stores the value and then, for the types with checked bounds, raises Mox::RangeError if it is
  /// out of bounds. The value already held is accepted without a check.
  void rangeStartIs(uint32_t v) {
    if (v == rangeStart_) return;
    rangeStart_ = v;
    T::checkStart(*this);
  }
  void rangeEndIs(uint32_t v) {
    if (v == rangeEnd_) return;
    rangeEnd_ = v;
    T::checkEnd(*this);
  }

  static constexpr auto fields() {
    return std::make_tuple(Mox::field("rangeStart", &RangeValue::rangeStart_, &T::checkStart),
                           Mox::field("rangeEnd", &RangeValue::rangeEnd_, &T::checkEnd));
  }
  static void checkStart(RangeValue const&) {}
  static void checkEnd(RangeValue const&) {}

 private:
  uint32_t rangeStart_ = 0;
  uint32_t rangeEnd_ = 0;
};

/// Interval of unsigned 32-bit integers.
class Range : public RangeValue<Range> {
 public:
  static constexpr std::string_view typeName = "Naxel::Range";
  using RangeValue::RangeValue;
  explicit Range(Mox::TextCursor& c) { Mox::TextForm<Range>::read(c, *this); }
};

/// A range of one match field, whose values go from 0 to `bound`.
template <class T, RangeSetType Field>
class TypedRange : public RangeValue<T> {
 public:
  static constexpr uint32_t bound = rangeField(Field).bound();
  using RangeValue<T>::RangeValue;

  /// True for exactly 0..bound.
  bool isAny() const { return this->rangeStart() == 0 && this->rangeEnd() == bound; }
};

/// Source or destination L4 port.
class L4PortRange : public TypedRange<L4PortRange, RangeSetType::srcPort> {
 public:
  static constexpr std::string_view typeName = "Naxel::L4PortRange";
  using TypedRange::TypedRange;
  explicit L4PortRange(Mox::TextCursor& c) { Mox::TextForm<L4PortRange>::read(c, *this); }
};

/// ICMP type (RFC 792, RFC 4443).
class IcmpTypeRange : public TypedRange<IcmpTypeRange, RangeSetType::icmp> {
 public:
  static constexpr std::string_view typeName = "Naxel::IcmpTypeRange";
  using TypedRange::TypedRange;
  explicit IcmpTypeRange(Mox::TextCursor& c) { Mox::TextForm<IcmpTypeRange>::read(c, *this); }
};

/// IP protocol or next header (IANA assigned internet protocol numbers).
class ProtoRange : public TypedRange<ProtoRange, RangeSetType::proto> {
 public:
  static constexpr std::string_view typeName = "Naxel::ProtoRange";
  using TypedRange::TypedRange;
  explicit ProtoRange(Mox::TextCursor& c) { Mox::TextForm<ProtoRange>::read(c, *this); }
};

/// Packet length in bytes.
class LengthRange : public TypedRange<LengthRange, RangeSetType::length> {
 public:
  static constexpr std::string_view typeName = "Naxel::LengthRange";
  using TypedRange::TypedRange;
  explicit LengthRange(Mox::TextCursor& c) { Mox::TextForm<LengthRange>::read(c, *this); }
};

/// Fragment offset in units of 8 bytes (RFC 791). Its setters check the bound.
class FragmentRange : public TypedRange<FragmentRange, RangeSetType::fragment> {
 public:
  static constexpr std::string_view typeName = "Naxel::FragmentRange";
  using TypedRange::TypedRange;
  explicit FragmentRange(Mox::TextCursor& c) { Mox::TextForm<FragmentRange>::read(c, *this); }

  static void checkStart(RangeValue const& r) {
    if (r.rangeStart() > bound)
      throw Mox::RangeError(
          "FragmentRange::rangeStart < 0 or > Expr @NaxelAclTypes:79 not allowed");
  }
  static void checkEnd(RangeValue const& r) {
    if (r.rangeEnd() > bound)
      throw Mox::RangeError("FragmentRange::rangeEnd < 0 or > Expr @NaxelAclTypes:82 not allowed");
  }
};

/// Differentiated services code point (RFC 2474). Its setters check the bound.
class DscpRange : public TypedRange<DscpRange, RangeSetType::dscp> {
 public:
  static constexpr std::string_view typeName = "Naxel::DscpRange";
  using TypedRange::TypedRange;
  explicit DscpRange(Mox::TextCursor& c) { Mox::TextForm<DscpRange>::read(c, *this); }

  static void checkStart(RangeValue const& r) {
    if (r.rangeStart() > bound)
      throw Mox::RangeError("DscpRange::rangeStart < 0 or > Expr @NaxelAclTypes:93 not allowed");
  }
  static void checkEnd(RangeValue const& r) {
    if (r.rangeEnd() > bound)
      throw Mox::RangeError("DscpRange::rangeEnd < 0 or > Expr @NaxelAclTypes:96 not allowed");
  }
};

}  // namespace Naxel
