#include "ovs/Priorities.h"

#include "mox/Assert.h"

#include <algorithm>

namespace NaxelOvs {

namespace {

constexpr uint32_t above = mostRanks + 1;  // what stands over the first item

/// The heaviest sequence that ends at each priority or above it, as a tree of maxima over prefixes.
class Heaviest {
 public:
  struct Best {
    uint64_t weight = 0;
    size_t item = ~size_t{0};
  };
  Heaviest() : tree_(above + 1) {}
  /// Of all items entered with a place of at most `place`.
  Best upTo(uint32_t place) const {
    Best best;
    for (; place > 0; place &= place - 1)
      if (tree_[place].weight > best.weight) best = tree_[place];
    return best;
  }
  void enter(uint32_t place, Best const& best) {
    for (; place < tree_.size(); place += place & -place)
      if (best.weight > tree_[place].weight) tree_[place] = best;
  }

 private:
  std::vector<Best> tree_;
};

std::vector<bool> keptOf(std::vector<RankItem> const& items) {
  Heaviest heaviest;
  std::vector<size_t> before(items.size(), ~size_t{0});
  Heaviest::Best whole;
  for (size_t i = 0; i < items.size(); ++i) {
    uint32_t const priority = items[i].present.value_or(0);
    if (priority == 0) continue;
    // Descending priorities are ascending places.
    uint32_t const place = above - priority;
    Heaviest::Best const best = heaviest.upTo(place - 1);
    before[i] = best.item;
    Heaviest::Best const with{best.weight + items[i].weight, i};
    heaviest.enter(place, with);
    if (with.weight > whole.weight) whole = with;
  }
  std::vector<bool> kept(items.size());
  for (size_t i = whole.item; i != ~size_t{0}; i = before[i]) kept[i] = true;
  return kept;
}

class Sharing {
 public:
  explicit Sharing(std::vector<RankItem> const& items) : kept_(keptOf(items)), out_(items.size()) {
    for (size_t i = 0; i < items.size(); ++i)
      if (kept_[i]) out_[i] = *items[i].present;
  }

  std::vector<uint16_t> run() {
    for (size_t i = 0; i < out_.size();) {
      if (kept_[i]) {
        ++i;
        continue;
      }
      size_t end = i;
      while (end < out_.size() && !kept_[end]) ++end;
      i = share(i, end);
    }
    return std::move(out_);
  }

 private:
  /// Gives priorities to the items of a gap, which may take in kept ones around. Returns where it ends.
  size_t share(size_t first, size_t end) {
    uint64_t wanted = end - first;  // the room for exactly those that are new is enough
    for (size_t widen = 8;; widen *= 2) {
      uint32_t const high = first == 0 ? above : out_[first - 1];
      uint32_t const low = end == out_.size() ? 0 : out_[end];
      uint64_t const count = end - first;
      if (high - low - 1 >= wanted || count == out_.size()) {
        for (uint64_t k = 0; k < count; ++k)
          out_[first + k] = static_cast<uint16_t>(high - (k + 1) * (high - low) / (count + 1));
        std::fill(kept_.begin() + static_cast<ptrdiff_t>(first),
                  kept_.begin() + static_cast<ptrdiff_t>(end), true);
        return end;
      }
      first -= std::min(first, widen);
      end = std::min(out_.size(), end + widen);
      // A gap further on is taken in as a whole, so that what stands at the end is kept.
      while (end < out_.size() && !kept_[end]) ++end;
      // Half of what is free at most, where little is.
      uint64_t const some = end - first;
      wanted = some + std::min(some, some * (mostRanks - out_.size()) / (2 * out_.size()));
    }
  }

  std::vector<bool> kept_;
  std::vector<uint16_t> out_;
};

}  // namespace

std::vector<uint16_t> assignPriorities(std::vector<RankItem> const& items) {
  MOX_ASSERT(items.size() <= mostRanks);
  return Sharing(items).run();
}

}  // namespace NaxelOvs
