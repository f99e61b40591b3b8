#include "command/ClassifyFiles.h"

#include "command/VerdictJson.h"
#include "output/TextTable.h"
#include "output/Verdicts.h"

namespace NaxelTool {

namespace {

constexpr uint64_t findingsShown = 20;

/// What both reports write.
class Report {
 public:
  Report(RuleSet const& rules, PacketFiles const& files, std::ostream& out)
      : rules_(rules), files_(files), out_(out) {}
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
    table(classifier);
    out() << '\n';
    for (auto const& acl : classifier.acls())
      out() << printable(acl->config->name()) << ": " << acl->packets << " packets, "
            << acl->matched << " matched a rule, " << acl->hits.size() << " of "
            << acl->oracle.rules() << " rules hit, " << acl->oracle.rules() - acl->hits.size()
            << " never\n";
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

 private:
  void table(FileClassifier const& classifier) {
    std::vector<std::vector<std::string>> rows = {{"ACL", "name", "from", "rule", "hits"}};
    for (auto const& acl : classifier.acls())
      for (auto const& [index, rule] : acl->config->ruleById()) {
        auto const hits = acl->hits.find(index.value());
        rows.push_back({printable(acl->config->name()), printable(rule->name()),
                        printable(origin(*acl, index)), std::to_string(index.value()),
                        std::to_string(hits == acl->hits.end() ? 0 : hits->second)});
      }
    printTable(out(), rows, 3);
  }
};

class JsonReport : public Report {
 public:
  using Report::Report;

  void begin() override {
    out() << R"({"schema":"naxel-classify","version":1,)"
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
    out() << "]},\n \"differences\":" << classifier.differences()
          << ",\n \"traces\":{\"headers\":" << classifier.fromTraces()
          << ",\"later\":" << classifier.later() << "},\n \"acls\":[";
    bool firstAcl = true;
    for (auto const& acl : classifier.acls()) {
      out() << (firstAcl ? "\n" : ",\n") << "  {\"name\":" << jsonText(acl->config->name())
            << ",\"af\":" << jsonText(Mox::stringValue(acl->key.af()))
            << ",\"packets\":" << acl->packets << ",\"matched\":" << acl->matched << ",\"rules\":[";
      firstAcl = false;
      rulesOf(*acl);
      out() << "]}";
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
      auto const hits = acl.hits.find(index.value());
      next() << '{' << ruleMembers(rules(), *acl.config, index)
             << ",\"hits\":" << (hits == acl.hits.end() ? 0 : hits->second) << '}';
    }
  }

  bool first_ = true;
};

}  // namespace

bool classifyFiles(FileClassifier& classifier, RuleSet const& rules, PacketFiles const& files,
                   FileReport const& report, std::ostream& out, Diagnostics& diagnostics) {
  std::unique_ptr<Report> to;
  if (report.json)
    to = std::make_unique<JsonReport>(rules, files, out);
  else
    to = std::make_unique<TextReport>(rules, files, out);
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
