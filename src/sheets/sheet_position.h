// Where the sheet structure methods put a sheet: next to a sheet named by
// the caller, or at an end through the markers "firstfirst" (in a before
// argument: the first worksheet) and "lastlast" (in an after argument: the
// last one), compared without regard to case; and the name it gets.
#pragma once

#include <memory>
#include <string>

#include "office/office.h"

namespace tabulon {

// Replaces a "firstfirst" marker in `before` by the name of Worksheets(1).
void ReplaceFirstMarker(office::Workbook& book, std::string& before);
// Replaces a "lastlast" marker in `after` by the name of the last worksheet.
void ReplaceLastMarker(office::Workbook& book, std::string& after);

// The sheet a position names once its marker is replaced (the argument is
// rewritten), found by name or number; null when there is none.
std::unique_ptr<office::Worksheet> SheetBefore(office::Workbook& book, std::string& before);
std::unique_ptr<office::Worksheet> SheetAfter(office::Workbook& book, std::string& after);

// Worksheet.Name := name, refused as Excel refuses it: a name that is taken
// or not valid is an office error (the office itself ignores it silently).
void NameSheet(office::Worksheet& sheet, const std::string& name);

}  // namespace tabulon
