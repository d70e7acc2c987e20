// The cell edits of one sheet, one subcommand each, named like the method,
// positional arguments in the method's order, options for the Booleans.
// Nothing is printed on success.
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon::cli {

namespace {

// Paths and sheet shared by every edit; the strings each edit adds.
struct EditOptions {
  std::string original, target, sheet;
  std::vector<std::string> texts;
  bool flags[3] = {false, false, false};
  int32_t what = 0;
  PasswordOptions passwords;
};

using Run = std::function<int32_t(TabulonCtrl&, std::string&, std::string&, std::string&, EditOptions&)>;

CLI::App* AddEdit(CLI::App& parser, std::vector<Command>& commands, const std::string& name,
                  const std::string& description, std::shared_ptr<EditOptions> o, Run run) {
  CLI::App* command = parser.add_subcommand(name, description);
  command->add_option("sPathOriginal", o->original, "Workbook to edit")->required();
  command->add_option("sPathTarget", o->target, "Where the edited workbook is saved (may be sPathOriginal)")
      ->required();
  AddPasswordOptions(*command, o->passwords);
  commands.push_back({command, [o, name, run](TabulonCtrl& control) {
                        ApplyPasswords(control, o->passwords);
                        std::string original = Absolute(o->original);
                        std::string target = Absolute(o->target);
                        std::string sheet = o->sheet;
                        EditOptions copy = *o;
                        return MethodResult(name, run(control, original, target, sheet, copy), control);
                      }});
  return command;
}

void AddSheetOption(CLI::App* command, EditOptions& o) {
  command->add_option("sSheet", o.sheet, "Name of the sheet to edit")->required();
}

void AddText(CLI::App* command, EditOptions& o, size_t index, const std::string& name, const std::string& help) {
  if (o.texts.size() <= index) o.texts.resize(index + 1);
  command->add_option(name, o.texts[index], help)->required();
}

void AddEditingCommands(CLI::App& parser, std::vector<Command>& commands) {
  {
    auto o = std::make_shared<EditOptions>();
    o->texts.resize(1);
    CLI::App* c = AddEdit(parser, commands, "DeleteRowsOrColumns",
                          "Delete whole rows (or columns) given by numbers and ranges, numbered as before the call",
                          o, [](TabulonCtrl& control, std::string& a, std::string& b, std::string& sheet,
                                EditOptions& e) {
                            return control.DeleteRowsOrColumns(a, b, sheet, e.texts[0], e.flags[0]);
                          });
    AddSheetOption(c, *o);
    AddText(c, *o, 0, "sRowsColsToDelete", "Numbers and ranges, such as 2,4,10-12 (at most 1000 in all)");
    c->add_flag("-c,--columns", o->flags[0], "Delete columns instead of rows (bDoColumns)");
  }
  {
    auto o = std::make_shared<EditOptions>();
    o->texts.resize(3);
    CLI::App* c = AddEdit(
        parser, commands, "SearchAndReplaceCellContent",
        "Replace text in a range of a sheet as the spreadsheet's Replace does (* ? ~ wildcards)", o,
        [](TabulonCtrl& control, std::string& a, std::string& b, std::string& sheet, EditOptions& e) {
          return control.SearchAndReplaceCellContent(a, b, sheet, e.texts[0], e.texts[1], e.texts[2], e.flags[0],
                                                     e.flags[1], e.flags[2]);
        });
    AddSheetOption(c, *o);
    AddText(c, *o, 0, "sSearchFor", "Text to find; * any run of characters, ? one, ~ before them for themselves");
    AddText(c, *o, 1, "sReplaceWith", "Replacement text");
    AddText(c, *o, 2, "sRange", "Range to search; blank for the whole sheet");
    c->add_flag("-i,--case-sensitive", o->flags[0], "Letters must match in case (bCaseSensitive)");
    c->add_flag("-p,--part", o->flags[1], "Match any part of a cell, not the whole cell (bLookAtPart)");
    c->add_flag("--match-byte", o->flags[2], "bMatchByte");
  }
  {
    auto o = std::make_shared<EditOptions>();
    o->texts.resize(2);
    CLI::App* c = AddEdit(parser, commands, "ChangeCellContent",
                          "Type one text into every cell of a range: numbers, dates, or a formula with =", o,
                          [](TabulonCtrl& control, std::string& a, std::string& b, std::string& sheet,
                             EditOptions& e) {
                            return control.ChangeCellContent(a, b, sheet, e.texts[0], e.texts[1], e.flags[0]);
                          });
    AddSheetOption(c, *o);
    AddText(c, *o, 0, "sRange", "Range to fill; blank for the used range");
    AddText(c, *o, 1, "sCellContent", "Text typed into each cell");
    c->add_flag("-f,--formulas", o->flags[0], "Show formulas rather than values (bDoFormula)");
  }
  {
    auto o = std::make_shared<EditOptions>();
    o->texts.resize(2);
    CLI::App* c = AddEdit(parser, commands, "ChangeNumberFormat",
                          "Give ranges of a sheet a number format in en-US codes (\\ becomes /)", o,
                          [](TabulonCtrl& control, std::string& a, std::string& b, std::string& sheet,
                             EditOptions& e) {
                            return control.ChangeNumberFormat(a, b, sheet, e.texts[0], e.texts[1]);
                          });
    AddSheetOption(c, *o);
    AddText(c, *o, 0, "sRangeToChange", "Ranges separated by \",\"; \"\" the used range; B3:* to the last used cell");
    AddText(c, *o, 1, "sNewFormat", "Format code, such as #,##0.00, m/d/yyyy, 0%, @");
  }
  {
    auto o = std::make_shared<EditOptions>();
    o->texts.resize(1);
    CLI::App* c = AddEdit(parser, commands, "ClearCells",
                          "Clear ranges of a sheet: 0 all, 1 formats, 2 contents, 3 comments, 4 notes, 5 outline",
                          o, [](TabulonCtrl& control, std::string& a, std::string& b, std::string& sheet,
                                EditOptions& e) {
                            return control.ClearCells(a, b, e.what, sheet, e.texts[0]);
                          });
    c->add_option("lWhatToClear", o->what, "0 to 5; any other number saves the workbook unchanged")->required();
    AddSheetOption(c, *o);
    AddText(c, *o, 0, "sRangeToChange", "Ranges separated by \",\"; \"\" the used range; B3:* to the last used cell");
  }
  {
    auto o = std::make_shared<EditOptions>();
    CLI::App* c = AddEdit(parser, commands, "TransposeSheetData",
                          "Turn a sheet's used range so rows become columns, written back from A1", o,
                          [](TabulonCtrl& control, std::string& a, std::string& b, std::string& sheet,
                             EditOptions&) { return control.TransposeSheetData(a, b, sheet); });
    AddSheetOption(c, *o);
  }
}

const CommandGroup kEditing(40, AddEditingCommands);

}  // namespace

}  // namespace tabulon::cli
