/// The values of the library: text forms, bounds, order and equality.

#include "naxel/expander/RuleExpanderTypes.h"
#include "naxel/genset/NaxelAggregatorTypes.h"
#include "naxel/loader/HwCapability.h"
#include "naxel/loader/NaxelLoaderTypes.h"

#include <functional>
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

std::string record(std::string const& type, std::string const& fields) {
  return "Value('Naxel::" + type + "', ** {" + fields + "})";
}
std::string maskedText(int label, int mask) {
  return record("EncodedLabelWithMask",
                "'label': " + std::to_string(label) + ", 'mask': " + std::to_string(mask));
}
std::string rangeText(std::string const& type, std::string const& start, std::string const& end) {
  return record(type, "'rangeStart': " + start + ", 'rangeEnd': " + end);
}

PDAclFilter sampleFilter() {
  PDAclFilter f;
  f.sourceIs({1, 65535});
  f.fragmentIs({8, 8184});
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

  expectForm(Range(7, 4294967295u), rangeText("Range", "7", "4294967295"));
  expectForm(L4PortRange(443, 80), rangeText("L4PortRange", "443", "80"));
  expectForm(IcmpTypeRange(0, 300), rangeText("IcmpTypeRange", "0", "300"));
  expectForm(ProtoRange(6, 6), rangeText("ProtoRange", "6", "6"));
  expectForm(LengthRange(64, 70000), rangeText("LengthRange", "64", "70000"));
  expectForm(FragmentRange(0, 8191), rangeText("FragmentRange", "0", "8191"));
  expectForm(DscpRange(1, 63), rangeText("DscpRange", "1", "63"));

  EncodedLabel const one(1), two(2), four(4);
  std::string const elem = record("RangeSetElem", "'first': 1, 'last': 2");
  std::string const combo = record("EncodedComboLabel", "'srcLabel': 1, 'dstLabel': 2");
  expectForm(PrefixXformKey(Lumox::ipv6(), true),
             record("PrefixXformKey", "'af': ipv6, 'src': true"));
  expectForm(GenSetKeyPair(GenSetKey(1), GenSetKey(2)),
             record("GenSetKeyPair", "'src': 1, 'dst': 2"));
  expectForm(RangeSetElem(1, 2), elem);
  expectForm(GenCombo(PlainLabel(3), PlainLabel(4)),
             record("GenCombo", "'srcLabel': 3, 'dstLabel': 4"));
  expectForm(EncodedLabelWithMask(5, 65534), maskedText(5, 65534));
  expectForm(EncodedLabelRange(one, two), record("EncodedLabelRange", "'start': 1, 'end': 2"));
  expectForm(EncodedComboLabel(one, two), combo);
  expectForm(AggregatorWorkingSet(9, 2, 3),
             record("AggregatorWorkingSet", "'workingSetHash': 9, 'aclCount': 2, 'ruleCount': 3"));
  expectForm(TcamFieldData({1, 3}, true),
             record("TcamFieldData", "'encLabel': " + maskedText(1, 3) + ", 'match': true"));

  // An id keeps all its digits: two requests a few microseconds apart stay two requests.
  expectForm(ResourceConfig(1700000000.0000005, RequestState::revert),
             record("ResourceConfig", "'requestId': 1700000000.0000005, 'requestState': revert"));
  expectForm(ResourceStatus(3, ResponseState::hitful),
             record("ResourceStatus", "'responseId': 3, 'responseState': hitful"));
  expectForm(PDPrefixXformEntry(Mox::valueFromText<Lumox::IpGenPrefix>("2001:db8::/32"), four),
             record("PDPrefixXformEntry", "'key': 2001:db8::/32, 'value': 4"));
  expectForm(PDRangeXformEntry(RangeSetElem(1, 2), four),
             record("PDRangeXformEntry", "'key': " + elem + ", 'value': 4"));
  expectForm(PDComboEntry(EncodedComboLabel(one, two), four),
             record("PDComboEntry", "'key': " + combo + ", 'value': 4"));
  for (auto const& [name, quoted] : {std::pair<char const*, char const*>{"edge", "'edge'"},
                                     {"x'})", "'x\\'})'"},
                                     {"a\\", "'a\\\\'"},
                                     {"", "''"}})
    expectForm(PDAclKey(Lumox::ipv4(), name),
               record("PDAclKey", std::string("'af': ipv4, 'aclName': ") + quoted));
  std::string text;
  for (std::string const name :
       {"source", "destination", "prefixCombo", "sport", "dport", "portCombo", "icmpType", "proto",
        "length", "fragment", "dscp", "headFragment"})
    text += "'" + name + "': " +
            (name == "source"     ? maskedText(1, 65535)
             : name == "fragment" ? maskedText(8, 8184)
                                  : maskedText(0, 0)) +
            ", ";
  expectForm(sampleFilter(),
             record("PDAclFilter", text + "'matchTcpInit': false, 'matchTcpEstablished': true"));
}

