#pragma once

/// Places of the rules of one ACL among its named rules.

#include "naxel/types/AclConfig.h"

#include <limits>

namespace Naxel {

/// Answers where a rule that an index refers to stands in the walk over `ruleByName`. Agents mostly
/// fill both collections in the same order, so the search begins behind the rule found last; the
/// first rule that is not there makes a table of all. Valid while the ACL is not changed.
class RuleFinder {
 public:
  static constexpr uint32_t none = std::numeric_limits<uint32_t>::max();

  explicit RuleFinder(AclConfig const& acl) : acl_(acl), next_(acl.ruleByName().begin()) {}

  /// `none` where the ACL does not hold this very rule under its name.
  uint32_t find(RuleConfig const* rule) {
    if (!(next_ == acl_.ruleByName().end()) && next_->second.get() == rule) {
      ++next_;
      return at_++;
    }
    if (places_.empty()) {
      places_.reserve(acl_.ruleByName().size());
      uint32_t at = 0;
      for (auto const& [name, held] : acl_.ruleByName()) places_.set(held.get(), at++);
    }
    uint32_t const* at = places_.get(rule);
    return at ? *at : none;
  }

 private:
  using NamedRules = Mox::HashMap<std::string, Mox::Ptr<RuleConfig>>;

  AclConfig const& acl_;
  NamedRules::const_iterator next_;
  uint32_t at_ = 0;  // place of next_
  Mox::HashMap<RuleConfig const*, uint32_t> places_;
};

}  // namespace Naxel
