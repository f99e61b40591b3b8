#include "answers/PacketReport.h"

#include "answers/VerdictJson.h"
#include "output/RuleText.h"
#include "output/Summary.h"
#include "output/TextTable.h"
#include "output/Verdicts.h"

#include <algorithm>

namespace NaxelTool {

namespace {

constexpr uint64_t findingsShown = 20;
/// A table of more rules than that shows those that were hit most.
constexpr size_t tableOfAll = 40;
constexpr size_t rowsShown = 20;

uint64_t hitsOf(AclTally const& acl, Naxel::AceIndex rule) {
  auto const hits = acl.hits.find(rule.value());
  return hits == acl.hits.end() ? 0 : hits->second;
}

std::string percentText(uint64_t part, uint64_t whole) {
  uint64_t const tenths = whole ? (part * 1000 + whole / 2) / whole : 0;
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10);
}

/// What both reports write.
class Report {
 public:
  Report(RuleSet const& rules, PacketFiles const& files, FileReport const& report,
         std::ostream& out)
      : report_(report), rules_(rules), files_(files), out_(out) {}
  Report(Report const&) = delete;
  Report& operator=(Report const&) = delete;
  virtual ~Report() = default;

  virtual void begin() {}
  virtual void verdict(PacketVerdict const& v) = 0;
  virtual void leftOut(size_t file, size_t number, std::string const& reason) = 0;
  virtual void end(FileClassifier const& classifier) = 0;

 protected:
  std::string place(size_t file, size_t number) const {
    return files_.path(file) + ":" + std::to_string(number);
  }
  std::string origin(AclTally const& acl, Naxel::AceIndex rule) const {
    return rules_.originText(acl.config->name(), rule);
  }
  RuleSet const& rules() const { return rules_; }
  std::ostream& out() { return out_; }

  FileReport const report_;

 private:
  RuleSet const& rules_;
  PacketFiles const& files_;
  std::ostream& out_;
};

class TextReport : public Report {
 public:
  using Report::Report;

  void verdict(PacketVerdict const& v) override {
    std::string line = place(v.file, v.packet.number) + ": " + v.acl.config->name() + ": " +
                       text(*v.acl.config, v.found);
    if (v.found.kind == Verify::Verdict::Kind::rule)
      if (std::string const from = origin(v.acl, v.found.rule); !from.empty())
        line += " (" + from + ")";
    if (!v.agrees) line += "; the rules say: " + text(*v.acl.config, v.rule);
    if (v.later)
      line += "; the trace says: rule " + std::to_string(*v.packet.drawnFrom) + " or before it";
    out() << printable(line) << '\n';
  }
  void leftOut(size_t file, size_t number, std::string const& reason) override {
    out() << printable(place(file, number) + ": left out: " + reason) << '\n';
  }
  void end(FileClassifier const& classifier) override {
    printLeftOut(out(), rules().counts());
    table(classifier);
    out() << '\n';
    for (auto const& acl : classifier.acls())
      out() << printable(acl->config->name()) << ": " << acl->packets << " packets, "
            << acl->matched << " matched a rule, " << acl->hits.size() << " of "
            << acl->oracle.rules() << " rules hit, " << acl->oracle.rules() - acl->hits.size()
            << " never\n";
    totals(classifier);
    for (auto const& acl : classifier.acls())
      for (WhyNotTally const& tally : acl->whyNot) whyNot(*acl, tally);
  }

 private:
  void totals(FileClassifier const& classifier) {
    uint64_t const leftOut = classifier.read() - classifier.classified();
    out() << "total: " << classifier.read() << " packets read, " << classifier.classified()
          << " classified, " << leftOut << " left out, " << classifier.differences()
          << " differences\n";
    for (auto const& [reason, count] : classifier.leftOut())
      out() << "left out: " << count << " " << reason << '\n';
    if (classifier.fromTraces())
      out() << "traces: " << classifier.fromTraces() << " headers, " << classifier.later()
            << " decided later than by the rule that they were drawn from\n";
  }

