#pragma once

/// One line of a packet file, taken apart word by word from left to right. Words are separated by
/// blanks; from a word that begins with '#' on the line is a comment.

#include "packets/PacketReading.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace NaxelTool {

struct LineWord {
  std::string_view text;
  size_t offset = 0;  ///< of its first byte in the line
};

/// What is wrong in a line, and where.
class LineError : public std::invalid_argument {
 public:
  LineError(LineWord at, std::string code, std::string const& text, std::string help = {})
      : std::invalid_argument(text), at_(at), code_(std::move(code)), help_(std::move(help)) {}
  ~LineError() override;

  LineWord at() const { return at_; }
  std::string const& code() const { return code_; }
  std::string const& help() const { return help_; }

 private:
  LineWord at_;
  std::string code_;
  std::string help_;
};

class PacketLine {
 public:
  explicit PacketLine(std::string_view line) : line_(line) { skip(); }

  bool atEnd() const { return at_ >= line_.size(); }
  /// The word that next() would return, empty at the end.
  LineWord peek() const;
  /// Throws LineError, "there is no WHAT", at the end of the line.
  LineWord next(char const* what);
  /// What stands between two quotes, of which the first is the next byte, and the byte `behind` them.
  /// Throws LineError.
  LineWord quoted(char behind);

 private:
  void skip();

  std::string_view line_;
  size_t at_ = 0;
};

/// A number up to `max`, decimal unless it begins with 0x. Throws LineError, which calls it `what`.
uint32_t numberFrom(LineWord word, uint32_t max, char const* what);

/// Has `take` read every line that is not blank or a comment, given the line and its number from 1 on, and reports
/// what it throws as a LineError.
void forEachLine(PacketReading& reading,
                 std::function<void(PacketLine& line, size_t number)> const& take);

}  // namespace NaxelTool
