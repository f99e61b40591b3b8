#pragma once

/// Verdicts as members of a JSON object (schema/naxel-explain.schema.json).

#include "output/RuleJson.h"
#include "verify/MatchKey.h"

#include <optional>
#include <string>

namespace NaxelTool {

/// "acl", "verdict" and what belongs to the rule that the tables hit; "rulesSay" where `expected`, which decides
/// by the rules, is another one.
std::string verdictMembers(RuleSet const& rules, Naxel::AclConfig const& acl,
                           std::optional<Naxel::AceIndex> expected, Verify::Verdict const& found);

}  // namespace NaxelTool