TEST(Values, FailureDataNamesItsOutputAndCannotBeParsed) {
  FailureData const a(pDDataFactory(), 2), b(pDDataFactory(), 2);
  std::string const text = Mox::valueToStrep(a);
  EXPECT_TRUE(text.starts_with("Value('Naxel::FailureData', ** {'pdData': ")) << text;
  EXPECT_TRUE(text.ends_with(", 'responseId': 2})")) << text;
  EXPECT_NE(text, Mox::valueToStrep(b));
  EXPECT_NE(a, b);
  for (FailureData const& data : {a, FailureData()})
    EXPECT_THROW(Mox::valueFromText<FailureData>(Mox::valueToStrep(data)), Mox::ParseError);
}

TEST(Values, EnumerationsConvertByNameAndNumber) {
  EXPECT_EQ(stringValue(TcamFieldType(13)), "tcamFieldTypeMmatchTcpEstablished");
  auto const roundTrip = [](auto first, size_t count) {
    using E = decltype(first);
    for (size_t i = 0; i < count; ++i) {
      auto const value = instanceFromNumber<E>(i);
      ASSERT_TRUE(value);
      EXPECT_EQ(static_cast<size_t>(*value), i);
      EXPECT_EQ(instanceFromText<E>(stringValue(*value)), value);
      EXPECT_EQ(Mox::valueFromText<E>(valueToStrep(*value)), *value);
    }
    EXPECT_FALSE(instanceFromNumber<E>(count));
    EXPECT_FALSE(instanceFromText<E>(""));
  };
  roundTrip(NaxelKickRequest(), 2);
  roundTrip(NaxelProgress(), 5);
  roundTrip(StageStatusType(), 7);
  roundTrip(NaxelActiveStage(), 11);
  roundTrip(NaxelActionType(), 7);
  roundTrip(RangeSetType(), 8);
  roundTrip(ComboLabelSetType(), 4);
  roundTrip(TcamFieldType(), 14);
  roundTrip(RequestState(), 3);
  roundTrip(ResponseState(), 5);
  roundTrip(GlobalAclControl(), 3);
}

