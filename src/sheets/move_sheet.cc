// MoveSheet: one worksheet moved after (or before) another, and the workbook
// saved under the target path.
#include <string>

#include "control/control_state.h"
#include "control/workbook_method.h"
#include "convert/sheet_lookup.h"
#include "sheets/sheet_position.h"
#include "util/file_helpers.h"

namespace tabulon {

int32_t TabulonCtrl::MoveSheet(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheetToMove,
                               std::string& sSheetBefore, std::string& sSheetAfter) {
  WorkbookMethod method(*state_, sPathOriginal, sPathTarget);
  method.BeforeStart([&] {
    // sSheetBefore is used as given, quotes and all.
    sSheetToMove = RemoveDoubleQuotes(sSheetToMove);
    sSheetAfter = RemoveDoubleQuotes(sSheetAfter);
    return kSuccess;
  });
  return method.Run([&](MethodStep& step) {
    office::Workbook& book = step.book();
    const auto sheet = GetSheetByNameOrIndex(book, sSheetToMove);
    if (!sheet) {
      step.Fail(kMoveSheetMissing, msg::kMoveSheetMissing);
      return;
    }
    if (!sSheetAfter.empty()) {
      const auto after = SheetAfter(book, sSheetAfter);
      if (!after) {
        step.Fail(kPositionSheetMissing, msg::kPositionSheetMissing);
        return;
      }
      sheet->MoveAfter(*after);
    } else if (!sSheetBefore.empty()) {
      const auto before = SheetBefore(book, sSheetBefore);
      if (!before) {
        step.Fail(kPositionSheetMissing, msg::kPositionSheetMissing);
        return;
      }
      sheet->MoveBefore(*before);
    }
    // Neither position: saved unchanged.
  });
}

}  // namespace tabulon
