#pragma once

/// What readers of access lists as text owe whoever gives them a text, beyond what all readers do: each entry is
/// compiled or reported, whatever the options, and what is left out of the verdicts is an error unless it may be
/// left out.

#include "input/RuleReading.h"

namespace Fuzz {

/// Reads the text with several options, and compiles what comes out if it is little.
void checkTextReader(NaxelTool::RuleReader reader, std::string const& text);

}  // namespace Fuzz
