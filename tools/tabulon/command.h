// The command line's command table. Each group of subcommands lives in a file
// of its own and registers itself here at start-up, so that adding a command
// never touches main.cc. A group adds its subcommands to the parser and gives
// back, for each, the code to run when that subcommand was parsed.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tabulon::cli {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

// One subcommand and what runs it; `run` returns the exit status.
struct Command {
  CLI::App* app;
  std::function<int()> run;
};

using AddCommands = void (*)(CLI::App& parser, std::vector<Command>& commands);

// Registers a group; groups are added to the parser in `order` (it decides
// the order of the help text).
struct CommandGroup {
  CommandGroup(int order, AddCommands add);
};

// Every registered group, sorted by order.
std::vector<AddCommands> CommandGroups();

// "tabulon: <command>: <code> <message>" on stderr; returns kExitFailure.
int Report(const std::string& command, int32_t code, const std::string& message);

// Office paths are absolute: the office runs in its own working folder.
std::string Absolute(const std::string& path);

}  // namespace tabulon::cli
