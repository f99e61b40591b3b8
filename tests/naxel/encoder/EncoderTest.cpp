/// From plain labels to value/mask pairs. The allocator and the label merger are compared with
/// plain, bit by bit forms of the same rules.

#include "naxel/encoder/NaxelLabelEncoderSm.h"
#include "naxel/encoder/PairCounter.h"
#include "naxel/types/NaxelTrace.h"
#include "support/World.h"

#include <map>
#include <random>
#include <set>

#include <gtest/gtest.h>

using namespace Naxel;
using Mox::makePtr;
using Test::dump;
using Test::World;

namespace {

using Labels = std::vector<uint32_t>;
using Ranges = std::set<std::pair<uint32_t, uint32_t>>;
using Pairs = std::set<std::pair<uint32_t, uint32_t>>;  // value and mask

/// Sets of plain labels with their counts of use; the key of a set is its place, from 1 on.
struct Input {
  struct Set {
    Labels labels;
    uint32_t uses = 1;
  };
  std::vector<Set> sets;

  Mox::Ptr<EncoderConfig> config() const {
    auto const status = makePtr<XformStatus>();
    for (size_t i = 0; i < sets.size(); ++i)
      for (uint32_t l : sets[i].labels)
        status->plainLabelListMap()->plainLabelListIs(GenSetKey(i + 1)).labelIs(PlainLabel(l));
    return encoderConfigFactory(status);
  }
  Mox::Ptr<GenSetUsageInfo> usage() const {
    auto const info = makePtr<GenSetUsageInfo>();
    for (size_t i = 0; i < sets.size(); ++i)
      if (sets[i].uses) info->refCountIs(GenSetKey(i + 1)).valueIs(sets[i].uses);
    return info;
  }
  /// Places of the sets by falling product of uses and labels; of equal ones the larger set first,
  /// then by labels, then by key.
  std::vector<size_t> order() const {
    std::vector<std::tuple<uint32_t, size_t, Labels, size_t>> all;
    for (size_t i = 0; i < sets.size(); ++i) {
      auto const n = static_cast<uint32_t>(sets[i].labels.size());
      all.emplace_back(~(sets[i].uses * n), ~size_t{n}, sets[i].labels, i);
    }
    std::sort(all.begin(), all.end());
    std::vector<size_t> out;
    for (auto const& entry : all) out.push_back(std::get<3>(entry));
    return out;
  }
};

struct Allocation {
  bool fits = true;
  uint32_t extra = 0;
  std::map<uint32_t, uint32_t> values;
  std::vector<Ranges> ranges;
  bool operator==(Allocation const&) const = default;
};

Allocation allocate(Input const& in, uint32_t width, uint32_t reserved) {
  auto const config = in.config();
  auto const status = encoderStatusFactory();
  auto const alloc = makePtr<EncodedLabelAllocStatus>();
  EncodedLabelAllocator const allocator(width, config, makePtr<RefCntCostModel>(config, in.usage()),
                                        status, alloc, reserved);
  Allocation out;
  out.fits = alloc->status() != StageStatusType::finishedFailed;
  out.extra = allocator.extraLabelCnt();
  for (auto const& [plain, encoded] : status->plainToEncodedLabel())
    out.values[plain.value()] = encoded.value();
  out.ranges.resize(in.sets.size());
  for (auto const& [key, list] : alloc->keyToEncLabelList())
    for (auto const& r : list->encLabelRange())
      out.ranges[key.value() - 1].insert({r.start().value(), r.end().value()});
  return out;
}

/// The same with one flag per value and no memory of where to look. Which new label of a set gets
/// which of the values that are handed out is free: `choice` says.
class PlainAllocator {
 public:
  PlainAllocator(Input const& in, uint32_t width, uint32_t reserved,
                 std::map<uint32_t, uint32_t> const& choice)
      : size_(1u << width), taken_(size_, false), choice_(choice) {
    for (uint32_t i = 0; i < reserved; ++i) taken_[size_ - 1 - i] = true;
    out.ranges.resize(in.sets.size());
    std::set<uint32_t> seen;
    std::vector<uint32_t> counts(in.sets.size());
    for (size_t i : in.order())
      for (uint32_t l : in.sets[i].labels)
        if (seen.insert(l).second) ++counts[i];
    if (seen.size() > size_ - reserved) {
      out.fits = false;
      return;
    }
    out.extra = size_ - reserved - static_cast<uint32_t>(seen.size());
    for (size_t i : in.order()) allocate(in.sets[i].labels, counts[i], out.ranges[i]);
  }
  Allocation out;

