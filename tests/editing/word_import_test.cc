// WordTableToExcel on documents that the office writes at the start (.doc,
// .docx, .odt, .rtf from one flat text document with three tables), checked
// by reading the workbooks back in an office of the test's own. One warm
// control (OptimizeForSpeed) runs most calls; controls of their own check
// the failures that end the offices.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "office/uno/uno_factory.h"
#include "support/books.h"
#include "support/office_wrappers.h"
#include "support/processes.h"
#include "tabulon/automation_error.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon::testing {
namespace {

namespace fs = std::filesystem;
using office::Block;
using office::Cell;

const Cell kEmpty{};
Cell S(const char* s) { return Cell(std::string(s)); }
Cell N(double d) { return Cell(d); }

std::string Row(const std::vector<std::string>& cells) {
  std::string xml = "<table:table-row>";
  for (const std::string& c : cells) xml += c;
  return xml + "</table:table-row>";
}
std::string Text(const std::string& p) { return "<table:table-cell><text:p>" + p + "</text:p></table:table-cell>"; }

// Table 1: a bold header merged over two columns, a number, text with a
// comma, two paragraphs, a line break and a leading "=". Table 2: 2 x 2.
// Table 3: 3 x 2.
std::string FlatDocument() {
  return std::string(
             "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
             "<office:document xmlns:office=\"urn:oasis:names:tc:opendocument:xmlns:office:1.0\" "
             "xmlns:text=\"urn:oasis:names:tc:opendocument:xmlns:text:1.0\" "
             "xmlns:style=\"urn:oasis:names:tc:opendocument:xmlns:style:1.0\" "
             "xmlns:fo=\"urn:oasis:names:tc:opendocument:xmlns:xsl-fo-compatible:1.0\" "
             "xmlns:table=\"urn:oasis:names:tc:opendocument:xmlns:table:1.0\" office:version=\"1.2\" "
             "office:mimetype=\"application/vnd.oasis.opendocument.text\">"
             "<office:automatic-styles><style:style style:name=\"B\" style:family=\"text\">"
             "<style:text-properties fo:font-weight=\"bold\"/></style:style></office:automatic-styles>"
             "<office:body><office:text><text:p>Prices</text:p>"
             "<table:table table:name=\"One\"><table:table-column table:number-columns-repeated=\"3\"/>") +
         Row({"<table:table-cell table:number-columns-spanned=\"2\"><text:p><text:span text:style-name=\"B\">"
              "Head</text:span></text:p></table:table-cell><table:covered-table-cell/>",
              Text("x")}) +
         Row({Text("1,5"), Text("12"), "<table:table-cell><text:p>a, b</text:p><text:p>c</text:p></table:table-cell>"}) +
         Row({Text("=x"), Text("3.5"), Text("line<text:line-break/>break")}) +
         "</table:table><text:p>Two</text:p>"
         "<table:table table:name=\"Two\"><table:table-column table:number-columns-repeated=\"2\"/>" +
         Row({Text("a"), Text("b")}) + Row({Text("1"), Text("2")}) +
         "</table:table><text:p>Three</text:p>"
         "<table:table table:name=\"Three\"><table:table-column table:number-columns-repeated=\"2\"/>" +
         Row({Text("h1"), Text("h2")}) + Row({Text("10"), Text("20")}) + Row({Text("30"), Text("40")}) +
         "</table:table></office:text></office:body></office:document>";
}

const Block kTableOne = {{S("Head"), kEmpty, S("x")},
                         {S("1,5"), N(12), S("a, b\nc")},
                         {S("=x"), N(3.5), S("line\nbreak")}};

struct Shared {
  fs::path dir;
  std::unique_ptr<office::Application> reader;
  std::unique_ptr<TabulonCtrl> warm;
};
Shared* g_shared = nullptr;

class Environment : public ::testing::Environment {
 public:
  void TearDown() override {
    if (g_shared == nullptr) return;
    g_shared->warm->put_OptimizeForSpeed(false);
    g_shared->warm.reset();
    g_shared->reader->Quit();
    fs::remove_all(g_shared->dir);
    delete g_shared;
    g_shared = nullptr;
    EXPECT_TRUE(ChildOfficePids().empty()) << "the Word import tests left an office running";
  }
};

Shared& Get() {
  if (g_shared == nullptr) {
    g_shared = new Shared;
    g_shared->dir = fs::temp_directory_path() / ("tabulon-word-import-" + std::to_string(getpid()));
    fs::create_directories(g_shared->dir / "docs");
    {
      std::ofstream(g_shared->dir / "docs" / "tables.fodt") << FlatDocument();
      auto word = office::uno::MakeUnoFactory()->CreateUnoWord();
      office::Document& document = word->Open((g_shared->dir / "docs" / "tables.fodt").string(), {});
      for (const char* ext : {".doc", ".docx", ".odt", ".rtf"}) {
        word->SaveCopyAs(document, (g_shared->dir / "docs" / (std::string("tables") + ext)).string());
      }
      document.Close(false);
      word->Quit();
    }
    g_shared->reader = office::uno::MakeUnoFactory()->CreateExcel();
    g_shared->warm = std::make_unique<TabulonCtrl>();
    g_shared->warm->put_OptimizeForSpeed(true);
    ::testing::AddGlobalTestEnvironment(new Environment);
  }
  return *g_shared;
}

std::string Doc(const std::string& ext) { return (Get().dir / "docs" / ("tables" + ext)).string(); }

std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// The arguments of one call, in the method's order, and what came back.
struct Call {
  std::string original, target, tables = "";
  int32_t method = 0;
  std::string sheet = "Data", cell = "";
  int32_t rows_between = 1, columns_between = -1;
  std::string rows_to_delete = "", columns_to_delete = "";
  bool values = false;
};
struct Outcome {
  int32_t code = 0;
  std::string error;
  std::vector<std::pair<int32_t, std::string>> events;
  Call after;
};

Outcome Import(TabulonCtrl& control, Call call) {
  Outcome out;
  const uint32_t cookie =
      control.AdviseOnError([&](int32_t& code, std::string& text) { out.events.emplace_back(code, text); });
  out.code = control.WordTableToExcel(call.original, call.target, call.tables, call.method, call.sheet, call.cell,
                                      call.rows_between, call.columns_between, call.rows_to_delete,
                                      call.columns_to_delete, call.values);
  control.UnadviseOnError(cookie);
  out.error = control.get_ErrorString();
  out.after = call;
  return out;
}

class WordImport : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = Get().dir / ::testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    Get().warm->put_MultifileProcessing(false);
  }
  void TearDown() override { fs::remove_all(dir_); }
  std::string Path(const std::string& name) const { return (dir_ / name).string(); }
  TabulonCtrl& Warm() { return *Get().warm; }
  std::vector<SheetCells> Read(const std::string& path) { return ReadBook(*Get().reader, path); }
  // The values of `address` on sheet `sheet` of the workbook at `path`.
  Block Cells(const std::string& path, const std::string& sheet, const std::string& address) {
    office::OpenOptions open;
    open.read_only = true;
    office::Workbook& book = Get().reader->GetWorkbooks().Open(path, open);
    const Block block = book.GetWorksheets().Item(sheet)->GetRange(address)->Value();
    book.Close(false);
    return block;
  }
  fs::path dir_;
};

