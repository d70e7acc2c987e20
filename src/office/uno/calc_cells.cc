// Cell input and output of a workbook: blocks of values and formulas, and
// formulas between Excel's syntax and the office's tokens.
#include <charconv>

#include <com/sun/star/beans/XPropertySet.hpp>
#include <com/sun/star/lang/XMultiServiceFactory.hpp>
#include <com/sun/star/sheet/AddressConvention.hpp>
#include <com/sun/star/sheet/FormulaLanguage.hpp>
#include <com/sun/star/sheet/FormulaMapGroup.hpp>
#include <com/sun/star/sheet/FormulaOpCodeMapEntry.hpp>
#include <com/sun/star/sheet/XCellRangeData.hpp>
#include <com/sun/star/sheet/XCellRangeFormula.hpp>
#include <com/sun/star/sheet/XFormulaOpCodeMapper.hpp>
#include <com/sun/star/sheet/XFormulaTokens.hpp>

#include "office/uno/calc_workbook.h"

namespace tabulon::office::uno {

namespace {

std::string NumberText(double d) {
  char buf[64];
  const auto r = std::to_chars(buf, buf + sizeof buf, d);
  return std::string(buf, r.ptr);
}

// Whether text written into a cell of the default look leaves its row at the
// standard height: no line breaks or other control characters, and only
// Latin letters and common symbols, whose font the standard height is made
// for.
bool IsPlainText(const std::string& s) {
  for (size_t i = 0; i < s.size();) {
    const auto b = static_cast<unsigned char>(s[i]);
    if (b < 0x80) {
      if (b < 0x20 || b == 0x7F) return false;
      ++i;
      continue;
    }
    // Two-byte sequences up to U+024F (Latin-1 Supplement, Latin Extended).
    if (b < 0xC2 || b > 0xC9 || i + 1 >= s.size()) return false;
    const auto next = static_cast<unsigned char>(s[i + 1]);
    if ((next & 0xC0) != 0x80) return false;
    const unsigned code = (static_cast<unsigned>(b & 0x1F) << 6) | (next & 0x3F);
    if (code < 0xA0 || code > 0x24F) return false;
    i += 2;
  }
  return true;
}

}  // namespace

Sequence<css::sheet::FormulaToken> CalcWorkbook::ParseFormula(const std::string& formula,
                                                              const css::table::CellAddress& at) {
  if (!parser_.is()) {
    Reference<css::lang::XMultiServiceFactory> factory(component_, UNO_QUERY_THROW);
    parser_.set(factory->createInstance("com.sun.star.sheet.FormulaParser"), UNO_QUERY_THROW);
    Reference<css::sheet::XFormulaOpCodeMapper> mapper(
        factory->createInstance("com.sun.star.sheet.FormulaOpCodeMapper"), UNO_QUERY_THROW);
    Reference<css::beans::XPropertySet> props(parser_, UNO_QUERY_THROW);
    // Excel's own syntax: English function names, A1 references with "!"
    // after sheet names, "," between arguments (the map's separators).
    props->setPropertyValue(
        "OpCodeMap", Any(mapper->getAvailableMappings(css::sheet::FormulaLanguage::XL_ENGLISH,
                                                      css::sheet::FormulaMapGroup::ALL_EXCEPT_SPECIAL)));
    props->setPropertyValue("FormulaConvention", Any(css::sheet::AddressConvention::XL_A1));
    props->setPropertyValue("CompileEnglish", Any(true));
  }
  const std::string body = formula.size() > 0 && formula[0] == '=' ? formula.substr(1) : formula;
  return parser_->parseFormula(ToOUString(body), at);
}

std::string CalcWorkbook::PrintFormula(const Sequence<css::sheet::FormulaToken>& tokens,
                                       const css::table::CellAddress& at) {
  if (!parser_.is()) ParseFormula("0", at);  // creates the parser
  return "=" + ToUtf8(parser_->printFormula(tokens, at));
}

Block CalcWorkbook::ReadValues(const SheetRef& sheet, const CellRect& rect) {
  Reference<css::sheet::XCellRangeData> data(
      sheet->getCellRangeByPosition(rect.first_column, rect.first_row, rect.last_column, rect.last_row),
      UNO_QUERY_THROW);
  const auto array = data->getDataArray();
  Block block(array.getLength());
  for (sal_Int32 r = 0; r < array.getLength(); ++r) {
    const auto& row = array[r];
    block[r].resize(row.getLength());
    for (sal_Int32 c = 0; c < row.getLength(); ++c) {
      double d;
      OUString s;
      if (row[c] >>= d) {
        block[r][c] = d;
      } else if (row[c] >>= s) {
        // Empty cells read back as empty text.
        if (!s.isEmpty()) block[r][c] = ToUtf8(s);
      }
    }
  }
  return block;
}

Block CalcWorkbook::ReadFormulas(const SheetRef& sheet, const CellRect& rect) {
  auto cells =
      sheet->getCellRangeByPosition(rect.first_column, rect.first_row, rect.last_column, rect.last_row);
  Reference<css::sheet::XCellRangeFormula> formula(cells, UNO_QUERY_THROW);
  const auto array = formula->getFormulaArray();
  const int32_t sheet_index = SheetIndex(sheet);
  Block block(array.getLength());
  for (sal_Int32 r = 0; r < array.getLength(); ++r) {
    block[r].resize(array[r].getLength());
    for (sal_Int32 c = 0; c < array[r].getLength(); ++c) {
      const OUString& text = array[r][c];
      if (text.isEmpty()) continue;
      if (text.startsWith("=")) {
        Reference<css::sheet::XFormulaTokens> tokens(cells->getCellByPosition(c, r), UNO_QUERY_THROW);
        const auto seq = tokens->getTokens();
        if (seq.getLength() > 0) {
          block[r][c] = PrintFormula(seq, At(sheet_index, rect.first_row + r, rect.first_column + c));
          continue;
        }
      }
      block[r][c] = ToUtf8(text);
    }
  }
  return block;
}

void CalcWorkbook::WriteValues(const SheetRef& sheet, const CellRect& rect, const Block& values) {
  if (static_cast<int32_t>(values.size()) != rect.rows())
    throw Error(ErrorKind::kAutomation, "the values do not have the range's shape");
  Sequence<Sequence<Any>> array(rect.rows());
  auto* rows = array.getArray();
  bool plain = plain_;
  for (int32_t r = 0; r < rect.rows(); ++r) {
    if (static_cast<int32_t>(values[r].size()) != rect.columns())
      throw Error(ErrorKind::kAutomation, "the values do not have the range's shape");
    rows[r].realloc(rect.columns());
    auto* cells = rows[r].getArray();
    for (int32_t c = 0; c < rect.columns(); ++c) {
      const Cell& v = values[r][c];
      // Never a void Any: the office cannot take one. Empty text leaves the
      // cell empty (the office clears the range before writing), so an
      // empty cell needs no call of its own and does not count as used.
      if (const auto* d = std::get_if<double>(&v)) {
        cells[c] <<= *d;
      } else if (const auto* s = std::get_if<std::string>(&v)) {
        cells[c] <<= ToOUString(*s);
        if (plain && !IsPlainText(*s)) plain = false;
      } else {
        cells[c] <<= OUString();
      }
    }
  }
  plain_ = plain;
  auto cells =
      sheet->getCellRangeByPosition(rect.first_column, rect.first_row, rect.last_column, rect.last_row);
  Reference<css::sheet::XCellRangeData> data(cells, UNO_QUERY_THROW);
  if (!plain) {
    data->setDataArray(array);
    return;
  }
  // Plain values in a plain workbook leave every row at the standard
  // height, so the office's pass that fits each written row's height is
  // skipped: on big blocks it takes nearly a third of the write.
  Reference<css::beans::XPropertySet> settings(component_, UNO_QUERY_THROW);
  const Any adjusting = settings->getPropertyValue("IsAdjustHeightEnabled");
  settings->setPropertyValue("IsAdjustHeightEnabled", Any(false));
  try {
    data->setDataArray(array);
  } catch (...) {
    try {
      settings->setPropertyValue("IsAdjustHeightEnabled", adjusting);
    } catch (const css::uno::Exception&) {
      // The first failure is the one reported.
    }
    throw;
  }
  settings->setPropertyValue("IsAdjustHeightEnabled", adjusting);
}

void CalcWorkbook::WriteFormulas(const SheetRef& sheet, const CellRect& rect, const Block& formulas,
                                 std::optional<std::pair<int32_t, int32_t>> origin) {
  if (static_cast<int32_t>(formulas.size()) != rect.rows())
    throw Error(ErrorKind::kAutomation, "the formulas do not have the range's shape");
  plain_ = false;  // formula results and typed text may hold anything
  Sequence<Sequence<OUString>> array(rect.rows());
  auto* rows = array.getArray();
  std::vector<std::pair<int32_t, int32_t>> formula_cells;
  for (int32_t r = 0; r < rect.rows(); ++r) {
    if (static_cast<int32_t>(formulas[r].size()) != rect.columns())
      throw Error(ErrorKind::kAutomation, "the formulas do not have the range's shape");
    rows[r].realloc(rect.columns());
    auto* cells = rows[r].getArray();
    for (int32_t c = 0; c < rect.columns(); ++c) {
      const Cell& v = formulas[r][c];
      if (const auto* d = std::get_if<double>(&v)) {
        cells[c] = ToOUString(NumberText(*d));
      } else if (const auto* s = std::get_if<std::string>(&v)) {
        if (IsFormulaText(*s))
          formula_cells.emplace_back(r, c);  // written as tokens below
        else
          cells[c] = ToOUString(*s);
      }
    }
  }
  auto cells =
      sheet->getCellRangeByPosition(rect.first_column, rect.first_row, rect.last_column, rect.last_row);
  Reference<css::sheet::XCellRangeFormula>(cells, UNO_QUERY_THROW)->setFormulaArray(array);
  const int32_t sheet_index = SheetIndex(sheet);
  for (const auto& [r, c] : formula_cells) {
    const auto& text = std::get<std::string>(formulas[r][c]);
    const int32_t from_row = origin ? origin->first : rect.first_row + r;
    const int32_t from_column = origin ? origin->second : rect.first_column + c;
    const auto tokens = ParseFormula(text, At(sheet_index, from_row, from_column));
    Reference<css::sheet::XFormulaTokens> cell(cells->getCellByPosition(c, r), UNO_QUERY_THROW);
    cell->setTokens(tokens);
  }
}

void CalcWorkbook::WriteTyped(const SheetRef& sheet, const CellRect& rect, const Block& texts) {
  Block typed = texts;
  for (auto& row : typed)
    for (auto& cell : row)
      if (auto* s = std::get_if<std::string>(&cell); s != nullptr && !s->empty() && (*s)[0] == '=')
        *s = "'" + *s;  // text stays text
  WriteFormulas(sheet, rect, typed, std::nullopt);
}

}  // namespace tabulon::office::uno
