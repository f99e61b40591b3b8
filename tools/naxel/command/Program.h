#pragma once

/// The program: from its command line to its exit code.

#include "input/Errors.h"

namespace NaxelTool {

/// Runs it. Whatever is wrong has been said on standard error when it returns.
ExitCode runProgram(int argc, char const* const* argv);

}  // namespace NaxelTool
