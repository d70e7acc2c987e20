// The kinds Value carries with numbers: which cells Excel would give as a
// Date or as Currency, and the look such a value takes where it arrives.
#include <cmath>
#include <map>

#include <com/sun/star/beans/XPropertySet.hpp>
#include <com/sun/star/container/XIndexAccess.hpp>
#include <com/sun/star/lang/Locale.hpp>
#include <com/sun/star/lang/XMultiServiceFactory.hpp>
#include <com/sun/star/sheet/XSheetCellRangeContainer.hpp>
#include <com/sun/star/sheet/XSheetCellRanges.hpp>
#include <com/sun/star/sheet/XUniqueCellFormatRangesSupplier.hpp>
#include <com/sun/star/table/CellRangeAddress.hpp>
#include <com/sun/star/util/NumberFormat.hpp>
#include <com/sun/star/util/XNumberFormats.hpp>
#include <com/sun/star/util/XNumberFormatsSupplier.hpp>

#include "office/uno/calc_workbook.h"

namespace tabulon::office::uno {

namespace {

// The looks Excel gives a Date, Currency or Boolean value arriving in a
// General cell, in the en-US forms: a whole day is a date, a day fraction
// alone a time, both a date and time.
enum Look { kNoLook = -1, kDateLook, kTimeLook, kDateTimeLook, kCurrencyLook, kLogicalLook, kLookCount };
constexpr const char* kLookCodes[kLookCount] = {"M/D/YYYY", "H:MM:SS AM/PM", "M/D/YYYY H:MM",
                                                "$#,##0.00;($#,##0.00)", "BOOLEAN"};

// Excel's Date covers serial numbers 0 to 2958465 (12/31/9999); outside
// that range a date cell's value is a plain number.
constexpr double kLastDate = 2958466.0;

Look LookOf(const Cell& value, ValueKind kind) {
  const auto* d = std::get_if<double>(&value);
  if (d == nullptr) return kNoLook;
  if (kind == ValueKind::kCurrency) return kCurrencyLook;
  if (kind == ValueKind::kLogical) return kLogicalLook;
  if (kind != ValueKind::kDate || *d < 0 || *d >= kLastDate) return kNoLook;
  double day;
  const double time = std::modf(*d, &day);
  if (time == 0) return kDateLook;
  return day == 0 ? kTimeLook : kDateTimeLook;
}

// Whether a format code shows a currency symbol: "$", "€" and the others
// bare or quoted, or a "[$<symbol>-<locale>]" part. "[$-409]" only names a
// locale.
bool ShowsCurrency(const std::string& code) {
  for (size_t i = 0; i < code.size(); ++i) {
    if (code.compare(i, 2, "[$") == 0) {
      if (i + 2 < code.size() && code[i + 2] != '-' && code[i + 2] != ']') return true;
      i = code.find(']', i);
      if (i == std::string::npos) return false;
      continue;
    }
    if (code[i] == '$' || code.compare(i, 3, "\xE2\x82\xAC") == 0 || code.compare(i, 2, "\xC2\xA3") == 0 ||
        code.compare(i, 2, "\xC2\xA5") == 0)
      return true;
  }
  return false;
}

// Calls `f(key, group)` for each group of cells of `rect` sharing one look.
template <typename F>
void ForEachFormatGroup(const SheetRef& sheet, const CellRect& rect, F&& f) {
  Reference<css::sheet::XUniqueCellFormatRangesSupplier> looks(
      sheet->getCellRangeByPosition(rect.first_column, rect.first_row, rect.last_column, rect.last_row),
      UNO_QUERY_THROW);
  const auto groups = looks->getUniqueCellFormatRanges();
  for (sal_Int32 i = 0; i < groups->getCount(); ++i) {
    Reference<css::beans::XPropertySet> group(groups->getByIndex(i), UNO_QUERY_THROW);
    sal_Int32 key = 0;
    group->getPropertyValue("NumberFormat") >>= key;
    f(key, Reference<css::sheet::XSheetCellRanges>(group, UNO_QUERY_THROW));
  }
}

// Marks the cells of `addresses` inside `rect` in a block of `rect`'s shape.
template <typename T>
void Mark(std::vector<std::vector<T>>& block, const CellRect& rect,
          const Sequence<css::table::CellRangeAddress>& addresses, T value) {
  for (const auto& a : addresses) {
    for (sal_Int32 r = std::max(a.StartRow, rect.first_row); r <= std::min(a.EndRow, rect.last_row); ++r) {
      for (sal_Int32 c = std::max(a.StartColumn, rect.first_column); c <= std::min(a.EndColumn, rect.last_column);
           ++c)
        block[r - rect.first_row][c - rect.first_column] = value;
    }
  }
}

}  // namespace

ValueKind CalcWorkbook::KindOfFormat(sal_Int32 key) {
  Reference<css::util::XNumberFormatsSupplier> supplier(component_, UNO_QUERY_THROW);
  Reference<css::beans::XPropertySet> format = supplier->getNumberFormats()->getByKey(key);
  sal_Int16 type = 0;
  format->getPropertyValue("Type") >>= type;
  namespace nf = css::util::NumberFormat;
  if ((type & nf::LOGICAL) != 0) return ValueKind::kLogical;
  if ((type & (nf::DATE | nf::TIME)) != 0) return ValueKind::kDate;
  if ((type & nf::CURRENCY) != 0) return ValueKind::kCurrency;
  OUString code;
  format->getPropertyValue("FormatString") >>= code;
  return ShowsCurrency(ToUtf8(code)) ? ValueKind::kCurrency : ValueKind::kPlain;
}

KindBlock CalcWorkbook::ReadKinds(const SheetRef& sheet, const CellRect& rect) {
  KindBlock kinds;
  std::map<sal_Int32, ValueKind> known;
  ForEachFormatGroup(sheet, rect, [&](sal_Int32 key, const Reference<css::sheet::XSheetCellRanges>& group) {
    auto it = known.find(key);
    if (it == known.end()) it = known.emplace(key, key == 0 ? ValueKind::kPlain : KindOfFormat(key)).first;
    if (it->second == ValueKind::kPlain) return;
    if (kinds.empty())
      kinds.assign(rect.rows(), std::vector<ValueKind>(rect.columns(), ValueKind::kPlain));
    Mark(kinds, rect, group->getRangeAddresses(), it->second);
  });
  return kinds;
}

void CalcWorkbook::WriteTypedValues(const SheetRef& sheet, const CellRect& rect, const Block& values,
                                    const KindBlock& kinds) {
  if (kinds.empty()) {
    WriteValues(sheet, rect, values);
    return;
  }
  if (static_cast<int32_t>(kinds.size()) != rect.rows() || static_cast<int32_t>(values.size()) != rect.rows())
    throw Error(ErrorKind::kAutomation, "the values do not have the range's shape");
  // Currency holds four decimals: Excel's Value rounds to them.
  Block carried = values;
  for (size_t r = 0; r < carried.size(); ++r) {
    for (size_t c = 0; c < carried[r].size() && c < kinds[r].size(); ++c) {
      if (auto* d = std::get_if<double>(&carried[r][c]); d != nullptr && kinds[r][c] == ValueKind::kCurrency)
        *d = std::round(*d * 10000.0) / 10000.0;
    }
  }
  WriteValues(sheet, rect, carried);

  // Only General cells take the look of what arrives; a cell with a look of
  // its own keeps it.
  Reference<css::util::XNumberFormatsSupplier> supplier(component_, UNO_QUERY_THROW);
  auto formats = supplier->getNumberFormats();
  std::vector<std::vector<char>> general(rect.rows(), std::vector<char>(rect.columns(), 0));
  ForEachFormatGroup(sheet, rect, [&](sal_Int32 key, const Reference<css::sheet::XSheetCellRanges>& group) {
    OUString code;
    if (key != 0) formats->getByKey(key)->getPropertyValue("FormatString") >>= code;
    if (key == 0 || code.equalsIgnoreAsciiCase("General")) Mark(general, rect, group->getRangeAddresses(), '\1');
  });

  // Runs of one look along each row, gathered per look and set in one call.
  std::vector<css::table::CellRangeAddress> runs[kLookCount];
  const sal_Int16 sheet_index = static_cast<sal_Int16>(SheetIndex(sheet));
  for (int32_t r = 0; r < rect.rows(); ++r) {
    for (int32_t c = 0; c < rect.columns();) {
      const Look look = general[r][c] ? LookOf(carried[r][c], kinds[r][c]) : kNoLook;
      int32_t end = c + 1;
      while (end < rect.columns() && general[r][end] && LookOf(carried[r][end], kinds[r][end]) == look) ++end;
      if (look != kNoLook) {
        css::table::CellRangeAddress a;
        a.Sheet = sheet_index;
        a.StartRow = a.EndRow = rect.first_row + r;
        a.StartColumn = rect.first_column + c;
        a.EndColumn = rect.first_column + end - 1;
        runs[look].push_back(a);
      }
      c = end;
    }
  }
  css::lang::Locale en_us("en", "US", "");
  Reference<css::lang::XMultiServiceFactory> factory(component_, UNO_QUERY_THROW);
  for (int look = 0; look < kLookCount; ++look) {
    if (runs[look].empty()) continue;
    plain_ = false;
    const OUString code = OUString::createFromAscii(kLookCodes[look]);
    sal_Int32 key = formats->queryKey(code, en_us, false);
    if (key < 0) key = formats->addNew(code, en_us);
    Reference<css::sheet::XSheetCellRangeContainer> cells(
        factory->createInstance("com.sun.star.sheet.SheetCellRanges"), UNO_QUERY_THROW);
    cells->addRangeAddresses(Sequence<css::table::CellRangeAddress>(runs[look].data(), runs[look].size()), false);
    Reference<css::beans::XPropertySet>(cells, UNO_QUERY_THROW)->setPropertyValue("NumberFormat", Any(key));
  }
}

}  // namespace tabulon::office::uno
