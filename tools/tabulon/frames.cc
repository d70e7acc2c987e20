#include "frames.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace tabulon::cli {

namespace {

void PutU32(std::string& out, uint32_t value) {
  out += static_cast<char>(value >> 24);
  out += static_cast<char>(value >> 16);
  out += static_cast<char>(value >> 8);
  out += static_cast<char>(value);
}

uint32_t GetU32(const char* p) {
  const auto* u = reinterpret_cast<const unsigned char*>(p);
  return (uint32_t{u[0]} << 24) | (uint32_t{u[1]} << 16) | (uint32_t{u[2]} << 8) | uint32_t{u[3]};
}

}  // namespace

std::string EncodeFrame(const Message& message) {
  std::string body;
  body += message.type;
  PutU32(body, static_cast<uint32_t>(message.fields.size()));
  for (const std::string& field : message.fields) {
    PutU32(body, static_cast<uint32_t>(field.size()));
    body += field;
  }
  std::string frame;
  PutU32(frame, static_cast<uint32_t>(body.size()));
  return frame + body;
}

bool DecodeBody(const std::string& body, Message& message, std::string& error) {
  if (body.size() < 5) {
    error = "a frame of " + std::to_string(body.size()) + " bytes is too short for a message";
    return false;
  }
  message.type = body[0];
  message.fields.clear();
  const uint32_t count = GetU32(body.data() + 1);
  size_t at = 5;
  // Each field takes at least its 4-byte length: a count the body cannot
  // hold is refused before anything is reserved for it.
  if (count > (body.size() - at) / 4) {
    error = "a frame announces " + std::to_string(count) + " fields but cannot hold them";
    return false;
  }
  message.fields.reserve(count);
  for (uint32_t i = 0; i < count; ++i) {
    if (body.size() - at < 4) {
      error = "a frame ends inside the length of field " + std::to_string(i + 1);
      return false;
    }
    const uint32_t size = GetU32(body.data() + at);
    at += 4;
    if (size > body.size() - at) {
      error = "field " + std::to_string(i + 1) + " of a frame runs past its end";
      return false;
    }
    message.fields.emplace_back(body, at, size);
    at += size;
  }
  if (at != body.size()) {
    error = "a frame has " + std::to_string(body.size() - at) + " bytes after its last field";
    return false;
  }
  return true;
}

FrameReader::~FrameReader() { CloseFds(); }

void FrameReader::CloseFds() { CloseAll(fds_); }

FrameReader::State FrameReader::Fail(std::string error) {
  error_ = std::move(error);
  return State::kError;
}

size_t FrameReader::Wanted() const {
  if (complete_) return 0;
  if (header_have_ < sizeof header_) return sizeof header_ - header_have_;
  return body_size_ - body_.size();
}

FrameReader::State FrameReader::Feed(const char* data, size_t size) {
  if (complete_ || size > Wanted()) return Fail("more bytes were fed than the frame takes");
  while (size > 0 && header_have_ < sizeof header_) {
    header_[header_have_++] = *data++;
    --size;
    if (header_have_ == sizeof header_) {
      body_size_ = GetU32(header_);
      if (body_size_ > kMaxFrame)
        return Fail("a frame of " + std::to_string(body_size_) + " bytes is larger than the limit of " +
                    std::to_string(kMaxFrame));
      body_.clear();
      body_.reserve(body_size_);
    }
  }
  body_.append(data, size);
  if (header_have_ < sizeof header_ || body_.size() < body_size_) return State::kNeedMore;
  std::string error;
  if (!DecodeBody(body_, message_, error)) return Fail(error);
  complete_ = true;
  return State::kComplete;
}

FrameReader::State FrameReader::ReadFrom(int fd) {
  if (complete_) return State::kComplete;
  char buffer[1 << 16];
  const size_t want = std::min(Wanted(), sizeof buffer);
  iovec iov{buffer, want};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * (kMaxFrameFds + 1))];
  msghdr msg{};
  msg.msg_iov = &iov;
  msg.msg_iovlen = 1;
  msg.msg_control = control;
  msg.msg_controllen = sizeof control;
  ssize_t n;
  do {
    n = recvmsg(fd, &msg, MSG_CMSG_CLOEXEC);
  } while (n < 0 && errno == EINTR);
  if (n < 0) return Fail(std::string("cannot read: ") + std::strerror(errno));
  for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
    if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS) continue;
    const size_t count = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (size_t i = 0; i < count; ++i) {
      int received;
      std::memcpy(&received, CMSG_DATA(c) + i * sizeof(int), sizeof(int));
      fds_.push_back(received);
    }
  }
  if ((msg.msg_flags & MSG_CTRUNC) != 0 || fds_.size() > kMaxFrameFds)
    return Fail("a frame came with more than " + std::to_string(kMaxFrameFds) + " descriptors");
  if (n == 0) {
    if (header_have_ == 0) return State::kClosed;
    return Fail("the stream ended inside a frame");
  }
  return Feed(buffer, static_cast<size_t>(n));
}

FrameReader::State FrameReader::ReadWhole(int fd) {
  for (;;) {
    const State state = ReadFrom(fd);
    if (state != State::kNeedMore) return state;
  }
}

Message FrameReader::TakeMessage() {
  Message taken = std::move(message_);
  message_ = Message{};
  complete_ = false;
  header_have_ = 0;
  body_.clear();
  body_size_ = 0;
  return taken;
}

std::vector<int> FrameReader::TakeFds() { return std::exchange(fds_, {}); }

bool SendFrame(int fd, const Message& message, const std::vector<int>& fds) {
  const std::string frame = EncodeFrame(message);
  size_t sent = 0;
  bool first = true;
  while (sent < frame.size()) {
    iovec iov{const_cast<char*>(frame.data() + sent), frame.size() - sent};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * kMaxFrameFds)];
    if (first && !fds.empty()) {
      if (fds.size() > kMaxFrameFds) return false;
      msg.msg_control = control;
      msg.msg_controllen = CMSG_SPACE(sizeof(int) * fds.size());
      cmsghdr* c = CMSG_FIRSTHDR(&msg);
      c->cmsg_level = SOL_SOCKET;
      c->cmsg_type = SCM_RIGHTS;
      c->cmsg_len = CMSG_LEN(sizeof(int) * fds.size());
      std::memcpy(CMSG_DATA(c), fds.data(), sizeof(int) * fds.size());
    }
    const ssize_t n = sendmsg(fd, &msg, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
    first = false;
  }
  return true;
}

void CloseAll(std::vector<int>& fds) {
  for (const int fd : fds) {
    if (fd >= 0) close(fd);
  }
  fds.clear();
}

}  // namespace tabulon::cli
