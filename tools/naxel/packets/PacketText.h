#pragma once

/// Packets as lines of text, as a person writes them:
///
///   tcp 10.0.0.1:1024 > 10.0.0.2:443 syn len 60 dscp 46
///   edge-in: udp [2001:db8::1]:53 > [2001:db8::2]:4000     # in this ACL only
///   icmp 10.0.0.1 > 10.0.0.2 type 8
///   proto 47 10.0.0.1 > 10.0.0.2
///   udp 10.0.0.1 > 10.0.0.2 frag 185
///
/// The protocol is tcp, udp, sctp, icmp (58 in IPv6) or a number. TCP, UDP and SCTP have ports on both sides
/// and ICMP has a type, unless it is a later fragment, which has neither; the others have none. Length and
/// code point are 0 where nothing is said.

#include "packets/PacketReading.h"

#include <utility>

namespace NaxelTool {

/// Reports a line that says less or more of a packet than there is in one.
void readPacketText(PacketReading& reading);

/// The packet of one such line. What is wrong with it is said on `diagnostics` as of line 1 of `source`; throws
/// RejectedInput then.
FilePacket packetFromText(std::string const& text, Naxel::AclConfigColl const& acls,
                          std::string const& source, Diagnostics& diagnostics);

/// A packet that can be (Packet::isPossible()) as such a line, which reads back as the same packet.
std::string packetLine(Verify::Packet const& packet);

/// Reads an IPv4 or IPv6 address; throws std::invalid_argument with a text for the user.
std::pair<Lumox::AddressFamily, Verify::Address> addressFromText(std::string const& text);

}  // namespace NaxelTool
