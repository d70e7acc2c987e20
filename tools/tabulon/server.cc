#include "server.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <memory>
#include <mutex>
#include <sstream>
#include <vector>

#include "command.h"
#include "frames.h"
#include "requests.h"
#include "server_socket.h"
#include "signals.h"
#include "tabulon/result_codes.h"
#include "worker_process.h"

namespace tabulon::cli {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
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

struct Conn;

struct Slot {
  enum class State { kStarting, kIdle, kBusy, kEnding };
  int number = 0;
  WorkerProcess process;
  FrameReader reader;
  State state = State::kStarting;
  Conn* job = nullptr;
  // The client that left while this worker ran its command: told once the
  // worker (and its office) is gone.
  Conn* abandoned_by = nullptr;
  long jobs = 0;
  long office_kb = 0;
  bool warm = false;
  bool initial = false;
  Clock::time_point kill_at;
};

struct Conn {
  enum class State { kReading, kQueued, kRunning, kStopping };
  int fd = -1;
  FrameReader reader;
  State state = State::kReading;
  Message request;
  std::vector<int> fds;
  std::string command;
  Clock::time_point read_by;
  ~Conn() {
    CloseAll(fds);
    if (fd >= 0) close(fd);
  }
};

const char* StateName(Slot::State state) {
  switch (state) {
    case Slot::State::kStarting:
      return "starting";
    case Slot::State::kIdle:
      return "idle";
    case Slot::State::kBusy:
      return "busy";
    case Slot::State::kEnding:
      return "ending";
  }
  return "";
}

class Server {
 public:
  explicit Server(const ServeOptions& options) : options_(options) {
    options_.socket = std::filesystem::absolute(options_.socket).lexically_normal().string();
  }

