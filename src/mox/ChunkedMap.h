#pragma once

/// Ordered map for large collections that are edited at random and walked often: ascending pieces of
/// contiguous memory. A walk reads memory from end to end, a lookup is O(log n), an insertion or
/// deletion moves at most one piece and costs O(sqrt n) at worst, O(1) behind the last key. Iterators,
/// pointers and references end with the next change.

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>
#include <vector>

namespace Mox {

template <class K, class V>
class ChunkedMap {
  using Chunk = std::vector<std::pair<K, V>>;

 public:
  using Key = K;
  using mapped_type = V;
  using value_type = std::pair<K, V>;

  class const_iterator {
   public:
    using value_type = ChunkedMap::value_type;
    using reference = value_type const&;
    using pointer = value_type const*;
    using difference_type = std::ptrdiff_t;
    using iterator_category = std::forward_iterator_tag;

    const_iterator() = default;
    reference operator*() const { return (*chunk_)[at_]; }
    pointer operator->() const { return &(*chunk_)[at_]; }
    const_iterator& operator++() {
      if (++at_ == chunk_->size()) {
        ++chunk_;
        at_ = 0;
      }
      return *this;
    }
    const_iterator operator++(int) {
      const_iterator before = *this;
      ++*this;
      return before;
    }
    bool operator==(const_iterator const&) const = default;

   private:
    friend class ChunkedMap;
    const_iterator(Chunk const* chunk, size_t at) : chunk_(chunk), at_(at) {}

    Chunk const* chunk_ = nullptr;
    size_t at_ = 0;
  };
  using iterator = const_iterator;

  const_iterator begin() const noexcept { return {chunks_.data(), 0}; }
  const_iterator end() const noexcept { return {chunks_.data() + chunks_.size(), 0}; }
  size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  void clear() noexcept {
    chunks_.clear();
    size_ = 0;
  }

  bool contains(K const& key) const noexcept { return get(key) != nullptr; }
  /// The value under `key`, or null.
  V const* get(K const& key) const noexcept {
    auto const chunk = chunkOf(key);
    if (chunk == chunks_.end()) return nullptr;
    auto const item = placeIn(*chunk, key);
    return key < item->first ? nullptr : &item->second;
  }
  V* get(K const& key) noexcept { return const_cast<V*>(std::as_const(*this).get(key)); }
  /// Inserts or overwrites. Returns true if the key was absent.
  bool set(K const& key, V value) {
    if (V* known = get(key)) {
      *known = std::move(value);
      return false;
    }
    size_t at = static_cast<size_t>(chunkOf(key) - chunks_.cbegin());
    if (at == chunks_.size() && (chunks_.empty() || chunks_.back().size() == chunkSize)) {
      chunks_.emplace_back().reserve(16);
    } else {
      at = std::min(at, chunks_.size() - 1);
      if (chunks_[at].size() == chunkSize) at = split(at, key);
    }
    Chunk& chunk = chunks_[at];
    chunk.emplace(placeIn(chunk, key), key, std::move(value));
    ++size_;
    return true;
  }
  /// Returns true if there was an element of that key.
  bool erase(K const& key) {
    auto const chunk = chunkOf(key);
    if (chunk == chunks_.end()) return false;
    auto const item = placeIn(*chunk, key);
    if (key < item->first) return false;
    Chunk& mutableChunk = chunks_[static_cast<size_t>(chunk - chunks_.cbegin())];
    mutableChunk.erase(item);
    if (mutableChunk.empty()) chunks_.erase(chunk);
    --size_;
    return true;
  }

 private:
  static constexpr size_t chunkSize = 256;

  /// The first piece that does not end before `key`.
  typename std::vector<Chunk>::const_iterator chunkOf(K const& key) const noexcept {
    return std::lower_bound(chunks_.begin(), chunks_.end(), key,
                            [](Chunk const& c, K const& k) { return c.back().first < k; });
  }
  static typename Chunk::const_iterator placeIn(Chunk const& chunk, K const& key) noexcept {
    return std::lower_bound(chunk.begin(), chunk.end(), key,
                            [](value_type const& v, K const& k) { return v.first < k; });
  }
  /// Halves a full piece; returns the half that `key` belongs to.
  size_t split(size_t at, K const& key) {
    Chunk upper;
    upper.reserve(chunkSize);
    auto const middle = chunks_[at].begin() + chunkSize / 2;
    upper.assign(std::make_move_iterator(middle), std::make_move_iterator(chunks_[at].end()));
    bool const inUpper = !(key < upper.front().first);
    chunks_.insert(chunks_.begin() + static_cast<std::ptrdiff_t>(at) + 1, std::move(upper));
    chunks_[at].resize(chunkSize / 2);
    return inUpper ? at + 1 : at;
  }

  std::vector<Chunk> chunks_;  // none is empty
  size_t size_ = 0;
};

}  // namespace Mox
