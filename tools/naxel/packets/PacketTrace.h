#pragma once

/// Traces that go with ClassBench filter sets: one header per line in decimal numbers,
///
///   2434334719 479767265 1024 80 6 33559040 4411
///
/// source, destination, source port, destination port, protocol, flags (which may be left out), and the
/// number of the rule that the header was drawn from, counted from 0. The ports are taken as they stand,
/// whatever the protocol. The high byte of the flags are those of TCP, or the type of ICMP.

#include "packets/PacketReading.h"

namespace NaxelTool {

/// The numbers are of one ACL's rules, so there must be just one of IPv4 to look at. Throws InputError.
void readPacketTrace(PacketReading& reading);

}  // namespace NaxelTool
