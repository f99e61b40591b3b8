#pragma once

/// What a run has to do to bring an ACL that was compiled before up to date: which of its rules say something
/// else, have come, or have gone. What stands keeps its objects and its sets.
///
/// Stamps find the rules that are as they were; where they differ the content decides, and the stamps of content
/// that was only written again are learnt. So an ACL that nobody has touched costs a walk over its rules that
/// compares numbers.
///
/// Rules that have come stand behind all others in `ruleByName`, and deletions close up, so the walk compares what
/// stands at the same place, one step on for each rule that has gone. Example: compiled are a b c d, and the ACL
/// holds a c d e. Of b the ACL knows nothing: gone, and c is compared with c; e has come. A rule that was moved,
/// because it was deleted and made again, is found by its name.

#include "naxel/genset/NaxelAggregatorTypes.h"

#include <optional>
#include <utility>
#include <vector>

namespace Naxel {

/// What a run has made of an ACL, and of what.
struct BuiltAcl {
  Mox::Stamp acl = 0;
  Mox::Ptr<AclGenSetIpRuleList> list;
  std::vector<RuleStamps> stamps;  // of the rules, by place in `ruleByName` and in the list
};

/// A rule that has to be compiled.
struct RuleEdit {
  uint32_t place;  // in `ruleByName`
  RuleConfig const* config;
  Mox::Ptr<GenSetIpRule> before;  // null where it has come
};

/// Where rules have come, gone or changed places.
struct AclArrangement {
  std::vector<Mox::Ptr<GenSetIpRule>> rules;  // by place; null for those that have to be compiled
  std::vector<RuleStamps> stamps;
  std::vector<std::pair<AceIndex, uint32_t>> indexes;  // with the places of the rules
  bool hasStrays = false;  // an index refers to a rule that the ACL does not hold
};

/// Valid while the configuration is not changed.
struct AclEdit {
  AclConfig const* acl = nullptr;
  Lumox::AddressFamily af = Lumox::ipv4();
  BuiltAcl* built =
      nullptr;  // to be brought up to date; null where the ACL is compiled from nothing
  std::vector<RuleEdit> edits;  // by place
  std::vector<Mox::Ptr<GenSetIpRule>> gone;
  Lumox::AddressFamily goneAf = Lumox::ipv4();
  std::optional<AclArrangement> arranged;  // none where all rules are where they were

  /// Whether a rule or an index of the ACL cannot be compiled.
  bool isSound() const;
};

/// The edit that compiles an ACL from nothing.
AclEdit wholeAcl(AclConfig const& acl);
/// The edit that brings an ACL up to date; none where it says what it said. O(rules).
std::optional<AclEdit> editOf(AclConfig const& acl, BuiltAcl& built,
                              AggregatorStatus const& status);

}  // namespace Naxel
