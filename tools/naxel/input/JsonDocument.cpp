#include "input/JsonDocument.h"

#include <algorithm>

#include <nlohmann/json.hpp>

namespace NaxelTool {

/// Walks over the tokens of a text in step with the parser's events. The parser has accepted each
/// token before its event comes, so finding where it ends takes no validation.
class JsonTokenWalk {
 public:
  JsonTokenWalk(std::string_view text, Position start)
      : text_(text), line_(start.line), column_(start.column) {}

  /// Place of the next token; the walk then stands behind it.
  Position next() {
    while (at_ < text_.size() && std::string_view(" \t\r\n,:").find(text_[at_]) != npos) step();
    Position const start{line_, column_ + at_ - lineStart_};
    if (at_ == text_.size()) return start;
    char const first = text_[at_];
    step();
    if (first == '"') {
      while (at_ < text_.size() && text_[at_] != '"') at_ += text_[at_] == '\\' ? 2 : 1;
      at_ = std::min(at_ + 1, text_.size());
    } else if (std::string_view("{}[]").find(first) == npos) {
      while (at_ < text_.size() && std::string_view(" \t\r\n,:{}[]").find(text_[at_]) == npos)
        ++at_;
    }
    return start;
  }

 private:
  static constexpr size_t npos = std::string_view::npos;

  void step() {
    if (text_[at_++] == '\n') {
      ++line_;
      column_ = 1;
      lineStart_ = at_;
    }
  }

  std::string_view text_;
  size_t at_ = 0;
  size_t line_;
  size_t column_;  // of the first byte of the line that is in the text
  size_t lineStart_ = 0;
};

/// Receives the parser's events and builds the tree.
class JsonBuilder : public nlohmann::json_sax<nlohmann::json> {
 public:
  JsonBuilder(std::string const& file, std::string_view text, JsonDuplicates duplicates,
              Position start)
      : file_(file), walk_(text, start), duplicates_(duplicates) {}

  JsonNode take() { return std::move(root_); }

  bool null() override { return scalar(nullptr); }
  bool boolean(bool v) override { return scalar(v); }
  bool number_integer(number_integer_t) override { return scalar(JsonNode::OtherNumber{}); }
  bool number_unsigned(number_unsigned_t v) override { return scalar(uint64_t{v}); }
  bool number_float(number_float_t, string_t const&) override {
    return scalar(JsonNode::OtherNumber{});
  }
  bool string(string_t& v) override {
    v.shrink_to_fit();
    return scalar(std::make_unique<std::string>(std::move(v)));
  }
  bool binary(binary_t&) override { return scalar(nullptr); }
  bool start_object(std::size_t) override { return open(std::make_unique<JsonNode::Object>()); }
  bool end_object() override {
    auto& members = *std::get<JsonNode::Owned<JsonNode::Object>>(open_.back()->value_);
    if (duplicates_ == JsonDuplicates::refused) refuseDuplicates(members);
    return close(members);
  }
  bool start_array(std::size_t) override { return open(std::make_unique<JsonNode::Array>()); }
  bool end_array() override {
    return close(*std::get<JsonNode::Owned<JsonNode::Array>>(open_.back()->value_));
  }

  bool key(string_t& name) override {
    Position const at = walk_.next();
    name.shrink_to_fit();
    std::get<JsonNode::Owned<JsonNode::Object>>(open_.back()->value_)
        ->push_back({std::move(name), {}, short32(at.line), short32(at.column)});
    return true;
  }

  bool parse_error(std::size_t, std::string const&, nlohmann::detail::exception const& e) override {
    // What the parser says is "[id] parse error at line L, column C: syntax error while parsing X -
    // unexpected Y; last read: Z"; the place is ours to print: where the token begins.
    std::string what = e.what();
    if (size_t const colon = what.find(": "); colon != std::string::npos) what.erase(0, colon + 2);
    if (size_t const from = what.find("; last read: "); from != std::string::npos)
      what.erase(from, what.find("; expected", from) - from);
    throw InputError(file_, walk_.next(), what);
  }

 private:
  static constexpr size_t deepest = 32;

  static uint32_t short32(size_t v) {
    return static_cast<uint32_t>(std::min<size_t>(v, UINT32_MAX));
  }

  /// At the second of the first two of one name. By sorting: a table of hashes would be a second copy of
  /// all names, and names can be made to fall together in one.
  void refuseDuplicates(JsonNode::Object const& members) const {
    std::vector<JsonMember const*> sorted;
    sorted.reserve(members.size());
    for (JsonMember const& m : members) sorted.push_back(&m);
    std::sort(sorted.begin(), sorted.end(), [](JsonMember const* a, JsonMember const* b) {
      return a->name != b->name ? a->name < b->name : a < b;
    });
    JsonMember const* first = nullptr;
    for (size_t i = 1; i < sorted.size(); ++i)
      if (sorted[i]->name == sorted[i - 1]->name && (!first || sorted[i] < first))
        first = sorted[i];
    if (first) throw InputError(file_, first->at(), "duplicate field '" + first->name + "'");
  }

  template <class Value>
  bool scalar(Value value) {
    place(std::move(value));
    return true;
  }
  template <class Value>
  bool open(Value value) {
    JsonNode& node = place(std::move(value));
    if (open_.size() == deepest) throw InputError(file_, node.at(), "too deeply nested");
    // It stays put: its parent does not grow while it is open.
    open_.push_back(&node);
    return true;
  }
  template <class Items>
  bool close(Items& items) {
    walk_.next();
    items.shrink_to_fit();
    open_.pop_back();
    return true;
  }
  template <class Value>
  JsonNode& place(Value value) {
    Position const at = walk_.next();
    JsonNode& node = next();
    node.value_ = std::move(value);
    node.line_ = short32(at.line);
    node.column_ = short32(at.column);
    return node;
  }
  JsonNode& next() {
    if (open_.empty()) return root_;
    if (auto* items = std::get_if<JsonNode::Owned<JsonNode::Array>>(&open_.back()->value_))
      return (*items)->emplace_back();
    return std::get<JsonNode::Owned<JsonNode::Object>>(open_.back()->value_)->back().value;
  }

  std::string const& file_;
  JsonTokenWalk walk_;
  JsonDuplicates duplicates_;
  JsonNode root_;
  std::vector<JsonNode*> open_;
};

JsonNode const* JsonNode::find(std::string_view name) const {
  Object const* const all = members();
  if (!all) return nullptr;
  auto const found =
      std::find_if(all->rbegin(), all->rend(), [&](JsonMember const& m) { return m.name == name; });
  return found == all->rend() ? nullptr : &found->value;
}

JsonNode parseJson(std::string const& file, std::string_view text, JsonDuplicates duplicates,
                   Position start) {
  JsonBuilder builder(file, text, duplicates, start);
  nlohmann::json::sax_parse(text, &builder);
  return builder.take();
}

}  // namespace NaxelTool
