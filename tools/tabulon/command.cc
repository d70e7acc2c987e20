#include "command.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <utility>

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

int Help(CLI::App& app, const std::string& topic) {
  if (topic.empty()) {
    Out() << app.help();
    return kExitSuccess;
  }
  for (CLI::App* sub : app.get_subcommands({})) {
    if (sub->check_name(topic)) {
      Out() << sub->help();
      return kExitSuccess;
    }
  }
  Err() << "tabulon: help: unknown command '" << topic << "'\n";
  return kExitUsage;
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
  app.require_subcommand(1);
  app.fallthrough(false);

  std::string help_topic;
  CLI::App* help = app.add_subcommand("help", "Show the usage of a command");
  help->add_option("command", help_topic, "Command to describe");

  std::vector<Command> commands;
  for (AddCommands add : CommandGroups()) add(app, commands);

  try {
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    app.parse(reversed);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e, Out(), Err());
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e, Out(), Err());
  } catch (const CLI::ParseError& e) {
    app.exit(e, Out(), Err());
    return kExitUsage;
  }

  const std::string name = app.get_subcommands().empty() ? "tabulon" : app.get_subcommands().front()->get_name();
  try {
    if (help->parsed()) return Help(app, help_topic);
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

int Report(const std::string& command, int32_t code, const std::string& message) {
  Err() << "tabulon: " << command << ": " << code << " " << message << "\n";
  return kExitFailure;
}

int MethodResult(const std::string& command, int32_t code, TabulonCtrl& control) {
  if (code >= 0) return kExitSuccess;
  return Report(command, code, control.get_ErrorString());
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
