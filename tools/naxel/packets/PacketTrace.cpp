#include "packets/PacketTrace.h"

#include "packets/PacketLine.h"
#include "verify/RuleOracle.h"

namespace NaxelTool {

namespace {

/// The one ACL whose rules a trace numbers.
std::string tracedAcl(PacketReading const& reading) {
  std::vector<std::string> names;
  for (auto const& [name, acl] : reading.acls().acl())
    if ((reading.only().empty() || reading.only() == name) &&
        Verify::familyOf(*acl) == Lumox::ipv4())
      names.push_back(name);
  if (names.size() == 1) return names.front();
  throw InputError(reading.path(), {},
                   names.empty() ? "a trace is of IPv4, and there is no such ACL to look at"
                                 : "a trace numbers the rules of one ACL, and there are " +
                                       std::to_string(names.size()) + " of IPv4: name it by --acl");
}

FilePacket headerFrom(PacketLine& line) {
  constexpr uint32_t most = ~uint32_t{0};
  FilePacket out;
  Verify::Packet& p = out.packet;
  auto const number = [&](char const* what, uint32_t max) {
    return numberFrom(line.next(what), max, (std::string("the ") + what).c_str());
  };
  p.src = Verify::ipv4Address(number("source address", most));
  p.dst = Verify::ipv4Address(number("destination address", most));
  p.sport = static_cast<uint16_t>(number("source port", 65535));
  p.dport = static_cast<uint16_t>(number("destination port", 65535));
  p.proto = static_cast<uint16_t>(number("protocol", 255));
  uint32_t const last = number("number of the rule", most);
  if (line.atEnd()) {
    out.drawnFrom = last;
    return out;
  }
  out.drawnFrom = number("number of the rule", most);
  if (!line.atEnd())
    throw LineError(line.peek(), "syntax", "expected the end of the line behind the rule");
  uint32_t const high = last >> 24;
  if (p.proto == Verify::Packet::protoTcp) {
    p.syn = high & 0x02;
    p.rst = high & 0x04;
    p.ack = high & 0x10;
  } else if (p.proto == 1) {
    p.icmpType = static_cast<uint16_t>(high);
  }
  return out;
}

}  // namespace

void readPacketTrace(PacketReading& reading) {
  std::string const acl = tracedAcl(reading);
  forEachLine(reading, [&](PacketLine& line, size_t number) {
    FilePacket packet = headerFrom(line);
    packet.acl = acl;
    packet.number = number;
    reading.take(packet);
  });
}

}  // namespace NaxelTool
