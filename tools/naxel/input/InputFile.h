#pragma once

/// Input files as a whole in memory, plain or gzip. "-" is standard input.

#include <cstdint>
#include <string>
#include <vector>

namespace NaxelTool {

constexpr uint64_t defaultMaxInput = uint64_t{1} << 30;

/// The content of a file, unpacked if it is gzip, without a byte order mark. Throws InputError where
/// it cannot be read completely, or unpacks to more than `maxInput` bytes; never holds more than these.
std::string readInput(std::string const& path, uint64_t maxInput = defaultMaxInput);

/// Last component of a path, without the ending ".gz"; "stdin" for standard input.
std::string baseName(std::string const& path);

}  // namespace NaxelTool
