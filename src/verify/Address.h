#pragma once

/// Addresses of either family as one 128-bit number, left-aligned: an IPv4 address is the top 32
/// bits and the rest is 0. Prefixes of both families are then intervals of the same number line.

#include "lumox/IpGenPrefix.h"

#include <compare>
#include <cstdint>

namespace Verify {

struct Address {
  uint64_t hi = 0;
  uint64_t lo = 0;

  friend constexpr bool operator==(Address const&, Address const&) = default;
  friend constexpr auto operator<=>(Address const&, Address const&) = default;
  /// Byte 0 is the most significant one.
  constexpr uint8_t byte(unsigned i) const {
    return static_cast<uint8_t>(i < 8 ? hi >> (56 - 8 * i) : lo >> (120 - 8 * i));
  }
};

constexpr Address ipv4Address(uint32_t a) { return {uint64_t{a} << 32, 0}; }

/// The number whose first `length` bits are 1.
constexpr Address networkMask(unsigned length) {
  if (length == 0) return {0, 0};
  if (length <= 64) return {~uint64_t{0} << (64 - length), 0};
  return {~uint64_t{0}, length >= 128 ? ~uint64_t{0} : ~uint64_t{0} << (128 - length)};
}
constexpr Address operator&(Address a, Address b) { return {a.hi & b.hi, a.lo & b.lo}; }
constexpr Address operator|(Address a, Address b) { return {a.hi | b.hi, a.lo | b.lo}; }
constexpr Address operator^(Address a, Address b) { return {a.hi ^ b.hi, a.lo ^ b.lo}; }
constexpr Address operator~(Address a) { return {~a.hi, ~a.lo}; }

/// Number of address bits of a family.
constexpr unsigned addressBits(Lumox::AddressFamily af) { return af == Lumox::ipv4() ? 32 : 128; }

/// The neighbours of an address among the numbers of the first `bits` bits; they wrap around.
constexpr Address nextAddress(Address a, unsigned bits = 128) {
  if (bits <= 64) return {a.hi + (uint64_t{1} << (64 - bits)), a.lo};
  Address const up{a.hi, a.lo + (uint64_t{1} << (128 - bits))};
  return {up.lo < a.lo ? up.hi + 1 : up.hi, up.lo};
}
constexpr Address previousAddress(Address a, unsigned bits = 128) {
  if (bits <= 64) return {a.hi - (uint64_t{1} << (64 - bits)), a.lo};
  Address const down{a.hi, a.lo - (uint64_t{1} << (128 - bits))};
  return {down.lo > a.lo ? down.hi - 1 : down.hi, down.lo};
}

/// Closed interval of addresses.
struct Interval {
  Address first;
  Address last;

  friend constexpr bool operator==(Interval const&, Interval const&) = default;
  friend constexpr auto operator<=>(Interval const&, Interval const&) = default;
  constexpr bool contains(Address a) const { return first <= a && a <= last; }
};

/// All addresses below a prefix, whose host bits are ignored. `last` ends in ones down to the 128th
/// bit for both families.
inline Interval intervalOf(Lumox::IpGenPrefix const& p) {
  Address const mask = networkMask(static_cast<unsigned>(p.length()));
  Address const first = Address{p.hi(), p.lo()} & mask;
  return {first, first | ~mask};
}

}  // namespace Verify
