// The text methods of the control (libravelin.so), one subcommand each, named
// like the method, with the method's arguments in order.
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "ravelin/ravelin.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon::cli {

namespace {

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

// The numeric options of the text commands that take them.
struct TextOptions {
  int32_t length = 0;
  bool pad_left = false;
  int32_t page_break = 0;
  int32_t place_path = 0;
};

void AddTextCommands(CLI::App& parser, std::vector<Command>& commands) {
  auto options = std::make_shared<TextOptions>();
  auto table = std::make_shared<std::vector<TextCommand>>(
      TextCommands(options->length, options->pad_left, options->page_break, options->place_path));
  for (TextCommand& command : *table) {
    CLI::App* sub = parser.add_subcommand(command.name, command.help);
    sub->ignore_case();
    auto args = std::make_shared<std::vector<std::string>>(command.args.size());
    for (size_t i = 0; i < command.args.size(); ++i) sub->add_option(command.args[i], (*args)[i])->required();
    if (command.name == "csvPadForFixedLengthFields") {
      sub->add_option("-l,--length", options->length, "Field length (lLength)")->required();
      sub->add_flag("--pad-left", options->pad_left, "Pad on the left (bPadLeft)");
    }
    if (command.name == "ConcatenateTwoTextFilesEx") {
      sub->add_option("--page-break", options->page_break, "lAddPageBreak");
      sub->add_option("--place-path", options->place_path, "lPlaceFilePath");
    }
    // The table and the options stay alive with every runner.
    commands.push_back({sub, [table, options, args, &command](TabulonCtrl& control) {
                          const int32_t result = command.call(control, *args);
                          if (result < 0) return Report(command.name, result, TextResultMessage(result));
                          return kExitSuccess;
                        }});
  }

  auto file = std::make_shared<std::string>();
  CLI::App* unicode_cmd =
      parser.add_subcommand("IsFileUnicode", "Tell whether a file is Unicode text (prints True/False)");
  unicode_cmd->ignore_case();
  unicode_cmd->add_option("sFileToTest", *file)->required();
  commands.push_back({unicode_cmd, [file](TabulonCtrl& control) {
                        Out() << (control.IsFileUnicode(*file) ? "True" : "False") << "\n";
                        return kExitSuccess;
                      }});
}

const CommandGroup kText(100, AddTextCommands);

}  // namespace

}  // namespace tabulon::cli
