#include "output/OutputFile.h"

#include "input/Errors.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace NaxelTool {

namespace {

using FileStatus = struct stat;

/// The descriptor that a path names, if it names an open one.
std::optional<int> descriptorOf(std::string_view path) {
  if (path == "-" || path == "/dev/stdout") return STDOUT_FILENO;
  if (path == "/dev/stderr") return STDERR_FILENO;
  for (std::string_view const folder : {"/dev/fd/", "/proc/self/fd/"}) {
    if (!path.starts_with(folder)) continue;
    int number = 0;
    char const* const end = path.data() + path.size();
    auto const [at, error] = std::from_chars(path.data() + folder.size(), end, number);
    if (error == std::errc() && at == end && number >= 0) return number;
  }
  return std::nullopt;
}

/// Where a chain of symbolic links ends, whether there is a file or not.
std::string behindLinks(std::string path) {
  namespace fs = std::filesystem;
  std::error_code error;
  for (int links = 0; links < 40; ++links) {
    fs::path const to = fs::read_symlink(path, error);
    if (error) break;
    path = (fs::path(path).parent_path() / to).string();  // an absolute one replaces the folder
  }
  return path;
}

bool statusOf(std::string const& path, FileStatus& to, int standard) {
  if (path == "-") return fstat(standard, &to) == 0;
  if (auto const descriptor = descriptorOf(path)) return fstat(*descriptor, &to) == 0;
  return stat(path.c_str(), &to) == 0;
}

}  // namespace

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {
  FileStatus about{};
  if (auto const descriptor = descriptorOf(path_)) {
    fd_ = fcntl(*descriptor, F_DUPFD_CLOEXEC, 0);
    if (fd_ < 0) fail(errno);
  } else if (stat(path_.c_str(), &about) == 0 && !S_ISREG(about.st_mode)) {
    fd_ = open(path_.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd_ < 0) fail(errno);
  } else {
    openTemporary();
  }
  stream_ = std::make_unique<FdStream>(temporary_ ? temporary_->fd() : fd_);
}

OutputFile::~OutputFile() {
  if (fd_ >= 0) close(fd_);
}

void OutputFile::openTemporary() {
  target_ = behindLinks(path_);
  FileStatus about{};
  bool const exists = stat(target_.c_str(), &about) == 0;
  // What may not be written is not exchanged either, though its folder would allow it.
  if (exists && access(target_.c_str(), W_OK) != 0) fail(errno);
  hasOtherNames_ = exists && about.st_nlink > 1;
  temporary_.emplace(target_);
  int const fd = temporary_->fd();
  if (fd < 0) fail(errno);
  mode_t mode = about.st_mode & 07777;
  if (exists) {
    // Only root may give files away; everybody else keeps the new one.
    if (fchown(fd, about.st_uid, about.st_gid) != 0) mode &= 0777;
  } else {
    mode_t const mask = umask(0);
    umask(mask);
    mode = 0666 & ~mask;
  }
  if (fchmod(fd, mode) != 0) fail(errno);
}

void OutputFile::commit() {
  stream_->flush();
  if (stream_->error()) fail(stream_->error());
  if (!temporary_) {
    int const fd = std::exchange(fd_, -1);
    if (close(fd) != 0) fail(errno);
  } else if (hasOtherNames_) {
    copyToTarget();
  } else if (!temporary_->moveTo(target_)) {
    fail(errno);
  }
  temporary_.reset();
}

void OutputFile::copyToTarget() {
  int const from = temporary_->fd();
  off_t const size = lseek(from, 0, SEEK_END);
  fd_ = open(target_.c_str(), O_WRONLY | O_CLOEXEC);
  if (fd_ < 0) fail(errno);
  // The room is there before the old content is touched, on file systems that can promise it.
  if (int const error = size ? posix_fallocate(fd_, 0, size) : 0; error == ENOSPC) fail(error);
  std::array<char, 1 << 14> bytes;
  off_t done = 0;
  while (done < size) {
    ssize_t const n = pread(from, bytes.data(), bytes.size(), done);
    if (n <= 0 || pwrite(fd_, bytes.data(), static_cast<size_t>(n), done) != n)
      fail(errno ? errno : EIO);
    done += n;
  }
  if (ftruncate(fd_, size) != 0) fail(errno);
}

void OutputFile::fail(int error) const {
  throw OutputError(path_ == "-" ? "standard output" : path_,
                    "cannot be written: " + std::string(std::strerror(error)),
                    codeOfSystemError(error));
}

bool isStandardOutput(std::string const& path) { return descriptorOf(path) == STDOUT_FILENO; }

void refuseInputs(std::string const& output, std::vector<std::string> const& inputs) {
  FileStatus out{};
  if (!statusOf(output, out, STDOUT_FILENO) || !S_ISREG(out.st_mode)) return;
  for (std::string const& input : inputs) {
    FileStatus in{};
    if (statusOf(input, in, STDIN_FILENO) && in.st_dev == out.st_dev && in.st_ino == out.st_ino)
      throw OutputError(output == "-" ? "standard output" : output,
                        "is an input as well, and would be written over", ExitCode::badInput);
  }
}

}  // namespace NaxelTool
