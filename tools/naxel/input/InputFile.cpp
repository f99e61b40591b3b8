#include "input/InputFile.h"

#include "input/Errors.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include <zlib.h>

namespace NaxelTool {

namespace {

using OpenFile = std::unique_ptr<gzFile_s, int (*)(gzFile)>;

[[noreturn]] void failSystem(std::string const& path, int error) {
  throw InputError(path, {}, std::strerror(error), codeOfSystemError(error));
}

/// Standard input is copied, so that closing the copy leaves it open.
OpenFile openFile(std::string const& path) {
  int const fd = path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) failSystem(path, errno);
  struct stat about {};
  if (fstat(fd, &about) == 0 && S_ISDIR(about.st_mode)) {
    close(fd);
    failSystem(path, EISDIR);
  }
  OpenFile file(gzdopen(fd, "rb"), gzclose);
  if (!file) {
    close(fd);
    throw std::bad_alloc();
  }
  return file;
}

/// Throws what zlib or the system says of the file, if it says anything.
void checkState(std::string const& path, gzFile file) {
  int code = Z_OK;
  char const* const text = gzerror(file, &code);
  if (code == Z_OK) return;
  if (code == Z_ERRNO) failSystem(path, errno);
  if (code == Z_MEM_ERROR) throw std::bad_alloc();
  throw InputError(path, {}, code == Z_BUF_ERROR ? "unexpected end of the compressed data" : text);
}

}  // namespace

std::string readInput(std::string const& path, uint64_t maxInput) {
  OpenFile const file = openFile(path);
  std::string content;
  auto const chunk = std::make_unique<std::array<char, 1 << 16>>();
  for (;;) {
    int const n = gzread(file.get(), chunk->data(), static_cast<unsigned>(chunk->size()));
    if (n < 0) checkState(path, file.get());
    if (n <= 0) break;
    auto const size = static_cast<size_t>(n);
    if (size > maxInput - content.size())
      throw InputError(path, {},
                       "holds more than " + std::to_string(maxInput) +
                           " bytes, the most that --max-input allows");
    // Doubling would go beyond the limit.
    if (content.capacity() < content.size() + size)
      content.reserve(std::max(
          content.size() + size,
          static_cast<size_t>(std::min<uint64_t>(uint64_t{2} * content.capacity(), maxInput))));
    content.append(chunk->data(), size);
  }
  // A truncated gzip file ends in a read of 0 bytes like any other, but leaves an error behind.
  checkState(path, file.get());
  if (content.starts_with("\xEF\xBB\xBF")) content.erase(0, 3);
  return content;
}

std::string baseName(std::string const& path) {
  if (path == "-") return "stdin";
  std::string name = std::filesystem::path(path).filename().string();
  if (name.size() > 3 && name.ends_with(".gz")) name.resize(name.size() - 3);
  return name;
}

}  // namespace NaxelTool
