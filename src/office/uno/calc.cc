#include "office/uno/calc.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <com/sun/star/beans/NamedValue.hpp>
#include <com/sun/star/beans/XPropertySet.hpp>
#include <com/sun/star/configuration/theDefaultProvider.hpp>
#include <com/sun/star/container/XIndexAccess.hpp>
#include <com/sun/star/container/XNameAccess.hpp>
#include <com/sun/star/container/XNamed.hpp>
#include <com/sun/star/document/MacroExecMode.hpp>
#include <com/sun/star/document/UpdateDocMode.hpp>
#include <com/sun/star/document/XTypeDetection.hpp>
#include <com/sun/star/document/XViewDataSupplier.hpp>
#include <com/sun/star/frame/XComponentLoader.hpp>
#include <com/sun/star/frame/XFramesSupplier.hpp>
#include <com/sun/star/frame/XLoadable.hpp>
#include <com/sun/star/frame/XModel.hpp>
#include <com/sun/star/frame/XStorable.hpp>
#include <com/sun/star/lang/Locale.hpp>
#include <com/sun/star/lang/XMultiServiceFactory.hpp>
#include <com/sun/star/script/XLibraryContainer.hpp>
#include <com/sun/star/script/provider/XScript.hpp>
#include <com/sun/star/script/provider/XScriptProvider.hpp>
#include <com/sun/star/script/provider/XScriptProviderSupplier.hpp>
#include <com/sun/star/sheet/AddressConvention.hpp>
#include <com/sun/star/sheet/CellFlags.hpp>
#include <com/sun/star/sheet/FormulaLanguage.hpp>
#include <com/sun/star/sheet/FormulaMapGroup.hpp>
#include <com/sun/star/sheet/FormulaOpCodeMapEntry.hpp>
#include <com/sun/star/sheet/XCellRangeAddressable.hpp>
#include <com/sun/star/sheet/XCellRangeData.hpp>
#include <com/sun/star/sheet/XCellRangeFormula.hpp>
#include <com/sun/star/sheet/XCellRangeMovement.hpp>
#include <com/sun/star/sheet/XCellRangesQuery.hpp>
#include <com/sun/star/sheet/XConditionalFormats.hpp>
#include <com/sun/star/sheet/XFormulaOpCodeMapper.hpp>
#include <com/sun/star/sheet/XFormulaTokens.hpp>
#include <com/sun/star/sheet/XSheetCellCursor.hpp>
#include <com/sun/star/sheet/XSheetOperation.hpp>
#include <com/sun/star/sheet/XSheetCellRanges.hpp>
#include <com/sun/star/sheet/XSheetOutline.hpp>
#include <com/sun/star/sheet/XUniqueCellFormatRangesSupplier.hpp>
#include <com/sun/star/sheet/XUsedAreaCursor.hpp>
#include <com/sun/star/table/CellRangeAddress.hpp>
#include <com/sun/star/table/TableOrientation.hpp>
#include <com/sun/star/table/XColumnRowRange.hpp>
#include <com/sun/star/table/XTableColumns.hpp>
#include <com/sun/star/table/XTableRows.hpp>
#include <com/sun/star/util/CloseVetoException.hpp>
#include <com/sun/star/util/XCloseable.hpp>
#include <com/sun/star/util/XModifiable.hpp>
#include <com/sun/star/util/XNumberFormats.hpp>
#include <com/sun/star/util/XNumberFormatsSupplier.hpp>
#include <com/sun/star/util/XReplaceDescriptor.hpp>
#include <com/sun/star/util/XReplaceable.hpp>
#include <com/sun/star/view/XPrintable.hpp>

#include "office/uno/file_formats.h"
#include "office/uno/text_output.h"

