#include "naxel/xform/NaxelComboLabelSplitSm.h"

#include <algorithm>

namespace Naxel {

namespace {

/// Groups as chains: a group is its parent's sets and one more, whose key is larger than all of
/// them.
class GroupChains {
 public:
  /// The empty group.
  static constexpr uint32_t root = 0;

  /// Begins the pass of the next set.
  void nextSet(GenSetKey key) {
    key_ = key;
    extended_.clear();
  }
  /// The group extended by the present set.
  uint32_t extend(uint32_t group) {
    if (uint32_t const* known = extended_.get(group)) return *known;
    auto const id = static_cast<uint32_t>(chains_.size());
    chains_.push_back({group, key_});
    extended_.set(group, id);
    return id;
  }
  std::vector<GenSetKey> keys(uint32_t group) const {
    std::vector<GenSetKey> out;
    for (; group != root; group = chains_[group].parent) out.push_back(chains_[group].key);
    std::reverse(out.begin(), out.end());
    return out;
  }

 private:
  struct Chain {
    uint32_t parent;
    GenSetKey key;
  };
  std::vector<Chain> chains_{{root, GenSetKey()}};
  GenSetKey key_;
  Mox::HashMap<uint32_t, uint32_t> extended_;
};

}  // namespace

ComboLabelSplitSm::ComboLabelSplitSm(Obel::ChipId chipId, Mox::Ptr<ComboLabelSplitConfig> config,
                                     Mox::Ptr<ComboLabelSplitStatus> status,
                                     Mox::Ptr<ChipHwCapability const> hwCapability)
    : XformSmBase(chipId, config, status, std::move(hwCapability)),
      config_(std::move(config)),
      status_(std::move(status)) {}

uint32_t ComboLabelSplitSm::xformWidth() const {
  return hwCapability()->comboXformWidth(config_->key());
}

std::string ComboLabelSplitSm::traceStr() const {
  return "ComboLabelSplitSm(" + Mox::stringValue(config_->key()) + ")::";
}

Mox::Ptr<GenSetKeyGroup> ComboLabelSplitSm::comboLabelToGenSetGrpMap(GenCombo const& combo) const {
  auto const* group = comboLabelToGenSetGrpMap_.get(combo);
  return group ? *group : nullptr;
}

void ComboLabelSplitSm::doBuildWorkingSet() {
  traceStep(8, "doBuildWorkingSet");
  std::vector<GenSetKey> keys;
  for (auto const& [key, set] : config_->comboLabelInfo()->comboLabelSetColl()) keys.push_back(key);
  auto group = genSetKeyGroupFactory();
  group->keyGroupIs(std::move(keys));
  workingSetIs(std::move(group));
}

void ComboLabelSplitSm::doBuildSetGroup() {
  traceStep(8, "doBuildSetGroup");
  comboLabelToGenSetGrpMapDelAll();
  ComboLabelInfo const& info = *config_->comboLabelInfo();
  GroupChains chains;
  Mox::HashMap<GenCombo, uint32_t> groupOf;
  for (GenSetKey key : workingSet()->keyGroup()) {
    chains.nextSet(key);
    for (GenCombo const& combo : info.comboLabelSetColl(key)->comboLabel()) {
      uint32_t& group = groupOf.at(combo);
      group = chains.extend(group);
    }
  }
  KeyGroupInterner interner;
  Mox::HashMap<uint32_t, Mox::Ptr<GenSetKeyGroup>> materialised;
  std::vector<GroupMap::value_type> groups;
  groups.reserve(groupOf.size());
  for (auto const& [combo, number] : groupOf) {
    uint32_t const id = number;
    Mox::Ptr<GenSetKeyGroup> const& group =
        Mox::lookupOrMake(materialised, id, [&] { return interner.intern(chains.keys(id)); });
    // Beyond the limit the result is unusable anyway, and its size would have no bound.
    if (interner.size() > groupLimit()) return overflowIs(true);
    groups.emplace_back(combo, group);
  }
  comboLabelToGenSetGrpMap_.adopt(std::move(groups));
}

void ComboLabelSplitSm::doAllocLabels() {
  traceStep(8, "doAllocLabels");
  xformSetGroupDeduper()->clear();
  std::vector<ComboLabelSplitStatus::LabelMap::value_type> labels;
  labels.reserve(comboLabelToGenSetGrpMap_.size());
  for (auto const& [combo, group] : comboLabelToGenSetGrpMap_)
    labels.emplace_back(combo, xformSetGroupDeduper()->addGroup(group));
  ComboLabelSplitStatus::LabelMap map;
  map.adopt(std::move(labels));
  status_->comboToPlainLabelMapIs(std::move(map));
}

void ComboLabelSplitSm::doClearOutput() {
  comboLabelToGenSetGrpMapDelAll();
  status_->comboToPlainLabelMapIs({});
}

Mox::Ptr<ComboLabelSplitSm> comboLabelSplitSmFactory(
    Obel::ChipId chipId, Mox::Ptr<ComboLabelSplitConfig> config,
    Mox::Ptr<ComboLabelSplitStatus> status, Mox::Ptr<ChipHwCapability const> hwCapability) {
  return Mox::makePtr<ComboLabelSplitSm>(chipId, std::move(config), std::move(status),
                                         std::move(hwCapability));
}

}  // namespace Naxel
