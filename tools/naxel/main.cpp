/// naxel: compiles rule files into the tables of a chip in software, and shows, checks and explains
/// what came out.

#include "command/Classify.h"
#include "command/GenerateCommand.h"
#include "command/Verify.h"
#include "input/InputFile.h"
#include "input/RuleFiles.h"
#include "naxel/types/NaxelTrace.h"
#include "output/OutputFile.h"
#include "output/Summary.h"
#include "output/TablesWriter.h"
#include "session/Session.h"

#include <iostream>

#include <CLI/CLI.hpp>

namespace NaxelTool {
namespace {

/// What all subcommands take.
struct Common {
  std::string chip;
  std::optional<Acl::LabelCode> labelCode;
  ReadOptions read;
  int trace = -1;  // what a failed kick would say at level 0 is printed anyway
  std::vector<std::string> rules;
};

struct Compile {
  bool json = false;
  std::string output;
};

struct Verification {
  uint64_t packets = 100000;
  uint64_t seed = 1;
  bool exact = false;
};

struct Classification {
  std::string acl;
  std::string src;
  std::string dst;
  Verify::Packet packet;
  std::vector<std::string> tcp;
};

/// Reads the files and runs the kick; then `then` has the loaded session.
template <class Then>
ExitCode withKick(Common const& common, Then then) {
  Naxel::naxelTrace().levelIs(common.trace);
  ChipSetup chip =
      common.chip.empty() ? defaultChip() : readChip(common.chip, readInput(common.chip));
  if (common.labelCode) chip.labelCode = *common.labelCode;
  RuleSet rules(chip.capability->chipId());
  Diagnostics diagnostics(std::cerr);
  readRuleFiles(common.rules, common.read, rules, diagnostics);
  Session session(chip, rules.acls());
  if (session.kick()) return then(session);
  std::string const& message = session.rootStatus().kickMessage();
  std::cerr << (message.empty() ? "the kick did not end" : message) << '\n';
  for (std::string const& text : session.failureTexts()) std::cerr << text << '\n';
  return ExitCode::noRoom;
}

ExitCode run(Common const& common, Compile const& options) {
  return withKick(common, [&](Session const& session) {
    auto const write = [&](std::ostream& out) {
      writeTables(out, session.rootStatus(), session.data(), *session.acls());
    };
    if (!options.output.empty()) {
      OutputFile file(options.output);
      write(file.stream());
      file.commit();
    } else if (options.json) {
      write(std::cout);
    }
    if (!options.json) printSummary(std::cout, session);
    return ExitCode::success;
  });
}

ExitCode run(Common const& common, Verification const& options) {
  return withKick(common, [&](Session& session) {
    bool const same = verify(session, options.packets, options.seed, std::cout) &&
                      (!options.exact || verifyExactly(session, std::cout));
    return same ? ExitCode::success : ExitCode::findings;
  });
}

ExitCode run(Common const& common, Classification const& options) {
  Verify::Packet packet = options.packet;
  std::tie(packet.af, packet.src) = addressFromText(options.src);
  auto const [af, dst] = addressFromText(options.dst);
  if (af != packet.af) throw std::invalid_argument("the addresses are of different families");
  packet.dst = dst;
  auto const has = [&](char const* flag) {
    return std::find(options.tcp.begin(), options.tcp.end(), flag) != options.tcp.end();
  };
  packet.syn = has("syn");
  packet.ack = has("ack");
  packet.rst = has("rst");
  return withKick(common, [&](Session& session) {
    if (!options.acl.empty() && !session.acls()->acl(options.acl))
      throw std::invalid_argument("there is no ACL '" + options.acl + "'");
    return classify(session, packet, options.acl, std::cout) ? ExitCode::success
                                                             : ExitCode::findings;
  });
}

void addCommon(CLI::App& command, Common& to) {
  static std::map<std::string, RuleFormat> const formats = {{"auto", RuleFormat::automatic},
                                                            {"classbench", RuleFormat::classBench},
                                                            {"json", RuleFormat::json}};
  static std::map<std::string, FlagsMode> const flags = {{"ignore", FlagsMode::ignore},
                                                         {"strict", FlagsMode::strict}};
  static std::map<std::string, Acl::LabelCode> const codes = {{"aligned", Acl::LabelCode::aligned},
                                                              {"compact", Acl::LabelCode::compact}};
  command.add_option("--chip", to.chip, "Chip description")->type_name("FILE");
  command
      .add_option("--label-code", to.labelCode,
                  "How labels are encoded: aligned or compact (the default, unless the chip says "
                  "otherwise)")
      ->transform(CLI::Transformer(codes))
      ->type_name("CODE");
  command.add_option("--format", to.read.format, "Format of the rules: auto, classbench or json")
      ->transform(CLI::Transformer(formats))
      ->type_name("FORMAT");
  command.add_option("--flags", to.read.flags, "Flag columns of ClassBench sets: ignore or strict")
      ->transform(CLI::Transformer(flags))
      ->type_name("MODE");
  command.add_option("--trace", to.trace, "Trace the stages up to a level, 0 to 9")
      ->check(CLI::Range(0, 9))
      ->type_name("LEVEL");
  command.add_option("rules", to.rules, "Rule files")->required()->type_name("RULES");
}

/// "--icmp-type" for "icmpType".
std::string optionOf(std::string_view name) {
  std::string option = "--";
  for (char const c : name) {
    if (c >= 'A' && c <= 'Z') option += '-';
    option += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  }
  return option;
}

void addPacket(CLI::App& command, Classification& to) {
  command.add_option("--src", to.src, "Source address")->required();
  command.add_option("--dst", to.dst, "Destination address")->required();
  for (Naxel::RangeField const& field : Naxel::rangeFields)
    command
        .add_option_function<uint32_t>(
            optionOf(field.name),
            [&to, type = field.type](uint32_t const& v) {
              to.packet.valueIs(type, static_cast<uint16_t>(v));
            },
            std::string(field.typeName) + " of the packet")
        ->check(CLI::Range(0u, unsigned{field.bound()}))
        ->type_name("NUMBER");
  command.add_option("--tcp", to.tcp, "TCP flags that are set, of syn, ack and rst")
      ->delimiter(',')
      ->check(CLI::IsMember({"syn", "ack", "rst"}))
      ->type_name("FLAG,...");
  command.add_option("--acl", to.acl, "Look at this ACL only")->type_name("NAME");
}

ExitCode runCommandLine(int argc, char** argv) {
  CLI::App app("Compiles access control lists into ternary match entries of a switch chip");
  app.name("naxel");
  app.require_subcommand(1);
  Common common;
  Compile compile;
  Verification verification;
  Classification classification;
  Generation generation;

  CLI::App* const compileCommand =
      app.add_subcommand("compile", "Compile rules; print a summary or the tables");
  addCommon(*compileCommand, common);
  compileCommand->add_flag("--json", compile.json, "The tables as JSON instead of the summary");
  compileCommand->add_option("-o,--output", compile.output, "Write the tables to a file")
      ->type_name("FILE");

  CLI::App* const verifyCommand =
      app.add_subcommand("verify", "Compare the loaded tables with the rules, packet by packet");
  addCommon(*verifyCommand, common);
  // A negative number would be taken for a very large one.
  verifyCommand->add_option("--packets", verification.packets, "How many packets")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  verifyCommand->add_option("--seed", verification.seed, "Which packets")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  verifyCommand->add_flag("--exact", verification.exact,
                          "Prove besides that they agree for every packet");

  CLI::App* const classifyCommand =
      app.add_subcommand("classify", "Look one packet up and say why it gets its verdict");
  addCommon(*classifyCommand, common);
  addPacket(*classifyCommand, classification);

  CLI::App* const generateCommand =
      app.add_subcommand("gen", "Make up a rule file that resembles those in use");
  addGeneration(*generateCommand, generation);

  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& e) {
    return app.exit(e) == 0 ? ExitCode::success : ExitCode::badInput;
  }
  if (*generateCommand) return run(generation);
  if (*compileCommand) return run(common, compile);
  return *verifyCommand ? run(common, verification) : run(common, classification);
}

}  // namespace
}  // namespace NaxelTool

int main(int argc, char** argv) {
  using NaxelTool::ExitCode;
  ExitCode code = ExitCode::badInput;
  try {
    code = NaxelTool::runCommandLine(argc, argv);
    if (code == ExitCode::success && !std::cout.flush())
      throw std::runtime_error("standard output cannot be written");
  } catch (NaxelTool::InputError const& e) {
    std::cerr << e.what() << '\n';
    code = ExitCode::badInput;
  } catch (NaxelTool::RejectedInput const&) {
    code = ExitCode::badInput;
  } catch (std::exception const& e) {
    std::cerr << "naxel: error: " << e.what() << '\n';
    code = ExitCode::badInput;
  }
  return static_cast<int>(code);
}
