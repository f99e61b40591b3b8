#include "verify/ExactAlignment.h"

#include <algorithm>
#include <map>

namespace Verify::Exact {

using Naxel::RuleConfig;
using Naxel::RuleFilter;

namespace {

using Ranges = std::vector<std::array<uint32_t, 3>>;

Ranges rangesOf(RuleFilter const& filter) {
  Ranges out;
  filter.forEachRangeColl([&](Naxel::RangeSetType type, auto const& ranges) {
    for (auto const& r : ranges)
      out.push_back({static_cast<uint32_t>(type), r.rangeStart(), r.rangeEnd()});
  });
  return out;
}

bool areEqual(Mox::Ptr<Naxel::IpPrefixList> const& a, Mox::Ptr<Naxel::IpPrefixList> const& b) {
  return a == b || (a && b && a->isEqual(*b));
}

/// The same text, as it were; rules that match the same packets may say so in different ways.
bool sayTheSame(RuleConfig const& a, RuleConfig const& b) {
  if (!(a.action() == b.action())) return false;
  auto const& f = a.ruleFilter();
  auto const& g = b.ruleFilter();
  if (!f || !g) return f == g;
  return f->matchTcpInit() == g->matchTcpInit() &&
         f->matchTcpEstablished() == g->matchTcpEstablished() && rangesOf(*f) == rangesOf(*g) &&
         areEqual(f->source(), g->source()) && areEqual(f->destination(), g->destination());
}

struct Pair {
  size_t a;
  size_t b;
};

/// A longest part of the pairs, which ascend in `a`, that ascends in `b` too.
std::vector<Pair> ascending(std::vector<Pair> const& all) {
  constexpr size_t none = ~size_t{0};
  std::vector<size_t> last;  // by length: the pair with which the best row of that length ends
  std::vector<size_t> previous(all.size(), none);
  for (size_t i = 0; i < all.size(); ++i) {
    auto const at = std::lower_bound(last.begin(), last.end(), all[i].b,
                                     [&](size_t l, size_t b) { return all[l].b < b; });
    if (at != last.begin()) previous[i] = *(at - 1);
    if (at == last.end())
      last.push_back(i);
    else
      *at = i;
  }
  std::vector<Pair> out;
  for (size_t i = last.empty() ? none : last.back(); i != none; i = previous[i])
    out.push_back(all[i]);
  return out;
}

}  // namespace

Alignment::Alignment(RuleRow& a, RuleRow& b)
    : rule_{std::vector<Rule>(a.size()), std::vector<Rule>(b.size())} {
  size_t endA = a.size();
  size_t endB = b.size();
  size_t first = 0;
  for (; first < std::min(endA, endB) && sayTheSame(a.config(first), b.config(first)); ++first)
    pair(first, first);
  for (; std::min(endA, endB) > first && sayTheSame(a.config(endA - 1), b.config(endB - 1));
       --endA, --endB)
    pair(endA - 1, endB - 1);
  pairBetween(a, b, first, endA, endB);
  for (size_t side : {before, after}) {
    size_t pairs = 0;
    for (size_t i = 0; i < rule_[side].size(); ++i) {
      rule_[side][i].pairsBefore = pairs;
      pairs += rule_[side][i].paired;
      if (!rule_[side][i].paired) alone_[side].push_back(i);
    }
  }
}

void Alignment::pairBetween(RuleRow& a, RuleRow& b, size_t first, size_t endA, size_t endB) {
  if (first == endA || first == endB) return;
  // By diagram and action the places from the last one on.
  std::map<std::pair<int, Naxel::NaxelActionValue>, std::vector<size_t>> inB;
  for (size_t j = endB; j-- > first;) inB[{b.matched(j).node(), b.config(j).action()}].push_back(j);
  std::vector<Pair> equal;
  for (size_t i = first; i < endA; ++i) {
    auto const at = inB.find({a.matched(i).node(), a.config(i).action()});
    if (at == inB.end() || at->second.empty()) continue;
    equal.push_back({i, at->second.back()});
    at->second.pop_back();
  }
  for (Pair const& p : ascending(equal)) pair(p.a, p.b);
}

}  // namespace Verify::Exact
