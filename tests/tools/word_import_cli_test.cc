// The WordTableToExcel subcommand as scripts see it: nothing on stdout,
// "tabulon: WordTableToExcel: <code> <message>" on stderr, exit 0 / 1 / 2;
// the imported cells read back through the conversion to CSV.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>

#include "cli_fixture.h"

namespace {

namespace fs = std::filesystem;
using tabulon::testing::CliTest;
using tabulon::testing::ExpectUsageErrors;
using tabulon::testing::Read;
using tabulon::testing::Result;
using tabulon::testing::Tabulon;

std::string Cell(const std::string& text) {
  return "<table:table-cell><text:p>" + text + "</text:p></table:table-cell>";
}

// A flat text document with two tables: a,b / 1,2 and h1,h2 / 10,20.
std::string Document() {
  std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
      "<office:document xmlns:office=\"urn:oasis:names:tc:opendocument:xmlns:office:1.0\" "
      "xmlns:text=\"urn:oasis:names:tc:opendocument:xmlns:text:1.0\" "
      "xmlns:table=\"urn:oasis:names:tc:opendocument:xmlns:table:1.0\" office:version=\"1.2\" "
      "office:mimetype=\"application/vnd.oasis.opendocument.text\"><office:body><office:text>";
  for (const auto& [a, b, c, d] : {std::tuple{"a", "b", "1", "2"}, std::tuple{"h1", "h2", "10", "20"}}) {
    xml += std::string("<text:p>-</text:p><table:table><table:table-column table:number-columns-repeated=\"2\"/>") +
           "<table:table-row>" + Cell(a) + Cell(b) + "</table:table-row><table:table-row>" + Cell(c) + Cell(d) +
           "</table:table-row></table:table>";
  }
  return xml + "</office:text></office:body></office:document>";
}

class WordImportCli : public CliTest {
 protected:
  WordImportCli() : CliTest("tabulon-word-cli-") {}
  void SetUp() override { std::ofstream(Path("tables.fodt")) << Document(); }
};

TEST_F(WordImportCli, UsageErrorsExitTwo) {
  ExpectUsageErrors({"WordTableToExcel", "WordTableToExcel a b c", "WordTableToExcel a b c zero Data",
                     "WordTableToExcel a b c 0 Data --no-such-flag", "WordTableToExcel a b c 0 Data --rows-between x"});
  const Result help = Tabulon("help WordTableToExcel");
  EXPECT_EQ(help.exit_code, 0);
  EXPECT_NE(help.out.find("--multifile"), std::string::npos);
  EXPECT_NE(help.out.find("--delete-rows"), std::string::npos);
}

TEST_F(WordImportCli, AMissingDocumentNeedsNoOffice) {
  const Result r = Tabulon("WordTableToExcel " + Path("none.docx") + " " + Path("t.xls") + " '' 0 Data");
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err, "tabulon: WordTableToExcel: -202 Source File does not exist\n");
  EXPECT_TRUE(r.out.empty());
  EXPECT_FALSE(fs::exists(Path("t.xls")));
}

TEST_F(WordImportCli, ImportsPrintNothingAndABatchSeriesFillsOneSheet) {
  const Result one = Tabulon("WordTableToExcel " + Path("tables.fodt") + " " + Path("out/t.xls") + " '' 0 Data");
  EXPECT_EQ(one.exit_code, 0) << one.err;
  EXPECT_TRUE(one.out.empty());
  EXPECT_TRUE(one.err.empty());
  EXPECT_EQ(Csv(Path("out/t.xls")), "a,b\r\n1,2\r\n,\r\nh1,h2\r\n10,20\r\n");

  // Two lines of a series: the second goes on where the first stopped;
  // then a table the document does not have.
  std::ofstream(Path("lines")) << "WordTableToExcel " << Path("tables.fodt") << " " << Path("s.xls")
                               << " 2 0 Data --rows-between 0 --multifile --delete-rows 1\n"
                               << "WordTableToExcel " << Path("tables.fodt") << " " << Path("s.xls")
                               << " 1 0 Data --rows-between 0 --multifile --values\n"
                               << "WordTableToExcel " << Path("tables.fodt") << " " << Path("s.xls") << " 1,3 0 Data\n";
  const Result batch = Tabulon("batch " + Path("lines"));
  EXPECT_EQ(batch.exit_code, 1);
  EXPECT_TRUE(batch.out.empty());
  EXPECT_EQ(batch.err,
            "tabulon: WordTableToExcel: -14 Table(s) specified do not exist in word document\n"
            "tabulon: batch: 1 of 3 commands failed\n");
  EXPECT_EQ(Csv(Path("s.xls")), "10,20\r\na,b\r\n1,2\r\n");
}

}  // namespace
