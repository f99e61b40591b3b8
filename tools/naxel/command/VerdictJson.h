#pragma once

/// Verdicts as members of a JSON object (schema/naxel-classify.schema.json).

#include "input/RuleSet.h"
#include "verify/MatchKey.h"

#include <optional>
#include <string>

namespace NaxelTool {

/// A text as JSON; bytes that are not UTF-8 are replaced.
std::string jsonText(std::string const& text);

/// "rule", "name" and "from", as far as they are known.
std::string ruleMembers(RuleSet const& rules, Naxel::AclConfig const& acl, Naxel::AceIndex rule);

/// "acl", "verdict" and what belongs to the rule that the tables hit; "rulesSay" where `expected`, which decides
/// by the rules, is another one.
std::string verdictMembers(RuleSet const& rules, Naxel::AclConfig const& acl,
                           std::optional<Naxel::AceIndex> expected, Verify::Verdict const& found);

}  // namespace NaxelTool
