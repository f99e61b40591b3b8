#pragma once

/// The variables of an exact proof: every bit of a packet is one.

#include "verify/Packet.h"

#include <vector>

namespace Verify::Exact {

/// The variables of one field, most significant bit first.
struct Bits {
  int first;
  int count;
};

// The flags stand next to the protocol, which they need; the addresses last, because their functions
// are the large ones.
inline constexpr int syn = 8;
inline constexpr int ack = 9;
inline constexpr int rst = 10;
inline constexpr int variables = 342;

Bits bitsOf(Naxel::RangeSetType type);
Bits bitsOf(Lumox::AddressFamily af, bool source);

/// The packet in which the given variables are 1, ascending, and all others 0.
Packet packetOf(Lumox::AddressFamily af, std::vector<int> const& ones);

}  // namespace Verify::Exact
