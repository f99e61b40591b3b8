/// Which label gets which value: the counter of pairs against the merger, the arrangements one by
/// one, and what they come to in whole encoders.

#include "naxel/encoder/LabelExchange.h"
#include "naxel/encoder/LabelLayout.h"
#include "naxel/encoder/LabelPairing.h"
#include "naxel/encoder/Mergers.h"
#include "support/LabelSets.h"

#include <algorithm>
#include <numeric>
#include <set>

#include <gtest/gtest.h>

using namespace Naxel;
using Test::encodedCost;
using Test::EncodedCost;
using Test::LabelSets;
using Test::mixed;
using Test::nestedSets;
using Test::portSets;
using Test::sharingSets;
using Test::SmallRandom;

namespace {

uint32_t mergedPairs(uint32_t width, std::vector<uint16_t> const& values) {
  auto const in = Mox::makePtr<EncodedLabelWithMaskList>(GenSetKey(1));
  auto const full = static_cast<uint16_t>((1u << width) - 1);
  for (uint16_t v : values) in->encLabelAndMaskIs({v, full});
  auto const out = Mox::makePtr<EncodedLabelWithMaskList>(GenSetKey(1));
  LabelMerger const merger(width, in, out);
  return static_cast<uint32_t>(out->encLabelAndMask().size());
}

/// A group of labels that owns what it refers to.
struct Group {
  std::vector<uint16_t> values;
  std::vector<LabelShare> shares;
  std::vector<uint16_t> members;

  void add(std::vector<uint16_t> const& labels, uint64_t weight) {
    shares.push_back(
        {static_cast<uint32_t>(members.size()), static_cast<uint32_t>(labels.size()), weight});
    members.insert(members.end(), labels.begin(), labels.end());
  }
  LabelGroup get() const { return {values, shares, members}; }
};

/// Blocks of falling size anywhere, the last one perhaps cut short; shares that nest or cross.
Group randomGroup(SmallRandom& random, uint32_t width) {
  Group g;
  std::set<uint16_t> taken;
  for (uint32_t bits = width - 1 - random.below(2), n = 1 + random.below(3); n > 0; --n) {
    uint32_t const start = random.below(1u << (width - bits)) << bits;
    uint32_t const size = n == 1 ? 1 + random.below(1u << bits) : 1u << bits;
    for (uint32_t v = start; v < start + size; ++v)
      if (taken.insert(static_cast<uint16_t>(v)).second)
        g.values.push_back(static_cast<uint16_t>(v));
    bits -= bits ? random.below(2) : 0;
  }
  auto const labels = static_cast<uint32_t>(g.values.size());
  std::set<std::vector<uint16_t>> different;
  for (uint32_t i = random.below(9); i > 0 && labels > 2; --i) {
    std::vector<uint16_t> share;
    uint32_t const first = random.below(labels);
    for (uint32_t l = first; l < labels; ++l)
      if (i % 2 ? l < first + labels / 2 : random.below(3) == 0)
        share.push_back(static_cast<uint16_t>(l));
    if (share.size() > 1 && share.size() < labels && different.insert(share).second)
      g.add(share, 1 + random.below(9));
  }
  return g;
}

}  // namespace

TEST(PairCounter, CountsWhatTheMergerMakes) {
  SmallRandom random(1);
  for (uint32_t width = 1; width <= 9; ++width) {
    PairCounter counter(width);
    for (int round = 0; round < 200; ++round) {
      std::vector<uint16_t> values;
      uint32_t const denseness = 1 + random.below(5);
      for (uint32_t v = 0; v < 1u << width; ++v)
        if (random.below(5) < denseness)
          values.insert(values.begin() + random.below(static_cast<uint32_t>(values.size()) + 1),
                        static_cast<uint16_t>(v));
      ASSERT_EQ(counter.count(values), mergedPairs(width, values)) << width << " " << round;
    }
  }
  std::vector<uint16_t> all(65536);
  std::iota(all.begin(), all.end(), uint16_t{0});
  PairCounter counter(16);
  EXPECT_EQ(counter.count(all), 1u);
  EXPECT_EQ(counter.count({}), 0u);
  EXPECT_EQ(counter.count(std::vector<uint16_t>{7, 65535}), 2u);
}

TEST(LabelArrangement, EveryWayGivesEachLabelOnePlaceAndAPriceNoLessThanTheLeast) {
  SmallRandom random(2);
  PairCounter counter(7);
  for (int round = 0; round < 600; ++round) {
    Group const made = randomGroup(random, 2 + random.below(6));
    LabelGroup const group = made.get();
    LabelSplit const split(group);
    uint64_t steps = 0;
    for (LabelOrder order : {split.order(), splitOrder(group, split), joinOrder(group, split),
                             *pairOrder(group, split.order(), 1'000'000, steps)}) {
      EXPECT_GE(priceOf(group, order, counter), leastPriceOf(group));
      std::sort(order.begin(), order.end());
      for (uint32_t i = 0; i < group.labels(); ++i) ASSERT_EQ(order.at(i), i) << round;
      ASSERT_EQ(order.size(), group.labels());
    }
  }
}

