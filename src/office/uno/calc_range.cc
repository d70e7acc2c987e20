#include "office/uno/calc_range.h"

#include <algorithm>


#include <com/sun/star/beans/XPropertySet.hpp>
#include <com/sun/star/lang/Locale.hpp>
#include <com/sun/star/sheet/CellFlags.hpp>
#include <com/sun/star/sheet/XCellRangesQuery.hpp>
#include <com/sun/star/sheet/XSheetAnnotationAnchor.hpp>
#include <com/sun/star/sheet/XSheetAnnotations.hpp>
#include <com/sun/star/sheet/XSheetAnnotationsSupplier.hpp>
#include <com/sun/star/sheet/XSheetCellRanges.hpp>
#include <com/sun/star/text/XSimpleText.hpp>
#include <com/sun/star/text/XTextRange.hpp>
#include <com/sun/star/sheet/XSheetOperation.hpp>
#include <com/sun/star/sheet/XSheetOutline.hpp>
#include <com/sun/star/table/CellRangeAddress.hpp>
#include <com/sun/star/table/TableOrientation.hpp>
#include <com/sun/star/table/XColumnRowRange.hpp>
#include <com/sun/star/table/XTableColumns.hpp>
#include <com/sun/star/table/XTableRows.hpp>
#include <com/sun/star/util/NumberFormat.hpp>
#include <com/sun/star/util/XNumberFormats.hpp>
#include <com/sun/star/util/XNumberFormatter.hpp>
#include <com/sun/star/util/XNumberFormatsSupplier.hpp>
#include <com/sun/star/util/XReplaceDescriptor.hpp>
#include <com/sun/star/util/XMergeable.hpp>
#include <com/sun/star/util/XReplaceable.hpp>

#include "office/uno/calc_application.h"
#include "office/uno/calc_print.h"
#include "office/uno/calc_workbook.h"
#include "office/uno/clipboard.h"
#include "office/uno/excel_search.h"

