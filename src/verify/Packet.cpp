#include "verify/Packet.h"

#include <array>

namespace Verify {

using Naxel::RangeSetType;

uint16_t Packet::value(RangeSetType type) const {
  switch (type) {
    case RangeSetType::srcPort: return sport;
    case RangeSetType::dstPort: return dport;
    case RangeSetType::icmp: return icmpType;
    case RangeSetType::proto: return proto;
    case RangeSetType::length: return length;
    case RangeSetType::fragment: return fragment;
    case RangeSetType::dscp: return dscp;
    case RangeSetType::rangeSetMax: break;
  }
  return 0;
}

void Packet::valueIs(RangeSetType type, uint16_t v) {
  v &= fieldBound(type);
  switch (type) {
    case RangeSetType::srcPort: sport = v; break;
    case RangeSetType::dstPort: dport = v; break;
    case RangeSetType::icmp: icmpType = static_cast<uint8_t>(v); break;
    case RangeSetType::proto: proto = static_cast<uint8_t>(v); break;
    case RangeSetType::length: length = v; break;
    case RangeSetType::fragment: fragment = v; break;
    case RangeSetType::dscp: dscp = static_cast<uint8_t>(v); break;
    case RangeSetType::rangeSetMax: break;
  }
}

uint16_t fieldBound(RangeSetType type) {
  static constexpr std::array<uint16_t, 8> bounds = {65535, 65535, 255, 255, 65535, 8191, 63, 0};
  return bounds[static_cast<size_t>(type)];
}

namespace {

std::string addressText(Lumox::AddressFamily af, Address a) {
  auto const prefix = af == Lumox::ipv4()
                          ? Lumox::IpGenPrefix::v4(static_cast<uint32_t>(a.hi >> 32), 32)
                          : Lumox::IpGenPrefix::v6(a.hi, a.lo, 128);
  return prefix.addressText();
}

}  // namespace

std::string text(Packet const& p) {
  std::string out = p.af == Lumox::ipv4() ? "ipv4 " : "ipv6 ";
  out += addressText(p.af, p.src) + " > " + addressText(p.af, p.dst);
  out += " proto " + std::to_string(p.proto);
  out += " ports " + std::to_string(p.sport) + " > " + std::to_string(p.dport);
  if (p.syn) out += " SYN";
  if (p.ack) out += " ACK";
  if (p.rst) out += " RST";
  auto const number = [&](char const* name, unsigned v) {
    if (v) out += std::string(" ") + name + " " + std::to_string(v);
  };
  number("icmp", p.icmpType);
  number("length", p.length);
  number("fragment", p.fragment);
  number("dscp", p.dscp);
  return out;
}

}  // namespace Verify
