#include "support/AllocationFaults.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

bool counting = false;
uint64_t hits = 0;
uint64_t target = 0;
uint64_t count = 0;
int64_t alive = 0;

void* allocate(std::size_t size, std::size_t alignment) {
  if (counting && ++count == target) {
    ++hits;
    throw std::bad_alloc();
  }
  void* const p =
      alignment ? std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment)
                : std::malloc(std::max<std::size_t>(size, 1));
  if (!p) throw std::bad_alloc();
  ++alive;
  return p;
}

void release(void* p) noexcept {
  if (p) --alive;
  std::free(p);
}

}  // namespace

// Those of arrays come to these, or are a sanitizer's own on both sides.
void* operator new(std::size_t size) { return allocate(size, 0); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, std::nothrow_t const&) noexcept try {
  return allocate(size, 0);
} catch (std::bad_alloc const&) {
  return nullptr;
}
void operator delete(void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete(void* p, std::align_val_t) noexcept { release(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { release(p); }

namespace Test::AllocationFaults {

void failAt(uint64_t n) {
  target = n;
  count = 0;
}
uint64_t strikes() { return hits; }
int64_t live() { return alive; }

bool countingIs(bool on) { return std::exchange(counting, on); }

}  // namespace Test::AllocationFaults
