#include "office/uno/office_process.h"

#include <fcntl.h>
#include <locale.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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
#include <set>
#include <vector>

#include <rtl/digest.h>
#include <rtl/ustring.hxx>

#include "office/uno/profile_cache.h"

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

constexpr const char* kProfilePrefix = "tabulon-office-";
constexpr const char* kPipePrefix = "tabulon_office_";

// The start time of a process (clock ticks since boot, field 22 of
// /proc/<pid>/stat), or "" when there is no such process. A pid and its start
// time name one process for good: pids are reused, the pair is not.
std::string StartTimeOf(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string stat;
  if (!std::getline(in, stat)) return {};
  const size_t paren = stat.rfind(')');  // the command name may hold spaces
  if (paren == std::string::npos) return {};
  std::string field;
  size_t pos = paren + 2;
  for (int index = 3; index <= 22; ++index) {
    const size_t space = stat.find(' ', pos);
    field = stat.substr(pos, space == std::string::npos ? std::string::npos : space - pos);
    if (space == std::string::npos) break;
    pos = space + 1;
  }
  return field;
}

fs::path TempBase() {
  std::error_code ec;
  fs::path base = fs::temp_directory_path(ec);
  return ec ? fs::path("/tmp") : base;
}

// The office names its single-instance pipe after an MD5 of the profile URL
// (UTF-16 code units, hex digits without padding).
std::string SingleInstancePipeName(const std::string& profile_dir) {
  const std::string url8 = "file://" + profile_dir;
  const rtl::OUString url(url8.data(), static_cast<sal_Int32>(url8.size()), RTL_TEXTENCODING_UTF8);
  sal_uInt8 digest[RTL_DIGEST_LENGTH_MD5];
  rtl_digest_MD5(url.getStr(), url.getLength() * sizeof(sal_Unicode), digest, sizeof digest);
  std::string hash;
  char buf[4];
  for (sal_uInt8 b : digest) {
    snprintf(buf, sizeof buf, "%x", static_cast<unsigned>(b));
    hash += buf;
  }
  return "SingleOfficeIPC_" + hash;
}

// Both pipe files stay in the pipe folders after a kill, and even after a
// clean exit.
void RemovePipeFiles(const std::string& pipe_name, const std::string& profile_dir) {
  for (const std::string& file : OfficePipeFiles(pipe_name, profile_dir)) {
    std::error_code ec;
    fs::remove(file, ec);
  }
}

std::atomic<int32_t> g_first_starts{0};

// The pipe name that belongs to a profile folder: the folder's name after
// the prefix, with "_" for "-".
std::string PipeNameFor(const std::string& profile_dir) {
  std::string tail = fs::path(profile_dir).filename().string().substr(std::strlen(kProfilePrefix));
  for (char& c : tail) {
    if (c == '-') c = '_';
  }
  return kPipePrefix + tail;
}

// Every live OfficeProcess, for KillEveryOffice.
std::mutex registry_mutex;
std::set<OfficeProcess*>& Registry() {
  static auto* registry = new std::set<OfficeProcess*>();  // used until the very end
  return *registry;
}

bool LocaleExists(const char* name) {
  locale_t loc = newlocale(LC_ALL_MASK, name, static_cast<locale_t>(0));
  if (loc == static_cast<locale_t>(0)) return false;
  freelocale(loc);
  return true;
}

}  // namespace

// A write to an office that has just closed its pipe raises SIGPIPE in the
// writing thread, and its default action ends the whole program. Blocked
// here, it stays pending on this thread, where it is taken away before the
// host's own mask comes back (unless the host had one pending already).
SigpipeBlock::SigpipeBlock() {
  sigset_t pipe_only;
  sigemptyset(&pipe_only);
  sigaddset(&pipe_only, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe_only, &previous_);
  sigset_t pending;
  sigpending(&pending);
  was_pending_ = sigismember(&pending, SIGPIPE) == 1;
}

