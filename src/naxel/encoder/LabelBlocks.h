#pragma once

/// Which values of a width are taken by blocks, and where the next blocks go.
///
/// Problem. The labels of a set should lie in as few aligned power-of-two blocks as possible, since a block
/// is matched by one value/mask pair.
///
/// Idea. The labels go into the largest aligned block that holds them all, their count filled up to a power
/// of two while the budget of spare values lasts; only where no such block is free they are split over
/// smaller aligned blocks, scanning from the lowest free value.
///
/// Example, width 4, three values and then two more: the first three take the block 0-3 (one spare value, 3),
/// the next two the block 4-5.
///
/// Invariants. A value that is taken never becomes free again; the budget only falls.
///
/// Cost. Finding a free block is a scan over words of the bitmap. The lowest free value only rises, and so
/// does, for each block size, the place before which no whole block of that size is free; both are
/// remembered, so that all scans together pass over the bitmap a few times.

#include "naxel/encoder/LabelLayout.h"
#include "obel/Bitmap.h"

#include <array>

namespace Naxel {

class LabelBlocks {
 public:
  using Block = LabelLayout::Block;
  /// `bitWidth` is 1 to 16. `reservedAtTop` values at the top of the space are never given out.
  LabelBlocks(uint32_t bitWidth, uint32_t reservedAtTop);

  /// Adds blocks for so many values to `blocks`; there must be as many free. Their values beyond `count` are spare.
  void take(uint32_t count, std::vector<Block>& blocks);

  /// Taken values.
  Mox::Ptr<Obel::Bitmap> const& bitmap() const { return bitmap_; }
  /// Values that may still be spent on filling blocks up to a power of two.
  uint32_t spare() const { return spare_; }
  void spareIs(uint32_t n) { spare_ = n; }

 private:
  /// How many values the next block takes and how many of them are spare; none to try smaller
  /// blocks.
  struct Portion {
    uint32_t toAllocate;
    uint32_t extra;
  };
  Portion nextPortion(uint32_t remaining, uint32_t blockSize) const;
  /// First start from `start` on, in steps of the block size, with as many free values as the portion takes;
  /// the size of the bitmap if there is none.
  uint32_t findFree(uint32_t start, uint32_t range, Portion const& portion);
  uint32_t lowestClear(uint32_t from);

  Mox::Ptr<Obel::Bitmap> bitmap_;
  uint32_t spare_ = 0;
  uint32_t lowestClear_ = 0;                       // no clear bit lies before it
  std::array<uint32_t, 17> noWholeBlockBefore_{};  // by logarithm of the block size
};

}  // namespace Naxel
