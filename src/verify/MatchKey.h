#pragma once

/// What the chip compares: the fields of its match key, how wide they are, and what a lookup
/// yields.

#include "mox/Enum.h"
#include "naxel/loader/PDConfig.h"

#include <array>
#include <optional>
#include <ostream>
#include <string>

namespace Verify {

/// The fields of one entry that carry labels.
using Field = Naxel::TcamFieldType;
/// The largest value of one, and one: for arrays by field.
inline constexpr size_t fieldCount = Naxel::labelFieldCount + 1;

/// Some of them, by the names that an entry has for them.
namespace Fields {
inline constexpr Field source = Field::tcamFieldTypeSrcIp;
inline constexpr Field destination = Field::tcamFieldTypeDstIp;
inline constexpr Field prefixCombo = Field::tcamFieldTypeSrcDstIp;
inline constexpr Field sport = Field::tcamFieldTypeSrcPort;
inline constexpr Field dport = Field::tcamFieldTypeDstPort;
inline constexpr Field portCombo = Field::tcamFieldTypeSrcDstPort;
inline constexpr Field proto = Field::tcamFieldTypeProto;
}  // namespace Fields

/// An entry that looks at the field for head fragments, which nothing ever fills, matches no packet.
inline bool matchesNothing(Naxel::PDAclFilter const& entry) {
  return entry.headFragment().mask().value() != 0;
}

/// What a packet has in each field of the match key: a label, a raw value, or nothing.
class Labels {
 public:
  std::optional<uint16_t>& operator[](Field f) { return value_[static_cast<size_t>(f)]; }
  std::optional<uint16_t> const& operator[](Field f) const {
    return value_[static_cast<size_t>(f)];
  }
  friend bool operator==(Labels const&, Labels const&) = default;

 private:
  std::array<std::optional<uint16_t>, fieldCount> value_;
};
/// The fields that have something, "source 3 dport 17".
std::string text(Labels const& labels);

/// What a transform table yields for a value that none of its entries covers.
enum class MissYields : uint8_t {
  nothing,  ///< no label: only mask 0 matches
  highest   ///< the highest label of the width
};

/// Widths in bits of the fields that an output was compiled for. A range or combination field of
/// width 0 has no label.
struct KeyLayout {
  std::array<uint8_t, 4> prefix = {16, 16, 16, 16};  // in the order of PrefixXformKey::all()
  std::array<uint8_t, Naxel::rangeFieldCount> range = {};
  std::array<uint8_t, 3> combo = {};
  MissYields missYields = MissYields::nothing;

  /// The widths that the output itself was compiled for; those of the agent may have changed since.
  static KeyLayout of(Naxel::PDData const& data, MissYields missYields = MissYields::nothing);

  bool isRaw(Naxel::RangeSetType type) const { return range[static_cast<size_t>(type)] == 0; }
  /// What a miss in a table of this label width yields.
  std::optional<uint16_t> miss(uint8_t width) const {
    if (missYields == MissYields::nothing || width == 0) return std::nullopt;
    return highestLabel(width);
  }
  static uint16_t highestLabel(uint8_t width) {
    return static_cast<uint16_t>((uint32_t{1} << width) - 1);
  }
  uint8_t prefixWidth(Lumox::AddressFamily af, bool source) const {
    return prefix[(af == Lumox::ipv4() ? 0 : 2) + (source ? 0 : 1)];
  }
};

/// The outcome of a lookup.
struct Verdict {
  enum class Kind : uint8_t {
    none,      ///< no entry matched, or the ACL is not there
    rule,      ///< an entry matched
    policy,    ///< a policy stands in for all ACLs
    disturbed  ///< the tables are being rewritten and no policy stands in for them
  };
  Kind kind = Kind::none;
  Naxel::GlobalAclControl policy = Naxel::GlobalAclControl::doNotApply;
  Naxel::AceIndex rule;  ///< of the entry that matched
  uint32_t entry = 0;    ///< its number among the entries of the rule
  Naxel::NaxelActionValue action;

  friend bool operator==(Verdict const&, Verdict const&) = default;
};
/// "rule 20 entry 3 permit", "policy denyAll", "none", "disturbed".
std::string text(Verdict const& verdict);
inline std::ostream& operator<<(std::ostream& out, Verdict const& v) { return out << text(v); }

}  // namespace Verify
