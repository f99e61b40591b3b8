#pragma once

/// What the fuzz targets share. Each target defines LLVMFuzzerTestOneInput() and ends the process at
/// once, by abort(), where its input shows a fault.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

namespace Fuzz {

/// Prints the text and aborts unless something holds.
inline void expect(bool holds, std::string const& text) {
  if (holds) return;
  std::fprintf(stderr, "\nfound: %s\n", text.c_str());
  std::abort();
}

/// Both must be the same; `what` says what they are.
inline void expectSame(std::string const& first, std::string const& second,
                       std::string const& what) {
  expect(first == second, what + " differs:\n" + first + "\n" + second);
}

}  // namespace Fuzz
