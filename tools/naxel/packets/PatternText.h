#pragma once

/// Packets of some kind as a line of text, in the notation of rules (output/RuleText.h):
///
///   tcp 10.0.0.0/8 > {192.0.2.1 192.0.2.9}:443,8000-8100 init
///   udp any > [2001:db8::/32 except 2001:db8:1::/48]:53
///   proto 47,50-51 office > any
///   icmp any > "my servers" type 8
///   ip any > any dscp 46 len 60-100 frag 1-8191
///
/// The protocol is ip for all of them, one by its name, icmp6 for the ICMP of IPv6, or "proto" and
/// numbers. An address without a length stands for itself; a word is the name of a list, in quotes
/// where it is more than letters, digits, '_', '-' and '.'. An IPv6 prefix or several words stand in
/// brackets before ports. Ports, protocols and code points may go by their names.

#include "input/NamedLists.h"
#include "packets/PacketLine.h"

#include <optional>
#include <string>

namespace NaxelTool {

struct Pattern {
  Mox::Ptr<Naxel::RuleFilter> filter;
  std::optional<Lumox::AddressFamily> af;  ///< none: nothing in it is of one family
};

/// Throws LineError with what is wrong and where. The names are those of `lists`.
Pattern patternFromText(std::string const& text, NamedLists const& lists);

}  // namespace NaxelTool
