// The control's office session against a real LibreOffice started by the
// code under test.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "office/uno/uno_factory.h"
#include "support/office_wrappers.h"
#include "support/processes.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon {
namespace {

using testing::ChildOfficePids;
using testing::OfficeSpy;
using testing::SpyApplication;
using testing::SpyFactory;

class Session : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_TRUE(ChildOfficePids().empty()) << "an office was left running"; }

  std::shared_ptr<SpyFactory> Spy(office::uno::UnoOptions options = {}) {
    return std::make_shared<SpyFactory>(office::uno::MakeUnoFactory(options));
  }
  static ControlOptions With(std::shared_ptr<office::Factory> factory) {
    ControlOptions o;
    o.office = std::move(factory);
    return o;
  }
};

TEST_F(Session, ProbesVersionAndBuildLeaveNoOfficeBehind) {
  auto factory = Spy();
  TabulonCtrl c(With(factory));
  EXPECT_TRUE(c.ExcelIsInstalled());
  EXPECT_TRUE(ChildOfficePids().empty());  // the probe ends its office before answering
  EXPECT_DOUBLE_EQ(c.get_ExcelVersion(), 7.4);
  EXPECT_DOUBLE_EQ(c.get_ExcelBuild(), 2.0);
  EXPECT_TRUE(ChildOfficePids().empty());
  // The probe, then one application for each property read.
  EXPECT_EQ(factory->spy().excel_created, 3);
  EXPECT_EQ(factory->spy().quits, 2);
  EXPECT_TRUE(c.WordIsInstalled());
  EXPECT_TRUE(ChildOfficePids().empty());
  EXPECT_EQ(c.get_ErrorString(), " ");
}

// A method that runs before any probe starts one office, not two: the
// application it creates answers the probe, which is never made again.
TEST_F(Session, TheFirstApplicationAnswersTheProbe) {
  auto factory = Spy();
  TabulonCtrl c(With(factory));
  EXPECT_DOUBLE_EQ(c.get_ExcelVersion(), 7.4);
  EXPECT_EQ(factory->spy().excel_created, 1);
  EXPECT_TRUE(c.ExcelIsInstalled());
  EXPECT_EQ(factory->spy().excel_created, 1);
  EXPECT_TRUE(ChildOfficePids().empty());
}

TEST_F(Session, AFirstApplicationThatCannotBeCreatedIsAFailedProbe) {
  auto factory = Spy();
  factory->spy().fail_create = true;
  TabulonCtrl c(With(factory));
  std::vector<int32_t> codes;
  c.AdviseOnError([&](int32_t& code, std::string&) { codes.push_back(code); });
  EXPECT_EQ(c.get_ExcelVersion(), 0.0);
  EXPECT_EQ(c.OfficeFinding(), "injected: cannot start");
  // The answer is kept: not retried once the office could be created.
  factory->spy().fail_create = false;
  EXPECT_FALSE(c.ExcelIsInstalled());
  EXPECT_EQ(c.get_ExcelVersion(), 0.0);
  EXPECT_EQ(factory->spy().excel_created, 0);
  EXPECT_EQ(codes, (std::vector<int32_t>{-3, -3}));
}

TEST_F(Session, OptimizeForSpeedKeepsOneOfficePerApplicationUntilSetFalse) {
  auto factory = Spy();
  TabulonCtrl c(With(factory));
  c.put_OptimizeForSpeed(true);
  ASSERT_TRUE(c.get_OptimizeForSpeed());
  // The primary and the target application: two processes of their own.
  const auto running = ChildOfficePids();
  EXPECT_EQ(running.size(), 2u);
  const int created = factory->spy().excel_created;
  EXPECT_DOUBLE_EQ(c.get_ExcelVersion(), 7.4);
  EXPECT_DOUBLE_EQ(c.get_ExcelBuild(), 2.0);
  EXPECT_EQ(factory->spy().excel_created, created);  // reused
  EXPECT_EQ(ChildOfficePids(), running);
  c.put_OptimizeForSpeed(false);
  EXPECT_FALSE(c.get_OptimizeForSpeed());
  EXPECT_TRUE(ChildOfficePids().empty());
}

