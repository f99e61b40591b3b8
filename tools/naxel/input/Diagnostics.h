#pragma once

/// What the tool says about its input: errors, warnings and notes, each with its place in a file, the
/// line that stands there and a mark under what is meant.
///
///   edge.cfg:12:31: error[unknown-port]: there is no port 'htttp'
///      12 |  permit tcp any any eq htttp
///         |                        ^~~~~ did you mean 'http'?
///
/// A run shows the first errors, warnings and notes of each kind and counts the rest, so that a broken
/// file of a million lines is told in a screen. The same messages can be had as one JSON object a line
/// (schema/naxel-message.schema.json).

#include "input/Errors.h"

#include <array>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace NaxelTool {

enum class Severity : uint8_t { note, warning, error };
/// "note", "warning", "error".
char const* severityText(Severity severity);

/// Where in a text something is: a position and how many bytes from there are meant.
struct Place {
  Position at;
  size_t width = 1;
};

struct Diagnostic {
  Severity severity = Severity::error;
  std::string code;  ///< stable name of the kind of trouble in small letters: "unknown-port"
  std::string file;  ///< empty where the message is about none
  Place place;
  std::string text;  ///< one sentence for the user
  std::string help;  ///< what to do about it; may be empty
  std::string line;  ///< the whole line of the place, as it stands in the file; may be empty
};

/// In which form messages come, and which.
struct MessageStyle {
  bool json = false;
  bool color = false;  ///< not in JSON
  bool quiet = false;  ///< errors only; the others are counted as ever
};

class Diagnostics {
 public:
  /// How many of each severity are shown.
  static constexpr size_t shown = 20;

  /// Writes each to `out` as it comes.
  explicit Diagnostics(std::ostream& out, MessageStyle style = {}) : out_(&out), style_(style) {}

  MessageStyle const& style() const { return style_; }
  void styleIs(MessageStyle style) { style_ = style; }
  /// Called before anything is written, so that what else stands on the terminal can make room.
  void roomMakerIs(std::function<void()> f) { makeRoom_ = std::move(f); }

  void say(Diagnostic const& d);
  size_t count(Severity severity) const { return counts_[static_cast<size_t>(severity)]; }
  /// The first error that was said, if any.
  Diagnostic const* firstError() const { return firstError_ ? &*firstError_ : nullptr; }
  /// Says how many more there were than have been shown; nothing if none.
  void sayRest();

 private:
  bool isShown(Severity severity) const { return severity == Severity::error || !style_.quiet; }
  void sayText(Diagnostic const& d);
  void sayJson(Diagnostic const& d);

  std::ostream* out_;
  MessageStyle style_;
  std::function<void()> makeRoom_;
  std::array<size_t, 3> counts_{};
  std::array<size_t, 3> told_{};  // of them, when sayRest() counted last
  std::optional<Diagnostic> firstError_;
};

/// The one of `names` that is most like `word`, in quotes with a question around it ("did you mean
/// 'http'?"), or nothing where none is near.
std::string didYouMean(std::string_view word, std::vector<std::string_view> const& names);

/// Text from the input as it may stand in a message: control characters, bytes that are not UTF-8 and
/// whatever else would steer a terminal or turn the direction of the text are written as \xNN byte by
/// byte, and what is very long is cut.
std::string printable(std::string_view text);

}  // namespace NaxelTool
