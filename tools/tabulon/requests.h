// What travels in the frames (frames.h): a command line to run for a client,
// its end, the pool's status, and a worker's word that its office is warm.
#pragma once

#include <string>
#include <vector>

#include "frames.h"

namespace tabulon::cli {

// Message types.
inline constexpr char kRunMessage = 'R';         // client -> server -> worker, with stdin, stdout, stderr
inline constexpr char kStatusMessage = 'S';      // client -> server
inline constexpr char kDoneMessage = 'D';        // worker -> server -> client
inline constexpr char kStatusTextMessage = 'T';  // server -> client
inline constexpr char kWarmMessage = 'W';        // worker -> its parent, once at start

// The first field of every request, so that a client and a server of
// different builds tell each other so instead of misreading each other.
inline constexpr const char* kProtocolVersion = "tabulon-serve-1";

// A command line run for someone else: its words (without the program's
// name), the folder its relative paths are taken from, the caller's file
// mode mask, and the settings of the caller's environment that commands read
// (ClientSettings).
struct RunRequest {
  std::string working_folder;
  int umask = 022;
  std::vector<std::string> args;
  std::vector<std::string> env;  // "NAME=value"
};
Message EncodeRun(const RunRequest& request);
bool DecodeRun(const Message& message, RunRequest& request, std::string& error);

// How a command line ended: its exit status, or the signal that would have
// ended it (SIGPIPE for a closed standard output), and a line for the caller
// to print on standard error when the command could not finish at all (its
// worker died). office_kb: the memory of the worker's offices afterwards.
struct RunResult {
  int status = 0;
  int signal = 0;
  std::string message;
  long office_kb = 0;
};
Message EncodeDone(const RunResult& result);
bool DecodeDone(const Message& message, RunResult& result, std::string& error);

// The environment variables a command line reads on the caller's behalf:
// its passwords and other TABULON_ settings, and where the settings folder
// is. The server's own (TABULON_SERVER, TABULON_OFFICE, the watchdog's
// limit, the profile cache) stay the server's.
bool IsClientSetting(const std::string& name);
// Those of this process's environment, as "NAME=value".
std::vector<std::string> ClientSettings();

}  // namespace tabulon::cli
