#pragma once

/// What the rules of an ACL are built from, and which of them have to be built anew.
///
/// Idea. A rule's recipe is the object that the aggregator has published for it and the numbers of its lists of pairs.
/// While both are what they were, its entries are, and the rule stays in the output as the object that it is; so a
/// change costs a comparison for each rule, and work for those that it concerns.

#include "acl/ParamConfig.h"
#include "naxel/expander/PairLists.h"

#include <array>
#include <span>
#include <vector>

namespace Naxel {

/// What a rule is built from besides its action.
struct RuleRecipe {
  Mox::Ptr<GenSetIpRule const> rule;
  uint32_t factorsEnd = 0;  // they begin where those of the rule before end
  uint16_t fields = 0;      // a bit for the field of each factor, in their order
  bool tcpInit = false;
  bool tcpEstablished = false;
  bool matchesNothing = false;  // one of the sets covers nothing
};
/// A label code for each field of the entries of one family, by TcamFieldType.
using FieldCodes = std::array<Acl::LabelCode, 16>;

/// The recipes of the rules of an ACL, in their order.
struct RuleRecipes {
  std::vector<RuleFactor> factors;
  std::vector<RuleRecipe> rules;

  std::span<RuleFactor const> factorsOf(size_t rule) const {
    size_t const from = rule == 0 ? 0 : rules[rule - 1].factorsEnd;
    return std::span(factors).subspan(from, rules[rule].factorsEnd - from);
  }
  void reserve(size_t moreRules, size_t moreFactors) {
    rules.reserve(moreRules);
    factors.reserve(moreFactors);
  }
  /// Takes over the recipes of rules of another one, under the numbers that `to` says, if any; there must be room.
  void take(RuleRecipes& from, size_t first, size_t count,
            std::vector<RuleFactor> const* to) noexcept;
  /// Has the recipe of a rule of another one, of as many factors, in the place of one of its own.
  void replace(size_t rule, RuleRecipes& from, size_t ruleOfFrom) noexcept;
  /// Refers to the lists by the numbers that `to` says.
  void renumber(std::vector<RuleFactor> const& to) noexcept;
  /// Entries of a rule; the largest number where there are even more.
  uint64_t entriesOf(size_t rule, PairLists const& lists) const;
  /// The same where the sets of each field have their pairs by the code that `codes` names for it.
  uint64_t entriesOf(size_t rule, PairLists const& lists, FieldCodes const& codes) const;
};

/// Whether two recipes make the same entries, each with its own lists.
bool makeTheSame(RuleRecipes const& a, size_t ruleOfA, PairLists const& listsOfA,
                 RuleRecipes const& b, size_t ruleOfB, PairLists const& listsOfB);

/// What becomes of the rules of an ACL.
struct RulePlan {
  static constexpr uint32_t none = ~uint32_t{0};
  /// Rules one behind the other: those of the output from the place `old` on, or where that is none the next ones of
  /// `fresh`.
  struct Run {
    uint32_t old;
    uint32_t rules;
  };
  std::vector<Run> runs;
  RuleRecipes fresh;
  std::vector<uint32_t>
      before;  // of each of these the place of the rule under its index; none where it is new

  void keep(size_t old, size_t rules);
  /// One of `fresh` is next.
  void add(size_t old);
  /// Whether of an output of so many rules all stay and none comes.
  bool keepsAll(size_t rules) const {
    return rules ? runs.size() == 1 && runs[0].old == 0 && runs[0].rules == rules : runs.empty();
  }
  /// Whether no rule comes or goes, and each of `fresh` has as many factors as the one in whose place it is.
  bool replacesOnly(RuleRecipes const& known) const;
};

}  // namespace Naxel
