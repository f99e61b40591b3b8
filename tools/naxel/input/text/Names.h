#pragma once

/// What the dialects call protocols, ports, ICMP types and code points. A name that differs between releases
/// of a dialect stands in no table.

#include "input/text/Dialect.h"
#include "input/text/Values.h"

#include <optional>
#include <string_view>
#include <vector>

namespace NaxelTool {

/// Numbers of protocols that entries treat in a way of their own.
constexpr uint32_t icmpProtocol = 1;
constexpr uint32_t igmpProtocol = 2;
constexpr uint32_t tcpProtocol = 6;
constexpr uint32_t udpProtocol = 17;
constexpr uint32_t icmp6Protocol = 58;
constexpr uint32_t sctpProtocol = 132;

/// The names that stand for any protocol are not among them. "icmp" is that of the family.
std::optional<uint32_t> protocolNumber(std::string_view name, Dialect dialect,
                                       Lumox::AddressFamily af);
std::vector<std::string_view> protocolNames();

/// Ports of entries for these protocols: those of TCP or of UDP have names, or both where the protocols are
/// not known.
ValueKind portKind(Dialect dialect, ValueSet const& protocols);

struct IcmpName {
  uint32_t type = 0;
  bool hasCode = false;  ///< the name means one code of the type
};
std::optional<IcmpName> icmpName(std::string_view name, Dialect dialect, uint32_t protocol);
std::vector<std::string_view> icmpNames(Dialect dialect, uint32_t protocol);

ValueKind dscpKind();
ValueKind precedenceKind();

}  // namespace NaxelTool
