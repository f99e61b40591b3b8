#pragma once

/// Ascending set of plain values of which the first few stand in the object itself; what is larger is a sorted array,
/// built once and then read. For the pairs of a set and the entries of a rule, of which most have one.

#include "mox/InlineVector.h"

#include <vector>

namespace Mox {

/// `N` members stand in the object.
template <class T, size_t N>
class InlineSet {
 public:
  using value_type = T;
  using Key = T;
  using const_iterator = T const*;
  using iterator = const_iterator;

  const_iterator begin() const noexcept { return items_.begin(); }
  const_iterator end() const noexcept { return items_.end(); }
  size_t size() const noexcept { return items_.size(); }
  bool empty() const noexcept { return items_.empty(); }
  T const& operator[](size_t i) const noexcept { return items_[i]; }
  T const& front() const noexcept { return items_[0]; }
  T const& back() const noexcept { return items_[size() - 1]; }
  std::vector<T> items() const { return {begin(), end()}; }
  void clear() noexcept { items_.clear(); }

  bool contains(T const& v) const noexcept { return find(v) != nullptr; }
  /// The member that is equal, or null.
  T const* find(T const& v) const noexcept {
    auto const i = std::lower_bound(begin(), end(), v);
    return i != end() && !(v < *i) ? i : nullptr;
  }
  /// Returns true if it was absent.
  bool insert(T const& v) {
    auto const i = std::lower_bound(begin(), end(), v);
    if (i != end() && !(v < *i)) return false;
    items_.insert(static_cast<size_t>(i - begin()), v);
    return true;
  }
  /// Returns true if it was there.
  bool erase(T const& v) {
    T const* const found = find(v);
    if (found) items_.erase(static_cast<size_t>(found - begin()));
    return found;
  }
  /// Takes members of elsewhere in any order in place of those that there are.
  void adopt(std::span<T const> items) {
    auto const notLess = [](T const& a, T const& b) { return !(a < b); };
    // What comes in order already, as it mostly does, is taken over without sorting.
    if (std::adjacent_find(items.begin(), items.end(), notLess) == items.end())
      return items_.assign(items);
    std::vector<T> sorted(items.begin(), items.end());
    std::sort(sorted.begin(), sorted.end());
    sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
    items_.assign(sorted);
  }

  friend bool operator==(InlineSet const&, InlineSet const&) = default;
  friend auto operator<=>(InlineSet const& a, InlineSet const& b) { return a.items_ <=> b.items_; }

 private:
  InlineVector<T, N> items_;
};

}  // namespace Mox
