#pragma once

/// Addresses as device configurations write them, as prefixes: with wildcards, netmasks, lengths and ranges.

#include "lumox/IpGenPrefix.h"

#include <optional>
#include <string_view>
#include <vector>

namespace NaxelTool {

using Prefixes = std::vector<Lumox::IpGenPrefix>;

/// One address as a prefix of full length; none if the text is not one. Decimal numbers without leading
/// zeros in IPv4.
std::optional<Lumox::IpGenPrefix> addressOf(std::string_view text);
/// The same for IPv4 alone, as a number.
std::optional<uint32_t> address4Of(std::string_view text);

/// What an address stands for of which the bits of `wildcard` do not matter. A wildcard that is a run of low
/// ones gives one prefix; each set bit above its lowest run doubles them. None beyond 8 such bits.
std::optional<Prefixes> wildcardPrefixes(uint32_t address, uint32_t wildcard);
/// Ones from the top on: 255.255.255.0. Neither all bits nor none, which are wildcards as much as netmasks.
bool looksLikeNetmask(uint32_t mask);

/// The prefixes that cover exactly the addresses from one to the other, of one family and in order.
Prefixes rangePrefixes(Lumox::IpGenPrefix const& first, Lumox::IpGenPrefix const& last);

}  // namespace NaxelTool
