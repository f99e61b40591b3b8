#include "mox/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Mox {

void assertionFailed(char const* text, char const* file, int line, char const* function) noexcept {
  std::fprintf(stderr, "assertion failed: %s at %s:%d in %s\n", text, file, line, function);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Mox
