#include "naxel/xform/PairCut.h"

#include "naxel/genset/KeyGroupInterner.h"
#include "naxel/xform/PieceCounter.h"

#include <algorithm>
#include <span>
#include <utility>

namespace Naxel {

namespace {

/// A group that is another one extended by a set.
struct GroupStep {
  uint32_t parent = 0;
  GenSetKey key;
  bool operator==(GroupStep const&) const = default;
  void placeWords(Mox::KeyedHash& h) const noexcept { h.word(parent).word(key.value()); }
};

/// Groups under refinement.
class GroupChains {
 public:
  static constexpr uint32_t root = 0;  // the group without sets

  /// The group that extends `group` by `key`; the same one for the same two.
  uint32_t extend(uint32_t group, GenSetKey key) {
    GroupStep const step{group, key};
    if (uint32_t const* known = extended_.get(step)) return *known;
    auto const id = static_cast<uint32_t>(chains_.size());
    chains_.push_back(step);
    extended_.set(step, id);
    return id;
  }
  std::vector<GenSetKey> keys(uint32_t group) const {
    std::vector<GenSetKey> out;
    for (; group != root; group = chains_[group].parent) out.push_back(chains_[group].key);
    std::reverse(out.begin(), out.end());
    return out;
  }
  size_t size() const { return chains_.size(); }

 private:
  std::vector<GroupStep> chains_{GroupStep()};
  Mox::HashMap<GroupStep, uint32_t> extended_;
};

/// The pairs of one set that share a source label, ascending.
struct SourcePairs {
  PlainLabel src;
  GenSetKey key;
  std::span<GenCombo const> pairs;
};

/// Those of all sets by source label, within a label by set key.
std::vector<SourcePairs> bySource(PairSetViews const& sets) {
  std::vector<SourcePairs> out;
  for (PairSetView const& set : sets) {
    std::vector<GenCombo> const& all = set.pairs->items();
    for (size_t from = 0, to = 0; from < all.size(); from = to) {
      PlainLabel const src = all[from].srcLabel();
      while (to < all.size() && all[to].srcLabel() == src) ++to;
      out.push_back({src, set.key, std::span(all).subspan(from, to - from)});
    }
  }
  // Stable, so that the sets of a source label stay in ascending order of their keys.
  std::stable_sort(out.begin(), out.end(),
                   [](SourcePairs const& x, SourcePairs const& y) { return x.src < y.src; });
  return out;
}

/// The largest destination label.
uint32_t lastDestination(std::vector<SourcePairs> const& all) {
  uint32_t last = 0;
  for (SourcePairs const& of : all) last = std::max(last, of.pairs.back().dstLabel().value());
  return last;
}

}  // namespace

std::optional<PairPieces> cutPairs(PairSetViews const& sets, PieceCount const& limit) {
  std::vector<SourcePairs> const all = bySource(sets);
  GroupChains chains;
  KeyGroupInterner interner;
  std::vector<Mox::Ptr<GenSetKeyGroup>> materialised;  // by chain
  std::vector<PairPieces::value_type> pieces;
  // One array for all source labels: only the places that are used are set back.
  std::vector<uint32_t> groupOf(size_t{lastDestination(all)} + 1,
                                GroupChains::root);  // by destination label
  std::vector<uint32_t> dsts;                        // those with a group
  for (size_t from = 0, to = 0; from < all.size(); from = to) {
    PlainLabel const src = all[from].src;
    for (; to < all.size() && all[to].src == src; ++to) {
      uint32_t known = ~uint32_t{0};
      uint32_t extended = GroupChains::root;
      for (GenCombo const& pair : all[to].pairs) {
        uint32_t& group = groupOf[pair.dstLabel().value()];
        if (group == GroupChains::root) dsts.push_back(pair.dstLabel().value());
        if (group != known) {  // neighbours mostly come from the same group
          known = group;
          extended = chains.extend(group, all[to].key);
        }
        group = extended;
      }
    }
    std::sort(dsts.begin(), dsts.end());
    materialised.resize(chains.size());
    for (uint32_t dst : dsts) {
      uint32_t const id = std::exchange(groupOf[dst], GroupChains::root);
      if (!materialised[id]) materialised[id] = interner.intern(chains.keys(id));
      pieces.emplace_back(GenCombo(src, PlainLabel(dst)), materialised[id]);
      // Beyond the limits the result is unusable anyway, and its size would have no bound.
      if (exceeds({interner.size(), interner.memberships()}, limit)) return std::nullopt;
    }
    dsts.clear();
  }
  PairPieces out;
  out.adopt(std::move(pieces));
  return out;
}

PieceCount countPairPieces(PairSetViews const& sets) {
  std::vector<SourcePairs> const all = bySource(sets);
  PieceCounter pieces;
  struct Group {
    uint64_t hash = 0;
    size_t sets = 0;
  };
  std::vector<Group> groupOf(size_t{lastDestination(all)} + 1);  // by destination label
  for (size_t from = 0, to = 0; from < all.size(); from = to) {
    for (; to < all.size() && all[to].src == all[from].src; ++to) {
      Mox::KeyedSetHash set;
      set.add(all[to].key);
      for (GenCombo const& pair : all[to].pairs) {
        Group& group = groupOf[pair.dstLabel().value()];
        // The hash of a set of keys is a sum over its keys, so it can follow one set at a time.
        group.hash += set.value();
        ++group.sets;
      }
    }
    // The first visit to a destination takes its group away, so a pair of several sets is counted once.
    for (size_t i = from; i < to; ++i)
      for (GenCombo const& pair : all[i].pairs)
        if (Group const group = std::exchange(groupOf[pair.dstLabel().value()], {}); group.sets > 0)
          pieces.add(group.hash, group.sets);
  }
  return pieces.distinct();
}

}  // namespace Naxel
