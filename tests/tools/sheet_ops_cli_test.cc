// The sheet structure subcommands as scripts see them: positional arguments
// in the method's order, nothing on stdout on success, "tabulon: <command>:
// <code> <message>" on stderr, exit 0 / 1 / 2; a batch runs many of them on
// one warm office. Results are read back with `tabulon sheets`.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "cli_fixture.h"

namespace {

namespace fs = std::filesystem;
using tabulon::testing::CliTest;
using tabulon::testing::ExpectUsageErrors;
using tabulon::testing::Result;
using tabulon::testing::Tabulon;

class SheetOpsCli : public CliTest {
 protected:
  SheetOpsCli() : CliTest("tabulon-sheet-ops-cli-") {}
};

TEST_F(SheetOpsCli, UsageErrorsExitTwo) {
  ExpectUsageErrors({"AddSheet a b c d", "MoveSheet a b c d", "RenameSheet a b c", "DeleteSheet a b c d",
                     "CopySheet a b c d e", "CopySheet a b c d e f --if-exists 3", "AddSheet a b c d e --bad"});
  const Result help = Tabulon("help CopySheet");
  EXPECT_EQ(help.exit_code, 0);
  EXPECT_NE(help.out.find("--if-exists"), std::string::npos);
  EXPECT_NE(help.out.find("sSheetBefore"), std::string::npos);
}

TEST_F(SheetOpsCli, ArgumentFailuresNeedNoOffice) {
  struct Case {
    std::string args, err;
  };
  const Case cases[] = {
      {"AddSheet " + Path("none.xls") + " " + Path("t.xls") + " New '' lastlast",
       "tabulon: AddSheet: -202 Source File does not exist\n"},
      {"MoveSheet " + Path("none.xls") + " " + Path("t.xls") + " A '' ''",
       "tabulon: MoveSheet: -202 Source File does not exist\n"},
      {"RenameSheet " + Path("none.xls") + " " + Path("t.xls") + " A B",
       "tabulon: RenameSheet: -202 Source File does not exist\n"},
      {"DeleteSheet " + Path("none.xls") + " " + Path("t.xls") + " A '' ''",
       "tabulon: DeleteSheet: -202 Source File does not exist\n"},
      {"CopySheet " + Path("none.xls") + " A " + Path("t.xls") + " '' '' ''",
       "tabulon: CopySheet: -202 Source File does not exist\n"},
      {std::string("RenameSheet ") + TABULON_SAMPLE + " " + TABULON_SAMPLE + "/sub/t.xls North South",
       "tabulon: RenameSheet: -208 Target path folder does not exist\n"},
  };
  for (const Case& c : cases) {
    const Result r = Tabulon(c.args);
    EXPECT_EQ(r.exit_code, 1) << c.args;
    EXPECT_EQ(r.err, c.err);
    EXPECT_TRUE(r.out.empty());
  }
  EXPECT_FALSE(fs::exists(Path("t.xls")));
}

TEST_F(SheetOpsCli, EditsPrintNothingAndABatchRunsThemOnOneWarmOffice) {
  const std::string sample = TABULON_SAMPLE;  // North, South, Notes
  const Result first = Tabulon("RenameSheet " + sample + " " + Path("out/b.xls") + " 1 First");
  EXPECT_EQ(first.exit_code, 0) << first.err;
  EXPECT_TRUE(first.out.empty());
  EXPECT_TRUE(first.err.empty());
  EXPECT_EQ(Tabulon("sheets " + Path("out/b.xls")).out, "First\nSouth\nNotes\n");

  const std::string b = Path("out/b.xls");
  std::ofstream(Path("lines")) << "# one warm office for every line\n"
                               << "AddSheet " << b << " " << b << " Added firstfirst ''\n"
                               << "MoveSheet " << b << " " << b << " Notes Added ''\n"
                               << "CopySheet " << sample << " South " << b << " '' '' lastlast --if-exists 2\n"
                               << "DeleteSheet " << b << " " << b << " First First ''\n"
                               << "RenameSheet " << b << " " << b << " Missing New\n";
  const Result batch = Tabulon("batch " + Path("lines"));
  EXPECT_EQ(batch.exit_code, 1);
  EXPECT_TRUE(batch.out.empty());
  EXPECT_EQ(batch.err,
            "tabulon: RenameSheet: -216 Sheet to rename does not exist.\n"
            "tabulon: batch: 1 of 5 commands failed\n");
  EXPECT_EQ(Tabulon("sheets " + b).out, "Notes\nAdded\nSouth\nSouth (2)\n");
}

}  // namespace
