#pragma once

/// The fields that a rule may constrain besides its two address lists, one row each. Whatever goes field by
/// field goes by this table: the digest of a filter, the stages, the tables of an output, the software chip,
/// readers and writers. HACKING.md says what another row takes.
///
/// A field of this table is a number of at most 16 bits with a set of ranges in every rule. The chip either
/// gives it a table that turns values into labels, or compares the raw value; either way there is one column
/// for it in every entry.

#include "mox/Enum.h"
#include "mox/Value.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <tuple>

namespace Naxel {

/// The packet field that a range set is about; one for each range filter of a rule.
enum class RangeSetType : uint8_t {
  srcPort,
  dstPort,
  icmp,
  proto,
  length,
  fragment,
  dscp,
  rangeSetMax  ///< the count, never a real type
};

/// The field of an entry that a label is written into. The values 1 to 11 carry labels.
enum class TcamFieldType : uint8_t {
  tcamFieldTypeNone,
  tcamFieldTypeSrcIp,
  tcamFieldTypeDstIp,
  tcamFieldTypeSrcDstIp,
  tcamFieldTypeSrcPort,
  tcamFieldTypeDstPort,
  tcamFieldTypeSrcDstPort,
  tcamFieldTypeIcmp,
  tcamFieldTypeProto,
  tcamFieldTypeLength,
  tcamFieldTypeFragOffset,
  tcamFieldTypeDscp,
  tcamFieldTypeMatchTcpInit,
  tcamFieldTypeMmatchTcpEstablished
};

/// The fixed widths, in bits, of the match fields. A value without state.
class Constants : public Mox::ValueType<Constants> {
 public:
  static constexpr std::string_view typeName = "Naxel::Constants";
  Constants() = default;
  explicit Constants(Mox::TextCursor& c) { Mox::TextForm<Constants>::read(c, *this); }

  static constexpr uint32_t l4PortBitWidth() { return 16; }
  static constexpr uint32_t icmpTypeBitWidth() { return 8; }
  static constexpr uint32_t protoBitWidth() { return 8; }
  static constexpr uint32_t lengthBitWidth() { return 16; }
  static constexpr uint32_t fragmentBitWidth() { return 13; }
  static constexpr uint32_t dscpBitWidth() { return 6; }

  static constexpr auto fields() { return std::tuple<>(); }
};

struct RangeField {
  RangeSetType type;
  std::string_view typeName;  ///< of the type, in texts and in the chip's files: "dstPort"
  TcamFieldType tcamField;    ///< where an entry has it
  std::string_view name;      ///< in rules, entries and rule files: "dport"
  char const* title;          ///< in words: "destination port"
  char const* values;         ///< what its table is about, in words: "destination ports"
  char const* dumpTitle;      ///< heads the ranges in the aggregator's dump
  uint32_t bits;              ///< of the raw value

