#pragma once

/// Where keys stand in an ascending array of keys.

#include "mox/Assert.h"
#include "naxel/genset/GenSetTypes.h"

#include <algorithm>
#include <limits>
#include <vector>

namespace Naxel {

/// Answers by a table where the keys lie close together, as they do until most of the keys that were
/// given out have gone, and by search elsewhere.
class KeyPlaces {
 public:
  static constexpr uint32_t none = std::numeric_limits<uint32_t>::max();

  KeyPlaces() = default;
  /// `keys` are ascending.
  explicit KeyPlaces(std::vector<GenSetKey> keys) : keys_(std::move(keys)) {
    // The table has a word for every key between the first and the last. It is made only where that is in
    // proportion to the keys that are there.
    if (keys_.empty() || span() > 16 * uint64_t{keys_.size()} + 64) return;
    table_.assign(static_cast<size_t>(span()), none);
    for (uint32_t i = 0; i < keys_.size(); ++i) table_[keys_[i].value() - first()] = i;
  }

  /// Place of a key; `none` if it is not among them.
  uint32_t of(GenSetKey key) const {
    if (!table_.empty()) {
      // A key below the first wraps around and is beyond the table as well.
      uint64_t const at = key.value() - first();
      return at < table_.size() ? table_[at] : none;
    }
    auto const i = std::lower_bound(keys_.begin(), keys_.end(), key);
    return i != keys_.end() && *i == key ? static_cast<uint32_t>(i - keys_.begin()) : none;
  }

  /// Place of a key that must be among them.
  uint32_t at(GenSetKey key) const {
    uint32_t const place = of(key);
    MOX_ASSERT(place != none);
    return place;
  }

 private:
  uint64_t first() const { return keys_.front().value(); }
  uint64_t span() const { return keys_.back().value() - first() + 1; }

  std::vector<GenSetKey> keys_;
  std::vector<uint32_t> table_;
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
