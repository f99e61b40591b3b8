#include "naxel/xform/NaxelPrefixXformSm.h"

#include "mox/Assert.h"
#include "naxel/genset/FieldNames.h"
#include "naxel/types/NaxelTrace.h"

#include <algorithm>
#include <iterator>

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
  workingSetIsKeysOf(prefixAggregatorInfo().prefixSetColl());
}

void NaxelPrefixXformSm::doBuildSetGroup() {
  traceStep(8, "doBuildSetGroup");
  auto const root = Mox::valueFromText<Lumox::IpGenPrefix>(
      status_->key().af() == Lumox::ipv4() ? "0.0.0.0/0" : "0::0/0");
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
  groups_ = PieceGroups();  // and with it the seeds
}

NaxelPrefixXformSm::GroupMap NaxelPrefixXformSm::groupsOf(Naming naming) {
  if (!std::is_sorted(naming.begin(), naming.end())) std::sort(naming.begin(), naming.end());
  std::vector<GroupMap::value_type> groups;
  groups.reserve(naming.size());
  std::vector<GenSetKey> keys;
  for (size_t i = 0; i < naming.size(); i += keys.size()) {
    keys.clear();
    for (size_t j = i; j < naming.size() && naming[j].first == naming[i].first; ++j)
      keys.push_back(naming[j].second);
    groups.emplace_back(naming[i].first, groups_.interner().intern(keys));
  }
  GroupMap map;
  map.adopt(std::move(groups));
  return map;
}

void NaxelPrefixXformSm::nameAll(Naming& members, Naming& exceptions) const {
  size_t all = 0;
  for (auto const& [key, set] : prefixAggregatorInfo().prefixSetColl()) all += set->prefix().size();
  members.reserve(all);
  for (auto const& [key, set] : prefixAggregatorInfo().prefixSetColl()) {
    for (auto const& p : set->prefix()) members.emplace_back(p, key);
    for (auto const& e : set->exceptPrefix()) exceptions.emplace_back(e, key);
  }
}

void NaxelPrefixXformSm::doInitSetGroup() {
  traceStep(8, "doInitSetGroup");
  groups_ = PieceGroups(limit());
  Naming members;
  Naming exceptions;
  nameAll(members, exceptions);
  groups_.interner().reserve(members.size());
  prefixToGenSetGrp_ = groupsOf(std::move(members));
  prefixToExceptGrp_ = groupsOf(std::move(exceptions));

  // An except prefix marks a node of the trie without a member of its own.
  if (prefixToExceptGrp_.empty()) return;
  std::vector<GroupMap::value_type> nodes(prefixToGenSetGrp_.items());
  for (auto const& [prefix, group] : prefixToExceptGrp_)
    if (!prefixToGenSetGrp_.contains(prefix))
      nodes.emplace_back(prefix, groups_.interner().intern({}));
  prefixToGenSetGrp_.adopt(std::move(nodes));
}

PieceCount NaxelPrefixXformSm::doCountGroups() {
  prefixToGenSetGrp_ = prefixToExceptGrp_ = {};
  trieDel();
  Naming members;
  Naming exceptions;
  nameAll(members, exceptions);
  // A node's group are the sets that it or an ancestor names and that neither excepts: numbers along
  // the path, and a hash that follows them.
  struct Event {
    Lumox::IpGenPrefix prefix;
    uint32_t set;
    bool excepts;
  };
  KeyPlaces const places(workingSet()->keyGroup().items());
  std::vector<Event> events;
  events.reserve(members.size() + exceptions.size());
  for (auto const& [prefix, key] : members) events.push_back({prefix, places.at(key), false});
  for (auto const& [prefix, key] : exceptions) events.push_back({prefix, places.at(key), true});
  std::sort(events.begin(), events.end(),
            [](Event const& a, Event const& b) { return a.prefix < b.prefix; });
  struct OnPath {
    uint32_t naming = 0;
    uint32_t excepting = 0;
    bool inGroup() const { return naming > 0 && excepting == 0; }
  };
  std::vector<OnPath> onPath(workingSet()->keyGroups());
  Mox::KeyedSetHash group;
  size_t sets = 0;
  auto const step = [&](Event const& e, uint32_t by) {
    OnPath& set = onPath[e.set];
    bool const before = set.inGroup();
    (e.excepts ? set.excepting : set.naming) += by;
    if (set.inGroup() && !before) group.add(e.set), ++sets;
    if (!set.inGroup() && before) group.remove(e.set), --sets;
  };
  PieceCounter pieces;
  std::vector<size_t> path;  // where the events of the ancestors begin
  auto const leave = [&] {
    for (size_t i = path.back();
         i < events.size() && events[i].prefix == events[path.back()].prefix; ++i)
      step(events[i], ~uint32_t{0});
    path.pop_back();
  };
  for (size_t from = 0, to = 0; from < events.size(); from = to) {
    Lumox::IpGenPrefix const& prefix = events[from].prefix;
    while (!path.empty() && !events[path.back()].prefix.contains(prefix)) leave();
    for (; to < events.size() && events[to].prefix == prefix; ++to) step(events[to], 1);
    path.push_back(from);
    pieces.add(group, sets);
  }
  return pieces.distinct();
}

