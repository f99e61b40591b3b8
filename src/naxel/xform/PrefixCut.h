#pragma once

/// Cuts the addresses that prefix sets describe into disjoint pieces.
///
/// Problem. Sets overlap: a prefix lies in another one, in the same set or in others, and a set may leave out
/// what lies in an except prefix of its own. The chip looks every address up once, by longest prefix, and
/// that one entry has to say in which of all the sets the address lies.
///
/// Idea. Every prefix that any set names, as a member or as an except prefix, becomes a node of a tree. A
/// node stands for the addresses under it that no longer prefix takes, and all of them lie in the same sets:
///
///   group(node)  = (group(parent) without the sets that except this node)
///                  with the sets that name this node, unless they except it or an ancestor
///
/// The nodes are visited in natural order, which brings every parent before its children, with the path from
/// the root at hand.
///
/// Example. A = {10.0.0.0/8 except 10.1.0.0/16}, B = {10.1.2.0/24} gives 10.0.0.0/8 {A}, 10.1.0.0/16 {} and
/// 10.1.2.0/24 {B}.
///
/// Invariants. A set that excepts a node loses the whole subtree there, also where it names a prefix further
/// down itself: an except prefix is matched by nothing of its list. A node whose group is empty stays a piece
/// of its own, so that the longest-prefix match stops there.
///
/// Cost. A node costs as much as the sets that name or except it (PieceGroups.h), plus sorting. Holding the
/// group of every node by itself instead would cost the square where many sets share a wide prefix.

#include "lumox/IpGenPrefix.h"
#include "naxel/genset/KeyPlaces.h"
#include "naxel/xform/PieceGroups.h"

#include <optional>
#include <vector>

namespace Naxel {

/// A set as the cut reads it. Members and exceptions are masked.
struct PrefixSetView {
  GenSetKey key;
  Mox::FlatSet<Lumox::IpGenPrefix> const* members;
  Mox::FlatSet<Lumox::IpGenPrefix> const* exceptions;
};
/// By ascending key.
using PrefixSetViews = std::vector<PrefixSetView>;

/// The pieces: each prefix with the sets that hold its addresses.
using PrefixPieces = Mox::FlatMap<Lumox::IpGenPrefix, Mox::Ptr<GenSetKeyGroup>>;

/// The cut step by step, for whoever shows the steps. cutPrefixes() takes them all.
class PrefixCut {
 public:
  /// Stops being of use once the pieces exceed the limit.
  PrefixCut(PrefixSetViews const& sets, PieceCount const& limit);

  /// The nodes, each with the sets that name it. Given away once.
  PrefixPieces takeSeeds() { return std::move(seeds_); }
  /// The sets that hold the addresses of a node, from those that name it. Call it for all nodes, in their
  /// order.
  Mox::Ptr<GenSetKeyGroup> complete(Lumox::IpGenPrefix const& node, GenSetKeyGroup const& naming);
  /// True once the first `count` pieces, which are complete, need more than the limit.
  bool isExceededBy(PrefixPieces const& pieces, size_t count) {
    return groups_.isExceededBy(std::span(pieces.items()).first(count));
  }
  /// True if the node of the last complete() is an except prefix that took sets away; none where it is no
  /// except prefix.
  std::optional<bool> hitException() const { return hitException_; }

 private:
  /// A node on the path from the root to the present one.
  struct Ancestor {
    Lumox::IpGenPrefix prefix;
    PieceGroup group;
    GenSetKeyGroup const* excepting;  // the sets that except it; null for none
  };
  void exceptedBy(GenSetKeyGroup const* sets, uint32_t by);

  PieceGroups groups_;
  PrefixPieces seeds_;
  PrefixPieces exceptions_;  // the sets that except a prefix
  std::vector<Ancestor> path_;
  KeyPlaces places_;                 // of all sets, if any excepts anything
  std::vector<uint32_t> excepting_;  // for each set how many nodes of the path it excepts
  PieceGroups::Keys more_;
  PieceGroups::Keys less_;
  std::optional<bool> hitException_;
};

/// All pieces; none where they exceed the limit.
std::optional<PrefixPieces> cutPrefixes(PrefixSetViews const& sets, PieceCount const& limit);

/// How many distinct groups the pieces have, and how many sets are in them, found without keeping any: the
/// reason of a refusal must not take the memory that was refused. O(n log n) for n prefixes.
PieceCount countPrefixPieces(PrefixSetViews const& sets);

}  // namespace Naxel
