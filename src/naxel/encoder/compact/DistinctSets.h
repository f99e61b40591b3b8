#pragma once

/// The sets of a family that are to be encoded: equal ones once, with the sum of their weights, the largest first.
/// A set of one label mostly needs no encoding, since its label's code is its cube.

#include "mox/Export.h"
#include "naxel/encoder/compact/SetFamily.h"

namespace Naxel::Compact {

struct NAXEL_EXPORT DistinctSets {
  /// Of sets of ascending members, none empty, and of what a cube of each costs. Sets of fewer than `least` members are
  /// left out.
  DistinctSets(SetFamily const& all, std::vector<uint64_t> const& uses, size_t least);

  SetFamily sets;
  std::vector<uint64_t> weights;  ///< see weightOf()
  std::vector<uint32_t>
      of;  ///< of each set given which of them it is; SetFamily::none where it is left out

  /// A cube of a set that no rule uses costs hardly anything, but not nothing: it must be noticed where another
  /// set's label comes to lie in it.
  static uint64_t weightOf(uint64_t uses) { return (uses << 10) + 1; }
  static uint64_t usesOf(uint64_t weight) { return weight >> 10; }
};

}  // namespace Naxel::Compact
