#include "command/FleetLog.h"

#include "command/FleetLine.h"
#include "output/RuleJson.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

namespace NaxelTool {

namespace {

constexpr std::string_view otherRun =
    "is of another command line, version or input; name another file to begin anew";

/// Takes a word off the front of a text, if it stands there.
bool taken(std::string_view& text, std::string_view word) {
  if (!text.starts_with(word)) return false;
  text.remove_prefix(word.size());
  return true;
}

/// Takes a text of JSON off the front, with its quotes.
std::string_view takenText(std::string_view& text) {
  if (!text.starts_with('"')) return {};
  size_t end = 1;
  while (end < text.size() && text[end] != '"') end += text[end] == '\\' ? 2 : 1;
  if (end >= text.size()) return {};
  std::string_view const out = text.substr(0, end + 1);
  text.remove_prefix(end + 1);
  return out;
}

}  // namespace

std::string stampOf(std::vector<std::string> const& files) {
  std::string out;
  for (std::string const& file : files) {
    struct stat s {};
    if (stat(file.c_str(), &s) != 0) return {};
    auto const time = [](timespec const& t) {
      return std::to_string(t.tv_sec) + "." + std::to_string(t.tv_nsec);
    };
    out += (out.empty() ? "" : "+") + std::to_string(s.st_dev) + "-" + std::to_string(s.st_ino) +
           "-" + std::to_string(s.st_size) + "-" + time(s.st_mtim) + "-" + time(s.st_ctim);
  }
  return out;
}

FleetLog::FleetLog(std::string path, std::string const& head)
    : path_(std::move(path)),
      fd_(open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_APPEND, 0666)) {
  try {
    if (fd_ < 0) fail(errno);
    struct stat s {};
    if (fstat(fd_, &s) != 0) fail(errno);
    if (!S_ISREG(s.st_mode)) throw InputError(path_, {}, "is no regular file");
    if (flock(fd_, LOCK_EX | LOCK_NB) != 0) throw InputError(path_, {}, "is in use by another run");
    readLines(head + "\n");
  } catch (...) {
    if (fd_ >= 0) close(fd_);
    throw;
  }
}

FleetLog::~FleetLog() { close(fd_); }

void FleetLog::fail(int error) const {
  throw OutputError(path_, std::string("cannot be used: ") + std::strerror(error),
                    codeOfSystemError(error));
}

/// Holds one line at a time.
void FleetLog::readLines(std::string const& head) {
  std::string line;
  off_t lineAt = 0;
  std::array<char, 1 << 16> chunk;
  for (off_t at = 0;;) {
    ssize_t const n = pread(fd_, chunk.data(), chunk.size(), at);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) fail(errno);
    if (n == 0) break;
    for (std::string_view rest(chunk.data(), static_cast<size_t>(n)); !rest.empty();) {
      size_t const newline = rest.find('\n');
      size_t const size = newline == std::string_view::npos ? rest.size() : newline + 1;
      line += rest.substr(0, size);
      at += static_cast<off_t>(size);
      rest.remove_prefix(size);
      if (lineAt == 0 && !head.starts_with(line.substr(0, head.size())))
        throw InputError(path_, {}, std::string(otherRun));
      if (newline == std::string_view::npos) continue;
      if (lineAt > 0) takeLine(std::string_view(line).substr(0, line.size() - 1), lineAt);
      lineAt = at;
      line.clear();
    }
  }
  if (ftruncate(fd_, lineAt) != 0) fail(errno);
  if (lineAt == 0) write(head);
}

void FleetLog::takeLine(std::string_view line, off_t at) {
  std::string_view rest = line;
  if (!taken(rest, "{\"stamp\":")) return;
  std::string_view const stamp = takenText(rest);
  if (!taken(rest, ",\"file\":")) return;
  std::string const name(takenText(rest));
  if (name.empty() || !taken(rest, ",\"code\":")) return;
  int code = 0;
  auto const [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), code);
  if (error != std::errc()) return;
  rest.remove_prefix(static_cast<size_t>(end - rest.data()));
  if (!taken(rest, ",\"device\":") || !rest.ends_with('}')) return;
  // Whoever can write the file must not make the lines of this run anything else than lines of devices.
  std::string_view const device = rest.substr(0, rest.size() - 1);
  std::string_view behind = device;
  if (!isExitCode(code) || !taken(behind, deviceLineHead(name, code)) ||
      !(behind.starts_with(',') || behind == "}") || !nlohmann::json::accept(device))
    return;
  off_t const from = at + static_cast<off_t>(rest.data() - line.data());
  entry_[name] = {std::string(stamp.substr(1, stamp.size() - 2)), {code, from, device.size()}};
}

std::optional<FleetLog::Found> FleetLog::find(std::string const& name,
                                              std::string const& stamp) const {
  auto const at = entry_.find(jsonText(name));
  if (at == entry_.end() || stamp.empty() || at->second.stamp != stamp) return std::nullopt;
  return at->second.found;
}

std::string FleetLog::line(Found const& found) const {
  std::string out(found.size, '\0');
  for (size_t done = 0; done < out.size();) {
    ssize_t const n =
        pread(fd_, out.data() + done, out.size() - done, found.at + static_cast<off_t>(done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) fail(n < 0 ? errno : EIO);
    done += static_cast<size_t>(n);
  }
  return out;
}

void FleetLog::append(std::string const& name, std::string const& stamp, int code,
                      std::string const& line) {
  write("{\"stamp\":\"" + stamp + "\",\"file\":" + jsonText(name) +
        ",\"code\":" + std::to_string(code) + ",\"device\":" + line + "}\n");
}

void FleetLog::write(std::string const& text) {
  for (size_t done = 0; done < text.size();) {
    ssize_t const n = ::write(fd_, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) fail(errno);
    done += static_cast<size_t>(n);
  }
}

}  // namespace NaxelTool
