#include "office/uno/calc_worksheet.h"

#include <vector>

#include <com/sun/star/beans/XPropertySet.hpp>
#include <com/sun/star/container/XIndexAccess.hpp>
#include <com/sun/star/container/NoSuchElementException.hpp>
#include <com/sun/star/container/XNamed.hpp>
#include <com/sun/star/sheet/XCellRangeAddressable.hpp>
#include <com/sun/star/sheet/XSpreadsheets2.hpp>
#include <com/sun/star/view/XPrintable.hpp>

#include "office/uno/calc_application.h"
#include "office/uno/calc_print.h"
#include "office/uno/calc_range.h"
#include "office/uno/calc_workbook.h"

namespace tabulon::office::uno {

template <typename F>
auto CalcWorksheet::Call(const char* what, F&& f) -> decltype(f()) {
  return book_->CallOnSheet(what, sheet_, std::forward<F>(f));
}

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
    const Reference<css::container::XIndexAccess>& index = book_->sheet_index();
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
  if (!sheet_.is()) sheet_ = book_->unborn_state().FirstSheet();
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

namespace {

// The name Excel gives a copy that cannot keep its sheet's name: "<name> (2)",
// "<name> (3)", ...
OUString FreeCopyName(const Reference<css::sheet::XSpreadsheets>& sheets, const OUString& name) {
  auto taken = [&](const OUString& candidate) {
    for (const auto& n : sheets->getElementNames())
      if (n.equalsIgnoreAsciiCase(candidate)) return true;
    return false;
  };
  if (!taken(name)) return name;
  for (int32_t n = 2;; ++n) {
    const OUString candidate = name + " (" + OUString::number(n) + ")";
    if (!taken(candidate)) return candidate;
  }
}

}  // namespace

std::unique_ptr<Worksheet> CalcWorksheet::Copy(Worksheet* before, Worksheet* after) {
  if (before != nullptr && after != nullptr)
    throw Error(ErrorKind::kAutomation, "Worksheet.Copy: Before and After cannot both be given");
  Worksheet* given = before != nullptr ? before : after;
  auto* anchor = dynamic_cast<CalcWorksheet*>(given);
  if (given != nullptr && anchor == nullptr) NotSupported("copying a sheet next to a sheet of another kind");
  if (anchor != nullptr && anchor->book_->app() != book_->app())
    NotSupported("copying a sheet to a workbook of another application");
  // Without a place, the copy goes into a new workbook, made first: it
  // brings its one default sheet, which the copy replaces.
  CalcWorkbook* destination =
      anchor != nullptr ? anchor->book_ : static_cast<CalcWorkbook*>(&book_->app()->GetWorkbooks().Add());
  return destination->Call("Worksheet.Copy", [&]() -> std::unique_ptr<Worksheet> {
    const SheetRef& source = sheet();
    const OUString name = Reference<css::container::XNamed>(source, UNO_QUERY_THROW)->getName();
    const Reference<css::sheet::XSpreadsheets>& sheets = destination->sheets();
    const Reference<css::container::XIndexAccess>& index = destination->sheet_index();
    const int32_t position =
        anchor == nullptr ? 0 : destination->SheetIndex(anchor->sheet()) + (after != nullptr ? 1 : 0);
    const OUString copy_name = FreeCopyName(sheets, name);
    int32_t at = position;
    if (destination == book_) {
      sheets->copyByName(name, copy_name, static_cast<sal_Int16>(position));
    } else {
      // The whole sheet, with its formats, widths and merged cells.
      Reference<css::sheet::XSpreadsheets2> importer(sheets, UNO_QUERY_THROW);
      Reference<css::sheet::XSpreadsheetDocument> document(book_->component(), UNO_QUERY_THROW);
      at = importer->importSheet(document, name, position);
      Reference<css::container::XNamed> imported(index->getByIndex(at), UNO_QUERY_THROW);
      if (imported->getName() != copy_name) imported->setName(copy_name);
    }
    SheetRef copy(index->getByIndex(at), UNO_QUERY_THROW);
    if (anchor == nullptr) {
      Reference<css::container::XNamed> placeholder(index->getByIndex(at == 0 ? 1 : 0), UNO_QUERY_THROW);
      sheets->removeByName(placeholder->getName());
      Reference<css::container::XNamed> copied(copy, UNO_QUERY_THROW);
      if (copied->getName() != name) copied->setName(name);
    }
    destination->set_plain(false);
    destination->SetActiveSheet(copy);
    destination->app()->SetActive(destination);
    return std::make_unique<CalcWorksheet>(destination, copy);
  });
}

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
  if (!sheet_.is() && book_->unborn_state().OpenUnborn() && book_->app()->max_rows > 0) {
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

// Pastes at the selection when it lies on this sheet, else at A1; the
// pasted cells become the selection.
void CalcWorksheet::PasteAtSelection(const char* what, int32_t kind) {
  Call(what, [&] {
    auto [sheet, rect] = book_->SelectionRef();
    if (!book_->SameSheet(sheet, sheet_)) rect = CellRect{};
    const CellRect pasted = book_->PasteAt(sheet_, rect.first_row, rect.first_column, kind, false, false);
    book_->SetSelection(sheet_, pasted);
  });
}

void CalcWorksheet::Paste() { PasteAtSelection("Worksheet.Paste", -4104); }
void CalcWorksheet::PasteSpecialValues() { PasteAtSelection("Worksheet.PasteSpecial", -4163); }

void CalcWorksheet::PrintOut(const PrintOutOptions& options) {
  // That sheet alone, as Excel's Worksheet.PrintOut prints it.
  Call("Worksheet.PrintOut", [&] { PrintSelection(*book_, sheet_, {}, options); });
}

// ================================================================ Worksheets

int32_t CalcWorksheets::Count() {
  if (book_->unborn_state().OpenUnborn())
    return book_->app()->CallKeepingCopy("Worksheets.Count", [] { return 1; });
  return book_->Call("Worksheets.Count", [&] {
    const Reference<css::container::XIndexAccess>& index = book_->sheet_index();
    return static_cast<int32_t>(index->getCount());
  });
}

std::unique_ptr<Worksheet> CalcWorksheets::Item(int32_t n) {
  if (book_->unborn_state().OpenUnborn() && n == 1) {
    return book_->app()->CallKeepingCopy(
        "Worksheets.Item", [&] { return std::make_unique<CalcWorksheet>(book_, SheetRef()); });
  }
  return book_->Call("Worksheets.Item", [&] {
    const Reference<css::container::XIndexAccess>& index = book_->sheet_index();
    if (n < 1 || n > index->getCount())
      throw Error(ErrorKind::kNotFound, "no sheet number " + std::to_string(n));
    return std::make_unique<CalcWorksheet>(book_, SheetRef(index->getByIndex(n - 1), UNO_QUERY_THROW));
  });
}

std::unique_ptr<Worksheet> CalcWorksheets::Item(const std::string& name) {
  return book_->Call("Worksheets.Item", [&] {
    // Excel's sheet names are compared without regard to case. The office's
    // are unique without regard to case too, so a sheet of exactly that
    // name is the one; asking for it first spares the list of names.
    try {
      return std::make_unique<CalcWorksheet>(
          book_, SheetRef(book_->sheets()->getByName(ToOUString(name)), UNO_QUERY_THROW));
    } catch (const css::container::NoSuchElementException&) {
    }
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

}  // namespace tabulon::office::uno