 private:
  uint32_t lowestClear(uint32_t from) const {
    while (from < size_ && taken_[from]) ++from;
    return from;
  }
  void allocate(Labels const& labels, uint32_t count, Ranges& ranges) {
    for (uint32_t l : labels)
      if (out.values.contains(l)) ranges.insert({out.values[l], out.values[l]});
    if (count == 0) return;
    int range = 0;
    while ((1u << range) < count) ++range;
    uint32_t done = 0;
    std::vector<std::pair<uint32_t, uint32_t>> blocks;
    for (; range >= 0 && done < count; --range) {
      uint32_t const block = 1u << range;
      uint32_t start = lowestClear(0) / block * block;
      while (start < size_ && done < count) {
        uint32_t const remaining = count - done;
        uint32_t take = std::min(remaining, block);
        uint32_t spare = 0;
        if (remaining < block && out.extra != 0 && remaining != 1) {
          uint32_t power = 1;
          while (power < remaining) power *= 2;
          spare = power - remaining;
          if (spare > out.extra) break;
          take = power;
        }
        uint32_t const end = start + take - 1;
        if (end >= size_) break;
        uint32_t set = 0;
        for (uint32_t v = start; v <= end; ++v) set += taken_[v];
        if (set == 0) {
          for (uint32_t v = start; v <= end; ++v) taken_[v] = true;
          blocks.push_back({start, end});
          ranges.insert({start, end});
          done += take;
          out.extra -= spare;
        }
        if (set == 0 || set == block)
          start = lowestClear(end) / block * block;
        else
          start += block;
      }
    }
    std::set<uint32_t> values;
    for (auto const& [start, end] : blocks)
      for (uint32_t v = start; v <= end && values.size() < count; ++v) values.insert(v);
    for (uint32_t l : labels)
      if (!out.values.contains(l)) {
        auto const chosen = choice_.find(l);
        bool const known = chosen != choice_.end() && values.contains(chosen->second);
        out.values[l] = known ? chosen->second : *values.begin();
        values.erase(out.values[l]);
      }
  }

  uint32_t size_;
  std::vector<bool> taken_;
  std::map<uint32_t, uint32_t> const& choice_;
};

std::string text(Allocation const& a) {
  std::string out = (a.fits ? "extra " : "fails, extra ") + std::to_string(a.extra) + " |";
  for (auto const& [l, v] : a.values) out += " " + std::to_string(l) + "=" + std::to_string(v);
  for (auto const& ranges : a.ranges) {
    out += " |";
    for (auto const& [s, e] : ranges) out += " " + std::to_string(s) + "-" + std::to_string(e);
  }
  return out;
}

Mox::Ptr<EncodedLabelWithMaskList> list(Pairs const& pairs = {}) {
  auto out = makePtr<EncodedLabelWithMaskList>(GenSetKey(1));
  for (auto const& [l, m] : pairs)
    out->encLabelAndMaskIs({static_cast<uint16_t>(l), static_cast<uint16_t>(m)});
  return out;
}

Pairs pairsOf(EncodedLabelWithMaskList const& l) {
  Pairs out;
  for (auto const& e : l.encLabelAndMask()) out.insert({e.label().value(), e.mask().value()});
  return out;
}

Pairs mergeRange(uint32_t width, uint32_t start, uint32_t end) {
  auto const out = list();
  RangeMerger(width, out).doMergeRange(start, end);
  return pairsOf(*out);
}

Pairs mergeLabels(uint32_t width, Pairs const& in, PairCounter* scratch = nullptr) {
  auto const out = list();
  LabelMerger const merger(width, list(in), out, scratch);
  return pairsOf(*out);
}

/// One bit at a time, one pair at a time.
Pairs plainMerge(uint32_t width, Pairs const& in) {
  if (width == 0 || in.size() <= 1) return in;
  Pairs x, byBit[2];
  for (auto const& [label, mask] : in) {
    std::pair<uint32_t, uint32_t> const reduced(label >> 1, mask >> 1);
    bool const bit = label & 1;
    if (!(mask & 1))
      x.insert(reduced);
    else if (byBit[!bit].erase(reduced))
      x.insert(reduced);
    else
      byBit[bit].insert(reduced);
  }
  Pairs out;
  for (auto const& [l, m] : plainMerge(width - 1, x)) out.insert({l << 1, m << 1});
  for (unsigned bit : {0u, 1u})
    for (auto const& [l, m] : plainMerge(width - 1, byBit[bit]))
      out.insert({l << 1 | bit, m << 1 | 1});
  return out;
}

std::set<uint32_t> matched(uint32_t width, Pairs const& pairs) {
  std::set<uint32_t> out;
  for (uint32_t v = 0; v < 1u << width; ++v)
    for (auto const& [l, m] : pairs)
      if (((v ^ l) & m) == 0) out.insert(v);
  return out;
}

Labels run(uint32_t first, uint32_t count) {
  Labels out;
  for (uint32_t i = 0; i < count; ++i) out.push_back(first + i);
  return out;
}

}  // namespace

