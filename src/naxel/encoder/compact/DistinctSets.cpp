#include "naxel/encoder/compact/DistinctSets.h"

#include <algorithm>

namespace Naxel::Compact {

DistinctSets::DistinctSets(SetFamily const& all, std::vector<uint64_t> const& uses, size_t least) {
  // What decides most comparisons stands in one word: the larger first, then by the first member.
  struct Place {
    uint64_t word;
    uint32_t set;
  };
  std::vector<Place> order;
  order.reserve(all.size());
  for (uint32_t s = 0; s < all.size(); ++s)
    if (all[s].size() >= least) order.push_back({~uint64_t{all[s].size()} << 32 | all[s][0], s});
  auto const lessThan = [&](Place const& a, Place const& b) {
    if (a.word != b.word) return a.word < b.word;
    auto const x = all[a.set];
    auto const [p, q] = std::mismatch(x.begin(), x.end(), all[b.set].begin());
    return p != x.end() && *p < *q;
  };
  std::sort(order.begin(), order.end(), lessThan);
  of.assign(all.size(), SetFamily::none);
  for (size_t i = 0; i < order.size(); ++i) {
    if (i == 0 || lessThan(order[i - 1], order[i])) {
      for (uint32_t l : all[order[i].set]) sets.add(l);
      sets.end();
      weights.push_back(0);
    }
    of[order[i].set] = sets.size() - 1;
    weights.back() += weightOf(uses[order[i].set]);
  }
}

}  // namespace Naxel::Compact
