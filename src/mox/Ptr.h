#pragma once

/// Intrusive reference counting. A Mox::Ptr<T> shares ownership of an object that derives from
/// Mox::RefCounted; parents hold Ptrs to their children, children refer back by plain pointers, so
/// there are no cycles. Counting is not atomic: all objects of a pipeline live on one activity
/// thread. A build with MOX_ATOMIC_REFCOUNT=1 counts atomically.

#include "mox/Export.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>
#if MOX_ATOMIC_REFCOUNT
#include <atomic>
#endif

namespace Mox {

/// Base of everything that a Ptr can own. Copying an object does not copy its count.
class NAXEL_EXPORT RefCounted {
 public:
  RefCounted() noexcept = default;
  RefCounted(RefCounted const&) noexcept {}
  RefCounted& operator=(RefCounted const&) noexcept { return *this; }
  virtual ~RefCounted() = default;

  /// Number of Ptrs that own this object.
  uint32_t references() const noexcept { return references_; }

 private:
  template <class T>
  friend class Ptr;

  void referencesInc() const noexcept { ++references_; }
  void referencesDec() const noexcept {
    if (--references_ == 0) delete this;
  }

#if MOX_ATOMIC_REFCOUNT
  mutable std::atomic<uint32_t> references_{0};
#else
  mutable uint32_t references_ = 0;
#endif
};

/// Owning pointer; null by default. Converts from derived to base and from mutable to const.
template <class T>
class Ptr {
 public:
  constexpr Ptr() noexcept = default;
  constexpr Ptr(std::nullptr_t) noexcept {}
  /// Shares an object that may have other owners.
  explicit Ptr(T* p) noexcept : p_(p) { inc(); }
  Ptr(Ptr const& o) noexcept : p_(o.p_) { inc(); }
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U> const& o)
  noexcept : p_(o.get()) { inc(); }
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& o)
  noexcept : p_(o.release()) {}
  // The old object is let go of at the end, when this pointer has its new value: a destructor may come back
  // here.
  Ptr& operator=(Ptr o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }
  ~Ptr() { dec(); }

  T* get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }

  /// Gives up ownership without a change of the count; only for converting moves.
  T* release() noexcept { return std::exchange(p_, nullptr); }

  template <class U>
  friend bool operator==(Ptr const& a, Ptr<U> const& b) noexcept {
    return a.get() == b.get();
  }
  friend bool operator==(Ptr const& a, std::nullptr_t) noexcept { return a.p_ == nullptr; }

 private:
  void inc() const noexcept {
    if (p_) counted()->referencesInc();
  }
  void dec() const noexcept {
    if (p_) counted()->referencesDec();
  }
  RefCounted const* counted() const noexcept { return p_; }

  T* p_ = nullptr;
};

/// Makes an object owned by the returned pointer.
template <class T, class... Args>
Ptr<T> makePtr(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...));
}

/// The same object under another type; null when it is not of that type.
template <class T, class U>
Ptr<T> dynamicPtrCast(Ptr<U> const& p) {
  return Ptr<T>(dynamic_cast<T*>(p.get()));
}

}  // namespace Mox

namespace std {

template <class T>
struct hash<Mox::Ptr<T>> {
  size_t operator()(Mox::Ptr<T> const& p) const noexcept { return hash<T*>()(p.get()); }
};

}  // namespace std
