#include "naxel/xform/PrefixCut.h"

#include <algorithm>
#include <iterator>

namespace Naxel {

namespace {

using Lumox::IpGenPrefix;

/// Prefixes with the sets that name them, in natural order.
using Naming = std::vector<std::pair<IpGenPrefix, GenSetKey>>;

Naming naming(PrefixSetViews const& sets,
              Mox::FlatSet<IpGenPrefix> const* PrefixSetView::*prefixes) {
  size_t size = 0;
  for (PrefixSetView const& set : sets) size += (set.*prefixes)->size();
  Naming all;
  all.reserve(size);
  for (PrefixSetView const& set : sets)
    for (IpGenPrefix const& p : *(set.*prefixes)) all.emplace_back(p, set.key);
  return all;
}

PrefixPieces grouped(Naming all, KeyGroupInterner& interner) {
  // One set alone comes in order, which is the common case of a long list.
  if (!std::is_sorted(all.begin(), all.end())) std::sort(all.begin(), all.end());
  std::vector<PrefixPieces::value_type> groups;
  groups.reserve(all.size());
  std::vector<GenSetKey> keys;
  for (size_t i = 0; i < all.size(); i += keys.size()) {
    keys.clear();
    for (size_t j = i; j < all.size() && all[j].first == all[i].first; ++j)
      keys.push_back(all[j].second);
    groups.emplace_back(all[i].first, interner.intern(keys));
  }
  PrefixPieces map;
  map.adopt(std::move(groups));
  return map;
}

std::vector<GenSetKey> keysOf(PrefixSetViews const& sets) {
  std::vector<GenSetKey> keys;
  keys.reserve(sets.size());
  for (PrefixSetView const& set : sets) keys.push_back(set.key);
  return keys;
}

}  // namespace

PrefixCut::PrefixCut(PrefixSetViews const& sets, PieceCount const& limit) : groups_(limit) {
  Naming members = naming(sets, &PrefixSetView::members);
  groups_.interner().reserve(members.size());
  seeds_ = grouped(std::move(members), groups_.interner());
  exceptions_ = grouped(naming(sets, &PrefixSetView::exceptions), groups_.interner());
  // Without except prefixes no set ever has to be looked up by its key, and the tables for that are not
  // made.
  if (exceptions_.empty()) return;
  // An except prefix is a node also where nobody names it.
  std::vector<PrefixPieces::value_type> nodes(seeds_.items());
  for (auto const& [prefix, group] : exceptions_)
    if (!seeds_.contains(prefix)) nodes.emplace_back(prefix, groups_.interner().intern({}));
  seeds_.adopt(std::move(nodes));
  excepting_.resize(sets.size());
  places_ = KeyPlaces(keysOf(sets));
}

void PrefixCut::exceptedBy(GenSetKeyGroup const* sets, uint32_t by) {
  if (!sets) return;
  for (GenSetKey key : sets->keyGroup()) excepting_[places_.at(key)] += by;
}

Mox::Ptr<GenSetKeyGroup> PrefixCut::complete(IpGenPrefix const& node,
                                             GenSetKeyGroup const& naming) {
  for (; !path_.empty() && !path_.back().prefix.contains(node); path_.pop_back())
    // Adding the largest number takes 1 away: arithmetic wraps.
    exceptedBy(path_.back().excepting, ~uint32_t{0});
  auto const* except = exceptions_.get(node);
  GenSetKeyGroup const* const here = except ? except->get() : nullptr;
  exceptedBy(here, 1);
  PieceGroup const none;
  // This refers into the path, so the new node is appended only when its group is complete.
  PieceGroup const& parent = path_.empty() ? none : path_.back().group;
  auto const isAbove = [&](GenSetKey key) {
    return parent.group && std::ranges::binary_search(parent.group->keyGroup(), key);
  };
  // What changes against the parent: sets that are named here, and those that except this node. A set that
  // excepts an ancestor is not above, and must not come back.
  more_.clear();
  for (GenSetKey key : naming.keyGroup())
    if (!isAbove(key) && (excepting_.empty() || excepting_[places_.at(key)] == 0))
      more_.push_back(key);
  less_.clear();
  if (here) std::ranges::copy_if(here->keyGroup(), std::back_inserter(less_), isAbove);
  hitException_ = here ? std::optional(!less_.empty()) : std::nullopt;
  path_.push_back({node, groups_.changed(parent, more_, less_), here});
  return path_.back().group.group;
}

std::optional<PrefixPieces> cutPrefixes(PrefixSetViews const& sets, PieceCount const& limit) {
  PrefixCut cut(sets, limit);
  PrefixPieces pieces = cut.takeSeeds();
  for (size_t at = 0; at < pieces.size(); ++at) {
    pieces.valueAt(at) = cut.complete(pieces[at].first, *pieces[at].second);
    if (cut.isExceededBy(pieces, at + 1)) return std::nullopt;
  }
  return pieces;
}

PieceCount countPrefixPieces(PrefixSetViews const& sets) {
  // A node's group are the sets that it or an ancestor names and that neither excepts: numbers along
  // the path, and a hash that follows them.
  struct Event {
    IpGenPrefix prefix;
    uint32_t set;
    bool excepts;
  };
  std::vector<Event> events;
  for (uint32_t i = 0; i < sets.size(); ++i) {
    // A set may name a prefix as a member and except it as well. Both are counted, and both are taken back
    // when the node is left.
    for (IpGenPrefix const& p : *sets[i].members) events.push_back({p, i, false});
    for (IpGenPrefix const& p : *sets[i].exceptions) events.push_back({p, i, true});
  }
  // Only the prefix matters: all events of a node are applied before its piece is counted.
  std::sort(events.begin(), events.end(),
            [](Event const& a, Event const& b) { return a.prefix < b.prefix; });
  struct OnPath {
    uint32_t naming = 0;
    uint32_t excepting = 0;
    bool inGroup() const { return naming > 0 && excepting == 0; }
  };
  std::vector<OnPath> onPath(sets.size());
  Mox::KeyedSetHash group;
  size_t size = 0;
  auto const step = [&](Event const& e, uint32_t by) {
    OnPath& set = onPath[e.set];
    bool const before = set.inGroup();
    (e.excepts ? set.excepting : set.naming) += by;
    if (set.inGroup() && !before) group.add(e.set), ++size;
    if (!set.inGroup() && before) group.remove(e.set), --size;
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
    IpGenPrefix const& prefix = events[from].prefix;
    while (!path.empty() && !events[path.back()].prefix.contains(prefix)) leave();
    for (; to < events.size() && events[to].prefix == prefix; ++to) step(events[to], 1);
    path.push_back(from);
    pieces.add(group, size);
  }
  return pieces.distinct();
}

}  // namespace Naxel
