#include "packets/PacketLine.h"

#include <charconv>

namespace NaxelTool {

namespace {

constexpr std::string_view lineBlanks = " \t\r\v\f";

}  // namespace

LineError::~LineError() = default;

void PacketLine::skip() {
  at_ = std::min(line_.find_first_not_of(lineBlanks, at_), line_.size());
  if (at_ < line_.size() && line_[at_] == '#') at_ = line_.size();
}

LineWord PacketLine::peek() const {
  size_t const end = std::min(line_.find_first_of(lineBlanks, at_), line_.size());
  return {line_.substr(at_, end - at_), at_};
}

LineWord PacketLine::next(char const* what) {
  LineWord const word = peek();
  if (word.text.empty()) throw LineError(word, "syntax", std::string("there is no ") + what);
  at_ += word.text.size();
  skip();
  return word;
}

LineWord PacketLine::quoted(char behind) {
  size_t const close = line_.find('"', at_ + 1);
  if (close == std::string_view::npos)
    throw LineError({line_.substr(at_, 1), at_}, "syntax", "the quote is not closed");
  if (close + 1 >= line_.size() || line_[close + 1] != behind)
    throw LineError({line_.substr(close, 1), close}, "syntax",
                    std::string("expected '") + behind + "' behind the quote");
  LineWord const word{line_.substr(at_ + 1, close - at_ - 1), at_ + 1};
  at_ = close + 2;
  skip();
  return word;
}

uint32_t numberFrom(LineWord word, uint32_t max, char const* what) {
  bool const hex = word.text.starts_with("0x") || word.text.starts_with("0X");
  std::string_view const digits = word.text.substr(hex ? 2 : 0);
  uint64_t value = 0;
  auto const [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), value, hex ? 16 : 10);
  bool const isNumber = !digits.empty() && end == digits.data() + digits.size() &&
                        error != std::errc::invalid_argument;
  if (!isNumber)
    throw LineError(word, "syntax",
                    "expected " + std::string(what) + ", a number, instead of '" +
                        std::string(word.text) + "'");
  if (error != std::errc() || value > max)
    throw LineError(word, "range", std::string(what) + " must be at most " + std::to_string(max));
  return static_cast<uint32_t>(value);
}

void forEachLine(PacketReading& reading,
                 std::function<void(PacketLine& line, size_t number)> const& take) {
  size_t number = 0;
  for (std::string_view rest = reading.content(); !rest.empty();) {
    ++number;
    size_t const newline = rest.find('\n');
    std::string_view const text = rest.substr(0, newline);
    rest.remove_prefix(newline == std::string_view::npos ? rest.size() : newline + 1);
    PacketLine line(text);
    if (line.atEnd()) continue;
    try {
      take(line, number);
    } catch (LineError const& e) {
      reading.error({{number, e.at().offset + 1}, std::max<size_t>(1, e.at().text.size())},
                    e.code(), e.what(), e.help(), text);
    }
  }
}

}  // namespace NaxelTool
