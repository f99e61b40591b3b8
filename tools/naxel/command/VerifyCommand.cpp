#include "command/Command.h"
#include "command/RuleInput.h"
#include "command/Verify.h"

#if NAXEL_WITH_OVS
#include "command/SwitchOptions.h"
#include "command/SwitchVerify.h"
#include "ovs/Socket.h"
#endif

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
#if NAXEL_WITH_OVS
    switch_.declare(app);
#endif
    input_.declare(app);
  }

  ExitCode run(Console& console) override {
#if NAXEL_WITH_OVS
    if (switch_.given()) return askSwitch(console);
#endif
    LoadedRules const loaded = input_.load(console);
    Session& session = *loaded.session;
    console.progress().stepIs("looking packets up", packets_);
    VerifyReport report =
        verify(session, packets_, seed_, [&](uint64_t done) { console.progress().doneIs(done); });
    if (exact_ && !report.difference) {
      console.progress().stepIs("proving");
      verifyExactly(session, report);
    }
    return say(console, report, loaded.counts);
  }

 private:
  static ExitCode say(Console& console, VerifyReport report, ReadCounts const& source) {
    console.progress().end();
    report.source = source;
    if (console.options().json)
      printJson(report, console.out());
    else if (report.difference || source.leftOut || !console.options().quiet)
      print(report, console.out());
    return report.difference ? ExitCode::findings : ExitCode::success;
  }

#if NAXEL_WITH_OVS
  /// What is in force is the switch's own matter, so nothing is compiled.
  ExitCode askSwitch(Console& console) {
    if (exact_) throw std::invalid_argument("--exact proves tables, which a switch does not tell");
    RuleSet const rules = input_.read(console);
    console.progress().stepIs("asking the switch", packets_);
    try {
      return say(console,
                 verifySwitch(rules.acls(), switch_.driver(), packets_, seed_,
                              [&](uint64_t done) { console.progress().doneIs(done); }),
                 rules.counts());
    } catch (NaxelOvs::SwitchError const& error) {
      console.progress().end();
      console.error("switch", error.text);
      return ExitCode::device;
    }
  }

  SwitchOptions switch_;
#endif

  RuleInput input_;
  uint64_t packets_ = 100000;
  uint64_t seed_ = 1;
  bool exact_ = false;
};

}  // namespace

CommandInfo verifyCommand() {
  return {
    "verify", "Compare the loaded tables with the rules, packet by packet",
        "Print the result as JSON",
        "Compiles rules as compile does. Then packets are looked up in the tables and compared "
        "with the rules themselves, evaluated in order."
#if NAXEL_WITH_OVS
        "\n\nWith --ovs the bridge is asked what it would do with each packet, with the options "
        "that the rules were loaded with."
#endif
        ,
        {"naxel verify --packets 10000 --exact examples/edge.json"},
        [] { return std::unique_ptr<Command>(std::make_unique<Verification>()); }
  };
}

}  // namespace NaxelTool
