#include "signals.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace tabulon::cli {

namespace {

std::mutex hooks_mutex;
std::atomic<bool> terminating{false};

// Once a termination signal is being handled, the program ends by that
// signal, never by a normal exit: the main thread, which may find its work
// failing meanwhile (its office is being killed), waits here for the signal
// thread to finish.
void WaitForTheSignalOnExit() {
  if (!terminating.load()) return;
  for (;;) pause();
}

std::vector<std::function<void()>>& Hooks() {
  static auto* hooks = new std::vector<std::function<void()>>();  // used until the very end
  return *hooks;
}

void WaitForSignals(sigset_t set) {
  int signal_number = 0;
  while (sigwait(&set, &signal_number) != 0) {
  }
  terminating = true;
  std::vector<std::function<void()>> hooks;
  {
    std::lock_guard<std::mutex> lock(hooks_mutex);
    hooks = Hooks();
  }
  for (auto it = hooks.rbegin(); it != hooks.rend(); ++it) (*it)();
  // End the way the signal would have ended the program: default action,
  // delivered to this thread, the only one where it is not blocked.
  struct sigaction default_action {};
  default_action.sa_handler = SIG_DFL;
  sigemptyset(&default_action.sa_mask);
  sigaction(signal_number, &default_action, nullptr);
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, signal_number);
  pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
  raise(signal_number);
}

}  // namespace

void StartSignalThread() {
  sigset_t set;
  sigemptyset(&set);
  for (int signal_number : {SIGINT, SIGTERM, SIGHUP}) {
    // A signal the program was started with ignored (nohup, a background
    // job) stays ignored.
    struct sigaction current {};
    if (sigaction(signal_number, nullptr, &current) == 0 && current.sa_handler == SIG_IGN) continue;
    sigaddset(&set, signal_number);
  }
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  std::atexit(WaitForTheSignalOnExit);
  std::thread(WaitForSignals, set).detach();
}

void AddTerminationHook(std::function<void()> hook) {
  std::lock_guard<std::mutex> lock(hooks_mutex);
  Hooks().push_back(std::move(hook));
}

}  // namespace tabulon::cli
