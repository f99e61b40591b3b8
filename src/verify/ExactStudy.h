#pragma once

/// What holds for every packet about the rules of one ACL: which rules decide packets, which could be
/// taken out, whether there is a packet of some kind that gets some verdict. Only in builds that have
/// the BDD library. docs/exact.md tells more of it.
///
/// Every question comes down to one: is there a packet in a region whose decider is wanted? The
/// region is a decision diagram. Rather than making the diagram of what every rule decides, which
/// needs the union of all rules before it, the search asks the rules: it takes some packet of the
/// region and looks up who decides it. If that rule is wanted, the packet is the answer. If not, the
/// packets that it matches are taken out of the region, without those that a wanted rule before it
/// matches, and the search goes on with what is left; an empty region is the proof that there is
/// none. So only the rules that stand in the way are ever looked at, and these are the explanation.
/// Most questions end with a few packets drawn from the rule beforehand.
///
/// The packets that are asked about are all, or those that there can be (Packet::isPossible()). A
/// packet that is found is always one of them, and a rule that matches others alone matches nothing.
///
/// Cost: a step is a look-up, and a difference of diagrams whose size goes with the region's. On
/// rule sets of ten thousand rules nearly all questions take none or a few steps.

#include "verify/Bdd.h"
#include "verify/ExactRules.h"
#include "verify/PacketSource.h"
#include "verify/RuleOracle.h"

#include <functional>
#include <optional>
#include <vector>

namespace Verify {

class ExactStudy {
 public:
  enum class Answer : uint8_t {
    yes,
    no,
    undecided  ///< the effort that was allowed did not suffice
  };

  /// The answer to "is there such a packet?".
  struct Search {
    Answer found = Answer::no;
    std::optional<Packet> packet;  ///< one, if found
    /// Rules that decide packets of the region and are not wanted, as far as the search came to them,
    /// ascending. If nothing was found they are the proof, together with `hitsNone`: each packet of
    /// the region is matched by one of them, and by no wanted rule before that one.
    std::vector<Naxel::AceIndex> others;
    /// Some packets of the region hit no rule, as far as the search came to them; not wanted either.
    bool hitsNone = false;
  };

  /// Whether a decider is wanted; none: no rule matches.
  using Wanted = std::function<bool(std::optional<Naxel::AceIndex>)>;

  enum class Packets : uint8_t { all, possible };

  /// There must be a BddTable of Exact::variables variables, which outlives the study, as do the
  /// rules, which must not change. `steps` bounds one question.
  explicit ExactStudy(Naxel::AclConfig const& acl, size_t steps = 20'000,
                      Packets among = Packets::possible);

  Naxel::AclConfig const& acl() const { return acl_; }
  Lumox::AddressFamily af() const { return af_; }
  RuleOracle const& oracle() const { return oracle_; }
  size_t rules() const { return rule_.size(); }

  /// Bounds each question from now on.
  void stepsIs(size_t steps) { steps_ = steps; }
  /// How many steps all questions so far have taken.
  uint64_t stepsTaken() const { return stepsTaken_; }

  /// All packets that are asked about.
  Bdd const& packets() const { return packets_; }
  /// Those of them that a rule of the ACL matches by itself. These throw std::runtime_error where the table
  /// of diagrams is full.
  Bdd const& matched(Naxel::AceIndex rule);
  Bdd matched(Naxel::RuleFilter const& filter) { return functions_.matched(filter) & packets_; }
  bool matchesNothing(Naxel::AceIndex rule) { return matched(rule).isFalse(); }

  /// A packet that the rule decides. If there is none and it matches something, `others` together
  /// match all that it matches, and each of them is needed for that, given the others.
  Search decidedBy(Naxel::AceIndex rule);
  /// A packet of `rule` that would get another outcome without the rules `without`, of which it is one
  /// and which have the same action: another action, or no rule where there was one. If there is
  /// none the rule can be taken out together with the others, as far as its own packets go.
  Search missedWithout(Naxel::AceIndex rule, RuleSpan const& without);
  Search missedWithout(Naxel::AceIndex rule) { return missedWithout(rule, rule); }
  /// A packet of the region whose decider is wanted, as if the rules `without` were not there.
  Search search(Bdd region, Wanted const& wanted,
                std::optional<RuleSpan> const& without = std::nullopt) {
    return searchFrom(region, wanted, without, 0);
  }
  /// As search(); the region loses packets whose decider is not wanted. Whoever wants fewer deciders with each
  /// question goes on with what is left.
  Search searchOn(Bdd& region, Wanted const& wanted) {
    return searchFrom(region, wanted, std::nullopt, 0);
  }

 private:
  /// Two rules whose hulls are apart match no packet both.
  struct Hull {
    std::array<Interval, 2> address;
    std::array<std::pair<uint32_t, uint32_t>, Naxel::rangeFieldCount> value;
    bool meets(Hull const& other) const;
  };
  struct Rule {
    Naxel::AceIndex index;
    Naxel::RuleConfig const* config;
    Hull hull;
    std::optional<Bdd> matched;
  };

  size_t placeOf(Naxel::AceIndex rule) const;
  Bdd const& matchedAt(size_t place);
  /// A packet drawn from the rule for which `hit` holds.
  std::optional<Packet> drawn(size_t place, std::function<bool(Packet const&)> const& hit);
  /// A packet that is asked about and that the rule may match if it matches this one.
  Packet amongAsked(Rule const& rule, Packet packet) const;
  /// As searchOn(); no rule before the place `from` is wanted.
  Search searchFrom(Bdd& region, Wanted const& wanted, std::optional<RuleSpan> const& without,
                    size_t from);
  /// What rule `place` matches in the region and no wanted rule between `from` and it does.
  Bdd outOfTheWay(Bdd const& region, size_t place, Wanted const& wanted,
                  std::optional<RuleSpan> const& without, size_t from);
  void leaveOnlyNeeded(Bdd const& region, std::vector<Naxel::AceIndex>& rules);

  Naxel::AclConfig const& acl_;
  Lumox::AddressFamily af_;
  size_t steps_;
  uint64_t stepsTaken_ = 0;
  Packets among_;
  Bdd packets_;
  RuleOracle oracle_;
  PacketSource source_;
  Exact::RuleFunctions functions_;
  std::vector<Rule> rule_;
};

}  // namespace Verify
