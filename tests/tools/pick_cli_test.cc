// tabulon pick as scripts see it when the window cannot be shown: exit 1,
// nothing on stdout, "tabulon: pick: -10 <message>" on stderr, and the
// process ends normally instead of being aborted by the widget toolkit.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli_fixture.h"

namespace {

using tabulon::testing::ExpectUsageErrors;
using tabulon::testing::Folder;
using tabulon::testing::Result;
using tabulon::testing::Tabulon;

// The display settings of the environment the command line inherits,
// restored afterwards.
class DisplayEnvironment {
 public:
  DisplayEnvironment() {
    for (const char* name : kNames) {
      const char* value = getenv(name);
      saved_.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
      unsetenv(name);
    }
  }
  ~DisplayEnvironment() {
    for (const auto& [name, value] : saved_) {
      if (value) {
        setenv(name, value->c_str(), 1);
      } else {
        unsetenv(name);
      }
    }
  }
  void Set(const char* name, const char* value) { setenv(name, value, 1); }

 private:
  static constexpr const char* kNames[] = {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "XDG_SESSION_TYPE"};
  std::vector<std::pair<const char*, std::optional<std::string>>> saved_;
};

TEST(PickCli, MissingWorkbookFailsWithTheDialogsText) {
  DisplayEnvironment env;
  Folder dir("tabulon-pick-cli-");
  for (const char* args : {"pick ", "ShowSheetSelectionDialog --multiple "}) {
    const Result r = Tabulon(args + dir / "missing.xlsx");
    EXPECT_EQ(r.exit_code, 1) << args;
    EXPECT_EQ(r.out, "") << args;
    EXPECT_EQ(r.err, "tabulon: pick: -10 Source file does not exist: " + dir / "missing.xlsx" + "\n") << args;
  }
}

TEST(PickCli, NoDisplayFailsCleanlyAndSaysWhy) {
  if (!TABULON_HAVE_SHEET_DIALOG) GTEST_SKIP() << "built without the dialog";
  struct Case {
    const char* name;
    const char* value;  // nullptr: nothing set
    const char* why;
  };
  const Case cases[] = {
      {"DISPLAY", nullptr, "DISPLAY is not set"},
      {"DISPLAY", ":93", "the X display :93 does not answer"},
      {"QT_QPA_PLATFORM", "no-such-platform", "the platform \"no-such-platform\" is not installed"},
  };
  for (const Case& c : cases) {
    DisplayEnvironment env;
    if (c.value != nullptr) env.Set(c.name, c.value);
    const Result r = Tabulon(std::string("pick --multiple ") + TABULON_SAMPLE);
    EXPECT_EQ(r.exit_code, 1) << c.why;
    EXPECT_EQ(r.out, "") << c.why;
    EXPECT_EQ(r.err.rfind("tabulon: pick: -10 No display to show the sheet selection dialog on: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find(c.why), std::string::npos) << r.err;
  }
}

TEST(PickCli, UsageErrorsExitTwo) {
  ExpectUsageErrors({"pick", "pick a.xlsx b.xlsx", "pick --no-such-flag a.xlsx"});
}

}  // namespace
