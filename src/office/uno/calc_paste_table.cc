// Pasting a word-processor table into a sheet. The table travels as the
// HTML the word processor gives other programs; this office reads it with
// its own HTML import into a scratch document, so merged cells stay merged,
// numbers become numbers and the cells keep their look, and then moves the
// cells from there to the sheet as one of its own pastes.
#include <algorithm>
#include <com/sun/star/container/XEnumerationAccess.hpp>
#include <com/sun/star/container/XIndexAccess.hpp>
#include <com/sun/star/datatransfer/XTransferableSupplier.hpp>
#include <com/sun/star/frame/XComponentLoader.hpp>
#include <com/sun/star/frame/XModel.hpp>
#include <com/sun/star/io/XInputStream.hpp>
#include <com/sun/star/lang/XMultiComponentFactory.hpp>
#include <com/sun/star/sheet/CellFlags.hpp>
#include <com/sun/star/sheet/XCellRangeAddressable.hpp>
#include <com/sun/star/sheet/XCellRangesQuery.hpp>
#include <com/sun/star/sheet/XSheetCellCursor.hpp>
#include <com/sun/star/sheet/XSheetCellRanges.hpp>
#include <com/sun/star/sheet/XSheetOperation.hpp>
#include <com/sun/star/sheet/XSpreadsheetDocument.hpp>
#include <com/sun/star/sheet/XUsedAreaCursor.hpp>
#include <com/sun/star/table/XCell.hpp>
#include <com/sun/star/text/XText.hpp>
#include <com/sun/star/util/CloseVetoException.hpp>
#include <com/sun/star/util/XCloseable.hpp>
#include <com/sun/star/view/XSelectionSupplier.hpp>

#include "office/uno/calc_workbook.h"
#include "office/uno/clipboard.h"

namespace tabulon::office::uno {

namespace {

// Every CellFlags bit: values, texts, formulas, notes, formats, objects.
constexpr sal_Int32 kAllCellFlags = 1023;

// The scratch document, closed however the paste ends.
class ScratchDocument {
 public:
  explicit ScratchDocument(Reference<css::lang::XComponent> component) : component_(std::move(component)) {}
  ~ScratchDocument() {
    try {
      Reference<css::util::XCloseable> closeable(component_, UNO_QUERY);
      if (closeable.is())
        closeable->close(true);
      else if (component_.is())
        component_->dispose();
    } catch (const css::uno::Exception&) {
      // A refused close leaves a hidden scratch document in an office the
      // application owns; it goes with that office.
    }
  }
  ScratchDocument(const ScratchDocument&) = delete;
  ScratchDocument& operator=(const ScratchDocument&) = delete;
  const Reference<css::lang::XComponent>& component() const { return component_; }

