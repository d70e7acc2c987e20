// CopySheet: a whole worksheet of one workbook copied into another (or the
// same) workbook, next to a sheet of it, and that workbook saved under the
// target path.
//
// The application cannot hold two workbooks of the same file name at once
// (book.xls from one folder and book.xls from another), so the sheet never
// goes straight from the original to the target: it is copied into a
// temporary workbook of its own, saved as "Brevant_<unique>.XLS" in the
// temporary folder, the original is closed, and the target takes the sheet
// from there. The temporary file is removed whatever happens.
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "control/control_state.h"
#include "control/workbook_method.h"
#include "convert/sheet_lookup.h"
#include "sheets/sheet_position.h"
#include "util/file_helpers.h"

namespace tabulon {

namespace {

// A unique path in the temporary folder, reserved by creating the file, and
// removed again when this goes.
class TemporaryWorkbookPath {
 public:
  TemporaryWorkbookPath() {
    std::string pattern = (std::filesystem::temp_directory_path() / "Brevant_XXXXXX.XLS").string();
    const int fd = mkstemps(pattern.data(), 4);
    if (fd >= 0) {
      close(fd);
      path_ = pattern;
    }
  }
  ~TemporaryWorkbookPath() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove(path_, ignored);
  }
  TemporaryWorkbookPath(const TemporaryWorkbookPath&) = delete;
  TemporaryWorkbookPath& operator=(const TemporaryWorkbookPath&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// The name a copy takes when the target keeps a sheet of its name:
// "<name> (2)", "<name> (3)", ...
std::string FreeName(office::Workbook& book, const std::string& name) {
  for (int32_t n = 2;; ++n) {
    const std::string candidate = name + " (" + std::to_string(n) + ")";
    if (!GetSheetByName(book, candidate)) return candidate;
  }
}

}  // namespace

int32_t TabulonCtrl::CopySheet(std::string& sPathOriginal, std::string& sSheetOriginal, std::string& sPathTarget,
                               std::string& sSheetTarget, std::string& sSheetBefore, std::string& sSheetAfter,
                               int32_t& lActionIfAlreadyExists) {
  State& s = *state_;
  TemporaryWorkbookPath temporary;
  WorkbookMethod method(s, sPathOriginal, sPathTarget);
  method.BeforeStart([&] {
    sSheetOriginal = RemoveDoubleQuotes(sSheetOriginal);
    sSheetTarget = RemoveDoubleQuotes(sSheetTarget);
    sSheetBefore = RemoveDoubleQuotes(sSheetBefore);
    sSheetAfter = RemoveDoubleQuotes(sSheetAfter);
    return kSuccess;
  });
  const bool same_file = SamePathText(sPathOriginal, sPathTarget);
  const bool target_is_new = !same_file && !FileExists(sPathTarget);

  return method.Run([&](MethodStep& step) {
    office::Workbook& original = step.book();
    const auto sheet = GetSheetByNameOrIndex(original, sSheetOriginal);
    if (!sheet) {
      step.Fail(kSheetMissing, msg::kSourceSheetMissing);
      return;
    }
    const std::string name = sSheetTarget.empty() ? sheet->Name() : sSheetTarget;
    if (temporary.path().empty()) throw office::Error(office::ErrorKind::kAutomation, "no temporary file");

    // The sheet alone in a workbook of its own, saved under the temporary
    // name.
    auto carried = sheet->Copy(nullptr, nullptr);
    office::Workbook& carrier = step.app().ActiveWorkbook();
    office::SaveAsOptions normal;
    normal.file_format = office::kXlWorkbookNormal;
    carrier.SaveAs(temporary.path(), normal);

    if (target_is_new) {
      // The target is that workbook: the copy alone.
      NameSheet(*carried, name);
      carrier.Activate();
      return;
    }
    office::Workbook* target = &original;
    if (!same_file) {
      original.Close(false);
      office::OpenOptions open;
      open.read_only = false;
      open.password = s.output_password;
      open.write_res_password = s.output_password_tw;
      target = &step.app().GetWorkbooks().Open(sPathTarget, open);
    }

    std::string copy_name = name;
    std::unique_ptr<office::Worksheet> replaced = GetSheetByName(*target, name);
    if (replaced) {
      if (lActionIfAlreadyExists == kCopySheetKeepBoth) {
        copy_name = FreeName(*target, name);
        replaced.reset();
      } else if (lActionIfAlreadyExists != kCopySheetReplace) {
        step.Fail(kSheetExists, msg::kSheetExistsCopy);
        return;
      }
    }

    std::unique_ptr<office::Worksheet> before, after;
    if (!sSheetAfter.empty()) {
      after = SheetAfter(*target, sSheetAfter);
      if (!after) {
        step.Fail(kPositionSheetMissing, msg::kPositionSheetMissingCopy);
        return;
      }
    } else if (!sSheetBefore.empty()) {
      before = SheetBefore(*target, sSheetBefore);
      if (!before) {
        step.Fail(kPositionSheetMissing, msg::kPositionSheetMissingCopy);
        return;
      }
    } else if (replaced) {
      before = GetSheetByName(*target, name);  // the replaced sheet's place
    } else {
      std::string last = "lastlast";
      after = SheetAfter(*target, last);
    }

    const auto copy = carried->Copy(before.get(), after.get());
    if (replaced) replaced->Delete();
    NameSheet(*copy, copy_name);
    target->Activate();
  });
}

}  // namespace tabulon
