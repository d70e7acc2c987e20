// tabulon AddSheet, MoveSheet, RenameSheet, DeleteSheet and CopySheet: the
// worksheets of one workbook added, moved, renamed, deleted, or one copied
// into another workbook; the result saved as the target. Nothing is printed
// on success. Several of them run on one warm office under `tabulon batch`.
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon::cli {

namespace {

constexpr const char* kSheetHelp = "a name, or a number that names no sheet";

// The positional arguments of one subcommand, in the method's order.
struct Arguments {
  std::vector<std::string> values;
  bool flag = false;
  int32_t action = 0;
  PasswordOptions passwords;
};

CLI::App* AddCommand(CLI::App& parser, const std::string& name, const std::string& description,
                     Arguments& a, const std::vector<std::pair<std::string, std::string>>& positionals) {
  CLI::App* command = parser.add_subcommand(name, description);
  a.values.resize(positionals.size());
  for (size_t i = 0; i < positionals.size(); ++i) {
    command->add_option(positionals[i].first, a.values[i], positionals[i].second)->required();
  }
  AddPasswordOptions(*command, a.passwords);
  return command;
}

// The method's path arguments made absolute; the others as given.
std::vector<std::string> Values(const Arguments& a, std::initializer_list<size_t> paths) {
  std::vector<std::string> v = a.values;
  for (size_t i : paths) v[i] = Absolute(v[i]);
  return v;
}

void AddSheetOpsCommands(CLI::App& parser, std::vector<Command>& commands) {
  const std::string original = "Workbook to change";
  const std::string target = "Where the changed workbook is saved (may be sPathOriginal); folders are made";
  {
    auto a = std::make_shared<Arguments>();
    CLI::App* c = AddCommand(parser, "AddSheet", "Add a worksheet after or before another and save as the target",
                             *a,
                             {{"sPathOriginal", original},
                              {"sPathTarget", target},
                              {"sSheetToAdd", "Name of the new sheet; \"\" the office's default name"},
                              {"sSheetBefore", std::string("Sheet to add before, or firstfirst: ") + kSheetHelp},
                              {"sSheetAfter", std::string("Sheet to add after, or lastlast (wins over sSheetBefore)")}});
    c->add_flag("-o,--overwrite", a->flag, "Replace a sheet of that name (bOverwrite)");
    commands.push_back({c, [a](TabulonCtrl& control) {
                          ApplyPasswords(control, a->passwords);
                          auto v = Values(*a, {0, 1});
                          return MethodResult("AddSheet", control.AddSheet(v[0], v[1], v[2], v[3], v[4], a->flag),
                                              control);
                        }});
  }
  {
    auto a = std::make_shared<Arguments>();
    CLI::App* c = AddCommand(parser, "MoveSheet", "Move a worksheet after or before another and save as the target",
                             *a,
                             {{"sPathOriginal", original},
                              {"sPathTarget", target},
                              {"sSheetToMove", std::string("Sheet to move: ") + kSheetHelp},
                              {"sSheetBefore", "Sheet to move before, or firstfirst"},
                              {"sSheetAfter", "Sheet to move after, or lastlast (wins over sSheetBefore)"}});
    commands.push_back({c, [a](TabulonCtrl& control) {
                          ApplyPasswords(control, a->passwords);
                          auto v = Values(*a, {0, 1});
                          return MethodResult("MoveSheet", control.MoveSheet(v[0], v[1], v[2], v[3], v[4]), control);
                        }});
  }
  {
    auto a = std::make_shared<Arguments>();
    CLI::App* c = AddCommand(parser, "RenameSheet", "Rename a worksheet and save as the target", *a,
                             {{"sPathOriginal", original},
                              {"sPathTarget", target},
                              {"sSheetToRename", std::string("Sheet to rename: ") + kSheetHelp},
                              {"sNewSheetName", "Its new name"}});
    commands.push_back({c, [a](TabulonCtrl& control) {
                          ApplyPasswords(control, a->passwords);
                          auto v = Values(*a, {0, 1});
                          return MethodResult("RenameSheet", control.RenameSheet(v[0], v[1], v[2], v[3]), control);
                        }});
  }
  {
    auto a = std::make_shared<Arguments>();
    CLI::App* c = AddCommand(
        parser, "DeleteSheet", "Delete one worksheet, a run of them, or all but one, and save as the target", *a,
        {{"sPathOriginal", original},
         {"sPathTarget", target},
         {"sSheetStart", std::string("First sheet of the run: ") + kSheetHelp},
         {"sSheetEnd", "Other end of the run; \"\": sSheetStart alone"},
         {"sSheetExcept", "The one sheet to keep, deleting every other (wins over the run); \"\" for none"}});
    commands.push_back({c, [a](TabulonCtrl& control) {
                          ApplyPasswords(control, a->passwords);
                          auto v = Values(*a, {0, 1});
                          return MethodResult("DeleteSheet", control.DeleteSheet(v[0], v[1], v[2], v[3], v[4]),
                                              control);
                        }});
  }
  {
    auto a = std::make_shared<Arguments>();
    CLI::App* c = AddCommand(
        parser, "CopySheet", "Copy a whole worksheet into another workbook (made when missing), which is saved", *a,
        {{"sPathOriginal", "Workbook to copy from"},
         {"sSheetOriginal", std::string("Sheet to copy: ") + kSheetHelp},
         {"sPathTarget", "Workbook to copy into; a new workbook holding the copy alone when missing"},
         {"sSheetTarget", "Name of the copy; \"\" the original sheet's name"},
         {"sSheetBefore", "Sheet of the target to copy before, or firstfirst"},
         {"sSheetAfter", "Sheet of the target to copy after, or lastlast (wins; both empty: after the last)"}});
    c->add_option("-a,--if-exists", a->action,
                  "When the target has a sheet of that name (lActionIfAlreadyExists): 0 refuse, 1 replace it, "
                  "2 keep both, the copy named \"<name> (2)\"")
        ->check(CLI::Range(0, 2));
    commands.push_back({c, [a](TabulonCtrl& control) {
                          ApplyPasswords(control, a->passwords);
                          auto v = Values(*a, {0, 2});
                          int32_t action = a->action;
                          return MethodResult("CopySheet",
                                              control.CopySheet(v[0], v[1], v[2], v[3], v[4], v[5], action), control);
                        }});
  }
}

const CommandGroup kSheetOps(35, AddSheetOpsCommands);

}  // namespace

}  // namespace tabulon::cli
