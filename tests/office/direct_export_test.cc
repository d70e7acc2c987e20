// A new workbook that only takes another sheet's values (CopyValueFrom) and
// is saved as text may be written straight from that sheet. Whether or not
// that happens, the file must be the one a filled new workbook writes: each
// case is saved both ways and the bytes compared.
#include <filesystem>
#include <string>
#include <vector>

#include "office_test_env.h"

namespace tabulon::office::uno::testing {
namespace {

namespace fs = std::filesystem;
using DirectExportTest = OfficeTest;

// A flat OpenDocument spreadsheet: one table per entry, rows of cells
// given as raw XML (for what the object model cannot make: hidden rows,
// merged and covered cells, notes, typed values).
std::string FlatSheetBook(const std::vector<std::pair<std::string, std::string>>& tables) {
  std::string xml =
      R"(<?xml version="1.0" encoding="UTF-8"?>
<office:document xmlns:office="urn:oasis:names:tc:opendocument:xmlns:office:1.0"
 xmlns:style="urn:oasis:names:tc:opendocument:xmlns:style:1.0"
 xmlns:text="urn:oasis:names:tc:opendocument:xmlns:text:1.0"
 xmlns:table="urn:oasis:names:tc:opendocument:xmlns:table:1.0"
 xmlns:number="urn:oasis:names:tc:opendocument:xmlns:datastyle:1.0"
 xmlns:fo="urn:oasis:names:tc:opendocument:xmlns:xsl-fo-compatible:1.0"
 xmlns:dc="http://purl.org/dc/elements/1.1/"
 xmlns:of="urn:oasis:names:tc:opendocument:xmlns:of:1.2"
 office:version="1.2" office:mimetype="application/vnd.oasis.opendocument.spreadsheet">
<office:automatic-styles>
 <number:percentage-style style:name="P"><number:number number:decimal-places="1" number:min-integer-digits="1"/><number:text>%</number:text></number:percentage-style>
 <number:date-style style:name="D"><number:year number:style="long"/><number:text>-</number:text><number:month number:style="long"/><number:text>-</number:text><number:day number:style="long"/></number:date-style>
 <style:style style:name="cp" style:family="table-cell" style:data-style-name="P"/>
 <style:style style:name="cd" style:family="table-cell" style:data-style-name="D"/>
 <style:style style:name="bold" style:family="table-cell"><style:text-properties fo:font-weight="bold"/></style:style>
</office:automatic-styles>
<office:body><office:spreadsheet>
)";
  for (const auto& [name, rows] : tables)
    xml += "<table:table table:name=\"" + name + "\">" + rows + "</table:table>\n";
  xml += "</office:spreadsheet></office:body></office:document>\n";
  return xml;
}

std::string Row(const std::string& cells, const std::string& attributes = "") {
  return "<table:table-row" + attributes + ">" + cells + "</table:table-row>";
}
std::string Num(const std::string& v) {
  return "<table:table-cell office:value-type=\"float\" office:value=\"" + v + "\"><text:p>" + v +
         "</text:p></table:table-cell>";
}
std::string Text(const std::string& paragraphs) {
  return "<table:table-cell office:value-type=\"string\">" + paragraphs + "</table:table-cell>";
}
std::string P(const std::string& text) { return "<text:p>" + text + "</text:p>"; }
const std::string kEmpty = "<table:table-cell/>";

struct Case {
  const char* sheet;
  std::string rows;
  bool direct;  // whether the sheet can be written straight
};

const std::vector<Case>& Cases() {
  static const std::vector<Case> cases = {
      {"Plain",
       Row(Text(P("name")) + Text(P("qty")) + Text(P("note"))) +
           Row(Text(P("caf&#xE9;")) + Num("3") + Text(P("a,b"))) +
           Row(Text(P("say &quot;hi&quot;")) + Num("-0.5") + Text(P("two") + P("lines"))) +
           Row(Text(P("<text:s text:c=\"2\"/>lead")) + Num("1e20") + Text(P("007"))) +
           Row(Num("0.30000000000000004") + Num("1.23456789012345e-7") + Num("123456789012345678")),
       true},
      {"Ragged", Row(Num("1")) + Row(kEmpty + kEmpty + Text(P("far"))) + Row(Num("2") + Num("3")), true},
      {"HiddenAndMerged",
       Row(Text(P("shown")) + Num("1")) + Row(Text(P("hidden")) + Num("2"), " table:visibility=\"collapse\"") +
           Row("<table:table-cell table:number-columns-spanned=\"2\" office:value-type=\"string\"><text:p>wide</text:p>"
               "</table:table-cell><table:covered-table-cell/>") +
           Row("<table:table-cell table:style-name=\"bold\" office:value-type=\"float\" office:value=\"4\"><text:p>4</text:p>"
               "</table:table-cell>" + Num("5")),
       true},
      {"FormattedBeyond",
       Row(Num("1") + Num("2")) + Row(kEmpty + kEmpty + kEmpty + "<table:table-cell table:style-name=\"bold\"/>"),
       true},
      {"Typed",
       Row(Text(P("pct")) + "<table:table-cell table:style-name=\"cp\" office:value-type=\"percentage\" "
                            "office:value=\"0.125\"><text:p>12.5%</text:p></table:table-cell>") +
           Row(Text(P("date")) + "<table:table-cell table:style-name=\"cd\" office:value-type=\"date\" "
                                 "office:date-value=\"2024-01-02\"><text:p>2024-01-02</text:p></table:table-cell>") +
           Row(Text(P("bool")) + "<table:table-cell office:value-type=\"boolean\" office:boolean-value=\"true\">"
                                 "<text:p>TRUE</text:p></table:table-cell>"),
       false},
      {"Formulas",
       Row(Num("2") + "<table:table-cell table:formula=\"of:=[.A1]*3\" office:value-type=\"float\" "
                      "office:value=\"6\"><text:p>6</text:p></table:table-cell>") +
           Row("<table:table-cell table:formula=\"of:=1/0\"><text:p>#DIV/0!</text:p></table:table-cell>"),
       false},
      {"Noted",
       Row(Num("1") + "<table:table-cell office:value-type=\"float\" office:value=\"2\"><office:annotation>"
                      "<text:p>a note</text:p></office:annotation><text:p>2</text:p></table:table-cell>"),
       false},
      // The used range counted from A1 misses the data's last row and column.
      {"Offset", Row(kEmpty) + Row(kEmpty + Num("1") + Num("2")) + Row(kEmpty + Num("3") + Num("4")), false},
      {"EmptyTextAtTheEdge",
       Row(Num("1") + Num("2")) + Row(Num("3") + "<table:table-cell office:value-type=\"string\"><text:p/>"
                                                 "</table:table-cell>"),
       true},
  };
  return cases;
}

// The steps of exporting one sheet through a new workbook, with the values
// carried by CopyValueFrom or through this process; returns the bytes.
// The range is the used one counted from A1 unless one is given.
std::string Export(Application& app, Workbook& source, const char* sheet_name, int32_t format,
                   const fs::path& out, bool copy_directly, bool* written_straight, std::string address = "") {
  auto sheet = source.GetWorksheets().Item(sheet_name);
  if (address.empty()) {
    const auto used = sheet->UsedRange();
    address = "$A$1:" + sheet->Cells(used->RowsCount(), used->ColumnsCount())->Address();
  }
  Workbook& fresh = app.GetWorkbooks().Add();
  const auto from = sheet->GetRange(address);
  const auto to = fresh.GetWorksheets().Item(1)->GetRange(address);
  if (copy_directly)
    to->CopyValueFrom(*from);
  else
    to->SetTypedValue(from->Value(), from->ValueKinds());
  auto& uno = dynamic_cast<UnoApplication&>(app);
  const int32_t before = uno.DirectTextExports();
  SaveAsOptions options;
  options.file_format = format;
  fresh.SaveAs(out.string(), options);
  *written_straight = uno.DirectTextExports() > before;
  fresh.SetSaved(true);
  fresh.Close(false);
  return ReadFile(out);
}

TEST_F(DirectExportTest, WritesWhatAFilledNewWorkbookWrites) {
  std::vector<std::pair<std::string, std::string>> tables;
  for (const Case& c : Cases()) tables.emplace_back(c.sheet, c.rows);
  const fs::path book_path = Path("cases.fods");
  WriteFile(book_path, FlatSheetBook(tables));

  auto& app = SharedExcel();
  OpenOptions open;
  open.read_only = true;
  Workbook& source = app.GetWorkbooks().Open(book_path.string(), open);
  for (const int32_t format : {6, 42, 20}) {
    for (const Case& c : Cases()) {
      SCOPED_TRACE(std::string(c.sheet) + " as format " + std::to_string(format));
      bool straight = false;
      bool filled_straight = true;
      const std::string direct = Export(app, source, c.sheet, format, Path("direct.txt"), true, &straight);
      const std::string filled = Export(app, source, c.sheet, format, Path("filled.txt"), false, &filled_straight);
      EXPECT_FALSE(filled_straight);
      EXPECT_EQ(straight, c.direct);
      EXPECT_FALSE(filled.empty());
      EXPECT_EQ(direct, filled);
      // A date arrives as a date in the en-US form, percent as a number.
      if (std::string(c.sheet) == "Typed" && format == 6)
        EXPECT_EQ(direct.substr(0, 26), "pct,0.125\r\ndate,1/2/2024\r\n");
    }
  }
  // Given ranges: one that holds all of the data, and one that cuts it.
  struct Given {
    const char* sheet;
    const char* address;
    bool direct;
  };
  for (const Given& g : {Given{"Offset", "$B$2:$C$3", true}, Given{"Offset", "$A$1:$D$9", true},
                         Given{"Plain", "$B$2:$C$3", false}, Given{"Plain", "$A$1:$C$4", false},
                         Given{"Ragged", "$A$2:$C$3", false}, Given{"Ragged", "$A$1:$B$3", false}}) {
    SCOPED_TRACE(std::string(g.sheet) + " " + g.address);
    bool straight = false;
    bool filled_straight = true;
    const std::string direct = Export(app, source, g.sheet, 6, Path("direct.csv"), true, &straight, g.address);
    const std::string filled =
        Export(app, source, g.sheet, 6, Path("filled.csv"), false, &filled_straight, g.address);
    EXPECT_EQ(straight, g.direct);
    EXPECT_EQ(direct, filled);
  }
  source.Close(false);
}

TEST_F(DirectExportTest, ValuesAreTakenWhenCopiedNotWhenSaved) {
  auto& app = SharedExcel();
  Workbook& source = app.GetWorkbooks().Add();
  auto sheet = source.GetWorksheets().Item(1);
  sheet->GetRange("A1:B1")->SetValue(Block{{Cell(1.0), Cell(std::string("before"))}});

  // The source changes after the copy: the copy keeps the old values.
  Workbook& fresh = app.GetWorkbooks().Add();
  fresh.GetWorksheets().Item(1)->GetRange("A1:B1")->CopyValueFrom(*sheet->GetRange("A1:B1"));
  sheet->GetRange("B1")->SetValue(Cell(std::string("after")));
  SaveAsOptions csv;
  csv.file_format = 6;
  fresh.SaveAs(Path("kept.csv").string(), csv);
  EXPECT_EQ(ReadFile(Path("kept.csv")), "1,before\r\n");

  // The new workbook is an ordinary one to everything else.
  EXPECT_EQ(fresh.GetWorksheets().Item(1)->GetRange("A1:B1")->Value(),
            (Block{{Cell(1.0), Cell(std::string("before"))}}));
  fresh.Close(false);

  // Closing the source first leaves the copy whole.
  Workbook& other = app.GetWorkbooks().Add();
  other.GetWorksheets().Item(1)->GetRange("A1:B1")->CopyValueFrom(*sheet->GetRange("A1:B1"));
  EXPECT_FALSE(other.Saved());
  source.Close(false);
  other.SaveAs(Path("after-close.csv").string(), csv);
  EXPECT_EQ(ReadFile(Path("after-close.csv")), "1,after\r\n");
  EXPECT_TRUE(other.Saved());
  other.Close(false);
}

// The used area is asked for once while only reading calls follow; any
// other call (a write, a save) makes the next question go to the office.
TEST_F(DirectExportTest, UsedAreaFollowsEveryChange) {
  auto& app = SharedExcel();
  Workbook& source = app.GetWorkbooks().Add();
  auto sheet = source.GetWorksheets().Item(1);
  sheet->GetRange("A1:B2")->SetValue(Block{{Cell(1.0), Cell(2.0)}, {Cell(3.0), Cell(4.0)}});
  EXPECT_EQ(sheet->UsedRange()->Address(), "$A$1:$B$2");
  EXPECT_EQ(sheet->Cells(2, 2)->Address(), "$B$2");
  EXPECT_EQ(sheet->UsedRange()->Address(), "$A$1:$B$2");
  sheet->GetRange("D3")->SetValue(Cell(5.0));
  EXPECT_EQ(sheet->UsedRange()->Address(), "$A$1:$D$3");
  sheet->GetRange("D3")->SetValue(Cell());
  EXPECT_EQ(sheet->UsedRange()->Address(), "$A$1:$B$2");

  // The size read before a write beyond it: the sheet now holds more than
  // the copy, so it is not written straight, and the text is the copy's.
  const auto used = sheet->UsedRange();
  const std::string address = "$A$1:" + sheet->Cells(used->RowsCount(), used->ColumnsCount())->Address();
  sheet->GetRange("C1")->SetValue(Cell(9.0));
  Workbook& fresh = app.GetWorkbooks().Add();
  fresh.GetWorksheets().Item(1)->GetRange(address)->CopyValueFrom(*sheet->GetRange(address));
  auto& uno = dynamic_cast<UnoApplication&>(app);
  const int32_t before = uno.DirectTextExports();
  SaveAsOptions csv;
  csv.file_format = 6;
  fresh.SaveAs(Path("grown.csv").string(), csv);
  EXPECT_EQ(uno.DirectTextExports(), before);
  EXPECT_EQ(ReadFile(Path("grown.csv")), "1,2\r\n3,4\r\n");
  fresh.SetSaved(true);
  fresh.Close(false);

  // Unchanged since it was read: written straight, the same text.
  bool straight = false;
  EXPECT_EQ(Export(app, source, "Sheet1", 6, Path("same.csv"), true, &straight), "1,2,9\r\n3,4,\r\n");
  EXPECT_TRUE(straight);
  source.SetSaved(true);
  source.Close(false);
}

}  // namespace
}  // namespace tabulon::office::uno::testing
