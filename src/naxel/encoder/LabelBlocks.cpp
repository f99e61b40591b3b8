#include "naxel/encoder/LabelBlocks.h"

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

LabelBlocks::LabelBlocks(uint32_t bitWidth, uint32_t reservedAtTop) {
  MOX_ASSERT(bitWidth >= 1 && bitWidth <= 16);
  uint32_t const size = uint32_t{1} << bitWidth;
  bitmap_ = Obel::bitmapFactory(size);
  if (reservedAtTop) bitmap_->setBitsInRange(size - reservedAtTop, size - 1);
}

void LabelBlocks::take(uint32_t count, std::vector<Block>& blocks) {
  uint32_t const size = bitmap_->size();
  if (count > size - bitmap_->numBitsInSetState()) {
    traceAllocation(0, [&](auto& line) { line << " failed to allocate labels"; });
    MOX_ASSERT(false && "failed to allocate labels");
  }
  uint32_t numAllocated = 0;
  for (uint32_t range = bitsFor(count) + 1; range-- > 0 && numAllocated < count;) {
    uint32_t const blockSize = uint32_t{1} << range;
    // Nothing is free before it, and a block begins at a multiple of its size.
    uint32_t start = lowestClear(0) & ~(blockSize - 1);
    while (start < size && numAllocated < count) {
      Portion const portion = nextPortion(count - numAllocated, blockSize);
      // The spare values that are left do not fill up a block of this size; smaller ones need fewer.
      if (portion.toAllocate == 0) break;
      start = findFree(start, range, portion);
      if (start >= size) break;
      uint32_t const end = start + portion.toAllocate - 1;
      bitmap_->setBitsInRange(start, end);
      blocks.push_back({start, end});
      numAllocated += portion.toAllocate;
      spare_ -= portion.extra;
      traceAllocation(6, [&](auto& line) {
        line << " alloced " << portion.toAllocate << " labels at start: " << start;
      });
      start = lowestClear(end) & ~(blockSize - 1);
    }
  }
  traceAllocation(6, [&](auto& line) {
    line << " numAllocated: " << numAllocated << ", allocLabelCnt: " << count
         << ", bitMapSize: " << size;
  });
  MOX_ASSERT(numAllocated >= count);
}

LabelBlocks::Portion LabelBlocks::nextPortion(uint32_t remaining, uint32_t blockSize) const {
  if (remaining >= blockSize) return {blockSize, 0};
  // With nothing to spare a block is taken in part. The rest of it stays free for other sets, and this one
  // needs more than one pair.
  if (spare_ == 0 || remaining == 1) return {remaining, 0};
  uint32_t const filled = std::bit_ceil(remaining);
  if (filled - remaining > spare_) return {0, 0};
  return {filled, filled - remaining};
}

uint32_t LabelBlocks::lowestClear(uint32_t from) {
  uint32_t const last = bitmap_->size() - 1;
  lowestClear_ = bitmap_->findClearBitInRange(std::min(lowestClear_, last), last,
                                              Obel::Bitmap::IndexPreference::lowest);
  if (from <= lowestClear_) return lowestClear_;
  return bitmap_->findClearBitInRange(from, last, Obel::Bitmap::IndexPreference::lowest);
}

uint32_t LabelBlocks::findFree(uint32_t start, uint32_t range, Portion const& portion) {
  uint32_t const count = portion.toAllocate;
  uint32_t const size = bitmap_->size();
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
    uint32_t const set = bitmap_->numBitsInSetStateInRange(start, end);
    traceAllocation(6, [&](auto& line) {
      line << " start: " << start << ", end: " << end << ", toAllocate: " << count
           << ", range:" << range << ", extraLabels: " << portion.extra
           << ", bitsInSetState: " << set;
    });
    if (set == 0) break;
    // Behind a block that is full the scan goes on at the next free value. Block by block it would cost the
    // square where most of the space is taken.
    start = set == blockSize ? lowestClear(end) & ~(blockSize - 1) : start + blockSize;
  }
  start = std::min(start, size);
  // A scan that began further up has not seen what lies before it.
  if (whole && from <= noWholeBlockBefore_[range]) noWholeBlockBefore_[range] = start;
  return start;
}

}  // namespace Naxel
