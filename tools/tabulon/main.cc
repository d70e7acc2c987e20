// tabulon: the command-line host of the control. One subcommand per public
// method, for scripts:
//   stdout  data (created files, sheet names, answers)
//   stderr  "tabulon: <command>: <code> <message>" on failure
//   exit    0 success, 1 a negative result code (or a failed call), 2 a usage error
// The subcommands themselves live in the cmd_*.cc files (see command.h).
// With --server SOCKET (or TABULON_SERVER) the command line runs on a
// `tabulon serve` instead (client.h); `__worker` is that server's worker.
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "client.h"
#include "command.h"
#include "signals.h"
#include "tabulon/tabulon_ctrl.h"
#include "worker.h"
#include "worker_process.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() == 2 && args[0] == "__worker") {
    tabulon::cli::StartSignalThread();
    tabulon::cli::AddTerminationHook([] { tabulon::KillEveryOffice(); });
    return tabulon::cli::RunWorker(tabulon::cli::kWorkerChannelFd, std::atoi(args[1].c_str()));
  }
  // --server SOCKET, before the command.
  if (!args.empty() && (args[0] == "--server" || args[0].rfind("--server=", 0) == 0)) {
    std::string socket;
    if (args[0] == "--server") {
      if (args.size() > 1) socket = args[1];
      args.erase(args.begin(), args.begin() + std::min<size_t>(2, args.size()));
    } else {
      socket = args[0].substr(9);
      args.erase(args.begin());
    }
    if (socket.empty()) {
      std::cerr << "tabulon: --server needs the socket of a running tabulon serve\n"
                   "Run 'tabulon help' for usage.\n";
      return tabulon::cli::kExitUsage;
    }
    tabulon::cli::SetServerOption(socket);
  }
  if (tabulon::cli::Forwardable(args)) {
    std::string socket = tabulon::cli::ServerOption();
    if (const char* env = std::getenv("TABULON_SERVER"); socket.empty() && env != nullptr) socket = env;
    if (!socket.empty()) return tabulon::cli::ForwardToServer(socket, args);
  }

  tabulon::cli::StartSignalThread();
  // Ctrl-C, SIGTERM or a closed terminal: no office, no worker and no
  // profile outlives the command.
  tabulon::cli::AddTerminationHook([] {
    tabulon::cli::TerminateEveryWorker();
    tabulon::KillEveryOffice();
  });
  tabulon::TabulonCtrl control;
  return tabulon::cli::RunCommandLineGuarded(args, control);
}
