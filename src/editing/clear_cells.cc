// ClearCells: contents, formats, comments, notes or outline cleared from a
// list of ranges of one sheet. The selector stands before the sheet in the
// argument list.
#include "control/control_state.h"
#include "editing/cell_edit.h"

namespace tabulon {

int32_t TabulonCtrl::ClearCells(std::string& sPathOriginal, std::string& sPathTarget, int32_t& lWhatToClear,
                                std::string& sSheet, std::string& sRangeToChange) {
  return CellEditMethod(*state_, sPathOriginal, sPathTarget, sSheet).Run([&](MethodStep& step) {
    office::Worksheet& sheet = step.sheet();
    for (const std::string& area : NormaliseRangeList(sheet, sRangeToChange)) {
      const auto range = sheet.GetRange(area);
      switch (lWhatToClear) {
        case 0: range->Clear(); break;
        case 1: range->ClearFormats(); break;
        case 2: range->ClearContents(); break;
        case 3: range->ClearComments(); break;
        case 4: range->ClearNotes(); break;
        case 5: range->ClearOutline(); break;
        default: break;  // no error: the workbook is saved as it was
      }
    }
  });
}

}  // namespace tabulon
