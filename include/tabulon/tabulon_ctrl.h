// TabulonCtrl: complete jobs on spreadsheet files, done by an office suite that
// the control starts, drives and quits by itself, plus fast post-processing of
// delimited text files through the text library libravelin.so.
//
// Include only the headers of include/tabulon/ (and include/ravelin/ for the
// text library's C interface).
//
// Calling convention
// - Every method argument is passed by non-const reference; a method rewrites
//   an argument exactly where its description says so (a blank sheet list
//   becomes "*", quotes are removed from names, ...).
// - Working methods return a result code (result_codes.h): 0 on success, a
//   negative code on failure. A failure also stores the code's message in
//   ErrorString and, where the method says so, calls the OnError sinks. A
//   success leaves ErrorString as it was: look at the code, not the text.
// - A few failures are thrown as tabulon::AutomationError instead (a bad index
//   into a result list, a missing text library or entry point).
// - One control serves one thread; calls must not overlap.
//
// Properties are get_Name()/put_Name(value) pairs; read-only ones have only a
// get_. A default-constructed control is a new instance with every default
// applied; a control constructed from a property bag is a loaded instance
// (see ReadProperties).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "tabulon/automation_error.h"
#include "tabulon/export.h"
#include "tabulon/property_bag.h"
#include "tabulon/result_codes.h"

namespace tabulon {

namespace office {
class Factory;
}

// How a control reaches the outside world. The defaults are what hosts want;
// tests replace them.
struct ControlOptions {
  // Starts the office applications. Null: LibreOffice, found through the
  // TABULON_OFFICE environment variable or /usr/lib/libreoffice/program.
  std::shared_ptr<office::Factory> office;
  // Folder that holds libravelin.so. Empty: the library is loaded by name,
  // found beside libtabulon.so or on the usual search path.
  std::string text_library_folder;
  // Folder that holds the sheet selection dialog's plug-in,
  // libtabulon_sheet_dialog.so. Empty: the "tabulon" folder beside
  // libtabulon.so.
  std::string dialog_plugin_folder;
  // OptimizeForSpeed set True starts only the first spreadsheet application;
  // the second (the copy methods' target) starts when a method first needs
  // it, and then stays. For hosts that keep many controls warm at once.
  bool start_second_application_on_demand = false;
};

// Kills every office process this program started, through any control, and
// removes their profile folders; controls that held one find it died. Safe
// from any thread: for a host's handling of termination signals (a thread
// that waits for them, not a signal handler).
TABULON_EXPORT void KillEveryOffice();

class TABULON_EXPORT TabulonCtrl {
 public:
  // A new instance: every property has its default (see below).
  TabulonCtrl();
  explicit TabulonCtrl(ControlOptions options);
  // A loaded instance: starts from zero values and runs ReadProperties(bag).
  explicit TabulonCtrl(PropertyBag& bag, ControlOptions options = {});
  // Terminate: runs StateFileSave when UseStateFile is True; quits any office
  // the control still holds.
  ~TabulonCtrl();
  TabulonCtrl(const TabulonCtrl&) = delete;
  TabulonCtrl& operator=(const TabulonCtrl&) = delete;

  // ---- Container events ----
  // Applies every default (the constructor of a new instance does this) and
  // forgets what was found about the office (OfficeFinding is empty again);
  // an office kept by OptimizeForSpeed is not quit.
  void InitProperties();
  // Reads "msStateFile" into StateFile and "bUseStateFile" into UseStateFile.
  // If UseStateFile is then False, every property is reset to its default
  // (StateFile becomes the default path and UseStateFile True again);
  // otherwise nothing else is applied: the other properties keep their zero
  // values (CO_DelimitationCharacter 0, ErrorString empty).
  void ReadProperties(PropertyBag& bag);
  // Writes "msStateFile" (text) and "bUseStateFile" (Boolean).
  void WriteProperties(PropertyBag& bag);

