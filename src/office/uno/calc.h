// The spreadsheet side of the backend: the classes of office.h on a Calc
// document in one office process. Internal to the backend.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <com/sun/star/document/XTypeDetection.hpp>
#include <com/sun/star/lang/XComponent.hpp>
#include <com/sun/star/sheet/FormulaToken.hpp>
#include <com/sun/star/sheet/XFormulaParser.hpp>
#include <com/sun/star/sheet/XSpreadsheet.hpp>
#include <com/sun/star/sheet/XSpreadsheetDocument.hpp>
#include <com/sun/star/sheet/XSpreadsheets.hpp>
#include <com/sun/star/table/CellAddress.hpp>
#include <com/sun/star/table/XCellRange.hpp>

#include "office/office.h"
#include "office/uno/a1.h"
#include "office/uno/clipboard.h"
#include "office/uno/file_formats.h"
#include "office/uno/session.h"
#include "office/uno/uno_factory.h"

namespace tabulon::office::uno {

class CalcApplication;
class CalcWorkbook;

using SheetRef = Reference<css::sheet::XSpreadsheet>;

class CalcRange : public Range {
 public:
  CalcRange(CalcWorkbook* book, SheetRef sheet, CellRect rect);

  std::string Address() override;
  int32_t Row() override;
  int32_t Column() override;
  int32_t RowsCount() override;
  int32_t ColumnsCount() override;
  Block Value() override;
  void SetValue(const Block& values) override;
  void SetValue(const Cell& value) override;
  void CopyValueFrom(Range& source) override;
  Block Formula() override;
  void SetFormula(const Block& formulas) override;
  void SetFormula(const std::string& formula) override;
  void SetNumberFormat(const std::string& format) override;
  void Clear() override;
  void ClearFormats() override;
  void ClearContents() override;
  void ClearComments() override;
  void ClearNotes() override;
  void ClearOutline() override;
  bool Replace(const std::string& what, const std::string& replacement,
               const ReplaceOptions& options) override;
  void EntireRowDelete() override;
  void EntireColumnDelete() override;
  void Copy() override;
  void PasteSpecial(const PasteSpecialOptions& options) override;
  std::unique_ptr<Range> Offset(int32_t rows, int32_t columns) override;
  std::unique_ptr<Range> Cells(int32_t row, int32_t column) override;
  void Select() override;
  std::unique_ptr<Range> SpecialCells(int32_t type) override;

 private:
  template <typename F>
  auto Call(const char* what, F&& f) -> decltype(f());
  Reference<css::table::XCellRange> Cells();
  void ClearFlags(const char* what, int32_t flags);

  CalcWorkbook* book_;
  SheetRef sheet_;
  CellRect rect_;
};

class CalcWorksheet : public Worksheet {
 public:
  CalcWorksheet(CalcWorkbook* book, SheetRef sheet);

  std::string Name() override;
  void SetName(const std::string& name) override;
  int32_t Index() override;
  void Activate() override;
  void Delete() override;
  void MoveBefore(Worksheet& before) override;
  void MoveAfter(Worksheet& after) override;
  std::unique_ptr<Range> UsedRange() override;
  std::unique_ptr<Range> Cells() override;
  std::unique_ptr<Range> Cells(int32_t row, int32_t column) override;
  std::unique_ptr<Range> GetRange(const std::string& address) override;
  void Paste() override;
  void PasteSpecialValues() override;
  void PrintOut(const PrintOutOptions& options) override;

  const SheetRef& sheet();  // inside a call

 private:
  template <typename F>
  auto Call(const char* what, F&& f) -> decltype(f());
  void MoveTo(Worksheet& other, int32_t offset, const char* what);

  CalcWorkbook* book_;
  SheetRef sheet_;
};

class CalcWorksheets : public Worksheets {
 public:
  explicit CalcWorksheets(CalcWorkbook* book) : book_(book) {}
  int32_t Count() override;
  std::unique_ptr<Worksheet> Item(int32_t index) override;
  std::unique_ptr<Worksheet> Item(const std::string& name) override;
  std::unique_ptr<Worksheet> Add(Worksheet* before, Worksheet* after,
                                 std::optional<int32_t> type) override;

 private:
  CalcWorkbook* book_;
};

class CalcWorkbook : public Workbook {
 public:
  // Without a component the workbook is unborn (see Bear).
  CalcWorkbook(CalcApplication* app, Reference<css::lang::XComponent> component,
               std::string name, std::string path, int32_t format);

  std::string Name() override;
  void SaveAs(const std::string& filename, const SaveAsOptions& options) override;
  bool Saved() override;
  void SetSaved(bool saved) override;
  void Close(std::optional<bool> save_changes) override;
  void Activate() override;
  Worksheets& Sheets() override { return worksheets_; }
  Worksheets& GetWorksheets() override { return worksheets_; }

