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

LabelSplit::LabelSplit(LabelGroup const& group)
    : order_(group.labels()), position_(group.labels()), leaf_(group.labels(), 0) {
  std::iota(order_.begin(), order_.end(), uint16_t{0});
  std::iota(position_.begin(), position_.end(), uint16_t{0});
  nodes_.push_back({0, group.labels()});
  inside_.push_back(0);
  for (LabelShare const& share : group.shares) cutBy(group.of(share));
  for (Node const& node : nodes_)
    if (!node.inside) std::sort(order_.begin() + node.begin, order_.begin() + node.end);
}

void LabelSplit::cutBy(std::span<uint16_t const> labels) {
  touched_.clear();
  for (uint16_t label : labels) {
    uint32_t const leaf = leaf_[label];
    if (inside_[leaf] == 0) touched_.push_back(leaf);
    uint16_t const to = static_cast<uint16_t>(nodes_[leaf].begin + inside_[leaf]++);
    uint16_t const other = order_[to];
    std::swap(order_[to], order_[position_[label]]);
    position_[other] = position_[label];
    position_[label] = to;
  }
  for (uint32_t leaf : touched_) {
    uint32_t const begin = nodes_[leaf].begin;
    uint32_t const end = nodes_[leaf].end;
    uint32_t const middle = begin + inside_[leaf];
    inside_[leaf] = 0;
    if (middle == end) continue;
    auto const add = [&](uint32_t from, uint32_t to) {
      auto const node = static_cast<uint32_t>(nodes_.size());
      nodes_.push_back({from, to});
      inside_.push_back(0);
      for (uint32_t i = from; i < to; ++i) leaf_[order_[i]] = node;
      return node;
    };
    uint32_t const inside = add(begin, middle);
    uint32_t const outside = add(middle, end);
    nodes_[leaf].inside = inside;
    nodes_[leaf].outside = outside;
  }
}

namespace {

/// Free places of an order whose values make an aligned block.
struct Piece {
  uint32_t begin;
  uint32_t size;
};
using Pieces = std::vector<Piece>;

/// The values as the largest aligned blocks.
Pieces piecesOf(std::span<uint16_t const> values) {
  Pieces pieces;
  uint32_t const count = static_cast<uint32_t>(values.size());
  for (uint32_t i = 0; i < count;) {
    uint32_t run = 1;
    while (i + run < count && values[i + run] == values[i] + run) ++run;
    for (uint32_t const end = i + run; i < end;) {
      uint32_t size = std::bit_floor(end - i);
      if (values[i]) size = std::min<uint32_t>(size, values[i] & -values[i]);
      pieces.push_back({i, size});
      i += size;
    }
  }
  return pieces;
}

/// Takes `count` places out of `free`, the largest blocks first, each from the smallest piece that
/// holds it.
Pieces take(Pieces& free, uint32_t count) {
  Pieces taken;
  for (uint32_t want = count ? std::bit_floor(count) : 0; count > 0;) {
    want = std::min(want, std::bit_floor(count));
    auto best = free.end();
    for (auto p = free.begin(); p != free.end(); ++p)
      if (p->size >= want && (best == free.end() || p->size < best->size)) best = p;
    if (best == free.end()) {
      want /= 2;
      continue;
    }
    Piece piece = *best;
    free.erase(best);
    while (piece.size > want) {
      piece.size /= 2;
      free.push_back({piece.begin + piece.size, piece.size});
    }
    taken.push_back(piece);
    count -= want;
  }
  return taken;
}

}  // namespace

LabelOrder splitOrder(LabelGroup const& group, LabelSplit const& split) {
  LabelOrder order(group.labels());
  struct Task {
    uint32_t node;
    size_t pieces;  // where its free places begin in the stack of pieces; they reach up to the top
  };
  Pieces stack = piecesOf(group.values);
  std::vector<Task> tasks = {{0, 0}};
  while (!tasks.empty()) {
    Task const task = tasks.back();
    tasks.pop_back();
    auto const from = stack.begin() + static_cast<std::ptrdiff_t>(task.pieces);
    Pieces free(from, stack.end());
    stack.erase(from, stack.end());
    LabelSplit::Node const& node = split.nodes()[task.node];
    if (node.inside) {
      LabelSplit::Node const& inside = split.nodes()[node.inside];
      Pieces const taken = take(free, inside.end - inside.begin);
      tasks.push_back({node.outside, stack.size()});
      stack.insert(stack.end(), free.begin(), free.end());
      tasks.push_back({node.inside, stack.size()});
      stack.insert(stack.end(), taken.begin(), taken.end());
      continue;
    }
    std::sort(free.begin(), free.end(),
              [](Piece const& a, Piece const& b) { return a.begin < b.begin; });
    uint32_t next = node.begin;
    for (Piece const& piece : free)
      for (uint32_t i = 0; i < piece.size; ++i) order[piece.begin + i] = split.order()[next++];
  }
  return order;
}

namespace {

/// Runs of labels, each of a power of two; a run is known by its first label.
class Runs {
 public:
  Runs(uint32_t labels, LabelSplit const& split)
      : rank_(labels), run_(labels), next_(labels), last_(labels), size_(labels, 1), seen_(labels) {
    for (uint32_t i = 0; i < labels; ++i) rank_[split.order()[i]] = static_cast<uint16_t>(i);
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
      std::sort(equal.begin(), equal.end(),
                [&](uint16_t a, uint16_t b) { return rank_[a] < rank_[b]; });
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
      return size_[a] != size_[b] ? size_[a] > size_[b] : rank_[a] < rank_[b];
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

  std::vector<uint16_t> rank_;  // of each label
  std::vector<uint16_t> run_;   // of each label
  std::vector<uint16_t> next_;  // label in its run
  std::vector<uint16_t> last_;  // label of each run
  std::vector<uint32_t> size_;  // of each run
  std::vector<uint32_t> seen_;  // labels of a run that the present share has
  std::array<std::vector<uint16_t>, 18> byLength_;
};

}  // namespace

LabelOrder joinOrder(LabelGroup const& group, LabelSplit const& split) {
  std::vector<uint32_t> bySize(group.shares.size());
  std::iota(bySize.begin(), bySize.end(), 0u);
  std::stable_sort(bySize.begin(), bySize.end(), [&](uint32_t a, uint32_t b) {
    LabelShare const& x = group.shares[a];
    LabelShare const& y = group.shares[b];
    return x.size != y.size ? x.size < y.size : x.weight > y.weight;
  });
  Runs runs(group.labels(), split);
  for (uint32_t i : bySize) runs.joinWithin(group.of(group.shares[i]));
  LabelOrder all(group.labels());
  std::iota(all.begin(), all.end(), uint16_t{0});
  runs.joinWithin(all);
  return runs.order();
}

}  // namespace Naxel
