#pragma once

/// What can go wrong in a run of the tool, one type per exit code.

#include <cstddef>
#include <stdexcept>
#include <string>

namespace NaxelTool {

/// What the process returns to its caller.
enum class ExitCode { success = 0, difference = 1, badInput = 2, failedKick = 3 };

/// A place in a text file, both counted from 1; 0 means unknown. A column counts bytes.
struct Position {
  size_t line = 0;
  size_t column = 0;

  friend bool operator==(Position const&, Position const&) = default;
};

/// Position of the byte at `offset`; the end of the text is a position as well.
Position positionOf(std::string const& text, size_t offset);

/// Input that cannot be used. what() is the complete line for the user,
/// "file:line:column: error: text" without the numbers that are not known; control characters of the
/// text are escaped.
class InputError : public std::runtime_error {
 public:
  InputError(std::string const& file, Position at, std::string const& text);
  ~InputError() override;
};

}  // namespace NaxelTool