  // ---- for the other classes of this side ----
  // Runs an office call on this workbook; an unborn workbook is born first.
  template <typename F>
  auto Call(const char* what, F&& f) -> decltype(f());
  CalcApplication* app() const { return app_; }

  // A workbook made by Workbooks.Add has no office document until something
  // needs one: a new workbook that only receives another range's values and
  // is saved as text is written straight from that range's sheet (see
  // SaveCopyDirectly), which spares making, filling and closing a document.
  bool unborn() const { return unborn_; }
  void Bear();  // inside a call
  // The sheet an unborn workbook has; after birth its office object.
  SheetRef FirstSheet();  // inside a call
  // Values to be copied at birth: `from` of `sheet` in `source` to the same
  // cells of the first sheet.
  struct PendingCopy {
    CalcWorkbook* source;
    SheetRef sheet;
    CellRect from;
  };
  void SetPendingCopy(PendingCopy copy);
  // Whether the office's text export of `sheet` writes what it writes for a
  // new workbook holding only the values of `rect` at the same cells
  // (inside a call).
  bool ExportsLikeValueCopy(const SheetRef& sheet, const CellRect& rect);
  // Writes `sheet` with the office's text filter for `format` to `temp`.
  void StoreSheetText(const SheetRef& sheet, const std::string& temp, const FileFormat& format);
  // Opened workbooks have no window and view until one is needed (macros,
  // printing); this makes them (inside a call).
  void EnsureView();
  uint64_t id() const { return id_; }
  bool closed() const { return closed_; }
  // The office document's parts (inside a call; an unborn workbook is born).
  const Reference<css::sheet::XSpreadsheets>& sheets() {
    if (unborn_) Bear();
    return sheets_;
  }
  const Reference<css::lang::XComponent>& component() {
    if (unborn_) Bear();
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
  // Excel-syntax formulas and the office's tokens, at a cell of this workbook.
  Sequence<css::sheet::FormulaToken> ParseFormula(const std::string& formula,
                                                  const css::table::CellAddress& at);
  std::string PrintFormula(const Sequence<css::sheet::FormulaToken>& tokens,
                           const css::table::CellAddress& at);
  // Reads or writes blocks of a sheet (inside a call).
  Block ReadValues(const SheetRef& sheet, const CellRect& rect);
  Block ReadFormulas(const SheetRef& sheet, const CellRect& rect);
  void WriteValues(const SheetRef& sheet, const CellRect& rect, const Block& values);
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
  void CloseDocument();  // closes the office document, no questions

 private:
  void Attach(Reference<css::lang::XComponent> component);
  void StoreText(const std::string& temp, const FileFormat& format);
  bool SaveCopyDirectly(const std::string& filename, const FileFormat& format, int32_t number);

  CalcApplication* app_;
  uint64_t id_;
  Reference<css::lang::XComponent> component_;
  Reference<css::sheet::XSpreadsheetDocument> document_;
  Reference<css::sheet::XSpreadsheets> sheets_;
  Reference<css::sheet::XFormulaParser> parser_;
  SheetRef active_sheet_;
  SheetRef selection_sheet_;
  CellRect selection_;
  std::string name_;
  std::string path_;
  int32_t format_;
  bool closed_ = false;
  bool display_formulas_ = false;
  bool plain_ = false;
  bool unborn_ = false;
  bool unborn_saved_ = true;  // Saved of an unborn workbook
  std::optional<PendingCopy> pending_;
  SheetRef first_sheet_;
  CalcWorksheets worksheets_;
};

class CalcWorkbooks : public Workbooks {
 public:
  explicit CalcWorkbooks(CalcApplication* app) : app_(app) {}
  Workbook& Open(const std::string& filename, const OpenOptions& options) override;
  Workbook& Add() override;
  Workbook& Item(int32_t index) override;
  int32_t Count() override;
  void Close() override;

 private:
  CalcApplication* app_;
};

class CalcApplication : public UnoApplication {
 public:
  explicit CalcApplication(const UnoOptions& options);
  ~CalcApplication() override;

  void SetDisplayAlerts(bool value) override { Record("DisplayAlerts", value); }
  void SetEnableEvents(bool value) override { Record("EnableEvents", value); }
  void SetVisible(bool value) override { Record("Visible", value); }
  void SetAskToUpdateLinks(bool value) override { Record("AskToUpdateLinks", value); }
  void SetAlertBeforeOverwriting(bool value) override { Record("AlertBeforeOverwriting", value); }
  void SetPromptForSummaryInfo(bool value) override { Record("PromptForSummaryInfo", value); }
  std::string Version() override;
  int32_t Build() override;
  Workbooks& GetWorkbooks() override { return workbooks_; }
  Workbook& ActiveWorkbook() override;
  std::unique_ptr<Worksheet> ActiveSheet() override;
  void SetDisplayFormulas(bool value) override;
  std::unique_ptr<Range> Selection() override;
  void Run(const std::string& macro, const std::vector<std::string>& arguments) override;
  void Quit() override;
  bool IsAlive() override;

