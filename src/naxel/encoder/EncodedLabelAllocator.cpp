#include "naxel/encoder/EncodedLabelAllocator.h"

#include "mox/Assert.h"
#include "naxel/types/NaxelTrace.h"

#include <algorithm>
#include <bit>

namespace Naxel {

namespace {

template <class F>
void traceAllocation(int level, F write) {
  if (auto line = trace(level)) {
    line << "EncodedLabelAllocator::"
         << "doAllocateLabels";
    write(line);
  }
}

/// ceil(log2(n)) for n >= 1.
uint32_t bitsFor(uint32_t n) { return n <= 1 ? 0 : static_cast<uint32_t>(std::bit_width(n - 1)); }

}  // namespace

Mox::AttributeTable const& EncodedLabelAllocStatus::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&EncodedLabelAllocStatus::status_>("status"),
      Mox::attribute<&EncodedLabelAllocStatus::keyToEncLabelList_>("keyToEncLabelList")};
  return table;
}

EncodedLabelRangeList& EncodedLabelAllocStatus::keyToEncLabelListIs(GenSetKey key) {
  return *Mox::lookupOrMake(keyToEncLabelList_, key,
                            [&] { return Mox::makePtr<EncodedLabelRangeList>(key); });
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
      reservedAtTop_(reservedAtTop) {
  MOX_ASSERT(encodeBitWidth_ >= 1 && encodeBitWidth_ <= 16);
  handleInitialized();
}

Mox::AttributeTable const& EncodedLabelAllocator::attributeTable() const {
  using A = EncodedLabelAllocator;
  static Mox::AttributeTable const table = {
      Mox::attribute<&A::encodeBitWidth_>("encodeBitWidth"),
      Mox::attribute<&A::encoderConfig_>("encoderConfig"),
      Mox::attribute<&A::costModel_>("costModel"),
      Mox::attribute<&A::encoderStatus_>("encoderStatus"),
      Mox::attribute<&A::encLabelAllocStatus_>("encLabelAllocStatus"),
      Mox::attribute<&A::encLabelBitMap_>("encLabelBitMap"),
      Mox::attribute<&A::extraLabelCnt_>("extraLabelCnt")};
  return table;
}

void EncodedLabelAllocator::handleInitialized() {
  if (auto line = trace(8))
    line << "EncodedLabelAllocator::"
         << "handleInitialized";
  uint32_t const size = uint32_t{1} << encodeBitWidth_;
  encLabelBitMap_ = Obel::bitmapFactory(size);
  if (reservedAtTop_) encLabelBitMap_->setBitsInRange(size - reservedAtTop_, size - 1);
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
  uint32_t const usable = size - reservedAtTop_;
  if (labelsNeeded_ > usable) {
    encLabelAllocStatus_->statusIs(StageStatusType::finishedFailed);
    return;
  }
  extraLabelCntIs(usable - static_cast<uint32_t>(labelsNeeded_));
  std::vector<LabelLayout::Set> sets;
  sets.reserve(counts.size());
  for (GenSetCostModel::Visit const& visit : costModel_->visits())
    sets.push_back({visit.list->label().items(), visit.uses});
  encLabelAllocStatus_->reserve(sets.size());
  LabelLayout layout(std::move(sets), largest + 1, encodeBitWidth_);
  std::vector<EncodedLabelRangeList*> rangeLists;
  rangeLists.reserve(counts.size());
  for (size_t i = 0; i < counts.size(); ++i)
    rangeLists.push_back(&doAllocateLabels(i, counts[i], layout));
  layout.finish();
  for (size_t i = 0; i < counts.size(); ++i) addPlacedLabels(i, layout, *rangeLists[i]);
  publish(layout, largest);
  encLabelAllocStatus_->statusIs(StageStatusType::finishedSuccess);
}

EncodedLabelRangeList& EncodedLabelAllocator::doAllocateLabels(size_t place, uint32_t allocLabelCnt,
                                                               LabelLayout& layout) {
  GenSetKey const key = costModel_->visits()[place].list->key();
  traceAllocation(8, [&](auto& line) {
    line << " key: " << key << ", allocLabelCnt: " << allocLabelCnt
         << ", extraLabelCnt: " << extraLabelCnt_;
  });
  EncodedLabelRangeList& rangeList = encLabelAllocStatus_->keyToEncLabelListIs(key);
  uint32_t const numLabels = layout.newLabels(place);
  MOX_ASSERT(numLabels <= allocLabelCnt);
  std::vector<Block> blocks;
  if (allocLabelCnt > 0) blocks = allocateBlocks(key, allocLabelCnt);
  layout.place(place, blocks);
  std::vector<EncodedLabelRange> ranges;
  ranges.reserve(blocks.size());
  for (Block const& b : blocks)
    ranges.emplace_back(EncodedLabel(static_cast<uint16_t>(b.start)),
                        EncodedLabel(static_cast<uint16_t>(b.end)));
  rangeList.encLabelRangeIs(std::move(ranges));
  return rangeList;
}

void EncodedLabelAllocator::addPlacedLabels(size_t place, LabelLayout const& layout,
                                            EncodedLabelRangeList& rangeList) {
  std::span<PlainLabel const> const labels = layout.labels(place);
  if (layout.newLabels(place) == labels.size()) return;
  std::vector<EncodedLabelRange> ranges = rangeList.encLabelRange().items();
  ranges.reserve(ranges.size() + labels.size());
  for (PlainLabel l : labels)
    if (layout.ownerOf(l) != place) {
      EncodedLabel const e(layout.valueOf(l));
      ranges.emplace_back(e, e);
    }
  rangeList.encLabelRangeIs(std::move(ranges));
}

std::vector<EncodedLabelAllocator::Block> EncodedLabelAllocator::allocateBlocks(
    GenSetKey key, uint32_t allocLabelCnt) {
  uint32_t const size = encLabelBitMap_->size();
  if (allocLabelCnt > size - encLabelBitMap_->numBitsInSetState()) {
    traceAllocation(0, [&](auto& line) { line << " failed to allocate labels at key: " << key; });
    MOX_ASSERT(false && "failed to allocate labels");
  }
  std::vector<Block> blocks;
  uint32_t numAllocated = 0;
  for (uint32_t range = bitsFor(allocLabelCnt) + 1; range-- > 0 && numAllocated < allocLabelCnt;) {
    uint32_t const blockSize = uint32_t{1} << range;
    uint32_t start = lowestClear(0) & ~(blockSize - 1);
    while (start < size && numAllocated < allocLabelCnt) {
      Portion const portion = nextPortion(allocLabelCnt - numAllocated, blockSize);
      if (portion.toAllocate == 0) break;
      start = findFree(start, range, portion);
      if (start >= size) break;
      uint32_t const end = start + portion.toAllocate - 1;
      encLabelBitMap_->setBitsInRange(start, end);
      blocks.push_back({start, end});
      numAllocated += portion.toAllocate;
      extraLabelCntDec(portion.extra);
      traceAllocation(6, [&](auto& line) {
        line << " alloced " << portion.toAllocate << " labels at start: " << start;
      });
      start = lowestClear(end) & ~(blockSize - 1);
    }
  }
  traceAllocation(6, [&](auto& line) {
    line << " numAllocated: " << numAllocated << ", allocLabelCnt: " << allocLabelCnt
         << ", bitMapSize: " << size;
  });
  MOX_ASSERT(numAllocated >= allocLabelCnt);
  return blocks;
}

EncodedLabelAllocator::Portion EncodedLabelAllocator::nextPortion(uint32_t remaining,
                                                                  uint32_t blockSize) const {
  if (remaining >= blockSize) return {blockSize, 0};
  if (extraLabelCnt_ == 0 || remaining == 1) return {remaining, 0};
  uint32_t const filled = std::bit_ceil(remaining);
  if (filled - remaining > extraLabelCnt_) return {0, 0};
  return {filled, filled - remaining};
}

uint32_t EncodedLabelAllocator::lowestClear(uint32_t from) {
  uint32_t const last = encLabelBitMap_->size() - 1;
  lowestClear_ = encLabelBitMap_->findClearBitInRange(std::min(lowestClear_, last), last,
                                                      Obel::Bitmap::IndexPreference::lowest);
  if (from <= lowestClear_) return lowestClear_;
  return encLabelBitMap_->findClearBitInRange(from, last, Obel::Bitmap::IndexPreference::lowest);
}

uint32_t EncodedLabelAllocator::findFree(uint32_t start, uint32_t range, Portion const& portion) {
  uint32_t const count = portion.toAllocate;
  uint32_t const size = encLabelBitMap_->size();
  uint32_t const blockSize = uint32_t{1} << range;
  bool const whole = count == blockSize;
  uint32_t const from = start;
  if (whole) start = std::max(start, noWholeBlockBefore_[range]);
  while (start < size) {
    uint32_t const end = start + count - 1;
    if (end >= size) {
      start = size;
      break;
    }
    uint32_t const set = encLabelBitMap_->numBitsInSetStateInRange(start, end);
    traceAllocation(6, [&](auto& line) {
      line << " start: " << start << ", end: " << end << ", toAllocate: " << count
           << ", range:" << range << ", extraLabels: " << portion.extra
           << ", bitsInSetState: " << set;
    });
    if (set == 0) break;
    start = set == blockSize ? lowestClear(end) & ~(blockSize - 1) : start + blockSize;
  }
  start = std::min(start, size);
  if (whole && from <= noWholeBlockBefore_[range]) noWholeBlockBefore_[range] = start;
  return start;
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
