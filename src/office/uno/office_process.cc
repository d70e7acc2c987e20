#include "office/uno/office_process.h"

#include <fcntl.h>
#include <locale.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <thread>
#include <vector>

extern char** environ;

namespace tabulon::office::uno {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDefaultProgramDir = "/usr/lib/libreoffice/program";

// The office is forked from one long-lived thread. The child asks the kernel
// to kill it when its parent thread ends (PR_SET_PDEATHSIG); that thread is
// this launcher, which lives as long as the process, so an office never
// outlives the program that started it, even when the program is killed.
// Forking from a short-lived caller thread would kill the office when that
// thread ends.
class Launcher {
 public:
  static Launcher& Get() {
    static Launcher* launcher = new Launcher();  // never destroyed: the thread outlives statics
    return *launcher;
  }

  // Returns the child's pid, or -errno.
  pid_t Spawn(const std::string& path, const std::vector<std::string>& args,
              const std::vector<std::string>& env) {
    std::unique_lock<std::mutex> lock(mutex_);
    Request request{&path, &args, &env, 0, false};
    queue_.push_back(&request);
    cv_.notify_all();
    cv_.wait(lock, [&] { return request.done; });
    return request.result;
  }

 private:
  struct Request {
    const std::string* path;
    const std::vector<std::string>* args;
    const std::vector<std::string>* env;
    pid_t result;
    bool done;
  };

  Launcher() {
    std::thread([this] { Loop(); }).detach();
  }

  void Loop() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      cv_.wait(lock, [&] { return !queue_.empty(); });
      Request* request = queue_.front();
      queue_.pop_front();
      request->result = Fork(*request->path, *request->args, *request->env);
      request->done = true;
      cv_.notify_all();
    }
  }

  static pid_t Fork(const std::string& path, const std::vector<std::string>& args,
                    const std::vector<std::string>& env) {
    // Everything the child needs is prepared before fork: after it, only
    // async-signal-safe calls.
    std::vector<char*> argv;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (const auto& e : env) envp.push_back(const_cast<char*>(e.c_str()));
    envp.push_back(nullptr);
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0) return -errno;
    if (pid == 0) {
      setpgid(0, 0);
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (getppid() != parent) _exit(126);
      sigset_t none;
      sigemptyset(&none);
      sigprocmask(SIG_SETMASK, &none, nullptr);
      const int null_fd = open("/dev/null", O_RDWR);
      if (null_fd >= 0) {
        dup2(null_fd, 0);
        dup2(null_fd, 1);
        dup2(null_fd, 2);
        if (null_fd > 2) close(null_fd);
      }
      execve(path.c_str(), argv.data(), envp.data());
      _exit(127);
    }
    // Also from the parent, so that killpg works at once whoever runs first.
    setpgid(pid, pid);
    return pid;
  }

  std::mutex mutex_;
  std::condition_variable cv_;
  std::deque<Request*> queue_;
};

std::string UniqueToken() {
  static std::atomic<unsigned> counter{0};
  std::random_device rd;
  char buf[64];
  snprintf(buf, sizeof buf, "%d_%u_%08x", static_cast<int>(getpid()), counter.fetch_add(1),
           static_cast<unsigned>(rd()));
  return buf;
}

bool LocaleExists(const char* name) {
  locale_t loc = newlocale(LC_ALL_MASK, name, static_cast<locale_t>(0));
  if (loc == static_cast<locale_t>(0)) return false;
  freelocale(loc);
  return true;
}

}  // namespace

