#include "command.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <utility>

#include "docs.h"

namespace tabulon::cli {

struct Io {
  std::ostream* out;
  std::ostream* err;
  std::istream* in;
  std::string working_folder;  // empty: the process's
};

namespace {

thread_local Io* current_io = nullptr;

std::vector<std::pair<int, AddCommands>>& Registry() {
  static std::vector<std::pair<int, AddCommands>> groups;
  return groups;
}

int UnknownCommand(CLI::App& app, const std::string& word);

int Help(CLI::App& app, const std::string& topic) {
  if (topic.empty()) {
    // app.help() would describe the subcommand parsed: help itself.
    Out() << app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal);
    return kExitSuccess;
  }
  for (CLI::App* sub : app.get_subcommands({})) {
    if (!sub->get_group().empty() && sub->check_name(topic)) {
      Out() << sub->help();
      return kExitSuccess;
    }
  }
  return UnknownCommand(app, topic);
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

// Edits (insert, delete, replace) between two words, ignoring case.
size_t Distance(const std::string& a_text, const std::string& b_text) {
  const std::string a = Lower(a_text), b = Lower(b_text);
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

// The closest of `known` to `word`, when it is close enough to be a slip
// (or `word` is a prefix of it); empty otherwise.
std::string Closest(const std::string& word, const std::vector<std::string>& known) {
  std::string best;
  size_t best_distance = std::max<size_t>(2, word.size() / 3) + 1;
  for (const std::string& name : known) {
    size_t d = Distance(word, name);
    if (word.size() >= 3 && Lower(name).rfind(Lower(word), 0) == 0) d = std::min<size_t>(d, 1);
    if (d < best_distance) {
      best_distance = d;
      best = name;
    }
  }
  return best;
}

// The commands a user may name (the hidden ones aside).
std::vector<std::string> CommandNames(CLI::App& app) {
  std::vector<std::string> names;
  for (CLI::App* sub : app.get_subcommands({})) {
    if (!sub->get_group().empty()) names.push_back(sub->get_name());
  }
  return names;
}

int UnknownCommand(CLI::App& app, const std::string& word) {
  Err() << "tabulon: unknown command '" << word << "'";
  const std::string closest = Closest(word, CommandNames(app));
  if (!closest.empty()) Err() << " (did you mean '" << closest << "'?)";
  Err() << "\nRun 'tabulon help' for the list of commands.\n";
  return kExitUsage;
}

// Names an option the command does not have, before the parser sees the
// line (it would blame a missing argument instead). Words after "--" and
// the values of options that take one are not options; nor are "-" (the
// standard streams) and negative numbers. Returns kExitSuccess when every
// option is known.
int CheckOptions(CLI::App& app, CLI::App* command, const std::vector<std::string>& words) {
  const std::string name = command != nullptr ? command->get_name() : "tabulon";
  CLI::App& owner = command != nullptr ? *command : app;
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (word == "--") break;
    if (word.size() < 2 || word[0] != '-') continue;
    char* end = nullptr;
    errno = 0;
    std::strtod(word.c_str(), &end);
    if (*end == '\0') continue;
    std::string option_name = word;
    bool inline_value = false;
    if (word.rfind("--", 0) == 0) {
      const size_t equals = word.find('=');
      inline_value = equals != std::string::npos;
      option_name = word.substr(0, equals);
    } else {
      inline_value = word.size() > 2;
      option_name = word.substr(0, 2);
    }
    if (option_name == "-h" || option_name == "--help") continue;
    if (command == nullptr && option_name == "--version") continue;
    const CLI::Option* option = owner.get_option_no_throw(option_name);
    if (option == nullptr) {
      std::vector<std::string> known;
      for (const CLI::Option* o : owner.get_options()) {
        for (const std::string& l : o->get_lnames()) known.push_back("--" + l);
      }
      Err() << "tabulon: " << (command != nullptr ? name + ": " : "") << "unknown option '" << option_name << "'";
      const std::string closest = Closest(option_name, known);
      if (!closest.empty()) Err() << " (did you mean '" << closest << "'?)";
      Err() << "\nRun 'tabulon help" << (command != nullptr ? " " + name : "") << "' for usage.\n";
      return kExitUsage;
    }
    if (!inline_value && option->get_expected_min() > 0) ++i;
  }
  return kExitSuccess;
}

}  // namespace

std::ostream& Out() { return current_io != nullptr ? *current_io->out : std::cout; }
std::ostream& Err() { return current_io != nullptr ? *current_io->err : std::cerr; }
std::istream& In() { return current_io != nullptr ? *current_io->in : std::cin; }

std::string WorkingFolder() {
  if (current_io != nullptr && !current_io->working_folder.empty()) return current_io->working_folder;
  std::error_code ec;
  return std::filesystem::current_path(ec).string();
}

ScopedIo::ScopedIo(std::ostream& out, std::ostream& err, std::istream& in, std::string working_folder)
    : previous_(current_io) {
  current_io = new Io{&out, &err, &in, std::move(working_folder)};
}

ScopedIo::~ScopedIo() {
  delete current_io;
  current_io = previous_;
}

CommandGroup::CommandGroup(int order, AddCommands add) { Registry().emplace_back(order, add); }

std::vector<AddCommands> CommandGroups() {
  auto groups = Registry();
  std::stable_sort(groups.begin(), groups.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<AddCommands> adds;
  for (const auto& [order, add] : groups) adds.push_back(add);
  return adds;
}

int RunCommandLine(const std::vector<std::string>& args, TabulonCtrl& control) {
  CLI::App app{"tabulon: jobs on spreadsheet and delimited text files"};
  app.name("tabulon");
  app.set_version_flag("--version", std::string("tabulon ") + TABULON_VERSION);
  app.require_subcommand(0, 1);
  app.footer(
      "Data goes to standard output, failures to standard error as \"tabulon: <command>: <code> <message>\";\n"
      "exit status 0 success, 1 a failure, 2 a usage error. A path - reads standard input or writes standard\n"
      "output where a command reads or writes text; --json prints a command's result as JSON.\n"
      "Run 'tabulon help <command>' for a command's arguments and options.");
  app.fallthrough(false);

  // Read by main before the command (client.h); here only for the help.
  std::string server_socket;
  app.add_option("--server", server_socket,
                 "Run the command on the tabulon serve listening at this socket (also: TABULON_SERVER)")
      ->type_name("SOCKET");

  std::string help_topic;
  CLI::App* help = app.add_subcommand("help", "Show the usage of a command, or the list of commands");
  help->add_option("command", help_topic, "The command to describe");

  // The manual page and the shell completion are written from this table
  // by the build (see CMakeLists.txt); the command is not for users.
  std::string docs_kind, docs_file;
  CLI::App* docs = app.add_subcommand("__docs", "")->group("");
  docs->add_option("kind", docs_kind, "man or bash")->required()->check(CLI::IsMember({"man", "bash"}));
  docs->add_option("file", docs_file, "The file to write (default: standard output)");

  std::vector<Command> commands;
  for (AddCommands add : CommandGroups()) add(app, commands);

  // Find the command word first, so that a misspelt one or an unknown
  // option is named as such rather than as a missing argument.
  size_t first = 0;
  while (first < args.size() && args[first].size() > 1 && args[first][0] == '-') {
    if (args[first] == "--server") ++first;  // and its socket
    ++first;
  }
  first = std::min(first, args.size());
  if (CheckOptions(app, nullptr, std::vector<std::string>(args.begin(), args.begin() + first)) != kExitSuccess)
    return kExitUsage;
  CLI::App* named = nullptr;
  if (first < args.size()) {
    for (CLI::App* sub : app.get_subcommands({})) {
      if (sub->check_name(args[first])) named = sub;
    }
    if (named == nullptr) return UnknownCommand(app, args[first]);
    if (CheckOptions(app, named, std::vector<std::string>(args.begin() + first + 1, args.end())) != kExitSuccess)
      return kExitUsage;
  }

  try {
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    app.parse(reversed);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e, Out(), Err());
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e, Out(), Err());
  } catch (const CLI::ParseError& e) {
    if (named == nullptr) {
      Err() << "tabulon: a command is required\nRun 'tabulon help' for the list of commands.\n";
      return kExitUsage;
    }
    return UsageError(named->get_name(), e.what());
  }
  if (named == nullptr) {
    Err() << "tabulon: a command is required\nRun 'tabulon help' for the list of commands.\n";
    return kExitUsage;
  }

