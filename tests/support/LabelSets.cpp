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

std::string codeFault(EncoderStatus const& status, PlainLabelListMap const& lists, uint32_t width) {
  uint32_t const highest = (1u << width) - 1;
  std::vector<uint32_t> codes = {highest};  // that pairs are tried with
  std::vector<PlainLabel> labels;           // of the codes, from the second on
  std::set<uint32_t> listed;
  for (auto const& [key, list] : lists.plainLabelList())
    for (PlainLabel l : list->label()) {
      if (!listed.insert(l.value()).second) continue;
      EncodedLabel const* const code = status.encodedLabel(l);
      if (!code) return "label " + Mox::valueToStrep(l) + " has no code";
      if (code->value() >= highest)
        return "code " + Mox::valueToStrep(*code) + " is not below the highest";
      codes.push_back(code->value());
      labels.push_back(l);
    }
  if (std::set<uint32_t>(codes.begin(), codes.end()).size() < codes.size())
    return "two labels have the same code";
  for (auto const& [label, code] : status.plainToEncodedLabel())
    if (!listed.contains(label.value()) && code.value() != highest)
      return "a label of no list has code " + Mox::valueToStrep(code);
  for (auto const& [key, pairs] : status.encodedLabelList())
    if (!lists.plainLabelList(key)) return "pairs for no list";
  std::map<std::vector<PlainLabel>, EncodedLabelWithMaskList const*> firsts;
  for (auto const& [key, list] : lists.plainLabelList()) {
    std::string const name = "set " + Mox::valueToStrep(key) + ": ";
    EncodedLabelWithMaskList const* const pairs = status.encodedLabelList(key);
    if (!pairs) {
      if (list->label().empty()) continue;
      return name + "no pairs";
    }
    std::vector<bool> matched(codes.size(), false);
    for (EncodedLabelWithMask const& pair : pairs->encLabelAndMask()) {
      if (pair.mask().value() > highest || pair.label().value() & ~pair.mask().value())
        return name + "a pair of other bits than those of its mask";
      for (size_t i = 0; i < codes.size(); ++i)
        if (pair.matches(codes[i])) matched[i] = true;
    }
    if (matched[0]) return name + "matches the highest code";
    for (size_t i = 1; i < codes.size(); ++i)
      if (matched[i] != list->labelHas(labels[i - 1]))
        return name + (matched[i] ? "matches" : "does not match") + " code " +
               std::to_string(codes[i]);
    if (pairs->encLabelAndMask().size() > list->label().size())
      return name + "more pairs than labels";
    auto const* const first =
        firsts.try_emplace({list->label().begin(), list->label().end()}, pairs).first->second;
    if (!(first->encLabelAndMask() == pairs->encLabelAndMask()))
      return name + "other pairs than an equal set";
  }
  return {};
}

namespace {

/// An encoder that has both codes changes to the aligned one and back, and to each a second time.
std::string exchangeFault(LabelEncoderSm& encoder, RangeEncoderStatus& status,
                          PlainLabelListMap const& lists, uint32_t width) {
  using Code = Acl::LabelCode;
  std::map<Code, std::vector<size_t>> sizes;
  std::map<Code, EncoderStatus::LabelMap> labels = {{Code::compact, status.plainToEncodedLabel()}};
  for (Code code : {Code::aligned, Code::aligned, Code::compact, Code::compact}) {
    encoder.codeIs(code);
    if (status.labelCode() != code) return "; does not change its code";
    if (std::string const fault = codeFault(status, lists, width); !fault.empty())
      return "; after a change: " + fault;
    if (labels.try_emplace(code, status.plainToEncodedLabel()).first->second !=
        status.plainToEncodedLabel())
      return "; comes back with other labels";
    sizes[code].clear();
    for (auto const& [key, list] : status.encodedLabelList()) {
      sizes[code].push_back(list->encLabelAndMask().size());
      if (list->pairsBy(code) != sizes[code].back()) return "; counts its own pairs wrongly";
    }
  }
  size_t i = 0;
  for (auto const& [key, list] : status.encodedLabelList())
    if (list->pairsBy(Code::aligned) != sizes[Code::aligned][i++])
      return "; counts the other pairs wrongly";
  return {};
}

}  // namespace

EncodedSets encoded(LabelSets const& sets, uint32_t width, Acl::LabelCode code) {
  EncoderInput const in(sets);
  PlainLabelListMap const& lists = *in.xform->plainLabelListMap();
  auto const chip = Mox::makePtr<ChipHwCapability>(Obel::ChipId(0));
  chip->rangeXformWidthIs(RangeSetType::dstPort, width);
  auto const config = Mox::makePtr<RangeEncoderConfig>(in.xform, nullptr);
  config->labelCodeIs(code);
  auto const status = Mox::makePtr<RangeEncoderStatus>(RangeSetType::dstPort);
  TraceLog const quiet;
  auto const encoder = rangeEncoderSmFactory(chip->chipId(), config, status, in.usage, chip);
  encoder->doStartKick();
  EncodedSets out;
  out.fits = status->status() == StageStatusType::finishedSuccess;
  if (!out.fits) return out;
  out.fault = codeFault(*status, lists, width);
  for (auto const& [label, value] : status->plainToEncodedLabel())
    out.values[label.value()] = value.value();
  bool several = false;
  for (size_t i = 0; i < sets.size(); ++i) {
    out.pairs.push_back(status->encodedLabelList(GenSetKey(i + 1))->encLabelAndMask().items());
    out.cost += uint64_t{sets[i].uses} * out.pairs[i].size();
    several |= out.pairs[i].size() > 1;
  }
  if (status->labelCode() != code) out.fault += "; published is another code";
  if (encoder->hasBothCodes() != (several && code == Acl::LabelCode::compact))
    out.fault += "; both codes or one, at the wrong time";
  if (encoder->hasBothCodes()) out.fault += exchangeFault(*encoder, *status, lists, width);
  if (code == Acl::LabelCode::compact) {
    for (LabelSet const& set : sets) out.least += set.labels.empty() ? 0 : set.uses;
    return out;
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
