#pragma once

/// The combo label split: cuts overlapping combination sets into disjoint groups of combinations.
/// The frame (reads, writes, skips, fails, order) is that of XformSmBase.
///
/// Every combination that occurs gets the group of sets that contain it. Groups are found by
/// refinement, one source label after another: the sets that have combinations with it are taken in
/// ascending order of their keys, and a destination label that is in the next set moves from its group
/// to that group extended by the set, the same for all that come from there. So a combination costs a
/// few steps in an array per set that holds it, and a group its own size once.

#include "naxel/xform/XformSmBase.h"

namespace Naxel {

class NAXEL_EXPORT ComboLabelSplitSm : public XformSmBase {
 public:
  using GroupMap = Mox::FlatMap<GenCombo, Mox::Ptr<GenSetKeyGroup>>;

  ComboLabelSplitSm(Obel::ChipId chipId, Mox::Ptr<ComboLabelSplitConfig> config,
                    Mox::Ptr<ComboLabelSplitStatus> status,
                    Mox::Ptr<ChipHwCapability const> hwCapability);

  ComboLabelSplitConfig const& comboLabelConfig() const {
    return configAs<ComboLabelSplitConfig>();
  }
  ComboLabelSplitStatus& comboLabelStatus() const { return *status_; }

  /// Each combination of the last run with the sets that hold it.
  GroupMap const& comboLabelToGenSetGrpMap() const { return comboLabelToGenSetGrpMap_; }
  Mox::Ptr<GenSetKeyGroup> comboLabelToGenSetGrpMap(GenCombo const& combo) const;
  void comboLabelToGenSetGrpMapIs(GenCombo const& combo, Mox::Ptr<GenSetKeyGroup> group) {
    comboLabelToGenSetGrpMap_.set(combo, std::move(group));
  }
  bool comboLabelToGenSetGrpMapHas(GenCombo const& combo) const {
    return comboLabelToGenSetGrpMap_.contains(combo);
  }
  void comboLabelToGenSetGrpMapDel(GenCombo const& combo) {
    comboLabelToGenSetGrpMap_.erase(combo);
  }
  void comboLabelToGenSetGrpMapDelAll() { comboLabelToGenSetGrpMap_.clear(); }

  void doBuildWorkingSet() override;
  void doBuildSetGroup() override;
  PieceCount doCountGroups() override;
  void doAllocLabels() override;
  uint32_t xformWidth() const override;
  std::string traceStr() const override;
  std::string subject() const override;

 protected:
  void doClearOutput() override;

 private:
  Mox::Ptr<ComboLabelSplitStatus> status_;
  GroupMap comboLabelToGenSetGrpMap_;
};
NAXEL_EXPORT Mox::Ptr<ComboLabelSplitSm> comboLabelSplitSmFactory(
    Obel::ChipId chipId, Mox::Ptr<ComboLabelSplitConfig> config,
    Mox::Ptr<ComboLabelSplitStatus> status, Mox::Ptr<ChipHwCapability const> hwCapability);

}  // namespace Naxel
