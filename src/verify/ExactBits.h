#pragma once

/// The variables of an exact proof: every bit of a packet is one.

#include "verify/Packet.h"

#include <array>
#include <vector>

namespace Verify::Exact {

/// The variables of one field, most significant bit first.
struct Bits {
  int first;
  int count;
};

/// The range fields in the order of their variables: the protocol first, because the TCP flags stand next to
/// it, which need it.
inline constexpr auto rangeOrder = [] {
  std::array<Naxel::RangeSetType, Naxel::rangeFieldCount> order{};
  size_t at = 0;
  order[at++] = Naxel::RangeSetType::proto;
  for (Naxel::RangeField const& f : Naxel::rangeFields)
    if (f.type != Naxel::RangeSetType::proto) order[at++] = f.type;
  return order;
}();

inline constexpr int syn = Naxel::rangeField(Naxel::RangeSetType::proto).bits;
inline constexpr int ack = syn + 1;
inline constexpr int rst = syn + 2;

constexpr Bits bitsOf(Naxel::RangeSetType type) {
  int first = 0;
  for (Naxel::RangeSetType t : rangeOrder) {
    int const count = static_cast<int>(Naxel::rangeField(t).bits);
    if (t == type) return {first, count};
    first += t == Naxel::RangeSetType::proto ? count + 3 : count;
  }
  return {first, 0};  // behind all of them
}
/// The addresses stand last, because their functions are the large ones.
constexpr Bits bitsOf(Lumox::AddressFamily af, bool source) {
  int const first = bitsOf(Naxel::RangeSetType::rangeSetMax).first;
  return {source ? first + 128 : first, static_cast<int>(addressBits(af))};
}
inline constexpr int variables = bitsOf(Lumox::AddressFamily::ipv6, true).first + 128;

/// The packet in which the given variables are 1, ascending, and all others 0.
Packet packetOf(Lumox::AddressFamily af, std::vector<int> const& ones);

}  // namespace Verify::Exact
