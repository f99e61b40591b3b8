#include "input/JsonDocument.h"

#include <algorithm>
#include <unordered_set>

#include <nlohmann/json.hpp>

namespace NaxelTool {

namespace {

using Json = nlohmann::json;

/// Walks over the tokens of a text in step with the parser's events. The parser has accepted each
/// token before its event comes, so finding where it ends takes no validation.
class TokenWalk {
 public:
  explicit TokenWalk(std::string const& text) : text_(text) {}

  /// Place of the next token; the walk then stands behind it.
  Position next() {
    while (at_ < text_.size() && std::string_view(" \t\r\n,:").find(text_[at_]) != npos) step();
    Position const start{line_, at_ - lineStart_ + 1};
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
      lineStart_ = at_;
    }
  }

  std::string const& text_;
  size_t at_ = 0;
  size_t line_ = 1;
  size_t lineStart_ = 0;
};

/// Receives the parser's events and builds the tree.
class Builder : public nlohmann::json_sax<Json> {
 public:
  Builder(std::string const& file, std::string const& text) : file_(file), walk_(text) {}

  JsonNode take() { return std::move(root_); }

  bool null() override { return scalar(nullptr); }
  bool boolean(bool v) override { return scalar(v); }
  bool number_integer(number_integer_t) override { return scalar(JsonOtherNumber{}); }
  bool number_unsigned(number_unsigned_t v) override { return scalar(uint64_t{v}); }
  bool number_float(number_float_t, string_t const&) override { return scalar(JsonOtherNumber{}); }
  bool string(string_t& v) override { return scalar(std::move(v)); }
  bool binary(binary_t&) override { return scalar(nullptr); }
  bool start_object(std::size_t) override { return open(JsonNode::Object()); }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(JsonNode::Array()); }
  bool end_array() override { return close(); }

  bool key(string_t& name) override {
    Position const at = walk_.next();
    if (!open_.back().names.insert(name).second)
      throw InputError(file_, at, "duplicate field '" + name + "'");
    std::get<JsonNode::Object>(open_.back().node->value).push_back({std::move(name), at, {}});
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

  struct Open {
    JsonNode* node;  // stays put: its parent does not grow while it is open
    std::unordered_set<std::string> names;
  };

  bool scalar(decltype(JsonNode::value) value) {
    place({std::move(value), walk_.next()});
    return true;
  }
  bool open(decltype(JsonNode::value) value) {
    Position const at = walk_.next();
    if (open_.size() == deepest) throw InputError(file_, at, "too deeply nested");
    open_.push_back({&place({std::move(value), at}), {}});
    return true;
  }
  bool close() {
    walk_.next();
    open_.pop_back();
    return true;
  }
  JsonNode& place(JsonNode node) {
    if (open_.empty()) return root_ = std::move(node);
    if (auto* items = std::get_if<JsonNode::Array>(&open_.back().node->value))
      return items->emplace_back(std::move(node));
    return std::get<JsonNode::Object>(open_.back().node->value).back().value = std::move(node);
  }

  std::string const& file_;
  TokenWalk walk_;
  JsonNode root_;
  std::vector<Open> open_;
};

}  // namespace

JsonNode parseJson(std::string const& file, std::string const& text) {
  Builder builder(file, text);
  Json::sax_parse(text, &builder);
  return builder.take();
}

}  // namespace NaxelTool
