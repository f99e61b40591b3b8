#pragma once

/// The part of a cost report that one kick tells: rules, lists, fields and ACLs, most expensive first.

#include "answers/Costs.h"
#include "answers/RuleFactors.h"
#include "output/CrossProduct.h"
#include "session/Session.h"

#include <unordered_map>

namespace NaxelTool {

class CostAccount {
 public:
  CostAccount(RuleSet const& rules, CostReport& out) : rules_(rules), out_(out) {}

  /// Fills the report. `data` is null where the entries were too many to be made.
  void take(Session const& session, Naxel::PDData const* data);

  using RuleOfAcl = std::pair<std::string const*, Naxel::AceIndex>;
  /// The rules that look at a list of the report, by its place there. The names are those of the ACLs.
  std::vector<RuleOfAcl> const& rulesOf(size_t list) const { return sets_[order_[list]].rules; }

 private:
  /// A set that rules refer to.
  struct Set {
    ListCost cost;
    std::vector<RuleOfAcl> rules;
    bool isKnown = false;
  };

  void takeAcl(Session const& session, Naxel::AclConfig const& acl);
  /// The entry of the source that a rule comes from.
  RuleCost& entryOf(Naxel::AclConfig const& acl, Naxel::AceIndex index);
  /// Counts a rule of so many entries for the sets that it looks at.
  void useSets(Session const& session, Naxel::AclConfig const& acl, Naxel::AceIndex index,
               Naxel::RuleConfig const& rule, Naxel::GenSetIpRule const& generic, uint64_t entries);
  Set& setOf(Naxel::GenSetKey key, std::string const& field, Naxel::XformStatus const& xform,
             Naxel::EncoderStatus const& encoder);
  std::vector<CostFactor> costFactors(Naxel::GenSetIpRule const& generic,
                                      std::vector<RuleFactorView> const& factors) const;
  void takeFields(Session const& session, Naxel::PDData const* data);
  void takeStages(Session const& session);
  void sortAll();

  RuleSet const& rules_;
  CostReport& out_;
  CrossProduct plain_;
  std::vector<Set> sets_;
  std::unordered_map<uint64_t, size_t> place_;    // by key
  std::vector<size_t> order_;                     // of the lists of the report among the sets
  std::unordered_map<uint64_t, size_t> ofEntry_;  // by file and entry, in the present ACL
  std::unordered_map<size_t, uint64_t> most_;     // entries of the rule that the factors are of
};

}  // namespace NaxelTool
