#pragma once

/// Values of OpenConfig's JSON (RFC 7951): names stand with or without their module, numbers may be
/// texts. Each function throws InputError at the value's place.

#include "input/JsonAccess.h"
#include "input/RuleDraft.h"

#include <string>
#include <string_view>

namespace NaxelTool::OpenConfig {

/// Without the module: "acl-set" of "openconfig-acl:acl-set". What we add ourselves keeps its "naxel:".
std::string_view baseName(std::string_view name);
/// Reads values of one file.
class Values {
 public:
  explicit Values(JsonFile const& file) : file_(file) {}

  JsonFile const& file() const { return file_; }
  /// The member of that name, with or without module; null where there is none. It must not stand there in
  /// two forms, of which one would be passed over.
  JsonNode const* find(JsonNode const& node, std::string_view name) const;
  /// A number, or a text of digits.
  uint64_t number(JsonNode const& node, std::string_view what, uint64_t min, uint64_t max) const;
  /// A text without its module.
  std::string_view identity(JsonNode const& node, std::string_view what) const;
  /// The items of an array; a single value is one.
  template <class F>
  void forEach(JsonNode const& node, F f) const {
    if (!node.items()) return f(node);
    for (JsonNode const& item : *node.items()) f(item);
  }
  Lumox::IpGenPrefix prefix(JsonNode const& node) const;
  /// A number, "80..90", or "ANY", which is every port.
  Naxel::Range port(JsonNode const& node) const;
  /// Ranges of a number or an array of them.
  RuleDraft::Ranges numbers(JsonNode const& node, std::string_view what, uint64_t max) const;

 private:
  JsonFile const& file_;
};

}  // namespace NaxelTool::OpenConfig
