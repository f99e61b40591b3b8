#pragma once

/// Sets of numbers as entries write them: single ones, lists, ranges and comparisons.

#include "input/text/EntryError.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace NaxelTool {

/// Inclusive ranges, ascending, with a gap between any two.
using ValueSet = std::vector<std::pair<uint32_t, uint32_t>>;

ValueSet unitedValues(ValueSet all);
/// All numbers from 0 to `bound` that are not in the set.
ValueSet otherValues(ValueSet const& set, uint32_t bound);
inline bool contains0(ValueSet const& set) { return !set.empty() && set.front().first == 0; }
inline bool isAllValues(ValueSet const& set, uint32_t bound) {
  return set.size() == 1 && set[0] == std::pair<uint32_t, uint32_t>(0, bound);
}

/// A decimal number up to `bound`, without sign.
std::optional<uint32_t> decimalOf(std::string_view text, uint32_t bound);

/// The values of one field, and how entries call them.
struct ValueKind {
  std::string_view what;  ///< in errors: "port"
  uint32_t bound;
  /// The number of a name; none where the dialect does not have it.
  std::function<std::optional<uint32_t>(std::string_view)> named;
  /// For suggestions.
  std::function<std::vector<std::string_view>()> names;
  bool lists = false;  ///< several values may stand behind eq and neq
};

/// Takes a value. Throws EntryError.
uint32_t takeValue(Words& words, ValueKind const& kind);
/// Whether the word begins a clause.
bool isClause(Word word);
/// Takes a clause: eq V ..., neq V ..., lt V, gt V or range V V. Throws EntryError.
ValueSet takeClause(Words& words, ValueKind const& kind);

}  // namespace NaxelTool
