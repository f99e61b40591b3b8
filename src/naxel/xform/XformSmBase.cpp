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
  if (!xformSetGroupDeduper_) {
    xformSetGroupDeduper_ = Mox::makePtr<GenSetKeyGroupDeduper>();
    deduperIsFilled_ = false;
  }
  return xformSetGroupDeduper();
}

std::vector<Mox::Ptr<GenSetKeyGroup>> XformSmBase::groupObjects() const {
  std::vector<Mox::Ptr<GenSetKeyGroup>> out;
  out.reserve(groups_.size());
  for (uint32_t label = 1; label <= groups_.size(); ++label) {
    std::vector<GenSetKey> keys;
    keys.reserve(groups_.of(label).size());
    for (uint32_t set : groups_.of(label)) keys.push_back(groupKeys_->keyGroup()[set]);
    out.push_back(genSetKeyGroupFactory());
    out.back()->keyGroupIs(std::move(keys));
  }
  return out;
}

Mox::Ptr<GenSetKeyGroupDeduper> const& XformSmBase::xformSetGroupDeduper() const {
  if (xformSetGroupDeduper_ && !deduperIsFilled_) {
    xformSetGroupDeduper_->clear();
    // They differ, so that each gets the next label.
    for (auto const& group : groupObjects()) xformSetGroupDeduper_->addGroup(group);
    xformSetGroupDeduper_->settle();
    deduperIsFilled_ = true;
  }
  return xformSetGroupDeduper_;
}

void XformSmBase::doClearGroups() {
  groups_ = {};
  if (deduperIsFilled_ && xformSetGroupDeduper_) xformSetGroupDeduper_->clear();
  deduperIsFilled_ = false;
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
  // Before what is remembered is dropped for the work.
  hasBasis_ = xformStatus_ && keptStamp_ == xformStatus_->stamp();
  return {Look::At::work};
}

void XformSmBase::doRemember() noexcept {
  lastComputedKickTimeIs(config()->kickTime());
  keptStamp_ = xformStatus_->stamp();
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
  groupKeys_ = workingSet_;
  PieceCount needed;
  if (overflow_) {
    // The memory is given back before the count, which needs some itself.
    doClearGroups();
    needed = doCountGroups();
  } else {
    doAllocLabels();
    doUpdatePlainLabelMap();
    needed.pieces = groups_.size();
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
  bool const same =
      previousWorkingSet_ && previousWidth_ == xformWidth() &&
      (previousWorkingSet_ == workingSet_ || previousWorkingSet_->isEqual(workingSet_));
  // The same sets under another width are another task: what was too many may fit now, or the other way
  // round.
  previousWidth_ = xformWidth();
  if (!same) previousWorkingSet_ = workingSet_;
  return !same;
}

void XformSmBase::doUpdatePlainLabelMap() {
  traceStep(8, "doUpdatePlainLabelMap");
  // Turned over in two passes: sets are counted first, so that each knows where its labels stand. Labels come in
  // ascending order, so every list is filled in order.
  std::vector<GenSetKey> const& keys = groupKeys_->keyGroup().items();
  std::vector<uint32_t> ends(keys.size());
  for (uint32_t label = 1; label <= groups_.size(); ++label)
    for (uint32_t set : groups_.of(label)) ++ends[set];
  uint32_t begin = 0;
  for (uint32_t& end : ends) begin += std::exchange(end, begin);
  std::vector<PlainLabel> labels(groups_.memberships());
  // Where a list begins becomes where it ends.
  for (uint32_t label = 1; label <= groups_.size(); ++label)
    for (uint32_t set : groups_.of(label)) labels[ends[set]++] = PlainLabel(label);
  auto map = Mox::makePtr<PlainLabelListMap>();
  // A list that would be empty is not there: absence is how a set that covers nothing is told from one that
  // has labels.
  map->plainLabelListsAre(keys, ends, std::move(labels));
  xformStatus_->plainLabelListMapIs(std::move(map));
}

Mox::Ptr<XformSmBase> xformSmBaseFactory(Obel::ChipId chipId, Mox::Ptr<StageConfig> config,
                                         Mox::Ptr<StageStatus> status,
                                         Mox::Ptr<ChipHwCapability const> hwCapability) {
  return Mox::makePtr<XformSmBase>(chipId, std::move(config), std::move(status),
                                   std::move(hwCapability));
}

}  // namespace Naxel
