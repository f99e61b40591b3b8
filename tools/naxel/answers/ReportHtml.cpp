#include "answers/HtmlText.h"
#include "answers/Report.h"
#include "mox/Bounded.h"
#include "output/TextTable.h"

#include <algorithm>

namespace NaxelTool {

namespace {

std::string partText(uint64_t part, uint64_t all) {
  if (!all || all == Mox::unbounded || part == Mox::unbounded) return "-";
  return fixed(100.0 * static_cast<double>(part) / static_cast<double>(all), 1) + " %";
}

/// "20-23", "20 'web'".
std::string rulesText(RuleCost const& c) {
  std::string const first = std::to_string(c.rules.front().value());
  if (c.rules.size() > 1) return first + "-" + std::to_string(c.rules.back().value());
  return first + (c.name.empty() || c.name == first ? "" : " '" + c.name + "'");
}

std::string cubesText(RuleCost const& c) {
  std::string out;
  for (CostFactor const& f : c.factors)
    if (f.cubes != 1) out += (out.empty() ? "" : " × ") + std::to_string(f.cubes) + " " + f.field;
  return out.empty() ? "1" : out;
}

HtmlCell savedCell(std::optional<Saving> const& s) {
  return HtmlCell::shown(s ? std::to_string(s->entries) : "-");
}

class Page {
 public:
  Page(ReportPage const& page, std::ostream& out) : page_(page), costs_(page.costs), out_(out) {}

  void write() {
    writeHtmlHead(out_, page_.title);
    writeSummary();
    writeLacks();
    if (page_.since) writeChanges(*page_.since, out_);
    if (!costs_.tables.empty()) writeTables();
    writeAcls();
    writeFields();
    writeRules();
    writeLists();
    writeTrials();
    for (ReportSection const& section : page_.sections) writeSection(section);
    writeStages();
    out_ << "</body></html>\n";
  }

 private:
  void heading(std::string_view title, std::string_view about) {
    out_ << "<h2>" << htmlText(title) << "</h2>\n<p>" << htmlText(about) << "</p>\n";
  }
  void card(std::string_view value, std::string_view what, char const* color = "") {
    out_ << "<div class=card><b class=\"" << color << "\">" << htmlText(value) << "</b><span>"
         << htmlText(what) << "</span></div>\n";
  }

  void writeSummary() {
    out_ << "<h1>" << htmlText(page_.title) << "</h1>\n<p>";
    for (size_t i = 0; i < page_.files.size(); ++i)
      out_ << (i ? ", " : "") << htmlText(page_.files[i]);
    out_ << "</p>\n<div class=cards>\n";
    card(costs_.fits() ? "fits" : "does not fit", "into the chip", costs_.fits() ? "good" : "bad");
    card(grouped(costs_.rules),
         "rules in " + grouped(costs_.acls.size()) + (costs_.acls.size() == 1 ? " ACL" : " ACLs"));
    card(costs_.counted ? grouped(costs_.entries) : "unknown", "entries with labels");
    card(grouped(costs_.plainEntries), "entries without labels");
    if (!costs_.tables.empty())
      card(partText(costs_.allBits(), costs_.plainBits()),
           "of the bits without labels, tables of labels included");
    card(grouped(page_.source.leftOut),
         "of " + grouped(page_.source.read) + " entries of the source left out",
         page_.source.leftOut ? "bad" : "");
    if (page_.since)
      card(grouped(page_.since->changes.packets.size()), "changes against the older rules");
    out_ << "</div>\n";
  }

  void writeLacks() {
    if (costs_.lacks.empty()) return;
    heading("What the chip lacks", "All costs are measured with what would be enough.");
    out_ << "<ul>\n";
    for (Lack const& lack : costs_.lacks) {
      out_ << "<li class=bad>" << htmlText(lack.text);
      if (lack.enough) out_ << "; enough: " << htmlText(lack.member) << " " << *lack.enough;
      out_ << "</li>\n";
    }
    out_ << "</ul>\n";
  }