TEST(Allocator, PlacesNewLabelsInAlignedBlocks) {
  struct Case {
    uint32_t width, reserved;
    Input in;
    char const* wanted;
  };
  Case const cases[] = {
      {4, 0, {{{{1}}}}, "extra 15 | 1=0 | 0-0"},
      {4, 0, {{{{1, 2, 3}}}}, "extra 12 | 1=0 2=1 3=2 | 0-3"},
      {4, 0, {{{{1, 2, 3}, 2}, {{3, 4, 5}}}}, "extra 10 | 1=0 2=1 3=2 4=4 5=5 | 0-3 | 2-2 4-5"},
      {4, 0, {{{{1, 2, 3}}, {{2, 3}}}}, "extra 12 | 1=2 2=0 3=1 | 0-3 | 0-0 1-1"},
      // Nothing to spare: three labels take three values of a block of four, or are split.
      {2, 0, {{{{1}, 9}, {{2, 3, 4}}}}, "extra 0 | 1=0 2=2 3=3 4=1 | 0-0 | 1-1 2-3"},
      {2, 0, {{{{1, 2, 3}, 9}, {{4}}}}, "extra 0 | 1=0 2=1 3=2 4=3 | 0-2 | 3-3"},
      {3, 0, {{{run(1, 8)}}}, "extra 0 | 1=0 2=1 3=2 4=3 5=4 6=5 7=6 8=7 | 0-7"},
      {3, 0, {{{run(1, 9)}}}, "fails, extra 0 | |"},
      // The reserved value makes every block that would hold it smaller.
      {2, 1, {{{{1}, 9}, {{2}, 8}, {{3}}}}, "extra 0 | 1=0 2=1 3=2 | 0-0 | 1-1 | 2-2"},
      {2, 1, {{{{1, 2, 3}}}}, "extra 0 | 1=0 2=1 3=2 | 0-2"},
      {2, 1, {{{run(1, 4)}}}, "fails, extra 0 | |"}};
  for (Case const& c : cases) {
    std::string got = text(allocate(c.in, c.width, c.reserved));
    if (got.starts_with("fails")) got = "fails, extra 0 | |";
    EXPECT_EQ(got, c.wanted);
  }
}

TEST(Allocator, ShowsWhatItTakesAndSpares) {
  std::string traced;
  naxelTrace().levelIs(6);
  auto const old = Mox::traceSinkIs([&](auto&, int, std::string const& t) { traced += t + "\n"; });
  Input const in{{{{1, 2, 3}}}};
  EncodedLabelAllocator const allocator(4, in.config(),
                                        makePtr<RefCntCostModel>(in.config(), in.usage()),
                                        encoderStatusFactory(), makePtr<EncodedLabelAllocStatus>());
  naxelTrace().levelIs(0);
  Mox::traceSinkIs(old);
  EXPECT_NE(traced.find("start: 0, end: 3, toAllocate: 4, range:2, extraLabels: 1, bitsInSet"),
            std::string::npos)
      << traced;
  EXPECT_NE(allocator.attributeText("encLabelBitMap"), "?");
}

