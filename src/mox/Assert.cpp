#include "mox/Assert.h"

#include <cstdio>
#include <cstdlib>

#ifdef NAXEL_COVERAGE
extern "C" void __gcov_dump();  // NOLINT(bugprone-reserved-identifier): its name in the compiler
#endif

namespace Mox {

void assertionFailed(char const* text, char const* file, int line, char const* function) noexcept {
  std::fprintf(stderr, "assertion failed: %s at %s:%d in %s\n", text, file, line, function);
  std::fflush(stderr);
#ifdef NAXEL_COVERAGE
  __gcov_dump();  // what has been counted would be lost
#endif
  std::abort();
}

}  // namespace Mox
