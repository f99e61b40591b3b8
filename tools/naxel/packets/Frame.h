#pragma once

/// Captured frames taken apart: link layer, VLAN tags, IP with its options or extension headers, and of
/// the transport header as much as rules look at. Nothing is guessed: a frame either gives every field
/// of a packet, or a reason why it does not.
///
/// Fields are as a chip's parser sees them. `length` is the whole IP packet, headers included, in both
/// families. Ports are those of TCP, UDP and SCTP; the ICMP type is that of protocol 1 in IPv4 and of 58 in
/// IPv6; both, and the TCP flags, are 0 in all fragments but the first. The extension headers of IPv6 that
/// are passed over are hop-by-hop options, routing, fragment, authentication and destination options; the
/// protocol is what follows them.

#include "verify/Packet.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace NaxelTool {

enum class LinkLayer : uint8_t {
  ethernet,
  rawIp,  ///< of either family, told by the version
  rawIp4,
  rawIp6,
  hostFamily,    ///< four bytes with the address family, in the byte order of some host
  familyNumber,  ///< the same in network byte order
  linuxCooked,
  linuxCooked2
};

enum class FrameOutcome : uint8_t {
  packet,
  notIp,           ///< `etherType` says what it is instead
  notIpFamily,     ///< an address family that is not IP, in the four bytes before the packet
  cutShort,        ///< the capture holds less than the headers that are needed
  endsEarly,       ///< the packet itself ends before that
  brokenHeader,    ///< an IP header that contradicts itself
  hiddenProtocol,  ///< a later fragment, whose protocol only the first one says
  tooLong          ///< beyond what the field of the length holds
};

struct DecodedFrame {
  FrameOutcome outcome = FrameOutcome::cutShort;
  uint16_t etherType = 0;  ///< for notIp
  Verify::Packet packet;   ///< for packet
};

/// `captured` is what the capture holds of a frame, from its first byte on. Takes time in proportion to
/// its headers.
DecodedFrame decodeFrame(LinkLayer link, std::span<uint8_t const> captured);

/// Why a frame is no packet, in words: "not IP (ARP)".
std::string reasonText(DecodedFrame const& frame);

}  // namespace NaxelTool
