#include "naxel/xform/NaxelComboLabelSplitSm.h"

#include "naxel/genset/FieldNames.h"
#include "naxel/xform/PairCut.h"

namespace Naxel {

ComboLabelSplitSm::ComboLabelSplitSm(Obel::ChipId chipId, Mox::Ptr<ComboLabelSplitConfig> config,
                                     Mox::Ptr<ComboLabelSplitStatus> status,
                                     Mox::Ptr<ChipHwCapability const> hwCapability)
    : XformSmBase(chipId, std::move(config), status, std::move(hwCapability)),
      status_(std::move(status)) {}

uint32_t ComboLabelSplitSm::xformWidth() const {
  return hwCapability()->comboXformWidth(status_->key());
}

std::string ComboLabelSplitSm::traceStr() const {
  return "ComboLabelSplitSm(" + Mox::stringValue(status_->key()) + ")::";
}

std::string ComboLabelSplitSm::subject() const { return fieldName(status_->key()); }

Mox::Ptr<GenSetKeyGroup> ComboLabelSplitSm::comboLabelToGenSetGrpMap(GenCombo const& combo) const {
  auto const* group = comboLabelToGenSetGrpMap_.get(combo);
  return group ? *group : nullptr;
}

void ComboLabelSplitSm::doBuildWorkingSet() {
  traceStep(8, "doBuildWorkingSet");
  workingSetIsKeysOf(comboLabelConfig().comboLabelInfo()->comboLabelSetColl());
}

namespace {

PairSetViews viewsOf(ComboLabelInfo const& info, GenSetKeyGroup const& keys) {
  PairSetViews views;
  for (GenSetKey key : keys.keyGroup())
    views.push_back({key, &info.comboLabelSetColl(key)->comboLabel()});
  return views;
}

}  // namespace

void ComboLabelSplitSm::doBuildSetGroup() {
  traceStep(8, "doBuildSetGroup");
  groupsAre(comboLabelToGenSetGrpMap_,
            cutPairs(viewsOf(*comboLabelConfig().comboLabelInfo(), *workingSet()), limit()));
}

PieceCount ComboLabelSplitSm::doCountGroups() {
  return countPairPieces(viewsOf(*comboLabelConfig().comboLabelInfo(), *workingSet()));
}

void ComboLabelSplitSm::doAllocLabels() {
  traceStep(8, "doAllocLabels");
  status_->comboToPlainLabelMapIs(labelsOf(comboLabelToGenSetGrpMap_));
}

Mox::Ptr<ComboLabelSplitSm> comboLabelSplitSmFactory(
    Obel::ChipId chipId, Mox::Ptr<ComboLabelSplitConfig> config,
    Mox::Ptr<ComboLabelSplitStatus> status, Mox::Ptr<ChipHwCapability const> hwCapability) {
  return Mox::makePtr<ComboLabelSplitSm>(chipId, std::move(config), std::move(status),
                                         std::move(hwCapability));
}

}  // namespace Naxel
