#include "office/uno/calc_workbook.h"

#include <atomic>

#include <com/sun/star/beans/PropertyValue.hpp>
#include <com/sun/star/container/XIndexAccess.hpp>
#include <com/sun/star/document/XViewDataSupplier.hpp>
#include <com/sun/star/frame/XComponentLoader.hpp>
#include <com/sun/star/frame/XModel.hpp>
#include <com/sun/star/sheet/XCellRangeAddressable.hpp>
#include <com/sun/star/sheet/XUsedAreaCursor.hpp>
#include <com/sun/star/sheet/XSheetCellCursor.hpp>
#include <com/sun/star/table/XColumnRowRange.hpp>
#include <com/sun/star/table/XTableColumns.hpp>
#include <com/sun/star/table/XTableRows.hpp>
#include <com/sun/star/util/CloseVetoException.hpp>
#include <com/sun/star/util/XCloseable.hpp>
#include <com/sun/star/util/XModifiable.hpp>

namespace tabulon::office::uno {

namespace {

std::atomic<uint64_t> g_next_workbook_id{1};

}  // namespace

CalcWorkbook::CalcWorkbook(CalcApplication* app, Reference<css::lang::XComponent> component,
                           std::string name, std::string path, int32_t format)
    : app_(app),
      id_(g_next_workbook_id++),
      name_(std::move(name)),
      path_(std::move(path)),
      format_(format),
      unborn_(this, !component.is()),
      worksheets_(this) {
  if (component.is()) Attach(std::move(component));
}

SheetRef CalcWorkbook::Attach(Reference<css::lang::XComponent> component) {
  component_ = std::move(component);
  document_.set(component_, UNO_QUERY_THROW);
  sheets_ = document_->getSheets();
  sheet_index_.set(sheets_, UNO_QUERY_THROW);
  active_sheet_.clear();
  // Excel opens a workbook on the sheet that was active when it was saved:
  // the one the document's view data names (a hidden window's view does not
  // take it from the file); else the first, looked up only then (every
  // lookup is a round trip to the office).
  try {
    Reference<css::document::XViewDataSupplier> supplier(component_, UNO_QUERY);
    Reference<css::container::XIndexAccess> views(supplier.is() ? supplier->getViewData() : nullptr);
    Sequence<css::beans::PropertyValue> settings;
    if (views.is() && views->getCount() > 0 && (views->getByIndex(0) >>= settings)) {
      for (const auto& p : settings) {
        OUString name;
        // A name no sheet has fails the lookup, which leaves the first.
        if (p.Name == "ActiveTable" && (p.Value >>= name))
          active_sheet_.set(sheets_->getByName(name), UNO_QUERY_THROW);
      }
    }
  } catch (const css::uno::Exception&) {
  }
  if (!active_sheet_.is()) active_sheet_.set(sheet_index_->getByIndex(0), UNO_QUERY_THROW);
  return active_sheet_;
}

std::string CalcWorkbook::Name() {
  return app_->CallKeepingCopy("Workbook.Name", [&] {
    if (closed_) throw Error(ErrorKind::kAutomation, "Workbook.Name: the workbook is closed");
    return name_;
  });
}

bool CalcWorkbook::Saved() {
  if (unborn_.OpenUnborn()) return app_->CallKeepingCopy("Workbook.Saved", [&] { return unborn_.saved(); });
  return Call("Workbook.Saved", [&] {
    Reference<css::util::XModifiable> modifiable(component_, UNO_QUERY_THROW);
    return !modifiable->isModified();
  });
}

void CalcWorkbook::SetSaved(bool saved) {
  if (unborn_.OpenUnborn()) {
    app_->CallKeepingCopy("Workbook.Saved", [&] { unborn_.set_saved(saved); });
    return;
  }
  Call("Workbook.Saved", [&] {
    Reference<css::util::XModifiable> modifiable(component_, UNO_QUERY_THROW);
    modifiable->setModified(!saved);
  });
}

void CalcWorkbook::Activate() {
  if (unborn_.OpenUnborn()) {
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
  unborn_.Bear();
  // The office makes a new object for a sheet at every lookup, and each keeps
  // its place as sheets move; the one held here stays right. A sheet removed
  // behind our back falls back to the first.
  try {
    if (active_sheet_.is()) {
      const int32_t at = SheetIndex(active_sheet_);
      if (at >= 0 && at < sheet_index_->getCount()) return active_sheet_;
    }
  } catch (const css::uno::RuntimeException&) {
  }
  active_sheet_.set(sheet_index_->getByIndex(0), UNO_QUERY_THROW);
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
  // Six round trips to the office: asked once while only reading calls
  // follow (a conversion asks for the size, then checks the same sheet
  // before writing it).
  const bool reading = app_->reading();
  if (reading && used_cache_.sheet.is() && used_cache_.sheet.get() == sheet.get() &&
      used_cache_.change_count == app_->change_count())
    return used_cache_.rect;
  auto cursor = sheet->createCursor();
  Reference<css::sheet::XUsedAreaCursor> used(cursor, UNO_QUERY_THROW);
  used->gotoStartOfUsedArea(false);
  used->gotoEndOfUsedArea(true);
  Reference<css::sheet::XCellRangeAddressable> addressable(cursor, UNO_QUERY_THROW);
  const auto a = addressable->getRangeAddress();
  const CellRect area{a.StartRow, a.StartColumn, a.EndRow, a.EndColumn};
  if (reading)
    used_cache_ = UsedAreaAnswer{sheet, app_->change_count(), area};
  else
    used_cache_ = UsedAreaAnswer{};
  return area;
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

void CalcWorkbook::CloseDocument() {
  if (closed_) return;
  closed_ = true;
  unborn_.Abandon();
  if (unborn_.unborn()) return;
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
  used_cache_ = UsedAreaAnswer{};
}

void CalcWorkbook::Close(std::optional<bool> save_changes) {
  if (unborn_.OpenUnborn() && !(save_changes.value_or(false) && !unborn_.saved())) {
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

}  // namespace tabulon::office::uno
