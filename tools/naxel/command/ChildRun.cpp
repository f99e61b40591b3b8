#include "command/ChildRun.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace NaxelTool {

namespace {

/// Where the program is, also after its file has been exchanged.
constexpr char ownProgram[] = "/proc/self/exe";
constexpr int cannotStart = 127;

[[noreturn]] void failStart(int error) {
  throw std::system_error(error, std::generic_category(), "no process can be started");
}

/// Behind the fork: nothing but system calls.
[[noreturn]] void becomeChild(char* const* arguments, int out, int err, pid_t parent,
                              sigset_t const& mask) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(cannotStart);
  setpgid(0, 0);
  int const nothing = open("/dev/null", O_RDONLY);
  if (nothing < 0 || dup2(nothing, STDIN_FILENO) < 0 || dup2(out, STDOUT_FILENO) < 0 ||
      dup2(err, STDERR_FILENO) < 0)
    _exit(cannotStart);
  if (nothing != STDIN_FILENO) close(nothing);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  execv(ownProgram, arguments);
  _exit(cannotStart);
}

}  // namespace

ChildRun::ChildRun(std::vector<std::string> const& arguments, Limits limits, sigset_t const& mask) {
  std::vector<char*> words;
  words.reserve(arguments.size() + 2);
  static std::string name = "naxel";
  words.push_back(name.data());
  std::vector<std::string> copies = arguments;
  for (std::string& word : copies) words.push_back(word.data());
  words.push_back(nullptr);
  std::array<std::array<int, 2>, 2> pipes{{{-1, -1}, {-1, -1}}};
  int error = 0;
  for (auto& ends : pipes)
    if (!error && pipe2(ends.data(), O_CLOEXEC) != 0) error = errno;
  pid_t const parent = getpid();
  if (!error && (pid_ = fork()) < 0) error = errno;
  if (!error && pid_ == 0) becomeChild(words.data(), pipes[0][1], pipes[1][1], parent, mask);
  for (size_t i : {0, 1}) {
    if (pipes[i][1] >= 0) close(pipes[i][1]);
    stream_[i] = {pipes[i][0], i ? limits.err : limits.out};
  }
  if (!error) return;
  for (Stream const& stream : stream_)
    if (stream.fd >= 0) close(stream.fd);
  failStart(error);
}

ChildRun::~ChildRun() {
  kill();
  wait();
  for (Stream const& stream : stream_)
    if (stream.fd >= 0) close(stream.fd);
}

void ChildRun::read(size_t i) {
  Stream& stream = stream_[i];
  std::array<char, 1 << 16> chunk;
  ssize_t const n = ::read(stream.fd, chunk.data(), chunk.size());
  if (n < 0 && errno == EINTR) return;
  if (n <= 0) {
    close(stream.fd);
    stream.fd = -1;
    return;
  }
  auto const size = static_cast<size_t>(n);
  size_t const room = std::min(size, stream.limit - stream.text.size());
  stream.text.append(chunk.data(), room);
  stream.cut = stream.cut || room < size;
}

void ChildRun::kill() {
  if (pid_ > 0) ::kill(pid_, SIGKILL);
}

int ChildRun::wait() {
  int status = 0;
  while (pid_ > 0 && waitpid(pid_, &status, 0) < 0 && errno == EINTR) continue;
  pid_ = -1;
  return status;
}

}  // namespace NaxelTool
