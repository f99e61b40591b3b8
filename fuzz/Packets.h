#pragma once

/// What every reader of packets owes whoever gives it a file: it hands on packets that there can be, leaves
/// frames out with a reason, and says of everything else where it stands.

#include "Check.h"
#include "packets/PacketReading.h"

namespace Fuzz {

/// What a reader did with a file.
struct PacketsRead {
  size_t taken = 0;
  size_t leftOut = 0;
  size_t errors = 0;
};

/// Reads the text as the file "f", with the ACLs "a" of IPv4 and "six" of IPv6 to look at.
PacketsRead readPackets(void (*read)(NaxelTool::PacketReading&), std::string const& content);

/// Ports, type and flags stand where they can, and every field is within its bounds.
void checkPacket(Verify::Packet const& packet, bool isTrace = false);

}  // namespace Fuzz
