#include "verify/FirstMatchIndex.h"

namespace Verify {

FirstMatchIndex::FirstMatchIndex(size_t items, size_t dimensions)
    : items_(items),
      dimensions_(dimensions),
      words_((items + 63) / 64),
      summaryWords_((words_ + 63) / 64),
      bits_(dimensions * rows * words_),
      summary_(dimensions * rows * summaryWords_),
      all_(dimensions * words_) {}

void FirstMatchIndex::allowAll(size_t dimension, size_t item) {
  all_[dimension * words_ + item / 64] |= uint64_t{1} << item % 64;
}

void FirstMatchIndex::allow(size_t dimension, size_t item, uint8_t value) {
  bits_[(dimension * rows + value) * words_ + item / 64] |= uint64_t{1} << item % 64;
}

void FirstMatchIndex::finish() {
  for (size_t row = 0; row < dimensions_ * rows; ++row) {
    uint64_t const* const all = all_.data() + row / rows * words_;
    uint64_t* const bits = bits_.data() + row * words_;
    for (size_t w = 0; w < words_; ++w) {
      // Items that allow everything are noted once for each dimension and spread over its rows only here:
      // one by one they would cost 257 writes each.
      bits[w] |= all[w];
      if (bits[w]) summary_[row * summaryWords_ + w / 64] |= uint64_t{1} << w % 64;
    }
  }
  all_ = {};
}

}  // namespace Verify
