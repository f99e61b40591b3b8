#include "answers/Explanation.h"
#include "answers/VerdictJson.h"
#include "output/RuleText.h"
#include "output/Summary.h"
#include "output/TextTable.h"
#include "output/Verdicts.h"

namespace NaxelTool {

namespace {

std::string hexMask(uint16_t mask) {
  char text[8];
  std::snprintf(text, sizeof text, "0x%04x", unsigned{mask});
  return text;
}

/// "source 3/0xffff dport 8/0x0ff8".
std::string comparedText(std::vector<ComparedField> const& fields) {
  std::string out;
  for (ComparedField const& f : fields) {
    out += (out.empty() ? "" : " ") + f.field;
    if (f.value) out += " " + std::to_string(*f.value) + "/" + hexMask(f.mask);
  }
  return out.empty() ? "anything" : out;
}

/// Lines behind one head: the first has it, the others are set under it.
void printLines(std::ostream& out, std::string const& head, std::vector<std::string> const& lines) {
  for (size_t i = 0; i < lines.size(); ++i)
    out << "  " << (i ? std::string(head.size(), ' ') : head) << std::string(9 - head.size(), ' ')
        << printable(lines[i]) << '\n';
}

std::vector<std::string> textsOf(std::vector<FieldCheck> const& checks) {
  std::vector<std::string> out;
  out.reserve(checks.size());
  for (FieldCheck const& check : checks) out.push_back(check.text);
  return out;
}

void printWhyNot(std::ostream& out, WhyNot const& why, Naxel::AclConfig const& acl,
                 RuleSet const& rules) {
  std::vector<std::string> lines = {ruleName(rules, acl, why.rule)};
  if (why.decides)
    lines.front() += " does decide";
  else if (!why.unmet.empty())
    for (std::string& line : textsOf(why.unmet)) lines.push_back("  " + std::move(line));
  else if (why.earlier)
    lines.push_back("  " + ruleName(rules, acl, *why.earlier) +
                    " comes before and takes the packet");
  printLines(out, "why not", lines);
}

/// More ACLs are not explained one by one.
constexpr size_t aclsExplained = 4;

void printShort(std::ostream& out, AclExplanation const& e, RuleSet const& rules) {
  out << printable(e.acl->name()) << ": " << text(*e.acl, e.found);
  std::string const from = e.rule ? rules.originText(e.acl->name(), *e.rule) : std::string();
  out << (from.empty() ? "" : " (" + printable(from) + ")") << '\n';
}

void print(std::ostream& out, AclExplanation const& e, RuleSet const& rules) {
  std::string const& name = e.acl->name();
  out << printable(name) << ": " << text(*e.acl, e.found) << '\n';
  if (!e.agrees) out << "  but the rules say: " << text(*e.acl, e.rule) << '\n';
  if (e.agrees && e.rule) {
    if (std::string const from = rules.originText(name, *e.rule); !from.empty())
      printLines(out, "from", {from});
    printLines(out, "rule", {ruleText(*e.acl->ruleById(*e.rule), rules.lists())});
    std::vector<std::string> reasons = textsOf(e.met);
    if (reasons.empty()) reasons.emplace_back("the rule matches every packet");
    printLines(out, "because", reasons);
    printLines(out, "entry",
               {std::to_string(e.entry) + " of " + std::to_string(e.entries) + ": " +
                comparedText(e.compared)});
  }
  for (WhyNot const& why : e.whyNot) printWhyNot(out, why, *e.acl, rules);
}

std::string labelText(LookupStep const& step) {
  return step.label ? std::to_string(*step.label) : "none";
}

void printLookups(std::ostream& out, std::vector<LookupStep> const& steps) {
  std::vector<std::vector<std::string>> rows = {{"lookup", "packet has", "table has", "label"}};
  for (LookupStep const& s : steps)
    rows.push_back({std::string(Naxel::labelFieldName(s.field)), s.input,
                    s.raw ? "raw" : (s.matched.empty() ? "nothing" : s.matched), labelText(s)});
  printTable(out, rows, 3);
}

std::string checksJson(std::vector<FieldCheck> const& checks) {
  std::string out;
  for (FieldCheck const& c : checks)
    out += (out.empty() ? "\n    {" : ",\n    {") + std::string("\"field\":") + jsonText(c.field) +
           ",\"wanted\":" + jsonText(c.wanted) + ",\"had\":" + jsonText(c.had) +
           ",\"text\":" + jsonText(c.text) + "}";
  return "[" + out + "]";
}

void printJson(std::ostream& out, WhyNot const& why, Naxel::AclConfig const& acl,
               RuleSet const& rules) {
  out << '{' << ruleMembers(rules, acl, why.rule)
      << ",\"decides\":" << (why.decides ? "true" : "false")
      << ",\"unmet\":" << checksJson(why.unmet);
  if (why.earlier) out << ",\"earlier\":{" << ruleMembers(rules, acl, *why.earlier) << '}';
  out << '}';
}

void printJson(std::ostream& out, AclExplanation const& e, RuleSet const& rules) {
  out << '{' << verdictMembers(rules, *e.acl, e.rule, e.found);
  if (e.agrees && e.rule) {
    out << ",\n   \"because\":" << checksJson(e.met) << ",\n   \"entry\":{\"number\":" << e.entry
        << ",\"of\":" << e.entries << ",\"compares\":" << jsonText(comparedText(e.compared)) << '}';
  }
  for (size_t i = 0; i < e.whyNot.size(); ++i) {
    out << (i ? "," : ",\n   \"whyNot\":[") << "\n    ";
    printJson(out, e.whyNot[i], *e.acl, rules);
  }
  out << (e.whyNot.empty() ? "}" : "]}");
}

}  // namespace

void print(std::ostream& out, PacketExplanation const& explanation, RuleSet const& rules,
           bool all) {
  printLeftOut(out, rules.counts());
  out << "packet   " << packetShown(explanation.packet) << "\n\n";
  bool const isShort = !all && explanation.acls.size() > aclsExplained;
  for (AclExplanation const& acl : explanation.acls)
    if (isShort && acl.agrees && acl.whyNot.empty())
      printShort(out, acl, rules);
    else
      print(out, acl, rules);
  if (isShort) out << "--acl NAME explains one of them, --all explains all\n";
  if (explanation.acls.empty() && explanation.foreign.empty())
    out << "there is no ACL of " << Mox::stringValue(explanation.packet.af) << " to look at\n";
  for (RuleTarget const& target : explanation.foreign)
    out << printable(target.acl) << ": is not of the packet's family, so "
        << printable(ruleName(rules, *rules.acls()->acl(target.acl), target.rule))
        << " cannot decide\n";
  out << '\n';
  printLookups(out, explanation.lookups);
}

void printJson(std::ostream& out, PacketExplanation const& explanation, RuleSet const& rules) {
  out << R"({"schema":"naxel-explain","version":1,)"
      << "\n \"packet\":" << jsonText(packetShown(explanation.packet))
      << ",\n \"labels\":" << jsonText(Verify::text(explanation.labels)) << ",\n \"lookups\":[";
  for (size_t i = 0; i < explanation.lookups.size(); ++i) {
    LookupStep const& s = explanation.lookups[i];
    out << (i ? ",\n  {" : "\n  {")
        << "\"field\":" << jsonText(std::string(Naxel::labelFieldName(s.field)))
        << ",\"input\":" << jsonText(s.input);
    if (s.raw) out << ",\"raw\":true";
    if (!s.matched.empty()) out << ",\"matched\":" << jsonText(s.matched);
    if (s.label) out << ",\"label\":" << *s.label;
    out << '}';
  }
  out << "],\n \"verdicts\":[";
  for (size_t i = 0; i < explanation.acls.size(); ++i) {
    out << (i ? ",\n  " : "\n  ");
    printJson(out, explanation.acls[i], rules);
  }
  out << "],\n \"leftOut\":" << rules.counts().leftOut
      << ",\n \"differences\":" << explanation.differences() << "}\n";
}

}  // namespace NaxelTool
