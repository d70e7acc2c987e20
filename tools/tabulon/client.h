// The command line as a client of `tabulon serve`: `tabulon --server PATH
// <command ...>` (or TABULON_SERVER=PATH) sends the command line, the
// working folder, the settings of the environment and the standard streams
// to the server, which runs it on a warm office; the client then ends as
// the command did. A server that cannot be reached is a failure, never a
// reason to run the command here instead.
#pragma once

#include <string>
#include <vector>

namespace tabulon::cli {

// Whether a command line goes to a server when one is named: help, the
// version, the server's own commands and the dialog (a window for the person
// at this desktop) always run here.
bool Forwardable(const std::vector<std::string>& args);

// Runs `args` on the server at `socket`; returns the command's exit status,
// or ends this process by the signal that would have ended the command.
int ForwardToServer(const std::string& socket, const std::vector<std::string>& args);

// Prints the status of the server at `socket` (text, or one JSON object).
int PrintServerStatus(const std::string& socket, bool json);

// The socket given with --server before the command, for the commands that
// talk to a server themselves (status, serve); empty when none was given.
void SetServerOption(const std::string& socket);
const std::string& ServerOption();

}  // namespace tabulon::cli
