#include "naxel/encoder/NaxelLabelEncoderSm.h"

#include "mox/Assert.h"
#include "naxel/encoder/PairMerge.h"
#include "naxel/encoder/WordHash.h"
#include "naxel/encoder/compact/KeptCode.h"
#include "naxel/encoder/compact/RoomyCode.h"
#include "naxel/genset/KeyPlaces.h"
#include "naxel/types/NaxelTrace.h"

#include <algorithm>
#include <utility>

namespace Naxel {

namespace {

/// A list by its labels alone.
struct SameLabels {
  PlainLabelList const* list = nullptr;
  bool operator==(SameLabels const& o) const { return list->label() == o.list->label(); }
  void placeWords(Mox::KeyedHash& h) const noexcept {
    for (PlainLabel l : list->label()) h.word(l.value());
  }
};

}  // namespace

uint32_t naturalBitWidth(RangeSetType type) {
  if (type >= RangeSetType::rangeSetMax) MOX_ASSERT(false && "Unknown rangeSet type");
  return rangeField(type).bits;
}

LabelEncoderSm::LabelEncoderSm(Obel::ChipId chipId, Mox::Ptr<EncoderConfig> config,
                               Mox::Ptr<EncoderStatus> status,
                               Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo,
                               Mox::Ptr<ChipHwCapability const> hwCapability)
    : StageSm(chipId, std::move(config), status),
      status_(std::move(status)),
      usage_(std::move(genSetUsageInfo)),
      hwCapability_(std::move(hwCapability)) {}

Mox::TraceLine LabelEncoderSm::traceStep(int level, char const* step) const {
  Mox::TraceLine line = trace(level);
  if (line) line << traceKey_ << step;
  return line;
}

Mox::Ptr<EncodedLabelWithMaskList> const& LabelEncoderSm::eLabelMaskIs(GenSetKey key) {
  return Mox::lookupOrMake(eLabelMask_, key,
                           [&] { return Mox::makePtr<EncodedLabelWithMaskList>(key); });
}

void LabelEncoderSm::doStartKick() {
  traceStep(8, "doStartKick");
  // Read anew by every kick: the agent may write the widths after this stage has been made, and change them
  // later.
  encodeBitWidthIs(currentBitWidth());
  doRunStage();
}

StageSm::Look LabelEncoderSm::doLook() {
  if (encodeBitWidth_ == 0) {
    traceStep(6, "doStartKick") << ": Not enabled";
    return {Look::At::off};
  }
  XformStatus const& xform = *encoderConfig().xformStatus();
  if (xform.outputUnusable()) return {Look::At::unusable, xform.unusableReason()};
  // A further condition and never enough: a kick that was cancelled behind the transform has swallowed the
  // word that something changed.
  bool const xformIdle = xform.status() == StageStatusType::finishedSkipped ||
                         xform.status() == StageStatusType::finishedNotEnabled;
  now_ = inputWithoutUses();
  if (xformIdle && isUnchanged(now_)) {
    traceStep(6, "doStartKick") << ": Unchanged working set, skipping";
    return {Look::At::unchanged};
  }
  return {Look::At::work};
}

void LabelEncoderSm::doClearOutput() {
  eLabelMaskDelAll();
  other_.reset();
  status_->plainToEncodedLabelDelAll();
  status_->encodedLabelListDelAll();
  doClearLoaderInfo();
}

std::optional<std::string> LabelEncoderSm::doWork() {
  // Not earlier: a kick that skips on equal stamps needs none of the counts.
  now_.uses = uses(now_);
  rememberMore();
  workHash_ = doBuildWorkingSetHash();
  other_.reset();
  keeps_ = now_.keeps;
  keptFrom_.reset();
  // Raw values are their own codes.
  code_ = now_.xform ? now_.code : Acl::LabelCode::aligned;
  // A failure here is repeated by the next kick on the same input: what was remembered is gone, so it
  // cannot turn into a skip and let the expander work from old pairs.
  if (!doEncode()) {
    traceStep(0, "doStartKick") << ": Generated too many encodedLabels";
    return failure_;
  }
  doMerge();
  if (code_ == Acl::LabelCode::compact && !keptFrom_) doEncodeOtherwise();
  doUpdateLoaderInfo();
  return std::nullopt;
}

void LabelEncoderSm::doEncodeOtherwise() {
  bool const least = std::ranges::all_of(
      eLabelMask_, [](auto const& item) { return item.second->encLabelAndMask().size() <= 1; });
  if (least) return;
  other_ = Encoding{code_, status_->plainToEncodedLabel(), status_->encodedLabelList()};
  code_ = Acl::LabelCode::aligned;
  // As many labels as have found their place by the other code.
  MOX_ASSERT(doEncode());
  doMerge();
  for (auto const& [key, list] : status_->encodedLabelList()) {
    auto const& compact = *other_->lists.get(key);
    auto const pairs = [](EncodedLabelWithMaskList const& of) {
      return static_cast<uint32_t>(of.encLabelAndMask().size());
    };
    for (auto* each : {list.get(), compact.get()}) each->pairsByIs(pairs(*list), pairs(*compact));
  }
  exchange();
}

void LabelEncoderSm::exchange() {
  Encoding now{code_, status_->plainToEncodedLabel(), status_->encodedLabelList()};
  status_->plainToEncodedLabelIs(std::move(other_->labels));
  status_->encodedLabelListIs(std::move(other_->lists));
  status_->labelCodeIs(code_ = other_->code);
  other_ = std::move(now);
}

void LabelEncoderSm::codeIs(Acl::LabelCode code) {
  if (!workingSetHash_ || encodeBitWidth_ == 0) return;
  bool const exchanges = other_ && code != code_;
  if (!exchanges && isMoreUnchanged()) return;
  // Until all of it is done the next kick must not take it for done.
  uint64_t const hash = *std::exchange(workingSetHash_, std::nullopt);
  if (exchanges) exchange();
  rememberMore();
  doUpdateLoaderInfo();
  workingSetHash_ = hash;
}

void LabelEncoderSm::doRemember() noexcept {
  builtFrom_ = std::move(now_);
  workingSetHash_ = workHash_;
}

LabelEncoderSm::Input LabelEncoderSm::inputWithoutUses() const {
  Input now;
  now.labelWidth = labelWidth();
  now.encodeBitWidth = encodeBitWidth_;
  now.code = encoderConfig().labelCode();
  now.rawSets = rawSets();
  // In raw mode the transform has no part in the pairs, whatever it has published.
  bool const raw = now.labelWidth == 0;
  now.xform = raw ? 0 : encoderConfig().xformStatus()->stamp();
  now.usage = usage_->stamp();
  now.keeps = !raw && encoderConfig().basis();
  if (now.keeps)
    if (KeepsSets const* const table = tableInForce()) now.basis = table->keptSets();
  return now;
}

std::vector<uint32_t> LabelEncoderSm::uses(Input const& input) const {
  std::vector<uint32_t> all;
  for (GenSetKey key : input.rawSets) all.push_back(usage_->refCountValue(key));
  if (!input.xform) return all;
  return usesOf(*encoderConfig().xformStatus()->plainLabelListMap(), *usage_);
}

bool LabelEncoderSm::isUnchanged(Input const& now) {
  if (!workingSetHash_) return false;
  Input const& then = builtFrom_;
  if (now.labelWidth != then.labelWidth || now.encodeBitWidth != then.encodeBitWidth ||
      now.code != then.code || now.xform != then.xform || now.rawSets != then.rawSets ||
      now.keeps != then.keeps)
    return false;
  if (now.basis != then.basis && now.basis != made_) return false;
  // Counted again, the sets may be used as often as before.
  if (now.usage != then.usage && uses(now) != then.uses) return false;
  // Learnt, so that the next kick sees equal stamps and does not count again.
  builtFrom_.usage = now.usage;
  return isMoreUnchanged();
}

uint64_t LabelEncoderSm::doBuildWorkingSetHash() const {
  WordHash lists;
  WordHash counts;
  lists.add(labelWidth());
  lists.add(encodeBitWidth_);
  lists.add(static_cast<uint64_t>(encoderConfig().labelCode()));
  lists.add(encoderConfig().basis() != nullptr);
  for (auto const& [key, list] :
       encoderConfig().xformStatus()->plainLabelListMap()->plainLabelList()) {
    lists.add(key.value());
    lists.add(list->contentHash());
  }
  for (uint32_t uses : now_.uses) counts.add(uses);
  return joinHalves(lists, counts);
}

bool LabelEncoderSm::doEncode() {
  traceStep(8, "doEncode");
  return code_ == Acl::LabelCode::aligned ? doEncodeAligned() : doEncodeCompact();
}

bool LabelEncoderSm::fits(uint64_t labels) {
  uint32_t const most = (1u << encodeBitWidth_) - 1;
  if (labels <= most) return true;
  failure_ = subject() + ": " + Mox::withCommas(labels) + " labels needed, label width " +
             std::to_string(encodeBitWidth_) + " has " + Mox::withCommas(most);
  return false;
}

bool LabelEncoderSm::doEncodeCompact() {
  auto const& lists = encoderConfig().xformStatus()->plainLabelListMap()->plainLabelList();
  uint32_t largest = 0;
  for (auto const& [key, list] : lists)
    if (!list->label().empty()) largest = std::max(largest, list->label().back().value());
  // Labels of no set have no code.
  std::vector<uint32_t> number(size_t{largest} + 1, 0);
  for (auto const& [key, list] : lists)
    for (PlainLabel l : list->label()) number[l.value()] = 1;
  uint32_t labels = 0;
  for (uint32_t& n : number) n = n ? labels++ : ~uint32_t{0};
  if (!fits(labels)) return false;
  Compact::SetFamily sets;
  std::vector<uint64_t> weights;
  weights.reserve(lists.size());
  for (size_t set = 0; set < lists.size(); ++set) {
    auto const& list = lists[set].second;
    if (list->label().empty()) continue;
    for (PlainLabel l : list->label()) sets.add(number[l.value()]);
    sets.end();
    weights.push_back(now_.uses[set]);
  }
  std::optional<Compact::Code> kept;
  if (now_.basis)
    kept = Compact::keptCode(sets, weights, labelsInForce(number, labels), *now_.basis,
                             encodeBitWidth_, encoderConfig().repairRows());
  if (kept) keptFrom_ = now_.basis;
  if (now_.basis && !kept) status_->encodedAfreshIs(status_->encodedAfresh() + 1);
  Compact::Code const code = kept ? std::move(*kept)
                             : now_.keeps
                                 ? Compact::roomyCode(sets, weights, labels, encodeBitWidth_)
                                 : Compact::compactCode(sets, weights, labels, encodeBitWidth_);

  auto const full = static_cast<uint16_t>((1u << encodeBitWidth_) - 1);
  eLabelMaskDelAll();
  eLabelMask_.reserve(lists.size());
  std::vector<EncodedLabelWithMask> pairs;
  auto cubes = code.cubes.begin();
  for (auto const& [key, list] : lists) {
    pairs.clear();
    if (!list->label().empty())
      for (Compact::Cube const& c : *cubes++)
        pairs.emplace_back(c.value, static_cast<uint16_t>(full & ~c.free));
    auto made = Mox::makePtr<EncodedLabelWithMaskList>(key);
    made->encLabelAndMaskIs(pairs);
    eLabelMask_.set(key, std::move(made));
  }
  std::vector<EncoderStatus::LabelMap::value_type> encoded;
  encoded.reserve(labels);
  for (uint32_t l = 0; l < number.size(); ++l)
    if (number[l] != ~uint32_t{0})
      encoded.emplace_back(PlainLabel(l), EncodedLabel(code.codes[number[l]]));
  EncoderStatus::LabelMap map;
  map.adopt(std::move(encoded));
  status_->plainToEncodedLabelIs(std::move(map));
  return true;
}

Compact::LabelsInForce LabelEncoderSm::labelsInForce(std::vector<uint32_t> const& number,
                                                     uint32_t labels) const {
  constexpr uint32_t none = Compact::SetFamily::none;
  Compact::LabelsInForce out{
      std::vector<uint32_t>(labels, none), std::vector<uint32_t>(labels), {}};
  // The label that most of a code's items are of is the code's; of equals the one that comes first. A vote is one word,
  // so that sorting is cheap: label, code and place.
  std::vector<uint64_t> votes;
  std::vector<bool> stands(size_t{1} << encodeBitWidth_, false);
  walkInForce({[&](PlainLabel label, std::optional<EncodedLabel> code) {
                 uint32_t const l = label.value() < number.size() ? number[label.value()] : none;
                 if (l == none) return;
                 ++out.rows[l];
                 if (code && *code != reservedLabel())
                   votes.push_back(uint64_t{l} << 48 | uint64_t{code->value()} << 32 |
                                   votes.size());
               },
               [&](EncodedLabel code) { stands[code.value()] = true; }});
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
  std::vector<bool> given(stands.size(), false);
  for (Count const& c : counts) {
    uint32_t const label = c.vote >> 16;
    uint32_t const code = c.vote & 0xffffu;
    if (out.codes[label] != none || given[code]) continue;
    out.codes[label] = code;
    given[code] = true;
  }
  for (uint32_t code = 0; code < stands.size(); ++code)
    if (stands[code] && !given[code] && code != reservedLabel().value())
      out.vacated.push_back(static_cast<uint16_t>(code));
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
  kept->sets.reserve(lists.size());
  auto published = status_->encodedLabelList().begin();
  auto use = uses.begin();
  for (auto const& [key, list] : lists) {
    uint64_t const used = *use++;
    if (list->label().empty()) continue;
    while (published->first < key) ++published;
    auto const& pairs = published->second->encLabelAndMask();
    kept->now.uses += used;
    kept->now.cubes += used * pairs.size();
    Compact::KeptSets::Set& set = kept->sets.emplace_back();
    for (PlainLabel l : list->label()) set.codes.push_back(status_->encodedLabelOf(l).value());
    std::ranges::sort(set.codes);
    for (EncodedLabelWithMask const& pair : pairs)
      set.cubes.push_back({static_cast<uint16_t>(pair.label().value() & pair.mask().value()),
                           static_cast<uint16_t>(full & ~pair.mask().value())});
    if (set.codes.size() == 1 && set.cubes.size() == 1 && !set.cubes[0].free) kept->sets.pop_back();
  }
  std::ranges::sort(kept->sets);
  kept->sets.erase(std::unique(kept->sets.begin(), kept->sets.end()), kept->sets.end());
  kept->fresh = keptFrom_ ? keptFrom_->fresh : kept->now;
  made_ = kept;
  info.keptSetsIs(kept);
}

bool LabelEncoderSm::doEncodeAligned() {
  Mox::Ptr<EncoderConfig const> const config(&encoderConfig());
  auto const allocStatus = Mox::makePtr<EncodedLabelAllocStatus>();
  auto const costModel = Mox::makePtr<RefCntCostModel>(config, now_.uses);
  auto const allocator =
      encodedLabelAllocatorFactory(encodeBitWidth_, config, costModel, status_, allocStatus, 1);
  if (allocStatus->status() == StageStatusType::finishedFailed)
    return fits(allocator->labelsNeeded());
  std::vector<GenSetKey> const keys =
      keysOf(config->xformStatus()->plainLabelListMap()->plainLabelList());
  KeyPlaces const places(keys);
  std::vector<Mox::Ptr<EncodedLabelWithMaskList>> pairs(keys.size());
  MOX_ASSERT(allocStatus->sets() == keys.size());
  // Sets that consist of the same labels get the pairs of the first of them in cost order: only that one has the
  // labels in blocks, and all of them match the same pieces.
  Mox::HashMap<SameLabels, EncodedLabelWithMaskList const*> firsts;
  std::vector<EncodedLabelWithMask> all;
  for (size_t set = 0; set < keys.size(); ++set) {
    GenSetKey const key = allocStatus->key(set);
    PlainLabelList const& labels = *costModel->visits()[set].list;
    Mox::Ptr<EncodedLabelWithMaskList>& list = pairs[places.at(key)];
    list = Mox::makePtr<EncodedLabelWithMaskList>(key);
    // One label is one pair whoever has placed it.
    bool const mayBeShared = labels.label().size() > 1;
    auto const* const first = mayBeShared ? firsts.get(SameLabels{&labels}) : nullptr;
    if (first) {
      list->encLabelAndMaskIs((*first)->encLabelAndMask());
      continue;
    }
    all.clear();
    for (EncodedLabelRange const& r : allocStatus->ranges(set))
      coverRange(encodeBitWidth_, r.start().value(), r.end().value(),
                 [&](EncodedLabelWithMask const& pair) { all.push_back(pair); });
    list->encLabelAndMaskIs(all);
    if (mayBeShared) firsts.insertAbsent({SameLabels{&labels}, list.get()});
  }
  eLabelMaskDelAll();
  eLabelMask_.reserve(keys.size());
  for (size_t i = 0; i < keys.size(); ++i) eLabelMask_.set(keys[i], std::move(pairs[i]));
  return true;
}

void LabelEncoderSm::doMerge() {
  traceStep(8, "doMerge");
  EncoderStatus::MaskListMap lists;
  lists.reserve(eLabelMask_.size());
  // One for all lists: it holds a word for each value of the width, which is more than most lists need.
  PairCounter scratch(encodeBitWidth_);
  // A list that says what it said stays the same object, so that the expander finds what is built from it. Not where
  // lists are about to be given both counts.
  bool const stays = code_ == Acl::LabelCode::aligned || keptFrom_;
  auto before = status_->encodedLabelList().begin();
  auto const last = status_->encodedLabelList().end();
  auto const add = [&](GenSetKey key, Mox::Ptr<EncodedLabelWithMaskList> const& list) {
    while (before != last && before->first < key) ++before;
    bool const same = stays && before != last && before->first == key &&
                      before->second->hasOneCode() &&
                      before->second->encLabelAndMask() == list->encLabelAndMask();
    lists.set(key, same ? before->second : list);
  };
  for (auto const& [key, pairs] : eLabelMask_) {
    if (pairs->encLabelAndMask().size() <= 1 || code_ == Acl::LabelCode::compact) {
      add(key, pairs);  // nothing to join
      continue;
    }
    auto merged = Mox::makePtr<EncodedLabelWithMaskList>(key);
    LabelMerger const labelMerger(encodeBitWidth_, pairs, merged, &scratch);
    add(key, merged);
  }
  status_->encodedLabelListIs(std::move(lists));
  status_->labelCodeIs(code_);
}

Mox::Ptr<LabelEncoderSm> labelEncoderSmFactory(Obel::ChipId chipId, Mox::Ptr<EncoderConfig> config,
                                               Mox::Ptr<EncoderStatus> status,
                                               Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo,
                                               Mox::Ptr<ChipHwCapability const> hwCapability) {
  return Mox::makePtr<LabelEncoderSm>(chipId, std::move(config), std::move(status),
                                      std::move(genSetUsageInfo), std::move(hwCapability));
}

}  // namespace Naxel