  if (!server_socket.empty()) {
    Err() << "tabulon: --server goes first on the command line itself\n";
    return kExitUsage;
  }
  const std::string name = app.get_subcommands().empty() ? "tabulon" : app.get_subcommands().front()->get_name();
  try {
    if (help->parsed()) return Help(app, help_topic);
    if (docs->parsed()) {
      if (docs_file.empty()) return WriteDocs(app, docs_kind, Out());
      std::ofstream file(docs_file, std::ios::binary | std::ios::trunc);
      const int status = WriteDocs(app, docs_kind, file);
      file.close();
      if (!file) return ReportFile("__docs", 0, "cannot write", docs_file);
      return status;
    }
    for (const Command& command : commands) {
      if (command.app->parsed()) return command.run(control);
    }
  } catch (const AutomationError& e) {
    Err() << "tabulon: " << name << ": automation error " << e.number() << ": " << e.description() << "\n";
    return kExitFailure;
  } catch (const std::exception& e) {
    Err() << "tabulon: " << name << ": " << e.what() << "\n";
    return kExitFailure;
  }
  return kExitUsage;
}

int RunCommandLineGuarded(const std::vector<std::string>& args, TabulonCtrl& control) {
  try {
    return RunCommandLine(args, control);
  } catch (const std::exception& e) {
    Err() << "tabulon: " << Escaped(e.what()) << "\n";
  } catch (...) {
    Err() << "tabulon: unexpected failure\n";
  }
  return kExitFailure;
}

