#include "answers/PacketSearch.h"
#include "answers/RuleTargets.h"
#include "command/Command.h"
#include "command/RuleInput.h"

#include <algorithm>

namespace NaxelTool {

namespace {

class Searching : public Command {
 public:
  void declare(CLI::App& app) override {
    addText(app, "--want", want_, "VERDICT",
            "What is to become of the packet, permit by default\n"
            "permit, drop, none (no rule matches), rule:R (the rule R decides: its index, its "
            "name, or where it stands, FILE:LINE), "
            "or log, dscp, tc, sflow (the rule that decides does that).");
    addPatterns(app, "--in", in_,
                "Packets to look among, as \"tcp 10.0.0.0/8 > any:80,443\"\n"
                "In the notation of rules. Of several one must match.");
    addPatterns(app, "--not-in", notIn_, "Packets to leave out, in the same notation");
    addText(app, "--acl", question_.acl, "NAME", "Search in this ACL only");
    addNumber(app, "--count", question_.count, 1, 1'000'000,
              "How many packets of each ACL, each decided by another rule");
    addFlag(app, "--all", all_, "Show all rules of the proof that there is none");
    addNumber(app, "--effort", question_.effort, 1, ~uint64_t{0} >> 1,
              "How long to look, in rules that are looked at for each ACL");
    input_.declareReading(app);
  }

  ExitCode run(Console& console) override {
    question_.wanted = wantedFromText(want_);
    console.progress().stepIs("reading rules");
    RuleSet const rules = input_.read(console);
    question_.in = patternsOf(in_, "--in", rules, console);
    question_.notIn = patternsOf(notIn_, "--not-in", rules, console);
    console.progress().stepIs("searching");
    SearchReport const report = searched(rules, console);
    console.progress().end();
    if (console.options().json)
      printJson(report, rules, console.out());
    else
      print(report, rules, all_, console.out());
    using Outcome = SearchedAcl::Outcome;
    if (report.has(Outcome::found)) return ExitCode::success;
    return report.has(Outcome::undecided) ? ExitCode::noRoom : ExitCode::findings;
  }

 private:
  SearchReport searched(RuleSet const& rules, Console& console) const try {
    return searchPackets(rules, question_);
  } catch (NoSuchRule const& e) {
    console.error("unknown-rule", std::string("--want: ") + e.what(), e.help());
    throw RejectedInput();
  }

  static void addPatterns(CLI::App& app, OptionName const& name, std::vector<std::string>& to,
                          std::string const& text) {
    app.add_option(name, to, text)
        ->type_name("PATTERN")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
  }

  /// Says what is wrong with one as with the line of a file, and ends the run.
  static std::vector<Pattern> patternsOf(std::vector<std::string> const& texts, char const* option,
                                         RuleSet const& rules, Console& console) {
    std::vector<Pattern> out;
    out.reserve(texts.size());
    for (std::string const& text : texts) try {
        out.push_back(patternFromText(text, rules.lists()));
      } catch (LineError const& e) {
        console.messages().say({Severity::error,
                                e.code(),
                                option,
                                {{1, e.at().offset + 1}, std::max<size_t>(1, e.at().text.size())},
                                e.what(),
                                e.help(),
                                text});
        throw RejectedInput();
      }
    return out;
  }

  RuleInput input_;
  SearchQuestion question_;
  std::string want_ = "permit";
  std::vector<std::string> in_;
  std::vector<std::string> notIn_;
  bool all_ = false;
};

}  // namespace

CommandInfo searchCommand() {
  CommandInfo info = {
      "search",
      "Find a packet that gets some verdict, or prove that there is none",
      "Print the packets, or the rules that leave none, as JSON",
      "Looks in the rules of every ACL for a packet within the bounds of --in and --not-in that "
      "gets the verdict that is wanted. Where there is none it names rules that match all packets "
      "within the bounds, before any rule of that verdict does. Packets are those that there can "
      "be: none of a protocol has what the protocol lacks. No chip is needed.\n\n"
      "The exit code is 0 if a packet is found, 1 if there is none, and 3 if the effort did not "
      "suffice to tell.",
      {"naxel search --in \"tcp any > web:22\" --want drop examples/edge.json",
       "naxel search --acl edge-in --want rule:web --count 3 examples/edge.json"},
      [] { return std::unique_ptr<Command>(std::make_unique<Searching>()); }};
  info.looksForPackets = true;
  return info;
}

}  // namespace NaxelTool
