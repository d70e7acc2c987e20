// Speed of CSVFileChangeDelimitationChar on a large generated CSV file, next
// to the same job done by Miller and to a plain copy of the file.
//
//   ravelin_bench [megabytes] [all]  (default: $RAVELIN_BENCH_MB, else 1024)
//
// With "all", the other rewrites are timed on the same file as well (best
// of three calls in one process).
//
// The file (quoted delimiters, doubled quotes, quoted line breaks) is
// written to $TMPDIR (else /tmp) and removed at the end. Each job runs in a
// process of its own so that its peak resident memory can be read. The
// result is checked: changing ';' back to ',' must give the input again.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "ravelin/ravelin.h"

extern char** environ;

namespace {

struct Run {
  bool ok = false;
  double seconds = 0;
  double user_seconds = 0;
  double system_seconds = 0;
  long max_rss_kb = 0;
};

// Runs argv as a child process; wall time and its peak resident memory.
Run Spawn(const std::vector<std::string>& args, const char* stdout_path = nullptr) {
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (stdout_path != nullptr) {
    posix_spawn_file_actions_addopen(&actions, 1, stdout_path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  }
  Run run;
  std::fflush(stdout);  // the child may write to the same stdout
  const auto start = std::chrono::steady_clock::now();
  pid_t pid = 0;
  if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
    posix_spawn_file_actions_destroy(&actions);
    return run;
  }
  int status = 0;
  struct rusage usage;
  wait4(pid, &status, 0, &usage);
  run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  posix_spawn_file_actions_destroy(&actions);
  run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  run.user_seconds = static_cast<double>(usage.ru_utime.tv_sec) + static_cast<double>(usage.ru_utime.tv_usec) / 1e6;
  run.system_seconds = static_cast<double>(usage.ru_stime.tv_sec) + static_cast<double>(usage.ru_stime.tv_usec) / 1e6;
  run.max_rss_kb = usage.ru_maxrss;
  return run;
}

// About `bytes` of CSV in whole records: the same 4 MiB of random records
// written again and again.
bool Generate(const std::string& path, uint64_t bytes) {
  static const char* kWords[] = {"alpha", "beta", "Gamma", "delta", "\xC3\xA9t\xC3\xA9", "\xE2\x82\xAC" "12", "x"};
  std::mt19937 rng(2024);
  auto word = [&] { return std::string_view(kWords[rng() % 7]); };
  auto number = [&](uint32_t below) { return std::to_string(rng() % below); };
  std::string chunk;
  auto add = [&chunk](std::initializer_list<std::string_view> parts) {
    for (std::string_view part : parts) chunk += part;
  };
  for (uint64_t id = 1; chunk.size() < (size_t{4} << 20); ++id) {
    add({std::to_string(id * 7919 % 1000003)});
    add({",\"", word(), ", ", word(), "\""});                       // a quoted delimiter
    add({",\"", word(), " said \"\"", word(), "\"\"\""});          // doubled quotes
    add({",", number(100000), ".", number(100)});
    if (rng() % 4 == 0) {
      add({",\"", word(), "\n", word(), "\""});                     // a quoted line break
    } else {
      add({",", word()});
    }
    add({",\"", word(), ";", word(), "\""});                        // the new delimiter, quoted
    add({",2024-", std::to_string(1 + rng() % 12), "-", std::to_string(1 + rng() % 28)});
    add({rng() % 3 == 0 ? "\r\n" : "\n"});
  }
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) return false;
  for (uint64_t written = 0; written < bytes; written += chunk.size()) {
    if (::write(fd, chunk.data(), chunk.size()) != static_cast<ssize_t>(chunk.size())) return false;
  }
  // Written to disk now, so that no writeback of it runs during the timing.
  ::fsync(fd);
  return ::close(fd) == 0;
}

bool SameFiles(const std::string& a, const std::string& b) {
  FILE* fa = std::fopen(a.c_str(), "rb");
  FILE* fb = std::fopen(b.c_str(), "rb");
  bool same = fa != nullptr && fb != nullptr;
  std::vector<char> x(1 << 20), y(1 << 20);
  while (same) {
    const size_t na = std::fread(x.data(), 1, x.size(), fa);
    const size_t nb = std::fread(y.data(), 1, y.size(), fb);
    same = na == nb && std::memcmp(x.data(), y.data(), na) == 0;
    if (na == 0) break;
  }
  if (fa != nullptr) std::fclose(fa);
  if (fb != nullptr) std::fclose(fb);
  return same;
}

uint64_t FileSize(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
}

// The peak resident memory of this process (since its exec), in kB.
long OwnPeakKb() {
  FILE* f = std::fopen("/proc/self/status", "r");
  long kb = -1;
  char line[256];
  while (f != nullptr && std::fgets(line, sizeof line, f) != nullptr) {
    if (std::strncmp(line, "VmHWM:", 6) == 0) kb = std::strtol(line + 6, nullptr, 10);
  }
  if (f != nullptr) std::fclose(f);
  return kb;
}

