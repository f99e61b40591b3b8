// The generator: what it makes can be read, compiled and verified, looks like what it is meant to look
// like, and is the same everywhere.

#include "command/Verify.h"
#include "generate/Generate.h"
#include "input/ClassBenchReader.h"
#include "input/Intervals.h"
#include "input/JsonConfigReader.h"
#include "mox/Hash.h"
#include "session/Session.h"
#include "support/Pieces.h"

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
  generateObjectGroups(out,
                       {.rules = 100, .lists = 20, .overlap = overlap, .ipv6 = ipv6, .seed = seed});
  return out.str();
}

/// The rules of a text that the generator has made.
Mox::Ptr<Naxel::AclConfigColl> read(std::string const& text) {
  RuleSet rules(Obel::ChipId(0));
  if (text.starts_with('@'))
    readRules(readClassBench, "set", text, rules, {.flags = FlagsMode::strict});
  else
    readRules(readJsonConfig, "groups", text, rules);
  return rules.acls();
}

template <class F>
void forEachFilter(Naxel::AclConfigColl const& acls, F f) {
  for (auto const& [name, acl] : acls.acl())
    for (auto const& [index, rule] : acl->ruleById()) f(*rule->ruleFilter());
}

TEST(Generate, SeedDecidesEveryByteOfWhatCompilesAndVerifies) {
  auto const digest = [](std::string const& text) {
    uint64_t out = text.size();
    for (char const ch : text) out = Mox::mix64(out ^ static_cast<unsigned char>(ch));
    return out;
  };
  struct Case {
    std::string made;
    size_t rules;
    uint64_t digest;  ///< the same for every compiler and library
  };
  for (Case const& c : {
           Case{filterSet(FilterStyle::acl, 500), 500, 1214474936138999159u},
           {filterSet(FilterStyle::fw, 500), 500, 1834188869663329144u},
           {filterSet(FilterStyle::ipc, 500), 500, 2728781912010083767u},
           {objectGroups(Overlap::nested), 100, 1024632388292475053u},
           {objectGroups(Overlap::crossing), 100, 5667722585472676995u},
           {objectGroups(Overlap::mixed), 100, 17537991445528633307u},
           {objectGroups(Overlap::mixed, true), 100, 8289949249513693544u},
       }) {
    SCOPED_TRACE(c.made.substr(0, 500));
    EXPECT_EQ(digest(c.made), c.digest);
    auto const acls = read(c.made);
    size_t rules = 0;
    forEachFilter(*acls, [&](auto&) { ++rules; });
    EXPECT_EQ(rules, c.rules);
    Session session(defaultChip(), acls);
    ASSERT_TRUE(session.kick());
    std::ostringstream out;
    EXPECT_TRUE(verify(session, 3000, 1, out)) << out.str();
  }
  EXPECT_NE(filterSet(FilterStyle::acl, 500, 2), filterSet(FilterStyle::acl, 500));
  EXPECT_NE(objectGroups(Overlap::mixed, false, 2), objectGroups(Overlap::mixed));
}

// As many distinct prefixes and port ranges, which begin each line, as public sets of this size have.
TEST(Generate, TenThousandRulesResembleRealOnes) {
  using Bounds = std::vector<std::pair<size_t, size_t>>;
  for (auto const& [style, bounds] :
       {std::pair(FilterStyle::acl, Bounds{{3000, 6000}, {500, 2000}, {0, 3}, {80, 240}}),
        {FilterStyle::fw, {{3000, 9000}, {5000, 9000}, {8, 30}, {30, 60}}},
        {FilterStyle::ipc, {{1000, 3000}, {1000, 4000}, {25, 50}, {40, 80}}}}) {
    std::set<std::string> columns[4];
    for (std::string const& line : ::Test::pieces(filterSet(style, 10000), "\n")) {
      auto const cells = ::Test::pieces(line, "\t");
      for (size_t i = 0; i < 4 && cells.size() > 4; ++i) columns[i].insert(cells[i]);
    }
    for (size_t i = 0; i < 4; ++i)
      EXPECT_TRUE(columns[i].size() >= bounds[i].first && columns[i].size() <= bounds[i].second)
          << columns[i].size() << " in column " << i << " of style " << static_cast<int>(style);
  }
}

/// Pairs of lists of which neither contains the other, though they have addresses in common.
size_t crossings(Overlap overlap) {
  auto const acls = read(objectGroups(overlap));
  std::set<Naxel::IpPrefixList const*> lists;
  forEachFilter(*acls, [&](Naxel::RuleFilter const& f) {
    for (auto const& list : {f.source(), f.destination()})
      if (list) lists.insert(list.get());
  });
  size_t out = 0;
  for (auto const* one : lists)
    for (auto const* other : lists) {
      IntervalSet const a = addressesOf(*one), b = addressesOf(*other);
      IntervalSet const onlyA = without(a, b);
      out += one < other && !onlyA.empty() && onlyA != a && !without(b, a).empty();
    }
  return out;
}

TEST(Generate, OverlapIsOfTheKindAskedFor) {
  EXPECT_EQ(crossings(Overlap::nested), 0u);
  EXPECT_GT(crossings(Overlap::crossing), 10u);
  EXPECT_GT(crossings(Overlap::mixed), 0u);
  EXPECT_LT(crossings(Overlap::mixed), crossings(Overlap::crossing));
}

}  // namespace
}  // namespace NaxelTool
