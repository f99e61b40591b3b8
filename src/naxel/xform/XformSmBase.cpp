#include "naxel/xform/XformSmBase.h"

#include "mox/Assert.h"
#include "naxel/types/NaxelTrace.h"

namespace Naxel {

XformSmBase::XformSmBase(Obel::ChipId chipId, Mox::Ptr<StageConfig> config,
                         Mox::Ptr<StageStatus> status,
                         Mox::Ptr<ChipHwCapability const> hwCapability)
    : StageSm(chipId, std::move(config), std::move(status)),
      hwCapability_(std::move(hwCapability)),
      xformStatus_(dynamic_cast<XformStatus*>(StageSm::status().get())) {
  handleInitialized();
}

void XformSmBase::handleInitialized() {
  if (auto line = trace(8)) line << "handleInitialized";
  xformSetGroupDeduperIs();
}

Mox::Ptr<GenSetKeyGroupDeduper> const& XformSmBase::xformSetGroupDeduperIs() {
  if (!xformSetGroupDeduper_) xformSetGroupDeduper_ = Mox::makePtr<GenSetKeyGroupDeduper>();
  return xformSetGroupDeduper_;
}

Mox::TraceLine XformSmBase::traceStep(int level, char const* step) const {
  Mox::TraceLine line = trace(level);
  if (line) line << traceStr() << step;
  return line;
}

void XformSmBase::doStartKick() {
  traceStep(8, "doStartKick");
  doRunStage();
}

StageSm::Look XformSmBase::doLook() {
  if (xformWidth() == 0) {
    traceStep(2, "doStartKick") << ": Xform not enabled";
    return {Look::At::off};
  }
  if (!hasWorkingSetChanged()) {
    traceStep(6, "doStartKick") << ": Unchanged working set, skipping";
    return {Look::At::unchanged};
  }
  return {Look::At::work};
}

void XformSmBase::doClearOutput() {
  if (!xformStatus_) return;
  doClearGroups();
  doClearLabels();
  if (!xformStatus_->plainLabelListMap()->plainLabelList().empty())
    xformStatus_->plainLabelListMapIs(Mox::makePtr<PlainLabelListMap>());
  xformStatus_->outputUnusableIs(false);
}

std::optional<std::string> XformSmBase::doWork() {
  // A label has 16 bits.
  MOX_ASSERT(xformWidth() <= 16);
  MOX_ASSERT(xformStatus_);
  // Remembered before the work, other than by the stages behind: a run that fails for too many pieces is
  // followed, on the same input, by a skip. The mark on the output keeps everybody from reading it.
  previousWorkingSet_ = workingSet_;
  xformStatus_->outputUnusableIs(true);
  xformStatus_->unusableReasonIs(subject() + ": the last run did not finish");
  // The highest value of the width is nobody's: it is what a chip yields on a miss.
  groupLimit_ = (size_t{1} << xformWidth()) - 1;
  overflow_ = false;
  doBuildSetGroup();
  PieceCount needed;
  if (overflow_) {
    // The memory is given back before the count, which needs some itself.
    doClearGroups();
    needed = doCountGroups();
  } else {
    doAllocLabels();
    doUpdatePlainLabelMap();
    xformSetGroupDeduperIs()->settle();
    needed.pieces = xformSetGroupDeduper_->dedupedGenSetKeyGroup().size();
  }
  if (overflow_ || needed.pieces > groupLimit_) {
    std::string const reason = refusal(needed);
    xformStatus_->unusableReasonIs(reason);
    return reason;
  }
  xformStatus_->outputUnusableIs(false);
  return std::nullopt;
}

std::string XformSmBase::refusal(PieceCount const& needed) const {
  if (needed.pieces > groupLimit_) {
    traceStep(0, "doStartKick") << ": Generated too many disjoint sets : " << groupLimit_;
    return subject() + ": " + Mox::withCommas(needed.pieces) +
           " disjoint pieces needed, label width " + std::to_string(xformWidth()) +
           " has labels for " + Mox::withCommas(groupLimit_);
  }
  return subject() + ": " + Mox::withCommas(needed.memberships) + " labels needed by " +
         Mox::withCommas(workingSet_->keyGroups()) + " lists that overlap in " +
         Mox::withCommas(needed.pieces) + " disjoint pieces, at most " +
         Mox::withCommas(membershipLimit_) + " are built";
}

void XformSmBase::membershipLimitIs(size_t v) {
  // What failed under the old limit may pass under the new one, so an unchanged input is no reason to skip.
  membershipLimit_ = v;
  doForget();
}

bool XformSmBase::hasWorkingSetChanged() {
  traceStep(8, "hasWorkingSetChanged");
  doBuildWorkingSet();
  bool const same = previousWorkingSet_ && previousWidth_ == xformWidth() &&
                    previousWorkingSet_->isEqual(workingSet_);
  // The same sets under another width are another task: what was too many may fit now, or the other way
  // round.
  previousWidth_ = xformWidth();
  if (!same) previousWorkingSet_ = workingSet_;
  return !same;
}

void XformSmBase::doUpdatePlainLabelMap() {
  traceStep(8, "doUpdatePlainLabelMap");
  // The keys of all groups are among those of the working set. Labels come in ascending order, so
  // every list is filled in order.
  std::vector<GenSetKey> const& keys = workingSet_->keyGroup().items();
  KeyPlaces const places(keys);
  auto const forEachMember = [&](auto f) {
    for (auto const& [obj, label] : xformSetGroupDeduper_->dedupedGenSetKeyGroup())
      for (GenSetKey key : static_cast<GenSetKeyGroup const&>(*obj).keyGroup())
        f(places.at(key), label);
  };
  // Counted first, so that every list is allocated once and at its size: together the lists are the largest
  // thing that a transform publishes.
  std::vector<uint32_t> sizes(keys.size());
  forEachMember([&](size_t place, PlainLabel) { ++sizes[place]; });
  std::vector<std::vector<PlainLabel>> lists(keys.size());
  for (size_t i = 0; i < keys.size(); ++i) lists[i].reserve(sizes[i]);
  forEachMember([&](size_t place, PlainLabel label) { lists[place].push_back(label); });
  Mox::FlatMap<GenSetKey, Mox::Ptr<PlainLabelList>> all;
  all.reserve(keys.size());
  for (size_t i = 0; i < keys.size(); ++i) {
    // Absence is how a set that covers nothing is told from one that has labels.
    if (lists[i].empty()) continue;
    auto list = Mox::makePtr<PlainLabelList>(keys[i]);
    list->labelIs(std::move(lists[i]));
    all.set(keys[i], std::move(list));
  }
  auto map = Mox::makePtr<PlainLabelListMap>();
  map->plainLabelListIs(std::move(all));
  xformStatus_->plainLabelListMapIs(std::move(map));
}

Mox::Ptr<XformSmBase> xformSmBaseFactory(Obel::ChipId chipId, Mox::Ptr<StageConfig> config,
                                         Mox::Ptr<StageStatus> status,
                                         Mox::Ptr<ChipHwCapability const> hwCapability) {
  return Mox::makePtr<XformSmBase>(chipId, std::move(config), std::move(status),
                                   std::move(hwCapability));
}

}  // namespace Naxel
