#pragma once

/// The frame of the transforms: the stages that cut overlapping sets into disjoint pieces.
///
/// Reads    the sets of one kind, by key.
/// Writes   an XformStatus: the concrete stage's map from elementary item to plain label, and for
///          each set the labels of the groups that make it up.
/// Skips    when exactly the same set keys are present as in the last run that did the work, and the
///          width is the same: sets are frozen, so equal keys mean equal content. The keys are
///          remembered before the work, so that a run that failed for too many pieces is followed,
///          on an unchanged input, by a skip; the output stays marked as unusable, and every later
///          stage refuses it.
/// Fails    when there are more than 2^width - 1 distinct groups, or when the sets have more labels
///          together than membershipLimit(). Beyond either they are only counted, so that the reason
///          can say how many it would take.
/// Off      where the chip gives the transform no width; then nothing is published.
/// Order    groups are numbered in the natural order of the items: plain labels depend on the
///          content of the sets alone, not on earlier kicks.
///
/// A run goes through doBuildWorkingSet, doBuildSetGroup, doAllocLabels and doUpdatePlainLabelMap.

#include "mox/Trace.h"
#include "naxel/control/StageSm.h"
#include "naxel/genset/KeyPlaces.h"
#include "naxel/genset/NaxelDedup.h"
#include "naxel/loader/HwCapability.h"
#include "naxel/xform/NaxelXformTypes.h"
#include "naxel/xform/PieceCount.h"

namespace Naxel {

class NAXEL_EXPORT XformSmBase : public StageSm {
 public:
  XformSmBase(Obel::ChipId chipId, Mox::Ptr<StageConfig> config, Mox::Ptr<StageStatus> status,
              Mox::Ptr<ChipHwCapability const> hwCapability);

  Mox::Ptr<ChipHwCapability const> const& hwCapability() const { return hwCapability_; }
  /// Numbers the groups of the present run; null after xformSetGroupDeduperDel().
  Mox::Ptr<GenSetKeyGroupDeduper> const& xformSetGroupDeduper() const {
    return xformSetGroupDeduper_;
  }
  /// Makes it, or returns the one there is.
  Mox::Ptr<GenSetKeyGroupDeduper> const& xformSetGroupDeduperIs();
  void xformSetGroupDeduperDel() { xformSetGroupDeduper_ = nullptr; }
  /// The set keys of this run's input.
  Mox::Ptr<GenSetKeyGroup> const& workingSet() const { return workingSet_; }
  void workingSetIs(Mox::Ptr<GenSetKeyGroup> v) { workingSet_ = std::move(v); }
  /// Those of the last run that did the work; null until then and after an exception.
  Mox::Ptr<GenSetKeyGroup> const& previousWorkingSet() const { return previousWorkingSet_; }
  void previousWorkingSetIs(Mox::Ptr<GenSetKeyGroup> v) { previousWorkingSet_ = std::move(v); }
  /// Kick time of the last run that succeeded; 0 before it.
  Mox::Seconds lastComputedKickTime() const { return lastComputedKickTime_; }
  void lastComputedKickTimeIs(Mox::Seconds v) { lastComputedKickTime_ = v; }

  /// Most labels that the sets may have together, about 20 bytes each: few lists that each leave out
  /// something else of the same whole would take memory with the square of their number.
  size_t membershipLimit() const { return membershipLimit_; }
  void membershipLimitIs(size_t v);

  void doStartKick() final;
  /// Makes the keys of the present sets the working set. It reads keys only: sets are frozen, so a key says
  /// everything about its members.
  virtual void doBuildWorkingSet() {}
  /// Computes the group of every elementary item, or sets overflow() once they are too many or too
  /// large.
  virtual void doBuildSetGroup() {}
  /// Number and size of the distinct groups, found without keeping them. Called after an overflow,
  /// whose groups are of no use any more and have been cleared.
  virtual PieceCount doCountGroups() { return {}; }
  /// Gives the groups their labels and publishes the map from item to label.
  virtual void doAllocLabels() {}
  /// Bits of a label; 0 when the transform is not enabled on this chip.
  virtual uint32_t xformWidth() const { return 0; }
  /// Beginning of every trace line.
  virtual std::string traceStr() const { return std::string(); }
  /// The field in words, for the reason of a failure.
  virtual std::string subject() const { return "transform"; }

