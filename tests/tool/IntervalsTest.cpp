// Sizes of minimal prefix covers and of cross products.

#include "input/Intervals.h"
#include "input/JsonConfigReader.h"
#include "output/CrossProduct.h"

#include <random>

#include <gtest/gtest.h>

namespace NaxelTool {
namespace {

constexpr unsigned bits = 4;

bool contains(IntervalSet const& set, unsigned value) {
  for (Interval const& i : set)
    if (i.first <= value && value <= i.last) return true;
  return false;
}

/// Least number of prefixes by definition: a block that is wholly inside counts one, one that is
/// wholly outside none, any other as much as its halves.
uint64_t naiveCover(unsigned mask, unsigned first, unsigned size) {
  unsigned const block = ((1u << size) - 1) << first;
  if ((mask & block) == block) return 1;
  if ((mask & block) == 0) return 0;
  return naiveCover(mask, first, size / 2) + naiveCover(mask, first + size / 2, size / 2);
}

// Every subset of the 16 values of 4 bits, put together from intervals in disorder.
TEST(Intervals, CoverIsMinimalForEverySetOfFourBits) {
  std::mt19937 random(1);
  for (unsigned mask = 0; mask < 1u << (1u << bits); ++mask) {
    std::vector<Interval> parts;
    for (unsigned v = 0; v < 16; ++v)
      if (mask >> v & 1) parts.push_back({v, v});
    std::shuffle(parts.begin(), parts.end(), random);
    ASSERT_EQ(coverSize(united(parts), bits), naiveCover(mask, 0, 16)) << mask;
    ASSERT_EQ(isEverything(united(parts), bits), mask == 0xffff) << mask;
  }
}

TEST(Intervals, DifferenceHoldsExactlyTheRest) {
  std::mt19937 random(2);
  auto const some = [&] {
    std::vector<Interval> parts(random() % 4);
    for (Interval& i : parts) {
      i.first = random() % 16;
      i.last = std::min<Wide>(15, i.first + random() % 6);
    }
    return united(parts);
  };
  for (int round = 0; round < 20000; ++round) {
    IntervalSet const a = some();
    IntervalSet const b = some();
    IntervalSet const rest = without(a, b);
    ASSERT_EQ(rest, united(rest)) << "not in normal form in round " << round;
    for (unsigned v = 0; v < 16; ++v)
      ASSERT_EQ(contains(rest, v), contains(a, v) && !contains(b, v)) << round << ": " << v;
  }
}

TEST(CrossProduct, MultipliesTheCoversOfTheConstrainedFields) {
  struct Case {
    char const* name;
    char const* rule;
    uint64_t entries;
  };
  Case const cases[] = {
      {"nothing constrained", R"("matchTcpInit":true)", 1},
      {"host bits and duplicates", R"("source":["10.0.0.1/8","10.9.9.9/8"])", 1},
      {"siblings join", R"("source":["10.0.0.0/9","10.128.0.0/9","11.0.0.0/8"])", 1},
      {"nested", R"("source":["10.0.0.0/8","10.1.2.0/24"])", 1},
      {"except host", R"("source":{"addr":["10.0.0.0/8"],"except":["10.0.0.7/32"]})", 24},
      {"except all", R"("source":{"addr":["10.0.0.0/8"],"except":["8.0.0.0/5"]},"proto":6)", 0},
      {"only except", R"("source":{"except":["8.0.0.0/5"]})", 0},
      {"everything but a host", R"("source":{"addr":["0.0.0.0/0"],"except":["1.2.3.4/32"]})", 32},
      {"worst port range", R"("sport":"1-65534")", 30},
      {"ranges join", R"("dport":["0-99","100-127",50])", 1},
      {"narrow fields", R"("dscp":"1-62","fragment":"1-8190")", 10 * 24},
      {"product", R"("source":["1.0.0.0/8","3.0.0.0/8"],"destination":["1.0.0.0/8","3.0.0.0/8"],
                     "sport":"1024-65535","dport":[1,3,5],"proto":[6,17])",
       2 * 2 * 6 * 3 * 2},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    RuleSet rules(Obel::ChipId(0));
    readJsonConfig("f",
                   R"({"schema":"naxel-rules","version":1,"acls":[{"name":"a","af":"ipv4",)"
                   R"("rules":[{"index":1,"name":"r",)" +
                       std::string(c.rule) + "}]}]}",
                   rules);
    EXPECT_EQ(CrossProduct().entries(*rules.acls()->acl("a")), c.entries);
  }
}

TEST(CrossProduct, IsNotCutTo32Bits) {
  std::string const worst6 = R"({"addr":["::/0"],"except":["::1/128"]})";
  RuleSet rules(Obel::ChipId(0));
  readJsonConfig("f",
                 R"({"schema":"naxel-rules","version":1,"acls":[{"name":"a","af":"ipv6","rules":[)"
                 R"({"index":1,"name":"big","source":)" +
                     worst6 + R"(,"destination":)" + worst6 +
                     R"(,"sport":"1-65534","dport":"1-65534","length":"1-65534",)"
                     R"("fragment":"1-8190","icmpType":"1-254","proto":"1-254","dscp":"1-62"},)"
                     R"({"index":2,"name":"small"}]}]})",
                 rules);
  CrossProduct product;
  auto const acl = rules.acls()->acl("a");
  EXPECT_EQ(product.entries(*acl->ruleByName("big")),
            uint64_t{128} * 128 * 30 * 30 * 30 * 24 * 14 * 14 * 10);
  EXPECT_EQ(product.entries(*acl), uint64_t{128} * 128 * 30 * 30 * 30 * 24 * 14 * 14 * 10 + 1);
}

}  // namespace
}  // namespace NaxelTool
