// ChangeNumberFormat: a number format, in the spreadsheet's en-US codes,
// given to a list of ranges of one sheet.
#include <algorithm>

#include "control/control_state.h"
#include "editing/cell_edit.h"

namespace tabulon {

int32_t TabulonCtrl::ChangeNumberFormat(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheet,
                                        std::string& sRangeToChange, std::string& sNewFormat) {
  WorkbookMethod method = CellEditMethod(*state_, sPathOriginal, sPathTarget, sSheet);
  method.BeforeStart([&]() -> int32_t {
    // Hosts pass dates as dd\mm\yyyy; quoted text cannot be passed at all.
    std::replace(sNewFormat.begin(), sNewFormat.end(), '\\', '/');
    std::erase(sNewFormat, '"');
    std::erase(sRangeToChange, '"');
    return kSuccess;
  });
  return method.Run([&](MethodStep& step) {
    office::Worksheet& sheet = step.sheet();
    for (const std::string& area : NormaliseRangeList(sheet, sRangeToChange)) {
      sheet.GetRange(area)->SetNumberFormat(sNewFormat);
    }
  });
}

}  // namespace tabulon
