// tabulon: the command-line host of the control. One subcommand per public
// method, for scripts:
//   stdout  data (created files, sheet names, answers)
//   stderr  "tabulon: <command>: <code> <message>" on failure
//   exit    0 success, 1 a negative result code (or a failed call), 2 a usage error
// The subcommands themselves live in the cmd_*.cc files (see command.h).
#include <string>
#include <vector>

#include "command.h"
#include "tabulon/tabulon_ctrl.h"

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  tabulon::TabulonCtrl control;
  return tabulon::cli::RunCommandLine(args, control);
}
