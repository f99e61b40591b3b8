// Addresses and prefixes: text, order and containment.

#include "lumox/Ip6Addr.h"
#include "lumox/IpGenPrefix.h"
#include "mox/Value.h"
#include "support/Pieces.h"

#include <arpa/inet.h>
#include <array>
#include <optional>
#include <random>

#include <gtest/gtest.h>

namespace Lumox {
namespace {

using Mox::valueFromText;
using Mox::valueToStrep;
using Test::pieces;

/// None if the text is no text form of a T.
template <class T>
std::optional<T> readOrNone(std::string const& text) {
  try {
    return valueFromText<T>(text);
  } catch (Mox::ParseError const&) {
  } catch (Mox::RangeError const&) {
  }
  return std::nullopt;
}

/// What the system takes a text for, left-aligned, and how it writes that.
struct SystemAddress {
  uint64_t word[2] = {0, 0};
  std::string text;
};
std::optional<SystemAddress> systemRead(std::string const& text) {
  int const family = text.find(':') == text.npos ? AF_INET : AF_INET6;
  std::array<uint8_t, 16> bytes = {};
  if (inet_pton(family, text.c_str(), bytes.data()) != 1) return std::nullopt;
  SystemAddress out;
  for (size_t i = 0; i < 16; ++i) out.word[i / 8] = out.word[i / 8] << 8 | bytes[i];
  char written[INET6_ADDRSTRLEN];
  out.text = inet_ntop(family, bytes.data(), written, sizeof written);
  // It takes these for IPv4 addresses, too; we do so behind ::ffff only.
  if (family == AF_INET6 && out.word[0] == 0 && out.word[1] >> 32 == 0 && out.word[1] >> 16) {
    std::snprintf(written, sizeof written, "::%x:%x", static_cast<unsigned>(out.word[1] >> 16),
                  static_cast<unsigned>(out.word[1] & 0xffff));
    out.text = written;
  }
  return out;
}

// Texts put together from parts, of which few are addresses or prefixes. An address is read as by the system
// and written in the form of RFC 5952: no leading zeros; the longest run of zero groups is left out, the
// first of equal ones, and never a single group; IPv4 in the last two groups is written so only behind ::ffff.
TEST(AddressTest, TextsAreReadAndWrittenAsByTheSystem) {
  std::mt19937 random(1);
  auto const parts = pieces(
      "0:|1:|f:|ffff:|0Db8:|0:0:0:|2:3:4:5:|:|::|::ffff:|1.2.3.4|10.0.|255.|01.|0|7|.8|g| ", "|");
  auto const lengths = pieces(
      "/0|/1|/8|/31|/32|/33|/63|/64|/65|/113|/128|/129|/256|/384|/08|/-1|/+8|/ 8|/8 |/8/8|/8.0|/|",
      "|");
  size_t addresses = 0;
  size_t prefixes = 0;
  for (int i = 0; i < 40000; ++i) {
    std::string address;
    for (auto n = random() % 9; n > 0; --n) address += parts[random() % parts.size()];
    std::string const length = lengths[random() % lengths.size()], text = address + length;
    SCOPED_TRACE(text);
    auto const system = systemRead(address);
    bool const six = address.find(':') != address.npos;
    auto const addr = readOrNone<Ip6Addr>(address);
    ASSERT_EQ(addr.has_value(), six && system);
    if (addr) {
      ++addresses;
      ASSERT_EQ(*addr, Ip6Addr(system->word[0], system->word[1]));
      ASSERT_EQ(valueToStrep(*addr), system->text);
      ASSERT_EQ(valueFromText<Ip6Addr>(system->text), *addr);
    }
    auto const prefix = readOrNone<IpGenPrefix>(text);
    auto const bits = length.empty() ? 0 : std::strtoul(length.c_str() + 1, nullptr, 10);
    bool const isLength = length == "/" + std::to_string(bits) && bits <= (six ? 128 : 32);
    ASSERT_EQ(prefix.has_value(), system && isLength);
    if (!prefix) continue;
    ++prefixes;
    ASSERT_EQ(prefix->af(), six ? ipv6() : ipv4());
    ASSERT_EQ(std::tuple(prefix->hi(), prefix->lo(), prefix->length()),
              std::tuple(system->word[0], system->word[1], bits));
    ASSERT_EQ(prefix->addressText(), system->text);
    ASSERT_EQ(valueToStrep(*prefix), system->text + length);
    for (std::string const& rest : pieces("|, 'x': ::1|}| 1:2|,10.0.0.0/8|: 3", "|")) {
      std::string const longer = text + rest;
      Mox::TextCursor cursor(longer);
      ASSERT_EQ(IpGenPrefix(cursor), *prefix);
      ASSERT_EQ(cursor.rest(), rest);
    }
  }
  EXPECT_GT(addresses, 500u);
  EXPECT_GT(prefixes, 300u);
  EXPECT_EQ(valueToStrep(Ip6Addr(0, 0xffffc0000201)), "::ffff:192.0.2.1");
  EXPECT_THROW(IpGenPrefix::v4(0, 33), Mox::RangeError);
  EXPECT_THROW(IpGenPrefix::v6(0, 0, 129), Mox::RangeError);
}

// Bit by bit, over prefixes of both families with and without host bits.
TEST(IpGenPrefixTest, ContainmentLimitsAndOrderAreThoseOfTheBits) {
  std::mt19937 random(2);
  auto const bit = [](std::pair<uint64_t, uint64_t> const& a, unsigned i) {
    return (i < 64 ? a.first >> (63 - i) : a.second >> (127 - i)) & 1;
  };
  auto const some = [&](bool six) {
    // Lengths about the borders of words; addresses that seldom differ.
    unsigned const base = six ? std::array{0u, 62u, 64u, 126u}[random() % 4] : random() % 31;
    auto const length = static_cast<uint8_t>(base + random() % 3);
    uint64_t const hi = random() % 3 ? 0 : uint64_t{1} << random() % 64;
    uint64_t const lo = random() % 3 ? 0 : uint64_t{1} << random() % 64;
    return six ? IpGenPrefix::v6(hi, lo, length)
               : IpGenPrefix::v4(static_cast<uint32_t>(hi >> 32), length);
  };
  for (int i = 0; i < 20000; ++i) {
    IpGenPrefix const a = some(i % 2);
    IpGenPrefix const b = some(i % 2);
    SCOPED_TRACE(valueToStrep(a) + " " + valueToStrep(b));
    bool inside = b.length() >= a.length();
    for (unsigned at = 0; at < 128; ++at) {
      bool const counts = at < a.length();
      auto const is = bit({a.hi(), a.lo()}, at);
      inside = inside && !(counts && is != bit({b.hi(), b.lo()}, at));
      ASSERT_EQ(bit(a.firstAddress(), at), counts && is);
      ASSERT_EQ(bit(a.lastAddress(), at), counts ? is : i % 2 || at < 32);
    }
    ASSERT_EQ(a.contains(b), inside);
    // The pre-order of the tree: a prefix, what is inside of it, and then what lies behind.
    IpGenPrefix const top = a.masked(), other = b.masked();
    ASSERT_EQ(std::pair(top.hi(), top.lo()), a.firstAddress());
    ASSERT_EQ(a.isMasked(), a == top);
    ASSERT_EQ(top <= other, inside || top.lastAddress() < other.firstAddress());
  }
  EXPECT_FALSE(IpGenPrefix::v4(0, 0).contains(IpGenPrefix::v6(0, 0, 64)));
  EXPECT_LT(IpGenPrefix::v4(~0u, 32), IpGenPrefix::v6(0, 0, 0));
  EXPECT_NE(IpGenPrefix::v4(0x0a000000, 24).hash64(), IpGenPrefix::v4(0x0a000038, 32).hash64());
}

}  // namespace
}  // namespace Lumox