// Times every other rewrite on `in` (best of three calls).
int TimeOthers(const char* in, const char* out) {
  struct Job {
    const char* name;
    int32_t (*call)(const char*, const char*);
  };
  static const Job kJobs[] = {
      {"TXTFileChangeDelimitationChar , to tab",
       [](const char* i, const char* o) { return TXTFileChangeDelimitationChar(i, o, ",", "\t"); }},
      {"EncaseEachFieldWithQuotes", EncaseEachFieldWithQuotes},
      {"PadCSVFileWithASpaces", PadCSVFileWithASpaces},
      {"RemoveEmptyLinesFromCSVFile", RemoveEmptyLinesFromCSVFile},
      {"CropCSVFileToSpecificRows all",
       [](const char* i, const char* o) { return CropCSVFileToSpecificRows(i, o, "1-2147483647"); }},
      {"CropCSVFileToSpecificColumns 1,3,5",
       [](const char* i, const char* o) { return CropCSVFileToSpecificColumns(i, o, "1,3,5"); }},
      {"PadCSVFileForFixedLengthFields 12 left",
       [](const char* i, const char* o) { return PadCSVFileForFixedLengthFields(i, o, 12, "_", 1, ""); }},
      {"RemoveControlCharactersFromFileInQuotesOnly", RemoveControlCharactersFromFileInQuotesOnly},
      {"TrimCSVFile", TrimCSVFile},
      {"DeleteEmptyLinesFromTextFile", DeleteEmptyLinesFromTextFile},
  };
  struct stat st;
  if (::stat(in, &st) != 0) return 1;
  for (const Job& job : kJobs) {
    double best = 1e30;
    for (int i = 0; i < 3; ++i) {
      const auto start = std::chrono::steady_clock::now();
      if (job.call(in, out) != RAVELIN_OK) return 1;
      best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
      ::unlink(out);
    }
    std::printf("%-44s %7.3f s %8.1f MB/s\n", job.name, best, static_cast<double>(st.st_size) / 1e6 / best);
  }
  return 0;
}

