#include "naxel/xform/NaxelPrefixXformSm.h"

#include "mox/Assert.h"
#include "naxel/types/NaxelTrace.h"

#include <algorithm>
#include <iterator>

namespace Naxel {

NaxelPrefixXformSm::NaxelPrefixXformSm(Obel::ChipId chipId, Mox::Ptr<PrefixXformConfig> config,
                                       Mox::Ptr<PrefixXformStatus> status,
                                       Mox::Ptr<ChipHwCapability const> hwCapability)
    : XformSmBase(chipId, config, status, std::move(hwCapability)),
      config_(std::move(config)),
      status_(std::move(status)) {}

uint32_t NaxelPrefixXformSm::xformWidth() const {
  return hwCapability()->prefixXformWidth(config_->key());
}

std::string NaxelPrefixXformSm::traceStr() const {
  return "PrefixXformSm(" + Mox::stringValue(config_->key().af()) +
         (config_->key().src() ? ", src" : ", dst") + ")::";
}

Mox::Ptr<Routing::TrieGen> NaxelPrefixXformSm::trieIs(Mox::Name const& name,
                                                      Lumox::AddressFamily af) {
  if (!trie_ || trie_->name() != name || trie_->af() != af)
    trie_ = Mox::makePtr<Routing::TrieGen>(name, af);
  return trie_;
}

Mox::Ptr<GenSetKeyGroup> NaxelPrefixXformSm::prefixToGenSetGrp(Lumox::IpGenPrefix const& p) const {
  auto const* group = prefixToGenSetGrp_.get(p);
  return group ? *group : nullptr;
}

void NaxelPrefixXformSm::doBuildWorkingSet() {
  traceStep(8, "doBuildWorkingSet");
  std::vector<GenSetKey> keys;
  for (auto const& [key, set] : prefixAggregatorInfo().prefixSetColl()) keys.push_back(key);
  auto group = genSetKeyGroupFactory();
  group->keyGroupIs(std::move(keys));
  workingSetIs(std::move(group));
}

void NaxelPrefixXformSm::doBuildSetGroup() {
  traceStep(8, "doBuildSetGroup");
  auto const root = Mox::valueFromText<Lumox::IpGenPrefix>(
      config_->key().af() == Lumox::ipv4() ? "0.0.0.0/0" : "0::0/0");
  doInitSetGroup();
  doBuildTrie();
  auto const dump = [&](char const* title) {
    if (!naxelTrace().on(6)) return;
    traceStep(6, title);
    DumpWalkCallback callback(*this);
    trie_->preOrderWalk(root, callback);
  };
  dump("*** Trie built ***");
  UpdatePrefixSetListCallback callback(*this);
  trie_->preOrderWalk(root, callback);
  dump("*** PrefixSetLists updated ***");
}

NaxelPrefixXformSm::GroupMap NaxelPrefixXformSm::groupsOf(Naming naming) {
  std::sort(naming.begin(), naming.end());
  std::vector<GroupMap::value_type> groups;
  std::vector<GenSetKey> keys;
  for (size_t i = 0; i < naming.size(); i += keys.size()) {
    keys.clear();
    for (size_t j = i; j < naming.size() && naming[j].first == naming[i].first; ++j)
      keys.push_back(naming[j].second);
    groups.emplace_back(naming[i].first, interner_.intern(keys));
  }
  GroupMap map;
  map.adopt(std::move(groups));
  return map;
}

void NaxelPrefixXformSm::doInitSetGroup() {
  traceStep(8, "doInitSetGroup");
  interner_ = KeyGroupInterner();
  Naming members;
  Naming exceptions;
  for (auto const& [key, set] : prefixAggregatorInfo().prefixSetColl()) {
    for (auto const& p : set->prefix()) members.emplace_back(p, key);
    for (auto const& e : set->exceptPrefix()) exceptions.emplace_back(e, key);
  }
  prefixToGenSetGrp_ = groupsOf(std::move(members));
  prefixToExceptGrp_ = groupsOf(std::move(exceptions));

  // An except prefix marks a node of the trie without a member of its own.
  std::vector<GroupMap::value_type> all(prefixToGenSetGrp_.items());
  for (auto const& [prefix, group] : prefixToExceptGrp_)
    if (!prefixToGenSetGrp_.contains(prefix)) all.emplace_back(prefix, interner_.intern({}));
  prefixToGenSetGrp_.adopt(std::move(all));
}

void NaxelPrefixXformSm::doBuildTrie() {
  traceStep(8, "doBuildTrie");
  trieDel();
  trieIs("NaxelPrefixXformTrie", config_->key().af());
  for (auto const& [prefix, group] : prefixToGenSetGrp_) {
    traceStep(9, "doBuildTrie") << " prefix " << prefix;
    trie_->routeIs(prefix, true);
  }
}

void NaxelPrefixXformSm::doAllocLabels() {
  traceStep(8, "doAllocLabels");
  xformSetGroupDeduper()->clear();
  std::vector<PrefixXformStatus::LabelMap::value_type> labels;
  labels.reserve(prefixToGenSetGrp_.size());
  for (auto const& [prefix, group] : prefixToGenSetGrp_)
    labels.emplace_back(prefix, xformSetGroupDeduper()->addGroup(group));
  PrefixXformStatus::LabelMap map;
  map.adopt(std::move(labels));
  status_->prefixToLabelMapIs(std::move(map));
}

void NaxelPrefixXformSm::doClearOutput() {
  prefixToGenSetGrpDelAll();
  status_->prefixToLabelMapIs({});
}

uint64_t PrefixGroupStep::hash64() const {
  auto const word = [](GenSetKeyGroup const* g) { return reinterpret_cast<uintptr_t>(g); };
  return Mox::hashCombine(Mox::hashCombine(word(parent), word(own)),
                          Mox::hashCombine(word(exceptHere), word(exceptAbove)));
}

int UpdatePrefixSetListCallback::handlePrefix(Lumox::IpGenPrefix const& prefix) {
  if (sm_.overflow()) return 1;
  Lumox::IpGenPrefix const parent = sm_.trie()->findParent(prefix);
  sm_.traceStep(9, "handlePrefix") << " prefix " << prefix << " ...parent " << parent;
  Mox::Ptr<GenSetKeyGroup>* const setList = sm_.prefixToGenSetGrp_.get(prefix);
  MOX_ASSERT(setList);
  auto const* parentGroup = sm_.prefixToGenSetGrp_.get(parent);
  auto const* exceptHere = sm_.prefixToExceptGrp_.get(prefix);
  auto const* exceptAbove = exceptedAt_.empty() ? nullptr : exceptedAt_.get(parent);

  Step const step{parentGroup ? parentGroup->get() : nullptr, setList->get(),
                  exceptHere ? exceptHere->get() : nullptr,
                  exceptAbove ? exceptAbove->get() : nullptr};
  Outcome const* outcome = known_.get(step);
  if (!outcome) {
    known_.set(step, combine(step));
    outcome = known_.get(step);
    if (distinct_.insert(outcome->group) && distinct_.size() > sm_.groupLimit())
      sm_.overflowIs(true);
  }
  *setList = outcome->group;
  if (outcome->excepted) exceptedAt_.set(prefix, outcome->excepted);
  return 1;
}

UpdatePrefixSetListCallback::Outcome UpdatePrefixSetListCallback::combine(Step const& step) {
  using Keys = std::vector<GenSetKey>;
  static Keys const none;
  auto const keysOf = [](GenSetKeyGroup const* g) -> Keys const& {
    return g ? g->keyGroup().items() : none;
  };
  auto const unite = [](Keys const& a, Keys const& b) {
    Keys out;
    std::set_union(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(out));
    return out;
  };
  Keys const excepted = unite(keysOf(step.exceptAbove), keysOf(step.exceptHere));
  Keys const all = unite(keysOf(step.parent), keysOf(step.own));
  Keys kept;
  std::set_difference(all.begin(), all.end(), excepted.begin(), excepted.end(),
                      std::back_inserter(kept));
  if (auto line = sm_.traceStep(9, "handlePrefix"))
    line << (kept.size() == all.size() ? " ......did not hit exceptPrefix"
                                       : " ......hit exceptPrefix");
  return {sm_.interner_.intern(kept), excepted.empty() ? nullptr : sm_.interner_.intern(excepted)};
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