TEST(Values, RangeSettersStoreBeforeTheyCheck) {
  auto const check = [](auto range, uint32_t over, std::string const& start,
                        std::string const& end) {
    EXPECT_EQ(rangeError([&] { range.rangeStartIs(over); }), start);
    EXPECT_EQ(rangeError([&] { range.rangeEndIs(over); }), end);
    EXPECT_EQ(range.rangeStart(), over);
    EXPECT_EQ(range.rangeEnd(), over);
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

TEST(Values, ParsedValuesOutOfBoundsRaiseWithTheFieldAndLeaveTheTarget) {
  EXPECT_EQ(
      refusal(FragmentRange(1, 2), rangeText("FragmentRange", "0", "8192")),
      "FragmentRange::rangeEnd < 0 or > Expr @NaxelAclTypes:82 not allowed, in field 'rangeEnd'");
  EXPECT_EQ(refusal(AceIndex(1), "4294967295"),
            "AceIndex::value < AceIndex::min or > AceIndex::null not allowed");
  EXPECT_NE(refusal(AceIndex(1), "4294967296"), "nothing thrown");
  std::string const tc =
      "NaxelTrafficClass::value < NaxelTrafficClass::min or > NaxelTrafficClass::null not allowed";
  EXPECT_EQ(refusal(NaxelTrafficClass(1), "9"), tc);
  auto const withInstead = [](std::string const& from, std::string const& to) {
    std::string text = Mox::valueToStrep(NaxelActionValue());
    return text.replace(text.find(from), from.size(), to);
  };
  for (char const* over : {"'tc': 9", "'tc': 300"})
    EXPECT_EQ(refusal(NaxelActionValue(), withInstead("'tc': 8", over)), tc + ", in field 'tc'");
  EXPECT_EQ(refusal(NaxelActionValue(), withInstead("'dscp': 0", "'dscp': 64")),
            "DscpValue::value > 63 not allowed, in field 'dscp'");
  EXPECT_EQ(refusal(RangeSetElem(), record("RangeSetElem", "'first': 1, 'last': 65536")),
            "number 65536 > 65535 not allowed, in field 'last'");
  std::string const order = "RangeSetElem::first > RangeSetElem::last not allowed";
  EXPECT_EQ(refusal(RangeSetElem(), record("RangeSetElem", "'first': 10, 'last': 9")),
            order + ", in field 'last'");
  EXPECT_EQ(rangeError([] { RangeSetElem(10, 9); }), order);
  EXPECT_THROW(Mox::valueFromText<PrefixXformKey>(record("PrefixXformKey", "'src': true")),
               Mox::ParseError);
}

TEST(Values, WhatDoesNotFitIsRefusedAndNotNarrowed) {
  AceIndex index(5);
  NaxelTrafficClass tc(5);
  for (uint64_t over : {AceIndex::null + uint64_t{1}, uint64_t{1} << 32, (uint64_t{1} << 32) + 7})
    EXPECT_THROW(index.valueIs(over), Mox::RangeError);
  for (uint64_t over : {9, 256, 263}) {
    EXPECT_THROW(tc.valueIs(over), Mox::RangeError);
    EXPECT_THROW(Lumox::DscpValue{over + 55}, Mox::RangeError);
  }
  EXPECT_TRUE(index == AceIndex(5) && tc == NaxelTrafficClass(5));
  EXPECT_THROW(RangeSetElem(80, 65616), Mox::RangeError);
  EXPECT_THROW(RangeSetElem(65616, 65617), Mox::RangeError);
  ChipHwCapability chip{Obel::ChipId(0)};
  EXPECT_THROW(chip.prefixXformWidthIs(PrefixXformKey(), 272), Mox::RangeError);
  EXPECT_THROW(chip.rangeXformWidthIs(RangeSetType::dscp, 272), Mox::RangeError);
  EXPECT_THROW(chip.comboXformWidthIs(ComboLabelSetType::srcDstL4Port, 272), Mox::RangeError);
  EXPECT_THROW(chip.tcpFlagsXformWidthIs(272), Mox::RangeError);
  EXPECT_TRUE(chip.hasValuesOf(ChipHwCapability(Obel::ChipId(0))));
}

TEST(Values, AnyIsExactlyZeroToTheBound) {
  auto const check = [](auto any, uint32_t bound) {
    using R = decltype(any);
    EXPECT_TRUE(R(0, bound).isAny());
    EXPECT_FALSE(R(1, bound).isAny() || R(0, bound - 1).isAny() || R().isAny());
  };
  check(L4PortRange(), 65535);
  check(IcmpTypeRange(), 255);
  check(ProtoRange(), 255);
  check(LengthRange(), 65535);
  check(FragmentRange(), 8191);
  check(DscpRange(), 63);
  EXPECT_FALSE(IcmpTypeRange(0, 65535).isAny() || L4PortRange(0, 4294967295u).isAny());
}

TEST(Values, EntriesThatDifferInAnythingAreDifferentEntries) {
  PDAclFilter const a = sampleFilter();
  PDAclFilter b = a;
  b.matchTcpEstablishedIs(false);
  EXPECT_NE(a, b);
  EXPECT_NE(a.hash(), b.hash());
  EXPECT_LT(b, a);
  PDAclRule rule{AceIndex(1)};
  for (auto const& f : {a, b, a}) rule.filterIs(f);
  EXPECT_EQ(rule.filters(), 2u);
  EXPECT_FALSE(b.empty());
  b.sourceIs({});
  b.fragmentIs({});
  EXPECT_TRUE(b.empty());
  b.headFragmentIs({0, 1});
  EXPECT_FALSE(b.empty());
}
