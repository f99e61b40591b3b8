#include "command/Program.h"

#include "command/Command.h"
#include "command/Fleet.h"
#include "command/Help.h"
#include "command/Manual.h"
#include "output/OutputFile.h"
#include "output/Signals.h"

#include <algorithm>
#include <filesystem>
#include <new>
#include <stdexcept>

namespace NaxelTool {

namespace {

/// The parser of the command line with the commands that it fills.
class CommandLine {
 public:
  explicit CommandLine(TalkOptions& talk)
      : app_("Compiles access control lists into ternary match entries of a switch chip") {
    app_.name("naxel");
    app_.formatter(std::make_shared<HelpFormatter>());
    app_.set_help_flag("-h,--help", "Show this help");
    app_.set_version_flag("--version", "naxel " NAXEL_VERSION, "Show the version");
    app_.require_subcommand(1);
    app_.footer(std::string(allCommands().front().examples.front()));
    for (CommandInfo const& info : allCommands()) {
      commands_.push_back(info.make());
      CLI::App& sub = *app_.add_subcommand(std::string(info.name), std::string(info.summary));
      if (!info.alias.empty()) sub.alias(std::string(info.alias));
      sub.footer(std::string(info.examples.front()));
      commands_.back()->declare(sub);
      if (takesDevices(sub, info)) addFleetOptions(sub, fleet_);
      addTalk(sub, info, talk);
    }
  }

  CLI::App& app() { return app_; }
  Declared declared() const {
    Declared out{&app_, {}};
    auto const all = app_.get_subcommands([](CLI::App const*) { return true; });
    for (size_t i = 0; i < all.size(); ++i) out.commands.push_back({&allCommands()[i], all[i]});
    return out;
  }
  /// Runs the command that was parsed.
  ExitCode run(Console& console) {
    auto const all = app_.get_subcommands([](CLI::App*) { return true; });
    size_t chosen = 0;
    while (!all[chosen]->parsed()) ++chosen;
    CLI::App const& sub = *all[chosen];
    CommandInfo const& info = allCommands()[chosen];
    if (takesDevices(sub, info) && isFleet(sub, fleet_, info.pairs))
      return runFleet(sub, fleet_, info, console);
    return commands_[chosen]->run(console);
  }

 private:
  static bool takesDevices(CLI::App const& app, CommandInfo const& info) {
    auto const options = app.get_options();
    return !info.oneDevice &&
           std::any_of(options.begin(), options.end(),
                       [](CLI::Option const* option) { return option->get_positional(); });
  }

  static void addTalk(CLI::App& app, CommandInfo const& info, TalkOptions& to) {
    addFlag(app, "--json", to.json,
            std::string(info.json) +
                "\nMessages on standard error become JSON as well, one object a line.");
    addFlag(app, "-q,--quiet", to.quiet, "No summaries, warnings or notes");
    addChoice<ColorMode>(app, "--color", to.color,
                         {{"auto", ColorMode::automatic},
                          {"always", ColorMode::always},
                          {"never", ColorMode::never}},
                         "Colour messages\nThe default, auto, colours on a terminal unless "
                         "NO_COLOR is set.");
    app.set_help_flag("-h,--help", "Show this help");
  }

