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
/// Changes  of a run that succeeded the sets, their groups and the output are the basis of the next one, which
///          cuts what has come and lays it over what is left (PieceOverlay.h).
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
#include "naxel/xform/Pieces.h"

#include <algorithm>
#include <optional>

namespace Naxel {

class NAXEL_EXPORT XformSmBase : public StageSm {
 public:
  XformSmBase(Obel::ChipId chipId, Mox::Ptr<StageConfig> config, Mox::Ptr<StageStatus> status,
              Mox::Ptr<ChipHwCapability const> hwCapability);

  Mox::Ptr<ChipHwCapability const> const& hwCapability() const { return hwCapability_; }
  /// The groups of the last run with their labels, put together for the caller; null after
  /// xformSetGroupDeduperDel().
  Mox::Ptr<GenSetKeyGroupDeduper> const& xformSetGroupDeduper() const;
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
  /// Publishes the map from item to label.
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
  /// Publishes the label list of every set, from the groups. Costs the memberships of all groups.
  void doUpdatePlainLabelMap();

 protected:
  /// Drops the groups that a run has built. Overriders call it.
  virtual void doClearGroups();
  /// Empties the map from item to label.
  virtual void doClearLabels() {}
  void doForget() noexcept override {
    previousWorkingSet_ = nullptr;
    keptStamp_ = 0;
  }
  Look doLook() final;
  std::optional<std::string> doWork() final;
  void doRemember() noexcept final;
  void doClearOutput() final;

  /// Takes over the groups of a run, whose sets are places in the working set. Returns each item with its label.
  template <class Item>
  std::vector<std::pair<Item, PlainLabel>> groupsAre(Pieces<Item>&& pieces) {
    groups_ = std::move(pieces.groups);
    return std::move(pieces.items);
  }
  /// Makes the keys of a collection of sets the working set.
  template <class Coll>
  void workingSetIsKeysOf(Coll const& coll) {
    // Mostly they are those of the last run, and then the object is shared.
    if (previousWorkingSet_ && previousWorkingSet_->keyGroups() == coll.size()) {
      auto at = previousWorkingSet_->keyGroup().begin();
      auto const differs = [&](auto const& item) { return item.first != *at++; };
      if (std::ranges::find_if(coll, differs) == coll.end())
        return workingSetIs(previousWorkingSet_);
    }
    auto group = genSetKeyGroupFactory();
    group->keyGroupIs(keysOf(coll));
    workingSetIs(std::move(group));
  }
  /// The sets of a collection in ascending order of their keys, in which they stand as long as keys are given
  /// out rising.
  template <class Set, class Coll>
  static std::vector<Mox::Ptr<Set const>> setsOf(Coll const& coll) {
    std::vector<Mox::Ptr<Set const>> sets;
    sets.reserve(coll.size());
    for (auto const& [key, set] : coll) sets.push_back(set);
    auto const less = [](auto const& a, auto const& b) { return a->key() < b->key(); };
    if (!std::ranges::is_sorted(sets, less)) std::ranges::sort(sets, less);
    return sets;
  }
  /// Whether the published output, groups() and all that a stage keeps of its sets are those of the last run,
  /// which has succeeded: then the run at hand may start from there.
  bool hasBasis() const { return hasBasis_; }
  /// The groups of the last run, by label; their sets are places in the working set of that run.
  PieceGroups const& groups() const { return groups_; }
  /// Each item of the last run with its group, put together for the caller. Items of one label share one.
  template <class Item>
  Mox::FlatMap<Item, Mox::Ptr<GenSetKeyGroup>> groupsOf(
      Mox::FlatMap<Item, PlainLabel> const& labels) const {
    std::vector<Mox::Ptr<GenSetKeyGroup>> const groups = groupObjects();
    Mox::FlatMap<Item, Mox::Ptr<GenSetKeyGroup>> out;
    out.reserve(labels.size());
    for (auto const& [item, label] : labels) out.set(item, groups.at(label.value() - 1));
    return out;
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
  /// By label, from the first on.
  std::vector<Mox::Ptr<GenSetKeyGroup>> groupObjects() const;

  Mox::Ptr<ChipHwCapability const> hwCapability_;
  Mox::Ptr<GenSetKeyGroupDeduper> xformSetGroupDeduper_;
  mutable bool deduperIsFilled_ = false;  // with the groups below
  PieceGroups groups_;
  Mox::Ptr<GenSetKeyGroup> groupKeys_;  // of the sets in them
  Mox::Ptr<GenSetKeyGroup> workingSet_;
  Mox::Ptr<GenSetKeyGroup> previousWorkingSet_;
  Mox::Seconds lastComputedKickTime_ = 0;
  XformStatus* xformStatus_;
  Mox::Stamp keptStamp_ = 0;  // of the output of the last run; 0 where it did not succeed
  bool hasBasis_ = false;
  uint32_t previousWidth_ = 0;
  size_t groupLimit_ = 0;
  size_t membershipLimit_ = size_t{1} << 26;
  bool overflow_ = false;
};
NAXEL_EXPORT Mox::Ptr<XformSmBase> xformSmBaseFactory(
    Obel::ChipId chipId, Mox::Ptr<StageConfig> config, Mox::Ptr<StageStatus> status,
    Mox::Ptr<ChipHwCapability const> hwCapability);

}  // namespace Naxel
