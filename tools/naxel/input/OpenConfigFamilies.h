#pragma once

/// Which address families OpenConfig's entries name.

#include "input/AclDraft.h"
#include "input/OpenConfigTree.h"

namespace NaxelTool::OpenConfig {

/// Of an `ethertype`, a name or a number; none for what is no IP packet.
Families familiesOfEthertype(JsonNode const& node);

/// What the containers, addresses and the ethertype of an entry name, whether or not a rule can say the rest
/// of it; none where they name nothing. Both do not exclude each other here. Throws InputError.
Families familiesNamed(Values const& values, JsonNode const& entry);

}  // namespace NaxelTool::OpenConfig
