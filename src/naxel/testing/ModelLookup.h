#pragma once

/// Lookup for models of a chip that keep the output in force as it is, or build one from their rows: as
/// docs/driver-guide.md says, entry by entry.

#include "naxel/testing/DriverConformance.h"

namespace Naxel::Testing {

Met lookup(PDData const& inForce, PDAclKey const& acl, Verify::Packet const& packet);

}  // namespace Naxel::Testing
