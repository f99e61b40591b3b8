#pragma once

/// Measuring in a process of its own, whose memory is not what other measurements have left.

#include <stdexcept>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>

namespace Bench {

/// Runs `work(out)` in a child process and takes its result over. False where the child died, and `out`
/// is unchanged then. What `work` throws must not leave it.
template <class Result, class Work>
bool runApart(Result& out, Work work) {
  static_assert(std::is_trivially_copyable_v<Result>);
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  pid_t const child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0) {
    work(out);
    ssize_t const written = write(ends[1], &out, sizeof out);
    _exit(written == sizeof out ? 0 : 1);
  }
  close(ends[1]);
  Result result;
  bool const complete = read(ends[0], &result, sizeof result) == sizeof result;
  close(ends[0]);
  waitpid(child, nullptr, 0);
  if (complete) out = result;
  return complete;
}

}  // namespace Bench
