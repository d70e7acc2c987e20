// One workbook: a spreadsheet document of the office, or an unborn one that
// gets its document when first needed. Internal to the backend.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include <com/sun/star/lang/XComponent.hpp>
#include <com/sun/star/sheet/FormulaToken.hpp>
#include <com/sun/star/sheet/XFormulaParser.hpp>
#include <com/sun/star/sheet/XSpreadsheetDocument.hpp>
#include <com/sun/star/sheet/XSpreadsheets.hpp>
#include <com/sun/star/table/CellAddress.hpp>

#include "office/office.h"
#include "office/uno/a1.h"
#include "office/uno/calc_application.h"
#include "office/uno/calc_internal.h"
#include "office/uno/calc_unborn.h"
#include "office/uno/calc_worksheet.h"
#include "office/uno/file_formats.h"
#include "office/uno/write_reservation.h"

namespace tabulon::office::uno {

struct ClipboardContent;

class CalcWorkbook : public Workbook {
 public:
  // Without a component the workbook is unborn (see UnbornState).
  CalcWorkbook(CalcApplication* app, Reference<css::lang::XComponent> component,
               std::string name, std::string path, int32_t format);

  std::string Name() override;
  void SaveAs(const std::string& filename, const SaveAsOptions& options) override;  // calc_save.cc
  bool Saved() override;
  void SetSaved(bool saved) override;
  void Close(std::optional<bool> save_changes) override;
  void Activate() override;
  Worksheets& Sheets() override { return worksheets_; }
  Worksheets& GetWorksheets() override { return worksheets_; }

  // ---- for the other classes of this side ----
  // Runs an office call on this workbook; an unborn workbook is born first.
  template <typename F>
  auto Call(const char* what, F&& f) -> decltype(f()) {
    if (closed_) throw Error(ErrorKind::kAutomation, std::string(what) + ": the workbook is closed");
    return app_->Call(what, [&]() -> decltype(f()) {
      unborn_.Bear();
      return f();
    });
  }
  // Runs an office call on `sheet` of this workbook: a sheet or range of an
  // unborn workbook holds no office object and takes the first sheet's once
  // the workbook is born.
  template <typename F>
  auto CallOnSheet(const char* what, SheetRef& sheet, F&& f) -> decltype(f()) {
    return Call(what, [&]() -> decltype(f()) {
      if (!sheet.is()) sheet = unborn_.FirstSheet();
      return f();
    });
  }
  CalcApplication* app() const { return app_; }
  UnbornState& unborn_state() { return unborn_; }
  // Takes the office document; returns the sheet the workbook opens on.
  SheetRef Attach(Reference<css::lang::XComponent> component);
  // Opened workbooks have no window and view until one is needed (macros,
  // printing); this makes them (inside a call).
  void EnsureView();
  uint64_t id() const { return id_; }
  bool closed() const { return closed_; }
  // The office document's parts (inside a call; an unborn workbook is born).
  const Reference<css::sheet::XSpreadsheets>& sheets() {
    unborn_.Bear();
    return sheets_;
  }
  // The sheets by number, asked for once per document: every query for an
  // interface of an office object is a round trip.
  const Reference<css::container::XIndexAccess>& sheet_index() {
    unborn_.Bear();
    return sheet_index_;
  }
  const Reference<css::lang::XComponent>& component() {
    unborn_.Bear();
    return component_;
  }

  SheetRef ActiveSheetRef();  // inside a call
  void SetActiveSheet(const SheetRef& sheet) { active_sheet_ = sheet; }
  // The selection: a range of a sheet; A1 of the active sheet by default.
  std::pair<SheetRef, CellRect> SelectionRef();  // inside a call
  void SetSelection(const SheetRef& sheet, const CellRect& rect);
  bool display_formulas() const { return display_formulas_; }
  void set_display_formulas(bool value) { display_formulas_ = value; }
  // Plain: every cell has the default look and every row the standard
  // height, as in a new workbook that has had only plain values written into
  // it (see WriteValues). Anything that may change that clears it.
  void set_plain(bool value) { plain_ = value; }

  int32_t SheetIndex(const SheetRef& sheet);  // 0-based, inside a call
  bool SameSheet(const SheetRef& a, const SheetRef& b);  // inside a call
  int32_t MaxRows();
  int32_t MaxColumns();
  CellRect UsedArea(const SheetRef& sheet);  // Excel's used range, inside a call

