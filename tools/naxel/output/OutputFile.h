#pragma once

/// An output file that comes into being complete or not at all.

#include "output/FdStream.h"
#include "output/Signals.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace NaxelTool {

/// Writes to a temporary file beside `path`, which takes its place at the end. Destroyed before commit(),
/// or ended by a signal, it leaves what was at `path` as it was. A symbolic link is followed. A file that
/// was there keeps its mode and, where the user may, its owner; one that has several names (hard links)
/// keeps them, and gets the new content in its place once that is complete. Devices and pipes are written
/// to as they are, standard output ("-") and other open descriptors (/dev/fd/3) too.
class OutputFile {
 public:
  /// Throws InputError where the file cannot be made.
  explicit OutputFile(std::string path);
  OutputFile(OutputFile const&) = delete;
  OutputFile& operator=(OutputFile const&) = delete;
  ~OutputFile();

  std::ostream& stream() { return *stream_; }
  /// Throws InputError if anything could not be written.
  void commit();

 private:
  void openTemporary();
  void copyToTarget();
  [[noreturn]] void fail(int error) const;

  std::string path_;                        // as it was given
  std::string target_;                      // behind all links
  std::optional<TemporaryFile> temporary_;  // none where it is written to directly
  bool hasOtherNames_ = false;
  int fd_ = -1;  // where it is written to directly
  std::unique_ptr<FdStream> stream_;
};

/// Whether a path means the standard output of the process.
bool isStandardOutput(std::string const& path);

/// Throws InputError if `output` is the same file as one of the inputs, by whatever name.
void refuseInputs(std::string const& output, std::vector<std::string> const& inputs);

}  // namespace NaxelTool
