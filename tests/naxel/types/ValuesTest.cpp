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

/// The text of the exception of type E that `f` throws.
template <class E>
std::string thrown(std::function<void()> const& f) {
  try {
    f();
  } catch (E const& e) {
    return e.what();
  }
  return "nothing thrown";
}

/// Exact text, reading it back, streaming it, and refusing each truncation and any addition.
template <class T>
void expectForm(T const& value, std::string const& text) {
  SCOPED_TRACE(text);
  EXPECT_EQ(Mox::valueToStrep(value), text);
  std::ostringstream out;
  out << value;
  EXPECT_EQ(out.str(), text);
  EXPECT_EQ(Mox::valueFromText<T>(text), value);
  EXPECT_EQ(Mox::valueFromText<T>(text).hash(), value.hash());
  if constexpr (std::is_constructible_v<T, Mox::TextCursor&>) {
    Mox::TextCursor cursor(text);
    EXPECT_EQ(T(cursor), value);
    EXPECT_TRUE(cursor.atEnd());
  }
  for (size_t n = 0; text.ends_with(')') && n < text.size(); ++n)
    EXPECT_THROW(Mox::valueFromText<T>(text.substr(0, n)), std::runtime_error) << n;
  for (char const* more : {" ", ")", "x"})
    EXPECT_THROW(Mox::valueFromText<T>(text + more), Mox::ParseError) << more;
}

std::string rangeText(std::string const& type, std::string const& start, std::string const& end) {
  return "Value('Naxel::" + type + "', ** {'rangeStart': " + start + ", 'rangeEnd': " + end + "})";
}

PDAclFilter sampleFilter() {
  PDAclFilter f;
  f.sourceIs({1, 65535});
  f.fragmentIs({8, 8184});
  f.matchTcpEstablishedIs(true);
  return f;
}

}  // namespace

TEST(Values, RangesPrintFlatUnderTheirOwnNames) {
  expectForm(Range(7, 4294967295u), rangeText("Range", "7", "4294967295"));
  expectForm(L4PortRange(80, 443), rangeText("L4PortRange", "80", "443"));
  expectForm(L4PortRange(443, 80), rangeText("L4PortRange", "443", "80"));
  expectForm(IcmpTypeRange(0, 300), rangeText("IcmpTypeRange", "0", "300"));
  expectForm(ProtoRange(6, 6), rangeText("ProtoRange", "6", "6"));
  expectForm(LengthRange(64, 70000), rangeText("LengthRange", "64", "70000"));
  expectForm(FragmentRange(0, 8191), rangeText("FragmentRange", "0", "8191"));
  expectForm(DscpRange(1, 63), rangeText("DscpRange", "1", "63"));
}

TEST(Values, NumbersPrintBare) {
  expectForm(AceIndex(4294967294u), "4294967294");
  expectForm(NaxelTrafficClass(), "8");
  expectForm(GenSetKey(18446744073709551615u), "18446744073709551615");
  expectForm(PlainLabel(4294967295u), "4294967295");
  expectForm(EncodedLabel(65535), "65535");
  expectForm(LabelMask(0), "0");
}

TEST(Values, RecordsListTheirFieldsInOrder) {
  expectForm(
      NaxelActionValue(),
      "Value('Naxel::NaxelActionValue', ** {'dropEnabled': false, 'logEnabled': false, 'dscp': 0, "
      "'setDscpEnabled': false, 'tc': 8, 'setTcEnabled': false, 'sflowEnabled': false})");
  expectForm(Constants(), "Value('Naxel::Constants', ** {})");
  expectForm(PrefixXformKey(Lumox::ipv6(), true),
             "Value('Naxel::PrefixXformKey', ** {'af': ipv6, 'src': true})");
  expectForm(GenSetKeyPair(GenSetKey(1), GenSetKey(2)),
             "Value('Naxel::GenSetKeyPair', ** {'src': 1, 'dst': 2})");
  expectForm(RangeSetElem(7, 7), "Value('Naxel::RangeSetElem', ** {'first': 7, 'last': 7})");
  expectForm(GenCombo(PlainLabel(3), PlainLabel(4)),
             "Value('Naxel::GenCombo', ** {'srcLabel': 3, 'dstLabel': 4})");
  expectForm(EncodedLabelWithMask(5, 65534),
             "Value('Naxel::EncodedLabelWithMask', ** {'label': 5, 'mask': 65534})");
  expectForm(EncodedLabelRange(EncodedLabel(5), EncodedLabel(6)),
             "Value('Naxel::EncodedLabelRange', ** {'start': 5, 'end': 6})");
  expectForm(EncodedComboLabel(EncodedLabel(1), EncodedLabel(2)),
             "Value('Naxel::EncodedComboLabel', ** {'srcLabel': 1, 'dstLabel': 2})");
  expectForm(AggregatorWorkingSet(9, 2, 3),
             "Value('Naxel::AggregatorWorkingSet', ** {'workingSetHash': 9, 'aclCount': 2, "
             "'ruleCount': 3})");
  expectForm(TcamFieldData({1, 3}, true),
             "Value('Naxel::TcamFieldData', ** {'encLabel': Value('Naxel::EncodedLabelWithMask', "
             "** {'label': 1, 'mask': 3}), 'match': true})");
}

