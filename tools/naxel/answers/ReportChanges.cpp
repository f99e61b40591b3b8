#include "answers/HtmlText.h"
#include "answers/Report.h"
#include "answers/RuleOverlap.h"
#include "packets/PacketText.h"

#include <algorithm>

namespace NaxelTool {

namespace {

using Counts = Naxel::RowCounts;

std::string amount(uint64_t n, std::string const& one, std::string const& many) {
  return grouped(n) + " " + (n == 1 ? one : many);
}

std::string aclText(AclNames const& acl) {
  return acl.first == acl.second ? acl.first : acl.first + " → " + acl.second;
}

/// What is said before any table, a paragraph each.
std::vector<std::string> sentences(Changes const& changes) {
  std::vector<std::string> out;
  if (!changes.packets.empty())
    out.push_back(
        amount(changes.packets.size(), "change", "changes") + " in " +
        grouped(changes.aclsCompared - changes.aclsEqual) + " of " +
        amount(changes.aclsCompared, "ACL", "ACLs") +
        ": packets that one rule decided and another one decides now, to another end; the gravest "
        "first, each with a packet that shows it.");
  else if (!changes.aclsCompared && !changes.acls.empty())
    out.emplace_back("No ACL stands in both.");
  else
    out.emplace_back(changes.rulesLeft ? "No packet was found that is treated differently."
                                       : "No packet is treated differently.");
  if (changes.rulesLeft)
    out.push_back("This is not all: " + grouped(changes.rulesLeft) + " of the " +
                  grouped(changes.rulesOnlyBefore + changes.rulesOnlyAfter) +
                  " rules that differ were not looked at in full.");
  for (auto const& [counts, which] :
       {std::pair{&changes.readBefore, "old"}, std::pair{&changes.readAfter, "new"}})
    if (counts->leftOut)
      out.push_back("Not compared: " + grouped(counts->leftOut) + " of " + grouped(counts->read) +
                    " entries of the " + which + " source, which were left out.");
  for (AclNames const& names : changes.renamed)
    out.push_back("ACL '" + names.first + "' is compared with '" + names.second +
                  "': each side has no other one.");
  return out;
}

void writeAcls(std::vector<AclChange> const& acls, std::ostream& out) {
  if (acls.empty()) return;
  constexpr char const* what[] = {"in the old rules only", "in the new rules only",
                                  "of another address family in the new rules"};
  HtmlTable table{{"ACL", "stands", "rules"}, {}, acls.size(), openReportRows};
  for (size_t i = 0; i < acls.size() && i < mostReportRows; ++i)
    table.rows.push_back({HtmlCell::text(acls[i].acl),
                          HtmlCell::text(what[static_cast<size_t>(acls[i].kind)]),
                          HtmlCell::number(acls[i].rules)});
  table.write(out);
}

HtmlCell ruleCell(DecidingRule const& rule) { return HtmlCell::text(rule.name, {rule.text}); }

void writePackets(Changes const& changes, std::ostream& out) {
  std::vector<PacketChange> const& packets = changes.packets;
  if (packets.empty()) return;
  HtmlTable table{
      {"change", "old rule", "new rule", "such as"}, {}, packets.size(), openReportRows};
  for (size_t i = 0; i < packets.size() && i < mostReportRows; ++i) {
    PacketChange const& c = packets[i];
    std::string const both = overlapText(c, changes.names);
    table.rows.push_back(
        {HtmlCell::text(changeTitles()[c.kind], {aclText(c.acl)}), ruleCell(*c.before),
         ruleCell(*c.after),
         HtmlCell::text(packetLine(c.packet), both.empty() ? std::vector<std::string>{}
                                                           : std::vector{"both match " + both})});
  }
  table.write(out);
}

void addRows(HtmlTable& table, std::string_view title, Counts const& n) {
  table.rows.push_back({HtmlCell::text(title), HtmlCell::number(n.added()),
                        HtmlCell::number(n.deleted()), HtmlCell::number(n.changed()),
                        HtmlCell::number(n.kept()),
                        HtmlCell::bar(n.added() + n.deleted() + n.changed(),
                                      n.added() + n.deleted() + n.changed() + n.kept())});
}

void writeRows(RowChanges const& rows, std::ostream& out) {
  out << "<h3>Rows to write</h3>\n";
  if (!rows.failure.empty()) {
    out << "<p>Not known: the " << (rows.isOldTheFailure ? "old" : "new")
        << " rules do not fit this chip.</p>\n<ul>\n";
    for (std::string const& text : rows.failure)
      out << "<li class=bad>" << htmlText(text) << "</li>\n";
    out << "</ul>\n";
    return;
  }
  out << "<p>What the driver does where the chip runs the old rules, by "
      << (rows.isHitless ? "a hitless handshake"
                         : "a hitful handshake, policy " + htmlText(rows.policy) + " while loading")
      << "; bars show the part of the rows that is written.</p>\n";
  HtmlTable table{{"rows", "added", "deleted", "changed", "kept", ""}, {}, 0, ~size_t{0}};
  Counts all;
  for (auto const& [tableOf, n] : rows.rows) {
    addRows(table, Naxel::tableTitle(tableOf), n);
    all = {all.added() + n.added(), all.deleted() + n.deleted(), all.changed() + n.changed(),
           all.kept() + n.kept()};
  }
  addRows(table, "all", all);
  table.write(out);
}

}  // namespace

void writeChanges(ReportChanges const& since, std::ostream& out) {
  out << "<h2>Changes</h2>\n<p>Against ";
  for (size_t i = 0; i < since.files.size(); ++i)
    out << (i ? ", " : "") << htmlText(since.files[i]);
  out << ".";
  for (std::string const& text : sentences(since.changes)) out << ' ' << htmlText(text);
  out << "</p>\n";
  writeAcls(since.changes.acls, out);
  writePackets(since.changes, out);
  if (since.changes.rows) writeRows(*since.changes.rows, out);
}

}  // namespace NaxelTool
