#include "server_pool.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "command.h"
#include "worker_process.h"

namespace tabulon::cli {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

}  // namespace

struct WorkerPool::Slot {
  enum class State { kStarting, kIdle, kBusy, kEnding };
  int number = 0;
  WorkerProcess process;
  FrameReader reader;
  State state = State::kStarting;
  bool has_job = false;
  JobId job = 0;
  // The job was cancelled: its end is told once the worker is gone.
  bool cancelled = false;
  long jobs = 0;
  long office_kb = 0;
  bool warm = false;
  bool initial = false;
  Clock::time_point kill_at;

  const char* StateName() const {
    switch (state) {
      case State::kStarting:
        return "starting";
      case State::kIdle:
        return "idle";
      case State::kBusy:
        return "busy";
      case State::kEnding:
        return "ending";
    }
    return "";
  }
};

WorkerPool::WorkerPool(const PoolOptions& options) : options_(options) {}

WorkerPool::~WorkerPool() { Shutdown(); }

void WorkerPool::Start() {
  started_ = Clock::now();
  for (int i = 0; i < options_.offices; ++i) StartSlot(true);
  started_all_ = true;
}

bool WorkerPool::Ready() const { return started_all_ && initial_pending_ == 0; }

void WorkerPool::StartSlot(bool initial) {
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

// Workers that die before their office is warm are started again ever more
// slowly, so that a broken installation does not make the server spin.
void WorkerPool::Backoff() {
  quick_failures_ = std::min(quick_failures_ + 1, 10);
  start_after_ = Clock::now() + seconds(quick_failures_);
}

int WorkerPool::Live() const {
  return static_cast<int>(
      std::count_if(slots_.begin(), slots_.end(), [](const auto& s) { return s->state != Slot::State::kEnding; }));
}

bool WorkerPool::Run(JobId job, const Message& message, const std::vector<int>& fds) {
  std::vector<Ended> unused;
  for (auto& s : slots_) {
    Slot& slot = *s;
    if (slot.state != Slot::State::kIdle) continue;
    if (!SendFrame(slot.process.channel(), message, fds)) {
      WorkerLost(slot, unused);
      continue;
    }
    slot.has_job = true;
    slot.job = job;
    slot.state = Slot::State::kBusy;
    return true;
  }
  return false;
}

void WorkerPool::Cancel(JobId job) {
  for (auto& s : slots_) {
    if (!s->has_job || s->job != job) continue;
    Err() << "tabulon: serve: the client of office " << s->number
          << " went away; its command is stopped and the office replaced\n";
    s->cancelled = true;
    std::vector<Ended> unused;
    EndSlot(*s, false, unused, "");
  }
}

// The worker is to end: `quit` closes its channel (it quits its office and
// ends), otherwise it is stopped at once. A job it was running is lost with
// `why`, unless it was cancelled.
void WorkerPool::EndSlot(Slot& slot, bool quit, std::vector<Ended>& ended, const std::string& why) {
  if (slot.state == Slot::State::kEnding) return;
  if (slot.state == Slot::State::kStarting) Backoff();
  if (slot.initial) {
    slot.initial = false;
    --initial_pending_;
  }
  if (slot.has_job && !slot.cancelled) {
    ++done_;
    ++failed_;
    ended.push_back({slot.job, Ended::Kind::kLost, {}, why});
    slot.has_job = false;
  }
  slot.process.CloseChannel();
  if (!quit) slot.process.Terminate();
  slot.state = Slot::State::kEnding;
  slot.kill_at = Clock::now() + seconds(quit ? 10 : 5);
}

// A worker whose channel ended unexpectedly: it died (or broke the
// protocol, and is stopped).
void WorkerPool::WorkerLost(Slot& slot, std::vector<Ended>& ended) {
  slot.process.CloseChannel();
  slot.process.Terminate();
  int status = 0;
  const auto deadline = Clock::now() + seconds(1);
  bool reaped = false;
  while (!(reaped = slot.process.Reaped(status)) && Clock::now() < deadline) usleep(5000);
  const std::string how = reaped ? DescribeEnd(status) : "stopped answering";
  Err() << "tabulon: serve: office " << slot.number << " (worker " << slot.process.pid() << ") " << how
        << "; starting another\n";
  EndSlot(slot, false, ended, "the office process running it " + how);
}

void WorkerPool::AddPollFds(std::vector<pollfd>& fds) const {
  for (const auto& s : slots_) {
    if (s->process.channel() >= 0) fds.push_back({s->process.channel(), POLLIN, 0});
  }
}

void WorkerPool::OnReadable(int fd, std::vector<Ended>& ended) {
  for (auto& s : slots_) {
    if (s->process.channel() == fd) {
      FromWorker(*s, ended);
      return;
    }
  }
}

void WorkerPool::FromWorker(Slot& slot, std::vector<Ended>& ended) {
  const FrameReader::State state = slot.reader.ReadFrom(slot.process.channel());
  if (state == FrameReader::State::kNeedMore) return;
  if (state != FrameReader::State::kComplete) {
    WorkerLost(slot, ended);
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
    if (slot.initial) {
      slot.initial = false;
      --initial_pending_;
    }
    return;
  }
  RunResult result;
  std::string error;
  if (message.type != kDoneMessage || slot.state != Slot::State::kBusy || !DecodeDone(message, result, error)) {
    WorkerLost(slot, ended);
    return;
  }
  ++done_;
  if (result.status != 0 || result.signal != 0) ++failed_;
  ++slot.jobs;
  slot.office_kb = result.office_kb;
  result.office_kb = 0;
  ended.push_back({slot.job, Ended::Kind::kFinished, result, ""});
  slot.has_job = false;
  slot.state = Slot::State::kIdle;
  if (slot.jobs >= options_.jobs_per_office) {
    Err() << "tabulon: serve: office " << slot.number << " did " << slot.jobs << " jobs; starting another\n";
    EndSlot(slot, true, ended, "");
  } else if (slot.office_kb > options_.memory_limit_mb * 1024) {
    Err() << "tabulon: serve: office " << slot.number << " holds " << slot.office_kb / 1024
          << " MB; starting another\n";
    EndSlot(slot, true, ended, "");
  }
}

void WorkerPool::Tick(std::vector<Ended>& ended) {
  for (auto it = slots_.begin(); it != slots_.end();) {
    Slot& slot = **it;
    int status = 0;
    if (slot.state == Slot::State::kEnding && slot.process.Reaped(status)) {
      if (slot.has_job && slot.cancelled) ended.push_back({slot.job, Ended::Kind::kCancelled, {}, ""});
      it = slots_.erase(it);
      continue;
    }
    if (slot.state == Slot::State::kEnding && Clock::now() >= slot.kill_at) {
      kill(slot.process.pid(), SIGKILL);
      slot.kill_at = Clock::now() + seconds(5);
    }
    ++it;
  }
  if (Clock::now() < start_after_) return;
  while (Live() < options_.offices) {
    const size_t before = slots_.size();
    StartSlot(false);
    if (slots_.size() == before) return;
  }
}

milliseconds WorkerPool::Timeout() const {
  const bool ending =
      std::any_of(slots_.begin(), slots_.end(), [](const auto& s) { return s->state == Slot::State::kEnding; });
  return ending || Live() < options_.offices ? milliseconds(50) : milliseconds(1000);
}

void WorkerPool::Shutdown() {
  for (auto& s : slots_) {
    // An idle worker quits its office when its channel closes; the others
    // are stopped at once.
    s->process.CloseChannel();
    if (s->state != Slot::State::kIdle) s->process.Terminate();
  }
  for (auto& s : slots_) s->process.QuitAndWait(seconds(10));
  slots_.clear();
}

std::string WorkerPool::StatusText(const std::string& socket, size_t queued) const {
  std::ostringstream text;
  int busy = 0, idle = 0, starting = 0;
  for (const auto& s : slots_) {
    busy += s->state == Slot::State::kBusy;
    idle += s->state == Slot::State::kIdle;
    starting += s->state == Slot::State::kStarting;
  }
  const auto up = std::chrono::duration_cast<seconds>(Clock::now() - started_).count();
  text << "server " << socket << " (pid " << getpid() << ", up " << up << " s)\n"
       << "offices " << Live() << " of " << options_.offices << ": " << busy << " busy, " << idle << " idle, "
       << starting << " starting\n"
       << "jobs " << done_ << " done (" << failed_ << " failed), " << busy << " running, " << queued << " queued\n";
  for (const auto& s : slots_) {
    text << "office " << s->number << ": worker " << s->process.pid() << ", " << s->StateName() << ", " << s->jobs
         << " jobs, " << s->office_kb / 1024 << " MB"
         << (s->warm || s->state == Slot::State::kStarting ? "" : ", no office") << "\n";
  }
  return text.str();
}

std::string WorkerPool::StatusJson(const std::string& socket, size_t queued) const {
  std::string offices = "[";
  int running = 0;
  for (const auto& s : slots_) {
    running += s->state == Slot::State::kBusy;
    offices += (offices.size() > 1 ? "," : "") + JsonObject()
                                                     .Add("office", static_cast<int64_t>(s->number))
                                                     .Add("worker", static_cast<int64_t>(s->process.pid()))
                                                     .Add("state", s->StateName())
                                                     .Add("warm", s->warm)
                                                     .Add("jobs", static_cast<int64_t>(s->jobs))
                                                     .Add("memory_mb", static_cast<int64_t>(s->office_kb / 1024))
                                                     .str();
  }
  return JsonObject()
      .Add("command", "status")
      .Add("socket", socket)
      .Add("pid", static_cast<int64_t>(getpid()))
      .Add("pool", static_cast<int64_t>(options_.offices))
      .Add("done", static_cast<int64_t>(done_))
      .Add("failed", static_cast<int64_t>(failed_))
      .Add("running", static_cast<int64_t>(running))
      .Add("queued", static_cast<int64_t>(queued))
      .AddRaw("offices", offices + "]")
      .str();
}

}  // namespace tabulon::cli