TEST_F(Session, OnDemandTheSecondApplicationWaitsForTheMethodThatNeedsIt) {
  auto factory = Spy();
  ControlOptions options = With(factory);
  options.start_second_application_on_demand = true;
  TabulonCtrl c(options);
  c.put_OptimizeForSpeed(true);
  ASSERT_TRUE(c.get_OptimizeForSpeed());
  EXPECT_EQ(ChildOfficePids().size(), 1u);
  // A copy between workbooks needs the target application: it starts then,
  // and stays for the next call.
  const std::filesystem::path dir = std::filesystem::temp_directory_path() /
                                    ("tabulon-session-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  std::string original = TABULON_SAMPLE, sheet = "1", range = "A1:B2", target = (dir / "t.xlsx").string();
  std::string target_sheet = "Copy", to = "A1";
  bool formulas = false, copy_name = false, add_sheets = true;
  EXPECT_EQ(c.CopySheetData(original, sheet, range, target, target_sheet, to, formulas, copy_name, add_sheets), 0)
      << c.get_ErrorString() << " " << c.OfficeFinding();
  EXPECT_EQ(ChildOfficePids().size(), 2u);
  EXPECT_TRUE(c.get_OptimizeForSpeed());
  c.put_OptimizeForSpeed(false);
  EXPECT_TRUE(ChildOfficePids().empty());
  std::filesystem::remove_all(dir);
}

TEST_F(Session, SwitchesAreSetInOrderAtCreationAndEventsBackOnBeforeQuit) {
  auto factory = Spy();
  TabulonCtrl c(With(factory));
  c.put_Verbose(true);
  EXPECT_DOUBLE_EQ(c.get_ExcelBuild(), 2.0);
  const std::vector<std::string> expected = {
      "DisplayAlerts=1",    "EnableEvents=0",           "Visible=0",
      "DisplayAlerts=1",    "AskToUpdateLinks=1",       "AlertBeforeOverwriting=1",
      "PromptForSummaryInfo=1", "EnableEvents=1"};
  EXPECT_EQ(factory->spy().switches, expected);
  EXPECT_EQ(factory->spy().quits, 1);
}

TEST_F(Session, AnOfficeKilledBetweenCallsIsReplacedNotReused) {
  auto factory = Spy();
  TabulonCtrl c(With(factory));
  c.put_OptimizeForSpeed(true);
  ASSERT_TRUE(c.get_OptimizeForSpeed());
  for (int pid : ChildOfficePids()) {
    kill(pid, SIGKILL);
    ASSERT_TRUE(testing::WaitForDeath(pid, 5));
  }
  // The dead application is found and replaced by a fresh one.
  EXPECT_DOUBLE_EQ(c.get_ExcelVersion(), 7.4);
  EXPECT_EQ(c.get_ErrorString(), " ");
  EXPECT_EQ(c.OfficeFinding(), "");
  c.put_OptimizeForSpeed(false);
}

TEST_F(Session, AQuitThatFailsIsMinusFourWithItsEvent) {
  auto factory = Spy();
  factory->spy().fail_quit = true;
  TabulonCtrl c(With(factory));
  std::vector<int32_t> codes;
  c.AdviseOnError([&](int32_t& code, std::string&) { codes.push_back(code); });
  // The number read is still returned.
  EXPECT_DOUBLE_EQ(c.get_ExcelVersion(), 7.4);
  EXPECT_EQ(c.get_ErrorString(), "Unable to destroy Excel application. Is it installed?");
  EXPECT_EQ(codes, std::vector<int32_t>{-4});
}

TEST_F(Session, AFolderWithoutAnOfficeIsNotInstalled) {
  const auto empty = std::filesystem::temp_directory_path() / ("tabulon-no-office-" + std::to_string(getpid()));
  std::filesystem::create_directories(empty);
  setenv("TABULON_OFFICE", empty.c_str(), 1);
  {
    TabulonCtrl c;  // the default factory reads the variable
    std::vector<int32_t> codes;
    c.AdviseOnError([&](int32_t& code, std::string&) { codes.push_back(code); });
    EXPECT_FALSE(c.ExcelIsInstalled());
    EXPECT_EQ(c.get_ExcelVersion(), 0.0);
    EXPECT_EQ(c.get_ErrorString(), "Unable to create Excel Application. Is it installed?");
    EXPECT_EQ(c.OfficeFinding(), "no office installed at " + empty.string());
    c.put_OptimizeForSpeed(true);
    EXPECT_FALSE(c.get_OptimizeForSpeed());
    EXPECT_FALSE(c.WordIsInstalled());
    EXPECT_EQ(codes, std::vector<int32_t>{-3});
    // A new instance's state knows nothing of the office yet.
    EXPECT_NE(c.OfficeFinding(), "");
    c.InitProperties();
    EXPECT_EQ(c.OfficeFinding(), "");
  }
  unsetenv("TABULON_OFFICE");
  std::filesystem::remove_all(empty);
}

TEST_F(Session, AHungOfficeBecomesAFailureWithinTheLimit) {
  office::uno::UnoOptions options;
  options.call_time_limit = std::chrono::milliseconds(3000);
  auto factory = Spy(options);
  TabulonCtrl c(With(factory));
  c.put_OptimizeForSpeed(true);
  ASSERT_TRUE(c.get_OptimizeForSpeed());
  for (int pid : ChildOfficePids()) kill(pid, SIGSTOP);
  const auto start = std::chrono::steady_clock::now();
  // The stopped office is killed by the watchdog of the first call it gets:
  // that call fails (no version, and the session reports the application it
  // could not quit), and the next call gets a fresh office.
  const double version = c.get_ExcelVersion();
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_LT(elapsed, std::chrono::seconds(10));
  EXPECT_EQ(version, 0.0);
  EXPECT_EQ(c.get_ErrorString(), "Unable to destroy Excel application. Is it installed?");
  // What happened to the office is kept beside the method's own message.
  EXPECT_EQ(c.OfficeFinding(),
            "Application.Version: timed out after 3 s: the office did not answer and was stopped");
  EXPECT_DOUBLE_EQ(c.get_ExcelVersion(), 7.4);
  EXPECT_EQ(c.OfficeFinding(), "");
  c.put_OptimizeForSpeed(false);
}

}  // namespace
}  // namespace tabulon
