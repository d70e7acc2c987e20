// Application.Run on a workbook's Basic macros, and Worksheet.PrintOut to a
// file.
#include <filesystem>

#include "office_test_env.h"

namespace tabulon::office::uno::testing {
namespace {

using MacroPrintTest = OfficeTest;

// A flat OpenDocument spreadsheet with one Basic module.
std::string FlatSpreadsheetWithMacro() {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
         "<office:document xmlns:office=\"urn:oasis:names:tc:opendocument:xmlns:office:1.0\" "
         "xmlns:table=\"urn:oasis:names:tc:opendocument:xmlns:table:1.0\" "
         "xmlns:text=\"urn:oasis:names:tc:opendocument:xmlns:text:1.0\" "
         "xmlns:script=\"urn:oasis:names:tc:opendocument:xmlns:script:1.0\" "
         "xmlns:ooo=\"http://openoffice.org/2004/office\" office:version=\"1.2\" "
         "office:mimetype=\"application/vnd.oasis.opendocument.spreadsheet\">"
         "<office:scripts><office:script script:language=\"ooo:Basic\"><ooo:libraries>"
         "<ooo:library-embedded ooo:name=\"Standard\"><ooo:module ooo:name=\"Tools\">"
         "<ooo:source-code>Sub Touch(a As String, b As String)\n"
         "  ThisComponent.setModified(a = b)\n"
         "End Sub\n"
         "Sub Mark()\n"
         "  ThisComponent.setModified(True)\n"
         "End Sub\n"

         "</ooo:source-code></ooo:module></ooo:library-embedded></ooo:libraries></office:script>"
         "</office:scripts>"
         "<office:body><office:spreadsheet><table:table table:name=\"Sheet1\"><table:table-row>"
         "<table:table-cell office:value-type=\"string\"><text:p>x</text:p></table:table-cell>"
         "</table:table-row></table:table><table:table table:name=\"Other\"><table:table-row>"
         "<table:table-cell office:value-type=\"string\"><text:p>y</text:p></table:table-cell>"
         "</table:table-row></table:table></office:spreadsheet></office:body></office:document>";
}

Cell S(const char* s) { return Cell(std::string(s)); }

// The macros change their workbook's modified flag, which Saved shows.
TEST_F(MacroPrintTest, RunsBasicMacrosOfOpenWorkbooksByTheirExcelNames) {
  auto& app = SharedExcel();
  WriteFile(Path("macros.fods"), FlatSpreadsheetWithMacro());
  Workbook& book = app.GetWorkbooks().Open(Path("macros.fods"), {});
  EXPECT_TRUE(book.Saved());
  app.Run("Tools.Touch", {"x", "x"});
  EXPECT_FALSE(book.Saved());
  app.Run("Standard.Tools.Touch", {"x", "y"});
  EXPECT_TRUE(book.Saved());
  // Another workbook is active: the macro is still found, also through the
  // workbook's name.
  Workbook& other = app.GetWorkbooks().Add();
  app.Run("mark", {});
  EXPECT_FALSE(book.Saved());
  book.SetSaved(true);
  app.Run("'macros.fods'!Tools.Mark", {});
  EXPECT_FALSE(book.Saved());
  EXPECT_TRUE(other.Saved());
  for (const char* missing : {"Nope", "Tools.Nope", "Other.Tools.Touch", "'book.xls'!Mark", "a.b.c.d"})
    EXPECT_THROW(app.Run(missing, {}), Error) << missing;
  EXPECT_THROW(app.Run("Mark", std::vector<std::string>(9, "x")), Error);
  other.Close(false);
  book.Close(false);
}

TEST_F(MacroPrintTest, PrintsOneSheetToAFile) {
  auto& app = SharedExcel();
  Workbook& book = app.GetWorkbooks().Add();
  book.GetWorksheets().Item(1)->GetRange("A1")->SetValue(S("printed"));
  PrintOutOptions options;
  options.copies = 1;
  options.print_to_file = true;
  options.collate = true;
  options.pr_to_file_name = Path("out.ps").string();
  book.GetWorksheets().Item(1)->PrintOut(options);
  const std::string written = ReadFile(Path("out.ps"));
  EXPECT_FALSE(written.empty());
  PrintOutOptions no_name;
  no_name.print_to_file = true;
  EXPECT_THROW(book.GetWorksheets().Item(1)->PrintOut(no_name), Error);

  // An opened workbook (which has no view until one is needed) prints too.
  SaveAsOptions ods;
  ods.file_format = 60;
  book.SaveAs(Path("printed.ods").string(), ods);
  book.Close(false);
  Workbook& opened = app.GetWorkbooks().Open(Path("printed.ods").string(), {});
  options.pr_to_file_name = Path("opened.ps").string();
  opened.GetWorksheets().Item(1)->PrintOut(options);
  EXPECT_FALSE(ReadFile(Path("opened.ps")).empty());
  opened.Close(false);
}

}  // namespace
}  // namespace tabulon::office::uno::testing
