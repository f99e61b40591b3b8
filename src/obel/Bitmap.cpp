#include "obel/Bitmap.h"

#include "mox/Assert.h"

#include <algorithm>
#include <bit>

namespace Obel {

Bitmap::Bitmap(uint32_t size) : size_(size), words_((size_t{size} + 63) / 64) {
  MOX_ASSERT(size >= 1);
}

template <class F>
void Bitmap::forEachWord(uint32_t first, uint32_t last, F f) const {
  MOX_ASSERT(first <= last && last < size_);
  uint32_t const lastWord = last / 64;
  for (uint32_t w = first / 64; w <= lastWord; ++w) {
    uint64_t mask = ~uint64_t{0};
    if (w == first / 64) mask &= ~uint64_t{0} << (first % 64);
    // Both ends may lie in one word.
    if (w == lastWord) mask &= ~uint64_t{0} >> (63 - last % 64);
    f(w, mask);
  }
}

bool Bitmap::bitIsSet(uint32_t i) const {
  MOX_ASSERT(i < size_);
  return words_[i / 64] >> (i % 64) & 1;
}

void Bitmap::setBitsInRange(uint32_t first, uint32_t last) {
  forEachWord(first, last, [this](uint32_t w, uint64_t mask) {
    // Only bits that were clear count.
    set_ += static_cast<uint32_t>(std::popcount(mask & ~words_[w]));
    words_[w] |= mask;
  });
}

void Bitmap::clearBitsInRange(uint32_t first, uint32_t last) {
  forEachWord(first, last, [this](uint32_t w, uint64_t mask) {
    set_ -= static_cast<uint32_t>(std::popcount(mask & words_[w]));
    words_[w] &= ~mask;
  });
}

uint32_t Bitmap::numBitsInSetStateInRange(uint32_t first, uint32_t last) const {
  uint32_t count = 0;
  forEachWord(first, last, [&](uint32_t w, uint64_t mask) {
    count += static_cast<uint32_t>(std::popcount(words_[w] & mask));
  });
  return count;
}

uint32_t Bitmap::findClearBitInRange(uint32_t first, uint32_t last, IndexPreference) const {
  last = std::min(last, size_ - 1);
  MOX_ASSERT(first <= last);
  for (uint32_t w = first / 64; w <= last / 64; ++w) {
    uint64_t clear = ~words_[w];
    if (w == first / 64) clear &= ~uint64_t{0} << (first % 64);
    if (clear == 0) continue;
    uint32_t const bit = w * 64 + static_cast<uint32_t>(std::countr_zero(clear));
    return bit <= last ? bit : size_;
  }
  return size_;
}

Mox::Ptr<Bitmap> bitmapFactory(uint32_t size) { return Mox::makePtr<Bitmap>(size); }

}  // namespace Obel