  /// The largest value.
  constexpr uint32_t bound() const { return (uint32_t{1} << bits) - 1; }
};

/// In the order of RangeSetType.
inline constexpr std::array<RangeField, 7> rangeFields = {{
    {RangeSetType::srcPort, "srcPort", TcamFieldType::tcamFieldTypeSrcPort, "sport", "source port",
     "source ports", "...source Port Ranges", Constants::l4PortBitWidth()},
    {RangeSetType::dstPort, "dstPort", TcamFieldType::tcamFieldTypeDstPort, "dport",
     "destination port", "destination ports", "...destination Port Ranges",
     Constants::l4PortBitWidth()},
    {RangeSetType::icmp, "icmp", TcamFieldType::tcamFieldTypeIcmp, "icmpType", "ICMP type",
     "ICMP types", "...icmp Ranges", Constants::icmpTypeBitWidth()},
    {RangeSetType::proto, "proto", TcamFieldType::tcamFieldTypeProto, "proto", "protocol",
     "protocols", "...proto Ranges", Constants::protoBitWidth()},
    {RangeSetType::length, "length", TcamFieldType::tcamFieldTypeLength, "length", "length",
     "lengths", "...length Ranges", Constants::lengthBitWidth()},
    {RangeSetType::fragment, "fragment", TcamFieldType::tcamFieldTypeFragOffset, "fragment",
     "fragment", "fragment offsets", "...fragment Ranges", Constants::fragmentBitWidth()},
    {RangeSetType::dscp, "dscp", TcamFieldType::tcamFieldTypeDscp, "dscp", "DSCP", "DSCP values",
     "...dscp Ranges", Constants::dscpBitWidth()},
}};
inline constexpr size_t rangeFieldCount = rangeFields.size();
static_assert(rangeFieldCount == static_cast<size_t>(RangeSetType::rangeSetMax));

/// The row of a real type.
constexpr RangeField const& rangeField(RangeSetType type) {
  return rangeFields[static_cast<size_t>(type)];
}

/// The real types in order.
inline std::array<RangeSetType, rangeFieldCount> const& allRangeSetTypes() {
  static constexpr auto types = [] {
    std::array<RangeSetType, rangeFieldCount> all{};
    for (size_t i = 0; i < all.size(); ++i) all[i] = rangeFields[i].type;
    return all;
  }();
  return types;
}

/// Fields of an entry that carry labels: the two sides, the two combinations and the fields above.
inline constexpr size_t labelFieldCount = rangeFieldCount + 4;
/// In the order of their values, which begin at 1.
inline std::array<TcamFieldType, labelFieldCount> const& allLabelFields() {
  static constexpr auto fields = [] {
    std::array<TcamFieldType, labelFieldCount> all{};
    for (size_t i = 0; i < all.size(); ++i) all[i] = static_cast<TcamFieldType>(i + 1);
    return all;
  }();
  return fields;
}
constexpr bool carriesLabel(TcamFieldType field) {
  return static_cast<size_t>(field) - 1 < labelFieldCount;
}
/// The range type of a field; rangeSetMax for one that is no range field.
constexpr RangeSetType rangeTypeOf(TcamFieldType field) {
  for (RangeField const& f : rangeFields)
    if (f.tcamField == field) return f.type;
  return RangeSetType::rangeSetMax;
}
/// The name that an entry gives to a field that carries labels: "source", "prefixCombo", "dport".
constexpr std::string_view labelFieldName(TcamFieldType field) {
  switch (field) {
    case TcamFieldType::tcamFieldTypeSrcIp: return "source";
    case TcamFieldType::tcamFieldTypeDstIp: return "destination";
    case TcamFieldType::tcamFieldTypeSrcDstIp: return "prefixCombo";
    case TcamFieldType::tcamFieldTypeSrcDstPort: return "portCombo";
    default: return rangeField(rangeTypeOf(field)).name;
  }
}

}  // namespace Naxel

template <>
struct Mox::EnumNames<Naxel::RangeSetType> {
  static constexpr auto value = [] {
    std::array<std::string_view, Naxel::rangeFieldCount + 1> names{};
    for (size_t i = 0; i < Naxel::rangeFieldCount; ++i) names[i] = Naxel::rangeFields[i].typeName;
    names.back() = "rangeSetMax";
    return names;
  }();
};
template <>
struct Mox::EnumNames<Naxel::TcamFieldType> {
  static constexpr std::array<std::string_view, 14> value = {
      "tcamFieldTypeNone",         "tcamFieldTypeSrcIp",
      "tcamFieldTypeDstIp",        "tcamFieldTypeSrcDstIp",
      "tcamFieldTypeSrcPort",      "tcamFieldTypeDstPort",
      "tcamFieldTypeSrcDstPort",   "tcamFieldTypeIcmp",
      "tcamFieldTypeProto",        "tcamFieldTypeLength",
      "tcamFieldTypeFragOffset",   "tcamFieldTypeDscp",
      "tcamFieldTypeMatchTcpInit", "tcamFieldTypeMmatchTcpEstablished"};
};
