#pragma once

/// The compact label code with room for labels to come, for codes that are to stay.
///
/// Idea. A label that comes into a set changes none of its cubes where they hold a free code that lies in no foreign
/// cube. A code that is left free is like one more label of the same sets, so the sets are encoded with such labels
/// added, which are taken out again. Sets that many rules use get the more of them, since each of their
/// cubes that changes is a row for each use. Where sets cross, that may spoil faces; then all are encoded in fewer
/// bits, and each code becomes a block of so many.
///
/// Example, width 4: {1 2} with 100 uses. With two labels more like 1 it is 00xx in place of 000x, and 3, which comes
/// later into the set, finds a code there.
///
/// Invariants. Those of compactCode(), and no more than a twentieth above its price.
///
/// Cost. Up to six times that of compactCode(), where sets cross; where they nest about as much.

#include "naxel/encoder/compact/CompactCode.h"

namespace Naxel::Compact {

/// Arguments as of compactCode().
NAXEL_EXPORT Code roomyCode(SetFamily const& sets, std::vector<uint64_t> const& weights, uint32_t n,
                            unsigned bits);

}  // namespace Naxel::Compact
