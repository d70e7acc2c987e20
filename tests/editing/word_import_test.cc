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
#include "support/shared_offices.h"
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
         Row({Text("1,5"), Text("12"),
              "<table:table-cell><text:p>a, b</text:p><text:p>c</text:p></table:table-cell>"}) +
         Row({Text("=x"), Text("3.5"), Text("line<text:line-break/>break")}) +
         "</table:table><text:p>Two</text:p>"
         "<table:table table:name=\"Two\"><table:table-column table:number-columns-repeated=\"2\"/>" +
         Row({Text("a"), Text("b")}) + Row({Text("1"), Text("2")}) +
         "</table:table><text:p>Three</text:p>"
         "<table:table table:name=\"Three\"><table:table-column table:number-columns-repeated=\"2\"/>" +
         Row({Text("h1"), Text("h2")}) + Row({Text("10"), Text("20")}) + Row({Text("30"), Text("40")}) +
         "</table:table></office:text></office:body></office:document>";
}

const Block kTableOne = {
    {S("Head"), kEmpty, S("x")}, {S("1,5"), N(12), S("a, b\nc")}, {S("=x"), N(3.5), S("line\nbreak")}};

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
    EndSharedOffices(g_shared->warm, g_shared->reader.get(), g_shared->dir, "Word import");
    delete g_shared;
    g_shared = nullptr;
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

// A word processor that forwards to the real one; its Quit quits and then
// reports a failure.
class FailingQuitWord : public office::WordApplication {
 public:
  explicit FailingQuitWord(std::unique_ptr<office::WordApplication> real) : real_(std::move(real)) {}
  std::string Version() override { return real_->Version(); }
  void SetDisplayAlerts(int16_t value) override { real_->SetDisplayAlerts(value); }
  void SetVisible(bool value) override { real_->SetVisible(value); }
  office::Document& Open(const std::string& f, const office::DocumentOpenOptions& o) override {
    return real_->Open(f, o);
  }
  office::Document& ActiveDocument() override { return real_->ActiveDocument(); }
  void Quit() override {
    real_->Quit();
    throw office::Error(office::ErrorKind::kAutomation, "injected: Quit failed");
  }

 private:
  std::unique_ptr<office::WordApplication> real_;
};

// The real office, except that the word processor cannot be started
// (`word` kNone), or that the one a method starts fails to quit (the
// install probe's quits normally).
class WordFaultFactory : public office::Factory {
 public:
  enum class Word { kNormal, kNone, kFailingQuit };
  explicit WordFaultFactory(Word word) : word_(word) {}
  std::unique_ptr<office::Application> CreateExcel() override {
    ++excel_created;
    return real_->CreateExcel();
  }
  std::unique_ptr<office::WordApplication> CreateWord() override {
    if (word_ == Word::kNone) throw office::Error(office::ErrorKind::kAutomation, "injected: no word processor");
    ++word_created;
    auto real = real_->CreateWord();
    if (word_ == Word::kFailingQuit && word_created > 1) return std::make_unique<FailingQuitWord>(std::move(real));
    return real;
  }
  int excel_created = 0;
  int word_created = 0;

 private:
  std::shared_ptr<office::Factory> real_ = office::uno::MakeUnoFactory();
  Word word_;
};

// A control of its own, without OptimizeForSpeed.
struct ColdControl {
  explicit ColdControl(WordFaultFactory::Word word = WordFaultFactory::Word::kNormal)
      : factory(std::make_shared<WordFaultFactory>(word)) {
    ControlOptions options;
    options.office = factory;
    control = std::make_unique<TabulonCtrl>(options);
  }
  std::shared_ptr<WordFaultFactory> factory;
  std::unique_ptr<TabulonCtrl> control;
};

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

// Tables 2 (2 x 2) and 3 (3 x 2) from B2 with each rule of the distances.
TEST_F(WordImport, PlacesTablesOnOneSheetByTheDistancesGiven) {
  struct Case {
    int32_t rows, columns;
    const char* second;  // where table 3 starts
  };
  const Case cases[] = {{1, 1, "E5"}, {0, -1, "B4"}, {-1, 2, "F2"}, {-1, -1, "B2"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.second);
    Call call{Doc(".docx"), Path(std::string("place-") + c.second + ".xls"), "3,2"};
    call.cell = "B2";
    call.rows_between = c.rows;
    call.columns_between = c.columns;
    const Outcome out = Import(Warm(), call);
    ASSERT_EQ(out.code, 0) << out.error;
    EXPECT_EQ(out.after.tables, "2,3");
    const Block three = {{S("h1"), S("h2")}, {N(10), N(20)}, {N(30), N(40)}};
    auto* reader = Get().reader.get();
    office::OpenOptions open;
    open.read_only = true;
    office::Workbook& book = reader->GetWorkbooks().Open(call.target, open);
    auto sheet = book.GetWorksheets().Item("Data");
    auto start = sheet->GetRange(c.second);
    EXPECT_EQ(sheet->GetRange(start->Address() + ":" + start->Offset(2, 1)->Address())->Value(), three);
    if (std::string(c.second) != "B2") {
      EXPECT_EQ(sheet->GetRange("B2:C3")->Value(), (Block{{S("a"), S("b")}, {N(1), N(2)}}));
    }
    book.Close(false);
  }
}

