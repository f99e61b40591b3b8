// Neighbours as one rule.

#include "answers/RuleMerging.h"
#include "output/RuleText.h"
#include "support/SmallPackets.h"
#include "support/World.h"

#include <gtest/gtest.h>

namespace NaxelTool {
namespace {

std::string textOfRules(Naxel::AclConfig const& acl) {
  std::string out;
  for (auto const& [index, rule] : acl.ruleById())
    out += std::to_string(index.value()) + " " + ruleText(*rule, {}) + "\n";
  return out;
}

TEST(RuleMerging, MergesWhatDiffersInOneField) {
  struct MergeCase {
    std::vector<std::string> rules;
    char const* left;
  };
  for (MergeCase const& row : {
           MergeCase{
               {" dport 1", " dport 2", " dport 4", " dport 9 drop", " dport 10"},
               "0 permit  ip any > any:1-2,4\n3 drop  ip any > any:9\n4 permit  ip any > any:10\n"},
           {{" src 10.0.0.0/8 proto 6", " src 11.0.0.0/8 proto 6", " src 12.0.0.0/8 proto 17"},
            "0 permit  tcp {10.0.0.0/8 11.0.0.0/8} > any\n2 permit  udp 12.0.0.0/8 > any\n"},
           // One field at a time, and what has been merged goes on merging.
           {{" src 10.0.0.0/8 dst 1.0.0.0/8", " src 10.0.0.0/8 dst 2.0.0.0/8",
             " src 10.0.0.0/8 dst 3.0.0.0/8", " src 20.0.0.0/8 dst 1.0.0.0/8,2.0.0.0/8,3.0.0.0/8"},
            "0 permit  ip {10.0.0.0/8 20.0.0.0/8} > {1.0.0.0/8 2.0.0.0/8 3.0.0.0/8}\n"},
           // All values are no range, and all addresses no list; flags are no field of values.
           {{" dport 1 proto 6", " proto 6", " proto 6 init", " proto 6 est"},
            "0 permit  tcp any > any:1\n1 permit  tcp any > any\n2 permit  tcp any > any init\n"
            "3 permit  tcp any > any established\n"},
           // Exceptions are those of the whole list.
           {{" src 10.0.0.0/8,!10.1.0.0/16", " src 11.0.0.0/8,!10.1.0.0/16"},
            "0 permit  ip {10.0.0.0/8 11.0.0.0/8} except 10.1.0.0/16 > any\n"},
           {{" src 10.0.0.0/8,!10.1.0.0/16", " src 10.1.0.0/16"},
            "0 permit  ip 10.0.0.0/8 except 10.1.0.0/16 > any\n1 permit  ip 10.1.0.0/16 > any\n"},
       }) {
    ::Test::SmallAcl const acl(row.rules);
    mergeNeighbours(*acl.acl);
    EXPECT_EQ(textOfRules(*acl.acl), row.left);
  }
}

TEST(RuleMerging, TakesThousandsAtOnce) {
  std::vector<std::string> rules;
  rules.reserve(20000);
  for (int i = 0; i < 20000; ++i) rules.push_back(" dport " + std::to_string(2 * i));
  ::Test::SmallAcl const acl(rules);
  EXPECT_EQ(mergeNeighbours(*acl.acl).size(), 19999u);
  ASSERT_EQ(acl.acl->ruleById().size(), 1u);
  std::ptrdiff_t ranges = 0;
  acl.acl->ruleById(Naxel::AceIndex(0))->ruleFilter()->forEachRangeColl([&](auto, auto const& all) {
    ranges += std::distance(all.begin(), all.end());
  });
  EXPECT_EQ(ranges, 20000);
}

TEST(RuleMerging, TakesTheRulesOfAnEntryTogether) {
  ::Test::SmallAcl const acl(
      {" dst 1.0.0.1/32 proto 6 dport 80", " dst 1.0.0.1/32 proto 6 frag 1-8191",
       " dst 1.0.0.1/32 proto 6 dport 443", " dst 1.0.0.1/32 proto 6 frag 1-8191",
       " dst 1.0.0.9/32 proto 6 dport 80,443", " dst 1.0.0.9/32 proto 6 frag 1-8191",
       " dst 1.0.0.9/32 proto 6 dport 80,443"});
  mergeNeighbours(*acl.acl, [](Naxel::AceIndex i) { return uint64_t{i.value()} / 2; });
  EXPECT_EQ(textOfRules(*acl.acl),
            "0 permit  tcp any > {1.0.0.1/32 1.0.0.9/32}:80,443\n"
            "1 permit  tcp any > {1.0.0.1/32 1.0.0.9/32} frag 1-8191\n"
            "6 permit  tcp any > 1.0.0.9/32:80,443\n");
}

TEST(RuleMerging, LeavesAloneWhatIsToStay) {
  ::Test::SmallAcl const acl({" dport 1", " dport 2", " dport 3", " dport 4", " dport 5"});
  EXPECT_EQ(
      mergeNeighbours(*acl.acl, nullptr, [](Naxel::AceIndex i) { return i.value() == 2; }).size(),
      2u);
  EXPECT_EQ(textOfRules(*acl.acl),
            "0 permit  ip any > any:1-2\n2 permit  ip any > any:3\n3 permit  ip any > any:4-5\n");
}

TEST(RuleMerging, KeepsTheOutcomeOfEveryPacketAndTheListsOfOthers) {
  size_t merged = 0;
  for (uint64_t seed = 1; seed <= 500; ++seed) {
    ::Test::SeededDice dice(seed);
    std::vector<std::string> rules;
    for (uint64_t n = dice.between(2, 8); n > 0; --n)
      rules.push_back(" src " + dice.of<std::string>({"0.0.0.0/1", "128.0.0.0/1", "64.0.0.0/2"}) +
                      " proto 6 dport " + dice.of<std::string>({"0-9", "5", "10-65535"}) +
                      dice.of<std::string>({"", " drop"}));
    SCOPED_TRACE("seed " + std::to_string(seed));
    ::Test::SmallAcl const before(rules);
    ::Test::SmallAcl const after(rules);
    // Lists are shared between rules, as files have them.
    for (auto const& [index, rule] : after.acl->ruleById())
      for (auto const& [other, from] : after.acl->ruleById()) {
        if (!rule->ruleFilter() || !from->ruleFilter()) continue;
        auto const& list = from->ruleFilter()->source();
        if (auto const& mine = rule->ruleFilter()->source(); mine && list && mine->isEqual(*list))
          rule->ruleFilter()->sourceIs(list);
      }
    merged += mergeNeighbours(*after.acl).size();
    for (Verify::Packet const& p : ::Test::smallPackets())
      ASSERT_EQ(before.outcome(p), after.outcome(p)) << p;
  }
  EXPECT_GT(merged, 50u);
}

}  // namespace
}  // namespace NaxelTool
