#include "naxel/xform/NaxelPrefixXformSm.h"

#include "mox/Assert.h"
#include "naxel/genset/FieldNames.h"
#include "naxel/types/NaxelTrace.h"

#include <algorithm>
#include <utility>

namespace Naxel {

NaxelPrefixXformSm::NaxelPrefixXformSm(Obel::ChipId chipId, Mox::Ptr<PrefixXformConfig> config,
                                       Mox::Ptr<PrefixXformStatus> status,
                                       Mox::Ptr<ChipHwCapability const> hwCapability)
    : XformSmBase(chipId, std::move(config), status, std::move(hwCapability)),
      status_(std::move(status)) {}

uint32_t NaxelPrefixXformSm::xformWidth() const {
  return hwCapability()->prefixXformWidth(status_->key());
}

std::string NaxelPrefixXformSm::traceStr() const {
  return "PrefixXformSm(" + Mox::stringValue(status_->key().af()) +
         (status_->key().src() ? ", src" : ", dst") + ")::";
}

std::string NaxelPrefixXformSm::subject() const { return fieldName(status_->key()); }

Mox::Ptr<Routing::TrieGen> const& NaxelPrefixXformSm::trie() const {
  if (!trieIsFilled_) {
    for (auto const& [prefix, label] : status_->prefixToLabelMap()) trie_->routeIs(prefix, true);
    trieIsFilled_ = true;
  }
  return trie_;
}

Mox::Ptr<Routing::TrieGen> NaxelPrefixXformSm::trieIs(Mox::Name const& name,
                                                      Lumox::AddressFamily af) {
  if (!trie() || trie_->name() != name || trie_->af() != af) {
    trie_ = Mox::makePtr<Routing::TrieGen>(name, af);
    trieIsFilled_ = true;
  }
  return trie_;
}

void NaxelPrefixXformSm::trieDel() {
  trie_ = nullptr;
  trieIsFilled_ = true;
}

NaxelPrefixXformSm::GroupMap& NaxelPrefixXformSm::groupMap() const {
  if (!prefixToGenSetGrp_) prefixToGenSetGrp_ = groupsOf(status_->prefixToLabelMap());
  return *prefixToGenSetGrp_;
}

NaxelPrefixXformSm::GroupMap const& NaxelPrefixXformSm::prefixToGenSetGrp() const {
  return groupMap();
}

Mox::Ptr<GenSetKeyGroup> NaxelPrefixXformSm::prefixToGenSetGrp(Lumox::IpGenPrefix const& p) const {
  auto const* group = groupMap().get(p);
  return group ? *group : nullptr;
}

void NaxelPrefixXformSm::prefixToGenSetGrpIs(Lumox::IpGenPrefix const& p,
                                             Mox::Ptr<GenSetKeyGroup> group) {
  groupMap().set(p, std::move(group));
}

void NaxelPrefixXformSm::prefixToGenSetGrpDel(Lumox::IpGenPrefix const& p) { groupMap().erase(p); }

void NaxelPrefixXformSm::doBuildWorkingSet() {
  traceStep(8, "doBuildWorkingSet");
  workingSetIsKeysOf(prefixAggregatorInfo().prefixSetColl());
}

PrefixSets NaxelPrefixXformSm::sets() const {
  return setsOf<PrefixSet>(prefixAggregatorInfo().prefixSetColl());
}

std::optional<PrefixPieces> NaxelPrefixXformSm::changedPieces(PrefixSets const& sets) const {
  SetChanges<PrefixSet> const changes(sets_, sets);
  auto const added = cutPrefixes(changes.added, limit());
  if (!added) return std::nullopt;
  return changePrefixes({status_->prefixToLabelMap().items(), namings_, groups(), changes.removed,
                         *added, changes.moves},
                        limit());
}

void NaxelPrefixXformSm::doBuildSetGroup() {
  traceStep(8, "doBuildSetGroup");
  if (naxelTrace().on(6)) traceGroups();
  PrefixSets sets = this->sets();
  auto pieces = hasBasis() ? changedPieces(sets) : cutPrefixes(sets, limit());
  doClearGroups();
  if (!pieces) return overflowIs(true);
  sets_ = std::move(sets);
  namings_ = std::move(pieces->namings);
  items_ = groupsAre(std::move(*pieces));
}

/// The groups as the trie's walk would find them, step by step.
void NaxelPrefixXformSm::traceGroups() {
  auto const root = Mox::valueFromText<Lumox::IpGenPrefix>(
      status_->key().af() == Lumox::ipv4() ? "0.0.0.0/0" : "0::0/0");
  doInitSetGroup();
  doBuildTrie();
  DumpWalkCallback dump(*this);
  traceStep(6, "*** Trie built ***");
  trie_->preOrderWalk(root, dump);
  UpdatePrefixSetListCallback update(*this);
  trie_->preOrderWalk(root, update);
  traceStep(6, "*** PrefixSetLists updated ***");
  trie_->preOrderWalk(root, dump);
}

void NaxelPrefixXformSm::doInitSetGroup() {
  traceStep(8, "doInitSetGroup");
  GroupMap& seeds = prefixToGenSetGrp_.emplace();
  auto const seed = [&](Lumox::IpGenPrefix const& p) -> GenSetKeyGroup& {
    auto& group = seeds.at(p);
    if (!group) group = genSetKeyGroupFactory();
    return *group;
  };
  for (auto const& [key, set] : prefixAggregatorInfo().prefixSetColl()) {
    for (Lumox::IpGenPrefix const& p : set->prefix()) seed(p).keyGroupIs(key);
    // An except prefix only makes a node.
    for (Lumox::IpGenPrefix const& p : set->exceptPrefix()) seed(p);
  }
}

PieceCount NaxelPrefixXformSm::doCountGroups() { return countPrefixPieces(sets()); }

void NaxelPrefixXformSm::doBuildTrie() {
  traceStep(8, "doBuildTrie");
  trieDel();
  trieIs("NaxelPrefixXformTrie", status_->key().af());
  trie_->reserve(groupMap().size());
  for (auto const& [prefix, group] : groupMap()) {
    traceStep(9, "doBuildTrie") << " prefix " << prefix;
    trie_->routeIs(prefix, true);
  }
}

void NaxelPrefixXformSm::doAllocLabels() {
  traceStep(8, "doAllocLabels");
  PrefixXformStatus::LabelMap labels;
  labels.adopt(std::exchange(items_, {}));
  status_->prefixToLabelMapIs(std::move(labels));
  // From here on the groups are those of the labels, for whoever asks.
  prefixToGenSetGrp_.reset();
  trieDel();
  trieIs("NaxelPrefixXformTrie", status_->key().af());
  trieIsFilled_ = false;
}

void NaxelPrefixXformSm::doClearGroups() {
  XformSmBase::doClearGroups();
  items_ = {};
  sets_ = {};
  namings_ = {};
  prefixToGenSetGrp_.emplace();
  trieDel();
}

int UpdatePrefixSetListCallback::handlePrefix(Lumox::IpGenPrefix const& prefix) {
  Lumox::IpGenPrefix const parent = sm_.trie()->findParent(prefix);
  auto const traced = [&](char const* text) {
    if (auto line = sm_.traceStep(9, "handlePrefix"))
      line << " prefix " << prefix << " ...parent " << parent << text;
  };
  traced("");
  auto const setList = sm_.prefixToGenSetGrp(prefix);
  MOX_ASSERT(setList);
  auto const excepts = [&](GenSetKey key) {
    // A set that excepts a node loses all below it, also what it names there itself.
    auto const& exceptions = sm_.prefixAggregatorInfo().prefixSetColl(key)->exceptPrefix();
    return std::ranges::any_of(exceptions, [&](auto const& p) { return p.contains(prefix); });
  };
  auto const complete = genSetKeyGroupFactory();
  for (GenSetKey key : setList->keyGroup())
    if (!excepts(key)) complete->keyGroupIs(key);
  if (auto const above = sm_.prefixToGenSetGrp(parent))
    for (GenSetKey key : above->keyGroup()) {
      bool const hit = excepts(key);
      traced(hit ? " ......hit exceptPrefix" : " ......did not hit exceptPrefix");
      if (!hit) complete->keyGroupIs(key);
    }
  sm_.prefixToGenSetGrpIs(prefix, complete);
  return 1;
}

int DumpWalkCallback::handlePrefix(Lumox::IpGenPrefix const& prefix) {
  if (auto line = trace(6))
    line << sm_.traceStr() << "handlePrefix"
         << " prefix " << prefix;
  auto const group = sm_.prefixToGenSetGrp(prefix);
  if (!group) return 1;
  for (GenSetKey key : group->keyGroup()) {
    if (auto line = trace(6)) line << "...label " << key;
    auto const set = sm_.prefixAggregatorInfo().prefixSetColl(key);
    for (auto const& p : set->prefix())
      if (auto line = trace(6)) line << "......prefix " << p;
    for (auto const& p : set->exceptPrefix())
      if (auto line = trace(6)) line << "......prefix " << p << " except";
  }
  return 1;
}

Mox::Ptr<NaxelPrefixXformSm> naxelPrefixXformSmFactory(
    Obel::ChipId chipId, Mox::Ptr<PrefixXformConfig> config, Mox::Ptr<PrefixXformStatus> status,
    Mox::Ptr<ChipHwCapability const> hwCapability) {
  return Mox::makePtr<NaxelPrefixXformSm>(chipId, std::move(config), std::move(status),
                                          std::move(hwCapability));
}

}  // namespace Naxel
