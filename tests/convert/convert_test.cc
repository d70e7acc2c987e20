// OpenXLSSaveAs on real workbooks in a real office, checked by reading the
// written files back.
#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "workbooks.h"

namespace tabulon {
namespace {

namespace fs = std::filesystem;
using testing::GetFixtures;
using testing::OutputFolder;
using testing::ReadFile;
using testing::ResetSharedControl;
using testing::SharedControl;
using testing::SharedSpy;

struct Outcome {
  int32_t code;
  std::string sheets_after;
  std::vector<std::string> files;
  std::vector<std::string> processed;
  std::vector<std::pair<int32_t, std::string>> events;
};

class Convert : public ::testing::Test {
 protected:
  void SetUp() override { ResetSharedControl(); }

  Outcome Run(std::string source, std::string sheets, std::string target, int32_t type, bool formulas = false) {
    TabulonCtrl& c = SharedControl();
    Outcome out;
    const uint32_t cookie =
        c.AdviseOnError([&](int32_t& code, std::string& text) { out.events.emplace_back(code, text); });
    out.code = c.OpenXLSSaveAs(source, sheets, target, type, formulas);
    c.UnadviseOnError(cookie);
    out.sheets_after = sheets;
    for (int32_t i = 1; i <= c.get_FilesJustCreatedCount(); ++i) out.files.push_back(c.get_FilesJustCreated(i));
    for (int32_t i = 1; i <= c.get_SheetsJustProcessedCount(); ++i) {
      out.processed.push_back(c.get_SheetsJustProcessed(i));
    }
    return out;
  }
};

using Names = std::vector<std::string>;

TEST_F(Convert, AMissingSourceFailsBeforeAnyOfficeWorkAndEmptiesTheLists) {
  const auto dir = OutputFolder("missing");
  ASSERT_EQ(Run(GetFixtures().three_sheets, "1", (dir / "first.csv").string(), 6).code, 0);
  ASSERT_EQ(SharedControl().get_FilesJustCreatedCount(), 1);
  SharedSpy().opens.clear();
  const std::string missing = (dir / "nope.xlsx").string();
  const Outcome out = Run(missing, "*", (dir / "x.csv").string(), 6);
  EXPECT_EQ(out.code, -2);
  const std::string expected = "Source file does not exist \r\r" + missing;
  EXPECT_EQ(SharedControl().get_ErrorString(), expected);
  ASSERT_EQ(out.events.size(), 1u);
  EXPECT_EQ(out.events[0], std::make_pair(-2, expected));
  EXPECT_TRUE(out.files.empty());
  EXPECT_TRUE(out.processed.empty());
  EXPECT_TRUE(SharedSpy().opens.empty());
}

TEST_F(Convert, AllSheetsToAWorkbookFormatIsOneSaveThatListsNothing) {
  const auto dir = OutputFolder("whole");
  const std::string target = (dir / "copy.xlsx").string();
  const Outcome out = Run(GetFixtures().three_sheets, "", target, 51);
  EXPECT_EQ(out.code, 0);
  EXPECT_EQ(out.sheets_after, "*");  // a blank list is rewritten
  EXPECT_TRUE(out.files.empty());
  EXPECT_TRUE(out.processed.empty());
  EXPECT_EQ(ReadFile(target).substr(0, 2), "PK");
  std::string path = target, sheet_list = "*";
  std::vector<std::string> names(5);
  EXPECT_EQ(SharedControl().GetSheetNames(path, sheet_list, names), 3);
  EXPECT_EQ(Names(names.begin(), names.begin() + 3), (Names{"North", "South", "Totals"}));
}

TEST_F(Convert, AllSheetsToCsvAreJoinedIntoTheTarget) {
  const auto dir = OutputFolder("joined");
  const std::string target = (dir / "book.csv").string();
  const Outcome out = Run(GetFixtures().three_sheets, "*", target, 6);
  EXPECT_EQ(out.code, 0);
  EXPECT_EQ(out.files, Names{target});
  EXPECT_EQ(out.processed, (Names{"North", "South", "Totals"}));
  EXPECT_EQ(ReadFile(target),
            "name,qty\r\ncaf\xC3\xA9,3\r\n\"a,b\",4\r\n"
            "x,y\r\n1,2\r\n"
            "total\r\n7\r\n");
  // The pieces are gone: the folder holds the target alone.
  EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1);
}

TEST_F(Convert, MultiFileOutputKeepsAFilePerSheetNamedAfterIt) {
  const auto dir = OutputFolder("multi");
  SharedControl().put_CO_MultiFileOutput(true);
  const Outcome out = Run(GetFixtures().three_sheets, "*", (dir / "book.csv").string(), 6);
  EXPECT_EQ(out.code, 0);
  const Names expected = {(dir / "book-North.csv").string(), (dir / "book-South.csv").string(),
                          (dir / "book-Totals.csv").string()};
  EXPECT_EQ(out.files, expected);
  EXPECT_EQ(ReadFile(expected[1]), "x,y\r\n1,2\r\n");
  EXPECT_FALSE(fs::exists(dir / "book.csv"));
}

struct NumericCase {
  const char* sheets;
  const char* target;           // inside the test's folder
  std::vector<std::string> files;  // expected, inside the folder
};

TEST_F(Convert, NumberListsNameTheOutputsBySheetNumber) {
  const NumericCase cases[] = {
      {"2", "one.csv", {"one.csv"}},
      {"2-2", "same.csv", {"same.csv"}},
      {"2-3", "range.csv", {"range-2.csv", "range-3.csv"}},
      {"3,1", "list.csv", {"list-3.csv", "list-1.csv"}},
      {"1-2", "noext", {"noext-1", "noext-2"}},
  };
  SharedControl().put_CO_MultiFileOutput(true);
  for (const NumericCase& t : cases) {
    const auto dir = OutputFolder(std::string("numbers-") + t.target);
    const Outcome out = Run(GetFixtures().three_sheets, t.sheets, (dir / t.target).string(), 6);
    EXPECT_EQ(out.code, 0) << t.sheets;
    Names expected;
    for (const auto& f : t.files) expected.push_back((dir / f).string());
    EXPECT_EQ(out.files, expected) << t.sheets;
    for (const auto& f : expected) EXPECT_TRUE(fs::exists(f)) << f;
  }
  const auto one = OutputFolder("numbers-one.csv");
  Run(GetFixtures().three_sheets, "2", (one / "one.csv").string(), 6);
  EXPECT_EQ(ReadFile(one / "one.csv"), "x,y\r\n1,2\r\n");
}

TEST_F(Convert, AMissingSheetIsReportedOnceAfterTheOthersAreWritten) {
  const auto dir = OutputFolder("missing-sheet");
  const Outcome out = Run(GetFixtures().three_sheets, "1,9", (dir / "book.csv").string(), 6);
  EXPECT_EQ(out.code, -11);
  EXPECT_EQ(SharedControl().get_ErrorString(), "Invalid Sheet Specified.");
  ASSERT_EQ(out.events.size(), 1u);
  EXPECT_EQ(out.events[0], std::make_pair(-11, std::string("Invalid Sheet Specified.")));
  // No join after a failure: the piece stays, listed.
  EXPECT_EQ(out.files, Names{(dir / "book-1.csv").string()});
  EXPECT_EQ(out.processed, Names{"North"});
  EXPECT_FALSE(fs::exists(dir / "book.csv"));
}

TEST_F(Convert, NamesAreMatchedAsGivenAndTheListIsNormalised) {
  const auto dir = OutputFolder("names");
  const Outcome out = Run(GetFixtures().three_sheets, "\"Totals\" ,  North", (dir / "b.csv").string(), 6);
  EXPECT_EQ(out.code, 0);
  EXPECT_EQ(out.sheets_after, "\"Totals\",North");
  EXPECT_EQ(out.processed, (Names{"Totals", "North"}));
  EXPECT_EQ(ReadFile(dir / "b.csv"), "total\r\n7\r\nname,qty\r\ncaf\xC3\xA9,3\r\n\"a,b\",4\r\n");
}

TEST_F(Convert, ASheetNamedLikeANumberWinsOverThePosition) {
  const auto dir = OutputFolder("seven");
  SharedControl().put_CO_MultiFileOutput(true);
  const Outcome out = Run(GetFixtures().named_seven, "\"7\",\"1\"", (dir / "s.csv").string(), 6);
  EXPECT_EQ(out.code, 0);
  EXPECT_EQ(out.processed, (Names{"7", "Data"}));  // "1" names no sheet: the first one
  EXPECT_EQ(ReadFile(dir / "s-7.csv"), "seven\r\n7\r\n");
}

TEST_F(Convert, EmptySheetsAreSkippedOnlyWhenAsked) {
  for (bool skip : {false, true}) {
    const auto dir = OutputFolder(skip ? "skip" : "noskip");
    SharedControl().put_SkipEmptySheets(skip);
    SharedControl().put_CO_MultiFileOutput(true);
    const Outcome out = Run(GetFixtures().named_seven, "*", (dir / "s.csv").string(), 6);
    EXPECT_EQ(out.code, 0);
    EXPECT_EQ(out.processed, skip ? (Names{"Data", "7"}) : (Names{"Data", "7", "Blank"}));
    EXPECT_EQ(out.files.size(), skip ? 2u : 3u);
  }
}

TEST_F(Convert, TheUsedAreaIsCountedFromA1) {
  const auto dir = OutputFolder("leading");
  SharedControl().put_CO_Range("*");
  const Outcome out = Run(GetFixtures().leading_rows, "1", (dir / "l.csv").string(), 6);
  EXPECT_EQ(out.code, 0);
  EXPECT_EQ(SharedControl().get_CO_Range(), "");  // "*" is rewritten for good
  // Three rows and two columns counted from A1: the empty first row is
  // written and the last row of data is lost.
  EXPECT_EQ(ReadFile(dir / "l.csv"), ",\r\ntop,right\r\nmid,middle\r\n");
}

TEST_F(Convert, AGivenRangeIsExportedAtItsPlace) {
  const auto dir = OutputFolder("range");
  SharedControl().put_CO_Range("A2:A3");
  const Outcome out = Run(GetFixtures().three_sheets, "North", (dir / "r.csv").string(), 6);
  EXPECT_EQ(out.code, 0);
  // The cells keep their addresses: row 1 is empty in the new sheet.
  EXPECT_EQ(ReadFile(dir / "r.csv"), "\r\ncaf\xC3\xA9\r\n\"a,b\"\r\n");
}

TEST_F(Convert, FormulasOrValues) {
  const auto dir = OutputFolder("formulas");
  Run(GetFixtures().formulas, "1", (dir / "v.csv").string(), 6, false);
  Run(GetFixtures().formulas, "1", (dir / "f.csv").string(), 6, true);
  EXPECT_EQ(ReadFile(dir / "v.csv"), "1,2,3\r\n");
  EXPECT_EQ(ReadFile(dir / "f.csv"), "1,2,=SUM(A1:B1)\r\n");
}

TEST_F(Convert, ACustomDelimiterOpensATextSource) {
  const auto dir = OutputFolder("delimiter");
  SharedControl().put_CO_DelimitationCharacter(59);
  const Outcome out = Run(GetFixtures().semicolons, "1", (dir / "c.csv").string(), 6);
  EXPECT_EQ(out.code, 0);
  EXPECT_EQ(ReadFile(dir / "c.csv"), "a,b\r\n1,2\r\n");
  ASSERT_EQ(SharedSpy().opens.size(), 1u);
  EXPECT_EQ(SharedSpy().opens[0].second.format, 6);
  EXPECT_EQ(SharedSpy().opens[0].second.delimiter, ";");
}

TEST_F(Convert, TheSourceIsReadOnlyUnlessItIsTheTarget) {
  const auto dir = OutputFolder("readonly");
  const std::string copy = (dir / "Book.xlsx").string();
  fs::copy_file(GetFixtures().three_sheets, copy);
  std::string upper = copy;
  upper.replace(upper.size() - 4, 4, "XLSX");
  Run(copy, "*", (dir / "other.xlsx").string(), 51);
  Run(copy, "*", upper, 51);
  ASSERT_EQ(SharedSpy().opens.size(), 2u);
  EXPECT_EQ(SharedSpy().opens[0].second.read_only, true);
  EXPECT_FALSE(SharedSpy().opens[1].second.read_only.has_value());
  EXPECT_EQ(SharedSpy().opens[0].second.password, "");
}

TEST_F(Convert, EveryTextFormatJoinsAndOtherFormatsKeepTheirPieces) {
  const auto dir = OutputFolder("pieces");
  const Outcome html = Run(GetFixtures().three_sheets, "1-2", (dir / "p.html").string(), 44);
  EXPECT_EQ(html.code, 0);
  EXPECT_EQ(html.files, (Names{(dir / "p-1.html").string(), (dir / "p-2.html").string()}));
  const Outcome tabs = Run(GetFixtures().three_sheets, "1-2", (dir / "t.txt").string(), 20);
  EXPECT_EQ(tabs.code, 0);
  EXPECT_EQ(tabs.files, Names{(dir / "t.txt").string()});
  EXPECT_EQ(ReadFile(dir / "t.txt"), "name\tqty\r\ncaf\xC3\xA9\t3\r\na,b\t4\r\nx\ty\r\n1\t2\r\n");
}

TEST(ConvertSession, AFailedQuitReplacesTheCodeAndIsRaisedAfterTheSheetFailure) {
  auto factory = std::make_shared<testing::SpyFactory>(office::DefaultFactory());
  factory->spy().fail_quit = true;
  ControlOptions options;
  options.office = factory;
  TabulonCtrl c(options);
  std::vector<int32_t> codes;
  c.AdviseOnError([&](int32_t& code, std::string&) { codes.push_back(code); });
  const auto dir = OutputFolder("failed-quit");
  std::string source = GetFixtures().three_sheets, sheets = "1,9", target = (dir / "b.csv").string();
  int32_t type = 6;
  bool formulas = false;
  EXPECT_EQ(c.OpenXLSSaveAs(source, sheets, target, type, formulas), -4);
  EXPECT_EQ(c.get_ErrorString(), "Unable to destroy Excel application. Is it installed?");
  EXPECT_EQ(codes, (std::vector<int32_t>{-11, -4}));
}

}  // namespace
}  // namespace tabulon
