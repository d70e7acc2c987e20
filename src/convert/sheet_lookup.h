// Finding sheets of a workbook the way every sheet-handling method does:
// by name, by 1-based number, or by name first and then, for a numeric text,
// by number (so a sheet named "2" wins over the second sheet).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "office/office.h"

namespace tabulon {

// Null when the workbook has no such sheet (or the office refused the call).
std::unique_ptr<office::Worksheet> GetSheetByName(office::Workbook& workbook, const std::string& name);
std::unique_ptr<office::Worksheet> GetSheetByIndex(office::Workbook& workbook, int32_t index);
std::unique_ptr<office::Worksheet> GetSheetByNameOrIndex(office::Workbook& workbook, const std::string& text);

// True exactly when the sheet's used range is one cell and that cell is empty.
bool IsSheetEmpty(office::Worksheet& sheet);

// Whether a text reads as a number (blanks around it allowed, as "2", " 3 ",
// "2.5", "1e2"), and its value as a 32-bit whole number, rounded half to
// even; nullopt when it is not numeric or does not fit.
bool IsNumeric(const std::string& text);
std::optional<int32_t> ToLong(const std::string& text);

}  // namespace tabulon