  // ---- Properties ----
  // Defaults of a new instance in brackets.
  int32_t get_CO_DelimitationCharacter();  // [44] field separator code; 0: none
  void put_CO_DelimitationCharacter(int32_t value);
  bool get_CO_MultiFileOutput();  // [false] one file per sheet, never merged
  void put_CO_MultiFileOutput(bool value);
  std::string get_CO_Range();  // [""] range converted from each sheet; "" or "*": used area
  void put_CO_Range(const std::string& value);
  bool get_Verbose();  // [false] given to the office's alert switches at start
  void put_Verbose(bool value);
  std::string get_StateFile();  // [$XDG_CONFIG_HOME/Brevant, Inc/Tabu.INI]
  void put_StateFile(const std::string& value);
  bool get_UseStateFile();  // [true]
  void put_UseStateFile(bool value);
  std::string get_ErrorString();  // [" "] message of the last failure; never cleared
  void put_ErrorString(const std::string& value);
  // [false] Keep the office running between calls. Setting True starts both
  // spreadsheet applications (only the first with
  // ControlOptions::start_second_application_on_demand) and reads back True
  // only if they started;
  // setting False quits every office the control holds.
  bool get_OptimizeForSpeed();
  void put_OptimizeForSpeed(bool value);
  bool get_SkipEmptySheets();  // [false] conversion skips sheets with nothing in them
  void put_SkipEmptySheets(bool value);
  // The office suite's version and build number (7.4 and 2 for "7.4.7.2");
  // 0 and an OnError -3 when no office can be started.
  double get_ExcelVersion();
  double get_ExcelBuild();
  std::string get_InputFile_PassWord();  // [""] password of the source workbook
  void put_InputFile_PassWord(const std::string& value);
  std::string get_InputFile_PassWord_TW();  // [""] its write-reservation password
  void put_InputFile_PassWord_TW(const std::string& value);
  // [""] Reading this property does not return the output password: it copies
  // the stored output password into InputFile_PassWord_TW and returns "".
  std::string get_OutputFile_PassWord();
  void put_OutputFile_PassWord(const std::string& value);
  std::string get_OutputFile_PassWord_TW();  // [""]
  void put_OutputFile_PassWord_TW(const std::string& value);
  bool get_MultifileProcessing();  // always false, whatever was stored
  void put_MultifileProcessing(bool value);
  // The control's size always equals its icon's; a resize snaps back.
  int32_t get_Width();
  int32_t get_Height();
  void put_Width(int32_t value);
  void put_Height(int32_t value);

  // ---- Result lists of the last conversion (1-based) ----
  // An index below 1 or above the count throws AutomationError 5.
  int32_t get_FilesJustCreatedCount();
  std::string get_FilesJustCreated(int32_t lIndex);
  int32_t get_SheetsJustProcessedCount();
  std::string get_SheetsJustProcessed(int32_t lIndex);

  // ---- The OnError event ----
  // A sink is called synchronously, on the caller's thread, with the code the
  // method is about to return and the message just stored in ErrorString.
  // Sinks run in the order they were added.
  using OnErrorSink = std::function<void(int32_t& lErr, std::string& sErr)>;
  uint32_t AdviseOnError(OnErrorSink sink);  // returns a cookie
  void UnadviseOnError(uint32_t cookie);

  // ---- The office ----
  // True when a spreadsheet (word-processor) application can be started. The
  // first answer is kept for the life of the control.
  bool ExcelIsInstalled();
  bool WordIsInstalled();
  // What was found about the office in the last method (or probe) that used
  // one, beside its result code: why an office could not be started or
  // closed, the office's own error text where the method's error trap kept
  // its code, that an office died (and how) or that the watchdog stopped it
  // ("timed out after 60 s: ..."). Empty when there was nothing to find.
  // Not part of ErrorString, which keeps each method's own message.
  std::string OfficeFinding();

  // ---- State file and translation ----
  std::monostate StateFileSave();  // does nothing
  std::monostate StateFileLoad();  // does nothing
  // Keeps both settings for the dialogs' translation and loads the language
  // file "<folder of sParentIniFile>/Languages/<sLanguageFile>" (format:
  // tools/dialog/Languages/README.md); always returns false, whether or not
  // the file could be read.
  bool InitTranslator(std::string& sParentIniFile, std::string& sLanguageFile);