namespace tabulon::office::uno {

namespace fs = std::filesystem;
using css::uno::Any;
using css::uno::UNO_QUERY;
using css::uno::UNO_QUERY_THROW;

namespace {

std::atomic<uint64_t> g_next_workbook_id{1};

[[noreturn]] void NotSupported(const char* member) {
  throw Error(ErrorKind::kAutomation, std::string("not supported: ") + member);
}

css::table::CellAddress At(int32_t sheet, int32_t row, int32_t column) {
  css::table::CellAddress a;
  a.Sheet = static_cast<sal_Int16>(sheet);
  a.Row = row;
  a.Column = column;
  return a;
}

std::string NumberText(double d) {
  char buf[64];
  const auto r = std::to_chars(buf, buf + sizeof buf, d);
  return std::string(buf, r.ptr);
}

bool IsFormulaText(const std::string& s) { return s.size() > 1 && s[0] == '='; }

bool EqualsIgnoreCase(const OUString& a, const std::string& b) {
  return a.equalsIgnoreAsciiCase(ToOUString(b));
}

std::string Lower(std::string s) {
  for (auto& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// Whether a file is a text source for the text import: never a workbook
// container (OLE2, zip), else by extension, else by the office's type
// detection.
bool StartsWith(const std::string& path, const char* magic, size_t n) {
  std::ifstream in(path, std::ios::binary);
  std::string head(n, '\0');
  if (!in.read(head.data(), static_cast<std::streamsize>(n))) return false;
  return std::memcmp(head.data(), magic, n) == 0;
}

bool IsWorkbookContainer(const std::string& path) {
  return StartsWith(path, "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8) || StartsWith(path, "PK\x03\x04", 4);
}

std::string Temporary(const std::string& target, const char* tag, const char* extension) {
  // Letters, digits and "_" only before the extension: the dBase writer
  // takes the stem as its table name.
  static std::atomic<unsigned> counter{0};
  const fs::path t(target);
  return (t.parent_path() / ("tabulon_" + std::string(tag) + "_" + std::to_string(getpid()) + "_" +
                             std::to_string(counter++) + "." + extension))
      .string();
}

// The decimals a new workbook shows in the General format: no limit.
constexpr sal_Int16 kNewWorkbookStandardDecimals = -1;

// Post-processes the filter's text into `finished` and puts it back in
// `written`'s place.
void FinishTextInPlace(const std::string& written, const std::string& finished, const std::string& target,
                       const FileFormat& format, const std::vector<int>& widths) {
  std::string error;
  if (!FinishText(written, finished, format, widths, &error)) throw Error(ErrorKind::kAutomation, error);
  std::error_code ec;
  fs::rename(finished, written, ec);
  if (ec) throw Error(ErrorKind::kAutomation, "cannot write " + target + ": " + ec.message());
}

// Renames the finished file to the target, replacing any older one.
void MoveIntoPlace(const std::string& written, const std::string& target) {
  std::error_code ec;
  if (!fs::exists(written, ec)) throw Error(ErrorKind::kAutomation, "the office wrote nothing to " + target);
  fs::rename(written, target, ec);
  if (ec) throw Error(ErrorKind::kAutomation, "cannot write " + target + ": " + ec.message());
}

void RemoveQuietly(const std::string& path) {
  std::error_code ec;
  fs::remove(path, ec);
}

// The two files of a save in progress, beside the target: what the filter
// writes and what post-processing makes of it. Removed whatever happens.
struct SaveTemporaries {
  SaveTemporaries(const std::string& target, const char* extension)
      : written(Temporary(target, "office", extension)), finished(Temporary(target, "text", extension)) {}
  ~SaveTemporaries() {
    RemoveQuietly(written);
    RemoveQuietly(finished);
  }
  SaveTemporaries(const SaveTemporaries&) = delete;
  SaveTemporaries& operator=(const SaveTemporaries&) = delete;
  const std::string written;
  const std::string finished;
};

Block Transposed(const Block& b) {
  if (b.empty()) return b;
  Block t(b[0].size(), std::vector<Cell>(b.size()));
  for (size_t r = 0; r < b.size(); ++r)
    for (size_t c = 0; c < b[r].size(); ++c) t[c][r] = b[r][c];
  return t;
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

bool IsEmptyCell(const Cell& c) {
  if (std::holds_alternative<std::monostate>(c)) return true;
  const auto* s = std::get_if<std::string>(&c);
  return s != nullptr && s->empty();
}

}  // namespace

// ================================================================ Range

CalcRange::CalcRange(CalcWorkbook* book, SheetRef sheet, CellRect rect)
    : book_(book), sheet_(std::move(sheet)), rect_(rect) {}

Reference<css::table::XCellRange> CalcRange::Cells() {
  return sheet_->getCellRangeByPosition(rect_.first_column, rect_.first_row, rect_.last_column,
                                        rect_.last_row);
}

std::string CalcRange::Address() {
  return Call("Range.Address", [&] {
    return AbsoluteAddress(rect_, book_->MaxRows(), book_->MaxColumns());
  });
}
int32_t CalcRange::Row() { return rect_.first_row + 1; }
int32_t CalcRange::Column() { return rect_.first_column + 1; }
int32_t CalcRange::RowsCount() { return rect_.rows(); }
int32_t CalcRange::ColumnsCount() { return rect_.columns(); }

Block CalcRange::Value() {
  return Call("Range.Value", [&] { return book_->ReadValues(sheet_, rect_); });
}

void CalcRange::SetValue(const Block& values) {
  Call("Range.Value", [&] {
    if (values.size() == 1 && values[0].size() == 1 && (rect_.rows() != 1 || rect_.columns() != 1)) {
      SetValue(values[0][0]);
      return;
    }
    book_->WriteValues(sheet_, rect_, values);
  });
}

void CalcRange::CopyValueFrom(Range& source) {
  auto* from = dynamic_cast<CalcRange*>(&source);
  CalcApplication* app = book_->app();
  const bool target_waits =
      !sheet_.is() && book_->unborn() && !book_->closed() && app->pending_book() == nullptr;
  if (target_waits && from != nullptr && from->book_->app() == app && !from->book_->unborn() &&
      !from->book_->closed() && from->sheet_.is() && from->rect_ == rect_) {
    // Copied when the workbook is born, unless it is saved as text first.
    app->CallKeepingCopy("Range.Value", [&] { book_->SetPendingCopy({from->book_, from->sheet_, rect_}); });
    return;
  }
  Range::CopyValueFrom(source);
}

void CalcRange::SetValue(const Cell& value) {
  Call("Range.Value", [&] {
    if (IsEmptyCell(value)) {
      ClearFlags("Range.Value", css::sheet::CellFlags::VALUE | css::sheet::CellFlags::DATETIME |
                                    css::sheet::CellFlags::STRING |
                                    css::sheet::CellFlags::FORMULA);
      return;
    }
    if (static_cast<int64_t>(rect_.rows()) * rect_.columns() > 4'000'000)
      throw Error(ErrorKind::kAutomation, "too many cells to fill");
    Block block(rect_.rows(), std::vector<Cell>(rect_.columns(), value));
    book_->WriteValues(sheet_, rect_, block);
  });
}

Block CalcRange::Formula() {
  return Call("Range.Formula", [&] { return book_->ReadFormulas(sheet_, rect_); });
}

void CalcRange::SetFormula(const Block& formulas) {
  Call("Range.Formula", [&] {
    if (formulas.size() == 1 && formulas[0].size() == 1 &&
        (rect_.rows() != 1 || rect_.columns() != 1)) {
      Block block(rect_.rows(), std::vector<Cell>(rect_.columns(), formulas[0][0]));
      // One formula for the range: relative references move cell by cell,
      // as if the top-left cell's formula were filled across the range.
      for (int32_t r = 0; r < rect_.rows(); ++r)
        for (int32_t c = 0; c < rect_.columns(); ++c) block[r][c] = formulas[0][0];
      book_->WriteFormulas(sheet_, rect_, block, std::make_pair(rect_.first_row, rect_.first_column));
      return;
    }
    book_->WriteFormulas(sheet_, rect_, formulas, std::nullopt);
  });
}

void CalcRange::SetFormula(const std::string& formula) { SetFormula(Block{{Cell(formula)}}); }

void CalcRange::SetNumberFormat(const std::string& format) {
  Call("Range.NumberFormat", [&] {
    book_->set_plain(false);
    Reference<css::util::XNumberFormatsSupplier> supplier(book_->component(), UNO_QUERY_THROW);
    auto formats = supplier->getNumberFormats();
    css::lang::Locale en_us("en", "US", "");
    const OUString code = ToOUString(format);
    sal_Int32 key = formats->queryKey(code, en_us, false);
    if (key < 0) key = formats->addNew(code, en_us);
    Reference<css::beans::XPropertySet> props(Cells(), UNO_QUERY_THROW);
    props->setPropertyValue("NumberFormat", Any(key));
  });
}

void CalcRange::ClearFlags(const char* what, int32_t flags) {
  Call(what, [&] {
    Reference<css::sheet::XSheetOperation> op(Cells(), UNO_QUERY_THROW);
    op->clearContents(flags);
  });
}

namespace cf = css::sheet::CellFlags;
void CalcRange::Clear() { ClearFlags("Range.Clear", 1023); }
void CalcRange::ClearFormats() {
  ClearFlags("Range.ClearFormats", cf::HARDATTR | cf::STYLES | cf::EDITATTR | cf::FORMATTED);
}
void CalcRange::ClearContents() {
  ClearFlags("Range.ClearContents", cf::VALUE | cf::DATETIME | cf::STRING | cf::FORMULA);
}
void CalcRange::ClearComments() { ClearFlags("Range.ClearComments", cf::ANNOTATION); }
void CalcRange::ClearNotes() { ClearFlags("Range.ClearNotes", cf::ANNOTATION); }

void CalcRange::ClearOutline() {
  Call("Range.ClearOutline", [&] {
    Reference<css::sheet::XSheetOutline> outline(sheet_, UNO_QUERY_THROW);
    css::table::CellRangeAddress a;
    a.Sheet = static_cast<sal_Int16>(book_->SheetIndex(sheet_));
    a.StartRow = rect_.first_row;
    a.EndRow = rect_.last_row;
    a.StartColumn = rect_.first_column;
    a.EndColumn = rect_.last_column;
    // Outlines nest up to eight levels; each ungroup removes one.
    for (int level = 0; level < 8; ++level) {
      outline->ungroup(a, css::table::TableOrientation_ROWS);
      outline->ungroup(a, css::table::TableOrientation_COLUMNS);
    }
  });
}

bool CalcRange::Replace(const std::string& what, const std::string& replacement,
                        const ReplaceOptions& options) {
  return Call("Range.Replace", [&] {
    book_->set_plain(false);  // the replacement may hold anything
    Reference<css::util::XReplaceable> replaceable(Cells(), UNO_QUERY_THROW);
    Reference<css::util::XReplaceDescriptor> descriptor = replaceable->createReplaceDescriptor();
    Reference<css::beans::XPropertySet> props(descriptor, UNO_QUERY_THROW);
    // Excel's "*", "?" and "~" are the office's wildcards with "\" escapes.
    std::string pattern;
    bool wildcards = false;
    for (size_t i = 0; i < what.size(); ++i) {
      const char c = what[i];
      if (c == '~' && i + 1 < what.size() && std::strchr("*?~", what[i + 1]) != nullptr) {
        pattern += '\\';
        pattern += what[++i];
      } else {
        if (c == '*' || c == '?') wildcards = true;
        if (c == '\\') pattern += '\\';
        pattern += c;
      }
    }
    if (!wildcards) pattern = what;
    descriptor->setSearchString(ToOUString(pattern));
    descriptor->setReplaceString(ToOUString(replacement));
    props->setPropertyValue("SearchWildcard", Any(wildcards));
    props->setPropertyValue("SearchWords", Any(options.look_at.value_or(2) == 1));
    props->setPropertyValue("SearchCaseSensitive", Any(options.match_case.value_or(false)));
    props->setPropertyValue("SearchByRow", Any(options.search_order.value_or(1) != 2));
    replaceable->replaceAll(Reference<css::util::XSearchDescriptor>(descriptor, UNO_QUERY_THROW));
    return true;
  });
}

void CalcRange::EntireRowDelete() {
  Call("Range.EntireRow.Delete", [&] {
    Reference<css::table::XColumnRowRange> crr(sheet_, UNO_QUERY_THROW);
    crr->getRows()->removeByIndex(rect_.first_row, rect_.rows());
  });
}

void CalcRange::EntireColumnDelete() {
  Call("Range.EntireColumn.Delete", [&] {
    Reference<css::table::XColumnRowRange> crr(sheet_, UNO_QUERY_THROW);
    crr->getColumns()->removeByIndex(rect_.first_column, rect_.columns());
  });
}

void CalcRange::Copy() {
  Call("Range.Copy", [&] {
    ClipboardContent content;
    content.has_content = true;
    content.values = book_->ReadValues(sheet_, rect_);
    content.formulas = book_->ReadFormulas(sheet_, rect_);
    content.source_workbook = book_->id();
    content.source_sheet = Reference<css::uno::XInterface>(sheet_, UNO_QUERY);
    content.source = rect_;
    Clipboard::Get().Set(std::move(content));
  });
}

void CalcRange::PasteSpecial(const PasteSpecialOptions& options) {
  Call("Range.PasteSpecial", [&] {
    if (options.operation && *options.operation != -4142) NotSupported("PasteSpecial Operation");
    const CellRect pasted =
        book_->PasteAt(sheet_, rect_.first_row, rect_.first_column, options.paste.value_or(-4104),
                       options.skip_blanks.value_or(false), options.transpose.value_or(false));
    book_->SetSelection(sheet_, pasted);
  });
}

std::unique_ptr<Range> CalcRange::Offset(int32_t rows, int32_t columns) {
  return Call("Range.Offset", [&] {
    CellRect r{rect_.first_row + rows, rect_.first_column + columns, rect_.last_row + rows,
               rect_.last_column + columns};
    if (r.first_row < 0 || r.first_column < 0 || r.last_row >= book_->MaxRows() ||
        r.last_column >= book_->MaxColumns())
      throw Error(ErrorKind::kAutomation, "the offset lies outside the sheet");
    return std::make_unique<CalcRange>(book_, sheet_, r);
  });
}

std::unique_ptr<Range> CalcRange::Cells(int32_t row, int32_t column) {
  return Call("Range.Cells", [&] {
    const int32_t r = rect_.first_row + row - 1;
    const int32_t c = rect_.first_column + column - 1;
    if (r < 0 || c < 0 || r >= book_->MaxRows() || c >= book_->MaxColumns())
      throw Error(ErrorKind::kAutomation, "the cell lies outside the sheet");
    return std::make_unique<CalcRange>(book_, sheet_, CellRect{r, c, r, c});
  });
}

void CalcRange::Select() {
  Call("Range.Select", [&] {
    book_->SetActiveSheet(sheet_);
    book_->SetSelection(sheet_, rect_);
    book_->app()->SetActive(book_);
  });
}

std::unique_ptr<Range> CalcRange::SpecialCells(int32_t type) {
  return Call("Range.SpecialCells", [&]() -> std::unique_ptr<Range> {
    if (type != kXlCellTypeLastCell) NotSupported("SpecialCells with a type other than 11");
    const CellRect used = book_->UsedArea(sheet_);
    return std::make_unique<CalcRange>(
        book_, sheet_, CellRect{used.last_row, used.last_column, used.last_row, used.last_column});
  });
}

// ================================================================ Worksheet

CalcWorksheet::CalcWorksheet(CalcWorkbook* book, SheetRef sheet)
    : book_(book), sheet_(std::move(sheet)) {}

std::string CalcWorksheet::Name() {
  return Call("Worksheet.Name", [&] {
    Reference<css::container::XNamed> named(sheet_, UNO_QUERY_THROW);
    return ToUtf8(named->getName());
  });
}

void CalcWorksheet::SetName(const std::string& name) {
  Call("Worksheet.Name", [&] {
    Reference<css::container::XNamed> named(sheet_, UNO_QUERY_THROW);
    named->setName(ToOUString(name));
  });
}

int32_t CalcWorksheet::Index() {
  return Call("Worksheet.Index", [&] { return book_->SheetIndex(sheet_) + 1; });
}

void CalcWorksheet::Activate() {
  Call("Worksheet.Activate", [&] {
    book_->SetActiveSheet(sheet_);
    book_->app()->SetActive(book_);
  });
}

void CalcWorksheet::Delete() {
  Call("Worksheet.Delete", [&] {
    Reference<css::container::XIndexAccess> index(book_->sheets(), UNO_QUERY_THROW);
    const int32_t count = index->getCount();
    if (count <= 1)
      throw Error(ErrorKind::kAutomation, "a workbook must contain at least one visible worksheet");
    const int32_t position = book_->SheetIndex(sheet_);
    const bool was_active = book_->SameSheet(book_->ActiveSheetRef(), sheet_);
    Reference<css::container::XNamed> named(sheet_, UNO_QUERY_THROW);
    book_->sheets()->removeByName(named->getName());
    if (was_active) {
      // Excel activates the next sheet, or the previous one after the last.
      const int32_t next = position < count - 1 ? position : position - 1;
      book_->SetActiveSheet(SheetRef(index->getByIndex(next), UNO_QUERY_THROW));
    }
  });
}

const SheetRef& CalcWorksheet::sheet() {
  if (!sheet_.is()) sheet_ = book_->FirstSheet();
  return sheet_;
}

void CalcWorksheet::MoveTo(Worksheet& other, int32_t offset, const char* what) {
  Call(what, [&] {
    auto* target = dynamic_cast<CalcWorksheet*>(&other);
    if (target == nullptr || target->book_ != book_) NotSupported("moving a sheet to another workbook");
    Reference<css::container::XNamed> named(sheet_, UNO_QUERY_THROW);
    const int32_t destination = book_->SheetIndex(target->sheet()) + offset;
    book_->sheets()->moveByName(named->getName(), static_cast<sal_Int16>(destination));
  });
}

void CalcWorksheet::MoveBefore(Worksheet& before) { MoveTo(before, 0, "Worksheet.Move"); }
void CalcWorksheet::MoveAfter(Worksheet& after) { MoveTo(after, 1, "Worksheet.Move"); }

std::unique_ptr<Range> CalcWorksheet::UsedRange() {
  return Call("Worksheet.UsedRange", [&] {
    return std::make_unique<CalcRange>(book_, sheet_, book_->UsedArea(sheet_));
  });
}

std::unique_ptr<Range> CalcWorksheet::Cells() {
  return Call("Worksheet.Cells", [&] {
    return std::make_unique<CalcRange>(
        book_, sheet_, CellRect{0, 0, book_->MaxRows() - 1, book_->MaxColumns() - 1});
  });
}

std::unique_ptr<Range> CalcWorksheet::Cells(int32_t row, int32_t column) {
  return Call("Worksheet.Cells", [&] {
    if (row < 1 || column < 1 || row > book_->MaxRows() || column > book_->MaxColumns())
      throw Error(ErrorKind::kAutomation, "the cell lies outside the sheet");
    return std::make_unique<CalcRange>(book_, sheet_,
                                       CellRect{row - 1, column - 1, row - 1, column - 1});
  });
}

std::unique_ptr<Range> CalcWorksheet::GetRange(const std::string& address) {
  if (!sheet_.is() && book_->unborn() && !book_->closed() && book_->app()->max_rows > 0) {
    auto rect = book_->app()->CallKeepingCopy("Worksheet.Range", [&] {
      return ParseAddress(address, book_->app()->max_rows, book_->app()->max_columns);
    });
    if (rect) return std::make_unique<CalcRange>(book_, SheetRef(), *rect);
  }
  return Call("Worksheet.Range", [&] {
    auto rect = ParseAddress(address, book_->MaxRows(), book_->MaxColumns());
    if (!rect) {
      // Anything else the office understands (a named range, say).
      Reference<css::sheet::XCellRangeAddressable> addressable;
      try {
        addressable.set(sheet_->getCellRangeByName(ToOUString(address)), UNO_QUERY);
      } catch (const css::uno::RuntimeException&) {
      }
      if (!addressable.is())
        throw Error(ErrorKind::kAutomation, "not a valid range address: " + address);
      const auto a = addressable->getRangeAddress();
      rect = CellRect{a.StartRow, a.StartColumn, a.EndRow, a.EndColumn};
    }
    return std::make_unique<CalcRange>(book_, sheet_, *rect);
  });
}

void CalcWorksheet::Paste() {
  Call("Worksheet.Paste", [&] {
    auto [sheet, rect] = book_->SelectionRef();
    if (!book_->SameSheet(sheet, sheet_)) rect = CellRect{};
    const CellRect pasted = book_->PasteAt(sheet_, rect.first_row, rect.first_column, -4104, false, false);
    book_->SetSelection(sheet_, pasted);
  });
}

void CalcWorksheet::PasteSpecialValues() {
  Call("Worksheet.PasteSpecial", [&] {
    auto [sheet, rect] = book_->SelectionRef();
    if (!book_->SameSheet(sheet, sheet_)) rect = CellRect{};
    const CellRect pasted = book_->PasteAt(sheet_, rect.first_row, rect.first_column, -4163, false, false);
    book_->SetSelection(sheet_, pasted);
  });
}

void CalcWorksheet::PrintOut(const PrintOutOptions& options) {
  Call("Worksheet.PrintOut", [&] {
    if (options.preview.value_or(false)) NotSupported("PrintOut with Preview");
    book_->EnsureView();  // the office prints through a document's view
    Reference<css::view::XPrintable> printable(book_->component(), UNO_QUERY_THROW);
    if (options.active_printer && !options.active_printer->empty()) {
      printable->setPrinter(ToSequence<css::beans::PropertyValue>(
          {Prop("Name", Any(ToOUString(*options.active_printer)))}));
    }
    // The sheet as the selection prints that sheet alone, as Excel's
    // Worksheet.PrintOut does. Waiting makes the call return after the job
    // is handed over, so the watchdog covers it.
    std::vector<css::beans::PropertyValue> args{
        Prop("Selection", Any(Reference<css::uno::XInterface>(sheet_, UNO_QUERY))),
        Prop("Wait", Any(true)),
        Prop("CopyCount", Any(static_cast<sal_Int16>(options.copies.value_or(1)))),
        Prop("Collate", Any(options.collate.value_or(true))),
    };
    if (options.from || options.to) {
      const int32_t from = options.from.value_or(1);
      args.push_back(Prop("Pages", Any(ToOUString(std::to_string(from) + "-" +
                                                   (options.to ? std::to_string(*options.to) : "")))));
    }
    if (options.print_to_file.value_or(false)) {
      if (!options.pr_to_file_name || options.pr_to_file_name->empty())
        throw Error(ErrorKind::kAutomation, "PrintToFile needs PrToFileName");
      args.push_back(Prop("FileName", Any(ToOUString(FileUrl(*options.pr_to_file_name)))));
    }
    printable->print(ToSequence(args));
  });
}

// ================================================================ Worksheets

int32_t CalcWorksheets::Count() {
  if (book_->unborn() && !book_->closed())
    return book_->app()->CallKeepingCopy("Worksheets.Count", [] { return 1; });
  return book_->Call("Worksheets.Count", [&] {
    Reference<css::container::XIndexAccess> index(book_->sheets(), UNO_QUERY_THROW);
    return static_cast<int32_t>(index->getCount());
  });
}

std::unique_ptr<Worksheet> CalcWorksheets::Item(int32_t n) {
  if (book_->unborn() && !book_->closed() && n == 1) {
    return book_->app()->CallKeepingCopy(
        "Worksheets.Item", [&] { return std::make_unique<CalcWorksheet>(book_, SheetRef()); });
  }
  return book_->Call("Worksheets.Item", [&] {
    Reference<css::container::XIndexAccess> index(book_->sheets(), UNO_QUERY_THROW);
    if (n < 1 || n > index->getCount())
      throw Error(ErrorKind::kNotFound, "no sheet number " + std::to_string(n));
    return std::make_unique<CalcWorksheet>(book_, SheetRef(index->getByIndex(n - 1), UNO_QUERY_THROW));
  });
}

std::unique_ptr<Worksheet> CalcWorksheets::Item(const std::string& name) {
  return book_->Call("Worksheets.Item", [&] {
    // Excel's sheet names are compared without regard to case.
    const auto names = book_->sheets()->getElementNames();
    for (const auto& n : names) {
      if (EqualsIgnoreCase(n, name))
        return std::make_unique<CalcWorksheet>(book_, SheetRef(book_->sheets()->getByName(n), UNO_QUERY_THROW));
    }
    throw Error(ErrorKind::kNotFound, "no sheet named " + name);
  });
}

std::unique_ptr<Worksheet> CalcWorksheets::Add(Worksheet* before, Worksheet* after,
                                               std::optional<int32_t> type) {
  return book_->Call("Worksheets.Add", [&] {
    if (type && *type != kXlWorksheet) NotSupported("Worksheets.Add with a type other than a worksheet");
    if (before != nullptr && after != nullptr)
      throw Error(ErrorKind::kAutomation, "Before and After cannot both be given");
    int32_t position;
    auto index_of = [&](Worksheet* w) {
      auto* calc = dynamic_cast<CalcWorksheet*>(w);
      if (calc == nullptr) NotSupported("adding a sheet next to a sheet of another workbook");
      return book_->SheetIndex(calc->sheet());
    };
    if (before != nullptr)
      position = index_of(before);
    else if (after != nullptr)
      position = index_of(after) + 1;
    else
      position = book_->SheetIndex(book_->ActiveSheetRef());  // before the active sheet
    const auto names = book_->sheets()->getElementNames();
    auto taken = [&](const std::string& candidate) {
      for (const auto& n : names)
        if (EqualsIgnoreCase(n, candidate)) return true;
      return false;
    };
    int32_t number = names.getLength() + 1;
    while (taken("Sheet" + std::to_string(number))) ++number;
    const OUString name = ToOUString("Sheet" + std::to_string(number));
    book_->sheets()->insertNewByName(name, static_cast<sal_Int16>(position));
    SheetRef sheet(book_->sheets()->getByName(name), UNO_QUERY_THROW);
    book_->SetActiveSheet(sheet);
    return std::make_unique<CalcWorksheet>(book_, sheet);
  });
}

// ================================================================ Workbook

CalcWorkbook::CalcWorkbook(CalcApplication* app, Reference<css::lang::XComponent> component,
                           std::string name, std::string path, int32_t format)
    : app_(app),
      id_(g_next_workbook_id++),
      name_(std::move(name)),
      path_(std::move(path)),
      format_(format),
      unborn_(!component.is()),
      worksheets_(this) {
  if (component.is()) Attach(std::move(component));
}

void CalcWorkbook::Attach(Reference<css::lang::XComponent> component) {
  component_ = std::move(component);
  document_.set(component_, UNO_QUERY_THROW);
  sheets_ = document_->getSheets();
  Reference<css::container::XIndexAccess> index(sheets_, UNO_QUERY_THROW);
  active_sheet_.set(index->getByIndex(0), UNO_QUERY_THROW);
  // Excel opens a workbook on the sheet that was active when it was saved:
  // the one the document's view data names (a hidden window's view does not
  // take it from the file); else the first.
  try {
    Reference<css::document::XViewDataSupplier> supplier(component_, UNO_QUERY);
    Reference<css::container::XIndexAccess> views(supplier.is() ? supplier->getViewData() : nullptr);
    Sequence<css::beans::PropertyValue> settings;
    if (views.is() && views->getCount() > 0 && (views->getByIndex(0) >>= settings)) {
      for (const auto& p : settings) {
        OUString name;
        if (p.Name == "ActiveTable" && (p.Value >>= name) && sheets_->hasByName(name))
          active_sheet_.set(sheets_->getByName(name), UNO_QUERY_THROW);
      }
    }
  } catch (const css::uno::Exception&) {
  }
}

std::string CalcWorkbook::Name() {
  return app_->CallKeepingCopy("Workbook.Name", [&] {
    if (closed_) throw Error(ErrorKind::kAutomation, "Workbook.Name: the workbook is closed");
    return name_;
  });
}

void CalcWorkbook::Bear() {
  if (!unborn_) return;
  // Taken off first: a failure here must not leave every later call trying
  // again.
  if (app_->pending_book() == this) app_->SetPendingBook(nullptr);
  const std::optional<PendingCopy> copy = std::move(pending_);
  pending_.reset();
  Attach(app_->NewDocument());
  unborn_ = false;
  first_sheet_ = active_sheet_;
  plain_ = true;
  if (copy) {
    if (copy->source->closed() || copy->source->unborn())
      throw Error(ErrorKind::kAutomation, "the copied workbook is gone");
    WriteValues(first_sheet_, copy->from, copy->source->ReadValues(copy->sheet, copy->from));
  }
  Reference<css::util::XModifiable>(component_, UNO_QUERY_THROW)->setModified(!unborn_saved_);
}

SheetRef CalcWorkbook::FirstSheet() {
  if (unborn_) Bear();
  return first_sheet_.is() ? first_sheet_ : ActiveSheetRef();
}

void CalcWorkbook::SetPendingCopy(PendingCopy copy) {
  pending_ = std::move(copy);
  unborn_saved_ = false;
  app_->SetPendingBook(this);
}

bool CalcWorkbook::Saved() {
  if (unborn_ && !closed_) return app_->CallKeepingCopy("Workbook.Saved", [&] { return unborn_saved_; });
  return Call("Workbook.Saved", [&] {
    Reference<css::util::XModifiable> modifiable(component_, UNO_QUERY_THROW);
    return !modifiable->isModified();
  });
}

void CalcWorkbook::SetSaved(bool saved) {
  if (unborn_ && !closed_) {
    app_->CallKeepingCopy("Workbook.Saved", [&] { unborn_saved_ = saved; });
    return;
  }
  Call("Workbook.Saved", [&] {
    Reference<css::util::XModifiable> modifiable(component_, UNO_QUERY_THROW);
    modifiable->setModified(!saved);
  });
}

void CalcWorkbook::Activate() {
  if (unborn_ && !closed_) {
    app_->CallKeepingCopy("Workbook.Activate", [&] { app_->SetActive(this); });
    return;
  }
  Call("Workbook.Activate", [&] { app_->SetActive(this); });
}

bool CalcWorkbook::SameSheet(const SheetRef& a, const SheetRef& b) {
  if (!a.is() || !b.is()) return false;
  return SheetIndex(a) == SheetIndex(b);
}

SheetRef CalcWorkbook::ActiveSheetRef() {
  if (unborn_) Bear();
  // The office makes a new object for a sheet at every lookup, and each keeps
  // its place as sheets move; the one held here stays right. A sheet removed
  // behind our back falls back to the first.
  try {
    if (active_sheet_.is()) {
      Reference<css::container::XIndexAccess> index(sheets_, UNO_QUERY_THROW);
      const int32_t at = SheetIndex(active_sheet_);
      if (at >= 0 && at < index->getCount()) return active_sheet_;
    }
  } catch (const css::uno::RuntimeException&) {
  }
  Reference<css::container::XIndexAccess> index(sheets_, UNO_QUERY_THROW);
  active_sheet_.set(index->getByIndex(0), UNO_QUERY_THROW);
  return active_sheet_;
}

std::pair<SheetRef, CellRect> CalcWorkbook::SelectionRef() {
  const SheetRef active = ActiveSheetRef();
  if (SameSheet(selection_sheet_, active)) return {active, selection_};
  return {active, CellRect{}};
}

void CalcWorkbook::SetSelection(const SheetRef& sheet, const CellRect& rect) {
  selection_sheet_ = sheet;
  selection_ = rect;
  active_sheet_ = sheet;
}

int32_t CalcWorkbook::SheetIndex(const SheetRef& sheet) {
  Reference<css::sheet::XCellRangeAddressable> addressable(sheet, UNO_QUERY_THROW);
  return addressable->getRangeAddress().Sheet;
}

int32_t CalcWorkbook::MaxRows() {
  if (app_->max_rows == 0) {
    Reference<css::table::XColumnRowRange> crr(ActiveSheetRef(), UNO_QUERY_THROW);
    app_->max_rows = crr->getRows()->getCount();
    app_->max_columns = crr->getColumns()->getCount();
  }
  return app_->max_rows;
}

int32_t CalcWorkbook::MaxColumns() {
  MaxRows();
  return app_->max_columns;
}

CellRect CalcWorkbook::UsedArea(const SheetRef& sheet) {
  auto cursor = sheet->createCursor();
  Reference<css::sheet::XUsedAreaCursor> used(cursor, UNO_QUERY_THROW);
  used->gotoStartOfUsedArea(false);
  used->gotoEndOfUsedArea(true);
  Reference<css::sheet::XCellRangeAddressable> addressable(cursor, UNO_QUERY_THROW);
  const auto a = addressable->getRangeAddress();
  return CellRect{a.StartRow, a.StartColumn, a.EndRow, a.EndColumn};
}

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
    cell->setTokens(tokens);
  }
  return target;
}

void CalcWorkbook::StoreText(const std::string& temp, const FileFormat& format) {
  const SheetRef active = ActiveSheetRef();
  if (display_formulas_) {
    // With formulas shown, Excel writes each cell's formula in its own
    // syntax; the office's filter would write its own syntax, so the text is
    // made here from the cells' formulas.
    const CellRect used = UsedArea(active);
    const CellRect area{0, 0, used.last_row, used.last_column};
    const Block block = ReadFormulas(active, area);
    const bool empty = used == CellRect{} && std::holds_alternative<std::monostate>(block[0][0]);
    const char delimiter = format.layout == TextLayout::kPrinter ? '\t' : format.delimiter;
    const std::string text =
        empty ? std::string() : DelimitedText(block, delimiter, format.layout != TextLayout::kPrinter);
    std::ofstream out(temp, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out.flush()) throw Error(ErrorKind::kAutomation, "cannot write " + temp);
    return;
  }
  StoreSheetText(active, temp, format);
}

void CalcWorkbook::StoreSheetText(const SheetRef& sheet, const std::string& temp, const FileFormat& format) {
  // Field separator, text delimiter, character set (UTF-8), first line,
  // cell formats, language (en-US), quote all text, detect special numbers,
  // save as shown, export formulas, remove spaces, sheet (1-based).
  const bool printer = format.layout == TextLayout::kPrinter;
  const std::string options = std::to_string(printer ? 9 : static_cast<int>(format.delimiter)) +
                              "," + (printer ? "" : "34") + ",76,1,,1033,false,true,true,false,false," +
                              std::to_string(SheetIndex(sheet) + 1);
  auto args = ToSequence<css::beans::PropertyValue>({
      Prop("FilterName", Any(ToOUString(format.filter))),
      Prop("FilterOptions", Any(ToOUString(options))),
      Prop("Overwrite", Any(true)),
  });
  Reference<css::frame::XStorable> storable(component_, UNO_QUERY_THROW);
  storable->storeToURL(ToOUString(FileUrl(temp)), args);
  // Naming a sheet makes the filter put "-<sheet name>" before the file's
  // extension; the temporary name is unique, so its stem finds the file.
  std::error_code ec;
  if (fs::exists(temp, ec)) return;
  const fs::path t(temp);
  const std::string stem = t.stem().string() + "-";
  for (const auto& entry : fs::directory_iterator(t.parent_path(), ec)) {
    const std::string name = entry.path().filename().string();
    if (name.compare(0, stem.size(), stem) == 0 && entry.path().extension() == t.extension()) {
      fs::rename(entry.path(), t, ec);
      return;
    }
  }
}

void CalcWorkbook::SaveAs(const std::string& filename, const SaveAsOptions& options) {
  if (unborn_ && pending_ && !closed_ && !display_formulas_ && !filename.empty() &&
      options.password.value_or("").empty() && options.write_res_password.value_or("").empty()) {
    const int32_t number = options.file_format.value_or(51);
    const FileFormat* format = FindFileFormat(number);
    if (format != nullptr && format->filter != nullptr && format->layout == TextLayout::kDelimited &&
        app_->CallKeepingCopy("Workbook.SaveAs", [&] { return SaveCopyDirectly(filename, *format, number); }))
      return;
  }
  Call("Workbook.SaveAs", [&] {
    const int32_t number = options.file_format.value_or(format_ != 0 ? format_ : 51);
    const FileFormat* format = FindFileFormat(number);
    if (format == nullptr || format->filter == nullptr)
      throw Error(ErrorKind::kAutomation,
                  "file format " + std::to_string(number) + " cannot be written here");
    const std::string password = options.password.value_or("");
    if (!password.empty() && !format->encrypts)
      throw Error(ErrorKind::kAutomation, "file format " + std::to_string(number) +
                                              " cannot be written with a password here");
    if (!options.write_res_password.value_or("").empty()) NotSupported("SaveAs WriteResPassword");
    if (filename.empty()) throw Error(ErrorKind::kAutomation, "no file name");
    // The dBase writer is the office's database driver, a separate package.
    if (std::strcmp(format->filter, "dBase") == 0 &&
        access((app_->session().program_dir() + "/libdbaselo.so").c_str(), R_OK) != 0)
      throw Error(ErrorKind::kAutomation,
                  "file format " + std::to_string(number) +
                      " needs the office's database drivers (libreoffice-base-drivers)");

    // Written beside the target and renamed into place: a failed save leaves
    // no half-written file and an older file of that name untouched.
    // Some filters (dBase) need their own extension on the file.
    const SaveTemporaries temporaries(filename, format->extension);
    const std::string& written = temporaries.written;
    const std::string& finished = temporaries.finished;

    if (format->layout == TextLayout::kNone) {
      std::vector<css::beans::PropertyValue> args{Prop("FilterName", Any(ToOUString(format->filter))),
                                                  Prop("Overwrite", Any(true))};
      if (!password.empty()) args.push_back(Prop("Password", Any(ToOUString(password))));
      Reference<css::frame::XStorable> storable(component_, UNO_QUERY_THROW);
      storable->storeToURL(ToOUString(FileUrl(written)),
                           Sequence<css::beans::PropertyValue>(args.data(), args.size()));
    } else {
      StoreText(written, *format);
      std::vector<int> widths;
      if (format->layout == TextLayout::kPrinter) {
        // Each column at least as wide as it is on the sheet, counted in
        // characters of the default font (about 2.26 mm per 8.43 characters).
        const CellRect used = UsedArea(ActiveSheetRef());
        Reference<css::table::XColumnRowRange> crr(ActiveSheetRef(), UNO_QUERY_THROW);
        auto columns = crr->getColumns();
        for (int32_t c = 0; c <= used.last_column; ++c) {
          Reference<css::beans::XPropertySet> column(columns->getByIndex(c), UNO_QUERY_THROW);
          sal_Int32 width = 0;
          column->getPropertyValue("Width") >>= width;
          widths.push_back(static_cast<int>(width * 8.43 / 2258.0 + 0.5));
        }
      }
      FinishTextInPlace(written, finished, filename, *format, widths);
    }
    MoveIntoPlace(written, filename);
    name_ = fs::path(filename).filename().string();
    path_ = filename;
    format_ = number;
    Reference<css::util::XModifiable>(component_, UNO_QUERY_THROW)->setModified(false);
  });
}

bool CalcWorkbook::SaveCopyDirectly(const std::string& filename, const FileFormat& format, int32_t number) {
  const PendingCopy copy = *pending_;
  if (!copy.source->ExportsLikeValueCopy(copy.sheet, copy.from)) return false;
  const SaveTemporaries temporaries(filename, format.extension);
  copy.source->StoreSheetText(copy.sheet, temporaries.written, format);
  FinishTextInPlace(temporaries.written, temporaries.finished, filename, format, {});
  MoveIntoPlace(temporaries.written, filename);
  name_ = fs::path(filename).filename().string();
  path_ = filename;
  format_ = number;
  unborn_saved_ = true;
  ++app_->direct_exports;
  return true;
}

namespace {

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
  if (groups->getCount() > 64) return false;
  for (sal_Int32 i = 0; i < groups->getCount(); ++i) {
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
  if (!HoldsValue(ReadValues(sheet, {area.last_row, area.first_column, area.last_row, area.last_column})))
    return false;
  constexpr int32_t kChunk = 256;
  for (int32_t end = area.last_row; end >= area.first_row; end -= kChunk) {
    const int32_t begin = std::max(area.first_row, end - kChunk + 1);
    if (HoldsValue(ReadValues(sheet, {begin, area.last_column, end, area.last_column}))) return true;
  }
  return false;
}

void CalcWorkbook::CloseDocument() {
  if (closed_) return;
  closed_ = true;
  if (app_->pending_book() == this) app_->SetPendingBook(nullptr);
  pending_.reset();
  if (unborn_) return;
  try {
    Reference<css::util::XCloseable> closeable(component_, UNO_QUERY);
    if (closeable.is())
      closeable->close(true);
    else if (component_.is())
      component_->dispose();
  } catch (const css::util::CloseVetoException&) {
    component_->dispose();
  }
  parser_.clear();
}

void CalcWorkbook::Close(std::optional<bool> save_changes) {
  if (unborn_ && !closed_ && !(save_changes.value_or(false) && !unborn_saved_)) {
    // Nothing to save: the workbook goes without ever having a document.
    app_->CallKeepingCopy("Workbook.Close", [&] { CloseDocument(); });
    app_->Forget(this);
    return;
  }
  Call("Workbook.Close", [&] {
    if (save_changes.value_or(false) && !Saved()) {
      if (path_.empty())
        throw Error(ErrorKind::kAutomation, "the workbook has no file to be saved to");
      SaveAsOptions again;
      if (format_ != 0) again.file_format = format_;
      SaveAs(path_, again);
    }
    CloseDocument();
  });
  app_->Forget(this);
}

// ================================================================ Workbooks

Workbook& CalcWorkbooks::Open(const std::string& filename, const OpenOptions& options) {
  app_->RecycleIfDue();
  return app_->Call("Workbooks.Open", [&]() -> Workbook& {
    std::error_code ec;
    if (!fs::is_regular_file(filename, ec))
      throw Error(ErrorKind::kAutomation, "file not found: " + filename);
    const std::string url = FileUrl(filename);
    std::vector<css::beans::PropertyValue> args{
        Prop("Hidden", Any(true)),
        Prop("MacroExecMode", Any(css::document::MacroExecMode::ALWAYS_EXECUTE_NO_WARN)),
        Prop("UpdateDocMode", Any(options.update_links.value_or(0) == 0
                                      ? css::document::UpdateDocMode::NO_UPDATE
                                      : css::document::UpdateDocMode::QUIET_UPDATE)),
    };
    if (options.read_only) args.push_back(Prop("ReadOnly", Any(*options.read_only)));
    if (options.password && !options.password->empty())
      args.push_back(Prop("Password", Any(ToOUString(*options.password))));

    // Text sources are read with the text filter: with the given delimiter
    // for Format 6, else as Excel reads them (comma for .csv, tab else).
    bool text = false;
    std::optional<CalcApplication::Detected> detected;
    if (!IsWorkbookContainer(filename)) {
      const std::string ext = Lower(fs::path(filename).extension().string());
      text = ext == ".csv" || ext == ".txt" || ext == ".prn" || ext == ".tsv" || ext == ".tab";
      if (!text) {
        detected = app_->Detect(ToOUString(url));
        const std::string type = Lower(detected->type);
        text = type.find("text") != std::string::npos || type.find("csv") != std::string::npos;
        text = text && type.find("html") == std::string::npos && type.find("xml") == std::string::npos;
      }
    }
    int32_t format = 0;
    if (text) {
      std::string separator = Lower(fs::path(filename).extension().string()) == ".csv" ? "44" : "9";
      if (options.format && *options.format == 6 && options.delimiter && !options.delimiter->empty())
        separator = std::to_string(static_cast<unsigned char>((*options.delimiter)[0]));
      else if (options.format && *options.format == 1)
        separator = "9";
      else if (options.format && *options.format == 2)
        separator = "44";
      else if (options.format && *options.format == 4)
        separator = "59";
      else if (options.format && *options.format == 3)
        separator = "32";
      args.push_back(Prop("FilterName", Any(OUString("Text - txt - csv (StarCalc)"))));
      args.push_back(Prop("FilterOptions", Any(ToOUString(separator + ",34,76,1,,1033,false,true"))));
      format = 6;
    }
    Reference<css::lang::XComponent> component = app_->LoadWithoutView(ToOUString(url), args, detected);
    if (!component.is()) {
      // What the document alone cannot take (a file of another kind, a
      // wrong password) goes the office's usual way, which says why.
      Reference<css::frame::XComponentLoader> loader(app_->session().desktop(), UNO_QUERY_THROW);
      component = loader->loadComponentFromURL(ToOUString(url), "_blank", 0,
                                               Sequence<css::beans::PropertyValue>(args.data(), args.size()));
    }
    if (!component.is())
      throw Error(ErrorKind::kAutomation,
                  "cannot open " + filename + " (a wrong password or a damaged file)");
    Reference<css::sheet::XSpreadsheetDocument> spreadsheet(component, UNO_QUERY);
    if (!spreadsheet.is()) {
      Reference<css::util::XCloseable> closeable(component, UNO_QUERY);
      if (closeable.is()) closeable->close(true);
      throw Error(ErrorKind::kAutomation, filename + " is not a spreadsheet");
    }
    if (format == 0) {
      Reference<css::frame::XModel> model(component, UNO_QUERY);
      if (model.is()) {
        for (const auto& p : model->getArgs()) {
          OUString filter;
          if (p.Name == "FilterName" && (p.Value >>= filter))
            format = FormatOfFilter(ToUtf8(filter).c_str());
        }
      }
    }
    return app_->Adopt(component, fs::path(filename).filename().string(), filename, format);
  });
}

Workbook& CalcWorkbooks::Add() {
  app_->RecycleIfDue();
  // The document is made when the workbook is first used (CalcWorkbook::Bear).
  return app_->CallKeepingCopy("Workbooks.Add", [&]() -> Workbook& {
    CalcWorkbook& book = app_->Adopt(nullptr, app_->NextBookName(), "", 0);
    book.set_plain(true);
    return book;
  });
}

CalcApplication::Detected CalcApplication::Detect(const OUString& url) {
  if (!detection_.is())
    detection_.set(session_->Create("com.sun.star.document.TypeDetection"), UNO_QUERY_THROW);
  auto descriptor = ToSequence<css::beans::PropertyValue>({Prop("URL", Any(url))});
  Detected detected;
  detected.type = ToUtf8(detection_->queryTypeByDescriptor(descriptor, true));
  for (const auto& p : descriptor)
    if (p.Name == "FilterName") p.Value >>= detected.filter;
  return detected;
}

Reference<css::lang::XComponent> CalcApplication::LoadWithoutView(const OUString& url,
                                                                  std::vector<css::beans::PropertyValue> args,
                                                                  const std::optional<Detected>& detected) {
  OUString filter;
  for (const auto& a : args)
    if (a.Name == "FilterName") a.Value >>= filter;
  if (filter.isEmpty()) {
    filter = (detected ? *detected : Detect(url)).filter;
    if (filter.isEmpty()) return {};
    // Only a spreadsheet filter can fill a spreadsheet document.
    auto known = spreadsheet_filters_.find(ToUtf8(filter));
    if (known == spreadsheet_filters_.end()) {
      Reference<css::container::XNameAccess> filters(session_->Create("com.sun.star.document.FilterFactory"),
                                                     UNO_QUERY_THROW);
      Sequence<css::beans::PropertyValue> about;
      OUString service;
      if (filters->hasByName(filter) && (filters->getByName(filter) >>= about)) {
        for (const auto& p : about)
          if (p.Name == "DocumentService") p.Value >>= service;
      }
      const bool spreadsheet = service == "com.sun.star.sheet.SpreadsheetDocument";
      known = spreadsheet_filters_.emplace(ToUtf8(filter), spreadsheet).first;
    }
    if (!known->second) return {};
    args.push_back(Prop("FilterName", Any(filter)));
  }
  args.push_back(Prop("URL", Any(url)));
  Reference<css::lang::XComponent> model(session_->Create("com.sun.star.sheet.SpreadsheetDocument"),
                                         UNO_QUERY_THROW);
  try {
    Reference<css::frame::XLoadable>(model, UNO_QUERY_THROW)->load(ToSequence(args));
  } catch (const css::uno::Exception&) {
    try {
      Reference<css::util::XCloseable>(model, UNO_QUERY_THROW)->close(true);
    } catch (const css::uno::Exception&) {
      model->dispose();
    }
    return {};
  }
  return model;
}

void CalcWorkbook::EnsureView() {
  Reference<css::frame::XModel> model(component(), UNO_QUERY_THROW);
  if (model->getCurrentController().is()) return;
  Reference<css::frame::XComponentLoader> loader(app_->session().desktop(), UNO_QUERY_THROW);
  loader->loadComponentFromURL(
      "private:object", "_blank", 0,
      ToSequence<css::beans::PropertyValue>({Prop("Model", Any(model)), Prop("Hidden", Any(true))}));
  if (!model->getCurrentController().is()) throw Error(ErrorKind::kAutomation, "the workbook has no window");
}

Reference<css::lang::XComponent> CalcApplication::NewDocument() {
  Reference<css::frame::XComponentLoader> loader(session_->desktop(), UNO_QUERY_THROW);
  auto args = ToSequence<css::beans::PropertyValue>({Prop("Hidden", Any(true))});
  Reference<css::lang::XComponent> component =
      loader->loadComponentFromURL("private:factory/scalc", "_blank", 0, args);
  if (!component.is()) throw Error(ErrorKind::kAutomation, "cannot create a workbook");
  // One sheet named Sheet1, as Excel set to one sheet per new workbook.
  Reference<css::sheet::XSpreadsheetDocument> document(component, UNO_QUERY_THROW);
  auto sheets = document->getSheets();
  Reference<css::container::XIndexAccess> index(sheets, UNO_QUERY_THROW);
  while (index->getCount() > 1) {
    Reference<css::container::XNamed> last(index->getByIndex(index->getCount() - 1), UNO_QUERY_THROW);
    sheets->removeByName(last->getName());
  }
  Reference<css::container::XNamed> first(index->getByIndex(0), UNO_QUERY_THROW);
  if (first->getName() != "Sheet1") first->setName("Sheet1");
  Reference<css::util::XModifiable>(component, UNO_QUERY_THROW)->setModified(false);
  return component;
}

Workbook& CalcWorkbooks::Item(int32_t index) {
  return app_->CallKeepingCopy("Workbooks.Item", [&]() -> Workbook& {
    auto& books = app_->open_books();
    if (index < 1 || index > static_cast<int32_t>(books.size()))
      throw Error(ErrorKind::kNotFound, "no workbook number " + std::to_string(index));
    return *books[index - 1];
  });
}

int32_t CalcWorkbooks::Count() {
  return app_->CallKeepingCopy("Workbooks.Count",
                               [&] { return static_cast<int32_t>(app_->open_books().size()); });
}

void CalcWorkbooks::Close() {
  // Every workbook is closed even if one of them fails; the first failure
  // is reported.
  std::optional<Error> first_error;
  while (!app_->open_books().empty()) {
    CalcWorkbook* book = app_->open_books().back();
    try {
      app_->Call("Workbooks.Close", [&] { book->CloseDocument(); });
    } catch (const Error& e) {
      if (!first_error) first_error = e;
      if (e.kind() == ErrorKind::kDied || e.kind() == ErrorKind::kTimeout) {
        app_->open_books().clear();
        app_->SetActive(nullptr);
        break;
      }
    }
    app_->Forget(book);
  }
  if (first_error) throw *first_error;
}

// ================================================================ Application

CalcApplication::CalcApplication(const UnoOptions& options)
    : options_(options), session_(Session::Start(options)), workbooks_(this) {}

CalcApplication::~CalcApplication() {
  if (session_) session_->Kill();
}

CalcWorkbook& CalcApplication::Adopt(Reference<css::lang::XComponent> component, std::string name,
                                     std::string path, int32_t format) {
  all_.push_back(std::make_unique<CalcWorkbook>(this, std::move(component), std::move(name),
                                                std::move(path), format));
  CalcWorkbook* book = all_.back().get();
  open_.push_back(book);
  active_ = book;
  ++documents_since_start_;
  return *book;
}

void CalcApplication::Forget(CalcWorkbook* book) {
  open_.erase(std::remove(open_.begin(), open_.end(), book), open_.end());
  if (active_ == book) active_ = open_.empty() ? nullptr : open_.back();
}

void CalcApplication::RecycleIfDue() {
  if (!session_ || options_.recycle_after <= 0 || documents_since_start_ < options_.recycle_after ||
      !open_.empty())
    return;
  session_->Quit();
  session_.reset();
  session_ = Session::Start(options_);
  documents_since_start_ = 0;
  ++office_starts_;
  detection_.clear();
  max_rows = max_columns = 0;
}

std::string CalcApplication::Version() {
  return Call("Application.Version", [&] { return session_->ProductSetting("ooSetupVersion"); });
}

int32_t CalcApplication::Build() {
  return Call("Application.Build", [&] {
    // "7.4.7.2": the build is the last part.
    const std::string about = session_->ProductSetting("ooSetupVersionAboutBox");
    const size_t dot = about.rfind('.');
    const std::string last = dot == std::string::npos ? about : about.substr(dot + 1);
    int32_t build = 0;
    std::from_chars(last.data(), last.data() + last.size(), build);
    return build;
  });
}

Workbook& CalcApplication::ActiveWorkbook() {
  return CallKeepingCopy("Application.ActiveWorkbook", [&]() -> Workbook& {
    if (active_ == nullptr) throw Error(ErrorKind::kAutomation, "no workbook is open");
    return *active_;
  });
}

std::unique_ptr<Worksheet> CalcApplication::ActiveSheet() {
  return Call("Application.ActiveSheet", [&]() -> std::unique_ptr<Worksheet> {
    if (active_ == nullptr) throw Error(ErrorKind::kAutomation, "no workbook is open");
    return std::make_unique<CalcWorksheet>(active_, active_->ActiveSheetRef());
  });
}

void CalcApplication::SetDisplayFormulas(bool value) {
  CallKeepingCopy("ActiveWindow.DisplayFormulas", [&] {
    if (active_ == nullptr) throw Error(ErrorKind::kAutomation, "no window is active");
    active_->set_display_formulas(value);
  });
}

bool CalcApplication::DisplayFormulas() { return active_ != nullptr && active_->display_formulas(); }

std::unique_ptr<Range> CalcApplication::Selection() {
  return Call("Application.Selection", [&]() -> std::unique_ptr<Range> {
    if (active_ == nullptr) throw Error(ErrorKind::kAutomation, "no workbook is open");
    auto [sheet, rect] = active_->SelectionRef();
    return std::make_unique<CalcRange>(active_, sheet, rect);
  });
}

namespace {

// Whether Basic source declares a Sub or Function of that name.
bool DeclaresProcedure(const std::string& source, const std::string& name) {
  const std::string text = Lower(source);
  const std::string wanted = Lower(name);
  for (const char* keyword : {"sub ", "function "}) {
    for (size_t at = text.find(keyword); at != std::string::npos; at = text.find(keyword, at + 1)) {
      if (at > 0 && !std::isspace(static_cast<unsigned char>(text[at - 1]))) continue;
      size_t p = at + std::strlen(keyword);
      while (p < text.size() && text[p] == ' ') ++p;
      if (text.compare(p, wanted.size(), wanted) != 0) continue;
      const size_t end = p + wanted.size();
      if (end == text.size() || !(std::isalnum(static_cast<unsigned char>(text[end])) || text[end] == '_'))
        return true;
    }
  }
  return false;
}

std::vector<std::string> SplitDots(const std::string& s) {
  std::vector<std::string> parts(1);
  for (char c : s) {
    if (c == '.')
      parts.emplace_back();
    else
      parts.back() += c;
  }
  return parts;
}

}  // namespace

void CalcApplication::Run(const std::string& macro, const std::vector<std::string>& arguments) {
  Call("Application.Run", [&] {
    if (arguments.size() > 8) throw Error(ErrorKind::kAutomation, "Run takes at most eight arguments");
    // "'Book.xls'!Module.Macro" or "Book.xls!Macro" names the workbook;
    // otherwise the active workbook is searched first, then the others.
    std::string name = macro;
    std::vector<CalcWorkbook*> books;
    const size_t bang = macro.rfind('!');
    if (bang != std::string::npos) {
      std::string book_name = macro.substr(0, bang);
      if (book_name.size() >= 2 && book_name.front() == '\'' && book_name.back() == '\'')
        book_name = book_name.substr(1, book_name.size() - 2);
      name = macro.substr(bang + 1);
      for (CalcWorkbook* b : open_)
        if (Lower(b->Name()) == Lower(book_name)) books.push_back(b);
    } else {
      if (active_ != nullptr) books.push_back(active_);
      for (CalcWorkbook* b : open_)
        if (b != active_) books.push_back(b);
    }
    const auto parts = SplitDots(name);
    if (parts.empty() || parts.size() > 3 || parts.back().empty())
      throw Error(ErrorKind::kAutomation, "not a macro name: " + macro);
    // A macro may change any open workbook.
    for (CalcWorkbook* b : open_) b->set_plain(false);
    for (CalcWorkbook* book : books) {
      Reference<css::beans::XPropertySet> props(book->component(), UNO_QUERY);
      if (!props.is()) continue;
      Reference<css::script::XLibraryContainer> libraries;
      try {
        props->getPropertyValue("BasicLibraries") >>= libraries;
      } catch (const css::uno::Exception&) {
      }
      Reference<css::container::XNameAccess> library_names(libraries, UNO_QUERY);
      if (!library_names.is()) continue;
      for (const auto& library : library_names->getElementNames()) {
        if (parts.size() == 3 && !EqualsIgnoreCase(library, parts[0])) continue;
        libraries->loadLibrary(library);
        Reference<css::container::XNameAccess> modules(library_names->getByName(library), UNO_QUERY);
        if (!modules.is()) continue;
        for (const auto& module : modules->getElementNames()) {
          if (parts.size() >= 2 && !EqualsIgnoreCase(module, parts[parts.size() - 2])) continue;
          OUString source;
          modules->getByName(module) >>= source;
          if (!DeclaresProcedure(ToUtf8(source), parts.back())) continue;
          Reference<css::script::provider::XScriptProviderSupplier> supplier(book->component(),
                                                                            UNO_QUERY_THROW);
          const std::string url = "vnd.sun.star.script:" + ToUtf8(library) + "." + ToUtf8(module) +
                                  "." + parts.back() + "?language=Basic&location=document";
          auto script = supplier->getScriptProvider()->getScript(ToOUString(url));
          // Macros reach their workbook as ThisComponent, the office's
          // current document: a hidden document becomes it only through its
          // frame.
          book->EnsureView();
          Reference<css::frame::XModel> model(book->component(), UNO_QUERY);
          if (model.is() && model->getCurrentController().is()) {
            auto frame = model->getCurrentController()->getFrame();
            Reference<css::frame::XFramesSupplier> frames(session_->desktop(), UNO_QUERY);
            if (frame.is() && frames.is()) {
              frames->setActiveFrame(frame);
              frame->activate();
            }
          }
          std::vector<Any> args;
          for (const auto& a : arguments) args.push_back(Any(ToOUString(a)));
          Sequence<sal_Int16> out_index;
          Sequence<Any> out_params;
          script->invoke(ToSequence(args), out_index, out_params);
          return;
        }
      }
    }
    throw Error(ErrorKind::kAutomation, "the macro '" + macro + "' cannot be found");
  });
}

void CalcApplication::Quit() {
  if (!session_) return;
  open_.clear();
  active_ = nullptr;
  detection_.clear();
  session_->Quit();
}

bool CalcApplication::IsAlive() { return session_ && session_->Alive(); }

int32_t CalcApplication::ProcessId() { return session_ ? static_cast<int32_t>(session_->pid()) : -1; }

void CalcApplication::SetCallTimeLimit(std::chrono::milliseconds limit) {
  options_.call_time_limit = limit;
  if (session_) session_->SetCallTimeLimit(limit);
}

}  // namespace tabulon::office::uno
