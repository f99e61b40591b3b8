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
  interner_ = KeyGroupInterner();  // and with it the seeds
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
    groups.emplace_back(naming[i].first, interner_.intern(keys));
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
  interner_ = KeyGroupInterner();
  Naming members;
  Naming exceptions;
  nameAll(members, exceptions);
  interner_.reserve(members.size());
  prefixToGenSetGrp_ = groupsOf(std::move(members));
  prefixToExceptGrp_ = groupsOf(std::move(exceptions));

  // An except prefix marks a node of the trie without a member of its own.
  if (prefixToExceptGrp_.empty()) return;
  std::vector<GroupMap::value_type> nodes(prefixToGenSetGrp_.items());
  for (auto const& [prefix, group] : prefixToExceptGrp_)
    if (!prefixToGenSetGrp_.contains(prefix)) nodes.emplace_back(prefix, interner_.intern({}));
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

void PrefixGroupStep::placeWords(Mox::KeyedHash& h) const noexcept {
  for (GenSetKeyGroup const* g : {base, more, less}) Mox::placeWords(h, g);
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
  Group& setList = sm_.prefixToGenSetGrp_.valueAt(at_);
  MOX_ASSERT(sm_.prefixToGenSetGrp_[at_].first == prefix && setList);
  ++at_;

  auto const* except = sm_.prefixToExceptGrp_.get(prefix);
  GenSetKeyGroup* const here = except ? except->get() : nullptr;
  exceptedBy(here, 1);
  GenSetKeyGroup* const parent = path_.empty() ? nullptr : path_.back().group;
  auto const isAbove = [&](GenSetKey key) {
    return parent && std::ranges::binary_search(parent->keyGroup(), key);
  };
  auto const isNew = [&](GenSetKey key) {
    return !isAbove(key) && (excepting_.empty() || excepting_[places_.at(key)] == 0);
  };
  Step const step{parent, part(setList.get(), isNew), part(here, isAbove)};
  if (here)
    if (auto line = sm_.traceStep(9, "handlePrefix"))
      line << (step.less ? " ......hit exceptPrefix" : " ......did not hit exceptPrefix");
  setList = changed(step);
  countGroup(setList);
  path_.push_back({prefix, setList.get(), here});
  return 1;
}

template <class F>
GenSetKeyGroup* UpdatePrefixSetListCallback::part(GenSetKeyGroup* group, F holds) {
  if (!group) return nullptr;
  part_.clear();
  std::ranges::copy_if(group->keyGroup(), std::back_inserter(part_), holds);
  if (part_.empty()) return nullptr;
  return part_.size() == group->keyGroups() ? group : sm_.interner_.intern(part_).get();
}

UpdatePrefixSetListCallback::Group UpdatePrefixSetListCallback::changed(Step const& step) {
  static Keys const none;
  auto const keysOf = [](GenSetKeyGroup const* g) -> Keys const& {
    return g ? g->keyGroup().items() : none;
  };
  if (!step.more && !step.less) return step.base ? Group(step.base) : sm_.interner_.intern(none);
  if (!step.base) return Group(step.more);
  // A group that no other node has (the interner holds it, and this node) occurs in no other step.
  bool const isRare = step.more && step.more->references() == 2;
  if (!isRare)
    if (Group const* known = known_.get(step)) return *known;
  Keys const* base = &keysOf(step.base);
  if (step.less) {
    kept_.clear();
    std::ranges::set_difference(*base, keysOf(step.less), std::back_inserter(kept_));
    base = &kept_;
  }
  united_.clear();
  std::ranges::set_union(*base, keysOf(step.more), std::back_inserter(united_));
  Group group = sm_.interner_.intern(united_);
  if (!isRare) known_.set(step, group);
  return group;
}

void UpdatePrefixSetListCallback::countGroup(Group const& group) {
  // Groups are interned, so the interner has made at least all that are in use.
  if (!sm_.isTooMuch(sm_.interner_)) return;
  auto const add = [&](GenSetKeyGroup const* g) {
    if (distinct_.insert(g)) memberships_ += g->keyGroups();
  };
  if (distinct_.empty())
    for (size_t i = 0; i < at_; ++i) add(sm_.prefixToGenSetGrp_[i].second.get());
  add(group.get());
  if (distinct_.size() > sm_.groupLimit() || memberships_ > sm_.membershipLimit())
    sm_.overflowIs(true);
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
