#include "support/LabelSets.h"

#include "naxel/encoder/CostModel.h"
#include "naxel/encoder/EncodedLabelAllocator.h"
#include "naxel/encoder/LabelArrangement.h"
#include "naxel/encoder/Mergers.h"

#include <algorithm>
#include <bit>
#include <map>
#include <set>

namespace Test {

using namespace Naxel;

namespace {

using Pieces = std::vector<uint32_t>;  // ascending

LabelSets labelled(std::vector<Pieces> const& lists, SmallRandom& random) {
  std::map<uint32_t, std::vector<uint32_t>> setsOf;  // of each piece
  for (uint32_t i = 0; i < lists.size(); ++i)
    for (uint32_t piece : lists[i]) setsOf[piece].push_back(i);
  std::map<std::vector<uint32_t>, uint32_t> labelOf;
  LabelSets out;
  out.sets.resize(lists.size());
  for (auto& set : out.sets) set.uses = 1 + random.below(9);
  for (auto const& [piece, sets] : setsOf)
    if (labelOf.emplace(sets, labelOf.size() + 1).second)
      for (uint32_t i : sets) out.sets[i].labels.push_back(labelOf[sets]);
  std::erase_if(out.sets, [](auto const& set) { return set.labels.empty(); });
  return out;
}

uint32_t pairs(uint32_t bitWidth, std::vector<EncodedLabelRange> const& ranges) {
  auto const in = Mox::makePtr<EncodedLabelWithMaskList>(GenSetKey(1));
  RangeMerger merger(bitWidth, in);
  for (auto const& r : ranges) merger.doMergeRange(r.start().value(), r.end().value());
  auto const out = Mox::makePtr<EncodedLabelWithMaskList>(GenSetKey(1));
  LabelMerger const joined(bitWidth, in, out);
  return static_cast<uint32_t>(out->encLabelAndMask().size());
}

EncodedLabelRange single(uint32_t value) {
  EncodedLabel const e(static_cast<uint16_t>(value));
  return {e, e};
}

/// One set on its way: which labels it brings, their values and its blocks.
struct PlacedSet {
  LabelSets::Set const* set;
  Pieces fresh;
  std::vector<uint16_t> values;  // of the fresh labels, ascending
  std::vector<EncodedLabelRange> blocks;
};
using Values = std::map<uint32_t, uint32_t>;  // of the labels

std::vector<PlacedSet> placedSets(LabelSets const& sets, GenSetCostModel const& model,
                                  EncodedLabelAllocStatus const& alloc, Values const& values) {
  std::vector<PlacedSet> out;
  std::set<uint32_t> seen;
  for (auto const& visit : model.visits()) {
    GenSetKey const key = visit.list->key();
    PlacedSet p{&sets.sets[key.value() - 1], {}, {}, {}};
    std::set<uint32_t> old;
    for (uint32_t label : p.set->labels)
      if (seen.insert(label).second) {
        p.fresh.push_back(label);
        p.values.push_back(static_cast<uint16_t>(values.at(label)));
      } else {
        old.insert(values.at(label));
      }
    std::sort(p.values.begin(), p.values.end());
    for (auto const& range : (*alloc.keyToEncLabelList().get(key))->encLabelRange())
      if (!old.contains(range.start().value())) p.blocks.push_back(range);
    out.push_back(std::move(p));
  }
  return out;
}

/// The labels of a set against those of all sets after it, as LabelLayout sees them.
LabelOrder joinedOrder(std::vector<PlacedSet> const& sets, size_t at) {
  Pieces const& fresh = sets[at].fresh;
  std::vector<LabelShare> shares;
  std::vector<uint16_t> members;
  for (size_t later = at + 1; later < sets.size(); ++later) {
    auto const begin = static_cast<uint32_t>(members.size());
    for (uint32_t label : sets[later].set->labels)
      if (auto const i = std::lower_bound(fresh.begin(), fresh.end(), label);
          i != fresh.end() && *i == label)
        members.push_back(static_cast<uint16_t>(i - fresh.begin()));
    auto const size = static_cast<uint32_t>(members.size()) - begin;
    if (size > 1 && size < fresh.size())
      shares.push_back({begin, size, sets[later].set->uses});
    else
      members.resize(begin);
  }
  LabelGroup const group{sets[at].values, shares, members};
  return joinOrder(group, LabelSplit(group));
}

uint64_t costOf(std::vector<PlacedSet> const& sets, Values const& values, uint32_t bitWidth) {
  uint64_t cost = 0;
  std::map<Pieces, uint32_t> pairsOf;
  for (PlacedSet const& p : sets) {
    auto const [same, first] = pairsOf.try_emplace(p.set->labels);
    if (first) {
      std::vector<EncodedLabelRange> ranges = p.blocks;
      for (uint32_t label : p.set->labels)
        if (!std::ranges::binary_search(p.fresh, label)) ranges.push_back(single(values.at(label)));
      same->second = pairs(bitWidth, ranges);
    }
    cost += uint64_t{p.set->uses} * same->second;
  }
  return cost;
}

}  // namespace

uint32_t SmallRandom::below(uint32_t n) {
  state_ += 0x9e3779b97f4a7c15u;
  uint64_t x = state_;
  x = (x ^ x >> 30) * 0xbf58476d1ce4e5b9u;
  x = (x ^ x >> 27) * 0x94d049bb133111ebu;
  return static_cast<uint32_t>((x ^ x >> 31) >> 32) % n;
}

Mox::Ptr<EncoderConfig> LabelSets::config() const {
  auto const status = Mox::makePtr<XformStatus>();
  for (size_t i = 0; i < sets.size(); ++i)
    for (uint32_t l : sets[i].labels)
      status->plainLabelListMap()->plainLabelListIs(GenSetKey(i + 1)).labelIs(PlainLabel(l));
  return encoderConfigFactory(status);
}

Mox::Ptr<GenSetUsageInfo> LabelSets::usage() const {
  auto const info = Mox::makePtr<GenSetUsageInfo>();
  for (size_t i = 0; i < sets.size(); ++i)
    if (sets[i].uses) info->refCountIs(GenSetKey(i + 1)).valueIs(sets[i].uses);
  return info;
}

LabelSets nestedSets(uint64_t seed, uint32_t sets, uint32_t pieces, uint32_t fanout) {
  SmallRandom random(seed);
  std::vector<std::pair<uint32_t, uint32_t>> lists = {{0, pieces}};
  for (size_t i = 0; i < lists.size() && lists.size() < sets; ++i) {
    auto const [begin, end] = lists[i];
    if (end - begin < 2) continue;
    std::set<uint32_t> cuts = {begin, end};
    for (uint32_t k = 1 + random.below(fanout); k > 0; --k)
      cuts.insert(begin + 1 + random.below(end - begin - 1));
    for (auto cut = cuts.begin(); std::next(cut) != cuts.end() && lists.size() < sets; ++cut)
      if (random.below(8)) lists.emplace_back(*cut, *std::next(cut));
  }
  std::vector<Pieces> out;
  for (auto const& [begin, end] : lists) {
    out.emplace_back();
    for (uint32_t piece = begin; piece < end; ++piece) out.back().push_back(piece);
  }
  return labelled(out, random);
}

LabelSets sharingSets(uint64_t seed, uint32_t sets, uint32_t members, uint32_t pool) {
  SmallRandom random(seed);
  std::vector<Pieces> out;
  while (out.size() < sets) {
    std::set<uint32_t> chosen;
    while (chosen.size() < members) chosen.insert(random.below(pool));
    out.emplace_back(chosen.begin(), chosen.end());
  }
  return labelled(out, random);
}

LabelSets portSets(uint64_t seed, uint32_t sets, uint32_t ranges, uint32_t longest) {
  SmallRandom random(seed);
  std::vector<std::vector<std::pair<uint32_t, uint32_t>>> lists(sets);
  std::set<uint32_t> cuts;
  for (auto& list : lists)
    for (uint32_t i = 0; i < ranges; ++i) {
      uint32_t const first = random.below(65536);
      uint32_t const end = std::min(first + 1 + random.below(longest), 65536u);
      list.emplace_back(first, end);
      cuts.insert({first, end});
    }
  std::vector<Pieces> out;
  for (auto const& list : lists) {
    std::set<uint32_t> pieces;
    for (auto const& [first, end] : list) pieces.insert(cuts.find(first), cuts.find(end));
    out.emplace_back(pieces.begin(), pieces.end());
  }
  return labelled(out, random);
}

LabelSets mixed(LabelSets const& a, LabelSets const& b) {
  LabelSets out = a;
  uint32_t last = 0;
  for (auto const& set : a.sets) last = std::max(last, set.labels.back());
  for (auto set : b.sets) {
    for (uint32_t& label : set.labels) label += last;
    out.sets.push_back(std::move(set));
  }
  return out;
}

EncodedCost encodedCost(LabelSets const& sets, uint32_t bitWidth) {
  auto const config = sets.config();
  auto const model = Mox::makePtr<RefCntCostModel>(config, sets.usage());
  auto const status = encoderStatusFactory();
  auto const alloc = Mox::makePtr<EncodedLabelAllocStatus>();
  EncodedLabelAllocator const allocator(bitWidth, config, model, status, alloc, 1);
  Values reached;
  for (auto const& [plain, encoded] : status->plainToEncodedLabel())
    reached[plain.value()] = encoded.value();
  std::vector<PlacedSet> const placed = placedSets(sets, *model, *alloc, reached);
  Values ascending;
  Values joined;
  EncodedCost cost;
  for (size_t i = 0; i < placed.size(); ++i) {
    PlacedSet const& p = placed[i];
    LabelOrder const order = joinedOrder(placed, i);
    for (size_t k = 0; k < p.fresh.size(); ++k) {
      ascending[p.fresh[k]] = p.values[k];
      joined[p.fresh[order[k]]] = p.values[k];
    }
    auto const fresh = static_cast<uint32_t>(p.fresh.size());
    auto const old = static_cast<uint32_t>(p.set->labels.size()) - fresh;
    uint32_t const filled = fresh ? std::bit_ceil(fresh) : 0;
    cost.least +=
        uint64_t{p.set->uses} * static_cast<uint32_t>(std::min(std::popcount(old) + (fresh > 0),
                                                               std::popcount(old + filled)));
  }
  cost.ascending = costOf(placed, ascending, bitWidth);
  cost.joined = costOf(placed, joined, bitWidth);
  cost.reached = costOf(placed, reached, bitWidth);
  cost.values = std::move(reached);
  return cost;
}

}  // namespace Test
