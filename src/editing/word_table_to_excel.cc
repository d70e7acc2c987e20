// WordTableToExcel: tables of a word-processor document copied into a
// workbook, through the word processor (a process of its own) and the
// clipboard the two applications share: all tables on one sheet, one new
// sheet per table, or one new workbook per table.
#include <memory>
#include <string>
#include <vector>

#include "control/applications.h"
#include "control/control_state.h"
#include "control/workbook_method.h"
#include "convert/sheet_lookup.h"
#include "util/file_helpers.h"
#include "util/item_list.h"

namespace tabulon {

namespace {

constexpr int32_t kAllOnOneSheet = 0;
constexpr int32_t kSheetPerTable = 1;
constexpr int32_t kWorkbookPerTable = 2;
// Sheet names tried for one table in the sheet-per-table layout: stem_t,
// then stem_t_(2) up to stem_t_(kMaxNameAttempts).
constexpr int32_t kMaxNameAttempts = 5000;

// The numbers of a parsed item list.
std::vector<int32_t> Numbers(const std::vector<std::string>& items, int32_t count) {
  std::vector<int32_t> numbers;
  for (int32_t i = 0; i < count && i < static_cast<int32_t>(items.size()); ++i) {
    numbers.push_back(static_cast<int32_t>(std::stol(items[i])));
  }
  return numbers;
}

// Names a sheet and reads the name back: the office can refuse a name
// without a word where the spreadsheet application raises an error.
void NameSheet(office::Worksheet& sheet, const std::string& name) {
  sheet.SetName(name);
  if (sheet.Name() != name) {
    throw office::Error(office::ErrorKind::kAutomation, "the sheet cannot be named \"" + name + "\"");
  }
}

class WordImport {
 public:
  WordImport(TabulonCtrl::State& state, office::Application& excel, office::Document& document, office::Workbook& book,
             bool remove_formatting)
      : state_(state), excel_(excel), document_(document), book_(book), remove_formatting_(remove_formatting) {}

  void SetDeletions(std::vector<int32_t> rows, std::vector<int32_t> columns) {
    rows_ = std::move(rows);
    columns_ = std::move(columns);
  }

  // The chosen rows and columns deleted in the word processor, the last
  // first, then the table put on the clipboard.
  void DeleteAndCopy(int32_t t) {
    auto table = document_.Tables(t);
    for (auto r = rows_.rbegin(); r != rows_.rend(); ++r) table->RowDelete(*r);
    for (auto c = columns_.rbegin(); c != columns_.rend(); ++c) table->ColumnDelete(*c);
    table->RangeCopy();
  }

  // Into the active sheet at its selection; the pasted block becomes the
  // selection.
  void Paste() {
    const auto sheet = excel_.ActiveSheet();
    if (remove_formatting_) {
      sheet->PasteSpecialValues();
    } else {
      sheet->Paste();
    }
  }

  void SaveTarget(const std::string& target) {
    office::SaveAsOptions save;
    save.file_format = office::kXlWorkbookNormal;
    book_.SaveAs(target, save);
  }

