#include "lumox/IpGenPrefix.h"

#include "lumox/Ip6Addr.h"

namespace Lumox {

IpGenPrefix IpGenPrefix::v4(uint32_t addr, uint8_t length) {
  if (length > 32) throw Mox::RangeError("IpGenPrefix::length > 32 not allowed");
  return IpGenPrefix(AddressFamily::ipv4, uint64_t{addr} << 32, 0, length);
}

IpGenPrefix IpGenPrefix::v6(uint64_t hi, uint64_t lo, uint8_t length) {
  if (length > 128) throw Mox::RangeError("IpGenPrefix::length > 128 not allowed");
  return IpGenPrefix(AddressFamily::ipv6, hi, lo, length);
}

std::pair<uint64_t, uint64_t> IpGenPrefix::lastAddress() const {
  uint64_t const hi = hi_ | ~maskHi();
  // The bits behind an IPv4 address are no part of it.
  if (af_ == AddressFamily::ipv4) return {hi & 0xffffffff00000000u, 0};
  return {hi, lo_ | ~maskLo()};
}

std::string IpGenPrefix::addressText() const {
  std::string out;
  if (af_ == AddressFamily::ipv4)
    writeIp4(out, address4());
  else
    Mox::TextForm<Ip6Addr>::write(out, Ip6Addr(hi_, lo_));
  return out;
}

}  // namespace Lumox

void Mox::TextForm<Lumox::IpGenPrefix>::write(std::string& out, Lumox::IpGenPrefix const& v) {
  out += v.addressText();
  out += '/';
  out += std::to_string(v.length());
}

void Mox::TextForm<Lumox::IpGenPrefix>::read(TextCursor& c, Lumox::IpGenPrefix& v) {
  // An IPv6 address has a colon before anything that could end it.
  std::string_view const rest = c.rest();
  bool const six = rest.substr(0, rest.find_first_of("/,} ")).find(':') != std::string_view::npos;
  if (six) {
    Lumox::Ip6Addr addr;
    TextForm<Lumox::Ip6Addr>::read(c, addr);
    c.expect("/");
    v = Lumox::IpGenPrefix::v6(addr.hi(), addr.lo(), static_cast<uint8_t>(c.takeNumber(128)));
  } else {
    uint32_t const addr = Lumox::readIp4(c);
    c.expect("/");
    v = Lumox::IpGenPrefix::v4(addr, static_cast<uint8_t>(c.takeNumber(32)));
  }
}
