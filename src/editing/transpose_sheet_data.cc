// TransposeSheetData: the used range of one sheet turned so that its rows
// become columns, written back from A1.
#include "control/control_state.h"
#include "editing/cell_edit.h"

namespace tabulon {

int32_t TabulonCtrl::TransposeSheetData(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheet) {
  return CellEditMethod(*state_, sPathOriginal, sPathTarget, sSheet).Run([&](MethodStep& step) {
    office::Worksheet& source = step.sheet();
    const auto scratch = step.book().GetWorksheets().Add(nullptr, nullptr, std::nullopt);
    scratch->Activate();
    source.UsedRange()->Copy();
    office::Range::PasteSpecialOptions paste;
    paste.paste = office::kXlPasteAll;
    paste.operation = office::kXlPasteSpecialOperationNone;
    paste.skip_blanks = false;
    paste.transpose = true;
    scratch->GetRange("A1")->PasteSpecial(paste);
    source.UsedRange()->Clear();
    // The block lands at the scratch sheet's own address, from A1, whatever
    // the old block's place; formulas travel as text, formats stay behind.
    const auto turned = scratch->UsedRange();
    source.GetRange(turned->Address())->SetFormula(turned->Formula());
    scratch->Delete();
  });
}

}  // namespace tabulon
