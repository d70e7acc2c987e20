// Where scripts feel Tabulon's speed, side by side with the reference tools,
// in one run:
//   (a) a cold `tabulon convert` of a one-sheet workbook to CSV (a new
//       process, a new office) against a one-shot
//       `soffice --headless --convert-to csv` of the same file;
//   (b) the same conversion through a running `tabulon serve`, timed as the
//       whole client process, against a one-shot `ssconvert`;
//   (c) 100 small workbooks to CSV: `tabulon convert -j 2 ... FOLDER`
//       against one soffice call given all 100 files and against ssconvert
//       run once per file, as throughput;
//   (d) 5 sheets x 20,000 rows x 10 columns to one CSV per sheet through the
//       server, against the floor of any conversion in the office: the office
//       alone opening and closing that workbook, warm.
// Every figure is the median of several runs; the ratios and their targets
// are printed. (b) to (d) need `tabulon serve` and `convert -j`; a build
// without them prints "not available" for their Tabulon figures.
//
// Usage: speed_bench [runs] [--tabulon PATH]   (default 5 runs; the tabulon
// built beside this benchmark)
//
// Tabulon's offices use a profile cache of the benchmark's own (the first
// cold run prepares it and is shown apart); soffice runs on a profile of its
// own, set up by one untimed run beforehand, as a user's would be.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "office/office.h"
#include "office/uno/uno_factory.h"
#include "support/big_workbook.h"

extern char** environ;

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

std::string g_tabulon = TABULON_CLI;

double Seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

// Starts a program (no shell) with its output to `out` (or /dev/null),
// errors to /dev/null. Returns the pid, or -1.
pid_t Launch(const std::vector<std::string>& argv, const std::string& out = "/dev/null", int err_fd = -1) {
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    const int in = open("/dev/null", O_RDONLY);
    const int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int e = err_fd >= 0 ? err_fd : open("/dev/null", O_WRONLY);
    if (in < 0 || o < 0 || e < 0) _exit(126);
    dup2(in, 0);
    dup2(o, 1);
    dup2(e, 2);
    execvp(args[0], args.data());
    _exit(127);
  }
  return pid;
}

// Runs a program to its end: its wall time, or nothing when it failed.
std::optional<double> Run(const std::vector<std::string>& argv, const std::string& out = "/dev/null") {
  const auto start = Clock::now();
  const pid_t pid = Launch(argv, out);
  if (pid < 0) return std::nullopt;
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  const double took = Seconds(Clock::now() - start);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
  return took;
}

// Fails the whole run: a figure from a failed job would mean nothing.
double MustRun(const char* what, const std::vector<std::string>& argv, const std::string& out = "/dev/null") {
  const auto took = Run(argv, out);
  if (!took) {
    std::fprintf(stderr, "speed_bench: %s failed:", what);
    for (const auto& a : argv) std::fprintf(stderr, " %s", a.c_str());
    std::fprintf(stderr, "\n");
    std::exit(1);
  }
  return *took;
}

bool Have(const std::string& tool) {
  return Run({"sh", "-c", "command -v " + tool}).has_value();
}

std::string Slurp(const std::vector<std::string>& argv) {
  char tmpl[] = "/tmp/tabulon-speed-bench-out-XXXXXX";
  const int fd = mkstemp(tmpl);
  if (fd < 0) return {};
  close(fd);
  std::string text;
  if (Run(argv, tmpl)) {
    if (FILE* f = std::fopen(tmpl, "rb")) {
      char buf[4096];
      size_t n;
      while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
      std::fclose(f);
    }
  }
  unlink(tmpl);
  return text;
}

size_t CountFiles(const fs::path& dir, const std::string& extension) {
  size_t n = 0;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(dir, ec)) {
    if (e.path().extension() == extension && fs::file_size(e.path(), ec) > 0) ++n;
  }
  return n;
}

