// tabulon serve and tabulon status: the warm server (server.h) and a look
// at its pool.
#include <memory>
#include <string>
#include <vector>

#include "client.h"
#include "command.h"
#include "server.h"
#include "server_socket.h"
#include "worker_process.h"

namespace tabulon::cli {

namespace {

struct ServeCommandOptions {
  std::string socket;
  std::string offices, jobs = "1000", memory = "2048";
  bool status = false;
  bool json = false;
};

int RunServeCommand(const ServeCommandOptions& o) {
  const std::string socket = ChosenSocketPath(!o.socket.empty() ? o.socket : ServerOption());
  if (o.status) return PrintServerStatus(socket, o.json);
  if (o.json) return UsageError("serve", "--json goes with --status");
  ServeOptions options;
  options.socket = socket;
  std::string error;
  const auto offices = ParseNumber(o.offices.empty() ? std::to_string(CoreCount()) : o.offices, 1, 64, error);
  if (!offices) return UsageError("serve", "--offices: " + error);
  const auto jobs = ParseNumber(o.jobs, 1, 1000000000, error);
  if (!jobs) return UsageError("serve", "--jobs-per-office: " + error);
  const auto memory = ParseNumber(o.memory, 64, 1000000, error);
  if (!memory) return UsageError("serve", "--memory-limit: " + error);
  options.offices = static_cast<int>(*offices);
  options.jobs_per_office = *jobs;
  options.memory_limit_mb = *memory;
  return Serve(options);
}

void AddServeCommands(CLI::App& parser, std::vector<Command>& commands) {
  auto o = std::make_shared<ServeCommandOptions>();
  CLI::App* serve = parser.add_subcommand(
      "serve",
      "Keep a pool of warm offices and run the commands that clients send (tabulon --server SOCKET "
      "COMMAND..., or TABULON_SERVER=SOCKET) until SIGTERM or SIGINT; prints \"tabulon: serve: ready SOCKET\" "
      "on standard error once it takes commands");
  serve
      ->add_option("--socket", o->socket,
                   "The socket (default: --server, TABULON_SERVER, else $XDG_RUNTIME_DIR/tabulon/serve.sock "
                   "or $TMPDIR/tabulon-UID/serve.sock)")
      ->type_name("SOCKET");
  serve->add_option("--offices", o->offices, "Offices in the pool (default: one per core)")->type_name("N");
  serve->add_option("--jobs-per-office", o->jobs, "Replace an office after this many commands (default 1000)")
      ->type_name("N");
  serve
      ->add_option("--memory-limit", o->memory,
                   "Replace an office whose processes hold more than this many MB (default 2048)")
      ->type_name("MB");
  serve->add_flag("--status", o->status, "Print the status of the server running at the socket, as status does");
  serve->add_flag("--json", o->json, "With --status: print it as one JSON object");
  commands.push_back({serve, [o](TabulonCtrl&) { return RunServeCommand(*o); }});

  auto status_socket = std::make_shared<std::string>();
  auto status_json = std::make_shared<bool>(false);
  CLI::App* status = parser.add_subcommand(
      "status", "Show the pool of a running tabulon serve: its offices, the jobs done and the queue");
  status->add_option("--server", *status_socket, "The server's socket (default: as for serve)")->type_name("SOCKET");
  AddJsonFlag(*status, *status_json);
  commands.push_back({status, [status_socket, status_json](TabulonCtrl&) {
                        return PrintServerStatus(
                            ChosenSocketPath(!status_socket->empty() ? *status_socket : ServerOption()), *status_json);
                      }});
}

const CommandGroup kServe(950, AddServeCommands);

}  // namespace

}  // namespace tabulon::cli
