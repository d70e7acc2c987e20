// Running the tabulon command line from a test: its exit status, stdout and
// stderr; a scratch folder; a file's bytes.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace tabulon::testing {

struct Result {
  int exit_code;
  std::string out;
  std::string err;
};

inline std::string Read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// Runs the command line with `args` (shell words, already quoted).
inline Result Tabulon(const std::string& args) {
  namespace fs = std::filesystem;
  const fs::path err_file = fs::temp_directory_path() / ("tabulon-cli-err-" + std::to_string(getpid()));
  const std::string command = std::string(TABULON_CLI) + " " + args + " 2>" + err_file.string();
  Result r;
  FILE* pipe = popen(command.c_str(), "r");
  std::array<char, 4096> buffer;
  size_t n;
  while ((n = fread(buffer.data(), 1, buffer.size(), pipe)) > 0) r.out.append(buffer.data(), n);
  const int status = pclose(pipe);
  r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  r.err = Read(err_file.string());
  fs::remove(err_file);
  return r;
}

// A folder of the test process's own, removed with everything in it.
class Folder {
 public:
  explicit Folder(const std::string& prefix = "tabulon-cli-")
      : path_(std::filesystem::temp_directory_path() / (prefix + std::to_string(getpid()))) {
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

}  // namespace tabulon::testing
