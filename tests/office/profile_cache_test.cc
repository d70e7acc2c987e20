// Offices started from the prepared profile of the profile cache, with a real
// LibreOffice: made once and reused, shared by programs starting together,
// rebuilt when damaged or when the office changes, left alone when it cannot
// be used; and every office still on a profile of its own that goes with it,
// its pipe files included.
#include <signal.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "office/uno/office_process.h"
#include "office/uno/profile_cache.h"
#include "office_test_env.h"

namespace tabulon::office::uno::testing {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

// What the program did to set up profiles since a moment.
struct Counts {
  int32_t first_starts = FirstStartRuns();
  int32_t built = ProfileCacheCounters().built;
  int32_t copied = ProfileCacheCounters().copied;
  Counts Since() const {
    Counts now;
    return {now.first_starts - first_starts, now.built - built, now.copied - copied};
  }
};

bool Until(const std::function<bool()>& done, milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < deadline) {
    if (done()) return true;
    std::this_thread::sleep_for(milliseconds(10));
  }
  return done();
}

std::string Listing(const fs::path& dir) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(dir, ec)) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  std::string text;
  for (const auto& name : names) text += name + " ";
  return text;
}

// Every test has a cache folder of its own (never the user's), an empty one
// to begin with, and the environment as it was afterwards.
class ProfileCacheTest : public OfficeTest {
 protected:
  void SetUp() override {
    OfficeTest::SetUp();
    for (const char* name : {"TABULON_PROFILE_CACHE", "XDG_CACHE_HOME", "HOME", "TMPDIR"}) {
      const char* value = getenv(name);
      saved_.push_back({name, value ? std::optional<std::string>(value) : std::nullopt});
    }
    cache_ = dir_ / "cache";
    setenv("TABULON_PROFILE_CACHE", cache_.c_str(), 1);
  }
  void TearDown() override {
    for (const auto& [name, value] : saved_) {
      if (value) setenv(name.c_str(), value->c_str(), 1); else unsetenv(name.c_str());
    }
    OfficeTest::TearDown();
  }

  // The one prepared profile in the cache folder.
  fs::path Prepared() const {
    fs::path found;
    for (const auto& entry : fs::directory_iterator(cache_)) {
      if (entry.is_directory() && entry.path().filename().string().rfind("office-", 0) == 0) {
        EXPECT_TRUE(found.empty()) << "two prepared profiles: " << Listing(cache_);
        found = entry.path();
      }
    }
    EXPECT_FALSE(found.empty()) << "no prepared profile: " << Listing(cache_);
    return found;
  }
  // The cache holds the prepared profile and its lock file, nothing else
  // (no preparation left half done, no replaced copy).
  void ExpectOnlyThePreparedProfile() const {
    const std::string name = Prepared().filename().string();
    EXPECT_EQ(Listing(cache_), name + " " + name + ".lock ");
  }
  // A working office from this cache.
  void ExpectAWorkingOffice() {
    auto app = OwnExcel();
    EXPECT_EQ(app->Version(), "7.4");
    app->GetWorkbooks().Add().GetWorksheets().Item(1)->Cells(1, 1)->SetValue(Cell(2.0));
    app->Quit();
  }

