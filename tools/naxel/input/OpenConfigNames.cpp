#include "input/OpenConfigNames.h"

#include <algorithm>
#include <span>

namespace NaxelTool::OpenConfig {

namespace {

struct Identity {
  uint32_t number;
  std::string_view name;
};

constexpr Identity protocols[] = {
    {1, "IP_ICMP"},  {2, "IP_IGMP"}, {4, "IP_IN_IP"}, {6, "IP_TCP"},   {17, "IP_UDP"},
    {46, "IP_RSVP"}, {47, "IP_GRE"}, {51, "IP_AUTH"}, {103, "IP_PIM"}, {115, "IP_L2TP"}};

constexpr Identity icmpTypes[] = {{0, "ECHO_REPLY"},
                                  {3, "DST_UNREACHABLE"},
                                  {5, "REDIRECT"},
                                  {8, "ECHO"},
                                  {9, "ROUTER_ADVERTISEMENT"},
                                  {10, "ROUTER_SELECTION"},
                                  {11, "TIME_EXCEEDED"},
                                  {12, "PARAM_PROBLEM"},
                                  {13, "TIMESTAMP"},
                                  {14, "TIMESTAMP_REPLY"},
                                  {40, "PHOTURIS"},
                                  {42, "EXT_ECHO_REQUEST"},
                                  {43, "EXT_ECHO_REPLY"},
                                  {10, "ROUTER_SOLICITATION"}};

constexpr Identity icmp6Types[] = {{1, "DESTINATION_UNREACHABLE"},
                                   {2, "PACKET_TOO_BIG"},
                                   {3, "TIME_EXCEEDED"},
                                   {4, "PARAMETER_PROBLEM"},
                                   {128, "ECHO_REQUEST"},
                                   {129, "ECHO_REPLY"},
                                   {130, "MULTICAST_LISTENER_QUERY"},
                                   {131, "MULTICAST_LISTENER_REPORT"},
                                   {132, "MULTICAST_LISTENER_DONE"},
                                   {133, "ROUTER_SOLICITATION"},
                                   {134, "ROUTER_ADVERTISEMENT"},
                                   {135, "NEIGHBOR_SOLICITATION"},
                                   {136, "NEIGHBOR_ADVERTISEMENT"},
                                   {137, "REDIRECT"},
                                   {139, "NODE_INFORMATION_QUERY"},
                                   {141, "INVERSE_NEIGHBOR_SOLICITATION"},
                                   {142, "INVERSE_NEIGHBOR_ADVERTISEMENT"},
                                   {143, "VERSION2_MULTICAST_LISTENER"},
                                   {144, "HOME_AGENT_ADDRESS_DISCOVERY_REQUEST"},
                                   {145, "HOME_AGENT_ADDRESS_DISCOVERY_REPLY"},
                                   {146, "MOBILE_PREFIX_SOLICITATION"},
                                   {147, "MOBILE_PREFIX_ADVERTISEMENT"},
                                   {148, "CERTIFICATION_PATH_SOLICITATION"},
                                   {149, "CERTIFICATION_PATH_ADVERTISEMENT"},
                                   {151, "MULTICAST_ROUTER_ADVERTISEMENT"},
                                   {152, "MULTICAST_ROUTER_SOLICITATION"},
                                   {153, "MULTICAST_ROUTER_TERMINATION"},
                                   {154, "FMIPV6"},
                                   {155, "RPL_CONTROL"},
                                   {157, "DUPLICATE_ADDRESS_REQUEST"},
                                   {158, "DUPLICATE_ADDRESS_CONFIRMATION"},
                                   {159, "MPL_CONTROL"},
                                   {160, "EXT_ECHO_REQUEST"},
                                   {161, "EXT_ECHO_REPLY"}};

std::span<Identity const> typesOf(Lumox::AddressFamily af) {
  if (af == Lumox::ipv4()) return icmpTypes;
  return icmp6Types;
}

std::optional<uint32_t> numberIn(std::span<Identity const> all, std::string_view name) {
  auto const found =
      std::find_if(all.begin(), all.end(), [&](Identity const& i) { return i.name == name; });
  if (found == all.end()) return std::nullopt;
  return found->number;
}

std::vector<std::string_view> namesIn(std::span<Identity const> all) {
  std::vector<std::string_view> out;
  out.reserve(all.size());
  for (Identity const& i : all) out.push_back(i.name);
  return out;
}

}  // namespace

std::optional<uint32_t> protocolOf(std::string_view name) { return numberIn(protocols, name); }
std::vector<std::string_view> protocolNames() { return namesIn(protocols); }

std::optional<uint32_t> icmpTypeOf(Lumox::AddressFamily af, std::string_view name) {
  return numberIn(typesOf(af), name);
}
std::vector<std::string_view> icmpTypeNames(Lumox::AddressFamily af) {
  return namesIn(typesOf(af));
}

std::string_view icmpTypeName(Lumox::AddressFamily af, uint32_t type) {
  auto const all = typesOf(af);
  auto const found =
      std::find_if(all.begin(), all.end(), [&](Identity const& i) { return i.number == type; });
  return found == all.end() ? std::string_view() : found->name;
}

}  // namespace NaxelTool::OpenConfig
