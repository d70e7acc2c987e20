// The spreadsheet and word-processor object model that every method of the
// control is written against. It mirrors the automation model of the office
// applications the methods were designed for: 1-based indexes, A1 addresses,
// optional arguments that are either given or omitted (an omitted argument is
// not the same as False), and an active workbook and sheet per application.
//
// A backend (today LibreOffice, in uno/) implements these classes. Nothing here
// or in any user of this header may depend on the backend.
//
// Errors: every member may throw office::Error. That is the object model's
// "automation error": the methods install their error traps around office
// calls exactly where their algorithms do, so a failing call reads like the
// algorithm it implements. Backend exceptions never cross this interface in
// any other form.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "office/xl_constants.h"

namespace tabulon::office {

// Why an office call failed.
enum class ErrorKind {
  kAutomation,  // the office refused the call (bad address, refused save, ...)
  kNotFound,    // an item looked up by name or index does not exist
  kDied,        // the office process is gone; the application cannot be reused
  kTimeout,     // the office did not answer within the watchdog limit; killed
};

class Error : public std::runtime_error {
 public:
  Error(ErrorKind kind, const std::string& what) : std::runtime_error(what), kind_(kind) {}
  ErrorKind kind() const { return kind_; }

 private:
  ErrorKind kind_;
};

// One cell's value or formula. Empty cells are std::monostate; numbers are
// doubles; text is UTF-8. Error cells read back as std::monostate.
using Cell = std::variant<std::monostate, double, std::string>;
// A rectangular block of cells, row-major: block[row][column], 0-based inside
// the block.
using Block = std::vector<std::vector<Cell>>;

// What Value carries with a number. Excel gives a date or time cell's number
// as a Date, a currency cell's as Currency and a logical cell's as Boolean,
// and a cell that receives one shows it as a date, a time, an amount of money
// or TRUE/FALSE (en-US: 1/15/2024, 2:30:00 PM, $1,234.50). Every other number
// (percent, fixed decimals, ...) arrives plain.
enum class ValueKind : uint8_t { kPlain, kDate, kCurrency, kLogical };
// One kind per cell of a block, like Block; an empty one: every number plain.
using KindBlock = std::vector<std::vector<ValueKind>>;

struct PrintOutOptions;

class Range {
 public:
  virtual ~Range() = default;
  Range() = default;
  Range(const Range&) = delete;
  Range& operator=(const Range&) = delete;

  // Absolute address with "$", e.g. "$A$1:$C$4" or "$B$2" for one cell.
  virtual std::string Address() = 0;
  virtual int32_t Row() = 0;     // first row, 1-based
  virtual int32_t Column() = 0;  // first column, 1-based
  virtual int32_t RowsCount() = 0;     // Rows.Count
  virtual int32_t ColumnsCount() = 0;  // Columns.Count

  // Value and Formula move as blocks of the range's shape. Formulas are in
  // Excel syntax (A1 references, English function names, "," separators);
  // a constant cell's formula is its value as text, as in Excel.
  virtual Block Value() = 0;
  virtual void SetValue(const Block& values) = 0;
  // One value given to a whole range fills every cell with it.
  virtual void SetValue(const Cell& value) = 0;
  // The kinds of the numbers Value gives (empty: all plain).
  virtual KindBlock ValueKinds() { return {}; }
  // Value set with the kinds the values came with: dates, times and currency
  // take the look Excel gives them where the cell's own is General.
  virtual void SetTypedValue(const Block& values, const KindBlock& kinds) {
    (void)kinds;
    SetValue(values);
  }
  // this.Value = source.Value, for a source range of the same shape, the
  // kinds included. The backend may carry the values without bringing them
  // here.
  virtual void CopyValueFrom(Range& source) {
    const Block values = source.Value();
    SetTypedValue(values, source.ValueKinds());
  }
  virtual Block Formula() = 0;
  virtual void SetFormula(const Block& formulas) = 0;
  virtual void SetFormula(const std::string& formula) = 0;

