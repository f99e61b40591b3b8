#include "input/IanaNames.h"

#include <algorithm>
#include <span>

namespace NaxelTool {

namespace {

struct NamedNumber {
  uint16_t number;
  std::string_view name;
};

// All in the order of their numbers.
constexpr NamedNumber protocolNames[] = {
    {0, "hopopt"},      {1, "icmp"},       {2, "igmp"},         {3, "ggp"},      {4, "ipv4"},
    {5, "st"},          {6, "tcp"},        {8, "egp"},          {9, "igp"},      {17, "udp"},
    {27, "rdp"},        {33, "dccp"},      {36, "xtp"},         {41, "ipv6"},    {43, "ipv6-route"},
    {44, "ipv6-frag"},  {45, "idrp"},      {46, "rsvp"},        {47, "gre"},     {48, "dsr"},
    {50, "esp"},        {51, "ah"},        {54, "narp"},        {57, "skip"},    {58, "ipv6-icmp"},
    {59, "ipv6-nonxt"}, {60, "ipv6-opts"}, {88, "eigrp"},       {89, "ospfigp"}, {94, "ipip"},
    {97, "etherip"},    {98, "encap"},     {103, "pim"},        {105, "scps"},   {108, "ipcomp"},
    {112, "vrrp"},      {113, "pgm"},      {115, "l2tp"},       {131, "pipe"},   {132, "sctp"},
    {133, "fc"},        {136, "udplite"},  {137, "mpls-in-ip"}, {138, "manet"},  {139, "shim6"},
    {140, "wesp"},      {141, "rohc"},     {143, "ethernet"},
};

constexpr NamedNumber portNames[] = {
    {1, "tcpmux"},
    {7, "echo"},
    {9, "discard"},
    {11, "systat"},
    {13, "daytime"},
    {17, "qotd"},
    {19, "chargen"},
    {20, "ftp-data"},
    {21, "ftp"},
    {22, "ssh"},
    {23, "telnet"},
    {25, "smtp"},
    {37, "time"},
    {43, "nicname"},
    {49, "tacacs"},
    {53, "domain"},
    {67, "bootps"},
    {68, "bootpc"},
    {69, "tftp"},
    {70, "gopher"},
    {79, "finger"},
    {80, "http"},
    {88, "kerberos"},
    {109, "pop2"},
    {110, "pop3"},
    {111, "sunrpc"},
    {113, "auth"},
    {119, "nntp"},
    {123, "ntp"},
    {135, "epmap"},
    {137, "netbios-ns"},
    {138, "netbios-dgm"},
    {139, "netbios-ssn"},
    {143, "imap"},
    {161, "snmp"},
    {162, "snmptrap"},
    {177, "xdmcp"},
    {179, "bgp"},
    {194, "irc"},
    {319, "ptp-event"},
    {320, "ptp-general"},
    {389, "ldap"},
    {427, "svrloc"},
    {434, "mobileip-agent"},
    {443, "https"},
    {445, "microsoft-ds"},
    {464, "kpasswd"},
    {500, "isakmp"},
    {512, "exec"},
    {513, "login"},
    {514, "syslog"},
    {515, "printer"},
    {520, "router"},
    {521, "ripng"},
    {540, "uucp"},
    {546, "dhcpv6-client"},
    {547, "dhcpv6-server"},
    {548, "afpovertcp"},
    {554, "rtsp"},
    {563, "nntps"},
    {587, "submission"},
    {631, "ipp"},
    {636, "ldaps"},
    {639, "msdp"},
    {646, "ldp"},
    {647, "dhcp-failover"},
    {749, "kerberos-adm"},
    {830, "netconf-ssh"},
    {853, "domain-s"},
    {860, "iscsi"},
    {862, "twamp-control"},
    {873, "rsync"},
    {989, "ftps-data"},
    {990, "ftps"},
    {992, "telnets"},
    {993, "imaps"},
    {995, "pop3s"},
    {1080, "socks"},
    {1194, "openvpn"},
    {1433, "ms-sql-s"},
    {1434, "ms-sql-m"},
    {1701, "l2tp"},
    {1719, "h323gatestat"},
    {1720, "h323hostcall"},
    {1723, "pptp"},
    {1812, "radius"},
    {1813, "radius-acct"},
    {1883, "mqtt"},
    {1985, "hsrp"},
    {2049, "nfs"},
    {2083, "radsec"},
    {2152, "gtp-user"},
    {2427, "mgcp-gateway"},
    {3260, "iscsi-target"},
    {3268, "msft-gc"},
    {3306, "mysql"},
    {3389, "ms-wbt-server"},
    {3478, "stun"},
    {3544, "teredo"},
    {3784, "bfd-control"},
    {3785, "bfd-echo"},
    {4189, "pcep"},
    {4321, "rwhois"},
    {4500, "ipsec-nat-t"},
    {4784, "bfd-multi-ctl"},
    {4789, "vxlan"},
    {5060, "sip"},
    {5061, "sips"},
    {5222, "xmpp-client"},
    {5246, "capwap-control"},
    {5247, "capwap-data"},
    {5269, "xmpp-server"},
    {5351, "nat-pmp"},
    {5353, "mdns"},
    {5355, "llmnr"},
    {5432, "postgresql"},
    {5671, "amqps"},
    {5672, "amqp"},
    {5683, "coap"},
    {6081, "geneve"},
    {6343, "sflow"},
    {6379, "redis"},
    {6513, "netconf-tls"},
    {6514, "syslog-tls"},
    {6653, "openflow"},
    {8080, "http-alt"},
    {8883, "secure-mqtt"},
    {9100, "pdl-datastream"},
    {9339, "gnmi-gnoi"},
    {9418, "git"},
    {11211, "memcache"},
};

constexpr NamedNumber dscpNames[] = {
    {0, "cs0"},   {1, "le"},           {8, "cs1"},   {10, "af11"}, {12, "af12"}, {14, "af13"},
    {16, "cs2"},  {18, "af21"},        {20, "af22"}, {22, "af23"}, {24, "cs3"},  {26, "af31"},
    {28, "af32"}, {30, "af33"},        {32, "cs4"},  {34, "af41"}, {36, "af42"}, {38, "af43"},
    {40, "cs5"},  {44, "voice-admit"}, {46, "ef"},   {48, "cs6"},  {56, "cs7"},
};

std::span<NamedNumber const> namesOf(Naxel::RangeSetType type) {
  switch (type) {
    case Naxel::RangeSetType::proto: return protocolNames;
    case Naxel::RangeSetType::srcPort:
    case Naxel::RangeSetType::dstPort: return portNames;
    case Naxel::RangeSetType::dscp: return dscpNames;
    default: return {};
  }
}

bool equalInAnyCase(std::string_view a, std::string_view lower) {
  return std::equal(a.begin(), a.end(), lower.begin(), lower.end(), [](char x, char y) {
    return (x >= 'A' && x <= 'Z' ? static_cast<char>(x - 'A' + 'a') : x) == y;
  });
}

}  // namespace

std::optional<uint32_t> ianaNumber(Naxel::RangeSetType type, std::string_view name) {
  for (NamedNumber const& n : namesOf(type))
    if (equalInAnyCase(name, n.name)) return n.number;
  return std::nullopt;
}

std::vector<std::string_view> ianaNames(Naxel::RangeSetType type) {
  std::vector<std::string_view> out;
  out.reserve(namesOf(type).size());
  for (NamedNumber const& n : namesOf(type)) out.push_back(n.name);
  return out;
}

}  // namespace NaxelTool
