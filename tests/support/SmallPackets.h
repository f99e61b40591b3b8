#pragma once

/// Rule sets and packets of a world so small that all packets can be looked at.

#include "naxel/types/AclConfig.h"
#include "support/Vocabulary.h"
#include "verify/Packet.h"

#include <optional>
#include <string>
#include <vector>

namespace Test {

/// A rule without ACL, index and name, as addRules() reads it: few values for each field, so that rules
/// overlap, cover each other together and part again.
std::string smallRule(Dice& dice);

/// The rules as ACL "a" of IPv4, with indexes 0, 1, 2, ...
struct SmallAcl {
  explicit SmallAcl(std::vector<std::string> const& rules);

  /// Who decides, by reading the rules in order.
  std::optional<Naxel::AceIndex> decider(Verify::Packet const& p) const;
  /// By action; -1: no rule.
  int outcome(Verify::Packet const& p) const;

  Mox::Ptr<Naxel::AclConfigColl> acls;
  Mox::Ptr<Naxel::AclConfig> acl;
};

/// One packet for each combination of the values that small rules tell apart, impossible ones among them.
std::vector<Verify::Packet> const& smallPackets();

}  // namespace Test
