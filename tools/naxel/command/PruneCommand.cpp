#include "answers/Pruning.h"
#include "command/Command.h"
#include "command/RuleInput.h"
#include "input/RuleFiles.h"
#include "output/OutputFile.h"
#include "output/RuleWriters.h"
#include "verify/ConfigCopy.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace NaxelTool {

namespace {

/// Rules that are shown where not all are asked for.
constexpr size_t shownRules = 20;

class Prune : public Command {
 public:
  void declare(CLI::App& app) override {
    addChoice<std::optional<RuleFormat>>(
        app, "--to", target_,
        {{"json", RuleFormat::json},
         {"openconfig", RuleFormat::openConfig},
         {"ios", RuleFormat::ios}},
        "Write the smaller rule set: our own JSON, OpenConfig's, or text of the IOS family\n"
        "Without it only the report is made.");
    addFile(app, "-o,--output", output_, "Write it to a file\nIt comes into being complete.");
    addFlag(app, "--merge", options_.merge,
            "Merge neighbours of one action that differ in one field\n"
            "Their prefixes become a list, their values ranges.");
    addFlag(app, "--cost", cost_, "Compile both, and say how many entries they take");
    addFlag(app, "--all", all_, "Show all rules that go, not only the first 20");
    addNumber(app, "--effort", options_.effort, 1, ~uint64_t{0},
              "How many steps each search may take\n"
              "A rule stays for which they do not suffice.");
    input_.declare(app);
  }

  ExitCode run(Console& console) override {
    checkUsage(console);
    console.progress().stepIs("reading rules");
    ReadCounts read;
    RuleSet rules = input_.read(console, &read);
    auto const original = Naxel::aclConfigCollFactory(rules.acls()->chipId());
    Verify::copyAcls(*rules.acls(), *original);
    console.progress().stepIs("looking for rules that can go");
    Pruning pruning = prune(rules, options_);
    pruning.read = read;
    std::string text;
    if (pruning.isProved && target_) {
      console.progress().stepIs("writing");
      size_t const before = console.messages().count(Severity::error);
      text = written(rules, console.messages());
      if (console.messages().count(Severity::error) != before) {
        console.messages().sayRest();
        return ExitCode::badInput;
      }
      checkText(text, *original, pruning);
    }
    if (cost_) addCosts(pruning, original, rules.acls(), console);
    console.progress().end();
    if (!pruning.isProved) {
      console.error("not-proved", pruning.doubt + "; nothing is written",
                    "a larger --effort may prove it");
      return ExitCode::findings;
    }
    if (target_) write(text, console);
    report(pruning, console);
    return ExitCode::success;
  }

 private:
  void checkUsage(Console& console) const {
    if (!output_.empty()) {
      if (!target_) throw std::invalid_argument("--output needs --to, which says what to write");
      refuseInputs(output_, input_.files());
    }
    if (console.options().json && target_ && isToStandardOutput())
      throw std::invalid_argument(
          "--json tells of the file that --output names, and none is named");
  }
  bool isToStandardOutput() const { return output_.empty() || isStandardOutput(output_); }

  std::string written(RuleSet const& rules, Diagnostics& messages) const {
    ReadOptions const& read = input_.readOptions();
    WriteOptions const options{read.strict, read.implicitEnd, read.plainFragments};
    std::ostringstream out;
    if (*target_ == RuleFormat::json)
      writeRulesAsJson(out, rules);
    else if (*target_ == RuleFormat::openConfig)
      writeRulesAsOpenConfig(out, rules, options, messages);
    else
      writeRulesAsIos(out, rules, options, messages);
    return out.str();
  }

  /// The text is what counts in the end: it is read again and held against what was read first.
  void checkText(std::string const& text, Naxel::AclConfigColl const& original,
                 Pruning& pruning) const {
    auto const& formats = ruleFormats();
    auto const format = std::find_if(formats.begin(), formats.end(),
                                     [&](RuleFormatInfo const& f) { return f.format == *target_; });
    RuleSet again(Obel::ChipId(0));
    ReadOptions options = input_.readOptions();
    options.format = *target_;
    readRules(format->read, "the smaller rule set", text, again, options);
    pruning.doubt = differenceOf(original, *again.acls(), options_.effort);
    pruning.isProved = pruning.doubt.empty();
  }

  void addCosts(Pruning& to, Mox::Ptr<Naxel::AclConfigColl> const& before,
                Mox::Ptr<Naxel::AclConfigColl> const& after, Console& console) const {
    console.progress().stepIs("compiling");
    ChipSetup const chip = input_.chip();
    to.costs = {entriesOf(before, chip), entriesOf(after, chip)};
  }

  void write(std::string const& text, Console& console) const {
    if (output_.empty()) {
      console.out() << text;
      return;
    }
    OutputFile file(output_);
    file.stream() << text;
    file.commit();
  }

  /// Beside the rules, unless these go to standard output: then it is a message.
  void report(Pruning const& pruning, Console& console) const {
    if (console.options().json) return printJson(pruning, console.out());
    if (console.options().quiet) return;
    size_t const limit = all_ ? pruning.rules.size() : shownRules;
    if (!target_ || !isToStandardOutput()) return print(pruning, limit, console.out());
    console.out().flush();
    print(pruning, limit, std::cerr);
  }

  RuleInput input_;
  std::optional<RuleFormat> target_;
  std::string output_;
  PruneOptions options_;
  bool cost_ = false;
  bool all_ = false;
};

}  // namespace

CommandInfo pruneCommand() {
  return {"prune",
          "A smaller rule set that does the same with every packet",
          "Print what has gone as JSON; rules go to the file that --output names",
          "Finds the rules that can go without any packet being treated differently, verdict and "
          "actions: those that match nothing, those whose packets are all decided before, and "
          "those whose packets get the same from rules behind them. All of them can go "
          "together, and of what is left no single one can. Entries of a source that became "
          "several rules go as a whole.\n"
          "\n"
          "With --to the rules that stay are written, in their order, with their names and "
          "descriptions. What is written is read again and proved to do the same with every "
          "packet, also with packets that cannot be; if that is not proved nothing is written.",
          {"naxel prune --cost examples/office.ios",
           "naxel prune --to json -o smaller.json examples/office.ios"},
          [] { return std::unique_ptr<Command>(std::make_unique<Prune>()); }};
}

}  // namespace NaxelTool
