// The command line's termination signals (SIGINT, SIGTERM, SIGHUP). They are
// taken by a thread of their own with sigwait, never by a handler, so that the
// work done on them (quitting the offices, removing their profiles) may use
// locks and the file system. After the hooks have run, the program ends with
// the signal it was sent, as it would have without them.
#pragma once

#include <functional>

namespace tabulon::cli {

// Blocks the termination signals that are not ignored in the calling thread
// (and so in every thread started after it) and starts the thread that waits
// for them. Call first thing in main, before any other thread exists.
void StartSignalThread();

// Work to do on a termination signal, on the signal thread, before the
// program ends; hooks run in the reverse order of adding. The main thread
// goes on meanwhile: a hook must be safe beside whatever it is doing.
void AddTerminationHook(std::function<void()> hook);

}  // namespace tabulon::cli
