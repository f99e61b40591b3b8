#include "naxel/xform/RangeSweep.h"

#include "mox/Assert.h"
#include "naxel/xform/PieceCounter.h"
#include "naxel/xform/PieceLabels.h"

#include <algorithm>

namespace Naxel {

namespace {

/// Where a set begins or ends: the point, whether it ends there, and the set, from the highest bits down. So
/// boundaries in ascending order have the starts at a point before the ends there, and these by set.
class Boundary {
 public:
  Boundary(uint32_t point, bool isEnd, uint32_t set)
      : word_(uint64_t{point} << 33 | uint64_t{isEnd} << 32 | set) {}
  uint32_t point() const { return static_cast<uint32_t>(word_ >> 33); }
  bool isEnd() const { return word_ >> 32 & 1; }
  uint32_t set() const { return static_cast<uint32_t>(word_); }
  auto operator<=>(Boundary const&) const = default;

 private:
  uint64_t word_;
};
using Boundaries = std::vector<Boundary>;

Boundaries boundariesOf(RangeSets const& sets) {
  size_t size = 0;
  for (auto const& set : sets) size += 2 * set->range().size();
  Boundaries out;
  out.reserve(size);
  uint32_t number = 0;
  for (auto const& set : sets) {
    std::vector<RangeSetElem> const& all = set->range().items();
    for (size_t i = 0; i < all.size();) {
      // The ranges come ascending by their first value, so one that overlaps any before it overlaps those
      // that have been merged.
      uint32_t const first = all[i].first();
      uint32_t last = all[i].last();
      for (++i; i < all.size() && all[i].first() <= last; ++i)
        last = std::max<uint32_t>(last, all[i].last());
      out.emplace_back(first, false, number);
      out.emplace_back(last, true, number);
    }
    ++number;
  }
  std::sort(out.begin(), out.end());
  return out;
}

RangeCuts cutsOf(Boundaries const& boundaries) {
  RangeCuts cuts;
  cuts.reserve(boundaries.size());
  for (Boundary const& b : boundaries) {
    uint32_t const value = b.point() + b.isEnd();
    if (cuts.empty() || cuts.back().value != value) cuts.push_back({value, 0});
    ++cuts.back().ranges;
  }
  return cuts;
}

/// The sweep itself: calls `starts(set)` and `ends(set)` where sets begin and end, and `piece(first, last)`
/// for each elementary range before the change at its end is made; `visit(point)` returns false to stop.
template <class Visit, class Piece, class Starts, class Ends>
void sweep(Boundaries const& boundaries, Visit visit, Piece piece, Starts starts, Ends ends) {
  size_t active = 0;
  uint32_t openStart = 0;  // may become 65536, behind the last point
  for (auto at = boundaries.begin(); at != boundaries.end();) {
    uint32_t const point = at->point();
    if (!visit(point)) return;
    auto const here = [&](bool end) {
      return at != boundaries.end() && at->point() == point && at->isEnd() == end;
    };
    if (here(false)) {
      // What lies before the point is closed with the sets as they are, before those that begin here come
      // in.
      if (active > 0 && point > openStart) piece(openStart, point - 1);
      openStart = point;
      for (; here(false); ++at, ++active) starts(at->set());
    }
    if (here(true)) {
      if (active > 0 && point >= openStart) piece(openStart, point);
      // The end is inclusive, so the next piece begins behind it.
      openStart = point + 1;
      for (; here(true); ++at, --active) ends(at->set());
    }
  }
  // Every start has its end.
  MOX_ASSERT_TEXT(active == 0, "currentGenSetKeyGrp->keyGroups() == 0");
}

/// The sets that are active, and how they differ from those of the last piece.
class ActiveSets {
 public:
  explicit ActiveSets(size_t sets) : now_(sets), then_(sets) {}
  void change(uint32_t set, bool active) {
    now_[set] = active;
    changed_.push_back(set);
  }
  /// The sets that have come and those that have gone; then there are none.
  void take(std::vector<uint32_t>& more, std::vector<uint32_t>& less) {
    std::ranges::sort(changed_);
    more.clear();
    less.clear();
    for (uint32_t set : changed_) {
      // A set may end and begin again between two pieces, where two of its ranges touch.
      if (now_[set] == then_[set]) continue;
      then_[set] = now_[set];
      (now_[set] ? more : less).push_back(set);
    }
    changed_.clear();
  }

