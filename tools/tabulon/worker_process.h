// The parent's side of a worker (worker.h): starting `tabulon __worker`,
// its channel, and ending it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

namespace tabulon::cli {

class WorkerProcess {
 public:
  WorkerProcess() = default;
  // Ends the worker if it still runs (TerminateAndWait).
  ~WorkerProcess();
  WorkerProcess(const WorkerProcess&) = delete;
  WorkerProcess& operator=(const WorkerProcess&) = delete;

  // Starts this program as a worker, in a process group of its own (a
  // terminal's Ctrl-C goes to the parent, which ends its workers itself).
  // False with `error` set when it cannot be started.
  bool Start(std::string& error);

  pid_t pid() const { return pid_; }
  // The parent's end of the channel; -1 once closed.
  int channel() const { return channel_; }

  // Closes the channel: an idle worker quits its office and ends.
  void CloseChannel();
  // Asks it to end now (SIGTERM: it kills its office and removes its
  // profile first).
  void Terminate();
  // Reaps it if it has ended; true then, with its wait status in `status`.
  bool Reaped(int& status);
  // Terminate, then wait up to `limit` for it to end, then SIGKILL.
  void TerminateAndWait(std::chrono::milliseconds limit = std::chrono::seconds(5));
  // CloseChannel, then the same wait.
  void QuitAndWait(std::chrono::milliseconds limit = std::chrono::seconds(10));

 private:
  void WaitOrKill(std::chrono::milliseconds limit);
  pid_t pid_ = -1;
  int channel_ = -1;
  bool reaped_ = false;
};

// Sends SIGTERM to every worker this process started that still runs and
// waits for them (briefly), for the program's termination signal handling;
// no worker starts after it.
void TerminateEveryWorker();

// True once TerminateEveryWorker has begun: the program is ending by a
// termination signal.
bool ProgramEnding();

// The cores this process may run on (at least 1).
int CoreCount();

// "ended with status 3", "was killed by signal 9".
std::string DescribeEnd(int wait_status);

}  // namespace tabulon::cli
