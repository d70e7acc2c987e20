// One soffice.bin process of our own: its profile folder, its pipe name, its
// process group. Plain POSIX (and sal's digest for the office's pipe names).
//
// Everything an office leaves on disk lives in its profile folder (its own
// temporary folder included) or in the pipe files named after it, and goes
// with it. Profile folders are named after the owner process (pid and start
// time), so that the folders of a program that was killed outright are
// recognised and swept by the next program that starts an office.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace tabulon::office::uno {

// The office's program folder for a configured value: the folder itself, or
// the path of soffice / soffice.bin in it. An empty value means the
// environment variable TABULON_OFFICE, else /usr/lib/libreoffice/program.
std::string ResolveProgramDir(const std::string& configured);

// The locale the office runs under: en_US.UTF-8 when this system has it,
// else C.UTF-8 (number formats and filters still get en-US explicitly).
const std::string& OfficeLocale();

// Blocks SIGPIPE on the calling thread for its lifetime; threads started
// meanwhile (the bridge's) keep it blocked for good. A SIGPIPE raised on this
// thread meanwhile is discarded.
class SigpipeBlock {
 public:
  SigpipeBlock();
  ~SigpipeBlock();
  SigpipeBlock(const SigpipeBlock&) = delete;
  SigpipeBlock& operator=(const SigpipeBlock&) = delete;

 private:
  sigset_t previous_;
  bool was_pending_ = false;
};

class OfficeProcess {
 public:
  // Creates a fresh profile folder and a unique pipe name; starts nothing.
  explicit OfficeProcess(std::string program_dir);
  ~OfficeProcess();  // kills the process group if still running, removes the profile
  OfficeProcess(const OfficeProcess&) = delete;
  OfficeProcess& operator=(const OfficeProcess&) = delete;

  // Makes the profile ready: a copy of the prepared profile of the profile
  // cache (profile_cache.h) when the cache can be used, else a fresh one set
  // up here by the office's first start on it, which exits (asking to be
  // started again, code 81). That start has no accepting pipe, so that no
  // connection is ever made to an office that is about to restart. Waits at
  // most `limit`.
  bool Prepare(std::chrono::milliseconds limit, std::string* reason);

  // Sets up a new profile in `dir` (Tabulon's settings, then the office's
  // first start) without taking the folder over: it stays when the office
  // has exited, its pipe files do not. For the profile cache.
  static bool PrepareFreshProfile(const std::string& program_dir, const std::string& dir,
                                  std::chrono::milliseconds limit, std::string* reason);

  // Starts soffice.bin in its own process group. Returns false (with a
  // reason) when it cannot be started at all.
  bool Spawn(std::string* reason);

  // Non-blocking check; reaps the process when it has exited.
  bool Running();
  // Exit code once reaped (-1 while running or killed by a signal).
  int ExitCode() const { return exit_code_; }
  bool Reaped() const { return reaped_; }
  // How it ended, for messages: "exited with code 81", "was killed by
  // signal 9 (Killed)".
  std::string EndText() const;

  // Waits up to `limit` for the process to exit by itself.
  bool WaitExit(std::chrono::milliseconds limit);
  // SIGKILL to the whole process group, then reaps. Safe to call repeatedly
  // and from another thread than the one that reaps (it never reaps).
  void KillGroup();
  // Kills (if needed), reaps, and removes the profile folder and the pipe
  // files. Safe from any thread (KillEveryOffice calls it from a
  // signal-handling thread while the owner may still use the process).
  void Finish();

  pid_t pid() const { return pid_; }
  // True once Prepare gave this office a copy of the prepared profile.
  bool ProfileFromCache() const { return profile_from_cache_; }
  const std::string& pipe_name() const { return pipe_name_; }
  std::string profile_dir();
  const std::string& program_dir() const { return program_dir_; }

 private:
  struct BorrowedFolder {};
  OfficeProcess(std::string program_dir, std::string profile_dir, BorrowedFolder);
  bool FirstStart(std::chrono::milliseconds limit, std::string* reason);
  pid_t Start(const std::vector<std::string>& args, std::string* reason);
  std::string program_dir_;
  std::string profile_dir_;
  std::string pipe_name_;
  bool owns_profile_ = true;  // removed by Finish
  bool profile_from_cache_ = false;
  std::mutex mutex_;  // reaping and killing never race (no kill after reap)
  pid_t pid_ = -1;
  bool reaped_ = true;
  int exit_code_ = -1;
  int term_signal_ = 0;
};

// Kills every office process of this program and removes what they left on
// disk. For the paths that end the program at once (a termination signal).
void KillEveryOffice();

// Removes the profile folders and pipe files of offices whose owner process
// is gone (killed before it could clean up). Runs once per program, before
// its first office starts; the folders of live programs are never touched.
void SweepAbandonedProfiles();

// "<pid>-<start time>-": what names the folders of this program, so that
// the next program can tell whether their owner is gone.
const std::string& ProgramOwnerTag();
// True when `tail` starts with the owner tag of a program that has ended;
// false for a live owner or a name that is not an owner tag.
bool OwnedByEndedProgram(const std::string& tail);

// The pipe files an office leaves in the system's pipe folders (/tmp, else
// /var/tmp): its accepting pipe (named `pipe_name`, which may be empty) and
// the single-instance pipe named after its profile folder. The office puts
// them there whatever its temporary folder is.
std::vector<std::string> OfficePipeFiles(const std::string& pipe_name, const std::string& profile_dir);
// Removes the single-instance pipe file of an office on `profile_dir`.
void RemoveProfilePipeFiles(const std::string& profile_dir);

// How many times an office was started to set up a new profile (in the
// profile cache or for one office), for tests and benchmarks.
int32_t FirstStartRuns();

}  // namespace tabulon::office::uno
