// What the tests of tabulon serve share: a server started and stopped by the
// test, command lines run through a shell (with their own folder and
// environment), the server's status, and the offices of its workers.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "cli_run.h"

namespace tabulon::testing {

inline bool Until(const std::function<bool()>& done, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < deadline) {
    if (done()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return done();
}

// `script` run by /bin/sh; its stdout, its stderr and its exit status
// (128 + the signal for one ended by a signal, as the shell tells it).
inline Result Shell(const std::string& script) {
  namespace fs = std::filesystem;
  const fs::path err_file = fs::temp_directory_path() / ("tabulon-serve-err-" + std::to_string(getpid()));
  Result r;
  FILE* pipe = popen(("{ " + script + "; } 2>" + err_file.string()).c_str(), "r");
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) r.out.append(buffer, n);
  const int status = pclose(pipe);
  r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  r.err = Read(err_file.string());
  fs::remove(err_file);
  return r;
}

inline std::string Quoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

// A process started from the test: its pid, and its stderr in a file.
struct Process {
  pid_t pid = -1;
  std::string err_file;
};

// Starts the command line with `args` in `folder`, extra environment
// entries in `env`; stdout to /dev/null (or `out_file`), stderr to a file.
inline Process StartTabulon(const std::vector<std::string>& args, const std::string& folder,
                            const std::vector<std::string>& env, const std::string& tag,
                            const std::string& out_file = "/dev/null") {
  Process p;
  p.err_file = folder + "/" + tag + ".err";
  p.pid = fork();
  if (p.pid == 0) {
    setpgid(0, 0);  // the test signals it alone
    if (chdir(folder.c_str()) != 0) _exit(119);
    for (const std::string& e : env) putenv(const_cast<char*>(e.c_str()));
    if (!freopen(out_file.c_str(), "w", stdout) || !freopen(p.err_file.c_str(), "w", stderr)) _exit(120);
    std::vector<char*> argv{const_cast<char*>(TABULON_CLI)};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(TABULON_CLI, argv.data());
    _exit(121);
  }
  return p;
}

inline int WaitFor(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

// `tabulon serve` run by a test, in `folder` with a temporary folder of its
// own there (tmp), so that what it leaves behind can be seen.
class Server {
 public:
  Server(const std::string& folder, int offices, std::vector<std::string> env = {},
         const std::vector<std::string>& options = {})
      : folder_(Trimmed(folder)), socket_(folder_ + "/run/serve.sock"), tmp_(folder_ + "/tmp") {
    std::filesystem::create_directories(tmp_);
    env.push_back("TMPDIR=" + tmp_);
    env_ = env;
    std::vector<std::string> args = {"serve", "--socket", socket_, "--offices", std::to_string(offices)};
    args.insert(args.end(), options.begin(), options.end());
    process_ = StartTabulon(args, folder_, env_, "serve");
    ready_ = Until(
                 [&] {
                   return Read(process_.err_file).find("tabulon: serve: ready ") != std::string::npos ||
                          waitpid(process_.pid, &early_status_, WNOHANG) == process_.pid;
                 },
                 std::chrono::seconds(180)) &&
             Read(process_.err_file).find("tabulon: serve: ready " + socket_ + "\n") != std::string::npos;
  }
  // Stopped as a script would stop it: its offices are gone when it is.
  ~Server() {
    if (process_.pid > 0) Stop(SIGTERM);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  static std::string Trimmed(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
  }
  bool ready() const { return ready_; }
  pid_t pid() const { return process_.pid; }
  const std::string& socket() const { return socket_; }
  const std::string& tmp() const { return tmp_; }
  std::string log() const { return Read(process_.err_file); }

  // Sends `signal_number` and waits for the server to end; its wait status.
  int Stop(int signal_number) {
    kill(process_.pid, signal_number);
    const int status = WaitFor(process_.pid);
    process_.pid = -1;
    return status;
  }

  // tabulon --server SOCKET <args>, in `cwd`.
  Result Run(const std::string& args, const std::string& cwd) const {
    return Shell("cd " + Quoted(cwd) + " && " + TABULON_CLI + " --server " + Quoted(socket_) + " " + args);
  }

  // The status as JSON.
  std::string StatusJson() const {
    return Shell(std::string(TABULON_CLI) + " status --json --server " + Quoted(socket_)).out;
  }

 private:
  std::string folder_, socket_, tmp_;
  std::vector<std::string> env_;
  Process process_;
  bool ready_ = false;
  int early_status_ = 0;
};

// Each office of a status JSON: its worker's pid, its state and its jobs.
struct OfficeStatus {
  pid_t worker;
  std::string state;
  long jobs;
};
inline std::vector<OfficeStatus> Offices(const std::string& json) {
  std::vector<OfficeStatus> offices;
  static const std::regex kOffice(R"re(\{"office":\d+,"worker":(\d+),"state":"(\w+)","warm":\w+,"jobs":(\d+))re");
  for (std::sregex_iterator it(json.begin(), json.end(), kOffice), end; it != end; ++it) {
    offices.push_back({static_cast<pid_t>(std::stol((*it)[1])), (*it)[2], std::stol((*it)[3])});
  }
  return offices;
}

// The accepting office (soffice.bin --accept=...) that `parent` started, or
// -1.
inline pid_t OfficeOf(pid_t parent) {
  namespace fs = std::filesystem;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const std::string name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    const std::string stat = Read((entry.path() / "stat").string());
    const size_t paren = stat.rfind(')');
    if (paren == std::string::npos || stat.find("(soffice.bin)") == std::string::npos) continue;
    char state = 0;
    pid_t ppid = 0;
    if (sscanf(stat.c_str() + paren + 2, "%c %d", &state, &ppid) != 2 || ppid != parent || state == 'Z') continue;
    if (Read((entry.path() / "cmdline").string()).find("--accept=") == std::string::npos) continue;
    return std::stoi(name);
  }
  return -1;
}

inline bool Gone(pid_t pid) { return kill(pid, 0) != 0; }

}  // namespace tabulon::testing
