// The command line under bad options, refused writes, offices that hang or
// die, termination signals and parallel load: it never crashes, never calls
// an unwritten file a success, says what happened to the office, and leaves
// nothing behind in its temporary folder.
#include <glob.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "cli_run.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using tabulon::testing::Folder;
using tabulon::testing::Read;
using tabulon::testing::Result;
using tabulon::testing::Tabulon;

// ---- Options and names no call can use: usage errors, never a crash ----

TEST(CliContract, OutOfRangeOptionValuesAreUsageErrors) {
  Folder dir;
  std::ofstream(dir / "in.csv") << "a,b\n";
  const std::string in = dir / "in.csv";
  const std::string out = dir / "out.csv";
  const struct {
    std::string args;
    std::string says;
  } cases[] = {
      {"convert -d 99999999999 " + in + " " + out, "-d: '99999999999'"},
      {"convert -d 256 " + in + " " + out, "-d: '256'"},
      {"convert -d ab " + in + " " + out, "-d: 'ab'"},
      {"convert -t 99999999999 " + in + " " + out, "unknown format"},
      {"convert -t -99999999999 " + in + " " + out, "unknown format"},
      {"convert " + in + " " + dir / std::string(300, 'x') + ".csv", "file name too long"},
      {"convert " + dir / std::string(256, 'y') + " " + out, "file name too long"},
      {"convert -t csv " + in + " " + in + " " + dir / std::string(260, 'z'), "file name too long"},
  };
  for (const auto& c : cases) {
    const Result r = Tabulon(c.args);
    EXPECT_EQ(r.exit_code, 2) << c.args << "\n" << r.err;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
    EXPECT_TRUE(r.out.empty());
  }
  EXPECT_FALSE(fs::exists(out));
}

// ---- Helpers for runs that a test watches, stops or kills ----

struct Child {
  pid_t pid = -1;
  std::string out;
  std::string err;
};

// Starts the command line with `args` and extra environment entries
// ("NAME=value"); its output goes to files in `dir`.
Child Start(const std::vector<std::string>& args, const std::vector<std::string>& env, const Folder& dir,
            const std::string& tag) {
  Child child;
  child.out = dir / (tag + ".out");
  child.err = dir / (tag + ".err");
  child.pid = fork();
  if (child.pid == 0) {
    for (const std::string& e : env) putenv(const_cast<char*>(e.c_str()));
    if (!freopen(child.out.c_str(), "w", stdout) || !freopen(child.err.c_str(), "w", stderr)) _exit(120);
    std::vector<char*> argv{const_cast<char*>(TABULON_CLI)};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(TABULON_CLI, argv.data());
    _exit(121);
  }
  return child;
}

