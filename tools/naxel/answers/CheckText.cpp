#include "answers/Check.h"
#include "output/JsonText.h"
#include "output/RuleJson.h"
#include "output/RuleText.h"
#include "output/Summary.h"
#include "output/TextTable.h"
#include "output/Verdicts.h"
#include "packets/PacketText.h"

#include <map>

namespace NaxelTool {

namespace {

/// Other rules that are named before the rest is counted.
constexpr size_t shownOthers = 4;

std::string counted(size_t n, char const* one) {
  return std::to_string(n) + " " + one + (n == 1 ? "" : "s");
}

std::string subjectOf(Finding const& f, RuleSet const& rules) {
  if (f.rules.empty()) return "list '" + f.list + "'";
  std::string const number = std::to_string(f.rules.front().value());
  std::string out = "rule " + number;
  if (auto const rule = rules.acls()->acl(f.acl)->ruleById(f.rules.front()))
    if (rule->name() != number) out += " '" + rule->name() + "'";
  out += " of '" + f.acl + "'";
  if (f.rules.size() < f.entryRules) return out + ", a part of its entry,";
  if (f.rules.size() > 1)
    out += ", with " + counted(f.rules.size() - 1, "more rule") + " of its entry,";
  return out;
}

void printFinding(Finding const& f, RuleSet const& rules, std::ostream& out) {
  out << printable((f.place.empty() ? "" : f.place + ": ") + severityText(f.kind->severity) + "[" +
                   std::string(f.kind->code) + "]: " + subjectOf(f, rules) + " " + f.text)
      << '\n';
  if (f.rules.empty()) return;
  auto const acl = rules.acls()->acl(f.acl);
  std::vector<std::vector<std::string>> rows;
  auto const add = [&](std::string const& name, Naxel::AceIndex index) {
    auto const rule = acl->ruleById(index);
    rows.push_back({"   ", printable(name), text(rule->action()),
                    printable(patternText(rule->ruleFilter().get(), rules.lists()))});
  };
  add("rule " + std::to_string(f.rules.front().value()), f.rules.front());
  for (size_t i = 0; i < f.others.size() && i < shownOthers; ++i)
    add(ruleName(rules, *acl, f.others[i]), f.others[i]);
  printTable(out, rows, rows.front().size());
  if (f.others.size() > shownOthers)
    out << "     and " << counted(f.others.size() - shownOthers, "more rule") << '\n';
}

/// Rules that no packet reaches and that are ends which a format implies, of which nobody complains.
size_t unreachedEnds(CheckReport const& report, RuleSet const& rules) {
  size_t out = 0;
  for (CheckedAcl const& acl : report.acls)
    for (CheckedRule const& rule : acl.rules) {
      RuleOrigin const* const origin = rules.origin(acl.name, rule.index);
      out += origin && origin->implied && rule.reached == CheckedRule::Reached::no;
    }
  return out;
}

void printSummary(CheckReport const& report, RuleSet const& rules, std::ostream& out) {
  out << (report.findings.empty() ? "nothing found"
                                  : counted(report.count(Severity::error), "error") + ", " +
                                        counted(report.count(Severity::warning), "warning") + ", " +
                                        counted(report.count(Severity::note), "note"))
      << " in " << counted(report.rules(), "rule");
  if (report.entries() != report.rules())
    out << " (" << report.entries() << (report.entries() == 1 ? " entry)" : " entries)");
  out << " of " << counted(report.acls.size(), "ACL") << "; packets reach " << report.reached()
      << " of them";
  if (size_t const ends = unreachedEnds(report, rules))
    out << ", and not " << counted(ends, "end") << " that " << (ends == 1 ? "is" : "are")
        << " implied";
  out << '\n';
}

void printWitnesses(CheckReport const& report, RuleSet const& rules, std::ostream& out) {
  std::vector<std::vector<std::string>> rows;
  for (CheckedAcl const& acl : report.acls)
    for (CheckedRule const& rule : acl.rules)
      if (rule.witness)
        rows.push_back(
            {printable(acl.name + ": " + ruleName(rules, *rules.acls()->acl(acl.name), rule.index)),
             packetLine(*rule.witness)});
  if (rows.empty()) return;
  out << "\npackets that reach rules:\n";
  printTable(out, rows, 2);
}

using Json = nlohmann::ordered_json;

Json ruleJson(RuleSet const& rules, std::string const& acl, Naxel::AceIndex index) {
  auto const config = rules.acls()->acl(acl);
  Json out = Json::parse("{" + ruleMembers(rules, *config, index) + "}");
  out["text"] = utf8(ruleText(*config->ruleById(index), rules.lists()));
  return out;
}

Json findingJson(Finding const& f, RuleSet const& rules) {
  Json out{{"code", f.kind->code}, {"severity", severityText(f.kind->severity)}};
  if (f.rules.empty()) {
    out["list"] = utf8(f.list);
  } else {
    out["acl"] = utf8(f.acl);
    out["rules"] = Json::array();
    for (auto const rule : f.rules) out["rules"].push_back(ruleJson(rules, f.acl, rule));
    out["entryRules"] = f.entryRules;
  }
  if (!f.place.empty()) out["from"] = utf8(f.place);
  out["text"] = utf8(f.text);
  if (f.others.empty()) return out;
  out["others"] = Json::array();
  for (auto const rule : f.others) out["others"].push_back(ruleJson(rules, f.acl, rule));
  return out;
}

char const* reachedText(CheckedRule::Reached reached) {
  switch (reached) {
    case CheckedRule::Reached::yes: return "yes";
    case CheckedRule::Reached::no: return "no";
    case CheckedRule::Reached::matchesNothing: return "matches nothing";
    case CheckedRule::Reached::undecided: return "undecided";
  }
  return "";
}

}  // namespace

void print(CheckReport const& report, RuleSet const& rules, size_t limit, bool witnesses,
           std::ostream& out) {
  printLeftOut(out, rules.counts());
  printSummary(report, rules, out);
  std::map<FindingKind const*, size_t> all;
  for (Finding const& f : report.findings) ++all[f.kind];
  std::map<FindingKind const*, size_t> told;
  for (Finding const& f : report.findings) {
    size_t const number = ++told[f.kind];
    if (number <= limit) printFinding(f, rules, out);
    if (number == limit + 1)
      out << "... and " << all[f.kind] - limit << " more of " << f.kind->code
          << "; --all shows them\n";
  }
  if (witnesses) printWitnesses(report, rules, out);
}

void printJson(CheckReport const& report, RuleSet const& rules, std::ostream& out) {
  out << R"({"schema":"naxel-check","version":1,"errors":)" << report.count(Severity::error)
      << ",\"warnings\":" << report.count(Severity::warning)
      << ",\"notes\":" << report.count(Severity::note) << ",\"leftOut\":" << rules.counts().leftOut
      << ",\n\"findings\":[";
  for (size_t i = 0; i < report.findings.size(); ++i)
    out << (i ? ",\n" : "\n") << findingJson(report.findings[i], rules).dump();
  out << "],\n\"acls\":[";
  for (size_t i = 0; i < report.acls.size(); ++i) {
    CheckedAcl const& acl = report.acls[i];
    auto const config = rules.acls()->acl(acl.name);
    out << (i ? ",\n" : "\n") << "{\"name\":" << jsonText(acl.name)
        << ",\"entries\":" << acl.entries << ",\"rules\":[";
    for (size_t j = 0; j < acl.rules.size(); ++j) {
      CheckedRule const& rule = acl.rules[j];
      out << (j ? ",\n" : "\n") << '{' << ruleMembers(rules, *config, rule.index)
          << ",\"reached\":\"" << reachedText(rule.reached) << '"';
      if (rule.witness) out << ",\"packet\":" << jsonText(packetLine(*rule.witness));
      out << '}';
    }
    out << "]}";
  }
  out << "]}\n";
}

}  // namespace NaxelTool
