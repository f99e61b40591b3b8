#include "input/Diagnostics.h"

#include <algorithm>

namespace NaxelTool {

namespace {

/// The part of a long line that is shown around the place.
constexpr size_t shownLine = 160;

char const* nameOf(Severity severity) {
  return severity == Severity::error ? "error"
                                     : (severity == Severity::warning ? "warning" : "note");
}

/// The line and the mark under the place.
void sayLine(std::ostream& out, Diagnostic const& d) {
  if (d.line.empty() || !d.place.at.line || !d.place.at.column) return;
  size_t const column = std::min(d.place.at.column - 1, d.line.size());
  size_t const from = column > shownLine / 2 ? column - shownLine / 2 : 0;
  // Tabs become blanks and other bytes that are not text points, so that the mark stands right.
  std::string line = d.line.substr(from, shownLine);
  for (char& c : line)
    if (c == '\t')
      c = ' ';
    else if (auto const byte = static_cast<unsigned char>(c); byte < 0x20 || byte >= 0x7f)
      c = '.';
  std::string const number = std::to_string(d.place.at.line);
  std::string const margin(number.size() < 5 ? 5 - number.size() : 0, ' ');
  size_t const width = std::clamp<size_t>(
      d.place.width, 1, std::max<size_t>(1, line.size() - std::min(line.size(), column - from)));
  out << margin << number << " | " << line << '\n'
      << margin << std::string(number.size(), ' ') << " | " << std::string(column - from, ' ')
      << '^' << std::string(width - 1, '~') << (d.help.empty() ? "" : " ") << printable(d.help)
      << '\n';
}

/// Levenshtein's distance, for short words.
size_t distance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      size_t const above = row[j];
      row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
      diagonal = above;
    }
  }
  return row[b.size()];
}

}  // namespace

std::string printable(std::string_view text) {
  static constexpr char hex[] = "0123456789abcdef";
  static constexpr size_t longest = 500;
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (i == longest) return out + "...";
    auto const byte = static_cast<unsigned char>(text[i]);
    // The bytes 0x80 to 0x9f steer terminals as well where they do not follow in a UTF-8 sequence.
    bool const c1 =
        byte == 0xc2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xa0;
    if ((byte < 0x20 && byte != '\t') || byte == 0x7f || c1) {
      out += "\\x";
      out += hex[byte >> 4];
      out += hex[byte & 15];
    } else {
      out += text[i];
    }
  }
  return out;
}

void Diagnostics::say(Diagnostic const& d) {
  if (d.severity == Severity::error && !firstError_) firstError_ = d;
  if (++counts_[static_cast<size_t>(d.severity)] > shown) return;
  *out_ << printable(d.file) << ':';
  if (d.place.at.line) *out_ << d.place.at.line << ':';
  if (d.place.at.line && d.place.at.column) *out_ << d.place.at.column << ':';
  *out_ << ' ' << nameOf(d.severity);
  if (!d.code.empty()) *out_ << '[' << d.code << ']';
  *out_ << ": " << printable(d.text) << '\n';
  sayLine(*out_, d);
  if (!d.help.empty() && d.line.empty()) *out_ << "  help: " << printable(d.help) << '\n';
}

void Diagnostics::sayRest() {
  for (Severity const severity : {Severity::error, Severity::warning, Severity::note})
    if (count(severity) > shown)
      *out_ << "and " << count(severity) - shown << " more " << nameOf(severity)
            << (count(severity) - shown == 1 ? "" : "s") << '\n';
}

std::string didYouMean(std::string_view word, std::vector<std::string_view> const& names) {
  // A word of more than 32 letters is nobody's slip, and would only cost time.
  if (word.empty() || word.size() > 32) return {};
  std::string_view best;
  size_t least = 1 + (word.size() + 1) / 3;
  for (std::string_view const name : names) {
    if (name.size() > word.size() + least || word.size() > name.size() + least) continue;
    if (size_t const d = distance(word, name); d < least) {
      least = d;
      best = name;
    }
  }
  return best.empty() ? std::string() : "did you mean '" + std::string(best) + "'?";
}

}  // namespace NaxelTool
