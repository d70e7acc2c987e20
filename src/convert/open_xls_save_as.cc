// OpenXLSSaveAs: open one workbook and write all or some of its sheets in
// another file format, whole or sheet by sheet, and join the text outputs.
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string>
#include <vector>

#include "control/control_state.h"
#include "control/workbook_frame.h"
#include "convert/sheet_lookup.h"
#include "convert/sheet_spec.h"
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

class Conversion {
 public:
  Conversion(TabulonCtrl& control, TabulonCtrl::State& state, office::Application& app, int32_t type, bool formulas)
      : control_(control), state_(state), app_(app), type_(type), formulas_(formulas) {}

  // Writes the active sheet (the given range, or the used area counted from
  // A1) through a fresh one-sheet workbook.
  void ExportSheet(office::Worksheet& source, const std::string& output) {
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

  // Joins the text outputs into the target, in list order, and leaves the
  // target as the only file listed.
  void MergeTextOutputs(const std::string& target) {
    if (!OneOf(kTextFormats, type_)) return;
    std::vector<std::string>& files = state_.files_just_created;
    for (size_t i = 1; i < files.size(); ++i) {
      std::string first = files[0];
      std::string next = files[i];
      (void)control_.ConcatenateTwoTextFiles(first, next);
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

 private:
  static void CloseQuietly(office::Workbook& book) {
    try {
      book.SetSaved(true);
      book.Close(false);
    } catch (const office::Error&) {
    }
  }

  TabulonCtrl& control_;
  TabulonCtrl::State& state_;
  office::Application& app_;
  int32_t type_;
  bool formulas_;
};

}  // namespace

int32_t TabulonCtrl::OpenXLSSaveAs(std::string& sSourceFile, std::string& sSheets, std::string& sTargetFile,
                                   int32_t& lTargetType, bool& bDoFormula) {
  State& s = *state_;
  s.files_just_created.clear();
  s.sheets_just_processed.clear();

  if (!FileExists(sSourceFile)) {
    std::string message(msg::kSourceFileDoesNotExistPrefix);
    message += "\r\r";
    message += sSourceFile;
    return s.FailAndRaise(kSourceMissing, message);
  }
  if (sSheets.empty()) sSheets = "*";

  WorkbookFrame frame(s);
  office::Application* app = frame.StartExcel();
  if (app == nullptr) return kExcelNotCreated;

  int32_t code = kSuccess;
  bool loop_completed = false;
  bool multi_output = false;
  Conversion conversion(*this, s, *app, lTargetType, bDoFormula);

  frame.Trap([&] {
    office::OpenOptions options = frame.SourceOpenOptions(sSourceFile, sTargetFile);
    if (s.delimiter_code != 0) {
      options.format = 6;
      options.delimiter = FromAnsi(std::string(1, static_cast<char>(s.delimiter_code)));
    }
    app->GetWorkbooks().Open(sSourceFile, options);

    if (sSheets.find('*') != std::string::npos && !s.multi_file_output && OneOf(kWorkbookFormats, lTargetType)) {
      office::SaveAsOptions save;
      save.file_format = lTargetType;
      save.access_mode = office::kXlNoChange;
      save.conflict_resolution = office::kXlLocalSessionChanges;
      app->ActiveWorkbook().SaveAs(sTargetFile, save);
      return;  // straight to closing: nothing is listed, Saved is left alone
    }

    office::Workbook& book = app->GetWorkbooks().Item(1);
    const SheetSpec spec = SheetSpec::Parse(s.text_library, sSheets);
    std::vector<std::string> names = spec.names();
    if (spec.kind() == SheetSpec::Kind::kAll) {
      ForEachSheet(book, 1000, [&](office::Worksheet& sheet) {
        names.push_back(sheet.Name());
        return true;
      });
    }
    multi_output = spec.named() ? names.size() >= 2 : spec.SeveralItems();
    const OutputNaming naming(sTargetFile);

    auto process = [&](std::unique_ptr<office::Worksheet> sheet, const std::string& output) {
      if (!sheet) {
        code = kInvalidSheet;
        return;
      }
      sheet->Activate();
      app->SetDisplayFormulas(bDoFormula);
      if (s.skip_empty_sheets && IsSheetEmpty(*sheet)) return;
      s.sheets_just_processed.push_back(sheet->Name());
      conversion.ExportSheet(*sheet, output);
      s.files_just_created.push_back(output);
    };

    if (spec.named()) {
      for (const std::string& name : names) {
        process(GetSheetByNameOrIndex(book, name), multi_output ? naming.For(name) : sTargetFile);
      }
    } else if (multi_output) {
      const int32_t sheet_count = book.Sheets().Count();
      spec.ForEachNumber([&](int64_t n) {
        if (n > sheet_count) {
          // No sheet has this number or any above it in the range.
          code = kInvalidSheet;
          return false;
        }
        process(GetSheetByIndex(book, static_cast<int32_t>(n)), naming.For(std::to_string(n)));
        return true;
      });
    } else {
      process(GetSheetByIndex(book, spec.first_number()), sTargetFile);
    }
    loop_completed = true;

    if (code != kSuccess) {
      if (code == kInvalidSheet) s.Fail(code, msg::kInvalidSheetSpecified);
      s.RaiseOnError(code);
    }
    app->ActiveWorkbook().SetSaved(true);
  });

  code = frame.CloseAndQuit(code, true);
  if (code == kSuccess && loop_completed && !s.multi_file_output && multi_output) {
    conversion.MergeTextOutputs(sTargetFile);
  }
  return code;
}

}  // namespace tabulon