  // ---- Conversion and sheet discovery ----
  // Opens sSourceFile and saves all or the listed sheets (sSheets: "*" or "",
  // numbers and ranges "1-3,5", or names "Sheet1","Totals") as lTargetType
  // (an XlFileFormat number: 6 CSV, 51 xlsx, -4143 xls, 60 ods, 57 pdf, ...).
  // Several sheets go to "<folder><base>-<number or name>.<ext>"; for text
  // formats those are joined into sTargetFile unless CO_MultiFileOutput.
  // bDoFormula: write formulas instead of values. Fills FilesJustCreated and
  // SheetsJustProcessed. Rewrites sSheets ("" becomes "*").
  // Codes: -2 missing source, -3/-4 office, -11 "Invalid Sheet Specified."
  int32_t OpenXLSSaveAs(std::string& sSourceFile, std::string& sSheets, std::string& sTargetFile,
                        int32_t& lTargetType, bool& bDoFormula);
  // True when the sheet list names sheets (or is "*"); a blank list becomes "*".
  bool bDetectNamedSheets(std::string& sSheetsIn);
  // Writes the names of the listed sheets of spath into sSheetNames, which the
  // caller sizes (it is never resized; a full array ends the walk). Returns
  // the number of names, or -202, -11, -3 or -4.
  int32_t GetSheetNames(std::string& spath, std::string& sSheets, std::vector<std::string>& sSheetNames);

  // ---- Copying sheet data between workbooks ----
  // Copies the cells of sRangeToCopyFrom on sheet sSheetOriginal of
  // sPathOriginal into sheet sSheetTarget of sPathTarget, and saves the target
  // in the normal workbook format. The target is held by one office
  // application and the original is opened, read-only unless it is the target
  // file (paths compared without regard to case), in a second one.
  // - Sheets are found by name, else, for a numeric text, by 1-based number (a
  //   sheet named "3" wins over the third sheet). Double quotes are removed
  //   from sSheetOriginal and sSheetTarget (both rewritten).
  // - sRangeToCopyFrom: an A1 range, areas separated by ","; "" is the used
  //   range; "B2:*" runs from B2 to the sheet's last used cell.
  // - sRangeToCopyTo: the destination's top-left cell (or a range, of which
  //   the top-left cell is used); "" puts each area at its own address; a
  //   text holding "below" ("right") puts each area under (right of) the
  //   target sheet's used range, or at its one cell when the sheet is empty.
  // - bDoFormula: formulas (in Excel syntax) instead of values. Formats and
  //   the clipboard are never used.
  // - A missing target is created at once (with the folders above it) and
  //   cut down to one sheet, named sSheetTarget when that is not empty; a
  //   failure further on leaves it as that empty workbook. A missing target
  //   sheet is added when bAddSheetsIfNecessary, under the office's default
  //   name: only bCopyNameOfSheet, which gives the target sheet the original
  //   sheet's name, renames it.
  // - The target is written only by the final save: a failure leaves an
  //   existing target as it was. Passwords: InputFile_PassWord(_TW) open the
  //   original, OutputFile_PassWord(_TW) an existing target.
  // Codes (no event unless stated): -202 "Original File does not exist";
  // -207 the target path holds "*" (tested before the other target checks;
  // "?" passes); -208; -3 (with the event); -203 a new target is not there
  // after its first save; -204 "Original Sheet does not exist"; -205 the
  // target sheet is missing and may not be added; -206 the target sheet could
  // not take the original's name: the data was copied but the target is not
  // saved; -4 an application could not be closed (replacing any other code);
  // an office error in the middle goes the general error path
  // (kAutomationError / kOfficeUnavailable, with the event).
  int32_t CopySheetData(std::string& sPathOriginal, std::string& sSheetOriginal, std::string& sRangeToCopyFrom,
                        std::string& sPathTarget, std::string& sSheetTarget, std::string& sRangeToCopyTo,
                        bool& bDoFormula, bool& bCopyNameOfSheet, bool& bAddSheetsIfNecessary);
  // CopySheetData for sheet lists: sSheetOriginal is resolved against the
  // original first (its failure code is returned as it is); a missing target
  // is then written with the office's new-workbook sheets only (sheets for
  // sSheetTarget come into being through bAddSheetsIfNecessary);
  // sSheetTarget is resolved against the target with the output passwords,
  // or, when that fails with -11 or bAddSheetsIfNecessary is False, taken
  // literally (quotes removed, split at ","). Then CopySheetData runs for
  // every target sheet and, within it, every original sheet, in list order:
  // with "below" the originals are stacked in each target sheet. The first
  // negative result ends the run; the pairs copied before it stay saved.
  // Before the target is written, a path holding "*" gives -207 and a
  // folder that cannot be made -208. Other codes: those of the resolver and
  // of CopySheetData, -3, -203, -4. Name lists are normalised in place.
  int32_t CopySheetDataEx(std::string& sPathOriginal, std::string& sSheetOriginal, std::string& sRangeToCopyFrom,
                          std::string& sPathTarget, std::string& sSheetTarget, std::string& sRangeToCopyTo,
                          bool& bDoFormula, bool& bCopyNameOfSheet, bool& bAddSheetsIfNecessary);

