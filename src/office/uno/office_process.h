// One soffice.bin process of our own: its profile folder, its pipe name, its
// process group. Plain POSIX; no UNO here.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <mutex>
#include <string>

namespace tabulon::office::uno {

// The office's program folder for a configured value: the folder itself, or
// the path of soffice / soffice.bin in it. An empty value means the
// environment variable TABULON_OFFICE, else /usr/lib/libreoffice/program.
std::string ResolveProgramDir(const std::string& configured);

// The locale the office runs under: en_US.UTF-8 when this system has it,
// else C.UTF-8 (number formats and filters still get en-US explicitly).
const std::string& OfficeLocale();

class OfficeProcess {
 public:
  // Creates a fresh profile folder and a unique pipe name; starts nothing.
  explicit OfficeProcess(std::string program_dir);
  ~OfficeProcess();  // kills the process group if still running, removes the profile
  OfficeProcess(const OfficeProcess&) = delete;
  OfficeProcess& operator=(const OfficeProcess&) = delete;

  // Starts soffice.bin in its own process group. Returns false (with a
  // reason) when it cannot be started at all.
  bool Spawn(std::string* reason);

  // Non-blocking check; reaps the process when it has exited.
  bool Running();
  // Exit code once reaped (-1 while running or killed by a signal).
  int ExitCode() const { return exit_code_; }
  bool Reaped() const { return reaped_; }

  // Waits up to `limit` for the process to exit by itself.
  bool WaitExit(std::chrono::milliseconds limit);
  // SIGKILL to the whole process group, then reaps. Safe to call repeatedly
  // and from another thread than the one that reaps (it never reaps).
  void KillGroup();
  // Kills (if needed), reaps, and removes the profile folder.
  void Finish();

  pid_t pid() const { return pid_; }
  const std::string& pipe_name() const { return pipe_name_; }
  const std::string& profile_dir() const { return profile_dir_; }
  const std::string& program_dir() const { return program_dir_; }

 private:
  bool WriteSettings(std::string* reason) const;
  std::string program_dir_;
  std::string profile_dir_;
  std::string pipe_name_;
  std::mutex mutex_;  // reaping and killing never race (no kill after reap)
  pid_t pid_ = -1;
  bool reaped_ = true;
  int exit_code_ = -1;
};

}  // namespace tabulon::office::uno
