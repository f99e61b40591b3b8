#include "output/RuleJson.h"

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

}  // namespace NaxelTool
