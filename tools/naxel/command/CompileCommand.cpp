#include "command/Command.h"
#include "command/RuleInput.h"
#include "output/OutputFile.h"
#include "output/Summary.h"
#include "output/TablesWriter.h"

#include <stdexcept>

namespace NaxelTool {

namespace {

class Compile : public Command {
 public:
  void declare(CLI::App& app) override {
    addFile(app, "-o,--output", output_,
            "Write the tables to a file\n"
            "It comes into being complete, and only when the kick has succeeded.");
    addFile(app, "--dump", dump_,
            "Write what every stage has published to a file\n"
            "Line by line, for diff; also after a kick that has failed.");
    input_.declare(app);
  }

  ExitCode run(Console& console) override {
    checkOutputs(console.options().json);
    LoadedRules const loaded = input_.load(console, nullptr, [&](Session const& session) {
      if (dump_.empty()) return;
      console.progress().stepIs("writing the dump");
      OutputFile file(dump_);
      session.dump(file.stream());
      file.commit();
    });
    Session const& session = *loaded.session;
    console.progress().stepIs("writing");
    auto const write = [&](std::ostream& out) {
      writeTables(out, session.rootStatus(), session.data(), *session.acls(), loaded.counts);
    };
    if (!output_.empty()) {
      OutputFile file(output_);
      write(file.stream());
      file.commit();
    } else if (console.options().json) {
      write(console.out());
    }
    bool const taken =
        console.options().json || isStandardOutput(output_) || isStandardOutput(dump_);
    if (!taken && !console.options().quiet) {
      printLeftOut(console.out(), loaded.counts);
      printSummary(console.out(), session);
    }
    return ExitCode::success;
  }

 private:
  void checkOutputs(bool json) const {
    for (std::string const& output : {output_, dump_})
      if (!output.empty()) refuseInputs(output, input_.files());
    bool const tablesToStandardOutput = output_.empty() ? json : isStandardOutput(output_);
    if (!dump_.empty() && (dump_ == output_ || (tablesToStandardOutput && isStandardOutput(dump_))))
      throw std::invalid_argument("the tables and --dump would go to the same place");
  }

  RuleInput input_;
  std::string output_;
  std::string dump_;
};

}  // namespace

CommandInfo compileCommand() {
  return {
      "compile",
      "Compile rules; print a summary or the tables",
      "Print the tables instead of the summary",
      "Reads rules, compiles them into tables and has a chip in software load these. Prints what "
      "the tables of each ACL take, the labels in use and what the stages came to.",
      {"naxel compile examples/edge.json",
       "naxel compile --json --chip examples/combo-chip.json examples/edge.json",
       "naxel compile --dump - examples/edge.json"},
      [] { return std::unique_ptr<Command>(std::make_unique<Compile>()); }};
}

}  // namespace NaxelTool
