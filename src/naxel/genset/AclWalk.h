#pragma once

/// The ACLs as a check of all of them walks them, with the place of every indexed rule resolved.

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
  /// The rules in the order of `ruleById`.
  std::vector<Indexed> const& indexed() const { return indexed_; }

 private:
  AclConfig const* acl_;
  std::vector<RuleConfig const*> named_;
  std::vector<Indexed> indexed_;
};

/// The place of a rule that a walk has found, or AclWalk::none where it is not among them. `ruleAt(place)` is the
/// rule that the walk has found at a place, and each was told its place.
template <class RuleAt>
uint32_t placeIn(size_t rules, RuleConfig const* rule, RuleAt ruleAt) {
  if (!rule) return AclWalk::none;
  uint32_t const place = rule->walkPlace();
  // What it says may come from another walk.
  return place < rules && ruleAt(place) == rule ? place : AclWalk::none;
}

/// All ACLs by name.
std::vector<AclWalk> walkAcls(AclConfigColl const& coll);

}  // namespace Naxel
