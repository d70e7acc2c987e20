// tabulon: the command-line host of the control. One subcommand per public
// method, for scripts:
//   stdout  data (created files, sheet names, answers)
//   stderr  "tabulon: <command>: <code> <message>" on failure
//   exit    0 success, 1 a negative result code (or a failed call), 2 a usage error
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "formats.h"
#include "ravelin/ravelin.h"
#include "tabulon/tabulon_ctrl.h"

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

int Report(const std::string& command, int32_t code, const std::string& message) {
  std::cerr << "tabulon: " << command << ": " << code << " " << message << "\n";
  return kExitFailure;
}

// Office paths are absolute: the office runs in its own working folder.
std::string Absolute(const std::string& path) {
  if (path.empty()) return path;
  std::error_code ec;
  auto absolute = std::filesystem::absolute(path, ec);
  return ec ? path : absolute.lexically_normal().string();
}

// What a text-library code means, for the message on stderr.
std::string TextResultMessage(int32_t code) {
  const char* text = RavelinResultText(code);
  return text != nullptr ? text : "text library error";
}

struct TextCommand {
  std::string name;
  std::string help;
  std::vector<std::string> args;  // names of the text arguments, in order
  std::function<int32_t(tabulon::TabulonCtrl&, std::vector<std::string>&)> call;
};

std::vector<TextCommand> TextCommands(int32_t& length, bool& pad_left, int32_t& page_break, int32_t& place_path) {
  using C = tabulon::TabulonCtrl;
  using V = std::vector<std::string>;
  return {
      {"txtChangeCharacterIgnoreWithinQuotes", "Replace a character outside quoted text",
       {"sInputFile", "sOutputFile", "sChar", "sCharReplace"},
       [](C& c, V& a) { return c.txtChangeCharacterIgnoreWithinQuotes(a[0], a[1], a[2], a[3]); }},
      {"csvEncaseEachFieldWithQuotes", "Put every field of a CSV file in double quotes",
       {"sPathOriginal", "sPathTarget"},
       [](C& c, V& a) { return c.csvEncaseEachFieldWithQuotes(a[0], a[1]); }},
      {"csvChangeDelimitationCharacter", "Change the field delimiter of a CSV file",
       {"sInputFile", "sOutputFile", "sChar"},
       [](C& c, V& a) { return c.csvChangeDelimitationCharacter(a[0], a[1], a[2]); }},
      {"csvPadWithSpaces", "Pad the fields of a CSV file with spaces", {"sInputFile", "sOutputFile"},
       [](C& c, V& a) { return c.csvPadWithSpaces(a[0], a[1]); }},
      {"csvRemoveEmptyLines", "Remove empty records of a CSV file", {"sInputFile", "sOutputFile"},
       [](C& c, V& a) { return c.csvRemoveEmptyLines(a[0], a[1]); }},
      {"csvCropCSVFileRows", "Keep the listed rows (\"1-3,7\")", {"sInputFile", "sOutputFile", "sRowsToUse"},
       [](C& c, V& a) { return c.csvCropCSVFileRows(a[0], a[1], a[2]); }},
      {"csvCropCSVFileCols", "Keep the listed columns (\"1,3-4\")", {"sInputFile", "sOutputFile", "sColsToUse"},
       [](C& c, V& a) { return c.csvCropCSVFileCols(a[0], a[1], a[2]); }},
      {"csvPadForFixedLengthFields", "Pad the listed columns to a fixed length (--length, --pad-left)",
       {"sInputFile", "sOutputFile", "sCharToUse", "sColumn"},
       [&length, &pad_left](C& c, V& a) {
         return c.csvPadForFixedLengthFields(a[0], a[1], length, a[2], pad_left, a[3]);
       }},
      {"csvRemoveControlCharactersFromFile", "Remove control characters inside quoted fields",
       {"sInputFile", "sOutputFile"}, [](C& c, V& a) { return c.csvRemoveControlCharactersFromFile(a[0], a[1]); }},
      {"csvTrimCSVFile", "Trim blanks around every field", {"sInputFile", "sOutputFile"},
       [](C& c, V& a) { return c.csvTrimCSVFile(a[0], a[1]); }},
      {"ConcatenateTwoTextFiles", "Append the second file's text to the first file", {"sSourceFile", "sTargetFile"},
       [](C& c, V& a) { return c.ConcatenateTwoTextFiles(a[0], a[1]); }},
      {"ConcatenateTwoTextFilesEx",
       "Append the second file to the first (--page-break, --place-path)", {"sSourceFile", "sTargetFile"},
       [&page_break, &place_path](C& c, V& a) {
         return c.ConcatenateTwoTextFilesEx(a[0], a[1], page_break, place_path);
       }},
      {"DeleteEmptyLinesFromTextFile", "Delete empty lines of a text file", {"sSourceFile", "sTargetFile"},
       [](C& c, V& a) { return c.DeleteEmptyLinesFromTextFile(a[0], a[1]); }},
  };
}

