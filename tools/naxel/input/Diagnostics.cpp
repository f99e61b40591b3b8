#include "input/Diagnostics.h"

#include <algorithm>

#include <nlohmann/json.hpp>

namespace NaxelTool {

namespace {

/// The part of a long line that is shown around the place.
constexpr size_t shownLine = 160;
/// Longer texts are cut.
constexpr size_t longestText = 500;

/// Marks parts of a message where it is shown in colour.
class Paint {
 public:
  explicit Paint(bool color) : color_(color) {}

  std::string bold(std::string const& text) const { return in("1", text); }
  std::string mark(std::string const& text) const { return in("1;32", text); }
  std::string severity(Severity s, std::string const& text) const {
    return in(s == Severity::error ? "1;31" : (s == Severity::warning ? "1;35" : "1;36"), text);
  }

 private:
  std::string in(char const* code, std::string const& text) const {
    return color_ ? "\x1b[" + std::string(code) + "m" + text + "\x1b[0m" : text;
  }

  bool color_;
};

/// The line and the mark under the place.
void sayLine(std::ostream& out, Diagnostic const& d, Paint const& paint) {
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
      << paint.mark("^" + std::string(width - 1, '~') + (d.help.empty() ? "" : " ") +
                    printable(d.help))
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

/// How many bytes at the front of `text` are one UTF-8 character that is fit to be shown; 0 where they
/// are none, or none fit.
size_t shownCharacter(std::string_view text) {
  auto const byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  unsigned const first = byte(0);
  if (first < 0x80) return first >= 0x20 && first != 0x7f ? 1 : size_t{first == '\t'};
  size_t const length = first >= 0xf0 ? 4 : (first >= 0xe0 ? 3 : 2);
  if (first < 0xc2 || first > 0xf4 || text.size() < length) return 0;
  uint32_t code = first & (0xffu >> (length + 1));
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
    code = code << 6 | (byte(i) & 0x3f);
  }
  constexpr std::array<uint32_t, 5> least = {0, 0, 0x80, 0x800, 0x10000};
  auto const in = [&](uint32_t from, uint32_t to) { return code >= from && code <= to; };
  // Control characters, line and paragraph ends, and those that turn the direction of what follows.
  bool const steers = in(0x80, 0x9f) || in(0x200b, 0x200f) || in(0x2028, 0x202e) ||
                      in(0x2060, 0x206f) || code == 0x61c || code == 0xfeff;
  bool const isCharacter = code >= least[length] && code <= 0x10ffff && !in(0xd800, 0xdfff);
  return isCharacter && !steers ? length : 0;
}

}  // namespace

char const* severityText(Severity severity) {
  return severity == Severity::error ? "error"
                                     : (severity == Severity::warning ? "warning" : "note");
}

std::string printable(std::string_view text) {
  static constexpr char hex[] = "0123456789abcdef";
  std::string out;
  for (size_t i = 0; i < text.size();) {
    if (i >= longestText) return out + "...";
    if (size_t const length = shownCharacter(text.substr(i))) {
      out += text.substr(i, length);
      i += length;
    } else {
      auto const byte = static_cast<unsigned char>(text[i++]);
      out += "\\x";
      out += hex[byte >> 4];
      out += hex[byte & 15];
    }
  }
  return out;
}

void Diagnostics::say(Diagnostic const& d) {
  if (d.severity == Severity::error && !firstError_) firstError_ = d;
  if (++counts_[static_cast<size_t>(d.severity)] > shown || !isShown(d.severity)) return;
  if (makeRoom_) makeRoom_();
  if (style_.json)
    sayJson(d);
  else
    sayText(d);
}

void Diagnostics::sayText(Diagnostic const& d) {
  Paint const paint(style_.color);
  std::string place = (d.file.empty() ? "naxel" : printable(d.file)) + ":";
  if (d.place.at.line) place += std::to_string(d.place.at.line) + ":";
  if (d.place.at.line && d.place.at.column) place += std::to_string(d.place.at.column) + ":";
  std::string kind = severityText(d.severity);
  if (!d.code.empty()) kind += "[" + d.code + "]";
  *out_ << paint.bold(place) << ' ' << paint.severity(d.severity, kind + ":") << ' '
        << printable(d.text) << '\n';
  sayLine(*out_, d, paint);
  if (!d.help.empty() && d.line.empty()) *out_ << "  help: " << printable(d.help) << '\n';
}

void Diagnostics::sayJson(Diagnostic const& d) {
  nlohmann::ordered_json out{{"schema", "naxel-message"},
                             {"version", 1},
                             {"severity", severityText(d.severity)},
                             {"code", d.code},
                             {"text", d.text.substr(0, longestText)}};
  if (!d.file.empty()) out["file"] = d.file;
  if (d.place.at.line) out["line"] = d.place.at.line;
  if (d.place.at.line && d.place.at.column) {
    out["column"] = d.place.at.column;
    out["width"] = d.place.width;
  }
  if (!d.help.empty()) out["help"] = d.help.substr(0, longestText);
  // All but ASCII is escaped: the text of a message steers no terminal in this form either.
  *out_ << out.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace) << '\n';
}

void Diagnostics::sayRest() {
  for (Severity const severity : {Severity::error, Severity::warning, Severity::note}) {
    size_t& told = told_[static_cast<size_t>(severity)];
    if (count(severity) <= std::max(told, shown) || !isShown(severity)) continue;
    size_t const rest = count(severity) - std::max(told, shown);
    told = count(severity);
    std::string const text =
        "and " + std::to_string(rest) + " more " + severityText(severity) + (rest == 1 ? "" : "s");
    if (makeRoom_) makeRoom_();
    if (style_.json)
      sayJson({severity, "more", {}, {}, text, {}, {}});
    else
      *out_ << text << '\n';
  }
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
