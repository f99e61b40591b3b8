#pragma once

/// A run of this program in a process of its own, whose outputs come through pipes.

#include <array>
#include <chrono>
#include <csignal>
#include <string>
#include <sys/types.h>
#include <vector>

namespace NaxelTool {

class ChildRun {
 public:
  /// The bytes that one output is kept of. What goes beyond is read and thrown away, and isCut() tells.
  struct Limits {
    size_t out;
    size_t err;
  };

  /// Starts it with these arguments, with nothing on standard input, signals blocked as in `mask`, and in a process
  /// group of its own, so that a terminal signals the parent alone. It ends with its parent. Throws
  /// std::system_error.
  ChildRun(std::vector<std::string> const& arguments, Limits limits, sigset_t const& mask);
  ChildRun(ChildRun const&) = delete;
  ChildRun& operator=(ChildRun const&) = delete;
  /// Kills it if it has not been waited for.
  ~ChildRun();

  /// Where its standard output (0) and standard error (1) can be read; -1 at the end.
  int descriptor(size_t stream) const { return stream_[stream].fd; }
  /// Reads what has come, once; there must be something or the end.
  void read(size_t stream);
  bool hasEnded() const { return stream_[0].fd < 0 && stream_[1].fd < 0; }

  std::string const& out() const { return stream_[0].text; }
  std::string const& err() const { return stream_[1].text; }
  bool isCut() const { return stream_[0].cut; }

  void kill();
  /// Waits for the end of the process and returns its wait status.
  int wait();

  std::chrono::steady_clock::time_point start() const { return start_; }

 private:
  struct Stream {
    int fd = -1;
    size_t limit = 0;
    std::string text = {};
    bool cut = false;
  };

  std::array<Stream, 2> stream_;
  pid_t pid_ = -1;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace NaxelTool
