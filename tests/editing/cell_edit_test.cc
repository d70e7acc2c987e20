// The cell edits on real workbooks: a fixture written once by an office of
// the test's own, edited by one warm control (OptimizeForSpeed), and each
// result read back from the saved file by the test's office.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "office/office.h"
#include "office/uno/uno_factory.h"
#include "support/books.h"
#include "support/no_office.h"
#include "support/processes.h"
#include "support/shared_offices.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon::testing {
namespace {

namespace fs = std::filesystem;
using office::Block;
using office::Cell;

const Cell kEmpty{};

struct Shared {
  fs::path dir;
  std::string book;  // the fixture, never written by the edits
  std::unique_ptr<office::Application> reader;
  std::unique_ptr<TabulonCtrl> warm;
};

Shared* g_shared = nullptr;

class Environment : public ::testing::Environment {
 public:
  void TearDown() override {
    if (g_shared == nullptr) return;
    EndSharedOffices(g_shared->warm, g_shared->reader.get(), g_shared->dir, "edit");
    delete g_shared;
    g_shared = nullptr;
  }
};

// Rows: "r1".."r6" with 1..6 beside them. Text: what the replace tests
// search. Block: a 2 x 3 block at C3 with a formula. Notes: a comment, a
// number and a date.
void WriteFixture(office::Application& app, const std::string& path) {
  Block rows;
  for (int r = 1; r <= 6; ++r) rows.push_back({"r" + std::to_string(r), static_cast<double>(r), "c" + std::to_string(r)});
  const Block text = {{"apple pie", "Apple"},       {"a*b", "axb"},     {"price 100", 1234.0},
                      {"banana", "x(1)y(2)z"},      {"A&B", "1/2"},     {kEmpty, kEmpty}};
  const Block block = {{kEmpty, kEmpty, kEmpty, kEmpty, kEmpty},
                       {kEmpty, kEmpty, kEmpty, kEmpty, kEmpty},
                       {kEmpty, kEmpty, 1.0, 2.0, 3.0},
                       {kEmpty, kEmpty, "a", "b", kEmpty}};
  const Block notes = {{1234.5, 45306.0, "keep"}};
  office::Workbook& book = app.GetWorkbooks().Add();
  office::Worksheets& all = book.GetWorksheets();
  std::unique_ptr<office::Worksheet> previous;
  const std::vector<std::pair<std::string, Block>> sheets = {
      {"Rows", rows}, {"Text", text}, {"Block", block}, {"Notes", notes}};
  for (size_t i = 0; i < sheets.size(); ++i) {
    auto sheet = i == 0 ? all.Item(1) : all.Add(nullptr, previous.get(), office::kXlWorksheet);
    sheet->SetName(sheets[i].first);
    const Block& data = sheets[i].second;
    sheet->GetRange(BlockAddress(*sheet, data.size(), data[0].size()))->SetValue(data);
    previous = std::move(sheet);
  }
  all.Item("Text")->GetRange("A6:B6")->SetFormula(Block{{"=SUM(Rows!B1:B2)", "=A4&\"s\""}});
  all.Item("Block")->GetRange("E4")->SetFormula("=C3*2");
  auto notes_sheet = all.Item("Notes");
  notes_sheet->GetRange("A1")->SetNumberFormat("#,##0.00");
  notes_sheet->GetRange("C1")->AddComment("a comment");
  office::SaveAsOptions xlsx;
  xlsx.file_format = 51;
  book.SaveAs(path, xlsx);
  book.Close(false);
}

Shared& Get() {
  if (g_shared == nullptr) {
    g_shared = new Shared;
    g_shared->dir = fs::temp_directory_path() / ("tabulon-cell-edit-" + std::to_string(getpid()));
    fs::create_directories(g_shared->dir);
    g_shared->book = (g_shared->dir / "book.xlsx").string();
    g_shared->reader = office::uno::MakeUnoFactory()->CreateExcel();
    WriteFixture(*g_shared->reader, g_shared->book);
    g_shared->warm = std::make_unique<TabulonCtrl>();
    g_shared->warm->put_OptimizeForSpeed(true);
    ::testing::AddGlobalTestEnvironment(new Environment);
  }
  return *g_shared;
}

// One call's result: its code, ErrorString, the events raised.
struct Outcome {
  int32_t code = 0;
  std::string error;
  std::vector<std::pair<int32_t, std::string>> events;
};

Outcome Call(TabulonCtrl& control, const std::function<int32_t()>& method) {
  Outcome out;
  control.put_ErrorString(" ");
  const uint32_t cookie =
      control.AdviseOnError([&](int32_t& code, std::string& text) { out.events.emplace_back(code, text); });
  out.code = method();
  control.UnadviseOnError(cookie);
  out.error = control.get_ErrorString();
  return out;
}

class CellEdit : public ::testing::Test {
 protected:
  void SetUp() override {
    Get();
    folder_ = g_shared->dir / ::testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::remove_all(folder_);
    fs::create_directories(folder_);
    source_ = g_shared->book;
    target_ = (folder_ / "out.xls").string();
  }
  TabulonCtrl& control() { return *g_shared->warm; }
  office::Application& reader() { return *g_shared->reader; }

