// Conversion speed, side by side with the reference tools, in one run:
//   tiny   a one-sheet workbook to CSV
//   big    5 sheets x 20,000 rows x 10 columns to one CSV per sheet
// Tabulon runs on a warm office (OptimizeForSpeed); the reference tools
// (soffice --headless --convert-to, ssconvert) run as the one-shot commands
// their users run. Prints the median of several runs and the ratios.
//
// Usage: convert_bench [runs]   (default 5)
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
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

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

double TimeOnce(const std::function<bool()>& job) {
  const auto start = Clock::now();
  if (!job()) {
    std::fprintf(stderr, "convert_bench: a job failed\n");
    std::exit(1);
  }
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double MedianOf(int runs, const std::function<bool()>& job) {
  std::vector<double> times;
  for (int i = 0; i < runs; ++i) times.push_back(TimeOnce(job));
  return Median(times);
}

bool Shell(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

bool Have(const char* tool) { return Shell(std::string("command -v ") + tool); }

void MakeWorkbooks(const fs::path& dir) {
  auto factory = tabulon::office::uno::MakeUnoFactory();
  auto app = factory->CreateExcel();
  {
    auto& book = app->GetWorkbooks().Add();
    book.GetWorksheets().Item(1)->GetRange("A1:C3")->SetValue(
        tabulon::office::Block{{"id", "name", "value"}, {1.0, "one", 1.5}, {2.0, "two", 2.5}});
    tabulon::office::SaveAsOptions o;
    o.file_format = 51;
    book.SaveAs((dir / "tiny.xlsx").string(), o);
    book.Close(false);
  }
  tabulon::bench::SaveBigWorkbook(*app, (dir / "big.xlsx").string());
  app->Quit();
}

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
  const fs::path dir = fs::temp_directory_path() / ("tabulon-convert-bench-" + std::to_string(getpid()));
  fs::create_directories(dir);
  std::printf("generating workbooks in %s ...\n", dir.c_str());
  MakeWorkbooks(dir);
  const std::string tiny = (dir / "tiny.xlsx").string();
  const std::string big = (dir / "big.xlsx").string();

  tabulon::TabulonCtrl control;
  control.put_OptimizeForSpeed(true);
  if (!control.get_OptimizeForSpeed()) {
    std::fprintf(stderr, "convert_bench: no office\n");
    return 1;
  }
  auto convert = [&](const std::string& source, const std::string& target, bool per_sheet) {
    control.put_CO_MultiFileOutput(per_sheet);
    std::string s = source, sheets = "*", t = target;
    int32_t type = 6;
    bool formulas = false;
    return control.OpenXLSSaveAs(s, sheets, t, type, formulas) == 0;
  };
  convert(tiny, (dir / "warmup.csv").string(), false);  // the office is warm from here on

  const double tab_tiny = MedianOf(runs, [&] { return convert(tiny, (dir / "t-tiny.csv").string(), false); });
  const double tab_big = MedianOf(runs, [&] { return convert(big, (dir / "t-big.csv").string(), true); });
  control.put_OptimizeForSpeed(false);

  // The floor under any conversion that opens the workbook in the office:
  // the office's own open and close of the big workbook, warm.
  double office_open = 0;
  {
    auto app = tabulon::office::uno::MakeUnoFactory()->CreateExcel();
    tabulon::office::OpenOptions read_only;
    read_only.read_only = true;
    app->GetWorkbooks().Open(tiny, read_only).Close(false);  // warm-up
    office_open = MedianOf(runs, [&] {
      app->GetWorkbooks().Open(big, read_only).Close(false);
      return true;
    });
    app->Quit();
  }

  const std::string soffice = "/usr/lib/libreoffice/program/soffice";
  const std::string profile = "-env:UserInstallation=file://" + (dir / "soffice-profile").string();
  Shell(soffice + " --headless " + profile + " --terminate_after_init");  // its first-start profile set-up, untimed
  const double so_tiny = MedianOf(runs, [&] {
    return Shell(soffice + " --headless " + profile + " --convert-to csv --outdir " + (dir / "so-tiny").string() +
                 " " + tiny);
  });
  const double so_big = MedianOf(runs, [&] {
    return Shell(soffice + " --headless " + profile +
                 " --convert-to 'csv:Text - txt - csv (StarCalc):44,34,76,1,,1033,false,true,false,false,false,-1'"
                 " --outdir " + (dir / "so-big").string() + " " + big);
  });

  double ss_tiny = 0, ss_big = 0;
  const bool ssconvert = Have("ssconvert");
  if (ssconvert) {
    ss_tiny = MedianOf(runs, [&] { return Shell("ssconvert " + tiny + " " + (dir / "ss-tiny.csv").string()); });
    ss_big = MedianOf(runs, [&] {
      return Shell("ssconvert -S " + big + " " + (dir / "ss-big-%n.csv").string());
    });
  }

  std::printf("\n%-34s %10s %10s %10s\n", "job (median of runs)", "tabulon", "soffice", "ssconvert");
  std::printf("%-34s %9.3fs %9.3fs %9.3fs\n", "tiny 1 sheet -> csv", tab_tiny, so_tiny, ss_tiny);
  std::printf("%-34s %9.3fs %9.3fs %9.3fs\n", "5 x 20000 x 10 -> csv per sheet", tab_big, so_big, ss_big);
  std::printf("\nratios (tabulon / reference; below 1 is faster)\n");
  std::printf("  tiny: vs soffice %.3f", tab_tiny / so_tiny);
  if (ssconvert) std::printf(", vs ssconvert %.3f (target <= 1)", tab_tiny / ss_tiny);
  std::printf("\n  big:  vs soffice %.3f (target <= 0.5)", tab_big / so_big);
  if (ssconvert) std::printf(", vs ssconvert %.3f", tab_big / ss_big);
  std::printf("\n\nthe office alone opening and closing the big workbook (warm): %.3fs, %.3f of soffice's run\n",
              office_open, office_open / so_big);
  fs::remove_all(dir);
  return 0;
}
