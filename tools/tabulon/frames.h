// The messages between a client, the server and its workers: length-prefixed
// frames over a Unix domain socket, with open descriptors (the client's
// standard streams) passed beside them.
//
// A frame is a 4-byte big-endian length N, then N bytes: a type byte, a
// 4-byte big-endian field count, and each field as a 4-byte big-endian length
// and its bytes. Nothing may follow the last field. A frame larger than
// kMaxFrame is refused before it is read, so a confused or hostile peer
// cannot make the reader grow without bound.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tabulon::cli {

inline constexpr size_t kMaxFrame = 1 << 20;
// Descriptors one frame may carry: standard input, output and error.
inline constexpr size_t kMaxFrameFds = 3;

struct Message {
  char type = 0;
  std::vector<std::string> fields;
};

// The frame of `message`, length prefix included.
std::string EncodeFrame(const Message& message);

// Reads frames, byte by byte if need be. A reader never reads past the frame
// it is on, so descriptors that came with a later frame stay in the socket.
class FrameReader {
 public:
  enum class State { kNeedMore, kComplete, kClosed, kError };

  FrameReader() = default;
  ~FrameReader();
  FrameReader(const FrameReader&) = delete;
  FrameReader& operator=(const FrameReader&) = delete;

  // Takes the bytes of a frame; `size` must not exceed Wanted(). Returns
  // kComplete once the frame is whole, kError (see error()) for a frame
  // that is too large or malformed.
  State Feed(const char* data, size_t size);
  // How many more bytes the current frame needs.
  size_t Wanted() const;
  // One read from `fd` (a socket), at most Wanted() bytes; descriptors that
  // come with them are kept. kClosed at the end of the stream before a
  // frame began; kError for an end in the middle of one, a read error, or
  // too many descriptors.
  State ReadFrom(int fd);
  // Reads from a blocking `fd` until a frame is whole, the stream ends or
  // fails.
  State ReadWhole(int fd);

  // After kComplete: the message and the descriptors that came with it (the
  // caller owns them). The reader is then ready for the next frame.
  Message TakeMessage();
  std::vector<int> TakeFds();
  const std::string& error() const { return error_; }

 private:
  State Fail(std::string error);
  void CloseFds();

  char header_[4] = {};
  size_t header_have_ = 0;
  std::string body_;
  size_t body_size_ = 0;
  bool complete_ = false;
  Message message_;
  std::vector<int> fds_;
  std::string error_;
};

// The message inside a frame's body; false with `error` set when the body is
// malformed.
bool DecodeBody(const std::string& body, Message& message, std::string& error);

// Writes the frame of `message` to a blocking socket, with `fds` attached to
// its first byte. False when the peer is gone or the write fails.
bool SendFrame(int fd, const Message& message, const std::vector<int>& fds = {});

// The descriptors of `fds` closed (those >= 0), the list emptied.
void CloseAll(std::vector<int>& fds);

}  // namespace tabulon::cli
