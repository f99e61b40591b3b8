#pragma once

/// What is odd about a rule by itself, whatever other rules there are.

#include "output/RuleView.h"

#include <string>
#include <string_view>
#include <vector>

namespace NaxelTool {

struct RuleFault {
  std::string_view code;  ///< of a FindingKind
  std::string text;       ///< a clause behind the name of the rule
};

/// Why no packet has what the rule asks for, where that is so; a clause behind the name of the rule.
std::string whyNothingMatches(RuleView const& rule, NamedLists const& lists);

/// What of a rule that matches something is idle or hardly meant: values that no packet has together with
/// the rest, actions that do nothing.
std::vector<RuleFault> faultsOf(RuleView const& rule);

}  // namespace NaxelTool
