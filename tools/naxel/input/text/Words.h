#pragma once

/// Device configurations as lines and words. A line is taken apart word by word from left to right, without a
/// list of its words: a crafted line of many megabytes takes no memory beside that of the file.

#include "input/Diagnostics.h"

#include <string>
#include <string_view>

namespace NaxelTool {

struct Word {
  std::string_view text;  ///< empty for the end of the line
  Place place;

  bool is(std::string_view other) const { return text == other; }
  explicit operator bool() const { return !text.empty(); }
};

/// The words of one line that have not been taken. Cheap to copy, which keeps a place to come back to; refers
/// to the text of the file.
class Words {
 public:
  Words() = default;
  Words(std::string_view line, size_t number);

  size_t line() const { return number_; }
  bool atEnd() const { return at_ == text_.size(); }
  /// The next word; at the end an empty one, whose place is behind the line.
  Word peek() const;
  Word take();
  /// Takes the next word if it is this one.
  bool takeIf(std::string_view text);
  /// What has not been taken, from the next word on.
  std::string_view rest() const { return text_.substr(at_); }
  void takeAll() { at_ = text_.size(); }
  /// How many blanks stand before the next word.
  size_t indent() const { return at_; }

 private:
  void skipBlanks();

  std::string_view text_;  // without blanks at the end
  size_t number_ = 0;
  size_t at_ = 0;
};

/// The lines of a text.
class Lines {
 public:
  explicit Lines(std::string_view text) : text_(text) {}

  /// The next line; false behind the last.
  bool next(Words& line);
  /// Whether a line from here on contains `text`; if so, that line is the last one that was given.
  bool skipTo(std::string_view text);

 private:
  std::string_view text_;
  size_t at_ = 0;
  size_t number_ = 0;
};

/// Words that lines of a list have in common if they say the same: single blanks between the words.
std::string sameText(Words words);

/// The text with small letters for capitals.
std::string lowerCase(std::string_view text);

}  // namespace NaxelTool
