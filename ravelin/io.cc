#include "io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace ravelin {

Fd& Fd::operator=(Fd&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = other.release();
  }
  return *this;
}

Fd::~Fd() {
  if (fd_ >= 0) ::close(fd_);
}

ByteBuffer::ByteBuffer(size_t n) : data(new char[n]), size(n) {}

Status OpenInput(const char* path, Fd* fd, uint64_t* size) {
  // O_NONBLOCK: a FIFO must be refused, not waited on.
  Fd file(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file.valid()) return Status::kInputMissing;
  struct stat st;
  if (::fstat(file.get(), &st) != 0 || !S_ISREG(st.st_mode)) return Status::kInputMissing;
  ::posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  *size = static_cast<uint64_t>(st.st_size);
  *fd = std::move(file);
  return Status::kOk;
}

Status ReadAt(int fd, uint64_t offset, char* dst, size_t n, size_t* got) {
  size_t done = 0;
  while (done < n) {
    const ssize_t r = ::pread(fd, dst + done, n - done, static_cast<off_t>(offset + done));
    if (r < 0) {
      if (errno == EINTR) continue;
      return Status::kRead;
    }
    if (r == 0) break;
    done += static_cast<size_t>(r);
  }
  *got = done;
  return Status::kOk;
}

Status WriteAt(int fd, uint64_t offset, const char* p, size_t n) {
  while (n > 0) {
    const ssize_t w = ::pwrite(fd, p, n, static_cast<off_t>(offset));
    if (w < 0) {
      if (errno == EINTR) continue;
      return Status::kWrite;
    }
    if (w == 0) return Status::kWrite;
    p += w;
    n -= static_cast<size_t>(w);
    offset += static_cast<uint64_t>(w);
  }
  return Status::kOk;
}

namespace {

// A small file gets a buffer its size (the block still grows no larger
// than asked): most files handed to a rewrite are small.
size_t BlockFor(int fd, uint64_t begin, size_t block_size) {
  constexpr size_t kSmallest = 4096;
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) return block_size;
  const auto size = static_cast<uint64_t>(st.st_size);
  const uint64_t left = size > begin ? size - begin : 0;
  return static_cast<size_t>(std::min<uint64_t>(block_size, std::max<uint64_t>(kSmallest, left + 1)));
}

}  // namespace

Input::Input(int fd, uint64_t begin, size_t block_size)
    : fd_(fd), begin_(begin), next_(begin), offset_(begin), buf_(BlockFor(fd, begin, block_size)) {}

Status Input::Next(bool* more) {
  offset_ = next_;
  size_t got = 0;
  RAVELIN_RETURN_IF_ERROR(ReadAt(fd_, next_, buf_.data.get(), buf_.size, &got));
  len_ = got;
  next_ += got;
  *more = got > 0;
  return Status::kOk;
}

Output::Output(int fd, uint64_t start, size_t buffer_size) : fd_(fd), file_pos_(start), buf_(buffer_size) {}

Status Output::Flush() {
  if (len_ > 0 && Ok(status_)) {
    status_ = WriteAt(fd_, file_pos_, buf_.data.get(), len_);
    file_pos_ += len_;
  }
  len_ = 0;
  return status_;
}

void Output::Write(const char* p, size_t n) {
  if (n == 0 || !Ok(status_)) return;
  if (n >= buf_.size / 2) {
    // Large pieces go straight to the file: copying them through the buffer
    // would only cost time.
    if (!Ok(Flush())) return;
    status_ = WriteAt(fd_, file_pos_, p, n);
    file_pos_ += n;
    return;
  }
  if (len_ + n > buf_.size && !Ok(Flush())) return;
  std::memcpy(buf_.data.get() + len_, p, n);
  len_ += n;
}

void Output::Fill(char c, uint64_t n) {
  while (n > 0 && Ok(status_)) {
    if (len_ == buf_.size) (void)Flush();
    const size_t k = static_cast<size_t>(std::min<uint64_t>(n, buf_.size - len_));
    std::memset(buf_.data.get() + len_, c, k);
    len_ += k;
    n -= k;
  }
}

void Output::TruncateTo(uint64_t offset) {
  if (!Ok(status_)) return;
  if (offset >= file_pos_) {
    len_ = static_cast<size_t>(std::min<uint64_t>(offset - file_pos_, len_));
    return;
  }
  if (::ftruncate(fd_, static_cast<off_t>(offset)) != 0) {
    status_ = Status::kWrite;
    return;
  }
  file_pos_ = offset;
  len_ = 0;
}

template <typename Emit>
void Output::ForEachInputPiece(const Input& in, uint64_t begin, uint64_t end, Emit emit) {
  constexpr size_t kRereadSize = size_t{64} << 10;
  const uint64_t block_begin = in.offset();
  const uint64_t block_end = block_begin + in.size();
  while (begin < end && Ok(status_)) {
    if (begin >= block_begin && begin < block_end) {
      const uint64_t stop = std::min(end, block_end);
      emit(in.data() + (begin - block_begin), static_cast<size_t>(stop - begin));
      begin = stop;
      continue;
    }
    // Bytes that left the block: read them from the file again.
    if (!reread_) reread_.reset(new char[kRereadSize]);
    uint64_t stop = std::min<uint64_t>(end, begin + kRereadSize);
    if (begin < block_begin) stop = std::min(stop, block_begin);
    size_t got = 0;
    const Status s = ReadAt(in.fd(), begin, reread_.get(), static_cast<size_t>(stop - begin), &got);
    if (!Ok(s) || got != stop - begin) {
      status_ = Ok(s) ? Status::kRead : s;
      return;
    }
    emit(reread_.get(), got);
    begin = stop;
  }
}

