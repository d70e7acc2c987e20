// The CopySheetData and CopySheetDataEx subcommands as scripts see them:
// nothing on stdout, "tabulon: <command>: <code> <message>" on stderr, exit
// 0 / 1 / 2; the copied cells read back through the conversion to CSV.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "cli_fixture.h"

namespace {

namespace fs = std::filesystem;
using tabulon::testing::CliTest;
using tabulon::testing::ExpectUsageErrors;
using tabulon::testing::Read;
using tabulon::testing::Result;
using tabulon::testing::Tabulon;

class CopyDataCli : public CliTest {
 protected:
  CopyDataCli() : CliTest("tabulon-copy-cli-") {}
};

TEST_F(CopyDataCli, UsageErrorsExitTwo) {
  ExpectUsageErrors({"CopySheetData", "CopySheetData a b c d e", "CopySheetDataEx a b c d e",
                     "CopySheetData a b c d e f --no-such-flag"});
  const Result help = Tabulon("help CopySheetDataEx");
  EXPECT_EQ(help.exit_code, 0);
  EXPECT_NE(help.out.find("--add-sheets"), std::string::npos);
  EXPECT_NE(help.out.find("--copy-name-of-sheet"), std::string::npos);
}

TEST_F(CopyDataCli, ArgumentFailuresNeedNoOffice) {
  const Result missing = Tabulon("CopySheetData " + Path("none.xlsx") + " North '' " + Path("t.xls") + " A A1");
  EXPECT_EQ(missing.exit_code, 1);
  EXPECT_EQ(missing.err, "tabulon: CopySheetData: -202 Original File does not exist: " + Path("none.xlsx") + "\n");
  EXPECT_TRUE(missing.out.empty());
  const Result wildcard =
      Tabulon(std::string("CopySheetData ") + TABULON_SAMPLE + " North '' '" + Path("*.xls") + "' A A1");
  EXPECT_EQ(wildcard.exit_code, 1);
  EXPECT_EQ(wildcard.err, "tabulon: CopySheetData: -207 Target path file cannot have a wild card (i.e. *.XLS): " +
                              Path("*.xls") + "\n");
  EXPECT_FALSE(fs::exists(Path("*.xls")));
}

TEST_F(CopyDataCli, CopiesPrintNothingAndABatchStacksThemOnOneWarmOffice) {
  const Result first = Tabulon("CopySheetData " + std::string(TABULON_SAMPLE) + " North A1:B2 " + Path("out/t.xls") +
                               " Data '' --copy-name-of-sheet");
  EXPECT_EQ(first.exit_code, 0) << first.err;
  EXPECT_TRUE(first.out.empty());
  EXPECT_TRUE(first.err.empty());
  EXPECT_EQ(Csv(Path("out/t.xls"), "North"), "Month,Units\r\nJanuary,120\r\n");

  std::ofstream(Path("lines")) << "CopySheetData " << TABULON_SAMPLE << " South A3:B3 " << Path("out/t.xls")
                               << " North below\n"
                               << "CopySheetDataEx " << TABULON_SAMPLE << " 1,2 A4:B4 " << Path("out/t.xls")
                               << " North below\n"
                               << "CopySheetData " << TABULON_SAMPLE << " North A1 " << Path("out/t.xls")
                               << " Missing A1\n";
  const Result batch = Tabulon("batch " + Path("lines"));
  EXPECT_EQ(batch.exit_code, 1);
  EXPECT_TRUE(batch.out.empty());
  EXPECT_EQ(batch.err,
            "tabulon: CopySheetData: -205 Target Sheet does not exist, be sure the 'Add sheets if necessary option' "
            "is set to True: " +
                Path("out/t.xls") + "\ntabulon: batch: 1 of 3 commands failed\n");
  EXPECT_EQ(Csv(Path("out/t.xls"), "North"), "Month,Units\r\nJanuary,120\r\nFebruary,110\r\nMarch,143\r\nMarch,95\r\n");
}

}  // namespace
