#include "answers/Check.h"
#include "command/Command.h"
#include "command/RuleInput.h"

#include <algorithm>
#include <stdexcept>

namespace NaxelTool {

namespace {

/// The codes of "shadowed,covered".
std::set<std::string_view> codesFrom(std::string const& text) {
  std::set<std::string_view> out;
  std::vector<std::string_view> names;
  for (FindingKind const& kind : findingKinds()) names.push_back(kind.code);
  for (size_t at = 0; at <= text.size();) {
    size_t const end = std::min(text.find(',', at), text.size());
    std::string_view const word = std::string_view(text).substr(at, end - at);
    auto const found = std::find(names.begin(), names.end(), word);
    if (found == names.end()) {
      std::string const hint = didYouMean(word, names);
      throw std::invalid_argument("there is no finding '" + printable(word) + "'" +
                                  (hint.empty() ? "" : "; " + hint));
    }
    out.insert(*found);
    at = end + 1;
  }
  return out;
}

class Checking : public Command {
 public:
  void declare(CLI::App& app) override {
    addText(app, "--only", only_, "CODES",
            "Findings of these codes alone\nSeveral are separated by commas.");
    addText(app, "--ignore", ignore_, "CODES", "No findings of these codes");
    addNumber(app, "--limit", limit_, 1, 1'000'000, "How many findings of a code are shown");
    addFlag(app, "--all", all_, "Show all findings");
    addFlag(app, "--witnesses", witnesses_, "Show a packet for each rule that is reached");
    addNumber(app, "--effort", effort_, 0, ~uint64_t{0} >> 1,
              "How long to look for answers\n"
              "The number of rules that the searches of the whole run may look at. What is open "
              "then is told as undecided.");
    input_.declareReading(app);
  }

  ExitCode run(Console& console) override {
    CheckOptions options;
    options.effort = effort_;
    if (!ignore_.empty()) options.leftOut = codesFrom(ignore_);
    if (!only_.empty()) {
      auto const kept = codesFrom(only_);
      for (FindingKind const& kind : findingKinds())
        if (!kept.contains(kind.code)) options.leftOut.insert(kind.code);
    }
    console.progress().stepIs("reading rules");
    RuleSet const rules = input_.read(console);
    options.tell = [&](std::string const& acl) { console.progress().stepIs("checking " + acl); };
    CheckReport const report = check(rules, options);
    console.progress().end();
    if (console.options().json)
      printJson(report, rules, console.out());
    else if (!report.findings.empty() || witnesses_ || !console.options().quiet)
      print(report, rules, all_ ? ~size_t{0} : limit_, witnesses_, console.out());
    return report.count(Severity::error) + report.count(Severity::warning) ? ExitCode::findings
                                                                           : ExitCode::success;
  }

 private:
  RuleInput input_;
  std::string only_;
  std::string ignore_;
  size_t limit_ = 5;
  bool all_ = false;
  bool witnesses_ = false;
  uint64_t effort_ = CheckOptions::defaultEffort;
};

}  // namespace

CommandInfo checkCommand() {
  return {"check",
          "Find rules that are never reached, redundant or contradictory",
          "Print the findings as JSON, with a packet for every rule that is reached",
          "Reads rules and tells what is wrong with them for every packet that there can be: rules "
          "that no packet reaches, and because of which others; rules that could be taken out; "
          "rules and lists that match nothing; what no packet has; what does nothing. No chip is "
          "needed, and the rules need not fit one.\n\n"
          "A finding is an error, a warning or a note, and has a code. The exit code is 1 if there "
          "is an error or a warning.",
          {"naxel check examples/edge.json",
           "naxel check --ignore redundant --witnesses examples/branch.rules"},
          [] { return std::unique_ptr<Command>(std::make_unique<Checking>()); }};
}

}  // namespace NaxelTool
