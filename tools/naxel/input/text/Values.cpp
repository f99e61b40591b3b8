#include "input/text/Values.h"

#include <algorithm>
#include <charconv>

namespace NaxelTool {

ValueSet unitedValues(ValueSet all) {
  std::sort(all.begin(), all.end());
  ValueSet out;
  for (auto const& r : all)
    if (!out.empty() && r.first <= uint64_t{out.back().second} + 1)
      out.back().second = std::max(out.back().second, r.second);
    else
      out.push_back(r);
  return out;
}

ValueSet otherValues(ValueSet const& set, uint32_t bound) {
  ValueSet out;
  uint32_t from = 0;
  for (auto const& [first, last] : set) {
    if (first > from) out.emplace_back(from, first - 1);
    if (last >= bound) return out;
    from = last + 1;
  }
  out.emplace_back(from, bound);
  return out;
}

std::optional<uint32_t> decimalOf(std::string_view text, uint32_t bound) {
  uint64_t value = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size() || value > bound)
    return std::nullopt;
  return static_cast<uint32_t>(value);
}

namespace {

std::optional<uint32_t> valueOf(Word word, ValueKind const& kind) {
  if (auto const number = decimalOf(word.text, kind.bound)) return number;
  return word && kind.named ? kind.named(word.text) : std::nullopt;
}

/// The values behind eq and neq.
ValueSet takeValues(Words& words, ValueKind const& kind) {
  ValueSet out;
  do {
    uint32_t const v = takeValue(words, kind);
    out.emplace_back(v, v);
  } while (kind.lists && valueOf(words.peek(), kind));
  return unitedValues(std::move(out));
}

}  // namespace

uint32_t takeValue(Words& words, ValueKind const& kind) {
  Word const word = words.take();
  if (auto const value = valueOf(word, kind)) return *value;
  std::string const what(kind.what);
  if (!word) failSyntax(word, "a " + what + " is missing");
  if (word.text.find_first_not_of("0123456789") == std::string_view::npos)
    failSyntax(word, "a " + what + " is at most " + std::to_string(kind.bound));
  if (!kind.named) failSyntax(word, quoted(word) + " is not a number");
  failWith(word, "unknown-" + std::string(kind.what.substr(kind.what.rfind(' ') + 1)),
           "there is no " + what + " " + quoted(word), didYouMean(word.text, kind.names()));
}

bool isClause(Word word) {
  return word.is("eq") || word.is("neq") || word.is("lt") || word.is("gt") || word.is("range");
}

ValueSet takeClause(Words& words, ValueKind const& kind) {
  Word const op = words.take();
  if (op.is("eq")) return takeValues(words, kind);
  if (op.is("neq")) return otherValues(takeValues(words, kind), kind.bound);
  Word const at = words.peek();
  uint32_t const value = takeValue(words, kind);
  std::string const none = "no " + std::string(kind.what) + " is ";
  if (op.is("lt")) {
    if (value == 0) failSyntax(at, none + "less than 0");
    return {{0, value - 1}};
  }
  if (op.is("gt")) {
    if (value == kind.bound) failSyntax(at, none + "greater than " + std::to_string(value));
    return {{value + 1, kind.bound}};
  }
  uint32_t const last = takeValue(words, kind);
  if (value > last)
    failSyntax(at, "the range starts at " + std::to_string(value) + ", above its end " +
                       std::to_string(last));
  return {{value, last}};
}

}  // namespace NaxelTool
