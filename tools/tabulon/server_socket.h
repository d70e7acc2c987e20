// Where the server listens and how a client reaches it: a Unix domain socket
// (0600) in a folder that only its user may write to (0700 when the server
// makes it), peers of another user refused.
#pragma once

#include <string>

namespace tabulon::cli {

// $XDG_RUNTIME_DIR/tabulon/serve.sock, else $TMPDIR (or /tmp)
// /tabulon-<uid>/serve.sock.
std::string DefaultSocketPath();

// The socket named by --server, else by TABULON_SERVER, else the default.
std::string ChosenSocketPath(const std::string& given);

// The listening socket of a server; closing it removes the socket file and
// the folder it made.
class Listener {
 public:
  Listener() = default;
  ~Listener() { Close(); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  // False with `error` set when the socket cannot be had: its folder is
  // open to others, another server answers there, the path is too long.
  bool Open(const std::string& path, std::string& error);
  int fd() const { return fd_; }
  void Close();

 private:
  int fd_ = -1;
  std::string path_;
  std::string made_folder_;
  unsigned long inode_ = 0;
};

// A connected socket to the server at `path`, or -1 with `error` set.
int ConnectTo(const std::string& path, std::string& error);

// True when the peer of a connected Unix socket runs as this process's user.
bool PeerIsOwnUser(int fd);

}  // namespace tabulon::cli
