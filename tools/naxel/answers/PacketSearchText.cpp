#include "answers/PacketSearch.h"
#include "output/RuleJson.h"
#include "output/RuleText.h"
#include "output/Summary.h"
#include "output/TextTable.h"
#include "output/Verdicts.h"
#include "packets/PacketText.h"

namespace NaxelTool {

namespace {

using Outcome = SearchedAcl::Outcome;
using TextRows = std::vector<std::vector<std::string>>;

/// Deciding rules that are named before the rest is counted.
constexpr size_t shownTakers = 10;

std::vector<std::string> deciderRow(RuleSet const& rules, Naxel::AclConfig const& acl,
                                    std::optional<Naxel::AceIndex> index) {
  if (!index) return {"   ", "none", "no rule matches"};
  auto const rule = acl.ruleById(*index);
  return {"   ", text(rule->action()), printable(ruleName(rules, acl, *index)),
          printable(patternText(rule->ruleFilter().get(), rules.lists()))};
}

char const* outcomeText(Outcome outcome) {
  switch (outcome) {
    case Outcome::found: return "found";
    case Outcome::none: return "none";
    case Outcome::outOfBounds: return "no packet within the bounds";
    case Outcome::undecided: return "undecided";
  }
  return "";
}

void printFound(SearchedAcl const& acl, RuleSet const& rules, std::ostream& out) {
  auto const config = rules.acls()->acl(acl.name);
  for (FoundPacket const& found : acl.packets) {
    out << printable(acl.name) << ": " << packetLine(found.packet) << '\n';
    TextRows const rows{deciderRow(rules, *config, found.rule)};
    printTable(out, rows, rows.front().size());
  }
  if (acl.isComplete && acl.packets.size() > 1)
    out << printable(acl.name) << ": no other rule decides such a packet\n";
}

void printNone(SearchedAcl const& acl, RuleSet const& rules, bool all, std::ostream& out) {
  auto const config = rules.acls()->acl(acl.name);
  out << printable(acl.name);
  switch (acl.outcome) {
    case Outcome::outOfBounds: out << ": no packet can be within these bounds\n"; return;
    case Outcome::undecided: out << ": undecided, the effort did not suffice\n"; return;
    default: break;
  }
  out << ": there is none; each packet within the bounds hits one of these, or is decided "
         "before:\n";
  TextRows rows;
  for (size_t i = 0; i < acl.takenBy.size() && (all || i < shownTakers); ++i)
    rows.push_back(deciderRow(rules, *config, acl.takenBy[i]));
  if (acl.hitsNone) rows.push_back(deciderRow(rules, *config, std::nullopt));
  printTable(out, rows, 4);
  if (!all && acl.takenBy.size() > shownTakers)
    out << "     and " << acl.takenBy.size() - shownTakers << " more rules; --all shows them\n";
}

}  // namespace

void print(SearchReport const& report, RuleSet const& rules, bool all, std::ostream& out) {
  printLeftOut(out, rules.counts());
  for (SearchedAcl const& acl : report.acls)
    if (acl.outcome == Outcome::found)
      printFound(acl, rules, out);
    else
      printNone(acl, rules, all, out);
}

void printJson(SearchReport const& report, RuleSet const& rules, std::ostream& out) {
  out << R"({"schema":"naxel-search","version":1,"found":)"
      << (report.has(Outcome::found) ? "true" : "false")
      << ",\"leftOut\":" << rules.counts().leftOut << ",\"acls\":[";
  for (size_t i = 0; i < report.acls.size(); ++i) {
    SearchedAcl const& acl = report.acls[i];
    auto const config = rules.acls()->acl(acl.name);
    out << (i ? ",\n" : "\n") << "{\"name\":" << jsonText(acl.name) << ",\"outcome\":\""
        << outcomeText(acl.outcome) << "\",\"complete\":" << (acl.isComplete ? "true" : "false")
        << ",\"packets\":[";
    for (size_t j = 0; j < acl.packets.size(); ++j) {
      FoundPacket const& found = acl.packets[j];
      out << (j ? ",\n" : "\n") << "{\"packet\":" << jsonText(packetLine(found.packet));
      if (found.rule)
        out << ',' << ruleMembers(rules, *config, *found.rule)
            << ",\"action\":" << jsonText(text(config->ruleById(*found.rule)->action()));
      out << '}';
    }
    out << "],\"takenBy\":[";
    for (size_t j = 0; j < acl.takenBy.size(); ++j)
      out << (j ? ",\n" : "\n") << '{' << ruleMembers(rules, *config, acl.takenBy[j]) << '}';
    out << "],\"hitsNone\":" << (acl.hitsNone ? "true" : "false") << '}';
  }
  out << "]}\n";
}

}  // namespace NaxelTool
