#pragma once

/// Reader of access lists as text of the IOS family: IOS, IOS XE, IOS XR, NX-OS and EOS. It reads whole device
/// configurations, of which it takes the lists and the groups, and the output of the commands that show lists.
/// docs/formats.md says what it makes of them.

#include "input/RuleReading.h"

#include <string_view>

namespace NaxelTool {

/// Whether a text has a line that begins a list.
bool isIosText(std::string_view content);

/// Adds an ACL for each list, in the order of the file, whose rules are named by the numbers of the entries.
void readIos(RuleReading& reading);

}  // namespace NaxelTool
