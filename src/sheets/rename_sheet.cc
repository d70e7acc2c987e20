// RenameSheet: one worksheet given a new name, and the workbook saved under
// the target path.
#include <string>

#include "control/control_state.h"
#include "control/workbook_method.h"
#include "convert/sheet_lookup.h"
#include "sheets/sheet_position.h"
#include "util/file_helpers.h"

namespace tabulon {

int32_t TabulonCtrl::RenameSheet(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheetToRename,
                                 std::string& sNewSheetName) {
  WorkbookMethod method(*state_, sPathOriginal, sPathTarget);
  method.BeforeStart([&] {
    sSheetToRename = RemoveDoubleQuotes(sSheetToRename);
    sNewSheetName = RemoveDoubleQuotes(sNewSheetName);
    return kSuccess;
  });
  return method.Run([&](MethodStep& step) {
    const auto sheet = GetSheetByNameOrIndex(step.book(), sSheetToRename);
    if (!sheet) {
      step.Fail(kRenameSheetMissing, msg::kRenameSheetMissing);
      return;
    }
    // No test of its own for a name in use: the office's refusal is an
    // office error.
    NameSheet(*sheet, sNewSheetName);
  });
}

}  // namespace tabulon
