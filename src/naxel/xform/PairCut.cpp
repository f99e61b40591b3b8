#include "naxel/xform/PairCut.h"

#include "mox/KeyedHash.h"
#include "naxel/xform/PieceCounter.h"
#include "naxel/xform/PieceLabels.h"

#include <algorithm>
#include <utility>

namespace Naxel {

namespace {

/// Groups under refinement.
class GroupChains {
 public:
  static constexpr uint32_t root = 0;  // the group without sets

  /// The group that extends `group` by `set`, which is above all of its sets; the same one for the same two.
  uint32_t extend(uint32_t group, uint32_t set) {
    uint64_t const hash = Mox::KeyedHash::ofWord(uint64_t{group} << 32 | set);
    uint32_t id = index_.find(hash, [&](uint32_t known) {
      return chains_[known].parent == group && chains_[known].set == set;
    });
    if (id) return id;
    id = static_cast<uint32_t>(chains_.size());
    chains_.push_back({group, set, 0});
    index_.add(hash, id);
    return id;
  }
  /// The label of a group. Sets join in ascending order, so groups of the same sets are one.
  uint32_t label(uint32_t group, PieceGroups& groups) {
    uint32_t& label = chains_[group].label;
    if (label) return label;
    sets_.clear();
    for (uint32_t at = group; at != root; at = chains_[at].parent) sets_.push_back(chains_[at].set);
    std::ranges::reverse(sets_);
    groups.open(0, sets_, {});
    return label = groups.close();
  }

 private:
  struct Chain {
    uint32_t parent;
    uint32_t set;
    uint32_t label;  // 0 until a piece has brought it
  };
  std::vector<Chain> chains_{Chain()};
  HashIndex index_;
  std::vector<uint32_t> sets_;
};

/// The pairs of one set that share a source label, ascending.
struct SourcePairs {
  PlainLabel src;
  uint32_t set;
  std::span<GenCombo const> pairs;
};

/// Those of all sets by source label, within a label by set.
std::vector<SourcePairs> bySource(PairSets const& sets) {
  std::vector<SourcePairs> out;
  uint32_t number = 0;
  for (auto const& set : sets) {
    std::vector<GenCombo> const& all = set->comboLabel().items();
    for (size_t from = 0, to = 0; from < all.size(); from = to) {
      PlainLabel const src = all[from].srcLabel();
      while (to < all.size() && all[to].srcLabel() == src) ++to;
      out.push_back({src, number, std::span(all).subspan(from, to - from)});
    }
    ++number;
  }
  // Stable, so that the sets of a source label stay in ascending order.
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

std::optional<PairPieces> cutPairs(PairSets const& sets, PieceCount const& limit) {
  std::vector<SourcePairs> const all = bySource(sets);
  GroupChains chains;
  PairPieces pieces;
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
          extended = chains.extend(group, all[to].set);
        }
        group = extended;
      }
    }
    std::sort(dsts.begin(), dsts.end());
    for (uint32_t dst : dsts) {
      uint32_t const id = std::exchange(groupOf[dst], GroupChains::root);
      pieces.items.emplace_back(GenCombo(src, PlainLabel(dst)),
                                PlainLabel(chains.label(id, pieces.groups)));
      // Beyond the limits the result is unusable anyway, and its size would have no bound.
      if (exceeds({pieces.groups.size(), pieces.groups.memberships()}, limit)) return std::nullopt;
    }
    dsts.clear();
  }
  return pieces;
}

std::optional<PairPieces> changePairs(PairChange const& change, PieceCount const& limit) {
  PieceOverlay overlay(change.groups, change.added.groups, change.moves, limit);
  PairPieces pieces;
  pieces.items.reserve(change.old.size() + change.added.items.size());
  auto const& added = change.added.items;
  for (auto i = change.old.begin(), j = added.begin(); i != change.old.end() || j != added.end();) {
    bool const isOld = i != change.old.end() && (j == added.end() || i->first <= j->first);
    bool const isAdded = j != added.end() && (!isOld || i->first == j->first);
    GenCombo const pair = isOld ? i->first : j->first;
    uint32_t const oldLabel = isOld ? (i++)->second.value() : 0;
    uint32_t const addedLabel = isAdded ? (j++)->second.value() : 0;
    // A pair of no set is none.
    if (overlay.isEmpty(oldLabel, addedLabel)) continue;
    pieces.items.emplace_back(pair, overlay.label(oldLabel, addedLabel));
    if (overlay.isExceeded()) return std::nullopt;
  }
  pieces.groups = overlay.take();
  return pieces;
}

PieceCount countPairPieces(PairSets const& sets) {
  std::vector<SourcePairs> const all = bySource(sets);
  PieceCounter pieces;
  struct Group {
    uint64_t hash = 0;
    size_t sets = 0;
  };
  std::vector<Group> groupOf(size_t{lastDestination(all)} + 1);  // by destination label
  for (size_t from = 0, to = 0; from < all.size(); from = to) {
    for (; to < all.size() && all[to].src == all[from].src; ++to) {
      uint64_t const set = hashOfSet(all[to].set);
      for (GenCombo const& pair : all[to].pairs) {
        Group& group = groupOf[pair.dstLabel().value()];
        // The hash of a group is a sum over its sets, so it can follow one set at a time.
        group.hash += set;
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
