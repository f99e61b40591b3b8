#pragma once

/// The compact label code: codes for which nearly every set is one cube.
///
/// Problem. A field has labels and sets of labels. Each label gets a code of its own, so that each set is
/// matched by few value/mask pairs, which are cubes of codes; a rule takes the product of its sets' cubes. Codes that
/// nobody has are matched by chance or not at all, and may be matched freely. The highest code belongs to nobody.
///
/// Idea. What nests comes out even: a set that crosses no other is an aligned block, filled up with codes that
/// nobody has to a power of two, and what lies inside it is an item of that block. Only sets that cross each other
/// are a problem, and each component of them is one by itself, over its atoms (crossingTree). It is
/// solved twice, by layers and by insertion, and the cheaper one is taken. Bits that nobody needs go to the heaviest
/// components. Where room is short, sets of small weight are left unfilled: a set of n labels then takes
/// as many blocks as its room has binary ones.
///
/// Example, width 3: {1 2 3} and {1 2}. The first is a block of four, the second one of two inside it, and
/// one code stays empty: 1 and 2 get 000 and 001, 3 gets 010, and the sets are 0xx and 00x.
///
/// Invariants. Codes are distinct and below the highest; the cubes of a set match its labels' codes and no
/// other label's, and never the highest code. The result depends on the arguments alone.
///
/// Cost. O(n log n) in the members of all sets for what nests; see Faces.h for what crosses.

#include "mox/Export.h"
#include "naxel/encoder/compact/Cube.h"
#include "naxel/encoder/compact/SetFamily.h"

namespace Naxel::Compact {

struct Code {
  std::vector<uint16_t> codes;  ///< of each label
  std::vector<CubeList> cubes;  ///< of each set
};

/// `sets` of the labels 0 to n - 1, each ascending, none empty; what a cube of each costs; codes of `bits`, 1 to 16. There
/// must be a code for each label: n is below 2^bits.
NAXEL_EXPORT Code compactCode(SetFamily const& sets, std::vector<uint64_t> const& weights,
                              uint32_t n, unsigned bits);

}  // namespace Naxel::Compact
