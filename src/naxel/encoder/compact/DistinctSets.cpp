#include "naxel/encoder/compact/DistinctSets.h"

#include <algorithm>
#include <utility>

namespace Naxel::Compact {

namespace {

/// Stably by a number of each, below `numbers`, in a pass over both.
template <class F>
void sortByNumber(std::vector<uint32_t>& items, size_t numbers, F numberOf) {
  std::vector<uint32_t> to(numbers + 1, 0);
  for (uint32_t i : items) ++to[numberOf(i) + 1];
  for (size_t n = 0; n < numbers; ++n) to[n + 1] += to[n];
  std::vector<uint32_t> sorted(items.size());
  for (uint32_t i : items) sorted[to[numberOf(i)]++] = i;
  items.swap(sorted);
}

bool isLess(std::span<uint32_t const> a, std::span<uint32_t const> b) {
  auto const [p, q] = std::mismatch(a.begin(), a.end(), b.begin());
  return p != a.end() && *p < *q;
}

}  // namespace

DistinctSets::DistinctSets(SetFamily const& all, std::vector<uint64_t> const& uses, size_t least) {
  std::vector<uint32_t> order;
  order.reserve(all.size());
  size_t largest = 0;
  uint32_t highest = 0;
  for (uint32_t s = 0; s < all.size(); ++s) {
    if (all[s].size() < least) continue;
    order.push_back(s);
    largest = std::max(largest, all[s].size());
    highest = std::max(highest, all[s][0]);
  }
  // The larger first, then by the first member, which decides most; what is left is compared.
  sortByNumber(order, size_t{highest} + 1, [&](uint32_t s) { return all[s][0]; });
  sortByNumber(order, largest + 1, [&](uint32_t s) { return largest - all[s].size(); });
  of.assign(all.size(), SetFamily::none);
  for (size_t from = 0, to = 0; from < order.size(); from = to) {
    auto const first = all[order[from]];
    while (to < order.size() && all[order[to]].size() == first.size() &&
           all[order[to]][0] == first[0])
      ++to;
    if (first.size() > 1)
      std::sort(order.begin() + static_cast<std::ptrdiff_t>(from),
                order.begin() + static_cast<std::ptrdiff_t>(to),
                [&](uint32_t a, uint32_t b) { return isLess(all[a], all[b]); });
    for (size_t i = from; i < to; ++i) {
      if (i == from || isLess(all[order[i - 1]], all[order[i]])) {
        for (uint32_t l : all[order[i]]) sets.add(l);
        sets.end();
        weights.push_back(0);
      }
      of[order[i]] = sets.size() - 1;
      weights.back() += weightOf(uses[order[i]]);
    }
  }
}

}  // namespace Naxel::Compact