  void writeTables() {
    heading("Tables",
            "Rows against the room of each table. Bars show the part that is used, or for a table "
            "without limit its rows beside those of the largest one.");
    HtmlTable table{{"table", "rows", "capacity", "used", "", "bits"}, {}, 0, ~size_t{0}};
    uint64_t most = 0;
    for (TableCost const& t : costs_.tables) most = std::max(most, t.rows);
    for (TableCost const& t : costs_.tables)
      table.rows.push_back({HtmlCell::text(Mox::stringValue(t.table)), HtmlCell::number(t.rows),
                            HtmlCell::shown(t.capacity ? grouped(*t.capacity) : "any"),
                            HtmlCell::shown(t.capacity ? partText(t.rows, *t.capacity) : "-"),
                            HtmlCell::bar(t.rows, t.capacity ? *t.capacity : most),
                            HtmlCell::number(t.bits)});
    table.write(out_);
  }

  void writeAcls() {
    heading("ACLs", "Entries with labels above, without labels below.");
    std::vector<AclCost const*> acls;
    uint64_t most = 1;
    acls.reserve(costs_.acls.size());
    for (AclCost const& a : costs_.acls) {
      acls.push_back(&a);
      most = std::max({most, a.entries, a.plainEntries});
    }
    std::ranges::stable_sort(
        acls, [](AclCost const* a, AclCost const* b) { return a->entries > b->entries; });
    HtmlTable table{{"ACL", "family", "rules", "entries", "plain", "", "key bits", "plain key"},
                    {},
                    acls.size(),
                    openReportRows};
    for (size_t i = 0; i < acls.size() && i < mostReportRows; ++i) {
      AclCost const& a = *acls[i];
      table.rows.push_back({HtmlCell::text(a.name), HtmlCell::text(Mox::stringValue(a.af)),
                            HtmlCell::number(a.rules), HtmlCell::number(a.entries),
                            HtmlCell::number(a.plainEntries),
                            HtmlCell::bar(a.entries, most, a.plainEntries),
                            HtmlCell::number(a.keyBits), HtmlCell::number(a.plainKeyBits)});
    }
    table.write(out_);
  }

  /// The parts of the code space of a field, the darker the fuller.
  static std::string mapText(FieldCost const& f) {
    if (f.map.empty()) return "raw values";
    size_t const codes = std::max<size_t>(1, (size_t{1} << f.keyBits) / f.map.size());
    size_t const step = 1000 / f.map.size();
    std::string out = "<svg class=map viewBox=\"0 0 " + std::to_string(step * f.map.size() - 2) +
                      " 8\" preserveAspectRatio=\"none\" role=\"img\" aria-label=\"" +
                      std::to_string(f.labels) + " labels\">";
    for (size_t i = 0; i < f.map.size(); ++i) {
      bool const isEmpty = f.map[i] == 0;
      uint64_t const percent = 30 + 70 * f.map[i] / codes;
      out += "<rect x=\"" + std::to_string(step * i) + "\" y=\"0\" width=\"" +
             std::to_string(step - 2) + "\" height=\"8\"" +
             (isEmpty ? " class=\"e\""
                      : " opacity=\"" + fixed(static_cast<double>(percent) / 100, 2) + "\"") +
             "/>";
    }
    return out + "</svg>";
  }

  void writeFields() {
    if (costs_.fields.empty()) return;
    heading("Label space",
            "The codes that the key bits of each field can tell apart, from 0 on the left; the "
            "stronger the colour of a part, the more of its codes are labels.");
    HtmlTable table{
        {"field", "sets", "labels", "of", "key bits", "width", "code", "map"}, {}, 0, ~size_t{0}};
    for (FieldCost const& f : costs_.fields)
      table.rows.push_back({HtmlCell::text(f.name),
                            HtmlCell::number(f.sets),
                            HtmlCell::shown(f.width ? grouped(f.labels) : "-"),
                            HtmlCell::shown(f.width ? grouped((uint64_t{1} << f.width) - 1) : "-"),
                            HtmlCell::number(f.keyBits),
                            HtmlCell::shown(f.width ? std::to_string(f.width) : "-"),
                            HtmlCell::text(f.width ? Mox::stringValue(f.code) : "raw"),
                            {mapText(f), false}});
    table.write(out_);
  }

