#pragma once

/// A JSON text as a tree in which every value and every member name knows its place in the text, so
/// that whatever is wrong with a value can be reported there.

#include "input/Errors.h"

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace NaxelTool {

struct JsonMember;

/// Any number that is not a whole one from 0 to 2^64 - 1: nothing here takes them.
struct JsonOtherNumber {};

struct JsonNode {
  using Array = std::vector<JsonNode>;
  using Object = std::vector<JsonMember>;

  std::variant<std::nullptr_t, bool, uint64_t, JsonOtherNumber, std::string, Array, Object> value;
  Position at;
};

struct JsonMember {
  std::string name;
  Position at;  ///< of the name
  JsonNode value;
};

/// Parses a text. Throws InputError for what is not JSON, for a name that stands twice in one object
/// and for nesting deeper than 32. `file` only names the text in errors.
JsonNode parseJson(std::string const& file, std::string const& text);

}  // namespace NaxelTool
