#include "support/LabelSets.h"

#include "naxel/encoder/NaxelLabelEncoderSm.h"
#include "support/TraceLog.h"
#include "support/Vocabulary.h"

#include <algorithm>
#include <bit>
#include <set>

namespace Test {

using namespace Naxel;

namespace {

/// From the first piece to behind the last.
using Span = std::pair<uint32_t, uint32_t>;

LabelSets labelled(std::vector<std::vector<Span>> const& lists, Dice& dice) {
  std::map<uint32_t, std::set<size_t>> listsOf;  // of each piece, by where it begins
  for (auto const& list : lists)
    for (auto const& [from, to] : list) listsOf[from], listsOf[to];
  for (size_t i = 0; i < lists.size(); ++i)
    for (auto const& [from, to] : lists[i])
      for (auto at = listsOf.find(from); at->first != to; ++at) at->second.insert(i);
  LabelSets out(lists.size());
  for (LabelSet& set : out) set.uses = static_cast<uint32_t>(dice.between(1, 9));
  std::set<std::set<size_t>> seen;
  for (auto const& [piece, with] : listsOf)
    if (!with.empty() && seen.insert(with).second)
      for (size_t i : with) out[i].labels.push_back(static_cast<uint32_t>(seen.size()));
  return out;
}

}  // namespace

LabelSets nestedSets(uint64_t seed, uint32_t sets, uint32_t pieces, uint32_t fanout) {
  Dice dice(seed);
  std::vector<std::vector<Span>> lists = {{{0, pieces}}};
  for (size_t i = 0; i < lists.size() && lists.size() < sets; ++i) {
    auto const [from, to] = lists[i][0];
    if (to - from < 2) continue;
    std::set<uint32_t> cuts = {from, to};
    for (uint64_t k = dice.between(1, fanout); k > 0; --k)
      cuts.insert(static_cast<uint32_t>(from + dice.between(1, to - from - 1)));
    for (auto cut = cuts.begin(); std::next(cut) != cuts.end() && lists.size() < sets; ++cut)
      if (!dice.oneIn(8)) lists.push_back({{*cut, *std::next(cut)}});
  }
  return labelled(lists, dice);
}

LabelSets sharingSets(uint64_t seed, uint32_t sets, uint32_t members, uint32_t pool) {
  Dice dice(seed);
  std::vector<std::vector<Span>> lists(sets);
  for (auto& list : lists) {
    std::set<uint32_t> chosen;
    while (chosen.size() < members) chosen.insert(static_cast<uint32_t>(dice.below(pool)));
    for (uint32_t piece : chosen) list.emplace_back(piece, piece + 1);
  }
  return labelled(lists, dice);
}

LabelSets portSets(uint64_t seed, uint32_t sets, uint32_t ranges, uint32_t longest) {
  Dice dice(seed);
  std::vector<std::vector<Span>> lists(sets);
  for (auto& list : lists)
    for (uint32_t i = 0; i < ranges; ++i) {
      auto const first = static_cast<uint32_t>(dice.below(65536));
      auto const length = static_cast<uint32_t>(dice.between(1, longest));
      list.emplace_back(first, std::min(first + length, 65536u));
    }
  return labelled(lists, dice);
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
  TraceLog const quiet;
  rangeEncoderSmFactory(chip->chipId(), config, status, in.usage, chip)->doStartKick();
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
