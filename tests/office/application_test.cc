// The office process behind an application object: start, version, quit,
// one process per object, death, a stopped office, recycling, and the
// switches the control sets.
#include <signal.h>
#include <pthread.h>
#include <stdlib.h>

#include <chrono>

#include "office/uno/office_process.h"
#include "office_test_env.h"

namespace tabulon::office::uno::testing {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

using ApplicationTest = OfficeTest;

long Ms(steady_clock::duration d) {
  return static_cast<long>(std::chrono::duration_cast<milliseconds>(d).count());
}

TEST_F(ApplicationTest, StartsReportsVersionAndBuildAndQuits) {
  const auto t0 = steady_clock::now();
  auto app = OwnExcel();
  const auto t1 = steady_clock::now();
  const pid_t pid = app->ProcessId();
  EXPECT_GT(pid, 0);
  EXPECT_FALSE(ProcessGone(pid));
  EXPECT_TRUE(app->IsAlive());
  EXPECT_EQ(app->Version(), "7.4");
  const auto t2 = steady_clock::now();
  EXPECT_EQ(app->Build(), 2);
  const auto t3 = steady_clock::now();
  app->Quit();
  const auto t4 = steady_clock::now();
  EXPECT_FALSE(app->IsAlive());
  EXPECT_TRUE(EventuallyGone(pid));
  EXPECT_THROW(app->Version(), Error);
  RecordProperty("start_ms", Ms(t1 - t0));
  RecordProperty("call_ms", Ms(t3 - t2));
  RecordProperty("quit_ms", Ms(t4 - t3));
  std::printf("office start %ld ms, Build() %ld ms, quit %ld ms\n", Ms(t1 - t0), Ms(t3 - t2),
              Ms(t4 - t3));
}

TEST_F(ApplicationTest, TwoApplicationsAreTwoProcesses) {
  auto a = OwnExcel();
  auto b = OwnExcel();
  EXPECT_NE(a->ProcessId(), b->ProcessId());
  // Each has workbooks of its own.
  a->GetWorkbooks().Add();
  EXPECT_EQ(a->GetWorkbooks().Count(), 1);
  EXPECT_EQ(b->GetWorkbooks().Count(), 0);
}

TEST_F(ApplicationTest, DestroyingWithoutQuitEndsTheOffice) {
  pid_t pid;
  {
    auto app = OwnExcel();
    pid = app->ProcessId();
    app->GetWorkbooks().Add().GetWorksheets().Item(1)->Cells(1, 1)->SetValue(Cell(1.0));
  }
  EXPECT_TRUE(ProcessGone(pid));
}

TEST_F(ApplicationTest, KilledOfficeIsReportedAsDiedAndNeverReused) {
  auto app = OwnExcel();
  Workbook& book = app->GetWorkbooks().Add();
  ASSERT_EQ(kill(app->ProcessId(), SIGKILL), 0);
  try {
    book.GetWorksheets().Item(1)->Cells(1, 1)->SetValue(Cell(1.0));
    FAIL() << "a call to a killed office succeeded";
  } catch (const Error& e) {
    EXPECT_EQ(e.kind(), ErrorKind::kDied) << e.what();
    // The error says what happened to the office, and so does the finding.
    EXPECT_NE(std::string(e.what()).find("the office died (it was killed by signal 9"), std::string::npos)
        << e.what();
  }
  EXPECT_FALSE(app->IsAlive());
  EXPECT_EQ(app->Finding().rfind("the office died (it was killed by signal 9", 0), 0u) << app->Finding();
  try {
    app->GetWorkbooks().Add();
    FAIL() << "a dead office was used again";
  } catch (const Error& e) {
    EXPECT_EQ(e.kind(), ErrorKind::kDied);
  }
}

TEST_F(ApplicationTest, StoppedOfficeTimesOutWithinTheLimitAndIsKilled) {
  UnoOptions options;
  options.call_time_limit = milliseconds(3000);
  auto app = OwnExcel(options);
  const pid_t pid = app->ProcessId();
  Workbook& book = app->GetWorkbooks().Add();
  ASSERT_TRUE(Stop(pid));
  const auto start = steady_clock::now();
  try {
    book.GetWorksheets().Item(1)->Cells(1, 1)->SetValue(Cell(1.0));
    FAIL() << "a call to a stopped office succeeded";
  } catch (const Error& e) {
    EXPECT_EQ(e.kind(), ErrorKind::kTimeout) << e.what();
    EXPECT_NE(std::string(e.what()).find("timed out after 3 s"), std::string::npos) << e.what();
  }
  EXPECT_EQ(app->Finding().rfind("timed out after 3 s", 0), 0u) << app->Finding();
  const auto elapsed = steady_clock::now() - start;
  EXPECT_GE(elapsed, milliseconds(2900));
  EXPECT_LT(elapsed, milliseconds(6000));
  EXPECT_FALSE(app->IsAlive());
  EXPECT_TRUE(EventuallyGone(pid));
}

// A write to an office that has just closed its pipe raises SIGPIPE in the
// writing thread; the bridge's threads must have it blocked, or the signal
// ends the whole program.
TEST_F(ApplicationTest, TheBridgeThreadsHaveSigpipeBlocked) {
  auto app = OwnExcel();
  app->GetWorkbooks().Add();
  int bridge_threads = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    const std::string name = ReadFile(task.path() / "comm");
    if (name.rfind("binaryurp", 0) != 0) continue;
    ++bridge_threads;
    const std::string status = ReadFile(task.path() / "status");
    const size_t at = status.find("SigBlk:");
    ASSERT_NE(at, std::string::npos);
    const unsigned long long blocked = std::stoull(status.substr(at + 7), nullptr, 16);
    EXPECT_TRUE(blocked & (1ull << (SIGPIPE - 1))) << name << " does not block SIGPIPE";
  }
  EXPECT_GE(bridge_threads, 2);  // the reader and the writer at least
  // The caller's own mask is as it was.
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
}

