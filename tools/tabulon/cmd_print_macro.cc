// tabulon PrintExcelContents, ExecuteMacro and ChangePassword. Nothing is
// printed on success. So that no password need appear in the process list,
// every password option can also come from the environment, and a
// ChangePassword password given as "-" is read as one line of standard input
// (several such: in the order original, original to write, target, target to
// write).
#include <istream>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon::cli {

namespace {

// "-": the next line of standard input (without its line end).
std::string PasswordValue(const std::string& given) {
  if (given != "-") return given;
  std::string line;
  std::getline(In(), line);
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

// ---- PrintExcelContents ----

struct PrintOptions {
  std::string path, sheets, ranges, printer, to_file;
  int32_t copies = 1;
  int32_t from = 0;
  int32_t to = 0;
  bool no_collate = false;
  PasswordOptions passwords;
};

int RunPrint(TabulonCtrl& control, const PrintOptions& o) {
  ApplyPasswords(control, o.passwords);
  std::string path = Absolute(o.path);
  std::string file = Absolute(o.to_file);
  std::string sheets = o.sheets;
  std::string ranges = o.ranges;
  std::string printer = o.printer;
  int32_t copies = o.copies;
  int32_t from = o.from;
  int32_t to = o.to;
  bool collate = !o.no_collate;
  bool print_to_file = !o.to_file.empty();
  const int32_t code =
      control.PrintExcelContents(path, file, sheets, ranges, printer, copies, from, to, collate, print_to_file);
  return MethodResult("PrintExcelContents", code, control);
}

void AddPrint(CLI::App& parser, std::vector<Command>& commands) {
  auto o = std::make_shared<PrintOptions>();
  CLI::App* command = parser.add_subcommand("PrintExcelContents",
                                            "Print sheets of a workbook, or ranges of each, on "
                                            "a printer or into a PDF file");
  command->add_option("sPathOriginal", o->path, "Workbook to print")->required();
  command->add_option("sSheets", o->sheets, "Sheets: * (all), numbers 1-3,5, or names \"A\",\"B\"")->required();
  command->add_option("-r,--ranges", o->ranges, "Ranges printed on each sheet, each a job: A1:C20,E1:F5 (sRanges)");
  command->add_option("-p,--printer", o->printer, "Printer (a CUPS queue); the default printer when not given");
  command->add_option("-n,--copies", o->copies, "Number of copies (lNumCopies)")->check(CLI::PositiveNumber);
  command->add_option("--from", o->from, "First page printed (lFromPage)")->check(CLI::NonNegativeNumber);
  command->add_option("--to", o->to, "Last page printed (lToPage)")->check(CLI::NonNegativeNumber);
  command->add_flag("--no-collate", o->no_collate, "Copies not collated (bCollate False)");
  command->add_option("-o,--to-file", o->to_file,
                      "Write the job to this PDF file instead of the printer "
                      "(bPrintToFile, sPrintToFileName)");
  AddPasswordOptions(*command, o->passwords);
  commands.push_back({command, [o](TabulonCtrl& control) { return RunPrint(control, *o); }});
}

// ---- ExecuteMacro ----

struct MacroOptions {
  std::string source, target, macro;
  std::vector<std::string> args;
  bool save = false;
  PasswordOptions passwords;
};

int RunMacro(TabulonCtrl& control, const MacroOptions& o) {
  ApplyPasswords(control, o.passwords);
  std::string source = Absolute(o.source);
  std::string target = Absolute(o.target);
  std::string macro = o.macro;
  bool save = o.save;
  std::vector<std::string> args = o.args;
  args.resize(8);
  const int32_t code = control.ExecuteMacro(source, target, macro, save, args[0], args[1], args[2], args[3], args[4],
                                            args[5], args[6], args[7]);
  return MethodResult("ExecuteMacro", code, control);
}

void AddMacro(CLI::App& parser, std::vector<Command>& commands) {
  auto o = std::make_shared<MacroOptions>();
  CLI::App* command = parser.add_subcommand("ExecuteMacro",
                                            "Run a macro of a workbook (VBA in .xls/.xlsm, Basic in "
                                            ".ods), then save it when asked");
  command->add_option("sSourceFile", o->source, "Workbook holding the macro")->required();
  command->add_option("sTargetFile", o->target, "Where the workbook is saved (.xls format) with --save")->required();
  command->add_option("sMacroName", o->macro, "Macro: Name, Module.Name, Library.Module.Name or 'book.xlsm'!Name")
      ->required();
  command->add_option("sArg", o->args, "Up to eight text arguments of the macro")->expected(0, 8);
  command->add_flag("-s,--save", o->save, "Save the workbook as sTargetFile afterwards (bSaveAfterExecution)");
  AddPasswordOptions(*command, o->passwords);
  commands.push_back({command, [o](TabulonCtrl& control) { return RunMacro(control, *o); }});
}

// ---- ChangePassword ----

struct ChangeOptions {
  std::string source, target, old_password, old_password_tw, new_password, new_password_tw;
};

int RunChange(TabulonCtrl& control, const ChangeOptions& o) {
  std::string source = Absolute(o.source);
  std::string target = Absolute(o.target);
  std::string old_password = PasswordValue(o.old_password);
  std::string old_password_tw = PasswordValue(o.old_password_tw);
  std::string new_password = PasswordValue(o.new_password);
  std::string new_password_tw = PasswordValue(o.new_password_tw);
  const int32_t code =
      control.ChangePassword(source, target, old_password, old_password_tw, new_password, new_password_tw);
  return MethodResult("ChangePassword", code, control);
}

void AddChange(CLI::App& parser, std::vector<Command>& commands) {
  auto o = std::make_shared<ChangeOptions>();
  CLI::App* command = parser.add_subcommand("ChangePassword",
                                            "Save a copy of a workbook (.xls format) under new "
                                            "passwords; none given: unprotected");
  command->add_option("sSourceFile", o->source, "Workbook to copy")->required();
  command->add_option("sTargetFile", o->target, "The copy, written in the .xls format")->required();
  command->add_option("--original-pw", o->old_password, "Its password (sOriginalFilePW); - reads a line of stdin")
      ->envname("TABULON_ORIGINAL_PASSWORD");
  command
      ->add_option("--original-pw-to-write", o->old_password_tw,
                   "Its write reservation password (sOriginalFilePWToWrite); - "
                   "reads a line of stdin")
      ->envname("TABULON_ORIGINAL_PASSWORD_TW");
  command
      ->add_option("--target-pw", o->new_password,
                   "The copy's password, which encrypts it (sTargetFilePW); - "
                   "reads a line of stdin")
      ->envname("TABULON_TARGET_PASSWORD");
  command
      ->add_option("--target-pw-to-write", o->new_password_tw,
                   "The copy's write reservation password "
                   "(sTargetFilePWToWrite); - reads a line of stdin")
      ->envname("TABULON_TARGET_PASSWORD_TW");
  commands.push_back({command, [o](TabulonCtrl& control) { return RunChange(control, *o); }});
}

void AddPrintMacroCommands(CLI::App& parser, std::vector<Command>& commands) {
  AddPrint(parser, commands);
  AddMacro(parser, commands);
  AddChange(parser, commands);
}

const CommandGroup kPrintMacro(40, AddPrintMacroCommands);

}  // namespace

}  // namespace tabulon::cli