  fs::path cache_;
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

TEST_F(ProfileCacheTest, IsPreparedOnceAndCopiedForEveryOffice) {
  const Counts start;
  auto first = OwnExcel();
  EXPECT_EQ(first->Version(), "7.4");
  const Counts made = start.Since();
  EXPECT_EQ(made.built, 1);
  EXPECT_GE(made.first_starts, 1);
  EXPECT_EQ(made.copied, 1);
  ExpectOnlyThePreparedProfile();

  // The next office starts without setting a profile up.
  const Counts again;
  auto second = OwnExcel();
  second->GetWorkbooks().Add();
  EXPECT_EQ(second->GetWorkbooks().Count(), 1);
  EXPECT_EQ(first->GetWorkbooks().Count(), 0);
  const Counts reused = again.Since();
  EXPECT_EQ(reused.first_starts, 0);
  EXPECT_EQ(reused.built, 0);
  EXPECT_EQ(reused.copied, 1);
  first->Quit();
  second->Quit();
  ExpectOnlyThePreparedProfile();
}

// The office process itself: each copy is a profile of its own, with
// Tabulon's settings, an office that skips its graphics self-test, and
// nothing of it left once the office is finished.
TEST_F(ProfileCacheTest, EveryOfficeHasItsOwnCopyWithTheSettingsAndItGoesWithTheOffice) {
  const std::string program = ResolveProgramDir("");
  OfficeProcess a(program);
  OfficeProcess b(program);
  std::string reason;
  ASSERT_TRUE(a.Prepare(milliseconds(60000), &reason)) << reason;
  ASSERT_TRUE(b.Prepare(milliseconds(60000), &reason)) << reason;
  EXPECT_TRUE(a.ProfileFromCache());
  EXPECT_TRUE(b.ProfileFromCache());
  const std::string dir_a = a.profile_dir();
  const std::string dir_b = b.profile_dir();
  EXPECT_NE(dir_a, dir_b);
  EXPECT_NE(a.pipe_name(), b.pipe_name());
  const std::string settings = ProfileSettings(IdentifyOffice(program).version);
  for (const std::string& dir : {dir_a, dir_b}) {
    const std::string written = ReadFile(fs::path(dir) / "user" / "registrymodifications.xcu");
    std::istringstream lines(settings);
    std::string line;
    int items = 0;
    while (std::getline(lines, line)) {
      if (line.rfind("<item ", 0) != 0) continue;
      ++items;
      EXPECT_NE(written.find(line), std::string::npos) << dir << " lacks " << line;
    }
    EXPECT_EQ(items, 7);  // the six settings and the office's version
    EXPECT_TRUE(fs::is_directory(fs::path(dir) / "tmp"));
    EXPECT_FALSE(fs::exists(fs::path(dir) / "tabulon-profile.manifest"));
  }
  ASSERT_TRUE(a.Spawn(&reason)) << reason;
  ASSERT_TRUE(b.Spawn(&reason)) << reason;
  RecordStarted(a.pid());
  RecordStarted(b.pid());
  EXPECT_NE(a.pid(), b.pid());
  const std::vector<std::string> pipes_a = OfficePipeFiles(a.pipe_name(), dir_a);
  const std::vector<std::string> pipes_b = OfficePipeFiles(b.pipe_name(), dir_b);
  // The accepting pipe is there once the office has started.
  ASSERT_TRUE(Until([&] { return fs::exists(pipes_a[0]) && fs::exists(pipes_b[0]); }, milliseconds(60000)));
  EXPECT_TRUE(fs::exists(pipes_a[1]));  // the single-instance pipe, named after the profile
  EXPECT_FALSE(fs::exists(fs::path(dir_a) / "user" / "GraphicsRenderTests.log"));
  a.Finish();
  b.Finish();
  for (const std::string& dir : {dir_a, dir_b}) EXPECT_FALSE(fs::exists(dir)) << dir;
  for (const auto* pipes : {&pipes_a, &pipes_b}) {
    for (const std::string& pipe : *pipes) EXPECT_FALSE(fs::exists(pipe)) << pipe;
  }
  ExpectOnlyThePreparedProfile();
}

TEST_F(ProfileCacheTest, OfficesStartingTogetherOnAnEmptyCacheShareOnePreparation) {
  const Counts start;
  std::vector<std::unique_ptr<UnoApplication>> apps(3);
  std::vector<std::string> errors(3);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < apps.size(); ++i) {
    threads.emplace_back([&, i] {
      try {
        apps[i] = MakeUnoFactory()->CreateUnoExcel();
      } catch (const std::exception& e) {
        errors[i] = e.what();
      }
    });
  }
  for (auto& t : threads) t.join();
  for (size_t i = 0; i < apps.size(); ++i) {
    ASSERT_TRUE(apps[i]) << errors[i];
    RecordStarted(apps[i]->ProcessId());
    EXPECT_EQ(apps[i]->Version(), "7.4");
  }
  const Counts made = start.Since();
  EXPECT_EQ(made.built, 1);
  EXPECT_EQ(made.copied, 3);
  for (auto& app : apps) app->Quit();
  ExpectOnlyThePreparedProfile();
}

