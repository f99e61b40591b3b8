#pragma once

/// Which sets cross, and how what crosses nests: the tree that the codes are laid out along.
///
/// Terms. Two sets cross if they share labels and neither contains the other. A component is a class of sets
/// that are connected by crossing. An atom of a component is a class of labels that lie in the same of its
/// sets. The union of one component lies inside one atom of another or is disjoint from it, so components and
/// atoms make up a tree: components hang below atoms, the outermost of which holds everything. Only the
/// sets of one component compete for places; whatever nests comes out even.
///
/// Idea. The sets are taken from the largest to the smallest, so a new set contains none of those before it.
/// It lies in one atom: a new component there. Or its labels lie in several: then it crosses the components
/// on the way from these atoms up to where the ways meet. They all become one, and the atoms that
/// the set cuts are split. Overlap classes can be found in linear time (Dahlhaus 2000; Charbit et al. 2008);
/// this is simpler and gives the atoms as well.
///
/// Example. {1 2 3 4 5 6}, {2 3 4}, {4 5}, {2 3}: the first is a component of one set and one atom. The next
/// two cross there: a component of the atoms {2 3}, {4} and {5}. The last hangs below {2 3}.
///
/// Invariants. A component's number is above that of the component that it hangs in. Every atom but the outermost
/// lies in a set of its component.
///
/// Cost. O(n log n) for n members of all sets; each step up the tree takes a component away.

#include "mox/Export.h"
#include "naxel/encoder/compact/SetFamily.h"

namespace Naxel::Compact {

struct CrossingTree {
  /// Of each component the atom that it hangs in, the outermost being 0.
  std::vector<uint32_t> parent;
  SetFamily sets;      ///< of each component, ascending
  SetFamily atoms;     ///< of each component
  SetFamily labels;    ///< of each atom those that lie in no component below it
  SetFamily children;  ///< components below each atom
  uint32_t components() const { return static_cast<uint32_t>(parent.size()); }
};

/// The tree of `sets` over the labels 0 to n - 1. The sets must be all different, of two labels or more,
/// and stand in order of falling size.
NAXEL_EXPORT CrossingTree crossingTree(SetFamily const& sets, uint32_t n);

}  // namespace Naxel::Compact
