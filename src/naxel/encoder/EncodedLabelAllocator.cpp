#include "naxel/encoder/EncodedLabelAllocator.h"

#include "mox/Assert.h"
#include "naxel/encoder/LabelBlocks.h"
#include "naxel/types/NaxelTrace.h"

#include <algorithm>
#include <bit>

namespace Naxel {

Mox::AttributeTable const& EncodedLabelAllocStatus::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&EncodedLabelAllocStatus::status_>("status"),
      Mox::attribute<&EncodedLabelAllocStatus::keyToEncLabelList>("keyToEncLabelList")};
  return table;
}

EncodedLabelAllocStatus::RangeListMap EncodedLabelAllocStatus::keyToEncLabelList() const {
  RangeListMap all;
  for (size_t i = 0; i < sets(); ++i) {
    auto list = Mox::makePtr<EncodedLabelRangeList>(keys_[i]);
    list->encLabelRangeIs({ranges(i).begin(), ranges(i).end()});
    all.set(keys_[i], std::move(list));
  }
  return all;
}

void EncodedLabelAllocStatus::reserve(size_t sets) {
  keys_.reserve(sets);
  ranges_.reserve(sets);
  ends_.reserve(sets);
}

void EncodedLabelAllocStatus::setIs(GenSetKey key) {
  keys_.push_back(key);
  ends_.push_back(ranges_.size());
}

EncodedLabelAllocator::EncodedLabelAllocator(uint32_t encodeBitWidth,
                                             Mox::Ptr<EncoderConfig const> encoderConfig,
                                             Mox::Ptr<GenSetCostModel const> costModel,
                                             Mox::Ptr<EncoderStatus> encoderStatus,
                                             Mox::Ptr<EncodedLabelAllocStatus> encLabelAllocStatus,
                                             uint32_t reservedAtTop)
    : encodeBitWidth_(encodeBitWidth),
      encoderConfig_(std::move(encoderConfig)),
      costModel_(std::move(costModel)),
      encoderStatus_(std::move(encoderStatus)),
      encLabelAllocStatus_(std::move(encLabelAllocStatus)),
      reservedAtTop_(reservedAtTop),
      blocks_(std::make_unique<LabelBlocks>(encodeBitWidth, reservedAtTop)) {
  handleInitialized();
}

EncodedLabelAllocator::~EncodedLabelAllocator() = default;

Obel::Bitmap const& EncodedLabelAllocator::encLabelBitMap() const { return *blocks_->bitmap(); }
Mox::Ptr<Obel::Bitmap> const& EncodedLabelAllocator::bitmap() const { return blocks_->bitmap(); }
uint32_t EncodedLabelAllocator::extraLabelCnt() const { return blocks_->spare(); }
void EncodedLabelAllocator::extraLabelCntIs(uint32_t n) { blocks_->spareIs(n); }
void EncodedLabelAllocator::extraLabelCntDec(uint32_t n) { blocks_->spareIs(blocks_->spare() - n); }

Mox::AttributeTable const& EncodedLabelAllocator::attributeTable() const {
  using A = EncodedLabelAllocator;
  static Mox::AttributeTable const table = {
      Mox::attribute<&A::encodeBitWidth_>("encodeBitWidth"),
      Mox::attribute<&A::encoderConfig_>("encoderConfig"),
      Mox::attribute<&A::costModel_>("costModel"),
      Mox::attribute<&A::encoderStatus_>("encoderStatus"),
      Mox::attribute<&A::encLabelAllocStatus_>("encLabelAllocStatus"),
      Mox::attribute<&A::bitmap>("encLabelBitMap"),
      Mox::attribute<&A::extraLabelCnt>("extraLabelCnt")};
  return table;
}

