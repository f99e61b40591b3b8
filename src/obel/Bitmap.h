#pragma once

/// Fixed-size bitmap with operations on ranges of bits, all of them by whole words.

#include "mox/Export.h"
#include "mox/Ptr.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace Obel {

/// Bit numbers go from 0 to size() - 1; one out of range is a broken invariant. Ranges are
/// inclusive.
class NAXEL_EXPORT Bitmap : public Mox::RefCounted {
 public:
  /// Which of several bits a search returns.
  enum class IndexPreference { lowest };

  /// All bits clear. `size` is at least 1.
  explicit Bitmap(uint32_t size);
  /// Names it among the attributes of an entity.
  std::string_view fwkType() const { return "Obel::Bitmap"; }

  uint32_t size() const { return size_; }
  /// O(1); operations on a range cost its words.
  bool bitIsSet(uint32_t i) const;
  void setBitsInRange(uint32_t first, uint32_t last);
  void clearBitsInRange(uint32_t first, uint32_t last);
  /// Number of set bits; O(1).
  uint32_t numBitsInSetState() const { return set_; }
  uint32_t numBitsInSetStateInRange(uint32_t first, uint32_t last) const;
  /// The lowest clear bit of the range, whose end is cut to the bitmap; size() if there is none.
  uint32_t findClearBitInRange(uint32_t first, uint32_t last, IndexPreference preference) const;

 private:
  /// Calls `f(word index, mask of the bits of the range in that word)`.
  template <class F>
  void forEachWord(uint32_t first, uint32_t last, F f) const;

  uint32_t size_;
  uint32_t set_ = 0;
  std::vector<uint64_t> words_;
};
NAXEL_EXPORT Mox::Ptr<Bitmap> bitmapFactory(uint32_t size);

}  // namespace Obel
