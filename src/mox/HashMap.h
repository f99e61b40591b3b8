#pragma once

/// Hash collections with a defined iteration order: the order of insertion. Elements stand in one
/// dense array beside an open-addressing index, so iteration is a walk over memory and the order
/// depends on nothing but the sequence of operations. Lookup, insertion and deletion are O(1) on
/// average, whatever the keys are: their places depend on a secret of the process (KeyedHash.h).
/// Iterators, pointers and references into a collection end with its next insertion; deletion leaves
/// a gap, which iterators step over and the next insertions close, so that a walk may delete what it
/// stands on.
///
/// A collection of up to eight elements has no index and is searched from end to end: most
/// collections of a configuration hold one or two elements, and then they are one small array.

#include "mox/KeyedHash.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <numeric>
#include <type_traits>
#include <utility>
#include <vector>

namespace Mox {

/// The common structure: elements T, told apart by KeyOf::key(T).
template <class T, class KeyOf>
class HashTable {
 public:
  using value_type = T;
  using Key = std::remove_cvref_t<decltype(KeyOf::key(std::declval<T const&>()))>;

  /// Forward iterator that steps over deleted places.
  class const_iterator {
   public:
    using value_type = T;
    using reference = T const&;
    using pointer = T const*;
    using difference_type = std::ptrdiff_t;
    using iterator_category = std::forward_iterator_tag;

    const_iterator() = default;
    const_iterator(HashTable const* table, size_t at) : table_(table), at_(at) { settle(); }
    T const& operator*() const { return table_->items_[at_]; }
    T const* operator->() const { return &table_->items_[at_]; }
    const_iterator& operator++() {
      ++at_;
      settle();
      return *this;
    }
    const_iterator operator++(int) {
      const_iterator before = *this;
      ++*this;
      return before;
    }
    bool operator==(const_iterator const& o) const { return at_ == o.at_; }

   private:
    void settle() {
      while (at_ < table_->items_.size() && !table_->isLive(at_)) at_ = table_->pastGap(at_);
    }
    HashTable const* table_ = nullptr;
    size_t at_ = 0;
  };
  using iterator = const_iterator;

  const_iterator begin() const noexcept { return {this, 0}; }
  const_iterator end() const noexcept { return {this, items_.size()}; }
  size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  /// Calls `f(element)` for all in order, quicker than iterators; `f` must not change the collection.
  template <class F>
  void forEach(F f) const {
    if (!gaps_.empty())
      for (T const& item : *this) f(item);
    else
      for (T const& item : items_) f(item);
  }

  void clear() noexcept {
    items_.clear();
    gaps_.clear();
    index_.clear();
    size_ = 0;
  }

  /// Makes room for `n` elements in all, so that inserting them does not move any.
  void reserve(size_t n) {
    items_.reserve(n);
    if (n > smallSize && n * 4 > index_.size() * 3) rebuild(n);
  }

  bool contains(Key const& key) const noexcept { return find(key) != nullptr; }
  /// The element of that key, or null.
  T const* find(Key const& key) const noexcept {
    size_t const at = positionOf(key);
    return at == none ? nullptr : &items_[at];
  }
  /// Inserts if no element of the key is there. Returns true if it was inserted.
  bool insert(T item) {
    if (contains(KeyOf::key(item))) return false;
    insertAbsent(std::move(item));
    return true;
  }
  /// Inserts an element whose key is known to be absent, and returns it in its place.
  T& insertAbsent(T item) {
    if (size_ == 0 && !items_.empty()) clear();  // only now: iterators live through deletions
    size_t const places = items_.size() + 1;
    // Gaps count as places here, since nothing but a rebuild closes them.
    if (index_.empty() ? places > smallSize : places * 4 > index_.size() * 3) rebuild(size_ + 1);
    bool const gaps = !gaps_.empty();
    // First, so that the two arrays agree again whichever of the two insertions runs out of memory.
    if (gaps) gaps_.push_back(static_cast<uint32_t>(items_.size()));
    try {
      items_.push_back(std::move(item));
    } catch (...) {
      if (gaps) gaps_.pop_back();
      throw;
    }
    if (!index_.empty()) place(items_.size() - 1);
    ++size_;
    return items_.back();
  }
  /// Puts an element in the place of the one of its key. Returns true if there was one.
  bool replace(T item) {
    T* known = findMutable(KeyOf::key(item));
    if (known) *known = std::move(item);
    return known != nullptr;
  }
  /// Returns true if there was an element of that key.
  bool erase(Key const& key) {
    size_t const at = positionOf(key);
    if (at == none) return false;
    if (gaps_.empty()) {
      gaps_.resize(items_.size());
      std::iota(gaps_.begin(), gaps_.end(), uint32_t{0});
    }
    // Not vacant: a search for a key that has been placed behind this slot must go on.
    if (!index_.empty()) index_[slotOf(key)] = deleted;
    // What the element owns is given back now and not with the next insertion.
    items_[at] = T();
    --size_;
    openGap(at);
    return true;
  }

