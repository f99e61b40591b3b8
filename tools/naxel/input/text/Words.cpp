#include "input/text/Words.h"

#include <algorithm>

namespace NaxelTool {

namespace {

constexpr std::string_view wordBlanks = " \t\r\v\f";

}  // namespace

Words::Words(std::string_view line, size_t number)
    : text_(line.substr(0, line.find_last_not_of(wordBlanks) + 1)), number_(number) {
  skipBlanks();
}

void Words::skipBlanks() { at_ = std::min(text_.find_first_not_of(wordBlanks, at_), text_.size()); }

Word Words::peek() const {
  std::string_view const word =
      text_.substr(at_, std::min(text_.find_first_of(wordBlanks, at_), text_.size()) - at_);
  return {word, {{number_, at_ + 1}, std::max<size_t>(1, word.size())}};
}

Word Words::take() {
  Word const word = peek();
  at_ += word.text.size();
  skipBlanks();
  return word;
}

bool Words::takeIf(std::string_view text) {
  if (!peek().is(text)) return false;
  take();
  return true;
}

bool Lines::next(Words& line) {
  if (at_ >= text_.size()) return false;
  size_t const end = std::min(text_.find('\n', at_), text_.size());
  line = Words(text_.substr(at_, end - at_), ++number_);
  at_ = end + 1;
  return true;
}

bool Lines::skipTo(std::string_view text) {
  size_t const found = text_.find(text, std::min(at_, text_.size()));
  if (found == std::string_view::npos) return false;
  for (Words line; at_ <= found;) next(line);
  return true;
}

std::string sameText(Words words) {
  std::string out;
  while (Word const word = words.take()) out.append(word.text).append(1, ' ');
  return out;
}

std::string lowerCase(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

}  // namespace NaxelTool
