// Workbooks written and read back by a real office, for tests that check
// what a method wrote by reading the file, not by trusting the method.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "office/office.h"

namespace tabulon::testing {

// A sheet's name and its cells from A1 (empty cells as std::monostate).
struct SheetCells {
  std::string name;
  office::Block cells;
  bool operator==(const SheetCells&) const = default;
};

// The address of the block of `rows` by `columns` cells from A1.
inline std::string BlockAddress(office::Worksheet& sheet, size_t rows, size_t columns) {
  return "$A$1:" + sheet.Cells(static_cast<int32_t>(rows), static_cast<int32_t>(columns))->Address();
}

// A new workbook with these sheets, in this order, saved as `path` in
// `format` and closed.
inline void SaveBook(office::Application& app, const std::string& path, const std::vector<SheetCells>& sheets,
                     int32_t format = 51) {
  office::Workbook& book = app.GetWorkbooks().Add();
  office::Worksheets& all = book.GetWorksheets();
  std::unique_ptr<office::Worksheet> previous;
  for (size_t i = 0; i < sheets.size(); ++i) {
    std::unique_ptr<office::Worksheet> sheet =
        i == 0 ? all.Item(1) : all.Add(nullptr, previous.get(), office::kXlWorksheet);
    sheet->SetName(sheets[i].name);
    const office::Block& data = sheets[i].cells;
    if (!data.empty()) sheet->GetRange(BlockAddress(*sheet, data.size(), data[0].size()))->SetValue(data);
    previous = std::move(sheet);
  }
  office::SaveAsOptions options;
  options.file_format = format;
  book.SaveAs(path, options);
  book.Close(false);
}

// Every sheet of the workbook at `path` with the values (or formulas) of
// its cells from A1 to the end of its used range.
inline std::vector<SheetCells> ReadBook(office::Application& app, const std::string& path, bool formulas = false) {
  office::OpenOptions open;
  open.read_only = true;
  office::Workbook& book = app.GetWorkbooks().Open(path, open);
  std::vector<SheetCells> sheets;
  office::Worksheets& all = book.GetWorksheets();
  for (int32_t i = 1; i <= all.Count(); ++i) {
    auto sheet = all.Item(i);
    const auto used = sheet->UsedRange();
    const auto range = sheet->GetRange(BlockAddress(*sheet, used->Row() + used->RowsCount() - 1,
                                                    used->Column() + used->ColumnsCount() - 1));
    sheets.push_back({sheet->Name(), formulas ? range->Formula() : range->Value()});
  }
  book.Close(false);
  return sheets;
}

}  // namespace tabulon::testing
