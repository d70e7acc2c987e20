// The cell-edit subcommands as scripts see them: arguments in the method's
// order, nothing on stdout, "tabulon: <command>: <code> <message>" on stderr,
// exit 0 / 1 / 2; the edited cells read back through the conversion to CSV.
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

class EditingCli : public CliTest {
 protected:
  EditingCli() : CliTest("tabulon-editing-cli-") {}
};

TEST_F(EditingCli, UsageErrorsExitTwo) {
  ExpectUsageErrors({"DeleteRowsOrColumns a b c", "SearchAndReplaceCellContent a b c d e", "ChangeCellContent a b c d",
                     "ChangeNumberFormat a b c d", "ClearCells a b x North A1", "TransposeSheetData a b",
                     "TransposeSheetData a b c d", "DeleteRowsOrColumns a b c 1 --no-such-flag"});
  const Result help = Tabulon("help SearchAndReplaceCellContent");
  EXPECT_EQ(help.exit_code, 0);
  EXPECT_NE(help.out.find("--part"), std::string::npos);
  EXPECT_NE(help.out.find("--case-sensitive"), std::string::npos);
}

TEST_F(EditingCli, ArgumentFailuresNeedNoOffice) {
  const std::string missing = Path("none.xlsx");
  const char* commands[] = {"DeleteRowsOrColumns", "ChangeNumberFormat", "TransposeSheetData"};
  const std::string tails[] = {" North 2", " North A1 0.00", " North"};
  for (size_t i = 0; i < 3; ++i) {
    const Result r = Tabulon(std::string(commands[i]) + " " + missing + " " + Path("t.xls") + tails[i]);
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err, std::string("tabulon: ") + commands[i] + ": -202 Source File does not exist\n");
    EXPECT_TRUE(r.out.empty());
  }
  const Result clear = Tabulon("ClearCells " + missing + " " + Path("t.xls") + " 2 North ''");
  EXPECT_EQ(clear.err, "tabulon: ClearCells: -202 Source File does not exist\n");
  EXPECT_FALSE(fs::exists(Path("t.xls")));
}

TEST_F(EditingCli, EditsPrintNothingAndRunInABatch) {
  const std::string sample = TABULON_SAMPLE;
  const std::string out = Path("out/edited.xls");
  const Result del = Tabulon("DeleteRowsOrColumns " + sample + " " + out + " North 3");
  EXPECT_EQ(del.exit_code, 0) << del.err;
  EXPECT_TRUE(del.out.empty());
  EXPECT_EQ(Csv(out, "North"), "Month,Units,Revenue\r\nJanuary,120,1440.5\r\nMarch,143,1716.25\r\n");

  std::ofstream(Path("lines")) << "SearchAndReplaceCellContent " << out << " " << out << " North 'jan*' Jan ' ' \n"
                               << "ChangeCellContent " << out << " " << out << " North C2:C3 '=LEN(A2)'\n"
                               << "DeleteRowsOrColumns " << out << " " << out << " North 2 --columns\n"
                               << "TransposeSheetData " << out << " " << out << " Missing\n";
  const Result batch = Tabulon("batch " + Path("lines"));
  EXPECT_EQ(batch.exit_code, 1);
  EXPECT_TRUE(batch.out.empty());
  EXPECT_EQ(batch.err,
            "tabulon: TransposeSheetData: -204 Sheet specified does not exist.\n"
            "tabulon: batch: 1 of 4 commands failed\n");
  EXPECT_EQ(Csv(out, "North"), "Month,Revenue\r\nJan,3\r\nMarch,5\r\n");
}

}  // namespace
