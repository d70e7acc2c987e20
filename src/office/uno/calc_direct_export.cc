// The direct text export: a new workbook that only received another range's
// values, saved as text, is written straight from that range's sheet when
// the office's export of that sheet writes the same text.
#include <algorithm>
#include <filesystem>

#include <com/sun/star/beans/XPropertySet.hpp>
#include <com/sun/star/container/XIndexAccess.hpp>
#include <com/sun/star/sheet/CellFlags.hpp>
#include <com/sun/star/sheet/XCellRangesQuery.hpp>
#include <com/sun/star/sheet/XConditionalFormats.hpp>
#include <com/sun/star/sheet/XSheetCellRanges.hpp>
#include <com/sun/star/sheet/XUniqueCellFormatRangesSupplier.hpp>

#include "office/uno/calc_workbook.h"
#include "office/uno/save_files.h"

namespace tabulon::office::uno {

namespace fs = std::filesystem;

namespace {

// The decimals a new workbook shows in the General format: no limit.
constexpr sal_Int16 kNewWorkbookStandardDecimals = -1;

bool HoldsValue(const Block& block) {
  for (const auto& row : block)
    for (const Cell& cell : row)
      if (!std::holds_alternative<std::monostate>(cell)) return true;
  return false;
}

bool HasContent(const SheetRef& sheet, const CellRect& rect, sal_Int16 flags) {
  if (rect.last_row < rect.first_row || rect.last_column < rect.first_column) return false;
  Reference<css::sheet::XCellRangesQuery> query(
      sheet->getCellRangeByPosition(rect.first_column, rect.first_row, rect.last_column, rect.last_row),
      UNO_QUERY_THROW);
  return query->queryContentCells(flags)->getRangeAddresses().getLength() > 0;
}

}  // namespace

bool CalcWorkbook::SaveCopyDirectly(const std::string& given_name, const FileFormat& format, int32_t number) {
  const UnbornState::PendingCopy copy = *unborn_.copy();
  if (!copy.source->ExportsLikeValueCopy(copy.sheet, copy.from)) return false;
  const std::string filename = AbsolutePath(given_name);
  const SaveTemporaries temporaries(app_->session().profile_dir(), format.extension);
  copy.source->StoreSheetText(copy.sheet, temporaries.written, format);
  FinishTextInPlace(temporaries.written, temporaries.finished, filename, format, {});
  MoveIntoPlace(temporaries.written, filename);
  name_ = fs::path(filename).filename().string();
  path_ = filename;
  format_ = number;
  unborn_.set_saved(true);
  ++app_->direct_exports;
  return true;
}

bool CalcWorkbook::ExportsLikeValueCopy(const SheetRef& sheet, const CellRect& rect) {
  namespace flags = css::sheet::CellFlags;
  const CellRect used = UsedArea(sheet);
  // The copy holds only what lies in the range; the export writes the whole
  // sheet. Nothing may lie outside the range: above, below, left, right.
  const int32_t top = std::max(used.first_row, rect.first_row);
  const int32_t bottom = std::min(used.last_row, rect.last_row);
  const CellRect outside[] = {
      {used.first_row, used.first_column, std::min(used.last_row, rect.first_row - 1), used.last_column},
      {std::max(used.first_row, rect.last_row + 1), used.first_column, used.last_row, used.last_column},
      {top, used.first_column, bottom, std::min(used.last_column, rect.first_column - 1)},
      {top, std::max(used.first_column, rect.last_column + 1), bottom, used.last_column},
  };
  for (const CellRect& part : outside) {
    if (HasContent(sheet, part,
                   flags::VALUE | flags::DATETIME | flags::STRING | flags::FORMULA | flags::ANNOTATION))
      return false;
  }
  const CellRect area{top, std::max(used.first_column, rect.first_column), bottom,
                      std::min(used.last_column, rect.last_column)};
  if (area.last_row < area.first_row || area.last_column < area.first_column) return false;
  // Formula results and notes may come out otherwise than copied values.
  if (HasContent(sheet, area, flags::FORMULA | flags::ANNOTATION)) return false;
  // A new workbook shows every number in the General format; so must this
  // sheet, with the same General.
  Reference<css::sheet::XUniqueCellFormatRangesSupplier> looks(
      sheet->getCellRangeByPosition(area.first_column, area.first_row, area.last_column, area.last_row),
      UNO_QUERY_THROW);
  const auto groups = looks->getUniqueCellFormatRanges();
  // Every call on the office's objects is a round trip: the count is asked once.
  const sal_Int32 group_count = groups->getCount();
  if (group_count > 64) return false;
  for (sal_Int32 i = 0; i < group_count; ++i) {
    Reference<css::beans::XPropertySet> group(groups->getByIndex(i), UNO_QUERY_THROW);
    sal_Int32 key = -1;
    group->getPropertyValue("NumberFormat") >>= key;
    if (key != 0) return false;
  }
  try {
    Reference<css::sheet::XConditionalFormats> conditional;
    Reference<css::beans::XPropertySet>(sheet, UNO_QUERY_THROW)->getPropertyValue("ConditionalFormats") >>=
        conditional;
    if (!conditional.is() || conditional->getLength() > 0) return false;
    sal_Int16 decimals = 0;
    Reference<css::beans::XPropertySet>(component_, UNO_QUERY_THROW)->getPropertyValue("StandardDecimals") >>=
        decimals;
    if (decimals != kNewWorkbookStandardDecimals) return false;
  } catch (const css::uno::Exception&) {
    return false;
  }
  // The export covers the sheet up to its last row and column with content,
  // the copy up to its last with a value; empty text is content but no
  // value. The used area's last row and column holding a value settles it
  // (read from the end: in a full column one is found at once).
  const Block last_row = ReadValues(sheet, {area.last_row, area.first_column, area.last_row, area.last_column});
  if (!HoldsValue(last_row)) return false;
  // The last row's last cell is also the last column's: a value there
  // settles both without reading the column.
  if (!last_row.empty() && !last_row[0].empty() && !std::holds_alternative<std::monostate>(last_row[0].back()))
    return true;
  constexpr int32_t kChunk = 256;
  for (int32_t end = area.last_row; end >= area.first_row; end -= kChunk) {
    const int32_t begin = std::max(area.first_row, end - kChunk + 1);
    if (HoldsValue(ReadValues(sheet, {begin, area.last_column, end, area.last_column}))) return true;
  }
  return false;
}

}  // namespace tabulon::office::uno
