#pragma once

/// The fewest value/mask pairs that say which label each port has, where longer masks win.
///
/// A table of ranges as prefixes takes up to 30 for a single range. Since longer prefixes may stand over shorter
/// ones, far fewer do: 1024-65535 beside 0-1023 takes two, all ports and the first 1,024, instead of seven. The
/// least number comes from two walks of the tree of prefixes: from the leaves up each node keeps the labels with
/// which its subtree is cheapest, what both halves share or else what either has; from the root down each node
/// takes over its parent's label if that is among them, and costs an entry only if not.
///
/// Only nodes above a border of two pieces are visited: O(pieces x 16 x labels of a node).

#include "mox/Export.h"

#include <cstdint>
#include <vector>

namespace NaxelOvs {

/// Values from `first` up to the next piece have this label.
struct LabelPiece {
  uint16_t first;
  uint16_t label;
};

struct PortCover {
  uint16_t value;
  uint8_t length;  ///< of the prefix, 0 to 16
  uint16_t label;

  uint16_t mask() const { return static_cast<uint16_t>(0xffff0000u >> length); }
};

/// Pieces begin with value 0, ascending. The result holds a prefix of length 0, and is in pre-order.
NAXEL_EXPORT std::vector<PortCover> coverPorts(std::vector<LabelPiece> const& pieces);

}  // namespace NaxelOvs
