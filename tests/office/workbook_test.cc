// Workbooks, sheets and ranges on a real office: what the methods read and
// write through the object model.
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "office_test_env.h"

namespace tabulon::office::uno::testing {
namespace {

using WorkbookTest = OfficeTest;

Cell S(const char* s) { return Cell(std::string(s)); }
Cell N(double d) { return Cell(d); }
const Cell E{};

Worksheet& First(Workbook& book, std::unique_ptr<Worksheet>& keep) {
  keep = book.GetWorksheets().Item(1);
  return *keep;
}

TEST_F(WorkbookTest, AddGivesOneActiveSheetNamedSheet1InTheActiveWorkbook) {
  auto& app = SharedExcel();
  Workbook& a = app.GetWorkbooks().Add();
  Workbook& b = app.GetWorkbooks().Add();
  EXPECT_EQ(app.GetWorkbooks().Count(), 2);
  EXPECT_EQ(&app.ActiveWorkbook(), &b);
  EXPECT_NE(a.Name(), b.Name());
  EXPECT_EQ(b.GetWorksheets().Count(), 1);
  EXPECT_EQ(b.Sheets().Item(1)->Name(), "Sheet1");
  EXPECT_EQ(app.ActiveSheet()->Name(), "Sheet1");
  EXPECT_TRUE(b.Saved());
  EXPECT_EQ(&app.GetWorkbooks().Item(1), &a);
  // Closing the active workbook makes another one active.
  b.Close(false);
  EXPECT_EQ(&app.ActiveWorkbook(), &a);
  a.Close(false);
  EXPECT_EQ(app.GetWorkbooks().Count(), 0);
  EXPECT_THROW(app.ActiveWorkbook(), Error);
  try {
    app.GetWorkbooks().Item(1);
    FAIL();
  } catch (const Error& e) {
    EXPECT_EQ(e.kind(), ErrorKind::kNotFound);
  }
  // A closed workbook refuses calls instead of crashing.
  EXPECT_THROW(a.Name(), Error);
}

TEST_F(WorkbookTest, ValuesMoveAsBlocks) {
  auto& app = SharedExcel();
  Workbook& book = app.GetWorkbooks().Add();
  std::unique_ptr<Worksheet> keep;
  Worksheet& sheet = First(book, keep);
  const Block block{{S("café"), N(1.5), E}, {N(-2), S("a,b"), S("x")}};
  sheet.GetRange("B2:D3")->SetValue(block);
  EXPECT_EQ(sheet.GetRange("B2:D3")->Value(), block);
  EXPECT_FALSE(book.Saved());
  // Text is never parsed.
  sheet.GetRange("A1")->SetValue(S("00123"));
  EXPECT_EQ(sheet.GetRange("A1")->Value()[0][0], S("00123"));
  // One value fills every cell; an empty one clears them.
  sheet.GetRange("F1:G2")->SetValue(N(7));
  EXPECT_EQ(sheet.GetRange("F1:G2")->Value(), (Block{{N(7), N(7)}, {N(7), N(7)}}));
  sheet.GetRange("F1:G2")->SetValue(E);
  EXPECT_EQ(sheet.GetRange("F1:G2")->Value(), (Block{{E, E}, {E, E}}));
  // Emptied cells do not count as used.
  EXPECT_EQ(sheet.UsedRange()->Address(), "$A$1:$D$3");
  EXPECT_THROW(sheet.GetRange("A1:B2")->SetValue(Block{{N(1), N(2), N(3)}}), Error);
  book.Close(false);
}

TEST_F(WorkbookTest, EmptyCellsOfABlockAreEmptiedAndNotUsed) {
  auto& app = SharedExcel();
  Workbook& book = app.GetWorkbooks().Add();
  std::unique_ptr<Worksheet> keep;
  Worksheet& sheet = First(book, keep);
  sheet.GetRange("A1:D4")->SetValue(N(9));
  // Empty cells and empty text, inside and along the edges, some over
  // cells that had values.
  sheet.GetRange("B2:E5")->SetValue(Block{{S("a"), E, N(1), E},
                                          {E, S(""), E, E},
                                          {N(2), E, S("b"), E},
                                          {E, E, E, E}});
  EXPECT_EQ(sheet.GetRange("A1:E5")->Value(), (Block{{N(9), N(9), N(9), N(9), E},
                                                     {N(9), S("a"), E, N(1), E},
                                                     {N(9), E, E, E, E},
                                                     {N(9), N(2), E, S("b"), E},
                                                     {E, E, E, E, E}}));
  EXPECT_EQ(sheet.UsedRange()->Address(), "$A$1:$D$4");
  // A block of nothing but empty cells empties the range.
  sheet.GetRange("A1:D4")->SetValue(Block(4, std::vector<Cell>(4, E)));
  EXPECT_EQ(sheet.UsedRange()->Address(), "$A$1");
  EXPECT_EQ(sheet.GetRange("A1")->Value()[0][0], E);
  book.Close(false);
}

TEST_F(WorkbookTest, TextOfEveryKindReadsBackAsWritten) {
  auto& app = SharedExcel();
  Workbook& book = app.GetWorkbooks().Add();
  std::unique_ptr<Worksheet> keep;
  Worksheet& sheet = First(book, keep);
  const Block block{{S("plain ascii ~"), S("caf\xC3\xA9"), S("ascii first, then \xE2\x82\xAC")},
                    {S("\xE6\x97\xA5\xE6\x9C\xAC"), S("\xF0\x9F\x98\x80 outside the BMP"), S("\xC2\x80\x7F")}};
  sheet.GetRange("A1:C2")->SetValue(block);
  EXPECT_EQ(sheet.GetRange("A1:C2")->Value(), block);
  sheet.GetRange("A4:C5")->SetFormula(block);
  EXPECT_EQ(sheet.GetRange("A4:C5")->Formula(), block);
  book.Close(false);
}

// The distinct row heights of a sheet saved as XML Spreadsheet 2003.
std::set<std::string> RowHeights(const std::string& xml) {
  std::set<std::string> heights;
  const std::string key = "<Row ss:Height=\"";
  for (size_t at = xml.find(key); at != std::string::npos; at = xml.find(key, at + 1)) {
    const size_t begin = at + key.size();
    heights.insert(xml.substr(begin, xml.find('"', begin) - begin));
  }
  return heights;
}

TEST_F(WorkbookTest, RowsFitTheTextWrittenIntoThem) {
  auto& app = SharedExcel();
  Workbook& book = app.GetWorkbooks().Add();
  std::unique_ptr<Worksheet> keep;
  Worksheet& sheet = First(book, keep);
  SaveAsOptions xml;
  xml.file_format = 46;
  const auto heights = [&] {
    book.SaveAs(Path("rows.xml"), xml);
    return RowHeights(ReadFile(Path("rows.xml")));
  };
  // Single-line text and numbers: every row keeps the standard height.
  sheet.GetRange("A1:C3")->SetValue(
      Block{{S("café"), N(1.5), S("x y")}, {N(-2), S("Zürich"), E}, {S("a,b"), N(1e300), S("z")}});
  const auto standard = heights();
  ASSERT_EQ(standard.size(), 1u);
  // A line break makes its row taller, also after plain writes.
  sheet.GetRange("B5:C5")->SetValue(Block{{S("two\nlines"), N(1)}});
  const auto taller = heights();
  EXPECT_EQ(taller.size(), 2u);
  EXPECT_EQ(taller.count(*standard.begin()), 1u);
  // Single-line text over it brings the row back to the standard height.
  sheet.GetRange("B5:C5")->SetValue(Block{{S("one line"), N(2)}});
  EXPECT_EQ(heights(), standard);
  // A single value with a line break, after a plain block.
  sheet.GetRange("E1:F2")->SetValue(Block{{S("p"), N(3)}, {S("q"), N(4)}});
  sheet.GetRange("E7")->SetValue(S("x\ny"));
  EXPECT_EQ(heights(), taller);
  book.Close(false);
}

TEST_F(WorkbookTest, FormulasCrossInExcelSyntax) {
  auto& app = SharedExcel();
  Workbook& book = app.GetWorkbooks().Add();
  std::unique_ptr<Worksheet> keep;
  Worksheet& sheet = First(book, keep);
  sheet.GetRange("A1:B1")->SetValue(Block{{N(2), N(3)}});
  struct Case {
    const char* address;
    const char* formula;
    Cell value;
  } cases[] = {
      {"C1", "=SUM(A1:B1)", N(5)},
      {"D1", "=IF(A1>1,\"x\",\"y\")", S("x")},
      {"E1", "=ROUND(A1/B1,2)", N(0.67)},
      {"F1", "=CONCATENATE(\"a\",\"b\")", S("ab")},
      {"G1", "=Sheet1!$A$1*2", N(4)},
      {"H1", "=SUMPRODUCT(A1:B1,A1:B1)", N(13)},
  };
  for (const auto& c : cases) {
    sheet.GetRange(c.address)->SetFormula(c.formula);
    EXPECT_EQ(sheet.GetRange(c.address)->Formula()[0][0], S(c.formula)) << c.formula;
    EXPECT_EQ(sheet.GetRange(c.address)->Value()[0][0], c.value) << c.formula;
  }
  // A constant cell's formula is its value as text; empty cells are empty.
  EXPECT_EQ(sheet.GetRange("A1:B2")->Formula(), (Block{{S("2"), S("3")}, {E, E}}));
  // Constants given as formulas are read as typed.
  sheet.GetRange("A3:C3")->SetFormula(Block{{S("12"), S("abc"), N(2.5)}});
  EXPECT_EQ(sheet.GetRange("A3:C3")->Value(), (Block{{N(12), S("abc"), N(2.5)}}));
  // One formula for a range moves its relative references cell by cell.
  sheet.GetRange("A5:A6")->SetValue(Block{{N(10)}, {N(20)}});
  sheet.GetRange("B5:B6")->SetFormula("=A5*2");
  EXPECT_EQ(sheet.GetRange("B5:B6")->Formula(), (Block{{S("=A5*2")}, {S("=A6*2")}}));
  EXPECT_EQ(sheet.GetRange("B5:B6")->Value(), (Block{{N(20)}, {N(40)}}));
  // Formulas copied as a block keep their text.
  const Block copied = sheet.GetRange("C1:D1")->Formula();
  sheet.GetRange("C8:D8")->SetFormula(copied);
  EXPECT_EQ(sheet.GetRange("C8:D8")->Formula(), copied);
  book.Close(false);
}

TEST_F(WorkbookTest, AddressesAndUsedRangeFollowExcel) {
  auto& app = SharedExcel();
  Workbook& book = app.GetWorkbooks().Add();
  std::unique_ptr<Worksheet> keep;
  Worksheet& sheet = First(book, keep);
  EXPECT_EQ(sheet.UsedRange()->Address(), "$A$1");
  EXPECT_EQ(sheet.Cells()->SpecialCells(kXlCellTypeLastCell)->Address(), "$A$1");
  EXPECT_EQ(sheet.Cells(4, 3)->Address(), "$C$4");
  EXPECT_EQ(sheet.GetRange("b2:c5")->Address(), "$B$2:$C$5");
  EXPECT_EQ(sheet.GetRange("$B$2")->Address(), "$B$2");
  EXPECT_EQ(sheet.GetRange("A:B")->Address(), "$A:$B");
  EXPECT_EQ(sheet.GetRange("2:3")->Address(), "$2:$3");
  EXPECT_EQ(sheet.Cells()->Address(), "$1:$1048576");
  EXPECT_THROW(sheet.GetRange("not an address"), Error);
  // Data that begins below and right of A1: the used range starts there.
  sheet.GetRange("C4:D5")->SetValue(Block{{N(1), N(2)}, {N(3), S("t")}});
  auto used = sheet.UsedRange();
  EXPECT_EQ(used->Address(), "$C$4:$D$5");
  EXPECT_EQ(used->Row(), 4);
  EXPECT_EQ(used->Column(), 3);
  EXPECT_EQ(used->RowsCount(), 2);
  EXPECT_EQ(used->ColumnsCount(), 2);
  EXPECT_EQ(sheet.Cells(used->RowsCount(), used->ColumnsCount())->Address(), "$B$2");
  EXPECT_EQ(used->Cells(2, 2)->Address(), "$D$5");
  EXPECT_EQ(used->Offset(2, 0)->Address(), "$C$6:$D$7");
  EXPECT_EQ(sheet.Cells()->SpecialCells(kXlCellTypeLastCell)->Address(), "$D$5");
  book.Close(false);
}

TEST_F(WorkbookTest, SheetsAreAddedNamedMovedAndDeletedAsInExcel) {
  auto& app = SharedExcel();
  Workbook& book = app.GetWorkbooks().Add();
  Worksheets& sheets = book.GetWorksheets();
  auto first = sheets.Item(1);
  auto added = sheets.Add(nullptr, first.get(), std::nullopt);
  EXPECT_EQ(added->Name(), "Sheet2");
  EXPECT_EQ(added->Index(), 2);
  EXPECT_EQ(app.ActiveSheet()->Name(), "Sheet2");
  // Without a position the new sheet goes before the active one.
  auto third = sheets.Add(nullptr, nullptr, kXlWorksheet);
  EXPECT_EQ(third->Name(), "Sheet3");
  EXPECT_EQ(third->Index(), 2);
  EXPECT_EQ(sheets.Count(), 3);
  // Names are looked up without regard to case; missing ones are not found.
  EXPECT_EQ(sheets.Item("sheet3")->Index(), 2);
  for (auto lookup : {+[](Worksheets& s) { s.Item("Nope"); }, +[](Worksheets& s) { s.Item(4); },
                      +[](Worksheets& s) { s.Item(0); }}) {
    try {
      lookup(sheets);
      FAIL();
    } catch (const Error& e) {
      EXPECT_EQ(e.kind(), ErrorKind::kNotFound);
    }
  }
  third->SetName("Data");
  EXPECT_EQ(third->Name(), "Data");
  // A duplicate or invalid name is refused silently: read it back.
  third->SetName("Sheet1");
  EXPECT_EQ(third->Name(), "Data");
  third->SetName("a[b]");
  EXPECT_EQ(third->Name(), "Data");
  third->MoveAfter(*sheets.Item(3));
  EXPECT_EQ(third->Index(), 3);
  third->MoveBefore(*sheets.Item(1));
  EXPECT_EQ(third->Index(), 1);
  EXPECT_EQ(sheets.Item(1)->Name(), "Data");
  // Deleting the active sheet activates another; the last one stays.
  third->Activate();
  third->Delete();
  EXPECT_EQ(sheets.Count(), 2);
  EXPECT_EQ(app.ActiveSheet()->Name(), "Sheet1");
  sheets.Item(2)->Delete();
  EXPECT_THROW(sheets.Item(1)->Delete(), Error);
  EXPECT_EQ(sheets.Count(), 1);
  book.Close(false);
}

TEST_F(WorkbookTest, OpenRefusesMissingDamagedAndWronglyProtectedFiles) {
  auto& app = SharedExcel();
  EXPECT_THROW(app.GetWorkbooks().Open(Path("missing.xlsx"), {}), Error);
  WriteFile(Path("damaged.xlsx"), "PK\x03\x04 this is not really a workbook");
  EXPECT_THROW(app.GetWorkbooks().Open(Path("damaged.xlsx"), {}), Error);
  EXPECT_EQ(app.GetWorkbooks().Count(), 0);

  Workbook& book = app.GetWorkbooks().Add();
  book.GetWorksheets().Item(1)->GetRange("A1")->SetValue(S("secret"));
  SaveAsOptions save;
  save.file_format = 56;
  save.password = "pw1";
  book.SaveAs(Path("locked.xls"), save);
  book.Close(false);
  OpenOptions wrong;
  wrong.password = "nope";
  EXPECT_THROW(app.GetWorkbooks().Open(Path("locked.xls"), wrong), Error);
  EXPECT_THROW(app.GetWorkbooks().Open(Path("locked.xls"), {}), Error);
  EXPECT_EQ(app.GetWorkbooks().Count(), 0);
  OpenOptions right;
  right.password = "pw1";
  right.read_only = true;
  Workbook& opened = app.GetWorkbooks().Open(Path("locked.xls"), right);
  EXPECT_EQ(opened.Name(), "locked.xls");
  EXPECT_EQ(opened.GetWorksheets().Item(1)->GetRange("A1")->Value()[0][0], S("secret"));
  opened.Close(false);
}

// A file whose extension promises a workbook format its content does not
// have is refused as Excel refuses it; a binary workbook's extension also
// takes text and other workbooks, which open as what they are.
TEST_F(WorkbookTest, OpenRefusesContentItsExtensionDoesNotPromise) {
  auto& app = SharedExcel();
  std::string noise(2048, '\0');
  for (size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<char>((i * 7919 + 13) % 251);
  const std::pair<const char*, std::string> refused[] = {
      {"empty.xlsx", ""}, {"noise.xlsx", noise}, {"words.xlsx", "just words\n"},
      {"empty.xls", ""},  {"noise.xls", noise},  {"compound.ods", "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1" + noise},
      {"words.xml", "just words\n"},
  };
  for (const auto& [name, bytes] : refused) {
    WriteFile(Path(name), bytes);
    try {
      app.GetWorkbooks().Open(Path(name), {});
      ADD_FAILURE() << name << " was opened";
    } catch (const Error& e) {
      EXPECT_EQ(e.kind(), ErrorKind::kAutomation) << name;
      EXPECT_NE(std::string(e.what()).find("the file format or file extension is not valid"), std::string::npos)
          << e.what();
    }
  }
  EXPECT_EQ(app.GetWorkbooks().Count(), 0);

  WriteFile(Path("text.xls"), "a\tb\r\n1\t2\r\n");
  Workbook& text = app.GetWorkbooks().Open(Path("text.xls"), {});
  EXPECT_EQ(text.GetWorksheets().Item(1)->GetRange("A1:B2")->Value(), (Block{{S("a"), S("b")}, {N(1), N(2)}}));
  text.Close(false);
  Workbook& made = app.GetWorkbooks().Add();
  made.GetWorksheets().Item(1)->GetRange("A1")->SetValue(S("zip"));
  SaveAsOptions xlsx;
  xlsx.file_format = 51;
  made.SaveAs(Path("made.xlsx"), xlsx);
  made.Close(false);
  std::filesystem::copy_file(Path("made.xlsx"), Path("zip.xls"));
  Workbook& zip = app.GetWorkbooks().Open(Path("zip.xls"), {});
  EXPECT_EQ(zip.GetWorksheets().Item(1)->GetRange("A1")->Value()[0][0], S("zip"));
  zip.Close(false);
}

// A lock file left by an office that was killed does not keep a workbook
// from being opened for writing and saved in place.
TEST_F(WorkbookTest, StaleLockFileDoesNotStopAnOpenForWriting) {
  auto& app = SharedExcel();
  Workbook& book = app.GetWorkbooks().Add();
  book.GetWorksheets().Item(1)->GetRange("A1")->SetValue(S("first"));
  SaveAsOptions xlsx;
  xlsx.file_format = 51;
  book.SaveAs(Path("book.xlsx"), xlsx);
  book.Close(false);
  WriteFile(Path(".~lock.book.xlsx#"), ",someone,otherhost,21.11.2026 10:00,file:///home/someone/.config/office;");

  Workbook& opened = app.GetWorkbooks().Open(Path("book.xlsx"), {});
  opened.GetWorksheets().Item(1)->GetRange("A1")->SetValue(S("second"));
  opened.SaveAs(Path("book.xlsx"), xlsx);
  opened.Close(false);
  OpenOptions read_only;
  read_only.read_only = true;
  Workbook& again = app.GetWorkbooks().Open(Path("book.xlsx"), read_only);
  EXPECT_EQ(again.GetWorksheets().Item(1)->GetRange("A1")->Value()[0][0], S("second"));
  again.Close(false);
}

// Excel opens a workbook on the sheet that was active when it was saved,
// with or without a window for it.
TEST_F(WorkbookTest, OpenedWorkbookStartsOnTheSheetItWasSavedOn) {
  auto& app = SharedExcel();
  OpenOptions read_only;
  read_only.read_only = true;
  Workbook& book =
      app.GetWorkbooks().Open(std::string(TABULON_TEST_DATA_DIR) + "/office/second-sheet-active.xlsx", read_only);
  EXPECT_EQ(app.ActiveSheet()->Name(), "Second");
  book.Close(false);
}

TEST_F(WorkbookTest, OpenReadsTextWithTheGivenDelimiterButWorkbooksNormally) {
  auto& app = SharedExcel();
  WriteFile(Path("semi.csv"), "name;amount\r\ncafé;1.5\r\n\"x;y\";2\r\n");
  OpenOptions semicolon;
  semicolon.format = 6;
  semicolon.delimiter = ";";
  semicolon.read_only = true;
  Workbook& csv = app.GetWorkbooks().Open(Path("semi.csv"), semicolon);
  EXPECT_EQ(csv.GetWorksheets().Item(1)->UsedRange()->Value(),
            (Block{{S("name"), S("amount")}, {S("café"), N(1.5)}, {S("x;y"), N(2)}}));
  csv.Close(false);
  // Without a format, a .csv is read with commas.
  WriteFile(Path("plain.csv"), "a,b\r\n1,2\r\n");
  Workbook& plain = app.GetWorkbooks().Open(Path("plain.csv"), {});
  EXPECT_EQ(plain.GetWorksheets().Item(1)->UsedRange()->Value(),
            (Block{{S("a"), S("b")}, {N(1), N(2)}}));
  plain.Close(false);

  Workbook& book = app.GetWorkbooks().Add();
  book.GetWorksheets().Item(1)->GetRange("A1:B1")->SetValue(Block{{S("p,q"), N(3)}});
  book.GetWorksheets().Add(nullptr, book.GetWorksheets().Item(1).get(), std::nullopt);
  SaveAsOptions xlsx;
  xlsx.file_format = 51;
  book.SaveAs(Path("book.xlsx"), xlsx);
  book.Close(false);
  OpenOptions comma;
  comma.format = 6;
  comma.delimiter = ",";
  Workbook& opened = app.GetWorkbooks().Open(Path("book.xlsx"), comma);
  EXPECT_EQ(opened.GetWorksheets().Count(), 2);
  EXPECT_EQ(opened.GetWorksheets().Item(1)->UsedRange()->Value(), (Block{{S("p,q"), N(3)}}));
  opened.Close(false);
}

TEST_F(WorkbookTest, EditsCellsLikeExcel) {
  auto& app = SharedExcel();
  Workbook& book = app.GetWorkbooks().Add();
  std::unique_ptr<Worksheet> keep;
  Worksheet& sheet = First(book, keep);
  sheet.GetRange("A1:C3")->SetValue(
      Block{{S("apple"), S("pineapple"), N(1)}, {S("Apple"), S("x"), N(2)}, {S("b"), S("c"), N(3)}});
  Range::ReplaceOptions whole;
  whole.look_at = 1;
  whole.match_case = true;
  EXPECT_TRUE(sheet.Cells()->Replace("apple", "pear", whole));
  EXPECT_EQ(sheet.GetRange("A1:B2")->Value(), (Block{{S("pear"), S("pineapple")}, {S("Apple"), S("x")}}));
  Range::ReplaceOptions part;
  part.look_at = 2;
  EXPECT_TRUE(sheet.Cells()->Replace("APPLE", "-", part));
  EXPECT_EQ(sheet.GetRange("A1:B2")->Value(), (Block{{S("pear"), S("pine-")}, {S("-"), S("x")}}));
  // Excel's wildcards.
  EXPECT_TRUE(sheet.GetRange("A1:B1")->Replace("p*r", "Z", whole));
  EXPECT_EQ(sheet.GetRange("A1")->Value()[0][0], S("Z"));

  sheet.GetRange("A2")->EntireRowDelete();
  EXPECT_EQ(sheet.GetRange("A2:C2")->Value(), (Block{{S("b"), S("c"), N(3)}}));
  sheet.GetRange("B1")->EntireColumnDelete();
  EXPECT_EQ(sheet.GetRange("A1:B1")->Value(), (Block{{S("Z"), N(1)}}));

  sheet.GetRange("B1")->SetNumberFormat("0.00%");
  sheet.GetRange("B2")->SetNumberFormat("#,##0.000");
  sheet.GetRange("A1:B2")->ClearContents();
  EXPECT_EQ(sheet.GetRange("A1:B2")->Value(), (Block{{E, E}, {E, E}}));
  sheet.GetRange("A1:B2")->SetValue(N(1));
  sheet.GetRange("A1:B2")->Clear();
  EXPECT_EQ(sheet.UsedRange()->Address(), "$A$1");
  book.Close(false);
}

TEST_F(WorkbookTest, ACommentInANewWorkbookKeepsItsTextInTheSavedFile) {
  auto& app = SharedExcel();
  const std::pair<int32_t, const char*> formats[] = {{51, "xlsx"}, {-4143, "xls"}, {60, "ods"}};
  for (const auto& [format, extension] : formats) {
    Workbook& book = app.GetWorkbooks().Add();
    std::unique_ptr<Worksheet> keep;
    Worksheet& sheet = First(book, keep);
    sheet.GetRange("A1")->SetValue(N(1));
    sheet.GetRange("C1")->AddComment("a comment");
    EXPECT_EQ(sheet.GetRange("C1")->CommentText(), "a comment") << format;
    const std::string path = Path(std::string("comment.") + extension).string();
    SaveAsOptions as;
    as.file_format = format;
    book.SaveAs(path, as);
    book.Close(false);
    Workbook& opened = app.GetWorkbooks().Open(path, {});
    EXPECT_EQ(opened.GetWorksheets().Item(1)->GetRange("C1")->CommentText(), "a comment") << format;
    opened.Close(false);
  }
}

TEST_F(WorkbookTest, CopyAndPasteSpecialTransposeAndMoveReferences) {
  auto& app = SharedExcel();
  Workbook& book = app.GetWorkbooks().Add();
  std::unique_ptr<Worksheet> keep;
  Worksheet& sheet = First(book, keep);
  sheet.GetRange("A1:C2")->SetValue(Block{{N(1), N(2), N(3)}, {S("a"), S("b"), S("c")}});
  sheet.GetRange("D1")->SetFormula("=A1+B1");
  sheet.UsedRange()->Copy();
  Range::PasteSpecialOptions transpose;
  transpose.paste = -4104;
  transpose.operation = -4142;
  transpose.skip_blanks = false;
  transpose.transpose = true;
  sheet.GetRange("A5")->PasteSpecial(transpose);
  EXPECT_EQ(sheet.GetRange("A5:B7")->Value(),
            (Block{{N(1), S("a")}, {N(2), S("b")}, {N(3), S("c")}}));
  EXPECT_EQ(app.Selection()->Address(), "$A$5:$B$8");
  // Same workbook, no transposition: references move with the paste.
  sheet.GetRange("D1")->Copy();
  sheet.GetRange("D2")->PasteSpecial({});
  EXPECT_EQ(sheet.GetRange("D2")->Formula()[0][0], S("=A2+B2"));
  // Values only into another workbook.
  sheet.GetRange("A1:D1")->Copy();
  Workbook& other = app.GetWorkbooks().Add();
  Range::PasteSpecialOptions values;
  values.paste = -4163;
  other.GetWorksheets().Item(1)->GetRange("B2")->PasteSpecial(values);
  EXPECT_EQ(other.GetWorksheets().Item(1)->GetRange("B2:E2")->Formula(),
            (Block{{S("1"), S("2"), S("3"), S("3")}}));
  other.GetWorksheets().Item(1)->GetRange("B4")->PasteSpecial({});
  EXPECT_EQ(other.GetWorksheets().Item(1)->GetRange("E4")->Formula()[0][0], S("=B4+C4"));
  Range::PasteSpecialOptions add;
  add.operation = 2;
  EXPECT_THROW(other.GetWorksheets().Item(1)->GetRange("A9")->PasteSpecial(add), Error);
  other.Close(false);
  book.Close(false);
}

}  // namespace
}  // namespace tabulon::office::uno::testing
