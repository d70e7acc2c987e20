// The PrintExcelContents, ExecuteMacro and ChangePassword subcommands as
// scripts see them: usage errors exit 2, failures print "tabulon: <command>:
// <code> <message>" and exit 1, success prints nothing; passwords can come
// from the environment or standard input.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "cli_fixture.h"

namespace {

namespace fs = std::filesystem;
using tabulon::testing::ExpectUsageErrors;
using tabulon::testing::Folder;
using tabulon::testing::Read;
using tabulon::testing::Result;
using tabulon::testing::Tabulon;

TEST(PrintMacroCli, UsageErrorsExitTwo) {
  ExpectUsageErrors({
      "PrintExcelContents",
      "PrintExcelContents a.xlsx",
      "PrintExcelContents a.xlsx '*' --copies 0",
      "PrintExcelContents a.xlsx '*' --from -1",
      "ExecuteMacro a.xlsm b.xls",
      "ExecuteMacro a.xlsm b.xls M 1 2 3 4 5 6 7 8 9",
      "ChangePassword a.xls",
      "ChangePassword a.xls b.xls --no-such-flag",
  });
  const Result help = Tabulon("help ChangePassword");
  EXPECT_EQ(help.exit_code, 0);
  EXPECT_NE(help.out.find("TABULON_TARGET_PASSWORD"), std::string::npos);
}

TEST(PrintMacroCli, ArgumentFailuresNeedNoOffice) {
  Folder dir("tabulon-print-macro-cli-");
  const std::string none = dir / "none.xlsx";
  struct Case {
    std::string args, err;
  };
  const Case cases[] = {
      {"PrintExcelContents " + none + " '*'", "tabulon: PrintExcelContents: -202 Source File does not exist\n"},
      {"ExecuteMacro '\"" + none + "\"' " + (dir / "t.xls") + " Mac a b --save",
       "tabulon: ExecuteMacro: -202 Source File does not exist\n"},
      {"ChangePassword " + none + " " + (dir / "t.xls"), "tabulon: ChangePassword: -202 Source File does not exist\n"},
      {std::string("ChangePassword ") + TABULON_SAMPLE + " " + (dir / "f") + "/sub/t.xls",
       "tabulon: ChangePassword: -208 Target path folder does not exist\n"},
  };
  std::ofstream(dir / "f") << "a file where a folder would be";
  for (const Case& c : cases) {
    const Result r = Tabulon(c.args);
    EXPECT_EQ(r.exit_code, 1) << c.args;
    EXPECT_EQ(r.err, c.err) << c.args;
    EXPECT_TRUE(r.out.empty()) << c.args;
  }
  EXPECT_FALSE(fs::exists(dir / "t.xls"));
}

// The passwords from the environment and standard input reach the method:
// the copy is encrypted with the one read from stdin, and opens with it.
TEST(PrintMacroCli, PasswordsComeFromTheEnvironmentAndStandardInput) {
  Folder dir("tabulon-print-macro-cli-office-");
  const std::string locked = dir / "locked.xls";
  std::ofstream(dir / "line") << "from stdin\n";
  const Result lock =
      Tabulon("ChangePassword " + std::string(TABULON_SAMPLE) + " " + locked + " --target-pw - < " + (dir / "line"));
  ASSERT_EQ(lock.exit_code, 0) << lock.err;
  EXPECT_TRUE(lock.out.empty());
  EXPECT_EQ(system(("msoffcrypto-tool --test '" + locked + "' >/dev/null 2>&1").c_str()), 0);
  const std::string plain = dir / "plain.xls";
  const Result wrong = Tabulon("ChangePassword " + locked + " " + plain + " --original-pw nope");
  EXPECT_EQ(wrong.exit_code, 1);
  EXPECT_EQ(wrong.err.rfind("tabulon: ChangePassword: -2146827284 ", 0), 0u) << wrong.err;
  EXPECT_FALSE(fs::exists(plain));
  setenv("TABULON_ORIGINAL_PASSWORD", "from stdin", 1);
  const Result unlock = Tabulon("ChangePassword " + locked + " " + plain);
  unsetenv("TABULON_ORIGINAL_PASSWORD");
  ASSERT_EQ(unlock.exit_code, 0) << unlock.err;
  EXPECT_NE(system(("msoffcrypto-tool --test '" + plain + "' >/dev/null 2>&1").c_str()), 0);
}

// A copy reserved for writing is written over only with its write
// password, here from the environment; without it the office opened the
// workbook read-only and the save over it fails.
TEST(PrintMacroCli, WritePasswordsComeFromTheEnvironment) {
  Folder dir("tabulon-print-macro-cli-office-");
  const std::string reserved = dir / "reserved.xls";
  const Result lock = Tabulon("ChangePassword " + std::string(TABULON_SAMPLE) + " " + reserved +
                              " --target-pw-to-write w");
  ASSERT_EQ(lock.exit_code, 0) << lock.err;
  const std::string again = "ChangePassword " + reserved + " " + reserved + " --target-pw-to-write w";
  const Result refused = Tabulon(again);
  EXPECT_EQ(refused.exit_code, 1);
  EXPECT_NE(refused.err.find("opened read-only"), std::string::npos) << refused.err;
  setenv("TABULON_ORIGINAL_PASSWORD_TW", "w", 1);
  const Result right = Tabulon(again);
  unsetenv("TABULON_ORIGINAL_PASSWORD_TW");
  EXPECT_EQ(right.exit_code, 0) << right.err;
}

}  // namespace
