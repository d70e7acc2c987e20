#include "server.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "command.h"
#include "frames.h"
#include "requests.h"
#include "server_pool.h"
#include "server_socket.h"
#include "signals.h"
#include "tabulon/result_codes.h"

namespace tabulon::cli {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

// A termination signal asks the loop to stop and waits (bounded) until every
// office is quit; the signal then ends the program.
struct StopRequest {
  int pipe[2] = {-1, -1};
  std::mutex mutex;
  std::condition_variable cv;
  bool done = false;
};

StopRequest& Stop() {
  static auto* stop = new StopRequest();  // used by the signal thread until the very end
  return *stop;
}

// One client's connection.
struct Conn {
  enum class State {
    kReading,   // its request is coming
    kQueued,    // waiting for an idle worker
    kRunning,   // a worker runs its command
    kStopping,  // it went away; its worker is being stopped
  };
  uint64_t id = 0;
  int fd = -1;
  FrameReader reader;
  State state = State::kReading;
  Message request;
  std::vector<int> fds;  // its standard streams, until a worker has them
  std::string command;
  Clock::time_point read_by;
  ~Conn() {
    CloseAll(fds);
    if (fd >= 0) close(fd);
  }
};

class Server {
 public:
  explicit Server(const ServeOptions& options)
      : socket_(std::filesystem::absolute(options.socket).lexically_normal().string()),
        pool_(PoolOptions{options.offices, options.jobs_per_office, options.memory_limit_mb}) {}

  int Run() {
    std::string error;
    if (!listener_.Open(socket_, error)) {
      Err() << "tabulon: serve: " << error << "\n";
      return kExitFailure;
    }
    if (pipe2(Stop().pipe, O_CLOEXEC) != 0) {
      Err() << "tabulon: serve: cannot make a pipe\n";
      return kExitFailure;
    }
    AddTerminationHook([] {
      StopRequest& stop = Stop();
      const char byte = 's';
      if (write(stop.pipe[1], &byte, 1) < 0) return;
      std::unique_lock<std::mutex> lock(stop.mutex);
      stop.cv.wait_for(lock, seconds(30), [&] { return stop.done; });
    });
    pool_.Start();
    while (!stopping_) Turn();
    Shutdown();
    {
      std::lock_guard<std::mutex> lock(Stop().mutex);
      Stop().done = true;
    }
    Stop().cv.notify_all();
    // The signal thread ends the program, by the signal it was sent.
    for (;;) pause();
  }

 private:
  void Turn() {
    std::vector<WorkerPool::Ended> ended;
    pool_.Tick(ended);
    Finish(ended);
    if (!ready_ && pool_.Ready()) {
      ready_ = true;
      Err() << "tabulon: serve: ready " << socket_ << "\n" << std::flush;
    }
    Dispatch();
    std::vector<pollfd> fds = {{Stop().pipe[0], POLLIN, 0}, {listener_.fd(), POLLIN, 0}};
    pool_.AddPollFds(fds);
    const size_t first_client = fds.size();
    std::vector<uint64_t> client_of;
    for (auto& [id, c] : conns_) {
      if (c->state == Conn::State::kStopping) continue;  // it has gone already
      fds.push_back({c->fd, static_cast<short>(POLLIN | POLLRDHUP), 0});
      client_of.push_back(id);
    }
    if (poll(fds.data(), fds.size(), static_cast<int>(pool_.Timeout().count())) < 0) return;
    if (fds[0].revents != 0) {
      stopping_ = true;
      return;
    }
    if (fds[1].revents != 0) Accept();
    for (size_t i = 2; i < first_client; ++i) {
      if (fds[i].revents != 0) pool_.OnReadable(fds[i].fd, ended);
    }
    Finish(ended);
    for (size_t i = 0; i < client_of.size(); ++i) {
      if (fds[first_client + i].revents != 0 && conns_.count(client_of[i]) > 0) FromClient(*conns_[client_of[i]]);
    }
    const auto now = Clock::now();
    std::vector<uint64_t> slow;
    for (auto& [id, c] : conns_) {
      if (c->state == Conn::State::kReading && now >= c->read_by) slow.push_back(id);
    }
    for (const uint64_t id : slow) conns_.erase(id);
  }

  void Accept() {
    const int fd = accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) return;
    if (!PeerIsOwnUser(fd)) {
      SendFrame(fd,
                EncodeDone(RunResult{kExitFailure, 0,
                                     "tabulon: the server at " + socket_ + " serves only the user it runs as\n", 0}));
      close(fd);
      return;
    }
    auto conn = std::make_unique<Conn>();
    conn->id = next_id_++;
    conn->fd = fd;
    conn->read_by = Clock::now() + seconds(30);
    conns_[conn->id] = std::move(conn);
  }

