#include "input/InputFile.h"

#include "input/Errors.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

#include <zlib.h>

namespace NaxelTool {

namespace {

std::string reason(gzFile file) {
  int code = Z_OK;
  char const* const text = gzerror(file, &code);
  if (code == Z_BUF_ERROR) return "unexpected end of the compressed data";
  return code == Z_ERRNO ? std::strerror(errno) : text;
}

}  // namespace

std::string readInput(std::string const& path) {
  std::unique_ptr<gzFile_s, int (*)(gzFile)> const file(gzopen(path.c_str(), "rb"), gzclose);
  if (!file) throw InputError(path, {}, std::strerror(errno));
  std::string content;
  auto const chunk = std::make_unique<std::array<char, 1 << 16>>();
  for (;;) {
    int const n = gzread(file.get(), chunk->data(), static_cast<unsigned>(chunk->size()));
    if (n < 0) throw InputError(path, {}, reason(file.get()));
    if (n == 0) break;
    content.append(chunk->data(), static_cast<size_t>(n));
  }
  // A truncated gzip file ends in a read of 0 bytes like any other, but leaves an error behind.
  int code = Z_OK;
  gzerror(file.get(), &code);
  if (code != Z_OK) throw InputError(path, {}, reason(file.get()));
  if (content.starts_with("\xEF\xBB\xBF")) content.erase(0, 3);
  return content;
}

std::string baseName(std::string const& path) {
  std::string name = std::filesystem::path(path).filename().string();
  if (name.size() > 3 && name.ends_with(".gz")) name.resize(name.size() - 3);
  return name;
}

}  // namespace NaxelTool
