#pragma once

/// The devices of a fleet: which files below which folders.

#include "input/Errors.h"

#include <string>
#include <vector>

namespace NaxelTool {

struct Device {
  std::string name;                ///< its path, or for a pair the path below the two folders
  std::vector<std::string> files;  ///< the rule arguments of its process
  ExitCode code = ExitCode::success;
  std::string trouble;  ///< why there is nothing to run, with `code`; empty where there is
};

bool isFolder(std::string const& path);

/// Each file below a folder, to any depth, and each path that is a file. In the order of the bytes of their paths;
/// hidden files and folders are passed over, links to folders are not followed, and what is no file is
/// none. A folder that cannot be read is a device with that trouble.
std::vector<Device> devicesBelow(std::vector<std::string> const& paths);

/// The files of two folders that have the same path below them. What is on one side only is a device with that
/// trouble.
std::vector<Device> devicePairs(std::string const& first, std::string const& second);

}  // namespace NaxelTool