  void writeRules() {
    heading("Rules", "The most expensive first: entries with labels above, without labels below.");
    HtmlTable table{{"rule", "cubes", "entries", "plain", "", "removal saves"},
                    {},
                    costs_.costs.size(),
                    openReportRows};
    size_t const n = std::min(mostReportRows, costs_.costs.size());
    uint64_t most = 1;
    for (size_t i = 0; i < n; ++i)
      most = std::max({most, costs_.costs[i].entries, costs_.costs[i].plainEntries});
    for (size_t i = 0; i < n; ++i) {
      RuleCost const& c = costs_.costs[i];
      table.rows.push_back({HtmlCell::text(c.acl + " " + rulesText(c), {c.text, c.from}),
                            HtmlCell::text(cubesText(c)), HtmlCell::number(c.entries),
                            HtmlCell::number(c.plainEntries),
                            HtmlCell::bar(c.entries, most, c.plainEntries), savedCell(c.without)});
    }
    table.write(out_);
  }

  void writeLists() {
    heading(
        "Lists",
        "Prefix lists and sets of ranges; extra is what the rules that look at one take more than "
        "if it had one cube. Bars show labels.");
    HtmlTable table{
        {"list", "members", "labels", "", "cubes", "plain", "rules", "extra", "removal saves"},
        {},
        costs_.lists.size(),
        openReportRows};
    size_t const n = std::min(mostReportRows, costs_.lists.size());
    uint64_t most = 1;
    for (size_t i = 0; i < n; ++i) most = std::max<uint64_t>(most, costs_.lists[i].labels);
    for (size_t i = 0; i < n; ++i) {
      ListCost const& l = costs_.lists[i];
      table.rows.push_back({HtmlCell::text(l.text, {l.field}), HtmlCell::number(l.members),
                            HtmlCell::shown(l.labels ? grouped(l.labels) : "raw"),
                            HtmlCell::bar(l.labels, most), HtmlCell::number(l.cubes),
                            HtmlCell::number(l.plain), HtmlCell::number(l.rules),
                            HtmlCell::number(l.extra), savedCell(l.without)});
    }
    table.write(out_);
  }

  void writeTrials() {
    if (costs_.trials.empty()) return;
    heading("Other settings of the chip", "Compiled with each; the most helpful first.");
    HtmlTable table{{"setting", "from", "to", "entries", "bits in all"}, {}, 0, ~size_t{0}};
    for (ChipTrial const& t : costs_.trials)
      table.rows.push_back({HtmlCell::text(t.member), HtmlCell::shown(t.from),
                            HtmlCell::shown(t.to),
                            HtmlCell::shown(t.failure.empty() ? grouped(t.entries) : "-"),
                            HtmlCell::shown(t.failure.empty() ? grouped(t.bits) : "does not fit")});
    table.write(out_);
  }

  void writeSection(ReportSection const& section) {
    heading(section.title, section.about);
    if (section.rows.empty()) return;
    HtmlTable table{section.head, {}, section.rows.size(), openReportRows};
    for (size_t i = 0; i < section.rows.size() && i < mostReportRows; ++i) {
      HtmlRow row;
      row.reserve(section.rows[i].size());
      for (ReportCell const& cell : section.rows[i])
        row.push_back(HtmlCell::text(cell.text, cell.below));
      table.rows.push_back(std::move(row));
    }
    table.write(out_);
  }

  void writeStages() {
    if (costs_.stages.empty()) return;
    heading("Stages", "Of the first compilation.");
    HtmlTable table{{"stage", "outcome", "ms", ""}, {}, 0, ~size_t{0}};
    double most = 0;
    for (StageCost const& s : costs_.stages) most = std::max(most, s.seconds);
    for (StageCost const& s : costs_.stages)
      table.rows.push_back({HtmlCell::text(s.name), HtmlCell::text(s.outcome),
                            HtmlCell::shown(fixed(s.seconds * 1e3, 2)),
                            HtmlCell::bar(static_cast<uint64_t>(s.seconds * 1e9),
                                          static_cast<uint64_t>(most * 1e9))});
    table.write(out_);
  }

  ReportPage const& page_;
  CostReport const& costs_;
  std::ostream& out_;
};

}  // namespace

void writeReport(ReportPage const& page, std::ostream& out) { Page(page, out).write(); }

}  // namespace NaxelTool
