#pragma once

/// One flow of an OpenFlow table, and what it does, in the bytes of messages; and as text, as ovs-ofctl reads it.

#include "lumox/DscpValue.h"
#include "mox/Export.h"
#include "ovs/Match.h"

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace NaxelOvs {

/// Where a packet goes that leaves our tables.
struct Exit {
  enum class Kind : uint8_t { drop, normal, table };
  Kind kind = Kind::drop;
  uint8_t table = 0;  ///< for Kind::table

  friend bool operator==(Exit const&, Exit const&) = default;
};
/// "drop", "normal", "table 20".
NAXEL_EXPORT std::string text(Exit exit);

/// Bits of a register that a label is loaded into.
struct Slot {
  uint8_t reg = 0;
  uint8_t offset = 0;  ///< of its lowest bit
  uint8_t bits = 16;

  constexpr uint32_t mask() const {
    return bits == 32 ? ~uint32_t{0} : ((uint32_t{1} << bits) - 1) << offset;
  }
  constexpr uint32_t place(uint32_t value) const { return value << offset & mask(); }
};

// What a flow does, in the one form of each that we write.

/// Loads a value and goes on to a table behind the flow's own.
NAXEL_EXPORT std::string loadAndGo(Slot slot, uint32_t value, uint8_t table);
/// Leaves our tables, with another DSCP where one is given.
NAXEL_EXPORT std::string leave(Exit exit, std::optional<Lumox::DscpValue> dscp = std::nullopt);

/// The same form of what a message says. None where it is not one of those that we write.
NAXEL_EXPORT std::optional<std::string> canonicalInstructions(std::string_view bytes);
/// "load:0x5->NXM_NX_REG0[0..15],goto_table:2", "drop".
NAXEL_EXPORT std::string instructionsText(std::string_view instructions);

/// Natural order: table, highest priority first, match.
struct Flow {
  uint8_t table = 0;
  uint16_t priority = 0;
  std::string match;         ///< canonical
  std::string instructions;  ///< canonical, or as somebody else wrote them

  bool sameKey(Flow const& other) const {
    return table == other.table && priority == other.priority && match == other.match;
  }
  friend bool operator==(Flow const&, Flow const&) = default;
  friend std::strong_ordering operator<=>(Flow const& a, Flow const& b) {
    if (auto const c = a.table <=> b.table; c != 0) return c;
    if (auto const c = b.priority <=> a.priority; c != 0) return c;
    if (auto const c = a.match <=> b.match; c != 0) return c;
    return a.instructions <=> b.instructions;
  }
};

/// "table=1,priority=25,ip,nw_src=10.0.0.0/8 actions=load:0x11->NXM_NX_REG0[16..31],goto_table:2".
NAXEL_EXPORT std::string text(Flow const& flow);

}  // namespace NaxelOvs
