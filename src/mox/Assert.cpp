#include "mox/Assert.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <utility>

#ifdef NAXEL_COVERAGE
extern "C" void __gcov_dump();  // NOLINT(bugprone-reserved-identifier): its name in the compiler
#endif

namespace Mox {

namespace {

AssertionHandler& theHandler() {
  static AssertionHandler handler;
  return handler;
}

}  // namespace

AssertionHandler assertionHandlerIs(AssertionHandler handler) {
  return std::exchange(theHandler(), std::move(handler));
}

void assertionFailed(char const* text, char const* file, int line, char const* function,
                     std::string const& detail) noexcept {
  char const* const separator = detail.empty() ? "" : ": ";
  std::fprintf(stderr, "assertion failed: %s at %s:%d in %s%s%s\n", text, file, line, function,
               separator, detail.c_str());
  std::fflush(stderr);
  // A handler that breaks an invariant itself must not call itself for ever.
  static std::atomic<bool> handling{false};
  if (!handling.exchange(true)) {
    try {
      if (theHandler())
        theHandler()("assertion failed: " + std::string(text) + " at " + file + ":" +
                     std::to_string(line) + " in " + function + separator + detail);
    } catch (...) {
      // The process ends in any case.
    }
  }
#ifdef NAXEL_COVERAGE
  __gcov_dump();  // what has been counted would be lost
#endif
  std::abort();
}

}  // namespace Mox
