#pragma once

/// The same rules on many chips: which of them hold the rules, at what cost, and what the others lack.

#include "answers/ChipGrid.h"
#include "input/RuleSet.h"
#include "session/Session.h"

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace NaxelTool {

/// The rules on one chip of the grid.
struct WhatIfPoint {
  std::vector<uint64_t> values;  ///< one for each axis
  /// What breaks: first of all what the compilation breaks at, otherwise every table that is too small. Empty
  /// where the rules fit.
  std::vector<std::string> lacks;
  /// Known unless the compilation breaks.
  std::optional<uint64_t> entries;
  uint64_t rows = 0;  ///< of all tables
  uint64_t bits = 0;  ///< that these rows match (answers/Trials.h)

  bool fits() const { return lacks.empty(); }
};

struct WhatIfReport {
  ChipGrid grid;
  std::vector<WhatIfPoint> points;
  std::optional<size_t> cheapest;  ///< its place; none where the rules fit nowhere
  size_t kicks = 0;
  size_t leftOut = 0;     ///< entries of the source that are in none
  bool unusable = false;  ///< the rules cannot be compiled for any chip
};

/// Compiles the rules for every chip of the grid; chips that differ in nothing but the room of their tables share
/// a kick. The cheapest is the one of the fewest bits in all tables, then of the fewest rows, then of the
/// narrowest labels, then the first.
WhatIfReport whatIf(RuleSet const& rules, ChipSetup const& base, ChipGrid const& grid,
                    std::function<void(Session const&)> const& onUnusable,
                    std::function<void(uint64_t)> const& tell);

/// The cheapest `shown` chips that fit, then as many that do not.
void print(WhatIfReport const& report, size_t shown, std::ostream& out);
void printJson(WhatIfReport const& report, std::ostream& out);

}  // namespace NaxelTool
