#pragma once

/// Input files as a whole in memory, plain or gzip.

#include <string>

namespace NaxelTool {

/// The content of a file, unpacked if it is gzip, without a byte order mark. Throws InputError where
/// it cannot be read completely.
std::string readInput(std::string const& path);

/// Last component of a path, without the ending ".gz".
std::string baseName(std::string const& path);

}  // namespace NaxelTool
