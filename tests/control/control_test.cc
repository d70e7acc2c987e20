#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "office/office.h"
#include "support/no_office.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon {
namespace {

using testing::NoOffice;

ControlOptions WithoutOffice(std::shared_ptr<NoOffice> factory = std::make_shared<NoOffice>()) {
  ControlOptions options;
  options.office = std::move(factory);
  return options;
}

TEST(NewInstance, HasEveryDefault) {
  TabulonCtrl c(WithoutOffice());
  EXPECT_EQ(c.get_CO_DelimitationCharacter(), 44);
  EXPECT_FALSE(c.get_CO_MultiFileOutput());
  EXPECT_EQ(c.get_CO_Range(), "");
  EXPECT_FALSE(c.get_Verbose());
  EXPECT_TRUE(c.get_UseStateFile());
  EXPECT_FALSE(c.get_OptimizeForSpeed());
  EXPECT_FALSE(c.get_SkipEmptySheets());
  EXPECT_EQ(c.get_ErrorString(), " ");
  EXPECT_EQ(c.get_InputFile_PassWord(), "");
  EXPECT_EQ(c.get_InputFile_PassWord_TW(), "");
  EXPECT_EQ(c.get_OutputFile_PassWord_TW(), "");
  EXPECT_EQ(c.get_FilesJustCreatedCount(), 0);
  EXPECT_EQ(c.get_SheetsJustProcessedCount(), 0);
}

TEST(NewInstance, StateFileDefaultsUnderTheSettingsFolder) {
  const char* old = std::getenv("XDG_CONFIG_HOME");
  const std::string saved = old ? old : "";
  setenv("XDG_CONFIG_HOME", "/tmp/tabulon-config-test", 1);
  TabulonCtrl c(WithoutOffice());
  EXPECT_EQ(c.get_StateFile(), "/tmp/tabulon-config-test/Brevant, Inc/Tabu.INI");
  if (old) setenv("XDG_CONFIG_HOME", saved.c_str(), 1); else unsetenv("XDG_CONFIG_HOME");
}

TEST(Properties, PlainOnesStoreAnyValueUnchecked) {
  TabulonCtrl c(WithoutOffice());
  c.put_CO_DelimitationCharacter(-70000);
  c.put_CO_Range("not a range");
  c.put_ErrorString("host text");
  c.put_InputFile_PassWord("p1");
  c.put_OutputFile_PassWord_TW("p4");
  c.put_Verbose(true);
  EXPECT_EQ(c.get_CO_DelimitationCharacter(), -70000);
  EXPECT_EQ(c.get_CO_Range(), "not a range");
  EXPECT_EQ(c.get_ErrorString(), "host text");
  EXPECT_EQ(c.get_InputFile_PassWord(), "p1");
  EXPECT_EQ(c.get_OutputFile_PassWord_TW(), "p4");
  EXPECT_TRUE(c.get_Verbose());
}

TEST(Properties, ReadingTheOutputPasswordMovesItToTheInputWriteReservationPassword) {
  TabulonCtrl c(WithoutOffice());
  c.put_InputFile_PassWord_TW("before");
  c.put_OutputFile_PassWord("secret");
  EXPECT_EQ(c.get_InputFile_PassWord_TW(), "before");  // the Let alone moves nothing
  EXPECT_EQ(c.get_OutputFile_PassWord(), "");
  EXPECT_EQ(c.get_InputFile_PassWord_TW(), "secret");
  EXPECT_EQ(c.get_OutputFile_PassWord(), "");  // and again: the stored value is kept
  EXPECT_EQ(c.get_InputFile_PassWord_TW(), "secret");
}

TEST(Properties, MultifileProcessingAlwaysReadsFalse) {
  TabulonCtrl c(WithoutOffice());
  c.put_MultifileProcessing(true);
  EXPECT_FALSE(c.get_MultifileProcessing());
}

TEST(Properties, SizeAlwaysFollowsTheIcon) {
  TabulonCtrl c(WithoutOffice());
  const int32_t w = c.get_Width();
  const int32_t h = c.get_Height();
  EXPECT_GT(w, 0);
  EXPECT_GT(h, 0);
  c.put_Width(w * 3);
  c.put_Height(1);
  EXPECT_EQ(c.get_Width(), w);
  EXPECT_EQ(c.get_Height(), h);
}

TEST(ResultLists, BadIndexesAreAutomationErrorFive) {
  TabulonCtrl c(WithoutOffice());
  c.put_ErrorString("untouched");
  for (int32_t index : {0, 1, -1, 2}) {
    try {
      (void)c.get_FilesJustCreated(index);
      ADD_FAILURE() << "FilesJustCreated(" << index << ") did not throw";
    } catch (const AutomationError& e) {
      EXPECT_EQ(e.number(), 5);
      EXPECT_STREQ(e.description(), "Invalid procedure call or argument");
    }
    EXPECT_THROW((void)c.get_SheetsJustProcessed(index), AutomationError);
  }
  EXPECT_EQ(c.get_ErrorString(), "untouched");
}

TEST(Office, WithoutAnOfficeEverythingReportsNotInstalled) {
  auto factory = std::make_shared<NoOffice>();
  TabulonCtrl c(WithoutOffice(factory));
  std::vector<std::pair<int32_t, std::string>> events;
  c.AdviseOnError([&](int32_t& code, std::string& text) { events.emplace_back(code, text); });

  EXPECT_FALSE(c.ExcelIsInstalled());
  EXPECT_EQ(c.get_ExcelVersion(), 0.0);
  EXPECT_EQ(c.get_ErrorString(), "Unable to create Excel Application. Is it installed?");
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].first, -3);
  EXPECT_EQ(events[0].second, "Unable to create Excel Application. Is it installed?");
  EXPECT_EQ(c.get_ExcelBuild(), 0.0);
  EXPECT_EQ(events.size(), 2u);

  c.put_OptimizeForSpeed(true);
  EXPECT_FALSE(c.get_OptimizeForSpeed());
  // The failed probe is remembered: one attempt for the whole instance.
  EXPECT_EQ(factory->attempts, 1);
  EXPECT_FALSE(c.WordIsInstalled());
  EXPECT_FALSE(c.WordIsInstalled());
  EXPECT_EQ(factory->attempts, 2);
}

