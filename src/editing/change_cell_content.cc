// ChangeCellContent: one text typed into every cell of a range of one sheet
// (the used range when none is given).
#include "control/control_state.h"
#include "editing/cell_edit.h"

namespace tabulon {

int32_t TabulonCtrl::ChangeCellContent(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheet,
                                       std::string& sRange, std::string& sCellContent, bool& bDoFormula) {
  return CellEditMethod(*state_, sPathOriginal, sPathTarget, sSheet).Run([&](MethodStep& step) {
    office::Worksheet& sheet = step.sheet();
    step.app().SetDisplayFormulas(bDoFormula);
    if (sRange.find_first_not_of(' ') == std::string::npos) sRange = sheet.UsedRange()->Address();
    // As typed: numbers become numbers, dates dates, "=" starts a formula.
    sheet.GetRange(sRange)->SetFormula(sCellContent);
  });
}

}  // namespace tabulon
