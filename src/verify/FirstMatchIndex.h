#pragma once

/// First match among items in order, by bit vectors.
///
/// The items are compared in several dimensions. In each of them a query has one of 257 values: a
/// byte, or `none`. An item allows, per dimension, all values or some bytes. The index keeps one
/// row of bits per dimension and value, bit i for item i, so the items that fit a query are the AND
/// of one row per dimension, and the first of them is the lowest bit.
///
/// A second bit vector over the words of each row, bit w saying that word w is not 0, makes a
/// sparse row cheap: only words that all rows have bits in are ever read. With n items a query
/// reads at least n / 4096 words per dimension, and a row costs n / 8 bytes.

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Verify {

class FirstMatchIndex {
 public:
  static constexpr size_t rows = 257;
  /// The value of a query that has none: only items that allow everything fit it.
  static constexpr uint16_t none = 256;
  static constexpr size_t noItem = ~size_t{0};

  FirstMatchIndex() = default;
  /// No item fits anything yet. Takes about 32 bytes for each item and dimension.
  FirstMatchIndex(size_t items, size_t dimensions);

  /// The item fits every value, `none` included.
  void allowAll(size_t dimension, size_t item);
  /// The item fits one more byte.
  void allow(size_t dimension, size_t item, uint8_t value);
  /// To be called once all is allowed; queries are possible from then on.
  void finish();

  /// The first item that fits a query, given one value per dimension, and that `accept(item)`
  /// takes; else noItem.
  template <class Accept>
  size_t first(uint16_t const* query, Accept accept) const {
    for (size_t s = 0; s < summaryWords_; ++s) {
      uint64_t words = ~uint64_t{0};
      for (size_t d = 0; d < dimensions_ && words; ++d)
        words &= summary_[(d * rows + query[d]) * summaryWords_ + s];
      for (; words; words &= words - 1) {
        size_t const w = s * 64 + static_cast<size_t>(std::countr_zero(words));
        // Without any dimension all bits of the summary are set, also those beyond the last word.
        if (w >= words_) break;
        uint64_t items = lastWord(w);
        for (size_t d = 0; d < dimensions_ && items; ++d)
          items &= bits_[(d * rows + query[d]) * words_ + w];
        for (; items; items &= items - 1) {
          size_t const item = w * 64 + static_cast<size_t>(std::countr_zero(items));
          if (accept(item)) return item;
        }
      }
    }
    return noItem;
  }

 private:
  /// Bits of the items that exist in a word; matters where there is no dimension.
  uint64_t lastWord(size_t w) const {
    size_t const rest = items_ - w * 64;
    return rest >= 64 ? ~uint64_t{0} : (uint64_t{1} << rest) - 1;
  }

  size_t items_ = 0;
  size_t dimensions_ = 0;
  size_t words_ = 0;
  size_t summaryWords_ = 0;
  std::vector<uint64_t> bits_;
  std::vector<uint64_t> summary_;
  std::vector<uint64_t> all_;  // per dimension the items that allow everything
};

}  // namespace Verify
