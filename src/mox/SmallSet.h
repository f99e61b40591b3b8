#pragma once

/// Ordered set of small values of which there is mostly none or one: it holds a single one in the object, and
/// more of them in a Mox::ChunkedSet.
///
/// Iterators follow the value that they stand on, as those of Mox::ChunkedSet do: a walk may delete what it stands
/// on, and goes on with the next value that is there then. A step costs O(log n); forEach() is quicker. Pointers
/// and references end with the next change.

#include "mox/Chunked.h"

#include <cstddef>
#include <iterator>
#include <memory>
#include <type_traits>
#include <utility>
#include <variant>

namespace Mox {

template <class T>
class SmallSet {
  static_assert(std::is_trivially_copyable_v<T> && sizeof(T) <= 8);
  using Many = std::unique_ptr<ChunkedSet<T>>;
  using Values = std::variant<std::monostate, T, Many>;

 public:
  using value_type = T;
  using Key = T;

  class const_iterator {
   public:
    using value_type = T;
    using reference = T const&;
    using pointer = T const*;
    using difference_type = std::ptrdiff_t;
    using iterator_category = std::forward_iterator_tag;

    const_iterator() = default;
    /// Only until the next change.
    reference operator*() const { return *at_; }
    pointer operator->() const { return at_; }
    const_iterator& operator++() {
      standOn(set_->behind(value_));
      return *this;
    }
    const_iterator operator++(int) {
      const_iterator before = *this;
      ++*this;
      return before;
    }
    bool operator==(const_iterator const& o) const {
      return !at_ == !o.at_ && (!at_ || value_ == o.value_);
    }

   private:
    friend class SmallSet;
    const_iterator(SmallSet const* set, T const* at) : set_(set) { standOn(at); }
    void standOn(T const* at) {
      at_ = at;
      if (at) value_ = *at;
    }

    SmallSet const* set_ = nullptr;
    T const* at_ = nullptr;  // null at the end
    T value_{};              // that the iterator stands on, also when it has been deleted
  };
  using iterator = const_iterator;

  const_iterator begin() const { return {this, first()}; }
  const_iterator end() const { return {this, nullptr}; }
  size_t size() const noexcept { return one() ? 1 : many() ? many()->size() : 0; }
  bool empty() const noexcept { return size() == 0; }
  /// Calls `f(value)` for all in order; `f` must not change the set.
  template <class F>
  void forEach(F f) const {
    if (T const* const only = one())
      f(*only);
    else if (many())
      many()->forEach(f);
  }
  void clear() noexcept { values_ = Values(); }

  bool contains(T const& v) const noexcept { return find(v) != nullptr; }
  /// The value in the set, or null.
  T const* find(T const& v) const noexcept {
    if (T const* const only = one()) return *only == v ? only : nullptr;
    return many() ? many()->find(v) : nullptr;
  }
  /// Returns true if the value was absent.
  bool insert(T v) {
    if (contains(v)) return false;
    if (many()) return std::get<Many>(values_)->insert(v);
    if (T const* const only = one()) {
      // Complete before it takes the place of the one, so that an exception leaves the set as it is.
      auto both = std::make_unique<ChunkedSet<T>>();
      both->insert(*only);
      both->insert(v);
      values_ = std::move(both);
    } else {
      values_ = v;
    }
    return true;
  }
  /// Returns true if the value was there.
  bool erase(T const& v) {
    if (!contains(v)) return false;
    if (many() && many()->size() > 1) return std::get<Many>(values_)->erase(v);
    clear();
    return true;
  }

 private:
  T const* one() const noexcept { return std::get_if<T>(&values_); }
  ChunkedSet<T> const* many() const noexcept {
    auto const* held = std::get_if<Many>(&values_);
    return held ? held->get() : nullptr;
  }
  T const* first() const { return one() ? one() : many() ? &*many()->begin() : nullptr; }
  T const* behind(T const& v) const noexcept {
    if (T const* const only = one()) return v < *only ? only : nullptr;
    return many() ? many()->behind(v) : nullptr;
  }

  Values values_;  // never a set of none
};

}  // namespace Mox
