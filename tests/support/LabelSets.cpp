#include "support/LabelSets.h"

#include "naxel/encoder/NaxelLabelEncoderSm.h"
#include "support/Vocabulary.h"

#include <algorithm>
#include <bit>
#include <set>

namespace Test {

using namespace Naxel;

namespace {

using Pieces = std::vector<uint32_t>;  // ascending

LabelSets labelled(std::vector<Pieces> const& lists, Dice& dice) {
  std::map<uint32_t, std::vector<size_t>> listsOf;  // of each piece
  for (size_t i = 0; i < lists.size(); ++i)
    for (uint32_t piece : lists[i]) listsOf[piece].push_back(i);
  LabelSets out(lists.size());
  for (LabelSet& set : out) set.uses = static_cast<uint32_t>(dice.between(1, 9));
  std::set<std::vector<size_t>> seen;
  for (auto const& [piece, with] : listsOf)
    if (seen.insert(with).second)
      for (size_t i : with) out[i].labels.push_back(static_cast<uint32_t>(seen.size()));
  return out;
}

}  // namespace

LabelSets nestedSets(uint64_t seed, uint32_t sets, uint32_t pieces, uint32_t fanout) {
  SeededDice dice(seed);
  std::vector<Pieces> lists(1);
  for (uint32_t piece = 0; piece < pieces; ++piece) lists[0].push_back(piece);
  for (size_t i = 0; i < lists.size() && lists.size() < sets; ++i) {
    if (lists[i].size() < 2) continue;
    std::set<uint64_t> cuts = {0, lists[i].size()};
    for (uint64_t k = dice.between(1, fanout); k > 0; --k)
      cuts.insert(dice.between(1, lists[i].size() - 1));
    for (auto cut = cuts.begin(); std::next(cut) != cuts.end() && lists.size() < sets; ++cut)
      if (!dice.oneIn(8)) {
        auto const from = lists[i].begin();
        lists.emplace_back(from + static_cast<ptrdiff_t>(*cut),
                           from + static_cast<ptrdiff_t>(*std::next(cut)));
      }
  }
  return labelled(lists, dice);
}

LabelSets sharingSets(uint64_t seed, uint32_t sets, uint32_t members, uint32_t pool) {
  SeededDice dice(seed);
  std::vector<Pieces> lists;
  while (lists.size() < sets) {
    std::set<uint32_t> chosen;
    while (chosen.size() < members) chosen.insert(static_cast<uint32_t>(dice.below(pool)));
    lists.emplace_back(chosen.begin(), chosen.end());
  }
  return labelled(lists, dice);
}

LabelSets portSets(uint64_t seed, uint32_t sets, uint32_t ranges, uint32_t longest) {
  SeededDice dice(seed);
  std::vector<std::map<uint32_t, uint32_t>> lists(sets);  // from the first to behind the last
  std::set<uint32_t> cuts;
  for (auto& list : lists)
    for (uint32_t i = 0; i < ranges; ++i) {
      auto const first = static_cast<uint32_t>(dice.below(65536));
      auto const end =
          static_cast<uint32_t>(std::min(first + dice.between(1, longest), uint64_t{65536}));
      list[first] = end;
      cuts.insert({first, end});
    }
  std::vector<Pieces> out;
  for (auto const& list : lists) {
    std::set<uint32_t> pieces;
    for (auto const& [first, end] : list) pieces.insert(cuts.find(first), cuts.find(end));
    out.emplace_back(pieces.begin(), pieces.end());
  }
  return labelled(out, dice);
}

EncoderInput::EncoderInput(LabelSets const& sets)
    : xform(Mox::makePtr<RangeSplitStatus>(RangeSetType::dstPort)) {
  for (size_t i = 0; i < sets.size(); ++i) {
    GenSetKey const key(i + 1);
    PlainLabelList& list = xform->plainLabelListMap()->plainLabelListIs(key);
    for (uint32_t label : sets[i].labels) list.labelIs(PlainLabel(label));
    if (sets[i].uses) usage->refCountIs(key).valueIs(sets[i].uses);
  }
}

EncodedSets encoded(LabelSets const& sets, uint32_t bitWidth) {
  EncoderInput const in(sets);
  auto const chip = Mox::makePtr<ChipHwCapability>(Obel::ChipId(0));
  chip->rangeXformWidthIs(RangeSetType::dstPort, bitWidth);
  auto const config = Mox::makePtr<RangeEncoderConfig>(in.xform, nullptr);
  auto const status = Mox::makePtr<RangeEncoderStatus>(RangeSetType::dstPort);
  Mox::TraceSink const traces = Mox::traceSinkIs({});
  rangeEncoderSmFactory(chip->chipId(), config, status, in.usage, chip)->doStartKick();
  Mox::traceSinkIs(traces);
  EncodedSets out;
  out.fits = status->status() == StageStatusType::finishedSuccess;
  if (!out.fits) return out;
  for (auto const& [label, value] : status->plainToEncodedLabel())
    out.values[label.value()] = value.value();
  for (size_t i = 0; i < sets.size(); ++i) {
    out.pairs.push_back(status->encodedLabelList(GenSetKey(i + 1))->encLabelAndMask().items());
    out.cost += uint64_t{sets[i].uses} * out.pairs[i].size();
  }
  std::set<uint32_t> placed;
  RefCntCostModel const order(config, in.usage);
  for (auto const& visit : order.visits()) {
    uint32_t fresh = 0;
    for (PlainLabel label : visit.list->label()) fresh += placed.insert(label.value()).second;
    auto const old = static_cast<uint32_t>(visit.list->label().size()) - fresh;
    uint32_t const filled = fresh ? std::bit_ceil(fresh) : 0;
    auto const pairs = std::min(std::popcount(old) + (fresh > 0), std::popcount(old + filled));
    out.least += uint64_t{visit.uses} * static_cast<uint32_t>(pairs);
  }
  return out;
}

}  // namespace Test
