#pragma once

/// Which rules of an ACL can go, all of them together, without any packet being treated differently: all
/// packets, also those that no parser hands on. Only in builds that have the BDD library.
///
/// A rule is spare if every packet that it decides would get the same action without it. Spare rules
/// may be so only because of each other, two equal ones for instance; so they go one by one, from the last rule
/// to the first:
///
///   10 permit tcp any > any     decides; without it its packets go to 30, which permits: spare
///   20 permit tcp any > any:80  decides nothing: spare
///   30 permit ip any > any      decides; without it nothing would match: stays
///
/// One pass is enough. What is asked of a rule depends on the rules before it, all of which are there still,
/// and on those behind it that stay. A rule that stays decides some packet that the rest would treat
/// differently; rules before it that go later take no packet away from it, so it is needed at the end as well:
/// of what is left no single rule can go.
///
/// Rules that were one entry in their source can be kept together: they go all at once or not at all.
///
/// Cost: a search for each rule as that of ExactStudy, which mostly ends with a few packets drawn from the rule.

#include "naxel/types/AclConfig.h"
#include "verify/ExactRuleRow.h"

#include <functional>
#include <vector>

namespace Verify {

struct SpareRule {
  enum class Why : uint8_t {
    matchesNothing,
    decidesNothing,  ///< rules before it match all that it does
    sameWithout      ///< what it decides gets the same action from rules behind it
  };
  Naxel::AceIndex rule;
  Why why;
  /// The rules before it, or those behind it, that do it together, ascending. Some of those before
  /// it may be spare as well; what they do is done by others then.
  std::vector<Naxel::AceIndex> because;
};

struct SpareRules {
  std::vector<SpareRule> all;  ///< in the order of the rules
  size_t undecided = 0;        ///< rules that stay because the effort did not suffice
};

/// Neighbours with the same number go together. Without, each rule is by itself.
using EntryOf = std::function<uint64_t(Naxel::AceIndex)>;

/// There must be a BddTable. `effort` is the number of steps that may be taken, each a packet looked up,
/// and loses those that were. Rules that go on to the next one (continueRule) stay.
SpareRules spareRules(Naxel::AclConfig const& acl, uint64_t& effort,
                      EntryOf const& entryOf = nullptr);

}  // namespace Verify
