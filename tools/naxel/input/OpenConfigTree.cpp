#include "input/OpenConfigTree.h"

#include "input/RuleSet.h"

#include <charconv>
#include <stdexcept>

namespace NaxelTool::OpenConfig {

namespace {

bool wholeNumber(std::string_view text, uint64_t& value) {
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::string_view baseName(std::string_view name) {
  if (name.starts_with("naxel:")) return name;
  size_t const colon = name.rfind(':');
  return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

JsonNode const* Values::find(JsonNode const& node, std::string_view name) const {
  if (!node.members()) return nullptr;
  JsonNode const* found = nullptr;
  for (JsonMember const& m : *node.members()) {
    if (baseName(m.name) != name) continue;
    if (found) file_.fail(m.at(), "'" + std::string(name) + "' stands twice");
    found = &m.value;
  }
  return found;
}

uint64_t Values::number(JsonNode const& node, std::string_view what, uint64_t min,
                        uint64_t max) const {
  uint64_t value = 0;
  std::string const* const text = node.text();
  if (!text) return file_.number(node, what, min, max);
  if (wholeNumber(*text, value) && value >= min && value <= max) return value;
  file_.fail(node, "'" + std::string(what) + "' must be a whole number from " +
                       std::to_string(min) + " to " + std::to_string(max));
}

std::string_view Values::identity(JsonNode const& node, std::string_view what) const {
  return baseName(file_.text(node, what));
}

Lumox::IpGenPrefix Values::prefix(JsonNode const& node) const {
  try {
    return prefixOrHostFromText(file_.text(node, "prefix"));
  } catch (std::invalid_argument const& e) {
    file_.fail(node, e.what());
  }
}

Naxel::Range Values::port(JsonNode const& node) const {
  constexpr uint64_t bound = Naxel::L4PortRange::bound;
  std::string const* const text = node.text();
  if (text && baseName(*text) == "ANY") return {0, bound};
  size_t const dots = text ? text->find("..") : std::string::npos;
  if (dots == std::string::npos) {
    auto const value = static_cast<uint32_t>(number(node, "port", 0, bound));
    return {value, value};
  }
  uint64_t first = 0;
  uint64_t last = 0;
  std::string_view const all = *text;
  if (!wholeNumber(all.substr(0, dots), first) || !wholeNumber(all.substr(dots + 2), last) ||
      last > bound)
    file_.fail(node, "a port is a number to 65535, a text such as \"80..90\", or \"ANY\"");
  if (first > last)
    file_.fail(node, "the port range starts at " + std::to_string(first) + ", above its end " +
                         std::to_string(last));
  return {static_cast<uint32_t>(first), static_cast<uint32_t>(last)};
}

RuleDraft::Ranges Values::numbers(JsonNode const& node, std::string_view what, uint64_t max) const {
  RuleDraft::Ranges out;
  forEach(node, [&](JsonNode const& item) {
    auto const value = static_cast<uint32_t>(number(item, what, 0, max));
    out.emplace_back(value, value);
  });
  if (out.empty()) file_.fail(node, "'" + std::string(what) + "' is empty");
  return out;
}

}  // namespace NaxelTool::OpenConfig
