#include "server_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace tabulon::cli {

namespace {

namespace fs = std::filesystem;

bool Address(const std::string& path, sockaddr_un& address, std::string& error) {
  address = {};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    error = "the socket path " + path + " is longer than a socket path may be (" +
            std::to_string(sizeof address.sun_path - 1) + " bytes)";
    return false;
  }
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return true;
}

std::string Octal(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

// The socket's folder: made (0700) when missing; otherwise it must be the
// user's own and writable by no one else, or another user could put a
// socket of their own in its place.
bool PrivateFolder(const std::string& folder, std::string& made, std::string& error) {
  struct stat st;
  if (lstat(folder.c_str(), &st) != 0) {
    if (errno != ENOENT) {
      error = "cannot look at the folder " + folder + ": " + std::strerror(errno);
      return false;
    }
    std::error_code ec;
    fs::create_directories(fs::path(folder).parent_path(), ec);
    if (mkdir(folder.c_str(), 0700) != 0) {
      error = "cannot make the folder " + folder + ": " + std::strerror(errno);
      return false;
    }
    made = folder;
    return true;
  }
  if (!S_ISDIR(st.st_mode)) {
    error = folder + " is not a folder";
    return false;
  }
  if (st.st_uid != geteuid() || (st.st_mode & 022) != 0) {
    error = "the folder " + folder + " (mode " + Octal(st.st_mode) +
            ") is not private to this user; give the socket a folder only you can write to";
    return false;
  }
  return true;
}

}  // namespace

std::string DefaultSocketPath() {
  if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime != nullptr && *runtime == '/')
    return std::string(runtime) + "/tabulon/serve.sock";
  const char* tmp = std::getenv("TMPDIR");
  const std::string base = tmp != nullptr && *tmp == '/' ? tmp : "/tmp";
  return base + "/tabulon-" + std::to_string(geteuid()) + "/serve.sock";
}

std::string ChosenSocketPath(const std::string& given) {
  if (!given.empty()) return given;
  if (const char* env = std::getenv("TABULON_SERVER"); env != nullptr && *env != '\0') return env;
  return DefaultSocketPath();
}

bool Listener::Open(const std::string& given, std::string& error) {
  const std::string path = fs::absolute(given).lexically_normal().string();
  sockaddr_un address;
  if (!Address(path, address, error)) return false;
  if (!PrivateFolder(fs::path(path).parent_path().string(), made_folder_, error)) return false;
  struct stat st;
  if (lstat(path.c_str(), &st) == 0) {
    if (!S_ISSOCK(st.st_mode)) {
      error = path + " is there and is not a socket";
      return false;
    }
    std::string ignored;
    const int other = ConnectTo(path, ignored);
    if (other >= 0) {
      close(other);
      error = "a server already answers at " + path;
      return false;
    }
    unlink(path.c_str());  // left by a server that was killed
  }
  fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd_ < 0) {
    error = std::string("cannot make a socket: ") + std::strerror(errno);
    return false;
  }
  // 0600 from the start: no moment in which another user could connect.
  const mode_t previous = umask(0177);
  const int bound = bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  const int bind_errno = errno;
  umask(previous);
  if (bound != 0 || listen(fd_, 128) != 0) {
    error = "cannot listen at " + path + ": " + std::strerror(bound != 0 ? bind_errno : errno);
    close(fd_);
    fd_ = -1;
    if (bound == 0) unlink(path.c_str());
    return false;
  }
  path_ = path;
  if (lstat(path.c_str(), &st) == 0) inode_ = st.st_ino;
  return true;
}

void Listener::Close() {
  if (fd_ >= 0) {
    close(fd_);
    fd_ = -1;
    // Only our own socket: another server may have taken the path since.
    struct stat st;
    if (lstat(path_.c_str(), &st) == 0 && st.st_ino == inode_) unlink(path_.c_str());
  }
  if (!made_folder_.empty()) {
    rmdir(made_folder_.c_str());
    made_folder_.clear();
  }
}

int ConnectTo(const std::string& path, std::string& error) {
  sockaddr_un address;
  if (!Address(path, address, error)) return -1;
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    error = std::strerror(errno);
    return -1;
  }
  int connected;
  do {
    connected = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  } while (connected != 0 && errno == EINTR);
  if (connected != 0) {
    error = std::strerror(errno);
    close(fd);
    return -1;
  }
  return fd;
}

bool PeerIsOwnUser(int fd) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
  return peer.uid == geteuid();
}

}  // namespace tabulon::cli
