#pragma once

/// Ordered collections in one contiguous array, iterated in ascending order of the key.
///
/// For the members of sets, the tables and the label lists, which are built once and then read: built in
/// ascending order an insertion costs amortised O(1), a lookup O(log n), and an element nothing but
/// itself. An insertion or deletion elsewhere than at the end moves what follows, O(n). Large collections
/// that are edited at random are Mox::HashSet and Mox::HashMap, and Mox::ChunkedSet and Mox::ChunkedMap
/// where they need an order. Iterators, pointers and references into a collection end with its next
/// change.

#include <algorithm>
#include <compare>
#include <cstddef>
#include <span>
#include <utility>
#include <vector>

namespace Mox {

/// The common structure: elements T, ordered by KeyOf::key(T).
template <class T, class KeyOf>
class SortedVector {
 public:
  using value_type = T;
  using Key = std::remove_cvref_t<decltype(KeyOf::key(std::declval<T const&>()))>;
  using const_iterator = typename std::vector<T>::const_iterator;
  using iterator = const_iterator;

  const_iterator begin() const noexcept { return items_.begin(); }
  const_iterator end() const noexcept { return items_.end(); }
  size_t size() const noexcept { return items_.size(); }
  bool empty() const noexcept { return items_.empty(); }
  T const& operator[](size_t i) const noexcept { return items_[i]; }
  T const& front() const noexcept { return items_.front(); }
  T const& back() const noexcept { return items_.back(); }
  std::vector<T> const& items() const noexcept { return items_; }

  void reserve(size_t n) { items_.reserve(n); }
  void clear() noexcept { items_.clear(); }

  bool contains(Key const& key) const noexcept { return find(key) != nullptr; }
  /// The element of that key, or null.
  T const* find(Key const& key) const noexcept {
    auto const i = position(key);
    return i != items_.end() && !(key < KeyOf::key(*i)) ? &*i : nullptr;
  }

  /// Inserts, or replaces the element of the same key. Returns true if there was none.
  bool insert(T item) {
    if (items_.empty() || KeyOf::key(items_.back()) < KeyOf::key(item)) {
      items_.push_back(std::move(item));
      return true;
    }
    auto const i = position(KeyOf::key(item));
    auto const at = items_.begin() + (i - items_.cbegin());
    if (!(KeyOf::key(item) < KeyOf::key(*i))) {
      *at = std::move(item);
      return false;
    }
    items_.insert(at, std::move(item));
    return true;
  }
  /// Returns true if there was an element of that key.
  bool erase(Key const& key) {
    auto const i = position(key);
    if (i == items_.end() || key < KeyOf::key(*i)) return false;
    items_.erase(i);
    return true;
  }
  /// Takes over elements in any order; of several of one key the first stays.
  void adopt(std::vector<T> items) {
    auto const less = [](T const& a, T const& b) { return KeyOf::key(a) < KeyOf::key(b); };
    auto const notLess = [&](T const& a, T const& b) { return !less(a, b); };
    // What comes in order already, as it mostly does, is taken over without sorting.
    if (std::adjacent_find(items.begin(), items.end(), notLess) != items.end()) {
      // Stable, so that it is decided which one of equal keys stays.
      std::stable_sort(items.begin(), items.end(), less);
      items.erase(std::unique(items.begin(), items.end(), notLess), items.end());
    }
    items_ = std::move(items);
  }

  friend bool operator==(SortedVector const&, SortedVector const&) = default;
  friend auto operator<=>(SortedVector const& a,
                          SortedVector const& b) requires std::three_way_comparable<T> {
    return a.items_ <=> b.items_;
  }

 protected:
  const_iterator position(Key const& key) const noexcept {
    return std::lower_bound(items_.begin(), items_.end(), key,
                            [](T const& a, Key const& k) { return KeyOf::key(a) < k; });
  }

  std::vector<T> items_;
};

struct KeyIsItself {
  template <class T>
  static T const& key(T const& v) noexcept {
    return v;
  }
};
struct KeyIsFirst {
  template <class P>
  static auto const& key(P const& p) noexcept {
    return p.first;
  }
};
/// For records with an accessor key().
struct KeyIsKey {
  template <class T>
  static auto const& key(T const& v) noexcept {
    return v.key();
  }
};

template <class T>
using FlatSet = SortedVector<T, KeyIsItself>;

/// The elements of a FlatSet that stand in an array of somebody else, who keeps them there.
template <class T>
class FlatSetView {
 public:
  using value_type = T;
  using const_iterator = typename std::span<T const>::iterator;

  FlatSetView() = default;
  /// Ascending, each once.
  explicit FlatSetView(std::span<T const> items) : items_(items) {}
  FlatSetView(FlatSet<T> const& set) : items_(set.items()) {}

  const_iterator begin() const noexcept { return items_.begin(); }
  const_iterator end() const noexcept { return items_.end(); }
  size_t size() const noexcept { return items_.size(); }
  bool empty() const noexcept { return items_.empty(); }
  T const& operator[](size_t i) const noexcept { return items_[i]; }
  T const& front() const noexcept { return items_.front(); }
  T const& back() const noexcept { return items_.back(); }
  std::span<T const> items() const noexcept { return items_; }
  bool contains(T const& v) const noexcept {
    return std::binary_search(items_.begin(), items_.end(), v);
  }
  friend bool operator==(FlatSetView const& a, FlatSetView const& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
  }

 private:
  std::span<T const> items_;
};

/// Map over the same structure.
template <class K, class V>
class FlatMap : public SortedVector<std::pair<K, V>, KeyIsFirst> {
  using Base = SortedVector<std::pair<K, V>, KeyIsFirst>;

 public:
  using mapped_type = V;

  /// The value under `key`, or null.
  V const* get(K const& key) const noexcept {
    auto const* item = Base::find(key);
    return item ? &item->second : nullptr;
  }
  V* get(K const& key) noexcept { return const_cast<V*>(std::as_const(*this).get(key)); }
  /// The value of the element at a position.
  V& valueAt(size_t i) noexcept { return Base::items_[i].second; }
  /// The value under `key`, default-constructed and inserted if absent.
  V& at(K const& key) {
    if (V* v = get(key)) return *v;
    Base::insert({key, V{}});
    return *get(key);
  }
  /// Inserts or overwrites. Returns true if the key was absent.
  bool set(K key, V value) { return Base::insert({std::move(key), std::move(value)}); }
};

}  // namespace Mox