void NaxelPrefixXformSm::doBuildTrie() {
  traceStep(8, "doBuildTrie");
  trieDel();
  trieIs("NaxelPrefixXformTrie", status_->key().af());
  trie_->reserve(prefixToGenSetGrp_.size());
  for (auto const& [prefix, group] : prefixToGenSetGrp_) {
    traceStep(9, "doBuildTrie") << " prefix " << prefix;
    trie_->routeIs(prefix, true);
  }
}

void NaxelPrefixXformSm::doAllocLabels() {
  traceStep(8, "doAllocLabels");
  status_->prefixToLabelMapIs(labelsOf(prefixToGenSetGrp_));
}

void NaxelPrefixXformSm::doClearOutput() {
  prefixToGenSetGrpDelAll();
  status_->prefixToLabelMapIs({});
}

UpdatePrefixSetListCallback::UpdatePrefixSetListCallback(NaxelPrefixXformSm& sm) : sm_(sm) {
  if (sm_.prefixToExceptGrp_.empty()) return;
  std::vector<GenSetKey> keys = keysOf(sm_.prefixAggregatorInfo().prefixSetColl());
  excepting_.resize(keys.size());
  places_ = KeyPlaces(std::move(keys));
}

void UpdatePrefixSetListCallback::exceptedBy(GenSetKeyGroup const* sets, uint32_t by) {
  if (!sets) return;
  for (GenSetKey key : sets->keyGroup()) excepting_[places_.at(key)] += by;
}

int UpdatePrefixSetListCallback::handlePrefix(Lumox::IpGenPrefix const& prefix) {
  if (sm_.overflow()) return 1;
  for (; !path_.empty() && !path_.back().prefix.contains(prefix); path_.pop_back())
    exceptedBy(path_.back().excepting, ~uint32_t{0});
  if (auto line = sm_.traceStep(9, "handlePrefix"))
    line << " prefix " << prefix << " ...parent " << sm_.trie()->findParent(prefix);
  // The walk meets the prefixes in the order in which the groups stand.
  Mox::Ptr<GenSetKeyGroup>& setList = sm_.prefixToGenSetGrp_.valueAt(at_);
  MOX_ASSERT(sm_.prefixToGenSetGrp_[at_].first == prefix && setList);
  ++at_;

  auto const* except = sm_.prefixToExceptGrp_.get(prefix);
  GenSetKeyGroup const* const here = except ? except->get() : nullptr;
  exceptedBy(here, 1);
  PieceGroup const none;
  PieceGroup const& parent = path_.empty() ? none : path_.back().group;
  auto const isAbove = [&](GenSetKey key) {
    return parent.group && std::ranges::binary_search(parent.group->keyGroup(), key);
  };
  more_.clear();
  for (GenSetKey key : setList->keyGroup())
    if (!isAbove(key) && (excepting_.empty() || excepting_[places_.at(key)] == 0))
      more_.push_back(key);
  less_.clear();
  if (here) std::ranges::copy_if(here->keyGroup(), std::back_inserter(less_), isAbove);
  if (here)
    if (auto line = sm_.traceStep(9, "handlePrefix"))
      line << (less_.empty() ? " ......did not hit exceptPrefix" : " ......hit exceptPrefix");
  path_.push_back({prefix, sm_.groups_.changed(parent, more_, less_), here});
  setList = path_.back().group.group;
  if (sm_.groups_.isExceededBy(std::span(std::as_const(sm_.prefixToGenSetGrp_.items())).first(at_)))
    sm_.overflowIs(true);
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