TEST_F(WordImport, AnEmptyStartCellIsA1AndValuesComeWithoutTheLook) {
  Call call{Doc(".odt"), Path("values.xls"), "1"};
  call.values = true;
  const Outcome out = Import(Warm(), call);
  ASSERT_EQ(out.code, 0) << out.error;
  EXPECT_EQ(out.after.cell, "A1");
  EXPECT_EQ(Cells(call.target, "Data", "A1:C3"), kTableOne);
  office::OpenOptions open;
  open.read_only = true;
  office::Workbook& book = Get().reader->GetWorkbooks().Open(call.target, open);
  auto sheet = book.GetWorksheets().Item("Data");
  EXPECT_FALSE(sheet->GetRange("A1")->MergeCells());
  EXPECT_FALSE(sheet->GetRange("A1")->FontBold());
  book.Close(false);
}

TEST_F(WordImport, RowsAndColumnsAreDeletedInMemoryOnly) {
  const std::string before = ReadBytes(Doc(".docx"));
  Call call{Doc(".docx"), Path("cut.xls"), "\"3\""};
  call.rows_to_delete = "3,1";
  call.columns_to_delete = "\"1\"";
  call.values = true;
  const Outcome out = Import(Warm(), call);
  ASSERT_EQ(out.code, 0) << out.error;
  EXPECT_EQ(out.after.tables, "3");
  EXPECT_EQ(out.after.rows_to_delete, "1,3");
  EXPECT_EQ(out.after.columns_to_delete, "1");
  EXPECT_EQ(Read(call.target), (std::vector<SheetCells>{{"Data", {{N(20)}}}}));
  EXPECT_EQ(ReadBytes(Doc(".docx")), before);
}

TEST_F(WordImport, ATableNumberBeyondTheDocumentFailsBeforeAnythingIsPasted) {
  // A new target is never written; an existing one keeps its bytes.
  const std::string existing = Path("existing.xls");
  SaveBook(*Get().reader, existing, {{"Data", {{S("kept")}}}}, office::kXlWorkbookNormal);
  const std::string existing_bytes = ReadBytes(existing);
  for (const std::string& target : {Path("new.xls"), existing}) {
    for (int32_t method : {0, 1, 2}) {
      Call call{Doc(".odt"), target, "1,4"};
      call.method = method;
      const Outcome out = Import(Warm(), call);
      EXPECT_EQ(out.code, -14);
      EXPECT_EQ(out.error, "Table(s) specified do not exist in word document");
      EXPECT_EQ(out.events, (std::vector<std::pair<int32_t, std::string>>{{-14, out.error}}));
    }
  }
  EXPECT_FALSE(fs::exists(Path("new.xls")));
  EXPECT_FALSE(fs::exists(Path("new-1.xls")));
  EXPECT_EQ(ReadBytes(existing), existing_bytes);
}

TEST_F(WordImport, ASheetPerTableFollowsTheActiveSheetWithFreeNames) {
  const std::string target = Path("sheets.xls");
  SaveBook(*Get().reader, target, {{"Data_1", {{S("first")}}}, {"Last", {}}}, office::kXlWorkbookNormal);
  Call call{Doc(".doc"), target, "2,3"};
  call.method = 1;
  call.cell = "B2";
  Outcome out = Import(Warm(), call);
  ASSERT_EQ(out.code, 0) << out.error;
  // The workbook opens on its first sheet; the new ones follow it.
  std::vector<SheetCells> book = Read(target);
  std::vector<std::string> names;
  for (const auto& sheet : book) names.push_back(sheet.name);
  EXPECT_EQ(names, (std::vector<std::string>{"Data_1", "Data_2", "Data_3", "Last"}));
  EXPECT_EQ(book[1].cells, (Block{{kEmpty, kEmpty, kEmpty}, {kEmpty, S("a"), S("b")}, {kEmpty, N(1), N(2)}}));

  // Again: every name is taken now, so (2) follows.
  call.tables = "2";
  out = Import(Warm(), call);
  ASSERT_EQ(out.code, 0) << out.error;
  names.clear();
  for (const auto& sheet : Read(target)) names.push_back(sheet.name);
  EXPECT_EQ(names, (std::vector<std::string>{"Data_1", "Data_2_(2)", "Data_2", "Data_3", "Last"}));
}

