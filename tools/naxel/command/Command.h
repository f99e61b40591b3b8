#pragma once

/// The commands of the program. Each has a file of its own, `<Name>Command.cpp`, with its options and what
/// it does; the table of them is the order of the help.

#include "command/Console.h"
#include "command/Options.h"

#include <memory>
#include <string_view>
#include <vector>

namespace NaxelTool {

class Command {
 public:
  virtual ~Command();

  /// Adds the options, which refer to this object. Those that all commands have are added elsewhere.
  virtual void declare(CLI::App& app) = 0;
  /// Does it, after the command line has been read. Throws InputError, EndOfRun,
  /// std::invalid_argument for what is wrong with the options.
  virtual ExitCode run(Console& console) = 0;
};

struct CommandInfo {
  std::string_view name;
  std::string_view summary;  ///< a few words, in the list of all commands
  std::string_view json;     ///< what --json does
  /// Paragraphs for the manual page, with an empty line between.
  std::string_view text;
  /// Whole command lines that work in a folder that has the examples/ of the sources. The help shows the
  /// first one.
  std::vector<std::string_view> examples;
  std::unique_ptr<Command> (*make)();
  std::string_view alias = {};  ///< another name that does the same; may be empty
  /// It compares two rule arguments; of two folders those files that have the same path below them.
  bool pairs = false;
  /// Code 0 says that what was looked for is there, and 1 that it is not: of several devices 0 counts for more.
  bool looksForPackets = false;
  /// All its rule arguments are for one device, so a folder of devices is none of them.
  bool oneDevice = false;
};

std::vector<CommandInfo> const& allCommands();

CommandInfo compileCommand();
CommandInfo verifyCommand();
CommandInfo explainCommand();
CommandInfo checkCommand();
CommandInfo searchCommand();
CommandInfo costCommand();
CommandInfo whatIfCommand();
CommandInfo reportCommand();
CommandInfo convertCommand();
CommandInfo diffCommand();
CommandInfo pruneCommand();
CommandInfo generateCommand();
/// Where the driver for Open vSwitch is built.
CommandInfo loadCommand();

}  // namespace NaxelTool