TEST(Allocator, GivesWhatThePlainAlgorithmGives) {
  std::mt19937 random(3);
  for (uint32_t width = 1; width <= 8; ++width)
    for (uint32_t reserved = 0; reserved <= 1; ++reserved)
      for (int round = 0; round < 150; ++round) {
        uint32_t const size = 1u << width;
        // Full spaces and slightly too large ones come up as often as roomy ones.
        uint32_t const universe =
            round % 3 == 0 ? size - reserved + random() % 2 : 1 + random() % size;
        Input in;
        for (uint32_t s = 0, sets = 1 + random() % 9; s < sets; ++s) {
          std::set<uint32_t> labels;
          uint32_t const first = random() % universe;
          uint32_t const count = 1 + random() % (universe - first);
          for (uint32_t i = 0; i < count; ++i)
            if (s % 2 || random() % 2) labels.insert(1 + first + i);
          if (!labels.empty())
            in.sets.push_back(
                {{labels.begin(), labels.end()}, static_cast<uint32_t>(random() % 4)});
        }
        if (round % 3 == 0)
          in.sets.push_back({run(1, universe), static_cast<uint32_t>(random() % 2)});
        Allocation const got = allocate(in, width, reserved);
        Allocation const wanted = PlainAllocator(in, width, reserved, got.values).out;
        ASSERT_EQ(text(got), text(wanted)) << "width " << width << " reserved " << reserved;
      }
}

TEST(CostModel, OrdersByProductThenSizeThenContent) {
  struct Case {
    Input in;
    std::vector<uint64_t> wanted;
  };
  Case const cases[] = {{{{{{1}, 1}, {{1}, 3}, {{1, 2}, 1}}}, {2, 3, 1}},
                        {{{{{7}, 6}, {{1, 2}, 3}, {{1, 2, 3}, 2}}}, {3, 2, 1}},
                        {{{{{2, 9}, 1}, {{2, 3}, 1}, {{1, 99}, 1}}}, {3, 2, 1}},
                        {{{{{1}, 0}, {{1, 2}, 0}, {{3}, 1}}}, {3, 2, 1}},
                        {{{{{5}, 1}, {{5}, 1}}}, {1, 2}},
                        // 2^31 uses of two labels wrap to 0.
                        {{{{{1, 2}, 2147483648u}, {{3}, 1}}}, {2, 1}}};
  for (Case const& c : cases) {
    RefCntCostModel const model(c.in.config(), c.in.usage());
    std::vector<uint64_t> got;
    for (auto const& visit : model.visits()) got.push_back(visit.list->key().value());
    EXPECT_EQ(got, c.wanted);
    size_t keys = 0;
    for (auto const& [value, group] : model.setOrder())
      for (GenSetKey k : group->keyGroup()) {
        auto const& set = c.in.sets[k.value() - 1];
        EXPECT_EQ(value, ~(set.uses * static_cast<uint32_t>(set.labels.size())));
        ++keys;
      }
    EXPECT_EQ(keys, c.in.sets.size());
  }
}

TEST(RangeMerger, CoversRangesByMaximalAlignedBlocks) {
  EXPECT_EQ(mergeRange(16, 5, 12), (Pairs{{5, 65535}, {6, 65534}, {8, 65532}, {12, 65535}}));
  EXPECT_EQ(mergeRange(8, 0, 255), (Pairs{{0, 0}}));
  EXPECT_EQ(mergeRange(16, 0, 65535), (Pairs{{0, 0}}));
  EXPECT_EQ(mergeRange(16, 1, 65534).size(), 30u);
  EXPECT_EQ(mergeRange(16, 65535, 65535), (Pairs{{65535, 65535}}));
  uint32_t const width = 6, size = 64;
  for (uint32_t start = 0; start < size; ++start)
    for (uint32_t end = start; end < size; ++end) {
      Pairs const pairs = mergeRange(width, start, end);
      std::vector<uint32_t> covered;
      for (auto const& [l, m] : pairs)
        for (uint32_t v : matched(width, {{l, m}})) covered.push_back(v);
      ASSERT_EQ(covered, run(start, end - start + 1)) << "each value once, " << start << "-" << end;
      for (auto const& [l, m] : pairs) {  // no block could be twice as large
        uint32_t const block = size - m;
        EXPECT_TRUE(l % (2 * block) || l + 2 * block - 1 > end) << start << "-" << end;
      }
    }
}

