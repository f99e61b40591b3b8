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

/// The same by the system.
std::optional<Ip6Addr> systemRead(std::string const& text) {
  std::array<uint8_t, 16> bytes;
  if (inet_pton(AF_INET6, text.c_str(), bytes.data()) != 1) return std::nullopt;
  uint64_t word[2] = {0, 0};
  for (size_t i = 0; i < 16; ++i) word[i / 8] = word[i / 8] << 8 | bytes[i];
  return Ip6Addr(word[0], word[1]);
}

// The form of RFC 5952: no leading zeros; the longest run of zero groups is left out, the first of equal
// ones, and never a single group; IPv4 in the last two groups is written so only behind ::ffff.
TEST(Ip6AddrTest, AnyFormIsReadAndTheCanonicalOneWritten) {
  for (std::string const& row :
       pieces(":: ::|::1 ::1|0:0:0:0:0:0:0:1 ::1|1:: 1::|2001:0DB8::0001 2001:db8::1|"
              "2001:db8::1:1:1:1:1 2001:db8:0:1:1:1:1:1|2001:0:0:1:0:0:0:1 2001:0:0:1::1|"
              "2001:db8:0:0:1:0:0:1 2001:db8::1:0:0:1|0:0:1:0:0:0:1:0 0:0:1::1:0|"
              "::1:0:0:0 ::1:0:0:0|1:2:3:4:5:6:7:: 1:2:3:4:5:6:7:0|::2:3:4:5:6:7:8 0:2:3:4:5:6:7:8|"
              "1:2:3:4:5:6:: 1:2:3:4:5:6::|ABCD:EF01:2345:6789:a::8 abcd:ef01:2345:6789:a::8|"
              "::ffff:192.0.2.1 ::ffff:192.0.2.1|::FFFF:c000:201 ::ffff:192.0.2.1|"
              "0:0:0:0:0:0:13.1.68.3 ::d01:4403|64:ff9b::192.0.2.33 64:ff9b::c000:221|"
              "::fffe:1.2.3.4 ::fffe:102:304",
              "|")) {
    SCOPED_TRACE(row);
    auto const cells = pieces(row, " ");
    auto const addr = valueFromText<Ip6Addr>(cells[0]);
    EXPECT_EQ(addr, systemRead(cells[0]));
    EXPECT_EQ(valueToStrep(addr), cells[1]);
    EXPECT_EQ(valueFromText<Ip6Addr>(cells[1]), addr);
  }
}

// Texts put together from pieces, of which few are addresses, and what only looks like one.
TEST(Ip6AddrTest, OtherTextsThanThoseOfTheSystemAreRefused) {
  auto texts = pieces(
      "|1.2.3.4|1:2:3:4:5:6:7:8:9|1:2:3:4:5:6:7:8:|:1:2:3:4:5:6:7:8|1:2:3:4:5:6:7::8|"
      "1::2:3:4:5:6:7:8|1:2:3:4:5:6:7:8::|fe80::1%eth0| ::1|::1 |::1.2.3|::1.2.3.4.5|::1.2.3.256|"
      "::01.2.3.4|1:2:3:4:5:6:7:1.2.3.4|1:2:3:4:5:6::1.2.3.4|::a.2.3.4|::1.2.3.|::/0|12345::|g::",
      "|");
  size_t const refused = texts.size();
  std::mt19937 random(1);
  auto const parts = pieces("0: 1: f: ffff: 0:0:0: 2:3:4:5: : :: 1.2.3.4 0 7 .8 g", " ");
  while (texts.size() < 50000 + refused) {
    texts.emplace_back();
    for (auto n = random() % 9; n > 0; --n) texts.back() += parts[random() % parts.size()];
  }
  size_t taken = 0;
  for (size_t i = 0; i < texts.size(); ++i) {
    auto const addr = readOrNone<Ip6Addr>(texts[i]);
    ASSERT_EQ(addr, systemRead(texts[i])) << texts[i];
    ASSERT_TRUE(!addr || valueFromText<Ip6Addr>(valueToStrep(*addr)) == *addr) << texts[i];
    ASSERT_FALSE(addr && i < refused) << texts[i];
    taken += addr.has_value();
  }
  EXPECT_GT(taken, 1000u);
}

