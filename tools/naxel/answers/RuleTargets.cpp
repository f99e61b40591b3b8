#include "answers/RuleTargets.h"

#include "input/Diagnostics.h"

#include <charconv>
#include <optional>
#include <string_view>

namespace NaxelTool {

namespace {

std::optional<uint64_t> wholeNumber(std::string_view text) {
  uint64_t value = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

/// "edge.cfg" is the end of "configs/edge.cfg".
bool endsPath(std::string_view path, std::string_view end) {
  return !end.empty() && path.ends_with(end) &&
         (path.size() == end.size() || path[path.size() - end.size() - 1] == '/');
}

class RuleSearch {
 public:
  RuleSearch(RuleSet const& rules, std::string const& only) : rules_(rules), only_(only) {}

  std::vector<RuleTarget> named(std::string_view text) const {
    std::vector<RuleTarget> found;
    if (auto const number = wholeNumber(text))
      found = all([&](auto const&, Naxel::AceIndex index, auto const&) {
        return index.value() == *number;
      });
    if (found.empty())
      found = all(
          [&](auto const&, auto, Naxel::RuleConfig const& rule) { return rule.name() == text; });
    size_t const colon = text.rfind(':');
    if (!found.empty() || colon == std::string_view::npos) return found;
    auto const line = wholeNumber(text.substr(colon + 1));
    if (!line) return found;
    std::string_view const file = text.substr(0, colon);
    return all([&](std::string const& acl, Naxel::AceIndex index, auto const&) {
      RuleOrigin const* const from = rules_.origin(acl, index);
      return from && !from->implied && from->at.line == *line &&
             endsPath(rules_.files()[from->file], file);
    });
  }

  /// The name most like the text, or the rule that begins before the line which it names.
  std::string hint(std::string_view text) const {
    std::vector<std::string_view> names;
    std::string nearest;
    size_t best = 0;
    size_t const colon = text.rfind(':');
    auto const line =
        colon == std::string_view::npos ? std::nullopt : wholeNumber(text.substr(colon + 1));
    all([&](std::string const& acl, Naxel::AceIndex index, Naxel::RuleConfig const& rule) {
      names.push_back(rule.name());
      RuleOrigin const* const from = rules_.origin(acl, index);
      if (line && from && from->at.line <= *line && from->at.line > best &&
          endsPath(rules_.files()[from->file], text.substr(0, colon))) {
        best = from->at.line;
        nearest = rules_.originText(acl, index);
      }
      return false;
    });
    if (!nearest.empty()) return "the rule before it stands at " + nearest;
    return wholeNumber(text) ? std::string() : didYouMean(text, names);
  }

 private:
  template <class F>
  std::vector<RuleTarget> all(F const& isMeant) const {
    std::vector<RuleTarget> out;
    for (auto const& [name, acl] : rules_.acls()->acl())
      for (auto const& [index, rule] : acl->ruleById())
        if ((only_.empty() || only_ == name) && rule && isMeant(name, index, *rule))
          out.push_back({name, index});
    return out;
  }

  RuleSet const& rules_;
  std::string const& only_;
};

}  // namespace

NoSuchRule::~NoSuchRule() = default;

std::vector<RuleTarget> rulesNamed(std::string const& text, RuleSet const& rules,
                                   std::string const& only) {
  auto out = RuleSearch(rules, only).named(text);
  if (!out.empty()) return out;
  // An ACL may have colons in its name as well.
  for (size_t colon = text.find(':'); colon != std::string::npos;
       colon = text.find(':', colon + 1)) {
    std::string const acl = text.substr(0, colon);
    if (!rules.acls()->aclHas(acl) || (!only.empty() && only != acl)) continue;
    out = RuleSearch(rules, acl).named(std::string_view(text).substr(colon + 1));
    if (!out.empty()) return out;
  }
  throw NoSuchRule(
      "there is no rule '" + text + "'" + (only.empty() ? "" : " in ACL '" + only + "'"),
      RuleSearch(rules, only).hint(text));
}

}  // namespace NaxelTool