TEST(Values, OutputRecordsReadBackWhatTheyPrint) {
  // An id keeps all its digits: two requests a few microseconds apart stay two requests.
  expectForm(ResourceConfig(1700000000.0000005, RequestState::revert),
             "Value('Naxel::ResourceConfig', ** {'requestId': 1700000000.0000005, 'requestState': "
             "revert})");
  expectForm(ResourceStatus(3, ResponseState::hitful),
             "Value('Naxel::ResourceStatus', ** {'responseId': 3, 'responseState': hitful})");
  expectForm(
      PDPrefixXformEntry(Mox::valueFromText<Lumox::IpGenPrefix>("2001:db8::/32"), EncodedLabel(4)),
      "Value('Naxel::PDPrefixXformEntry', ** {'key': 2001:db8::/32, 'value': 4})");
  expectForm(PDRangeXformEntry(RangeSetElem(1, 2), EncodedLabel(4)),
             "Value('Naxel::PDRangeXformEntry', ** {'key': Value('Naxel::RangeSetElem', ** "
             "{'first': 1, 'last': 2}), 'value': 4})");
  expectForm(PDComboEntry(EncodedComboLabel(EncodedLabel(1), EncodedLabel(2)), EncodedLabel(4)),
             "Value('Naxel::PDComboEntry', ** {'key': Value('Naxel::EncodedComboLabel', ** "
             "{'srcLabel': 1, 'dstLabel': 2}), 'value': 4})");
  for (auto const& [name, quoted] : {std::pair<char const*, char const*>{"edge", "'edge'"},
                                     {"x'})", "'x\\'})'"},
                                     {"a\\", "'a\\\\'"},
                                     {"", "''"}})
    expectForm(PDAclKey(Lumox::ipv4(), name),
               std::string("Value('Naxel::PDAclKey', ** {'af': ipv4, 'aclName': ") + quoted + "})");
  PDAclKey const controls(Lumox::ipv6(), std::string("\n\x7f\0z", 4));
  expectForm(controls, Mox::valueToStrep(controls));

  std::string text = "Value('Naxel::PDAclFilter', ** {";
  for (char const* field : {"source", "destination", "prefixCombo", "sport", "dport", "portCombo",
                            "icmpType", "proto", "length", "fragment", "dscp", "headFragment"}) {
    std::string const name(field);
    text += "'" + name + "': Value('Naxel::EncodedLabelWithMask', ** {'label': " +
            (name == "source"     ? "1, 'mask': 65535"
             : name == "fragment" ? "8, 'mask': 8184"
                                  : "0, 'mask': 0") +
            "}), ";
  }
  expectForm(sampleFilter(), text + "'matchTcpInit': false, 'matchTcpEstablished': true})");
}

TEST(Values, FailureDataNamesItsOutputAndCannotBeParsed) {
  auto const a = pDDataFactory();
  auto const b = pDDataFactory();
  std::string const text = Mox::valueToStrep(FailureData(a, 2));
  EXPECT_TRUE(text.starts_with("Value('Naxel::FailureData', ** {'pdData': ")) << text;
  EXPECT_TRUE(text.ends_with(", 'responseId': 2})")) << text;
  EXPECT_NE(text, Mox::valueToStrep(FailureData(b, 2)));
  EXPECT_NE(FailureData(a, 2), FailureData(b, 2));
  for (std::string const& t : {text, Mox::valueToStrep(FailureData())})
    EXPECT_THROW(Mox::valueFromText<FailureData>(t), Mox::ParseError) << t;
}

