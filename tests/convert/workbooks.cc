#include "workbooks.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "office/uno/uno_factory.h"
#include "support/books.h"
#include "support/processes.h"
#include "support/shared_offices.h"

namespace tabulon::testing {

namespace {

using office::Block;

struct Shared {
  Fixtures fixtures;
  std::shared_ptr<SpyFactory> factory;
  std::unique_ptr<TabulonCtrl> control;
};

Shared* g_shared = nullptr;

// A new one-sheet workbook, filled by `fill`, saved and closed.
template <typename Fill>
void SaveOneSheet(office::Application& app, const std::string& path, const office::SaveAsOptions& options, Fill fill) {
  office::Workbook& book = app.GetWorkbooks().Add();
  fill(*book.GetWorksheets().Item(1));
  book.SaveAs(path, options);
  book.Close(false);
}

// Writes every fixture with an office of its own, quit before the tests run.
void WriteFixtures(Fixtures& f) {
  f.dir = std::filesystem::temp_directory_path() / ("tabulon-convert-" + std::to_string(getpid()));
  std::filesystem::create_directories(f.dir);
  f.three_sheets = (f.dir / "three.xlsx").string();
  f.named_seven = (f.dir / "seven.xlsx").string();
  f.leading_rows = (f.dir / "leading.xlsx").string();
  f.formulas = (f.dir / "formulas.xlsx").string();
  f.semicolons = (f.dir / "semicolons.csv").string();
  f.protected_book = (f.dir / "protected.ods").string();
  f.typed_cells = (f.dir / "typed.xlsx").string();

  auto factory = office::uno::MakeUnoFactory();
  auto app = factory->CreateExcel();
  SaveBook(*app, f.three_sheets,
           {{"North", {{"name", "qty"}, {"caf\xC3\xA9", 3.0}, {"a,b", 4.0}}},
            {"South", {{"x", "y"}, {1.0, 2.0}}},
            {"Totals", {{"total"}, {7.0}}}});
  SaveBook(*app, f.named_seven, {{"Data", {{"v"}, {1.0}}}, {"7", {{"seven"}, {7.0}}}, {"Blank", {}}});
  office::SaveAsOptions xlsx;
  xlsx.file_format = 51;
  SaveOneSheet(*app, f.leading_rows, xlsx, [](office::Worksheet& sheet) {
    sheet.GetRange("A2:B4")->SetValue(Block{{"top", "right"}, {"mid", "middle"}, {"bottom", "last"}});
  });
  SaveOneSheet(*app, f.formulas, xlsx, [](office::Worksheet& sheet) {
    sheet.GetRange("A1:B1")->SetValue(Block{{1.0, 2.0}});
    sheet.GetRange("C1")->SetFormula("=SUM(A1:B1)");
  });
  office::SaveAsOptions locked;
  locked.file_format = 60;
  locked.password = "pw";
  SaveOneSheet(*app, f.protected_book, locked, [](office::Worksheet& sheet) {
    sheet.SetName("Locked");
    sheet.GetRange("A1")->SetValue(office::Cell(std::string("secret")));
  });
  SaveOneSheet(*app, f.typed_cells, xlsx, [](office::Worksheet& sheet) {
    sheet.GetRange("A1:B12")->SetValue(Block{{"date", 45306.0},
                                             {"time", 14.5 / 24},
                                             {"datetime", 45306.5},
                                             {"currency", 1234.5},
                                             {"debit", -5.0},
                                             {"percent", 0.25},
                                             {"fixed", 3.14159},
                                             {"plain", 42.0},
                                             {"text", "1/2"},
                                             {"none", std::string()},
                                             {"logical", 1.0},
                                             {"end", 1.0}});
    sheet.GetRange("B1")->SetNumberFormat("d-mmm-yy");
    sheet.GetRange("B2")->SetNumberFormat("h:mm");
    sheet.GetRange("B3")->SetNumberFormat("yyyy-mm-dd hh:mm");
    sheet.GetRange("B4:B5")->SetNumberFormat("[$$-409]#,##0.00");
    sheet.GetRange("B6")->SetNumberFormat("0%");
    sheet.GetRange("B7")->SetNumberFormat("0.00");
    sheet.GetRange("B9:B10")->SetNumberFormat("m/d/yyyy");
    sheet.GetRange("B11")->SetNumberFormat("BOOLEAN");
  });
  app->Quit();
  std::ofstream(f.semicolons, std::ios::binary) << "a;b\r\n1;2\r\n";
}

class Environment : public ::testing::Environment {
 public:
  void TearDown() override {
    if (g_shared == nullptr) return;
    EndSharedOffices(g_shared->control, nullptr, g_shared->fixtures.dir, "conversion");
    delete g_shared;
    g_shared = nullptr;
  }
};

Shared& Get() {
  if (g_shared == nullptr) {
    g_shared = new Shared;
    WriteFixtures(g_shared->fixtures);
    g_shared->factory = std::make_shared<SpyFactory>(office::uno::MakeUnoFactory());
    ControlOptions options;
    options.office = g_shared->factory;
    g_shared->control = std::make_unique<TabulonCtrl>(options);
    g_shared->control->put_OptimizeForSpeed(true);
    ::testing::AddGlobalTestEnvironment(new Environment);
  }
  return *g_shared;
}

}  // namespace

const Fixtures& GetFixtures() { return Get().fixtures; }
TabulonCtrl& SharedControl() { return *Get().control; }
OfficeSpy& SharedSpy() { return Get().factory->spy(); }

void ResetSharedControl() {
  TabulonCtrl& c = SharedControl();
  c.put_CO_DelimitationCharacter(44);
  c.put_CO_MultiFileOutput(false);
  c.put_CO_Range("");
  c.put_SkipEmptySheets(false);
  c.put_InputFile_PassWord("");
  c.put_InputFile_PassWord_TW("");
  c.put_OutputFile_PassWord("");
  c.put_OutputFile_PassWord_TW("");
  c.put_ErrorString(" ");
  SharedSpy().opens.clear();
}

std::filesystem::path OutputFolder(const std::string& name) {
  const auto dir = GetFixtures().dir / "out" / name;
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  return dir;
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

}  // namespace tabulon::testing
