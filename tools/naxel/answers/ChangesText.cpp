#include "answers/Changes.h"
#include "answers/RuleOverlap.h"
#include "input/Diagnostics.h"
#include "output/RuleJson.h"
#include "output/Summary.h"
#include "output/TextTable.h"
#include "packets/PacketText.h"

#include <algorithm>
#include <map>
#include <tuple>

namespace NaxelTool {

namespace {

std::string counted(size_t n, std::string const& one, std::string const& many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

std::string aclName(AclNames const& acl) {
  return acl.first == acl.second ? printable(acl.first)
                                 : printable(acl.first) + " -> " + printable(acl.second);
}

void printRule(std::ostream& out, char const* side, DecidingRule const& rule) {
  out << "  " << side << "  " << printable(rule.name);
  if (rule.index) out << ": " << printable(rule.text);
  out << '\n';
}

void printAcls(std::ostream& out, Changes const& changes) {
  for (AclNames const& names : changes.renamed)
    out << "ACL '" << printable(names.first) << "' is compared with '" << printable(names.second)
        << "': each side has no other one\n";
  for (AclChange const& acl : changes.acls) {
    out << "ACL '" << printable(acl.acl) << "' ";
    if (acl.kind == AclChange::Kind::otherFamily)
      out << "is of another address family in the new rules\n";
    else
      out << "stands in the " << (acl.kind == AclChange::Kind::onlyBefore ? "old" : "new")
          << " rules only (" << counted(acl.rules, "rule", "rules") << ")\n";
  }
}

void printVerdict(std::ostream& out, Changes const& changes) {
  if (changes.packets.empty()) {
    out << (changes.rulesLeft ? "no packet was found that is treated differently\n"
            : changes.aclsCompared || changes.acls.empty() ? "no packet is treated differently\n"
                                                           : "no ACL stands in both\n");
  } else {
    out << counted(changes.packets.size(), "change", "changes") << " in "
        << changes.aclsCompared - changes.aclsEqual << " of "
        << counted(changes.aclsCompared, "ACL", "ACLs") << ":";
    for (size_t kind = 0, shown = 0; kind < changeTitles().size(); ++kind) {
      auto const n = std::count_if(changes.packets.begin(), changes.packets.end(),
                                   [&](PacketChange const& c) { return c.kind == kind; });
      if (n) out << (shown++ ? ", " : " ") << n << " " << changeTitles()[kind];
    }
    out << '\n';
  }
  if (changes.rulesLeft)
    out << "this is not all: " << changes.rulesLeft << " of the "
        << changes.rulesOnlyBefore + changes.rulesOnlyAfter
        << " rules that differ were not looked at in full; a larger --effort looks further\n";
}

/// The rules that most of the changes have in common, for whoever does not see all of them.
void printCommonest(std::ostream& out, Changes const& changes) {
  struct Count {
    char const* side;
    AclNames const* acl;
    DecidingRule const* rule;
    size_t changes;
  };
  std::map<std::tuple<bool, AclNames, std::string>, Count> byRule;
  for (PacketChange const& c : changes.packets)
    for (bool const isNew : {true, false}) {
      DecidingRule const& rule = isNew ? *c.after : *c.before;
      Count& count = byRule
                         .try_emplace({!isNew, c.acl, rule.name},
                                      Count{isNew ? "new" : "old", &c.acl, &rule, 0})
                         .first->second;
      ++count.changes;
    }
  std::vector<Count> all;
  all.reserve(byRule.size());
  for (auto const& [key, count] : byRule) all.push_back(count);
  std::stable_sort(all.begin(), all.end(),
                   [](Count const& a, Count const& b) { return a.changes > b.changes; });
  for (size_t i = 0; i < all.size() && i < 3 && all[i].changes > 1; ++i)
    out << (i ? "" : "\nmost changes have in common\n") << "  " << all[i].changes << "  "
        << aclName(*all[i].acl) << ", " << all[i].side << " " << printable(all[i].rule->name)
        << '\n';
}

void printRows(std::ostream& out, RowChanges const& rows) {
  if (!rows.failure.empty()) {
    out << "\nthe " << (rows.isOldTheFailure ? "old" : "new") << " rules do not fit this chip:\n";
    for (std::string const& text : rows.failure) out << "  " << printable(text) << '\n';
    return;
  }
  std::vector<std::vector<std::string>> table = {{"rows", "added", "deleted", "changed", "kept"}};
  Naxel::RowCounts all;
  auto const add = [&](std::string title, Naxel::RowCounts const& n) {
    table.push_back({std::move(title), std::to_string(n.added()), std::to_string(n.deleted()),
                     std::to_string(n.changed()), std::to_string(n.kept())});
  };
  for (auto const& [tableOf, n] : rows.rows) {
    add(Naxel::tableTitle(tableOf), n);
    all = {all.added() + n.added(), all.deleted() + n.deleted(), all.changed() + n.changed(),
           all.kept() + n.kept()};
  }
  add("all", all);
  out << '\n';
  printTable(out, table, 1);
  out << "handshake: "
      << (rows.isHitless ? "hitless" : "hitful, policy " + rows.policy + " while loading") << '\n';
}

std::string ruleJson(DecidingRule const& rule) {
  if (!rule.index) return "null";
  return "{\"rule\":" + std::to_string(rule.index->value()) + ",\"name\":" + jsonText(rule.name) +
         ",\"text\":" + jsonText(rule.text) + ",\"action\":" + jsonText(rule.action) + "}";
}

void printRowsJson(std::ostream& out, RowChanges const& rows) {
  out << ",\n \"rows\":{";
  if (!rows.failure.empty()) {
    out << "\"fails\":\"" << (rows.isOldTheFailure ? "old" : "new") << "\",\"because\":[";
    for (size_t i = 0; i < rows.failure.size(); ++i)
      out << (i ? "," : "") << jsonText(rows.failure[i]);
    out << "]}";
    return;
  }
  out << "\"hitless\":" << (rows.isHitless ? "true" : "false");
  if (!rows.isHitless) out << ",\"policy\":" << jsonText(rows.policy);
  out << ",\"tables\":[";
  char const* comma = "";
  for (auto const& [table, n] : rows.rows) {
    out << comma << "\n  {\"table\":" << jsonText(Mox::stringValue(table))
        << ",\"added\":" << n.added() << ",\"deleted\":" << n.deleted()
        << ",\"changed\":" << n.changed() << ",\"kept\":" << n.kept() << "}";
    comma = ",";
  }
  out << "]}";
}

}  // namespace

void print(Changes const& changes, size_t limit, std::ostream& out) {
  printLeftOut(out, changes.readBefore, "old entries");
  printLeftOut(out, changes.readAfter, "new entries");
  printAcls(out, changes);
  printVerdict(out, changes);
  size_t shown = 0;
  PacketChange const* last = nullptr;
  for (PacketChange const& c : changes.packets) {
    if (shown++ == limit) break;
    if (!last || last->kind != c.kind || last->acl != c.acl)
      out << '\n' << aclName(c.acl) << ": " << changeTitles()[c.kind] << '\n';
    last = &c;
    out << "  such as  " << packetLine(c.packet) << '\n';
    printRule(out, "    old", *c.before);
    printRule(out, "    new", *c.after);
    if (std::string const both = overlapText(c, changes.names); !both.empty())
      out << "     both  match " << printable(both) << '\n';
  }
  if (changes.packets.size() > limit) {
    out << "\n" << changes.packets.size() - limit << " more; --all shows them\n";
    printCommonest(out, changes);
  }
  if (changes.rows) printRows(out, *changes.rows);
}

void printJson(Changes const& changes, std::ostream& out) {
  out << "{\"schema\":\"naxel-diff\",\"version\":1,\n \"same\":"
      << (changes.isSame() ? "true" : "false")
      << ",\n \"complete\":" << (changes.rulesLeft ? "false" : "true")
      << ",\n \"leftOut\":{\"old\":" << changes.readBefore.leftOut
      << ",\"new\":" << changes.readAfter.leftOut << "}"
      << ",\n \"acls\":{\"compared\":" << changes.aclsCompared << ",\"equal\":" << changes.aclsEqual
      << ",\"renamed\":[";
  char const* comma = "";
  for (AclNames const& names : changes.renamed) {
    out << comma << "[" << jsonText(names.first) << "," << jsonText(names.second) << "]";
    comma = ",";
  }
  out << "],\"others\":[";
  comma = "";
  constexpr char const* kinds[] = {"only-old", "only-new", "other-family"};
  for (AclChange const& acl : changes.acls) {
    out << comma << "{\"acl\":" << jsonText(acl.acl) << ",\"change\":\""
        << kinds[static_cast<size_t>(acl.kind)] << "\",\"rules\":" << acl.rules << "}";
    comma = ",";
  }
  out << "]},\n \"rules\":{\"onlyOld\":" << changes.rulesOnlyBefore
      << ",\"onlyNew\":" << changes.rulesOnlyAfter << ",\"undecided\":" << changes.rulesLeft
      << "},\n \"changes\":[";
  comma = "";
  for (PacketChange const& c : changes.packets) {
    out << comma << "\n  {\"change\":" << jsonText(changeTitles()[c.kind])
        << ",\"acl\":" << jsonText(c.acl.first);
    if (c.acl.first != c.acl.second) out << ",\"newAcl\":" << jsonText(c.acl.second);
    out << ",\"packet\":" << jsonText(packetLine(c.packet)) << ",\"old\":" << ruleJson(*c.before)
        << ",\"new\":" << ruleJson(*c.after) << "}";
    comma = ",";
  }
  out << "]";
  if (changes.rows) printRowsJson(out, *changes.rows);
  out << "}\n";
}

}  // namespace NaxelTool
