#include "command/Command.h"
#include "command/RuleInput.h"
#include "output/OutputFile.h"
#include "output/RuleWriters.h"

#include <sstream>

namespace NaxelTool {

namespace {

enum class Target : uint8_t { json, openConfig, ios };

class Convert : public Command {
 public:
  void declare(CLI::App& app) override {
    addChoice<Target>(
        app, "--to", target_,
        {{"json", Target::json}, {"openconfig", Target::openConfig}, {"ios", Target::ios}},
        "What to write: our own JSON, OpenConfig's, or text of the IOS family")
        ->required();
    addFile(app, "-o,--output", output_, "Write to a file\nIt comes into being complete.");
    input_.declareReading(app);
  }

  ExitCode run(Console& console) override {
    if (!output_.empty()) refuseInputs(output_, input_.files());
    console.progress().stepIs("reading rules");
    RuleSet const rules = input_.read(console);
    console.progress().stepIs("writing");
    size_t const before = console.messages().count(Severity::error);
    // All of it is made before any is written: what cannot be said leaves no half of a file behind.
    std::ostringstream text;
    write(text, rules, console.messages());
    if (console.messages().count(Severity::error) != before) {
      console.messages().sayRest();
      return ExitCode::badInput;
    }
    if (output_.empty()) {
      console.out() << text.str();
      return ExitCode::success;
    }
    OutputFile file(output_);
    file.stream() << text.str();
    file.commit();
    return ExitCode::success;
  }

 private:
  void write(std::ostream& out, RuleSet const& rules, Diagnostics& diagnostics) const {
    ReadOptions const& read = input_.readOptions();
    WriteOptions const options{read.strict, read.implicitEnd, read.plainFragments};
    switch (target_) {
      case Target::json: return writeRulesAsJson(out, rules);
      case Target::openConfig: return writeRulesAsOpenConfig(out, rules, options, diagnostics);
      case Target::ios: return writeRulesAsIos(out, rules, options, diagnostics);
    }
  }

  RuleInput input_;
  Target target_ = Target::json;
  std::string output_;
};

}  // namespace

CommandInfo convertCommand() {
  return {"convert",
          "Write rules in another format",
          "Messages as JSON; what is written is as --to says",
          "Reads rules of any format and writes them in one. Rules, their order and what they do "
          "stay the same for every packet; descriptions go along. An end that the target implies "
          "as well is not written. What the target cannot say is an error that names the rule, and "
          "nothing is written then.",
          {"naxel convert --to openconfig examples/edge.json",
           "naxel convert --to json -o set.json examples/branch.rules"},
          [] { return std::unique_ptr<Command>(std::make_unique<Convert>()); }};
}

}  // namespace NaxelTool
