// A1 addresses as Excel writes and reads them. Plain C++; no UNO.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tabulon::office::uno {

// A rectangle of cells, 0-based and inclusive, as the office addresses it.
struct CellRect {
  int32_t first_row = 0;
  int32_t first_column = 0;
  int32_t last_row = 0;
  int32_t last_column = 0;
  bool operator==(const CellRect&) const = default;
  int32_t rows() const { return last_row - first_row + 1; }
  int32_t columns() const { return last_column - first_column + 1; }
};

// "A", "Z", "AA", ... for a 0-based column.
std::string ColumnName(int32_t column);

// Excel's absolute address of a rectangle on a sheet of `max_rows` by
// `max_columns`: "$B$2", "$A$1:$C$4", whole rows "$1:$3", whole columns
// "$A:$C".
std::string AbsoluteAddress(const CellRect& rect, int32_t max_rows, int32_t max_columns);

// Parses "A1", "$A$1", "A1:C4", "C4:A1", "A:C", "1:3" (no sheet name).
// Whole rows or columns extend to the sheet's size. nullopt when the text is
// not such an address or lies outside the sheet.
std::optional<CellRect> ParseAddress(const std::string& text, int32_t max_rows,
                                     int32_t max_columns);

}  // namespace tabulon::office::uno
