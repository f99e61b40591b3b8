#pragma once

/// Labels pieces that are met one after the other, each of them another one with some sets more and some less.
/// Pieces of the same sets get the same label: a group is found by a hash that follows the changes, and
/// compared. What became of a large one by which change is remembered. So a piece costs as much as what
/// changes, and the size of its group only where that is a new one.

#include "naxel/xform/PieceCount.h"
#include "naxel/xform/Pieces.h"

#include <limits>
#include <optional>

namespace Naxel {

/// Numbers above 0 by a hash, of which several may have the same one.
class HashIndex {
 public:
  /// The number of that hash for which `same(number)` holds; 0 for none.
  template <class Same>
  uint32_t find(uint64_t hash, Same same) const {
    if (slots_.empty()) return 0;
    for (size_t at = hash & mask();; at = (at + 1) & mask()) {
      Slot const& slot = slots_[at];
      if (slot.number == 0 || (slot.hash == hash && same(slot.number))) return slot.number;
    }
  }
  void add(uint64_t hash, uint32_t number) {
    if (2 * (used_ + 1) > slots_.size()) reserve(2 * used_ + 8);
    place({hash, number});
    ++used_;
  }
  /// Makes room for this many.
  void reserve(size_t n);

 private:
  struct Slot {
    uint64_t hash = 0;
    uint32_t number = 0;  // 0 where the slot is free
  };
  size_t mask() const { return slots_.size() - 1; }
  void place(Slot const& slot) {
    size_t at = slot.hash & mask();
    while (slots_[at].number) at = (at + 1) & mask();
    slots_[at] = slot;
  }

  std::vector<Slot> slots_;  // a power of two many, at most half in use
  size_t used_ = 0;
};

/// The part of a set in the hash of a group, which is the sum over its sets. Nobody outside of the process
/// can tell it.
uint64_t hashOfSet(uint32_t place);

/// Lives for one run of a transform.
class PieceLabels {
 public:
  /// A piece by its label, with the hash of its sets. Label 0 is what no set holds.
  struct Piece {
    uint32_t label = 0;
    uint64_t hash = 0;
  };

  /// The most that a run may need.
  explicit PieceLabels(PieceCount const& limit) : limit_(limit) {}
  /// Makes room for this many pieces.
  void reserve(size_t pieces);

  /// `base` with the sets `more`, none of which it has, and without `less`, all of which it has. Both are
  /// ascending. It has a label also where no set is left.
  Piece changed(Piece const& base, SetPlaces more, SetPlaces less);
  /// The label of the sets that are `base` with `more` and without `less`, by their hash.
  uint32_t labelOf(uint64_t hash, uint32_t base, SetPlaces more, SetPlaces less);
  /// True once the labels need more than the limit.
  bool isExceeded() const { return exceeds({groups_.size(), groups_.memberships()}, limit_); }
  PieceGroups take() { return std::move(groups_); }

 private:
  /// Groups up to this size are put together as quickly as found.
  static constexpr size_t smallSize = 64;
  /// A change, whose sets stand in changes_, and what became of it.
  struct Step {
    uint32_t base;
    uint32_t more;  // where they begin
    uint32_t less;
    uint32_t end;
    uint32_t label;
  };
  void remember(uint64_t hash, uint32_t base, SetPlaces more, SetPlaces less, uint32_t label);

  PieceCount limit_;
  PieceGroups groups_;
  HashIndex labels_;
  HashIndex stepOf_;  // plus 1
  std::vector<Step> steps_;
  std::vector<uint32_t> changes_;
};

}  // namespace Naxel
