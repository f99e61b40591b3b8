#pragma once

/// What can go wrong in a run of the tool, one type per exit code.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace NaxelTool {

/// What the process returns to its caller.
enum class ExitCode {
  success = 0,
  findings = 1,  ///< rules and tables differ, or there is something to report
  badInput = 2,  ///< wrong usage, or input that cannot be used
  noRoom = 3,    ///< the rules do not fit
  refused = 4,   ///< the driver refused
  device = 5,    ///< an input or output device failed: disk full, file not readable
  internal = 70  ///< a fault of the tool
};

/// A place in a text file, both counted from 1; 0 means unknown. A column counts bytes.
struct Position {
  size_t line = 0;
  size_t column = 0;

  friend bool operator==(Position const&, Position const&) = default;
};

/// Position of the byte at `offset`; the end of the text is a position as well.
Position positionOf(std::string const& text, size_t offset);

/// What each code means, a few words, as the manual has it.
std::string_view meaningOf(ExitCode code);
/// All of them in ascending order.
std::vector<ExitCode> const& allExitCodes();
bool isExitCode(int number);

/// A file that cannot be used, read or written. what() is the complete line for the user,
/// "file:line:column: error: text" without the numbers that are not known; control characters of the
/// text are escaped.
class InputError : public std::runtime_error {
 public:
  InputError(std::string const& file, Position at, std::string const& text,
             ExitCode code = ExitCode::badInput);
  InputError(std::string const& file, Position at, std::string const& text, std::string help);
  ~InputError() override;

  std::string const& file() const { return file_; }
  Position at() const { return at_; }
  /// What is wrong, without the place.
  std::string const& text() const { return text_; }
  /// What to do about it; may be empty.
  std::string const& help() const { return help_; }
  ExitCode code() const { return code_; }

 private:
  std::string file_;
  Position at_;
  std::string text_;
  std::string help_;
  ExitCode code_ = ExitCode::badInput;
};

/// An entry that is as its format wants it, and says what a rule cannot say.
class UnsupportedError : public InputError {
 public:
  using InputError::InputError;
  ~UnsupportedError() override;
};

/// An entry that no IP packet can match, so that leaving it out changes nothing.
class NeverMatches : public InputError {
 public:
  using InputError::InputError;
  ~NeverMatches() override;
};

/// The same for a file that was to be written.
class OutputError : public InputError {
 public:
  OutputError(std::string const& file, std::string const& text, ExitCode code)
      : InputError(file, {}, text, code) {}
  ~OutputError() override;
};

/// The code for a file on which the system reports `error`: names that lead to no file are the user's,
/// everything else is the device's.
ExitCode codeOfSystemError(int error);

/// The end of a run that has nothing left to say.
class EndOfRun : public std::runtime_error {
 public:
  explicit EndOfRun(ExitCode code) : std::runtime_error("the run has ended"), code_(code) {}
  ~EndOfRun() override;

  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

/// Input that cannot be used, of which everything has been said already.
class RejectedInput : public EndOfRun {
 public:
  explicit RejectedInput(ExitCode code = ExitCode::badInput) : EndOfRun(code) {}
  ~RejectedInput() override;
};

}  // namespace NaxelTool
