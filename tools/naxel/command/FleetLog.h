#pragma once

/// The finished lines of a fleet in a file, so that a run that was broken off is taken up again.
///
/// The first line says what was run: the command line, the version, and the stamps of the program and of the files
/// that options name. Each further line is a device with the stamp that its files had before its process read them:
///
///   {"log":"naxel-fleet","version":1,...}
///   {"stamp":"...","file":"configs/a.cfg","code":0,"device":{...}}
///
/// A stamp is device, inode, size, and the times of the last change of content and of the file itself: a file that is
/// written, exchanged or copied gets another one, and nobody can set the last of them. A line is written when its
/// device is done, in whatever order that happens. A last line that a crash has cut off is taken off when the file is
/// opened; lines that are not of this form, or whose device is another one or has another code, count for
/// nothing.

#include "input/Errors.h"

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <unordered_map>
#include <vector>

namespace NaxelTool {

/// The stamp of files together; empty where one cannot be looked at.
std::string stampOf(std::vector<std::string> const& files);

class FleetLog {
 public:
  /// Opens the file, or makes it. `head` is its first line, without the end of line. Throws InputError if it is in
  /// use, cannot be read or written, is no such file, or is of another command line.
  FleetLog(std::string path, std::string const& head);
  FleetLog(FleetLog const&) = delete;
  FleetLog& operator=(FleetLog const&) = delete;
  ~FleetLog();

  struct Found {
    int code;
    off_t at;  ///< of its line in the file
    size_t size;
  };
  /// The device of that name, if it stands there whole with that stamp.
  std::optional<Found> find(std::string const& name, std::string const& stamp) const;
  /// Its line.
  std::string line(Found const& found) const;
  /// Throws OutputError.
  void append(std::string const& name, std::string const& stamp, int code, std::string const& line);

 private:
  struct Entry {
    std::string stamp;
    Found found;
  };

  [[noreturn]] void fail(int error) const;
  void readLines(std::string const& head);
  void takeLine(std::string_view line, off_t at);
  void write(std::string const& text);

  std::string path_;
  int fd_;
  std::unordered_map<std::string, Entry> entry_;  // by the name as JSON
};

}  // namespace NaxelTool
