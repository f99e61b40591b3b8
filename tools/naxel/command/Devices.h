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
/// hidden files and folders are passed over. What else is no file, such as a link to a folder or a pipe, is
/// passed over as well and counted. A folder that cannot be read and a link that leads nowhere are devices with
/// that trouble.
std::vector<Device> devicesBelow(std::vector<std::string> const& paths, size_t& passedOver);

/// The files of two folders that have the same path below them. What is on one side only is a device with that
/// trouble.
std::vector<Device> devicePairs(std::string const& first, std::string const& second,
                                size_t& passedOver);

}  // namespace NaxelTool
