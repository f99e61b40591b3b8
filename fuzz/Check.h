#pragma once

/// What the fuzz targets share. Each target defines LLVMFuzzerTestOneInput() and ends the process at
/// once, by abort(), where its input shows a fault.

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

namespace Fuzz {

/// Prints the text and aborts.
[[noreturn]] void fail(std::string const& text);

inline void expect(bool holds, std::string const& text) {
  if (!holds) fail(text);
}

/// Both must be the same; `what` says what they are.
void expectSame(std::string const& first, std::string const& second, std::string const& what);

}  // namespace Fuzz
