#pragma once

/// Reader of access lists as an ASA has them: whole configurations, and the output of `show access-list`.
/// docs/formats.md says what it makes of them.

#include "input/RuleReading.h"

#include <string_view>

namespace NaxelTool {

/// Whether a text has a line that only an ASA has: its version, or an entry of a list with a name.
bool isAsaText(std::string_view content);

/// Adds an ACL for each list, in the order of the file, whose rules are named by the positions of the entries.
/// A list for both families becomes two, the second with "-v6" behind its name.
void readAsa(RuleReading& reading);

}  // namespace NaxelTool
