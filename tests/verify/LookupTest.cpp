/// Lookups in outputs made by hand, and the quick lookup against the plain one.

#include "softchip/LoadedTables.h"
#include "support/Output.h"
#include "verify/NaiveLookup.h"
#include "verify/Random.h"

#include <sstream>

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

TEST(Lookup, AMissMatchesMaskZeroOnlyOrIsTheHighestLabel) {
  Output out;
  out.prefix(true, "10.0.0.0/8", 0).range(RangeSetType::dstPort, 80, 90, 0);
  out.entry(edge, 10, {{Fields::source, 0, 0x8000}});
  out.entry(edge, 20, {{Fields::dport, 0, 0x8}});
  out.entry(edge, 30, {{Fields::dport, 15, 0xf}});
  out.entry(edge, 40, std::vector<Match>{});
  KeyLayout layout;
  layout.range[1] = 4;
  LoadedTables nothing(out.data, layout);
  layout.missYields = MissYields::highest;
  LoadedTables highest(out.data, layout);

  Packet packet = packetOf("11.0.0.0");
  packet.dport = 91;
  EXPECT_EQ(lookup(nothing, edge, packet).rule, AceIndex(40));
  EXPECT_EQ(lookup(highest, edge, packet).rule, AceIndex(30));
  packet.dport = 90;
  EXPECT_EQ(lookup(nothing, edge, packet).rule, AceIndex(20));
  EXPECT_EQ(lookup(highest, edge, packet).rule, AceIndex(20));
  packet.src = addressOf("10.0.0.0");
  EXPECT_EQ(lookup(nothing, edge, packet).rule, AceIndex(10));
}

TEST(Lookup, HitsAreCountedPerEntry) {
  Output out;
  out.entry(edge, 10, {{Fields::dport, 80}});
  out.entry(edge, 10, {{Fields::dport, 81}});
  out.entry(edge, 15, {{Fields::dport, 81}});
  out.entry(edge, 20, std::vector<Match>{});
  out.data->pdAclCollIs().pdAclIs(edge)->ruleIs(AceIndex(5));  // matches nothing
  Naxel::NaxelActionValue drop;
  drop.dropEnabledIs(true);
  out.data->pdAclCollIs().pdAclIs(edge)->ruleIs(AceIndex(10))->actionIs(drop);
  LoadedTables tables(out.data, KeyLayout());

  Packet packet = packetOf("10.0.0.1");
  packet.dport = 81;
  EXPECT_EQ(text(lookup(tables, edge, packet)), "rule 10 entry 1 drop");
  lookup(tables, edge, packet);
  packet.dport = 82;
  EXPECT_EQ(text(lookup(tables, edge, packet)), "rule 20 entry 0 permit");
  EXPECT_EQ(text(lookup(tables, edge6, packet)), "none");
  EXPECT_EQ(text(lookup(tables, edge, packetOf("2001::"))), "none");

  EXPECT_EQ(tables.hits(edge, AceIndex(10), 0), 0u);
  EXPECT_EQ(tables.hits(edge, AceIndex(10), 1), 2u);
  EXPECT_EQ(tables.hits(edge, AceIndex(20), 0), 1u);
  EXPECT_EQ(tables.hits(edge, AceIndex(20), 1), 0u);
  EXPECT_EQ(tables.hits(edge, AceIndex(5), 0), 0u);
  EXPECT_EQ(tables.hits(edge6, AceIndex(10), 1), 0u);
}