namespace tabulon::office::uno {

namespace cf = css::sheet::CellFlags;

template <typename F>
auto CalcRange::Call(const char* what, F&& f) -> decltype(f()) {
  return book_->CallOnSheet(what, sheet_, std::forward<F>(f));
}

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

KindBlock CalcRange::ValueKinds() {
  return Call("Range.Value", [&] { return book_->ReadKinds(sheet_, rect_); });
}

void CalcRange::SetTypedValue(const Block& values, const KindBlock& kinds) {
  if (kinds.empty()) {
    SetValue(values);
    return;
  }
  Call("Range.Value", [&] { book_->WriteTypedValues(sheet_, rect_, values, kinds); });
}

void CalcRange::CopyValueFrom(Range& source) {
  auto* from = dynamic_cast<CalcRange*>(&source);
  CalcApplication* app = book_->app();
  const bool target_waits = !sheet_.is() && book_->unborn_state().CanTakeCopy();
  if (target_waits && from != nullptr && from->book_->app() == app && !from->book_->unborn_state().unborn() &&
      !from->book_->closed() && from->sheet_.is() && from->rect_ == rect_) {
    // Copied when the workbook is born, unless it is saved as text first.
    app->CallKeepingCopy("Range.Value",
                         [&] { book_->unborn_state().TakeCopy({from->book_, from->sheet_, rect_}); });
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

void CalcRange::SetFormula(const std::string& formula) {
  SetFormula(Block{{Cell(formula)}});
  if (!formula.empty() && formula[0] != '=' && formula[0] != '\'') ShowAsTyped(formula);
}

namespace {

// The format the spreadsheet gives a General cell for a number typed in
// this form (en-US): "1/15/2024" a date, "3:45 PM" a time, "12%" a
// percentage, "$1,234.50" an amount, "1,234" thousands; "" for a plain
// number.
std::string TypedFormat(sal_Int16 type, const std::string& text) {
  namespace nf = css::util::NumberFormat;
  const bool decimals = text.find('.') != std::string::npos;
  const std::string lower = Lower(text);
  const bool seconds = std::count(text.begin(), text.end(), ':') >= 2;
  const bool am_pm = lower.find("am") != std::string::npos || lower.find("pm") != std::string::npos;
  const std::string time = std::string("h:mm") + (seconds ? ":ss" : "") + (am_pm ? " AM/PM" : "");
  if ((type & nf::DATETIME) == nf::DATETIME) return "m/d/yyyy " + time;
  if (type & nf::DATE) return "m/d/yyyy";
  if (type & nf::TIME) return time;
  if (type & nf::PERCENT) return decimals ? "0.00%" : "0%";
  if (type & nf::CURRENCY) return decimals ? "$#,##0.00" : "$#,##0";
  if (type & nf::SCIENTIFIC) return "0.00E+00";
  if ((type & nf::NUMBER) && text.find(',') != std::string::npos) return decimals ? "#,##0.00" : "#,##0";
  return "";
}

}  // namespace

// The office reads a typed date, time, percentage or amount as its number
// but leaves a General cell General; the spreadsheet shows it the way it was
// typed, so the cells get that format (those that had none of their own).
void CalcRange::ShowAsTyped(const std::string& text) {
  const std::string format = Call("Range.Formula", [&]() -> std::string {
    Reference<css::util::XNumberFormatsSupplier> supplier(book_->component(), UNO_QUERY_THROW);
    Reference<css::util::XNumberFormatter> formatter(
        book_->app()->session().Create("com.sun.star.util.NumberFormatter"), UNO_QUERY_THROW);
    formatter->attachNumberFormatsSupplier(supplier);
    sal_Int32 key = 0;
    try {
      key = formatter->detectNumberFormat(0, ToOUString(text));
    } catch (const css::uno::Exception&) {
      return "";  // not a number: text
    }
    Reference<css::beans::XPropertySet> detected(supplier->getNumberFormats()->getByKey(key), UNO_QUERY_THROW);
    sal_Int16 type = 0;
    detected->getPropertyValue("Type") >>= type;
    return TypedFormat(type, text);
  });
  if (format.empty() || NumberFormat() != "General") return;
  SetNumberFormat(format);
}

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

std::string CalcRange::NumberFormat() {
  return Call("Range.NumberFormat", [&] {
    Reference<css::beans::XPropertySet> cell(Cells()->getCellByPosition(0, 0), UNO_QUERY_THROW);
    sal_Int32 key = 0;
    cell->getPropertyValue("NumberFormat") >>= key;
    Reference<css::util::XNumberFormatsSupplier> supplier(book_->component(), UNO_QUERY_THROW);
    Reference<css::beans::XPropertySet> format(supplier->getNumberFormats()->getByKey(key), UNO_QUERY_THROW);
    OUString code;
    format->getPropertyValue("FormatString") >>= code;
    return ToUtf8(code);
  });
}

std::string CalcRange::Text() {
  return Call("Range.Text", [&] {
    Reference<css::text::XTextRange> cell(Cells()->getCellByPosition(0, 0), UNO_QUERY_THROW);
    return ToUtf8(cell->getString());
  });
}

void CalcRange::AddComment(const std::string& text) {
  Call("Range.AddComment", [&] {
    Reference<css::sheet::XSheetAnnotationsSupplier> supplier(sheet_, UNO_QUERY_THROW);
    supplier->getAnnotations()->insertNew(At(book_->SheetIndex(sheet_), rect_.first_row, rect_.first_column),
                                          ToOUString(text));
  });
}

std::optional<std::string> CalcRange::CommentText() {
  return Call("Range.Comment", [&]() -> std::optional<std::string> {
    Reference<css::sheet::XSheetAnnotationAnchor> anchor(Cells()->getCellByPosition(0, 0), UNO_QUERY_THROW);
    Reference<css::text::XSimpleText> note(anchor->getAnnotation(), UNO_QUERY_THROW);
    const OUString text = note->getString();
    if (text.isEmpty()) return std::nullopt;
    return ToUtf8(text);
  });
}

void CalcRange::ClearFlags(const char* what, int32_t flags) {
  Call(what, [&] {
    Reference<css::sheet::XSheetOperation> op(Cells(), UNO_QUERY_THROW);
    op->clearContents(flags);
  });
}

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
    if (what.empty()) return true;
    book_->set_plain(false);  // the replacement may hold anything
    const bool whole = options.look_at.value_or(kXlPart) == kXlWhole;
    const bool match_case = options.match_case.value_or(false);
    Reference<css::sheet::XCellRangesQuery> query(Cells(), UNO_QUERY_THROW);
    // Constants: the office's own replace, which takes the new text as typed
    // input, with the pattern as a regular expression that reads it the way
    // the spreadsheet does.
    Reference<css::sheet::XSheetCellRanges> constants =
        query->queryContentCells(cf::VALUE | cf::DATETIME | cf::STRING);
    if (constants.is() && constants->getRangeAddresses().getLength() > 0) {
      Reference<css::util::XReplaceable> replaceable(constants, UNO_QUERY_THROW);
      Reference<css::util::XReplaceDescriptor> descriptor = replaceable->createReplaceDescriptor();
      Reference<css::beans::XPropertySet> props(descriptor, UNO_QUERY_THROW);
      descriptor->setSearchString(ToOUString(ExcelPatternToRegex(what, whole)));
      descriptor->setReplaceString(ToOUString(LiteralRegexReplacement(replacement)));
      // Wildcards off first: turning them off also turns expressions off.
      props->setPropertyValue("SearchWildcard", Any(false));
      props->setPropertyValue("SearchRegularExpression", Any(true));
      props->setPropertyValue("SearchWords", Any(false));
      props->setPropertyValue("SearchCaseSensitive", Any(match_case));
      props->setPropertyValue("SearchByRow", Any(options.search_order.value_or(kXlByRows) != kXlByColumns));
      replaceable->replaceAll(Reference<css::util::XSearchDescriptor>(descriptor, UNO_QUERY_THROW));
    }
    ReplaceInFormulas(what, replacement, whole, match_case);
    return true;
  });
}

