#pragma once

/// IPv6 addresses: any text form of RFC 4291 in, the canonical one of RFC 5952 out.

#include "mox/Hash.h"
#include "mox/KeyedHash.h"
#include "mox/Text.h"

#include <compare>
#include <cstdint>
#include <ostream>

namespace Lumox {

/// 128 bits in two words, the first 64 bits of the address in hi().
class NAXEL_EXPORT Ip6Addr {
 public:
  constexpr Ip6Addr() = default;
  constexpr Ip6Addr(uint64_t hi, uint64_t lo) : hi_(hi), lo_(lo) {}
  explicit Ip6Addr(Mox::TextCursor& c);

  constexpr uint64_t hi() const { return hi_; }
  constexpr uint64_t lo() const { return lo_; }
  /// One of the eight 16-bit groups, the first being number 0.
  constexpr uint16_t group(unsigned i) const {
    return static_cast<uint16_t>((i < 4 ? hi_ : lo_) >> (16 * (3 - i % 4)));
  }
  constexpr uint64_t hash64() const noexcept { return Mox::hashCombine(hi_, lo_); }
  void placeWords(Mox::KeyedHash& h) const noexcept { h.word(hi_).word(lo_); }

  friend constexpr bool operator==(Ip6Addr const&, Ip6Addr const&) = default;
  friend constexpr auto operator<=>(Ip6Addr const&, Ip6Addr const&) = default;

 private:
  uint64_t hi_ = 0;
  uint64_t lo_ = 0;
};

/// Reads an IPv4 address in dotted decimal without leading zeros (RFC 1123), in host byte order.
NAXEL_EXPORT uint32_t readIp4(Mox::TextCursor& c);
NAXEL_EXPORT void writeIp4(std::string& out, uint32_t addr);

}  // namespace Lumox

template <>
struct NAXEL_EXPORT Mox::TextForm<Lumox::Ip6Addr> {
  static void write(std::string& out, Lumox::Ip6Addr const& v);
  static void read(TextCursor& c, Lumox::Ip6Addr& v);
};

namespace Lumox {
inline Ip6Addr::Ip6Addr(Mox::TextCursor& c) { Mox::TextForm<Ip6Addr>::read(c, *this); }
inline std::ostream& operator<<(std::ostream& out, Ip6Addr const& v) {
  return out << Mox::valueToStrep(v);
}
}  // namespace Lumox