 private:
  std::vector<uint8_t> now_;
  std::vector<uint8_t> then_;
  std::vector<uint32_t> changed_;
};

}  // namespace

RangePoints rangePoints(RangeSets const& sets) {
  Boundaries const boundaries = boundariesOf(sets);
  RangePoints out;
  out.keys.reserve(boundaries.size());
  for (Boundary const& b : boundaries) out.keys.push_back(sets[b.set()]->key());
  size_t at = 0;
  auto const take = [&](uint32_t point, bool end) {
    size_t const from = at;
    while (at < boundaries.size() && boundaries[at].point() == point &&
           boundaries[at].isEnd() == end)
      ++at;
    return RangePointInfo::Keys(out.keys).subspan(from, at - from);
  };
  while (at < boundaries.size()) {
    uint32_t const point = boundaries[at].point();
    auto const start = take(point, false);
    auto const end = take(point, true);
    out.points.emplace_back(static_cast<uint16_t>(point), start, end);
  }
  return out;
}

std::optional<RangePieces> sweepRanges(RangeSets const& sets, PieceCount const& limit,
                                       SweepSteps const* steps) {
  Boundaries const boundaries = boundariesOf(sets);
  RangePieces pieces;
  pieces.items.reserve(boundaries.size());
  PieceLabels labels(limit);
  labels.reserve(std::min(boundaries.size(), limit.pieces));
  PieceLabels::Piece current;  // the last one
  ActiveSets active(sets.size());
  std::vector<uint32_t> more;
  std::vector<uint32_t> less;
  sweep(
      boundaries,
      [&](uint32_t point) {
        // Beyond the limits the result is unusable anyway, and its size would have no bound.
        if (labels.isExceeded()) return false;
        if (steps) steps->point(point);
        return true;
      },
      [&](uint32_t first, uint32_t last) {
        if (steps) steps->piece(first, last);
        active.take(more, less);
        current = labels.changed(current, more, less);
        pieces.items.emplace_back(RangeSetElem(first, last), PlainLabel(current.label));
      },
      [&](uint32_t set) { active.change(set, true); },
      [&](uint32_t set) { active.change(set, false); });
  if (labels.isExceeded()) return std::nullopt;
  pieces.groups = labels.take();
  pieces.cuts = cutsOf(boundaries);
  return pieces;
}

namespace {

/// Of the pieces that are met in natural order, the one that holds a value.
class PieceAt {
 public:
  explicit PieceAt(std::vector<std::pair<RangeSetElem, PlainLabel>> const& items)
      : at_(items.begin()), end_(items.end()) {}
  /// Its label; 0 for none. Values come ascending.
  uint32_t label(uint32_t value) {
    while (at_ != end_ && at_->first.last() < value) ++at_;
    return at_ != end_ && at_->first.first() <= value ? at_->second.value() : 0;
  }

 private:
  std::vector<std::pair<RangeSetElem, PlainLabel>>::const_iterator at_;
  std::vector<std::pair<RangeSetElem, PlainLabel>>::const_iterator end_;
};

/// Those of `a`, with those of `b` added `by` times.
RangeCuts joined(RangeCuts const& a, RangeCuts const& b, uint32_t by) {
  RangeCuts out;
  out.reserve(a.size() + b.size());
  for (auto i = a.begin(), j = b.begin(); i != a.end() || j != b.end();) {
    bool const isA = i != a.end() && (j == b.end() || i->value <= j->value);
    bool const isB = j != b.end() && (!isA || i->value == j->value);
    RangeCut const cut{isA ? i->value : j->value,
                       (isA ? i->ranges : 0) + (isB ? by * j->ranges : 0)};
    if (isA) ++i;
    if (isB) ++j;
    if (cut.ranges) out.push_back(cut);
  }
  return out;
}

}  // namespace

std::optional<RangePieces> changeRanges(RangeChange const& change, PieceCount const& limit) {
  RangePieces pieces;
  // Taking the largest number times takes once away: arithmetic wraps.
  pieces.cuts = joined(joined(change.cuts, change.added.cuts, 1),
                       cutsOf(boundariesOf(change.removed)), ~uint32_t{0});
  PieceOverlay overlay(change.groups, change.added.groups, change.moves, limit);
  pieces.items.reserve(pieces.cuts.size());
  PieceAt old(change.old);
  PieceAt added(change.added.items);
  for (size_t i = 0; i + 1 < pieces.cuts.size(); ++i) {
    uint32_t const first = pieces.cuts[i].value;
    uint32_t const oldLabel = old.label(first);
    uint32_t const addedLabel = added.label(first);
    if (overlay.isEmpty(oldLabel, addedLabel)) continue;
    pieces.items.emplace_back(RangeSetElem(first, pieces.cuts[i + 1].value - 1),
                              overlay.label(oldLabel, addedLabel));
    if (overlay.isExceeded()) return std::nullopt;
  }
  pieces.groups = overlay.take();
  return pieces;
}

PieceCount countRangePieces(RangeSets const& sets) {
  PieceCounter pieces;
  uint64_t group = 0;
  size_t size = 0;
  sweep(
      boundariesOf(sets), [](uint32_t) { return true; },
      [&](uint32_t, uint32_t) { pieces.add(group, size); },
      [&](uint32_t set) {
        group += hashOfSet(set);
        ++size;
      },
      [&](uint32_t set) {
        group -= hashOfSet(set);
        --size;
      });
  return pieces.distinct();
}

}  // namespace Naxel
