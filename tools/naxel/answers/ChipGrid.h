#pragma once

/// A grid of chips: the product of the values that some members of a chip's description are given.

#include "answers/ChipMembers.h"

#include <string>
#include <string_view>
#include <vector>

namespace NaxelTool {

/// Members that take a value together, and the values one after the other.
struct GridAxis {
  std::string name;  ///< the path as it was given
  std::vector<ChipMember const*> members;
  std::vector<uint64_t> values;
};

class ChipGrid {
 public:
  std::vector<GridAxis> const& axes() const { return axes_; }
  /// Adds an axis from "rangeXformWidth.dstPort=0,8,12". A path of an object stands for all its members; several
  /// paths may be joined by "+". Throws std::invalid_argument with a text for the user.
  void axisIs(std::string_view text);
  /// Reads a file of axes (schema/naxel-grid.schema.json). Throws InputError.
  void read(std::string const& path, std::string const& content);

  /// Chips in all; the largest number where there are even more.
  uint64_t points() const;
  /// The values of a point, one for each axis; the last axis changes fastest.
  std::vector<uint64_t> point(uint64_t number) const;
  /// The chip of a point.
  ChipSetup chip(ChipSetup const& base, std::vector<uint64_t> const& values) const;

 private:
  void add(GridAxis axis);

  std::vector<GridAxis> axes_;
};

/// Either label code, ports with labels and without, and combinations of addresses and ports or none: 24 chips.
ChipGrid defaultGrid();

}  // namespace NaxelTool
