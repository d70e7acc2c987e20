// Helpers shared by the spreadsheet side of the backend. Internal to it.
#pragma once

#include <cctype>
#include <cstdint>
#include <string>
#include <variant>

#include <com/sun/star/sheet/XSpreadsheet.hpp>
#include <com/sun/star/table/CellAddress.hpp>

#include "office/office.h"
#include "office/uno/session.h"

namespace tabulon::office::uno {

using css::uno::Any;
using css::uno::UNO_QUERY;
using css::uno::UNO_QUERY_THROW;
using SheetRef = Reference<css::sheet::XSpreadsheet>;

[[noreturn]] inline void NotSupported(const char* member) {
  throw Error(ErrorKind::kAutomation, std::string("not supported: ") + member);
}

inline css::table::CellAddress At(int32_t sheet, int32_t row, int32_t column) {
  css::table::CellAddress a;
  a.Sheet = static_cast<sal_Int16>(sheet);
  a.Row = row;
  a.Column = column;
  return a;
}

inline bool IsFormulaText(const std::string& s) { return s.size() > 1 && s[0] == '='; }

inline bool EqualsIgnoreCase(const OUString& a, const std::string& b) {
  return a.equalsIgnoreAsciiCase(ToOUString(b));
}

inline std::string Lower(std::string s) {
  for (auto& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

inline bool IsEmptyCell(const Cell& c) {
  if (std::holds_alternative<std::monostate>(c)) return true;
  const auto* s = std::get_if<std::string>(&c);
  return s != nullptr && s->empty();
}

}  // namespace tabulon::office::uno