TEST(IpGenPrefixTest, TextKeepsHostBitsAndStopsWhereThePrefixEnds) {
  struct Case {
    char const* text;
    IpGenPrefix prefix;
    char const* masked;
  };
  for (Case const& c : {
           Case{"0.0.0.0/0", IpGenPrefix(), "0.0.0.0/0"},
           Case{"10.1.2.3/8", IpGenPrefix::v4(0x0a010203, 8), "10.0.0.0/8"},
           Case{"255.255.255.255/32", IpGenPrefix::v4(~0u, 32), "255.255.255.255/32"},
           Case{"::/0", IpGenPrefix::v6(0, 0, 0), "::/0"},
           Case{"2001:db8:0:1::1/63", IpGenPrefix::v6(0x20010db800000001, 1, 63), "2001:db8::/63"},
           Case{"1::ffff/113", IpGenPrefix::v6(uint64_t{1} << 48, 0xffff, 113), "1::8000/113"},
           Case{"::ffff:10.0.0.0/128", IpGenPrefix::v6(0, 0xffff0a000000, 128),
                "::ffff:10.0.0.0/128"},
       }) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(valueToStrep(c.prefix), c.text);
    EXPECT_EQ(valueToStrep(c.prefix.masked()), c.masked);
    EXPECT_EQ(c.prefix.isMasked(), std::string(c.masked) == c.text);
    EXPECT_EQ(c.prefix.addressText(), pieces(c.text, "/")[0]);
    for (std::string const& rest : pieces("|, 'x': ::1|}| 1:2|,10.0.0.0/8|: 3", "|")) {
      std::string const text = c.text + rest;
      Mox::TextCursor cursor(text);
      EXPECT_EQ(IpGenPrefix(cursor), c.prefix);
      EXPECT_EQ(cursor.rest(), rest);
    }
  }
  for (std::string const& text :
       pieces("|/|10.0.0.0|10.0.0.0/|10.0.0/8|10.0.0.0/33|10.0.0.0/256|10.0.0.0/08|10.0.0.0/-1|"
              "10.0.0.0/+8|10.0.0.0 /8|10.0.0.0/ 8|10.0.0.0/8 |010.0.0.0/8|10.0.0.256/8|"
              "10.0.0.0.0/8|10..0.0/8|a.0.0.0/8|10.0.0.0/8/8|::|::/|::/129|::/384|::/064|::1:/64|"
              "/64|,::/0|10.0.0.0/255.0.0.0",
              "|"))
    EXPECT_FALSE(readOrNone<IpGenPrefix>(text)) << text;
  EXPECT_THROW(IpGenPrefix::v4(0, 33), Mox::RangeError);
  EXPECT_THROW(IpGenPrefix::v6(0, 0, 129), Mox::RangeError);
}

// Containment bit by bit, over short prefixes of both families with and without host bits.
TEST(IpGenPrefixTest, ContainmentLimitsAndOrderAreThoseOfTheBits) {
  std::mt19937 random(2);
  auto const bit = [](IpGenPrefix const& p, unsigned i) {
    return (i < 64 ? p.hi() >> (63 - i) : p.lo() >> (127 - i)) & 1;
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
    for (unsigned at = 0; at < a.length(); ++at) inside = inside && bit(a, at) == bit(b, at);
    ASSERT_EQ(a.contains(b), inside);
    auto const [firstHi, firstLo] = b.firstAddress();
    auto const [lastHi, lastLo] = b.lastAddress();
    ASSERT_EQ(inside, b.length() >= a.length() && a.containsAddress(firstHi, firstLo) &&
                          a.containsAddress(lastHi, lastLo));
    ASSERT_TRUE(b.masked().isMasked());
    ASSERT_TRUE(!inside || a.masked() <= b.masked());
  }
  EXPECT_FALSE(IpGenPrefix::v4(0, 0).contains(IpGenPrefix::v6(0, 0, 64)));
  EXPECT_EQ(IpGenPrefix::v4(0x0a000000, 8).lastAddress(),
            (std::pair<uint64_t, uint64_t>(0x0affffff00000000, 0)));
  EXPECT_EQ(IpGenPrefix::v6(0, 0, 65).lastAddress(),
            (std::pair<uint64_t, uint64_t>(0, ~uint64_t{0} >> 1)));
  // The pre-order of the tree.
  auto const ordered = pieces(
      "0.0.0.0/0 10.0.0.0/8 10.0.0.0/24 10.0.0.0/25 10.0.0.128/25 10.0.1.0/24 10.1.0.0/16 "
      "11.0.0.0/8 128.0.0.0/1 ::/0 2001:db8::/32 2001:db8::/64 2001:db8::1/128 "
      "2001:db8:1::/48 8000::/1",
      " ");
  for (size_t i = 0; i < ordered.size(); ++i)
    for (size_t j = 0; j < ordered.size(); ++j)
      EXPECT_EQ(valueFromText<IpGenPrefix>(ordered[i]) <=> valueFromText<IpGenPrefix>(ordered[j]),
                i <=> j)
          << ordered[i] << ' ' << ordered[j];
  EXPECT_NE(IpGenPrefix::v4(0x0a000000, 24).hash64(), IpGenPrefix::v4(0x0a000038, 32).hash64());
}

}  // namespace
}  // namespace Lumox
