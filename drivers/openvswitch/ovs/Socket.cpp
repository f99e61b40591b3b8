#include "ovs/Socket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace NaxelOvs {

namespace {

std::string reason(int error) { return std::strerror(error); }

/// More than any reply of ours that is not taken apart piece by piece.
constexpr size_t mostReceived = size_t{64} << 20;

}  // namespace

Socket::Socket(std::string const& path, std::chrono::milliseconds patience)
    : path_(path), patience_(patience) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path)
    throw SwitchError{"the path " + path + " is longer than the " +
                      std::to_string(sizeof address.sun_path - 1) + " bytes of a socket's name"};
  std::memcpy(address.sun_path, path.data(), path.size());
  fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd_ < 0) throw SwitchError{"no socket can be made: " + reason(errno)};
  if (::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    int const error = errno;
    ::close(fd_);
    bool const absent = error == ENOENT || error == ECONNREFUSED || error == ENOTDIR;
    throw SwitchError{(absent ? "there is no switch at " + path
                              : "the switch at " + path + " cannot be reached") +
                      ": " + reason(error)};
  }
}

Socket::~Socket() { ::close(fd_); }

short Socket::wait(short events) {
  pollfd p{fd_, static_cast<short>(events | POLLIN), 0};
  int const ready = ::poll(&p, 1, static_cast<int>(patience_.count()));
  if (ready == 0)
    throw SwitchError{"the switch at " + path_ + " has been silent for " +
                      std::to_string(patience_.count()) + " ms"};
  // An interrupted wait is begun anew by whoever waits.
  return ready < 0 ? short{0} : p.revents;
}

void Socket::take() {
  char bytes[65536];
  ssize_t const got = ::recv(fd_, bytes, sizeof bytes, 0);
  if (got > 0) received_.append(bytes, static_cast<size_t>(got));
  if (got == 0) throw SwitchError{"the switch at " + path_ + " has closed the connection"};
  if (got < 0 && errno != EAGAIN && errno != EINTR)
    throw SwitchError{"the connection to the switch at " + path_ + " has failed: " + reason(errno)};
  if (received_.size() > mostReceived)
    throw SwitchError{"the switch at " + path_ + " says more than was asked"};
}

void Socket::send(std::string_view bytes) {
  while (!bytes.empty()) {
    short const ready = wait(POLLOUT);
    if (ready & POLLIN) take();
    if (!(ready & (POLLOUT | POLLERR | POLLHUP))) continue;
    ssize_t const sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent > 0) bytes.remove_prefix(static_cast<size_t>(sent));
    if (sent < 0 && errno != EAGAIN && errno != EINTR)
      throw SwitchError{"the connection to the switch at " + path_ +
                        " has failed: " + reason(errno)};
  }
}

void Socket::receive() {
  if (wait(0) != 0) take();
}

}  // namespace NaxelOvs