 private:
  Reference<css::lang::XComponent> component_;
};

Reference<css::lang::XComponent> LoadHtml(Session& session, const std::string& html) {
  const Sequence<sal_Int8> bytes(reinterpret_cast<const sal_Int8*>(html.data()), static_cast<sal_Int32>(html.size()));
  const Any argument(bytes);
  Reference<css::io::XInputStream> stream(
      session.context()->getServiceManager()->createInstanceWithArgumentsAndContext(
          "com.sun.star.io.SequenceInputStream", Sequence<Any>(&argument, 1), session.context()),
      UNO_QUERY_THROW);
  Reference<css::frame::XComponentLoader> loader(session.desktop(), UNO_QUERY_THROW);
  auto component = loader->loadComponentFromURL(
      "private:stream", "_blank", 0,
      ToSequence<css::beans::PropertyValue>({Prop("Hidden", Any(true)), Prop("InputStream", Any(stream)),
                                             Prop("FilterName", Any(OUString("HTML (StarCalc)")))}));
  if (!component.is()) throw Error(ErrorKind::kAutomation, "the table could not be read for pasting");
  return component;
}

// A word-processor cell holds text, never a formula: text that the HTML
// import took for one (it starts with "=") is put back as the text it was.
void FormulasToText(const Reference<css::table::XCellRange>& range) {
  Reference<css::sheet::XCellRangesQuery> query(range, UNO_QUERY_THROW);
  Reference<css::container::XEnumerationAccess> cells(
      query->queryContentCells(css::sheet::CellFlags::FORMULA)->getCells(), UNO_QUERY_THROW);
  for (auto e = cells->createEnumeration(); e->hasMoreElements();) {
    Reference<css::table::XCell> cell(e->nextElement(), UNO_QUERY_THROW);
    const OUString text = cell->getFormula();
    Reference<css::text::XText>(cell, UNO_QUERY_THROW)->setString(text);
  }
}

}  // namespace

CellRect CalcWorkbook::PasteTable(const SheetRef& sheet, int32_t row, int32_t column, const ClipboardContent& clip,
                                  bool values_only) {
  ScratchDocument scratch(LoadHtml(app_->session(), clip.html));
  Reference<css::sheet::XSpreadsheetDocument> document(scratch.component(), UNO_QUERY_THROW);
  Reference<css::container::XIndexAccess> sheets(document->getSheets(), UNO_QUERY_THROW);
  if (sheets->getCount() < 1) throw Error(ErrorKind::kAutomation, "the table could not be read for pasting");
  SheetRef from(sheets->getByIndex(0), UNO_QUERY_THROW);

  // The table's cells start at A1 there; an empty last row or column of
  // the table is not part of the used area, the table's own size says.
  Reference<css::sheet::XSheetCellCursor> cursor = from->createCursor();
  Reference<css::sheet::XUsedAreaCursor> used(cursor, UNO_QUERY_THROW);
  used->gotoStartOfUsedArea(false);
  used->gotoEndOfUsedArea(true);
  const auto area = Reference<css::sheet::XCellRangeAddressable>(cursor, UNO_QUERY_THROW)->getRangeAddress();
  int32_t last_row = area.EndRow;
  int32_t last_column = area.EndColumn;
  last_row = std::max<int32_t>(last_row, static_cast<int32_t>(clip.values.size()) - 1);
  if (!clip.values.empty())
    last_column = std::max<int32_t>(last_column, static_cast<int32_t>(clip.values[0].size()) - 1);
  const CellRect source{0, 0, last_row, last_column};
  const CellRect target{row, column, row + last_row, column + last_column};
  if (target.last_row >= MaxRows() || target.last_column >= MaxColumns())
    throw Error(ErrorKind::kAutomation, "the paste area lies outside the sheet");
  const auto source_range = from->getCellRangeByPosition(0, 0, last_column, last_row);
  FormulasToText(source_range);

  if (values_only) {
    WriteValues(sheet, target, ReadValues(from, source));
    return target;
  }

  Reference<css::frame::XModel> scratch_model(scratch.component(), UNO_QUERY_THROW);
  Reference<css::view::XSelectionSupplier> scratch_view(scratch_model->getCurrentController(), UNO_QUERY_THROW);
  scratch_view->select(Any(source_range));
  const auto transferable =
      Reference<css::datatransfer::XTransferableSupplier>(scratch_view, UNO_QUERY_THROW)->getTransferable();

  // The office asks before it pastes over cells that hold something, and
  // a headless office takes that as a no; a paste replaces what was there.
  Reference<css::sheet::XSheetOperation>(
      sheet->getCellRangeByPosition(target.first_column, target.first_row, target.last_column, target.last_row),
      UNO_QUERY_THROW)
      ->clearContents(kAllCellFlags);

  EnsureView();
  Reference<css::frame::XModel> model(component(), UNO_QUERY_THROW);
  Reference<css::view::XSelectionSupplier> view(model->getCurrentController(), UNO_QUERY_THROW);
  view->select(Any(sheet->getCellRangeByPosition(column, row, column, row)));
  Reference<css::datatransfer::XTransferableSupplier>(view, UNO_QUERY_THROW)->insertTransferable(transferable);
  return target;
}

}  // namespace tabulon::office::uno
