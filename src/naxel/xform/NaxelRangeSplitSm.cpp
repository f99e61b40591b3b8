#include "naxel/xform/NaxelRangeSplitSm.h"

#include "naxel/genset/FieldNames.h"
#include "naxel/types/NaxelTrace.h"

#include <algorithm>
#include <utility>

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

namespace {

auto placeOf(std::vector<RangePointInfo> const& points, uint16_t point) {
  return std::ranges::lower_bound(points, point, {}, &RangePointInfo::point);
}

}  // namespace

bool RangeSplitSm::rangePointInfoHas(uint16_t point) const {
  auto const& all = rangePointInfo();
  auto const at = placeOf(all, point);
  return at != all.end() && at->point() == point;
}

RangePointInfo const& RangeSplitSm::rangePointInfoIs(uint16_t point) {
  auto& all = points().points;
  auto const at = placeOf(all, point);
  if (at != all.end() && at->point() == point) return *at;
  return *all.emplace(at, point, RangePointInfo::Keys(), RangePointInfo::Keys());
}

void RangeSplitSm::rangePointInfoDel(uint16_t point) {
  auto& all = points().points;
  if (rangePointInfoHas(point)) all.erase(placeOf(all, point));
}

RangePoints& RangeSplitSm::points() const {
  if (!points_) points_ = rangePoints(sets());
  return *points_;
}

RangeSplitSm::GroupMap& RangeSplitSm::groupMap() const {
  if (!rangeElemToGenSetGrp_) rangeElemToGenSetGrp_ = groupsOf(status_->rangeToPlainLabelMap());
  return *rangeElemToGenSetGrp_;
}

void RangeSplitSm::doBuildWorkingSet() {
  traceStep(8, "doBuildWorkingSet");
  workingSetIsKeysOf(rangeSplitConfig().aggregatorInfo()->rangeSetColl());
}

RangeSets RangeSplitSm::sets() const {
  return setsOf<RangeSet>(rangeSplitConfig().aggregatorInfo()->rangeSetColl());
}

void RangeSplitSm::doCreateRangePoints() {
  traceStep(8, "doCreateRangePoints");
  points_ = rangePoints(sets());
}

std::optional<RangePieces> RangeSplitSm::changedPieces(RangeSets const& sets) const {
  SetChanges<RangeSet> const changes(sets_, sets);
  auto const added = sweepRanges(changes.added, limit());
  if (!added) return std::nullopt;
  return changeRanges({status_->rangeToPlainLabelMap().items(), cuts_, groups(), changes.removed,
                       *added, changes.moves},
                      limit());
}

void RangeSplitSm::doBuildSetGroup() {
  traceStep(8, "doBuildSetGroup");
  traceStep(8, "doCreateRangePoints");
  RangeSets sets = this->sets();
  if (naxelTrace().on(6)) {
    SweepSteps const traced{
        [&](uint32_t point) { traceStep(6, "doBuildSetGroup") << " RangePoint: " << point; },
        [&](uint32_t first, uint32_t last) {
          traceStep(6, "doBuildSetGroup") << " Creating range: ( " << first << ", " << last << " )";
        }};
    sweepRanges(sets, limit(), &traced);
  }
  auto pieces = hasBasis() ? changedPieces(sets) : sweepRanges(sets, limit());
  doClearGroups();
  if (!pieces) return overflowIs(true);
  sets_ = std::move(sets);
  cuts_ = std::move(pieces->cuts);
  items_ = groupsAre(std::move(*pieces));
}

PieceCount RangeSplitSm::doCountGroups() { return countRangePieces(sets()); }

void RangeSplitSm::doAllocLabels() {
  traceStep(8, "doAllocLabels");
  RangeSplitStatus::LabelMap labels;
  labels.adopt(std::exchange(items_, {}));
  status_->rangeToPlainLabelMapIs(std::move(labels));
  // From here on they are those of the labels, for whoever asks.
  points_.reset();
  rangeElemToGenSetGrp_.reset();
}

void RangeSplitSm::doClearGroups() {
  XformSmBase::doClearGroups();
  items_ = {};
  sets_ = {};
  cuts_ = {};
  points_.emplace();
  rangeElemToGenSetGrp_.emplace();
}

Mox::Ptr<RangeSplitSm> rangeSplitSmFactory(Obel::ChipId chipId, Mox::Ptr<RangeSplitConfig> config,
                                           Mox::Ptr<RangeSplitStatus> status,
                                           Mox::Ptr<ChipHwCapability const> hwCapability) {
  return Mox::makePtr<RangeSplitSm>(chipId, std::move(config), std::move(status),
                                    std::move(hwCapability));
}

}  // namespace Naxel
