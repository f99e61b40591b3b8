// Addresses and prefixes: text, order and containment.

#include "lumox/Ip6Addr.h"
#include "lumox/IpGenPrefix.h"
#include "mox/Value.h"

#include <algorithm>
#include <array>
#include <random>

#include <gtest/gtest.h>

namespace Lumox {
namespace {

using Mox::valueFromText;
using Mox::valueToStrep;

/// True if the text is no text form of a T.
template <class T>
bool isRefused(std::string const& text) {
  try {
    valueFromText<T>(text);
    return false;
  } catch (Mox::ParseError const&) {
    return true;
  } catch (Mox::RangeError const&) {
    return true;
  }
}

/// The prefix read from what stands before `rest` in a larger text; checks where the reader stops.
IpGenPrefix readBefore(std::string const& prefix, std::string const& rest) {
  std::string const text = prefix + rest;
  Mox::TextCursor cursor(text);
  IpGenPrefix const p(cursor);
  EXPECT_EQ(cursor.rest(), rest) << text;
  return p;
}

TEST(Ip6AddrTest, AnyFormIsReadAndTheCanonicalOneWritten) {
  struct Case {
    char const* in;
    uint64_t hi, lo;
    char const* out;
  };
  for (Case const& c : {
           Case{"::", 0, 0, "::"},
           Case{"::1", 0, 1, "::1"},
           Case{"0:0:0:0:0:0:0:1", 0, 1, "::1"},
           Case{"1::", 0x0001000000000000, 0, "1::"},
           Case{"2001:0DB8::0001", 0x20010db800000000, 1, "2001:db8::1"},
           // One zero group is not shortened, also where it was written so.
           Case{"2001:db8::1:1:1:1:1", 0x20010db800000001, 0x0001000100010001,
                "2001:db8:0:1:1:1:1:1"},
           // The longest run is, and the first of two equal ones.
           Case{"2001:0:0:1:0:0:0:1", 0x2001000000000001, 1, "2001:0:0:1::1"},
           Case{"2001:db8:0:0:1:0:0:1", 0x20010db800000000, 0x0001000000000001,
                "2001:db8::1:0:0:1"},
           Case{"0:0:1:0:0:0:1:0", 0x0000000000010000, 0x0000000000010000, "0:0:1::1:0"},
           Case{"::1:0:0:0", 0, 0x0001000000000000, "::1:0:0:0"},
           Case{"1:2:3:4:5:6:7::", 0x0001000200030004, 0x0005000600070000, "1:2:3:4:5:6:7:0"},
           Case{"::2:3:4:5:6:7:8", 0x0000000200030004, 0x0005000600070008, "0:2:3:4:5:6:7:8"},
           Case{"1:2:3:4:5:6::", 0x0001000200030004, 0x0005000600000000, "1:2:3:4:5:6::"},
           Case{"ABCD:EF01:2345:6789:abcd:ef01:2345:6789", 0xabcdef0123456789, 0xabcdef0123456789,
                "abcd:ef01:2345:6789:abcd:ef01:2345:6789"},
           // IPv4 in the last two groups; written so only behind ::ffff.
           Case{"::ffff:192.0.2.1", 0, 0xffffc0000201, "::ffff:192.0.2.1"},
           Case{"::FFFF:c000:201", 0, 0xffffc0000201, "::ffff:192.0.2.1"},
           Case{"0:0:0:0:0:0:13.1.68.3", 0, 0x0d014403, "::d01:4403"},
           Case{"64:ff9b::192.0.2.33", 0x0064ff9b00000000, 0xc0000221, "64:ff9b::c000:221"},
           Case{"::fffe:1.2.3.4", 0, 0xfffe01020304, "::fffe:102:304"},
       }) {
    SCOPED_TRACE(c.in);
    Ip6Addr const addr = valueFromText<Ip6Addr>(c.in);
    EXPECT_EQ(addr, Ip6Addr(c.hi, c.lo));
    EXPECT_EQ(valueToStrep(addr), c.out);
    EXPECT_EQ(valueFromText<Ip6Addr>(c.out), addr);
  }
}

TEST(Ip6AddrTest, OtherTextsAreRefused) {
  for (char const* text : {"",
                           ":",
                           ":::",
                           "1",
                           "1:",
                           ":1",
                           "1:2:3:4:5:6:7",
                           "1:2:3:4:5:6:7:8:9",
                           "1:2:3:4:5:6:7:8:",
                           ":1:2:3:4:5:6:7:8",
                           "1:2:3:4:5:6:7::8",
                           "1::2:3:4:5:6:7:8",
                           "1:2:3:4:5:6:7:8::",
                           "1::2::3",
                           "1:::2",
                           "12345::",
                           "g::",
                           "fe80::1%eth0",
                           " ::1",
                           "::1 ",
                           "1.2.3.4",
                           "1.2.3.4::",
                           "::1.2.3",
                           "::1.2.3.4.5",
                           "::1.2.3.256",
                           "::01.2.3.4",
                           "::1.2.3.4:5",
                           "1:2:3:4:5:6:7:1.2.3.4",
                           "1:2:3:4:5:6::1.2.3.4",
                           "::a.2.3.4",
                           "::1.2.3.",
                           "::/0"})
    EXPECT_TRUE(isRefused<Ip6Addr>(text)) << text;
}

TEST(IpGenPrefixTest, TextKeepsHostBitsAndStopsWhereThePrefixEnds) {
  struct Case {
    char const* text;
    IpGenPrefix prefix;
    char const *masked, *address;
  };
  for (Case const& c : {
           Case{"0.0.0.0/0", IpGenPrefix(), "0.0.0.0/0", "0.0.0.0"},
           Case{"10.1.2.3/8", IpGenPrefix::v4(0x0a010203, 8), "10.0.0.0/8", "10.1.2.3"},
           Case{"255.255.255.255/32", IpGenPrefix::v4(~0u, 32), "255.255.255.255/32",
                "255.255.255.255"},
           Case{"::/0", IpGenPrefix::v6(0, 0, 0), "::/0", "::"},
           Case{"2001:db8::1/64", IpGenPrefix::v6(0x20010db800000000, 1, 64), "2001:db8::/64",
                "2001:db8::1"},
           Case{"2001:db8:0:1::1/63", IpGenPrefix::v6(0x20010db800000001, 1, 63), "2001:db8::/63",
                "2001:db8:0:1::1"},
           Case{"1::ffff/113", IpGenPrefix::v6(uint64_t{1} << 48, 0xffff, 113), "1::8000/113",
                "1::ffff"},
           Case{"::ffff:10.0.0.0/104", IpGenPrefix::v6(0, 0xffff0a000000, 104),
                "::ffff:10.0.0.0/104", "::ffff:10.0.0.0"},
       }) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(valueToStrep(c.prefix), c.text);
    EXPECT_EQ(valueFromText<IpGenPrefix>(c.text), c.prefix);
    EXPECT_EQ(valueToStrep(c.prefix.masked()), c.masked);
    EXPECT_EQ(c.prefix.isMasked(), std::string(c.masked) == c.text);
    EXPECT_EQ(c.prefix.addressText(), c.address);
    EXPECT_TRUE(c.prefix.contains(c.prefix.masked()));
    for (char const* rest : {"", ", 'x': ::1", "}", " 1:2", ",10.0.0.0/8", ": 3"})
      EXPECT_EQ(readBefore(c.text, rest), c.prefix);
  }
}

TEST(IpGenPrefixTest, BadTextsAndLengthsAreRefused) {
  for (char const* text : {"",
                           "/",
                           "10.0.0.0",
                           "10.0.0.0/",
                           "10.0.0/8",
                           "10.0.0.0/33",
                           "10.0.0.0/256",
                           "10.0.0.0/08",
                           "10.0.0.0/-1",
                           "10.0.0.0/+8",
                           "10.0.0.0 /8",
                           "10.0.0.0/ 8",
                           "10.0.0.0/8 ",
                           "010.0.0.0/8",
                           "10.0.0.256/8",
                           "10.0.0.0.0/8",
                           "10..0.0/8",
                           "a.0.0.0/8",
                           "10.0.0.0/8/8",
                           "::",
                           "::/",
                           "::/129",
                           "::/384",
                           "::/064",
                           "::1:/64",
                           "/64",
                           ",::/0",
                           "10.0.0.0/255.0.0.0"})
    EXPECT_TRUE(isRefused<IpGenPrefix>(text)) << text;
  EXPECT_THROW(IpGenPrefix::v4(0, 33), Mox::RangeError);
  EXPECT_THROW(IpGenPrefix::v6(0, 0, 129), Mox::RangeError);
  EXPECT_NO_THROW(IpGenPrefix::v6(0, 0, 128));
}

// Containment bit by bit, over short prefixes of both families with and without host bits.
TEST(IpGenPrefixTest, ContainmentAndLimitsAreThoseOfTheBits) {
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
    bool inside = b.length() >= a.length();
    for (unsigned at = 0; at < a.length(); ++at) inside = inside && bit(a, at) == bit(b, at);
    ASSERT_EQ(a.contains(b), inside) << a << ' ' << b;
    auto const [firstHi, firstLo] = b.firstAddress();
    auto const [lastHi, lastLo] = b.lastAddress();
    ASSERT_EQ(inside, b.length() >= a.length() && a.containsAddress(firstHi, firstLo) &&
                          a.containsAddress(lastHi, lastLo))
        << a << ' ' << b;
    ASSERT_TRUE(b.masked().isMasked());
    ASSERT_TRUE(!inside || a.masked() <= b.masked()) << a << ' ' << b;
  }
  EXPECT_FALSE(IpGenPrefix::v4(0, 0).contains(IpGenPrefix::v6(0, 0, 64)));
  EXPECT_EQ(IpGenPrefix::v4(0x0a000000, 8).lastAddress(),
            (std::pair<uint64_t, uint64_t>(0x0affffff00000000, 0)));
  EXPECT_EQ(IpGenPrefix::v6(0, 0, 65).lastAddress(),
            (std::pair<uint64_t, uint64_t>(0, ~uint64_t{0} >> 1)));
}

TEST(IpGenPrefixTest, NaturalOrderIsThePreOrderOfTheTree) {
  std::vector<std::string> const ordered = {
      "0.0.0.0/0",     "10.0.0.0/8",    "10.0.0.0/24",     "10.0.0.0/25",     "10.0.0.128/25",
      "10.0.1.0/24",   "10.1.0.0/16",   "11.0.0.0/8",      "128.0.0.0/1",     "::/0",
      "2001:db8::/32", "2001:db8::/64", "2001:db8::1/128", "2001:db8:1::/48", "8000::/1"};
  for (size_t i = 0; i < ordered.size(); ++i)
    for (size_t j = 0; j < ordered.size(); ++j)
      EXPECT_EQ(valueFromText<IpGenPrefix>(ordered[i]) <=> valueFromText<IpGenPrefix>(ordered[j]),
                i <=> j)
          << ordered[i] << ' ' << ordered[j];
}

TEST(IpGenPrefixTest, HashesTellPrefixesApart) {
  EXPECT_NE(valueFromText<IpGenPrefix>("10.0.0.0/24").hash64(),
            valueFromText<IpGenPrefix>("10.0.0.56/32").hash64());
}

}  // namespace
}  // namespace Lumox
