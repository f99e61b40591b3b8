// Text forms: what is written reads back as the same value, and nothing else reads at all.

#include "lumox/AddressFamily.h"
#include "mox/Text.h"
#include "naxel/types/Action.h"
#include "naxel/types/Ranges.h"

#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

namespace Mox {
namespace {

enum class Outcome { value, parseError, rangeError };

/// Reads `text` and checks that a refusal leaves the target as it was.
template <class T>
Outcome outcome(std::string const& text, T const& held) {
  T out = held;
  try {
    sequenceToValue(text.data(), text.data() + text.size(), out);
    return Outcome::value;
  } catch (ParseError const&) {
    EXPECT_EQ(out, held) << text;
    return Outcome::parseError;
  } catch (RangeError const&) {
    EXPECT_EQ(out, held) << text;
    return Outcome::rangeError;
  }
}

template <class T>
void expectRoundTrip(T const& value, std::string const& text) {
  EXPECT_EQ(valueToStrep(value), text);
  EXPECT_EQ(valueFromText<T>(text), value) << text;
}

TEST(Text, NumbersAreCheckedBeforeTheyAreNarrowed) {
  struct Case {
    char const* text;
    int fits;  // in 8, 32 and 64 bits
  };
  for (Case const& c : {Case{"0", 8}, Case{"255", 8}, Case{"256", 32}, Case{"4294967295", 32},
                        Case{"4294967297", 64}, Case{"18446744073709551615", 64},
                        Case{"18446744073709551616", 99}, Case{"99999999999999999999999", 99}}) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(outcome<uint8_t>(c.text, 77), c.fits > 8 ? Outcome::rangeError : Outcome::value);
    EXPECT_EQ(outcome<uint32_t>(c.text, 77), c.fits > 32 ? Outcome::rangeError : Outcome::value);
    EXPECT_EQ(outcome<uint64_t>(c.text, 77), c.fits > 64 ? Outcome::rangeError : Outcome::value);
  }
  for (char const* text : {"", "00", "07", "+7", "-1", " 7", "7 ", "0x7", "7.0"})
    EXPECT_EQ(outcome<uint8_t>(text, 77), Outcome::parseError) << text;
  expectRoundTrip<uint64_t>(~uint64_t{0}, "18446744073709551615");
  expectRoundTrip<uint8_t>(200, "200");
}

TEST(Text, WordsHaveOneSpelling) {
  expectRoundTrip(true, "true");
  expectRoundTrip(false, "false");
  for (char const* text : {"", "True", "tru", "truex", "true ", " false", "1", "0", "'true'"}) {
    EXPECT_EQ(outcome(text, true), Outcome::parseError) << text;
    EXPECT_EQ(outcome(text, false), Outcome::parseError) << text;
  }
  expectRoundTrip(Lumox::ipv6(), "ipv6");
  expectRoundTrip(Naxel::NaxelActionType::setTcAction, "setTcAction");
  for (char const* text : {"", "ipv", "ipv66", "IPv4", "1", "'ipv4'", "ipv4,"})
    EXPECT_EQ(outcome(text, Lumox::ipv6()), Outcome::parseError) << text;
  EXPECT_EQ(stringValue(static_cast<Lumox::AddressFamily>(9)), "9");
  EXPECT_EQ(instanceFromNumber<Lumox::AddressFamily>(1), Lumox::ipv6());
  EXPECT_EQ(instanceFromNumber<Lumox::AddressFamily>(2), std::nullopt);
}

TEST(Text, DoublesReadBackBitForBit) {
  expectRoundTrip(0.0, "0");
  expectRoundTrip(-1.0, "-1");
  expectRoundTrip(0.5, "0.5");
  expectRoundTrip(0.1, "0.10000000000000001");
  expectRoundTrip(1.7e9, "1700000000");
  expectRoundTrip(1e300, "1.0000000000000001e+300");
  double const next = std::nextafter(1.7e9, 2e9);
  EXPECT_NE(valueToStrep(next), valueToStrep(1.7e9));
  std::mt19937_64 random(1);
  for (int i = 0; i < 20000; ++i) {
    double v = 0;
    do v = __builtin_bit_cast(double, random());
    while (!std::isfinite(v));
    ASSERT_EQ(__builtin_bit_cast(uint64_t, valueFromText<double>(valueToStrep(v))),
              __builtin_bit_cast(uint64_t, v));
  }
  for (char const* text :
       {"", "-", ".", "1.0.0", "1e", "1,5", "+1", " 1", "1 ", "0x10", "1e999", "one"})
    EXPECT_EQ(outcome(text, 2.5), Outcome::parseError) << text;
}

TEST(Text, StringsAreEscapedInExactlyOneWay) {
  struct Case {
    std::string value;
    char const* text;
  };
  for (Case const& c : {
           Case{"", "''"},
           Case{"a b", "'a b'"},
           Case{"it's", R"('it\'s')"},
           Case{R"(a\b)", R"('a\\b')"},
           Case{R"(\')", R"('\\\'')"},
           Case{R"(\x0a)", R"('\\x0a')"},
           Case{"\"", "'\"'"},
           Case{"a\nb\t", R"('a\x0ab\x09')"},
           Case{std::string("\0\x1f\x7f", 3), R"('\x00\x1f\x7f')"},
           Case{"\x80\xc3\xbc", "'\x80\xc3\xbc'"},
       }) {
    SCOPED_TRACE(c.text);
    expectRoundTrip(c.value, c.text);
  }
  for (char const* text :
       {"", "'", "a", "'a", "a'", "'a'b", "'a''", R"('\')", R"('\a')", R"('\n')", R"('\x0A')",
        R"('\x41')", R"('\x80')", R"('\x0')", R"('\x)", "'a\nb'", "\"a\"", R"('\x27')"})
    EXPECT_EQ(outcome<std::string>(text, "kept"), Outcome::parseError) << text;

  std::mt19937 random(2);
  for (int i = 0; i < 3000; ++i) {
    std::string value(random() % 12, '\0');
    for (char& ch : value)
      ch = static_cast<char>(random() % 3 ? random() : "'\\x0\n"[random() % 5]);
    ASSERT_EQ(valueFromText<std::string>(valueToStrep(value)), value);
  }
}

TEST(Text, ValueTypesListTheirFieldsInOrder) {
  Naxel::NaxelActionValue action;
  action.logEnabledIs(true);
  action.dscpIs(Lumox::DscpValue(46));
  std::string const text =
      "Value('Naxel::NaxelActionValue', ** {'dropEnabled': false, 'logEnabled': true, 'dscp': 46, "
      "'setDscpEnabled': false, 'tc': 8, 'setTcEnabled': false, 'sflowEnabled': false})";
  expectRoundTrip(action, text);
  expectRoundTrip(Naxel::Constants(), "Value('Naxel::Constants', ** {})");

  std::string const range = "Value('Naxel::Range', ** {'rangeStart': 5, 'rangeEnd': 9})";
  expectRoundTrip(Naxel::Range(5, 9), range);
  // Every text that is one character away from the right one, but in a number, is refused.
  for (size_t i = 0; i <= range.size(); ++i) {
    std::string shorter = range;
    shorter.erase(i, 1);
    std::string longer = range;
    longer.insert(i, " ");
    if (i < range.size()) {
      EXPECT_EQ(outcome(shorter, Naxel::Range(1, 2)), Outcome::parseError) << shorter;
    }
    EXPECT_EQ(outcome(longer, Naxel::Range(1, 2)), Outcome::parseError) << longer;
    EXPECT_EQ(outcome(range.substr(0, i), Naxel::Range(1, 2)),
              i == range.size() ? Outcome::value : Outcome::parseError);
  }
}

TEST(Text, ARangeErrorNamesTheFieldInWhichItWasRaised) {
  auto const message = [](auto value, std::string const& text) -> std::string {
    try {
      sequenceToValue(text.data(), text.data() + text.size(), value);
      return "accepted";
    } catch (RangeError const& e) {
      return e.what();
    }
  };
  EXPECT_EQ(message(Naxel::DscpRange(),
                    "Value('Naxel::DscpRange', ** {'rangeStart': 0, 'rangeEnd': 64})"),
            "DscpRange::rangeEnd < 0 or > Expr @NaxelAclTypes:96 not allowed, in field 'rangeEnd'");
  EXPECT_EQ(message(Naxel::FragmentRange(),
                    "Value('Naxel::FragmentRange', ** {'rangeStart': 8192, 'rangeEnd': 9000})"),
            "FragmentRange::rangeStart < 0 or > Expr @NaxelAclTypes:79 not allowed, in field "
            "'rangeStart'");
  EXPECT_EQ(message(Naxel::Range(),
                    "Value('Naxel::Range', ** {'rangeStart': 4294967296, 'rangeEnd': 0})"),
            "number 4294967296 > 4294967295 not allowed, in field 'rangeStart'");
  EXPECT_EQ(message(Lumox::DscpValue(), "64"), "DscpValue::value > 63 not allowed");
  EXPECT_EQ(message(Lumox::DscpValue(), "300"), "DscpValue::value > 63 not allowed");
  EXPECT_EQ(message(Lumox::DscpValue(), "63"), "accepted");
  EXPECT_EQ(message(Naxel::AceIndex(), "4294967294"), "accepted");
  EXPECT_NE(message(Naxel::AceIndex(), "4294967295"), "accepted");
}

}  // namespace
}  // namespace Mox
