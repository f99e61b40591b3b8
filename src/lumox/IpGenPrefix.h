#pragma once

/// IPv4 and IPv6 prefixes in one type.

#include "lumox/AddressFamily.h"
#include "mox/Hash.h"
#include "mox/KeyedHash.h"
#include "mox/Text.h"

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <utility>

namespace Lumox {

/// An address and the number of its leading bits that count. The address stands left-aligned in 128
/// bits: an IPv4 address in the top 32 bits of hi(). Host bits are kept as written, in value, text
/// and equality; matching ignores them. Natural order: family, address, length, which is the
/// pre-order of a prefix tree. Text form: "10.0.0.0/8", "2001:db8::/32".
class NAXEL_EXPORT IpGenPrefix {
 public:
  /// 0.0.0.0/0.
  constexpr IpGenPrefix() = default;
  explicit IpGenPrefix(Mox::TextCursor& c);
  /// `addr` in host byte order; a length above 32 raises Mox::RangeError.
  static IpGenPrefix v4(uint32_t addr, uint8_t length);
  /// A length above 128 raises Mox::RangeError.
  static IpGenPrefix v6(uint64_t hi, uint64_t lo, uint8_t length);

  AddressFamily af() const { return af_; }
  uint8_t length() const { return length_; }
  uint64_t hi() const { return hi_; }
  uint64_t lo() const { return lo_; }
  /// The address of an IPv4 prefix in host byte order.
  uint32_t address4() const { return static_cast<uint32_t>(hi_ >> 32); }

  /// The same prefix with its host bits cleared.
  IpGenPrefix masked() const {
    IpGenPrefix p = *this;
    p.hi_ &= maskHi();
    p.lo_ &= maskLo();
    return p;
  }
  bool isMasked() const { return (hi_ & ~maskHi()) == 0 && (lo_ & ~maskLo()) == 0; }
  /// True if the address, left-aligned and of this family, lies in this prefix.
  bool containsAddress(uint64_t hi, uint64_t lo) const {
    return ((hi ^ hi_) & maskHi()) == 0 && ((lo ^ lo_) & maskLo()) == 0;
  }
  /// True if every address of `other` lies in this prefix.
  bool contains(IpGenPrefix const& other) const {
    return af_ == other.af_ && length_ <= other.length_ && containsAddress(other.hi_, other.lo_);
  }
  /// First and last address, left-aligned as (hi, lo).
  std::pair<uint64_t, uint64_t> firstAddress() const { return {hi_ & maskHi(), lo_ & maskLo()}; }
  std::pair<uint64_t, uint64_t> lastAddress() const;
  /// The address without the length.
  std::string addressText() const;

  uint64_t hash64() const noexcept {
    uint64_t const address = Mox::hashCombine(hi_, lo_);
    return Mox::hashCombine(address, uint64_t{length_} << 8 | static_cast<uint64_t>(af_));
  }
  uint32_t hash() const noexcept { return Mox::foldHash(hash64()); }
  void placeWords(Mox::KeyedHash& h) const noexcept {
    // An IPv4 address leaves the lower half of its word free.
    uint64_t const kind = uint64_t{length_} << 8 | static_cast<uint64_t>(af_);
    if (af_ == AddressFamily::ipv4)
      h.word(hi_ | kind);
    else
      h.word(hi_).word(lo_).word(kind);
  }

  friend bool operator==(IpGenPrefix const&, IpGenPrefix const&) = default;
  friend std::strong_ordering operator<=>(IpGenPrefix const& a, IpGenPrefix const& b) {
    // The length comes last, so that a prefix stands in front of the longer ones below it.
    if (auto const c = a.af_ <=> b.af_; c != 0) return c;
    if (auto const c = a.hi_ <=> b.hi_; c != 0) return c;
    if (auto const c = a.lo_ <=> b.lo_; c != 0) return c;
    return a.length_ <=> b.length_;
  }

 private:
  IpGenPrefix(AddressFamily af, uint64_t hi, uint64_t lo, uint8_t length)
      : hi_(hi), lo_(lo), length_(length), af_(af) {}
  uint64_t maskHi() const {
    // To shift by all 64 bits is undefined, so both ends of the scale are cases of their own.
    return length_ == 0 ? 0 : length_ >= 64 ? ~uint64_t{0} : ~uint64_t{0} << (64 - length_);
  }
  uint64_t maskLo() const {
    return length_ <= 64 ? 0 : length_ >= 128 ? ~uint64_t{0} : ~uint64_t{0} << (128 - length_);
  }

  uint64_t hi_ = 0;
  uint64_t lo_ = 0;
  uint8_t length_ = 0;
  AddressFamily af_ = AddressFamily::ipv4;
};

}  // namespace Lumox

template <>
struct NAXEL_EXPORT Mox::TextForm<Lumox::IpGenPrefix> {
  static void write(std::string& out, Lumox::IpGenPrefix const& v);
  static void read(TextCursor& c, Lumox::IpGenPrefix& v);
};

namespace Lumox {
inline IpGenPrefix::IpGenPrefix(Mox::TextCursor& c) { Mox::TextForm<IpGenPrefix>::read(c, *this); }
inline std::ostream& operator<<(std::ostream& out, IpGenPrefix const& v) {
  return out << Mox::valueToStrep(v);
}
}  // namespace Lumox
