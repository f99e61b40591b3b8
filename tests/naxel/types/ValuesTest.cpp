/// The values of the library: text forms, bounds, order and equality.

#include "naxel/expander/RuleExpanderTypes.h"
#include "naxel/genset/NaxelAggregatorTypes.h"
#include "naxel/loader/HwCapability.h"
#include "naxel/loader/NaxelLoaderTypes.h"

#include <functional>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

using namespace Naxel;

namespace {

/// The text of the range error that `f` throws.
std::string rangeError(std::function<void()> const& f) {
  try {
    f();
  } catch (Mox::RangeError const& e) {
    return e.what();
  }
  return "nothing thrown";
}

/// The range error that a text is refused with; the target must keep its value.
template <class T>
std::string refusal(T const& held, std::string const& text) {
  T value = held;
  std::string const what =
      rangeError([&] { Mox::sequenceToValue(text.data(), text.data() + text.size(), value); });
  EXPECT_EQ(value, held) << text;
  return what;
}

/// Exact text, streaming it, and reading it back in both ways.
template <class T>
void expectForm(T const& value, std::string const& text) {
  SCOPED_TRACE(text);
  EXPECT_EQ(Mox::valueToStrep(value), text);
  std::ostringstream out;
  out << value;
  EXPECT_EQ(out.str(), text);
  EXPECT_EQ(Mox::valueFromText<T>(text), value);
  EXPECT_EQ(Mox::valueFromText<T>(text).hash(), value.hash());
  Mox::TextCursor cursor(text);
  EXPECT_EQ(T(cursor), value);
  EXPECT_TRUE(cursor.atEnd());
  EXPECT_THROW(Mox::valueFromText<T>(text + " "), Mox::ParseError);
}

/// "Value('Naxel::Range', ** {'rangeStart': 7, 'rangeEnd': 9})" of "Range rangeStart 7 rangeEnd 9"; a value % is
/// another text, and - a label that matches everything.
std::string record(std::string const& words, std::string const& nested = {}) {
  std::istringstream in(words);
  std::string out, name, value, separator;
  in >> out;
  for (out = "Value('Naxel::" + out + "', ** {"; in >> name >> value; separator = ", ")
    out += separator + "'" + name + "': " +
           (value == "%"   ? nested
            : value == "-" ? record("EncodedLabelWithMask label 0 mask 0")
                           : value);
  return out + "})";
}

PDAclFilter sampleFilter() {
  PDAclFilter f;
  f.sourceIs({5, 65534});
  f.fragmentIs({5, 65534});
  f.matchTcpEstablishedIs(true);
  return f;
}

}  // namespace

