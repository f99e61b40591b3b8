#pragma once

/// What rules and tables say of a packet, compared and in words.

#include "naxel/types/AclConfig.h"
#include "verify/MatchKey.h"

#include <optional>
#include <string>

namespace NaxelTool {

/// The tables hit exactly the rule that decides, with its action, or neither knows one.
bool agree(Naxel::AclConfig const& acl, std::optional<Naxel::AceIndex> rule,
           Verify::Verdict const& verdict);

/// "rule 60 'web'", or without a name where that is the index.
std::string numberAndName(Naxel::AceIndex index, std::string const& name);

/// "rule 60 'web': permit", "no rule".
std::string text(Naxel::AclConfig const& acl, std::optional<Naxel::AceIndex> rule);
std::string text(Naxel::AclConfig const& acl, Verify::Verdict const& verdict);

/// "drop, log", "permit, set dscp 16".
std::string text(Naxel::NaxelActionValue const& action);

}  // namespace NaxelTool
