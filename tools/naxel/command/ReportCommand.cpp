#include "answers/Check.h"
#include "answers/Report.h"
#include "command/Command.h"
#include "command/KickFailure.h"
#include "command/RuleInput.h"
#include "output/OutputFile.h"
#include "output/RuleText.h"

#include <stdexcept>

namespace NaxelTool {

namespace {

std::string whereOf(Finding const& finding, RuleSet const& rules) {
  if (!finding.list.empty()) return "list " + finding.list;
  if (finding.rules.empty()) return finding.acl;
  auto const acl = rules.acls()->acl(finding.acl);
  return finding.acl + ": " + ruleName(rules, *acl, finding.rules.front());
}

/// What `naxel check` says of the rules.
ReportSection findingsOf(RuleSet const& rules) {
  ReportSection out{
      "Findings", "Nothing is wrong with the rules.", {"finding", "rule", "what"}, {}};
  try {
    CheckReport const report = check(rules, {});
    for (Finding const& f : report.findings)
      out.rows.push_back({std::string(f.kind->code), whereOf(f, rules), f.text});
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
    input_.declare(app);
  }

  ExitCode run(Console& console) override {
    if (output_.empty()) throw std::invalid_argument("no file is given to write to; -o FILE.html");
    refuseInputs(output_, input_.files());
    ChipSetup const chip = input_.chip();
    ReportPage page;
    RuleSet const rules = input_.read(console, &page.source, chip.capability->chipId());
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
  RuleInput input_;
  CostOptions options_;
  std::string output_;
  std::string title_;
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
      "check, and the times of "
      "the stages. The exit code is 3 where the rules do not fit.",
      {"naxel report -o report.html examples/edge.json"},
      [] { return std::unique_ptr<Command>(std::make_unique<Report>()); }};
}

}  // namespace NaxelTool
