#pragma once

/// What two rules both match: where the packets of a change lie.

#include "answers/Changes.h"

#include <string>

namespace NaxelTool {

/// What the two rules of a change both match, in the notation of rules; earlier rules may take some of it. Empty
/// where one of them matches nothing else, so that its own text says as much, and where one is no rule. Takes
/// time in proportion to their lists.
std::string overlapText(PacketChange const& change, NamedLists const& names);

}  // namespace NaxelTool
