#include "naxel/xform/NaxelComboLabelSplitSm.h"

#include "naxel/genset/FieldNames.h"

#include <utility>

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
  auto const* group = groupMap().get(combo);
  return group ? *group : nullptr;
}

ComboLabelSplitSm::GroupMap& ComboLabelSplitSm::groupMap() const {
  if (!comboLabelToGenSetGrpMap_)
    comboLabelToGenSetGrpMap_ = groupsOf(status_->comboToPlainLabelMap());
  return *comboLabelToGenSetGrpMap_;
}

void ComboLabelSplitSm::doBuildWorkingSet() {
  traceStep(8, "doBuildWorkingSet");
  workingSetIsKeysOf(comboLabelConfig().comboLabelInfo()->comboLabelSetColl());
}

PairSets ComboLabelSplitSm::sets() const {
  return setsOf<ComboLabelSet>(comboLabelConfig().comboLabelInfo()->comboLabelSetColl());
}

std::optional<PairPieces> ComboLabelSplitSm::changedPieces(PairSets const& sets) const {
  SetChanges<ComboLabelSet> const changes(sets_, sets);
  auto const added = cutPairs(changes.added, limit());
  if (!added) return std::nullopt;
  return changePairs({status_->comboToPlainLabelMap().items(), groups(), *added, changes.moves},
                     limit());
}

void ComboLabelSplitSm::doBuildSetGroup() {
  traceStep(8, "doBuildSetGroup");
  PairSets sets = this->sets();
  auto pieces = hasBasis() ? changedPieces(sets) : cutPairs(sets, limit());
  doClearGroups();
  if (!pieces) return overflowIs(true);
  sets_ = std::move(sets);
  items_ = groupsAre(std::move(*pieces));
}

PieceCount ComboLabelSplitSm::doCountGroups() { return countPairPieces(sets()); }

void ComboLabelSplitSm::doAllocLabels() {
  traceStep(8, "doAllocLabels");
  ComboLabelSplitStatus::LabelMap labels;
  labels.adopt(std::exchange(items_, {}));
  status_->comboToPlainLabelMapIs(std::move(labels));
  // From here on the groups are those of the labels, for whoever asks.
  comboLabelToGenSetGrpMap_.reset();
}

void ComboLabelSplitSm::doClearGroups() {
  XformSmBase::doClearGroups();
  items_ = {};
  sets_ = {};
  comboLabelToGenSetGrpMap_.emplace();
}

Mox::Ptr<ComboLabelSplitSm> comboLabelSplitSmFactory(
    Obel::ChipId chipId, Mox::Ptr<ComboLabelSplitConfig> config,
    Mox::Ptr<ComboLabelSplitStatus> status, Mox::Ptr<ChipHwCapability const> hwCapability) {
  return Mox::makePtr<ComboLabelSplitSm>(chipId, std::move(config), std::move(status),
                                         std::move(hwCapability));
}

}  // namespace Naxel
