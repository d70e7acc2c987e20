// The server's workers (worker.h): started, each with a warm office, handed
// one command line at a time, and replaced after a number of jobs, when
// their offices' memory passes a limit, when they die, and when the client
// of their command goes away.
#pragma once

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "frames.h"
#include "requests.h"

namespace tabulon::cli {

struct PoolOptions {
  int offices = 1;
  long jobs_per_office = 1000;
  long memory_limit_mb = 2048;
};

class WorkerPool {
 public:
  using JobId = uint64_t;

  // How a job ended, for the server to tell its client.
  struct Ended {
    enum class Kind {
      kFinished,   // the command ended: `result`
      kLost,       // its worker died first: `why`
      kCancelled,  // Cancel was asked, and its worker and office are gone
    };
    JobId job;
    Kind kind;
    RunResult result;
    std::string why;
  };

  explicit WorkerPool(const PoolOptions& options);
  // Shutdown.
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // Starts the pool's workers.
  void Start();
  // True once every worker of the first pool has started its office (or
  // failed to).
  bool Ready() const;

  // Hands the command of `message` (with the client's standard streams) to
  // an idle worker; false when none is idle.
  bool Run(JobId job, const Message& message, const std::vector<int>& fds);
  // Stops the worker running `job`; a kCancelled end follows once it is
  // gone.
  void Cancel(JobId job);

  // The workers' channels, to wait on; OnReadable for one that has
  // something, Tick after each wait. Both add the jobs that ended.
  void AddPollFds(std::vector<pollfd>& fds) const;
  void OnReadable(int fd, std::vector<Ended>& ended);
  void Tick(std::vector<Ended>& ended);
  // How long a wait may last before Tick has work to do.
  std::chrono::milliseconds Timeout() const;

  // Idle workers quit their offices, the others are stopped; returns once
  // all are gone.
  void Shutdown();

  std::string StatusText(const std::string& socket, size_t queued) const;
  std::string StatusJson(const std::string& socket, size_t queued) const;

 private:
  struct Slot;
  void StartSlot(bool initial);
  void Backoff();
  int Live() const;
  void EndSlot(Slot& slot, bool quit, std::vector<Ended>& ended, const std::string& why);
  void WorkerLost(Slot& slot, std::vector<Ended>& ended);
  void FromWorker(Slot& slot, std::vector<Ended>& ended);

  PoolOptions options_;
  std::vector<std::unique_ptr<Slot>> slots_;
  long done_ = 0;
  long failed_ = 0;
  int next_number_ = 1;
  int initial_pending_ = 0;
  bool started_all_ = false;
  int quick_failures_ = 0;
  std::chrono::steady_clock::time_point start_after_;
  std::chrono::steady_clock::time_point started_;
};

}  // namespace tabulon::cli
