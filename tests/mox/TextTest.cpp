// Text forms: what is written reads back as the same value, and nothing else reads at all.

#include "lumox/AddressFamily.h"
#include "lumox/DscpValue.h"
#include "mox/Text.h"
#include "naxel/types/Ranges.h"
#include "support/Pieces.h"

#include <cmath>
#include <random>

#include <gtest/gtest.h>

namespace Mox {
namespace {

/// What becomes of a text: its value written again, "no form", or the reason why it is out of range.
/// A refusal leaves the target as it was.
template <class T>
std::string readAndWritten(std::string const& text, T const& held) {
  T out = held;
  try {
    sequenceToValue(text.data(), text.data() + text.size(), out);
    return valueToStrep(out);
  } catch (ParseError const&) {
    EXPECT_EQ(out, held) << text;
    return "no form";
  } catch (RangeError const& e) {
    EXPECT_EQ(out, held) << text;
    return e.what();
  }
}

/// Each value has exactly its form, and the texts between the bars are none.
template <class T>
void expectForms(std::vector<std::pair<T, std::string>> const& forms, std::string const& refused) {
  for (auto const& [value, text] : forms) {
    EXPECT_EQ(valueToStrep(value), text);
    EXPECT_EQ(valueFromText<T>(text), value) << text;
    for (std::string const& bad : ::Test::pieces(refused, "|"))
      EXPECT_EQ(readAndWritten(bad, value), "no form") << bad;
  }
}

TEST(Text, EveryValueHasOneForm) {
  expectForms<uint8_t>({{0, "0"}, {77, "77"}, {255, "255"}}, "|00|07|+7|-1| 7|7 |0x7|7.0|7,");
  expectForms<uint64_t>({{~uint64_t{0}, "18446744073709551615"}}, "-18446744073709551615|1e3");
  expectForms<bool>({{true, "true"}, {false, "false"}}, "|True|tru|truex|true | false|1|0|'true'");
  expectForms<Lumox::AddressFamily>({{Lumox::ipv4(), "ipv4"}, {Lumox::ipv6(), "ipv6"}},
                                    "|ipv|ipv66|IPv4|1|'ipv4'|ipv4,");
  expectForms<double>({{0.0, "0"},
                       {-1.0, "-1"},
                       {0.1, "0.10000000000000001"},
                       {1.7e9, "1700000000"},
                       {std::nextafter(1.7e9, 2e9), "1700000000.0000002"},
                       {1e300, "1.0000000000000001e+300"}},
                      "|-|.|1.0.0|1e|1,5|+1| 1|1 |0x10|1e999|one|nan");
  expectForms<std::string>({{"", "''"},
                            {"a b", "'a b'"},
                            {"it's", R"('it\'s')"},
                            {R"(\')", R"('\\\'')"},
                            {R"(\x0a)", R"('\\x0a')"},
                            {"\"", "'\"'"},
                            {std::string("\0\x1f\x7f\n\t", 5), R"('\x00\x1f\x7f\x0a\x09')"},
                            {"\x80\xc3\xbc", "'\x80\xc3\xbc'"}},
                           R"(|'|a|'a|a'|'a'b|'a''|'\'|'\a'|'\n'|'\x0A'|'\x41'|'\x80'|'\x0'|'\x|)"
                           "'a\nb'|\"a\"|'\\x27'");
}

TEST(Text, RandomValuesReadBackBitForBit) {
  std::mt19937_64 random(1);
  for (int i = 0; i < 20000; ++i) {
    uint64_t const bits = random();
    auto const number = __builtin_bit_cast(double, bits);
    if (std::isfinite(number)) {
      ASSERT_EQ(__builtin_bit_cast(uint64_t, valueFromText<double>(valueToStrep(number))), bits);
    }
    std::string text(random() % 12, '\0');
    for (char& ch : text) ch = static_cast<char>(random() % 3 ? random() : "'\\x0\n"[random() % 5]);
    ASSERT_EQ(valueFromText<std::string>(valueToStrep(text)), text);
  }
}

TEST(Text, NoTextOneCharacterAwayFromAFormIsRead) {
  std::string const form = "Value('Naxel::Range', ** {'rangeStart': 5, 'rangeEnd': 9})";
  std::string others;
  for (size_t i = 0; i < form.size(); ++i)
    others += "|" + form.substr(0, i) + "|" + std::string(form).erase(i, 1) + "|" +
              std::string(form).insert(i, " ");
  expectForms<Naxel::Range>({{{5, 9}, form}}, form + " " + others);
}

TEST(Text, NumbersAreCheckedBeforeTheyAreNarrowed) {
  auto const expect = [](auto held, std::string const& text, std::string const& wanted) {
    EXPECT_EQ(readAndWritten(text, held), wanted);
  };
  expect(uint8_t{77}, "256", "number 256 > 255 not allowed");
  expect(uint8_t{77}, std::string(23, '9'),
         "number " + std::string(23, '9') + " > 255 not allowed");
  expect(uint32_t{77}, "4294967297", "number 4294967297 > 4294967295 not allowed");
  expect(uint64_t{77}, "18446744073709551616",
         "number 18446744073709551616 > 18446744073709551615 not allowed");
  // The bound of a type speaks first, and a field is named.
  expect(Lumox::DscpValue(), "300", "DscpValue::value > 63 not allowed");
  expect(Naxel::Range(), "Value('Naxel::Range', ** {'rangeStart': 4294967296, 'rangeEnd': 0})",
         "number 4294967296 > 4294967295 not allowed, in field 'rangeStart'");
}

}  // namespace
}  // namespace Mox