struct ConvertOptions {
  std::vector<std::string> paths;
  std::string sheets = "*";
  std::string format = "csv";
  bool formulas = false;
  bool multi_file = false;
  std::string range;
  std::string delimiter;
  bool skip_empty = false;
  bool report = false;
  std::string input_password, input_password_tw, output_password, output_password_tw;
};

void ApplyConvertProperties(tabulon::TabulonCtrl& control, const ConvertOptions& o) {
  control.put_CO_MultiFileOutput(o.multi_file);
  control.put_CO_Range(o.range);
  control.put_SkipEmptySheets(o.skip_empty);
  control.put_InputFile_PassWord(o.input_password);
  control.put_InputFile_PassWord_TW(o.input_password_tw);
  control.put_OutputFile_PassWord(o.output_password);
  control.put_OutputFile_PassWord_TW(o.output_password_tw);
  if (!o.delimiter.empty()) {
    // A number is a character code (0: open text sources normally); anything
    // else is the character itself.
    const bool numeric = o.delimiter.find_first_not_of("0123456789") == std::string::npos;
    control.put_CO_DelimitationCharacter(numeric ? std::stoi(o.delimiter)
                                                 : static_cast<unsigned char>(o.delimiter[0]));
  }
}

int RunConvert(const ConvertOptions& o) {
  const std::optional<tabulon::cli::Format> format = tabulon::cli::FindFormat(o.format);
  if (!format) {
    std::cerr << "tabulon: convert: unknown format '" << o.format << "' (see tabulon help convert)\n";
    return kExitUsage;
  }
  std::vector<std::string> sources(o.paths.begin(), o.paths.end() - 1);
  const std::string destination = Absolute(o.paths.back());
  const bool several = sources.size() > 1;

  tabulon::TabulonCtrl control;
  ApplyConvertProperties(control, o);
  int32_t last_code = 0;
  control.AdviseOnError([](int32_t&, std::string&) {});
  if (several) control.put_OptimizeForSpeed(true);  // one warm office for every source

  const bool progress = several && isatty(STDERR_FILENO);
  int exit_code = 0;
  for (size_t i = 0; i < sources.size(); ++i) {
    std::string source = Absolute(sources[i]);
    std::string target = destination;
    if (several) {
      target = (std::filesystem::path(destination) /
                (std::filesystem::path(source).stem().string() + "." + format->extension))
                   .string();
    }
    if (progress) std::cerr << "\r[" << i + 1 << "/" << sources.size() << "] " << sources[i] << "\x1b[K" << std::flush;
    std::string sheets = o.sheets;
    int32_t type = format->number;
    bool formulas = o.formulas;
    last_code = control.OpenXLSSaveAs(source, sheets, target, type, formulas);
    if (progress) std::cerr << "\r\x1b[K" << std::flush;
    if (last_code < 0) {
      Report("convert", last_code, control.get_ErrorString() + (several ? " (" + source + ")" : ""));
      exit_code = kExitFailure;
      // Sheets that were found are written even when others were not.
      if (last_code != tabulon::kInvalidSheet) continue;
    }
    std::vector<std::string> files;
    for (int32_t k = 1; k <= control.get_FilesJustCreatedCount(); ++k) files.push_back(control.get_FilesJustCreated(k));
    // The whole-workbook save lists nothing: the target is the one file.
    if (files.empty() && std::filesystem::exists(target)) files.push_back(target);
    if (files.empty() && last_code == 0) {
      Report("convert", 0, "the office wrote nothing for " + source);
      exit_code = kExitFailure;
      continue;
    }
    if (o.report) {
      std::cout << "FilesJustCreated:\n";
      for (const auto& f : files) std::cout << "  " << f << "\n";
      std::cout << "SheetsJustProcessed:\n";
      for (int32_t k = 1; k <= control.get_SheetsJustProcessedCount(); ++k) {
        std::cout << "  " << control.get_SheetsJustProcessed(k) << "\n";
      }
    } else {
      for (const auto& f : files) std::cout << f << "\n";
    }
  }
  if (several) control.put_OptimizeForSpeed(false);
  return exit_code;
}

