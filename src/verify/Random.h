#pragma once

/// Random numbers that are the same for the same seed on every machine and standard library.

#include "mox/Hash.h"

#include <cstdint>
#include <vector>

namespace Verify {

/// The splitmix64 sequence.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}

  uint64_t next() {
    // The mixer adds the constant of the sequence itself, so the state stands one step behind.
    uint64_t const x = Mox::mix64(state_);
    state_ += 0x9e3779b97f4a7c15u;
    return x;
  }
  /// 0..n-1, for n > 0. The bias is below n / 2^64.
  uint64_t below(uint64_t n) { return next() % n; }
  /// first..last.
  uint64_t between(uint64_t first, uint64_t last) { return first + below(last - first + 1); }
  bool oneIn(uint64_t n) { return below(n) == 0; }
  /// A member of a list that is not empty.
  template <class T>
  T const& of(std::vector<T> const& list) {
    return list[below(list.size())];
  }

 private:
  uint64_t state_;
};

}  // namespace Verify