// A running `tabulon serve` on a socket of the benchmark's own.
class Server {
 public:
  bool Start(const fs::path& socket) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return false;
    pid_ = Launch({g_tabulon, "serve", "--socket", socket.string()}, "/dev/null", fds[1]);
    close(fds[1]);
    if (pid_ < 0) {
      close(fds[0]);
      return false;
    }
    // Ready once it says so on stderr.
    std::string said;
    const auto deadline = Clock::now() + std::chrono::seconds(120);
    bool ready = false;
    while (!ready && Clock::now() < deadline) {
      pollfd p{fds[0], POLLIN, 0};
      if (poll(&p, 1, 200) <= 0) continue;
      char buf[512];
      const ssize_t n = read(fds[0], buf, sizeof buf);
      if (n <= 0) break;
      said.append(buf, static_cast<size_t>(n));
      ready = said.find("tabulon: serve: ready") != std::string::npos;
    }
    close(fds[0]);
    return ready;
  }
  ~Server() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    int status = 0;
    for (int i = 0; i < 300; ++i) {  // its offices quit first
      if (waitpid(pid_, &status, WNOHANG) == pid_) return;
      usleep(100000);
    }
    kill(pid_, SIGKILL);
    waitpid(pid_, &status, 0);
  }

 private:
  pid_t pid_ = -1;
};

void MakeWorkbooks(const fs::path& dir) {
  auto app = tabulon::office::uno::MakeUnoFactory()->CreateExcel();
  {
    auto& book = app->GetWorkbooks().Add();
    book.GetWorksheets().Item(1)->GetRange("A1:C3")->SetValue(
        tabulon::office::Block{{"id", "name", "value"}, {1.0, "one", 1.5}, {2.0, "two", 2.5}});
    tabulon::office::SaveAsOptions o;
    o.file_format = 51;
    book.SaveAs((dir / "tiny.xlsx").string(), o);
    book.Close(false);
  }
  tabulon::bench::SaveBigWorkbook(*app, (dir / "big.xlsx").string());
  app->Quit();
}

// The office alone opening and closing a workbook, warm: the floor under
// any conversion that opens it in the office.
double OpenCloseFloor(const std::string& tiny, const std::string& big, int runs) {
  auto app = tabulon::office::uno::MakeUnoFactory()->CreateExcel();
  tabulon::office::OpenOptions read_only;
  read_only.read_only = true;
  app->GetWorkbooks().Open(tiny, read_only).Close(false);  // warm-up
  app->GetWorkbooks().Open(big, read_only).Close(false);
  std::vector<double> times;
  for (int i = 0; i < runs; ++i) {
    const auto start = Clock::now();
    app->GetWorkbooks().Open(big, read_only).Close(false);
    times.push_back(Seconds(Clock::now() - start));
  }
  app->Quit();
  return Median(times);
}

void Row(const char* figure, const std::string& tabulon, const std::string& reference, const std::string& ratio,
         const char* target, const std::string& verdict) {
  std::printf("%-42s %-14s %-28s %-6s %-8s %s\n", figure, tabulon.c_str(), reference.c_str(), ratio.c_str(), target,
              verdict.c_str());
}

std::string Secs(double s) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.3f s", s);
  return buf;
}
std::string Rate(double per_second) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.1f files/s", per_second);
  return buf;
}
std::string Ratio(double r) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.2f", r);
  return buf;
}

}  // namespace