TEST(Values, EveryTypeHasOneTextForm) {
  expectForm(AceIndex(4294967294u), "4294967294");
  expectForm(NaxelTrafficClass(), "8");
  expectForm(GenSetKey(18446744073709551615u), "18446744073709551615");
  expectForm(PlainLabel(4294967295u), "4294967295");
  expectForm(EncodedLabel(65535), "65535");
  expectForm(LabelMask(0), "0");

  auto const expect = [](auto const& value, std::string const& words,
                         std::string const& nested = {}) {
    expectForm(value, record(words, nested));
  };
  expect(Range(7, 4294967295u), "Range rangeStart 7 rangeEnd 4294967295");
  expect(L4PortRange(443, 80), "L4PortRange rangeStart 443 rangeEnd 80");
  expect(IcmpTypeRange(0, 300), "IcmpTypeRange rangeStart 0 rangeEnd 300");
  expect(ProtoRange(6, 6), "ProtoRange rangeStart 6 rangeEnd 6");
  expect(LengthRange(64, 70000), "LengthRange rangeStart 64 rangeEnd 70000");
  expect(FragmentRange(0, 8191), "FragmentRange rangeStart 0 rangeEnd 8191");
  expect(DscpRange(1, 63), "DscpRange rangeStart 1 rangeEnd 63");

  EncodedLabel const one(1), two(2);
  std::string const elem = record("RangeSetElem first 1 last 2");
  std::string const combo = record("EncodedComboLabel srcLabel 1 dstLabel 2");
  std::string const masked = record("EncodedLabelWithMask label 5 mask 65534");
  expect(PrefixXformKey(Lumox::ipv6(), true), "PrefixXformKey af ipv6 src true");
  expect(GenSetKeyPair(GenSetKey(1), GenSetKey(2)), "GenSetKeyPair src 1 dst 2");
  expect(GenCombo(PlainLabel(3), PlainLabel(4)), "GenCombo srcLabel 3 dstLabel 4");
  expect(EncodedLabelRange(one, two), "EncodedLabelRange start 1 end 2");
  expect(AggregatorWorkingSet(9, 2, 3),
         "AggregatorWorkingSet workingSetHash 9 aclCount 2 ruleCount 3");
  expect(TcamFieldData({5, 65534}, true), "TcamFieldData encLabel % match true", masked);
  // An id keeps all its digits: two requests a few microseconds apart stay two requests.
  expect(ResourceConfig(1700000000.0000005, RequestState::revert),
         "ResourceConfig requestId 1700000000.0000005 requestState revert");
  expect(ResourceStatus(3, ResponseState::hitful),
         "ResourceStatus responseId 3 responseState hitful");
  expect(PDPrefixXformEntry(Mox::valueFromText<Lumox::IpGenPrefix>("2001:db8::/32"), two),
         "PDPrefixXformEntry key 2001:db8::/32 value 2");
  expect(PDRangeXformEntry(RangeSetElem(1, 2), two), "PDRangeXformEntry key % value 2", elem);
  expect(PDComboEntry({one, two}, two), "PDComboEntry key % value 2", combo);
  for (auto const& [name, quoted] : {std::pair{"edge", "'edge'"}, {"x'})", "'x\\'})'"}, {"", "''"}})
    expect(PDAclKey(Lumox::ipv4(), name), "PDAclKey af ipv4 aclName %", quoted);
  expect(sampleFilter(),
         "PDAclFilter source % destination - prefixCombo - sport - dport - portCombo - icmpType - "
         "proto - length - fragment % dscp - headFragment - matchTcpInit false "
         "matchTcpEstablished true",
         masked);
  // This one names its output and cannot be read.
  FailureData const a(pDDataFactory(), 2), b(pDDataFactory(), 2);
  std::string const failed = Mox::valueToStrep(a);
  EXPECT_TRUE(failed.starts_with("Value('Naxel::FailureData', ** {'pdData': ")) << failed;
  EXPECT_TRUE(failed.ends_with(", 'responseId': 2})")) << failed;
  EXPECT_NE(failed, Mox::valueToStrep(b));
  EXPECT_NE(a, b);
  for (FailureData const& data : {a, FailureData()})
    EXPECT_THROW(Mox::valueFromText<FailureData>(Mox::valueToStrep(data)), Mox::ParseError);
}

TEST(Values, EnumerationsConvertByNameAndNumber) {
  EXPECT_EQ(stringValue(TcamFieldType(13)), "tcamFieldTypeMmatchTcpEstablished");
  auto const roundTrip = [](auto first) {
    using E = decltype(first);
    size_t count = 0;
    for (; auto const value = instanceFromNumber<E>(count); ++count) {
      EXPECT_EQ(static_cast<size_t>(*value), count);
      EXPECT_EQ(instanceFromText<E>(stringValue(*value)), value);
      EXPECT_EQ(Mox::valueFromText<E>(valueToStrep(*value)), *value);
    }
    EXPECT_GT(count, 1u);
    EXPECT_FALSE(instanceFromText<E>(""));
  };
  [&](auto... first) { (roundTrip(first), ...); }(
      NaxelKickRequest(), NaxelProgress(), StageStatusType(), NaxelActiveStage(), NaxelActionType(),
      RangeSetType(), ComboLabelSetType(), TcamFieldType(), RequestState(), ResponseState(),
      GlobalAclControl());
}

TEST(Values, RangeSettersStoreBeforeTheyCheck) {
  auto const check = [](auto range, uint32_t over, std::string const& start,
                        std::string const& end) {
    EXPECT_EQ(rangeError([&] { range.rangeStartIs(over); }), start);
    EXPECT_EQ(rangeError([&] { range.rangeEndIs(over); }), end);
    EXPECT_TRUE(range.rangeStart() == over && range.rangeEnd() == over);
    range.rangeStartIs(over);  // a value that is held already is not checked
    range.rangeEndIs(over);
    range.rangeStartIs(over - 1);
  };
  check(FragmentRange(), 8192,
        "FragmentRange::rangeStart < 0 or > Expr @NaxelAclTypes:79 not allowed",
        "FragmentRange::rangeEnd < 0 or > Expr @NaxelAclTypes:82 not allowed");
  check(DscpRange(), 64, "DscpRange::rangeStart < 0 or > Expr @NaxelAclTypes:93 not allowed",
        "DscpRange::rangeEnd < 0 or > Expr @NaxelAclTypes:96 not allowed");
}

