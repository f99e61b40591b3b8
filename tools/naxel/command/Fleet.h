#pragma once

/// One command over many devices: where a rule argument is a folder, each file below it is a device of its own,
/// for which the program runs in a process of its own. What goes wrong with one of them, a crash, a lack of memory or
/// of time, costs its own line and nothing else.
///
/// A process is given the options of the command line, --json and its one file (or two, for commands that
/// compare). It makes one line, schema/naxel-device.schema.json, and the lines stand in the order of the paths
/// whichever process is done first. Memory: the paths, and finished lines that wait for earlier ones; no
/// process is started while these hold much, unless the next line depends on it.

#include "command/Command.h"

#include <CLI/CLI.hpp>

namespace NaxelTool {

/// The options that only matter for folders.
struct FleetOptions {
  uint64_t jobs = 0;     ///< processes at a time; 0: as many as there are processors
  uint64_t timeout = 0;  ///< seconds for each; 0: as long as it takes
  std::string log;       ///< see FleetLog.h; empty: none
};
void addFleetOptions(CLI::App& app, FleetOptions& to);

/// Whether the command line asks for a fleet: one of the rule arguments is a folder. `pairs`: the command compares
/// two. Throws std::invalid_argument for what only a fleet or no fleet can do.
bool isFleet(CLI::App const& command, FleetOptions const& options, bool pairs);

/// Runs it, and says at the end how many devices there were and how they fared. Returns the largest of the
/// devices' exit codes; of 0 and 1 that of a device in which a search has found something, if there is one. A
/// signal that ends the run ends all processes first.
ExitCode runFleet(CLI::App const& command, FleetOptions const& options, CommandInfo const& info,
                  Console& console);

}  // namespace NaxelTool
