#include "answers/VerdictJson.h"

#include "output/Verdicts.h"

namespace NaxelTool {

std::string verdictMembers(RuleSet const& rules, Naxel::AclConfig const& acl,
                           std::optional<Naxel::AceIndex> expected, Verify::Verdict const& found) {
  std::string out = "\"acl\":" + jsonText(acl.name());
  if (found.kind == Verify::Verdict::Kind::rule)
    out += std::string(",\"verdict\":\"") + (found.action.dropEnabled() ? "drop" : "permit") +
           "\"," + ruleMembers(rules, acl, found.rule) +
           ",\"action\":" + jsonText(text(found.action));
  else
    out += ",\"verdict\":\"none\"";
  if (!agree(acl, expected, found)) out += ",\"rulesSay\":" + jsonText(text(acl, expected));
  return out;
}

}  // namespace NaxelTool