  virtual void SetNumberFormat(const std::string& format) = 0;  // en-US codes
  // NumberFormat of the range's first cell, in en-US codes ("General",
  // "#,##0.00", "m/d/yyyy"), and Text: that cell as the sheet shows it.
  virtual std::string NumberFormat() = 0;
  virtual std::string Text() = 0;
  // AddComment on the first cell, and the text of its comment (Comment.Text;
  // nullopt when it has none). Comments and notes are one thing here.
  virtual void AddComment(const std::string& text) = 0;
  virtual std::optional<std::string> CommentText() = 0;

  virtual void Clear() = 0;
  virtual void ClearFormats() = 0;
  virtual void ClearContents() = 0;
  virtual void ClearComments() = 0;
  virtual void ClearNotes() = 0;
  virtual void ClearOutline() = 0;

  struct ReplaceOptions {
    std::optional<int32_t> look_at;       // 1 xlWhole, 2 xlPart
    std::optional<int32_t> search_order;  // 1 xlByRows, 2 xlByColumns
    std::optional<bool> match_case;
    std::optional<bool> match_byte;
  };
  // Returns True as Excel's Replace does (whether or not anything changed).
  virtual bool Replace(const std::string& what, const std::string& replacement,
                       const ReplaceOptions& options) = 0;

  virtual void EntireRowDelete() = 0;
  virtual void EntireColumnDelete() = 0;

  // Copy to the backend's clipboard, and paste from it at this range's top-left
  // cell. paste: -4163 xlPasteValues, -4104 xlPasteAll, -4122 formats, ...
  virtual void Copy() = 0;
  struct PasteSpecialOptions {
    std::optional<int32_t> paste;
    std::optional<int32_t> operation;
    std::optional<bool> skip_blanks;
    std::optional<bool> transpose;
  };
  virtual void PasteSpecial(const PasteSpecialOptions& options) = 0;

  virtual std::unique_ptr<Range> Offset(int32_t rows, int32_t columns) = 0;
  // Cells(r, c) relative to this range's top-left cell (1-based).
  virtual std::unique_ptr<Range> Cells(int32_t row, int32_t column) = 0;
  virtual void Select() = 0;
  // SpecialCells(11): the last used cell of the range's sheet.
  virtual std::unique_ptr<Range> SpecialCells(int32_t type) = 0;

  // MergeCells of the range's first cell: True when it starts a merged cell.
  virtual bool MergeCells() { throw Error(ErrorKind::kAutomation, "not supported: Range.MergeCells"); }
  // Font.Bold of the range's first cell.
  virtual bool FontBold() { throw Error(ErrorKind::kAutomation, "not supported: Range.Font.Bold"); }
  // Range.PrintOut: these cells alone, as Worksheet.PrintOut prints a sheet.
  virtual void PrintOut(const PrintOutOptions& options) = 0;
};

// Printing: pages From..To of the printout (1-based; either may be omitted),
// Copies, ActivePrinter (a printer of the system; one that does not exist
// fails the call), and PrintToFile with PrToFileName (the print job written
// to that file instead of a printer).
struct PrintOutOptions {
  std::optional<int32_t> from;
  std::optional<int32_t> to;
  std::optional<int32_t> copies;
  std::optional<bool> preview;
  std::optional<std::string> active_printer;
  std::optional<bool> print_to_file;
  std::optional<bool> collate;
  std::optional<std::string> pr_to_file_name;
};

class Worksheet {
 public:
  virtual ~Worksheet() = default;
  Worksheet() = default;
  Worksheet(const Worksheet&) = delete;
  Worksheet& operator=(const Worksheet&) = delete;

  virtual std::string Name() = 0;
  // Excel refuses duplicate or invalid names; here too the refusal is silent
  // on some paths, so callers that care read Name() back.
  virtual void SetName(const std::string& name) = 0;
  virtual int32_t Index() = 0;  // 1-based position among the worksheets
  virtual void Activate() = 0;
  virtual void Delete() = 0;    // refuses (throws) on the last remaining sheet
  virtual void MoveBefore(Worksheet& before) = 0;
  virtual void MoveAfter(Worksheet& after) = 0;
  // Copy(Before | After): the whole sheet (values, formulas, formats, column
  // widths, merged cells) copied next to `before` or `after`, which may be a
  // sheet of another workbook of the same application. With neither, the
  // copy goes into a new workbook of its own, which becomes the active
  // workbook. The copy keeps this sheet's name where the workbook it lands
  // in allows it, else it is named "<name> (2)", "<name> (3)", ...; it
  // becomes the active sheet and is returned.
  virtual std::unique_ptr<Worksheet> Copy(Worksheet* before, Worksheet* after) = 0;

