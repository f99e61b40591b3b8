#pragma once

/// Ordered collections that are edited at random and walked often: ascending pieces of contiguous
/// memory. A walk reads memory from end to end, a lookup is O(log n), an insertion or deletion moves
/// at most one piece and costs O(sqrt n) at worst, O(1) behind the last key. A small collection is one
/// piece: a sorted array.
///
/// Iterators follow the key that they stand on. So a walk stays on its way whatever is deleted or
/// inserted meanwhile, its own element included: it goes on with the next key that is there then.
/// Pointers and references end with the next change.

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace Mox {

/// The common structure: elements T, ordered by KeyOf::key(T).
template <class T, class KeyOf>
class Chunked {
  using Chunk = std::vector<T>;

 public:
  using value_type = T;
  using Key = std::remove_cvref_t<decltype(KeyOf::key(std::declval<T const&>()))>;

  class const_iterator {
   public:
    using value_type = T;
    using reference = T const&;
    using pointer = T const*;
    using difference_type = std::ptrdiff_t;
    using iterator_category = std::forward_iterator_tag;

    const_iterator() = default;
    /// Only while the element is there.
    reference operator*() const { return coll_->chunk(chunk_)[at_]; }
    pointer operator->() const { return &**this; }
    const_iterator& operator++() {
      if (standsOnKey()) {
        if (++at_ == coll_->chunk(chunk_).size()) {
          ++chunk_;
          at_ = 0;
        }
      } else {
        // The element has been deleted or has moved to another piece: the key says where to go on.
        std::tie(chunk_, at_) = coll_->placeBehind(key_);
      }
      settle();
      return *this;
    }
    const_iterator operator++(int) {
      const_iterator before = *this;
      ++*this;
      return before;
    }
    bool operator==(const_iterator const& o) const {
      return atEnd_ == o.atEnd_ && (atEnd_ || key_ == o.key_);
    }

   private:
    friend class Chunked;
    const_iterator(Chunked const* coll, size_t chunk) : coll_(coll), chunk_(chunk) { settle(); }

    bool standsOnKey() const {
      return chunk_ < coll_->chunks() && at_ < coll_->chunk(chunk_).size() &&
             KeyOf::key(**this) == key_;
    }
    void settle() {
      atEnd_ = chunk_ >= coll_->chunks();
      if (!atEnd_) key_ = KeyOf::key(**this);
    }

    Chunked const* coll_ = nullptr;
    size_t chunk_ = 0;
    size_t at_ = 0;
    Key key_{};
    bool atEnd_ = true;
  };
  using iterator = const_iterator;

  const_iterator begin() const { return {this, 0}; }
  const_iterator end() const { return {this, chunks()}; }
  size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  /// Calls `f(element)` for all in order, quicker than iterators; `f` must not change the collection.
  template <class F>
  void forEach(F f) const {
    for (T const& item : head_) f(item);
    for (Chunk const& piece : more_)
      for (T const& item : piece) f(item);
  }
  void clear() noexcept {
    head_.clear();
    more_.clear();
    size_ = 0;
  }

  bool contains(Key const& key) const noexcept { return find(key) != nullptr; }
  /// The element of that key, or null.
  T const* find(Key const& key) const noexcept {
    size_t const at = chunkOf(key);
    if (at == chunks()) return nullptr;
    auto const item = placeIn(chunk(at), key);
    return key < KeyOf::key(*item) ? nullptr : &*item;
  }
  /// The first element behind a key, which need not be there, or null.
  T const* behind(Key const& key) const noexcept {
    auto const [piece, at] = placeBehind(key);
    return piece < chunks() ? &chunk(piece)[at] : nullptr;
  }
  /// Inserts, or replaces the element of the same key. Returns true if there was none.
  bool insert(T item) {
    if (T* known = findMutable(KeyOf::key(item))) {
      *known = std::move(item);
      return false;
    }
    size_t at = chunkOf(KeyOf::key(item));
    // The common case of a collection that is filled in order: no piece is split, so that all but the last
    // stay full.
    bool const behindAll = at == chunks();
    if (behindAll && at > 0) --at;
    Chunk* into = &chunk(at);
    if (behindAll && into->size() == chunkSize) {
      Chunk last;
      last.push_back(std::move(item));
      more_.push_back(std::move(last));
    } else {
      if (into->size() == chunkSize) into = &chunk(split(at, KeyOf::key(item)));
      into->insert(placeIn(*into, KeyOf::key(item)), std::move(item));
    }
    ++size_;
    return true;
  }
  /// Returns true if there was an element of that key.
  bool erase(Key const& key) {
    size_t const at = chunkOf(key);
    if (at == chunks()) return false;
    Chunk& from = chunk(at);
    auto const item = placeIn(from, key);
    if (key < KeyOf::key(*item)) return false;
    from.erase(item);
    --size_;
    if (!from.empty() || more_.empty()) return true;
    // No piece may be empty, or a search by the last keys of the pieces would fail.
    if (at == 0) std::swap(head_, more_.front());
    more_.erase(more_.begin() + static_cast<std::ptrdiff_t>(at == 0 ? 0 : at - 1));
    return true;
  }

 protected:
  T* findMutable(Key const& key) noexcept { return const_cast<T*>(std::as_const(*this).find(key)); }

 private:
  static constexpr size_t chunkSize = 256;

  // The first piece stands in the object: most collections of a configuration have no other.
  size_t chunks() const noexcept { return size_ == 0 ? 0 : 1 + more_.size(); }
  Chunk const& chunk(size_t i) const noexcept { return i == 0 ? head_ : more_[i - 1]; }
  Chunk& chunk(size_t i) noexcept { return i == 0 ? head_ : more_[i - 1]; }

  /// The first piece that does not end before `key`; chunks() if all do.
  size_t chunkOf(Key const& key) const noexcept {
    if (size_ == 0 || !(KeyOf::key(head_.back()) < key)) return 0;
    auto const i =
        std::lower_bound(more_.begin(), more_.end(), key,
                         [](Chunk const& c, Key const& k) { return KeyOf::key(c.back()) < k; });
    return 1 + static_cast<size_t>(i - more_.begin());
  }
  static typename Chunk::const_iterator placeIn(Chunk const& chunk, Key const& key) noexcept {
    return std::lower_bound(chunk.begin(), chunk.end(), key,
                            [](T const& v, Key const& k) { return KeyOf::key(v) < k; });
  }
  /// Piece and position of the first element behind `key`.
  std::pair<size_t, size_t> placeBehind(Key const& key) const noexcept {
    size_t const at = chunkOf(key);
    if (at == chunks()) return {at, 0};
    auto item = placeIn(chunk(at), key);
    if (!(key < KeyOf::key(*item))) ++item;
    auto const position = static_cast<size_t>(item - chunk(at).begin());
    return position == chunk(at).size() ? std::pair(at + 1, size_t{0}) : std::pair(at, position);
  }
  /// Halves a full piece; returns the half that `key` belongs to.
  size_t split(size_t at, Key const& key) {
    more_.emplace(more_.begin() + static_cast<std::ptrdiff_t>(at));
    Chunk& lower = chunk(at);
    Chunk& upper = chunk(at + 1);
    auto const middle = lower.begin() + chunkSize / 2;
    // What may fail comes before any element is moved, and the new piece is taken out again.
    try {
      upper.reserve(chunkSize);
    } catch (...) {
      more_.erase(more_.begin() + static_cast<std::ptrdiff_t>(at));
      throw;
    }
    upper.assign(std::make_move_iterator(middle), std::make_move_iterator(lower.end()));
    lower.erase(middle, lower.end());
    return key < KeyOf::key(upper.front()) ? at : at + 1;
  }

  Chunk head_;
  std::vector<Chunk> more_;  // none is empty
  size_t size_ = 0;
};

struct ChunkedSetKey {
  template <class T>
  static T const& key(T const& v) noexcept {
    return v;
  }
};
struct ChunkedMapKey {
  template <class P>
  static auto const& key(P const& p) noexcept {
    return p.first;
  }
};

template <class T>
using ChunkedSet = Chunked<T, ChunkedSetKey>;

/// Map over the same structure.
template <class K, class V>
class ChunkedMap : public Chunked<std::pair<K, V>, ChunkedMapKey> {
  using Base = Chunked<std::pair<K, V>, ChunkedMapKey>;

 public:
  using mapped_type = V;

  /// The value under `key`, or null.
  V const* get(K const& key) const noexcept {
    auto const* item = Base::find(key);
    return item ? &item->second : nullptr;
  }
  V* get(K const& key) noexcept {
    auto* item = Base::findMutable(key);
    return item ? &item->second : nullptr;
  }
  /// Inserts or overwrites. Returns true if the key was absent.
  bool set(K key, V value) { return Base::insert({std::move(key), std::move(value)}); }
};

}  // namespace Mox
