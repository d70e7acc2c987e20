// DeleteRowsOrColumns: whole rows (or columns) of one sheet deleted, given by
// a list of numbers and ranges such as "2,4,10-12".
#include "control/control_state.h"
#include "editing/cell_edit.h"

namespace tabulon {

int32_t TabulonCtrl::DeleteRowsOrColumns(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheet,
                                         std::string& sRowsColsToDelete, bool& bDoColumns) {
  State& s = *state_;
  return CellEditMethod(s, sPathOriginal, sPathTarget, sSheet).Run([&](MethodStep& step) {
    office::Worksheet& sheet = step.sheet();
    auto remove = [&](int32_t n) {
      if (bDoColumns) {
        sheet.Cells(1, n)->EntireColumnDelete();
      } else {
        sheet.Cells(n, 1)->EntireRowDelete();
      }
    };

    SheetTodoList pairs{};
    const int32_t count = FillSheetTodoList(s.text_library, sRowsColsToDelete, pairs);
    if (count < 2 && pairs[1] - pairs[0] < 1) {
      remove(pairs[0]);
      return;
    }
    const auto numbers = ExpandDeletionList(pairs, count);
    if (!numbers) {
      step.Fail(kSubscriptOutOfRange, msg::kSubscriptOutOfRange);
      return;
    }
    // From the largest number down, so that a deletion never moves a row
    // still to be deleted; a number given twice deletes twice, the second
    // time the row that moved into its place.
    for (auto n = numbers->rbegin(); n != numbers->rend(); ++n) remove(*n);
  });
}

}  // namespace tabulon