// The children's part: generate the file, or make one call and print the
// process's own peak memory (the parent's wait4 figure also counts the
// parent's memory at the moment it started the child).
int Worker(int argc, char** argv) {
  const std::string mode = argv[1];
  if (mode == "--generate" && argc == 4) return Generate(argv[2], std::strtoull(argv[3], nullptr, 10)) ? 0 : 1;
  if (mode == "--others" && argc == 4) return TimeOthers(argv[2], argv[3]);
  if (argc != 5 && argc != 6) return 2;
  const int calls = argc == 6 ? std::atoi(argv[5]) : 1;
  int32_t r = RAVELIN_OK;
  for (int i = 0; i < calls && r == RAVELIN_OK; ++i) {
    if (i > 0) ::unlink(argv[3]);
    const auto start = std::chrono::steady_clock::now();
    r = mode == "--change" ? CSVFileChangeDelimitationChar(argv[2], argv[3], argv[4])
                           : TXTFileChangeDelimitationChar(argv[2], argv[3], argv[4], ",");
    std::printf("%.6f\n", std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  if (r != RAVELIN_OK) std::fprintf(stderr, "result %d: %s\n", r, RavelinResultText(r));
  std::printf("%ld\n", OwnPeakKb());
  return r == RAVELIN_OK ? 0 : 1;
}

std::vector<double> ReadNumbers(const std::string& path) {
  std::vector<double> values;
  FILE* f = std::fopen(path.c_str(), "r");
  double v = 0;
  while (f != nullptr && std::fscanf(f, "%lf", &v) == 1) values.push_back(v);
  if (f != nullptr) std::fclose(f);
  return values;
}

void Report(const std::string& what, const Run& run, uint64_t bytes, bool with_usage = true) {
  std::printf("%-40s %7.3f s %8.1f MB/s", what.c_str(), run.seconds, static_cast<double>(bytes) / 1e6 / run.seconds);
  if (with_usage) {
    std::printf("  user %6.3f s  sys %6.3f s  peak RSS %7.1f MB", run.user_seconds, run.system_seconds,
                static_cast<double>(run.max_rss_kb) / 1024.0);
  }
  std::printf("%s\n", run.ok ? "" : "  FAILED");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && argv[1][0] == '-' && argv[1][1] == '-') return Worker(argc, argv);
  const std::string self = "/proc/self/exe";
  uint64_t mb = 1024;
  bool others = false;
  if (const char* env = std::getenv("RAVELIN_BENCH_MB")) mb = std::strtoull(env, nullptr, 10);
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "all") == 0) {
      others = true;
    } else {
      mb = std::strtoull(argv[i], nullptr, 10);
    }
  }
  if (mb == 0) {
    std::fprintf(stderr, "usage: %s [megabytes] [all]\n", argv[0]);
    return 2;
  }
  const char* tmp = std::getenv("TMPDIR");
  const std::string dir = tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
  const std::string base = dir + "/ravelin-bench-" + std::to_string(::getpid());
  const std::string in = base + ".csv", out = base + "-semicolon.csv", back = base + "-back.csv";
  const std::string copy = base + "-copy.csv", miller = base + "-mlr.csv";

  // Generated by a child, so that this process stays small: its memory
  // would count in the peak of every child it starts.
  if (!Spawn({self, "--generate", in, std::to_string(mb << 20)}).ok) {
    std::fprintf(stderr, "cannot write %s\n", in.c_str());
    return 1;
  }
  const uint64_t bytes = FileSize(in);
  std::printf("input: %s, %.1f MB (quoted delimiters, doubled quotes, quoted line breaks)\n", in.c_str(),
              static_cast<double>(bytes) / 1e6);

  // Read once, so that every job finds the file in the page cache.
  Spawn({"cat", in}, "/dev/null");
  // On this kind of machine, memory the kernel has not used for a while
  // costs much more on its first use, so each job runs several times back to
  // back and the first run is reported apart: cp as processes, the rewrite
  // as calls in one worker process (whose peak memory covers them all).
  constexpr int kRuns = 6;
  std::vector<Run> copies;
  for (int i = 0; i < kRuns; ++i) {
    copies.push_back(Spawn({"cp", in, copy}));
    ::unlink(copy.c_str());
  }
  const std::string times_file = base + "-times.txt";
  const Run worker = Spawn({self, "--change", in, out, ";", std::to_string(kRuns)}, times_file.c_str());
  std::vector<double> call_seconds = ReadNumbers(times_file);
  ::unlink(times_file.c_str());
  const long own_peak = call_seconds.empty() ? -1 : static_cast<long>(call_seconds.back());
  if (!call_seconds.empty()) call_seconds.pop_back();
  std::vector<Run> runs;
  for (double t : call_seconds) {
    Run r = worker;
    r.seconds = t;
    runs.push_back(r);
  }
  if (runs.size() != kRuns || !worker.ok) {
    std::fprintf(stderr, "the rewrite failed\n");
    return 1;
  }
  for (int i = 0; i < kRuns; ++i) {
    const std::string label = i == 0 ? " (first)" : "";
    Report("cp" + label, copies[static_cast<size_t>(i)], bytes);
    Report("CSVFileChangeDelimitationChar" + label, runs[static_cast<size_t>(i)], bytes, false);
  }
  std::printf("%-40s user %6.3f s  sys %6.3f s  peak RSS %7.1f MB (all %d calls)\n", "rewrite worker process",
              worker.user_seconds, worker.system_seconds, static_cast<double>(worker.max_rss_kb) / 1024.0, kRuns);
  const Run back_run = Spawn({self, "--back", out, back, ";"}, "/dev/null");
  const bool round_trip = back_run.ok && SameFiles(in, back);
  ::unlink(back.c_str());
  ::unlink(out.c_str());

  const Run mlr = Spawn({"mlr", "--icsv", "--ocsv", "--ofs", ";", "cat", in}, miller.c_str());
  ::unlink(miller.c_str());
  Report("mlr --icsv --ocsv --ofs ';' cat", mlr, bytes);
  if (others) std::printf("\nother rewrites, best of three calls:\n");
  const bool others_ok = !others || Spawn({self, "--others", in, out}).ok;
  ::unlink(in.c_str());

  // The first runs are left out of best and median.
  auto by_time = [](std::vector<Run> v) {
    v.erase(v.begin());
    std::sort(v.begin(), v.end(), [](const Run& a, const Run& b) { return a.seconds < b.seconds; });
    return v;
  };
  const std::vector<Run> sorted = by_time(runs), sorted_cp = by_time(copies);
  const Run best = sorted.front(), median = sorted[sorted.size() / 2];
  const Run cp = sorted_cp.front(), cp_median = sorted_cp[sorted_cp.size() / 2];
  const long peak = worker.max_rss_kb;
  const bool all_ok = worker.ok;
  const double mbps = static_cast<double>(bytes) / 1e6 / best.seconds;
  std::printf("\nravelin median: %.1f MB/s\n", static_cast<double>(bytes) / 1e6 / median.seconds);
  std::printf("ravelin best: %.1f MB/s; peak RSS %.1f MB (wait4), %.1f MB (VmHWM of the worker); round trip %s\n",
              mbps, static_cast<double>(peak) / 1024.0, static_cast<double>(own_peak) / 1024.0,
              round_trip ? "exact" : "FAILED");
  std::printf("cp: best %.3f s, median %.3f s\n", cp.seconds, cp_median.seconds);
  std::printf("ratio ravelin/cp time:  %.2f (best), %.2f (median)\n", best.seconds / cp.seconds,
              median.seconds / cp_median.seconds);
  if (mlr.ok) {
    std::printf("ratio mlr/ravelin time: %.1f (best), %.1f (median)\n", mlr.seconds / best.seconds,
                mlr.seconds / median.seconds);
  }
  std::printf("target >= 2000 MB/s: %s; target peak RSS < 16 MB: %s\n", mbps >= 2000 ? "met" : "NOT met",
              peak < 16 * 1024 ? "met" : "NOT met");
  std::printf("(this process's own peak: %.1f MB)\n", static_cast<double>(OwnPeakKb()) / 1024.0);
  return all_ok && round_trip && others_ok ? 0 : 1;
}
