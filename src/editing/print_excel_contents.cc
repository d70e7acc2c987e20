// PrintExcelContents: the listed sheets of a workbook, or ranges of each,
// printed on a printer or into a file.
#include <filesystem>
#include <string>
#include <vector>

#include "control/control_state.h"
#include "control/workbook_method.h"
#include "convert/sheet_discovery.h"
#include "convert/sheet_list.h"
#include "convert/sheet_lookup.h"
#include "util/file_helpers.h"

namespace tabulon {

namespace {

// As many names as the resolver may find: the item parser's limit.
constexpr size_t kMaxSheets = 1000;

std::string Trim(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The ranges printed on every sheet; none: the sheet's used area.
std::vector<std::string> RangeList(const std::string& ranges) {
  std::vector<std::string> list;
  for (const std::string& part : Split(RemoveDoubleQuotes(ranges), ',')) {
    std::string range = Trim(part);
    if (!range.empty()) list.push_back(std::move(range));
  }
  return list;
}

// Where print job `job` (1-based) of `jobs` goes: the file asked for when it
// is the only one, else "<base>-<job>.<ext>" beside it.
std::string JobFile(const std::string& file, int32_t job, int32_t jobs) {
  if (jobs <= 1 || job == 1) return file;
  const std::filesystem::path path(file);
  return (path.parent_path() / (path.stem().string() + "-" + std::to_string(job) + path.extension().string())).string();
}

bool OfficeLost(const office::Error& error) {
  return error.kind() == office::ErrorKind::kDied || error.kind() == office::ErrorKind::kTimeout;
}

}  // namespace

int32_t TabulonCtrl::PrintExcelContents(std::string& sPathOriginal, std::string& sPrintToFileName, std::string& sSheets,
                                        std::string& sRanges, std::string& sPrinter, int32_t& lNumCopies,
                                        int32_t& lFromPage, int32_t& lToPage, bool& bCollate, bool& bPrintToFile) {
  sPathOriginal = RemoveDoubleQuotes(sPathOriginal);
  sSheets = RemoveDoubleQuotes(sSheets);
  std::vector<std::string> names(kMaxSheets);
  int32_t found = 0;

  WorkbookMethod method(*state_, sPathOriginal, sPrintToFileName);
  if (!bPrintToFile) method.WithoutTargetFolder();
  method.BeforeStart([&]() -> int32_t {
    found = ResolveSheetNames(*state_, sPathOriginal, sSheets, names, true);
    if (found < 1) return state_->Fail(kSheetMissing, msg::kSourceSheetMissing);
    names.resize(static_cast<size_t>(found));
    return kSuccess;
  });

  return method.Run([&](MethodStep& step) {
    step.SkipSave();  // printing never writes the workbook
    office::PrintOutOptions options;
    options.copies = lNumCopies;
    options.active_printer = sPrinter;
    options.print_to_file = bPrintToFile;
    options.collate = bCollate;
    if (lFromPage > 0) options.from = lFromPage;
    if (lToPage > 0) options.to = lToPage;

    const std::vector<std::string> ranges = RangeList(sRanges);
    const int32_t jobs = static_cast<int32_t>(names.size() * std::max<size_t>(ranges.size(), 1));
    int32_t job = 0;
    bool missing = false;
    auto print = [&](auto& printable) {
      ++job;
      if (bPrintToFile) options.pr_to_file_name = JobFile(sPrintToFileName, job, jobs);
      printable.PrintOut(options);
    };
    for (const std::string& name : names) {
      const auto sheet = GetSheetByNameOrIndex(step.book(), name);
      if (!sheet) {
        missing = true;
        job += static_cast<int32_t>(std::max<size_t>(ranges.size(), 1));
        continue;
      }
      if (ranges.empty()) print(*sheet);
      for (const std::string& address : ranges) {
        std::unique_ptr<office::Range> range;
        try {
          range = sheet->GetRange(address);
        } catch (const office::Error& error) {
          if (OfficeLost(error)) throw;
        }
        if (!range) {
          missing = true;
          ++job;
          continue;
        }
        print(*range);
      }
    }
    if (missing) step.Fail(kInvalidSheets, msg::kInvalidSheets);
  });
}

}  // namespace tabulon
