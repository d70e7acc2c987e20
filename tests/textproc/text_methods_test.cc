// The text methods: thin wrappers that return the text library's result
// unchanged. A stand-in library shows what the control passes; the real one
// shows a job done end to end.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "office/office.h"
#include "support/no_office.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon {
namespace {

using testing::NoOffice;

ControlOptions Library(const std::string& folder) {
  ControlOptions o;
  o.office = std::make_shared<NoOffice>();
  o.text_library_folder = folder;
  return o;
}

template <typename T>
T& FakeSymbol(const char* name) {
  void* handle = dlopen(FAKE_RAVELIN_DIR "/libravelin.so", RTLD_NOW | RTLD_NOLOAD);
  EXPECT_NE(handle, nullptr);
  return *static_cast<T*>(dlsym(handle, name));
}

TEST(TextMethods, ReturnTheLibraryResultAndHandBackChangedText) {
  TabulonCtrl c(Library(FAKE_RAVELIN_DIR));
  c.put_ErrorString("untouched");
  std::string in = "/data/in.csv", out = "/data/out.csv", ch = "x";
  EXPECT_EQ(c.csvChangeDelimitationCharacter(in, out, ch), -4242);
  EXPECT_EQ(ch, "X");
  EXPECT_EQ(std::string(FakeSymbol<char[4096]>("fake_last_path")), "/data/in.csv");
  EXPECT_EQ(c.get_ErrorString(), "untouched");
}

TEST(TextMethods, PadLeftIsOneOnlyForTrue) {
  TabulonCtrl c(Library(FAKE_RAVELIN_DIR));
  std::string in = "i", out = "o", pad = " ", column = "1";
  int32_t length = 12;
  for (bool pad_left : {true, false}) {
    bool flag = pad_left;
    EXPECT_EQ(c.csvPadForFixedLengthFields(in, out, length, pad, flag, column), 17);
    EXPECT_EQ(FakeSymbol<int32_t>("fake_last_pad_left"), pad_left ? 1 : 0);
    EXPECT_EQ(FakeSymbol<int32_t>("fake_last_length"), 12);
  }
}

TEST(TextMethods, IsFileUnicodeIsTrueForAnyNonZeroAnswer) {
  TabulonCtrl c(Library(FAKE_RAVELIN_DIR));
  std::string wide = "/x/wide.txt", narrow = "/x/narrow.txt";
  EXPECT_TRUE(c.IsFileUnicode(wide));
  EXPECT_FALSE(c.IsFileUnicode(narrow));
}

TEST(TextMethods, AMissingLibraryIsAnAutomationError) {
  const auto empty = std::filesystem::temp_directory_path() / ("tabulon-nolib-" + std::to_string(getpid()));
  std::filesystem::create_directories(empty);
  TabulonCtrl c(Library(empty.string()));
  std::string in = "a", out = "b";
  try {
    c.csvTrimCSVFile(in, out);
    ADD_FAILURE() << "no error";
  } catch (const AutomationError& e) {
    EXPECT_EQ(e.number(), AutomationError::kFileNotFound);
  }
  std::filesystem::remove_all(empty);
}

TEST(TextMethods, AMissingEntryPointIsAnAutomationError) {
  TabulonCtrl c(Library(EMPTY_RAVELIN_DIR));
  std::string in = "a", out = "b";
  try {
    c.ConcatenateTwoTextFiles(in, out);
    ADD_FAILURE() << "no error";
  } catch (const AutomationError& e) {
    EXPECT_EQ(e.number(), AutomationError::kEntryPointNotFound);
    EXPECT_NE(std::string(e.description()).find("ConcatenateTwoTextFiles"), std::string::npos);
  }
}

std::string Read(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// The library that ships beside the control, found by name.
TEST(TextMethods, TheRealLibraryDoesTheJobAndLeavesErrorStringAlone) {
  const auto dir = std::filesystem::temp_directory_path() / ("tabulon-text-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  { std::ofstream(dir / "in.csv", std::ios::binary) << "a,\"b,c\"\r\n1,2\r\n"; }
  ControlOptions o;
  o.office = std::make_shared<NoOffice>();
  TabulonCtrl c(o);
  (void)c.get_ExcelVersion();  // a failure first: its text must survive the successes
  const std::string failure = c.get_ErrorString();
  std::string in = (dir / "in.csv").string(), out = (dir / "out.csv").string(), ch = ";";
  EXPECT_EQ(c.csvChangeDelimitationCharacter(in, out, ch), 0);
  EXPECT_EQ(Read(dir / "out.csv"), "a;\"b,c\"\r\n1;2\r\n");
  std::string second = (dir / "in.csv").string(), first = (dir / "out.csv").string();
  EXPECT_EQ(c.ConcatenateTwoTextFiles(first, second), 0);
  EXPECT_EQ(Read(dir / "out.csv"), "a;\"b,c\"\r\n1;2\r\na,\"b,c\"\r\n1,2\r\n");
  std::string missing = (dir / "none.csv").string();
  EXPECT_LT(c.csvTrimCSVFile(missing, out), 0);
  EXPECT_EQ(c.get_ErrorString(), failure);
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace tabulon