  virtual std::unique_ptr<Range> UsedRange() = 0;
  virtual std::unique_ptr<Range> Cells() = 0;  // every cell of the sheet
  virtual std::unique_ptr<Range> Cells(int32_t row, int32_t column) = 0;
  virtual std::unique_ptr<Range> GetRange(const std::string& address) = 0;

  virtual void Paste() = 0;               // clipboard at the selection / A1
  virtual void PasteSpecialValues() = 0;  // values only
  virtual void PrintOut(const PrintOutOptions& options) = 0;
};

// The Worksheets (and Sheets: this model has no chart sheets) collection of a
// workbook. Lookups throw Error(kNotFound) for a missing item, as Excel's
// collections raise on a bad index or name.
class Worksheets {
 public:
  virtual ~Worksheets() = default;
  Worksheets() = default;
  Worksheets(const Worksheets&) = delete;
  Worksheets& operator=(const Worksheets&) = delete;

  virtual int32_t Count() = 0;
  virtual std::unique_ptr<Worksheet> Item(int32_t index) = 0;
  virtual std::unique_ptr<Worksheet> Item(const std::string& name) = 0;
  // Worksheets.Add(Before, After, Type): the new sheet becomes the active
  // sheet and gets the application's default name.
  virtual std::unique_ptr<Worksheet> Add(Worksheet* before, Worksheet* after,
                                         std::optional<int32_t> type) = 0;
};

struct SaveAsOptions {
  std::optional<int32_t> file_format;  // XlFileFormat
  std::optional<std::string> password;
  std::optional<std::string> write_res_password;
  std::optional<int32_t> access_mode;          // 1 xlNoChange
  std::optional<int32_t> conflict_resolution;  // 2 xlLocalSessionChanges
};

class Workbook {
 public:
  virtual ~Workbook() = default;
  Workbook() = default;
  Workbook(const Workbook&) = delete;
  Workbook& operator=(const Workbook&) = delete;

  virtual std::string Name() = 0;
  // Throws Error(kAutomation) when the format cannot be written here (never
  // writes another format instead) or the file cannot be written.
  virtual void SaveAs(const std::string& filename, const SaveAsOptions& options) = 0;
  virtual bool Saved() = 0;
  virtual void SetSaved(bool saved) = 0;
  virtual void Close(std::optional<bool> save_changes) = 0;
  virtual void Activate() = 0;
  virtual Worksheets& Sheets() = 0;  // same collection as Worksheets()
  virtual Worksheets& GetWorksheets() = 0;
};

struct OpenOptions {
  std::optional<int32_t> update_links;
  std::optional<bool> read_only;
  std::optional<int32_t> format;  // 6: custom delimiter given in `delimiter`
  std::optional<std::string> password;
  std::optional<std::string> write_res_password;
  std::optional<std::string> delimiter;
};

class Workbooks {
 public:
  virtual ~Workbooks() = default;
  Workbooks() = default;
  Workbooks(const Workbooks&) = delete;
  Workbooks& operator=(const Workbooks&) = delete;

  // The opened workbook becomes the active workbook. Throws for a missing
  // file, a wrong password, or a file that is not a spreadsheet.
  virtual Workbook& Open(const std::string& filename, const OpenOptions& options) = 0;
  // A new workbook with the application's default sheets; becomes active.
  virtual Workbook& Add() = 0;
  virtual Workbook& Item(int32_t index) = 0;  // 1-based, in opening order
  virtual int32_t Count() = 0;
  // Closes every open workbook without saving and without prompting.
  virtual void Close() = 0;
};

class Application {
 public:
  virtual ~Application() = default;  // always ends the office process
  Application() = default;
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  // The alert and prompt switches are recorded in the order they are set;
  // the office never waits for a person, whatever their values.
  virtual void SetDisplayAlerts(bool value) = 0;
  virtual void SetEnableEvents(bool value) = 0;
  virtual void SetVisible(bool value) = 0;
  virtual void SetAskToUpdateLinks(bool value) = 0;
  virtual void SetAlertBeforeOverwriting(bool value) = 0;
  virtual void SetPromptForSummaryInfo(bool value) = 0;

