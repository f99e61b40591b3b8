// The generator: what it makes can be read, compiled and verified, looks like what it is meant to look
// like, and is the same everywhere.

#include "command/Verify.h"
#include "generate/Generate.h"
#include "input/ClassBenchReader.h"
#include "input/Intervals.h"
#include "input/JsonConfigReader.h"
#include "mox/Hash.h"
#include "session/Session.h"

#include <set>
#include <sstream>

#include <gtest/gtest.h>

namespace NaxelTool {
namespace {

std::string filterSet(FilterStyle style, uint32_t rules, uint64_t seed = 1) {
  std::ostringstream out;
  generateFilterSet(out, {style, rules, seed});
  return out.str();
}

std::string objectGroups(Overlap overlap, bool ipv6 = false, uint64_t seed = 1) {
  std::ostringstream out;
  ObjectGroupOptions options;
  options.rules = 100;
  options.lists = 20;
  options.overlap = overlap;
  options.ipv6 = ipv6;
  options.seed = seed;
  generateObjectGroups(out, options);
  return out.str();
}

/// A number that changes with every byte.
uint64_t digest(std::string const& text) {
  uint64_t out = text.size();
  for (char const ch : text) out = Mox::mix64(out ^ static_cast<unsigned char>(ch));
  return out;
}

Mox::Ptr<Naxel::AclConfigColl> read(std::string const& text) {
  RuleSet rules(Obel::ChipId(0));
  if (text.starts_with('@'))
    readClassBench("set", text, FlagsMode::strict, rules);
  else
    readJsonConfig("groups", text, rules);
  return rules.acls();
}

// These bytes are the same for every compiler and library.
TEST(Generate, SeedDecidesEveryByte) {
  EXPECT_EQ(digest(filterSet(FilterStyle::acl, 500)), 1214474936138999159u);
  EXPECT_EQ(digest(filterSet(FilterStyle::fw, 500)), 1834188869663329144u);
  EXPECT_EQ(digest(filterSet(FilterStyle::ipc, 500)), 2728781912010083767u);
  EXPECT_EQ(digest(objectGroups(Overlap::mixed)), 17537991445528633307u);
  EXPECT_NE(filterSet(FilterStyle::acl, 500, 2), filterSet(FilterStyle::acl, 500));
  EXPECT_NE(objectGroups(Overlap::mixed, false, 2), objectGroups(Overlap::mixed));
}

TEST(Generate, WhatIsMadeCompilesAndVerifies) {
  struct Case {
    char const* name;
    std::string text;
    size_t rules;
  };
  Case const cases[] = {
      {"acl", filterSet(FilterStyle::acl, 300), 300},
      {"fw", filterSet(FilterStyle::fw, 300), 300},
      {"ipc", filterSet(FilterStyle::ipc, 300), 300},
      {"nested", objectGroups(Overlap::nested), 100},
      {"crossing", objectGroups(Overlap::crossing), 100},
      {"mixed IPv6", objectGroups(Overlap::mixed, true), 100},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    auto const acls = read(c.text);
    size_t rules = 0;
    for (auto const& [name, acl] : acls->acl()) rules += acl->ruleById().size();
    EXPECT_EQ(rules, c.rules);
    Session session(defaultChip(), acls);
    ASSERT_TRUE(session.kick());
    std::ostringstream out;
    EXPECT_TRUE(verify(session, 3000, 1, out)) << out.str();
  }
}

// As many distinct prefixes and port ranges as public sets of this size have, and room in the chip.
TEST(Generate, TenThousandRulesResembleRealOnes) {
  struct Case {
    FilterStyle style;
    std::pair<size_t, size_t> src, dst, sport, dport;
  };
  Case const cases[] = {
      {FilterStyle::acl, {3000, 6000}, {500, 2000}, {0, 3}, {80, 240}},
      {FilterStyle::fw, {3000, 9000}, {5000, 9000}, {8, 30}, {30, 60}},
      {FilterStyle::ipc, {1000, 3000}, {1000, 4000}, {25, 50}, {40, 80}},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.style));
    auto const acls = read(filterSet(c.style, 10000));
    std::set<Lumox::IpGenPrefix> src, dst;
    std::set<Naxel::L4PortRange> sport, dport;
    for (auto const& [index, rule] : acls->acl().begin()->second->ruleById()) {
      Naxel::RuleFilter const& f = *rule->ruleFilter();
      if (f.source()) src.insert(f.source()->addr().begin(), f.source()->addr().end());
      if (f.destination())
        dst.insert(f.destination()->addr().begin(), f.destination()->addr().end());
      sport.insert(f.sportRange().begin(), f.sportRange().end());
      dport.insert(f.dportRange().begin(), f.dportRange().end());
    }
    auto const within = [](size_t n, std::pair<size_t, size_t> const& bounds) {
      return bounds.first <= n && n <= bounds.second;
    };
    EXPECT_TRUE(within(src.size(), c.src)) << src.size();
    EXPECT_TRUE(within(dst.size(), c.dst)) << dst.size();
    EXPECT_TRUE(within(sport.size(), c.sport)) << sport.size();
    EXPECT_TRUE(within(dport.size(), c.dport)) << dport.size();
  }
}

/// Pairs of lists of which neither contains the other, though they have addresses in common.
size_t crossings(Naxel::AclConfigColl const& acls) {
  std::set<Naxel::IpPrefixList const*> lists;
  for (auto const& [name, acl] : acls.acl())
    for (auto const& [index, rule] : acl->ruleById()) {
      auto const& f = *rule->ruleFilter();
      if (f.source()) lists.insert(f.source().get());
      if (f.destination()) lists.insert(f.destination().get());
    }
  // The first addresses of all members tell lists apart well enough.
  std::vector<std::set<uint64_t>> marks;
  std::set<uint64_t> all;
  for (auto const* list : lists)
    for (auto const& p : list->addr()) all.insert(p.hi());
  for (auto const* list : lists) {
    marks.emplace_back();
    for (uint64_t const address : all) {
      auto const has = [&](auto const& coll) {
        return std::any_of(coll.begin(), coll.end(),
                           [&](auto const& p) { return p.containsAddress(address, 0); });
      };
      if (has(list->addr()) && !has(list->exceptAddr())) marks.back().insert(address);
    }
  }
  size_t out = 0;
  for (size_t i = 0; i < marks.size(); ++i)
    for (size_t j = 0; j < i; ++j) {
      size_t common = 0;
      for (uint64_t const address : marks[i]) common += marks[j].count(address);
      if (common && common < marks[i].size() && common < marks[j].size()) ++out;
    }
  return out;
}

TEST(Generate, OverlapIsOfTheKindAskedFor) {
  EXPECT_EQ(crossings(*read(objectGroups(Overlap::nested))), 0u);
  EXPECT_GT(crossings(*read(objectGroups(Overlap::crossing))), 10u);
  size_t const mixed = crossings(*read(objectGroups(Overlap::mixed)));
  EXPECT_GT(mixed, 0u);
  EXPECT_LT(mixed, crossings(*read(objectGroups(Overlap::crossing))));
}

}  // namespace
}  // namespace NaxelTool