  struct Row {
    AclTally const* acl;
    Naxel::AceIndex rule;
    uint64_t hits;
  };
  /// Empty where it only repeats the number.
  static std::string nameOf(Row const& r) {
    std::string const& name = r.acl->config->ruleById(r.rule)->name();
    return name == std::to_string(r.rule.value()) ? std::string() : name;
  }

  void table(FileClassifier const& classifier) {
    std::vector<Row> all;
    for (auto const& acl : classifier.acls())
      for (auto const& [index, rule] : acl->config->ruleById())
        all.push_back({acl.get(), index, hitsOf(*acl, index)});
    if (report_.all || all.size() <= tableOfAll) return rowsOf(all);
    std::vector<Row> hit;
    std::vector<Row> never;
    for (Row const& row : all) (row.hits ? hit : never).push_back(row);
    std::stable_sort(hit.begin(), hit.end(),
                     [](Row const& a, Row const& b) { return a.hits > b.hits; });
    few(hit, "rules hit most", "rules hit");
    out() << '\n';
    few(never, "rules never hit", "rules never hit");
  }
  /// The first of them under a heading, and how many there are besides.
  void few(std::vector<Row>& rows, char const* head, char const* rest) {
    if (rows.empty()) return;
    out() << head << ":\n";
    size_t const more = rows.size() - std::min(rows.size(), rowsShown);
    rows.resize(rows.size() - more);
    rowsOf(rows);
    if (more) out() << "and " << more << " more " << rest << " (--all shows them)\n";
  }
  void rowsOf(std::vector<Row> const& from) {
    // Many formats have no names, and a column of numbers twice helps nobody.
    bool const named =
        std::any_of(from.begin(), from.end(), [](Row const& r) { return !nameOf(r).empty(); });
    std::vector<std::vector<std::string>> rows = {{"ACL", "name", "from", "rule", "hits"}};
    for (Row const& r : from)
      rows.push_back({printable(r.acl->config->name()), printable(nameOf(r)),
                      printable(origin(*r.acl, r.rule)), std::to_string(r.rule.value()),
                      std::to_string(r.hits)});
    if (!named)
      for (auto& row : rows) row.erase(row.begin() + 1);
    printTable(out(), rows, named ? 3 : 2);
  }
  void whyNot(AclTally const& acl, WhyNotTally const& tally) {
    out() << "\nwhy not "
          << printable(ruleName(rules(), *acl.config, tally.rule) + " of " + acl.config->name())
          << ": it decides " << tally.decided << " of " << tally.packets << " packets\n";
    std::vector<std::vector<std::string>> rows = {{"because", "packets", "percent", "this alone"}};
    auto const row = [&](std::string const& why, uint64_t count, std::string alone) {
      rows.push_back({printable(why), std::to_string(count), percentText(count, tally.packets),
                      std::move(alone)});
    };
    for (size_t i = 0; i < tally.count.size(); ++i)
      if (tally.count[i].unmet)
        row(tally.demands.unmetText(i), tally.count[i].unmet, std::to_string(tally.count[i].alone));
    std::vector<std::pair<uint32_t, uint64_t>> taken(tally.takenBy.begin(), tally.takenBy.end());
    std::stable_sort(taken.begin(), taken.end(),
                     [](auto const& a, auto const& b) { return a.second > b.second; });
    for (size_t i = 0; i < taken.size() && (report_.all || i < rowsShown); ++i)
      row(ruleName(rules(), *acl.config, Naxel::AceIndex(taken[i].first)) + " comes before",
          taken[i].second, "");
    if (rows.size() > 1) printTable(out(), rows, 1);
    if (taken.size() > rowsShown && !report_.all)
      out() << "and " << taken.size() - rowsShown << " more rules that come before (--all)\n";
  }
};

class JsonReport : public Report {
 public:
  using Report::Report;

