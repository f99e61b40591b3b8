#include "output/OutputFile.h"

#include "input/Errors.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <unistd.h>

namespace NaxelTool {

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {
  namespace fs = std::filesystem;
  std::error_code ignored;
  // Devices and pipes are written to; only a file can be replaced, and a link stays a link.
  if (fs::exists(path_, ignored) && !fs::is_regular_file(path_, ignored)) {
    out_.open(path_, std::ios::binary);
  } else {
    if (fs::is_symlink(path_, ignored)) path_ = fs::weakly_canonical(path_).string();
    temporary_ = path_ + ".tmp" + std::to_string(getpid());
    out_.open(temporary_, std::ios::binary | std::ios::trunc);
  }
  if (!out_)
    throw InputError(path_, {}, "cannot be written: " + std::string(std::strerror(errno)),
                     codeOfSystemError(errno));
}

OutputFile::~OutputFile() {
  if (temporary_.empty()) return;
  out_.close();
  std::remove(temporary_.c_str());
}

void OutputFile::commit() {
  out_.close();
  if (!out_ || (!temporary_.empty() && std::rename(temporary_.c_str(), path_.c_str()) != 0))
    throw InputError(path_, {}, "cannot be written: " + std::string(std::strerror(errno)),
                     codeOfSystemError(errno));
  temporary_.clear();
}

}  // namespace NaxelTool
