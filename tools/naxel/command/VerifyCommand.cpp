#include "command/Command.h"
#include "command/RuleInput.h"
#include "command/Verify.h"

namespace NaxelTool {

namespace {

class Verification : public Command {
 public:
  void declare(CLI::App& app) override {
    addNumber(app, "--packets", packets_, 0, ~uint64_t{0} >> 1, "How many packets");
    addNumber(app, "--seed", seed_, 0, ~uint64_t{0}, "Which packets");
    addFlag(app, "--exact", exact_,
            "Prove besides that they agree for every packet\n"
            "A difference comes with a packet that shows it. With --packets 0 it only proves.");
    input_.declare(app);
  }

  ExitCode run(Console& console) override {
    LoadedRules const loaded = input_.load(console);
    Session& session = *loaded.session;
    console.progress().stepIs("looking packets up", packets_);
    VerifyReport report =
        verify(session, packets_, seed_, [&](uint64_t done) { console.progress().doneIs(done); });
    if (exact_ && !report.difference) {
      console.progress().stepIs("proving");
      verifyExactly(session, report);
    }
    console.progress().end();
    if (console.options().json)
      printJson(report, console.out());
    else if (report.difference || !console.options().quiet)
      print(report, console.out());
    return report.difference ? ExitCode::findings : ExitCode::success;
  }

 private:
  RuleInput input_;
  uint64_t packets_ = 100000;
  uint64_t seed_ = 1;
  bool exact_ = false;
};

}  // namespace

CommandInfo verifyCommand() {
  return {"verify",
          "Compare the loaded tables with the rules, packet by packet",
          "Print the result as JSON",
          "Compiles rules as compile does. Then packets are looked up in the tables and compared "
          "with the rules themselves, evaluated in order.",
          {"naxel verify --packets 10000 --exact examples/edge.json"},
          [] { return std::unique_ptr<Command>(std::make_unique<Verification>()); }};
}

}  // namespace NaxelTool
