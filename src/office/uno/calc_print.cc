// Worksheet.PrintOut and Range.PrintOut: the office prints the sheets its
// view has selected; a range prints as its sheet's passing print area.
#include "office/uno/calc_print.h"

#include <optional>
#include <string>
#include <vector>

#include <com/sun/star/beans/PropertyValue.hpp>
#include <com/sun/star/document/XUndoManager.hpp>
#include <com/sun/star/document/XUndoManagerSupplier.hpp>
#include <com/sun/star/frame/XController.hpp>
#include <com/sun/star/frame/XModel.hpp>
#include <com/sun/star/sheet/XCellRangeAddressable.hpp>
#include <com/sun/star/sheet/XPrintAreas.hpp>
#include <com/sun/star/sheet/XSpreadsheetView.hpp>
#include <com/sun/star/table/CellRangeAddress.hpp>
#include <com/sun/star/util/XModifiable.hpp>
#include <com/sun/star/view/XPrintable.hpp>
#include <com/sun/star/view/XSelectionSupplier.hpp>

#include "office/uno/calc_workbook.h"

namespace tabulon::office::uno {

namespace {

std::string PrinterName(const Reference<css::view::XPrintable>& printable) {
  for (const auto& p : printable->getPrinter()) {
    OUString name;
    if (p.Name == "Name" && (p.Value >>= name)) return ToUtf8(name);
  }
  return {};
}

// A range as its sheet's only print area while it lives; the print areas
// and the workbook's modified flag as they were afterwards.
class PrintAreaScope {
 public:
  PrintAreaScope(CalcWorkbook& book, const SheetRef& sheet, const Reference<css::table::XCellRange>& cells)
      : areas_(sheet, UNO_QUERY_THROW), modifiable_(book.component(), UNO_QUERY) {
    modified_ = modifiable_.is() && modifiable_->isModified();
    previous_ = areas_->getPrintAreas();
    Reference<css::document::XUndoManagerSupplier> undo(book.component(), UNO_QUERY);
    if (undo.is()) undo_ = undo->getUndoManager();
    const sal_Int32 undo_steps = undo_.is() ? undo_->getAllUndoActionTitles().getLength() : 0;
    Reference<css::sheet::XCellRangeAddressable> address(cells, UNO_QUERY_THROW);
    areas_->setPrintAreas(ToSequence<css::table::CellRangeAddress>({address->getRangeAddress()}));
    undoable_ = undo_.is() && undo_->getAllUndoActionTitles().getLength() > undo_steps;
  }
  ~PrintAreaScope() {
    try {
      // Undoing brings back what the print areas cannot say: a sheet with
      // none prints whole, one whose areas were set to none prints nothing.
      if (undoable_)
        undo_->undo();
      else
        areas_->setPrintAreas(previous_);
      if (modifiable_.is()) modifiable_->setModified(modified_);
    } catch (const css::uno::Exception&) {
    }
  }
  PrintAreaScope(const PrintAreaScope&) = delete;
  PrintAreaScope& operator=(const PrintAreaScope&) = delete;

 private:
  Reference<css::sheet::XPrintAreas> areas_;
  Reference<css::util::XModifiable> modifiable_;
  Reference<css::document::XUndoManager> undo_;
  Sequence<css::table::CellRangeAddress> previous_;
  bool modified_ = false;
  bool undoable_ = false;
};

}  // namespace

void PrintSelection(CalcWorkbook& book, const SheetRef& sheet, const Reference<css::table::XCellRange>& cells,
                    const PrintOutOptions& options) {
  if (options.preview.value_or(false)) NotSupported("PrintOut with Preview");
  const bool to_file = options.print_to_file.value_or(false);
  if (to_file && (!options.pr_to_file_name || options.pr_to_file_name->empty()))
    throw Error(ErrorKind::kAutomation, "PrintToFile needs PrToFileName");
  if (options.copies && *options.copies < 1) throw Error(ErrorKind::kAutomation, "Copies must be at least 1");
  book.EnsureView();  // the office prints through a document's view
  Reference<css::view::XPrintable> printable(book.component(), UNO_QUERY_THROW);
  if (options.active_printer && !options.active_printer->empty()) {
    // The office keeps its current printer when it has none of the name
    // asked for; Excel refuses the call then, and so does this.
    printable->setPrinter(
        ToSequence<css::beans::PropertyValue>({Prop("Name", Any(ToOUString(*options.active_printer)))}));
    if (PrinterName(printable) != *options.active_printer)
      throw Error(ErrorKind::kAutomation, "there is no printer named '" + *options.active_printer + "'");
  }
  // The office prints the sheets its view has selected: the sheet made the
  // active and only selected one prints alone. A range prints as the
  // sheet's print area for the time of the job (a range selected in the view
  // still prints the whole sheet).
  Reference<css::frame::XModel> model(book.component(), UNO_QUERY_THROW);
  Reference<css::sheet::XSpreadsheetView> view(model->getCurrentController(), UNO_QUERY_THROW);
  view->setActiveSheet(sheet);
  Reference<css::view::XSelectionSupplier>(view, UNO_QUERY_THROW)
      ->select(Any(sheet->getCellRangeByPosition(0, 0, 0, 0)));
  std::optional<PrintAreaScope> area;
  if (cells.is()) area.emplace(book, sheet, cells);
  // Waiting makes the call return after the job is handed over, so the
  // watchdog covers it.
  std::vector<css::beans::PropertyValue> args{
      Prop("PrintContent", Any(static_cast<sal_Int32>(1))),
      Prop("Wait", Any(true)),
      Prop("CopyCount", Any(static_cast<sal_Int16>(options.copies.value_or(1)))),
      Prop("Collate", Any(options.collate.value_or(true))),
  };
  if (options.from || options.to) {
    const int32_t from = options.from.value_or(1);
    args.push_back(
        Prop("Pages", Any(ToOUString(std::to_string(from) + "-" + (options.to ? std::to_string(*options.to) : "")))));
  }
  if (to_file) args.push_back(Prop("FileName", Any(ToOUString(FileUrl(*options.pr_to_file_name)))));
  printable->print(ToSequence(args));
}

}  // namespace tabulon::office::uno
