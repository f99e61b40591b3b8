#include "naxel/encoder/LabelArrangement.h"

#include <algorithm>
#include <array>
#include <bit>
#include <numeric>

namespace Naxel {

uint64_t priceOf(LabelGroup const& group, LabelOrder const& order, PairCounter& counter,
                 uint64_t enough) {
  std::vector<uint16_t> valueOf(order.size());
  for (size_t i = 0; i < order.size(); ++i) valueOf[order[i]] = group.values[i];
  std::vector<uint16_t> values;
  uint64_t price = leastPriceOf(group);
  for (LabelShare const& share : group.shares) {
    if (price >= enough) break;
    values.clear();
    for (uint16_t label : group.of(share)) values.push_back(valueOf[label]);
    uint32_t const least = static_cast<uint32_t>(std::popcount(share.size));
    price += share.weight * (counter.count(values) - least);
  }
  return price;
}

uint64_t leastPriceOf(LabelGroup const& group) {
  uint64_t price = 0;
  for (LabelShare const& share : group.shares)
    price += share.weight * static_cast<uint64_t>(std::popcount(share.size));
  return price;
}

namespace {

/// Runs of labels, each of a power of two; a run is known by its first label.
class Runs {
 public:
  explicit Runs(uint32_t labels)
      : run_(labels), next_(labels), last_(labels), size_(labels, 1), seen_(labels) {
    std::iota(run_.begin(), run_.end(), uint16_t{0});
    last_ = run_;
  }

  /// Joins equal runs that consist of these labels alone, until no two are equal.
  void joinWithin(std::span<uint16_t const> labels) {
    uint32_t longest = 0;
    for (uint16_t label : labels)
      if (++seen_[run_[label]] == size_[run_[label]]) {
        uint32_t const level = static_cast<uint32_t>(std::countr_zero(size_[run_[label]]));
        byLength_[level].push_back(run_[label]);
        longest = std::max(longest, level);
      }
    for (uint16_t label : labels) seen_[run_[label]] = 0;
    for (uint32_t level = 0; level <= longest; ++level) {
      auto& equal = byLength_[level];
      std::sort(equal.begin(), equal.end());
      for (size_t i = 0; i + 1 < equal.size(); i += 2) {
        join(equal[i], equal[i + 1]);
        byLength_[level + 1].push_back(equal[i]);
        longest = std::max(longest, level + 1);
      }
      equal.clear();
    }
  }

  LabelOrder order() const {
    std::vector<uint16_t> firsts;
    for (uint32_t label = 0; label < run_.size(); ++label)
      if (run_[label] == label) firsts.push_back(static_cast<uint16_t>(label));
    std::sort(firsts.begin(), firsts.end(), [&](uint16_t a, uint16_t b) {
      return size_[a] != size_[b] ? size_[a] > size_[b] : a < b;
    });
    LabelOrder order;
    order.reserve(run_.size());
    for (uint16_t label : firsts)
      for (uint32_t i = size_[label]; i-- > 0; label = next_[label]) order.push_back(label);
    return order;
  }

 private:
  void join(uint16_t a, uint16_t b) {
    next_[last_[a]] = b;
    last_[a] = last_[b];
    uint16_t label = b;
    for (uint32_t i = size_[b]; i-- > 0; label = next_[label]) run_[label] = a;
    size_[a] *= 2;
  }

  std::vector<uint16_t> run_;   // of each label
  std::vector<uint16_t> next_;  // label in its run
  std::vector<uint16_t> last_;  // label of each run
  std::vector<uint32_t> size_;  // of each run
  std::vector<uint32_t> seen_;  // labels of a run that the present share has
  std::array<std::vector<uint16_t>, 18> byLength_;
};

}  // namespace

LabelOrder joinOrder(LabelGroup const& group) {
  std::vector<uint32_t> bySize(group.shares.size());
  std::iota(bySize.begin(), bySize.end(), 0u);
  std::stable_sort(bySize.begin(), bySize.end(), [&](uint32_t a, uint32_t b) {
    LabelShare const& x = group.shares[a];
    LabelShare const& y = group.shares[b];
    return x.size != y.size ? x.size < y.size : x.weight > y.weight;
  });
  Runs runs(group.labels());
  for (uint32_t i : bySize) runs.joinWithin(group.of(group.shares[i]));
  LabelOrder all(group.labels());
  std::iota(all.begin(), all.end(), uint16_t{0});
  runs.joinWithin(all);
  return runs.order();
}

}  // namespace Naxel
