#pragma once

/// The text that `naxel compile` prints after a kick.

#include "session/Session.h"

#include <ostream>

namespace NaxelTool {

/// Tables of the ACLs, the labels and the stages, and how the handshake went.
void printSummary(std::ostream& out, Session const& session);

}  // namespace NaxelTool
