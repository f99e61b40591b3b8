#pragma once

/// How much of a long test to run.

#include <cstdint>
#include <cstdlib>

namespace Test {

/// Every n-th case only: 1 as a rule, more in instrumented programs, which take twenty times as long;
/// NAXEL_THINNING sets it.
inline uint64_t thinning() {
#if defined(__SANITIZE_ADDRESS__)
  uint64_t const usual = 20;
#else
  uint64_t const usual = 1;
#endif
  char const* const n = std::getenv("NAXEL_THINNING");
  return n ? std::strtoull(n, nullptr, 10) : usual;
}

}  // namespace Test
