#pragma once

/// The line of one device (schema/naxel-device.schema.json).

#include "input/Errors.h"

#include <string>
#include <string_view>

namespace NaxelTool {

/// From what its process has written: `out` becomes the result where it is JSON, else the output as a text; each line
/// of `err` a message. `trouble` says why the process did not end by itself; it is empty where it did.
std::string deviceLine(std::string const& name, int code, std::string const& out,
                       std::string const& err, std::string const& trouble);
/// What each such line begins with; the name as JSON.
std::string deviceLineHead(std::string_view name, int code);
/// The line of a device for which nothing was run.
std::string troubleLine(std::string const& name, ExitCode code, std::string const& trouble);

/// "signal 11 (Segmentation fault)".
std::string signalName(int number);

}  // namespace NaxelTool
