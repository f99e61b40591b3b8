#include "answers/Check.h"
#include "answers/Report.h"
#include "command/Command.h"
#include "command/KickFailure.h"
#include "command/RuleInput.h"
#include "output/OutputFile.h"
#include "output/RuleText.h"

#include <algorithm>
#include <stdexcept>

namespace NaxelTool {

namespace {

/// Other rules that a finding names before the rest is counted.
constexpr size_t othersNamed = 4;

ReportCell whereOf(Finding const& finding, RuleSet const& rules) {
  if (finding.rules.empty()) return {"list " + finding.list, {finding.place}};
  auto const acl = rules.acls()->acl(finding.acl);
  return {finding.acl + ": " + ruleName(rules, *acl, finding.rules.front()),
          {ruleText(*acl->ruleById(finding.rules.front()), rules.lists())}};
}

/// With the rules that it is because of.
ReportCell whatOf(Finding const& finding, RuleSet const& rules) {
  ReportCell out{finding.text};
  size_t const n = finding.others.size();
  for (size_t i = 0; i < n && i < othersNamed; ++i) {
    auto const acl = rules.acls()->acl(finding.acl);
    out.below.push_back(ruleName(rules, *acl, finding.others[i]) + ": " +
                        ruleText(*acl->ruleById(finding.others[i]), rules.lists()));
  }
  if (n > othersNamed)
    out.below.push_back("and " + std::to_string(n - othersNamed) +
                        (n - othersNamed == 1 ? " more rule" : " more rules"));
  return out;
}

/// What `naxel check` says of the rules.
ReportSection findingsOf(RuleSet const& rules) {
  ReportSection out{
      "Findings", "Nothing is wrong with the rules.", {"finding", "rule", "what"}, {}};
  try {
    CheckReport const report = check(rules, {});
    out.rows.reserve(report.findings.size());
    for (Finding const& f : report.findings)
      out.rows.push_back({{std::string(f.kind->code), {severityText(f.kind->severity)}},
                          whereOf(f, rules),
                          whatOf(f, rules)});
    if (!out.rows.empty()) out.about = "What is wrong with the rules, the most important first.";
  } catch (std::invalid_argument const& e) {
    out.about = e.what();
  }
  return out;
}

class Report : public Command {
 public:
  void declare(CLI::App& app) override {
    addFile(app, "-o,--output", output_,
            "Write the page to a file\nIt comes into being complete; - is standard output.");
    addText(app, "--title", title_, "TEXT",
            "Title of the page\nBy default the names of the files.");
    addNumber(app, "--removals", options_.removals, 0, 1000,
              "How many rules, and how many lists, to compile without");
    app.add_option("--against", against_,
                   "Show what changes from the rules of this file\n"
                   "As diff says it: the packets that are treated differently, and the rows that "
                   "the driver has to write. May be given several times where several files make "
                   "up the older rules.")
        ->type_name("FILE")
        ->allow_extra_args(false);
    input_.declare(app);
  }

  ExitCode run(Console& console) override {
    if (output_.empty()) throw std::invalid_argument("no file is given to write to; -o FILE.html");
    checkPaths();
    ChipSetup const chip = input_.chip();
    ReportPage page;
    RuleSet const rules = input_.read(console, &page.source, chip.capability->chipId());
    if (!against_.empty()) page.since = changesSince(rules, page.source, chip, console);
    ExitCode failure = ExitCode::internal;
    page.costs = costsOf(
        rules, chip, options_,
        [&](Session const& session) { failure = sayKickFailure(session, rules, console); },
        [&](std::string const& step) { console.progress().stepIs(step); });
    console.progress().end();
    if (page.costs.unusable) return failure;
    page.files = input_.files();
    page.title = title_;
    if (title_.empty())
      for (std::string const& file : rules.files())
        page.title += (page.title.empty() ? "" : ", ") + baseName(file);
    console.progress().stepIs("checking");
    page.sections.push_back(findingsOf(rules));
    console.progress().end();
    OutputFile file(output_);
    writeReport(page, file.stream());
    file.commit();
    return page.costs.fits() ? ExitCode::success : ExitCode::noRoom;
  }

 private:
  void checkPaths() const {
    std::vector<std::string> all = input_.files();
    all.insert(all.end(), against_.begin(), against_.end());
    if (std::find(against_.begin(), against_.end(), "") != against_.end())
      throw std::invalid_argument("--against: the name of a rule file is empty");
    if (std::count(all.begin(), all.end(), "-") > 1)
      throw std::invalid_argument("standard input can be read only once");
    refuseInputs(output_, all);
  }

  ReportChanges changesSince(RuleSet const& rules, ReadCounts const& source, ChipSetup const& chip,
                             Console& console) const {
    ReadCounts counts;
    RuleSet const old = input_.read(against_, console, &counts);
    console.progress().stepIs("comparing");
    ReportChanges out{against_, changesOf(old, rules, {})};
    out.changes.readBefore = counts;
    out.changes.readAfter = source;
    ChipSetup setup = chip;
    setup.keepLabels = true;
    out.changes.rows =
        rowChangesOf(old, rules, setup, out.changes.renamed,
                     [&](std::string const& step) { console.progress().stepIs(step); });
    console.progress().end();
    return out;
  }

  RuleInput input_;
  CostOptions options_;
  std::string output_;
  std::string title_;
  std::vector<std::string> against_;
};

}  // namespace

CommandInfo reportCommand() {
  return {
      "report",
      "Write the answers about a set of rules as one page of HTML",
      "Only messages are JSON; the page goes to its file",
      "Compiles rules as cost does, and writes what they cost as one page that needs no other "
      "file, no network and no scripts: the tables and their room, ACLs, the label space of each "
      "field, rules and lists, most expensive first, other settings of the chip, the findings of "
      "check, and the times of the stages.\n\n"
      "With --against the page begins with what diff says: which packets the rules of that file "
      "treat differently, and which rows the driver has to write to come from them to these.\n\n"
      "The exit code is 3 where the rules do not fit, whatever has changed.",
      {"naxel report -o report.html examples/edge.json",
       "naxel report -o report.html --against examples/edge.json examples/edge-new.json"},
      [] { return std::unique_ptr<Command>(std::make_unique<Report>()); }};
}

}  // namespace NaxelTool