// Formulas are searched in their Excel-syntax text, as the spreadsheet
// shows them, not in the office's own; a changed one is typed in anew.
void CalcRange::ReplaceInFormulas(const std::string& what, const std::string& replacement, bool whole,
                                  bool match_case) {
  Reference<css::sheet::XCellRangesQuery> query(Cells(), UNO_QUERY_THROW);
  Reference<css::sheet::XSheetCellRanges> formulas = query->queryContentCells(cf::FORMULA);
  if (!formulas.is()) return;
  for (const auto& a : formulas->getRangeAddresses()) {
    const CellRect area{a.StartRow, a.StartColumn, a.EndRow, a.EndColumn};
    const Block texts = book_->ReadFormulas(sheet_, area);
    for (int32_t r = 0; r < area.rows(); ++r) {
      for (int32_t c = 0; c < area.columns(); ++c) {
        const auto* text = std::get_if<std::string>(&texts[r][c]);
        if (text == nullptr) continue;
        auto changed = ReplaceExcelPattern(*text, what, replacement, whole, match_case);
        if (!changed) continue;
        const int32_t row = area.first_row + r;
        const int32_t column = area.first_column + c;
        book_->WriteFormulas(sheet_, CellRect{row, column, row, column}, Block{{Cell(std::move(*changed))}},
                             std::nullopt);
      }
    }
  }
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

void CalcRange::PrintOut(const PrintOutOptions& options) {
  Call("Range.PrintOut", [&] { PrintSelection(*book_, sheet_, Cells(), options); });
}

}  // namespace tabulon::office::uno

namespace tabulon::office::uno {

bool CalcRange::MergeCells() {
  return Call("Range.MergeCells", [&] {
    Reference<css::util::XMergeable> merge(
        sheet_->getCellRangeByPosition(rect_.first_column, rect_.first_row, rect_.first_column, rect_.first_row),
        UNO_QUERY_THROW);
    return static_cast<bool>(merge->getIsMerged());
  });
}

bool CalcRange::FontBold() {
  return Call("Range.Font.Bold", [&] {
    Reference<css::beans::XPropertySet> cell(sheet_->getCellByPosition(rect_.first_column, rect_.first_row),
                                             UNO_QUERY_THROW);
    float weight = 0;
    cell->getPropertyValue("CharWeight") >>= weight;
    return weight >= 150.0f;  // css::awt::FontWeight::BOLD
  });
}

}  // namespace tabulon::office::uno
