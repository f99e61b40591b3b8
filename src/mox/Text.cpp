#include "mox/Text.h"

#include <charconv>
#include <cmath>

namespace Mox {

std::string withCommas(uint64_t number) {
  std::string const digits = std::to_string(number);
  std::string text;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) text += ',';
    text += digits[i];
  }
  return text;
}

void TextCursor::fail(std::string const& what) const {
  throw ParseError(what + " at offset " + std::to_string(at_));
}

uint64_t TextCursor::takeNumber(uint64_t max) {
  std::string_view const digits = takeWhile([](char ch) { return ch >= '0' && ch <= '9'; });
  if (digits.empty() || (digits.size() > 1 && digits[0] == '0')) {
    // The offset in the message is that of the number.
    at_ -= digits.size();
    fail("expected a decimal number");
  }
  uint64_t value = 0;
  auto const result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (result.ec != std::errc() || value > max)
    throw RangeError("number " + std::string(digits) + " > " + std::to_string(max) +
                     " not allowed");
  return value;
}

void TextForm<bool>::read(TextCursor& c, bool& v) {
  if (c.skip("true")) {
    v = true;
  } else if (c.skip("false")) {
    v = false;
  } else {
    c.fail("expected true or false");
  }
}

void TextForm<double>::write(std::string& out, double v) {
  char buffer[40];
  // As "%.17g", in every locale.
  auto const end = std::to_chars(buffer, buffer + sizeof buffer, v, std::chars_format::general, 17);
  out.append(buffer, end.ptr);
}

void TextForm<double>::read(TextCursor& c, double& v) {
  std::string_view const token = c.takeWhile([](char ch) {
    return (ch >= '0' && ch <= '9') || ch == '.' || ch == '-' || ch == '+' ||
           (ch >= 'a' && ch <= 'z');
  });
  double value = 0;
  auto const result = std::from_chars(token.data(), token.data() + token.size(), value);
  // A value must equal what its text reads as; NaN equals nothing.
  if (token.empty() || result.ec != std::errc() || result.ptr != token.data() + token.size() ||
      std::isnan(value))
    c.fail("expected a floating-point number before this");
  v = value;
}

namespace {

bool isControl(char ch) { return static_cast<unsigned char>(ch) < 0x20 || ch == 0x7f; }

int hexDigit(char ch) {
  if (ch >= '0' && ch <= '9') return ch - '0';
  if (ch >= 'a' && ch <= 'f') return ch - 'a' + 10;
  return -1;
}

}  // namespace

void TextForm<std::string>::write(std::string& out, std::string const& v) {
  static constexpr char hex[] = "0123456789abcdef";
  out += '\'';
  for (char ch : v) {
    if (ch == '\'' || ch == '\\') {
      out += '\\';
      out += ch;
    } else if (isControl(ch)) {
      auto const byte = static_cast<unsigned char>(ch);
      out += "\\x";
      out += hex[byte >> 4];
      out += hex[byte & 15];
    } else {
      out += ch;
    }
  }
  out += '\'';
}

void TextForm<std::string>::read(TextCursor& c, std::string& v) {
  std::string value;
  c.expect("'");
  for (;;) {
    value += c.takeWhile([](char ch) { return ch != '\'' && ch != '\\' && !isControl(ch); });
    if (c.skip("'")) break;
    if (c.skip("\\'")) {
      value += '\'';
    } else if (c.skip("\\\\")) {
      value += '\\';
    } else if (c.skip("\\x")) {
      std::string_view const rest = c.rest();
      int const high = rest.size() >= 2 ? hexDigit(rest[0]) : -1;
      int const low = rest.size() >= 2 ? hexDigit(rest[1]) : -1;
      char const ch = static_cast<char>(high * 16 + low);
      // Only what needs the escape may use it: every string has exactly one text form.
      if (high < 0 || low < 0 || !isControl(ch)) c.fail("expected an escaped control character");
      c.expect(rest.substr(0, 2));
      value += ch;
    } else {
      c.fail("expected a closing quote or an escape");
    }
  }
  v = std::move(value);
}

}  // namespace Mox