SigpipeBlock::~SigpipeBlock() {
  if (sigismember(&previous_, SIGPIPE) == 1) return;  // the host blocks it itself
  if (!was_pending_) {
    sigset_t pipe_only;
    sigemptyset(&pipe_only);
    sigaddset(&pipe_only, SIGPIPE);
    const timespec zero{0, 0};
    while (sigtimedwait(&pipe_only, nullptr, &zero) == SIGPIPE) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}

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

const std::string& ProgramOwnerTag() {
  static const std::string tag = std::to_string(getpid()) + "-" + StartTimeOf(getpid()) + "-";
  return tag;
}

bool OwnedByEndedProgram(const std::string& tail) {
  // <pid>-<start>-...
  const size_t dash1 = tail.find('-');
  const size_t dash2 = dash1 == std::string::npos ? dash1 : tail.find('-', dash1 + 1);
  if (dash2 == std::string::npos) return false;  // not named after an owner: leave it
  const std::string pid_text = tail.substr(0, dash1);
  if (pid_text.empty() || pid_text.size() > 9 || pid_text.find_first_not_of("0123456789") != std::string::npos)
    return false;
  const std::string start = tail.substr(dash1 + 1, dash2 - dash1 - 1);
  return StartTimeOf(static_cast<pid_t>(std::stol(pid_text))) != start;
}

std::vector<std::string> OfficePipeFiles(const std::string& pipe_name, const std::string& profile_dir) {
  std::vector<std::string> names;
  if (!pipe_name.empty()) names.push_back(pipe_name);
  if (!profile_dir.empty()) names.push_back(SingleInstancePipeName(profile_dir));
  const std::string uid = std::to_string(getuid());
  std::vector<std::string> files;
  for (const char* dir : {"/tmp", "/var/tmp"}) {
    for (const std::string& name : names) files.push_back(std::string(dir) + "/OSL_PIPE_" + uid + "_" + name);
  }
  return files;
}

void RemoveProfilePipeFiles(const std::string& profile_dir) { RemovePipeFiles({}, profile_dir); }

int32_t FirstStartRuns() { return g_first_starts.load(); }

void SweepAbandonedProfiles() {
  static std::once_flag once;
  std::call_once(once, [] {
    std::error_code ec;
    for (fs::directory_iterator it(TempBase(), ec), end; !ec && it != end; it.increment(ec)) {
      const std::string name = it->path().filename().string();
      if (name.rfind(kProfilePrefix, 0) != 0) continue;
      // tabulon-office-<pid>-<start>-<unique>
      if (!OwnedByEndedProgram(name.substr(std::strlen(kProfilePrefix)))) continue;
      std::error_code ignored;
      fs::remove_all(it->path(), ignored);
      RemovePipeFiles(PipeNameFor(it->path().string()), it->path().string());
    }
  });
}

void KillEveryOffice() {
  std::lock_guard<std::mutex> lock(registry_mutex);
  for (OfficeProcess* process : Registry()) process->Finish();
}

OfficeProcess::OfficeProcess(std::string program_dir) : program_dir_(std::move(program_dir)) {
  SweepAbandonedProfiles();
  std::string tmpl = (TempBase() / (kProfilePrefix + ProgramOwnerTag() + "XXXXXX")).string();
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  if (mkdtemp(buf.data()) != nullptr) {
    profile_dir_ = buf.data();
    pipe_name_ = PipeNameFor(profile_dir_);
  } else {
    pipe_name_ = kPipePrefix + ProgramOwnerTag();
  }
  std::lock_guard<std::mutex> lock(registry_mutex);
  Registry().insert(this);
}

OfficeProcess::OfficeProcess(std::string program_dir, std::string profile_dir, BorrowedFolder)
    : program_dir_(std::move(program_dir)), profile_dir_(std::move(profile_dir)), owns_profile_(false) {
  std::lock_guard<std::mutex> lock(registry_mutex);
  Registry().insert(this);
}

OfficeProcess::~OfficeProcess() {
  {
    std::lock_guard<std::mutex> lock(registry_mutex);
    Registry().erase(this);
  }
  Finish();
}

std::string OfficeProcess::profile_dir() {
  std::lock_guard<std::mutex> lock(mutex_);
  return profile_dir_;
}

pid_t OfficeProcess::Start(const std::vector<std::string>& extra, std::string* reason) {
  if (profile_dir_.empty()) {
    *reason = "cannot create a profile folder";
    return -1;
  }
  const std::string binary = program_dir_ + "/soffice.bin";
  if (access(binary.c_str(), X_OK) != 0) {
    *reason = "no office at " + program_dir_;
    return -1;
  }
  std::vector<std::string> args = {binary,        "--headless",  "--invisible", "--nologo",
                                   "--norestore", "--nodefault", "--nolockcheck"};
  args.insert(args.end(), extra.begin(), extra.end());
  args.push_back("-env:UserInstallation=file://" + profile_dir_);
  // The office's backup of a profile that worked, made at every exit, is of
  // no use for a profile that goes with the office, and its exit is waited
  // for.
  args.push_back("-env:SecureUserConfig=false");
  std::vector<std::string> env;
  for (char** e = environ; e != nullptr && *e != nullptr; ++e) {
    if (std::strncmp(*e, "LANG=", 5) == 0 || std::strncmp(*e, "LC_", 3) == 0 ||
        std::strncmp(*e, "LANGUAGE=", 9) == 0 || std::strncmp(*e, "SAL_USE_VCLPLUGIN=", 18) == 0 ||
        std::strncmp(*e, "TMPDIR=", 7) == 0 || std::strncmp(*e, "TMP=", 4) == 0 ||
        std::strncmp(*e, "TEMP=", 5) == 0)
      continue;
    env.emplace_back(*e);
  }
  env.push_back("LANG=" + OfficeLocale());
  env.push_back("LC_ALL=" + OfficeLocale());
  env.push_back("SAL_USE_VCLPLUGIN=svp");
  // The office's own temporary files (lu*.tmp folders) go with the profile.
  env.push_back("TMPDIR=" + profile_dir_ + "/tmp");
  const pid_t pid = Launcher::Get().Spawn(binary, args, env);
  if (pid < 0) *reason = std::string("cannot start the office: ") + std::strerror(-pid);
  return pid;
}

bool OfficeProcess::Prepare(std::chrono::milliseconds limit, std::string* reason) {
  if (profile_dir_.empty()) {
    *reason = "cannot create a profile folder";
    return false;
  }
  if (CopyPreparedProfile(program_dir_, profile_dir_, limit, &OfficeProcess::PrepareFreshProfile)) {
    std::error_code ec;
    // The office's own temporary folder (TMPDIR) is its copy's alone.
    fs::create_directory(fs::path(profile_dir_) / "tmp", ec);
    profile_from_cache_ = true;
    return true;
  }
  if (!WriteProfileSettings(profile_dir_, IdentifyOffice(program_dir_).version, reason)) return false;
  return FirstStart(limit, reason);
}

bool OfficeProcess::PrepareFreshProfile(const std::string& program_dir, const std::string& dir,
                                        std::chrono::milliseconds limit, std::string* reason) {
  OfficeProcess office(program_dir, dir, BorrowedFolder{});
  if (!WriteProfileSettings(dir, IdentifyOffice(program_dir).version, reason)) return false;
  const bool ok = office.FirstStart(limit, reason);
  office.Finish();
  return ok;
}

bool OfficeProcess::FirstStart(std::chrono::milliseconds limit, std::string* reason) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (int start = 0; start < 3; ++start) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      const pid_t pid = Start({"--terminate_after_init"}, reason);
      if (pid < 0) return false;
      ++g_first_starts;
      pid_ = pid;
      reaped_ = false;
      exit_code_ = -1;
      term_signal_ = 0;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (!WaitExit(std::max(left, std::chrono::milliseconds(0)))) {
      Finish();
      *reason = "the office did not start in time";
      return false;
    }
    if (exit_code_ == 0) return true;
    if (exit_code_ != 81) break;  // 81: set up, start again
  }
  *reason = "the office could not set up its profile (code " + std::to_string(exit_code_) + ")";
  return false;
}

