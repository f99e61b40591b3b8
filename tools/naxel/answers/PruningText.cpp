#include "answers/Pruning.h"
#include "input/Diagnostics.h"
#include "output/RuleJson.h"
#include "output/Summary.h"

namespace NaxelTool {

namespace {

/// Rules that are named as those that do the same before the rest is counted.
constexpr size_t namedRules = 3;

std::string reason(PrunedRule const& rule) {
  switch (rule.why) {
    case PrunedRule::Why::matchesNothing: return "it matches nothing";
    case PrunedRule::Why::decidesNothing: return "all that it matches is decided before, by ";
    case PrunedRule::Why::sameWithout: return "the same is done behind it, by ";
    case PrunedRule::Why::merged: return "its " + rule.field + " now stands in ";
  }
  return {};
}

std::string namesText(std::vector<std::string> const& names) {
  std::string out;
  for (size_t i = 0; i < names.size() && i < namedRules; ++i)
    out += (i ? ", " : "") + printable(names[i]);
  if (names.size() > namedRules)
    out += " and " + std::to_string(names.size() - namedRules) + " more";
  return out;
}

char const* whyJson(PrunedRule::Why why) {
  constexpr char const* names[] = {"matches-nothing", "decides-nothing", "same-without", "merged"};
  return names[static_cast<size_t>(why)];
}

std::string costText(std::optional<size_t> entries) {
  return entries ? std::to_string(*entries) : "more than fit";
}

}  // namespace

void print(Pruning const& pruning, size_t limit, std::ostream& out) {
  printLeftOut(out, pruning.read);
  size_t const before = pruning.before();
  out << pruning.rules.size() << " of " << before << (before == 1 ? " rule" : " rules")
      << " can go; proved for every packet\n";
  if (pruning.undecided)
    out << pruning.undecided
        << " rules stay because the effort did not suffice; a larger --effort looks further\n";
  if (pruning.costs)
    out << "entries: " << costText(pruning.costs->before) << " before, "
        << costText(pruning.costs->after) << " after\n";
  std::string const* last = nullptr;
  for (size_t i = 0; i < pruning.rules.size() && i < limit; ++i) {
    PrunedRule const& rule = pruning.rules[i];
    if (!last || *last != rule.acl) out << '\n' << printable(rule.acl) << '\n';
    last = &rule.acl;
    out << "  " << printable(rule.name) << ": " << printable(rule.text) << "\n    " << reason(rule)
        << namesText(rule.because) << '\n';
  }
  if (pruning.rules.size() > limit)
    out << "\n" << pruning.rules.size() - limit << " more; --all shows them\n";
}

void printJson(Pruning const& pruning, std::ostream& out) {
  out << "{\"schema\":\"naxel-prune\",\"version\":1,\n \"proved\":"
      << (pruning.isProved ? "true" : "false");
  out << ",\n \"leftOut\":" << pruning.read.leftOut << ",\n \"before\":" << pruning.before()
      << ",\"after\":" << pruning.after() << ",\"undecided\":" << pruning.undecided;
  if (pruning.costs) {
    auto const number = [](std::optional<size_t> n) {
      return n ? std::to_string(*n) : std::string("null");
    };
    out << ",\n \"entries\":{\"before\":" << number(pruning.costs->before)
        << ",\"after\":" << number(pruning.costs->after) << "}";
  }
  out << ",\n \"acls\":[";
  char const* comma = "";
  for (PrunedAcl const& acl : pruning.acls) {
    out << comma << "\n  {\"acl\":" << jsonText(acl.name) << ",\"before\":" << acl.before
        << ",\"after\":" << acl.after << "}";
    comma = ",";
  }
  out << "],\n \"rules\":[";
  comma = "";
  for (PrunedRule const& rule : pruning.rules) {
    out << comma << "\n  {\"acl\":" << jsonText(rule.acl) << ",\"rule\":" << rule.index
        << ",\"name\":" << jsonText(rule.name) << ",\"text\":" << jsonText(rule.text)
        << ",\"why\":\"" << whyJson(rule.why) << "\"";
    if (!rule.field.empty()) out << ",\"field\":" << jsonText(rule.field);
    out << ",\"because\":[";
    for (size_t i = 0; i < rule.because.size(); ++i)
      out << (i ? "," : "") << jsonText(rule.because[i]);
    out << "]}";
    comma = ",";
  }
  out << "]}\n";
}

}  // namespace NaxelTool
