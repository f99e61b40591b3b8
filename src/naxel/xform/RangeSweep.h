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
/// Cost. Sorting the points; between two elements only the sets count that come and go (PieceLabels.h).

#include "naxel/genset/GenSet.h"
#include "naxel/xform/PieceCount.h"
#include "naxel/xform/PieceOverlay.h"

#include <functional>
#include <optional>

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

/// By ascending key.
using RangeSets = std::vector<Mox::Ptr<RangeSet const>>;

/// A value that ranges of sets begin with or stand right before, and how many do, those of one set that overlap
/// taken for one.
struct RangeCut {
  uint32_t value;  // up to 65536
  uint32_t ranges;
  friend bool operator==(RangeCut const&, RangeCut const&) = default;
};
/// Ascending.
using RangeCuts = std::vector<RangeCut>;

/// The pieces: each elementary range with the sets that hold its values.
struct RangePieces : Pieces<RangeSetElem> {
  RangeCuts cuts;
};

RangePoints rangePoints(RangeSets const& sets);

/// Is told of the sweep's steps, in their order; for traces.
struct SweepSteps {
  std::function<void(uint32_t point)> point;
  std::function<void(uint32_t first, uint32_t last)> piece;
};

/// All pieces; none where they exceed the limit.
std::optional<RangePieces> sweepRanges(RangeSets const& sets, PieceCount const& limit,
                                       SweepSteps const* steps = nullptr);

/// The pieces after a change: those before it, the sets that have gone, the pieces of those that have come, and
/// where sets stand now. None where they exceed the limit. O(pieces).
struct RangeChange {
  std::vector<std::pair<RangeSetElem, PlainLabel>> const& old;
  RangeCuts const& cuts;
  PieceGroups const& groups;
  RangeSets const& removed;
  RangePieces const& added;
  SetMoves const& moves;
};
std::optional<RangePieces> changeRanges(RangeChange const& change, PieceCount const& limit);

/// How many distinct groups the pieces have, and how many sets are in them, found without keeping any.
PieceCount countRangePieces(RangeSets const& sets);

}  // namespace Naxel
