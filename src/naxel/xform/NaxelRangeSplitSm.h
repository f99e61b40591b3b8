#pragma once

/// The range split: cuts the number line of one field into elementary ranges such that every value
/// of an elementary range lies in exactly the same range sets (RangeSweep.h). The frame (reads, writes,
/// skips, fails, order) is that of XformSmBase.

#include "naxel/xform/RangeSweep.h"
#include "naxel/xform/XformSmBase.h"

namespace Naxel {

class NAXEL_EXPORT RangeSplitSm : public XformSmBase {
 public:
  using GroupMap = RangePieces;

  RangeSplitSm(Obel::ChipId chipId, Mox::Ptr<RangeSplitConfig> config,
               Mox::Ptr<RangeSplitStatus> status, Mox::Ptr<ChipHwCapability const> hwCapability);

  RangeSplitConfig const& rangeSplitConfig() const { return configAs<RangeSplitConfig>(); }
  RangeSplitStatus& rangeSplitStatus() const { return *status_; }

  /// The boundary points of the last run, ascending.
  std::vector<RangePointInfo> const& rangePointInfo() const { return points_.points; }
  /// The point of that value, made without keys if absent.
  RangePointInfo const& rangePointInfoIs(uint16_t point);
  bool rangePointInfoHas(uint16_t point) const;
  void rangePointInfoDel(uint16_t point);
  void rangePointInfoDelAll() { points_ = {}; }
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
  /// Takes the boundary points of all sets, with overlapping ranges of one set merged before.
  void doCreateRangePoints();

 protected:
  void doClearGroups() override { rangeElemToGenSetGrp_ = {}; }
  void doClearLabels() override;

 private:
  std::vector<RangePointInfo>::const_iterator placeOf(uint16_t point) const;

  Mox::Ptr<RangeSplitStatus> status_;
  RangePoints points_;
  GroupMap rangeElemToGenSetGrp_;
};
NAXEL_EXPORT Mox::Ptr<RangeSplitSm> rangeSplitSmFactory(
    Obel::ChipId chipId, Mox::Ptr<RangeSplitConfig> config, Mox::Ptr<RangeSplitStatus> status,
    Mox::Ptr<ChipHwCapability const> hwCapability);

}  // namespace Naxel
