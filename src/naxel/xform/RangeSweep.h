#pragma once

/// Cuts the number line of one field into elementary ranges such that every value of an elementary range lies
/// in exactly the same range sets.
///
/// Idea. A sweep over the boundary points in ascending order holds the sets that are active there. Starts are
/// handled before ends at the same point, so ranges that begin and ranges that end at a point are all active
/// on the point itself.
///
/// Example. A = {1-10}, B = {5-20} gives 1-4 {A}, 5-10 {A, B} and 11-20 {B}.
///
/// Invariants. A stretch that no range covers yields no element. Neighbouring elements of equal groups stay
/// two elements. Overlapping ranges of one and the same set are merged before the sweep, because a set is
/// active or not: without that the end of the first would deactivate the second. Ranges that only touch stay
/// apart.
///
/// Cost. Sorting the points; between two elements only the sets count that come and go (PieceGroups.h).

#include "naxel/genset/GenSet.h"
#include "naxel/xform/PieceCount.h"

#include <functional>
#include <optional>
#include <span>

namespace Naxel {

/// One boundary point of the number line. The keys stand in an array beside it.
class RangePointInfo {
 public:
  using Keys = std::span<GenSetKey const>;
  RangePointInfo(uint16_t point, Keys start, Keys end) : point_(point), start_(start), end_(end) {}

  uint16_t point() const { return point_; }
  /// The sets with a range that begins here, ascending.
  Keys start() const { return start_; }
  /// The sets with a range that ends here, inclusive.
  Keys end() const { return end_; }

 private:
  uint16_t point_;
  Keys start_;
  Keys end_;
};

/// The boundary points, ascending, and the keys that they refer to.
struct RangePoints {
  std::vector<GenSetKey> keys;
  std::vector<RangePointInfo> points;
};

/// A set as the sweep reads it.
struct RangeSetView {
  GenSetKey key;
  Mox::FlatSet<RangeSetElem> const* ranges;
};
/// By ascending key.
using RangeSetViews = std::vector<RangeSetView>;

/// The pieces: each elementary range with the sets that hold its values.
using RangePieces = Mox::FlatMap<RangeSetElem, Mox::Ptr<GenSetKeyGroup>>;

/// The ranges of a set with those that overlap merged, ascending.
std::vector<RangeSetElem> mergeOverlapping(Mox::FlatSet<RangeSetElem> const& ranges);

RangePoints rangePoints(RangeSetViews const& sets);

/// Is told of the sweep's steps, in their order; for traces.
struct SweepSteps {
  std::function<void(uint32_t point)> point;
  std::function<void(uint32_t first, uint32_t last)> piece;
};

/// All pieces; none where they exceed the limit. Ends the process where the points are not those of ranges,
/// so that a set stays active behind the last.
std::optional<RangePieces> sweepRanges(std::vector<RangePointInfo> const& points,
                                       PieceCount const& limit, SweepSteps const* steps = nullptr);

/// How many distinct groups the pieces have, and how many sets are in them, found without keeping any.
PieceCount countRangePieces(std::vector<RangePointInfo> const& points);

}  // namespace Naxel
