// Printing a sheet or a range of cells through a workbook's view. Internal to
// the backend.
#pragma once

#include <com/sun/star/table/XCellRange.hpp>

#include "office/office.h"
#include "office/uno/calc_internal.h"

namespace tabulon::office::uno {

class CalcWorkbook;

// Prints `cells` of `sheet` of `book`, or the whole sheet when `cells` is
// null, as PrintOut does (inside a call).
void PrintSelection(CalcWorkbook& book, const SheetRef& sheet, const Reference<css::table::XCellRange>& cells,
                    const PrintOutOptions& options);

}  // namespace tabulon::office::uno
