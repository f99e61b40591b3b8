#include "naxel/xform/PrefixCut.h"

#include "mox/Assert.h"
#include "naxel/xform/PieceCounter.h"
#include "naxel/xform/PieceLabels.h"

#include <algorithm>
#include <compare>

namespace Naxel {

namespace {

using Lumox::IpGenPrefix;

/// A set names a prefix, or excepts it.
struct Naming {
  IpGenPrefix const* prefix;
  // By what namings are sorted: the upper half of the address, below which an IPv4 prefix has its length;
  // then the prefix; then the set, and as many as there are, they come in this order.
  uint64_t key;
  uint32_t place;
  uint32_t set : 31;
  uint32_t excepts : 1;
};

/// In natural order of the prefixes; of one prefix by ascending set.
std::vector<Naming> namingsOf(PrefixSets const& sets) {
  size_t size = 0;
  for (auto const& set : sets) size += set->prefix().size() + set->exceptPrefix().size();
  std::vector<Naming> all;
  all.reserve(size);
  uint32_t number = 0;
  auto const add = [&](Mox::FlatSet<IpGenPrefix> const& prefixes, uint32_t excepts) {
    for (IpGenPrefix const& p : prefixes) {
      uint64_t const length = p.af() == Lumox::ipv4() ? p.length() : 0;
      all.push_back({&p, p.hi() | length, static_cast<uint32_t>(all.size()), number & 0x7fffffff,
                     excepts & 1});
    }
  };
  for (auto const& set : sets) {
    add(set->prefix(), 0);
    add(set->exceptPrefix(), 1);
    ++number;
  }
  bool const isV4 = !all.empty() && all.front().prefix->af() == Lumox::ipv4();
  auto const sort = [&](auto less) {
    // One set alone comes in order, which is the common case of a long list.
    if (!std::is_sorted(all.begin(), all.end(), less)) std::sort(all.begin(), all.end(), less);
  };
  if (isV4) {
    sort([](Naming const& a, Naming const& b) {
      return a.key != b.key ? a.key < b.key : a.place < b.place;
    });
  } else {
    sort([](Naming const& a, Naming const& b) {
      if (a.key != b.key) return a.key < b.key;
      auto const order = *a.prefix <=> *b.prefix;
      return order != 0 ? order < 0 : a.place < b.place;
    });
  }
  return all;
}

/// The walk over the nodes. `enter(node, namings, parent, more, less)` makes a node's piece from that of the
/// node above, by the sets that come in and those that go; `Piece()` stands above the uppermost. It returns
/// false to stop.
template <class Piece, class Enter>
void walkNodes(PrefixSets const& sets, std::vector<Naming> const& namings, Enter enter) {
  // A set holds a node that it or an ancestor is named by, unless either is excepted: numbers along the path.
  struct OnPath {
    uint32_t naming = 0;
    uint32_t excepting = 0;
    bool holds() const { return naming > 0 && excepting == 0; }
  };
  std::vector<OnPath> onPath(sets.size());
  struct Node {
    size_t from;  // its namings
    size_t to;
    Piece piece;
  };
  std::vector<Node> path;
  std::vector<uint32_t> more;
  std::vector<uint32_t> less;
  auto const count = [&](Naming const& n, uint32_t by) {
    (n.excepts ? onPath[n.set].excepting : onPath[n.set].naming) += by;
  };
  for (size_t from = 0, to = 0; from < namings.size(); from = to) {
    IpGenPrefix const& prefix = *namings[from].prefix;
    for (; !path.empty() && !namings[path.back().from].prefix->contains(prefix); path.pop_back())
      // Adding the largest number takes 1 away: arithmetic wraps.
      for (size_t i = path.back().from; i < path.back().to; ++i) count(namings[i], ~uint32_t{0});
    more.clear();
    less.clear();
    while (to < namings.size() && *namings[to].prefix == prefix) {
      uint32_t const set = namings[to].set;
      bool const held = onPath[set].holds();
      // A set may name a prefix as a member and except it as well.
      for (; to < namings.size() && namings[to].set == set && *namings[to].prefix == prefix; ++to)
        count(namings[to], 1);
      if (onPath[set].holds() != held) (held ? less : more).push_back(set);
    }
    Piece piece = path.empty() ? Piece() : path.back().piece;
    if (!enter(prefix, to - from, piece, more, less)) return;
    path.push_back({from, to, piece});
  }
}

}  // namespace

std::optional<PrefixPieces> cutPrefixes(PrefixSets const& sets, PieceCount const& limit) {
  std::vector<Naming> const namings = namingsOf(sets);
  PieceLabels labels(limit);
  labels.reserve(std::min(namings.size(), limit.pieces));
  PrefixPieces pieces;
  pieces.items.reserve(namings.size());
  pieces.namings.reserve(namings.size());
  walkNodes<PieceLabels::Piece>(sets, namings,
                                [&](IpGenPrefix const& prefix, size_t named,
                                    PieceLabels::Piece& piece, SetPlaces more, SetPlaces less) {
                                  piece = labels.changed(piece, more, less);
                                  pieces.items.emplace_back(prefix, PlainLabel(piece.label));
                                  pieces.namings.push_back(static_cast<uint32_t>(named));
                                  return !labels.isExceeded();
                                });
  if (labels.isExceeded()) return std::nullopt;
  pieces.groups = labels.take();
  return pieces;
}

namespace {

/// How often each old node is still named.
std::vector<uint32_t> namingsLeft(PrefixChange const& change) {
  std::vector<uint32_t> left = change.namings;
  for (auto const& set : change.removed)
    for (auto const* prefixes : {&set->prefix(), &set->exceptPrefix()}) {
      auto at = change.old.begin();
      for (IpGenPrefix const& p : *prefixes) {
        at = std::lower_bound(at, change.old.end(), p, [](auto const& item, IpGenPrefix const& q) {
          return item.first < q;
        });
        MOX_ASSERT(at != change.old.end() && at->first == p);
        --left[static_cast<size_t>(at - change.old.begin())];
      }
    }
  return left;
}

/// Pieces that are met in natural order, and the innermost one around what has been met last.
class PathOf {
 public:
  explicit PathOf(std::vector<std::pair<IpGenPrefix, PlainLabel>> const& items) : items_(items) {}
  /// The next piece; null behind the last.
  IpGenPrefix const* next() const { return at_ < items_.size() ? &items_[at_].first : nullptr; }
  size_t place() const { return at_; }
  /// Leaves what does not contain the prefix, and enters the next piece where that is it.
  void go(IpGenPrefix const& prefix, bool enter) {
    while (!path_.empty() && !items_[path_.back()].first.contains(prefix)) path_.pop_back();
    if (enter) path_.push_back(at_++);
  }
  uint32_t label() const { return path_.empty() ? 0 : items_[path_.back()].second.value(); }