TEST(RangeMergerDeathTest, RefusesImpossibleRanges) {
  GTEST_FLAG_SET(death_test_style, "fast");
  EXPECT_DEATH(mergeRange(4, 3, 2), "end >= start");
  EXPECT_DEATH(mergeRange(0, 0, 0), "bitWidth\\(\\)");
}

TEST(LabelMerger, JoinsPairsThatDifferInOneBit) {
  EXPECT_EQ(mergeLabels(16, {{4, 65535}, {5, 65535}}), (Pairs{{4, 65534}}));
  EXPECT_EQ(mergeLabels(16, {{4, 65535}}), (Pairs{{4, 65535}}));
  EXPECT_EQ(mergeLabels(16, {{0, 65535}, {3, 65535}}), (Pairs{{0, 65535}, {3, 65535}}));
  EXPECT_EQ(mergeLabels(2, {{0, 3}, {1, 3}, {2, 3}, {3, 3}}), (Pairs{{0, 0}}));
  EXPECT_EQ(mergeLabels(4, {}), Pairs());
  std::mt19937 random(5);
  std::map<uint32_t, PairCounter> scratch;  // by width, used again and again
  for (int round = 0; round < 4000; ++round) {
    uint32_t const width = 1 + random() % 7;
    uint32_t const full = (1u << width) - 1;
    Pairs in;
    for (uint32_t i = 0, n = random() % 14; i < n && round % 4 < 3; ++i) {
      uint32_t mask = full;
      if (round % 4 == 1) mask = random() & full;
      if (round % 4 == 2) mask = full << random() % (width + 1) & full;
      in.insert({random() & mask, mask});
    }
    // Blocks side by side, with gaps.
    for (uint32_t v = 0; v <= full && round % 4 == 3;) {
      uint32_t const most = v ? v & ~(v - 1) : full + 1;
      uint32_t const size = std::min(most, 1u << random() % (width + 1));
      if (random() % 4) in.insert({v, full & ~(size - 1)});
      v += size;
    }
    Pairs const out = mergeLabels(width, in);
    ASSERT_EQ(mergeLabels(width, in, &scratch.try_emplace(width, width).first->second), out);
    ASSERT_EQ(out, plainMerge(width, in));
    ASSERT_EQ(matched(width, out), matched(width, in));
    EXPECT_LE(out.size(), in.size());
  }
}

