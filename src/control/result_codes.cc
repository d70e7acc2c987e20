#include "tabulon/result_codes.h"

#include <array>

namespace tabulon {

namespace {

constexpr std::string_view kEveryExcelMethod = "every Excel method, ExcelVersion, ExcelBuild";
constexpr std::string_view kEditingMethods =
    "DeleteRowsOrColumns, SearchAndReplaceCellContent, ChangeCellContent, ChangeNumberFormat, "
    "ClearCells, TransposeSheetData";

constexpr std::array kMessages = {
    ResultMessage{kSourceMissing, msg::kSourceFileDoesNotExistPrefix, "OpenXLSSaveAs (then CR CR and the path)"},
    ResultMessage{kExcelNotCreated, msg::kExcelNotCreated, kEveryExcelMethod},
    ResultMessage{kExcelNotDestroyed, msg::kExcelNotDestroyed, kEveryExcelMethod},
    ResultMessage{kSelectionDialogFailed, msg::kDialogSourceMissingPrefix,
                  "ShowSheetSelectionDialog (the dialog's text, through OnError only)"},
    ResultMessage{kInvalidSheet, msg::kInvalidSheetSelectionified, "OpenXLSSaveAs, GetSheetNames"},
    ResultMessage{kInvalidSheet, msg::kInvalidSheetSelectionifiedEmpty, "GetSheetNames (empty list)"},
    ResultMessage{kWordNotCreated, msg::kWordNotCreated, "WordTableToExcel"},
    ResultMessage{kWordNotDestroyed, msg::kWordNotDestroyed, "WordTableToExcel"},
    ResultMessage{kWordTablesMissing, msg::kWordTablesMissing, "WordTableToExcel"},
    ResultMessage{kFileMissing, msg::kSourceFileMissing,
                  "CopySheet, DeleteSheet, AddSheet, MoveSheet, RenameSheet, editing methods, "
                  "PrintExcelContents, ExecuteMacro, ChangePassword, WordTableToExcel"},
    ResultMessage{kFileMissing, msg::kOriginalFileMissing, "CopySheetData, GetSheetNames"},
    ResultMessage{kTargetFileMissing, msg::kTargetFileMissing, "CopySheetDataEx, CopySheetData"},
    ResultMessage{kSheetMissing, msg::kSheetSelectionifiedMissing, kEditingMethods},
    ResultMessage{kSheetMissing, msg::kSourceSheetMissing, "CopySheet, PrintExcelContents"},
    ResultMessage{kSheetMissing, msg::kOriginalSheetMissing, "CopySheetData"},
    ResultMessage{kTargetSheetMissing, msg::kTargetSheetMissing, "CopySheetData"},
    ResultMessage{kDuplicateSheetName, msg::kDuplicateSheetName, "CopySheetData"},
    ResultMessage{kWildcardTarget, msg::kWildcardTarget, "CopySheetData"},
    ResultMessage{kTargetFolderMissing, msg::kTargetFolderMissing, "every method that writes a target"},
    ResultMessage{kPositionSheetMissing, msg::kPositionSheetMissingCopy, "CopySheet"},
    ResultMessage{kPositionSheetMissing, msg::kPositionSheetMissing, "AddSheet, MoveSheet"},
    ResultMessage{kSheetExists, msg::kSheetExistsCopy, "CopySheet"},
    ResultMessage{kSheetExists, msg::kSheetExistsAdd, "AddSheet"},
    ResultMessage{kInvalidSheets, msg::kInvalidSheets, "DeleteSheet, PrintExcelContents"},
    ResultMessage{kMoveSheetMissing, msg::kMoveSheetMissing, "MoveSheet"},
    ResultMessage{kRenameSheetMissing, msg::kRenameSheetMissing, "RenameSheet"},
};

}  // namespace

std::span<const ResultMessage> ResultMessages() { return kMessages; }

}  // namespace tabulon
