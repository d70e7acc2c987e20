#include "sheets/sheet_position.h"

#include <strings.h>

#include "convert/sheet_lookup.h"

namespace tabulon {

namespace {

bool IsMarker(const std::string& text, const char* marker) { return strcasecmp(text.c_str(), marker) == 0; }

}  // namespace

void ReplaceFirstMarker(office::Workbook& book, std::string& before) {
  if (IsMarker(before, "firstfirst")) before = book.GetWorksheets().Item(1)->Name();
}

void ReplaceLastMarker(office::Workbook& book, std::string& after) {
  if (IsMarker(after, "lastlast")) {
    office::Worksheets& sheets = book.GetWorksheets();
    after = sheets.Item(sheets.Count())->Name();
  }
}

std::unique_ptr<office::Worksheet> SheetBefore(office::Workbook& book, std::string& before) {
  ReplaceFirstMarker(book, before);
  return GetSheetByNameOrIndex(book, before);
}

std::unique_ptr<office::Worksheet> SheetAfter(office::Workbook& book, std::string& after) {
  ReplaceLastMarker(book, after);
  return GetSheetByNameOrIndex(book, after);
}

void NameSheet(office::Worksheet& sheet, const std::string& name) {
  sheet.SetName(name);
  if (sheet.Name() != name) {
    throw office::Error(office::ErrorKind::kAutomation,
                        "the sheet cannot be named \"" + name + "\": the name is taken by another sheet or not valid");
  }
}

}  // namespace tabulon