std::string ResolveProgramDir(const std::string& configured) {
  std::string dir = configured;
  if (dir.empty()) {
    const char* env = std::getenv("TABULON_OFFICE");
    dir = (env != nullptr && *env != '\0') ? env : kDefaultProgramDir;
  }
  fs::path p(dir);
  const std::string leaf = p.filename().string();
  if (leaf == "soffice" || leaf == "soffice.bin") p = p.parent_path();
  std::string out = p.string();
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

const std::string& OfficeLocale() {
  static const std::string locale = LocaleExists("en_US.UTF-8") ? "en_US.UTF-8" : "C.UTF-8";
  return locale;
}

OfficeProcess::OfficeProcess(std::string program_dir) : program_dir_(std::move(program_dir)) {
  std::error_code ec;
  fs::path base = fs::temp_directory_path(ec);
  if (ec) base = "/tmp";
  std::string tmpl = (base / "tabulon-office-XXXXXX").string();
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  if (mkdtemp(buf.data()) != nullptr) profile_dir_ = buf.data();
  pipe_name_ = "tabulon_office_" + UniqueToken();
}

OfficeProcess::~OfficeProcess() { Finish(); }

// The office's settings in the fresh profile. Document lock files are off:
// every office here is our own, and a lock file left by an office that was
// killed would otherwise make the next open of that file read-only.
bool OfficeProcess::WriteSettings(std::string* reason) const {
  std::error_code ec;
  const fs::path user = fs::path(profile_dir_) / "user";
  fs::create_directories(user, ec);
  std::ofstream out(user / "registrymodifications.xcu", std::ios::binary | std::ios::trunc);
  out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<oor:items xmlns:oor=\"http://openoffice.org/2001/registry\" "
         "xmlns:xs=\"http://www.w3.org/2001/XMLSchema\" "
         "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n"
         "<item oor:path=\"/org.openoffice.Office.Common/Misc\">"
         "<prop oor:name=\"UseLocking\" oor:op=\"fuse\"><value>false</value></prop></item>\n"
         "</oor:items>\n";
  if (!out.flush()) {
    *reason = "cannot write the office's settings in " + user.string();
    return false;
  }
  return true;
}

bool OfficeProcess::Spawn(std::string* reason) {
  if (profile_dir_.empty()) {
    *reason = "cannot create a profile folder";
    return false;
  }
  const std::string binary = program_dir_ + "/soffice.bin";
  if (access(binary.c_str(), X_OK) != 0) {
    *reason = "no office at " + program_dir_;
    return false;
  }
  if (!WriteSettings(reason)) return false;
  std::vector<std::string> args = {
      binary,       "--headless", "--invisible", "--nologo", "--norestore", "--nodefault",
      "--nolockcheck",
      "--accept=pipe,name=" + pipe_name_ + ";urp;StarOffice.ComponentContext",
      "-env:UserInstallation=file://" + profile_dir_};
  std::vector<std::string> env;
  for (char** e = environ; e != nullptr && *e != nullptr; ++e) {
    if (std::strncmp(*e, "LANG=", 5) == 0 || std::strncmp(*e, "LC_", 3) == 0 ||
        std::strncmp(*e, "LANGUAGE=", 9) == 0 || std::strncmp(*e, "SAL_USE_VCLPLUGIN=", 18) == 0)
      continue;
    env.emplace_back(*e);
  }
  env.push_back("LANG=" + OfficeLocale());
  env.push_back("LC_ALL=" + OfficeLocale());
  env.push_back("SAL_USE_VCLPLUGIN=svp");
  std::lock_guard<std::mutex> lock(mutex_);
  const pid_t pid = Launcher::Get().Spawn(binary, args, env);
  if (pid < 0) {
    *reason = std::string("cannot start the office: ") + std::strerror(-pid);
    return false;
  }
  pid_ = pid;
  reaped_ = false;
  exit_code_ = -1;
  return true;
}

bool OfficeProcess::Running() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (reaped_) return false;
  int status = 0;
  const pid_t r = waitpid(pid_, &status, WNOHANG);
  if (r == 0) return true;
  reaped_ = true;
  exit_code_ = (r == pid_ && WIFEXITED(status)) ? WEXITSTATUS(status) : -1;
  return false;
}

bool OfficeProcess::WaitExit(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    if (!Running()) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

void OfficeProcess::KillGroup() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (reaped_) return;
  // The group first (anything the office started), then the process itself
  // in case it left its group.
  killpg(pid_, SIGKILL);
  kill(pid_, SIGKILL);
}

void OfficeProcess::Finish() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!reaped_) {
      killpg(pid_, SIGKILL);
      kill(pid_, SIGKILL);
      int status = 0;
      while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
      }
      reaped_ = true;
      exit_code_ = -1;
    }
  }
  if (!profile_dir_.empty()) {
    std::error_code ec;
    fs::remove_all(profile_dir_, ec);
    profile_dir_.clear();
  }
}

}  // namespace tabulon::office::uno
