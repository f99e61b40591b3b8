#pragma once

/// Turns the bytes of an input into choices, so that a small change of the input is a small change of
/// what is built from it.

#include <cstddef>
#include <cstdint>

namespace Fuzz {

/// Every choice takes one byte, or as many as its values need. Behind the end every choice is 0.
class Bytes {
 public:
  Bytes(uint8_t const* data, size_t size) : at_(data), end_(data + size) {}

  bool atEnd() const { return at_ == end_; }
  uint8_t byte() { return atEnd() ? uint8_t{0} : *at_++; }
  uint64_t word(unsigned bytes) {
    uint64_t out = 0;
    while (bytes--) out = out << 8 | byte();
    return out;
  }
  /// 0..n-1, for 0 < n <= 256.
  unsigned below(unsigned n) { return byte() % n; }
  /// Never true behind the end, for n > 1.
  bool oneIn(unsigned n) { return below(n) == n - 1; }
  template <class T, size_t N>
  T const& of(T const (&list)[N]) {
    static_assert(N <= 256);
    return list[below(N)];
  }

 private:
  uint8_t const* at_;
  uint8_t const* end_;
};

}  // namespace Fuzz