  // The cells of `sheet` in the target, from A1 to the end of its used range.
  Block Cells(const std::string& sheet, bool formulas = false) {
    for (SheetCells& s : ReadBook(reader(), target_, formulas)) {
      if (s.name == sheet) return s.cells;
    }
    ADD_FAILURE() << "no sheet " << sheet;
    return {};
  }
  // Runs `look` on the target's sheet, opened read-only in the reader.
  void Look(const std::string& sheet, const std::function<void(office::Worksheet&)>& look) {
    office::OpenOptions open;
    open.read_only = true;
    office::Workbook& book = reader().GetWorkbooks().Open(target_, open);
    look(*book.GetWorksheets().Item(sheet));
    book.Close(false);
  }

  Outcome Delete(std::string list, bool columns = false, std::string sheet = "Rows") {
    return Call(control(), [&] { return control().DeleteRowsOrColumns(source_, target_, sheet, list, columns); });
  }
  Outcome Replace(std::string what, std::string with, std::string range = "", bool match_case = false,
                  bool part = false) {
    std::string sheet = "Text";
    bool match_byte = false;
    return Call(control(), [&] {
      return control().SearchAndReplaceCellContent(source_, target_, sheet, what, with, range, match_case, part,
                                                   match_byte);
    });
  }

  fs::path folder_;
  std::string source_;
  std::string target_;
};

TEST_F(CellEdit, FailuresFollowTheFamilysTable) {
  std::string sheet = "Rows", list = "2";
  bool columns = false;
  std::string missing = (folder_ / "none.xlsx").string();
  Outcome o = Call(control(), [&] { return control().DeleteRowsOrColumns(missing, target_, sheet, list, columns); });
  EXPECT_EQ(o.code, kFileMissing);
  EXPECT_EQ(o.error, "Source File does not exist");
  EXPECT_TRUE(o.events.empty());

  std::string blocked = (folder_ / "file").string();
  std::ofstream(blocked) << "x";
  std::string under_file = blocked + "/sub/out.xls";
  o = Call(control(), [&] { return control().DeleteRowsOrColumns(source_, under_file, sheet, list, columns); });
  EXPECT_EQ(o.code, kTargetFolderMissing);
  EXPECT_EQ(o.error, "Target path folder does not exist");
  EXPECT_TRUE(o.events.empty());

  std::string absent = "\"Nowhere\"";
  o = Call(control(), [&] { return control().DeleteRowsOrColumns(source_, target_, absent, list, columns); });
  EXPECT_EQ(o.code, kSheetMissing);
  EXPECT_EQ(o.error, "Sheet specified does not exist.");
  EXPECT_EQ(o.events, (std::vector<std::pair<int32_t, std::string>>{{-204, "Sheet specified does not exist."}}));
  EXPECT_EQ(absent, "Nowhere");
  EXPECT_FALSE(fs::exists(target_));

  ControlOptions none;
  auto no_office = std::make_shared<NoOffice>();
  none.office = no_office;
  TabulonCtrl cold(none);
  o = Call(cold, [&] { return cold.TransposeSheetData(source_, target_, sheet); });
  EXPECT_EQ(o.code, kExcelNotCreated);
  EXPECT_EQ(o.events, (std::vector<std::pair<int32_t, std::string>>{
                          {-3, "Unable to create Excel Application. Is it installed?"}}));
}

TEST_F(CellEdit, QuotedSheetNamesAreFoundAndWrittenBackWithoutQuotes) {
  std::string sheet = "\"Rows\"", list = "1";
  bool columns = false;
  const Outcome o =
      Call(control(), [&] { return control().DeleteRowsOrColumns(source_, target_, sheet, list, columns); });
  ASSERT_EQ(o.code, 0) << o.error;
  EXPECT_EQ(sheet, "Rows");
  EXPECT_EQ(Cells("Rows")[0][0], Cell("r2"));
}

TEST_F(CellEdit, RowsAreDeletedAsNumberedBeforeTheCall) {
  auto column_a = [&] {
    std::vector<std::string> names;
    for (const auto& row : Cells("Rows")) names.push_back(std::get<std::string>(row[0]));
    return names;
  };
  struct Case {
    const char* list;
    std::vector<std::string> left;
  };
  const Case cases[] = {
      {"5", {"r1", "r2", "r3", "r4", "r6"}},
      {"2,4", {"r1", "r3", "r5", "r6"}},
      {"4,2", {"r1", "r3", "r5", "r6"}},
      {"3,3", {"r1", "r2", "r5", "r6"}},  // twice: the row that moved up goes too
      {"5-6,1", {"r2", "r3", "r4"}},
  };
  for (const Case& c : cases) {
    const Outcome o = Delete(c.list);
    ASSERT_EQ(o.code, 0) << c.list << ": " << o.error;
    EXPECT_EQ(column_a(), c.left) << c.list;
  }
}

TEST_F(CellEdit, ColumnsAreDeletedWhole) {
  ASSERT_EQ(Delete("1,3", true).code, 0);
  EXPECT_EQ(Cells("Rows")[0], (std::vector<Cell>{1.0}));
}

TEST_F(CellEdit, MoreThanAThousandNumbersFailWithNothingWritten) {
  const Outcome o = Delete("1-999,2-3");
  EXPECT_EQ(o.code, kSubscriptOutOfRange);
  EXPECT_EQ(o.error, "Subscript out of range");
  EXPECT_EQ(o.events.size(), 1u);
  EXPECT_FALSE(fs::exists(target_));
  EXPECT_EQ(Delete("1-998,2-3").code, 0);  // exactly 1000
}

TEST_F(CellEdit, ReplaceReadsTheSearchTextAsTheSpreadsheetDoes) {
  struct Case {
    const char* what;
    const char* with;
    const char* range;
    bool match_case, part;
    const char* cell;  // on Text
    Cell expected;
  };
  const Case cases[] = {
      {"apple", "pear", "", false, true, "A1", "pear pie"},
      {"apple", "pear", "", false, false, "A1", "apple pie"},  // whole cell only
      {"apple", "pear", "", false, false, "B1", "pear"},
      {"apple", "pear", "", true, false, "B1", "Apple"},
      {"a~*b", "star", "", false, false, "A2", "star"},
      {"a~*b", "star", "", false, false, "B2", "axb"},
      {"a*b", "any", "", false, false, "B2", "any"},
      {"a?b", "one", "", false, false, "A2", "one"},
      {"(*)", "[]", "", false, true, "B4", "x[]z"},
      {"&", "+", "", false, true, "A5", "A+B"},
      {".", "!", "", false, true, "A1", "apple pie"},  // no regular expressions
      {"100", "$1&", "", false, true, "A3", "price $1&"},
      {"2", "9", "", false, true, "B3", 1934.0},  // a number stays a number
      {"pie", "7", "", false, true, "A1", "apple 7"},
      {"apple pie", "77", "", false, false, "A1", 77.0},  // typed input
      {"SUM", "MAX", "", false, true, "A6", "=MAX(Rows!B1:B2)"},  // Excel's formula text
      {"Rows!B", "Rows!C", "", false, true, "A6", "=SUM(Rows!B1:C2)"},  // C1:B2, put in order
      {"s", "z", "", false, true, "B6", "=A4&\"z\""},
      {"apple", "pear", "A2:B5", false, true, "A1", "apple pie"},  // outside the range
      {"apple", "pear", "   ", false, true, "A1", "pear pie"},   // blanks: the whole sheet
  };
  for (const Case& c : cases) {
    const Outcome o = Replace(c.what, c.with, c.range, c.match_case, c.part);
    ASSERT_EQ(o.code, 0) << c.what << ": " << o.error;
    Cell got;
    // Numbers by value (typed input made them numbers), the rest as written.
    const bool number = std::holds_alternative<double>(c.expected);
    Look("Text", [&](office::Worksheet& sheet) {
      const auto range = sheet.GetRange(c.cell);
      got = number ? range->Value()[0][0] : range->Formula()[0][0];
    });
    EXPECT_EQ(got, c.expected) << c.what << " -> " << c.with << " at " << c.cell;
  }
}

TEST_F(CellEdit, ChangeCellContentTypesTheTextIntoEveryCell) {
  std::string sheet = "Rows", range = "B1:B3", content = "=A1&\"!\"";
  bool formulas = true;
  auto change = [&] {
    return Call(control(), [&] {
      return control().ChangeCellContent(source_, target_, sheet, range, content, formulas);
    });
  };
  ASSERT_EQ(change().code, 0);
  const Block f = Cells("Rows", true);
  EXPECT_EQ(f[0][1], Cell("=A1&\"!\""));
  EXPECT_EQ(f[2][1], Cell("=A3&\"!\""));  // relative references move cell by cell
  EXPECT_EQ(Cells("Rows")[1][1], Cell("r2!"));

  range = "C2";
  content = "1,234.5";
  ASSERT_EQ(change().code, 0);
  EXPECT_EQ(Cells("Rows")[1][2], Cell(1234.5));
  Look("Rows", [&](office::Worksheet& s) { EXPECT_EQ(s.GetRange("C2")->Text(), "1,234.50"); });
  struct Typed {
    const char* content;
    double value;
    const char* shown;
  };
  const Typed typed[] = {{"1/15/2024", 45306.0, "1/15/2024"}, {"12%", 0.12, "12%"}, {"$5.25", 5.25, "$5.25"},
                         {"42", 42.0, "42"}};
  for (const Typed& t : typed) {
    content = t.content;
    ASSERT_EQ(change().code, 0) << t.content;
    Look("Rows", [&](office::Worksheet& s) {
      EXPECT_EQ(s.GetRange("C2")->Value()[0][0], Cell(t.value)) << t.content;
      EXPECT_EQ(s.GetRange("C2")->Text(), t.shown) << t.content;
    });
  }

  range = " ";
  content = "x";
  ASSERT_EQ(change().code, 0);
  EXPECT_EQ(range, "$A$1:$C$6");
  const Block all = Cells("Rows");
  ASSERT_EQ(all.size(), 6u);
  for (const auto& row : all) EXPECT_EQ(row, (std::vector<Cell>{"x", "x", "x"}));
}

TEST_F(CellEdit, NumberFormatsShowWhatTheSpreadsheetShows) {
  std::string sheet = "Notes";
  struct Case {
    std::string range, format, cell, shown, range_after, format_after;
  };
  const Case cases[] = {
      {"B1", "dd\\mm\\yyyy", "B1", "15/01/2024", "B1", "dd/mm/yyyy"},
      {"\"A1\"", "#,##0.00", "A1", "1,234.50", "A1", "#,##0.00"},
      {"A1", "0.0%", "A1", "123450.0%", "A1", "0.0%"},
      {"A1", "\"$\"#,##0", "A1", "$1,235", "A1", "$#,##0"},
      {"A1", "@", "A1", "1234.5", "A1", "@"},
      {"B1", "m/d/yyyy h:mm", "B1", "1/15/2024 0:00", "B1", "m/d/yyyy h:mm"},
      {"", "0", "B1", "45306", "$A$1:$C$1", "0"},
      {"B1:*", "0.0", "B1", "45306.0", "B1:C1", "0.0"},
  };
  for (Case c : cases) {
    const Outcome o = Call(control(), [&] {
      return control().ChangeNumberFormat(source_, target_, sheet, c.range, c.format);
    });
    ASSERT_EQ(o.code, 0) << c.format << ": " << o.error;
    EXPECT_EQ(c.range, c.range_after);
    EXPECT_EQ(c.format, c.format_after);
    Look("Notes", [&](office::Worksheet& s) { EXPECT_EQ(s.GetRange(c.cell)->Text(), c.shown) << c.format; });
  }
}

TEST_F(CellEdit, AStarRangeDropsWhatFollowsIt) {
  std::string sheet = "Rows", range = "A5:*,A1", format = "0.00";
  ASSERT_EQ(Call(control(), [&] {
              return control().ChangeNumberFormat(source_, target_, sheet, range, format);
            }).code,
            0);
  EXPECT_EQ(range, "A5:C6");
  Look("Rows", [&](office::Worksheet& s) {
    EXPECT_EQ(s.GetRange("B5")->Text(), "5.00");
    EXPECT_EQ(s.GetRange("B1")->Text(), "1");  // the second area was dropped
  });
  range = "A1:A2,B3:B4";
  int32_t what = 2;
  ASSERT_EQ(Call(control(), [&] { return control().ClearCells(source_, target_, what, sheet, range); }).code, 0);
  const Block cells = Cells("Rows");
  EXPECT_EQ(cells[0][0], kEmpty);
  EXPECT_EQ(cells[1][0], kEmpty);
  EXPECT_EQ(cells[2][1], kEmpty);
  EXPECT_EQ(cells[3][1], kEmpty);
  EXPECT_EQ(cells[2][0], Cell("r3"));
  EXPECT_EQ(cells[4][1], Cell(5.0));
}

TEST_F(CellEdit, ClearCellsClearsWhatItsSelectorNames) {
  std::string sheet = "Notes";
  struct Seen {
    Cell value;
    std::string format;
    std::optional<std::string> comment;
  };
  auto clear = [&](int32_t what, std::string range) {
    const Outcome o = Call(control(), [&] { return control().ClearCells(source_, target_, what, sheet, range); });
    EXPECT_EQ(o.code, 0) << what << ": " << o.error;
    Seen seen;
    Look("Notes", [&](office::Worksheet& s) {
      seen.value = s.GetRange("A1")->Value()[0][0];
      seen.format = s.GetRange("A1")->NumberFormat();
      seen.comment = s.GetRange("C1")->CommentText();
    });
    return seen;
  };
  Seen s = clear(0, "A1:C1");
  EXPECT_EQ(s.value, kEmpty);
  EXPECT_EQ(s.format, "General");
  EXPECT_EQ(s.comment, std::nullopt);
  s = clear(1, "A1");
  EXPECT_EQ(s.value, Cell(1234.5));
  EXPECT_EQ(s.format, "General");
  s = clear(2, "A1:C1");
  EXPECT_EQ(s.value, kEmpty);
  EXPECT_EQ(s.format, "#,##0.00");
  EXPECT_EQ(s.comment, "a comment");
  for (int32_t what : {3, 4}) {
    s = clear(what, "C1");
    EXPECT_EQ(s.comment, std::nullopt) << what;
    EXPECT_EQ(s.value, Cell(1234.5));
  }
  for (int32_t what : {6, -1}) {
    s = clear(what, "A1:C1");
    EXPECT_EQ(s.value, Cell(1234.5)) << what;
    EXPECT_EQ(s.format, "#,##0.00");
    EXPECT_EQ(s.comment, "a comment");
  }
  s = clear(5, "A1:C1");  // no outline here: nothing else changes
  EXPECT_EQ(s.value, Cell(1234.5));
}

// Runs a script of Debian's python3 (which has openpyxl) with `args`; its
// standard output.
std::string Python(const fs::path& folder, const std::string& script, const std::string& args) {
  const fs::path file = folder / "script.py";
  std::ofstream(file) << script;
  std::string text;
  FILE* pipe = popen(("/usr/bin/python3 '" + file.string() + "' " + args + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return text;
  char buffer[512];
  while (fgets(buffer, sizeof buffer, pipe) != nullptr) text += buffer;
  pclose(pipe);
  fs::remove(file);
  return text;
}

TEST_F(CellEdit, ClearOutlineUngroupsTheRowsAndColumnsOfTheRange) {
  // Written by openpyxl, so that the grouping does not come from the office
  // under test: values 11..104 in A1:D10; rows 2-5 grouped with 3-4 inside
  // them, rows 8-9 grouped, columns B-C grouped.
  source_ = (folder_ / "grouped.xlsx").string();
  Python(folder_,
         "import sys, openpyxl\n"
         "wb = openpyxl.Workbook(); ws = wb.active; ws.title = 'Grouped'\n"
         "for r in range(1, 11):\n"
         "    for c in range(1, 5): ws.cell(row=r, column=c, value=r * 10 + c)\n"
         "ws.row_dimensions.group(2, 5, outline_level=1)\n"
         "ws.row_dimensions.group(3, 4, outline_level=2)\n"
         "ws.row_dimensions.group(8, 9, outline_level=1)\n"
         "ws.column_dimensions.group('B', 'C', outline_level=1)\n"
         "wb.create_sheet('Other')['A1'] = 'x'\n"
         "wb.save(sys.argv[1])\n",
         "'" + source_ + "'");
  ASSERT_TRUE(fs::exists(source_));
  Block values;
  for (int r = 1; r <= 10; ++r) {
    values.emplace_back();
    for (int c = 1; c <= 4; ++c) values.back().emplace_back(static_cast<double>(r * 10 + c));
  }
  // The outline levels of rows 1-10, then of columns A-D, of the target's
  // sheet, as openpyxl reads them from an .xlsx the reader's office makes
  // of the target.
  auto levels = [&] {
    const std::string xlsx = (folder_ / "check.xlsx").string();
    office::Workbook& book = reader().GetWorkbooks().Open(target_, {});
    office::SaveAsOptions as;
    as.file_format = 51;
    book.SaveAs(xlsx, as);
    book.Close(false);
    return Python(folder_,
                  "import sys, openpyxl\n"
                  "ws = openpyxl.load_workbook(sys.argv[1])['Grouped']\n"
                  "print(' '.join(str(ws.row_dimensions[r].outline_level) for r in range(1, 11)))\n"
                  "columns = {}\n"
                  "for d in ws.column_dimensions.values():\n"
                  "    for c in range(d.min or 0, (d.max or 0) + 1): columns[c] = d.outline_level\n"
                  "print(' '.join(str(columns.get(c, 0)) for c in range(1, 5)))\n",
                  "'" + xlsx + "'");
  };
  struct Case {
    int32_t what;
    std::string range;
    std::string levels;
  };
  const Case cases[] = {
      // A selector that clears nothing: the grouping survives the save and
      // the read-back, so the cases below can see it go.
      {6, "", "0 1 2 2 1 0 0 1 1 0\n0 1 1 0\n"},
      // Both levels of rows 2-5 and the columns, which lie in the range;
      // rows 8-9 lie outside it and stay grouped.
      {5, "A1:D6", "0 0 0 0 0 0 0 1 1 0\n0 0 0 0\n"},
      // The used range: every group.
      {5, "", "0 0 0 0 0 0 0 0 0 0\n0 0 0 0\n"},
  };
  for (const Case& c : cases) {
    std::string sheet = "Grouped", range = c.range;
    int32_t what = c.what;
    fs::remove(target_);
    const Outcome o = Call(control(), [&] { return control().ClearCells(source_, target_, what, sheet, range); });
    ASSERT_EQ(o.code, 0) << c.what << " " << c.range << ": " << o.error;
    EXPECT_EQ(levels(), c.levels) << c.what << " " << c.range;
    EXPECT_EQ(Cells("Grouped"), values) << c.what << " " << c.range;
  }
}

TEST_F(CellEdit, TransposeWritesTheTurnedBlockFromA1) {
  std::string sheet = "Block";
  const Outcome o = Call(control(), [&] { return control().TransposeSheetData(source_, target_, sheet); });
  ASSERT_EQ(o.code, 0) << o.error;
  // C3:E4 was 1 2 3 / a b =C3*2; turned, from A1, the former cells cleared.
  const Block f = Cells("Block", true);
  ASSERT_EQ(f.size(), 3u);
  EXPECT_EQ(f[0], (std::vector<Cell>{"1", "a"}));
  EXPECT_EQ(f[1], (std::vector<Cell>{"2", "b"}));
  EXPECT_EQ(f[2], (std::vector<Cell>{"3", "=A1*2"}));  // the reference turned with the block
  EXPECT_EQ(Cells("Block")[2][1], Cell(2.0));
  std::vector<std::string> names;
  for (const SheetCells& s : ReadBook(reader(), target_)) names.push_back(s.name);
  EXPECT_EQ(names, (std::vector<std::string>{"Rows", "Text", "Block", "Notes"}));  // no scratch sheet left
}

TEST_F(CellEdit, AColdControlLeavesNoOfficeBehind) {
  TabulonCtrl cold;
  std::string sheet = "Rows", list = "1";
  bool columns = false;
  const auto before = ChildOfficePids().size();
  EXPECT_EQ(cold.DeleteRowsOrColumns(source_, target_, sheet, list, columns), 0);
  EXPECT_EQ(ChildOfficePids().size(), before);
  // The same file as source and target: opened writable, saved over itself.
  std::string same = (folder_ / "same.xls").string();
  fs::copy_file(target_, same);
  EXPECT_EQ(cold.DeleteRowsOrColumns(same, same, sheet, list, columns), 0);
  target_ = same;
  EXPECT_EQ(Cells("Rows")[0][0], Cell("r3"));
}

}  // namespace
}  // namespace tabulon::testing