  // ---- The sheet selection dialog ----
  // Lists the worksheets of sXLSFile in the modal window frmSelectSheet and
  // returns the picked names, each in double quotes, joined by "," (one name
  // when bMultipleSelect is False), or "" when the window is cancelled or
  // nothing is picked. The names are read by an office application started
  // for the purpose and quit again (never the control's own, whatever
  // OptimizeForSpeed says), with the workbook opened read-only and without
  // passwords. The window's texts and font come from the language file
  // given to InitTranslator. The window is a plug-in loaded on the first
  // call (see ControlOptions); a host without a display gets a failure, never
  // a crash. Failures return "", store the text in ErrorString and raise
  // OnError with -10: "Source file does not exist: " and the path (no office
  // is started); a plug-in that is missing or cannot be loaded; no display to
  // show the window on; any office error while reading the names (a
  // protected or damaged workbook, no office), which leaves the text empty.
  std::string ShowSheetSelectionDialog(std::string& sXLSFile, bool& bMultipleSelect);

  // ---- Cell edits of one sheet ----
  // Each opens sPathOriginal (read-only unless sPathTarget names the same
  // file, compared without regard to case; InputFile_PassWord(_TW) as its
  // passwords), edits the sheet named sSheet (double quotes removed and
  // written back) and saves the workbook as sPathTarget in the normal
  // workbook format. Codes: -202 "Source File does not exist" and -208
  // (no event); -3 and -204 "Sheet specified does not exist." (with the
  // event); -4 when the office cannot be closed (replacing -204); an office
  // error in the edit goes the general error path (kAutomationError /
  // kOfficeUnavailable, with the event) and nothing is saved.
  //
  // Deletes whole rows (whole columns when bDoColumns) named by a list of
  // numbers and ranges ("2,4,10-12"), from the largest number down, so the
  // numbers are those before the call; a number given twice deletes two
  // rows. More than 1000 numbers: kSubscriptOutOfRange, nothing saved.
  int32_t DeleteRowsOrColumns(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheet,
                              std::string& sRowsColsToDelete, bool& bDoColumns);
  // Replace over sRange of the sheet (blank: every cell): sSearchFor is
  // literal text except for the wildcards "*" (any run of characters), "?"
  // (one character) and "~" (the next "*", "?" or "~" literally); a whole
  // cell must match unless bLookAtPart; formulas are searched in their
  // Excel-syntax text. A changed cell takes its new text as typed input.
  int32_t SearchAndReplaceCellContent(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheet,
                                      std::string& sSearchFor, std::string& sReplaceWith, std::string& sRange,
                                      bool& bCaseSensitive, bool& bLookAtPart, bool& bMatchByte);
  // Types sCellContent into every cell of sRange (blank: the used range,
  // whose address is written back): numbers become numbers, en-US dates
  // dates, a leading "=" a formula in Excel syntax whose relative references
  // move from cell to cell. bDoFormula: formulas shown rather than values.
  int32_t ChangeCellContent(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheet,
                            std::string& sRange, std::string& sCellContent, bool& bDoFormula);
  // Range lists of the next two methods (rewritten in place): "" is the
  // used range's address; "B3:*" runs from B3 to the last used cell (with
  // the "$" signs removed and anything after ":*" dropped); areas are
  // separated by ",".
  //
  // Gives the ranges the number format sNewFormat, in en-US format codes
  // ("#,##0.00", "m/d/yyyy", "0%", "@"). Before the office starts, every
  // "\" in sNewFormat becomes "/" and double quotes are removed from both
  // texts (both written back).
  int32_t ChangeNumberFormat(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheet,
                             std::string& sRangeToChange, std::string& sNewFormat);
  // lWhatToClear: 0 everything, 1 formats, 2 contents, 3 comments, 4 notes
  // (comments and notes are the same annotations here), 5 outline (row and
  // column grouping). Any other value saves the workbook unchanged.
  int32_t ClearCells(std::string& sPathOriginal, std::string& sPathTarget, int32_t& lWhatToClear,
                     std::string& sSheet, std::string& sRangeToChange);
  // Turns the sheet's used range so that rows become columns, written back
  // from A1 as formulas (relative references turned with the block); the old
  // cells are cleared, formats included.
  int32_t TransposeSheetData(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheet);
  // ---- Word table import ----
  // Copies tables of the word-processor document sPathOriginal (.doc, .docx,
  // .odt, .rtf, ...) into the workbook sPathTarget, which is opened with
  // OutputFile_PassWord(_TW) when it exists and made otherwise, and saved in
  // the normal workbook format. The word processor is an office process of
  // its own; the document is opened read-only with InputFile_PassWord (and
  // InputFile_PassWord_TW in the template-password place) and never saved.
  // - sTablesToDo: table numbers (1-based, document order) such as "1,3-4";
  //   empty or nothing left after cleaning: every table.
  // - sRowsToDelete, sColsToDelete: rows and columns deleted from every
  //   table, in the document in memory only, before it is copied.
  // - The table moves as the word processor copies it: cells as cells,
  //   merged cells merged, numbers as numbers, text (commas, line breaks,
  //   a leading "=") as text, with the table's look; bRemoveTableFormatting
  //   pastes the values alone.
  // - lTableImportMethod 0: every table on sheet sSheetToImportTo (made when
  //   missing and activated), the first at sPasteToCell ("" becomes "A1"),
  //   each next one lRowsBetweenTables rows below and lColsBetweenTables
  //   columns right of the one before; a negative distance keeps the start
  //   cell's row (column) instead, both negative paste every table at the
  //   start cell. While MultifileProcessing is True the cell after the last
  //   table is kept in the control and the next call starts there (setting
  //   MultifileProcessing starts a new series).
  //   1: a new sheet per table after the active one, in table order, named
  //   <sSheetToImportTo>_<t>, or <sSheetToImportTo>_<t>_(k) for the first
  //   free k from 2 to 5000 when that name is taken.
  //   2: a new workbook per table, <folder>/<base>-<t>.<ext> beside
  //   sPathTarget, its sheet named <sSheetToImportTo>_<t>.
  //   Any other number imports nothing.
  // Rewrites sPasteToCell ("" to "A1", or the kept cell) and removes double
  // quotes from sSheetToImportTo, sTablesToDo, sRowsToDelete and
  // sColsToDelete; the three lists are left as the item-list parser cleans
  // them.
  // Codes: -202 "Source File does not exist", -208 (no event); -3, -12
  // (with the event; the spreadsheet office is quit again); -14 "Table(s)
  // specified do not exist in word document" when the largest listed number
  // exceeds the table count, before anything is pasted; -204 when the sheet
  // cannot be made; -4 and -13 when an office could not be closed
  // (replacing any other code); an office error in the middle goes the
  // general error path. A list such as "-5" throws the item-list parser's
  // AutomationError (type mismatch) after everything was closed.
  int32_t WordTableToExcel(std::string& sPathOriginal, std::string& sPathTarget, std::string& sTablesToDo,
                           int32_t& lTableImportMethod, std::string& sSheetToImportTo, std::string& sPasteToCell,
                           int32_t& lRowsBetweenTables, int32_t& lColsBetweenTables, std::string& sRowsToDelete,
                           std::string& sColsToDelete, bool& bRemoveTableFormatting);
  // ---- Printing, macros and passwords ----
  // Each opens one workbook in one office application, does one thing and
  // closes it again. Codes common to the three: -202 "Source File does not
  // exist" (no event); -208 the target's folder is missing and cannot be made
  // (no event); -3 (with the event); -4 the application could not be closed
  // (replacing any other code). An office error in the middle of the work (a
  // wrong password, a macro that does not exist or fails, a printer that does
  // not exist) goes the general error path: kAutomationError, or
  // kOfficeUnavailable when the office died or was stopped by the watchdog
  // (then -4 follows from the close), with the office's text and the event;
  // nothing is written then.
  //
  // Prints the listed sheets of sPathOriginal. sSheets: "*" or "", numbers and
  // ranges "1-3,5", or names "Sheet1","Totals" (double quotes are removed from
  // it and from sPathOriginal, both rewritten). sRanges: ranges printed on
  // every listed sheet, each its own print job, separated by ","
  // ("A1:C20,E1:F5"); "" prints each sheet's used area. sPrinter: a printer
  // (a CUPS queue) of this system, "" the default one. lNumCopies copies,
  // collated when bCollate; pages lFromPage to lToPage of each job, each
  // bound used only when greater than 0. bPrintToFile: the job is written to
  // sPrintToFileName as PDF instead of going to the printer; with several
  // jobs the first is written there and job n to "<base>-<n>.<ext>" beside
  // it. The workbook is opened read-only unless sPrintToFileName is its own
  // path, and never saved. Codes: -204 "Source Sheet does not exist." when
  // sSheets finds no sheet (tested before the office prints anything); -213
  // "Invalid or missing sheets specified." when a listed sheet cannot be
  // found or a range of sRanges is not a range of it (everything else is
  // still printed); -208 only when printing to a file.
  int32_t PrintExcelContents(std::string& sPathOriginal, std::string& sPrintToFileName, std::string& sSheets,
                             std::string& sRanges, std::string& sPrinter, int32_t& lNumCopies, int32_t& lFromPage,
                             int32_t& lToPage, bool& bCollate, bool& bPrintToFile);
  // Opens sSourceFile (double quotes removed, rewritten) with the input
  // password pair, not read-only, and runs sMacroName (double quotes removed,
  // rewritten) with sArg1 up to the last non-empty argument, every one a
  // text (empty ones before it passed as ""). Macros: the workbook's VBA code
  // (.xls, .xlsm) and its Basic (.ods), named "Macro", "Module.Macro",
  // "Library.Module.Macro" (a VBA project's name is its library's:
  // "VBAProject.Module1.Macro") or "'book.xlsm'!Macro". When
  // bSaveAfterExecution the workbook is then saved as sTargetFile in the
  // normal workbook format (.xls); otherwise nothing is written. A workbook
  // reserved for writing opens writable only with InputFile_PassWord_TW:
  // without it it opens read-only (a save over its own file fails), with a
  // wrong one the open fails. A macro that is missing, fails or cannot be
  // compiled fails the call (general error path); one that runs longer than
  // the office's call limit is stopped with its office.
  int32_t ExecuteMacro(std::string& sSourceFile, std::string& sTargetFile, std::string& sMacroName,
                       bool& bSaveAfterExecution, std::string& sArg1, std::string& sArg2, std::string& sArg3,
                       std::string& sArg4, std::string& sArg5, std::string& sArg6, std::string& sArg7,
                       std::string& sArg8);
  // Opens sSourceFile writable with sOriginalFilePW and sOriginalFilePWToWrite
  // and saves it as sTargetFile in the normal workbook format (.xls, whatever
  // the extension), encrypted with sTargetFilePW and reserved for writing
  // with sTargetFilePWToWrite (without it the copy opens read-only); an empty
  // new password leaves that protection out. The control's password
  // properties are not used. A wrong original password, or a wrong write
  // reservation password of a reserved source, fails through the general
  // error path and writes nothing; without its write reservation password a
  // reserved source opens read-only, so the copy cannot replace it.
  int32_t ChangePassword(std::string& sSourceFile, std::string& sTargetFile, std::string& sOriginalFilePW,
                         std::string& sOriginalFilePWToWrite, std::string& sTargetFilePW,
                         std::string& sTargetFilePWToWrite);
  // ---- Sheet structure: adding, moving, renaming, deleting, copying ----
  // Each opens sPathOriginal (read-only unless sPathTarget is the same path,
  // compared without regard to case; InputFile_PassWord(_TW) as its
  // passwords), changes its worksheets and saves the result as sPathTarget
  // in the normal workbook format; the folders above sPathTarget are made
  // when missing. A failure writes nothing to sPathTarget. Sheets are found
  // by name without regard to case, else, for a numeric text, by 1-based
  // number (a sheet named "3" wins over the third sheet).
  // Position markers, without regard to case: "firstfirst" in sSheetBefore
  // is the first worksheet, "lastlast" in sSheetAfter the last one; the
  // marker is replaced by that sheet's name in the argument. sSheetAfter
  // wins when both positions are given.
  // Codes common to all five: -202 "Source File does not exist" and -208
  // "Target path folder does not exist" (no event, nothing started); -3
  // (with the event); -4 an application could not be closed (replacing any
  // other code); an office error in the middle (a name the office refuses,
  // a wrong password, deleting the last sheet) goes the general error path
  // (kAutomationError / kOfficeUnavailable, with the event). The method's own
  // codes below raise the event.

