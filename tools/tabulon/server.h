// tabulon serve: a pool of workers (worker.h), each with a warm office,
// behind a Unix domain socket (server_socket.h). The server itself never
// starts an office: it accepts clients, queues their command lines, hands
// each to a free worker with the client's standard streams, and sends the
// client how it ended. A worker is replaced after a number of jobs, when its
// offices' memory passes a limit, and when it dies; a client that goes away
// takes its running command with it.
#pragma once

#include <string>

namespace tabulon::cli {

struct ServeOptions {
  std::string socket;
  int offices = 1;
  long jobs_per_office = 1000;
  long memory_limit_mb = 2048;
};

// Runs until SIGTERM, SIGINT or SIGHUP; prints "tabulon: serve: ready
// <socket>" on stderr once every worker has started (or failed to start its
// office). On the signal every office is quit, the socket and its folder are
// removed, and the program ends by that signal. Returns only when the
// server cannot start (exit status 1).
int Serve(const ServeOptions& options);

}  // namespace tabulon::cli
