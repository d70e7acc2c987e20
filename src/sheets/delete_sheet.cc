// DeleteSheet: every worksheet but one, a run of worksheets, or one
// worksheet deleted, and the workbook saved under the target path.
#include <algorithm>
#include <string>

#include "control/control_state.h"
#include "control/workbook_method.h"
#include "convert/sheet_lookup.h"
#include "util/file_helpers.h"

namespace tabulon {

int32_t TabulonCtrl::DeleteSheet(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheetStart,
                                 std::string& sSheetEnd, std::string& sSheetExcept) {
  WorkbookMethod method(*state_, sPathOriginal, sPathTarget);
  return method.Run([&](MethodStep& step) {
    sSheetExcept = RemoveDoubleQuotes(sSheetExcept);
    sSheetStart = RemoveDoubleQuotes(sSheetStart);
    sSheetEnd = RemoveDoubleQuotes(sSheetEnd);
    office::Workbook& book = step.book();
    office::Worksheets& sheets = step.app().ActiveWorkbook().GetWorksheets();

    if (const auto except = GetSheetByNameOrIndex(book, sSheetExcept)) {
      const std::string keep = except->Name();
      for (int32_t i = sheets.Count(); i >= 1; --i) {
        const auto sheet = sheets.Item(i);
        if (sheet->Name() != keep) sheet->Delete();
      }
      return;
    }

    const auto start = GetSheetByNameOrIndex(book, sSheetStart);
    if (!start) {
      step.Fail(kInvalidSheets, msg::kInvalidSheets);
      return;
    }
    const auto end = GetSheetByNameOrIndex(book, sSheetEnd);
    if (!end) {
      start->Delete();
      return;
    }
    // From the higher position down, so that a deletion never moves a sheet
    // still to be visited, whichever end the caller named first. Deleting
    // the last remaining sheet is refused by the office: an office error,
    // and nothing is saved.
    const int32_t first = start->Index();
    const int32_t last = end->Index();
    for (int32_t i = std::max(first, last); i >= std::min(first, last); --i) sheets.Item(i)->Delete();
  });
}

}  // namespace tabulon
