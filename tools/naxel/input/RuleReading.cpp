#include "input/RuleReading.h"

#include <sstream>

namespace NaxelTool {

RuleReading::RuleReading(std::string path, std::string const& content, ReadOptions const& options,
                         RuleSet& rules, Diagnostics& diagnostics)
    : path_(std::move(path)),
      content_(content),
      options_(options),
      rules_(rules),
      diagnostics_(diagnostics),
      file_(rules.fileIs(path_)) {}

Naxel::RuleConfig& RuleReading::ruleIs(Naxel::AclConfig& acl, std::optional<uint64_t> wanted,
                                       std::string const& name, RuleOrigin origin) {
  origin.file = file_;
  uint64_t& next = next_[&acl];
  uint64_t index = next;
  if (wanted && *wanted >= index && *wanted < Naxel::AceIndex::null) index = *wanted;
  if (index >= Naxel::AceIndex::null)
    throw InputError(path_, origin.at,
                     "no index is left behind the last rule of '" + acl.name() + "'");
  next = index + 1;
  auto const rule = acl.ruleByNameIs(name);
  Naxel::AceIndex const at(static_cast<uint32_t>(index));
  acl.ruleByIdIs(at, rule);
  rules_.originIs(acl.name(), at, std::move(origin));
  return *rule;
}

std::string_view RuleReading::line(size_t number) const {
  // Messages come roughly in the order of lines, so the search goes on from the last one.
  if (number < knownLine_) {
    knownLine_ = 1;
    knownOffset_ = 0;
  }
  for (; knownLine_ < number; ++knownLine_) {
    size_t const end = content_.find('\n', knownOffset_);
    if (end == std::string::npos) return {};
    knownOffset_ = end + 1;
  }
  size_t const end = content_.find('\n', knownOffset_);
  return std::string_view(content_).substr(knownOffset_,
                                           end == std::string::npos ? end : end - knownOffset_);
}

void RuleReading::say(Severity severity, Place place, std::string code, std::string text,
                      std::string help) {
  Diagnostic d{severity, std::move(code), path_, place, std::move(text), std::move(help), {}};
  // A line is looked up only for what is shown.
  if (place.at.line && place.at.column && diagnostics_.count(severity) < Diagnostics::shown)
    d.line = line(place.at.line);
  diagnostics_.say(d);
}

void settle(ReadCounts& counts, RuleSet& rules, Diagnostics& diagnostics) {
  size_t const failed = rules.lists().resolve(rules.files(), diagnostics);
  counts.compiled -= failed;
  counts.reported += failed;
}

ReadCounts readRules(RuleReader reader, std::string const& path, std::string const& content,
                     RuleSet& out, ReadOptions const& options) {
  std::ostringstream said;
  Diagnostics diagnostics(said);
  RuleReading reading(path, content, options, out, diagnostics);
  reader(reading);
  settle(reading.counts(), out, diagnostics);
  if (auto const error = diagnostics.firstError())
    throw InputError(path, error->place.at, error->text, error->help);
  return reading.counts();
}

}  // namespace NaxelTool
