// The spreadsheet application's enumeration values that the methods pass to
// the object model, by their own names. The numbers are the application's and
// travel through the model unchanged.
#pragma once

#include <cstdint>

namespace tabulon::office {

// XlFileFormat: the normal workbook, and the families the conversion treats
// alike (see file formats in the backend for the full table).
inline constexpr int32_t kXlWorkbookNormal = -4143;
inline constexpr int32_t kXlCSV = 6;
inline constexpr int32_t kXlTextWindows = 20;
inline constexpr int32_t kXlOpenXMLWorkbook = 51;
inline constexpr int32_t kXlOpenDocumentSpreadsheet = 60;
inline constexpr int32_t kXlTypePDF = 57;

// XlSaveAsAccessMode and XlSaveConflictResolution.
inline constexpr int32_t kXlNoChange = 1;
inline constexpr int32_t kXlLocalSessionChanges = 2;

// XlSheetType and XlCellType.
inline constexpr int32_t kXlWorksheet = -4167;
inline constexpr int32_t kXlCellTypeLastCell = 11;

// XlPasteType.
inline constexpr int32_t kXlPasteAll = -4104;
inline constexpr int32_t kXlPasteValues = -4163;
inline constexpr int32_t kXlPasteFormats = -4122;
inline constexpr int32_t kXlPasteFormulas = -4123;
// XlPasteSpecialOperation.
inline constexpr int32_t kXlPasteSpecialOperationNone = -4142;

// XlLookAt and XlSearchOrder.
inline constexpr int32_t kXlWhole = 1;
inline constexpr int32_t kXlPart = 2;
inline constexpr int32_t kXlByRows = 1;
inline constexpr int32_t kXlByColumns = 2;

}  // namespace tabulon::office