TEST_F(WordImport, AWorkbookPerTableBesideTheTarget) {
  Call call{Doc(".rtf"), Path("out/book.xls"), ""};
  call.method = 2;
  call.sheet = "T";
  const Outcome out = Import(Warm(), call);
  ASSERT_EQ(out.code, 0) << out.error;
  EXPECT_FALSE(fs::exists(call.target));
  EXPECT_EQ(Read(Path("out/book-2.xls")), (std::vector<SheetCells>{{"T_2", {{S("a"), S("b")}, {N(1), N(2)}}}}));
  EXPECT_EQ(Read(Path("out/book-3.xls")),
            (std::vector<SheetCells>{{"T_3", {{S("h1"), S("h2")}, {N(10), N(20)}, {N(30), N(40)}}}}));
  EXPECT_TRUE(fs::exists(Path("out/book-1.xls")));
  EXPECT_FALSE(fs::exists(Path("out/book-4.xls")));
}

TEST_F(WordImport, AnotherMethodNumberImportsNothing) {
  Call call{Doc(".docx"), Path("none.xls"), "1"};
  call.method = 3;
  const Outcome out = Import(Warm(), call);
  EXPECT_EQ(out.code, 0);
  EXPECT_TRUE(out.events.empty());
  EXPECT_TRUE(fs::is_empty(dir_));
}

// A series of documents fills one sheet while MultifileProcessing is on;
// setting it again starts a new series.
TEST_F(WordImport, ASeriesOfDocumentsContinuesOnOneSheet) {
  Warm().put_MultifileProcessing(true);
  Call call{Doc(".docx"), Path("series.xls"), "2"};
  call.rows_between = 0;
  Outcome out = Import(Warm(), call);
  ASSERT_EQ(out.code, 0) << out.error;
  call.original = Doc(".odt");
  call.tables = "3";
  out = Import(Warm(), call);
  ASSERT_EQ(out.code, 0) << out.error;
  EXPECT_EQ(out.after.cell, "$A$3");
  const Block series = {{S("a"), S("b")}, {N(1), N(2)}, {S("h1"), S("h2")}, {N(10), N(20)}, {N(30), N(40)}};
  EXPECT_EQ(Read(call.target), (std::vector<SheetCells>{{"Data", series}}));

  Warm().put_MultifileProcessing(true);
  call.tables = "2";
  call.cell = "";
  out = Import(Warm(), call);
  ASSERT_EQ(out.code, 0) << out.error;
  EXPECT_EQ(out.after.cell, "A1");

  // Off: the start cell is used as given.
  Warm().put_MultifileProcessing(false);
  call.cell = "D1";
  out = Import(Warm(), call);
  EXPECT_EQ(out.after.cell, "D1");
  EXPECT_EQ(Cells(call.target, "Data", "D1:E1"), (Block{{S("a"), S("b")}}));
}

TEST_F(WordImport, MissingSourceAndUnmakeableFolderNeedNoOffice) {
  std::ofstream(Path("file")) << "x";
  struct Case {
    std::string original, target;
    int32_t code;
    const char* error;
  };
  const Case cases[] = {
      {Path("missing.docx"), Path("t.xls"), -202, "Source File does not exist"},
      {Doc(".docx"), Path("file/below/t.xls"), -208, "Target path folder does not exist"},
  };
  for (const Case& c : cases) {
    ColdControl cold;
    const Outcome out = Import(*cold.control, Call{c.original, c.target, ""});
    EXPECT_EQ(out.code, c.code);
    EXPECT_EQ(out.error, c.error);
    EXPECT_TRUE(out.events.empty());
    EXPECT_EQ(cold.factory->excel_created, 0);
    EXPECT_EQ(cold.factory->word_created, 0);
  }
}

// Every failure that ends the offices leaves none running.
TEST_F(WordImport, OfficeFailuresLeaveNoOfficeRunning) {
  const size_t shared_offices = ChildOfficePids().size();
  {
    ColdControl cold(WordFaultFactory::Word::kNone);
    const Outcome out = Import(*cold.control, Call{Doc(".docx"), Path("t.xls"), ""});
    EXPECT_EQ(out.code, -12);
    EXPECT_EQ(out.error, "Unable to create Word Application. Is it installed?");
    EXPECT_EQ(out.events, (std::vector<std::pair<int32_t, std::string>>{{-12, out.error}}));
    EXPECT_GE(cold.factory->excel_created, 1);
  }
  {
    ColdControl cold(WordFaultFactory::Word::kFailingQuit);
    const Outcome out = Import(*cold.control, Call{Doc(".docx"), Path("q.xls"), "2"});
    EXPECT_EQ(out.code, -13);
    EXPECT_EQ(out.error, "Unable to destroy Word application. Is it installed?");
    EXPECT_TRUE(out.events.empty());
    // The work itself was done.
    EXPECT_EQ(Read(Path("q.xls")), (std::vector<SheetCells>{{"Data", {{S("a"), S("b")}, {N(1), N(2)}}}}));
  }
  {
    ColdControl cold;
    Call call{Doc(".docx"), Path("m.xls"), "-5"};
    EXPECT_THROW(Import(*cold.control, call), AutomationError);
    EXPECT_FALSE(fs::exists(Path("m.xls")));
  }
  EXPECT_EQ(ChildOfficePids().size(), shared_offices);
}

}  // namespace
}  // namespace tabulon::testing
