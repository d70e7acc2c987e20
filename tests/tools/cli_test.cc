// The command line's contract with scripts: data on stdout, "tabulon:
// <command>: <code> <message>" on stderr, exit 0 / 1 / 2.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "cli_run.h"

namespace {

namespace fs = std::filesystem;
using tabulon::testing::Folder;
using tabulon::testing::Read;
using tabulon::testing::Result;
using tabulon::testing::Tabulon;

TEST(CliContract, UsageErrorsExitTwo) {
  const char* cases[] = {"", "nosuchcommand", "convert", "convert only-one-path", "csvTrimCSVFile a",
                         "convert --no-such-option a b", "help nosuchcommand"};
  for (const char* args : cases) {
    const Result r = Tabulon(args);
    EXPECT_EQ(r.exit_code, 2) << "[" << args << "] " << r.err;
    EXPECT_TRUE(r.out.empty() || std::string(args).empty()) << "[" << args << "]";
  }
}

TEST(CliContract, VersionAndHelpExitZeroOnStdout) {
  Result v = Tabulon("--version");
  EXPECT_EQ(v.exit_code, 0);
  EXPECT_EQ(v.out.rfind("tabulon ", 0), 0u) << v.out;
  Result h = Tabulon("help convert");
  EXPECT_EQ(h.exit_code, 0);
  EXPECT_NE(h.out.find("--multi-file"), std::string::npos);
  EXPECT_TRUE(h.err.empty());
}

TEST(CliContract, TextMethodsReportTheLibraryCode) {
  Folder dir;
  std::ofstream(dir / "in.csv", std::ios::binary) << "a,\"x,y\"\n1,2\n";
  const Result ok = Tabulon("csvChangeDelimitationCharacter " + dir / "in.csv" + " " + dir / "out.csv" + " ';'");
  EXPECT_EQ(ok.exit_code, 0) << ok.err;
  EXPECT_TRUE(ok.err.empty());
  EXPECT_EQ(Read(dir / "out.csv"), "a;\"x,y\"\n1;2\n");

  const Result missing = Tabulon("csvTrimCSVFile " + dir / "none.csv" + " " + dir / "out2.csv");
  EXPECT_EQ(missing.exit_code, 1);
  EXPECT_EQ(missing.err, "tabulon: csvTrimCSVFile: -1 Input file does not exist or cannot be read\n");
  EXPECT_FALSE(fs::exists(dir / "out2.csv"));

  const Result unicode = Tabulon("IsFileUnicode " + dir / "in.csv");
  EXPECT_EQ(unicode.exit_code, 0);
  EXPECT_EQ(unicode.out, "False\n");
}

TEST(CliContract, AMissingWorkbookIsMinusTwoOnStderr) {
  Folder dir;
  const Result r = Tabulon("convert " + dir / "none.xlsx" + " " + dir / "out.csv");
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err, "tabulon: convert: -2 Source file does not exist \r\r" + dir / "none.xlsx" + "\n");
  EXPECT_TRUE(r.out.empty());
}

TEST(CliContract, AnUnknownFormatNameIsAUsageError) {
  const Result r = Tabulon(std::string("convert -t nosuchformat ") + TABULON_SAMPLE + " /tmp/x.csv");
  EXPECT_EQ(r.exit_code, 2);
  EXPECT_NE(r.err.find("unknown format"), std::string::npos);
}

TEST(CliOffice, ConvertPrintsTheCreatedFiles) {
  Folder dir;
  const Result r = Tabulon(std::string("convert -m -s 1-2 ") + TABULON_SAMPLE + " " + dir / "q.csv");
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(r.out, dir / "q-1.csv" + "\n" + dir / "q-2.csv" + "\n");
  EXPECT_EQ(Read(dir / "q-2.csv").substr(0, 21), "Month,Units,Revenue\r\n");

  const Result several =
      Tabulon(std::string("convert -t xlsx ") + TABULON_SAMPLE + " " + TABULON_SAMPLE + " " + dir / "many");
  EXPECT_EQ(several.exit_code, 0) << several.err;
  EXPECT_EQ(several.out, dir / "many/quarterly.xlsx" + "\n" + dir / "many/quarterly.xlsx" + "\n");
}

TEST(CliOffice, SheetsAndOffice) {
  const Result sheets = Tabulon(std::string("sheets ") + TABULON_SAMPLE);
  EXPECT_EQ(sheets.exit_code, 0);
  EXPECT_EQ(sheets.out, "North\nSouth\nNotes\n");
  const Result missing = Tabulon(std::string("sheets ") + TABULON_SAMPLE + " Nowhere");
  EXPECT_EQ(missing.exit_code, 1);
  EXPECT_EQ(missing.err, "tabulon: sheets: -11 Invalid Sheet Specified.\n");
  const Result office = Tabulon("office");
  EXPECT_EQ(office.exit_code, 0);
  EXPECT_EQ(office.out, "ExcelIsInstalled True\nWordIsInstalled True\nExcelVersion 7.4\nExcelBuild 2\n");
}

TEST(CliOffice, BatchRunsEveryLineAndReportsTheFirstFailure) {
  Folder dir;
  {
    std::ofstream lines(dir / "jobs.txt");
    lines << "# two listings, a failure, a conversion\n\n"
          << "sheets " << TABULON_SAMPLE << "\n"
          << "sheets '" << TABULON_SAMPLE << "' \"South\"\n"
          << "sheets " << dir / "missing.xlsx" << "\n"
          << "convert -s 2 " << TABULON_SAMPLE << " " << dir / "s.csv" << "\n";
  }
  const Result r = Tabulon("batch " + dir / "jobs.txt");
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.out, "North\nSouth\nNotes\nSouth\n" + dir / "s.csv" + "\n");
  EXPECT_EQ(r.err, "tabulon: sheets: -202 Original File does not exist\ntabulon: batch: 1 of 4 commands failed\n");
  EXPECT_EQ(Read(dir / "s.csv").substr(0, 21), "Month,Units,Revenue\r\n");

  std::ofstream(dir / "open.txt") << "sheets 'book\nsheets " << TABULON_SAMPLE << "\n";
  const Result open_quote = Tabulon("batch --stop-on-error - < " + dir / "open.txt");
  EXPECT_EQ(open_quote.exit_code, 2);
  EXPECT_EQ(open_quote.err, "tabulon: batch: line 1: a quote is not closed\ntabulon: batch: 1 of 1 commands failed\n");
}

}  // namespace