TEST_F(ProfileCacheTest, CommandLinesStartingTogetherOnAnEmptyCacheBothWorkAndLeaveOneValidCache) {
  std::vector<pid_t> children;
  for (int i = 0; i < 2; ++i) {
    const std::string out = (dir_ / ("sheets" + std::to_string(i) + ".out")).string();
    const pid_t pid = fork();
    if (pid == 0) {
      if (!freopen(out.c_str(), "w", stdout) || !freopen("/dev/null", "w", stderr)) _exit(120);
      execl(TABULON_CLI, TABULON_CLI, "sheets", TABULON_SAMPLE, static_cast<char*>(nullptr));
      _exit(121);
    }
    children.push_back(pid);
  }
  for (pid_t pid : children) {
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(ReadFile(dir_ / ("sheets" + std::to_string(i) + ".out")), "North\nSouth\nNotes\n");
  ExpectOnlyThePreparedProfile();
  // What they left is whole: the next office copies it as it is.
  const Counts start;
  ExpectAWorkingOffice();
  EXPECT_EQ(start.Since().built, 0);
  EXPECT_EQ(start.Since().copied, 1);
}

TEST_F(ProfileCacheTest, ADamagedPreparedProfileIsRebuilt) {
  ExpectAWorkingOffice();
  const fs::path prepared = Prepared();
  const fs::path manifest = prepared / "tabulon-profile.manifest";
  const fs::path registry = prepared / "user" / "registrymodifications.xcu";
  const struct {
    const char* damage;
    std::function<void()> apply;
  } cases[] = {
      {"manifest missing", [&] { fs::remove(manifest); }},
      {"manifest cut short", [&] {
         const std::string text = ReadFile(manifest);
         WriteFile(manifest, text.substr(0, text.size() - 10));
       }},
      {"a file truncated", [&] { fs::resize_file(registry, fs::file_size(registry) / 2); }},
      {"a file missing", [&] { fs::remove(registry); }},
      {"a file changed, same size", [&] {
         std::string text = ReadFile(registry);
         text[text.size() / 2] ^= 1;
         WriteFile(registry, text);
       }},
      {"made for another office", [&] {
         std::string text = ReadFile(manifest);
         const size_t at = text.find("version=");
         text.replace(at, 8, "version=6");
         WriteFile(manifest, text);
       }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.damage);
    c.apply();
    const Counts start;
    ExpectAWorkingOffice();
    EXPECT_EQ(start.Since().built, 1);
    EXPECT_GE(start.Since().first_starts, 1);
    ExpectOnlyThePreparedProfile();
    // Whole again: the next office only copies it.
    const Counts next;
    OfficeProcess process(ResolveProgramDir(""));
    std::string reason;
    ASSERT_TRUE(process.Prepare(milliseconds(60000), &reason)) << reason;
    EXPECT_TRUE(process.ProfileFromCache());
    EXPECT_EQ(next.Since().built, 0);
  }
}

// A program folder of its own that runs the installed office, so that the
// test can change the office's files: the program's entries are links, the
// small soffice.bin a copy.
fs::path OfficeCopy(const fs::path& root) {
  const fs::path installed = fs::canonical(fs::path(ResolveProgramDir("")).parent_path());
  fs::create_directories(root / "program");
  for (const auto& entry : fs::directory_iterator(installed)) {
    if (entry.path().filename() != "program") fs::create_symlink(entry.path(), root / entry.path().filename());
  }
  for (const auto& entry : fs::directory_iterator(installed / "program")) {
    if (entry.path().filename() == "soffice.bin")
      fs::copy_file(entry.path(), root / "program" / "soffice.bin");
    else
      fs::create_symlink(entry.path(), root / "program" / entry.path().filename());
  }
  return root / "program";
}

TEST_F(ProfileCacheTest, AnOfficeChangedInPlaceGetsItsProfilePreparedAgain) {
  const fs::path program = OfficeCopy(dir_ / "office");
  UnoOptions options;
  options.program_dir = program.string();
  const Counts start;
  OwnExcel(options)->Quit();
  OwnExcel(options)->Quit();
  EXPECT_EQ(start.Since().built, 1);
  const std::string before = ReadFile(Prepared() / "tabulon-profile.manifest");

  // The office installed again: a new soffice.bin.
  const timespec times[2] = {{1000000000, 0}, {1000000000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, (program / "soffice.bin").c_str(), times, 0), 0);
  auto app = OwnExcel(options);
  EXPECT_EQ(app->Version(), "7.4");
  app->Quit();
  EXPECT_EQ(start.Since().built, 2);
  // Prepared again in the same place: one per installation.
  ExpectOnlyThePreparedProfile();
  EXPECT_NE(ReadFile(Prepared() / "tabulon-profile.manifest"), before);
}

TEST_F(ProfileCacheTest, WithoutAUsableCacheEveryOfficeSetsUpAFreshProfile) {
  WriteFile(dir_ / "a-file", "x");
  const struct {
    const char* what;
    std::optional<std::string> cache, xdg, home;
  } cases[] = {
      {"turned off", "off", std::nullopt, std::nullopt},
      {"cannot be made", (dir_ / "a-file" / "cache").string(), std::nullopt, std::nullopt},
      {"no home folder", std::nullopt, std::nullopt, std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    for (const auto& [name, value] :
         {std::pair{"TABULON_PROFILE_CACHE", c.cache}, std::pair{"XDG_CACHE_HOME", c.xdg}, std::pair{"HOME", c.home}}) {
      if (value) setenv(name, value->c_str(), 1); else unsetenv(name);
    }
    const Counts start;
    ExpectAWorkingOffice();
    ExpectAWorkingOffice();
    EXPECT_GE(start.Since().first_starts, 2);
    EXPECT_EQ(start.Since().copied, 0);
    EXPECT_EQ(start.Since().built, 0);
  }
  EXPECT_FALSE(fs::exists(cache_));
  EXPECT_EQ(Listing(dir_), "a-file ");
}

// The office puts its pipe files in the system's pipe folder whatever its
// temporary folder is; a killed office cannot remove them, so the program
// does.
TEST_F(ProfileCacheTest, AKilledOfficeLeavesNoPipeFiles) {
  const fs::path tmp = dir_ / "tmp";
  fs::create_directories(tmp);
  setenv("TMPDIR", tmp.c_str(), 1);
  auto app = OwnExcel();
  app->GetWorkbooks().Add();
  // The office's profile, the only folder in its temporary folder.
  std::vector<std::string> profiles;
  for (const auto& entry : fs::directory_iterator(tmp)) profiles.push_back(entry.path().string());
  ASSERT_EQ(profiles.size(), 1u);
  const std::string pipe_name = "tabulon_office_" + [&] {
    std::string tail = fs::path(profiles[0]).filename().string().substr(std::string("tabulon-office-").size());
    for (char& ch : tail) {
      if (ch == '-') ch = '_';
    }
    return tail;
  }();
  const std::vector<std::string> pipes = OfficePipeFiles(pipe_name, profiles[0]);
  EXPECT_TRUE(fs::exists(pipes[0])) << pipes[0];
  EXPECT_TRUE(fs::exists(pipes[1])) << pipes[1];
  ASSERT_EQ(kill(app->ProcessId(), SIGKILL), 0);
  EXPECT_THROW(app->Version(), Error);
  for (const std::string& pipe : pipes) EXPECT_FALSE(fs::exists(pipe)) << pipe;
  EXPECT_EQ(Listing(tmp), "");
}

TEST_F(ProfileCacheTest, TheNextProgramSweepsWhatAKilledProgramLeft) {
  // A command line killed while its office runs: its office goes with it,
  // its profile and pipe files cannot.
  const fs::path tmp = dir_ / "tmp";
  fs::create_directories(tmp);
  const std::string env_tmp = "TMPDIR=" + tmp.string();
  const pid_t killed = fork();
  if (killed == 0) {
    putenv(const_cast<char*>(env_tmp.c_str()));
    if (!freopen("/dev/null", "w", stdout) || !freopen("/dev/null", "w", stderr)) _exit(120);
    execl(TABULON_CLI, TABULON_CLI, "convert", TABULON_SAMPLE, (dir_ / "x.csv").c_str(), static_cast<char*>(nullptr));
    _exit(121);
  }
  std::string profile;
  std::vector<std::string> pipes;
  ASSERT_TRUE(Until(
      [&] {
        for (const auto& entry : fs::directory_iterator(tmp)) profile = entry.path().string();
        if (profile.empty()) return false;
        pipes = OfficePipeFiles("", profile);
        return fs::exists(pipes[0]);  // its single-instance pipe: the office runs
      },
      milliseconds(60000)));
  kill(killed, SIGKILL);
  int status = 0;
  waitpid(killed, &status, 0);
  EXPECT_TRUE(fs::exists(profile));

  // A preparation of the cache killed with its program, and one of a live
  // program (this one), which stays.
  fs::create_directories(cache_);
  const fs::path dead_build = cache_ / ".build-999999999-1-abcdef";
  const fs::path live_build = cache_ / (".build-" + ProgramOwnerTag() + "ghijkl");
  fs::create_directories(dead_build / "user");
  fs::create_directories(live_build);
  const std::string dead_pipe = OfficePipeFiles("", dead_build.string())[0];
  WriteFile(dead_pipe, "");

  const pid_t next = fork();
  if (next == 0) {
    putenv(const_cast<char*>(env_tmp.c_str()));
    if (!freopen("/dev/null", "w", stdout) || !freopen("/dev/null", "w", stderr)) _exit(120);
    execl(TABULON_CLI, TABULON_CLI, "sheets", TABULON_SAMPLE, static_cast<char*>(nullptr));
    _exit(121);
  }
  ASSERT_EQ(waitpid(next, &status, 0), next);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(Listing(tmp), "");
  for (const std::string& pipe : pipes) EXPECT_FALSE(fs::exists(pipe)) << pipe;
  EXPECT_FALSE(fs::exists(dead_build));
  EXPECT_FALSE(fs::exists(dead_pipe));
  EXPECT_TRUE(fs::exists(live_build));
  fs::remove_all(live_build);
  ExpectOnlyThePreparedProfile();
}

}  // namespace
}  // namespace tabulon::office::uno::testing
