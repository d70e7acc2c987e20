// AddSheet: a new worksheet added after (or before) another and named, and
// the workbook saved under the target path.
#include <string>

#include "control/control_state.h"
#include "control/workbook_method.h"
#include "convert/sheet_lookup.h"
#include "sheets/sheet_position.h"
#include "util/file_helpers.h"

namespace tabulon {

int32_t TabulonCtrl::AddSheet(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheetToAdd,
                              std::string& sSheetBefore, std::string& sSheetAfter, bool& bOverwrite) {
  WorkbookMethod method(*state_, sPathOriginal, sPathTarget);
  return method.Run([&](MethodStep& step) {
    office::Workbook& book = step.book();
    if (!sSheetBefore.empty() || !sSheetAfter.empty()) {
      sSheetToAdd = RemoveDoubleQuotes(sSheetToAdd);
      if (const auto existing = GetSheetByNameOrIndex(book, sSheetToAdd)) {
        if (!bOverwrite) {
          step.Fail(kSheetExists, msg::kSheetExistsAdd);
          return;
        }
        existing->Delete();
      }
    } else {
      // No existence test here: a name in use fails when it is given.
      sSheetAfter = "lastlast";
    }

    if (!sSheetAfter.empty()) {
      const auto after = SheetAfter(book, sSheetAfter);
      if (!after) {
        step.Fail(kPositionSheetMissing, msg::kPositionSheetMissing);
        return;
      }
      book.GetWorksheets().Add(nullptr, after.get(), std::nullopt);
    } else {
      const auto before = SheetBefore(book, sSheetBefore);
      if (!before) {
        step.Fail(kPositionSheetMissing, msg::kPositionSheetMissing);
        return;
      }
      book.GetWorksheets().Add(before.get(), nullptr, std::nullopt);
    }
    if (!sSheetToAdd.empty()) NameSheet(*step.app().ActiveSheet(), sSheetToAdd);
  });
}

}  // namespace tabulon
