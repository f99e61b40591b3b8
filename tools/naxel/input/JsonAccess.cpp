#include "input/JsonAccess.h"

#include <algorithm>

namespace NaxelTool {

namespace {
std::string inQuotes(std::string_view text) { return "'" + std::string(text) + "'"; }
}  // namespace

JsonFile::JsonFile(std::string path, std::string const& text, std::string_view schema,
                   std::initializer_list<std::string_view> fields)
    : path_(std::move(path)), root_(parseJson(path_, text)) {
  // The schema goes first: a file of another kind is told as such, not by its unknown fields.
  object(root_, "the file", {});
  JsonNode const& name = need(root_, "schema");
  auto const* const found = std::get_if<std::string>(&name.value);
  if (!found || *found != schema) fail(name, "'schema' must be \"" + std::string(schema) + "\"");
  number(need(root_, "version"), "version", 1, 1);
  object(root_, "the file", fields);
}

void JsonFile::fail(Position at, std::string const& text) const {
  throw InputError(path_, at, text);
}

JsonNode::Object const& JsonFile::object(JsonNode const& node, std::string_view what,
                                         std::span<std::string_view const> fields) const {
  auto const* const members = std::get_if<JsonNode::Object>(&node.value);
  if (!members) fail(node, std::string(what) + " must be an object");
  for (JsonMember const& m : *members)
    if (!fields.empty() && std::find(fields.begin(), fields.end(), m.name) == fields.end())
      fail(m.at, "unknown field " + inQuotes(m.name));
  return *members;
}

JsonNode::Array const& JsonFile::array(JsonNode const& node, std::string_view what) const {
  auto const* const items = std::get_if<JsonNode::Array>(&node.value);
  if (!items) fail(node, inQuotes(what) + " must be an array");
  return *items;
}

JsonNode::Array const& JsonFile::list(JsonNode const& node, std::string_view what) const {
  JsonNode::Array const& items = array(node, what);
  if (items.empty())
    fail(node, inQuotes(what) + " is empty; leave the field out where it does not matter");
  return items;
}

std::string const& JsonFile::name(JsonNode const& node, std::string_view what) const {
  auto const* const text = std::get_if<std::string>(&node.value);
  if (!text || text->empty()) fail(node, inQuotes(what) + " must be a text that is not empty");
  return *text;
}

uint64_t JsonFile::number(JsonNode const& node, std::string_view what, uint64_t min,
                          uint64_t max) const {
  auto const* const v = std::get_if<uint64_t>(&node.value);
  if (v && *v >= min && *v <= max) return *v;
  if (min == max) fail(node, inQuotes(what) + " must be " + std::to_string(min));
  fail(node, inQuotes(what) + " must be a whole number from " + std::to_string(min) + " to " +
                 std::to_string(max));
}

bool JsonFile::flag(JsonNode const& node, std::string_view what) const {
  auto const* const v = std::get_if<bool>(&node.value);
  if (!v) fail(node, inQuotes(what) + " must be true or false");
  return *v;
}

JsonNode const& JsonFile::need(JsonNode const& object, std::string_view field) const {
  JsonNode const* const v = find(object, field);
  if (!v) fail(object, "field " + inQuotes(field) + " is missing");
  return *v;
}

JsonNode const* JsonFile::find(JsonNode const& object, std::string_view field) {
  for (JsonMember const& m : std::get<JsonNode::Object>(object.value))
    if (m.name == field) return &m.value;
  return nullptr;
}

}  // namespace NaxelTool
