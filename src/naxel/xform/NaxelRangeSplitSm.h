#pragma once

/// The range split: cuts the number line of one field into elementary ranges such that every value
/// of an elementary range lies in exactly the same range sets. The frame (reads, writes, skips,
/// fails, order) is that of XformSmBase.
///
/// A sweep over the boundary points in ascending order holds the sets that are active there. Starts
/// are handled before ends at the same point, so ranges that begin and ranges that end at a point
/// are all active on the point itself. A stretch that no range covers yields no element, and
/// neighbouring elements of equal groups stay two elements with one label.
///
/// Example: A = {1-10}, B = {5-20} gives 1-4 {A}, 5-10 {A, B} and 11-20 {B}.
///
/// Overlapping ranges of one and the same set are merged before the sweep, because a set is active
/// or not: without that the end of the first would deactivate the second. Ranges that only touch
/// stay apart.
///
/// Cost: between two elements only the sets count that come and go (PieceGroups.h).

#include "naxel/xform/XformSmBase.h"

#include <span>

namespace Naxel {

/// One boundary point of the number line. The keys stand in an array of the stage.
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

/// The ranges of a set with those that overlap merged, ascending.
std::vector<RangeSetElem> mergeOverlapping(Mox::FlatSet<RangeSetElem> const& ranges);

class NAXEL_EXPORT RangeSplitSm : public XformSmBase {
 public:
  using GroupMap = Mox::FlatMap<RangeSetElem, Mox::Ptr<GenSetKeyGroup>>;

  RangeSplitSm(Obel::ChipId chipId, Mox::Ptr<RangeSplitConfig> config,
               Mox::Ptr<RangeSplitStatus> status, Mox::Ptr<ChipHwCapability const> hwCapability);

  RangeSplitConfig const& rangeSplitConfig() const { return configAs<RangeSplitConfig>(); }
  RangeSplitStatus& rangeSplitStatus() const { return *status_; }

  /// The boundary points of the last run, ascending.
  std::vector<RangePointInfo> const& rangePointInfo() const { return rangePointInfo_; }
  /// The point of that value, made without keys if absent.
  RangePointInfo const& rangePointInfoIs(uint16_t point);
  bool rangePointInfoHas(uint16_t point) const;
  void rangePointInfoDel(uint16_t point);
  void rangePointInfoDelAll() {
    rangePointInfo_.clear();
    pointKeys_.clear();
  }
  /// Each elementary range of the last run with its group.
  GroupMap const& rangeElemToGenSetGrp() const { return rangeElemToGenSetGrp_; }
  void rangeElemToGenSetGrpIs(RangeSetElem const& e, Mox::Ptr<GenSetKeyGroup> group) {
    rangeElemToGenSetGrp_.set(e, std::move(group));
  }
  void rangeElemToGenSetGrpDel(RangeSetElem const& e) { rangeElemToGenSetGrp_.erase(e); }
  void rangeElemToGenSetGrpDelAll() { rangeElemToGenSetGrp_.clear(); }

  void doBuildWorkingSet() override;
  void doBuildSetGroup() override;
  PieceCount doCountGroups() override;
  void doAllocLabels() override;
  uint32_t xformWidth() const override;
  std::string traceStr() const override;
  std::string subject() const override;
  void doCreateRangePoints();

 protected:
  void doClearOutput() override;

 private:
  std::vector<RangePointInfo>::const_iterator placeOf(uint16_t point) const;

  Mox::Ptr<RangeSplitStatus> status_;
  std::vector<RangePointInfo> rangePointInfo_;
  std::vector<GenSetKey> pointKeys_;  // what they refer to
  GroupMap rangeElemToGenSetGrp_;
};
NAXEL_EXPORT Mox::Ptr<RangeSplitSm> rangeSplitSmFactory(
    Obel::ChipId chipId, Mox::Ptr<RangeSplitConfig> config, Mox::Ptr<RangeSplitStatus> status,
    Mox::Ptr<ChipHwCapability const> hwCapability);

}  // namespace Naxel