  virtual std::string Version() = 0;  // e.g. "7.4"
  virtual int32_t Build() = 0;        // e.g. 2

  virtual Workbooks& GetWorkbooks() = 0;
  virtual Workbook& ActiveWorkbook() = 0;   // throws when none is open
  virtual std::unique_ptr<Worksheet> ActiveSheet() = 0;
  virtual void SetDisplayFormulas(bool value) = 0;  // ActiveWindow.DisplayFormulas
  virtual std::unique_ptr<Range> Selection() = 0;
  // Application.Run("macro", up to eight text arguments).
  virtual void Run(const std::string& macro, const std::vector<std::string>& arguments) = 0;
  // Quits the office; the object is unusable afterwards. Throws when the
  // office could not be made to quit.
  virtual void Quit() = 0;
  // False once the office process is gone (killed, crashed or quit).
  virtual bool IsAlive() = 0;
  // Once the office is gone by surprise, what was found about it: that the
  // watchdog stopped it ("timed out after 60 s: ...") or that it died (and
  // how). Empty while it runs and after Quit.
  virtual std::string Finding() { return {}; }
};

// ---- Word-processor side ----

class Table {
 public:
  virtual ~Table() = default;
  Table() = default;
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  virtual int32_t RowsCount() = 0;
  virtual int32_t ColumnsCount() = 0;
  virtual void RowDelete(int32_t row) = 0;        // Rows(r).Delete, 1-based
  virtual void ColumnDelete(int32_t column) = 0;  // Columns(c).Delete
  // Range.Copy: puts the table's cells on the clipboard that the spreadsheet
  // side pastes from (shared by the backend).
  virtual void RangeCopy() = 0;
  virtual Block Cells() = 0;  // the table's text, for checking
};

class Document {
 public:
  virtual ~Document() = default;
  Document() = default;
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  virtual int32_t TablesCount() = 0;
  virtual std::unique_ptr<Table> Tables(int32_t index) = 0;  // 1-based
  virtual void Close(std::optional<bool> save_changes) = 0;
};

struct DocumentOpenOptions {
  std::optional<bool> confirm_conversions;
  std::optional<bool> read_only;
  std::optional<bool> add_to_recent_files;
  std::optional<std::string> password_document;
  std::optional<std::string> password_template;
};

class WordApplication {
 public:
  virtual ~WordApplication() = default;  // always ends the office process
  WordApplication() = default;
  WordApplication(const WordApplication&) = delete;
  WordApplication& operator=(const WordApplication&) = delete;

  virtual std::string Version() = 0;  // throws once the office is gone
  virtual void SetDisplayAlerts(int16_t value) = 0;
  virtual void SetVisible(bool value) = 0;
  virtual Document& Open(const std::string& filename, const DocumentOpenOptions& options) = 0;
  virtual Document& ActiveDocument() = 0;
  virtual void Quit() = 0;
  virtual std::string Finding() { return {}; }  // as Application::Finding
};

// Creates application objects; injected into the control. Each call starts a
// new, separate office (two applications are two processes). Throws Error
// when no office can be started and reached.
class Factory {
 public:
  virtual ~Factory() = default;
  virtual std::unique_ptr<Application> CreateExcel() = 0;
  virtual std::unique_ptr<WordApplication> CreateWord() = 0;
};

// The default factory: LibreOffice, found through TABULON_OFFICE.
std::shared_ptr<Factory> DefaultFactory();

// Kills every office process of this program, whichever object started it,
// and removes what they left on disk; the objects see their office as died.
// Safe from any thread (a host's termination-signal thread).
void KillEveryOffice();

}  // namespace tabulon::office