TEST(Values, WhatDoesNotFitIsRefusedAndNotNarrowed) {
  std::string const tc =
      "NaxelTrafficClass::value < NaxelTrafficClass::min or > NaxelTrafficClass::null not allowed";
  EXPECT_EQ(refusal(NaxelTrafficClass(1), "9"), tc);
  std::string action = Mox::valueToStrep(NaxelActionValue());
  EXPECT_EQ(refusal(NaxelActionValue(), action.replace(action.find("'tc': 8"), 7, "'tc': 300")),
            tc + ", in field 'tc'");
  std::string const order = "RangeSetElem::first > RangeSetElem::last not allowed";
  EXPECT_EQ(rangeError([] { RangeSetElem(10, 9); }), order);
  EXPECT_EQ(refusal(RangeSetElem(), record("RangeSetElem first 10 last 9")),
            order + ", in field 'last'");
  EXPECT_EQ(refusal(RangeSetElem(), record("RangeSetElem first 1 last 65536")),
            "number 65536 > 65535 not allowed, in field 'last'");
  EXPECT_THROW(Mox::valueFromText<PrefixXformKey>(record("PrefixXformKey src true")),
               Mox::ParseError);
  AceIndex index(5);
  NaxelTrafficClass held(5);
  ChipHwCapability chip{Obel::ChipId(0)};
  for (uint64_t over : {AceIndex::null + uint64_t{1}, uint64_t{1} << 32, (uint64_t{1} << 32) + 7})
    EXPECT_THROW(index.valueIs(over), Mox::RangeError);
  for (uint64_t over : {9, 256, 263}) {
    EXPECT_THROW(held.valueIs(over), Mox::RangeError);
    EXPECT_THROW(Lumox::DscpValue{over + 55}, Mox::RangeError);
  }
  EXPECT_THROW(RangeSetElem(80, 65616), Mox::RangeError);
  EXPECT_THROW(RangeSetElem(65616, 65617), Mox::RangeError);
  EXPECT_THROW(chip.prefixXformWidthIs(PrefixXformKey(), 272), Mox::RangeError);
  EXPECT_THROW(chip.rangeXformWidthIs(RangeSetType::dscp, 272), Mox::RangeError);
  EXPECT_THROW(chip.comboXformWidthIs(ComboLabelSetType::srcDstL4Port, 272), Mox::RangeError);
  EXPECT_THROW(chip.tcpFlagsXformWidthIs(272), Mox::RangeError);
  EXPECT_TRUE(index == AceIndex(5) && held == NaxelTrafficClass(5));
  EXPECT_TRUE(chip.hasValuesOf(ChipHwCapability(Obel::ChipId(0))));
}

TEST(Values, AnyIsExactlyZeroToTheBound) {
  EXPECT_TRUE(L4PortRange(0, 65535).isAny() && IcmpTypeRange(0, 255).isAny());
  EXPECT_TRUE(ProtoRange(0, 255).isAny() && LengthRange(0, 65535).isAny());
  EXPECT_TRUE(FragmentRange(0, 8191).isAny() && DscpRange(0, 63).isAny());
  EXPECT_FALSE(DscpRange(1, 63).isAny() || DscpRange(0, 62).isAny() || DscpRange().isAny());
  EXPECT_FALSE(IcmpTypeRange(0, 65535).isAny() || L4PortRange(0, 4294967295u).isAny());
}

TEST(Values, EntriesThatDifferInAnythingAreDifferentEntries) {
  PDAclFilter const a = sampleFilter();
  PDAclFilter b = a;
  b.matchTcpEstablishedIs(false);
  EXPECT_TRUE(a != b && a.hash() != b.hash() && b < a);
  PDAclRule rule{AceIndex(1)};
  for (auto const& f : {a, b, a}) rule.filterIs(f);
  EXPECT_EQ(rule.filters(), 2u);
  PDAclFilter head;
  head.headFragmentIs({0, 1});
  EXPECT_TRUE(PDAclFilter().empty() && !b.empty() && !head.empty());
}
