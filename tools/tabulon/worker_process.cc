#include "worker_process.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "worker.h"

extern char** environ;

namespace tabulon::cli {

namespace {

std::mutex registry_mutex;
// Set once the program is ending: no worker is started after that.
bool ending = false;
std::set<pid_t>& Registry() {
  static auto* pids = new std::set<pid_t>();  // used until the very end
  return *pids;
}

std::string ThisProgram() {
  std::vector<char> path(4096);
  const ssize_t n = readlink("/proc/self/exe", path.data(), path.size() - 1);
  if (n <= 0) return {};
  return std::string(path.data(), static_cast<size_t>(n));
}

}  // namespace

WorkerProcess::~WorkerProcess() {
  if (pid_ > 0 && !reaped_) TerminateAndWait();
  CloseChannel();
}

bool WorkerProcess::Start(std::string& error) {
  const std::string program = ThisProgram();
  if (program.empty()) {
    error = "cannot find this program to start a worker";
    return false;
  }
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    error = std::string("cannot make a worker's channel: ") + std::strerror(errno);
    return false;
  }
  // The child's end must not already be the channel's number: dup2 onto
  // itself would keep it close-on-exec.
  if (ends[1] == kWorkerChannelFd) {
    const int moved = fcntl(ends[1], F_DUPFD_CLOEXEC, 10);
    close(ends[1]);
    ends[1] = moved;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, ends[1], kWorkerChannelFd);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none, defaults;
  sigemptyset(&none);
  sigemptyset(&defaults);
  for (int s : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) sigaddset(&defaults, s);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  const std::string parent = std::to_string(getpid());
  std::vector<std::string> words = {program, "__worker", parent};
  std::vector<char*> argv;
  for (std::string& w : words) argv.push_back(w.data());
  argv.push_back(nullptr);
  pid_t pid = -1;
  std::lock_guard<std::mutex> lock(registry_mutex);
  if (ending) {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    close(ends[0]);
    close(ends[1]);
    error = "the program is ending";
    return false;
  }
  const int spawned = posix_spawn(&pid, program.c_str(), &actions, &attributes, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  close(ends[1]);
  if (spawned != 0) {
    close(ends[0]);
    error = std::string("cannot start a worker: ") + std::strerror(spawned);
    return false;
  }
  pid_ = pid;
  channel_ = ends[0];
  reaped_ = false;
  Registry().insert(pid);
  return true;
}

void WorkerProcess::CloseChannel() {
  if (channel_ >= 0) close(channel_);
  channel_ = -1;
}

void WorkerProcess::Terminate() {
  if (pid_ > 0 && !reaped_) kill(pid_, SIGTERM);
}

bool WorkerProcess::Reaped(int& status) {
  if (pid_ <= 0) return false;
  if (reaped_) return true;
  const pid_t got = waitpid(pid_, &status, WNOHANG);
  // ECHILD: the termination handling reaped it already.
  if (got == pid_ || (got < 0 && errno == ECHILD)) {
    if (got < 0) status = 0;
    reaped_ = true;
    std::lock_guard<std::mutex> lock(registry_mutex);
    Registry().erase(pid_);
    return true;
  }
  return false;
}

void WorkerProcess::WaitOrKill(std::chrono::milliseconds limit) {
  int status = 0;
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!Reaped(status)) {
    if (std::chrono::steady_clock::now() >= deadline) {
      kill(pid_, SIGKILL);
      while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
      }
      reaped_ = true;
      std::lock_guard<std::mutex> lock(registry_mutex);
      Registry().erase(pid_);
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

void WorkerProcess::TerminateAndWait(std::chrono::milliseconds limit) {
  if (pid_ <= 0 || reaped_) return;
  Terminate();
  WaitOrKill(limit);
}

void WorkerProcess::QuitAndWait(std::chrono::milliseconds limit) {
  CloseChannel();
  if (pid_ <= 0 || reaped_) return;
  WaitOrKill(limit);
}

void TerminateEveryWorker() {
  std::vector<pid_t> pids;
  {
    std::lock_guard<std::mutex> lock(registry_mutex);
    ending = true;
    pids.assign(Registry().begin(), Registry().end());
  }
  for (const pid_t pid : pids) kill(pid, SIGTERM);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  for (const pid_t pid : pids) {
    int status;
    for (;;) {
      const pid_t got = waitpid(pid, &status, WNOHANG);
      if (got == pid || (got < 0 && errno == ECHILD)) break;
      if (std::chrono::steady_clock::now() >= deadline) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
}

bool ProgramEnding() {
  std::lock_guard<std::mutex> lock(registry_mutex);
  return ending;
}

int CoreCount() {
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0) return CPU_COUNT(&set);
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  return online > 0 ? static_cast<int>(online) : 1;
}

std::string DescribeEnd(int wait_status) {
  if (WIFSIGNALED(wait_status)) return "was killed by signal " + std::to_string(WTERMSIG(wait_status));
  if (WIFEXITED(wait_status)) return "ended with status " + std::to_string(WEXITSTATUS(wait_status));
  return "ended";
}

}  // namespace tabulon::cli
