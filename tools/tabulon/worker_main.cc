#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "command.h"
#include "fd_streams.h"
#include "frames.h"
#include "requests.h"
#include "tabulon/tabulon_ctrl.h"
#include "worker.h"

extern char** environ;

namespace tabulon::cli {

namespace {

bool in_worker = false;

// A write to a client's closed pipe must fail with EPIPE (and be reported
// to the client as SIGPIPE), not end the worker and its office. A handler,
// unlike SIG_IGN, is not inherited by the offices this process starts.
void IgnoreSigpipe(int) {}

// The caller's settings replace the worker's own for one command line.
void ApplySettings(const std::vector<std::string>& env) {
  std::vector<std::string> names;
  for (char** e = environ; e != nullptr && *e != nullptr; ++e) {
    const char* equals = std::strchr(*e, '=');
    if (equals != nullptr && IsClientSetting(std::string(*e, static_cast<size_t>(equals - *e))))
      names.emplace_back(*e, static_cast<size_t>(equals - *e));
  }
  for (const std::string& name : names) unsetenv(name.c_str());
  for (const std::string& entry : env) {
    const size_t equals = entry.find('=');
    setenv(entry.substr(0, equals).c_str(), entry.substr(equals + 1).c_str(), 1);
  }
}

// Each command line starts from a new instance's properties and findings,
// as it would in a process of its own; only the office stays (started again
// if it died). A worker without an office runs its commands as a cold
// control does.
void Reset(TabulonCtrl& control) {
  control.put_OptimizeForSpeed(true);
  const bool warm = control.get_OptimizeForSpeed();
  control.InitProperties();
  control.put_Verbose(false);
  if (warm) control.put_OptimizeForSpeed(true);
}

class Worker {
 public:
  explicit Worker(int channel) : channel_(channel), control_(Options()), own_settings_(ClientSettings()) {
    for (int fd = 0; fd < 3; ++fd) own_fds_[fd] = fcntl(fd, F_DUPFD_CLOEXEC, 10);
  }

  int Run() {
    control_.put_OptimizeForSpeed(true);
    const bool warm = control_.get_OptimizeForSpeed();
    const Message hello{kWarmMessage, {warm ? "1" : "0", control_.OfficeFinding(), std::to_string(OfficeMemoryKb())}};
    if (!SendFrame(channel_, hello)) return 1;
    FrameReader reader;
    for (;;) {
      const FrameReader::State state = reader.ReadWhole(channel_);
      if (state == FrameReader::State::kClosed) break;
      if (state != FrameReader::State::kComplete) {
        std::cerr << "tabulon: worker: " << reader.error() << "\n";
        return 1;
      }
      const Message message = reader.TakeMessage();
      std::vector<int> fds = reader.TakeFds();
      RunResult result;
      RunRequest request;
      std::string error;
      if (!DecodeRun(message, request, error) || fds.size() != 3) {
        result.status = kExitUsage;
        result.message = "tabulon: the server sent a request this worker cannot read: " +
                         (error.empty() ? std::string("no standard streams") : error) + "\n";
      } else {
        result = RunOne(request, fds);
      }
      CloseAll(fds);
      result.office_kb = OfficeMemoryKb();
      if (!SendFrame(channel_, EncodeDone(result))) return 1;
      // An office that died during the command is replaced now, between
      // requests, rather than on the next caller's time.
      control_.put_OptimizeForSpeed(true);
    }
    control_.put_OptimizeForSpeed(false);
    return 0;
  }

 private:
  static ControlOptions Options() {
    ControlOptions options;
    options.start_second_application_on_demand = true;
    return options;
  }

  RunResult RunOne(const RunRequest& request, const std::vector<int>& fds) {
    ApplySettings(request.env);
    Reset(control_);
    // What the command writes itself gets the caller's permissions (the
    // office's own writes keep the mask the server started with).
    const mode_t own_mask = umask(static_cast<mode_t>(request.umask));
    if (chdir(request.working_folder.c_str()) != 0) {
      // A folder the worker cannot enter: paths are still taken from it.
    }
    // The caller's streams become this process's own for the command, so
    // that /dev/stdout and a terminal test see what they would see there.
    for (int fd = 0; fd < 3; ++fd) dup2(fds[fd], fd);
    RunResult result;
    {
      FdOutBuf out_buf(1), err_buf(2);
      FdInBuf in_buf(0);
      std::ostream out(&out_buf), err(&err_buf);
      std::istream in(&in_buf);
      {
        ScopedIo io(out, err, in, request.working_folder);
        result.status = RunCommandLineGuarded(request.args, control_);
      }
      out.flush();
      err.flush();
      if (out_buf.broken_pipe() || err_buf.broken_pipe()) result.signal = SIGPIPE;
    }
    for (int fd = 0; fd < 3; ++fd) {
      if (own_fds_[fd] >= 0) dup2(own_fds_[fd], fd);
    }
    // The caller's passwords stay no longer than its command.
    ApplySettings(own_settings_);
    umask(own_mask);
    if (chdir("/") != 0) {
    }
    return result;
  }

  int channel_;
  TabulonCtrl control_;
  int own_fds_[3] = {-1, -1, -1};
  std::vector<std::string> own_settings_;
};

// Field `index` (1-based, as proc(5) counts) of /proc/<pid>/stat.
std::string StatField(const std::string& stat, int index) {
  const size_t paren = stat.rfind(')');
  if (paren == std::string::npos) return {};
  std::istringstream rest(stat.substr(paren + 2));
  std::string field;
  for (int i = 3; i <= index && rest >> field; ++i) {
  }
  return field;
}

}  // namespace

bool InWorker() { return in_worker; }

long OfficeMemoryKb() {
  struct Process {
    std::string pgid, ppid;
    long rss_pages = 0;
  };
  std::vector<Process> all;
  DIR* proc = opendir("/proc");
  if (proc == nullptr) return 0;
  while (dirent* entry = readdir(proc)) {
    if (entry->d_name[0] < '0' || entry->d_name[0] > '9') continue;
    std::ifstream in(std::string("/proc/") + entry->d_name + "/stat");
    std::string stat;
    if (!std::getline(in, stat)) continue;
    all.push_back({StatField(stat, 5), StatField(stat, 4), std::atol(StatField(stat, 24).c_str())});
  }
  closedir(proc);
  const std::string self = std::to_string(getpid());
  std::set<std::string> groups;
  for (const Process& p : all) {
    if (p.ppid == self && p.pgid != std::to_string(getpgrp())) groups.insert(p.pgid);
  }
  long pages = 0;
  for (const Process& p : all) {
    if (groups.count(p.pgid) > 0) pages += p.rss_pages;
  }
  return pages * (sysconf(_SC_PAGESIZE) / 1024);
}

int RunWorker(int channel, pid_t parent) {
  in_worker = true;
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) return 1;  // the parent ended before the line above
  struct sigaction action {};
  action.sa_handler = IgnoreSigpipe;
  sigemptyset(&action.sa_mask);
  sigaction(SIGPIPE, &action, nullptr);
  Worker worker(channel);
  return worker.Run();
}

}  // namespace tabulon::cli
