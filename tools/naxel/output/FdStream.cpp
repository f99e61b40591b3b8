#include "output/FdStream.h"

#include <cerrno>
#include <unistd.h>

namespace NaxelTool {

FdStream::~FdStream() = default;

FdStream::Buffer::int_type FdStream::Buffer::overflow(int_type c) {
  if (sync() != 0) return traits_type::eof();
  if (!traits_type::eq_int_type(c, traits_type::eof())) sputc(traits_type::to_char_type(c));
  return traits_type::not_eof(c);
}

int FdStream::Buffer::sync() {
  for (char const* at = pbase(); at < pptr() && !error_;) {
    ssize_t const n = ::write(fd_, at, static_cast<size_t>(pptr() - at));
    if (n >= 0)
      at += n;
    else if (errno != EINTR)
      error_ = errno;
  }
  setp(bytes_.data(), bytes_.data() + bytes_.size());
  return error_ ? -1 : 0;
}

}  // namespace NaxelTool
