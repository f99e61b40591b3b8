#pragma once

/// The range split: cuts the number line of one field into elementary ranges such that every value
/// of an elementary range lies in exactly the same range sets (RangeSweep.h). The frame (reads, writes,
/// skips, fails, order) is that of XformSmBase.

#include "naxel/xform/RangeSweep.h"
#include "naxel/xform/XformSmBase.h"

namespace Naxel {

class NAXEL_EXPORT RangeSplitSm : public XformSmBase {
 public:
  using GroupMap = Mox::FlatMap<RangeSetElem, Mox::Ptr<GenSetKeyGroup>>;

  RangeSplitSm(Obel::ChipId chipId, Mox::Ptr<RangeSplitConfig> config,
               Mox::Ptr<RangeSplitStatus> status, Mox::Ptr<ChipHwCapability const> hwCapability);

  RangeSplitConfig const& rangeSplitConfig() const { return configAs<RangeSplitConfig>(); }
  RangeSplitStatus& rangeSplitStatus() const { return *status_; }

  /// The boundary points of the last run, ascending, put together for the caller.
  std::vector<RangePointInfo> const& rangePointInfo() const { return points().points; }
  /// The point of that value, made without keys if absent.
  RangePointInfo const& rangePointInfoIs(uint16_t point);
  bool rangePointInfoHas(uint16_t point) const;
  void rangePointInfoDel(uint16_t point);
  void rangePointInfoDelAll() { points_.emplace(); }
  /// Each elementary range of the last run with its group, put together for the caller.
  GroupMap const& rangeElemToGenSetGrp() const { return groupMap(); }
  void rangeElemToGenSetGrpIs(RangeSetElem const& e, Mox::Ptr<GenSetKeyGroup> group) {
    groupMap().set(e, std::move(group));
  }
  void rangeElemToGenSetGrpDel(RangeSetElem const& e) { groupMap().erase(e); }
  void rangeElemToGenSetGrpDelAll() { rangeElemToGenSetGrp_.emplace(); }

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
  void doClearGroups() override;
  void doClearLabels() override { status_->rangeToPlainLabelMapIs({}); }

 private:
  RangeSets sets() const;
  std::optional<RangePieces> changedPieces(RangeSets const& sets) const;
  RangePoints& points() const;
  GroupMap& groupMap() const;

  Mox::Ptr<RangeSplitStatus> status_;
  std::vector<RangeSplitStatus::LabelMap::value_type> items_;  // of the run at hand
  RangeSets sets_;                                             // of the last run
  RangeCuts cuts_;
  // What has been asked for of the last run.
  mutable std::optional<RangePoints> points_ = RangePoints();
  mutable std::optional<GroupMap> rangeElemToGenSetGrp_;
};
NAXEL_EXPORT Mox::Ptr<RangeSplitSm> rangeSplitSmFactory(
    Obel::ChipId chipId, Mox::Ptr<RangeSplitConfig> config, Mox::Ptr<RangeSplitStatus> status,
    Mox::Ptr<ChipHwCapability const> hwCapability);

}  // namespace Naxel
