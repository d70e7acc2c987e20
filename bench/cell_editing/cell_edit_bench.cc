// Cell-edit speed, side by side with python3-openpyxl doing the same edit
// (load, edit, save) on the same files, in one run:
//   DeleteRowsOrColumns           100 scattered rows of the first sheet
//   SearchAndReplaceCellContent   "text" by "txt" in any part of a cell, whole first sheet
//   ChangeNumberFormat            one column of the first sheet
//   TransposeSheetData            the first sheet
// on a tiny workbook and on 5 sheets x 20,000 rows x 10 columns. A sheet has
// 16,384 columns, so 20,000 rows cannot be turned into columns: the big
// transpose turns a 5 x 16,000 x 10 workbook instead. Tabulon runs on a warm
// office (OptimizeForSpeed). Prints the median of the runs and the ratios.
//
// Usage: cell_edit_bench [runs]   (default 3; the big openpyxl jobs run once)
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
#include "office/uno/uno_factory.h"
#include "tabulon/tabulon_ctrl.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
namespace office = tabulon::office;

namespace {

double MedianOf(int runs, const std::function<bool()>& job) {
  std::vector<double> times;
  for (int i = 0; i < runs; ++i) {
    const auto start = Clock::now();
    if (!job()) {
      std::fprintf(stderr, "cell_edit_bench: a job failed\n");
      std::exit(1);
    }
    times.push_back(std::chrono::duration<double>(Clock::now() - start).count());
  }
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

void MakeBook(office::Application& app, const std::string& path, int sheets, int rows) {
  auto& book = app.GetWorkbooks().Add();
  office::Block block(rows, std::vector<office::Cell>(10));
  std::unique_ptr<office::Worksheet> previous;
  for (int s = 0; s < sheets; ++s) {
    auto sheet = s == 0 ? book.GetWorksheets().Item(1)
                        : book.GetWorksheets().Add(nullptr, previous.get(), office::kXlWorksheet);
    sheet->SetName("Sheet" + std::to_string(s + 1));
    for (int r = 0; r < rows; ++r) {
      for (int c = 0; c < 10; ++c) {
        if (c % 3 == 0) {
          block[r][c] = "text " + std::to_string(r) + "," + std::to_string(c);
        } else {
          block[r][c] = r * 10.0 + c + s / 10.0;
        }
      }
    }
    sheet->GetRange("A1:J" + std::to_string(rows))->SetValue(block);
    previous = std::move(sheet);
  }
  office::SaveAsOptions o;
  o.file_format = 51;
  book.SaveAs(path, o);
  book.Close(false);
}

const char* kOpenpyxl = R"(import sys, openpyxl
job, src, dst, rows = sys.argv[1], sys.argv[2], sys.argv[3], int(sys.argv[4])
wb = openpyxl.load_workbook(src)
ws = wb.worksheets[0]
if job == "delete":
    for n in sorted(([2] + [200 * k for k in range(1, 100)]) if rows > 200 else [2], reverse=True):
        ws.delete_rows(n)
elif job == "replace":
    for row in ws.iter_rows():
        for cell in row:
            if isinstance(cell.value, str) and "text" in cell.value:
                cell.value = cell.value.replace("text", "txt")
elif job == "format":
    for (cell,) in ws.iter_rows(min_col=2, max_col=2):
        cell.number_format = "#,##0.00"
elif job == "transpose":
    data = [[c for c in row] for row in ws.iter_rows(values_only=True)]
    ws.delete_rows(1, ws.max_row)
    for r, row in enumerate(data, 1):
        for c, v in enumerate(row, 1):
            ws.cell(row=c, column=r, value=v)
wb.save(dst)
)";

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
  const fs::path dir = fs::temp_directory_path() / ("tabulon-cell-edit-bench-" + std::to_string(getpid()));
  fs::create_directories(dir);
  std::printf("generating workbooks in %s ...\n", dir.c_str());
  const std::string tiny = (dir / "tiny.xlsx").string();
  const std::string big = (dir / "big.xlsx").string();
  const std::string big_turnable = (dir / "big-16000.xlsx").string();
  {
    auto app = office::uno::MakeUnoFactory()->CreateExcel();
    MakeBook(*app, tiny, 1, 3);
    MakeBook(*app, big, 5, 20000);
    MakeBook(*app, big_turnable, 5, 16000);
    app->Quit();
  }
  const std::string script = (dir / "edit.py").string();
  std::ofstream(script) << kOpenpyxl;

  tabulon::TabulonCtrl control;
  control.put_OptimizeForSpeed(true);
  if (!control.get_OptimizeForSpeed()) {
    std::fprintf(stderr, "cell_edit_bench: no office\n");
    return 1;
  }
  const std::string out = (dir / "out.xls").string();
  auto edit = [&](const std::string& job, const std::string& book, int rows) {
    std::string source = book, target = out, sheet = "Sheet1";
    if (job == "delete") {
      std::string list = "2";
      for (int k = 1; k < 100 && rows > 200; ++k) list += "," + std::to_string(200 * k);
      bool columns = false;
      return control.DeleteRowsOrColumns(source, target, sheet, list, columns) == 0;
    }
    if (job == "replace") {
      std::string what = "text", with = "txt", range = "";
      bool match_case = false, part = true, match_byte = false;
      return control.SearchAndReplaceCellContent(source, target, sheet, what, with, range, match_case, part,
                                                 match_byte) == 0;
    }
    if (job == "format") {
      std::string range = "B1:B" + std::to_string(rows), format = "#,##0.00";
      return control.ChangeNumberFormat(source, target, sheet, range, format) == 0;
    }
    return control.TransposeSheetData(source, target, sheet) == 0;
  };
  auto python = [&](const std::string& job, const std::string& book, int rows) {
    const std::string command = "/usr/bin/python3 " + script + " " + job + " " + book + " " +
                                (dir / "py-out.xlsx").string() + " " + std::to_string(rows) + " >/dev/null 2>&1";
    return std::system(command.c_str()) == 0;
  };
  edit("format", tiny, 3);  // the office is warm from here on

  std::printf("\n%-44s %10s %10s %8s %8s\n", "job (median)", "tabulon", "openpyxl", "ratio", "target");
  const char* jobs[] = {"delete", "replace", "format", "transpose"};
  const char* names[] = {"DeleteRowsOrColumns (100 rows)", "SearchAndReplaceCellContent (sheet)",
                         "ChangeNumberFormat (one column)", "TransposeSheetData"};
  bool met = true;
  for (int size = 0; size < 2; ++size) {
    for (int j = 0; j < 4; ++j) {
      const bool turn = std::string(jobs[j]) == "transpose";
      const std::string& book = size == 0 ? tiny : turn ? big_turnable : big;
      const int rows = size == 0 ? 3 : turn ? 16000 : 20000;
      const double t = MedianOf(runs, [&] { return edit(jobs[j], book, rows); });
      const double p = MedianOf(size == 0 ? runs : 1, [&] { return python(jobs[j], book, rows); });
      const double target = size == 0 ? 0.35 : 0.3;
      met = met && t / p <= target;
      std::printf("%-5s %-38s %9.3fs %9.3fs %8.3f %8.2f\n", size == 0 ? "tiny" : "big", names[j], t, p, t / p,
                  target);
    }
  }
  control.put_OptimizeForSpeed(false);
  std::printf("\nevery ratio within its target: %s\n", met ? "yes" : "no");
  fs::remove_all(dir);
  return 0;
}
