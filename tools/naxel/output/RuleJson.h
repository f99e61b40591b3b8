#pragma once

/// How every JSON output names a rule.

#include "input/RuleSet.h"

#include <string>

namespace NaxelTool {

/// A text as JSON; bytes that are not UTF-8 are replaced.
std::string jsonText(std::string const& text);

/// "rule", "name" and "from" as members of a JSON object, as far as they are known.
std::string ruleMembers(RuleSet const& rules, Naxel::AclConfig const& acl, Naxel::AceIndex rule);

}  // namespace NaxelTool