TEST(Office, AFailingCallLeavesItsMessageThroughLaterSuccesses) {
  TabulonCtrl c(WithoutOffice());
  (void)c.get_ExcelVersion();
  const std::string failure = c.get_ErrorString();
  c.put_CO_Range("A1");  // a property Let is not a failure
  c.put_OptimizeForSpeed(false);
  EXPECT_EQ(c.get_ErrorString(), failure);
}

TEST(OnError, SinksRunInOrderAndCanBeRemoved) {
  TabulonCtrl c(WithoutOffice());
  std::vector<std::string> calls;
  const uint32_t first = c.AdviseOnError([&](int32_t& code, std::string& text) {
    calls.push_back("first " + std::to_string(code));
    text = "changed by first";
  });
  c.AdviseOnError([&](int32_t&, std::string& text) { calls.push_back("second saw " + text); });
  (void)c.get_ExcelVersion();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0], "first -3");
  EXPECT_EQ(calls[1], "second saw changed by first");
  // What a sink changes is the event's copy, not the control's text.
  EXPECT_EQ(c.get_ErrorString(), "Unable to create Excel Application. Is it installed?");

  c.UnadviseOnError(first);
  calls.clear();
  (void)c.get_ExcelVersion();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0], "second saw Unable to create Excel Application. Is it installed?");
}

TEST(StateFile, SaveAndLoadDoNothingAndTranslatorAnswersFalse) {
  const auto dir = std::filesystem::temp_directory_path() / ("tabulon-state-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  {
    TabulonCtrl c(WithoutOffice());
    c.put_StateFile((dir / "Tabu.INI").string());
    EXPECT_TRUE((std::is_same_v<decltype(c.StateFileSave()), std::monostate>));
    c.StateFileSave();
    c.StateFileLoad();
    std::filesystem::create_directories(dir / "Languages");
    { std::ofstream(dir / "Languages" / "de.lng") << "cmdSelect=Auswaehlen\n"; }
    std::string parent = (dir / "parent.ini").string();
    std::string language = "de.lng";
    EXPECT_FALSE(c.InitTranslator(parent, language));
    std::string missing = "missing.lng";
    EXPECT_FALSE(c.InitTranslator(parent, missing));
  }  // the destructor saves the state file too: still nothing
  EXPECT_FALSE(std::filesystem::exists(dir / "Tabu.INI"));
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace tabulon
