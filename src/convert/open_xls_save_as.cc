// OpenXLSSaveAs: open one workbook and write all or some of its sheets in
// another file format, whole or sheet by sheet, and join the text outputs.
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string>
#include <vector>

#include "control/control_state.h"
#include "control/workbook_method.h"
#include "convert/sheet_lookup.h"
#include "convert/sheet_selection.h"
#include "util/file_helpers.h"

namespace tabulon {

namespace {

// Formats that hold several sheets: "*" saves the whole workbook in one go.
constexpr int32_t kWorkbookFormats[] = {-4143, -2, 16, 17, 18, 27, 29, 33, 35, 39, 43, 50, 51, 52, 53, 54, 55};
// Text formats whose per-sheet outputs are joined into the target.
constexpr int32_t kTextFormats[] = {6, 19, 20, 21, 22, 23, 24, 36, 42};

template <size_t N>
bool OneOf(const int32_t (&set)[N], int32_t value) {
  return std::find(std::begin(set), std::end(set), value) != std::end(set);
}

// Folder, base name and extension of the target, which per-sheet outputs are
// named after: "<folder><base>-<n or name>[.<ext>]".
struct OutputNaming {
  std::string folder;
  std::string base;
  std::string extension;

  explicit OutputNaming(const std::string& target) : folder(GetFolderOfPath(target)) {
    const std::string name = target.substr(folder.size());
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos) {
      base = name;
    } else {
      base = name.substr(0, dot);
      extension = name.substr(dot + 1);
    }
  }

