#pragma once

/// Where keys stand in an ascending array of keys.

#include "mox/Assert.h"
#include "naxel/genset/GenSetTypes.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <vector>

namespace Naxel {

/// Idea. The numbers between the first key and the last are cut into equal pieces, about as many as there are keys,
/// and a table says where the keys of each piece begin. Keys are given out one behind the other, so a piece holds one
/// or two of them; where most of the keys that were given out have gone, the search within a piece is binary.
class KeyPlaces {
 public:
  static constexpr uint32_t none = std::numeric_limits<uint32_t>::max();

  KeyPlaces() = default;
  /// `keys` are ascending.
  explicit KeyPlaces(std::vector<GenSetKey> keys) : keys_(std::move(keys)) {
    if (keys_.empty()) return;
    uint64_t const last = keys_.back().value() - first();
    shift_ = std::max(
        0, static_cast<int>(std::bit_width(last)) - static_cast<int>(std::bit_width(keys_.size())));
    begins_.resize(static_cast<size_t>(last >> shift_) + 2);
    size_t piece = 0;
    for (uint32_t i = 0; i < keys_.size(); ++i)
      for (size_t const in = pieceOf(keys_[i]); piece <= in; ++piece) begins_[piece] = i;
    for (; piece < begins_.size(); ++piece) begins_[piece] = static_cast<uint32_t>(keys_.size());
  }

  /// Place of a key; `none` if it is not among them.
  uint32_t of(GenSetKey key) const {
    // A key below the first wraps around and is beyond the last as well.
    if (keys_.empty() || key.value() - first() > keys_.back().value() - first()) return none;
    size_t const piece = pieceOf(key);
    uint32_t at = begins_[piece];
    uint32_t end = begins_[piece + 1];
    while (end - at > 4) {
      uint32_t const middle = at + (end - at) / 2;
      (keys_[middle] <= key ? at : end) = middle;
    }
    for (; at < end; ++at)
      if (keys_[at] == key) return at;
    return none;
  }

  /// Place of a key that must be among them.
  uint32_t at(GenSetKey key) const {
    uint32_t const place = of(key);
    MOX_ASSERT(place != none);
    return place;
  }

 private:
  uint64_t first() const { return keys_.front().value(); }
  size_t pieceOf(GenSetKey key) const {
    return static_cast<size_t>((key.value() - first()) >> shift_);
  }

  std::vector<GenSetKey> keys_;
  std::vector<uint32_t> begins_;  // of each piece, and the end
  int shift_ = 0;
};

/// The keys of a map in its order.
template <class Map>
std::vector<GenSetKey> keysOf(Map const& map) {
  std::vector<GenSetKey> keys;
  keys.reserve(map.size());
  for (auto const& [key, value] : map) keys.push_back(key);
  return keys;
}

}  // namespace Naxel
