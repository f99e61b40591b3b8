#include "command/Devices.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>

namespace NaxelTool {

namespace {

namespace fs = std::filesystem;

std::string withoutSlashes(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

std::string joined(std::string const& folder, std::string const& name) {
  return folder.ends_with('/') ? folder + name : folder + "/" + name;
}

/// Collects what stands below a folder, given the path that leads there.
class FolderWalk {
 public:
  FolderWalk(std::vector<Device>& to, size_t& passedOver) : to_(to), passedOver_(passedOver) {}

  void walk(std::string const& root) {
    std::vector<std::string> pending = {withoutSlashes(root)};
    while (!pending.empty()) {
      std::string const folder = std::move(pending.back());
      pending.pop_back();
      std::error_code error;
      for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error))
        take(joined(folder, at->path().filename().string()), *at, pending);
      if (error) to_.push_back({folder, {}, codeOfSystemError(error.value()), error.message()});
    }
  }

 private:
  void take(std::string path, fs::directory_entry const& entry, std::vector<std::string>& pending) {
    if (entry.path().filename().string().starts_with('.')) return;
    std::error_code error;
    // Follows links.
    fs::file_status const status = fs::status(entry.path(), error);
    if (!fs::exists(status)) {
      // Between the two a file may go, which leaves no error.
      if (!error) error = std::make_error_code(std::errc::no_such_file_or_directory);
      to_.push_back({std::move(path), {}, codeOfSystemError(error.value()), error.message()});
    } else if (fs::is_directory(status) && !entry.is_symlink(error)) {
      pending.push_back(std::move(path));
    } else if (fs::is_regular_file(status)) {
      to_.push_back({path, {path}, ExitCode::success, {}});
    } else {
      ++passedOver_;
    }
  }

  std::vector<Device>& to_;
  size_t& passedOver_;
};

void sortByPath(std::vector<Device>& devices) {
  std::sort(devices.begin(), devices.end(),
            [](Device const& a, Device const& b) { return a.name < b.name; });
}

}  // namespace

bool isFolder(std::string const& path) {
  std::error_code error;
  return fs::is_directory(path, error);
}

std::vector<Device> devicesBelow(std::vector<std::string> const& paths, size_t& passedOver) {
  std::vector<Device> out;
  for (std::string const& path : paths)
    if (isFolder(path))
      FolderWalk(out, passedOver).walk(path);
    else
      out.push_back({path, {path}, ExitCode::success, {}});
  sortByPath(out);
  // A folder may be named twice, or within another one.
  out.erase(std::unique(out.begin(), out.end(),
                        [](Device const& a, Device const& b) { return a.name == b.name; }),
            out.end());
  return out;
}

std::vector<Device> devicePairs(std::string const& first, std::string const& second,
                                size_t& passedOver) {
  std::map<std::string, std::array<std::vector<Device>, 2>> byPath;
  for (size_t side : {0, 1}) {
    std::string const root = withoutSlashes(side ? second : first);
    std::vector<Device> found;
    FolderWalk(found, passedOver).walk(root);
    for (Device& device : found) {
      std::string const below = device.name.substr(std::min(device.name.size(), root.size() + 1));
      byPath[below][side].push_back(std::move(device));
    }
  }
  std::vector<Device> out;
  for (auto& [below, sides] : byPath) {
    Device device{below, {}, ExitCode::success, {}};
    for (size_t side : {0, 1}) {
      std::string const& root = side ? second : first;
      if (sides[side].empty()) {
        device.code = ExitCode::badInput;
        device.trouble = "there is none in " + root;
      } else if (Device const& found = sides[side].front(); !found.trouble.empty()) {
        device.code = found.code;
        device.trouble = found.name + ": " + found.trouble;
      } else {
        device.files.push_back(found.files.front());
      }
    }
    out.push_back(std::move(device));
  }
  return out;
}

}  // namespace NaxelTool
