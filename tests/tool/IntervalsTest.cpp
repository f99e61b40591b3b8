// Sizes of minimal prefix covers and of cross products.

#include "input/Intervals.h"
#include "output/CrossProduct.h"
#include "support/World.h"

#include <random>

#include <gtest/gtest.h>

namespace NaxelTool {
namespace {

constexpr unsigned bits = 4;

/// The values of a set, a bit each.
unsigned maskOf(IntervalSet const& set) {
  unsigned mask = 0;
  for (Interval const& i : set)
    for (Wide v = i.first; v <= i.last; ++v) mask |= 1u << static_cast<unsigned>(v);
  return mask;
}

/// Least number of prefixes by definition: a block that is wholly inside counts one, one that is
/// wholly outside none, any other as much as its halves.
uint64_t naiveCover(unsigned mask, unsigned first, unsigned size) {
  unsigned const block = ((1u << size) - 1) << first;
  if ((mask & block) == block) return 1;
  if ((mask & block) == 0) return 0;
  return naiveCover(mask, first, size / 2) + naiveCover(mask, first + size / 2, size / 2);
}

// Every subset of the 16 values of 4 bits, put together from overlapping intervals in disorder.
TEST(Intervals, UnionsDifferencesAndCoversOfEverySetOfFourBits) {
  std::mt19937 random(1);
  IntervalSet other;
  for (unsigned mask = 0; mask < 1u << (1u << bits); ++mask) {
    std::vector<Interval> parts;
    unsigned covered = 0;
    for (unsigned v = 0; v < 16; ++v) {
      if (!(mask >> v & 1) || (v < covered && random() % 2)) continue;
      unsigned last = v;
      while (random() % 2 && mask >> (last + 1) & 1) ++last;
      parts.push_back({v, last});
      covered = std::max(covered, last + 1);
    }
    std::shuffle(parts.begin(), parts.end(), random);
    IntervalSet const set = united(parts);
    ASSERT_EQ(maskOf(set), mask);
    ASSERT_EQ(coverSize(set, bits), naiveCover(mask, 0, 16)) << mask;
    ASSERT_EQ(isEverything(set, bits), mask == 0xffff) << mask;
    IntervalSet const rest = without(set, other);
    ASSERT_EQ(maskOf(rest), mask & ~maskOf(other)) << mask << " without " << maskOf(other);
    for (IntervalSet const& s : {set, rest})
      for (size_t i = 0; i < s.size(); ++i)
        ASSERT_TRUE(s[i].first <= s[i].last && (i == 0 || s[i - 1].last + 1 < s[i].first)) << mask;
    if (random() % 3 == 0) other = set;
  }
}

TEST(CrossProduct, MultipliesTheCoversOfTheConstrainedFields) {
  using namespace std::string_literals;
  std::string const ranges =
      "sport 1-65534 dport 1-65534 icmpType 1-254 proto 1-254 length 1-65534 fragment 1-8190 dscp "
      "1-62";
  uint64_t const product = uint64_t{30} * 30 * 30 * 24 * 14 * 14 * 10;
  for (auto const& [rule, entries] : {
           std::pair("init"s, uint64_t{1}),
           // Host bits and duplicates count once, siblings and ranges join.
           {"src 10.0.0.1/8,10.9.9.9/8,10.1.2.0/24", 1},
           {"src 10.0.0.0/9,10.128.0.0/9,11.0.0.0/8 dport 0-99,100-127,50", 1},
           {"src 10.0.0.0/8,!8.0.0.0/5 proto 6", 0},
           {"src !8.0.0.0/5", 0},
           {"src 0.0.0.0/0,!1.2.3.4/32", 32},
           {"src 1.0.0.0/8,3.0.0.0/8 dst 1.0.0.0/8,3.0.0.0/8 dport 1,3,5 proto 6,17",
            2 * 2 * 3 * 2},
           {ranges, product},
           // Not cut to 32 bits.
           {ranges + " src ::/0,!::1/128 dst ::/0,!::1/128", 128 * 128 * product},
       }) {
    SCOPED_TRACE(rule);
    auto const acls = Naxel::aclConfigCollFactory(Obel::ChipId(0));
    ::Test::addRules(*acls, "a 1 r " + rule + "\na 2 s\n");
    CrossProduct plain;
    EXPECT_EQ(plain.entries(*acls->acl("a")->ruleByName("r")), entries);
    EXPECT_EQ(plain.entries(*acls->acl("a")), entries + 1);
  }
}

}  // namespace
}  // namespace NaxelTool
