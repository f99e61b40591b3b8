#pragma once

/// Priorities for an ordered list, so that most items keep the ones that they have.
///
/// A priority has 16 bits and an index 32, so priorities are ranks; they have gaps, so that one more item moves
/// nobody. Of the items that have a priority already, those keep it that form the heaviest descending sequence; all
/// others share out the gaps between these evenly. A gap that is too small is widened: kept items next to it give
/// theirs up, twice as many each time, until half of the room is free, or as much of it as of all priorities on the
/// whole, or nobody keeps any.

#include "mox/Export.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace NaxelOvs {

struct RankItem {
  std::optional<uint16_t> present;  ///< the priority that it has; 0 counts as none
  uint32_t weight = 1;              ///< what it costs to move it
};

inline constexpr size_t mostRanks = 65535;

/// Strictly descending priorities of 1 to 65535, the first item's being the highest. At most `mostRanks` items.
/// O(n log n) and what the widening takes.
NAXEL_EXPORT std::vector<uint16_t> assignPriorities(std::vector<RankItem> const& items);

}  // namespace NaxelOvs