 protected:
  static constexpr size_t none = ~size_t{0};
  static constexpr uint32_t vacant = ~uint32_t{0};
  static constexpr uint32_t deleted = vacant - 1;
  static constexpr size_t smallSize = 8;

  T* findMutable(Key const& key) noexcept {
    size_t const at = positionOf(key);
    return at == none ? nullptr : &items_[at];
  }

 private:
  static size_t startOf(Key const& key) noexcept { return static_cast<size_t>(placeOf(key)); }

  bool isLive(size_t at) const noexcept { return gaps_.empty() || gaps_[at] == at; }
  /// Makes the place part of the gap around it, so that a walk crosses any gap in one step.
  void openGap(size_t at) noexcept {
    size_t begin = at;
    if (at > 0 && !isLive(at - 1)) begin = std::min<size_t>(at - 1, gaps_[at - 1]);
    size_t const end = at + 1 < items_.size() && !isLive(at + 1) ? pastGap(at + 1) : at + 1;
    gaps_[at] = static_cast<uint32_t>(at + 1);
    gaps_[end - 1] = static_cast<uint32_t>(begin);
    gaps_[begin] = static_cast<uint32_t>(end);
  }
  /// A place behind a deleted one with nothing in between: the end of the gap where it begins there.
  /// A walk that deletes what it stands on can go on from inside of a gap.
  size_t pastGap(size_t at) const noexcept { return std::max<size_t>(at + 1, gaps_[at]); }
  size_t positionOf(Key const& key) const noexcept {
    if (!index_.empty()) {
      size_t const slot = slotOf(key);
      return slot == none ? none : index_[slot];
    }
    for (size_t at = 0; at < items_.size(); ++at)
      if (isLive(at) && KeyOf::key(items_[at]) == key) return at;
    return none;
  }
  size_t slotOf(Key const& key) const noexcept {
    size_t const mask = index_.size() - 1;
    for (size_t slot = startOf(key) & mask;; slot = (slot + 1) & mask) {
      uint32_t const at = index_[slot];
      if (at == vacant) return none;
      if (at != deleted && KeyOf::key(items_[at]) == key) return slot;
    }
  }
  void place(size_t at) noexcept {
    size_t const mask = index_.size() - 1;
    size_t slot = startOf(KeyOf::key(items_[at])) & mask;
    while (index_[slot] != vacant && index_[slot] != deleted) slot = (slot + 1) & mask;
    index_[slot] = static_cast<uint32_t>(at);
  }
  /// Closes the gaps that deletions left and gives the index room for twice `n` elements; none where
  /// they are few.
  void rebuild(size_t n) {
    size_t capacity = 0;
    if (n > smallSize)
      for (capacity = 2 * smallSize; capacity < n * 2;) capacity *= 2;
    // Allocated before anything is moved, so that an exception leaves the table as it is.
    std::vector<uint32_t> index(capacity, vacant);
    if (!gaps_.empty()) {
      size_t to = 0;
      for (size_t from = 0; from < items_.size(); ++from) {
        if (!isLive(from)) continue;
        if (to != from) items_[to] = std::move(items_[from]);
        ++to;
      }
      items_.resize(to);
      gaps_.clear();
    }
    index_ = std::move(index);
    if (!index_.empty())
      for (size_t at = 0; at < items_.size(); ++at) place(at);
  }

  std::vector<T> items_;
  // Empty while nothing was deleted. Else, for each place: itself where an element stands; for a gap, its
  // end at its first place and its first place at its last one. Inside of a gap, any other place.
  std::vector<uint32_t> gaps_;
  std::vector<uint32_t> index_;  // positions in items_; a power of two many, at most 3/4 in use
  size_t size_ = 0;
};

struct SetKey {
  template <class T>
  static T const& key(T const& v) noexcept {
    return v;
  }
};
struct MapKey {
  template <class P>
  static auto const& key(P const& p) noexcept {
    return p.first;
  }
};

template <class T>
using HashSet = HashTable<T, SetKey>;

/// Map over the same structure.
template <class K, class V>
class HashMap : public HashTable<std::pair<K, V>, MapKey> {
  using Base = HashTable<std::pair<K, V>, MapKey>;

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
  /// The value under `key`, default-constructed and inserted if absent.
  V& at(K const& key) {
    if (V* v = get(key)) return *v;
    return Base::insertAbsent({key, V{}}).second;
  }
  /// Inserts or overwrites. Returns true if the key was absent.
  bool set(K key, V value) {
    if (V* v = get(key)) {
      *v = std::move(value);
      return false;
    }
    Base::insertAbsent({std::move(key), std::move(value)});
    return true;
  }
};

}  // namespace Mox
