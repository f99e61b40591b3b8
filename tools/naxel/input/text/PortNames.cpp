#include "input/text/Names.h"

#include <algorithm>
#include <initializer_list>

namespace NaxelTool {

namespace {

constexpr uint8_t iosBit = 1;
constexpr uint8_t nxosBit = 4;
constexpr uint8_t eosBit = 8;
constexpr uint8_t asaBit = 16;
constexpr uint8_t familyBits = 15;
constexpr uint8_t allBits = 31;
constexpr uint8_t noBits = 0;

struct PortName {
  std::string_view name;
  uint16_t port;
  uint8_t tcp;  ///< dialects that have the name for TCP
  uint8_t udp;
};

constexpr PortName portTable[] = {
    {"aol", 5190, asaBit, noBits},
    {"bfd", 3784, noBits, eosBit},
    {"bfd-echo", 3785, noBits, eosBit},
    {"bgp", 179, allBits, noBits},
    {"biff", 512, noBits, allBits},
    {"bootpc", 68, noBits, allBits},
    {"bootps", 67, noBits, allBits},
    {"chargen", 19, allBits, noBits},
    {"cifs", 3020, asaBit, asaBit},
    {"citrix-ica", 1494, asaBit, noBits},
    {"cmd", 514, allBits, noBits},
    {"ctiqbe", 2748, asaBit, noBits},
    {"daytime", 13, allBits, noBits},
    {"discard", 9, allBits, allBits},
    {"dnsix", 195, noBits, allBits},
    {"domain", 53, allBits, allBits},
    {"drip", 3949, iosBit | nxosBit, noBits},
    {"echo", 7, allBits, allBits},
    {"exec", 512, allBits, noBits},
    {"finger", 79, allBits, noBits},
    {"ftp", 21, allBits, noBits},
    {"ftp-data", 20, allBits, noBits},
    {"gopher", 70, allBits, noBits},
    {"h323", 1720, asaBit, noBits},
    {"hostname", 101, allBits, noBits},
    {"http", 80, asaBit, asaBit},
    {"https", 443, asaBit | eosBit, noBits},
    {"ident", 113, allBits, noBits},
    {"imap4", 143, asaBit, noBits},
    {"irc", 194, allBits, noBits},
    {"isakmp", 500, noBits, allBits},
    {"kerberos", 750, asaBit, asaBit},
    {"klogin", 543, allBits, noBits},
    {"kshell", 544, allBits, noBits},
    {"ldap", 389, asaBit, noBits},
    {"ldaps", 636, asaBit, noBits},
    {"ldp", 646, eosBit, eosBit},
    {"login", 513, allBits, noBits},
    {"lotusnotes", 1352, asaBit, noBits},
    {"lpd", 515, allBits, noBits},
    {"micro-bfd", 6784, noBits, eosBit},
    {"mlag", 4432, eosBit, eosBit},
    {"mobile-ip", 434, noBits, allBits},
    {"msdp", 639, eosBit, noBits},
    {"msrpc", 135, iosBit, noBits},
    {"multihop-bfd", 4784, noBits, eosBit},
    {"nameserver", 42, noBits, allBits},
    {"netbios-dgm", 138, noBits, allBits},
    {"netbios-ns", 137, noBits, allBits},
    {"netbios-ss", 139, noBits, familyBits},
    {"netbios-ssn", 139, asaBit, noBits},
    {"netconf-ssh", 830, eosBit, noBits},
    {"nfs", 2049, asaBit, asaBit},
    {"nntp", 119, allBits, noBits},
    {"non500-isakmp", 4500, noBits, familyBits},
    {"ntp", 123, noBits, allBits},
    {"pcanywhere-data", 5631, asaBit, noBits},
    {"pcanywhere-status", 5632, noBits, asaBit},
    {"pim-auto-rp", 496, allBits, allBits},
    {"pop2", 109, allBits, noBits},
    {"pop3", 110, allBits, noBits},
    {"pptp", 1723, asaBit, noBits},
    {"radius", 1645, noBits, asaBit},
    {"radius-acct", 1646, noBits, asaBit},
    {"rip", 520, noBits, allBits},
    {"rsh", 514, asaBit, noBits},
    {"rtsp", 554, asaBit, noBits},
    {"secureid-udp", 5510, noBits, asaBit},
    {"sip", 5060, asaBit, asaBit},
    {"smtp", 25, allBits, noBits},
    {"snmp", 161, eosBit, allBits},
    {"snmptrap", 162, noBits, allBits},
    {"ssh", 22, asaBit | eosBit, noBits},
    {"sunrpc", 111, allBits, allBits},
    {"syslog", 514, familyBits, allBits},
    {"tacacs", 49, allBits, allBits},
    {"talk", 517, allBits, allBits},
    {"telnet", 23, allBits, noBits},
    {"tftp", 69, noBits, allBits},
    {"time", 37, familyBits, allBits},
    {"uucp", 540, allBits, noBits},
    {"vxlan", 4789, noBits, asaBit},
    {"who", 513, noBits, allBits},
    {"whois", 43, allBits, noBits},
    {"www", 80, allBits, asaBit},
    {"xdmcp", 177, noBits, allBits},
};

bool hasOnly(ValueSet const& protocols, std::initializer_list<uint32_t> of) {
  for (auto const& [first, last] : protocols)
    if (first != last || std::find(of.begin(), of.end(), first) == of.end()) return false;
  return true;
}

}  // namespace

ValueKind portKind(Dialect dialect, ValueSet const& protocols) {
  bool const tcp = hasOnly(protocols, {tcpProtocol, udpProtocol}) &&
                   !(protocols.size() == 1 && hasOnly(protocols, {udpProtocol}));
  bool const udp = hasOnly(protocols, {tcpProtocol, udpProtocol}) &&
                   !(protocols.size() == 1 && hasOnly(protocols, {tcpProtocol}));
  auto const has = [bit = static_cast<unsigned>(dialect), tcp, udp](PortName const& p) {
    return (tcp && (p.tcp & bit)) || (udp && (p.udp & bit));
  };
  auto const named = [has](std::string_view name) -> std::optional<uint32_t> {
    for (PortName const& p : portTable)
      if (p.name == name && has(p)) return p.port;
    return std::nullopt;
  };
  auto const names = [has] {
    std::vector<std::string_view> out;
    for (PortName const& p : portTable)
      if (has(p)) out.push_back(p.name);
    return out;
  };
  // Behind eq stands one port on an ASA, and as many as one likes elsewhere.
  return {"port", 65535, named, names, dialect != Dialect::asa};
}

}  // namespace NaxelTool