bool OfficeProcess::Spawn(std::string* reason) {
  std::lock_guard<std::mutex> lock(mutex_);
  const pid_t pid =
      Start({"--accept=pipe,name=" + pipe_name_ + ";urp;StarOffice.ComponentContext"}, reason);
  if (pid < 0) return false;
  pid_ = pid;
  reaped_ = false;
  exit_code_ = -1;
  term_signal_ = 0;
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
  term_signal_ = (r == pid_ && WIFSIGNALED(status)) ? WTERMSIG(status) : 0;
  return false;
}

std::string OfficeProcess::EndText() const {
  if (term_signal_ != 0)
    return "was killed by signal " + std::to_string(term_signal_) + " (" + strsignal(term_signal_) + ")";
  if (exit_code_ >= 0) return "exited with code " + std::to_string(exit_code_);
  return "ended";
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
  std::lock_guard<std::mutex> lock(mutex_);
  if (!reaped_) {
    killpg(pid_, SIGKILL);
    kill(pid_, SIGKILL);
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    reaped_ = true;
    exit_code_ = -1;
    term_signal_ = SIGKILL;
  }
  if (!profile_dir_.empty()) {
    std::error_code ec;
    if (owns_profile_) fs::remove_all(profile_dir_, ec);
    RemovePipeFiles(pipe_name_, profile_dir_);
    profile_dir_.clear();
  }
}

}  // namespace tabulon::office::uno
