#include "copy_data_env.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "office/uno/uno_factory.h"
#include "support/processes.h"
#include "support/shared_offices.h"

namespace tabulon::testing {

namespace {

namespace fs = std::filesystem;
using office::Block;
using office::Cell;

const Cell kEmpty{};

struct Shared {
  CopyFixtures fixtures;
  std::unique_ptr<office::Application> reader;
  std::shared_ptr<SpyFactory> factory;
  std::unique_ptr<TabulonCtrl> warm;
};

Shared* g_shared = nullptr;

void WriteFixtures(office::Application& app, CopyFixtures& f) {
  f.dir = fs::temp_directory_path() / ("tabulon-copy-data-" + std::to_string(getpid()));
  fs::create_directories(f.dir / "fixtures");
  f.source = (f.dir / "fixtures" / "source.xlsx").string();
  f.target = (f.dir / "fixtures" / "target.xls").string();

  office::Workbook& book = app.GetWorkbooks().Add();
  office::Worksheets& all = book.GetWorksheets();
  const std::vector<SheetCells> sheets = {
      {"North", {{"name", "qty"}, {"pens", 3.0}, {"ink", 4.0}}},
      {"South", {{"x", "y"}, {1.0, 2.0}}},
      {"Third", {{"third"}}},
      {"3", {{"named three"}}},
      {"Offset", {{kEmpty, kEmpty, kEmpty}, {kEmpty, "b2", "c2"}, {kEmpty, "b3", "c3"}}},
      {"Formulas", {{1.0, 2.0}}},
  };
  std::unique_ptr<office::Worksheet> previous;
  for (size_t i = 0; i < sheets.size(); ++i) {
    auto sheet = i == 0 ? all.Item(1) : all.Add(nullptr, previous.get(), office::kXlWorksheet);
    sheet->SetName(sheets[i].name);
    const Block& data = sheets[i].cells;
    sheet->GetRange(BlockAddress(*sheet, data.size(), data[0].size()))->SetValue(data);
    previous = std::move(sheet);
  }
  previous->GetRange("C1:D1")->SetFormula(Block{{"=SUM(A1:B1)", "=A1*10"}});
  office::SaveAsOptions xlsx;
  xlsx.file_format = 51;
  book.SaveAs(f.source, xlsx);
  book.Close(false);

  Block used;
  for (int r = 1; r <= 10; ++r) used.push_back({"r" + std::to_string(r), static_cast<double>(r)});
  SaveBook(app, f.target, {{"A", {}}, {"B", {}}, {"C", {}}, {"3", {}}, {"Used", used}}, office::kXlWorkbookNormal);
}

class Environment : public ::testing::Environment {
 public:
  void TearDown() override {
    if (g_shared == nullptr) return;
    EndSharedOffices(g_shared->warm, g_shared->reader.get(), g_shared->fixtures.dir, "copy");
    delete g_shared;
    g_shared = nullptr;
  }
};

Shared& Get() {
  if (g_shared == nullptr) {
    g_shared = new Shared;
    g_shared->reader = office::uno::MakeUnoFactory()->CreateExcel();
    WriteFixtures(*g_shared->reader, g_shared->fixtures);
    g_shared->factory = std::make_shared<SpyFactory>(office::uno::MakeUnoFactory());
    ControlOptions options;
    options.office = g_shared->factory;
    g_shared->warm = std::make_unique<TabulonCtrl>(options);
    g_shared->warm->put_OptimizeForSpeed(true);
    ::testing::AddGlobalTestEnvironment(new Environment);
  }
  return *g_shared;
}

CopyOutcome Run(TabulonCtrl& control, CopyCall call, bool ex) {
  CopyOutcome out;
  const uint32_t cookie =
      control.AdviseOnError([&](int32_t& code, std::string& text) { out.events.emplace_back(code, text); });
  auto method = ex ? &TabulonCtrl::CopySheetDataEx : &TabulonCtrl::CopySheetData;
  out.code = (control.*method)(call.original, call.sheet_original, call.from, call.target, call.sheet_target, call.to,
                               call.formulas, call.copy_name, call.add_sheets);
  control.UnadviseOnError(cookie);
  out.error = control.get_ErrorString();
  out.after = call;
  return out;
}

}  // namespace

const CopyFixtures& Fixtures() { return Get().fixtures; }
office::Application& Reader() { return *Get().reader; }

std::vector<SheetCells> Read(const std::string& path, bool formulas) { return ReadBook(Reader(), path, formulas); }

SheetCells SheetOf(const std::vector<SheetCells>& book, const std::string& name) {
  for (const SheetCells& sheet : book) {
    if (sheet.name == name) return sheet;
  }
  return {};
}

TabulonCtrl& WarmControl() { return *Get().warm; }
OfficeSpy& WarmSpy() { return Get().factory->spy(); }

void ResetWarmControl() {
  TabulonCtrl& c = WarmControl();
  c.put_InputFile_PassWord("");
  c.put_InputFile_PassWord_TW("");
  c.put_OutputFile_PassWord("");
  c.put_OutputFile_PassWord_TW("");
  c.put_ErrorString(" ");
  WarmSpy().opens.clear();
}

ColdControl::ColdControl() : factory(std::make_shared<SpyFactory>(office::uno::MakeUnoFactory())) {
  Get();
  ControlOptions options;
  options.office = factory;
  control = std::make_unique<TabulonCtrl>(options);
}

fs::path TestFolder(const std::string& name) {
  const fs::path folder = Fixtures().dir / "tests" / name;
  fs::remove_all(folder);
  fs::create_directories(folder);
  return folder;
}

std::string CopyOf(const std::string& fixture, const fs::path& folder, const std::string& name) {
  const fs::path copy = folder / name;
  fs::copy_file(fixture, copy, fs::copy_options::overwrite_existing);
  return copy.string();
}

std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

CopyOutcome RunCopy(TabulonCtrl& control, CopyCall call) { return Run(control, std::move(call), false); }
CopyOutcome RunCopyEx(TabulonCtrl& control, CopyCall call) { return Run(control, std::move(call), true); }

}  // namespace tabulon::testing