  std::string For(const std::string& sheet) const {
    std::string out = folder + base + "-" + sheet;
    if (!extension.empty()) out += "." + extension;
    return out;
  }
};

std::string TrimBlanks(const std::string& text) {
  const size_t begin = text.find_first_not_of(' ');
  if (begin == std::string::npos) return {};
  return text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

class SheetExport {
 public:
  SheetExport(TabulonCtrl::State& state, office::Application& app, int32_t type, bool formulas)
      : state_(state), app_(app), type_(type), formulas_(formulas) {}

  // Writes the active sheet (the given range, or the used area counted from
  // A1) through a fresh one-sheet workbook.
  void Export(office::Worksheet& source, const std::string& output) {
    if (state_.range_text.find('*') != std::string::npos) state_.range_text.clear();
    std::string address;
    if (TrimBlanks(state_.range_text).empty()) {
      // Rows and columns are counted, not located: a sheet whose data starts
      // below row 1 loses as many rows at the end as it has empty ones at the
      // top. Callers rely on this.
      const auto used = source.UsedRange();
      const int32_t rows = used->RowsCount();
      const int32_t columns = used->ColumnsCount();
      address = "$A$1:" + source.Cells(rows, columns)->Address();
    } else {
      address = state_.range_text;
    }
    office::Workbook& fresh = app_.GetWorkbooks().Add();
    app_.SetDisplayFormulas(formulas_);
    const auto target_sheet = fresh.GetWorksheets().Item(1);
    const auto from = source.GetRange(address);
    const auto to = target_sheet->GetRange(address);
    if (formulas_) {
      to->SetFormula(from->Formula());
    } else {
      to->CopyValueFrom(*from);
    }
    office::SaveAsOptions options;
    options.file_format = type_;
    options.access_mode = office::kXlNoChange;
    options.conflict_resolution = office::kXlLocalSessionChanges;
    try {
      fresh.SaveAs(output, options);
    } catch (...) {
      CloseQuietly(fresh);
      throw;
    }
    fresh.SetSaved(true);
    fresh.Close(false);
    source.Activate();
  }

 private:
  static void CloseQuietly(office::Workbook& book) {
    try {
      book.SetSaved(true);
      book.Close(false);
    } catch (const office::Error&) {
    }
  }

  TabulonCtrl::State& state_;
  office::Application& app_;
  int32_t type_;
  bool formulas_;
};

// Joins the text outputs into the target, in list order, and leaves the
// target as the only file listed.
void MergeTextOutputs(TabulonCtrl& control, std::vector<std::string>& files, const std::string& target) {
  for (size_t i = 1; i < files.size(); ++i) {
    std::string first = files[0];
    std::string next = files[i];
    (void)control.ConcatenateTwoTextFiles(first, next);
  }
  if (!files.empty()) (void)MoveFileOverwriting(files[0], target);
  for (const std::string& file : files) {
    if (FileExists(file)) {
      std::error_code ignored;
      std::filesystem::remove(file, ignored);
    }
  }
  files.clear();
  files.push_back(target);
}

}  // namespace

int32_t TabulonCtrl::OpenXLSSaveAs(std::string& sSourceFile, std::string& sSheets, std::string& sTargetFile,
                                   int32_t& lTargetType, bool& bDoFormula) {
  State& s = *state_;
  s.files_just_created.clear();
  s.sheets_just_processed.clear();

  office::OpenOptions open = WorkbookMethod::SourceOpenOptions(s, sSourceFile, sTargetFile);
  if (s.delimiter_code != 0) {
    open.format = 6;
    open.delimiter = FromAnsi(std::string(1, static_cast<char>(s.delimiter_code)));
  }
  WorkbookMethod method(s, sSourceFile, sTargetFile);
  method.OnSourceMissing([&] {
          std::string message(msg::kSourceFileDoesNotExistPrefix);
          message += "\r\r";
          message += sSourceFile;
          return s.FailAndRaise(kSourceMissing, message);
        })
      .WithoutTargetFolder()
      .BeforeStart([&]() -> int32_t {
        if (sSheets.empty()) sSheets = "*";
        return kSuccess;
      })
      .OpenWith(open)
      .KeepCodeOnOfficeError()
      .RaiseOnFailedClose();

  bool loop_completed = false;
  bool multi_output = false;
  const int32_t code = method.Run([&](MethodStep& step) {
    step.SkipSave();
    office::Application& app = step.app();
    if (sSheets.find('*') != std::string::npos && !s.multi_file_output && OneOf(kWorkbookFormats, lTargetType)) {
      office::SaveAsOptions save;
      save.file_format = lTargetType;
      save.access_mode = office::kXlNoChange;
      save.conflict_resolution = office::kXlLocalSessionChanges;
      app.ActiveWorkbook().SaveAs(sTargetFile, save);
      return;  // straight to closing: nothing is listed, Saved is left alone
    }

    office::Workbook& book = step.book();
    const SheetSelection selection = SheetSelection::Parse(s.text_library, sSheets);
    std::vector<std::string> names = selection.names();
    if (selection.kind() == SheetSelection::Kind::kAll) {
      ForEachSheet(book, 1000, [&](office::Worksheet& sheet) {
        names.push_back(sheet.Name());
        return true;
      });
    }
    multi_output = selection.named() ? names.size() >= 2 : selection.SeveralItems();
    const OutputNaming naming(sTargetFile);
    SheetExport exporter(s, app, lTargetType, bDoFormula);

    auto process = [&](std::unique_ptr<office::Worksheet> sheet, const std::string& output) {
      if (!sheet) {
        step.SetCode(kInvalidSheet);
        return;
      }
      sheet->Activate();
      app.SetDisplayFormulas(bDoFormula);
      if (s.skip_empty_sheets && IsSheetEmpty(*sheet)) return;
      s.sheets_just_processed.push_back(sheet->Name());
      exporter.Export(*sheet, output);
      s.files_just_created.push_back(output);
    };

    if (selection.named()) {
      for (const std::string& name : names) {
        process(GetSheetByNameOrIndex(book, name), multi_output ? naming.For(name) : sTargetFile);
      }
    } else if (multi_output) {
      const int32_t sheet_count = book.Sheets().Count();
      selection.ForEachNumber([&](int64_t n) {
        if (n > sheet_count) {
          // No sheet has this number or any above it in the range.
          step.SetCode(kInvalidSheet);
          return false;
        }
        process(GetSheetByIndex(book, static_cast<int32_t>(n)), naming.For(std::to_string(n)));
        return true;
      });
    } else {
      process(GetSheetByIndex(book, selection.first_number()), sTargetFile);
    }
    loop_completed = true;

    if (step.code() != kSuccess) {
      if (step.code() == kInvalidSheet) s.Fail(kInvalidSheet, msg::kInvalidSheetSelectionified);
      s.RaiseOnError(step.code());
    }
    app.ActiveWorkbook().SetSaved(true);
  });

  if (code == kSuccess && loop_completed && !s.multi_file_output && multi_output && OneOf(kTextFormats, lTargetType)) {
    MergeTextOutputs(*this, s.files_just_created, sTargetFile);
  }
  return code;
}

}  // namespace tabulon