  // Moves sSheetToMove after sSheetAfter, else before sSheetBefore; with
  // both empty the workbook is saved unchanged. Double quotes are removed
  // from sSheetToMove and sSheetAfter (not from sSheetBefore).
  // Codes: -215 "Sheet to move does not exist."; -210 "SheetBefore or
  // SheetAfter does not exist.".
  int32_t MoveSheet(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheetToMove,
                    std::string& sSheetBefore, std::string& sSheetAfter);
  // Gives sSheetToRename the name sNewSheetName (quotes removed from both);
  // a name in use or not valid is an office error.
  // Codes: -216 "Sheet to rename does not exist.".
  int32_t RenameSheet(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheetToRename,
                      std::string& sNewSheetName);
  // Adds a worksheet after sSheetAfter, else before sSheetBefore, named
  // sSheetToAdd (the office's default name when empty). When a position is
  // given, quotes are removed from sSheetToAdd and a sheet of that name is
  // deleted first with bOverwrite, refused with -212 without it. With both
  // positions empty the sheet goes after the last one (sSheetAfter becomes
  // its name) and no such test is made: a name in use is an office error.
  // Codes: -212 "Target Sheet already exists.  Set overwrite to TRUE to copy
  // over existing sheet."; -210 "SheetBefore or SheetAfter does not exist.".
  int32_t AddSheet(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheetToAdd,
                   std::string& sSheetBefore, std::string& sSheetAfter, bool& bOverwrite);
  // Deletes worksheets. When sSheetExcept names a sheet, every other
  // worksheet goes and the other two arguments are ignored; otherwise the run
  // from sSheetStart to sSheetEnd, both included, in whichever order they are
  // given, or sSheetStart alone when sSheetEnd names no sheet (or is empty).
  // Quotes are removed from the three names (written back). A request that
  // would leave no worksheet fails through the office's refusal: the general
  // error path, nothing written.
  // Codes: -213 "Invalid or missing sheets specified." (neither the except
  // sheet nor the start sheet exists).
  int32_t DeleteSheet(std::string& sPathOriginal, std::string& sPathTarget, std::string& sSheetStart,
                      std::string& sSheetEnd, std::string& sSheetExcept);
  // Copies the whole worksheet sSheetOriginal of sPathOriginal (values,
  // formulas, formats, column widths, merged cells) into the workbook
  // sPathTarget, after sSheetAfter, else before sSheetBefore, else after its
  // last sheet, under the name sSheetTarget (the original's name when
  // empty), and saves it there. A missing sPathTarget becomes a new workbook
  // holding the copy alone (the positions are not used then). The original
  // is opened read-only unless it is the target; an existing target is
  // opened with OutputFile_PassWord(_TW). The sheet travels through a
  // temporary workbook, "Brevant_<unique>.XLS" in the temporary folder,
  // which is always removed. Quotes are removed from the four sheet
  // arguments (written back).
  // lActionIfAlreadyExists, when the target already has a sheet of that
  // name: kCopySheetRefuse (0, and any value not listed) refuses with -212;
  // kCopySheetReplace (1) puts the copy in that sheet's place (or at the
  // position given) and deletes it; kCopySheetKeepBoth (2) keeps it and names
  // the copy "<name> (2)", "<name> (3)", ...
  // Codes: -204 "Source Sheet does not exist."; -210 "SheetBefore or
  // SheetAfter does not exist" (no full stop); -212 "Target Sheet already
  // exists.  Set options differently to overwrite.".
  static constexpr int32_t kCopySheetRefuse = 0;
  static constexpr int32_t kCopySheetReplace = 1;
  static constexpr int32_t kCopySheetKeepBoth = 2;
  int32_t CopySheet(std::string& sPathOriginal, std::string& sSheetOriginal, std::string& sPathTarget,
                    std::string& sSheetTarget, std::string& sSheetBefore, std::string& sSheetAfter,
                    int32_t& lActionIfAlreadyExists);

