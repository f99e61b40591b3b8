#pragma once

/// A packet as the chip's parser hands it on. A field that the packet lacks is 0.

#include "naxel/genset/GenSetTypes.h"
#include "verify/Address.h"

#include <algorithm>
#include <array>
#include <ostream>
#include <string>

namespace Verify {

struct Packet {
  static constexpr uint16_t protoTcp = 6;
  static constexpr std::array<uint16_t, 3> portProtocols = {protoTcp, 17, 132};
  static constexpr uint16_t icmpProtocol(Lumox::AddressFamily af) {
    return af == Lumox::ipv4() ? 1 : 58;
  }

  Lumox::AddressFamily af = Lumox::ipv4();
  Address src;
  Address dst;
  uint16_t sport = 0;
  uint16_t dport = 0;
  uint16_t icmpType = 0;
  uint16_t proto = 0;
  uint16_t length = 0;
  uint16_t fragment = 0;
  uint16_t dscp = 0;
  bool syn = false;
  bool ack = false;
  bool rst = false;

  /// Opens a connection: SYN without ACK, in TCP only.
  bool tcpInit() const { return proto == protoTcp && syn && !ack; }
  /// Belongs to an established connection: ACK or RST, in TCP only.
  bool tcpEstablished() const { return proto == protoTcp && (ack || rst); }

  /// The protocol has ports on both sides: TCP, UDP and SCTP.
  bool hasPortProtocol() const {
    return std::find(portProtocols.begin(), portProtocols.end(), proto) != portProtocols.end();
  }
  /// The protocol is the ICMP of the family.
  bool isIcmp() const { return proto == icmpProtocol(af); }
  /// A fragment that is not the first one: it has no ports, ICMP type and TCP flags.
  bool isLaterFragment() const { return fragment != 0; }
  /// No field holds anything that a packet of its protocol lacks. Others are never seen behind a parser.
  bool isPossible() const;

  /// The fields of numbers by their type; `type` is a real one.
  uint16_t value(Naxel::RangeSetType type) const { return this->*member(type); }
  /// Stores the low bits that the field has.
  void valueIs(Naxel::RangeSetType type, uint16_t v) {
    this->*member(type) = v & static_cast<uint16_t>(Naxel::rangeField(type).bound());
  }

 private:
  static constexpr uint16_t Packet::*member(Naxel::RangeSetType type);
};

constexpr uint16_t Packet::*Packet::member(Naxel::RangeSetType type) {
  constexpr std::array<uint16_t Packet::*, Naxel::rangeFieldCount> members = {
      &Packet::sport,  &Packet::dport,    &Packet::icmpType, &Packet::proto,
      &Packet::length, &Packet::fragment, &Packet::dscp};
  return members[static_cast<size_t>(type)];
}

/// "10.0.0.1", "2001:db8::1".
std::string addressText(Lumox::AddressFamily af, Address address);

/// One line, for messages: "ipv4 10.0.0.1 > 10.0.0.2 proto 6 ports 1024 > 80 SYN ...". Fields that
/// are 0 are left out behind the ports.
std::string text(Packet const& packet);
inline std::ostream& operator<<(std::ostream& out, Packet const& p) { return out << text(p); }

}  // namespace Verify