void Output::CopyFrom(const Input& in, uint64_t begin, uint64_t end) {
  if (begin >= in.offset() && end <= in.offset() + in.size()) {
    Write(in.data() + (begin - in.offset()), static_cast<size_t>(end - begin));  // the usual case
    return;
  }
  ForEachInputPiece(in, begin, end, [this](const char* p, size_t n) { Write(p, n); });
}

void Output::CopyDoublingQuotes(const Input& in, uint64_t begin, uint64_t end) {
  ForEachInputPiece(in, begin, end, [this](const char* p, size_t n) {
    const char* e = p + n;
    while (p < e) {
      const char* q = static_cast<const char*>(std::memchr(p, '"', static_cast<size_t>(e - p)));
      if (q == nullptr) {
        Write(p, static_cast<size_t>(e - p));
        break;
      }
      Write(p, static_cast<size_t>(q - p) + 1);
      Put('"');
      p = q + 1;
    }
  });
}

void Output::CopyFile(int fd, uint64_t begin, uint64_t end) {
  if (!Ok(Flush())) return;
  auto in_off = static_cast<loff_t>(begin);
  auto out_off = static_cast<loff_t>(file_pos_);
  const auto stop = static_cast<loff_t>(end);
  bool by_kernel = true;
  while (in_off < stop) {
    const size_t want = static_cast<size_t>(std::min<loff_t>(stop - in_off, loff_t{1} << 30));
    if (by_kernel) {
      const ssize_t r = ::copy_file_range(fd, &in_off, fd_, &out_off, want, 0);
      if (r > 0) continue;
      if (r == 0) {
        status_ = Status::kRead;  // the file shrank under us
        break;
      }
      if (errno == EINTR) continue;
      if (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP || errno == EBADF) {
        by_kernel = false;  // not between these files: copy through the buffer
        continue;
      }
      status_ = Status::kWrite;
      break;
    }
    size_t got = 0;
    status_ = ReadAt(fd, static_cast<uint64_t>(in_off), buf_.data.get(), std::min(want, buf_.size), &got);
    if (Ok(status_) && got == 0) status_ = Status::kRead;
    if (!Ok(status_)) break;
    status_ = WriteAt(fd_, static_cast<uint64_t>(out_off), buf_.data.get(), got);
    if (!Ok(status_)) break;
    in_off += static_cast<loff_t>(got);
    out_off += static_cast<loff_t>(got);
  }
  file_pos_ = static_cast<uint64_t>(out_off);
}

namespace {

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

std::string BaseOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// A name that no other writer picks at the same moment; O_EXCL settles the
// rare clash.
std::string UniqueSuffix() {
  static std::atomic<uint64_t> counter{0};
  struct timespec ts;
  ::clock_gettime(CLOCK_REALTIME, &ts);
  uint64_t x = (static_cast<uint64_t>(ts.tv_nsec) << 20) ^ (static_cast<uint64_t>(::getpid()) << 40) ^
               static_cast<uint64_t>(ts.tv_sec) ^ (counter.fetch_add(1) * 0x9E3779B97F4A7C15ull);
  static constexpr char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
  std::string s;
  for (int i = 0; i < 8; ++i) {
    s += kDigits[x % 36];
    x /= 36;
  }
  return s;
}

}  // namespace

PendingFile::~PendingFile() {
  if (!committed_ && !temp_path_.empty()) {
    fd_ = Fd();
    ::unlink(temp_path_.c_str());
  }
}

Status PendingFile::Create(const char* path) {
  final_path_ = path;
  struct stat st;
  if (::lstat(path, &st) == 0 && S_ISLNK(st.st_mode)) {
    char resolved[PATH_MAX];
    if (::realpath(path, resolved) != nullptr) final_path_ = resolved;
  }
  if (!final_path_.empty() && final_path_.back() == '/') return Status::kOutput;
  const bool exists = ::stat(final_path_.c_str(), &st) == 0;
  if (exists) {
    if (S_ISDIR(st.st_mode)) return Status::kOutput;
    // A file its owner made read-only is not ours to replace.
    if (::access(final_path_.c_str(), W_OK) != 0) return Status::kOutput;
  }
  folder_ = FolderOf(final_path_);
  const std::string prefix = folder_ + "/." + BaseOf(final_path_) + ".ravelin-";
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string candidate = prefix + UniqueSuffix();
    Fd fd(::open(candidate.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!fd.valid()) {
      if (errno == EEXIST || errno == EINTR) continue;
      return Status::kOutput;
    }
    if (exists) (void)::fchmod(fd.get(), st.st_mode & 07777);
    fd_ = std::move(fd);
    temp_path_ = std::move(candidate);
    return Status::kOk;
  }
  return Status::kOutput;
}

Status PendingFile::Commit() {
  const int fd = fd_.release();
  if (::close(fd) != 0) return Status::kWrite;
  if (::rename(temp_path_.c_str(), final_path_.c_str()) != 0) return Status::kWrite;
  committed_ = true;
  return Status::kOk;
}

Status OpenScratch(const std::string& folder, Fd* fd) {
  Fd file(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (!file.valid()) {
    // Not every file system has unnamed files: name one and unlink it.
    std::string path = folder + "/.ravelin-scratch-XXXXXX";
    file = Fd(::mkostemp(path.data(), O_CLOEXEC));
    if (!file.valid()) return Status::kOutput;
    ::unlink(path.c_str());
  }
  *fd = std::move(file);
  return Status::kOk;
}

}  // namespace ravelin
