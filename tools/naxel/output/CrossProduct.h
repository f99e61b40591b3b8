#pragma once

/// What the rules would cost without labels: every rule as the cross product of the prefixes that
/// cover each of its fields exactly.

#include "naxel/types/AclConfig.h"

#include <cstdint>
#include <unordered_map>

namespace NaxelTool {

/// Counts TCAM entries of the plain form. Lists that several rules share are measured once.
class CrossProduct {
 public:
  /// Product over the constrained fields; TCP flags cost nothing. Stays at 2^64 - 1 beyond that.
  uint64_t entries(Naxel::RuleConfig const& rule);
  /// Sum over all indexes of the ACL.
  uint64_t entries(Naxel::AclConfig const& acl);

 private:
  uint64_t listSize(Naxel::IpPrefixList const& list);

  std::unordered_map<Naxel::IpPrefixList const*, uint64_t> listSize_;
};

}  // namespace NaxelTool
