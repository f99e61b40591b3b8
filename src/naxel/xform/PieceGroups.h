#pragma once

/// The groups of pieces that are met one after the other, each of them another one with some sets more
/// and some less. Groups are interned; what became of a large one by which change is remembered. So a
/// piece costs as much as what changes, and the size of its group only where that is a new one.

#include "naxel/genset/KeyGroupInterner.h"
#include "naxel/xform/PieceCounter.h"

#include <span>

namespace Naxel {

/// A group with its hash, which follows the changes.
struct PieceGroup {
  Mox::Ptr<GenSetKeyGroup> group;
  Mox::KeyedSetHash hash;
};

/// A change, by the identity of the groups; null for none.
struct PieceGroupStep {
  GenSetKeyGroup const* base = nullptr;
  GenSetKeyGroup const* more = nullptr;
  GenSetKeyGroup const* less = nullptr;
  bool operator==(PieceGroupStep const&) const = default;
  void placeWords(Mox::KeyedHash& h) const noexcept {
    for (GenSetKeyGroup const* g : {base, more, less}) Mox::placeWords(h, g);
  }
};

/// Lives for one run of a transform.
class PieceGroups {
 public:
  using Keys = std::vector<GenSetKey>;
  using Group = Mox::Ptr<GenSetKeyGroup>;

  /// The most that a run may need.
  explicit PieceGroups(PieceCount const& limit = {}) : limit_(limit) {}

  KeyGroupInterner& interner() { return interner_; }
  /// `base` with the keys `more`, none of which it has, and without `less`, all of which it has. Both
  /// are ascending. Of two changes to one base that differ so do the results.
  PieceGroup changed(PieceGroup const& base, Keys const& more, Keys const& less);
  /// True once these pieces need more than the limit. For pieces that only grow in number.
  template <class Item>
  bool isExceededBy(std::span<std::pair<Item, Group> const> pieces) {
    // Groups are interned, so those that were made include all that are in use.
    if (!exceeds({interner_.size(), interner_.memberships()}, limit_)) return false;
    for (; counted_ < pieces.size(); ++counted_) {
      GenSetKeyGroup const* const group = pieces[counted_].second.get();
      if (distinct_.insert(group)) inUse_.memberships += group->keyGroups();
    }
    inUse_.pieces = distinct_.size();
    return exceeds(inUse_, limit_);
  }

 private:
  /// Groups up to this size are put together as quickly as found.
  static constexpr size_t smallSize = 64;

  PieceCount limit_;
  KeyGroupInterner interner_;
  Mox::HashMap<PieceGroupStep, Group> known_;
  Mox::HashSet<GenSetKeyGroup const*> distinct_;  // of the pieces before counted_
  size_t counted_ = 0;
  PieceCount inUse_;
  Keys kept_;
  Keys united_;
};

}  // namespace Naxel
