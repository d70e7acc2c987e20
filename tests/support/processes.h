// Office processes this test process started and that are still running.
#pragma once

#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace tabulon::testing {

// soffice.bin processes whose parent is this process (zombies not counted:
// they are gone, only not yet reaped).
inline std::vector<int> ChildOfficePids() {
  std::vector<int> pids;
  DIR* proc = opendir("/proc");
  if (proc == nullptr) return pids;
  while (dirent* entry = readdir(proc)) {
    const int pid = std::atoi(entry->d_name);
    if (pid <= 0) continue;
    std::ifstream stat("/proc/" + std::string(entry->d_name) + "/stat");
    std::string line;
    if (!std::getline(stat, line)) continue;
    const auto open = line.find('(');
    const auto close = line.rfind(')');
    if (open == std::string::npos || close == std::string::npos) continue;
    const std::string comm = line.substr(open + 1, close - open - 1);
    std::istringstream rest(line.substr(close + 2));
    char state = 0;
    int ppid = 0;
    rest >> state >> ppid;
    if (comm == "soffice.bin" && ppid == getpid() && state != 'Z') pids.push_back(pid);
  }
  closedir(proc);
  return pids;
}

// Waits until process `pid` has died (a zombie, or gone), up to `seconds`.
// A child of this process is asked without being reaped (the backend reaps
// its offices); for any other, a process in the middle of dying can hide
// its /proc entry for an instant, so only a zombie state or a missing /proc
// folder counts as dead.
inline bool WaitForDeath(int pid, int seconds) {
  for (int i = 0; i < seconds * 100; ++i) {
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0) {
      if (info.si_pid == pid) return true;
      usleep(10000);
      continue;
    }
    const std::string dir = "/proc/" + std::to_string(pid);
    if (access(dir.c_str(), F_OK) != 0) return true;
    std::ifstream stat(dir + "/stat");
    std::string line;
    if (std::getline(stat, line)) {
      const auto close = line.rfind(')');
      if (close != std::string::npos && close + 2 < line.size() && line[close + 2] == 'Z') return true;
    }
    usleep(10000);
  }
  return false;
}

}  // namespace tabulon::testing
