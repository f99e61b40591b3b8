#pragma once

/// What becomes of a run that a signal ends: temporary files go away, and whoever started it sees by which
/// signal it ended. A fault of the program ends it with the exit code for that.

#include <csignal>
#include <string>

namespace NaxelTool {

/// From now on the end by SIGHUP, SIGINT, SIGTERM or SIGPIPE leaves no temporary file behind. A signal that
/// was ignored stays so. `json` is the form of the message about a fault.
void signalsAreHandled(bool json);
/// Whether a line stands on the terminal that goes away with the run, however that ends.
void passingLineIs(bool shown);

/// While it lives, a signal that would end the run is only noted, so that what the run has started can be ended first.
/// The signals come in while somebody waits with waitMask(), as ppoll() does, and at no other time. Behind it
/// they do what they did, those that are pending at once. One at a time.
class SignalsNoted {
 public:
  SignalsNoted();
  SignalsNoted(SignalsNoted const&) = delete;
  SignalsNoted& operator=(SignalsNoted const&) = delete;
  ~SignalsNoted();

  /// The first signal that came; 0 if none did.
  static int number();
  sigset_t const& waitMask() const { return before_; }

 private:
  sigset_t before_;
};

/// A file of which nothing is to stay if a signal ends the run; up to four at a time.
class TemporaryFile {
 public:
  /// Makes a file that did not exist, in the folder of `beside`, open for writing and readable by its
  /// owner alone. fd() is negative and errno says why where that fails.
  explicit TemporaryFile(std::string const& beside);
  TemporaryFile(TemporaryFile const&) = delete;
  TemporaryFile& operator=(TemporaryFile const&) = delete;
  /// Closes it, and removes it unless it has been moved.
  ~TemporaryFile();

  int fd() const { return fd_; }
  /// Takes the place of `path`, in the same folder. False and errno where that fails.
  bool moveTo(std::string const& path);

 private:
  void forget();

  std::string path_;
  int fd_ = -1;
  int slot_ = -1;
};

}  // namespace NaxelTool
