#pragma once

/// A stream to a socket of this machine, with a limit on how long anything may take. It never blocks for longer: the
/// other side may be gone, stopped, or somebody else.

#include "mox/Export.h"

#include <chrono>
#include <string>
#include <string_view>

namespace NaxelOvs {

/// What has gone wrong between us and a switch, in words: it is not there, it is silent, it refuses. Thrown within
/// this library; nothing of it leaves the public classes, which have texts instead.
struct SwitchError {
  std::string text;
};

class Socket {
 public:
  /// Connects to a path. Throws SwitchError.
  Socket(std::string const& path, std::chrono::milliseconds patience);
  Socket(Socket const&) = delete;
  Socket& operator=(Socket const&) = delete;
  ~Socket();

  /// Sends all of it, and meanwhile takes in what comes, so that neither side waits for the other to read. Throws
  /// SwitchError where nothing moves for as long as our patience lasts.
  void send(std::string_view bytes);
  /// Waits for more, and appends it to received(). Throws the same, also at the end of the stream.
  void receive();
  /// The same of what is there, without waiting.
  void take();
  std::string& received() { return received_; }
  void patienceIs(std::chrono::milliseconds patience) { patience_ = patience; }

 private:
  /// Waits until `events` or input is possible.
  short wait(short events);

  std::string path_;
  std::chrono::milliseconds patience_;
  int fd_ = -1;
  std::string received_;
};

}  // namespace NaxelOvs
