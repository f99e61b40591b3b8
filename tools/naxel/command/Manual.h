#pragma once

/// Manual pages and completions of shells, made from what the commands themselves declare, so that they say
/// what the program does.

#include "command/Command.h"

#include <string>
#include <utility>
#include <vector>

namespace NaxelTool {

/// The parser of the whole program with its commands, in the order of allCommands().
struct DeclaredCommand {
  CommandInfo const* info;
  CLI::App const* app;
};
struct Declared {
  CLI::App const* program;
  std::vector<DeclaredCommand> commands;
};

/// Files by their paths in a folder share/: man/man1/naxel.1 and one page per command,
/// bash-completion/completions/naxel, zsh/site-functions/_naxel.
std::vector<std::pair<std::string, std::string>> documentation(Declared const& declared);

/// The parts of it.
std::string programPage(Declared const& declared);
std::string commandPage(DeclaredCommand const& command);
std::string bashCompletion(Declared const& declared);
std::string zshCompletion(Declared const& declared);

}  // namespace NaxelTool