  // Every table on one sheet, each placed from the one before by the
  // distances given; returns 0 or -204 (stored and raised).
  int32_t AllOnOneSheet(const std::vector<int32_t>& tables, const std::string& target, bool target_is_new,
                        const std::string& sheet_name, std::string& paste_to_cell, int32_t rows_between,
                        int32_t columns_between) {
    auto sheet = GetSheetByNameOrIndex(book_, sheet_name);
    if (!sheet) {
      if (target_is_new) {
        excel_.ActiveSheet()->SetName(sheet_name);
      } else {
        office::Worksheets& sheets = book_.Sheets();
        auto last = sheets.Item(sheets.Count());
        sheets.Add(nullptr, last.get(), std::nullopt)->SetName(sheet_name);
      }
      SaveTarget(target);
      sheet = GetSheetByNameOrIndex(book_, sheet_name);
      if (!sheet) return state_.FailAndRaise(kSheetMissing, msg::kSheetSelectionifiedMissing);
    }
    // The tables go to the sheet of that name, also when the workbook opens
    // on another one.
    sheet->Activate();

    if (state_.multifile_processing && !state_.multifile_text.empty()) paste_to_cell = state_.multifile_text;
    excel_.ActiveSheet()->GetRange(paste_to_cell)->Select();
    for (const int32_t t : tables) {
      DeleteAndCopy(t);
      Paste();
      const auto pasted = excel_.Selection();
      const auto start = excel_.ActiveSheet()->GetRange(paste_to_cell);
      const int32_t row = rows_between >= 0 ? pasted->Row() + pasted->RowsCount() + rows_between : start->Row();
      const int32_t column =
          columns_between >= 0 ? pasted->Column() + pasted->ColumnsCount() + columns_between : start->Column();
      const auto next = excel_.ActiveSheet()->Cells(row, column);
      next->Select();
      // Where the next document's tables of a series begin.
      if (state_.multifile_processing) state_.multifile_text = next->Address();
    }
    SaveTarget(target);
    return kSuccess;
  }

  // A new sheet per table, after the active one, named stem_t (or
  // stem_t_(k) when that name is taken).
  void SheetPerTable(const std::vector<int32_t>& tables, const std::string& target, const std::string& stem,
                     const std::string& paste_to_cell) {
    for (const int32_t t : tables) {
      DeleteAndCopy(t);
      auto active = excel_.ActiveSheet();
      auto sheet = book_.Sheets().Add(nullptr, active.get(), std::nullopt);
      sheet->GetRange(paste_to_cell)->Select();
      const std::string name = stem + "_" + std::to_string(t);
      if (!GetSheetByName(book_, name)) {
        NameSheet(*sheet, name);
      } else {
        for (int32_t k = 2; k <= kMaxNameAttempts; ++k) {
          const std::string numbered = name + "_(" + std::to_string(k) + ")";
          if (!GetSheetByName(book_, numbered)) {
            NameSheet(*sheet, numbered);
            break;
          }
        }
      }
      SaveTarget(target);
      Paste();
    }
    SaveTarget(target);
  }

  // A new workbook per table, saved beside the target as base-t.ext.
  void WorkbookPerTable(const std::vector<int32_t>& tables, const std::string& target, const std::string& stem) {
    for (const int32_t t : tables) {
      DeleteAndCopy(t);
      office::Workbook& book = excel_.GetWorkbooks().Add();
      NameSheet(*excel_.ActiveSheet(), stem + "_" + std::to_string(t));
      Paste();
      office::SaveAsOptions save;
      save.file_format = office::kXlWorkbookNormal;
      book.SaveAs(NumberedOutputPath(target, std::to_string(t)), save);
      book.Close(false);
    }
  }

