// Files as the rewrites see them: an input read in large blocks that can be
// read again at any offset, an output written through a buffer that can be
// cut back, and the temporary file that replaces an output in one rename.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "status.h"

namespace ravelin {

// Large blocks keep the system-call count low; two of them stay well inside
// the memory a rewrite may use.
inline constexpr size_t kBlockSize = size_t{4} << 20;

// A file descriptor that closes itself.
class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(other.release()) {}
  Fd& operator=(Fd&& other) noexcept;
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  ~Fd();

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  int fd_ = -1;
};

// A buffer of bytes that does not zero itself.
struct ByteBuffer {
  explicit ByteBuffer(size_t size);
  std::unique_ptr<char[]> data;
  size_t size;
};

// Opens `path` for reading; it must be a regular file.
Status OpenInput(const char* path, Fd* fd, uint64_t* size);

// Reads exactly `n` bytes at `offset` (fewer only at the end of the file;
// *got tells how many).
Status ReadAt(int fd, uint64_t offset, char* dst, size_t n, size_t* got);

// Writes all of [p, p+n) at `offset`.
Status WriteAt(int fd, uint64_t offset, const char* p, size_t n);

// The part of a file from `begin` to its end, one block at a time. The
// current block may be changed in place by its reader.
class Input {
 public:
  Input(int fd, uint64_t begin, size_t block_size = kBlockSize);

  // Loads the next block; *more is false at the end of the file.
  Status Next(bool* more);
  char* data() { return buf_.data.get(); }
  const char* data() const { return buf_.data.get(); }
  size_t size() const { return len_; }
  // File offset of data()[0].
  uint64_t offset() const { return offset_; }
  int fd() const { return fd_; }
  uint64_t begin() const { return begin_; }

 private:
  int fd_;
  uint64_t begin_;
  uint64_t next_;
  uint64_t offset_;
  ByteBuffer buf_;
  size_t len_ = 0;
};

// Buffered writing at increasing offsets of a file, starting at `start`.
// The first failure sticks: later writes do nothing and status() keeps it.
class Output {
 public:
  Output(int fd, uint64_t start, size_t buffer_size = size_t{1} << 20);

  void Write(const char* p, size_t n);
  void Put(char c) {
    if (len_ == buf_.size) (void)Flush();
    buf_.data[len_++] = c;
  }
  void Fill(char c, uint64_t n);
  // Copies bytes [begin, end) of the input's file: from its current block
  // where they are still there, else by reading the file again.
  void CopyFrom(const Input& in, uint64_t begin, uint64_t end);
  // Bytes [begin, end) of the input's file with every '"' doubled.
  void CopyDoublingQuotes(const Input& in, uint64_t begin, uint64_t end);
  // Bytes [begin, end) of the file `fd`, copied by the kernel where it can.
  void CopyFile(int fd, uint64_t begin, uint64_t end);

  // File offset at which the next byte will land.
  uint64_t offset() const { return file_pos_ + len_; }
  // Forgets everything written at or after `offset`.
  void TruncateTo(uint64_t offset);
  // Writes out the buffer; returns status().
  Status Flush();
  Status status() const { return status_; }
  int fd() const { return fd_; }

 private:
  template <typename Emit>
  void ForEachInputPiece(const Input& in, uint64_t begin, uint64_t end, Emit emit);

  int fd_;
  uint64_t file_pos_;  // file offset of buf_[0]
  ByteBuffer buf_;
  size_t len_ = 0;
  Status status_ = Status::kOk;
  std::unique_ptr<char[]> reread_;  // for CopyFrom of bytes no longer in a block
};

// The temporary file that becomes `path` on Commit(); removed otherwise.
class PendingFile {
 public:
  PendingFile() = default;
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;
  ~PendingFile();

  // Checks that `path` can be written and creates the temporary file beside
  // it (beside the file it points to, if it is a symbolic link).
  Status Create(const char* path);
  int fd() const { return fd_.get(); }
  const std::string& folder() const { return folder_; }
  // Closes the file and renames it over the final path.
  Status Commit();

 private:
  Fd fd_;
  std::string final_path_;
  std::string temp_path_;
  std::string folder_;
  bool committed_ = false;
};

// An unnamed file in `folder` that vanishes when closed, for intermediate
// text (UTF-16 files are rewritten through UTF-8 copies).
Status OpenScratch(const std::string& folder, Fd* fd);

}  // namespace ravelin
