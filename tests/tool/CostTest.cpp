// What rules cost: the accounts against the tables that are made, savings and other chips against compilations
// from scratch.

#include "answers/Costs.h"
#include "answers/Trials.h"
#include "answers/WhatIf.h"
#include "generate/Generate.h"
#include "input/ClassBenchReader.h"
#include "input/JsonConfigReader.h"
#include "support/World.h"

#include <sstream>

#include <gtest/gtest.h>

namespace NaxelTool {
namespace {

using SoftChip::Table;

ChipSetup chipOf(std::string const& members) {
  return readChip("chip", R"({"schema":"naxel-chip","version":1)" + members + "}");
}

void makeRules(RuleSet& to, int kind) {
  std::ostringstream text;
  if (kind < 3) {
    generateFilterSet(text, {static_cast<FilterStyle>(kind), 40, 3});
    readRules(readClassBench, "set", text.str(), to);
  } else {
    generateObjectGroups(text, {30, 2, 8, 6, static_cast<Overlap>(kind - 3), 0, kind == 5, 7});
    readRules(readJsonConfig, "groups", text.str(), to);
  }
}

char const* const chips[] = {"", R"(,"labelCode":"aligned")",
                             R"(,"rangeXformWidth":{"dstPort":9,"proto":4})",
                             R"(,"rangeXformWidth":{"srcPort":9,"dstPort":9},
       "comboXformWidth":{"ipv4SrcDstPrefix":12,"ipv6SrcDstPrefix":12,"srcDstL4Port":9})"};

CostReport costs(RuleSet const& rules, ChipSetup const& chip, CostOptions const& options = {}) {
  return costsOf(rules, chip, options, [](Session const&) { ADD_FAILURE() << "unusable"; }, {});
}

/// Entries of a chip that compiles rules for the first time, without tables' limits.
std::optional<TableSizes> fromScratch(RuleSet const& rules, ChipSetup const& chip) {
  ChipSetup own = copyOf(chip);
  own.softChip = {};
  Session session(own, rules.acls());
  return session.kick() ? std::optional(sizesOf(session.data())) : std::nullopt;
}

size_t entriesIn(Naxel::PDData const& data, AclCost const& acl, Naxel::AceIndex rule) {
  return (*data.pdAclColl()->pdAcl({acl.af, acl.name})->rule().get(rule))->filters();
}

TEST(Cost, AccountsForTheTablesThatAreMade) {
  for (int kind = 0; kind < 6; ++kind)
    for (char const* const members : chips) {
      SCOPED_TRACE(std::to_string(kind) + members);
      RuleSet rules(Obel::ChipId(0));
      makeRules(rules, kind);
      ChipSetup const chip = chipOf(members);
      CostReport const report = costs(rules, chip);
      Session session(chip, rules.acls());
      ASSERT_TRUE(session.kick());
      ASSERT_TRUE(report.fits());
      EXPECT_LE(report.kicks, 1 + defaultTrials(report.rules, report.entries));
      EXPECT_EQ(report.entries, session.data().pdAclColl()->numFilters());
      TableSizes const sizes = sizesOf(session.data());
      for (TableCost const& t : report.tables) EXPECT_EQ(t.rows, sizes.rows[t.table]);
      EXPECT_EQ(report.allBits(), sizes.allBits());
      uint64_t last = ~uint64_t{0};
      for (RuleCost const& c : report.costs) {
        auto const acl = std::ranges::find(report.acls, c.acl, &AclCost::name);
        uint64_t entries = 0;
        for (Naxel::AceIndex const rule : c.rules) entries += entriesIn(session.data(), *acl, rule);
        EXPECT_EQ(c.entries, entries);
        EXPECT_LE(entries, last);
        last = entries;
        if (c.rules.size() > 1) continue;
        uint64_t cubes = 1;
        uint64_t plain = 1;
        for (CostFactor const& f : c.factors) {
          cubes *= f.cubes;
          plain *= f.plain;
        }
        EXPECT_EQ(c.entries, cubes);
        EXPECT_EQ(c.plainEntries, plain);
      }
    }
}

TEST(Cost, SavingsAndOtherChipsAreThoseOfACompilationFromScratch) {
  for (int kind = 0; kind < 6; ++kind) {
    SCOPED_TRACE(kind);
    RuleSet rules(Obel::ChipId(0));
    makeRules(rules, kind);
    ChipSetup const chip = chipOf(chips[kind % 4]);
    TableSizes const before = *fromScratch(rules, chip);
    CostReport const report = costs(rules, chip, {3, {}});
    size_t measured = 0;
    for (RuleCost const& c : report.costs) {
      if (!c.without) continue;
      ++measured;
      RulesTakenOut taken(*rules.acls());
      for (Naxel::AceIndex const rule : c.rules) taken.takeOut(c.acl, rule);
      TableSizes const now = *fromScratch(rules, chip);
      EXPECT_EQ(c.without->entries, static_cast<int64_t>(before.entries() - now.entries()));
    }
    EXPECT_EQ(
        measured,
        std::min<size_t>(3, static_cast<size_t>(std::ranges::count_if(
                                report.costs, [](RuleCost const& c) { return c.entries > 1; }))));
    EXPECT_EQ(fromScratch(rules, chip)->rows[Table::aclEntries], before.entries())
        << "the rules are not what they were";
    EXPECT_FALSE(report.trials.empty());
    for (ChipTrial const& t : report.trials) {
      SCOPED_TRACE(t.member + " " + t.to);
      ChipSetup other = copyOf(chip);
      ChipMember const& member = *chipMember(t.member);
      EXPECT_EQ(member.text(member.get(chip)), t.from);
      member.set(other, member.valueFromText(t.to));
      auto const sizes = fromScratch(rules, other);
      ASSERT_EQ(sizes.has_value(), t.failure.empty());
      if (!sizes) continue;
      EXPECT_EQ(t.entries, sizes->entries());
      EXPECT_EQ(t.bits, sizes->allBits());
    }
    EXPECT_EQ(costs(rules, chip, {3, 0}).kicks, 1u);
  }
}

// What is enough is the least that is, and rules that do not fit have the costs of the chip that holds them.
TEST(Cost, SaysWhatIsEnough) {
  RuleSet rules(Obel::ChipId(0));
  makeRules(rules, 0);
  ChipSetup const chip = chipOf(
      R"(,"prefixXformWidth":{"ipv4Src":2,"ipv4Dst":3},"rangeXformWidth":{"dstPort":1},
          "softChip":{"capacity":{"aclEntries":20,"v4Source":1000}})");
  CostReport const report = costs(rules, chip);
  ASSERT_EQ(report.lacks.size(), 4u);
  ChipSetup enough = copyOf(chip);
  for (Lack const& lack : report.lacks) chipMember(lack.member)->set(enough, lack.enough.value());
  Session holds(enough, rules.acls());
  EXPECT_TRUE(holds.kick());
  EXPECT_EQ(report.entries, holds.data().pdAclColl()->numFilters());
  for (Lack const& lack : report.lacks) {
    SCOPED_TRACE(lack.text);
    ChipSetup less = copyOf(enough);
    chipMember(lack.member)->set(less, *lack.enough - 1);
    Session lacking(less, rules.acls());
    EXPECT_FALSE(lacking.kick());
  }
  EXPECT_EQ(defaultTrials(10000, 100000), 40u);
  EXPECT_EQ(defaultTrials(20000, 0), 20u);
  EXPECT_EQ(defaultTrials(1, ~uint64_t{0}), 4u);
  // Entries that are too many to be made are counted all the same.
  ChipSetup limited = chipOf("");
  limited.entryLimit = 10;
  CostReport const counted = costs(rules, limited);
  EXPECT_FALSE(counted.fits());
  EXPECT_EQ(counted.entries, fromScratch(rules, chipOf(""))->entries());
}

TEST(WhatIf, EachChipIsWhatACompilationFromScratchSays) {
  for (int kind : {0, 3}) {
    RuleSet rules(Obel::ChipId(0));
    makeRules(rules, kind);
    ChipGrid grid;
    for (char const* const axis :
         {"labelCode=aligned,compact", "rangeXformWidth.srcPort+rangeXformWidth.dstPort=0,2,9",
          "prefixXformWidth=3,12", "softChip.capacity.aclEntries=60,any"})
      grid.axisIs(axis);
    ChipSetup const base = chipOf("");
    WhatIfReport const report = whatIf(rules, base, grid, {}, {});
    ASSERT_EQ(report.points.size(), 24u);
    EXPECT_EQ(report.kicks, 12u) << "chips that differ in capacities share a kick";
    std::optional<uint64_t> fewest;
    for (WhatIfPoint const& point : report.points) {
      SCOPED_TRACE(testing::PrintToString(point.values));
      ChipSetup const chip = grid.chip(base, point.values);
      Session session(chip, rules.acls());
      ASSERT_EQ(point.fits(), session.kick());
      if (point.fits()) {
        EXPECT_EQ(*point.entries, session.data().pdAclColl()->numFilters());
        EXPECT_EQ(point.bits, sizesOf(session.data()).allBits());
        fewest = std::min(fewest.value_or(point.bits), point.bits);
      }
    }
    ASSERT_EQ(report.cheapest.has_value(), fewest.has_value());
    if (fewest) {
      EXPECT_EQ(report.points[*report.cheapest].bits, *fewest);
    }
  }
}

TEST(WhatIf, RefusesAxesThatMeanNothing) {
  struct Case {
    char const* axis;
    char const* error;
  };
  for (Case const& c : {
           Case{"dstPort",
                "'dstPort' is not MEMBER=VALUE,VALUE,..., such as "
                "rangeXformWidth.dstPort=0,8,12"},
           {"=1", "a chip's description has no member '' that says how much room there is"},
           {"rangeXformWidth.dstport=1",
            "a chip's description has no member 'rangeXformWidth.dstport' that says how much room "
            "there is; did you mean 'rangeXformWidth.dstPort'?"},
           {"rangeXformWidth.dstPort=",
            "'' is not a whole number from 0 to 16, as rangeXformWidth.dstPort wants"},
           {"rangeXformWidth.dstPort=1,17",
            "'17' is not a whole number from 0 to 16, as rangeXformWidth.dstPort wants"},
           {"prefixXformWidth=0",
            "'0' is not a whole number from 1 to 16, as prefixXformWidth.ipv4Src wants"},
           {"softChip.capacity=many",
            "'many' is not a whole number from 0 to 2^64 - 1, or any, as "
            "softChip.capacity.v4Source wants"},
           {"labelCode=1", "'1' is none of aligned|compact"},
           {"rangeXformWidth.dstPort=4,04",
            "'04' stands twice among the values of rangeXformWidth.dstPort"},
           {"comboXformWidth=0", "comboXformWidth.srcDstL4Port is varied twice"},
       }) {
    SCOPED_TRACE(c.axis);
    ChipGrid grid;
    grid.axisIs("comboXformWidth.srcDstL4Port=0,4");
    try {
      grid.axisIs(c.axis);
      ADD_FAILURE() << "is taken";
    } catch (std::invalid_argument const& e) {
      EXPECT_STREQ(e.what(), c.error);
    }
    EXPECT_EQ(grid.points(), 2u);
  }
}

}  // namespace
}  // namespace NaxelTool
