#pragma once

/// Ranges of numbers as aligned power-of-two blocks: what one value/mask pair, or one prefix, can match.

namespace Mox {

/// Calls `f(first, bits)` for the maximal aligned blocks that cover exactly `first` to `last`, from the low
/// end on; a block has 2^bits numbers. 5 to 12 gives 5, 6-7, 8-11 and 12. Numbers have `width` bits and T at
/// least as many. At most twice the width many blocks.
template <class T, class F>
constexpr void forEachAlignedBlock(T first, T last, unsigned width, F f) {
  for (;;) {
    unsigned bits = 0;
    T blockLast = first;
    // Grow while the block stays aligned and within the range. The sum cannot overflow: the bit is clear.
    while (bits < width && !(first >> bits & 1)) {
      T const grown = blockLast | (T{1} << bits);
      if (grown > last) break;
      blockLast = grown;
      ++bits;
    }
    f(first, bits);
    if (blockLast == last) return;
    first = blockLast + 1;
  }
}

}  // namespace Mox