void EncodedLabelAllocator::handleInitialized() {
  if (auto line = trace(8))
    line << "EncodedLabelAllocator::"
         << "handleInitialized";
  uint32_t const size = uint32_t{1} << encodeBitWidth_;
  encoderStatus_->plainToEncodedLabelDelAll();

  PlainLabelListMap const& lists = *encoderConfig_->xformStatus()->plainLabelListMap();
  uint32_t largest = 0;
  for (auto const& [key, list] : lists.plainLabelList())
    if (!list->label().empty()) largest = std::max(largest, list->label().back().value());
  std::vector<bool> seen(size_t{largest} + 1, false);
  std::vector<uint32_t> counts;
  counts.reserve(costModel_->visits().size());
  for (GenSetCostModel::Visit const& visit : costModel_->visits()) {
    uint32_t count = 0;
    for (PlainLabel l : visit.list->label())
      if (!seen[l.value()]) {
        seen[l.value()] = true;
        ++count;
      }
    counts.push_back(count);
    labelsNeeded_ += count;
  }
  // Counted before anything is placed, so that a failure can say how many labels it takes and has changed
  // nothing.
  uint32_t const usable = size - reservedAtTop_;
  if (labelsNeeded_ > usable) {
    encLabelAllocStatus_->statusIs(StageStatusType::finishedFailed);
    return;
  }
  extraLabelCntIs(usable - static_cast<uint32_t>(labelsNeeded_));
  std::vector<LabelLayout::Set> sets;
  sets.reserve(counts.size());
  for (GenSetCostModel::Visit const& visit : costModel_->visits())
    sets.push_back({{visit.list->label().begin(), visit.list->label().end()}, visit.uses});
  encLabelAllocStatus_->reserve(sets.size());
  LabelLayout layout(std::move(sets), largest + 1, encodeBitWidth_);
  std::vector<LabelLayout::Block> blocks;
  std::vector<size_t> blocksFrom = {0};
  blocks.reserve(counts.size());
  blocksFrom.reserve(counts.size() + 1);
  for (size_t i = 0; i < counts.size(); ++i) {
    doAllocateLabels(i, counts[i], layout, blocks);
    blocksFrom.push_back(blocks.size());
  }
  // Only now every label has its value.
  for (size_t i = 0; i < counts.size(); ++i)
    publishRanges(i, layout,
                  std::span(blocks).subspan(blocksFrom[i], blocksFrom[i + 1] - blocksFrom[i]));
  publish(layout, largest);
  encLabelAllocStatus_->statusIs(StageStatusType::finishedSuccess);
}

void EncodedLabelAllocator::doAllocateLabels(size_t place, uint32_t allocLabelCnt,
                                             LabelLayout& layout,
                                             std::vector<LabelLayout::Block>& blocks) {
  if (auto line = trace(8))
    line << "EncodedLabelAllocator::doAllocateLabels key: "
         << costModel_->visits()[place].list->key() << ", allocLabelCnt: " << allocLabelCnt
         << ", extraLabelCnt: " << extraLabelCnt();
  MOX_ASSERT(layout.newLabels(place) <= allocLabelCnt);
  if (allocLabelCnt == 0) return;
  size_t const from = blocks.size();
  blocks_->take(allocLabelCnt, blocks);
  layout.place(place, std::span(blocks).subspan(from));
}

void EncodedLabelAllocator::publishRanges(size_t place, LabelLayout const& layout,
                                          std::span<LabelLayout::Block const> blocks) {
  for (LabelLayout::Block const& b : blocks)
    encLabelAllocStatus_->rangeIs(EncodedLabel(static_cast<uint16_t>(b.start)),
                                  EncodedLabel(static_cast<uint16_t>(b.end)));
  std::span<PlainLabel const> const labels = layout.labels(place);
  // Mostly the blocks hold all labels of the set.
  if (layout.newLabels(place) != labels.size())
    for (PlainLabel l : labels)
      if (layout.ownerOf(l) != place) {
        EncodedLabel const e(layout.valueOf(l));
        encLabelAllocStatus_->rangeIs(e, e);
      }
  encLabelAllocStatus_->setIs(costModel_->visits()[place].list->key());
}

void EncodedLabelAllocator::publish(LabelLayout const& layout, uint32_t largest) {
  std::vector<EncoderStatus::LabelMap::value_type> all;
  all.reserve(static_cast<size_t>(labelsNeeded_));
  for (PlainLabel label(0); label.value() <= largest; label = PlainLabel(label.value() + 1))
    if (layout.hasValue(label)) all.emplace_back(label, EncodedLabel(layout.valueOf(label)));
  EncoderStatus::LabelMap map;
  map.adopt(std::move(all));
  encoderStatus_->plainToEncodedLabelIs(std::move(map));
}

Mox::Ptr<EncodedLabelAllocator> encodedLabelAllocatorFactory(
    uint32_t encodeBitWidth, Mox::Ptr<EncoderConfig const> encoderConfig,
    Mox::Ptr<GenSetCostModel const> costModel, Mox::Ptr<EncoderStatus> encoderStatus,
    Mox::Ptr<EncodedLabelAllocStatus> encLabelAllocStatus, uint32_t reservedAtTop) {
  return Mox::makePtr<EncodedLabelAllocator>(encodeBitWidth, std::move(encoderConfig),
                                             std::move(costModel), std::move(encoderStatus),
                                             std::move(encLabelAllocStatus), reservedAtTop);
}

}  // namespace Naxel
