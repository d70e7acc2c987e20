#include "office/uno/a1.h"

#include <algorithm>
#include <cctype>

namespace tabulon::office::uno {
namespace {

// One end of an address: column letters and/or row digits, each optionally
// preceded by "$". Missing parts are -1.
struct End {
  int32_t row = -1;
  int32_t column = -1;
};

std::optional<End> ParseEnd(const std::string& text) {
  End end;
  size_t i = 0;
  if (i < text.size() && text[i] == '$') ++i;
  int64_t column = 0;
  size_t letters = 0;
  while (i < text.size() && std::isalpha(static_cast<unsigned char>(text[i]))) {
    column = column * 26 + (std::toupper(static_cast<unsigned char>(text[i])) - 'A' + 1);
    if (column > 1000000) return std::nullopt;
    ++i;
    ++letters;
  }
  if (letters > 0) end.column = static_cast<int32_t>(column - 1);
  if (letters > 0 && i < text.size() && text[i] == '$') ++i;
  int64_t row = 0;
  size_t digits = 0;
  while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
    row = row * 10 + (text[i] - '0');
    if (row > 100000000) return std::nullopt;
    ++i;
    ++digits;
  }
  if (i != text.size() || (letters == 0 && digits == 0)) return std::nullopt;
  if (digits > 0) {
    if (row == 0) return std::nullopt;
    end.row = static_cast<int32_t>(row - 1);
  }
  return end;
}

}  // namespace

std::string ColumnName(int32_t column) {
  std::string name;
  int64_t n = static_cast<int64_t>(column) + 1;
  while (n > 0) {
    const int64_t rem = (n - 1) % 26;
    name.insert(name.begin(), static_cast<char>('A' + rem));
    n = (n - 1) / 26;
  }
  return name;
}

std::string AbsoluteAddress(const CellRect& r, int32_t max_rows, int32_t max_columns) {
  const bool all_columns = r.first_column == 0 && r.last_column == max_columns - 1;
  const bool all_rows = r.first_row == 0 && r.last_row == max_rows - 1;
  if (all_columns)
    return "$" + std::to_string(r.first_row + 1) + ":$" + std::to_string(r.last_row + 1);
  if (all_rows) return "$" + ColumnName(r.first_column) + ":$" + ColumnName(r.last_column);
  std::string first = "$" + ColumnName(r.first_column) + "$" + std::to_string(r.first_row + 1);
  if (r.first_row == r.last_row && r.first_column == r.last_column) return first;
  return first + ":$" + ColumnName(r.last_column) + "$" + std::to_string(r.last_row + 1);
}

std::optional<CellRect> ParseAddress(const std::string& raw, int32_t max_rows,
                                     int32_t max_columns) {
  std::string text;
  for (char c : raw)
    if (c != ' ') text += c;
  const size_t colon = text.find(':');
  const std::string a = text.substr(0, colon);
  const std::string b = colon == std::string::npos ? a : text.substr(colon + 1);
  if (b.find(':') != std::string::npos) return std::nullopt;
  const auto ea = ParseEnd(a);
  const auto eb = ParseEnd(b);
  if (!ea || !eb) return std::nullopt;
  // Both ends must be of the same kind: cells, whole columns or whole rows.
  const bool a_cell = ea->row >= 0 && ea->column >= 0;
  const bool b_cell = eb->row >= 0 && eb->column >= 0;
  CellRect r;
  if (a_cell && b_cell) {
    r = {std::min(ea->row, eb->row), std::min(ea->column, eb->column),
         std::max(ea->row, eb->row), std::max(ea->column, eb->column)};
  } else if (colon != std::string::npos && ea->row < 0 && eb->row < 0) {
    r = {0, std::min(ea->column, eb->column), max_rows - 1, std::max(ea->column, eb->column)};
  } else if (colon != std::string::npos && ea->column < 0 && eb->column < 0) {
    r = {std::min(ea->row, eb->row), 0, std::max(ea->row, eb->row), max_columns - 1};
  } else {
    return std::nullopt;
  }
  if (r.last_row >= max_rows || r.last_column >= max_columns) return std::nullopt;
  return r;
}

}  // namespace tabulon::office::uno
