#include "answers/Costs.h"
#include "command/Command.h"
#include "command/KickFailure.h"
#include "command/RuleInput.h"
#include "output/Summary.h"

namespace NaxelTool {

namespace {

class Cost : public Command {
 public:
  void declare(CLI::App& app) override {
    constexpr uint64_t many = 1000000;
    addFlag(app, "--all", view_.all, "Show everything");
    addNumber(app, "--rules", view_.rules, 0, many, "How many rules to show, and ACLs");
    addNumber(app, "--lists", view_.lists, 0, many, "How many lists to show");
    addNumber(app, "--removals", options_.removals, 0, many,
              "How many rules, and how many lists, to compile without\n"
              "Of a list all rules that look at it. The most expensive ones come first.");
    addNumber(
        app, "--trials", [this](uint64_t v) { options_.trials = static_cast<size_t>(v); }, 0, many,
        "How often to compile to find what would save entries\n"
        "Without it 40 times, and less often where there are more than 10,000 rules or 100,000 "
        "entries. What it takes "
        "to "
        "account for rules that do not fit comes on top.");
    input_.declare(app);
  }

  ExitCode run(Console& console) override {
    ChipSetup const chip = input_.chip();
    ReadCounts counts;
    RuleSet const rules = input_.read(console, &counts, chip.capability->chipId());
    ExitCode failure = ExitCode::internal;
    CostReport const report = costsOf(
        rules, chip, options_,
        [&](Session const& session) { failure = sayKickFailure(session, rules, console); },
        [&](std::string const& step) { console.progress().stepIs(step); });
    console.progress().end();
    if (report.unusable) return failure;
    if (console.options().json) {
      printJson(report, counts, console.out());
    } else if (!console.options().quiet) {
      printLeftOut(console.out(), counts);
      print(report, view_, console.out());
    }
    return report.fits() ? ExitCode::success : ExitCode::noRoom;
  }

 private:
  RuleInput input_;
  CostOptions options_;
  CostView view_;
};

}  // namespace

CommandInfo costCommand() {
  return {
      "cost",
      "Say what each rule and list costs, whether all fits, and what would help",
      "Print all costs as JSON",
      "Compiles rules and says what they take: by ACL, against what they would take without "
      "labels; by table and by field, against the room of the chip; and by rule and by list, the "
      "most expensive first. An entry of the rule files that was expanded to several rules "
      "counts as one.\n\n"
      "What the removal of the most expensive rules and lists would save, and which other "
      "setting of the chip would help, is found by compiling again.\n\n"
      "Rules that do not fit are accounted for as well, with wider labels or larger tables than "
      "the chip has; the exit code is 3 then.",
      {"naxel cost examples/edge.json",
       "naxel cost --chip examples/combo-chip.json --rules 3 examples/edge.json"},
      [] { return std::unique_ptr<Command>(std::make_unique<Cost>()); }};
}

}  // namespace NaxelTool
