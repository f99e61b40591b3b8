#pragma once

/// The ACLs of a kick as the aggregator walks them: resolved once, read by its check, its build and
/// its digest.

#include "naxel/types/AclConfig.h"

#include <limits>
#include <vector>

namespace Naxel {

/// One ACL with its rules in arrays. Valid while the configuration is not changed.
class AclWalk {
 public:
  static constexpr uint32_t none = std::numeric_limits<uint32_t>::max();

  /// A rule in evaluation order.
  struct Indexed {
    AceIndex index;
    uint32_t place;  // of the rule in `named`; none where the ACL does not hold this very rule
    RuleConfig const* rule;  // may be null
  };

  explicit AclWalk(AclConfig const& acl);

  AclConfig const& acl() const { return *acl_; }
  /// The rules in the order of `ruleByName`.
  std::vector<RuleConfig const*> const& named() const { return named_; }
  /// The stamps of each of them.
  std::vector<RuleStamps> const& stamps() const { return stamps_; }
  /// Gives the stamps away.
  std::vector<RuleStamps> takeStamps() { return std::move(stamps_); }
  /// The rules in the order of `ruleById`.
  std::vector<Indexed> const& indexed() const { return indexed_; }

 private:
  AclConfig const* acl_;
  std::vector<RuleConfig const*> named_;
  std::vector<RuleStamps> stamps_;
  std::vector<Indexed> indexed_;
};

/// All ACLs by name.
std::vector<AclWalk> walkAcls(AclConfigColl const& coll);

}  // namespace Naxel