  int32_t ProcessId() override;
  std::vector<SwitchRecord> Switches() override { return switches_; }
  bool DisplayFormulas() override;
  void SetCallTimeLimit(std::chrono::milliseconds limit) override;
  int32_t OfficeStarts() override { return office_starts_; }
  int32_t DirectTextExports() override { return direct_exports; }

  // ---- for the other classes of this side ----
  // Any call first gives a workbook waiting with copied values its document,
  // so that the values are copied before anything can change them.
  template <typename F>
  auto Call(const char* what, F&& f) -> decltype(f()) {
    if (!session_) throw Error(ErrorKind::kDied, std::string(what) + ": the office has quit");
    if (pending_ != nullptr && session_->depth() == 0) {
      CalcWorkbook* book = pending_;
      session_->Call(what, [&] { book->Bear(); });
    }
    return session_->Call(what, std::forward<F>(f));
  }
  // A call that leaves a workbook waiting with copied values as it is: only
  // for what an unborn workbook answers without its document.
  template <typename F>
  auto CallKeepingCopy(const char* what, F&& f) -> decltype(f()) {
    if (!session_) throw Error(ErrorKind::kDied, std::string(what) + ": the office has quit");
    return session_->Call(what, std::forward<F>(f));
  }
  void SetPendingBook(CalcWorkbook* book) { pending_ = book; }
  CalcWorkbook* pending_book() const { return pending_; }
  // Loads a file into a spreadsheet document without a window or view,
  // which spares about a quarter of a small workbook's open; empty when the
  // document alone cannot take the file (inside a call).
  // The office's type of a file and the filter it would read it with.
  struct Detected {
    std::string type;
    OUString filter;
  };
  Detected Detect(const OUString& url);  // inside a call
  Reference<css::lang::XComponent> LoadWithoutView(const OUString& url,
                                                   std::vector<css::beans::PropertyValue> args,
                                                   const std::optional<Detected>& detected);
  // A new office document as Workbooks.Add gives it: one sheet, "Sheet1".
  Reference<css::lang::XComponent> NewDocument();  // inside a call
  // Sheets written straight from another workbook's sheet (see
  // CalcWorkbook::SaveCopyDirectly), for tests and benchmarks.
  int32_t direct_exports = 0;
  Session& session() { return *session_; }
  const UnoOptions& options() const { return options_; }
  std::vector<CalcWorkbook*>& open_books() { return open_; }
  CalcWorkbook* active() const { return active_; }
  void SetActive(CalcWorkbook* book) { active_ = book; }
  // Takes a new office document into the open workbooks; it becomes active.
  CalcWorkbook& Adopt(Reference<css::lang::XComponent> component, std::string name,
                      std::string path, int32_t format);
  void Forget(CalcWorkbook* book);  // after its document was closed
  // Restarts the office when it has served enough documents and none is open.
  void RecycleIfDue();
  std::string NextBookName() { return "Book" + std::to_string(++books_added_); }
  int32_t max_rows = 0;
  int32_t max_columns = 0;

 private:
  void Record(const char* name, bool value) { switches_.push_back({name, value ? 1 : 0}); }

  UnoOptions options_;
  std::unique_ptr<Session> session_;
  CalcWorkbooks workbooks_;
  std::vector<CalcWorkbook*> open_;  // in opening order
  // Every workbook ever opened here, so that a Workbook& held by a caller
  // stays a valid (closed) object after Close.
  std::deque<std::unique_ptr<CalcWorkbook>> all_;
  CalcWorkbook* active_ = nullptr;
  CalcWorkbook* pending_ = nullptr;  // the unborn workbook waiting with a copy
  Reference<css::document::XTypeDetection> detection_;
  std::map<std::string, bool> spreadsheet_filters_;  // filter name: fills a spreadsheet
  std::vector<SwitchRecord> switches_;
  int32_t documents_since_start_ = 0;
  int32_t office_starts_ = 1;
  int32_t books_added_ = 0;
};

template <typename F>
auto CalcWorkbook::Call(const char* what, F&& f) -> decltype(f()) {
  if (closed_) throw Error(ErrorKind::kAutomation, std::string(what) + ": the workbook is closed");
  return app_->Call(what, [&]() -> decltype(f()) {
    if (unborn_) Bear();
    return f();
  });
}

// Sheets and ranges of an unborn workbook hold no office object; they take
// the first sheet's once the workbook is born.
template <typename F>
auto CalcWorksheet::Call(const char* what, F&& f) -> decltype(f()) {
  return book_->Call(what, [&]() -> decltype(f()) {
    if (!sheet_.is()) sheet_ = book_->FirstSheet();
    return f();
  });
}

template <typename F>
auto CalcRange::Call(const char* what, F&& f) -> decltype(f()) {
  return book_->Call(what, [&]() -> decltype(f()) {
    if (!sheet_.is()) sheet_ = book_->FirstSheet();
    return f();
  });
}

}  // namespace tabulon::office::uno
