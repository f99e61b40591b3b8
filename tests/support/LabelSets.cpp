#include "support/LabelSets.h"

#include "naxel/encoder/CostModel.h"
#include "naxel/encoder/EncodedLabelAllocator.h"
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

uint32_t pairs(uint32_t bitWidth, EncodedLabelRangeList const& ranges) {
  auto const in = Mox::makePtr<EncodedLabelWithMaskList>(ranges.key());
  RangeMerger merger(bitWidth, in);
  for (auto const& r : ranges.encLabelRange())
    merger.doMergeRange(r.start().value(), r.end().value());
  auto const out = Mox::makePtr<EncodedLabelWithMaskList>(ranges.key());
  LabelMerger const joined(bitWidth, in, out);
  return static_cast<uint32_t>(out->encLabelAndMask().size());
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
  EncodedCost cost;
  std::map<uint32_t, uint32_t> ascending;  // value of each label
  std::map<std::vector<uint32_t>, std::pair<uint32_t, uint32_t>> pairsOf;
  for (GenSetKey key : model->visitOrder()) {
    auto const& set = sets.sets[key.value() - 1];
    auto const valueOf = [&](uint32_t label) {
      return uint32_t{status->plainToEncodedLabel().get(PlainLabel(label))->value()};
    };
    EncodedLabelRangeList plain(key);
    std::vector<uint32_t> fresh;
    std::vector<uint32_t> values;
    std::set<uint32_t> placed;
    for (uint32_t label : set.labels)
      if (auto const found = ascending.find(label); found != ascending.end()) {
        EncodedLabel const value(static_cast<uint16_t>(found->second));
        plain.encLabelRangeIs({value, value});
        placed.insert(valueOf(label));
      } else {
        fresh.push_back(label);
        values.push_back(valueOf(label));
      }
    std::sort(values.begin(), values.end());
    for (size_t i = 0; i < fresh.size(); ++i) ascending[fresh[i]] = values[i];
    auto const& ranges = *alloc->keyToEncLabelList().get(key);
    for (auto const& range : ranges->encLabelRange())
      if (!placed.contains(range.start().value())) plain.encLabelRangeIs(range);
    auto const [same, first] = pairsOf.try_emplace(set.labels);
    if (first) same->second = {pairs(bitWidth, plain), pairs(bitWidth, *ranges)};
    cost.ascending += uint64_t{set.uses} * same->second.first;
    cost.reached += uint64_t{set.uses} * same->second.second;
    auto const old = static_cast<uint32_t>(placed.size());
    uint32_t const filled = fresh.empty() ? 0 : std::bit_ceil(static_cast<uint32_t>(fresh.size()));
    cost.least +=
        uint64_t{set.uses} * static_cast<uint32_t>(std::min(std::popcount(old) + !fresh.empty(),
                                                            std::popcount(old + filled)));
  }
  return cost;
}

}  // namespace Test
