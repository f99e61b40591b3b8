#pragma once

/// ACLs of formats whose entries come in any order and may be about both address families.

#include "input/RuleDraft.h"
#include "input/RuleReading.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace NaxelTool {

/// Which address families something is about.
struct Families {
  bool ipv4 = true;
  bool ipv6 = true;

  bool none() const { return !ipv4 && !ipv6; }
  bool both() const { return ipv4 && ipv6; }
  friend Families operator&(Families a, Families b) { return {a.ipv4 && b.ipv4, a.ipv6 && b.ipv6}; }
  friend Families operator|(Families a, Families b) { return {a.ipv4 || b.ipv4, a.ipv6 || b.ipv6}; }
  static Families only(Lumox::AddressFamily af) {
    return {af == Lumox::ipv4(), af != Lumox::ipv4()};
  }
};

struct EntryDraft {
  RuleDraft rule;
  Families families;
  std::optional<uint64_t>
      index;         ///< where the format numbers its entries in the order of evaluation
  std::string name;  ///< unique in the ACL
  RuleOrigin origin;
};

struct AclDraft {
  std::string name;
  Position at;
  std::string description;
  /// What the format says, or all entries together, those included that are left out; none where nothing
  /// tells.
  std::optional<Families> families;
  std::vector<EntryDraft> entries;  ///< in the order of evaluation
  bool endsInDeny = false;          ///< by the format, not by an entry
};

/// Reads one entry: what `read` throws is told, and the entry counted as reported. Returns whether it came
/// through; it counts as compiled when makeAcl() makes a rule of it.
bool readEntry(RuleReading& reading, std::function<void()> const& read);

/// What an ACL is taken for where nothing tells its families.
constexpr Families untoldFamilies{true, false};

/// Makes the ACL, or two where it is of both families: NAME for IPv4 and NAME-v6. One of no told family is
/// read as IPv4, with a note. Entries that look at ports without a protocol are for those that have ports,
/// 6, 17 and 132, and those that look at ICMP types for the family's ICMP.
void makeAcl(RuleReading& reading, AclDraft const& acl);

}  // namespace NaxelTool