  CLI::App app_;
  FleetOptions fleet_;
  std::vector<std::unique_ptr<Command>> commands_;
};

struct Usage {
  std::string text;
  std::string help;
};

/// What the parser would take for something else, or tell less well.
std::optional<Usage> faultOf(std::vector<std::string> const& arguments) {
  for (std::string const& a : arguments) {
    if (a == "--") break;
    if (a.starts_with("--") && a.find('=') == a.size() - 1)
      return Usage{a.substr(0, a.size() - 1) + ": the value is empty", {}};
  }
  std::vector<std::string_view> names;
  for (CommandInfo const& info : allCommands()) {
    names.push_back(info.name);
    if (!info.alias.empty()) names.push_back(info.alias);
  }
  std::string const all = "'naxel --help' lists the commands";
  if (arguments.empty()) return Usage{"no command is given", all};
  std::string const& first = arguments.front();
  if (first.starts_with("-") || std::find(names.begin(), names.end(), first) != names.end())
    return std::nullopt;
  std::string const hint = didYouMean(first, names);
  return Usage{"there is no command '" + printable(first) + "'", hint.empty() ? all : hint};
}

/// Writes manual pages and completions below a folder. This is how they are built, not a command.
void writeDocumentation(Declared const& declared, std::string const& folder) {
  for (auto const& [path, text] : documentation(declared)) {
    std::filesystem::path const whole = std::filesystem::path(folder) / path;
    std::error_code error;
    std::filesystem::create_directories(whole.parent_path(), error);
    OutputFile file(whole.string());
    file.stream() << text;
    file.commit();
  }
}

/// What was wrong with a command line that the parser refuses.
Usage usageOf(CLI::App const& app, CLI::ParseError const& e) {
  auto const chosen = app.get_subcommands();
  CLI::App const& at = chosen.empty() ? app : *chosen.front();
  std::string const all =
      "'naxel " + (chosen.empty() ? "" : at.get_name() + " ") + "--help' lists the options";
  auto const left = app.remaining(true);
  // A value that is wrong is told before an option that there is not.
  if (left.empty() || dynamic_cast<CLI::ValidationError const*>(&e)) return {e.what(), all};
  std::string const& word = left.front();
  if (!word.starts_with("-")) return {"'" + printable(word) + "' is one argument too many", all};
  std::vector<std::string> names;
  for (CLI::Option const* option : at.get_options())
    for (std::string const& name : option->get_lnames()) names.push_back("--" + name);
  std::string const hint = didYouMean(word.substr(0, word.find('=')), {names.begin(), names.end()});
  return {"there is no option '" + printable(word) + "'", hint.empty() ? all : hint};
}

/// Says what ended the run early, and returns the code for it.
ExitCode report(Console& console, std::exception_ptr const& thrown) {
  try {
    std::rethrow_exception(thrown);
  } catch (EndOfRun const& e) {
    return e.code();
  } catch (OutputError const& e) {
    console.messages().say({Severity::error, "output", e.file(), {}, e.text(), {}, {}});
    return e.code();
  } catch (InputError const& e) {
    console.messages().say({Severity::error, "input", e.file(), {e.at()}, e.text(), {}, {}});
    return e.code();
  } catch (std::bad_alloc const&) {
    console.error("memory", "out of memory");
    return ExitCode::internal;
  } catch (std::invalid_argument const& e) {
    console.error("usage", e.what());
    return ExitCode::badInput;
  } catch (std::exception const& e) {
    console.error("internal", e.what());
    return ExitCode::internal;
  }
}

}  // namespace

ExitCode runProgram(int argc, char const* const* argv) {
  TalkOptions talk;
  std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
  // Also what is wrong with the command line is told in the form that it asks for.
  talk.json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
  signalsAreHandled(talk.json);
  Console early(talk);
  try {
    CommandLine line(talk);
    if (arguments.size() == 2 && arguments[0] == "--documentation") {
      writeDocumentation(line.declared(), arguments[1]);
      return ExitCode::success;
    }
    if (auto const fault = faultOf(arguments)) {
      early.error("usage", fault->text, fault->help);
      return ExitCode::badInput;
    }
    try {
      line.app().parse(argc, argv);
    } catch (CLI::CallForHelp const&) {
      early.out() << line.app().help();
      early.finish();
      return ExitCode::success;
    } catch (CLI::CallForVersion const& e) {
      early.out() << e.what() << '\n';
      early.finish();
      return ExitCode::success;
    } catch (CLI::ParseError const& e) {
      Usage const usage = usageOf(line.app(), e);
      early.error("usage", usage.text, usage.help);
      return ExitCode::badInput;
    }
    Console console(talk);
    try {
      ExitCode const code = line.run(console);
      console.finish();
      return code;
    } catch (...) {
      console.out().flush();  // what came before belongs in front of the message
      return report(console, std::current_exception());
    }
  } catch (...) {
    return report(early, std::current_exception());
  }
}

std::vector<CommandInfo> const& allCommands() {
  static std::vector<CommandInfo> const all = [] {
    std::vector<CommandInfo> commands = {compileCommand(), verifyCommand(),  explainCommand(),
                                         checkCommand(),   searchCommand(),  diffCommand(),
                                         pruneCommand(),   costCommand(),    whatIfCommand(),
                                         reportCommand(),  convertCommand(), generateCommand()};
#if NAXEL_WITH_OVS
    commands.push_back(loadCommand());
#endif
    return commands;
  }();
  return all;
}

Command::~Command() = default;

}  // namespace NaxelTool
