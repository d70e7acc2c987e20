// tabulon WordTableToExcel: tables of a word-processor document copied into
// a workbook. Nothing is printed on success.
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon::cli {

namespace {

struct WordImportOptions {
  std::string path_original, path_target, tables, sheet;
  int32_t method = 0;
  std::string paste_to_cell;
  int32_t rows_between = 1;
  int32_t columns_between = -1;
  std::string rows_to_delete, columns_to_delete;
  bool values = false;
  bool series = false;
  PasswordOptions passwords;
};

// The control a series of --multifile lines last ran on: setting
// MultifileProcessing starts a new series, so it is set only when a series
// begins, and the lines after it continue where the one before stopped.
const TabulonCtrl* g_series_control = nullptr;

int RunWordImport(TabulonCtrl& control, const WordImportOptions& o) {
  ApplyPasswords(control, o.passwords);
  if (!o.series) {
    control.put_MultifileProcessing(false);
    g_series_control = nullptr;
  } else if (g_series_control != &control) {
    control.put_MultifileProcessing(true);
    g_series_control = &control;
  }
  std::string path_original = Absolute(o.path_original);
  std::string path_target = Absolute(o.path_target);
  std::string tables = o.tables;
  int32_t method = o.method;
  std::string sheet = o.sheet;
  std::string paste_to_cell = o.paste_to_cell;
  int32_t rows_between = o.rows_between;
  int32_t columns_between = o.columns_between;
  std::string rows_to_delete = o.rows_to_delete;
  std::string columns_to_delete = o.columns_to_delete;
  bool values = o.values;
  const int32_t code =
      control.WordTableToExcel(path_original, path_target, tables, method, sheet, paste_to_cell, rows_between,
                               columns_between, rows_to_delete, columns_to_delete, values);
  return MethodResult("WordTableToExcel", code, control);
}

void AddWordImportCommand(CLI::App& parser, std::vector<Command>& commands) {
  auto o = std::make_shared<WordImportOptions>();
  CLI::App* command = parser.add_subcommand(
      "WordTableToExcel", "Copy tables of a word-processor document (.doc, .docx, .odt, .rtf) into a workbook");
  command->add_option("sPathOriginal", o->path_original, "Document to take the tables from; never changed")->required();
  command->add_option("sPathTarget", o->path_target, "Workbook to copy into; created when missing")->required();
  command->add_option("sTablesToDo", o->tables, "Table numbers such as 1,3-4; \"\" every table")->required();
  command
      ->add_option("lTableImportMethod", o->method,
                   "0 all tables on one sheet, 1 a new sheet per table, 2 a new workbook per table")
      ->required();
  command
      ->add_option("sSheetToImportTo", o->sheet,
                   "Sheet to import to (0), or the stem of the new sheets' names <stem>_<table> (1, 2)")
      ->required();
  command->add_option("-c,--paste-to-cell", o->paste_to_cell, "Top-left cell of the first table (sPasteToCell)");
  command
      ->add_option("--rows-between", o->rows_between,
                   "Blank rows between tables on one sheet; negative: side by side on the first row")
      ->capture_default_str();
  command
      ->add_option("--cols-between", o->columns_between,
                   "Blank columns between tables on one sheet; negative: stacked under the first")
      ->capture_default_str();
  command->add_option("--delete-rows", o->rows_to_delete, "Rows deleted from every table first, such as 1,5-6");
  command->add_option("--delete-cols", o->columns_to_delete, "Columns deleted from every table first");
  command->add_flag("--values", o->values, "Values only, without the table's look (bRemoveTableFormatting)");
  command->add_flag("--multifile", o->series,
                    "MultifileProcessing: under batch, each such line continues where the one before stopped");
  AddPasswordOptions(*command, o->passwords);
  commands.push_back({command, [o](TabulonCtrl& control) { return RunWordImport(control, *o); }});
}

const CommandGroup kWordImport(40, AddWordImportCommand);

}  // namespace

}  // namespace tabulon::cli
