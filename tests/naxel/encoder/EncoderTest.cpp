/// From plain labels to value/mask pairs: what every layout of labels must keep to, and what it may
/// cost.

#include "naxel/encoder/CostModel.h"
#include "naxel/encoder/Mergers.h"
#include "naxel/encoder/PairCounter.h"
#include "support/LabelSets.h"
#include "support/Thinning.h"
#include "support/Vocabulary.h"
#include "support/World.h"

#include <algorithm>
#include <bit>
#include <map>
#include <numeric>
#include <set>

#include <gtest/gtest.h>

namespace Test {
namespace {

using namespace Naxel;
using Mox::makePtr;
using Pairs = std::vector<EncodedLabelWithMask>;

Mox::Ptr<EncodedLabelWithMaskList> listOf(Pairs pairs = {}) {
  auto out = makePtr<EncodedLabelWithMaskList>(GenSetKey(1));
  out->encLabelAndMaskIs(std::move(pairs));
  return out;
}

Pairs mergeRange(uint32_t width, uint32_t start, uint32_t end) {
  auto const out = listOf();
  RangeMerger(width, out).doMergeRange(start, end);
  return out->encLabelAndMask().items();
}

Pairs mergeLabels(uint32_t width, Pairs const& in, PairCounter* scratch = nullptr) {
  auto const out = listOf();
  LabelMerger const merger(width, listOf(in), out, scratch);
  return out->encLabelAndMask().items();
}

bool isMatched(Pairs const& pairs, uint32_t value) {
  return std::ranges::any_of(
      pairs, [&](auto const& pair) { return pair.matches(static_cast<uint16_t>(value)); });
}
std::vector<uint32_t> matched(Pairs const& pairs, uint32_t width) {
  std::vector<uint32_t> out;
  for (uint32_t v = 0; v < 1u << width; ++v)
    if (isMatched(pairs, v)) out.push_back(v);
  return out;
}

/// Runs of labels, choices from runs, and choices from sets before.
LabelSets drawSets(SeededDice& dice, uint32_t labels) {
  LabelSets out;
  for (uint64_t n = dice.between(1, 9); n > 0; --n) {
    LabelSet set{{}, static_cast<uint32_t>(dice.below(4))};
    bool const all = dice.oneIn(2);
    if (!out.empty() && dice.oneIn(3)) {
      for (uint32_t label : dice.of(out).labels)
        if (dice.oneIn(2)) set.labels.push_back(label);
    } else {
      uint64_t const last = dice.between(1, labels);
      for (uint64_t l = dice.between(1, last); l <= last; ++l)
        if (all || dice.oneIn(2)) set.labels.push_back(static_cast<uint32_t>(l));
    }
    if (!set.labels.empty()) out.push_back(std::move(set));
  }
  return out;
}

/// Encodes sets of all kinds in widths from `first` to `last`, of each so many, by both codes. What they cost in
/// thousandths of the least is at most that.
void checkSets(uint32_t first, uint32_t last, uint64_t families, uint64_t aligned,
               uint64_t compact) {
  SeededDice dice(1);
  std::map<Acl::LabelCode, uint64_t> cost, least;
  for (uint32_t width = first; width <= last; ++width)
    for (uint64_t round = 0; round < families; round += thinning()) {
      SCOPED_TRACE("width " + std::to_string(width) + " round " + std::to_string(round));
      uint32_t const reserved = (1u << width) - 1;
      // Full spaces and slightly too large ones come up as often as roomy ones.
      bool const full = round % 3 == 0;
      auto const most =
          static_cast<uint32_t>(full ? reserved + dice.below(2) : dice.between(1, reserved));
      LabelSets sets = drawSets(dice, most);
      if (full) {
        sets.push_back({std::vector<uint32_t>(most), static_cast<uint32_t>(dice.below(2))});
        std::iota(sets.back().labels.begin(), sets.back().labels.end(), 1u);
      }
      std::set<uint32_t> labels;
      for (LabelSet const& set : sets) labels.insert(set.labels.begin(), set.labels.end());
      LabelSets reversed = sets;
      std::ranges::reverse(reversed);
      for (Acl::LabelCode code : {Acl::LabelCode::aligned, Acl::LabelCode::compact}) {
        EncodedSets made = encoded(sets, width, code);
        ASSERT_EQ(made.fits, labels.size() <= reserved);
        if (!made.fits) continue;
        ASSERT_EQ(made.fault, "") << Mox::stringValue(code);
        cost[code] += made.cost;
        least[code] += made.least;
        std::ranges::reverse(made.pairs);
        EncodedSets const again = encoded(reversed, width, code);
        ASSERT_EQ(again.values, made.values) << Mox::stringValue(code);
        ASSERT_EQ(again.pairs, made.pairs) << Mox::stringValue(code);
      }
    }
  if (thinning() > 1) return;  // others than those that the bounds are of
  for (auto const& [code, most] :
       {std::pair{Acl::LabelCode::aligned, aligned}, std::pair{Acl::LabelCode::compact, compact}})
    EXPECT_LE(cost[code] * 1000, least[code] * most)
        << Mox::stringValue(code) << ": " << cost[code] << " for " << least[code];
}

TEST(Encoding, EverySetMatchesItsLabelsAndNoOtherWhateverItsKey) {
  checkSets(1, 8, 90, 1296, 1460);
}

TEST(Encoding, WideSpacesAreNoDifferent) { checkSets(10, 12, 6, 5107, 2790); }

TEST(Encoding, GeneratedSetsCostNoMoreThanTheyDid) {
  struct Case {
    char const* name;
    LabelSets sets;
    uint32_t width;
    uint32_t aligned;  // at most, in percent of the sum of least costs
    uint32_t compact;
  };
  for (Case const& c : {Case{"300 nested", nestedSets(1, 300, 5000, 5), 16, 100, 100},
                        Case{"500 in a chain", nestedSets(2, 500, 20000, 1), 16, 100, 100},
                        Case{"1000 nested widely", nestedSets(3, 1000, 20000, 40), 16, 100, 100},
                        Case{"600 nested, just fitting", nestedSets(3, 600, 20000, 2), 9, 100, 116},
                        Case{"16 share 250 of 1000", sharingSets(4, 16, 250, 1000), 16, 1552, 6619},
                        Case{"40 share 40 of 300", sharingSets(6, 40, 40, 300), 16, 707, 1724},
                        Case{"300 share 6 of 150", sharingSets(7, 300, 6, 150), 16, 240, 404},
                        Case{"8 share 20 of 60", sharingSets(8, 8, 20, 60), 16, 257, 100},
                        Case{"40 of 4 port ranges", portSets(9, 40, 4, 8000), 12, 418, 1060},
                        Case{"150 of 4 port ranges", portSets(10, 150, 4, 2000), 12, 479, 1329},
                        Case{"150 long ranges", portSets(10, 150, 1, 20000), 12, 202, 425},
                        Case{"60 of 3 long ranges", portSets(12, 60, 3, 30000), 12, 290, 809}})
    for (auto const& [code, most] : {std::pair{Acl::LabelCode::aligned, c.aligned},
                                     std::pair{Acl::LabelCode::compact, c.compact}}) {
      EncodedSets const made = encoded(c.sets, c.width, code);
      ASSERT_TRUE(made.fits) << c.name;
      EXPECT_EQ(made.fault, "") << c.name << ", " << Mox::stringValue(code);
      EXPECT_LE(made.cost * 100, made.least * most)
          << c.name << ", " << Mox::stringValue(code) << ": least " << made.least << ", reached "
          << made.cost;
    }
}

TEST(CostModel, OrdersByProductThenSizeThenContent) {
  struct Case {
    LabelSets in;
    std::vector<uint64_t> wanted;
  };
  for (Case const& c :
       {Case{{{{1}, 1}, {{1}, 3}, {{1, 2}, 1}}, {2, 3, 1}},
        Case{{{{7}, 6}, {{1, 2}, 3}, {{1, 2, 3}, 2}}, {3, 2, 1}},
        Case{{{{2, 9}, 1}, {{2, 3}, 1}, {{1, 99}, 1}}, {3, 2, 1}},
        Case{{{{1}, 0}, {{1, 2}, 0}, {{3}, 1}}, {3, 2, 1}}, Case{{{{5}, 1}, {{5}, 1}}, {1, 2}},
        // 2^31 uses of two labels wrap to 0.
        Case{{{{1, 2}, 2147483648u}, {{3}, 1}}, {2, 1}}}) {
    EncoderInput const in(c.in);
    RefCntCostModel const order(encoderConfigFactory(in.xform), in.usage);
    std::vector<uint64_t> got;
    for (auto const& visit : order.visits()) got.push_back(visit.list->key().value());
    EXPECT_EQ(got, c.wanted);
  }
}

TEST(RangeMerger, CoversRangesByMaximalAlignedBlocks) {
  EXPECT_EQ(mergeRange(16, 5, 12), (Pairs{{5, 65535}, {6, 65534}, {8, 65532}, {12, 65535}}));
  EXPECT_EQ(mergeRange(16, 0, 65535), (Pairs{{0, 0}}));
  EXPECT_EQ(mergeRange(16, 1, 65534).size(), 30u);
  EXPECT_EQ(mergeRange(16, 65535, 65535), (Pairs{{65535, 65535}}));
  for (uint32_t start = 0; start < 64; ++start)
    for (uint32_t end = start; end < 64; ++end) {
      uint32_t next = start;  // each value once, and no block could be twice as large
      for (auto const& pair : mergeRange(6, start, end)) {
        uint32_t const block = 64u - pair.mask().value();
        ASSERT_EQ(pair.label().value(), next) << start << "-" << end;
        EXPECT_TRUE(next % (2 * block) || next + 2 * block - 1 > end) << start << "-" << end;
        next += block;
      }
      ASSERT_EQ(next, end + 1);
    }
}

TEST(LabelMerger, JoinsPairsUntilNoTwoDifferInOneBitAlone) {
  std::vector<uint16_t> values(65536);
  std::iota(values.begin(), values.end(), uint16_t{0});
  PairCounter widest(16);
  EXPECT_EQ(widest.count(values), 1u) << "a pair that ignores every bit";
  EXPECT_EQ(widest.count(std::vector<uint16_t>{7, 65535}), 2u);
  SeededDice dice(5);
  std::map<uint32_t, PairCounter> counters;  // by width, used again and again
  for (int round = 0; round < 3000; ++round) {
    uint32_t const width = static_cast<uint32_t>(dice.between(1, 8));
    uint32_t const full = (1u << width) - 1;
    PairCounter& counter = counters.try_emplace(width, width).first->second;
    Pairs in;
    values.clear();
    // Single values, blocks side by side with gaps, and pairs of any kind.
    for (uint32_t v = 0; v <= full;) {
      uint32_t const most = v ? v & ~(v - 1) : full + 1;
      uint32_t const size = round % 3 ? std::min(most, 1u << dice.below(width + 1)) : 1;
      uint32_t const mask = full & (round % 3 == 2 ? ~dice.below(full + 1) : ~(size - 1));
      auto const label = static_cast<uint16_t>(v & mask);
      if (dice.oneIn(static_cast<uint64_t>(1 + round % 5))) {
        in.emplace_back(label, static_cast<uint16_t>(mask));
        values.push_back(label);
      }
      v += size;
    }
    Pairs const out = mergeLabels(width, in);
    ASSERT_EQ(matched(out, width), matched(in, width)) << round;
    EXPECT_LE(out.size(), in.size());
    ASSERT_EQ(mergeLabels(width, in, &counter), out) << round;
    if (round % 3 == 2) continue;
    EXPECT_TRUE(round % 3 != 0 || counter.count(values) == out.size()) << round;
    for (auto const& a : out)
      for (auto const& b : out)
        EXPECT_FALSE(a.mask() == b.mask() && std::has_single_bit(static_cast<uint16_t>(
                                                 a.label().value() ^ b.label().value())))
            << round;
  }
}

TEST(EncoderDeathTest, WidthsAndRangesMustBePossible) {
  GTEST_FLAG_SET(death_test_style, "fast");
  EXPECT_DEATH(mergeRange(4, 3, 2), "end >= start");
  EXPECT_DEATH(mergeRange(0, 0, 0), "bitWidth\\(\\)");
  World w;
  w.capability->prefixXformWidthIs({Lumox::ipv6(), false}, 0);
  EXPECT_DEATH(w.buildRoot(), "encodeBitWidth\\(\\)");
}

}  // namespace
}  // namespace Test
