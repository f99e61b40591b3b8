#pragma once

/// Which rules of two ACLs are the same and stand in the same order.
///
/// Two rules are paired if they match the same packets and have the same action, and pairs never
/// cross. What is left over is all that can make a difference: where two rules of pairs decide a
/// packet, one on each side, they are of the same pair, because the partner of the earlier one would have
/// decided on the other side as well. More than that, the partner of a rule that has decided lies
/// behind no pair that stands before a rule left over: see isPossible().

#include "verify/ExactRuleRow.h"

#include <array>
#include <vector>

namespace Verify::Exact {

class Alignment {
 public:
  /// Pairs rules at the ends by what they say, those in between by their diagrams: as many pairs as an
  /// increasing sequence has where each rule may be paired with the one of the same rank among its
  /// equals. O(n log n) and a diagram for each rule between the first and the last difference.
  Alignment(RuleRow& before, RuleRow& after);

  static constexpr size_t before = 0;
  static constexpr size_t after = 1;

  bool isPaired(size_t side, size_t place) const { return rule_[side][place].paired; }
  /// The places of the rules without a partner, ascending.
  std::vector<size_t> const& alone(size_t side) const { return alone_[side]; }
  /// Whether `other` of the other side may decide packets that the unpaired rule `place` of `side`
  /// decides there: not if its partner stands before that rule.
  bool isPossible(size_t side, size_t place, size_t other) const {
    Rule const& there = rule_[1 - side][other];
    return !there.paired || rule_[side][place].pairsBefore <= there.pairsBefore;
  }

 private:
  struct Rule {
    bool paired = false;
    size_t pairsBefore = 0;
  };

  void pair(size_t i, size_t j) { rule_[before][i].paired = rule_[after][j].paired = true; }
  void pairBetween(RuleRow& a, RuleRow& b, size_t first, size_t endA, size_t endB);

  std::array<std::vector<Rule>, 2> rule_;
  std::array<std::vector<size_t>, 2> alone_;
};

}  // namespace Verify::Exact
