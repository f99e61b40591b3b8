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
  std::optional<Families> families;  ///< where the format says them; else the entries tell
  bool openToBoth =
      false;  ///< entries that name no family are about both, whatever the others name
  std::vector<EntryDraft> entries;  ///< in the order of evaluation
  bool endsInDeny = false;          ///< by the format, not by an entry
};

/// Reads one entry: what `read` throws is told, and the entry counted as reported. Returns whether it came
/// through; it counts as compiled when makeAcl() makes a rule of it.
bool readEntry(RuleReading& reading, std::function<void()> const& read);

/// Makes the ACL, or two where it is said to be of both families or has entries of both: NAME for IPv4 and NAME-v6. Entries that
/// look at ports without a protocol are for those that have ports, 6, 17 and 132, and those that look at
/// ICMP types for the family's ICMP.
void makeAcl(RuleReading& reading, AclDraft const& acl);

}  // namespace NaxelTool
