// Editing speed, side by side with python3-openpyxl, in one run: RenameSheet,
// AddSheet, DeleteSheet and CopySheetData on a warm office (OptimizeForSpeed)
// against the same edit done by openpyxl (load, edit, save), on
//   tiny   the bundled sample workbook (3 small sheets)
//   big    5 sheets x 20,000 rows x 10 columns
// Every edit reads the workbook and writes a new file, as a script would.
// openpyxl runs as its users run it: one python3 process per edit (start,
// import, load, edit, save); its time inside the process (load, edit, save
// alone) is printed too. Prints the median of several runs and the ratios.
//
// Usage: sheet_ops_bench [runs]   (default 3)
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "office/office.h"
#include "support/big_workbook.h"
#include "office/uno/uno_factory.h"
#include "tabulon/tabulon_ctrl.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

const char* kPython = "/usr/bin/python3";  // Debian's, with python3-openpyxl

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

double MedianOf(int runs, const std::function<bool()>& job) {
  std::vector<double> times;
  for (int i = 0; i < runs; ++i) {
    const auto start = Clock::now();
    if (!job()) {
      std::fprintf(stderr, "sheet_ops_bench: a job failed\n");
      std::exit(1);
    }
    times.push_back(std::chrono::duration<double>(Clock::now() - start).count());
  }
  return Median(times);
}

void MakeBig(const std::string& path) {
  auto app = tabulon::office::uno::MakeUnoFactory()->CreateExcel();
  tabulon::bench::SaveBigWorkbook(*app, path);
  app->Quit();
}

// The openpyxl side: one edit, given by name, on `source`, saved as `target`.
// Prints the seconds spent inside the process on load, edit and save.
const char* kOpenpyxlEdit = R"(import sys, time
t0 = time.perf_counter()
import openpyxl
edit, source, target = sys.argv[1], sys.argv[2], sys.argv[3]
t1 = time.perf_counter()
wb = openpyxl.load_workbook(source)
if edit == 'rename':
    wb.worksheets[0].title = 'Renamed'
elif edit == 'add':
    wb.create_sheet('Added')
elif edit == 'delete':
    wb.remove(wb.worksheets[-1])
elif edit == 'copydata':
    out = openpyxl.Workbook()
    data = out.active
    data.title = 'Data'
    for row in wb.worksheets[0].iter_rows(values_only=True):
        data.append(row)
    wb = out
wb.save(target)
print(time.perf_counter() - t1)
)";

struct Figures {
  double tabulon = 0, openpyxl = 0, openpyxl_inside = 0;
};

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
  if (std::system((std::string(kPython) + " -c 'import openpyxl' 2>/dev/null").c_str()) != 0) {
    std::fprintf(stderr, "sheet_ops_bench: python3-openpyxl is not installed\n");
    return 1;
  }
  const fs::path dir = fs::temp_directory_path() / ("tabulon-sheet-ops-bench-" + std::to_string(getpid()));
  fs::create_directories(dir);
  const std::string tiny = (dir / "tiny.xlsx").string();
  const std::string big = (dir / "big.xlsx").string();
  fs::copy_file(TABULON_SAMPLE, tiny);
  std::printf("generating the big workbook in %s ...\n", dir.c_str());
  MakeBig(big);
  const std::string script = (dir / "edit.py").string();
  std::ofstream(script) << kOpenpyxlEdit;

  tabulon::TabulonCtrl control;
  control.put_OptimizeForSpeed(true);
  if (!control.get_OptimizeForSpeed()) {
    std::fprintf(stderr, "sheet_ops_bench: no office\n");
    return 1;
  }
  const std::string out_xls = (dir / "out.xls").string();
  const std::string out_xlsx = (dir / "out.xlsx").string();
  // One edit by the control, from `source` to a new file.
  auto edit = [&](const std::string& what, const std::string& source) {
    fs::remove(out_xls);
    std::string s = source, t = out_xls, empty, last = "lastlast", first = "1";
    if (what == "rename") {
      std::string name = "Renamed";
      return control.RenameSheet(s, t, first, name) == 0;
    }
    if (what == "add") {
      std::string name = "Added";
      bool overwrite = false;
      return control.AddSheet(s, t, name, empty, last, overwrite) == 0;
    }
    if (what == "delete") {
      std::string sheet = source == tiny ? "3" : "5";
      return control.DeleteSheet(s, t, sheet, empty, empty) == 0;
    }
    std::string sheet = "1", range, data = "Data", to = "A1";
    bool formulas = false, copy_name = false, add = false;
    return control.CopySheetData(s, sheet, range, t, data, to, formulas, copy_name, add) == 0;
  };
  double inside = 0;
  auto openpyxl = [&](const std::string& what, const std::string& source) {
    fs::remove(out_xlsx);
    const std::string command =
        std::string(kPython) + " " + script + " " + what + " " + source + " " + out_xlsx + " 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    char buffer[64] = {};
    const bool read = fgets(buffer, sizeof buffer, pipe) != nullptr;
    const int status = pclose(pipe);
    inside = read ? std::atof(buffer) : 0;
    return read && status == 0 && fs::exists(out_xlsx);
  };

  const std::vector<std::string> edits = {"rename", "add", "delete", "copydata"};
  const char* names[] = {"RenameSheet", "AddSheet", "DeleteSheet", "CopySheetData"};
  edit("rename", tiny);  // the office is warm from here on
  std::vector<Figures> tiny_figures, big_figures;
  for (const auto* book : {&tiny, &big}) {
    for (const std::string& what : edits) {
      Figures f;
      f.tabulon = MedianOf(runs, [&] { return edit(what, *book); });
      std::vector<double> insides;
      f.openpyxl = MedianOf(runs, [&] {
        const bool ok = openpyxl(what, *book);
        insides.push_back(inside);
        return ok;
      });
      f.openpyxl_inside = Median(insides);
      (book == &tiny ? tiny_figures : big_figures).push_back(f);
      std::fprintf(stderr, "  %s %s done\n", book == &tiny ? "tiny" : "big", what.c_str());
    }
  }
  control.put_OptimizeForSpeed(false);

  for (int size = 0; size < 2; ++size) {
    const auto& figures = size == 0 ? tiny_figures : big_figures;
    std::printf("\n%s (median of %d runs)          tabulon   openpyxl  (inside)   ratio  target\n",
                size == 0 ? "tiny: the bundled sample" : "big: 5 x 20000 x 10", runs);
    for (size_t i = 0; i < edits.size(); ++i) {
      const Figures& f = figures[i];
      const double ratio = f.tabulon / f.openpyxl;
      const double target = size == 0 ? 0.35 : 0.3;
      std::printf("  %-30s %8.3fs %9.3fs %8.3fs %7.3f  <= %.2f %s\n", names[i], f.tabulon, f.openpyxl,
                  f.openpyxl_inside, ratio, target, ratio <= target ? "met" : "NOT met");
    }
  }
  std::printf("\ntabulon: warm office, the result saved as .xls (the normal workbook format);\n"
              "openpyxl: one python3 process per edit, the result saved as .xlsx; (inside): its\n"
              "load, edit and save alone, without starting python and importing openpyxl.\n");
  fs::remove_all(dir);
  return 0;
}
