#pragma once

/// A JSON text as a tree in which every value and every member name knows its place in the text, so
/// that whatever is wrong with a value can be reported there.
///
/// A value takes 24 bytes besides its text or its members, so that a text made of nothing but small
/// values takes about as much memory as one whose values say something.

#include "input/Errors.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace NaxelTool {

struct JsonMember;

class JsonNode {
 public:
  using Array = std::vector<JsonNode>;
  using Object = std::vector<JsonMember>;

  /// Null.
  JsonNode() = default;

  /// What the value is, or null for one of another kind. A number is a whole one from 0 to 2^64 - 1:
  /// nothing here takes another.
  bool const* flag() const { return std::get_if<bool>(&value_); }
  uint64_t const* number() const { return std::get_if<uint64_t>(&value_); }
  std::string const* text() const { return owned<std::string>(); }
  Array const* items() const { return owned<Array>(); }
  Object const* members() const { return owned<Object>(); }

  /// The value of the member of that name; null where there is none, or this is no object.
  JsonNode const* find(std::string_view name) const;

  Position at() const { return {line_, column_}; }

 private:
  friend class JsonBuilder;
  template <class T>
  using Owned = std::unique_ptr<T>;
  /// A negative number, a fraction, or one that is too large.
  struct OtherNumber {};

  template <class T>
  T const* owned() const {
    auto const* const p = std::get_if<Owned<T>>(&value_);
    return p ? p->get() : nullptr;
  }

  std::variant<std::nullptr_t, bool, uint64_t, OtherNumber, Owned<std::string>, Owned<Array>,
               Owned<Object>>
      value_;
  uint32_t line_ = 0;
  uint32_t column_ = 0;
};

struct JsonMember {
  std::string name;
  JsonNode value;
  uint32_t line = 0;
  uint32_t column = 0;

  /// Of the name.
  Position at() const { return {line, column}; }
};

/// What becomes of a name that stands twice in one object.
enum class JsonDuplicates : uint8_t {
  refused,
  kept  ///< all stand in the object; find() gives the last one, as most programs that read JSON do
};

/// Parses a text. Throws InputError for what is not JSON, for a name that stands twice in one object,
/// and for nesting deeper than 32. `file` only names the text in errors, and `start` is the place of the
/// text's first byte in the file.
JsonNode parseJson(std::string const& file, std::string_view text,
                   JsonDuplicates duplicates = JsonDuplicates::refused, Position start = {1, 1});

}  // namespace NaxelTool
