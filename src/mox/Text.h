#pragma once

/// The one text form of all values. TextForm<T> writes a value and reads it back; it exists for the
/// numbers, booleans and strings here, for enumerations (Enum.h) and for value types (Value.h).
/// Reading is strict: no sign, no blank, no missing or additional character is accepted, and a
/// number that does not fit its field raises instead of being narrowed.

#include "mox/Errors.h"
#include "mox/Export.h"

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

namespace Mox {

using String = std::string;
using Name = std::string;

/// A point in time or a duration, in seconds.
using Seconds = double;

/// A position in a text that is being read. Readers advance it past what they took and throw
/// ParseError where the text does not match; the position after a throw is unspecified.
class NAXEL_EXPORT TextCursor {
 public:
  explicit TextCursor(std::string_view text) : text_(text) {}

  bool atEnd() const { return at_ == text_.size(); }
  size_t offset() const { return at_; }
  std::string_view rest() const { return text_.substr(at_); }

  /// Advances past `literal` and returns true if the text goes on with it.
  bool skip(std::string_view literal) {
    if (!rest().starts_with(literal)) return false;
    at_ += literal.size();
    return true;
  }
  /// As skip(), but a mismatch throws.
  void expect(std::string_view literal) {
    if (!skip(literal)) fail("expected \"" + std::string(literal) + "\"");
  }
  void expectEnd() {
    if (!atEnd()) fail("expected the end of the text");
  }
  /// Takes the longest run of characters for which `accept` holds; may be empty.
  template <class Accept>
  std::string_view takeWhile(Accept accept) {
    size_t const from = at_;
    while (at_ < text_.size() && accept(text_[at_])) ++at_;
    return text_.substr(from, at_ - from);
  }
  /// A decimal number of at most `max`: digits only, no sign, no leading zero. Larger numbers
  /// raise a RangeError.
  uint64_t takeNumber(uint64_t max);

  [[noreturn]] void fail(std::string const& what) const;

 private:
  std::string_view text_;
  size_t at_ = 0;
};

template <class T>
struct TextForm;

template <class T>
concept HasTextForm = requires(std::string& out, T const& v, T& in, TextCursor& c) {
  TextForm<T>::write(out, v);
  TextForm<T>::read(c, in);
};

template <class T>
requires std::is_unsigned_v<T>
struct TextForm<T> {
  static void write(std::string& out, T v) { out += std::to_string(v); }
  static void read(TextCursor& c, T& v) { v = static_cast<T>(c.takeNumber(static_cast<T>(~T{0}))); }
};

template <>
struct NAXEL_EXPORT TextForm<bool> {
  static void write(std::string& out, bool v) { out += v ? "true" : "false"; }
  static void read(TextCursor& c, bool& v);
};

/// Printed with 17 significant digits, so that reading gives the same double; NaN never reads.
template <>
struct NAXEL_EXPORT TextForm<double> {
  static void write(std::string& out, double v);
  static void read(TextCursor& c, double& v);
};

/// In single quotes; quote, backslash and control characters are escaped with a backslash.
template <>
struct NAXEL_EXPORT TextForm<std::string> {
  static void write(std::string& out, std::string const& v);
  static void read(TextCursor& c, std::string& v);
};

/// The text form ("strep") of a value.
template <HasTextForm T>
std::string valueToStrep(T const& v) {
  std::string out;
  TextForm<T>::write(out, v);
  return out;
}

/// A number for people to read: 5292000 as "5,292,000".
NAXEL_EXPORT std::string withCommas(uint64_t number);

/// Reads the value whose text form is all of [begin, end). Throws ParseError or RangeError and
/// leaves `out` untouched where the text is anything else.
template <HasTextForm T>
void sequenceToValue(char const* begin, char const* end, T& out) {
  TextCursor cursor(std::string_view(begin, static_cast<size_t>(end - begin)));
  T value{};
  TextForm<T>::read(cursor, value);
  cursor.expectEnd();
  out = std::move(value);
}

/// The value whose text form is `text`; throws as sequenceToValue() does.
template <HasTextForm T>
T valueFromText(std::string_view text) {
  T value{};
  sequenceToValue(text.data(), text.data() + text.size(), value);
  return value;
}

}  // namespace Mox