int main(int argc, char** argv) {
  int runs = 5;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--tabulon" && i + 1 < argc) {
      g_tabulon = argv[++i];
    } else if (std::atoi(a.c_str()) > 0) {
      runs = std::atoi(a.c_str());
    } else {
      std::fprintf(stderr, "usage: speed_bench [runs] [--tabulon PATH]\n");
      return 2;
    }
  }
  const fs::path dir = fs::temp_directory_path() / ("tabulon-speed-bench-" + std::to_string(getpid()));
  fs::create_directories(dir);
  unsetenv("TABULON_SERVER");
  std::printf("speed_bench: %d runs per figure (medians), tabulon %s, work folder %s\n", runs, g_tabulon.c_str(),
              dir.c_str());
  std::printf("generating workbooks ...\n");
  setenv("TABULON_PROFILE_CACHE", "off", 1);
  MakeWorkbooks(dir);
  // From here on a profile cache of the benchmark's own, for its offices and
  // every command line it starts; the first cold run prepares it.
  setenv("TABULON_PROFILE_CACHE", (dir / "profile-cache").c_str(), 1);
  const std::string tiny = (dir / "tiny.xlsx").string();
  const std::string big = (dir / "big.xlsx").string();
  const fs::path many = dir / "many";
  fs::create_directories(many);
  std::vector<std::string> many_files;
  for (int i = 1; i <= 100; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "book%03d.xlsx", i);
    fs::copy_file(tiny, many / name);
    many_files.push_back((many / name).string());
  }

  const bool have_serve = Run({g_tabulon, "help", "serve"}).has_value();
  const bool have_jobs = Slurp({g_tabulon, "help", "convert"}).find("--jobs") != std::string::npos;
  const bool have_ssconvert = Have("ssconvert");
  const std::string soffice = "soffice";
  const std::string soffice_profile = "-env:UserInstallation=file://" + (dir / "soffice-profile").string();

  // (a) cold convert against a one-shot soffice, alternated run by run so
  // that the machine's load weighs on both alike.
  const std::string out_a = (dir / "a.csv").string();
  const fs::path so_out = dir / "soffice-out";
  const double first_cold =
      MustRun("the first tabulon convert", {g_tabulon, "convert", tiny, out_a});  // prepares the profile cache
  MustRun("soffice's set-up", {soffice, "--headless", soffice_profile, "--convert-to", "csv", "--outdir",
                               so_out.string(), tiny});
  std::vector<double> cold, so_one;
  for (int i = 0; i < runs; ++i) {
    cold.push_back(MustRun("tabulon convert", {g_tabulon, "convert", tiny, out_a}));
    so_one.push_back(MustRun("soffice --convert-to", {soffice, "--headless", soffice_profile, "--convert-to", "csv",
                                                      "--outdir", so_out.string(), tiny}));
  }
  std::vector<double> ss_one;
  if (have_ssconvert) {
    for (int i = 0; i < runs; ++i)
      ss_one.push_back(MustRun("ssconvert", {"ssconvert", tiny, (dir / "ss.csv").string()}));
  }

  // (b) and (d) through a server.
  std::vector<double> served, served_big;
  std::optional<Server> server;
  bool server_ready = false;
  if (have_serve) {
    server.emplace();
    server_ready = server->Start(dir / "serve.sock");
    if (!server_ready) std::fprintf(stderr, "speed_bench: tabulon serve did not get ready\n");
  }
  if (server_ready) {
    const std::string socket = (dir / "serve.sock").string();
    MustRun("a first request", {g_tabulon, "--server", socket, "convert", tiny, (dir / "b.csv").string()});
    for (int i = 0; i < runs; ++i)
      served.push_back(
          MustRun("tabulon --server convert", {g_tabulon, "--server", socket, "convert", tiny, (dir / "b.csv").string()}));
    const fs::path big_out = dir / "big-out";
    fs::create_directories(big_out);
    MustRun("a first big request", {g_tabulon, "--server", socket, "convert", "-m", big, (big_out / "big.csv").string()});
    for (int i = 0; i < runs; ++i)
      served_big.push_back(MustRun("tabulon --server convert -m",
                                   {g_tabulon, "--server", socket, "convert", "-m", big, (big_out / "big.csv").string()}));
    if (CountFiles(big_out, ".csv") != 5) {
      std::fprintf(stderr, "speed_bench: the big export did not write 5 files\n");
      return 1;
    }
  }
  server.reset();

  // (c) 100 workbooks: each tool's whole job, the median of up to three.
  const int batch_runs = std::min(runs, 3);
  auto batch = [&](const char* what, const std::function<std::vector<std::string>(const fs::path&)>& argv,
                   bool per_file) {
    std::vector<double> times;
    for (int r = 0; r < batch_runs; ++r) {
      const fs::path out = dir / ("batch-" + std::string(what) + "-" + std::to_string(r));
      fs::create_directories(out);
      double took = 0;
      if (per_file) {
        for (const std::string& f : many_files)
          took += MustRun(what, {"ssconvert", f, (out / (fs::path(f).stem().string() + ".csv")).string()});
      } else {
        took = MustRun(what, argv(out));
      }
      if (CountFiles(out, ".csv") != many_files.size()) {
        std::fprintf(stderr, "speed_bench: %s did not write %zu CSV files in %s\n", what, many_files.size(),
                     out.c_str());
        std::exit(1);
      }
      times.push_back(took);
    }
    return Median(times);
  };
  double batch_tabulon = 0, batch_soffice = 0, batch_ssconvert = 0;
  if (have_jobs) {
    batch_tabulon = batch("tabulon", [&](const fs::path& out) {
      std::vector<std::string> a = {g_tabulon, "convert", "-j", "2", "-t", "csv"};
      a.insert(a.end(), many_files.begin(), many_files.end());
      a.push_back(out.string());
      return a;
    }, false);
  }
  batch_soffice = batch("soffice", [&](const fs::path& out) {
    std::vector<std::string> a = {soffice, "--headless", soffice_profile, "--convert-to", "csv", "--outdir", out.string()};
    a.insert(a.end(), many_files.begin(), many_files.end());
    return a;
  }, false);
  if (have_ssconvert) batch_ssconvert = batch("ssconvert", nullptr, true);

  // (d)'s floor, in this process.
  const double floor = OpenCloseFloor(tiny, big, runs);

  const double n = static_cast<double>(many_files.size());
  std::printf("\nfirst cold tabulon convert (prepares the profile cache): %.3f s\n\n", first_cold);
  Row("figure", "tabulon", "reference", "ratio", "target", "");
  auto verdict = [](bool met) { return std::string(met ? "met" : "NOT MET"); };
  {
    const double r = Median(cold) / Median(so_one);
    Row("(a) cold convert tiny -> csv", Secs(Median(cold)), "soffice " + Secs(Median(so_one)), Ratio(r), "<= 1.0",
        verdict(r <= 1.0));
  }
  if (!have_ssconvert) {
    Row("(b) convert via tabulon serve", served.empty() ? "not available" : Secs(Median(served)),
        "ssconvert missing", "-", "<= 1.0", "");
  } else if (served.empty()) {
    Row("(b) convert via tabulon serve", "not available", "ssconvert " + Secs(Median(ss_one)), "-", "<= 1.0", "");
  } else {
    const double r = Median(served) / Median(ss_one);
    Row("(b) convert via tabulon serve", Secs(Median(served)), "ssconvert " + Secs(Median(ss_one)), Ratio(r), "<= 1.0",
        verdict(r <= 1.0));
  }
  {
    const std::string ours = have_jobs ? Rate(n / batch_tabulon) : "not available";
    const double r_so = have_jobs ? (n / batch_tabulon) / (n / batch_soffice) : 0;
    Row("(c) 100 workbooks -> csv, convert -j 2", ours, "soffice, 1 call " + Rate(n / batch_soffice),
        have_jobs ? Ratio(r_so) : "-", ">= 2.0", have_jobs ? verdict(r_so >= 2.0) : "");
    if (have_ssconvert) {
      const double r_ss = have_jobs ? (n / batch_tabulon) / (n / batch_ssconvert) : 0;
      Row("", "", "ssconvert, per file " + Rate(n / batch_ssconvert), have_jobs ? Ratio(r_ss) : "-", ">= 2.0",
          have_jobs ? verdict(r_ss >= 2.0) : "");
    } else {
      Row("", "", "ssconvert missing", "-", ">= 2.0", "");
    }
  }
  if (served_big.empty()) {
    Row("(d) 5x20000x10 -> csv per sheet, serve", "not available", "floor " + Secs(floor), "-", "<= 1.10", "");
  } else {
    const double r = Median(served_big) / floor;
    Row("(d) 5x20000x10 -> csv per sheet, serve", Secs(Median(served_big)), "floor " + Secs(floor), Ratio(r),
        "<= 1.10", verdict(r <= 1.10));
  }
  std::printf("\nthe floor: the office alone opening and closing the big workbook, warm\n");
  std::printf("times: tabulon (a) %s; soffice one file %s; 100 files: tabulon %s, soffice %s, ssconvert %s\n",
              Secs(Median(cold)).c_str(), Secs(Median(so_one)).c_str(),
              have_jobs ? Secs(batch_tabulon).c_str() : "-", Secs(batch_soffice).c_str(),
              have_ssconvert ? Secs(batch_ssconvert).c_str() : "-");
  fs::remove_all(dir);
  return 0;
}