int WaitStatus(const Child& child) {
  int status = 0;
  while (waitpid(child.pid, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

bool Until(const std::function<bool()>& done, milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < deadline) {
    if (done()) return true;
    std::this_thread::sleep_for(milliseconds(20));
  }
  return done();
}

std::vector<std::string> Glob(const std::string& pattern) {
  std::vector<std::string> found;
  glob_t g{};
  if (glob(pattern.c_str(), 0, nullptr, &g) == 0) {
    for (size_t i = 0; i < g.gl_pathc; ++i) found.push_back(g.gl_pathv[i]);
  }
  globfree(&g);
  return found;
}

// The accepting pipe of an office that the command line `owner` started:
// there once the office listens for the bridge.
std::vector<std::string> PipesOf(pid_t owner) {
  return Glob("/tmp/OSL_PIPE_" + std::to_string(getuid()) + "_tabulon_office_" + std::to_string(owner) + "_*");
}

// Offices (soffice.bin) whose parent is `owner`, the accepting one only
// when `accepting`.
std::vector<pid_t> OfficesOf(pid_t owner, bool accepting) {
  std::vector<pid_t> pids;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const std::string name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    const std::string stat = Read(entry.path() / "stat");
    const size_t paren = stat.rfind(')');
    if (paren == std::string::npos || stat.find("(soffice.bin)") == std::string::npos) continue;
    pid_t ppid = 0;
    if (sscanf(stat.c_str() + paren + 2, "%*c %d", &ppid) != 1 || ppid != owner) continue;
    if (stat[paren + 2] == 'Z') continue;
    if (accepting && Read(entry.path() / "cmdline").find("--accept=") == std::string::npos) continue;
    pids.push_back(std::stoi(name));
  }
  return pids;
}

// The office doing the work of a `convert` (its first application answers
// the install probe, so it is the command line's only accepting office),
// once it listens on its pipe. -1 when none comes within the limit.
pid_t WorkingOffice(pid_t owner, milliseconds limit) {
  pid_t found = -1;
  Until(
      [&] {
        for (pid_t pid : OfficesOf(owner, true)) {
          const std::string cmdline = Read("/proc/" + std::to_string(pid) + "/cmdline");
          const size_t at = cmdline.find("--accept=pipe,name=");
          if (at == std::string::npos) continue;
          const size_t begin = at + std::strlen("--accept=pipe,name=");
          const std::string pipe = cmdline.substr(begin, cmdline.find(';', begin) - begin);
          if (!fs::exists("/tmp/OSL_PIPE_" + std::to_string(getuid()) + "_" + pipe)) continue;
          found = pid;
          return true;
        }
        return false;
      },
      limit);
  return found;
}

// Everything left in a folder, for messages.
std::string Listing(const std::string& folder) {
  std::string names;
  for (const auto& entry : fs::directory_iterator(folder)) names += entry.path().filename().string() + " ";
  return names;
}

// A private temporary folder for the command line, so that what it leaves
// there can be seen.
struct PrivateTmp {
  Folder dir{"tabulon-cli-hard-"};
  std::string tmp = dir / "tmp";
  std::string env = "TMPDIR=" + tmp;
  PrivateTmp() { fs::create_directories(tmp); }
};

// ---- Stale targets: success only for files the call wrote ----

TEST(CliOffice, ATargetTheOfficeDidNotWriteIsNeverASuccess) {
  Folder dir;
  const std::string target = dir / "t.csv";
  const struct {
    std::string args;
    std::string office_says;
  } cases[] = {
      // A format the office has no writer for, and a range beyond its columns.
      {std::string("convert -t 50 ") + TABULON_SAMPLE + " " + target, "50"},
      {std::string("convert -s 1 -r A1:ZZZ9 ") + TABULON_SAMPLE + " " + target, ""},
  };
  for (const auto& c : cases) {
    std::ofstream(target, std::ios::binary | std::ios::trunc) << "old\n";
    const Result r = Tabulon(c.args);
    EXPECT_EQ(r.exit_code, 1) << c.args << "\n" << r.err;
    EXPECT_TRUE(r.out.empty()) << c.args << "\n" << r.out;
    EXPECT_NE(r.err.find("tabulon: convert: 0 the office did not write " + target), std::string::npos) << r.err;
    // The office's own reason on the second line.
    const size_t second = r.err.find("\ntabulon: convert: office: ");
    EXPECT_NE(second, std::string::npos) << r.err;
    if (second != std::string::npos) {
      EXPECT_NE(r.err.find(c.office_says, second), std::string::npos) << r.err;
    }
    EXPECT_EQ(Read(target), "old\n");
  }
}

TEST(CliOffice, AFailedCallPrintsTheFilesItDidWrite) {
  Folder dir;
  // Sheet 1 exists, sheet 99 does not: -11, and the first sheet's file is
  // written and listed.
  const Result r = Tabulon(std::string("convert -m -s 1,99 ") + TABULON_SAMPLE + " " + dir / "p.csv");
  EXPECT_EQ(r.exit_code, 1) << r.err;
  EXPECT_NE(r.err.find("-11"), std::string::npos) << r.err;
  EXPECT_EQ(r.out, dir / "p-1.csv" + "\n");
  EXPECT_TRUE(fs::exists(dir / "p-1.csv"));
}

// ---- The office's own finding after the result message ----

TEST(CliOffice, AHungOfficeShowsTheWatchdogsFinding) {
  PrivateTmp tmp;
  const Child child = Start({"convert", TABULON_SAMPLE, tmp.dir / "h.csv"}, {tmp.env, "TABULON_CALL_TIME_LIMIT=3"},
                            tmp.dir, "hung");
  const pid_t office = WorkingOffice(child.pid, milliseconds(90000));
  ASSERT_GT(office, 0);
  kill(office, SIGSTOP);
  const int status = WaitStatus(child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
  const std::string err = Read(child.err);
  EXPECT_NE(err.find("\ntabulon: convert: office: "), std::string::npos) << err;
  EXPECT_NE(err.find("timed out after 3 s"), std::string::npos) << err;
  EXPECT_TRUE(fs::is_empty(tmp.tmp)) << Listing(tmp.tmp);
  EXPECT_TRUE(OfficesOf(child.pid, false).empty());
}

TEST(CliOffice, AKilledOfficeShowsThatItWasKilled) {
  PrivateTmp tmp;
  const Child child = Start({"convert", TABULON_SAMPLE, tmp.dir / "k.csv"}, {tmp.env}, tmp.dir, "killed");
  const pid_t office = WorkingOffice(child.pid, milliseconds(90000));
  ASSERT_GT(office, 0);
  kill(office, SIGKILL);
  const int status = WaitStatus(child);
  ASSERT_TRUE(WIFEXITED(status));
  const std::string err = Read(child.err);
  EXPECT_EQ(WEXITSTATUS(status), 1) << err;
  EXPECT_NE(err.find("\ntabulon: convert: office: "), std::string::npos) << err;
  EXPECT_NE(err.find("killed by signal 9"), std::string::npos) << err;
  EXPECT_TRUE(fs::is_empty(tmp.tmp)) << Listing(tmp.tmp);
}

// ---- Termination signals and kills: nothing left behind ----

TEST(CliOffice, ATerminatedCommandLineQuitsItsOfficeAndRemovesItsProfile) {
  for (int signal_number : {SIGTERM, SIGINT}) {
    PrivateTmp tmp;
    const Child child = Start({"convert", TABULON_SAMPLE, tmp.dir / "s.csv"}, {tmp.env}, tmp.dir, "term");
    // The pipe may appear a moment before its office shows as the child's.
    std::vector<pid_t> offices;
    ASSERT_TRUE(Until(
        [&] {
          offices = OfficesOf(child.pid, false);
          return !PipesOf(child.pid).empty() && !offices.empty();
        },
        milliseconds(90000)));
    ASSERT_FALSE(offices.empty());
    kill(child.pid, signal_number);
    const int status = WaitStatus(child);
    // It ends by the signal it was sent, as it would have without handling.
    ASSERT_TRUE(WIFSIGNALED(status)) << status;
    EXPECT_EQ(WTERMSIG(status), signal_number);
    EXPECT_TRUE(fs::is_empty(tmp.tmp)) << Listing(tmp.tmp);
    EXPECT_TRUE(PipesOf(child.pid).empty());
    for (pid_t office : offices) EXPECT_NE(kill(office, 0), 0) << "office " << office << " still there";
  }
}

TEST(CliOffice, TheNextRunSweepsTheProfileOfAKilledCommandLine) {
  PrivateTmp tmp;
  const Child killed = Start({"convert", TABULON_SAMPLE, tmp.dir / "x.csv"}, {tmp.env}, tmp.dir, "killed");
  ASSERT_TRUE(Until([&] { return !PipesOf(killed.pid).empty(); }, milliseconds(90000)));
  const std::vector<pid_t> offices = OfficesOf(killed.pid, false);
  kill(killed.pid, SIGKILL);
  WaitStatus(killed);
  // Its office goes with it; its profile cannot.
  for (pid_t office : offices) {
    EXPECT_TRUE(Until([&] { return kill(office, 0) != 0; }, milliseconds(10000))) << office;
  }
  EXPECT_FALSE(fs::is_empty(tmp.tmp));

  // A profile whose owner is alive (this test) is never touched.
  const std::string live = tmp.tmp + "/tabulon-office-" + std::to_string(getpid()) + "-" + [] {
    std::string stat = Read("/proc/self/stat");
    std::string field;
    size_t pos = stat.rfind(')') + 2;
    for (int i = 3; i <= 22; ++i) {
      const size_t space = stat.find(' ', pos);
      field = stat.substr(pos, space - pos);
      pos = space + 1;
    }
    return field;
  }() + "-live01";
  fs::create_directories(live);

  const Child next = Start({"sheets", TABULON_SAMPLE}, {tmp.env}, tmp.dir, "next");
  const int status = WaitStatus(next);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << Read(next.err);
  EXPECT_EQ(Listing(tmp.tmp), fs::path(live).filename().string() + " ");
  EXPECT_TRUE(PipesOf(killed.pid).empty());
}

// ---- Parallel load: no signal of the office's pipes ends the command ----

TEST(CliOffice, ParallelRunsNeverDieOfSigpipe) {
  // Bounded for CI; TABULON_STRESS_PAIRS raises it (300 for a full measure).
  int pairs = 6;
  if (const char* n = std::getenv("TABULON_STRESS_PAIRS")) pairs = std::atoi(n);
  PrivateTmp tmp;
  int signalled = 0;
  for (int i = 0; i < pairs; ++i) {
    const Child a = Start({"sheets", TABULON_SAMPLE, "Nowhere"}, {tmp.env}, tmp.dir, "a");
    const Child b = Start({"sheets", TABULON_SAMPLE, "Nowhere"}, {tmp.env}, tmp.dir, "b");
    for (const Child* c : {&a, &b}) {
      const int status = WaitStatus(*c);
      if (WIFSIGNALED(status)) ++signalled;
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1)
          << "pair " << i << ": status " << status << " " << Read(c->err);
    }
  }
  EXPECT_EQ(signalled, 0);
  EXPECT_TRUE(fs::is_empty(tmp.tmp)) << Listing(tmp.tmp);
}

}  // namespace
