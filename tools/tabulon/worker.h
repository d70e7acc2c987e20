// A worker: a process of its own (`tabulon __worker`) that keeps one warm
// control and runs the command lines it is handed, one at a time, on the
// standard streams that come with each (see requests.h). Started by the
// server for its pool and by `convert -j` for its files; it ends with its
// parent, and with its office, whatever ends it.
#pragma once

#include <sys/types.h>

namespace tabulon::cli {

// The descriptor a worker's channel to its parent has.
inline constexpr int kWorkerChannelFd = 3;

// The worker's loop on `channel`: says when its office is warm, then runs
// each request and answers with how it ended, until the parent closes the
// channel. `parent` is the process that started it; the worker ends when
// that process does. Returns the exit status.
int RunWorker(int channel, pid_t parent);

// True inside a worker, where commands that would start workers of their
// own (convert) run on this worker's office instead, unless told otherwise.
bool InWorker();

// The memory (resident, in kB) of the offices this process started: every
// process in the process groups of its office children.
long OfficeMemoryKb();

}  // namespace tabulon::cli
