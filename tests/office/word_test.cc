// The word-processor side: tables of a document, deleting rows and columns,
// and copying a table into a sheet through the shared clipboard.
#include <filesystem>

#include "office_test_env.h"

namespace tabulon::office::uno::testing {
namespace {

using WordTest = OfficeTest;

Cell S(const char* s) { return Cell(std::string(s)); }
Cell N(double d) { return Cell(d); }

std::string Row(std::initializer_list<const char*> cells) {
  std::string xml = "<table:table-row>";
  for (const char* c : cells)
    xml += std::string("<table:table-cell office:value-type=\"string\"><text:p>") + c +
           "</text:p></table:table-cell>";
  return xml + "</table:table-row>";
}

// A flat OpenDocument text with two tables.
std::string FlatDocument() {
  return std::string(
             "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
             "<office:document xmlns:office=\"urn:oasis:names:tc:opendocument:xmlns:office:1.0\" "
             "xmlns:text=\"urn:oasis:names:tc:opendocument:xmlns:text:1.0\" "
             "xmlns:table=\"urn:oasis:names:tc:opendocument:xmlns:table:1.0\" office:version=\"1.2\" "
             "office:mimetype=\"application/vnd.oasis.opendocument.text\">"
             "<office:body><office:text><text:p>Prices</text:p>"
             "<table:table table:name=\"First\"><table:table-column table:number-columns-repeated=\"3\"/>") +
         Row({"item", "price", "note"}) + Row({"tea", "12", "café"}) + Row({"milk", "3.5", "=x"}) +
         "</table:table><text:p>More</text:p>"
         "<table:table table:name=\"Second\"><table:table-column table:number-columns-repeated=\"2\"/>" +
         Row({"a", "b"}) + "</table:table></office:text></office:body></office:document>";
}

TEST_F(WordTest, ReadsDeletesAndCopiesTablesIntoASheet) {
  WriteFile(Path("doc.fodt"), FlatDocument());
  const std::string original = ReadFile(Path("doc.fodt"));
  auto word = OwnWord();
  const pid_t pid = word->ProcessId();
  EXPECT_EQ(word->Version(), "7.4");
  word->SetDisplayAlerts(0);
  word->SetVisible(false);
  EXPECT_EQ(word->Switches(), (std::vector<SwitchRecord>{{"DisplayAlerts", 0}, {"Visible", 0}}));

  DocumentOpenOptions options;
  options.read_only = true;
  options.confirm_conversions = false;
  options.add_to_recent_files = false;
  Document& doc = word->Open(Path("doc.fodt"), options);
  EXPECT_EQ(&word->ActiveDocument(), &doc);
  ASSERT_EQ(doc.TablesCount(), 2);
  auto first = doc.Tables(1);
  EXPECT_EQ(first->RowsCount(), 3);
  EXPECT_EQ(first->ColumnsCount(), 3);
  EXPECT_EQ(doc.Tables(2)->Cells(), (Block{{S("a"), S("b")}}));
  try {
    doc.Tables(3);
    FAIL();
  } catch (const Error& e) {
    EXPECT_EQ(e.kind(), ErrorKind::kNotFound);
  }
  first->RowDelete(1);
  first->ColumnDelete(3);
  EXPECT_EQ(first->Cells(), (Block{{S("tea"), S("12")}, {S("milk"), S("3.5")}}));
  EXPECT_THROW(first->RowDelete(5), Error);

  // Into a sheet at the selection; the pasted block becomes the selection.
  first->RangeCopy();
  auto& excel = SharedExcel();
  Workbook& book = excel.GetWorkbooks().Add();
  auto sheet = book.GetWorksheets().Item(1);
  sheet->GetRange("B2")->Select();
  excel.ActiveSheet()->Paste();
  EXPECT_EQ(sheet->GetRange("B2:C3")->Value(), (Block{{S("tea"), N(12)}, {S("milk"), N(3.5)}}));
  EXPECT_EQ(excel.Selection()->Address(), "$B$2:$C$3");
  doc.Tables(1)->ColumnDelete(1);
  doc.Tables(1)->RangeCopy();
  sheet->Cells(5, 1)->Select();
  excel.ActiveSheet()->PasteSpecialValues();
  EXPECT_EQ(sheet->GetRange("A5:A6")->Value(), (Block{{N(12)}, {N(3.5)}}));
  book.Close(false);

  // Text that looks like a formula stays text.
  Document& again = word->Open(Path("doc.fodt"), options);
  auto table = again.Tables(1);
  table->RangeCopy();
  Workbook& other = excel.GetWorkbooks().Add();
  excel.ActiveSheet()->Paste();
  EXPECT_EQ(other.GetWorksheets().Item(1)->GetRange("C3")->Value()[0][0], S("=x"));
  EXPECT_EQ(other.GetWorksheets().Item(1)->GetRange("C2")->Value()[0][0], S("café"));
  other.Close(false);

  doc.Close(false);
  again.Close(false);
  EXPECT_THROW(word->ActiveDocument(), Error);
  // The read-only document's file is untouched.
  EXPECT_EQ(ReadFile(Path("doc.fodt")), original);
  EXPECT_THROW(word->Open(Path("missing.docx"), {}), Error);
  word->Quit();
  EXPECT_TRUE(EventuallyGone(pid));
  EXPECT_THROW(word->Version(), Error);
}

}  // namespace
}  // namespace tabulon::office::uno::testing
