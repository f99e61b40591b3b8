/// What tells the encoders of prefixes, ranges and combinations apart: the tables that their labels stand in.

#include "mox/Assert.h"
#include "naxel/encoder/NaxelLabelEncoderSm.h"
#include "naxel/encoder/WordHash.h"
#include "naxel/genset/FieldNames.h"
#include "naxel/genset/KeyPlaces.h"
#include "naxel/loader/PDData.h"

#include <functional>
#include <utility>

namespace Naxel {

namespace {

/// The items of a transform with the encoded labels of their pieces.
template <class Key>
std::vector<std::pair<Key, EncodedLabel>> encodedEntries(Mox::FlatMap<Key, PlainLabel> const& items,
                                                         EncoderStatus const& status) {
  std::vector<std::pair<Key, EncodedLabel>> entries;
  entries.reserve(items.size());
  for (auto const& [key, label] : items) entries.emplace_back(key, status.encodedLabelOf(label));
  return entries;
}

/// Walks over items and a table in one, both ascending: the entry for an item is the last one that is not `behind` it,
/// if that is `for` it.
template <class Items, class Entries, class Behind, class For>
void walkBoth(Items const& items, Entries const& entries, Behind behind, For isFor,
              LabelEncoderSm::InForce const& tell) {
  auto at = entries.begin();
  for (auto const& [item, label] : items) {
    while (at != entries.end() && !behind(at->key(), item)) ++at;
    bool const found = at != entries.begin() && isFor(std::prev(at)->key(), item);
    tell.item(label, found ? std::optional(std::prev(at)->value()) : std::nullopt);
  }
  for (auto const& entry : entries) tell.entry(entry.value());
}

}  // namespace

PrefixLabelEncoderSm::PrefixLabelEncoderSm(Obel::ChipId chipId, Mox::Ptr<EncoderConfig> config,
                                           Mox::Ptr<PrefixEncoderStatus> status,
                                           Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo,
                                           Mox::Ptr<ChipHwCapability const> hwCapability)
    : LabelEncoderSm(chipId, std::move(config), status, std::move(genSetUsageInfo),
                     std::move(hwCapability)),
      status_(std::move(status)) {
  handleInitialized();
}

std::string PrefixLabelEncoderSm::subject() const { return fieldName(status_->key()); }

void PrefixLabelEncoderSm::handleInitialized() {
  traceKeyIs("PrefixLabelEncoderSm(" + Mox::stringValue(status_->key().af()) +
             (status_->key().src() ? ", src" : ", dst") + ")::");
  traceStep(8, "handleInitialized");
  encodeBitWidthIs(labelWidth());
  MOX_ASSERT(encodeBitWidth());
}

PrefixXformStatus const& PrefixLabelEncoderSm::xform() const {
  return static_cast<PrefixXformStatus const&>(*encoderConfig().xformStatus());
}

uint64_t PrefixLabelEncoderSm::doBuildWorkingSetHash() const {
  // A set that covers nothing has no list, and still brings prefixes into the table.
  // The digest decides nothing; it is for whoever reads the attribute.
  WordHash prefixes;
  for (auto const& [prefix, label] : xform().prefixToLabelMap())
    prefixes.add(prefix.hash64() ^ label.value());
  return LabelEncoderSm::doBuildWorkingSetHash() ^ uint64_t { prefixes.finish() } << 32;
}

bool PrefixLabelEncoderSm::doEncode() {
  if (!LabelEncoderSm::doEncode()) return false;
  // The one group that may be in no list is the empty one, of addresses that are only excepted. Its
  // prefixes need an entry that stops the longest-prefix match and that no set matches.
  for (auto const& [prefix, label] : xform().prefixToLabelMap()) {
    if (encoderStatus().plainToEncodedLabelHas(label)) continue;
    EncoderStatus::LabelMap labels = encoderStatus().plainToEncodedLabel();
    labels.set(label, reservedLabel());
    encoderStatus().plainToEncodedLabelIs(std::move(labels));
    break;
  }
  return true;
}

void PrefixLabelEncoderSm::doUpdateLoaderInfo() {
  traceStep(8, "doUpdateLoaderInfo");
  auto info = Mox::makePtr<PrefixXformLoaderInfo>();
  info->prefixToLabelMapIs(encodedEntries(xform().prefixToLabelMap(), encoderStatus()));
  keepIn(*info);
  status_->loaderInfoIs(std::move(info));
}

KeepsSets const* PrefixLabelEncoderSm::tableInForce() const {
  PDData const& basis = *encoderConfig().basis();
  if (basis.hwCapability()->prefixXformWidth(status_->key()) != encodeBitWidth()) return nullptr;
  return basis.pdPrefixXformEntryColl(status_->key()).get();
}

void PrefixLabelEncoderSm::walkInForce(InForce const& tell) const {
  walkBoth(xform().prefixToLabelMap(),
           encoderConfig().basis()->pdPrefixXformEntryColl(status_->key())->entry(),
           std::greater<>(), std::equal_to<>(), tell);
}

RangeEncoderSm::RangeEncoderSm(Obel::ChipId chipId, Mox::Ptr<RangeEncoderConfig> config,
                               Mox::Ptr<RangeEncoderStatus> status,
                               Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo,
                               Mox::Ptr<ChipHwCapability const> hwCapability)
    : LabelEncoderSm(chipId, std::move(config), status, std::move(genSetUsageInfo),
                     std::move(hwCapability)),
      status_(std::move(status)) {
  handleInitialized();
}

std::string RangeEncoderSm::subject() const { return fieldName(status_->key()); }

void RangeEncoderSm::handleInitialized() {
  traceKeyIs("RangeEncoderSm(" + Mox::stringValue(status_->key()) + ")::");
  traceStep(8, "handleInitialized");
  encodeBitWidthIs(currentBitWidth());
}

uint64_t RangeEncoderSm::doBuildWorkingSetHash() const {
  if (labelWidth()) return LabelEncoderSm::doBuildWorkingSetHash();
  WordHash sets;
  WordHash counts;
  sets.add(0);  // raw mode
  sets.add(encodeBitWidth());
  for (auto const& [key, set] : rangeConfig().aggregatorInfo()->rangeSetColl()) {
    sets.add(key.value());
    sets.add(set->range().size());
    for (RangeSetElem const& e : set->range()) sets.add(uint64_t{e.first()} << 16 | e.last());
    if (auto const count = usage().refCount(key)) counts.add(count->hash());
  }
  return joinHalves(sets, counts);
}

std::vector<GenSetKey> RangeEncoderSm::rawSets() const {
  if (labelWidth()) return {};
  return keysOf(rangeConfig().aggregatorInfo()->rangeSetColl());
}

bool RangeEncoderSm::doEncode() {
  if (labelWidth()) return LabelEncoderSm::doEncode();
  traceStep(8, "doEncode");
  // Every packet has a value in the field, so none has to be kept free for a miss, and a set may well match
  // all of them.
  eLabelMaskDelAll();
  encoderStatus().plainToEncodedLabelDelAll();
  for (auto const& [key, set] : rangeConfig().aggregatorInfo()->rangeSetColl()) {
    RangeMerger merger(encodeBitWidth(), eLabelMaskIs(key));
    // Ranges of one set may overlap. Their pairs then have values in common, which merging allows for.
    for (RangeSetElem const& e : set->range()) merger.doMergeRange(e.first(), e.last());
  }
  return true;
}

void RangeEncoderSm::doUpdateLoaderInfo() {
  traceStep(8, "doUpdateLoaderInfo");
  // There is no table, and one of an earlier width must not be loaded.
  if (!labelWidth()) return doClearLoaderInfo();
  auto const& xform = static_cast<RangeSplitStatus const&>(*encoderConfig().xformStatus());
  auto info = Mox::makePtr<RangeSplitLoaderInfo>();
  info->rangeToEncodedLabelMapIs(encodedEntries(xform.rangeToPlainLabelMap(), encoderStatus()));
  keepIn(*info);
  status_->loaderInfoIs(std::move(info));
}

KeepsSets const* RangeEncoderSm::tableInForce() const {
  PDData const& basis = *encoderConfig().basis();
  if (basis.hwCapability()->rangeXformWidth(status_->key()) != encodeBitWidth()) return nullptr;
  return basis.rangeColl(status_->key()).get();
}

void RangeEncoderSm::walkInForce(InForce const& tell) const {
  auto const& xform = static_cast<RangeSplitStatus const&>(*encoderConfig().xformStatus());
  // A part of a range comes from it.
  walkBoth(
      xform.rangeToPlainLabelMap(), encoderConfig().basis()->rangeColl(status_->key())->entry(),
      [](RangeSetElem const& entry, RangeSetElem const& e) { return entry.first() > e.first(); },
      [](RangeSetElem const& entry, RangeSetElem const& e) { return entry.last() >= e.first(); },
      tell);
}

ComboLabelEncoderSm::ComboLabelEncoderSm(Obel::ChipId chipId,
                                         Mox::Ptr<ComboLabelEncoderConfig> config,
                                         Mox::Ptr<ComboLabelEncoderStatus> status,
                                         Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo,
                                         Mox::Ptr<ChipHwCapability const> hwCapability)
    : LabelEncoderSm(chipId, std::move(config), status, std::move(genSetUsageInfo),
                     std::move(hwCapability)),
      status_(std::move(status)) {
  handleInitialized();
}

std::string ComboLabelEncoderSm::subject() const { return fieldName(status_->key()); }

void ComboLabelEncoderSm::handleInitialized() {
  traceKeyIs("ComboLabelEncoderSm(" + Mox::stringValue(status_->key()) + ")::");
  traceStep(8, "handleInitialized");
  encodeBitWidthIs(currentBitWidth());
}

ComboLabelSplitStatus const& ComboLabelEncoderSm::xform() const {
  return static_cast<ComboLabelSplitStatus const&>(*encoderConfig().xformStatus());
}

uint64_t ComboLabelEncoderSm::doBuildWorkingSetHash() const {
  // The table's keys are labels of the two sides, which may have been encoded anew without any
  // change of the combinations.
  WordHash sides;
  for (auto const& [combo, label] : xform().comboToPlainLabelMap()) {
    EncodedLabel const* src = srcEncStatus()->encodedLabel(combo.srcLabel());
    EncodedLabel const* dst = dstEncStatus()->encodedLabel(combo.dstLabel());
    sides.add(Mox::hashOf(combo));
    sides.add(uint64_t{label.value()} << 32 | uint64_t{src ? src->value() : 0u} << 16 |
              (dst ? dst->value() : 0u));
  }
  return LabelEncoderSm::doBuildWorkingSetHash() ^ uint64_t { sides.finish() } << 32;
}

bool ComboLabelEncoderSm::isMoreUnchanged() const {
  return srcEncStatus()->plainToEncodedLabel() == srcLabels_ &&
         dstEncStatus()->plainToEncodedLabel() == dstLabels_;
}

void ComboLabelEncoderSm::rememberMore() {
  srcLabels_ = srcEncStatus()->plainToEncodedLabel();
  dstLabels_ = dstEncStatus()->plainToEncodedLabel();
}

void ComboLabelEncoderSm::doUpdateLoaderInfo() {
  traceStep(8, "doUpdateLoaderInfo");
  // The pieces of a pair are labels that both sides have encoded in this kick or kept from an earlier one.
  // An input that has changed since then would have been noticed, so a label without a value is a fault in
  // here.
  std::vector<ComboLabelLoaderInfo::LabelMap::value_type> entries;
  entries.reserve(xform().comboToPlainLabelMap().size());
  for (auto const& [comboLabel, label] : xform().comboToPlainLabelMap()) {
    MOX_ASSERT_TEXT(srcEncStatus()->plainToEncodedLabelHas(comboLabel.srcLabel()),
                    "srcEncStatus()->plainToEncodedLabelHas( comboLabel.srcLabel() )");
    MOX_ASSERT_TEXT(dstEncStatus()->plainToEncodedLabelHas(comboLabel.dstLabel()),
                    "dstEncStatus()->plainToEncodedLabelHas( comboLabel.dstLabel() )");
    entries.emplace_back(EncodedComboLabel(srcEncStatus()->encodedLabelOf(comboLabel.srcLabel()),
                                           dstEncStatus()->encodedLabelOf(comboLabel.dstLabel())),
                         encoderStatus().encodedLabelOf(label));
  }
  auto info = Mox::makePtr<ComboLabelLoaderInfo>();
  info->encComboToEncodedLabelMapIs(std::move(entries));
  keepIn(*info);
  status_->loaderInfoIs(std::move(info));
}

KeepsSets const* ComboLabelEncoderSm::tableInForce() const {
  PDData const& basis = *encoderConfig().basis();
  if (basis.hwCapability()->comboXformWidth(status_->key()) != encodeBitWidth()) return nullptr;
  return basis.comboColl(status_->key()).get();
}

void ComboLabelEncoderSm::walkInForce(InForce const& tell) const {
  auto const& entries = encoderConfig().basis()->comboColl(status_->key())->entry();
  // By the labels of both sides as this kick has encoded them, so in no order.
  for (auto const& [combo, label] : xform().comboToPlainLabelMap()) {
    auto const* const entry = entries.find({srcEncStatus()->encodedLabelOf(combo.srcLabel()),
                                            dstEncStatus()->encodedLabelOf(combo.dstLabel())});
    tell.item(label, entry ? std::optional(entry->value()) : std::nullopt);
  }
  for (auto const& entry : entries) tell.entry(entry.value());
}

Mox::Ptr<PrefixLabelEncoderSm> prefixLabelEncoderSmFactory(
    Obel::ChipId chipId, Mox::Ptr<EncoderConfig> config, Mox::Ptr<PrefixEncoderStatus> status,
    Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo,
    Mox::Ptr<ChipHwCapability const> hwCapability) {
  return Mox::makePtr<PrefixLabelEncoderSm>(chipId, std::move(config), std::move(status),
                                            std::move(genSetUsageInfo), std::move(hwCapability));
}

Mox::Ptr<RangeEncoderSm> rangeEncoderSmFactory(Obel::ChipId chipId,
                                               Mox::Ptr<RangeEncoderConfig> config,
                                               Mox::Ptr<RangeEncoderStatus> status,
                                               Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo,
                                               Mox::Ptr<ChipHwCapability const> hwCapability) {
  return Mox::makePtr<RangeEncoderSm>(chipId, std::move(config), std::move(status),
                                      std::move(genSetUsageInfo), std::move(hwCapability));
}

Mox::Ptr<ComboLabelEncoderSm> comboLabelEncoderSmFactory(
    Obel::ChipId chipId, Mox::Ptr<ComboLabelEncoderConfig> config,
    Mox::Ptr<ComboLabelEncoderStatus> status, Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo,
    Mox::Ptr<ChipHwCapability const> hwCapability) {
  return Mox::makePtr<ComboLabelEncoderSm>(chipId, std::move(config), std::move(status),
                                           std::move(genSetUsageInfo), std::move(hwCapability));
}

}  // namespace Naxel
