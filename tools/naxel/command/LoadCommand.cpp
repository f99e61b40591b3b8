#include "command/Command.h"
#include "command/RuleInput.h"
#include "command/SwitchOptions.h"
#include "command/SwitchSession.h"
#include "ovs/FlowSet.h"
#include "verify/ConfigCopy.h"

#include <csignal>

#include <nlohmann/json.hpp>

namespace NaxelTool {

namespace {

volatile std::sig_atomic_t rereadSignal = 0;
volatile std::sig_atomic_t endSignal = 0;

/// SIGHUP and SIGTERM as requests, for a run that stays.
class StaySignals {
 public:
  explicit StaySignals(bool stays) {
    if (!stays) return;
    std::signal(SIGHUP, [](int) { rereadSignal = 1; });
    for (int s : {SIGTERM, SIGINT}) std::signal(s, [](int) { endSignal = 1; });
  }
  bool endAsked() const { return endSignal; }
  bool rereadAsked() const { return rereadSignal; }
  bool takeReread() {
    bool const asked = rereadSignal;
    rereadSignal = 0;
    return asked;
  }
};

class Load : public Command {
 public:
  void declare(CLI::App& app) override {
    switch_.declare(app);
    addNumber(
        app, "--timeout", wait_, 1, 86400,
        "Seconds to wait for the switch\n"
        "What is being waited for is said then, and the run fails. The rules of before are in "
        "force, or the new ones, whole in either case.");
    addFlag(
        app, "--stay", stay_,
        "Stay, and keep the rules in force\n"
        "What a restart of the switch has lost is put back. SIGHUP reads the rules anew and writes "
        "what differs, with labels that stay as far as they can; SIGTERM ends the run and leaves "
        "the rules in force.");
    addFlag(app, "--dry-run", dry_,
            "Print the flows instead, as ovs-ofctl add-flows reads them\n"
            "No switch is asked. Priorities are those of an empty one.");
    input_.declare(app);
  }

  ExitCode run(Console& console) override {
    NaxelOvs::DriverOptions const options = switch_.driver();
    if (dry_) return print(console, options.layout);
    StaySignals signals(stay_);
    RuleSet const rules = input_.read(console);
    NaxelOvs::DriverOptions watched = options;
    if (stay_) watched.watch = 1;
    SwitchSession session(input_.chip(), rules.acls(), watched);
    session.waitingIs([&](std::string const& what) {
      console.note("waiting", what.empty() ? "the switch has what it should" : what);
    });
    ExitCode const code = kick(console, session, signals);
    if (code != ExitCode::success || !stay_) return code;
    while (!signals.endAsked()) {
      session.runUntil([&] { return signals.endAsked() || signals.rereadAsked(); });
      if (signals.takeReread() && reread(console, *rules.acls())) kick(console, session, signals);
    }
    return ExitCode::success;
  }

 private:
  ExitCode kick(Console& console, SwitchSession& session, StaySignals const& signals) const {
    console.progress().stepIs("loading");
    auto const result =
        session.kick(static_cast<Mox::Seconds>(wait_), [&] { return signals.endAsked(); });
    console.progress().end();
    if (!result) {
      std::string const until =
          signals.endAsked() ? "before the end" : "within " + std::to_string(wait_) + " s";
      console.error("waiting", "the switch has not taken the rules " + until + ": " +
                                   session.driver().waitingFor());
      return ExitCode::device;
    }
    if (!*result) return sayFailure(console, *result, session);
    say(console, session.driver());
    console.out().flush();
    return ExitCode::success;
  }

  /// Writes what the files say now into the rules. False where they cannot be read, which has been said; the rules
  /// then stay.
  bool reread(Console& console, Naxel::AclConfigColl& rules) const {
    try {
      Verify::copyAcls(*input_.read(console).acls(), rules);
      return true;
    } catch (EndOfRun const&) {
      return false;
    } catch (InputError const& e) {
      console.error("input", e.what());
      return false;
    }
  }

