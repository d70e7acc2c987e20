// Printing a sheet or a range of cells through a workbook's view. Internal to
// the backend.
#pragma once

#include "office/office.h"
#include "office/uno/calc_internal.h"

namespace tabulon::office::uno {

class CalcWorkbook;

// Prints `selection` (a sheet or a cell range of `book`) as PrintOut does
// (inside a call).
void PrintSelection(CalcWorkbook& book, const Reference<css::uno::XInterface>& selection,
                    const PrintOutOptions& options);

}  // namespace tabulon::office::uno
