#pragma once

/// The library's trace facility.

#include "mox/Trace.h"

namespace Naxel {

/// The facility "Naxel", level 0 (failures only) until the agent raises it.
NAXEL_EXPORT Mox::TraceFacility& naxelTrace();

/// A line of the facility; false where the level is off.
inline Mox::TraceLine trace(int level) {
  // Kept here: most levels are off, and finding that out is most of what tracing costs.
  static Mox::TraceFacility const& facility = naxelTrace();
  return facility.line(level);
}

}  // namespace Naxel