 private:
  std::vector<std::pair<IpGenPrefix, PlainLabel>> const& items_;
  std::vector<size_t> path_;
  size_t at_ = 0;
};

}  // namespace

std::optional<PrefixPieces> changePrefixes(PrefixChange const& change, PieceCount const& limit) {
  std::vector<uint32_t> const left = namingsLeft(change);
  PieceOverlay overlay(change.groups, change.added.groups, change.moves, limit);
  PrefixPieces pieces;
  pieces.items.reserve(change.old.size() + change.added.items.size());
  pieces.namings.reserve(change.old.size() + change.added.items.size());
  PathOf old(change.old);
  PathOf added(change.added.items);
  for (;;) {
    IpGenPrefix const* const ofOld = old.next();
    IpGenPrefix const* const ofAdded = added.next();
    if (!ofOld && !ofAdded) break;
    bool const isOld = !ofAdded || (ofOld && *ofOld <= *ofAdded);
    bool const isAdded = !ofOld || (ofAdded && *ofAdded <= *ofOld);
    IpGenPrefix const& prefix = isOld ? *ofOld : *ofAdded;
    uint32_t const named =
        (isOld ? left[old.place()] : 0) + (isAdded ? change.added.namings[added.place()] : 0);
    old.go(prefix, isOld);
    added.go(prefix, isAdded);
    // What nobody names any more is no node. What lies below it does so in the sets that are left of those here.
    if (!named) continue;
    pieces.items.emplace_back(prefix, overlay.label(old.label(), added.label()));
    pieces.namings.push_back(named);
    if (overlay.isExceeded()) return std::nullopt;
  }
  pieces.groups = overlay.take();
  return pieces;
}

PieceCount countPrefixPieces(PrefixSets const& sets) {
  struct Counted {
    uint64_t hash = 0;
    size_t size = 0;
  };
  PieceCounter pieces;
  walkNodes<Counted>(
      sets, namingsOf(sets),
      [&](IpGenPrefix const&, size_t, Counted& piece, SetPlaces more, SetPlaces less) {
        for (uint32_t set : more) piece.hash += hashOfSet(set);
        for (uint32_t set : less) piece.hash -= hashOfSet(set);
        piece.size += more.size() - less.size();
        pieces.add(piece.hash, piece.size);
        return true;
      });
  return pieces.distinct();
}

}  // namespace Naxel