TEST(Values, EnumerationsConvertByNameAndNumber) {
  EXPECT_EQ(stringValue(TcamFieldType(13)), "tcamFieldTypeMmatchTcpEstablished");
  EXPECT_EQ(instanceFromText<TcamFieldType>("tcamFieldTypeMmatchTcpEstablished"),
            TcamFieldType::tcamFieldTypeMmatchTcpEstablished);
  EXPECT_EQ(instanceFromNumber<TcamFieldType>(14), std::nullopt);
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
  struct Case {
    std::string wanted;
    std::function<void()> set;
    std::function<uint32_t()> stored;
  };
  FragmentRange fragment;
  DscpRange dscp;
  Case const cases[] = {
      {"FragmentRange::rangeStart < 0 or > Expr @NaxelAclTypes:79 not allowed",
       [&] { fragment.rangeStartIs(8192); }, [&] { return fragment.rangeStart(); }},
      {"FragmentRange::rangeEnd < 0 or > Expr @NaxelAclTypes:82 not allowed",
       [&] { fragment.rangeEndIs(8192); }, [&] { return fragment.rangeEnd(); }},
      {"DscpRange::rangeStart < 0 or > Expr @NaxelAclTypes:93 not allowed",
       [&] { dscp.rangeStartIs(64); }, [&] { return dscp.rangeStart(); }},
      {"DscpRange::rangeEnd < 0 or > Expr @NaxelAclTypes:96 not allowed",
       [&] { dscp.rangeEndIs(64); }, [&] { return dscp.rangeEnd(); }}};
  for (Case const& c : cases) {
    SCOPED_TRACE(c.wanted);
    EXPECT_EQ(thrown<Mox::RangeError>(c.set), c.wanted);
    EXPECT_GT(c.stored(), 63u);
    EXPECT_NO_THROW(c.set()) << "the value already held is not checked";
  }
  for (auto const& range : {L4PortRange(0, 4294967295u), L4PortRange(70000, 1)})
    EXPECT_FALSE(range.isAny());
}

TEST(Values, ParsedValuesOutOfBoundsRaiseWithTheFieldAndLeaveTheTarget) {
  struct Case {
    char const* wanted;
    std::function<void()> parse;
  };
  std::string const action = Mox::valueToStrep(NaxelActionValue());
  auto const with = [&](std::string const& from, std::string const& to) {
    std::string text = action;
    return text.replace(text.find(from), from.size(), to);
  };
  auto const read = [](auto kind, std::string const& text) {
    return [=] {
      auto value = kind;
      try {
        Mox::sequenceToValue(text.data(), text.data() + text.size(), value);
      } catch (...) {
        EXPECT_EQ(value, kind);
        throw;
      }
    };
  };
  std::string const tc =
      "NaxelTrafficClass::value < NaxelTrafficClass::min or > NaxelTrafficClass::null not allowed";
  std::string const inTc = tc + ", in field 'tc'";
  Case const cases[] = {
      {"FragmentRange::rangeEnd < 0 or > Expr @NaxelAclTypes:82 not allowed, in field 'rangeEnd'",
       read(FragmentRange(1, 2), rangeText("FragmentRange", "0", "8192"))},
      {"DscpRange::rangeStart < 0 or > Expr @NaxelAclTypes:93 not allowed, in field 'rangeStart'",
       read(DscpRange(1, 2), rangeText("DscpRange", "64", "64"))},
      {"AceIndex::value < AceIndex::min or > AceIndex::null not allowed",
       read(AceIndex(1), "4294967295")},
      {tc.c_str(), read(NaxelTrafficClass(1), "9")},
      {inTc.c_str(), read(NaxelActionValue(), with("'tc': 8", "'tc': 9"))},
      {inTc.c_str(), read(NaxelActionValue(), with("'tc': 8", "'tc': 300"))},
      {"DscpValue::value > 63 not allowed, in field 'dscp'",
       read(NaxelActionValue(), with("'dscp': 0", "'dscp': 64"))},
      {"number 4294967296 > 4294967294 not allowed", read(AceIndex(1), "4294967296")},
      {"number 65536 > 65535 not allowed, in field 'last'",
       read(RangeSetElem(), "Value('Naxel::RangeSetElem', ** {'first': 1, 'last': 65536})")},
      {"RangeSetElem::first > RangeSetElem::last not allowed, in field 'last'",
       read(RangeSetElem(), "Value('Naxel::RangeSetElem', ** {'first': 10, 'last': 9})")}};
  for (Case const& c : cases) {
    std::string const text = thrown<Mox::RangeError>(c.parse);
    if (std::string(c.wanted).starts_with("number 4294967296"))
      EXPECT_NE(text, "nothing thrown");
    else
      EXPECT_EQ(text, c.wanted);
  }
  EXPECT_EQ(thrown<Mox::RangeError>([] { RangeSetElem(10, 9); }),
            "RangeSetElem::first > RangeSetElem::last not allowed");
}

