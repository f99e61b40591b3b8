#pragma once

/// The text that `naxel compile` prints after a kick.

#include "input/RuleSet.h"
#include "session/Session.h"

#include <ostream>

namespace NaxelTool {

/// One line that says that entries of the rule files were left out, if any were: what is compiled then has
/// other verdicts than its source.
/// `what` names the entries where there are several sources.
void printLeftOut(std::ostream& out, ReadCounts const& counts, char const* what = "entries");

/// Tables of the ACLs, the labels and the stages, and how the handshake went.
void printSummary(std::ostream& out, Session const& session);

}  // namespace NaxelTool
