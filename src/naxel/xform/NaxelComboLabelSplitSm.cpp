#include "naxel/xform/NaxelComboLabelSplitSm.h"

#include "naxel/genset/FieldNames.h"
#include "naxel/genset/KeyGroupInterner.h"

#include <algorithm>
#include <span>
#include <utility>

namespace Naxel {

namespace {

/// A group that is another one extended by a set.
struct GroupStep {
  uint32_t parent = 0;
  GenSetKey key;
  bool operator==(GroupStep const&) const = default;
  void placeWords(Mox::KeyedHash& h) const noexcept { h.word(parent).word(key.value()); }
};

/// Groups under refinement.
class GroupChains {
 public:
  static constexpr uint32_t root = 0;  // the group without sets

  /// The group that extends `group` by `key`; the same one for the same two.
  uint32_t extend(uint32_t group, GenSetKey key) {
    GroupStep const step{group, key};
    if (uint32_t const* known = extended_.get(step)) return *known;
    auto const id = static_cast<uint32_t>(chains_.size());
    chains_.push_back(step);
    extended_.set(step, id);
    return id;
  }
  std::vector<GenSetKey> keys(uint32_t group) const {
    std::vector<GenSetKey> out;
    for (; group != root; group = chains_[group].parent) out.push_back(chains_[group].key);
    std::reverse(out.begin(), out.end());
    return out;
  }
  size_t size() const { return chains_.size(); }

 private:
  std::vector<GroupStep> chains_{GroupStep()};
  Mox::HashMap<GroupStep, uint32_t> extended_;
};

/// The combinations of one set that share a source label, ascending.
struct Run {
  PlainLabel src;
  GenSetKey key;
  std::span<GenCombo const> combos;
};

/// The runs of all sets by source label, within a label by set key.
std::vector<Run> runsOf(std::vector<GenSetKey> const& keys, ComboLabelInfo const& info) {
  std::vector<Run> runs;
  for (GenSetKey key : keys) {
    std::vector<GenCombo> const& all = info.comboLabelSetColl(key)->comboLabel().items();
    for (size_t from = 0, to = 0; from < all.size(); from = to) {
      PlainLabel const src = all[from].srcLabel();
      while (to < all.size() && all[to].srcLabel() == src) ++to;
      runs.push_back({src, key, std::span(all).subspan(from, to - from)});
    }
  }
  std::stable_sort(runs.begin(), runs.end(),
                   [](Run const& x, Run const& y) { return x.src < y.src; });
  return runs;
}

/// The largest destination label.
uint32_t lastDstOf(std::vector<Run> const& runs) {
  uint32_t last = 0;
  for (Run const& run : runs) last = std::max(last, run.combos.back().dstLabel().value());
  return last;
}

}  // namespace

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

void ComboLabelSplitSm::doBuildSetGroup() {
  traceStep(8, "doBuildSetGroup");
  comboLabelToGenSetGrpMapDelAll();
  std::vector<Run> const runs =
      runsOf(workingSet()->keyGroup().items(), *comboLabelConfig().comboLabelInfo());
  GroupChains chains;
  KeyGroupInterner interner;
  std::vector<Mox::Ptr<GenSetKeyGroup>> materialised;  // by chain
  std::vector<GroupMap::value_type> groups;
  std::vector<uint32_t> groupOf(size_t{lastDstOf(runs)} + 1,
                                GroupChains::root);  // by destination label
  std::vector<uint32_t> dsts;                        // those with a group
  for (size_t from = 0, to = 0; from < runs.size(); from = to) {
    PlainLabel const src = runs[from].src;
    for (; to < runs.size() && runs[to].src == src; ++to) {
      uint32_t known = ~uint32_t{0};
      uint32_t extended = GroupChains::root;
      for (GenCombo const& combo : runs[to].combos) {
        uint32_t& group = groupOf[combo.dstLabel().value()];
        if (group == GroupChains::root) dsts.push_back(combo.dstLabel().value());
        if (group != known) {  // neighbours mostly come from the same group
          known = group;
          extended = chains.extend(group, runs[to].key);
        }
        group = extended;
      }
    }
    std::sort(dsts.begin(), dsts.end());
    materialised.resize(chains.size());
    for (uint32_t dst : dsts) {
      uint32_t const id = std::exchange(groupOf[dst], GroupChains::root);
      if (!materialised[id]) materialised[id] = interner.intern(chains.keys(id));
      groups.emplace_back(GenCombo(src, PlainLabel(dst)), materialised[id]);
      // Beyond the limits the result is unusable anyway, and its size would have no bound.
      if (exceeds({interner.size(), interner.memberships()}, limit())) return overflowIs(true);
    }
    dsts.clear();
  }
  comboLabelToGenSetGrpMap_.adopt(std::move(groups));
}

PieceCount ComboLabelSplitSm::doCountGroups() {
  comboLabelToGenSetGrpMap_ = {};
  std::vector<Run> const runs =
      runsOf(workingSet()->keyGroup().items(), *comboLabelConfig().comboLabelInfo());
  PieceCounter pieces;
  struct Group {
    uint64_t hash = 0;
    size_t sets = 0;
  };
  std::vector<Group> groupOf(size_t{lastDstOf(runs)} + 1);  // by destination label
  for (size_t from = 0, to = 0; from < runs.size(); from = to) {
    for (; to < runs.size() && runs[to].src == runs[from].src; ++to) {
      Mox::KeyedSetHash set;
      set.add(runs[to].key);
      for (GenCombo const& combo : runs[to].combos) {
        Group& group = groupOf[combo.dstLabel().value()];
        group.hash += set.value();
        ++group.sets;
      }
    }
    for (size_t i = from; i < to; ++i)
      for (GenCombo const& combo : runs[i].combos)
        if (Group const group = std::exchange(groupOf[combo.dstLabel().value()], {});
            group.sets > 0)
          pieces.add(group.hash, group.sets);
  }
  return pieces.distinct();
}

void ComboLabelSplitSm::doAllocLabels() {
  traceStep(8, "doAllocLabels");
  status_->comboToPlainLabelMapIs(labelsOf(comboLabelToGenSetGrpMap_));
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