  // Sends the client how its command ended, and forgets it.
  void Answer(Conn& conn, const RunResult& result) {
    SendFrame(conn.fd, EncodeDone(result));
    Drop(conn);
  }

  void Drop(Conn& conn) {
    queue_.erase(std::remove(queue_.begin(), queue_.end(), conn.id), queue_.end());
    conns_.erase(conn.id);
  }

  void Refuse(Conn& conn, const std::string& why) {
    Answer(conn, RunResult{kExitUsage, 0, "tabulon: the server at " + socket_ + " " + why + "\n", 0});
  }

  void FromClient(Conn& conn) {
    if (conn.state != Conn::State::kReading) {
      // Nothing more is to come from a client once it has sent its
      // command: anything here is its end.
      ClientGone(conn);
      return;
    }
    const FrameReader::State state = conn.reader.ReadFrom(conn.fd);
    if (state == FrameReader::State::kNeedMore) return;
    if (state == FrameReader::State::kClosed) return Drop(conn);
    if (state == FrameReader::State::kError) return Refuse(conn, "refused a request: " + conn.reader.error());
    conn.request = conn.reader.TakeMessage();
    conn.fds = conn.reader.TakeFds();
    if (conn.request.type == kStatusMessage) {
      SendFrame(conn.fd, Message{kStatusTextMessage,
                                 {pool_.StatusText(socket_, queue_.size()), pool_.StatusJson(socket_, queue_.size())}});
      return Drop(conn);
    }
    RunRequest request;
    std::string error;
    if (!DecodeRun(conn.request, request, error)) return Refuse(conn, "cannot run this request: " + error);
    if (conn.fds.size() != 3) return Refuse(conn, "needs the client's standard streams");
    conn.command = request.args.empty() ? "tabulon" : request.args[0];
    conn.state = Conn::State::kQueued;
    queue_.push_back(conn.id);
  }

  // A client that closed its end: it was killed, or it was stopped by a
  // signal and waits to hear that its command is stopped.
  void ClientGone(Conn& conn) {
    if (conn.state == Conn::State::kRunning) {
      conn.state = Conn::State::kStopping;
      pool_.Cancel(conn.id);
      return;
    }
    Answer(conn, RunResult{kExitFailure, 0, "", 0});
  }

  void Dispatch() {
    while (!queue_.empty()) {
      Conn& conn = *conns_[queue_.front()];
      if (!pool_.Run(conn.id, conn.request, conn.fds)) return;
      queue_.pop_front();
      // The worker has the client's streams now; the server keeps none.
      CloseAll(conn.fds);
      conn.state = Conn::State::kRunning;
    }
  }

  void Finish(std::vector<WorkerPool::Ended>& ended) {
    for (const WorkerPool::Ended& end : ended) {
      const auto it = conns_.find(end.job);
      if (it == conns_.end()) continue;
      Conn& conn = *it->second;
      switch (end.kind) {
        case WorkerPool::Ended::Kind::kFinished:
          Answer(conn, end.result);
          break;
        case WorkerPool::Ended::Kind::kLost:
          Answer(conn, RunResult{kExitFailure, 0,
                                 "tabulon: " + conn.command + ": " + std::to_string(kOfficeUnavailable) + " " +
                                     end.why + "; the command did not finish\n",
                                 0});
          break;
        case WorkerPool::Ended::Kind::kCancelled:
          Answer(conn, RunResult{kExitFailure, 0, "", 0});
          break;
      }
    }
    ended.clear();
  }

  void Shutdown() {
    listener_.Close();
    for (auto& [id, c] : conns_) {
      if (c->state == Conn::State::kQueued || c->state == Conn::State::kRunning) {
        SendFrame(c->fd, EncodeDone(RunResult{
                             kExitFailure, 0,
                             "tabulon: " + c->command + ": the server stopped before the command finished\n", 0}));
      }
    }
    queue_.clear();
    conns_.clear();
    pool_.Shutdown();
  }

  std::string socket_;
  Listener listener_;
  WorkerPool pool_;
  std::map<uint64_t, std::unique_ptr<Conn>> conns_;
  std::deque<uint64_t> queue_;
  uint64_t next_id_ = 1;
  bool stopping_ = false;
  bool ready_ = false;
};

}  // namespace

int Serve(const ServeOptions& options) {
  // A log reader that went away (serve 2>&1 | head) must not end the
  // server; the workers get the default back when they start.
  signal(SIGPIPE, SIG_IGN);
  Server server(options);
  return server.Run();
}

}  // namespace tabulon::cli