  // ---- cells and formulas (calc_cells.cc, calc_paste.cc) ----
  // Excel-syntax formulas and the office's tokens, at a cell of this workbook.
  Sequence<css::sheet::FormulaToken> ParseFormula(const std::string& formula,
                                                  const css::table::CellAddress& at);
  std::string PrintFormula(const Sequence<css::sheet::FormulaToken>& tokens,
                           const css::table::CellAddress& at);
  // Reads or writes blocks of a sheet (inside a call).
  Block ReadValues(const SheetRef& sheet, const CellRect& rect);
  Block ReadFormulas(const SheetRef& sheet, const CellRect& rect);
  void WriteValues(const SheetRef& sheet, const CellRect& rect, const Block& values);

  // ---- kinds of values (calc_value_kinds.cc) ----
  // Which numbers of `rect` Value gives as a Date or as Currency (empty: all
  // plain), and values written with the looks their kinds bring.
  KindBlock ReadKinds(const SheetRef& sheet, const CellRect& rect);
  void WriteTypedValues(const SheetRef& sheet, const CellRect& rect, const Block& values, const KindBlock& kinds);
  // Writes formulas or constants as typed into cells. Formulas are read as
  // if written at `origin` + their place in the block, so relative
  // references move by the distance from there to `rect`.
  void WriteFormulas(const SheetRef& sheet, const CellRect& rect, const Block& formulas,
                     std::optional<std::pair<int32_t, int32_t>> origin);
  // Writes text as a person would paste it: numbers become numbers, nothing
  // becomes a formula.
  void WriteTyped(const SheetRef& sheet, const CellRect& rect, const Block& texts);
  CellRect PasteAt(const SheetRef& sheet, int32_t row, int32_t column, int32_t kind,
                   bool skip_blanks, bool transpose);
  // A word-processor table from the clipboard's HTML (calc_paste_table.cc):
  // all of it, or its values alone.
  CellRect PasteTable(const SheetRef& sheet, int32_t row, int32_t column, const ClipboardContent& clip,
                      bool values_only);

  // ---- text output (calc_save.cc, calc_direct_export.cc) ----
  // Whether the office's text export of `sheet` writes what it writes for a
  // new workbook holding only the values of `rect` at the same cells
  // (inside a call).
  bool ExportsLikeValueCopy(const SheetRef& sheet, const CellRect& rect);
  // Writes `sheet` with the office's text filter for `format` to `temp`.
  void StoreSheetText(const SheetRef& sheet, const std::string& temp, const FileFormat& format);

  void CloseDocument();  // closes the office document, no questions
  // Opened with ReadOnly: changes stay in memory, and a save over its own
  // file is refused, as Excel refuses it.
  void set_read_only(bool value) { read_only_ = value; }
  // The write reservation the workbook was opened with, written again by a
  // save that names no reservation of its own, and the password that lifted
  // it (empty when it was opened without), which lets such a save write the
  // reservation anew in a format that cannot keep it as it is.
  void set_reservation(WriteReservation reservation, std::string password) {
    reservation_ = std::move(reservation);
    reservation_password_ = std::move(password);
  }
  // Made as a bare document by Workbooks.Add (see UnbornState::Bear).
  void set_made_without_view(bool value) { made_without_view_ = value; }

 private:
  void StoreText(const std::string& temp, const FileFormat& format);
  bool SaveCopyDirectly(const std::string& filename, const FileFormat& format, int32_t number);
  ValueKind KindOfFormat(sal_Int32 key);

  CalcApplication* app_;
  uint64_t id_;
  Reference<css::lang::XComponent> component_;
  Reference<css::sheet::XSpreadsheetDocument> document_;
  Reference<css::sheet::XSpreadsheets> sheets_;
  Reference<css::container::XIndexAccess> sheet_index_;
  Reference<css::sheet::XFormulaParser> parser_;
  SheetRef active_sheet_;
  SheetRef selection_sheet_;
  CellRect selection_;
  std::string name_;
  std::string path_;
  int32_t format_;
  bool closed_ = false;
  bool read_only_ = false;
  WriteReservation reservation_;
  std::string reservation_password_;
  bool display_formulas_ = false;
  bool plain_ = false;
  // The used area last read in a reading call, while no call may have
  // changed it.
  struct UsedAreaAnswer {
    SheetRef sheet;
    uint64_t change_count = 0;
    CellRect rect;
  };
  UsedAreaAnswer used_cache_;
  bool made_without_view_ = false;
  UnbornState unborn_;
  CalcWorksheets worksheets_;
};

}  // namespace tabulon::office::uno