 private:
  TabulonCtrl::State& state_;
  office::Application& excel_;
  office::Document& document_;
  office::Workbook& book_;
  bool remove_formatting_;
  std::vector<int32_t> rows_;
  std::vector<int32_t> columns_;
};

}  // namespace

int32_t TabulonCtrl::WordTableToExcel(std::string& sPathOriginal, std::string& sPathTarget, std::string& sTablesToDo,
                                      int32_t& lTableImportMethod, std::string& sSheetToImportTo,
                                      std::string& sPasteToCell, int32_t& lRowsBetweenTables,
                                      int32_t& lColsBetweenTables, std::string& sRowsToDelete,
                                      std::string& sColsToDelete, bool& bRemoveTableFormatting) {
  State& s = *state_;
  if (!FileExists(sPathOriginal)) return s.Fail(kFileMissing, msg::kSourceFileMissing);
  if (const int32_t code = MakeTargetFolder(s, sPathTarget); code != kSuccess) return code;

  Applications apps(s);
  office::Application* excel = apps.Excel();
  if (excel == nullptr) return kExcelNotCreated;
  office::WordApplication* word = apps.Word();
  if (word == nullptr) return apps.CloseAll(kWordNotCreated);

  if (sPasteToCell.empty()) sPasteToCell = "A1";
  sSheetToImportTo = RemoveDoubleQuotes(sSheetToImportTo);
  sTablesToDo = RemoveDoubleQuotes(sTablesToDo);
  sColsToDelete = RemoveDoubleQuotes(sColsToDelete);
  sRowsToDelete = RemoveDoubleQuotes(sRowsToDelete);

  office::Document* document = nullptr;
  // The document is closed unsaved on every path, so the deletions never
  // reach its file, and a word processor kept for the next call holds
  // nothing open.
  auto close_document = [&] {
    if (document == nullptr) return;
    try {
      word->ActiveDocument().Close(false);
    } catch (const office::Error&) {
    }
    document = nullptr;
  };

  int32_t code = kSuccess;
  try {
    office::DocumentOpenOptions open;
    open.confirm_conversions = false;
    open.read_only = true;
    open.add_to_recent_files = false;
    open.password_document = s.input_password;
    // The write-reservation password goes where the word processor takes
    // the template's password, as the method has always passed it.
    open.password_template = s.input_password_tw;
    document = &word->Open(sPathOriginal, open);

    const bool target_is_new = !FileExists(sPathTarget);
    office::Workbook* book = nullptr;
    if (target_is_new) {
      book = &excel->GetWorkbooks().Add();
    } else {
      office::OpenOptions target_open;
      target_open.password = s.output_password;
      target_open.write_res_password = s.output_password_tw;
      book = &excel->GetWorkbooks().Open(sPathTarget, target_open);
    }

    std::vector<std::string> items;
    int32_t count = 0;
    if (ParseToDoList(sTablesToDo, items, count) & kItemListEmpty) {
      const int32_t tables = word->ActiveDocument().TablesCount();
      // All of them: 1, 2, ..., N.
      if (tables >= 1) {
        items.clear();
        for (int32_t t = 1; t <= tables; ++t) items.push_back(std::to_string(t));
        count = tables;
      }
    }
    const std::vector<int32_t> tables = Numbers(items, count);
    // Only the largest number is held against the document's table count.
    if (!tables.empty() && tables.back() > word->ActiveDocument().TablesCount()) {
      code = s.FailAndRaise(kWordTablesMissing, msg::kWordTablesMissing);
    } else {
      std::vector<std::string> row_items, column_items;
      int32_t row_count = 0, column_count = 0;
      ParseToDoList(sRowsToDelete, row_items, row_count);
      ParseToDoList(sColsToDelete, column_items, column_count);

      WordImport import(s, *excel, *document, *book, bRemoveTableFormatting);
      import.SetDeletions(Numbers(row_items, row_count), Numbers(column_items, column_count));
      switch (lTableImportMethod) {
        case kAllOnOneSheet:
          code = import.AllOnOneSheet(tables, sPathTarget, target_is_new, sSheetToImportTo, sPasteToCell,
                                      lRowsBetweenTables, lColsBetweenTables);
          break;
        case kSheetPerTable:
          import.SheetPerTable(tables, sPathTarget, sSheetToImportTo, sPasteToCell);
          break;
        case kWorkbookPerTable:
          import.WorkbookPerTable(tables, sPathTarget, sSheetToImportTo);
          break;
        default:
          break;  // nothing is imported
      }
    }
  } catch (const office::Error& error) {
    code = FailWithOfficeError(s, error);
  } catch (const AutomationError&) {
    // A list the item-list parser cannot read reaches the host as its
    // automation error, after everything was closed.
    close_document();
    apps.CloseAll(code);
    throw;
  }
  close_document();
  return apps.CloseAll(code);
}

}  // namespace tabulon
