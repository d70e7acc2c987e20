// The text methods of the control (libravelin.so), one subcommand each, named
// like the method, with the method's arguments in order; and the joins of
// many files, which the text library offers on its own.
//
// Every command reads its sources and writes its output the same way: "-"
// is standard input or output, an output that is a device or a pipe is
// written in place, one that is a link has its file replaced (the link
// stays), a folder is refused. Character arguments are read by
// ParseCharacter, as in every command.
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "ravelin/ravelin.h"
#include "streams.h"
#include "tabulon/tabulon_ctrl.h"

namespace tabulon::cli {

namespace {

namespace fs = std::filesystem;

// What a text-library code means, for the message on stderr.
std::string TextResultMessage(int32_t code) {
  const char* text = RavelinResultText(code);
  return text != nullptr ? text : "text library error";
}

// What an argument is, which decides how the command line reads it.
enum class Role {
  kInput,     // a file read; "-" reads standard input
  kOutput,    // a file written; "-" writes standard output
  kAppendTo,  // a file that grows in place (never "-")
  kChar,      // one character, read by ParseCharacter
  kText,      // passed as it stands (a list of rows or columns)
};

struct Arg {
  std::string name;
  Role role;
  std::string help;
};

using Values = std::vector<std::string>;

struct TextOptions {
  std::string length;
  bool pad_left = false;
  std::string page_break = "0";
  std::string place_path = "0";
  bool json = false;
};

struct TextCommand {
  std::string name;
  std::string help;
  std::vector<Arg> args;
  std::function<int32_t(TabulonCtrl&, Values&, const TextOptions&)> call;
};

const Arg kIn{"input", Role::kInput, "The CSV file to read; - for standard input"};
const Arg kOut{"output", Role::kOutput, "The file to write (it may be the input); - for standard output"};

std::vector<TextCommand> TextCommands() {
  using C = TabulonCtrl;
  using O = TextOptions;
  const Arg text_in{"input", Role::kInput, "The text file to read; - for standard input"};
  return {
      {"txtChangeCharacterIgnoreWithinQuotes",
       "Replace a character by another wherever it stands outside double quotes (e.g. ; back to ,)",
       {text_in,
        kOut,
        {"char", Role::kChar, "The character to replace (a character, tab, \\t or a code)"},
        {"replacement", Role::kChar, "The character to put in its place"}},
       [](C& c, Values& a, const O&) { return c.txtChangeCharacterIgnoreWithinQuotes(a[0], a[1], a[2], a[3]); }},
      {"csvEncaseEachFieldWithQuotes",
       "Put every field of a CSV file in double quotes",
       {kIn, kOut},
       [](C& c, Values& a, const O&) { return c.csvEncaseEachFieldWithQuotes(a[0], a[1]); }},
      {"csvChangeDelimitationCharacter",
       "Separate the fields of a CSV file by another character; fields holding it get quoted",
       {kIn, kOut, {"delimiter", Role::kChar, "The new delimiter (a character, tab, \\t or a code)"}},
       [](C& c, Values& a, const O&) { return c.csvChangeDelimitationCharacter(a[0], a[1], a[2]); }},
      {"csvPadWithSpaces",
       "Put a space in every empty field of a CSV file",
       {kIn, kOut},
       [](C& c, Values& a, const O&) { return c.csvPadWithSpaces(a[0], a[1]); }},
      {"csvRemoveEmptyLines",
       "Remove the records of a CSV file whose fields are all empty",
       {kIn, kOut},
       [](C& c, Values& a, const O&) { return c.csvRemoveEmptyLines(a[0], a[1]); }},
      {"csvCropCSVFileRows",
       "Keep only the listed records of a CSV file",
       {kIn, kOut, {"rows", Role::kText, "Record numbers from 1, e.g. 1-3,7"}},
       [](C& c, Values& a, const O&) { return c.csvCropCSVFileRows(a[0], a[1], a[2]); }},
      {"csvCropCSVFileCols",
       "Keep only the listed columns of a CSV file",
       {kIn, kOut, {"columns", Role::kText, "Column numbers from 1, e.g. 1,3-4"}},
       [](C& c, Values& a, const O&) { return c.csvCropCSVFileCols(a[0], a[1], a[2]); }},
      {"csvPadForFixedLengthFields",
       "Pad the fields of the listed columns with a character up to a length (--length); longer ones stay",
       {kIn,
        kOut,
        {"pad", Role::kChar, "The character to pad with (a character, space or a code)"},
        {"columns", Role::kText, "Column numbers from 1, e.g. 1,3-4; \"\" for every column"}},
       [](C& c, Values& a, const O& o) {
         int32_t length = static_cast<int32_t>(std::stol(o.length));
         bool pad_left = o.pad_left;
         return c.csvPadForFixedLengthFields(a[0], a[1], length, a[2], pad_left, a[3]);
       }},
      {"csvRemoveControlCharactersFromFile",
       "Remove line breaks and other control characters inside quoted fields, one record a line",
       {kIn, kOut},
       [](C& c, Values& a, const O&) { return c.csvRemoveControlCharactersFromFile(a[0], a[1]); }},
      {"csvTrimCSVFile",
       "Remove the spaces around every field of a CSV file",
       {kIn, kOut},
       [](C& c, Values& a, const O&) { return c.csvTrimCSVFile(a[0], a[1]); }},
      {"ConcatenateTwoTextFiles",
       "Append the text of a second file to the end of a first one, in place",
       {{"file", Role::kAppendTo, "The file that grows"}, {"other", Role::kInput, "The file whose text is appended"}},
       [](C& c, Values& a, const O&) { return c.ConcatenateTwoTextFiles(a[0], a[1]); }},
      {"ConcatenateTwoTextFilesEx",
       "Append a second file to a first one, after a page break (--page-break) or its path (--place-path)",
       {{"file", Role::kAppendTo, "The file that grows"}, {"other", Role::kInput, "The file whose text is appended"}},
       [](C& c, Values& a, const O& o) {
         int32_t page_break = static_cast<int32_t>(std::stol(o.page_break));
         int32_t place_path = static_cast<int32_t>(std::stol(o.place_path));
         return c.ConcatenateTwoTextFilesEx(a[0], a[1], page_break, place_path);
       }},
      {"DeleteEmptyLinesFromTextFile",
       "Delete the blank lines of a text file",
       {text_in, kOut},
       [](C& c, Values& a, const O&) { return c.DeleteEmptyLinesFromTextFile(a[0], a[1]); }},
  };
}

// The file a failure is about: an output code names the output, the others
// the first input that is missing (or the first input).
std::string FileOfFailure(int32_t code, const std::vector<std::string>& inputs, const std::string& output) {
  if ((code == RAVELIN_E_OUTPUT || code == RAVELIN_E_WRITE) && !output.empty()) return output;
  std::error_code ec;
  for (const std::string& input : inputs) {
    if (input != "-" && input.find_first_of("*?[") == std::string::npos && !fs::is_regular_file(Absolute(input), ec))
      return input;
  }
  return inputs.empty() ? output : inputs.front();
}

int Failure(const std::string& command, int32_t code, const std::string& message, const std::string& file, bool json) {
  return json ? ReportJson(command, code, message, file) : ReportFile(command, code, message, file);
}

int Success(const std::string& command, const std::string& output, bool json) {
  if (json) Out() << JsonObject().Add("command", command).Add("code", 0).Add("output", output).str() << "\n";
  return kExitSuccess;
}

int RunText(TabulonCtrl& control, const TextCommand& command, const Values& given, const TextOptions& o) {
  const std::string& name = command.name;
  TempFolder temp;
  Values values(given.size());
  std::vector<std::string> inputs;
  std::unique_ptr<TextOutput> output;
  std::string output_given;
  std::string error;
  for (size_t i = 0; i < given.size(); ++i) {
    const Arg& arg = command.args[i];
    switch (arg.role) {
      case Role::kInput:
        inputs.push_back(given[i]);
        values[i] = TextSource(given[i], temp, "stdin", error);
        if (values[i].empty()) return Failure(name, RAVELIN_E_READ, error, given[i], o.json);
        break;
      case Role::kAppendTo: {
        if (given[i] == "-") return UsageError(name, "the file to append to cannot be - (standard input)");
        inputs.push_back(given[i]);
        values[i] = FollowLinks(Absolute(given[i]));
        std::error_code ec;
        if (fs::exists(values[i], ec) && !fs::is_regular_file(values[i], ec))
          return Failure(name, RAVELIN_E_OUTPUT, TextResultMessage(RAVELIN_E_OUTPUT) + " (not a regular file)",
                         given[i], o.json);
        break;
      }
      case Role::kOutput:
        if (given[i] == "-" && o.json) return UsageError(name, "--json and the output - exclude each other");
        output_given = given[i];
        output = std::make_unique<TextOutput>(given[i], temp, "result");
        if (output->path().empty()) {
          return Failure(name, RAVELIN_E_OUTPUT, TextResultMessage(RAVELIN_E_OUTPUT) + " (" + output->refusal() + ")",
                         given[i], o.json);
        }
        values[i] = output->path();
        break;
      case Role::kChar: {
        if (given[i].empty()) break;  // the method says what it makes of nothing
        const std::optional<int> code = ParseCharacter(given[i], 1, 127, error);
        if (!code) return UsageError(name, arg.name + ": " + error);
        values[i] = std::string(1, static_cast<char>(*code));
        break;
      }
      case Role::kText:
        values[i] = given[i];
        break;
    }
  }
  const int32_t result = command.call(control, values, o);
  if (result < 0)
    return Failure(name, result, TextResultMessage(result), FileOfFailure(result, inputs, output_given), o.json);
  if (output && !output->Finish(error)) return Failure(name, RAVELIN_E_WRITE, error, output_given, o.json);
  return Success(name, output ? (output->to_stdout() ? "-" : Absolute(output_given)) : Absolute(given[0]), o.json);
}

// ---- The joins of many files ----------------------------------------

using JoinFunction = std::function<int32_t(const char* inputs, const char* out, const std::string& title)>;

struct JoinOptions {
  std::vector<std::string> paths;  // inputs, then the output
  std::string title;
  bool json = false;
};

int RunJoin(const std::string& name, const JoinFunction& join, const JoinOptions& o) {
  TempFolder temp;
  std::string error;
  std::string list;
  const std::vector<std::string> inputs(o.paths.begin(), o.paths.end() - 1);
  const std::string& output_given = o.paths.back();
  for (size_t i = 0; i < inputs.size(); ++i) {
    if (inputs[i].find('|') != std::string::npos)
      return UsageError(name, "a source name cannot hold '|': " + inputs[i]);
    // Standard input gets a name of its own, the one a file-name column shows.
    const std::string path = TextSource(inputs[i], temp, "stdin.csv", error);
    if (path.empty()) return Failure(name, RAVELIN_E_READ, error, inputs[i], o.json);
    list += (i > 0 ? "|" : "") + path;
  }
  if (output_given == "-" && o.json) return UsageError(name, "--json and the output - exclude each other");
  TextOutput output(output_given, temp, "result");
  if (output.path().empty()) {
    return Failure(name, RAVELIN_E_OUTPUT, TextResultMessage(RAVELIN_E_OUTPUT) + " (" + output.refusal() + ")",
                   output_given, o.json);
  }
  const int32_t result = join(list.c_str(), output.path().c_str(), o.title);
  if (result < 0) {
    return Failure(name, result, TextResultMessage(result), FileOfFailure(result, inputs, output_given), o.json);
  }
  if (!output.Finish(error)) return Failure(name, RAVELIN_E_WRITE, error, output_given, o.json);
  return Success(name, output.to_stdout() ? "-" : Absolute(output_given), o.json);
}

void AddJoinCommand(CLI::App& parser, std::vector<Command>& commands, const std::string& name, const std::string& help,
                    JoinFunction join, bool titled) {
  auto o = std::make_shared<JoinOptions>();
  CLI::App* sub = parser.add_subcommand(name, help);
  sub->footer(
      "A source may be a pattern in quotes ('data/*.csv'), matched in name order; the output is never "
      "joined to itself.");
  sub->ignore_case();
  sub->add_option("paths", o->paths,
                  "The files to join, in order (- for standard input), then the output file "
                  "(- for standard output)")
      ->required()
      ->expected(2, -1);
  if (titled) {
    sub->add_option("--column-title", o->title,
                    "Title of the new column: the first line is then a header, and repeats of it are left out");
  }
  AddJsonFlag(*sub, o->json);
  commands.push_back({sub, [o, name, join](TabulonCtrl&) { return RunJoin(name, join, *o); }});
}

void AddTextCommands(CLI::App& parser, std::vector<Command>& commands) {
  auto options = std::make_shared<TextOptions>();
  auto table = std::make_shared<std::vector<TextCommand>>(TextCommands());
  for (TextCommand& command : *table) {
    CLI::App* sub = parser.add_subcommand(command.name, command.help);
    sub->ignore_case();
    auto args = std::make_shared<Values>(command.args.size());
    for (size_t i = 0; i < command.args.size(); ++i) {
      sub->add_option(command.args[i].name, (*args)[i], command.args[i].help)->required();
    }
    if (command.name == "csvPadForFixedLengthFields") {
      sub->add_option("-l,--length", options->length, "The length to pad to, 1 to 65536")->required()->type_name("N");
      sub->add_flag("--pad-left", options->pad_left, "Pad before the text instead of after it");
    }
    if (command.name == "ConcatenateTwoTextFilesEx") {
      sub->add_option("--page-break", options->page_break, "1: put a page break (form feed) before the text")
          ->type_name("N");
      sub->add_option("--place-path", options->place_path, "1: put a line with the second file's path before it")
          ->type_name("N");
    }
    AddJsonFlag(*sub, options->json);
    // The table and the options stay alive with every runner.
    commands.push_back(
        {sub, [table, options, args, &command](TabulonCtrl& control) {
           std::string error;
           if (command.name == "csvPadForFixedLengthFields" && !ParseNumber(options->length, 1, 65536, error))
             return UsageError(command.name, "--length: " + error);
           if (command.name == "ConcatenateTwoTextFilesEx") {
             for (const auto& [flag, value] : {std::pair<const char*, std::string>{"--page-break", options->page_break},
                                               {"--place-path", options->place_path}}) {
               if (!ParseNumber(value, INT32_MIN, INT32_MAX, error))
                 return UsageError(command.name, std::string(flag) + ": " + error);
             }
           }
           return RunText(control, command, *args, *options);
         }});
  }

  auto file = std::make_shared<std::string>();
  auto json = std::make_shared<bool>(false);
  CLI::App* unicode_cmd = parser.add_subcommand(
      "IsFileUnicode", "Tell whether a file is UTF-16 or UTF-8 with a byte-order mark (prints True or False)");
  unicode_cmd->ignore_case();
  unicode_cmd->add_option("file", *file, "The file to test; - for standard input")->required();
  AddJsonFlag(*unicode_cmd, *json);
  commands.push_back({unicode_cmd, [file, json](TabulonCtrl& control) {
                        TempFolder temp;
                        std::string error;
                        std::string path = TextSource(*file, temp, "stdin", error);
                        if (path.empty()) return Failure("IsFileUnicode", RAVELIN_E_READ, error, *file, *json);
                        const bool unicode = control.IsFileUnicode(path);
                        if (*json) {
                          Out() << JsonObject()
                                       .Add("command", "IsFileUnicode")
                                       .Add("code", 0)
                                       .Add("file", *file == "-" ? std::string("-") : path)
                                       .Add("unicode", unicode)
                                       .str()
                                << "\n";
                        } else {
                          Out() << (unicode ? "True" : "False") << "\n";
                        }
                        return kExitSuccess;
                      }});

  AddJoinCommand(
      parser, commands, "ConcatenateAll", "Join text files whole, one after another",
      [](const char* in, const char* out, const std::string&) { return ConcatenateAll(in, out); }, false);
  AddJoinCommand(
      parser, commands, "ConcatenateAllSkipFirstLine",
      "Join CSV files that each start with the same header line, keeping only the first one's",
      [](const char* in, const char* out, const std::string&) { return ConcatenateAllSkipFirstLine(in, out); }, false);
  AddJoinCommand(
      parser, commands, "ConcatenateSpreadsheet",
      "Join CSV files, leaving out a later file's first line where it repeats the first file's header",
      [](const char* in, const char* out, const std::string&) { return ConcatenateSpreadsheet(in, out); }, false);
  AddJoinCommand(
      parser, commands, "ConcatenateSpreadsheetAddColumnWithOriginalFileName",
      "Join CSV files as ConcatenateSpreadsheet does, adding a last field with the name of the file "
      "each record came from",
      [](const char* in, const char* out, const std::string& title) {
        return ConcatenateSpreadsheetAddColumnWithOriginalFileName(in, out, title.c_str());
      },
      true);
}

const CommandGroup kText(100, AddTextCommands);

}  // namespace

}  // namespace tabulon::cli
