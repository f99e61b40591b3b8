#include "command/VerdictJson.h"

#include "output/Verdicts.h"

#include <nlohmann/json.hpp>

namespace NaxelTool {

std::string jsonText(std::string const& text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string ruleMembers(RuleSet const& rules, Naxel::AclConfig const& acl, Naxel::AceIndex rule) {
  std::string out = "\"rule\":" + std::to_string(rule.value());
  if (auto const config = acl.ruleById(rule)) out += ",\"name\":" + jsonText(config->name());
  if (std::string const from = rules.originText(acl.name(), rule); !from.empty())
    out += ",\"from\":" + jsonText(from);
  return out;
}

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