  void begin() override {
    out() << R"({"schema":"naxel-explain","version":1,)"
          << "\n \"verdicts\":[";
  }
  void verdict(PacketVerdict const& v) override {
    next() << "{\"packet\":" << jsonText(place(v.file, v.packet.number)) << ','
           << verdictMembers(rules(), *v.acl.config, v.rule, v.found);
    if (v.later) out() << ",\"drawnFrom\":" << *v.packet.drawnFrom;
    out() << '}';
  }
  void leftOut(size_t file, size_t number, std::string const& reason) override {
    next() << "{\"packet\":" << jsonText(place(file, number)) << ",\"leftOut\":" << jsonText(reason)
           << '}';
  }
  void end(FileClassifier const& classifier) override {
    out() << "],\n \"packets\":{\"read\":" << classifier.read()
          << ",\"classified\":" << classifier.classified() << ",\"leftOut\":[";
    first_ = true;
    for (auto const& [reason, count] : classifier.leftOut())
      next() << "{\"reason\":" << jsonText(reason) << ",\"count\":" << count << '}';
    out() << "]},\n \"leftOut\":" << rules().counts().leftOut
          << ",\n \"differences\":" << classifier.differences()
          << ",\n \"traces\":{\"headers\":" << classifier.fromTraces()
          << ",\"later\":" << classifier.later() << "},\n \"acls\":[";
    bool firstAcl = true;
    for (auto const& acl : classifier.acls()) {
      out() << (firstAcl ? "\n" : ",\n") << "  {\"name\":" << jsonText(acl->config->name())
            << ",\"af\":" << jsonText(Mox::stringValue(acl->key.af()))
            << ",\"packets\":" << acl->packets << ",\"matched\":" << acl->matched << ",\"rules\":[";
      firstAcl = false;
      rulesOf(*acl);
      out() << "]";
      if (!acl->whyNot.empty()) whyNotOf(*acl);
      out() << "}";
    }
    out() << "]}\n";
  }

 private:
  std::ostream& next() {
    out() << (first_ ? "\n  " : ",\n  ");
    first_ = false;
    return out();
  }
  void rulesOf(AclTally const& acl) {
    first_ = true;
    for (auto const& [index, config] : acl.config->ruleById()) {
      next() << '{' << ruleMembers(rules(), *acl.config, index)
             << ",\"hits\":" << hitsOf(acl, index) << '}';
    }
  }
  void whyNotOf(AclTally const& acl) {
    out() << ",\"whyNot\":[";
    first_ = true;
    for (WhyNotTally const& tally : acl.whyNot) {
      next() << '{' << ruleMembers(rules(), *acl.config, tally.rule)
             << ",\"packets\":" << tally.packets << ",\"decided\":" << tally.decided
             << ",\"unmet\":[";
      for (size_t i = 0; i < tally.count.size(); ++i)
        out() << (i ? "," : "") << "{\"field\":" << jsonText(tally.demands.field(i))
              << ",\"wanted\":" << jsonText(tally.demands.wanted(i))
              << ",\"packets\":" << tally.count[i].unmet << ",\"alone\":" << tally.count[i].alone
              << '}';
      out() << "],\"earlier\":[";
      char const* comma = "";
      for (auto const& [index, count] : tally.takenBy) {
        out() << comma << '{' << ruleMembers(rules(), *acl.config, Naxel::AceIndex(index))
              << ",\"packets\":" << count << '}';
        comma = ",";
      }
      out() << "]}";
    }
    out() << ']';
  }

  bool first_ = true;
};

}  // namespace

bool classifyFiles(FileClassifier& classifier, RuleSet const& rules, PacketFiles const& files,
                   FileReport const& report, std::ostream& out, Diagnostics& diagnostics) {
  std::unique_ptr<Report> to;
  if (report.json)
    to = std::make_unique<JsonReport>(rules, files, report, out);
  else
    to = std::make_unique<TextReport>(rules, files, report, out);
  uint64_t findings = 0;
  FileClassifier::Listener listener;
  listener.verdict = [&](PacketVerdict const& v) {
    bool const isFinding = !v.agrees || v.later;
    if (report.each || (isFinding && findings < findingsShown)) to->verdict(v);
    findings += isFinding;
  };
  if (report.each)
    listener.leftOut = [&](size_t file, size_t number, std::string const& reason) {
      to->leftOut(file, number, reason);
    };
  to->begin();
  classifier.run(listener, diagnostics);
  to->end(classifier);
  return findings == 0;
}

}  // namespace NaxelTool
