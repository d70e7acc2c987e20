#include "requests.h"

#include <cstdlib>
#include <cstring>

extern char** environ;

namespace tabulon::cli {

namespace {

bool ParseInt(const std::string& text, long& value) {
  if (text.empty() || text.size() > 18) return false;
  char* end = nullptr;
  value = std::strtol(text.c_str(), &end, 10);
  return *end == '\0';
}

}  // namespace

Message EncodeRun(const RunRequest& request) {
  Message m{
      kRunMessage,
      {kProtocolVersion, request.working_folder, std::to_string(request.umask), std::to_string(request.args.size())}};
  m.fields.insert(m.fields.end(), request.args.begin(), request.args.end());
  m.fields.insert(m.fields.end(), request.env.begin(), request.env.end());
  return m;
}

bool DecodeRun(const Message& message, RunRequest& request, std::string& error) {
  const auto& f = message.fields;
  if (message.type != kRunMessage || f.size() < 4) {
    error = "not a command line";
    return false;
  }
  if (f[0] != kProtocolVersion) {
    error = "the client speaks " + f[0] + ", the server " + kProtocolVersion;
    return false;
  }
  long mask = 0, count = 0;
  if (!ParseInt(f[2], mask) || mask < 0 || mask > 0777) {
    error = "a file mode mask of '" + f[2] + "'";
    return false;
  }
  if (!ParseInt(f[3], count) || count < 0 || static_cast<size_t>(count) > f.size() - 4) {
    error = "a command line of '" + f[3] + "' words";
    return false;
  }
  if (f[1].empty() || f[1][0] != '/') {
    error = "the working folder '" + f[1] + "' is not an absolute path";
    return false;
  }
  request.working_folder = f[1];
  request.umask = static_cast<int>(mask);
  request.args.assign(f.begin() + 4, f.begin() + 4 + count);
  request.env.assign(f.begin() + 4 + count, f.end());
  for (const std::string& entry : request.env) {
    const size_t equals = entry.find('=');
    if (equals == std::string::npos || !IsClientSetting(entry.substr(0, equals))) {
      error = "'" + entry.substr(0, equals) + "' is not a setting a client passes";
      return false;
    }
  }
  return true;
}

Message EncodeDone(const RunResult& result) {
  return Message{
      kDoneMessage,
      {std::to_string(result.status), std::to_string(result.signal), result.message, std::to_string(result.office_kb)}};
}

bool DecodeDone(const Message& message, RunResult& result, std::string& error) {
  const auto& f = message.fields;
  long status = 0, signal = 0, kb = 0;
  if (message.type != kDoneMessage || f.size() != 4 || !ParseInt(f[0], status) || !ParseInt(f[1], signal) ||
      !ParseInt(f[3], kb) || status < 0 || status > 255 || signal < 0 || signal > 64) {
    error = "not the end of a command line";
    return false;
  }
  result.status = static_cast<int>(status);
  result.signal = static_cast<int>(signal);
  result.message = f[2];
  result.office_kb = kb;
  return true;
}

bool IsClientSetting(const std::string& name) {
  if (name == "HOME" || name == "XDG_CONFIG_HOME") return true;
  if (name.rfind("TABULON_", 0) != 0) return false;
  for (const char* own : {"TABULON_SERVER", "TABULON_OFFICE", "TABULON_CALL_TIME_LIMIT", "TABULON_PROFILE_CACHE"}) {
    if (name == own) return false;
  }
  return true;
}

std::vector<std::string> ClientSettings() {
  std::vector<std::string> settings;
  for (char** e = environ; e != nullptr && *e != nullptr; ++e) {
    const char* equals = std::strchr(*e, '=');
    if (equals != nullptr && IsClientSetting(std::string(*e, static_cast<size_t>(equals - *e))))
      settings.emplace_back(*e);
  }
  return settings;
}

}  // namespace tabulon::cli
