#pragma once

/// Where our flows stand in a bridge: which tables and registers are ours, and what becomes of packets that the
/// rules say nothing about.
///
/// A packet enters at the first table, which chooses the ACL; it passes one table per field, each of which loads
/// the label of one field into half a register, then two for combinations; and the last table matches the labels.
/// All tables are passed always, so that a change of the rules never moves the chain itself.

#include "naxel/types/MatchFields.h"
#include "ovs/Flow.h"

#include <string>
#include <vector>

namespace NaxelOvs {

/// Our tables, counted from the first one.
enum class Stage : uint8_t {
  entry,
  source,
  destination,
  prefixCombo,
  sport,
  dport,
  portCombo,
  proto,
  icmpType,
  fragment,
  dscp,
  acl
};
inline constexpr unsigned stageCount = 12;
/// Registers that we write, from the first one on.
inline constexpr unsigned registersUsed = 6;

/// Which packets an ACL is for, beside those of its family.
struct Binding {
  enum class By : uint8_t { everything, inPort, reg };
  std::string acl;
  By by = By::everything;
  uint8_t reg = 0;     ///< By::reg: a register that the tables before have written
  uint32_t value = 0;  ///< of the port or the register
};

struct Layout {
  uint8_t firstTable = 0;
  uint8_t firstRegister = 10;
  /// Where permitted packets go.
  Exit next{Exit::Kind::normal, 0};
  /// Where packets go that no rule of their ACL matches.
  Exit noVerdict{Exit::Kind::drop, 0};
  /// Where packets go that no ACL is for, and those that are neither IPv4 nor IPv6, ARP among them.
  Exit noAcl{Exit::Kind::normal, 0};
  Exit notIp{Exit::Kind::normal, 0};
  /// In this order: the first that applies decides. None at all: each ACL is for all packets of its family, of
  /// which there may be one.
  std::vector<Binding> bindings;
  /// A binding may name an ACL that is not among the rules; what it is for then meets no ACL. Otherwise such an output
  /// is refused, because a wrong name would leave a port open.
  bool absentAcls = false;
  /// Log and sFlow are left out instead of refused.
  bool ignoreActions = false;

  uint8_t table(Stage stage) const {
    return static_cast<uint8_t>(firstTable + static_cast<unsigned>(stage));
  }
  uint8_t lastTable() const { return table(Stage::acl); }
  bool owns(uint8_t tableId) const { return firstTable <= tableId && tableId <= lastTable(); }
  /// Where the label of a field stands; the length of packets has no place.
  Slot slot(Naxel::TcamFieldType field) const;
  /// Where the number of the packet's ACL stands.
  Slot aclSlot() const { return {static_cast<uint8_t>(firstRegister + 5), 0, 32}; }
  /// Marks every flow as ours, and as that of this first table.
  uint64_t cookie() const { return uint64_t{0x4e41584c} << 32 | firstTable; }
  /// The same of the one flow that tells a state of our tables from the next (Stamp.h).
  uint64_t stampCookie() const { return uint64_t{0x4e41584d} << 32 | firstTable; }
};

/// What is wrong with a layout, in words; "" if nothing is.
NAXEL_EXPORT std::string layoutFault(Layout const& layout);

}  // namespace NaxelOvs
