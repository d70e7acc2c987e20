// The result codes of the control's working methods and the exact messages
// that go with them. A method returns 0 on success and leaves ErrorString as
// it was; on failure it returns one of these codes and stores the message
// named here in ErrorString. Where one code has several texts, each method
// uses its own variant, and the differences in wording, capitalisation and
// final full stop are part of the interface: hosts compare these texts.
//
// The numbering is sparse on purpose; -1, -5 to -9, -209, -211 and -214 are
// never used. The text methods (csv..., txt..., ConcatenateTwoTextFiles...)
// return the text library's own codes instead (see ravelin/ravelin.h).
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "tabulon/export.h"

namespace tabulon {

enum ResultCode : int32_t {
  kSuccess = 0,
  kSourceMissing = -2,           // OpenXLSSaveAs: the source file does not exist
  kExcelNotCreated = -3,         // the spreadsheet application could not be started
  kExcelNotDestroyed = -4,       // ... or could not be quit
  kSelectionDialogFailed = -10,  // the sheet selection dialog could not be prepared
  kInvalidSheet = -11,
  kWordNotCreated = -12,
  kWordNotDestroyed = -13,
  kWordTablesMissing = -14,
  kFileMissing = -202,
  kTargetFileMissing = -203,
  kSheetMissing = -204,
  kTargetSheetMissing = -205,
  kDuplicateSheetName = -206,
  kWildcardTarget = -207,
  kTargetFolderMissing = -208,
  kPositionSheetMissing = -210,
  kSheetExists = -212,
  kInvalidSheets = -213,
  kMoveSheetMissing = -215,
  kRenameSheetMissing = -216,
  // The general error path: an office call failed in the middle of a
  // method's own work (a name the office refuses, a wrong password, a macro
  // that does not exist, a save that could not be written). The method
  // returns the automation error's own number, as an automation client's
  // error handler does, and its description is the message (OnError is
  // raised). The conversion keeps the code then current instead, as its
  // contract says.
  kAutomationError = -2146827284,   // 0x800A03EC: the office refused the call
  kOfficeUnavailable = -2147023174, // 0x800706BA: the office died or stopped answering
  // The general error path for a list that overflows its fixed array (more
  // than 1000 rows or columns to delete): the runtime's "Subscript out of
  // range", error 9, as an automation error.
  kSubscriptOutOfRange = -2146828279,  // 0x800A0009
};

// Message texts, one constant per variant.
namespace msg {
// -2: this prefix, two carriage returns (character 13), then the source path.
inline constexpr std::string_view kSourceFileDoesNotExistPrefix = "Source file does not exist ";
inline constexpr std::string_view kExcelNotCreated = "Unable to create Excel Application. Is it installed?";
inline constexpr std::string_view kExcelNotDestroyed = "Unable to destroy Excel application. Is it installed?";
inline constexpr std::string_view kInvalidSheetSelectionified = "Invalid Sheet Specified.";  // conversion, resolver walk
inline constexpr std::string_view kInvalidSheetSelectionifiedEmpty = "Invalid sheet specified";  // resolver, empty list
inline constexpr std::string_view kWordNotCreated = "Unable to create Word Application. Is it installed?";
inline constexpr std::string_view kWordNotDestroyed = "Unable to destroy Word application. Is it installed?";
inline constexpr std::string_view kWordTablesMissing = "Table(s) specified do not exist in word document";
inline constexpr std::string_view kSourceFileMissing = "Source File does not exist";
inline constexpr std::string_view kOriginalFileMissing = "Original File does not exist";
inline constexpr std::string_view kTargetFileMissing = "Target File does not exist";
inline constexpr std::string_view kSheetSelectionifiedMissing = "Sheet specified does not exist.";
inline constexpr std::string_view kSourceSheetMissing = "Source Sheet does not exist.";
inline constexpr std::string_view kOriginalSheetMissing = "Original Sheet does not exist";
inline constexpr std::string_view kTargetSheetMissing =
    "Target Sheet does not exist, be sure the 'Add sheets if necessary option' is set to True";
inline constexpr std::string_view kDuplicateSheetName =
    "Target Workbook cannot have two similarly named sheets. Original sheet name already exists in Target.";
inline constexpr std::string_view kWildcardTarget = "Target path file cannot have a wild card (i.e. *.XLS)";
inline constexpr std::string_view kTargetFolderMissing = "Target path folder does not exist";
inline constexpr std::string_view kPositionSheetMissingCopy = "SheetBefore or SheetAfter does not exist";
inline constexpr std::string_view kPositionSheetMissing = "SheetBefore or SheetAfter does not exist.";
inline constexpr std::string_view kSheetExistsCopy = "Target Sheet already exists.  Set options differently to overwrite.";
inline constexpr std::string_view kSheetExistsAdd =
    "Target Sheet already exists.  Set overwrite to TRUE to copy over existing sheet.";
inline constexpr std::string_view kInvalidSheets = "Invalid or missing sheets specified.";
inline constexpr std::string_view kMoveSheetMissing = "Sheet to move does not exist.";
inline constexpr std::string_view kRenameSheetMissing = "Sheet to rename does not exist.";
// The text of kSubscriptOutOfRange.
inline constexpr std::string_view kSubscriptOutOfRange = "Subscript out of range";
// The selection dialog's own text for a missing workbook: this, then the path.
inline constexpr std::string_view kDialogSourceMissingPrefix = "Source file does not exist: ";
}  // namespace msg

// One row of the table: a code, one of its texts, and who uses that text.
struct ResultMessage {
  ResultCode code;
  std::string_view message;
  std::string_view used_by;
};

// Every code with every variant text, in the order of the table hosts are
// documented against.
TABULON_EXPORT std::span<const ResultMessage> ResultMessages();

}  // namespace tabulon
