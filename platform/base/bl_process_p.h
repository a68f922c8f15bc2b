// What the two ways of starting a child share.
#pragma once

#include <spawn.h>
#include <sys/types.h>

namespace blprocess {

// Starts argv[0] (searched on PATH when it holds no '/') as the leader of a
// process group of its own; 0 on success, or the error.
int spawn(pid_t* pid, char** argv, const posix_spawn_file_actions_t* actions);
// Waits up to timeoutMs (<= 0: for ever) and reaps; kills the child when the
// time is up, and whatever is left of its process group in any case. The
// exit status, 128 + N for signal N.
enum class WaitEnd { Ended, TimedOut, Aborted };
int waitChild(pid_t pid, int timeoutMs, WaitEnd* how = nullptr);

} // namespace blprocess
