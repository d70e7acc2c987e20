#include "convert/sheet_lookup.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace tabulon {

std::unique_ptr<office::Worksheet> GetSheetByName(office::Workbook& workbook, const std::string& name) {
  try {
    return workbook.Sheets().Item(name);
  } catch (const office::Error& e) {
    // A missing sheet is an answer; an office that died or hung is not.
    if (e.kind() == office::ErrorKind::kDied || e.kind() == office::ErrorKind::kTimeout) throw;
    return nullptr;
  }
}

std::unique_ptr<office::Worksheet> GetSheetByIndex(office::Workbook& workbook, int32_t index) {
  try {
    return workbook.Sheets().Item(index);
  } catch (const office::Error& e) {
    if (e.kind() == office::ErrorKind::kDied || e.kind() == office::ErrorKind::kTimeout) throw;
    return nullptr;
  }
}

std::unique_ptr<office::Worksheet> GetSheetByNameOrIndex(office::Workbook& workbook, const std::string& text) {
  if (text.empty()) return nullptr;
  if (auto sheet = GetSheetByName(workbook, text)) return sheet;
  if (!IsNumeric(text)) return nullptr;
  const std::optional<int32_t> index = ToLong(text);
  if (!index) return nullptr;
  return GetSheetByIndex(workbook, *index);
}

bool IsSheetEmpty(office::Worksheet& sheet) {
  const std::unique_ptr<office::Range> used = sheet.UsedRange();
  if (used->RowsCount() != 1 || used->ColumnsCount() != 1) return false;
  const office::Block value = used->Value();
  if (value.empty() || value[0].empty()) return true;
  const office::Cell& cell = value[0][0];
  if (std::holds_alternative<std::monostate>(cell)) return true;
  if (const auto* text = std::get_if<std::string>(&cell)) return text->empty();
  return false;
}

namespace {

std::optional<double> ParseNumber(const std::string& text) {
  size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string::npos) return std::nullopt;
  size_t end = text.find_last_not_of(" \t");
  const std::string core = text.substr(begin, end - begin + 1);
  // Hexadecimal, infinities and NaN are not numbers to a sheet list.
  for (char c : core) {
    if (!((c >= '0' && c <= '9') || c == '.' || c == '+' || c == '-' || c == 'e' || c == 'E')) return std::nullopt;
  }
  char* stop = nullptr;
  errno = 0;
  const double value = std::strtod(core.c_str(), &stop);
  if (stop != core.c_str() + core.size() || errno == ERANGE) return std::nullopt;
  return value;
}

}  // namespace

bool IsNumeric(const std::string& text) { return ParseNumber(text).has_value(); }

std::optional<int32_t> ToLong(const std::string& text) {
  const std::optional<double> value = ParseNumber(text);
  if (!value) return std::nullopt;
  const double rounded = std::nearbyint(*value);  // the default mode rounds half to even
  if (rounded < std::numeric_limits<int32_t>::min() || rounded > std::numeric_limits<int32_t>::max()) {
    return std::nullopt;
  }
  return static_cast<int32_t>(rounded);
}

}  // namespace tabulon
