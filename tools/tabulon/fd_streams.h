// Standard streams over descriptors that a worker was handed for one command
// line (a client's standard input, output and error). Each request gets
// fresh buffers, so nothing a command left unread or unflushed reaches the
// next one.
#pragma once

#include <streambuf>
#include <vector>

namespace tabulon::cli {

class FdOutBuf : public std::streambuf {
 public:
  explicit FdOutBuf(int fd);
  ~FdOutBuf() override;
  // A write found the reading end closed (EPIPE): the command line would
  // have been ended by SIGPIPE there.
  bool broken_pipe() const { return broken_pipe_; }

 protected:
  int_type overflow(int_type c) override;
  int sync() override;

 private:
  bool Drain();
  int fd_;
  std::vector<char> buffer_;
  bool broken_pipe_ = false;
};

class FdInBuf : public std::streambuf {
 public:
  explicit FdInBuf(int fd);

 protected:
  int_type underflow() override;

 private:
  int fd_;
  std::vector<char> buffer_;
};

}  // namespace tabulon::cli
