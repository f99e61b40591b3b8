#include "naxel/encoder/compact/DistinctSets.h"

#include <algorithm>

namespace Naxel::Compact {

DistinctSets::DistinctSets(SetFamily const& all, std::vector<uint64_t> const& uses, size_t least) {
  std::vector<uint32_t> order;
  for (uint32_t s = 0; s < all.size(); ++s)
    if (all[s].size() >= least) order.push_back(s);
  auto const lessThan = [&](uint32_t a, uint32_t b) {
    if (all[a].size() != all[b].size()) return all[a].size() > all[b].size();
    auto const [x, y] = std::mismatch(all[a].begin(), all[a].end(), all[b].begin());
    return x != all[a].end() && *x < *y;
  };
  std::sort(order.begin(), order.end(), lessThan);
  of.assign(all.size(), SetFamily::none);
  for (size_t i = 0; i < order.size(); ++i) {
    if (i == 0 || lessThan(order[i - 1], order[i])) {
      for (uint32_t l : all[order[i]]) sets.add(l);
      sets.end();
      weights.push_back(0);
    }
    of[order[i]] = sets.size() - 1;
    weights.back() += weightOf(uses[order[i]]);
  }
}

}  // namespace Naxel::Compact
