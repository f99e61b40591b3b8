#include "naxel/encoder/NaxelLabelEncoderSm.h"

#include "mox/Assert.h"
#include "naxel/encoder/PairMerge.h"
#include "naxel/encoder/WordHash.h"
#include "naxel/encoder/compact/CompactCode.h"
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
  now.keeps = !raw && now.code == Acl::LabelCode::compact && encoderConfig().basis();
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
  std::optional<Compact::KeptCode> kept;
  Compact::Code code;
  triedAgain_ = 0;
  if (now_.keeps) {
    Compact::DistinctSets const distinct(sets, weights, 1);
    firsts_.assign(distinct.sets.size(), ~uint32_t{0});
    for (uint32_t s = sets.size(); s-- > 0;) firsts_[distinct.of[s]] = s;
    resists_.assign(firsts_.size(), false);
    if (now_.basis)
      kept = Compact::keptCode(distinct, labelsInForce(number, labels), *now_.basis,
                               encodeBitWidth_, encoderConfig().repairRows());
    if (kept) {
      keptFrom_ = now_.basis;
      resists_ = std::move(kept->resists);
      triedAgain_ = kept->triedAgain;
      makeLists([&](size_t set) { return std::span(kept->cubes[distinct.of[set]]); });
      code.codes = std::move(kept->codes);
    }
  }
  if (!kept) {
    if (now_.basis) status_->encodedAfreshIs(status_->encodedAfresh() + 1);
    code = now_.keeps ? Compact::roomyCode(sets, weights, labels, encodeBitWidth_)
                      : Compact::compactCode(sets, weights, labels, encodeBitWidth_);
    makeLists([&](size_t set) { return std::span(code.cubes[set]); });
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

void LabelEncoderSm::makeLists(
    std::function<std::span<Compact::Cube const>(size_t)> const& cubesOf) {
  auto const& lists = encoderConfig().xformStatus()->plainLabelListMap()->plainLabelList();
  auto const full = static_cast<uint16_t>((1u << encodeBitWidth_) - 1);
  eLabelMaskDelAll();
  eLabelMask_.reserve(lists.size());
  std::vector<EncodedLabelWithMask> pairs;
  // Of what is kept most says what it said, and stays the same object; what is encoded afresh may yet be given the counts
  // of both codes.
  auto before = status_->encodedLabelList().begin();
  auto const last = keptFrom_ ? status_->encodedLabelList().end() : before;
  size_t set = 0;
  for (auto const& [key, list] : lists) {
    pairs.clear();
    if (!list->label().empty())
      for (Compact::Cube const& c : cubesOf(set++))
        pairs.emplace_back(c.value, static_cast<uint16_t>(full & ~c.free));
    std::sort(pairs.begin(), pairs.end());
    while (before != last && before->first < key) ++before;
    if (before != last && before->first == key && before->second->hasOneCode() &&
        std::ranges::equal(before->second->encLabelAndMask(), pairs)) {
      eLabelMask_.set(key, before->second);
      continue;
    }
    auto made = Mox::makePtr<EncodedLabelWithMaskList>(key);
    made->encLabelAndMaskIs(pairs);
    eLabelMask_.set(key, std::move(made));
  }
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
  // By the compact code there is nothing to join.
  status_->encodedLabelListIs(code_ == Acl::LabelCode::compact ? eLabelMask_ : mergedLists());
  status_->labelCodeIs(code_);
}

EncoderStatus::MaskListMap LabelEncoderSm::mergedLists() const {
  EncoderStatus::MaskListMap lists;
  lists.reserve(eLabelMask_.size());
  // One for all lists: it holds a word for each value of the width, which is more than most lists need.
  PairCounter scratch(encodeBitWidth_);
  // A list that says what it said stays the same object, so that the expander finds what is built from it.
  auto before = status_->encodedLabelList().begin();
  auto const last = status_->encodedLabelList().end();
  auto const add = [&](GenSetKey key, Mox::Ptr<EncodedLabelWithMaskList> const& list) {
    while (before != last && before->first < key) ++before;
    bool const same = before != last && before->first == key && before->second->hasOneCode() &&
                      before->second->encLabelAndMask() == list->encLabelAndMask();
    lists.set(key, same ? before->second : list);
  };
  for (auto const& [key, pairs] : eLabelMask_) {
    if (pairs->encLabelAndMask().size() <= 1) {
      add(key, pairs);  // nothing to join
      continue;
    }
    auto merged = Mox::makePtr<EncodedLabelWithMaskList>(key);
    LabelMerger const labelMerger(encodeBitWidth_, pairs, merged, &scratch);
    add(key, merged);
  }
  return lists;
}

Mox::Ptr<LabelEncoderSm> labelEncoderSmFactory(Obel::ChipId chipId, Mox::Ptr<EncoderConfig> config,
                                               Mox::Ptr<EncoderStatus> status,
                                               Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo,
                                               Mox::Ptr<ChipHwCapability const> hwCapability) {
  return Mox::makePtr<LabelEncoderSm>(chipId, std::move(config), std::move(status),
                                      std::move(genSetUsageInfo), std::move(hwCapability));
}

}  // namespace Naxel