bool RowHolds(const std::vector<Cell>& row, const std::string& text) {
  for (const Cell& c : row)
    if (c == Cell(text)) return true;
  return false;
}

// The office's own reading of a document decides the grid: its rich-text
// reader splits the table's columns where the merged cells' edges fall, so
// the checks hold for every grid with the table's cells in their rows.
TEST_F(WordImport, EveryDocumentFormatGivesCellsMergedCellsNumbersAndTheLook) {
  for (const char* ext : {".docx", ".doc", ".odt", ".rtf"}) {
    SCOPED_TRACE(ext);
    const std::string before = ReadBytes(Doc(ext));
    Call call{Doc(ext), Path(std::string("out") + ext + ".xls"), "1"};
    call.cell = "B2";
    const Outcome out = Import(Warm(), call);
    ASSERT_EQ(out.code, 0) << out.error;
    EXPECT_TRUE(out.events.empty());
    const Block cells = Cells(call.target, "Data", "A1:F5");
    EXPECT_EQ(cells[0], std::vector<Cell>(6));
    EXPECT_EQ(cells[1][1], S("Head"));
    EXPECT_EQ(cells[1][2], kEmpty);
    EXPECT_TRUE(RowHolds(cells[1], "x"));
    EXPECT_EQ(std::vector<Cell>(cells[2].begin() + 1, cells[2].begin() + 3), (std::vector<Cell>{S("1,5"), N(12)}));
    EXPECT_TRUE(RowHolds(cells[2], "a, b\nc"));
    EXPECT_EQ(std::vector<Cell>(cells[3].begin() + 1, cells[3].begin() + 3), (std::vector<Cell>{S("=x"), N(3.5)}));
    EXPECT_TRUE(RowHolds(cells[3], "line\nbreak"));
    EXPECT_EQ(cells[4], std::vector<Cell>(6));
    office::OpenOptions open;
    open.read_only = true;
    office::Workbook& book = Get().reader->GetWorkbooks().Open(call.target, open);
    auto sheet = book.GetWorksheets().Item("Data");
    EXPECT_TRUE(sheet->GetRange("B2")->MergeCells());
    EXPECT_FALSE(sheet->GetRange("B3")->MergeCells());
    EXPECT_TRUE(sheet->GetRange("B2")->FontBold());
    EXPECT_FALSE(sheet->GetRange("B3")->FontBold());
    book.Close(false);
    // Read-only and never saved.
    EXPECT_EQ(ReadBytes(Doc(ext)), before);
  }
}

}  // namespace
}  // namespace tabulon::testing