TEST(Values, WhatDoesNotFitIsRefusedAndNotNarrowed) {
  AceIndex index(5);
  NaxelTrafficClass tc(5);
  ChipHwCapability capability{Obel::ChipId(0)};
  for (uint64_t over : {AceIndex::null + uint64_t{1}, uint64_t{1} << 32, (uint64_t{1} << 32) + 7}) {
    EXPECT_THROW(AceIndex{over}, Mox::RangeError);
    EXPECT_THROW(index.valueIs(over), Mox::RangeError);
  }
  for (uint64_t over : {9, 256, 263}) {
    EXPECT_THROW(NaxelTrafficClass{over}, Mox::RangeError);
    EXPECT_THROW(tc.valueIs(over), Mox::RangeError);
    EXPECT_THROW(Lumox::DscpValue{over + 55}, Mox::RangeError);
  }
  EXPECT_THROW(RangeSetElem(80, 65616), Mox::RangeError);
  EXPECT_THROW(RangeSetElem(65616, 65617), Mox::RangeError);
  EXPECT_THROW(capability.prefixXformWidthIs(PrefixXformKey(), 272), Mox::RangeError);
  EXPECT_THROW(capability.rangeXformWidthIs(RangeSetType::dscp, 272), Mox::RangeError);
  EXPECT_THROW(capability.comboXformWidthIs(ComboLabelSetType::srcDstL4Port, 272), Mox::RangeError);
  EXPECT_THROW(capability.tcpFlagsXformWidthIs(272), Mox::RangeError);
  EXPECT_TRUE(index == AceIndex(5) && tc == NaxelTrafficClass(5));
  EXPECT_TRUE(capability.hasValuesOf(ChipHwCapability(Obel::ChipId(0))));
  tc.valueIs(NaxelTrafficClass::null);
  EXPECT_EQ(tc, NaxelTrafficClass());
}

TEST(Values, ParsersAreStrict) {
  for (char const* number : {"-1", "+1", " 1", "01", "", "1.0", "0x1"})
    EXPECT_THROW(Mox::valueFromText<AceIndex>(number), Mox::ParseError) << number;
  for (char const* text : {"Value('Naxel::Range', ** {'rangeStart': 1, 'rangeEnd': 2})",
                           "Value('Naxel::ProtoRange', ** {'rangeEnd': 2, 'rangeStart': 1})",
                           "Value('Naxel::ProtoRange', ** {'rangeStart': 1,'rangeEnd': 2})",
                           "Value(\"Naxel::ProtoRange\", ** {'rangeStart': 1, 'rangeEnd': 2})"})
    EXPECT_THROW(Mox::valueFromText<ProtoRange>(text), Mox::ParseError) << text;
  for (char const* flag : {"1", "True", "t", ""})
    EXPECT_THROW(
        Mox::valueFromText<PrefixXformKey>(
            std::string("Value('Naxel::PrefixXformKey', ** {'af': ipv4, 'src': ") + flag + "})"),
        Mox::ParseError);
  EXPECT_NE(thrown<Mox::ParseError>([] {
              Mox::valueFromText<PrefixXformKey>("Value('Naxel::PrefixXformKey', ** {'src': 1})");
            }).find("af"),
            std::string::npos);
}

TEST(Values, AnyIsExactlyZeroToTheBound) {
  auto const check = [](auto any, uint32_t bound) {
    using R = decltype(any);
    EXPECT_TRUE(R(0, bound).isAny());
    EXPECT_FALSE(R(1, bound).isAny());
    EXPECT_FALSE(R(0, bound - 1).isAny());
    EXPECT_FALSE(R().isAny());
  };
  check(L4PortRange(), 65535);
  check(IcmpTypeRange(), 255);
  check(ProtoRange(), 255);
  check(LengthRange(), 65535);
  check(FragmentRange(), 8191);
  check(DscpRange(), 63);
  EXPECT_FALSE(IcmpTypeRange(0, 65535).isAny());
  EXPECT_EQ(Constants::l4PortBitWidth() + Constants::icmpTypeBitWidth() * 100 +
                Constants::protoBitWidth() * 1000 + Constants::lengthBitWidth() * 10000 +
                Constants::fragmentBitWidth() * 1000000 + Constants::dscpBitWidth() * 100000000,
            613168816u);
}

TEST(Values, EntriesThatDifferInAnythingAreDifferentEntries) {
  PDAclFilter a = sampleFilter();
  PDAclFilter b = a;
  EXPECT_EQ(a, b);
  b.matchTcpEstablishedIs(false);
  EXPECT_NE(a, b);
  EXPECT_NE(a.hash(), b.hash());
  EXPECT_LT(b, a);
  PDAclRule rule{AceIndex(1)};
  for (auto const& f : {a, b, a}) rule.filterIs(f);
  EXPECT_EQ(rule.filters(), 2u);
  EXPECT_TRUE(PDAclFilter().empty());
  EXPECT_FALSE(b.empty());
  b.sourceIs({});
  b.fragmentIs({});
  EXPECT_TRUE(b.empty());
  b.headFragmentIs({0, 1});
  EXPECT_FALSE(b.empty());
}