// Few values in each field, so that packets hit and miss everything, and masks of any shape.
struct RandomOutput {
  explicit RandomOutput(Random& random, size_t entries) {
    for (auto& w : layout.range)
      w = random.oneIn(2) ? 0 : static_cast<uint8_t>(1 + random.below(9));
    for (auto& w : layout.combo) w = random.oneIn(3) ? 0 : 6;
    if (random.oneIn(2)) layout.missYields = MissYields::highest;
    for (int i = 0; i < 40; ++i) {
      auto const label = static_cast<uint16_t>(random.below(6));
      uint64_t const hi = random.below(4) << 62 | random.below(4) << 54 | random.below(4) << 32;
      bool const source = random.oneIn(2);
      static constexpr uint8_t lengths[] = {0, 1, 2, 8, 10, 31, 32, 64, 100, 128};
      uint8_t const length = lengths[random.below(10)];
      auto const p = length <= 32 && random.oneIn(2)
                         ? Lumox::IpGenPrefix::v4(static_cast<uint32_t>(hi >> 32), length)
                         : Lumox::IpGenPrefix::v6(hi, random.below(4) << 62, length);
      out.data->pdPrefixXformEntryCollIs(Naxel::PrefixXformKey(p.af(), source))
          .entryIs({p.masked(), Naxel::EncodedLabel(label)});
    }
    for (RangeSetType type : Naxel::allRangeSetTypes()) {
      for (unsigned at = static_cast<unsigned>(random.below(3)); at < 12;) {
        unsigned const last = at + static_cast<unsigned>(random.below(3));
        out.range(type, static_cast<uint16_t>(at), static_cast<uint16_t>(last),
                  static_cast<uint16_t>(random.below(6)));
        at = last + 1 + static_cast<unsigned>(random.below(2));
      }
    }
    for (ComboLabelSetType type : Naxel::allComboLabelSetTypes())
      for (int i = 0; i < 20; ++i)
        out.combo(type, static_cast<uint16_t>(random.below(6)),
                  static_cast<uint16_t>(random.below(6)), static_cast<uint16_t>(random.below(6)));
    for (size_t i = 0; i < entries; ++i) {
      Naxel::PDAclFilter f;
      for (Field field : Naxel::allLabelFields())
        if (random.oneIn(4))
          matchIs(f, {field, static_cast<uint16_t>(random.below(7)),
                      static_cast<uint16_t>(random.oneIn(2) ? random.below(8) : random.next())});
      f.matchTcpInitIs(random.oneIn(8));
      f.matchTcpEstablishedIs(random.oneIn(8));
      for (PDAclKey const& acl : {edge, edge6})
        out.entry(acl, static_cast<uint32_t>(random.below(entries)), f);
    }
  }

  Packet packet(Random& random) const {
    Packet p;
    p.af = random.oneIn(2) ? Lumox::ipv4() : Lumox::ipv6();
    for (Address* a : {&p.src, &p.dst}) {
      a->hi = random.below(4) << 62 | random.below(4) << 54 | random.below(4) << 32;
      if (p.af == Lumox::ipv6()) a->lo = random.below(4) << 62;
    }
    for (RangeSetType type : Naxel::allRangeSetTypes())
      p.valueIs(type, static_cast<uint16_t>(random.below(16)));
    if (random.oneIn(2)) p.proto = 6;
    p.syn = random.oneIn(2);
    p.ack = random.oneIn(3);
    p.rst = random.oneIn(4);
    return p;
  }

  Output out;
  KeyLayout layout;
};

Naxel::PDAclFilter headFragment() {
  Naxel::PDAclFilter f;
  f.headFragmentIs({1, 1});
  return f;
}

TEST(Lookup, OutputsThatDoNotFitTheKeyAreNamed) {
  KeyLayout layout;
  layout.prefix = {4, 4, 4, 4};
  layout.range[1] = 4;
  struct Case {
    char const* name;
    Output out;
    char const* finding;  // part of the only one; null: none
  };
  using enum RangeSetType;
  Case cases[] = {
      {"right",
       Output()
           .prefix(true, "10.0.0.0/8", 15)
           .range(dstPort, 1, 2, 0)
           .range(dstPort, 3, 3, 14)
           .entry(edge, 10, {{Fields::source, 12, 14}, {Fields::proto, 255, 0xff}}),
       nullptr},
      {"wide label", Output().prefix(false, "10.0.0.0/8", 16), "wider than 4 bits"},
      {"overlap", Output().range(dstPort, 1, 3, 0).range(dstPort, 3, 4, 1), "overlaps"},
      {"wide mask", Output().entry(edge, 10, {{Fields::dport, 0, 16}}), "wider than 4 bits"},
      {"wide raw value", Output().entry(edge, 10, {{Fields::proto, 256, 0x1ff}}), "wider than 8"},
      {"no width", Output().entry(edge, 10, {{Fields::portCombo, 0, 1}}), "wider than 0 bits"},
      {"miss", Output().entry(edge, 10, {{Fields::source, 8, 8}}), "what a miss may yield"},
      {"table without width", Output().range(icmp, 1, 1, 1), "wider than 0 bits"},
      {"head fragment", Output().entry(edge, 7, headFragment()), "edge rule 7"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    auto const found = outputBreaches(*c.out.data, layout);
    ASSERT_EQ(found.size(), c.finding ? 1u : 0u) << (found.empty() ? "" : found[0]);
    if (c.finding) {
      EXPECT_NE(found[0].find(c.finding), std::string::npos) << found[0];
    }
  }
}

}  // namespace
}  // namespace Verify
