#include "verify/Packet.h"

namespace Verify {

using Naxel::RangeSetType;

std::string addressText(Lumox::AddressFamily af, Address a) {
  auto const prefix = af == Lumox::ipv4()
                          ? Lumox::IpGenPrefix::v4(static_cast<uint32_t>(a.hi >> 32), 32)
                          : Lumox::IpGenPrefix::v6(a.hi, a.lo, 128);
  return prefix.addressText();
}

bool Packet::isPossible() const {
  bool const first = !isLaterFragment();
  return ((sport == 0 && dport == 0) || (first && hasPortProtocol())) &&
         (icmpType == 0 || (first && isIcmp())) &&
         ((!syn && !ack && !rst) || (first && proto == protoTcp));
}

std::string text(Packet const& p) {
  std::string out = p.af == Lumox::ipv4() ? "ipv4 " : "ipv6 ";
  out += addressText(p.af, p.src) + " > " + addressText(p.af, p.dst);
  out += " proto " + std::to_string(p.proto);
  out += " ports " + std::to_string(p.sport) + " > " + std::to_string(p.dport);
  if (p.syn) out += " SYN";
  if (p.ack) out += " ACK";
  if (p.rst) out += " RST";
  for (RangeSetType type : Naxel::allRangeSetTypes()) {
    bool const shown = type == RangeSetType::srcPort || type == RangeSetType::dstPort ||
                       type == RangeSetType::proto;
    if (unsigned const v = p.value(type); v && !shown)
      out += " " + Mox::stringValue(type) + " " + std::to_string(v);
  }
  return out;
}

}  // namespace Verify
