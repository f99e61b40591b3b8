#pragma once

/// Reader of the tables ACL_TABLE and ACL_RULE of SONiC's CONFIG_DB as JSON. The format is described in
/// docs/formats.md.

#include "input/RuleReading.h"

namespace NaxelTool {

/// Whether the name of one of the two tables stands in the text.
bool looksLikeConfigDb(std::string_view content);

/// Adds an ACL for each table that has rules, two for one with rules of both families. Throws InputError for
/// a text that is no such file as a whole.
void readConfigDb(RuleReading& reading);

}  // namespace NaxelTool
