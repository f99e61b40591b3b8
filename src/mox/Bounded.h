#pragma once

/// Sums and products that stay at the largest number instead of wrapping round: sizes that an attacker
/// chooses must not come out small.

#include <cstdint>

namespace Mox {

/// What stands for every larger number.
inline constexpr uint64_t unbounded = ~uint64_t{0};

constexpr uint64_t boundedSum(uint64_t a, uint64_t b) noexcept {
  return a > unbounded - b ? unbounded : a + b;
}
constexpr uint64_t boundedProduct(uint64_t a, uint64_t b) noexcept {
  return b != 0 && a > unbounded / b ? unbounded : a * b;
}

}  // namespace Mox
