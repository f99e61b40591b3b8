#pragma once

/// The combo label split: cuts overlapping combination sets into disjoint groups of combinations
/// (PairCut.h). The frame (reads, writes, skips, fails, order) is that of XformSmBase.

#include "naxel/xform/PairCut.h"
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

  /// Each combination of the last run with the sets that hold it, put together for the caller.
  GroupMap const& comboLabelToGenSetGrpMap() const { return groupMap(); }
  Mox::Ptr<GenSetKeyGroup> comboLabelToGenSetGrpMap(GenCombo const& combo) const;
  void comboLabelToGenSetGrpMapIs(GenCombo const& combo, Mox::Ptr<GenSetKeyGroup> group) {
    groupMap().set(combo, std::move(group));
  }
  bool comboLabelToGenSetGrpMapHas(GenCombo const& combo) const {
    return groupMap().contains(combo);
  }
  void comboLabelToGenSetGrpMapDel(GenCombo const& combo) { groupMap().erase(combo); }
  void comboLabelToGenSetGrpMapDelAll() { comboLabelToGenSetGrpMap_.emplace(); }

  void doBuildWorkingSet() override;
  void doBuildSetGroup() override;
  PieceCount doCountGroups() override;
  void doAllocLabels() override;
  uint32_t xformWidth() const override;
  std::string traceStr() const override;
  std::string subject() const override;

 protected:
  void doClearGroups() override;
  void doClearLabels() override { status_->comboToPlainLabelMapIs({}); }

 private:
  GroupMap& groupMap() const;
  PairSets sets() const;
  std::optional<PairPieces> changedPieces(PairSets const& sets) const;

  Mox::Ptr<ComboLabelSplitStatus> status_;
  std::vector<ComboLabelSplitStatus::LabelMap::value_type> items_;  // of the run at hand
  PairSets sets_;                                                   // of the last run
  mutable std::optional<GroupMap> comboLabelToGenSetGrpMap_;        // asked for of the last run
};
NAXEL_EXPORT Mox::Ptr<ComboLabelSplitSm> comboLabelSplitSmFactory(
    Obel::ChipId chipId, Mox::Ptr<ComboLabelSplitConfig> config,
    Mox::Ptr<ComboLabelSplitStatus> status, Mox::Ptr<ChipHwCapability const> hwCapability);

}  // namespace Naxel
