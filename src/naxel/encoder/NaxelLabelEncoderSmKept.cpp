/// What an encoder reads of the table in force, and what it leaves with its own for the next kick.

#include "mox/Assert.h"
#include "naxel/encoder/NaxelLabelEncoderSm.h"
#include "naxel/encoder/compact/CodeTable.h"
#include "naxel/encoder/compact/KeptCode.h"

#include <algorithm>
#include <utility>

namespace Naxel {

namespace {

/// Has the label that most of a code's items are of take the code; of equals the one that comes first. A vote of an item is
/// its label, the code that it has in force, and its place.
void giveByVotes(std::vector<uint64_t> votes, uint32_t bits, std::vector<uint32_t>& codes) {
  if (votes.empty()) return;
  std::ranges::sort(votes);
  struct Count {
    uint64_t order;  // most items first, then by place
    uint32_t vote;
  };
  std::vector<Count> counts;
  counts.reserve(votes.size());
  for (uint64_t v : votes) {
    auto const vote = static_cast<uint32_t>(v >> 32);
    if (counts.empty() || counts.back().vote != vote)
      counts.push_back({~uint64_t{0} << 32 | (v & 0xffffffffu), vote});
    counts.back().order -= uint64_t{1} << 32;
  }
  std::ranges::sort(counts, {}, &Count::order);
  Compact::CodeMap given(bits);
  for (Count const& c : counts) {
    uint32_t& to = codes[c.vote >> 16];
    Compact::Cube const code{static_cast<uint16_t>(c.vote), 0};
    if (to != Compact::SetFamily::none || given.meets(code)) continue;
    to = code.value;
    given.insert(code);
  }
}

}  // namespace

Compact::LabelsInForce LabelEncoderSm::labelsInForce(std::vector<uint32_t> const& number,
                                                     uint32_t labels) const {
  constexpr uint32_t none = Compact::SetFamily::none;
  constexpr uint32_t several = none - 1;
  Compact::LabelsInForce out{
      std::vector<uint32_t>(labels, none), std::vector<uint32_t>(labels), {}};
  // A vote is one word, so that sorting is cheap: label, code and place.
  std::vector<uint64_t> votes;
  Compact::CodeMap stands(encodeBitWidth_);
  // Of each code its label: most have one, whose only code it is.
  Compact::CodeTable<uint32_t> labelOf(encodeBitWidth_, none);
  auto const claim = [](uint32_t& of, uint32_t by) { of = of == none || of == by ? by : several; };
  walkInForce({[&](PlainLabel label, std::optional<EncodedLabel> code) {
                 uint32_t const l = label.value() < number.size() ? number[label.value()] : none;
                 if (l == none) return;
                 ++out.rows[l];
                 if (!code || *code == reservedLabel()) return;
                 votes.push_back(uint64_t{l} << 48 | uint64_t{code->value()} << 32 | votes.size());
                 claim(out.codes[l], code->value());
                 claim(labelOf.at(code->value()), l);
               },
               [&](EncodedLabel code) {
                 stands.insert({code.value(), 0});
               }});
  std::erase_if(votes, [&](uint64_t v) {
    return out.codes[v >> 48] != several && labelOf[v >> 32 & 0xffffu] != several;
  });
  for (uint64_t v : votes) out.codes[v >> 48] = none;
  giveByVotes(std::move(votes), encodeBitWidth_, out.codes);
  for (uint32_t code : out.codes)
    if (code != none) stands.erase({static_cast<uint16_t>(code), 0});
  stands.erase({reservedLabel().value(), 0});
  stands.forEach(Compact::blockCube(0, encodeBitWidth_), [&](uint32_t code) {
    out.vacated.push_back(static_cast<uint16_t>(code));
    return true;
  });
  return out;
}

void LabelEncoderSm::keepIn(KeepsSets& info) {
  made_.reset();
  if (!keeps_) return;
  auto const kept = std::make_shared<Compact::KeptSets>();
  auto const full = static_cast<uint16_t>((1u << encodeBitWidth_) - 1);
  auto const& lists = encoderConfig().xformStatus()->plainLabelListMap()->plainLabelList();
  // Of the run at hand; behind it, when its other code is published, they stand with what it was built from.
  std::vector<uint32_t> const& uses =
      now_.uses.size() == lists.size() ? now_.uses : builtFrom_.uses;
  MOX_ASSERT(uses.size() == lists.size());
  struct Filled {
    PlainLabelList const* labels;
    EncodedLabelWithMaskList::Pairs const* pairs;
  };
  std::vector<Filled> filled;
  filled.reserve(lists.size());
  auto published = status_->encodedLabelList().begin();
  auto use = uses.begin();
  for (auto const& [key, list] : lists) {
    uint64_t const used = *use++;
    if (list->label().empty()) continue;
    while (published->first < key) ++published;
    auto const& pairs = published->second->encLabelAndMask();
    kept->now.uses += used;
    kept->now.cubes += used * pairs.size();
    filled.push_back({list, &pairs});
  }
  kept->reserve(firsts_.size());
  for (size_t i = 0; i < firsts_.size(); ++i) {
    size_t const set = firsts_[i];
    for (PlainLabel l : filled[set].labels->label())
      kept->addCode(status_->encodedLabelOf(l).value());
    for (EncodedLabelWithMask const& pair : *filled[set].pairs)
      kept->addCube({static_cast<uint16_t>(pair.label().value() & pair.mask().value()),
                     static_cast<uint16_t>(full & ~pair.mask().value())});
    kept->end(resists_[i]);
  }
  kept->fresh = keptFrom_ ? keptFrom_->fresh : kept->now;
  kept->triedAgain = triedAgain_;
  made_ = kept;
  info.keptSetsIs(kept);
}

}  // namespace Naxel
