// tabulon convert, sheets and office: the conversion, sheet discovery and the
// office probes.
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "formats.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon::cli {

namespace {

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

void ApplyConvertProperties(TabulonCtrl& control, const ConvertOptions& o) {
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

int RunConvert(TabulonCtrl& control, const ConvertOptions& o) {
  const std::optional<Format> format = FindFormat(o.format);
  if (!format) {
    Err() << "tabulon: convert: unknown format '" << o.format << "' (see tabulon help convert)\n";
    return kExitUsage;
  }
  std::vector<std::string> sources(o.paths.begin(), o.paths.end() - 1);
  const std::string destination = Absolute(o.paths.back());
  const bool several = sources.size() > 1;

  ApplyConvertProperties(control, o);
  int32_t last_code = 0;
  control.AdviseOnError([](int32_t&, std::string&) {});
  // One warm office for every source (a batch may have one already).
  const bool warm_before = control.get_OptimizeForSpeed();
  if (several && !warm_before) control.put_OptimizeForSpeed(true);

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
    if (progress) Err() << "\r[" << i + 1 << "/" << sources.size() << "] " << sources[i] << "\x1b[K" << std::flush;
    std::string sheets = o.sheets;
    int32_t type = format->number;
    bool formulas = o.formulas;
    last_code = control.OpenXLSSaveAs(source, sheets, target, type, formulas);
    if (progress) Err() << "\r\x1b[K" << std::flush;
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
      Out() << "FilesJustCreated:\n";
      for (const auto& f : files) Out() << "  " << f << "\n";
      Out() << "SheetsJustProcessed:\n";
      for (int32_t k = 1; k <= control.get_SheetsJustProcessedCount(); ++k) {
        Out() << "  " << control.get_SheetsJustProcessed(k) << "\n";
      }
    } else {
      for (const auto& f : files) Out() << f << "\n";
    }
  }
  if (several && !warm_before) control.put_OptimizeForSpeed(false);
  return exit_code;
}

int RunSheets(TabulonCtrl& control, const std::string& book_arg, const std::string& list_arg) {
  std::string book = Absolute(book_arg);
  std::string sheet_list = list_arg;
  // A workbook has at most a few thousand sheets; the array bounds the walk.
  std::vector<std::string> names(10000);
  const int32_t result = control.GetSheetNames(book, sheet_list, names);
  if (result < 0) return Report("sheets", result, control.get_ErrorString());
  for (int32_t i = 0; i < result; ++i) Out() << names[i] << "\n";
  return 0;
}

int RunOffice(TabulonCtrl& control) {
  const bool excel = control.ExcelIsInstalled();
  const bool word = control.WordIsInstalled();
  Out() << "ExcelIsInstalled " << (excel ? "True" : "False") << "\n";
  Out() << "WordIsInstalled " << (word ? "True" : "False") << "\n";
  if (!excel) {
    Out() << "ExcelVersion 0\nExcelBuild 0\n";
    return Report("office", tabulon::kExcelNotCreated, std::string(tabulon::msg::kExcelNotCreated));
  }
  Out() << "ExcelVersion " << control.get_ExcelVersion() << "\n";
  Out() << "ExcelBuild " << control.get_ExcelBuild() << "\n";
  return 0;
}

void AddConversionCommands(CLI::App& parser, std::vector<Command>& commands) {
  auto convert = std::make_shared<ConvertOptions>();
  CLI::App* convert_cmd = parser.add_subcommand(
      "convert",
      "Convert a workbook's sheets to another format (OpenXLSSaveAs).\n"
      "  tabulon convert SRC DST          one workbook to DST\n"
      "  tabulon convert SRC... FOLDER    several, on one warm office, into FOLDER\n"
      "Formats: " + FormatNames());
  convert_cmd->add_option("paths", convert->paths, "Source workbook(s), then the target file (or folder)")
      ->required()
      ->expected(2, -1);
  convert_cmd->add_option("-s,--sheets", convert->sheets, "Sheets: * (all), numbers 1-3,5, or names \"A\",\"B\"");
  convert_cmd->add_option("-t,--format", convert->format, "Format name or XlFileFormat number (default csv)");
  convert_cmd->add_flag("-f,--formulas", convert->formulas, "Write formulas instead of values");
  convert_cmd->add_flag("-m,--multi-file", convert->multi_file,
                        "One file per sheet, never joined (CO_MultiFileOutput)");
  convert_cmd->add_option("-r,--range", convert->range, "Range to convert from each sheet (CO_Range), e.g. A1:C10");
  convert_cmd->add_option("-d,--delimiter", convert->delimiter,
                          "Delimiter of a text source: a character or its code; 0 opens it normally "
                          "(CO_DelimitationCharacter, default 44)");
  convert_cmd->add_flag("-e,--skip-empty", convert->skip_empty, "Skip empty sheets (SkipEmptySheets)");
  convert_cmd->add_option("--input-password", convert->input_password, "InputFile_PassWord");
  convert_cmd->add_option("--input-password-tw", convert->input_password_tw, "InputFile_PassWord_TW");
  convert_cmd->add_option("--output-password", convert->output_password, "OutputFile_PassWord");
  convert_cmd->add_option("--output-password-tw", convert->output_password_tw, "OutputFile_PassWord_TW");
  convert_cmd->add_flag("--report", convert->report, "Print FilesJustCreated and SheetsJustProcessed");
  commands.push_back({convert_cmd, [convert](TabulonCtrl& control) { return RunConvert(control, *convert); }});

  auto book = std::make_shared<std::string>();
  auto list = std::make_shared<std::string>("*");
  CLI::App* sheets_cmd = parser.add_subcommand("sheets", "List the sheets of a workbook (GetSheetNames)");
  sheets_cmd->add_option("book", *book, "Workbook")->required();
  sheets_cmd->add_option("sheets", *list, "Sheets: * (default), numbers or names");
  commands.push_back({sheets_cmd, [book, list](TabulonCtrl& control) { return RunSheets(control, *book, *list); }});

  CLI::App* office_cmd =
      parser.add_subcommand("office", "Report ExcelIsInstalled, WordIsInstalled, ExcelVersion, ExcelBuild");
  commands.push_back({office_cmd, [](TabulonCtrl& control) { return RunOffice(control); }});
}

const CommandGroup kConversion(10, AddConversionCommands);

}  // namespace

}  // namespace tabulon::cli