  // ---- Text methods (libravelin.so) ----
  // Each returns the text library's result unchanged (0 success, its negative
  // codes otherwise), sets no ErrorString and raises no event. Text arguments
  // travel in the system's 8-bit character set and are written back.
  int32_t txtChangeCharacterIgnoreWithinQuotes(std::string& sInputFile, std::string& sOutputFile,
                                               std::string& sChar, std::string& sCharReplace);
  int32_t csvEncaseEachFieldWithQuotes(std::string& sPathOriginal, std::string& sPathTarget);
  int32_t csvChangeDelimitationCharacter(std::string& sInputFile, std::string& sOutputFile, std::string& sChar);
  int32_t csvPadWithSpaces(std::string& sInputFile, std::string& sOutputFile);
  int32_t csvRemoveEmptyLines(std::string& sInputFile, std::string& sOutputFile);
  int32_t csvCropCSVFileRows(std::string& sInputFile, std::string& sOutputFile, std::string& sRowsToUse);
  int32_t csvCropCSVFileCols(std::string& sInputFile, std::string& sOutputFile, std::string& sColsToUse);
  int32_t csvPadForFixedLengthFields(std::string& sInputFile, std::string& sOutputFile, int32_t& lLength,
                                     std::string& sCharToUse, bool& bPadLeft, std::string& sColumn);
  int32_t csvRemoveControlCharactersFromFile(std::string& sInputFile, std::string& sOutputFile);
  int32_t csvTrimCSVFile(std::string& sInputFile, std::string& sOutputFile);
  // Appends sTargetFile's text to sSourceFile.
  int32_t ConcatenateTwoTextFiles(std::string& sSourceFile, std::string& sTargetFile);
  int32_t ConcatenateTwoTextFilesEx(std::string& sSourceFile, std::string& sTargetFile, int32_t& lAddPageBreak,
                                    int32_t& lPlaceFilePath);
  int32_t DeleteEmptyLinesFromTextFile(std::string& sSourceFile, std::string& sTargetFile);
  bool IsFileUnicode(std::string& sFileToTest);

  struct TABULON_HIDDEN State;  // the control's fields; defined inside the library

 private:
  std::unique_ptr<State> state_;
};

}  // namespace tabulon
