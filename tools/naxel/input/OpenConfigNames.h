#pragma once

/// What OpenConfig calls protocols and ICMP types.

#include "lumox/AddressFamily.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace NaxelTool::OpenConfig {

/// The number of "IP_TCP".
std::optional<uint32_t> protocolOf(std::string_view name);
std::vector<std::string_view> protocolNames();

/// The number of "ECHO_REPLY", which is not the same in both families.
std::optional<uint32_t> icmpTypeOf(Lumox::AddressFamily af, std::string_view name);
/// Empty for a type that has no name.
std::string_view icmpTypeName(Lumox::AddressFamily af, uint32_t type);
std::vector<std::string_view> icmpTypeNames(Lumox::AddressFamily af);

}  // namespace NaxelTool::OpenConfig