  int Run() {
    std::string error;
    if (!listener_.Open(options_.socket, error)) {
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
    started_ = Clock::now();
    for (int i = 0; i < options_.offices; ++i) StartSlot(true);
    MaybeReady();
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
  // ---- The pool ----

  void StartSlot(bool initial) {
    auto slot = std::make_unique<Slot>();
    slot->number = next_number_++;
    slot->initial = initial;
    std::string error;
    if (!slot->process.Start(error)) {
      Err() << "tabulon: serve: " << error << "\n";
      Backoff();
      return;
    }
    if (initial) ++initial_pending_;
    slots_.push_back(std::move(slot));
  }

  void Backoff() {
    quick_failures_ = std::min(quick_failures_ + 1, 10);
    start_after_ = Clock::now() + seconds(quick_failures_);
  }

  int Live() const {
    return static_cast<int>(
        std::count_if(slots_.begin(), slots_.end(), [](const auto& s) { return s->state != Slot::State::kEnding; }));
  }

  void KeepPoolFull() {
    if (Clock::now() < start_after_) return;
    while (Live() < options_.offices) {
      const size_t before = slots_.size();
      StartSlot(false);
      if (slots_.size() == before) return;
    }
  }

  void InitialSlotSettled(Slot& slot) {
    if (!slot.initial) return;
    slot.initial = false;
    --initial_pending_;
    MaybeReady();
  }

  // Once every office of the first pool has started (or failed to).
  void MaybeReady() {
    if (ready_ || initial_pending_ > 0) return;
    ready_ = true;
    Err() << "tabulon: serve: ready " << options_.socket << "\n" << std::flush;
  }

  // The worker is to end: `quit` closes its channel (it quits its office
  // and ends), otherwise it is terminated. A client it was running for is
  // told so.
  void EndSlot(Slot& slot, bool quit, const std::string& why) {
    if (slot.state == Slot::State::kEnding) return;
    if (slot.state == Slot::State::kStarting) {
      InitialSlotSettled(slot);
      Backoff();
    }
    if (slot.job != nullptr) {
      FailJob(*slot.job, why);
      slot.job = nullptr;
    }
    slot.process.CloseChannel();
    if (!quit) slot.process.Terminate();
    slot.state = Slot::State::kEnding;
    slot.kill_at = Clock::now() + seconds(quit ? 10 : 5);
  }

  // A worker whose channel ended unexpectedly: it died (or broke the
  // protocol, and is ended).
  void WorkerLost(Slot& slot) {
    slot.process.CloseChannel();
    slot.process.Terminate();
    int status = 0;
    const auto deadline = Clock::now() + seconds(1);
    bool reaped = false;
    while (!(reaped = slot.process.Reaped(status)) && Clock::now() < deadline) usleep(5000);
    const std::string how = reaped ? DescribeEnd(status) : "stopped answering";
    Err() << "tabulon: serve: office " << slot.number << " (worker " << slot.process.pid() << ") " << how
          << "; starting another\n";
    EndSlot(slot, false, "the office process running it " + how);
  }

  void ReapEnded() {
    for (auto it = slots_.begin(); it != slots_.end();) {
      Slot& slot = **it;
      int status = 0;
      if (slot.state == Slot::State::kEnding && slot.process.Reaped(status)) {
        if (slot.abandoned_by != nullptr) {
          SendFrame(slot.abandoned_by->fd, EncodeDone(RunResult{kExitFailure, 0, "", 0}));
          DropConn(slot.abandoned_by);
        }
        it = slots_.erase(it);
        continue;
      }
      if (slot.state == Slot::State::kEnding && Clock::now() >= slot.kill_at) {
        kill(slot.process.pid(), SIGKILL);
        slot.kill_at = Clock::now() + seconds(5);
      }
      ++it;
    }
  }

  void FromWorker(Slot& slot) {
    const FrameReader::State state = slot.reader.ReadFrom(slot.process.channel());
    if (state == FrameReader::State::kNeedMore) return;
    if (state != FrameReader::State::kComplete) {
      WorkerLost(slot);
      return;
    }
    const Message message = slot.reader.TakeMessage();
    std::vector<int> stray = slot.reader.TakeFds();
    CloseAll(stray);
    if (message.type == kWarmMessage && slot.state == Slot::State::kStarting && !message.fields.empty()) {
      slot.warm = message.fields[0] == "1";
      if (message.fields.size() > 2) slot.office_kb = std::atol(message.fields[2].c_str());
      if (!slot.warm) {
        Err() << "tabulon: serve: office " << slot.number << " could not start"
              << (message.fields.size() > 1 && !message.fields[1].empty() ? ": " + Escaped(message.fields[1]) : "")
              << "\n";
      } else {
        quick_failures_ = 0;
      }
      slot.state = Slot::State::kIdle;
      InitialSlotSettled(slot);
      return;
    }
    RunResult result;
    std::string error;
    if (message.type != kDoneMessage || slot.state != Slot::State::kBusy || !DecodeDone(message, result, error)) {
      WorkerLost(slot);
      return;
    }
    ++done_;
    if (result.status != 0 || result.signal != 0) ++failed_;
    ++slot.jobs;
    slot.office_kb = result.office_kb;
    if (slot.job != nullptr) {
      result.office_kb = 0;
      SendFrame(slot.job->fd, EncodeDone(result));
      DropConn(slot.job);
      slot.job = nullptr;
    }
    slot.state = Slot::State::kIdle;
    if (slot.jobs >= options_.jobs_per_office) {
      Err() << "tabulon: serve: office " << slot.number << " did " << slot.jobs << " jobs; starting another\n";
      EndSlot(slot, true, "");
    } else if (slot.office_kb > options_.memory_limit_mb * 1024) {
      Err() << "tabulon: serve: office " << slot.number << " holds " << slot.office_kb / 1024
            << " MB; starting another\n";
      EndSlot(slot, true, "");
    }
  }

  // ---- Clients ----

  void Accept() {
    const int fd = accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) return;
    if (!PeerIsOwnUser(fd)) {
      SendFrame(fd, EncodeDone(RunResult{
                        kExitFailure, 0,
                        "tabulon: the server at " + options_.socket + " serves only the user it runs as\n", 0}));
      close(fd);
      return;
    }
    auto conn = std::make_unique<Conn>();
    conn->fd = fd;
    conn->read_by = Clock::now() + seconds(30);
    conns_.push_back(std::move(conn));
  }

  void DropConn(Conn* conn) {
    queue_.erase(std::remove(queue_.begin(), queue_.end(), conn), queue_.end());
    conns_.erase(std::remove_if(conns_.begin(), conns_.end(), [&](const auto& c) { return c.get() == conn; }),
                 conns_.end());
  }

  void Refuse(Conn* conn, const std::string& why) {
    SendFrame(conn->fd, EncodeDone(RunResult{kExitUsage, 0, "tabulon: " + why + "\n", 0}));
    DropConn(conn);
  }

  void FailJob(Conn& conn, const std::string& why) {
    ++done_;
    ++failed_;
    const std::string line = "tabulon: " + conn.command + ": " + std::to_string(kOfficeUnavailable) + " " + why +
                             "; the command did not finish\n";
    SendFrame(conn.fd, EncodeDone(RunResult{kExitFailure, 0, line, 0}));
    DropConn(&conn);
  }

  void FromClient(Conn* conn) {
    if (conn->state != Conn::State::kReading) {
      // Nothing more is to come from a client once it has sent its
      // command: anything here is its end.
      ClientGone(conn);
      return;
    }
    const FrameReader::State state = conn->reader.ReadFrom(conn->fd);
    if (state == FrameReader::State::kNeedMore) return;
    if (state != FrameReader::State::kComplete) {
      if (state == FrameReader::State::kError) {
        Refuse(conn, "the server at " + options_.socket + " refused a request: " + conn->reader.error());
      } else {
        DropConn(conn);
      }
      return;
    }
    conn->request = conn->reader.TakeMessage();
    conn->fds = conn->reader.TakeFds();
    if (conn->request.type == kStatusMessage) {
      SendFrame(conn->fd, Message{kStatusTextMessage, {StatusText(), StatusJson()}});
      DropConn(conn);
      return;
    }
    RunRequest request;
    std::string error;
    if (!DecodeRun(conn->request, request, error)) {
      Refuse(conn, "the server at " + options_.socket + " cannot run this request: " + error);
      return;
    }
    if (conn->fds.size() != 3) {
      Refuse(conn, "the server at " + options_.socket + " needs the client's standard streams");
      return;
    }
    conn->command = request.args.empty() ? "tabulon" : request.args[0];
    conn->state = Conn::State::kQueued;
    queue_.push_back(conn);
  }

  // A client that closed its end (it was killed, or stopped by a signal
  // and waits to hear that its command is stopped).
  void ClientGone(Conn* conn) {
    if (conn->state == Conn::State::kRunning) {
      for (auto& slot : slots_) {
        if (slot->job != conn) continue;
        Err() << "tabulon: serve: the client of office " << slot->number
              << " went away; its command is stopped and the office replaced\n";
        slot->job = nullptr;
        EndSlot(*slot, false, "");
        slot->abandoned_by = conn;
        conn->state = Conn::State::kStopping;
        return;
      }
    }
    if (conn->state == Conn::State::kStopping) return;
    SendFrame(conn->fd, EncodeDone(RunResult{kExitFailure, 0, "", 0}));
    DropConn(conn);
  }

  void Dispatch() {
    while (!queue_.empty()) {
      auto free =
          std::find_if(slots_.begin(), slots_.end(), [](const auto& s) { return s->state == Slot::State::kIdle; });
      if (free == slots_.end()) return;
      Slot& slot = **free;
      Conn* conn = queue_.front();
      queue_.pop_front();
      if (!SendFrame(slot.process.channel(), conn->request, conn->fds)) {
        queue_.push_front(conn);
        WorkerLost(slot);
        continue;
      }
      // The worker has the client's streams now; the server keeps none.
      CloseAll(conn->fds);
      conn->state = Conn::State::kRunning;
      slot.job = conn;
      slot.state = Slot::State::kBusy;
    }
  }

  // ---- Status ----

  std::string StatusText() const {
    std::ostringstream text;
    int busy = 0, idle = 0, starting = 0;
    for (const auto& s : slots_) {
      busy += s->state == Slot::State::kBusy;
      idle += s->state == Slot::State::kIdle;
      starting += s->state == Slot::State::kStarting;
    }
    const auto up = std::chrono::duration_cast<seconds>(Clock::now() - started_).count();
    text << "server " << options_.socket << " (pid " << getpid() << ", up " << up << " s)\n"
         << "offices " << Live() << " of " << options_.offices << ": " << busy << " busy, " << idle << " idle, "
         << starting << " starting\n"
         << "jobs " << done_ << " done (" << failed_ << " failed), " << busy << " running, " << queue_.size()
         << " queued\n";
    for (const auto& s : slots_) {
      text << "office " << s->number << ": worker " << s->process.pid() << ", " << StateName(s->state) << ", "
           << s->jobs << " jobs, " << s->office_kb / 1024 << " MB"
           << (s->warm || s->state == Slot::State::kStarting ? "" : ", no office") << "\n";
    }
    return text.str();
  }

  std::string StatusJson() const {
    std::string offices = "[";
    int running = 0;
    for (const auto& s : slots_) {
      running += s->state == Slot::State::kBusy;
      offices += (offices.size() > 1 ? "," : "") + JsonObject()
                                                       .Add("office", static_cast<int64_t>(s->number))
                                                       .Add("worker", static_cast<int64_t>(s->process.pid()))
                                                       .Add("state", StateName(s->state))
                                                       .Add("warm", s->warm)
                                                       .Add("jobs", static_cast<int64_t>(s->jobs))
                                                       .Add("memory_mb", static_cast<int64_t>(s->office_kb / 1024))
                                                       .str();
    }
    return JsonObject()
        .Add("command", "status")
        .Add("socket", options_.socket)
        .Add("pid", static_cast<int64_t>(getpid()))
        .Add("pool", static_cast<int64_t>(options_.offices))
        .Add("done", static_cast<int64_t>(done_))
        .Add("failed", static_cast<int64_t>(failed_))
        .Add("running", static_cast<int64_t>(running))
        .Add("queued", static_cast<int64_t>(queue_.size()))
        .AddRaw("offices", offices + "]")
        .str();
  }

  // ---- The loop ----

  void Turn() {
    KeepPoolFull();
    Dispatch();
    std::vector<pollfd> fds;
    fds.push_back({Stop().pipe[0], POLLIN, 0});
    fds.push_back({listener_.fd(), POLLIN, 0});
    std::vector<Slot*> slot_of;
    for (auto& s : slots_) {
      if (s->process.channel() < 0) continue;
      fds.push_back({s->process.channel(), POLLIN, 0});
      slot_of.push_back(s.get());
    }
    std::vector<Conn*> conn_of;
    for (auto& c : conns_) {
      if (c->state == Conn::State::kStopping) continue;  // it has gone already
      fds.push_back({c->fd, static_cast<short>(POLLIN | POLLRDHUP), 0});
      conn_of.push_back(c.get());
    }
    if (poll(fds.data(), fds.size(), static_cast<int>(Timeout().count())) < 0) return;
    if (fds[0].revents != 0) {
      stopping_ = true;
      return;
    }
    if (fds[1].revents != 0) Accept();
    for (size_t i = 0; i < slot_of.size(); ++i) {
      const short events = fds[2 + i].revents;
      if (events != 0 && Alive(slot_of[i]) && slot_of[i]->process.channel() >= 0) FromWorker(*slot_of[i]);
    }
    for (size_t i = 0; i < conn_of.size(); ++i) {
      const short events = fds[2 + slot_of.size() + i].revents;
      if (events != 0 && Alive(conn_of[i])) FromClient(conn_of[i]);
    }
    const auto now = Clock::now();
    std::vector<Conn*> slow;
    for (auto& c : conns_) {
      if (c->state == Conn::State::kReading && now >= c->read_by) slow.push_back(c.get());
    }
    for (Conn* c : slow) DropConn(c);
    ReapEnded();
  }

  bool Alive(const Slot* slot) const {
    return std::any_of(slots_.begin(), slots_.end(), [&](const auto& s) { return s.get() == slot; });
  }
  bool Alive(const Conn* conn) const {
    return std::any_of(conns_.begin(), conns_.end(), [&](const auto& c) { return c.get() == conn; });
  }

  milliseconds Timeout() const {
    const bool ending =
        std::any_of(slots_.begin(), slots_.end(), [](const auto& s) { return s->state == Slot::State::kEnding; });
    if (ending || Live() < options_.offices) return milliseconds(50);
    return milliseconds(1000);
  }

  void Shutdown() {
    listener_.Close();
    for (auto& c : conns_) {
      if (c->state == Conn::State::kQueued || c->state == Conn::State::kRunning) {
        SendFrame(c->fd, EncodeDone(RunResult{kExitFailure, 0,
                                              "tabulon: " + c->command +
                                                  ": the server stopped before the command "
                                                  "finished\n",
                                              0}));
      }
    }
    queue_.clear();
    for (auto& s : slots_) {
      s->job = nullptr;
      // An idle worker quits its office when its channel closes; the
      // others are stopped at once.
      s->process.CloseChannel();
      if (s->state != Slot::State::kIdle) s->process.Terminate();
    }
    conns_.clear();
    for (auto& s : slots_) s->process.QuitAndWait(seconds(10));
    slots_.clear();
  }

  ServeOptions options_;
  Listener listener_;
  std::vector<std::unique_ptr<Slot>> slots_;
  std::vector<std::unique_ptr<Conn>> conns_;
  std::deque<Conn*> queue_;
  long done_ = 0;
  long failed_ = 0;
  int next_number_ = 1;
  int initial_pending_ = 0;
  int quick_failures_ = 0;
  Clock::time_point start_after_;
  Clock::time_point started_;
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