int RunSheets(const std::string& book_arg, const std::string& list_arg) {
  tabulon::TabulonCtrl control;
  std::string book = Absolute(book_arg);
  std::string sheet_list = list_arg;
  // A workbook has at most a few thousand sheets; the array bounds the walk.
  std::vector<std::string> names(10000);
  const int32_t result = control.GetSheetNames(book, sheet_list, names);
  if (result < 0) return Report("sheets", result, control.get_ErrorString());
  for (int32_t i = 0; i < result; ++i) std::cout << names[i] << "\n";
  return 0;
}

int RunOffice() {
  tabulon::TabulonCtrl control;
  const bool excel = control.ExcelIsInstalled();
  const bool word = control.WordIsInstalled();
  std::cout << "ExcelIsInstalled " << (excel ? "True" : "False") << "\n";
  std::cout << "WordIsInstalled " << (word ? "True" : "False") << "\n";
  if (!excel) {
    std::cout << "ExcelVersion 0\nExcelBuild 0\n";
    return Report("office", tabulon::kExcelNotCreated, std::string(tabulon::msg::kExcelNotCreated));
  }
  std::cout << "ExcelVersion " << control.get_ExcelVersion() << "\n";
  std::cout << "ExcelBuild " << control.get_ExcelBuild() << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"tabulon: jobs on spreadsheet and delimited text files"};
  app.set_version_flag("--version", std::string("tabulon ") + TABULON_VERSION);
  app.require_subcommand(1);
  app.fallthrough(false);

  int32_t length = 0;
  bool pad_left = false;
  int32_t page_break = 0;
  int32_t place_path = 0;
  std::vector<TextCommand> text_commands = TextCommands(length, pad_left, page_break, place_path);
  std::map<std::string, std::vector<std::string>> text_args;
  std::string unicode_file;

  // help <command>
  std::string help_topic;
  CLI::App* help = app.add_subcommand("help", "Show the usage of a command");
  help->add_option("command", help_topic, "Command to describe");

  ConvertOptions convert;
  CLI::App* convert_cmd = app.add_subcommand(
      "convert",
      "Convert a workbook's sheets to another format (OpenXLSSaveAs).\n"
      "  tabulon convert SRC DST          one workbook to DST\n"
      "  tabulon convert SRC... FOLDER    several, on one warm office, into FOLDER\n"
      "Formats: " + tabulon::cli::FormatNames());
  convert_cmd->add_option("paths", convert.paths, "Source workbook(s), then the target file (or folder)")
      ->required()
      ->expected(2, -1);
  convert_cmd->add_option("-s,--sheets", convert.sheets, "Sheets: * (all), numbers 1-3,5, or names \"A\",\"B\"");
  convert_cmd->add_option("-t,--format", convert.format, "Format name or XlFileFormat number (default csv)");
  convert_cmd->add_flag("-f,--formulas", convert.formulas, "Write formulas instead of values");
  convert_cmd->add_flag("-m,--multi-file", convert.multi_file, "One file per sheet, never joined (CO_MultiFileOutput)");
  convert_cmd->add_option("-r,--range", convert.range, "Range to convert from each sheet (CO_Range), e.g. A1:C10");
  convert_cmd->add_option("-d,--delimiter", convert.delimiter,
                          "Delimiter of a text source: a character or its code; 0 opens it normally "
                          "(CO_DelimitationCharacter, default 44)");
  convert_cmd->add_flag("-e,--skip-empty", convert.skip_empty, "Skip empty sheets (SkipEmptySheets)");
  convert_cmd->add_option("--input-password", convert.input_password, "InputFile_PassWord");
  convert_cmd->add_option("--input-password-tw", convert.input_password_tw, "InputFile_PassWord_TW");
  convert_cmd->add_option("--output-password", convert.output_password, "OutputFile_PassWord");
  convert_cmd->add_option("--output-password-tw", convert.output_password_tw, "OutputFile_PassWord_TW");
  convert_cmd->add_flag("--report", convert.report, "Print FilesJustCreated and SheetsJustProcessed");

  std::string sheets_book;
  std::string sheets_list = "*";
  CLI::App* sheets_cmd = app.add_subcommand("sheets", "List the sheets of a workbook (GetSheetNames)");
  sheets_cmd->add_option("book", sheets_book, "Workbook")->required();
  sheets_cmd->add_option("sheets", sheets_list, "Sheets: * (default), numbers or names");

  CLI::App* office_cmd =
      app.add_subcommand("office", "Report ExcelIsInstalled, WordIsInstalled, ExcelVersion, ExcelBuild");

  std::map<CLI::App*, TextCommand*> text_apps;
  for (TextCommand& command : text_commands) {
    CLI::App* sub = app.add_subcommand(command.name, command.help);
    sub->ignore_case();
    std::vector<std::string>& args = text_args[command.name];
    args.resize(command.args.size());
    for (size_t i = 0; i < command.args.size(); ++i) sub->add_option(command.args[i], args[i])->required();
    if (command.name == "csvPadForFixedLengthFields") {
      sub->add_option("-l,--length", length, "Field length (lLength)")->required();
      sub->add_flag("--pad-left", pad_left, "Pad on the left (bPadLeft)");
    }
    if (command.name == "ConcatenateTwoTextFilesEx") {
      sub->add_option("--page-break", page_break, "lAddPageBreak");
      sub->add_option("--place-path", place_path, "lPlaceFilePath");
    }
    text_apps[sub] = &command;
  }
  CLI::App* unicode_cmd = app.add_subcommand("IsFileUnicode", "Tell whether a file is Unicode text (prints True/False)");
  unicode_cmd->ignore_case();
  unicode_cmd->add_option("sFileToTest", unicode_file)->required();

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return kExitUsage;
  }

  try {
    if (help->parsed()) {
      if (help_topic.empty()) {
        std::cout << app.help();
        return 0;
      }
      for (CLI::App* sub : app.get_subcommands({})) {
        if (sub->check_name(help_topic)) {
          std::cout << sub->help();
          return 0;
        }
      }
      std::cerr << "tabulon: help: unknown command '" << help_topic << "'\n";
      return kExitUsage;
    }
    if (convert_cmd->parsed()) return RunConvert(convert);
    if (sheets_cmd->parsed()) return RunSheets(sheets_book, sheets_list);
    if (office_cmd->parsed()) return RunOffice();
    if (unicode_cmd->parsed()) {
      tabulon::TabulonCtrl control;
      std::cout << (control.IsFileUnicode(unicode_file) ? "True" : "False") << "\n";
      return 0;
    }
    for (auto& [sub, command] : text_apps) {
      if (!sub->parsed()) continue;
      tabulon::TabulonCtrl control;
      std::vector<std::string>& args = text_args[command->name];
      const int32_t result = command->call(control, args);
      if (result < 0) return Report(command->name, result, TextResultMessage(result));
      return 0;
    }
  } catch (const tabulon::AutomationError& e) {
    std::cerr << "tabulon: " << app.get_subcommands().front()->get_name() << ": automation error " << e.number()
              << ": " << e.description() << "\n";
    return kExitFailure;
  }
  return kExitUsage;
}
