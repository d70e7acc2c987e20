// What the cell edits share: the single-workbook skeleton with this family's
// texts and save arguments, the range lists of the format and clear edits,
// and the row and column lists of the deletion.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "control/workbook_method.h"
#include "convert/sheet_list.h"
#include "office/office.h"

namespace tabulon {

// The skeleton of a cell edit: the source must exist (-202), the target's
// folder is made (-208), the sheet named `sheet` (quotes removed, written
// back) must be in the workbook (-204 with OnError), and the workbook is
// saved under the target in the normal workbook format with AccessMode 1
// and ConflictResolution 2.
WorkbookMethod CellEditMethod(TabulonCtrl::State& state, const std::string& source, const std::string& target,
                              std::string& sheet);

// A range list as the format and clear edits take it, normalised in place:
// "" becomes the used range's address; a ":*" after the first character
// becomes ":" and the sheet's last used cell, everything after it dropped
// and every "$" removed. Returns the areas, split at ",".
std::vector<std::string> NormaliseRangeList(office::Worksheet& sheet, std::string& ranges);

// The numbers of a deletion list: every pair expanded in list order, at
// most kMaxDeletions numbers (nullopt beyond), then sorted ascending with
// duplicates kept.
inline constexpr int32_t kMaxDeletions = 1000;
std::optional<std::vector<int32_t>> ExpandDeletionList(const SheetTodoList& pairs, int32_t count);

// Selection sort, the first of equal values staying first.
void SortAscending(std::vector<int32_t>& numbers);

}  // namespace tabulon
