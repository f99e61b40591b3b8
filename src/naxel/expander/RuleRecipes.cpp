#include "naxel/expander/RuleRecipes.h"

#include "mox/Bounded.h"

#include <algorithm>
#include <bit>
#include <iterator>

namespace Naxel {

void RuleRecipes::take(RuleRecipes& from, size_t first, size_t count,
                       std::vector<RuleFactor> const* to) noexcept {
  if (count == 0) return;
  uint32_t const begin = first == 0 ? 0 : from.rules[first - 1].factorsEnd;
  uint32_t const end = from.rules[first + count - 1].factorsEnd;
  auto const into =
      factors.insert(factors.end(), from.factors.begin() + begin, from.factors.begin() + end);
  if (to)
    for (auto f = into; f != factors.end(); ++f) *f = (*to)[*f];
  // Ends are positions among the factors here.
  uint32_t const shift = static_cast<uint32_t>(into - factors.begin()) - begin;
  auto const rule = from.rules.begin() + static_cast<std::ptrdiff_t>(first);
  auto const moved =
      rules.insert(rules.end(), std::make_move_iterator(rule),
                   std::make_move_iterator(rule + static_cast<std::ptrdiff_t>(count)));
  if (shift)
    for (auto r = moved; r != rules.end(); ++r) r->factorsEnd += shift;
}

void RuleRecipes::replace(size_t rule, RuleRecipes& from, size_t ruleOfFrom) noexcept {
  auto const in = from.factorsOf(ruleOfFrom);
  uint32_t const end = rules[rule].factorsEnd;
  std::ranges::copy(in, factors.begin() + static_cast<std::ptrdiff_t>(end - in.size()));
  rules[rule] = std::move(from.rules[ruleOfFrom]);
  rules[rule].factorsEnd = end;
}

void RuleRecipes::renumber(std::vector<RuleFactor> const& to) noexcept {
  RuleFactor const* const now = to.data();
  for (RuleFactor& f : factors) f = now[f];
}

uint64_t RuleRecipes::entriesOf(size_t rule, PairLists const& lists) const {
  if (rules[rule].matchesNothing) return 0;
  uint64_t entries = 1;
  for (RuleFactor f : factorsOf(rule))
    entries = Mox::boundedProduct(entries, lists.pairs(f).size());
  return entries;
}

uint64_t RuleRecipes::entriesOf(size_t rule, PairLists const& lists,
                                FieldCodes const& codes) const {
  if (rules[rule].matchesNothing) return 0;
  uint64_t entries = 1;
  unsigned fields = rules[rule].fields;
  for (RuleFactor f : factorsOf(rule)) {
    Acl::LabelCode const code = codes[static_cast<size_t>(std::countr_zero(fields))];
    entries = Mox::boundedProduct(entries, lists.lists[f]->pairsBy(code));
    fields &= fields - 1;
  }
  return entries;
}

bool makeTheSame(RuleRecipes const& a, size_t ruleOfA, PairLists const& listsOfA,
                 RuleRecipes const& b, size_t ruleOfB, PairLists const& listsOfB) {
  RuleRecipe const& x = a.rules[ruleOfA];
  RuleRecipe const& y = b.rules[ruleOfB];
  return x.fields == y.fields && x.tcpInit == y.tcpInit && x.tcpEstablished == y.tcpEstablished &&
         x.matchesNothing == y.matchesNothing &&
         std::ranges::equal(a.factorsOf(ruleOfA), b.factorsOf(ruleOfB),
                            [&](RuleFactor f, RuleFactor g) {
                              return listsOfA.lists[f] == listsOfB.lists[g] ||
                                     listsOfA.pairs(f) == listsOfB.pairs(g);
                            });
}

void RulePlan::keep(size_t old, size_t rules) {
  auto const from = static_cast<uint32_t>(old);
  auto const count = static_cast<uint32_t>(rules);
  if (!runs.empty() && runs.back().old != none && runs.back().old + runs.back().rules == from)
    runs.back().rules += count;
  else
    runs.push_back({from, count});
}

bool RulePlan::replacesOnly(RuleRecipes const& known) const {
  size_t place = 0;
  size_t next = 0;
  for (Run const& run : runs) {
    if (run.old != none && run.old != place) return false;
    for (uint32_t i = 0; run.old == none && i < run.rules; ++i, ++next)
      if (before[next] != place + i ||
          known.factorsOf(place + i).size() != fresh.factorsOf(next).size())
        return false;
    place += run.rules;
  }
  return place == known.rules.size();
}

void RulePlan::add(size_t old) {
  before.push_back(static_cast<uint32_t>(old));
  if (!runs.empty() && runs.back().old == none)
    ++runs.back().rules;
  else
    runs.push_back({none, 1});
}

}  // namespace Naxel
