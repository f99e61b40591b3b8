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

#include <optional>
#include <vector>

namespace Naxel {

/// A set as the cut reads it.
struct PairSetView {
  GenSetKey key;
  Mox::FlatSet<GenCombo> const* pairs;
};
/// By ascending key.
using PairSetViews = std::vector<PairSetView>;

/// The pieces: each pair with the sets that hold it.
using PairPieces = Mox::FlatMap<GenCombo, Mox::Ptr<GenSetKeyGroup>>;

/// All pieces; none where their groups exceed the limit.
std::optional<PairPieces> cutPairs(PairSetViews const& sets, PieceCount const& limit);

/// How many distinct groups the pieces have, and how many sets are in them, found without keeping any.
PieceCount countPairPieces(PairSetViews const& sets);

}  // namespace Naxel
