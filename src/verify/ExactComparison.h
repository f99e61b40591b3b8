#pragma once

/// Whether two sets of rules say the same, for every packet rather than for many. Only in builds that have
/// the BDD library.
///
/// What counts is what becomes of a packet: the action of the rule that decides, or that no rule does.
/// Which rule that is, and how many rules say it, does not matter.

#include "naxel/types/AclConfig.h"
#include "verify/Packet.h"

#include <optional>
#include <string>

namespace Verify {

struct RulesDifference {
  std::string acl;
  std::string text;  ///< a sentence without the name of the ACL
  /// What shows it, if it is one of packets, and the rules that decide there; none where no rule does.
  std::optional<Packet> packet;
  std::optional<Naxel::AceIndex> first;
  std::optional<Naxel::AceIndex> second;
};

/// The first difference in the order of the names of ACLs, none if there is none. Throws
/// std::runtime_error when it takes more than `maxNodes` nodes of 20 bytes. Rules that stand in the same
/// order, one perhaps as several in a row, cost time in proportion to their number; otherwise the whole of
/// what the two ACLs do is compared. One proof at a time in a process.
std::optional<RulesDifference> compareRules(Naxel::AclConfigColl const& first,
                                            Naxel::AclConfigColl const& second,
                                            int maxNodes = 60'000'000);

}  // namespace Verify
