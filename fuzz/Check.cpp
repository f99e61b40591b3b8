#include "Check.h"

#include <cstdio>
#include <cstdlib>

namespace Fuzz {

void fail(std::string const& text) {
  std::fprintf(stderr, "\nfound: %s\n", text.c_str());
  std::abort();
}

void expectSame(std::string const& first, std::string const& second, std::string const& what) {
  if (first != second) fail(what + " differs:\n" + first + "\n" + second);
}

}  // namespace Fuzz