  static ExitCode sayFailure(Console& console, Naxel::KickResult const& result,
                             SwitchSession const& session) {
    using Naxel::NaxelActiveStage;
    NaxelActiveStage const stage = session.failedStage();
    bool const refused = stage == NaxelActiveStage::stageLoader;
    bool const mistaken = stage == NaxelActiveStage::stageAggregator;
    std::string const kind = refused ? "refused" : mistaken ? "rules" : "does-not-fit";
    console.error(kind, result.message);
    console.error(kind, result.reason);
    return refused ? ExitCode::refused : mistaken ? ExitCode::badInput : ExitCode::noRoom;
  }

  static void say(Console& console, NaxelOvs::SwitchDriver const& driver) {
    NaxelOvs::LoadReport const& r = driver.lastLoad();
    if (console.options().json) {
      nlohmann::ordered_json const json{{"schema", "naxel-load"},
                                        {"version", 1},
                                        {"bridge", driver.options().target.bridge()},
                                        {"flows", r.flows},
                                        {"added", r.added},
                                        {"deleted", r.deleted},
                                        {"changed", r.changed},
                                        {"cachesFollowed", r.cachesFollowed}};
      console.out() << json.dump(1, ' ', true, nlohmann::ordered_json::error_handler_t::replace)
                    << '\n';
      return;
    }
    if (console.options().quiet) return;
    console.out() << driver.options().target.bridge() << ": " << r.flows << " flows in force, "
                  << r.added << " added, " << r.deleted << " deleted, " << r.changed
                  << " changed\n";
    if (!r.cachesFollowed)
      console.note(
          "caches",
          "the switch does not tell when its cache follows: known connections may meet the "
          "rules of before for about a second");
  }

  ExitCode print(Console& console, NaxelOvs::Layout const& layout) {
    LoadedRules const loaded = input_.load(console);
    auto const flows = NaxelOvs::translate(loaded.session->data(), layout);
    std::string refusal = flows.refusal;
    NaxelOvs::FlowSet const all =
        refusal.empty() ? NaxelOvs::ranked(flows, layout, {}, refusal) : NaxelOvs::FlowSet();
    console.progress().end();
    if (!refusal.empty()) {
      console.error("refused", refusal);
      return ExitCode::refused;
    }
    if (console.options().json) {
      nlohmann::ordered_json json{{"schema", "naxel-load"}, {"version", 1}, {"flows", all.size()}};
      for (NaxelOvs::Flow const& flow : all) json["text"].push_back(NaxelOvs::text(flow));
      console.out() << json.dump(1) << '\n';
    } else {
      console.out() << NaxelOvs::text(all);
    }
    return ExitCode::success;
  }

  RuleInput input_{[](Naxel::ChipHwCapability& capability) { NaxelOvs::setWidths(capability); }};
  SwitchOptions switch_;
  uint64_t wait_ = 30;
  bool stay_ = false;
  bool dry_ = false;
};

}  // namespace

CommandInfo loadCommand() {
  CommandInfo info = {
      "load",
      "Put rules in force in a bridge of Open vSwitch",
      "Print the result as JSON",
      "Compiles rules into labels, and these into flows, and puts them in force as one bundle of "
      "what differs from the flows that the bridge holds. A packet meets the rules of before or "
      "the new ones, and nothing between.\n\nOnly tables of its own are written. A flow of "
      "somebody else in one of them, rules that no flow can say and a bridge in another fragment "
      "mode than nx-match are refused before anything is touched. While the switch cannot take "
      "the rules, the run tries again until its time is over.",
      {"naxel load --dry-run --ovs br0 examples/branch.rules",
       "naxel load --dry-run --ovs br0 --bind branch.rules:in_port=3 --next 12 "
       "examples/branch.rules"},
      [] { return std::unique_ptr<Command>(std::make_unique<Load>()); }};
  info.oneDevice = true;
  return info;
}

}  // namespace NaxelTool
