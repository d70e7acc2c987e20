// Sheets changed in the workbook's structure on a real office: a workbook
// opened read-only, and Worksheet.Copy within a workbook, into another one
// and into a new one.
#include <string>
#include <vector>

#include "office_test_env.h"

namespace tabulon::office::uno::testing {
namespace {

using SheetStructureTest = OfficeTest;
using Names = std::vector<std::string>;

Names SheetNames(Workbook& book) {
  Names names;
  for (int32_t i = 1; i <= book.GetWorksheets().Count(); ++i) names.push_back(book.GetWorksheets().Item(i)->Name());
  return names;
}

// A saved workbook with sheets X (x in A1) and Y, open in `app`.
Workbook& TwoSheets(Application& app, const std::string& path) {
  Workbook& book = app.GetWorkbooks().Add();
  auto x = book.GetWorksheets().Item(1);
  x->SetName("X");
  x->GetRange("A1")->SetValue(Cell(std::string("x")));
  book.GetWorksheets().Add(nullptr, x.get(), kXlWorksheet)->SetName("Y");
  SaveAsOptions xlsx;
  xlsx.file_format = 51;
  book.SaveAs(path, xlsx);
  return book;
}

TEST_F(SheetStructureTest, AReadOnlyWorkbookChangesInMemoryButIsNotSavedOverItsFile) {
  auto& app = SharedExcel();
  const std::string path = Path("book.xlsx").string();
  TwoSheets(app, path).Close(false);
  const std::string bytes = ReadFile(path);
  OpenOptions read_only;
  read_only.read_only = true;
  Workbook& book = app.GetWorkbooks().Open(path, read_only);
  book.GetWorksheets().Item(1)->SetName("Renamed");
  book.GetWorksheets().Add(nullptr, nullptr, kXlWorksheet);
  SaveAsOptions xlsx;
  xlsx.file_format = 51;
  EXPECT_THROW(book.SaveAs(path, xlsx), Error);
  EXPECT_EQ(ReadFile(path), bytes);
  book.SaveAs(Path("other.xlsx").string(), xlsx);
  book.Close(false);
  Workbook& other = app.GetWorkbooks().Open(Path("other.xlsx").string(), read_only);
  EXPECT_EQ(other.GetWorksheets().Count(), 3);
  EXPECT_EQ(other.GetWorksheets().Item("Renamed")->Index(), 2);  // the new sheet went before the active one
  other.Close(false);
}

TEST_F(SheetStructureTest, CopyGoesNextToASheetOfAnyWorkbookOrIntoANewOne) {
  auto& app = SharedExcel();
  Workbook& source = TwoSheets(app, Path("source.xlsx").string());
  Workbook& other = app.GetWorkbooks().Add();
  auto x = source.GetWorksheets().Item("X");

  auto into_other = x->Copy(nullptr, other.GetWorksheets().Item(1).get());
  EXPECT_EQ(SheetNames(other), (Names{"Sheet1", "X"}));
  EXPECT_EQ(&app.ActiveWorkbook(), &other);
  EXPECT_EQ(app.ActiveSheet()->Name(), "X");
  EXPECT_EQ(into_other->GetRange("A1")->Value()[0][0], Cell(std::string("x")));
  x->Copy(other.GetWorksheets().Item(1).get(), nullptr);
  EXPECT_EQ(SheetNames(other), (Names{"X (2)", "Sheet1", "X"}));

  x->Copy(source.GetWorksheets().Item("X").get(), nullptr);  // within its own workbook
  EXPECT_EQ(SheetNames(source), (Names{"X (2)", "X", "Y"}));

  const int32_t open = app.GetWorkbooks().Count();
  auto alone = x->Copy(nullptr, nullptr);
  EXPECT_EQ(app.GetWorkbooks().Count(), open + 1);
  Workbook& fresh = app.ActiveWorkbook();
  EXPECT_EQ(SheetNames(fresh), (Names{"X"}));
  EXPECT_EQ(alone->GetRange("A1")->Value()[0][0], Cell(std::string("x")));
  EXPECT_THROW(x->Copy(fresh.GetWorksheets().Item(1).get(), fresh.GetWorksheets().Item(1).get()), Error);
  app.GetWorkbooks().Close();
}

}  // namespace
}  // namespace tabulon::office::uno::testing
