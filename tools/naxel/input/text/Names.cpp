#include "input/text/Names.h"

#include <iterator>

namespace NaxelTool {

namespace {

constexpr uint8_t asaIcmp = 16;
constexpr uint8_t familyIcmp = 15;
constexpr uint8_t eosIcmp = 8;
constexpr uint8_t everyIcmp = 31;

struct NamedValue {
  std::string_view name;
  uint32_t value;
};

constexpr NamedValue protocolTable[] = {
    {"ah", 51},    {"ahp", 51},          {"eigrp", 88},  {"esp", 50},   {"gre", 47},
    {"icmp", 1},   {"icmp6", 58},        {"icmpv6", 58}, {"igmp", 2},   {"igrp", 9},
    {"ipinip", 4}, {"ipsec", 50},        {"nos", 94},    {"ospf", 89},  {"pcp", 108},
    {"pim", 103},  {"pptp", 47},         {"rsvp", 46},   {"sctp", 132}, {"snp", 109},
    {"tcp", 6},    {"udp", udpProtocol}, {"vrrp", 112},
};

struct IcmpRow {
  std::string_view name;
  uint8_t type;
  bool hasCode;
  uint8_t dialects;
};

constexpr IcmpRow icmpTable[] = {
    {"administratively-prohibited", 3, true, familyIcmp},
    {"alternate-address", 6, false, everyIcmp},
    {"conversion-error", 31, false, everyIcmp},
    {"dod-host-prohibited", 3, true, familyIcmp},
    {"dod-net-prohibited", 3, true, familyIcmp},
    {"echo", 8, false, everyIcmp},
    {"echo-reply", 0, false, everyIcmp},
    {"general-parameter-problem", 12, true, familyIcmp},
    {"host-isolated", 3, true, familyIcmp},
    {"host-precedence-unreachable", 3, true, familyIcmp},
    {"host-redirect", 5, true, familyIcmp},
    {"host-tos-redirect", 5, true, familyIcmp},
    {"host-tos-unreachable", 3, true, familyIcmp},
    {"host-unknown", 3, true, familyIcmp},
    {"host-unreachable", 3, true, familyIcmp},
    {"information-reply", 16, false, everyIcmp},
    {"information-request", 15, false, everyIcmp},
    {"mask-reply", 18, false, everyIcmp},
    {"mask-request", 17, false, everyIcmp},
    {"mobile-redirect", 32, false, everyIcmp},
    {"net-redirect", 5, true, familyIcmp},
    {"net-tos-redirect", 5, true, familyIcmp},
    {"net-tos-unreachable", 3, true, familyIcmp},
    {"net-unreachable", 3, true, familyIcmp},
    {"network-unknown", 3, true, familyIcmp},
    {"no-room-for-option", 12, true, familyIcmp},
    {"option-missing", 12, true, familyIcmp},
    {"packet-too-big", 3, true, familyIcmp},
    {"parameter-problem", 12, false, everyIcmp},
    {"port-unreachable", 3, true, familyIcmp},
    {"precedence-unreachable", 3, true, familyIcmp},
    {"protocol-unreachable", 3, true, familyIcmp},
    {"reassembly-timeout", 11, true, familyIcmp},
    {"redirect", 5, false, everyIcmp},
    {"router-advertisement", 9, false, everyIcmp},
    {"router-solicitation", 10, false, everyIcmp},
    {"source-quench", 4, false, everyIcmp},
    {"source-route-failed", 3, true, familyIcmp},
    {"time-exceeded", 11, false, everyIcmp},
    {"timestamp-reply", 14, false, everyIcmp},
    {"timestamp-request", 13, false, everyIcmp},
    {"traceroute", 30, false, everyIcmp},
    {"ttl-exceeded", 11, true, familyIcmp},
    {"unreachable", 3, false, everyIcmp},
};

constexpr IcmpRow icmp6Table[] = {
    {"address-unreachable", 1, true, familyIcmp},
    {"beyond-scope", 1, true, familyIcmp},
    {"echo", 128, false, asaIcmp},
    {"echo-reply", 129, false, everyIcmp},
    {"echo-request", 128, false, familyIcmp},
    {"header", 4, true, familyIcmp},
    {"hop-limit", 3, true, familyIcmp},
    {"membership-query", 130, false, asaIcmp},
    {"membership-reduction", 132, false, asaIcmp},
    {"membership-report", 131, false, asaIcmp},
    {"mld-query", 130, false, familyIcmp},
    {"mld-reduction", 132, false, familyIcmp},
    {"mld-report", 131, false, familyIcmp},
    {"mldv2", 143, false, familyIcmp},
    {"nd-na", 136, false, familyIcmp},
    {"nd-ns", 135, false, familyIcmp},
    {"neighbor-advertisement", 136, false, asaIcmp | eosIcmp},
    {"neighbor-redirect", 137, false, asaIcmp},
    {"neighbor-solicitation", 135, false, asaIcmp | eosIcmp},
    {"next-header", 4, true, familyIcmp},
    {"no-admin", 1, true, familyIcmp},
    {"no-route", 1, true, familyIcmp},
    {"packet-too-big", 2, false, everyIcmp},
    {"parameter-option", 4, true, familyIcmp},
    {"parameter-problem", 4, false, everyIcmp},
    {"port-unreachable", 1, true, familyIcmp},
    {"reassembly-timeout", 3, true, familyIcmp},
    {"redirect", 137, false, familyIcmp},
    {"router-advertisement", 134, false, everyIcmp},
    {"router-renumbering", 138, false, everyIcmp},
    {"router-solicitation", 133, false, everyIcmp},
    {"time-exceeded", 3, false, everyIcmp},
    {"unreachable", 1, false, everyIcmp},
};

/// Calls `f` for each type that a dialect has a name for.
template <class F>
void forEachIcmpName(Dialect dialect, uint32_t protocol, F f) {
  auto const all = [&](auto const& table) {
    for (IcmpRow const& row : table)
      if (row.dialects & static_cast<unsigned>(dialect)) f(row);
  };
  if (protocol == icmp6Protocol)
    all(icmp6Table);
  else
    all(icmpTable);
}

template <class Table>
ValueKind kindOf(std::string_view what, uint32_t bound, Table const& table) {
  auto const named = [&table](std::string_view name) -> std::optional<uint32_t> {
    for (NamedValue const& v : table)
      if (v.name == name) return v.value;
    return std::nullopt;
  };
  auto const names = [&table] {
    std::vector<std::string_view> out;
    out.reserve(std::size(table));
    for (NamedValue const& v : table) out.push_back(v.name);
    return out;
  };
  return {what, bound, named, names, false};
}

constexpr NamedValue dscpTable[] = {
    {"af11", 10}, {"af12", 12}, {"af13", 14},   {"af21", 18}, {"af22", 20}, {"af23", 22},
    {"af31", 26}, {"af32", 28}, {"af33", 30},   {"af41", 34}, {"af42", 36}, {"af43", 38},
    {"cs1", 8},   {"cs2", 16},  {"cs3", 24},    {"cs4", 32},  {"cs5", 40},  {"cs6", 48},
    {"cs7", 56},  {"ef", 46},   {"default", 0},
};

constexpr NamedValue precedenceTable[] = {
    {"routine", 0},        {"priority", 1}, {"immediate", 2}, {"flash", 3},
    {"flash-override", 4}, {"critical", 5}, {"internet", 6},  {"network", 7},
};

}  // namespace

std::optional<uint32_t> protocolNumber(std::string_view name, Dialect dialect,
                                       Lumox::AddressFamily af) {
  if (name == "pptp" && dialect != Dialect::asa) return std::nullopt;
  if (name == "icmp" && af == Lumox::ipv6() && dialect != Dialect::asa) return icmp6Protocol;
  for (NamedValue const& p : protocolTable)
    if (p.name == name) return p.value;
  return std::nullopt;
}

std::vector<std::string_view> protocolNames() {
  std::vector<std::string_view> out = {"ip", "ipv6"};
  out.reserve(2 + std::size(protocolTable));
  for (NamedValue const& p : protocolTable) out.push_back(p.name);
  return out;
}

std::optional<IcmpName> icmpName(std::string_view name, Dialect dialect, uint32_t protocol) {
  std::optional<IcmpName> out;
  forEachIcmpName(dialect, protocol, [&](IcmpRow const& row) {
    if (row.name == name) out = {row.type, row.hasCode};
  });
  return out;
}

std::vector<std::string_view> icmpNames(Dialect dialect, uint32_t protocol) {
  std::vector<std::string_view> out;
  forEachIcmpName(dialect, protocol, [&](IcmpRow const& row) { out.push_back(row.name); });
  return out;
}

ValueKind dscpKind() { return kindOf("code point", 63, dscpTable); }
ValueKind precedenceKind() { return kindOf("precedence", 7, precedenceTable); }

}  // namespace NaxelTool