  /// The status, or null if it is of another type.
  XformStatus* xformStatus() const { return xformStatus_; }
  /// Reads the present set keys and compares them with those of the last run. Remembers the present ones
  /// where they differ, so a second call says false.
  bool hasWorkingSetChanged();
  /// Publishes the label list of every set, from the groups that have been labelled. Costs the memberships
  /// of all groups.
  void doUpdatePlainLabelMap();

 protected:
  /// Drops the groups that a run has built.
  virtual void doClearGroups() {}
  /// Empties the map from item to label.
  virtual void doClearLabels() {}
  void doForget() noexcept override { previousWorkingSet_ = nullptr; }
  Look doLook() final;
  std::optional<std::string> doWork() final;
  void doRemember() noexcept final { lastComputedKickTimeIs(config()->kickTime()); }
  void doClearOutput() final;

  /// Takes the pieces of a run over, or notes that they were too many.
  template <class Pieces>
  void groupsAre(Pieces& groups, std::optional<Pieces> pieces) {
    overflowIs(!pieces);
    groups = pieces ? std::move(*pieces) : Pieces();
  }
  /// Makes the keys of a collection of sets the working set.
  template <class Coll>
  void workingSetIsKeysOf(Coll const& coll) {
    auto group = genSetKeyGroupFactory();
    group->keyGroupIs(keysOf(coll));
    workingSetIs(std::move(group));
  }
  /// Labels groups afresh, in the order of their items; returns each item with its group's label.
  template <class Item>
  Mox::FlatMap<Item, PlainLabel> labelsOf(
      Mox::FlatMap<Item, Mox::Ptr<GenSetKeyGroup>> const& groups) {
    GenSetKeyGroupDeduper& deduper = *xformSetGroupDeduperIs();
    deduper.clear();
    Mox::FlatMap<Item, PlainLabel> labels;
    labels.reserve(groups.size());
    GenSetKeyGroup const* last = nullptr;
    PlainLabel label;
    for (auto const& [item, group] : groups) {
      // Neighbours are often of one group, and groups are interned: equal content is the same object.
      if (group.get() != last) label = deduper.addGroup(group);
      last = group.get();
      labels.set(item, label);
    }
    return labels;
  }

  /// The most distinct groups, and sets in them, of a run.
  PieceCount limit() const { return {groupLimit_, membershipLimit_}; }
  /// Set by doBuildSetGroup() where it stopped early because a limit is exceeded.
  void overflowIs(bool v) { overflow_ = v; }
  bool overflow() const { return overflow_; }

  Mox::TraceLine traceStep(int level, char const* step) const;

 private:
  void handleInitialized();
  std::string refusal(PieceCount const& needed) const;

  Mox::Ptr<ChipHwCapability const> hwCapability_;
  Mox::Ptr<GenSetKeyGroupDeduper> xformSetGroupDeduper_;
  Mox::Ptr<GenSetKeyGroup> workingSet_;
  Mox::Ptr<GenSetKeyGroup> previousWorkingSet_;
  Mox::Seconds lastComputedKickTime_ = 0;
  XformStatus* xformStatus_;
  uint32_t previousWidth_ = 0;
  size_t groupLimit_ = 0;
  size_t membershipLimit_ = size_t{1} << 26;
  bool overflow_ = false;
};
NAXEL_EXPORT Mox::Ptr<XformSmBase> xformSmBaseFactory(
    Obel::ChipId chipId, Mox::Ptr<StageConfig> config, Mox::Ptr<StageStatus> status,
    Mox::Ptr<ChipHwCapability const> hwCapability);

}  // namespace Naxel
