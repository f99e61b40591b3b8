#pragma once

/// An output file that comes into being complete or not at all.

#include <fstream>
#include <string>

namespace NaxelTool {

/// Writes to a temporary file beside `path`. Destroyed before commit(), it leaves what was at `path`
/// as it was.
class OutputFile {
 public:
  /// Throws std::runtime_error where the file cannot be made.
  explicit OutputFile(std::string path);
  OutputFile(OutputFile const&) = delete;
  OutputFile& operator=(OutputFile const&) = delete;
  ~OutputFile();

  std::ostream& stream() { return out_; }
  /// Moves the file to its place. Throws std::runtime_error if anything could not be written.
  void commit();

 private:
  std::string path_;
  std::string temporary_;
  std::ofstream out_;
};

}  // namespace NaxelTool
