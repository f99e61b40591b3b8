#include "input/JsonAccess.h"

#include "input/Diagnostics.h"

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
  std::string const* const found = name.text();
  if (!found || *found != schema) fail(name, "'schema' must be \"" + std::string(schema) + "\"");
  number(need(root_, "version"), "version", 1, 1);
  std::vector<std::string_view> known(fields);
  if (JsonNode const* const editors = root_.find("$schema")) this->text(*editors, "$schema");
  known.emplace_back("$schema");
  object(root_, "the file", known);
}

void JsonFile::fail(Position at, std::string const& text, std::string help) const {
  throw InputError(path_, at, text, std::move(help));
}

JsonNode::Object const& JsonFile::object(JsonNode const& node, std::string_view what,
                                         std::span<std::string_view const> fields) const {
  JsonNode::Object const* const members = node.members();
  if (!members) fail(node, std::string(what) + " must be an object");
  for (JsonMember const& m : *members)
    if (!fields.empty() && std::find(fields.begin(), fields.end(), m.name) == fields.end())
      fail(m.at(), "unknown field " + inQuotes(m.name),
           didYouMean(m.name, {fields.begin(), fields.end()}));
  return *members;
}

JsonNode::Array const& JsonFile::array(JsonNode const& node, std::string_view what) const {
  JsonNode::Array const* const items = node.items();
  if (!items) fail(node, inQuotes(what) + " must be an array");
  return *items;
}

JsonNode::Array const& JsonFile::list(JsonNode const& node, std::string_view what) const {
  JsonNode::Array const& items = array(node, what);
  if (items.empty())
    fail(node, inQuotes(what) + " is empty; leave the field out where it does not matter");
  return items;
}

std::string const& JsonFile::text(JsonNode const& node, std::string_view what) const {
  std::string const* const text = node.text();
  if (!text) fail(node, inQuotes(what) + " must be a text");
  return *text;
}

std::string const& JsonFile::name(JsonNode const& node, std::string_view what) const {
  std::string const* const text = node.text();
  if (!text || text->empty()) fail(node, inQuotes(what) + " must be a text that is not empty");
  return *text;
}

uint64_t JsonFile::number(JsonNode const& node, std::string_view what, uint64_t min,
                          uint64_t max) const {
  uint64_t const* const v = node.number();
  if (v && *v >= min && *v <= max) return *v;
  if (min == max) fail(node, inQuotes(what) + " must be " + std::to_string(min));
  fail(node, inQuotes(what) + " must be a whole number from " + std::to_string(min) + " to " +
                 std::to_string(max));
}

bool JsonFile::flag(JsonNode const& node, std::string_view what) const {
  bool const* const v = node.flag();
  if (!v) fail(node, inQuotes(what) + " must be true or false");
  return *v;
}

JsonNode const& JsonFile::need(JsonNode const& object, std::string_view field) const {
  JsonNode const* const v = find(object, field);
  if (!v) fail(object, "field " + inQuotes(field) + " is missing");
  return *v;
}

}  // namespace NaxelTool
