// tabulon: the command-line host of the control. One subcommand per public
// method, for scripts:
//   stdout  data (created files, sheet names, answers)
//   stderr  "tabulon: <command>: <code> <message>" on failure
//   exit    0 success, 1 a negative result code (or a failed call), 2 a usage error
// The subcommands themselves live in the cmd_*.cc files (see command.h).
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "command.h"
#include "signals.h"
#include "tabulon/tabulon_ctrl.h"

int main(int argc, char** argv) {
  tabulon::cli::StartSignalThread();
  // Ctrl-C, SIGTERM or a closed terminal: no office and no profile outlives
  // the command.
  tabulon::cli::AddTerminationHook([] { tabulon::KillEveryOffice(); });
  try {
    const std::vector<std::string> args(argv + 1, argv + argc);
    tabulon::TabulonCtrl control;
    return tabulon::cli::RunCommandLine(args, control);
  } catch (const std::exception& e) {
    std::cerr << "tabulon: " << tabulon::cli::Escaped(e.what()) << "\n";
  } catch (...) {
    std::cerr << "tabulon: unexpected failure\n";
  }
  return tabulon::cli::kExitFailure;
}