TEST_F(ApplicationTest, ASigpipeRaisedDuringABlockIsDiscardedNotDelivered) {
  {
    SigpipeBlock block;
    ASSERT_EQ(pthread_kill(pthread_self(), SIGPIPE), 0);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 1);
  }
  // Still running: the signal was taken away before the mask came back.
  sigset_t pending;
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

// Everything an office leaves on disk lives in its profile (its temporary
// files included) and goes with it, in whatever temporary folder it runs.
TEST_F(ApplicationTest, LeavesNothingInTheTemporaryFolder) {
  const std::filesystem::path tmp = Path("tmp");
  std::filesystem::create_directories(tmp);
  const char* old = getenv("TMPDIR");
  const std::string saved = old ? old : "";
  setenv("TMPDIR", tmp.c_str(), 1);
  {
    auto app = OwnExcel();
    Workbook& book = app->GetWorkbooks().Add();
    book.GetWorksheets().Item(1)->Cells(1, 1)->SetValue(Cell(1.0));
    SaveAsOptions save;
    save.file_format = 51;
    book.SaveAs(Path("t.xlsx").string(), save);
    EXPECT_FALSE(std::filesystem::is_empty(tmp));  // the profile, while it runs
    app->Quit();
  }
  {
    auto app = OwnExcel();
    app->GetWorkbooks().Add();
    ASSERT_EQ(kill(app->ProcessId(), SIGKILL), 0);
    EXPECT_THROW(app->Version(), Error);
  }
  if (old) setenv("TMPDIR", saved.c_str(), 1); else unsetenv("TMPDIR");
  std::string left;
  for (const auto& entry : std::filesystem::directory_iterator(tmp)) left += entry.path().filename().string() + " ";
  EXPECT_EQ(left, "");
}

TEST_F(ApplicationTest, KillEveryOfficeEndsThemAllAndRemovesTheirProfiles) {
  auto a = OwnExcel();
  auto b = OwnWord();
  const pid_t pa = a->ProcessId();
  const pid_t pb = b->ProcessId();
  KillEveryOffice();
  EXPECT_TRUE(EventuallyGone(pa));
  EXPECT_TRUE(EventuallyGone(pb));
  EXPECT_FALSE(a->IsAlive());
  EXPECT_FALSE(b->IsAlive());
  EXPECT_THROW(a->Version(), Error);
}

