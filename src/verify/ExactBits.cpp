#include "verify/ExactBits.h"

#include <algorithm>

namespace Verify::Exact {

using Lumox::AddressFamily;
using Naxel::RangeSetType;

Packet packetOf(AddressFamily af, std::vector<int> const& ones) {
  Packet packet;
  packet.af = af;
  auto const has = [&](int v) { return std::binary_search(ones.begin(), ones.end(), v); };
  for (RangeSetType type : Naxel::allRangeSetTypes()) {
    Bits const bits = bitsOf(type);
    unsigned value = 0;
    for (int i = 0; i < bits.count; ++i) value = value << 1 | has(bits.first + i);
    packet.valueIs(type, static_cast<uint16_t>(value));
  }
  for (bool source : {true, false}) {
    Bits const bits = bitsOf(af, source);
    Address& a = source ? packet.src : packet.dst;
    for (int i = 0; i < bits.count; ++i)
      if (has(bits.first + i)) (i < 64 ? a.hi : a.lo) |= uint64_t{1} << (63 - i % 64);
  }
  packet.syn = has(syn);
  packet.ack = has(ack);
  packet.rst = has(rst);
  return packet;
}

}  // namespace Verify::Exact
