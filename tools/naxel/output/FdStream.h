#pragma once

/// A stream over a file descriptor that knows why a write has failed.

#include <array>
#include <ostream>
#include <streambuf>

namespace NaxelTool {

class FdStream : public std::ostream {
 public:
  /// The descriptor stays the caller's.
  explicit FdStream(int fd) : std::ostream(nullptr), buffer_(fd) { rdbuf(&buffer_); }
  /// Does not flush: what has not been flushed may be what no longer can be written.
  ~FdStream() override;

  /// The system's error of the first write that failed; 0 if none did. Behind it nothing is written.
  int error() const { return buffer_.error(); }

 private:
  class Buffer : public std::streambuf {
   public:
    explicit Buffer(int fd) : fd_(fd) { setp(bytes_.data(), bytes_.data() + bytes_.size()); }
    int error() const { return error_; }

   protected:
    int_type overflow(int_type c) override;
    int sync() override;

   private:
    int fd_;
    int error_ = 0;
    std::array<char, 1 << 16> bytes_;
  };

  Buffer buffer_;
};

}  // namespace NaxelTool
