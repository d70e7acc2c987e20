// tabulon: the command-line host of the control. One subcommand per public
// method, for scripts:
//   stdout  data (created files, sheet names, answers)
//   stderr  "tabulon: <command>: <code> <message>" on failure
//   exit    0 success, 1 a negative result code (or a failed call), 2 a usage error
// The subcommands themselves live in the cmd_*.cc files (see command.h).
#include <iostream>
#include <string>
#include <vector>

#include "command.h"
#include "tabulon/tabulon_ctrl.h"

int main(int argc, char** argv) {
  using namespace tabulon::cli;
  CLI::App app{"tabulon: jobs on spreadsheet and delimited text files"};
  app.set_version_flag("--version", std::string("tabulon ") + TABULON_VERSION);
  app.require_subcommand(1);
  app.fallthrough(false);

  // help <command>
  std::string help_topic;
  CLI::App* help = app.add_subcommand("help", "Show the usage of a command");
  help->add_option("command", help_topic, "Command to describe");

  std::vector<Command> commands;
  for (AddCommands add : CommandGroups()) add(app, commands);

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
        return kExitSuccess;
      }
      for (CLI::App* sub : app.get_subcommands({})) {
        if (sub->check_name(help_topic)) {
          std::cout << sub->help();
          return kExitSuccess;
        }
      }
      std::cerr << "tabulon: help: unknown command '" << help_topic << "'\n";
      return kExitUsage;
    }
    for (const Command& command : commands) {
      if (command.app->parsed()) return command.run();
    }
  } catch (const tabulon::AutomationError& e) {
    std::cerr << "tabulon: " << app.get_subcommands().front()->get_name() << ": automation error " << e.number()
              << ": " << e.description() << "\n";
    return kExitFailure;
  }
  return kExitUsage;
}
