#pragma once

/// Why a kick has failed, in the words of whoever wrote the rules.

#include "command/Console.h"
#include "input/RuleSet.h"
#include "session/Session.h"

namespace NaxelTool {

/// Says it on `console`. Returns the code for it: the rules do not fit, the driver refused, memory ran
/// out.
ExitCode sayKickFailure(Session const& session, RuleSet const& rules, Console& console);

}  // namespace NaxelTool
