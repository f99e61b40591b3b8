#pragma once

/// One acl-entry of OpenConfig into a rule.

#include "input/AclDraft.h"
#include "input/OpenConfigSets.h"

namespace NaxelTool::OpenConfig {

/// What all entries of a file share.
struct Context {
  Values values;
  Sets sets;
  bool strict = false;                ///< refuse what we add ourselves
  size_t rejects = 0;                 ///< entries that reject rather than drop
  size_t portRanges = 0;              ///< that port sets have put into rules
  std::optional<Position> icmpOf6;    ///< where 'IP_ICMP' was first taken for 58
  std::optional<Position> icmpOfAny;  ///< where it was first left at 1 for both families
};

/// `families` are those of the ACL; `old` means the older dialect, in which numbers of 0 mean that nothing
/// is asked for, and 'IP_ICMP' means 58 in what is of IPv6 alone. Name, index and origin are left to the
/// caller. Throws InputError, UnsupportedError or NeverMatches.
EntryDraft readAclEntry(Context& context, JsonNode const& node, Families families, bool old);

}  // namespace NaxelTool::OpenConfig
