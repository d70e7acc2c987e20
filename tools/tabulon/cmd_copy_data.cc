// tabulon CopySheetData and CopySheetDataEx: cell data copied from a sheet
// (or a list of sheets) of one workbook into another, values or formulas.
// Nothing is printed on success.
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon::cli {

namespace {

struct CopyOptions {
  std::string path_original, sheet_original, range_from, path_target, sheet_target, range_to;
  bool formulas = false;
  bool copy_name = false;
  bool add_sheets = false;
  PasswordOptions passwords;
};

using CopyMethod = int32_t (TabulonCtrl::*)(std::string&, std::string&, std::string&, std::string&, std::string&,
                                            std::string&, bool&, bool&, bool&);

int RunCopy(TabulonCtrl& control, const std::string& name, CopyMethod method, const CopyOptions& o) {
  ApplyPasswords(control, o.passwords);
  std::string path_original = Absolute(o.path_original);
  std::string sheet_original = o.sheet_original;
  std::string range_from = o.range_from;
  std::string path_target = Absolute(o.path_target);
  std::string sheet_target = o.sheet_target;
  std::string range_to = o.range_to;
  bool formulas = o.formulas;
  bool copy_name = o.copy_name;
  bool add_sheets = o.add_sheets;
  const int32_t code = (control.*method)(path_original, sheet_original, range_from, path_target, sheet_target,
                                         range_to, formulas, copy_name, add_sheets);
  if (code >= 0) return kExitSuccess;
  // The workbook the failure is about: the one copied from for its own
  // file and sheet, the target for the rest.
  const bool about_original = code == tabulon::kFileMissing || code == tabulon::kSheetMissing;
  return ReportFile(name, code, control.get_ErrorString(), about_original ? o.path_original : o.path_target);
}

void AddCopyCommand(CLI::App& parser, std::vector<Command>& commands, const std::string& name,
                    const std::string& description, const std::string& sheet_help, CopyMethod method) {
  auto o = std::make_shared<CopyOptions>();
  CLI::App* command = parser.add_subcommand(name, description);
  command->add_option("from_book", o->path_original, "The workbook to copy from")->required();
  command->add_option("from_sheet", o->sheet_original, "The sheet to copy from: " + sheet_help)->required();
  command
      ->add_option("from_range", o->range_from,
                   "The range, areas separated by \",\"; \"\" the used range; B2:* from B2 to the last used cell")
      ->required();
  command->add_option("to_book", o->path_target, "The workbook to copy into; created when missing")->required();
  command->add_option("to_sheet", o->sheet_target, "The sheet to copy into: " + sheet_help)->required();
  command
      ->add_option("to_cell", o->range_to,
                   "The top-left cell of the destination; \"\" the same address; below or right: after the used range")
      ->required();
  command->add_flag("-f,--formulas", o->formulas, "Copy the formulas instead of their values");
  command->add_flag("--copy-name-of-sheet", o->copy_name, "Give the target sheet the name of the sheet copied from");
  command->add_flag("--add-sheets", o->add_sheets, "Add the target sheet when the workbook lacks it");
  AddPasswordOptions(*command, o->passwords);
  commands.push_back({command, [o, name, method](TabulonCtrl& control) { return RunCopy(control, name, method, *o); }});
}

void AddCopyDataCommands(CLI::App& parser, std::vector<Command>& commands) {
  AddCopyCommand(parser, commands, "CopySheetData",
                 Describe("Copy the cells of a range of one sheet into a sheet of another workbook, which is saved",
                          "CopySheetData"),
                 "a name, or a number that names no sheet", &TabulonCtrl::CopySheetData);
  AddCopyCommand(parser, commands, "CopySheetDataEx",
                 Describe("Copy as CopySheetData does, for every pair of a sheet copied into and a sheet copied from",
                          "CopySheetDataEx"),
                 "* (all), numbers 1-3,5, or names \"A\",\"B\"", &TabulonCtrl::CopySheetDataEx);
}

const CommandGroup kCopyData(30, AddCopyDataCommands);

}  // namespace

}  // namespace tabulon::cli
