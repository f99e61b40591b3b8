#include "naxel/xform/NaxelRangeSplitSm.h"

#include "mox/Assert.h"
#include "naxel/genset/FieldNames.h"
#include "naxel/types/NaxelTrace.h"
#include "naxel/xform/PieceGroups.h"

#include <algorithm>
#include <utility>

namespace Naxel {

namespace {

/// The sets that become active and those that cease to be, since the last element.
class Changes {
 public:
  void add(std::span<GenSetKey const> keys) {
    for (GenSetKey key : keys) changes_.emplace_back(key, 1);
  }
  void remove(std::span<GenSetKey const> keys) {
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
      if (sum != 0) (sum > 0 ? more : less).push_back(changes_[from].first);
    }
    changes_.clear();
  }

 private:
  std::vector<std::pair<GenSetKey, int>> changes_;
};

}  // namespace

std::vector<RangeSetElem> mergeOverlapping(Mox::FlatSet<RangeSetElem> const& ranges) {
  std::vector<RangeSetElem> merged;
  for (RangeSetElem const& r : ranges) {
    if (!merged.empty() && r.first() <= merged.back().last())
      merged.back() = RangeSetElem(merged.back().first(), std::max(merged.back().last(), r.last()));
    else
      merged.push_back(r);
  }
  return merged;
}

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
  return std::ranges::lower_bound(rangePointInfo_, point, {}, &RangePointInfo::point);
}

bool RangeSplitSm::rangePointInfoHas(uint16_t point) const {
  auto const at = placeOf(point);
  return at != rangePointInfo_.end() && at->point() == point;
}

RangePointInfo const& RangeSplitSm::rangePointInfoIs(uint16_t point) {
  auto const at = placeOf(point);
  if (at != rangePointInfo_.end() && at->point() == point) return *at;
  return *rangePointInfo_.emplace(at, point, RangePointInfo::Keys(), RangePointInfo::Keys());
}

void RangeSplitSm::rangePointInfoDel(uint16_t point) {
  if (rangePointInfoHas(point)) rangePointInfo_.erase(placeOf(point));
}

void RangeSplitSm::doBuildWorkingSet() {
  traceStep(8, "doBuildWorkingSet");
  workingSetIsKeysOf(rangeSplitConfig().aggregatorInfo()->rangeSetColl());
}

void RangeSplitSm::doCreateRangePoints() {
  traceStep(8, "doCreateRangePoints");
  struct Boundary {
    uint32_t place;  // the point, and within it starts before ends
    GenSetKey key;
  };
  std::vector<Boundary> boundaries;
  for (auto const& [key, set] : rangeSplitConfig().aggregatorInfo()->rangeSetColl())
    for (RangeSetElem const& r : mergeOverlapping(set->range())) {
      boundaries.push_back({uint32_t{r.first()} << 1, key});
      boundaries.push_back({uint32_t{r.last()} << 1 | 1, key});
    }
  // Stable, so that the keys of a place stay ascending.
  std::stable_sort(boundaries.begin(), boundaries.end(),
                   [](Boundary const& a, Boundary const& b) { return a.place < b.place; });
  rangePointInfoDelAll();
  pointKeys_.reserve(boundaries.size());
  for (Boundary const& b : boundaries) pointKeys_.push_back(b.key);
  size_t at = 0;
  auto const take = [&](uint32_t place) {
    size_t const from = at;
    while (at < boundaries.size() && boundaries[at].place == place) ++at;
    return std::span<GenSetKey const>(pointKeys_).subspan(from, at - from);
  };
  while (at < boundaries.size()) {
    uint32_t const point = boundaries[at].place >> 1;
    auto const start = take(point << 1);
    auto const end = take(point << 1 | 1);
    rangePointInfo_.emplace_back(static_cast<uint16_t>(point), start, end);
  }
}

void RangeSplitSm::doBuildSetGroup() {
  traceStep(8, "doBuildSetGroup");
  doCreateRangePoints();
  rangeElemToGenSetGrpDelAll();
  PieceGroups groups(limit());
  PieceGroup currentGenSetKeyGrp;  // of the last element
  Changes since;
  PieceGroups::Keys more;
  PieceGroups::Keys less;
  auto const emit = [&](uint32_t first, uint32_t last) {
    if (auto line = traceStep(6, "doBuildSetGroup"))
      line << " Creating range: ( " << first << ", " << last << " )";
    since.take(more, less);
    currentGenSetKeyGrp = groups.changed(currentGenSetKeyGrp, more, less);
    rangeElemToGenSetGrpIs(RangeSetElem(static_cast<uint16_t>(first), static_cast<uint16_t>(last)),
                           currentGenSetKeyGrp.group);
  };
  size_t active = 0;
  uint32_t openStart = 0;  // may become 65536, behind the last point
  for (RangePointInfo const& p : rangePointInfo_) {
    uint32_t const point = p.point();
    if (auto line = traceStep(6, "doBuildSetGroup")) line << " RangePoint: " << point;
    if (!p.start().empty()) {
      if (active > 0 && point > openStart) emit(openStart, point - 1);
      openStart = point;
      since.add(p.start());
      active += p.start().size();
    }
    if (!p.end().empty()) {
      if (active > 0 && point >= openStart) emit(openStart, point);
      openStart = point + 1;
      since.remove(p.end());
      active -= p.end().size();
    }
    // Beyond the limits the result is unusable anyway, and its size would have no bound.
    if (groups.isExceededBy(std::span(std::as_const(rangeElemToGenSetGrp_.items()))))
      return overflowIs(true);
  }
  MOX_ASSERT_TEXT(active == 0, "currentGenSetKeyGrp->keyGroups() == 0");
}

PieceCount RangeSplitSm::doCountGroups() {
  rangeElemToGenSetGrp_ = {};
  PieceCounter pieces;
  Mox::KeyedSetHash group;
  size_t active = 0;
  uint32_t openStart = 0;
  for (RangePointInfo const& p : rangePointInfo_) {
    uint32_t const point = p.point();
    if (!p.start().empty()) {
      if (active > 0 && point > openStart) pieces.add(group, active);
      openStart = point;
      for (GenSetKey key : p.start()) group.add(key);
      active += p.start().size();
    }
    if (!p.end().empty()) {
      if (active > 0 && point >= openStart) pieces.add(group, active);
      openStart = point + 1;
      for (GenSetKey key : p.end()) group.remove(key);
      active -= p.end().size();
    }
  }
  return pieces.distinct();
}

void RangeSplitSm::doAllocLabels() {
  traceStep(8, "doAllocLabels");
  status_->rangeToPlainLabelMapIs(labelsOf(rangeElemToGenSetGrp_));
}

void RangeSplitSm::doClearOutput() {
  rangePointInfoDelAll();
  rangeElemToGenSetGrpDelAll();
  status_->rangeToPlainLabelMapIs({});
}

Mox::Ptr<RangeSplitSm> rangeSplitSmFactory(Obel::ChipId chipId, Mox::Ptr<RangeSplitConfig> config,
                                           Mox::Ptr<RangeSplitStatus> status,
                                           Mox::Ptr<ChipHwCapability const> hwCapability) {
  return Mox::makePtr<RangeSplitSm>(chipId, std::move(config), std::move(status),
                                    std::move(hwCapability));
}

}  // namespace Naxel