std::string Escaped(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    switch (c) {
      case '\\': out += "\\\\"; break;
      case '\r': out += "\\r"; break;
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      default:
        if (byte < 0x20 || byte == 0x7f) {
          static const char kHex[] = "0123456789abcdef";
          out += "\\x";
          out += kHex[byte >> 4];
          out += kHex[byte & 15];
        } else {
          out += c;
        }
    }
  }
  return out;
}

int Report(const std::string& command, int32_t code, const std::string& message) {
  Err() << "tabulon: " << command << ": " << code << " " << Escaped(message) << "\n";
  return kExitFailure;
}

void ReportFinding(const std::string& command, const std::string& message, TabulonCtrl& control) {
  const std::string finding = control.OfficeFinding();
  if (finding.empty() || message.find(finding) != std::string::npos) return;
  Err() << "tabulon: " << command << ": office: " << Escaped(finding) << "\n";
}

std::string Describe(const std::string& what, const std::string& method) { return what + " [" + method + "]"; }

int UsageError(const std::string& command, const std::string& message) {
  Err() << "tabulon: " << command << ": " << message << "\nRun 'tabulon help " << command << "' for usage.\n";
  return kExitUsage;
}

int ReportFile(const std::string& command, int32_t code, const std::string& message, const std::string& file) {
  // A message that ends with the path (or holds it, folders and all)
  // names it already.
  const bool named =
      message.size() >= file.size() && message.compare(message.size() - file.size(), file.size(), file) == 0;
  if (file.empty() || named || (file.find('/') != std::string::npos && message.find(file) != std::string::npos))
    return Report(command, code, message);
  return Report(command, code, message + ": " + file);
}

int ReportJson(const std::string& command, int32_t code, const std::string& message, const std::string& file) {
  Out() << JsonObject().Add("command", command).Add("code", code).Add("message", message).Add("file", file).str()
        << "\n";
  return ReportFile(command, code, message, file);
}

std::optional<int> ParseCharacter(const std::string& text, int min_code, int max_code, std::string& error) {
  static const std::pair<const char*, int> kNames[] = {{"\\t", 9},    {"tab", 9},        {"space", 32},
                                                       {"comma", 44}, {"semicolon", 59}, {"pipe", 124}};
  for (const auto& [name, code] : kNames) {
    if (Lower(text) == name) return code;
  }
  int code = -1;
  const bool digits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
  const bool hex = text.size() > 2 && Lower(text.substr(0, 2)) == "0x" &&
                   text.find_first_not_of("0123456789abcdefABCDEF", 2) == std::string::npos;
  if (digits || hex) {
    const std::string number = digits ? text : text.substr(2);
    code = number.size() > 4 ? 100000 : std::stoi(number, nullptr, digits ? 10 : 16);
  } else if (text.size() == 1) {
    code = static_cast<unsigned char>(text[0]);
  } else {
    error = "'" + text + "' is not one character, a name (tab, space, comma, semicolon, pipe) or a code";
    return std::nullopt;
  }
  if (code < min_code || code > max_code) {
    error = "'" + text + "': a character code from " + std::to_string(min_code) + " to " + std::to_string(max_code) +
            " is needed";
    return std::nullopt;
  }
  return code;
}

