#pragma once

/// `naxel gen`: makes up rule files.

#include "generate/Generate.h"
#include "input/Errors.h"

#include <string>

#include <CLI/CLI.hpp>

namespace NaxelTool {

struct Generation {
  enum class Style : uint8_t { acl, fw, ipc, groups, attributes };

  Style style = Style::acl;
  uint64_t seed = 1;
  ObjectGroupOptions groups;
  std::string output;
};

void addGeneration(CLI::App& command, Generation& to);
/// Writes the file, and on standard error the options that give the same bytes again.
ExitCode run(Generation const& options);

}  // namespace NaxelTool
