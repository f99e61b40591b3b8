#include "input/OpenConfigFamilies.h"

namespace NaxelTool::OpenConfig {

namespace {

/// What the `ip` of the older dialect names; addresses of IPv6 have colons.
Families familiesOfIp(Values const& values, JsonNode const& ip) {
  Families found{values.find(ip, "icmpv4") != nullptr, values.find(ip, "icmpv6") != nullptr};
  JsonNode const* const config = values.find(ip, "config");
  if (!config) return found;
  for (std::string_view const name :
       {"source-ip-address", "destination-ip-address", "source-address", "destination-address"}) {
    JsonNode const* const address = values.find(*config, name);
    if (!address || !address->text()) continue;
    bool const v6 = address->text()->find(':') != std::string::npos;
    found = found | Families{!v6, v6};
  }
  return found;
}

}  // namespace

Families familiesOfEthertype(JsonNode const& node) {
  std::string const* const text = node.text();
  std::string_view const type = text ? baseName(*text) : std::string_view();
  uint64_t const number = node.number() ? *node.number() : 0;
  return {type == "ETHERTYPE_IPV4" || number == 0x0800,
          type == "ETHERTYPE_IPV6" || number == 0x86dd};
}

Families familiesNamed(Values const& values, JsonNode const& entry) {
  Families found{values.find(entry, "ipv4") != nullptr, values.find(entry, "ipv6") != nullptr};
  if (JsonNode const* const ip = values.find(entry, "ip"))
    found = found | familiesOfIp(values, *ip);
  JsonNode const* const l2 = values.find(entry, "l2");
  JsonNode const* const config = l2 ? values.find(*l2, "config") : nullptr;
  JsonNode const* const type = config ? values.find(*config, "ethertype") : nullptr;
  return type ? found | familiesOfEthertype(*type) : found;
}

}  // namespace NaxelTool::OpenConfig
