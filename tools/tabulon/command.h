// The command line's command table. Each group of subcommands lives in a file
// of its own and registers itself here at start-up, so that adding a command
// never touches main.cc. A group adds its subcommands to the parser and gives
// back, for each, the code to run when that subcommand was parsed.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "tabulon/tabulon_ctrl.h"

namespace tabulon::cli {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

// One subcommand and what runs it, on the control it is given (one per
// command line; one for all lines of a batch). `run` sets every property it
// depends on and returns the exit status.
struct Command {
  CLI::App* app;
  std::function<int(TabulonCtrl& control)> run;
};

using AddCommands = void (*)(CLI::App& parser, std::vector<Command>& commands);

// Registers a group; groups are added to the parser in `order` (it decides
// the order of the help text).
struct CommandGroup {
  CommandGroup(int order, AddCommands add);
};

// Every registered group, sorted by order.
std::vector<AddCommands> CommandGroups();

// The streams and working folder of the command line being run. A host that
// runs command lines for others (a server thread) sets its own for the
// thread with ScopedIo; otherwise they are the process's.
std::ostream& Out();
std::ostream& Err();
std::istream& In();
// The folder relative paths are taken from.
std::string WorkingFolder();

class ScopedIo {
 public:
  ScopedIo(std::ostream& out, std::ostream& err, std::istream& in, std::string working_folder);
  ~ScopedIo();
  ScopedIo(const ScopedIo&) = delete;
  ScopedIo& operator=(const ScopedIo&) = delete;

 private:
  struct Io* previous_;
};

// Parses `args` (the words after the program's name) and runs the
// subcommand they name on `control`; returns the exit status. Usage errors
// and help go to stderr and stdout as the parser prints them.
int RunCommandLine(const std::vector<std::string>& args, TabulonCtrl& control);
// RunCommandLine, with anything it throws reported on Err() as a failure
// ("tabulon: <what>", exit status 1), as the program's own main does.
int RunCommandLineGuarded(const std::vector<std::string>& args, TabulonCtrl& control);

// "tabulon: <command>: <code> <message>" on stderr; returns kExitFailure.
// Control characters of the message are shown escaped.
int Report(const std::string& command, int32_t code, const std::string& message);

// The control's OfficeFinding (what happened to the office itself: timed out,
// died, its own error text) as a second line, "tabulon: <command>: office:
// <finding>", unless it is empty or already part of `message`.
void ReportFinding(const std::string& command, const std::string& message, TabulonCtrl& control);

// The result of a workbook method: nothing printed and kExitSuccess for 0 or
// more; Report with the control's ErrorString, and ReportFinding, for a
// negative code.
int MethodResult(const std::string& command, int32_t code, TabulonCtrl& control);

// `text` with its control characters (and backslashes) escaped C-style:
// "\r", "\n", "\t", "\x1b", ...
std::string Escaped(const std::string& text);

// The four password properties, as options of a subcommand. Each can also
// come from the environment (TABULON_INPUT_PASSWORD, TABULON_INPUT_PASSWORD_TW,
// TABULON_OUTPUT_PASSWORD, TABULON_OUTPUT_PASSWORD_TW) so that it need not
// appear in the process list.
struct PasswordOptions {
  std::string input, input_tw, output, output_tw;
};
void AddPasswordOptions(CLI::App& command, PasswordOptions& passwords);
void ApplyPasswords(TabulonCtrl& control, const PasswordOptions& passwords);

// ---- Conventions every command shares --------------------------------
//
// Help texts say what a command does in a user's words; the method (or
// property) of the control it runs is named once, at the end, as
// "[OpenXLSSaveAs]", for those who know the API. Describe() builds that.
std::string Describe(const std::string& what, const std::string& method);

// A usage error: "tabulon: <command>: <message>" and a pointer to the
// command's help on stderr; returns kExitUsage.
int UsageError(const std::string& command, const std::string& message);

// A failure about one file. The message names the file: when `message`
// does not hold `file` already, ": <file>" is added. Returns kExitFailure.
int ReportFile(const std::string& command, int32_t code, const std::string& message, const std::string& file);

// A character argument (a delimiter, a replacement, a pad character), the
// same in every command: the character itself; "\t", "tab", "space",
// "comma", "semicolon", "pipe"; or its code, decimal ("9", "59") or hex
// ("0x09"). Codes run from `min_code` (0 where 0 means something) to
// `max_code` (127 for the text library, which reads ASCII only; 255 for
// the office, which reads Latin-1 delimiters). A single digit is a code: no
// one separates fields with a digit. nullopt, with `error` set, otherwise.
std::optional<int> ParseCharacter(const std::string& text, int min_code, int max_code, std::string& error);

// A whole number option's value, checked against [min, max]; nullopt with
// `error` set for anything else ("xyz", "9999999999", "1.5").
std::optional<int64_t> ParseNumber(const std::string& text, int64_t min, int64_t max, std::string& error);

// --json: the command prints one JSON object on stdout instead of its
// lines of text; a failure prints {"command","code","message","file"} there
// too (and its message on stderr as always).
void AddJsonFlag(CLI::App& command, bool& json);

// A JSON object written field by field, in order.
class JsonObject {
 public:
  JsonObject& Add(const std::string& key, const std::string& value);
  JsonObject& Add(const std::string& key, const char* value) { return Add(key, std::string(value)); }
  JsonObject& Add(const std::string& key, int64_t value);
  JsonObject& Add(const std::string& key, int32_t value) { return Add(key, static_cast<int64_t>(value)); }
  JsonObject& Add(const std::string& key, bool value);
  JsonObject& Add(const std::string& key, const std::vector<std::string>& values);
  // Adds `json` (an object or array already written) as it stands.
  JsonObject& AddRaw(const std::string& key, const std::string& json);
  std::string str() const { return "{" + body_ + "}"; }

 private:
  void Key(const std::string& key);
  std::string body_;
};
std::string JsonString(const std::string& text);

// A failure printed as JSON (see AddJsonFlag) and reported on stderr.
int ReportJson(const std::string& command, int32_t code, const std::string& message, const std::string& file);

// Office paths are absolute: the office runs in its own working folder.
// Relative paths are taken from WorkingFolder().
std::string Absolute(const std::string& path);

}  // namespace tabulon::cli
