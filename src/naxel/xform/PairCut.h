#pragma once

/// Cuts overlapping sets of pairs, each a source and a destination label, into disjoint groups: every pair
/// that occurs gets the sets that hold it.
///
/// Idea. Groups are found by refinement, one source label after another. The sets that have pairs with it are
/// taken in ascending order of their keys; a destination label that is in the next set moves from its group
/// to that group extended by the set, and all that come from one group go to the same one.
///
/// Example. A = {(1,1), (1,2)}, B = {(1,2), (1,3)}: with source label 1, A moves destinations 1 and 2 from
/// the empty group to {A}; B moves 2 from {A} to {A, B} and 3 from the empty group to {B}.
///
/// Cost. A pair costs a few steps in an array per set that holds it, and a group its own size once. An object
/// per pair, or its keys as a list, would cost their sum.

#include "naxel/genset/GenSet.h"
#include "naxel/xform/PieceCount.h"
#include "naxel/xform/PieceOverlay.h"

#include <optional>

namespace Naxel {

/// By ascending key.
using PairSets = std::vector<Mox::Ptr<ComboLabelSet const>>;

/// The pieces: each pair with the sets that hold it.
using PairPieces = Pieces<GenCombo>;

/// All pieces; none where their groups exceed the limit.
std::optional<PairPieces> cutPairs(PairSets const& sets, PieceCount const& limit);

/// The pieces after a change: those before it, the pieces of the sets that have come, and where sets stand now.
/// None where they exceed the limit. O(pieces).
struct PairChange {
  std::vector<std::pair<GenCombo, PlainLabel>> const& old;
  PieceGroups const& groups;
  PairPieces const& added;
  SetMoves const& moves;
};
std::optional<PairPieces> changePairs(PairChange const& change, PieceCount const& limit);

/// How many distinct groups the pieces have, and how many sets are in them, found without keeping any.
PieceCount countPairPieces(PairSets const& sets);

}  // namespace Naxel