std::optional<int64_t> ParseNumber(const std::string& text, int64_t min, int64_t max, std::string& error) {
  const std::string range = " (" + std::to_string(min) + " to " + std::to_string(max) + ")";
  const size_t sign = !text.empty() && (text[0] == '-' || text[0] == '+') ? 1 : 0;
  if (text.size() == sign || text.find_first_not_of("0123456789", sign) != std::string::npos) {
    error = "'" + text + "' is not a whole number" + range;
    return std::nullopt;
  }
  errno = 0;
  const long long value = std::strtoll(text.c_str(), nullptr, 10);
  if (errno == ERANGE || value < min || value > max) {
    error = "'" + text + "' is out of range" + range;
    return std::nullopt;
  }
  return value;
}

void AddJsonFlag(CLI::App& command, bool& json) {
  command.add_flag("--json", json, "Print the result as one JSON object, for scripts");
}

std::string JsonString(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\t') {
      out += "\\t";
    } else if (u < 0x20 || u == 0x7f) {
      char buffer[8];
      std::snprintf(buffer, sizeof buffer, "\\u%04x", u);
      out += buffer;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

void JsonObject::Key(const std::string& key) {
  if (!body_.empty()) body_ += ",";
  body_ += JsonString(key) + ":";
}

JsonObject& JsonObject::Add(const std::string& key, const std::string& value) {
  Key(key);
  body_ += JsonString(value);
  return *this;
}

JsonObject& JsonObject::Add(const std::string& key, int64_t value) {
  Key(key);
  body_ += std::to_string(value);
  return *this;
}

JsonObject& JsonObject::Add(const std::string& key, bool value) {
  Key(key);
  body_ += value ? "true" : "false";
  return *this;
}

JsonObject& JsonObject::Add(const std::string& key, const std::vector<std::string>& values) {
  std::string array = "[";
  for (size_t i = 0; i < values.size(); ++i) array += (i > 0 ? "," : "") + JsonString(values[i]);
  return AddRaw(key, array + "]");
}

JsonObject& JsonObject::AddRaw(const std::string& key, const std::string& json) {
  Key(key);
  body_ += json;
  return *this;
}

int MethodResult(const std::string& command, int32_t code, TabulonCtrl& control) {
  if (code >= 0) return kExitSuccess;
  const std::string message = control.get_ErrorString();
  Report(command, code, message);
  ReportFinding(command, message, control);
  return kExitFailure;
}

void AddPasswordOptions(CLI::App& command, PasswordOptions& passwords) {
  command.add_option("--input-password", passwords.input, "Password of the workbook read (InputFile_PassWord)")
      ->envname("TABULON_INPUT_PASSWORD");
  command
      .add_option("--input-password-tw", passwords.input_tw,
                  "Its password to modify (InputFile_PassWord_TW)")
      ->envname("TABULON_INPUT_PASSWORD_TW");
  command
      .add_option("--output-password", passwords.output,
                  "Password of an existing target workbook (OutputFile_PassWord)")
      ->envname("TABULON_OUTPUT_PASSWORD");
  command
      .add_option("--output-password-tw", passwords.output_tw,
                  "Its password to modify (OutputFile_PassWord_TW)")
      ->envname("TABULON_OUTPUT_PASSWORD_TW");
}

void ApplyPasswords(TabulonCtrl& control, const PasswordOptions& passwords) {
  control.put_InputFile_PassWord(passwords.input);
  control.put_InputFile_PassWord_TW(passwords.input_tw);
  control.put_OutputFile_PassWord(passwords.output);
  control.put_OutputFile_PassWord_TW(passwords.output_tw);
}

std::string Absolute(const std::string& path) {
  if (path.empty()) return path;
  const std::filesystem::path given(path);
  if (given.is_absolute()) return given.lexically_normal().string();
  return (std::filesystem::path(WorkingFolder()) / given).lexically_normal().string();
}

}  // namespace tabulon::cli
