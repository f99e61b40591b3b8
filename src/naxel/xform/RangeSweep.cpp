#include "naxel/xform/RangeSweep.h"

#include "mox/Assert.h"
#include "naxel/xform/PieceGroups.h"

#include <algorithm>

namespace Naxel {

namespace {

/// The sets that become active and those that cease to be, since the last element.
class Changes {
 public:
  void add(RangePointInfo::Keys keys) {
    for (GenSetKey key : keys) changes_.emplace_back(key, 1);
  }
  void remove(RangePointInfo::Keys keys) {
    for (GenSetKey key : keys) changes_.emplace_back(key, -1);
  }
  /// What is left of them for each set, as `more` and `less`; then there are none.
  void take(PieceGroups::Keys& more, PieceGroups::Keys& less) {
    std::ranges::sort(changes_);
    more.clear();
    less.clear();
    for (size_t from = 0, to = 0; from < changes_.size(); from = to) {
      int sum = 0;
      for (; to < changes_.size() && changes_[to].first == changes_[from].first; ++to)
        sum += changes_[to].second;
      // A set may end and begin again between two elements, where two of its ranges touch.
      if (sum != 0) (sum > 0 ? more : less).push_back(changes_[from].first);
    }
    changes_.clear();
  }

 private:
  std::vector<std::pair<GenSetKey, int>> changes_;
};

/// The sweep itself: calls `starts(point)` and `ends(point)` where sets begin and end, and
/// `piece(first, last)` for each elementary range before the change at its end is made; `visit(point)`
/// returns false to stop. Returns the number of sets that are active at the end.
template <class Visit, class Piece, class Starts, class Ends>
size_t sweep(std::vector<RangePointInfo> const& points, Visit visit, Piece piece, Starts starts,
             Ends ends) {
  size_t active = 0;
  uint32_t openStart = 0;  // may become 65536, behind the last point
  for (RangePointInfo const& p : points) {
    uint32_t const point = p.point();
    if (!visit(p)) return 0;
    if (!p.start().empty()) {
      // What lies before the point is closed with the sets as they are, before those that begin here come
      // in.
      if (active > 0 && point > openStart) piece(openStart, point - 1);
      openStart = point;
      starts(p);
      active += p.start().size();
    }
    if (!p.end().empty()) {
      if (active > 0 && point >= openStart) piece(openStart, point);
      // The end is inclusive, so the next piece begins behind it.
      openStart = point + 1;
      ends(p);
      active -= p.end().size();
    }
  }
  return active;
}

}  // namespace

std::vector<RangeSetElem> mergeOverlapping(Mox::FlatSet<RangeSetElem> const& ranges) {
  std::vector<RangeSetElem> merged;
  for (RangeSetElem const& r : ranges) {
    // The ranges come ascending by their first value, so one that overlaps any before it overlaps the last.
    if (!merged.empty() && r.first() <= merged.back().last())
      merged.back() = RangeSetElem(merged.back().first(), std::max(merged.back().last(), r.last()));
    else
      merged.push_back(r);
  }
  return merged;
}

RangePoints rangePoints(RangeSetViews const& sets) {
  struct Boundary {
    uint32_t place;  // the point, and within it starts before ends
    GenSetKey key;
  };
  std::vector<Boundary> boundaries;
  for (RangeSetView const& set : sets)
    for (RangeSetElem const& r : mergeOverlapping(*set.ranges)) {
      // The lowest bit puts the starts at a point before the ends there.
      boundaries.push_back({uint32_t{r.first()} << 1, set.key});
      boundaries.push_back({uint32_t{r.last()} << 1 | 1, set.key});
    }
  // Stable, so that the keys of a place stay ascending.
  std::stable_sort(boundaries.begin(), boundaries.end(),
                   [](Boundary const& a, Boundary const& b) { return a.place < b.place; });
  RangePoints out;
  out.keys.reserve(boundaries.size());
  for (Boundary const& b : boundaries) out.keys.push_back(b.key);
  size_t at = 0;
  auto const take = [&](uint32_t place) {
    size_t const from = at;
    while (at < boundaries.size() && boundaries[at].place == place) ++at;
    return RangePointInfo::Keys(out.keys).subspan(from, at - from);
  };
  while (at < boundaries.size()) {
    uint32_t const point = boundaries[at].place >> 1;
    auto const start = take(point << 1);
    auto const end = take(point << 1 | 1);
    out.points.emplace_back(static_cast<uint16_t>(point), start, end);
  }
  return out;
}

std::optional<RangePieces> sweepRanges(std::vector<RangePointInfo> const& points,
                                       PieceCount const& limit, SweepSteps const* steps) {
  RangePieces pieces;
  PieceGroups groups(limit);
  PieceGroup current;  // of the last piece
  Changes since;
  PieceGroups::Keys more;
  PieceGroups::Keys less;
  bool exceeded = false;
  size_t const active = sweep(
      points,
      [&](RangePointInfo const& p) {
        // Beyond the limits the result is unusable anyway, and its size would have no bound.
        exceeded = groups.isExceededBy(std::span(std::as_const(pieces).items()));
        if (!exceeded && steps) steps->point(p.point());
        return !exceeded;
      },
      [&](uint32_t first, uint32_t last) {
        if (steps) steps->piece(first, last);
        since.take(more, less);
        current = groups.changed(current, more, less);
        pieces.set(RangeSetElem(first, last), current.group);
      },
      [&](RangePointInfo const& p) { since.add(p.start()); },
      [&](RangePointInfo const& p) { since.remove(p.end()); });
  // Every start has its end, so anything else means that the points are not those of ranges.
  MOX_ASSERT_TEXT(active == 0, "currentGenSetKeyGrp->keyGroups() == 0");
  if (exceeded || groups.isExceededBy(std::span(std::as_const(pieces).items())))
    return std::nullopt;
  return pieces;
}

PieceCount countRangePieces(std::vector<RangePointInfo> const& points) {
  PieceCounter pieces;
  Mox::KeyedSetHash group;
  size_t sets = 0;
  sweep(
      points, [](RangePointInfo const&) { return true; },
      [&](uint32_t, uint32_t) { pieces.add(group, sets); },
      [&](RangePointInfo const& p) {
        for (GenSetKey key : p.start()) group.add(key);
        sets += p.start().size();
      },
      [&](RangePointInfo const& p) {
        for (GenSetKey key : p.end()) group.remove(key);
        sets -= p.end().size();
      });
  return pieces.distinct();
}

}  // namespace Naxel
