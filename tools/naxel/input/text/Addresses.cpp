#include "input/text/Addresses.h"

#include "input/Intervals.h"
#include "mox/AlignedBlocks.h"

#include <arpa/inet.h>
#include <array>
#include <bit>
#include <cstring>

namespace NaxelTool {

namespace {

uint64_t bigEndian(unsigned char const* bytes) {
  uint64_t out = 0;
  for (int i = 0; i < 8; ++i) out = out << 8 | bytes[i];
  return out;
}

Wide numberOf(Lumox::IpGenPrefix const& p) {
  return ((Wide{p.hi()} << 64) | p.lo()) >> (128 - bitsOf(p.af()));
}

Lumox::IpGenPrefix prefixOf(Lumox::AddressFamily af, Wide number, unsigned length) {
  auto const bits = static_cast<uint8_t>(length);
  return af == Lumox::ipv4() ? Lumox::IpGenPrefix::v4(static_cast<uint32_t>(number), bits)
                             : Lumox::IpGenPrefix::v6(static_cast<uint64_t>(number >> 64),
                                                      static_cast<uint64_t>(number), bits);
}

}  // namespace

std::optional<Lumox::IpGenPrefix> addressOf(std::string_view text) {
  std::array<char, INET6_ADDRSTRLEN + 1> buffer{};
  if (text.empty() || text.size() >= buffer.size() || text.find('\0') != text.npos)
    return std::nullopt;
  std::memcpy(buffer.data(), text.data(), text.size());
  std::array<unsigned char, 16> bytes{};
  if (inet_pton(AF_INET, buffer.data(), bytes.data()) == 1)
    return Lumox::IpGenPrefix::v4(static_cast<uint32_t>(bigEndian(bytes.data()) >> 32), 32);
  if (inet_pton(AF_INET6, buffer.data(), bytes.data()) == 1)
    return Lumox::IpGenPrefix::v6(bigEndian(bytes.data()), bigEndian(bytes.data() + 8), 128);
  return std::nullopt;
}

std::optional<uint32_t> address4Of(std::string_view text) {
  auto const address = addressOf(text);
  if (!address || address->af() != Lumox::ipv4()) return std::nullopt;
  return address->address4();
}

std::optional<Prefixes> wildcardPrefixes(uint32_t address, uint32_t wildcard) {
  int const low = std::countr_one(wildcard);
  uint32_t const scattered = low == 32 ? 0 : wildcard >> low << low;
  if (std::popcount(scattered) > 8) return std::nullopt;
  auto const length = static_cast<uint8_t>(32 - low);
  Prefixes out;
  // All values of the scattered bits, in ascending order.
  for (uint32_t bits = 0;; bits = (bits - scattered) & scattered) {
    out.push_back(Lumox::IpGenPrefix::v4((address & ~wildcard) | bits, length));
    if (bits == scattered) return out;
  }
}

bool looksLikeNetmask(uint32_t mask) {
  return mask != 0 && ~mask != 0 && std::countl_one(mask) + std::countr_zero(mask) == 32;
}

Prefixes rangePrefixes(Lumox::IpGenPrefix const& first, Lumox::IpGenPrefix const& last) {
  Prefixes out;
  unsigned const width = bitsOf(first.af());
  Mox::forEachAlignedBlock(numberOf(first), numberOf(last), width, [&](Wide from, unsigned bits) {
    out.push_back(prefixOf(first.af(), from, width - bits));
  });
  return out;
}

}  // namespace NaxelTool