TEST(Encoder, PairsMatchTheLabelsOfTheirSetAndNoOtherAndNeverTheReservedValue) {
  std::mt19937 random(13);
  for (int round = 0; round < 120; ++round) {
    SCOPED_TRACE(round);
    World w;
    uint8_t const width = static_cast<uint8_t>(2 + round % 4);
    auto const type = round % 2 ? RangeSetType::icmp : RangeSetType::proto;
    w.capability->rangeXformWidthIs(type, width);
    uint32_t const points = round % 5 ? 1 + random() % (1u << width) : (1u << width) - 1;
    // Disjoint points make full spaces; ranges over them make nesting and equal lists.
    for (uint32_t r = 0; r < points; ++r) {
      std::string const index = std::to_string(r);
      w.rules("a " + index + " r" + index + (type == RangeSetType::icmp ? " icmp " : " proto ") +
              std::to_string(r % points) +
              (random() % 2 ? "," + std::to_string(random() % points) : "") +
              (random() % 3 ? "" : ",0-" + std::to_string(points - 1)));
    }
    Mox::TraceSink const old = Mox::traceSinkIs({});
    bool const fits = w.kick() == NaxelProgress::naxelFinishedSuccess;
    Mox::traceSinkIs(old);
    if (!fits) continue;  // too many pieces
    auto const encoder = w.root->rangeEncoderStatus(type);
    auto const split = w.root->rangeSplitStatus(type);
    uint16_t const reserved = static_cast<uint16_t>((1u << width) - 1);
    std::map<Labels, Pairs> byList;
    for (auto const& [key, labels] : split->plainLabelListMap()->plainLabelList()) {
      auto const* pairs = encoder->encodedLabelList(key);
      ASSERT_TRUE(pairs);
      auto const hits = matched(width, pairsOf(*pairs));
      EXPECT_FALSE(hits.contains(reserved));
      for (auto const& [plain, encoded] : encoder->plainToEncodedLabel())
        EXPECT_EQ(hits.contains(encoded.value()), labels->labelHas(plain));
      Labels numbers;
      for (PlainLabel l : labels->label()) numbers.push_back(l.value());
      auto const [at, fresh] = byList.emplace(numbers, pairsOf(*pairs));
      EXPECT_EQ(at->second, pairsOf(*pairs)) << "equal lists, equal pairs";
    }
    EXPECT_EQ(encoder->loaderInfo()->rangeToEncodedLabelMap().size(),
              split->rangeToPlainLabelMap().size());
  }
}

TEST(Encoder, WithoutAWidthRawValuesAreMatchedInTheFieldsOwnWidth) {
  struct Case {
    char const* filter;
    char const* wanted;
  };
  for (auto const& [filter, wanted] : {Case{"sport 80", "sport=80/65535"},
                                       {"dport 1024-65535", ""},
                                       {"icmp 8", "icmpType=8/255"},
                                       {"proto 6-7", "proto=6/254"},
                                       {"len 0-1023", "length=0/64512"},
                                       {"frag 1", "fragment=1/8191"},
                                       {"dscp 32-63", "dscp=32/32"},
                                       {"dscp 0,1,2-3", "dscp=0/60"},
                                       {"proto 0-255", ""}}) {
    SCOPED_TRACE(filter);
    World w(std::string("a 1 A ") + filter);
    EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess);
    std::string const got = dump(w.tables());
    if (std::string(filter) == "dport 1024-65535")
      EXPECT_EQ(w.tables().pdAclColl()->numFilters(), 6u) << got;
    else
      EXPECT_EQ(got, std::string("acl a ipv4 1:") + (*wanted ? " " : "") + wanted + "\n");
    for (RangeSetType t : allRangeSetTypes())
      EXPECT_FALSE(w.root->rangeEncoderStatus(t)->loaderInfo());
  }
}

TEST(Encoder, TheCombinationThatMostRulesUseIsPlacedFirst) {
  World w(
      "a 10 r sport 1 dport 5\n"
      "a 20 s sport 7 dport 8\n"
      "a 30 t sport 7 dport 8 drop\n");
  for (RangeSetType type : {RangeSetType::srcPort, RangeSetType::dstPort})
    w.capability->rangeXformWidthIs(type, 4);
  w.capability->comboXformWidthIs(ComboLabelSetType::srcDstL4Port, 4);
  ASSERT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess) << w.failureText();
  auto const entryOf = [&](uint32_t rule) {
    return w.tables()
        .pdAclColl()
        ->pdAcl(PDAclKey(Lumox::ipv4(), "a"))
        ->rule(AceIndex(rule))
        ->filter()
        .items()[0];
  };
  EXPECT_EQ(entryOf(20).portCombo().label(), EncodedLabel(0));
  EXPECT_FALSE(entryOf(10).portCombo().matches(0));
}

TEST(EncoderDeathTest, PrefixEncodersNeedAWidth) {
  GTEST_FLAG_SET(death_test_style, "fast");
  World w;
  w.capability->prefixXformWidthIs({Lumox::ipv6(), false}, 0);
  EXPECT_DEATH(w.buildRoot(), "encodeBitWidth\\(\\)");
  EXPECT_DEATH(naturalBitWidth(RangeSetType::rangeSetMax), "false && \"Unknown rangeSet type\"");
}
