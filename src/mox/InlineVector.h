#pragma once

/// Array of plain values of which the first few stand in the object itself.
///
/// For arrays that come by the thousand and mostly have one or two elements: those need no memory of their own.
/// Iterators, pointers and references into an array end with its next change.

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <type_traits>
#include <utility>

namespace Mox {

/// `N` elements stand in the object.
template <class T, size_t N>
class InlineVector {
  static_assert(std::is_trivially_copyable_v<T> && N > 0);

 public:
  using value_type = T;
  using iterator = T*;
  using const_iterator = T const*;

  InlineVector() noexcept {}
  InlineVector(std::initializer_list<T> items) { assign({items.begin(), items.size()}); }
  explicit InlineVector(std::span<T const> items) { assign(items); }
  InlineVector(InlineVector const& o) { assign(o); }
  InlineVector(InlineVector&& o) noexcept { swap(o); }
  InlineVector& operator=(InlineVector o) noexcept {
    swap(o);
    return *this;
  }
  ~InlineVector() { drop(); }

  const_iterator begin() const noexcept { return isElsewhere() ? items_.there : items_.here; }
  const_iterator end() const noexcept { return begin() + size_; }
  iterator begin() noexcept { return isElsewhere() ? items_.there : items_.here; }
  iterator end() noexcept { return begin() + size_; }
  size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  T const& operator[](size_t i) const noexcept { return begin()[i]; }
  T& operator[](size_t i) noexcept { return begin()[i]; }

  void clear() noexcept { size_ = 0; }
  void push_back(T const& v) { insert(size_, v); }
  /// Puts an element before the one at that place.
  void insert(size_t at, T const& v) {
    T const copy = v;  // it may stand here
    if (size_ == capacity_) grow(2 * size_t{capacity_});
    std::copy_backward(begin() + at, end(), end() + 1);
    begin()[at] = copy;
    ++size_;
  }
  void erase(size_t at) noexcept {
    std::copy(begin() + at + 1, end(), begin() + at);
    --size_;
  }
  template <class F>
  void eraseIf(F f) {
    size_ = static_cast<uint32_t>(std::remove_if(begin(), end(), f) - begin());
  }
  /// Leaves the first `n` elements, which are there.
  void shrink(size_t n) noexcept { size_ = static_cast<uint32_t>(n); }
  /// Elements of elsewhere in place of those that there are.
  void assign(std::span<T const> items) {
    if (items.size() > capacity_) {
      size_ = 0;
      grow(items.size());
    }
    std::copy(items.begin(), items.end(), begin());
    size_ = static_cast<uint32_t>(items.size());
  }
  void swap(InlineVector& o) noexcept {
    std::swap(items_, o.items_);
    std::swap(size_, o.size_);
    std::swap(capacity_, o.capacity_);
  }

  friend bool operator==(InlineVector const& a, InlineVector const& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
  }
  friend auto operator<=>(InlineVector const& a, InlineVector const& b) {
    return std::lexicographical_compare_three_way(a.begin(), a.end(), b.begin(), b.end());
  }

 private:
  bool isElsewhere() const noexcept { return capacity_ > N; }
  void drop() noexcept {
    if (isElsewhere()) delete[] items_.there;
  }
  void grow(size_t capacity) {
    T* const more = new T[capacity];
    std::copy(begin(), end(), more);
    drop();
    items_.there = more;
    capacity_ = static_cast<uint32_t>(capacity);
  }

  uint32_t size_ = 0;
  uint32_t capacity_ = N;
  union Items {
    Items() noexcept : there(nullptr) {}
    T here
        [N];  // NOLINT(modernize-avoid-c-arrays): its elements begin to live where they are written
    T* there;
  } items_;
};

}  // namespace Mox
