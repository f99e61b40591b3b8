#pragma once

/// Reader of our own rule files, which can say everything that a rule can. The format is described in
/// docs/formats.md and schema/naxel-rules.schema.json.

#include "input/RuleReading.h"

namespace NaxelTool {

/// Adds the ACLs of a file. A named prefix list becomes one entity, however many rules refer to it, and
/// rules of all files of the run may; a list or a set of ranges that matches everything is left out of
/// the rule. Throws InputError for a text that is no such file as a whole.
void readJsonConfig(RuleReading& reading);

}  // namespace NaxelTool
