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
/// Cost. A node costs as much as the sets that name or except it (PieceLabels.h), plus sorting. Holding the
/// group of every node by itself instead would cost the square where many sets share a wide prefix.

#include "naxel/genset/GenSet.h"
#include "naxel/xform/PieceCount.h"
#include "naxel/xform/PieceOverlay.h"

#include <optional>

namespace Naxel {

/// By ascending key; of one family, with masked members and exceptions.
using PrefixSets = std::vector<Mox::Ptr<PrefixSet const>>;

/// The pieces: each node with the sets that hold its addresses.
struct PrefixPieces : Pieces<Lumox::IpGenPrefix> {
  /// How often sets name or except each node.
  std::vector<uint32_t> namings;
};

/// All pieces; none where they exceed the limit.
std::optional<PrefixPieces> cutPrefixes(PrefixSets const& sets, PieceCount const& limit);

/// The pieces after a change: those before it, the sets that have gone, the pieces of those that have come, and
/// where sets stand now. None where they exceed the limit. O(pieces + prefixes that go * log pieces).
struct PrefixChange {
  std::vector<std::pair<Lumox::IpGenPrefix, PlainLabel>> const& old;
  std::vector<uint32_t> const& namings;
  PieceGroups const& groups;
  PrefixSets const& removed;
  PrefixPieces const& added;
  SetMoves const& moves;
};
std::optional<PrefixPieces> changePrefixes(PrefixChange const& change, PieceCount const& limit);

/// How many distinct groups the pieces have, and how many sets are in them, found without keeping any: the
/// reason of a refusal must not take the memory that was refused. O(n log n) for n prefixes.
PieceCount countPrefixPieces(PrefixSets const& sets);

}  // namespace Naxel
