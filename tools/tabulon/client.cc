#include "client.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>

#include "command.h"
#include "frames.h"
#include "requests.h"
#include "server_socket.h"

namespace tabulon::cli {

namespace {

std::string& ServerOptionValue() {
  static std::string value;
  return value;
}

// A termination signal while the command runs: the client closes its end,
// which stops the command on the server, waits to hear that it has stopped
// (its office is gone), and then ends by that signal, as the command line
// does without a server.
volatile sig_atomic_t connection = -1;
volatile sig_atomic_t stopped_by = 0;

void OnTermination(int signal_number) {
  if (stopped_by == 0) stopped_by = signal_number;
  if (connection >= 0) shutdown(connection, SHUT_WR);
}

void CatchTermination() {
  struct sigaction action {};
  action.sa_handler = OnTermination;
  sigemptyset(&action.sa_mask);
  for (const int s : {SIGINT, SIGTERM, SIGHUP}) {
    // One that the client was started with ignored stays ignored.
    struct sigaction current {};
    if (sigaction(s, nullptr, &current) == 0 && current.sa_handler == SIG_IGN) continue;
    sigaction(s, &action, nullptr);
  }
}

void EndBy(int signal_number) {
  signal(signal_number, SIG_DFL);
  raise(signal_number);
}

int CannotReach(const std::string& command, const std::string& socket, const std::string& reason) {
  Err() << "tabulon: " << command << ": cannot reach the server at " << socket << ": " << reason << "\n";
  return kExitFailure;
}

}  // namespace

void SetServerOption(const std::string& socket) { ServerOptionValue() = socket; }
const std::string& ServerOption() { return ServerOptionValue(); }

bool Forwardable(const std::vector<std::string>& args) {
  if (args.empty() || args[0].empty() || args[0][0] == '-') return false;
  for (const char* local : {"help", "serve", "status", "pick", "ShowSheetSelectionDialog", "__docs", "__worker"}) {
    if (args[0] == local) return false;
  }
  for (const std::string& word : args) {
    if (word == "--") break;
    if (word == "-h" || word == "--help") return false;
  }
  return true;
}

int ForwardToServer(const std::string& socket, const std::vector<std::string>& args) {
  const std::string& command = args.front();
  std::string error;
  const int fd = ConnectTo(socket, error);
  if (fd < 0) return CannotReach(command, socket, error);
  // The standard streams go as they are; a closed one as /dev/null.
  std::vector<int> streams;
  std::vector<int> opened;
  for (int s = 0; s < 3; ++s) {
    if (fcntl(s, F_GETFD) >= 0) {
      streams.push_back(s);
    } else {
      opened.push_back(open("/dev/null", (s == 0 ? O_RDONLY : O_WRONLY) | O_CLOEXEC));
      streams.push_back(opened.back());
    }
  }
  std::error_code ec;
  RunRequest request{std::filesystem::current_path(ec).string(), 022, args, ClientSettings()};
  request.umask = static_cast<int>(umask(0));
  umask(static_cast<mode_t>(request.umask));
  connection = fd;
  CatchTermination();
  const bool sent = SendFrame(fd, EncodeRun(request), streams);
  CloseAll(opened);
  // A server that refuses a client says why before it closes: read that
  // even when the request could not be sent whole.
  FrameReader reader;
  const FrameReader::State state = reader.ReadWhole(fd);
  RunResult result;
  const bool answered = state == FrameReader::State::kComplete && DecodeDone(reader.TakeMessage(), result, error);
  connection = -1;
  close(fd);
  if (stopped_by != 0) EndBy(stopped_by);
  if (!answered && !sent) return CannotReach(command, socket, "the server closed the connection");
  if (!answered) {
    Err() << "tabulon: " << command << ": the server at " << socket << " ended without saying how the command ended\n";
    return kExitFailure;
  }
  if (!result.message.empty()) Err() << result.message << std::flush;
  if (result.signal != 0) EndBy(result.signal);
  return result.status;
}

int PrintServerStatus(const std::string& socket, bool json) {
  std::string error;
  const int fd = ConnectTo(socket, error);
  if (fd < 0) return CannotReach("status", socket, error);
  FrameReader reader;
  const bool sent = SendFrame(fd, Message{kStatusMessage, {kProtocolVersion}});
  const FrameReader::State state = sent ? reader.ReadWhole(fd) : FrameReader::State::kError;
  close(fd);
  Message answer = state == FrameReader::State::kComplete ? reader.TakeMessage() : Message{};
  if (answer.type == kDoneMessage) {
    RunResult refused;
    if (DecodeDone(answer, refused, error)) Err() << refused.message;
    return kExitFailure;
  }
  if (answer.type != kStatusTextMessage || answer.fields.size() != 2) {
    Err() << "tabulon: status: the server at " << socket << " gave no status\n";
    return kExitFailure;
  }
  Out() << (json ? answer.fields[1] + "\n" : answer.fields[0]);
  return kExitSuccess;
}

}  // namespace tabulon::cli
