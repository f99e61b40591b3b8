#pragma once

/// Checked reading of the values of a JSON file: each function gives the value in the wanted type or
/// throws an InputError at the value's place. `what` names the value in the error.

#include "input/JsonDocument.h"
#include "mox/Enum.h"

#include <initializer_list>
#include <limits>
#include <span>
#include <string>
#include <string_view>

namespace NaxelTool {

class JsonFile {
 public:
  /// Parses `text`, whose root must be an object with "schema": `schema` and "version": 1, and
  /// otherwise the `fields`; a "$schema" for editors may stand there, too.
  JsonFile(std::string path, std::string const& text, std::string_view schema,
           std::initializer_list<std::string_view> fields);

  /// Without a text: for values of a tree that was parsed elsewhere.
  explicit JsonFile(std::string path) : path_(std::move(path)) {}

  std::string const& path() const { return path_; }
  JsonNode const& root() const { return root_; }

  [[noreturn]] void fail(Position at, std::string const& text, std::string help = {}) const;
  [[noreturn]] void fail(JsonNode const& node, std::string const& text,
                         std::string help = {}) const {
    fail(node.at(), text, std::move(help));
  }

  /// The members of an object that may hold only the named fields; any field if none is named.
  JsonNode::Object const& object(JsonNode const& node, std::string_view what,
                                 std::span<std::string_view const> fields) const;
  JsonNode::Object const& object(JsonNode const& node, std::string_view what,
                                 std::initializer_list<std::string_view> fields) const {
    return object(node, what, std::span(fields.begin(), fields.size()));
  }
  JsonNode::Array const& array(JsonNode const& node, std::string_view what) const;
  /// As array(), but must have an element.
  JsonNode::Array const& list(JsonNode const& node, std::string_view what) const;
  std::string const& text(JsonNode const& node, std::string_view what) const;
  /// Not empty.
  std::string const& name(JsonNode const& node, std::string_view what) const;
  uint64_t number(JsonNode const& node, std::string_view what, uint64_t min, uint64_t max) const;
  bool flag(JsonNode const& node, std::string_view what) const;

  /// A member that must be there.
  JsonNode const& need(JsonNode const& object, std::string_view field) const;

  /// Applies a setter to the member if it is there.
  template <class Set>
  void ifFlag(JsonNode const& object, std::string_view field, Set set) const {
    if (JsonNode const* v = find(object, field)) set(flag(*v, field));
  }
  template <class Set>
  void ifNumber(JsonNode const& object, std::string_view field, uint64_t min, uint64_t max,
                Set set) const {
    if (JsonNode const* v = find(object, field)) set(number(*v, field, min, max));
  }

  /// The member of that name, or null.
  static JsonNode const* find(JsonNode const& object, std::string_view field) {
    return object.find(field);
  }

 private:
  std::string path_;
  JsonNode root_;
};

}  // namespace NaxelTool