TEST(LabelArrangement, WorkedExamples) {
  enum Label : uint16_t { a, b, c, d, e, f, g, h };
  struct Case {
    std::vector<std::vector<uint16_t>> shares;
    uint64_t ascending, split, join, pair;
  };
  Case const cases[] = {{{{b, c, e, h}, {c, e}}, 6, 2, 2, 2},
                        {{{a, d}, {b, c}}, 4, 2, 2, 2},
                        {{{a, b, c, d, e}, {f, g, h}}, 4, 4, 4, 4},
                        {{{a, d, f, g, h}, {b, c, e}}, 7, 4, 4, 4},
                        {{{b, c, d, e}, {b, c, e, h}, {a, d, f, g}}, 11, 7, 7, 4}};
  for (Case const& example : cases) {
    Group made;
    for (uint16_t v = 8; v < 16; ++v) made.values.push_back(v);
    for (auto const& share : example.shares) made.add(share, 1);
    LabelGroup const group = made.get();
    LabelSplit const split(group);
    PairCounter counter(4);
    LabelOrder const ascending = {a, b, c, d, e, f, g, h};
    uint64_t steps = 0;
    auto const price = [&](LabelOrder const& order) { return priceOf(group, order, counter); };
    SCOPED_TRACE(testing::PrintToString(example.shares));
    EXPECT_EQ(price(ascending), example.ascending);
    EXPECT_EQ(price(splitOrder(group, split)), example.split);
    EXPECT_EQ(price(joinOrder(group, split)), example.join);
    EXPECT_EQ(price(*pairOrder(group, ascending, 10'000, steps)), example.pair);
    EXPECT_FALSE(pairOrder(group, ascending, 1, steps)) << "more steps than allowed";
  }
}

TEST(LabelExchange, MovesLabelsOfOtherBlocksTogether) {
  // Labels 0-3 belong to one set, 4-7 to another; the third set has 1 and 6.
  std::vector<uint32_t> const owner = {0, 0, 0, 0, 1, 1, 1, 1};
  PairCounter counter(3);
  LabelExchange exchange(owner, counter);
  exchange.add(2, std::vector<uint16_t>{1, 6}, {}, 5);
  std::vector<uint16_t> values = {0, 1, 2, 3, 4, 5, 6, 7};
  EXPECT_EQ(exchange.priceOf(values), 10u);
  EXPECT_EQ(exchange.improve(values, 1000), 5u);
  EXPECT_EQ(values[1] ^ values[6], 4) << "differ in the bit of the blocks alone";
  EXPECT_EQ(exchange.improve(values, 1000), exchange.leastPrice());
}

TEST(LabelLayout, IsNeverAboveAscendingOrderAndDependsOnTheSetsAlone) {
  SmallRandom random(3);
  for (uint32_t round = 0; round < 150; ++round) {
    uint32_t const width = 5 + random.below(4);
    LabelSets sets =
        round % 3 == 0   ? sharingSets(round, 3 + random.below(9), 2 + random.below(9), 24)
        : round % 3 == 1 ? portSets(round, 3 + random.below(5), 2, 30000)
                         : mixed(nestedSets(round, 12, 200, 3), sharingSets(round, 5, 3, 9));
    uint32_t labels = 0;
    for (auto const& set : sets.sets) labels = std::max(labels, set.labels.back());
    if (labels >= 1u << width) continue;
    EncodedCost const cost = encodedCost(sets, width);
    EXPECT_LE(cost.reached, cost.ascending) << round;
    // Other keys for the same sets.
    std::reverse(sets.sets.begin(), sets.sets.end());
    EXPECT_EQ(encodedCost(sets, width).values, cost.values) << round;
  }
}

TEST(LabelLayout, ReachesTheLeastCostOfNestedSets) {
  for (LabelSets const& sets :
       {nestedSets(1, 300, 5000, 5), nestedSets(2, 500, 20000, 1), nestedSets(3, 1000, 20000, 40),
        mixed(nestedSets(4, 200, 900, 3), nestedSets(5, 200, 900, 9))}) {
    EncodedCost const cost = encodedCost(sets, 16);
    EXPECT_LT(cost.reached, cost.ascending);
    EXPECT_LE(cost.reached * 100, cost.least * 101);
  }
}

TEST(LabelLayout, SetsThatCrossCostLessThanInAscendingOrJoinedOrder) {
  struct Case {
    char const* name;
    LabelSets sets;
    uint32_t width;
    uint32_t most;  // reached, in percent of the cheaper of the other two
  };
  Case const cases[] = {
      {"16 lists share 250 of 1000 prefixes", sharingSets(4, 16, 250, 1000), 16, 72},
      {"40 lists share 40 of 300 prefixes", sharingSets(6, 40, 40, 300), 16, 88},
      {"300 lists share 6 of 150 prefixes", sharingSets(71, 300, 6, 150), 16, 97},
      {"8 lists share 20 of 60 prefixes", sharingSets(8, 8, 20, 60), 16, 82},
      {"40 lists of 4 port ranges", portSets(9, 40, 4, 8000), 12, 88},
      {"150 lists of 4 port ranges", portSets(10, 150, 4, 2000), 12, 86},
      {"60 lists of 3 long port ranges", portSets(12, 60, 3, 30000), 12, 86},
      {"nested beside sharing", mixed(nestedSets(13, 300, 5000, 5), sharingSets(14, 30, 40, 300)),
       16, 94}};
  for (Case const& c : cases) {
    EncodedCost const cost = encodedCost(c.sets, c.width);
    EXPECT_LE(cost.reached * 100, std::min(cost.ascending, cost.joined) * c.most)
        << c.name << ": least " << cost.least << ", ascending " << cost.ascending << ", joined "
        << cost.joined << ", reached " << cost.reached;
    RecordProperty(c.name, static_cast<int>(cost.reached));
  }
}
