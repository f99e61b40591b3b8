#pragma once

/// Pieces after a change of some sets, from those before it.
///
/// Idea. Whether a set holds a piece depends on that set alone. So the sets that have come are cut by
/// themselves; and what lies in an old piece and in one of theirs is held by the sets of the former, without
/// those that have gone, together with the sets of the latter. Which two these are is found by one walk over
/// both in natural order.
///
/// Example. 10.0.0.0/8 {A} and 10.1.0.0/16 {A, B}, and B = {10.1.0.0/16} gives way to C = {10.0.0.0/9}:
/// 10.0.0.0/8 lies in {A} and nothing new, 10.0.0.0/9 in the old {A} and the new {C}, and 10.1.0.0/16 is named
/// by nobody any more.
///
/// Invariants. The result is that of a cut of all sets, labels included, because these are numbered in the
/// order in which the walk meets them. Old groups that differ in sets that have gone alone become one.
///
/// Cost. A few steps for each old piece, and one for each set in an old group where sets have gone, in place of
/// sorting, finding groups by their content and comparing it.

#include "mox/HashMap.h"
#include "mox/Ptr.h"
#include "naxel/xform/PieceCount.h"
#include "naxel/xform/Pieces.h"

namespace Naxel {

/// Where sets stand among those that are there now.
struct SetMoves {
  static constexpr uint32_t gone = ~uint32_t{0};
  std::vector<uint32_t> old;    // by their old places, ascending but for those that have gone
  std::vector<uint32_t> added;  // by their places among the added sets, ascending
};

/// The sets of a run beside those of the run before, both by ascending key. A set is told by its object: what
/// is another object under the same key has gone and come.
template <class Set>
struct SetChanges {
  using Sets = std::vector<Mox::Ptr<Set const>>;

  SetChanges(Sets const& old, Sets const& now) {
    moves.old.reserve(old.size());
    auto at = old.begin();
    auto const goneBefore = [&](auto isBehind) {
      for (; at != old.end() && !isBehind(**at); ++at) {
        moves.old.push_back(SetMoves::gone);
        removed.push_back(*at);
      }
    };
    uint32_t place = 0;
    for (auto const& set : now) {
      goneBefore([&](Set const& o) { return o.key() >= set->key(); });
      if (at != old.end() && *at == set) {
        moves.old.push_back(place);
        ++at;
      } else {
        moves.added.push_back(place);
        added.push_back(set);
      }
      ++place;
    }
    goneBefore([](Set const&) { return false; });
  }

  SetMoves moves;
  Sets removed;
  Sets added;
};

/// Labels what lies in an old piece and in one of the added sets.
class PieceOverlay {
 public:
  /// Refers to all but the limit.
  PieceOverlay(PieceGroups const& old, PieceGroups const& added, SetMoves const& moves,
               PieceCount const& limit);

  /// The label of what lies in these two; 0 for in no piece.
  PlainLabel label(uint32_t old, uint32_t added) {
    uint32_t& known = came_[added] ? both(left_[old], added) : alone_[left_[old]];
    if (!known) known = make(left_[old], added);
    return PlainLabel(known);
  }
  /// Whether no set holds it.
  bool isEmpty(uint32_t old, uint32_t added) const { return !left_[old] && !came_[added]; }
  /// True once the labels need more than the limit.
  bool isExceeded() const { return exceeds({groups_.size(), groups_.memberships()}, limit_); }
  PieceGroups take() { return std::move(groups_); }

 private:
  void findLeft();
  uint32_t make(uint32_t old, uint32_t added);
  uint32_t& both(uint32_t old, uint32_t added) { return both_.at(uint64_t{old} << 32 | added); }

  PieceGroups const& old_;
  PieceGroups const& added_;
  SetMoves const& moves_;
  PieceCount limit_;
  std::vector<uint32_t>
      left_;  // by old label, the one that stands for the sets that are left; 0 for none
  std::vector<uint8_t> came_;  // by added label, whether it has a set
  std::vector<uint32_t>
      alone_;  // by old label in left_, the new label without added sets; 0 until it is met
  Mox::HashMap<uint64_t, uint32_t> both_;  // the same with added sets
  PieceGroups groups_;
};

}  // namespace Naxel