TEST_F(ApplicationTest, CallTimeLimitCanBeChangedOnARunningApplication) {
  auto app = OwnExcel();
  app->SetCallTimeLimit(milliseconds(1500));
  app->GetWorkbooks().Add();
  ASSERT_TRUE(Stop(app->ProcessId()));
  const auto start = steady_clock::now();
  try {
    app->Version();
    FAIL();
  } catch (const Error& e) {
    EXPECT_EQ(e.kind(), ErrorKind::kTimeout);
  }
  EXPECT_LT(steady_clock::now() - start, milliseconds(4000));
}

TEST_F(ApplicationTest, NoOfficeInTheConfiguredFolderMakesCreateThrow) {
  const char* old = getenv("TABULON_OFFICE");
  const std::string saved = old ? old : "";
  setenv("TABULON_OFFICE", dir_.c_str(), 1);
  EXPECT_THROW(MakeUnoFactory()->CreateExcel(), Error);
  EXPECT_THROW(MakeUnoFactory()->CreateWord(), Error);
  setenv("TABULON_OFFICE", (dir_ / "soffice").c_str(), 1);
  EXPECT_THROW(MakeUnoFactory()->CreateExcel(), Error);
  if (old) setenv("TABULON_OFFICE", saved.c_str(), 1); else unsetenv("TABULON_OFFICE");
  // The soffice path itself is accepted as well as its folder.
  UnoOptions options;
  options.program_dir = "/usr/lib/libreoffice/program/soffice";
  auto app = OwnExcel(options);
  EXPECT_TRUE(app->IsAlive());
}

TEST_F(ApplicationTest, RecyclesItsOfficeAfterEnoughDocumentsWhenNoneIsOpen) {
  UnoOptions options;
  options.recycle_after = 2;
  auto app = OwnExcel(options);
  const pid_t first = app->ProcessId();
  for (int i = 0; i < 2; ++i) app->GetWorkbooks().Add().Close(false);
  EXPECT_EQ(app->ProcessId(), first);
  // The third document starts a new office before it is made.
  Workbook& third = app->GetWorkbooks().Add();
  const pid_t second = app->ProcessId();
  RecordStarted(second);
  EXPECT_NE(second, first);
  EXPECT_EQ(app->OfficeStarts(), 2);
  EXPECT_TRUE(EventuallyGone(first));
  third.GetWorksheets().Item(1)->Cells(1, 1)->SetValue(Cell(7.0));
  EXPECT_EQ(third.GetWorksheets().Item(1)->Cells(1, 1)->Value()[0][0], Cell(7.0));
  // Not while a workbook is open, even past the count.
  for (int i = 0; i < 3; ++i) app->GetWorkbooks().Add();
  EXPECT_EQ(app->ProcessId(), second);
}

TEST_F(ApplicationTest, RecordsTheSwitchesInTheOrderSet) {
  auto& app = SharedExcel();
  const auto before = app.Switches().size();
  app.SetDisplayAlerts(false);
  app.SetEnableEvents(false);
  app.SetVisible(false);
  app.SetDisplayAlerts(false);
  app.SetAskToUpdateLinks(true);
  app.SetAlertBeforeOverwriting(false);
  app.SetPromptForSummaryInfo(true);
  const auto all = app.Switches();
  const std::vector<SwitchRecord> set(all.begin() + static_cast<long>(before), all.end());
  const std::vector<SwitchRecord> expected{
      {"DisplayAlerts", 0}, {"EnableEvents", 0},           {"Visible", 0},
      {"DisplayAlerts", 0}, {"AskToUpdateLinks", 1},       {"AlertBeforeOverwriting", 0},
      {"PromptForSummaryInfo", 1}};
  EXPECT_EQ(set, expected);
}

TEST_F(ApplicationTest, DefaultFactoryIsTheLibreOfficeOne) {
  auto factory = DefaultFactory();
  ASSERT_NE(dynamic_cast<UnoFactory*>(factory.get()), nullptr);
}

}  // namespace
}  // namespace tabulon::office::uno::testing
