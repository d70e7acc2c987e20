// SearchAndReplaceCellContent: the spreadsheet's own Replace over a range of
// one sheet, or the whole sheet.
#include "control/control_state.h"
#include "editing/cell_edit.h"

namespace tabulon {

int32_t TabulonCtrl::SearchAndReplaceCellContent(std::string& sPathOriginal, std::string& sPathTarget,
                                                 std::string& sSheet, std::string& sSearchFor,
                                                 std::string& sReplaceWith, std::string& sRange,
                                                 bool& bCaseSensitive, bool& bLookAtPart, bool& bMatchByte) {
  return CellEditMethod(*state_, sPathOriginal, sPathTarget, sSheet).Run([&](MethodStep& step) {
    office::Worksheet& sheet = step.sheet();
    office::Range::ReplaceOptions options;
    options.look_at = bLookAtPart ? office::kXlPart : office::kXlWhole;
    options.search_order = office::kXlByRows;
    options.match_case = bCaseSensitive;
    options.match_byte = bMatchByte;
    // Blanks alone mean the whole sheet.
    const bool blank = sRange.find_first_not_of(' ') == std::string::npos;
    const auto target = blank ? sheet.Cells() : sheet.GetRange(sRange);
    target->Replace(sSearchFor, sReplaceWith, options);
  });
}

}  // namespace tabulon
