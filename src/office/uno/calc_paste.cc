// Pasting the backend's clipboard into a sheet.
#include <tuple>
#include <utility>
#include <vector>

#include <com/sun/star/sheet/ComplexReference.hpp>
#include <com/sun/star/sheet/ReferenceFlags.hpp>
#include <com/sun/star/sheet/SingleReference.hpp>
#include <com/sun/star/sheet/XCellRangeMovement.hpp>
#include <com/sun/star/sheet/XFormulaTokens.hpp>
#include <com/sun/star/table/CellRangeAddress.hpp>

#include "office/uno/calc_workbook.h"
#include "office/uno/clipboard.h"

namespace tabulon::office::uno {

namespace {

Block Transposed(const Block& b) {
  if (b.empty()) return b;
  Block t(b[0].size(), std::vector<Cell>(b.size()));
  for (size_t r = 0; r < b.size(); ++r)
    for (size_t c = 0; c < b[r].size(); ++c) t[c][r] = b[r][c];
  return t;
}

// A transposing paste turns a reference that is relative in both row and
// column (in both corners of a range) with the block: its row and column
// distances change places. Absolute and mixed references stay as they are.
void TurnRelative(css::sheet::SingleReference& ref) {
  std::swap(ref.RelativeColumn, ref.RelativeRow);
}

bool FullyRelative(const css::sheet::SingleReference& ref) {
  namespace rf = css::sheet::ReferenceFlags;
  return (ref.Flags & rf::COLUMN_RELATIVE) != 0 && (ref.Flags & rf::ROW_RELATIVE) != 0;
}

Sequence<css::sheet::FormulaToken> Turned(Sequence<css::sheet::FormulaToken> tokens) {
  css::sheet::FormulaToken* all = tokens.getArray();
  for (sal_Int32 i = 0; i < tokens.getLength(); ++i) {
    css::sheet::FormulaToken& token = all[i];
    css::sheet::SingleReference single;
    css::sheet::ComplexReference complex;
    if (token.Data >>= single) {
      if (FullyRelative(single)) {
        TurnRelative(single);
        token.Data <<= single;
      }
    } else if (token.Data >>= complex) {
      if (FullyRelative(complex.Reference1) && FullyRelative(complex.Reference2)) {
        TurnRelative(complex.Reference1);
        TurnRelative(complex.Reference2);
        token.Data <<= complex;
      }
    }
  }
  return tokens;
}

}  // namespace

CellRect CalcWorkbook::PasteAt(const SheetRef& sheet, int32_t row, int32_t column, int32_t kind,
                               bool skip_blanks, bool transpose) {
  plain_ = false;  // pasted cells may bring their look along
  const ClipboardContent clip = Clipboard::Get().Content();
  if (!clip.has_content || clip.values.empty() || clip.values[0].empty())
    throw Error(ErrorKind::kAutomation, "there is nothing to paste");
  const bool values_only = kind == -4163 || kind == 12;
  const bool formulas = kind == -4104 || kind == -4123 || kind == 11;
  if (!values_only && !formulas) NotSupported("PasteSpecial with this Paste type");
  const int32_t src_rows = static_cast<int32_t>(clip.values.size());
  const int32_t src_columns = static_cast<int32_t>(clip.values[0].size());
  const int32_t rows = transpose ? src_columns : src_rows;
  const int32_t columns = transpose ? src_rows : src_columns;
  const CellRect target{row, column, row + rows - 1, column + columns - 1};
  if (target.last_row >= MaxRows() || target.last_column >= MaxColumns())
    throw Error(ErrorKind::kAutomation, "the paste area lies outside the sheet");

  if (clip.from_table && !clip.html.empty() && !transpose && !skip_blanks)
    return PasteTable(sheet, row, column, clip, values_only);
  if (clip.from_table) {
    WriteTyped(sheet, target, transpose ? Transposed(clip.values) : clip.values);
    return target;
  }

  // Inside one workbook the office copies everything a cell has, formats
  // included, with references moved.
  if (kind == -4104 && !transpose && !skip_blanks && clip.source_workbook == id_) {
    SheetRef source_sheet(clip.source_sheet, UNO_QUERY);
    int32_t source_index = -1;
    try {
      if (source_sheet.is()) source_index = SheetIndex(source_sheet);
    } catch (const css::uno::RuntimeException&) {
      // The sheet is gone: the cells are pasted from the clipboard's copy.
    }
    if (source_index >= 0) {
      css::table::CellRangeAddress source;
      source.Sheet = static_cast<sal_Int16>(source_index);
      source.StartRow = clip.source.first_row;
      source.StartColumn = clip.source.first_column;
      source.EndRow = clip.source.last_row;
      source.EndColumn = clip.source.last_column;
      Reference<css::sheet::XCellRangeMovement> movement(sheet, UNO_QUERY_THROW);
      movement->copyRange(At(SheetIndex(sheet), row, column), source);
      return target;
    }
  }

  Block block = values_only ? clip.values : clip.formulas;
  if (transpose) block = Transposed(block);
  if (skip_blanks) {
    const Block current = values_only ? ReadValues(sheet, target) : ReadFormulas(sheet, target);
    for (int32_t r = 0; r < rows; ++r)
      for (int32_t c = 0; c < columns; ++c)
        if (IsEmptyCell(block[r][c])) block[r][c] = current[r][c];
  }
  if (values_only) {
    WriteValues(sheet, target, block);
    return target;
  }
  // Formulas are read where they were copied from, so relative references
  // keep their distance to the cell, as in a paste.
  const int32_t sheet_index = SheetIndex(sheet);
  Block constants = block;
  std::vector<std::tuple<int32_t, int32_t, std::string, int32_t, int32_t>> moved;
  for (int32_t r = 0; r < rows; ++r) {
    for (int32_t c = 0; c < columns; ++c) {
      const auto* s = std::get_if<std::string>(&block[r][c]);
      if (s == nullptr || !IsFormulaText(*s)) continue;
      const int32_t from_row = clip.source.first_row + (transpose ? c : r);
      const int32_t from_column = clip.source.first_column + (transpose ? r : c);
      moved.emplace_back(r, c, *s, from_row, from_column);
      constants[r][c] = std::monostate{};
    }
  }
  WriteFormulas(sheet, target, constants, std::nullopt);
  auto cells = sheet->getCellRangeByPosition(target.first_column, target.first_row,
                                             target.last_column, target.last_row);
  for (const auto& [r, c, text, from_row, from_column] : moved) {
    const auto tokens = ParseFormula(text, At(sheet_index, from_row, from_column));
    Reference<css::sheet::XFormulaTokens> cell(cells->getCellByPosition(c, r), UNO_QUERY_THROW);
    cell->setTokens(transpose ? Turned(tokens) : tokens);
  }
  return target;
}

}  // namespace tabulon::office::uno
