#include "naxel/xform/NaxelRangeSplitSm.h"

#include "naxel/genset/FieldNames.h"
#include "naxel/types/NaxelTrace.h"

#include <algorithm>

namespace Naxel {

RangeSplitSm::RangeSplitSm(Obel::ChipId chipId, Mox::Ptr<RangeSplitConfig> config,
                           Mox::Ptr<RangeSplitStatus> status,
                           Mox::Ptr<ChipHwCapability const> hwCapability)
    : XformSmBase(chipId, std::move(config), status, std::move(hwCapability)),
      status_(std::move(status)) {}

uint32_t RangeSplitSm::xformWidth() const {
  return hwCapability()->rangeXformWidth(status_->key());
}

std::string RangeSplitSm::traceStr() const {
  return "RangeSplitSm(" + Mox::stringValue(status_->key()) + ")::";
}

std::string RangeSplitSm::subject() const { return fieldName(status_->key()); }

std::vector<RangePointInfo>::const_iterator RangeSplitSm::placeOf(uint16_t point) const {
  return std::ranges::lower_bound(points_.points, point, {}, &RangePointInfo::point);
}

bool RangeSplitSm::rangePointInfoHas(uint16_t point) const {
  auto const at = placeOf(point);
  return at != points_.points.end() && at->point() == point;
}

RangePointInfo const& RangeSplitSm::rangePointInfoIs(uint16_t point) {
  auto const at = placeOf(point);
  if (at != points_.points.end() && at->point() == point) return *at;
  return *points_.points.emplace(at, point, RangePointInfo::Keys(), RangePointInfo::Keys());
}

void RangeSplitSm::rangePointInfoDel(uint16_t point) {
  if (rangePointInfoHas(point)) points_.points.erase(placeOf(point));
}

void RangeSplitSm::doBuildWorkingSet() {
  traceStep(8, "doBuildWorkingSet");
  workingSetIsKeysOf(rangeSplitConfig().aggregatorInfo()->rangeSetColl());
}

void RangeSplitSm::doCreateRangePoints() {
  traceStep(8, "doCreateRangePoints");
  RangeSetViews sets;
  for (auto const& [key, set] : rangeSplitConfig().aggregatorInfo()->rangeSetColl())
    sets.push_back({key, &set->range()});
  points_ = rangePoints(sets);
}

void RangeSplitSm::doBuildSetGroup() {
  traceStep(8, "doBuildSetGroup");
  doCreateRangePoints();
  SweepSteps const traced{
      [&](uint32_t point) { traceStep(6, "doBuildSetGroup") << " RangePoint: " << point; },
      [&](uint32_t first, uint32_t last) {
        traceStep(6, "doBuildSetGroup") << " Creating range: ( " << first << ", " << last << " )";
      }};
  groupsAre(rangeElemToGenSetGrp_,
            sweepRanges(points_.points, limit(), naxelTrace().on(6) ? &traced : nullptr));
}

PieceCount RangeSplitSm::doCountGroups() { return countRangePieces(points_.points); }

void RangeSplitSm::doAllocLabels() {
  traceStep(8, "doAllocLabels");
  status_->rangeToPlainLabelMapIs(labelsOf(rangeElemToGenSetGrp_));
}

void RangeSplitSm::doClearLabels() {
  rangePointInfoDelAll();
  status_->rangeToPlainLabelMapIs({});
}

Mox::Ptr<RangeSplitSm> rangeSplitSmFactory(Obel::ChipId chipId, Mox::Ptr<RangeSplitConfig> config,
                                           Mox::Ptr<RangeSplitStatus> status,
                                           Mox::Ptr<ChipHwCapability const> hwCapability) {
  return Mox::makePtr<RangeSplitSm>(chipId, std::move(config), std::move(status),
                                    std::move(hwCapability));
}

}  // namespace Naxel
