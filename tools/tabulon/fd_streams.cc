#include "fd_streams.h"

#include <unistd.h>

#include <cerrno>

namespace tabulon::cli {

FdOutBuf::FdOutBuf(int fd) : fd_(fd), buffer_(1 << 16) { setp(buffer_.data(), buffer_.data() + buffer_.size()); }

FdOutBuf::~FdOutBuf() { Drain(); }

bool FdOutBuf::Drain() {
  const char* data = pbase();
  size_t left = static_cast<size_t>(pptr() - pbase());
  bool ok = true;
  while (left > 0) {
    const ssize_t n = write(fd_, data, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (errno == EPIPE) broken_pipe_ = true;
      ok = false;
      break;
    }
    data += n;
    left -= static_cast<size_t>(n);
  }
  setp(buffer_.data(), buffer_.data() + buffer_.size());
  return ok;
}

FdOutBuf::int_type FdOutBuf::overflow(int_type c) {
  if (!Drain()) return traits_type::eof();
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  *pptr() = traits_type::to_char_type(c);
  pbump(1);
  return c;
}

int FdOutBuf::sync() { return Drain() ? 0 : -1; }

FdInBuf::FdInBuf(int fd) : fd_(fd), buffer_(1 << 16) {}

FdInBuf::int_type FdInBuf::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  ssize_t n;
  do {
    n = read(fd_, buffer_.data(), buffer_.size());
  } while (n < 0 && errno == EINTR);
  if (n <= 0) return traits_type::eof();
  setg(buffer_.data(), buffer_.data(), buffer_.data() + n);
  return traits_type::to_int_type(*gptr());
}

}  // namespace tabulon::cli
