/// Lookups in outputs made by hand, and the quick lookup against the plain one.

#include "softchip/LoadedTables.h"
#include "support/Output.h"
#include "support/Vocabulary.h"
#include "verify/NaiveLookup.h"

#include <set>

#include <gtest/gtest.h>

namespace Verify {

using SoftChip::LoadedTables;
namespace {

using Naxel::AceIndex;
using Naxel::ComboLabelSetType;
using Naxel::PDAclKey;
using Naxel::RangeSetType;

PDAclKey const edge(Lumox::ipv4(), "edge");
PDAclKey const edge6(Lumox::ipv6(), "edge");

/// Both lookups; they must agree on labels and verdict.
Verdict lookup(LoadedTables& tables, PDAclKey const& acl, Packet const& packet) {
  Labels const plain = naiveLabels(*tables.data(), tables.layout(), packet);
  EXPECT_EQ(text(plain), text(tables.labelsOf(packet))) << packet;
  Verdict const verdict = tables.lookup(acl, packet);
  EXPECT_EQ(naiveLookup(*tables.data(), tables.layout(), acl, packet), verdict) << packet;
  return verdict;
}

// Few values in each field, so that packets hit and miss everything, masks of any shape, and entries
// in one half of the tables that are too many to be compared one by one.
TEST(Lookup, TheQuickOneIsThePlainOne) {
  std::set<std::pair<uint64_t, AceIndex>> hit;
  for (uint64_t seed = 1; seed <= 60; ++seed) {
    SCOPED_TRACE(seed);
    ::Test::SeededDice dice(seed);
    ::Test::Vocabulary words(dice);
    auto const below = [&](uint64_t n) { return static_cast<uint16_t>(dice.below(n)); };
    // Low bits of both bytes, and the highest one of the lower byte.
    auto const label = [&] { return static_cast<uint16_t>(below(4) * 129); };
    auto const family = [&] { return dice.oneIn(2) ? Lumox::ipv4() : Lumox::ipv6(); };
    auto const prefix = [&](Lumox::AddressFamily af) {
      return Mox::valueFromText<Lumox::IpGenPrefix>(words.prefix(af));
    };
    KeyLayout layout;
    for (auto& w : layout.range) w = dice.oneIn(2) ? 0 : 9;
    for (auto& w : layout.combo) w = dice.oneIn(3) ? 0 : 9;
    if (dice.oneIn(2)) layout.missYields = MissYields::highest;
    Output out;
    for (int i = 0; i < 40; ++i)
      out.prefix(dice.oneIn(2), Mox::valueToStrep(prefix(family()).masked()), label());
    for (RangeSetType type : Naxel::allRangeSetTypes())
      for (unsigned at = below(3); at < 12;) {
        uint16_t const last = static_cast<uint16_t>(at + below(3));
        out.range(type, static_cast<uint16_t>(at), last, label());
        at = last + 1u + below(2);
      }
    for (ComboLabelSetType type : Naxel::allComboLabelSetTypes())
      for (int i = 0; i < 12; ++i) out.combo(type, label(), label(), label());
    for (uint64_t i = 0, entries = seed % 2 ? 30 : 200; i < entries; ++i) {
      Naxel::PDAclFilter f;
      for (Field field : Naxel::allLabelFields())
        if (dice.oneIn(4))
          f.labelFieldIs(field,
                         {label(), static_cast<uint16_t>(dice.below(65536) & dice.below(65536))});
      f.matchTcpInitIs(dice.oneIn(8));
      f.matchTcpEstablishedIs(dice.oneIn(8));
      out.entry(dice.oneIn(2) ? edge : edge6, below(entries), f);
    }
    LoadedTables tables(out.data, layout);
    for (int i = 0; i < 300 && !testing::Test::HasFailure(); ++i) {
      Packet p;
      p.af = family();
      for (Address* a : {&p.src, &p.dst}) *a = {prefix(p.af).hi(), prefix(p.af).lo()};
      for (RangeSetType type : Naxel::allRangeSetTypes())
        p.valueIs(type, layout.isRaw(type) ? label() : below(16));
      if (dice.oneIn(2)) p.proto = Packet::protoTcp;
      p.syn = dice.oneIn(2);
      p.ack = dice.oneIn(3);
      p.rst = dice.oneIn(4);
      hit.emplace(seed, lookup(tables, dice.oneIn(8) ? edge : PDAclKey(p.af, "edge"), p).rule);
    }
  }
  EXPECT_GT(hit.size(), 500u);
}

TEST(Lookup, AMissMatchesMaskZeroOnlyOrIsTheHighestLabel) {
  Output out;
  out.prefix(true, "10.0.0.0/8", 0).range(RangeSetType::dstPort, 80, 90, 0);
  out.entry(edge, 10, {{Fields::source, 0, 0x8000}});
  out.entry(edge, 20, {{Fields::dport, 0, 0x8}});
  out.entry(edge, 30, {{Fields::dport, 15, 0xf}});
  out.entry(edge, 40, std::vector<Match>{});
  KeyLayout layout;
  layout.range[1] = 4;
  for (auto const& [yields, wanted] :
       {std::pair{MissYields::nothing, "40 20 10 "}, {MissYields::highest, "30 20 10 "}}) {
    layout.missYields = yields;
    LoadedTables tables(out.data, layout);
    std::string hit;
    for (auto const& [source, dport] :
         {std::pair{"11.0.0.0", 91}, {"11.0.0.0", 90}, {"10.0.0.0", 91}}) {
      Packet packet = packetOf(source);
      packet.dport = static_cast<uint16_t>(dport);
      hit += Mox::valueToStrep(lookup(tables, edge, packet).rule) + " ";
    }
    EXPECT_EQ(hit, wanted);
  }
}

TEST(Lookup, HitsAreCountedPerEntry) {
  Output out;
  out.entry(edge, 10, {{Fields::dport, 80}}).entry(edge, 10, {{Fields::dport, 81}});
  out.entry(edge, 15, {{Fields::dport, 81}}).entry(edge, 20, std::vector<Match>{});
  auto const acl = out.data->pdAclCollIs().pdAclIs(edge);
  acl->ruleIs(AceIndex(5));  // matches nothing
  Naxel::NaxelActionValue drop;
  drop.dropEnabledIs(true);
  acl->ruleIs(AceIndex(10))->actionIs(drop);
  LoadedTables tables(out.data, KeyLayout());

  Packet packet = packetOf("10.0.0.1");
  packet.dport = 81;
  EXPECT_EQ(text(lookup(tables, edge, packet)), "rule 10 entry 1 drop");
  lookup(tables, edge, packet);
  packet.dport = 82;
  EXPECT_EQ(text(lookup(tables, edge, packet)), "rule 20 entry 0 permit");
  EXPECT_EQ(text(lookup(tables, edge6, packet)), "none");
  EXPECT_EQ(text(lookup(tables, edge, packetOf("2001::"))), "none");
  std::string hits;
  for (uint32_t rule : {5u, 10u, 20u, 30u})
    for (uint32_t entry : {0u, 1u})
      hits += std::to_string(tables.hits(edge, AceIndex(rule), entry));
  EXPECT_EQ(hits, "00021000");
  EXPECT_EQ(tables.hits(edge6, AceIndex(10), 1), 0u);
}

TEST(Lookup, OutputsThatDoNotFitTheKeyAreNamed) {
  KeyLayout layout;
  layout.prefix = {4, 4, 4, 4};
  layout.range[1] = 4;
  Naxel::PDAclFilter head;
  head.headFragmentIs({1, 1});
  struct Case {
    Output out;
    std::string finding;  // part of the only one; empty: none
  };
  using enum RangeSetType;
  for (Case const& c : {
           Case{Output()
                    .prefix(true, "10.0.0.0/8", 15)
                    .range(dstPort, 1, 2, 0)
                    .range(dstPort, 3, 3, 14)
                    .entry(edge, 10, {{Fields::source, 12, 14}, {Fields::proto, 255, 0xff}}),
                ""},
           Case{Output().prefix(false, "10.0.0.0/8", 16),
                "label 16 of 10.0.0.0/8 is wider than 4 bits"},
           Case{Output().range(dstPort, 1, 3, 0).range(dstPort, 3, 4, 1), "overlaps"},
           Case{Output().range(icmp, 1, 1, 1), "is wider than 0 bits"},
           Case{Output().combo(ComboLabelSetType::srcDstL4Port, 0, 0, 1), "is wider than 0 bits"},
           Case{Output().entry(edge, 10, {{Fields::dport, 0, 16}}), "0/16 is wider than 4 bits"},
           Case{Output().entry(edge, 10, {{Fields::proto, 256, 0x1ff}}), "256/511 is wider than 8"},
           Case{Output().entry(edge, 10, {{Fields::portCombo, 0, 1}}), "0/1 is wider than 0 bits"},
           Case{Output().entry(edge, 10, {{Fields::source, 8, 8}}), "what a miss may yield"},
           Case{Output().entry(edge, 7, head), "edge rule 7"},
       }) {
    SCOPED_TRACE(c.finding);
    auto const found = outputBreaches(*c.out.data, layout);
    ASSERT_EQ(found.size(), c.finding.empty() ? 0u : 1u) << (found.empty() ? "" : found[0]);
    EXPECT_TRUE(found.empty() || found[0].find(c.finding) != std::string::npos) << found[0];
  }
}

}  // namespace
}  // namespace Verify
