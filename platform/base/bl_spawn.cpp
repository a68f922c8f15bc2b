#include "blcore.h"

#include "bl_process_p.h"

#include "bldebug.h"
#include "blstring.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace {

std::atomic<int> g_timeoutMs{120000};
// Between BLCORE_AbortSpawns(grace) and BLCORE_AbortSpawns(-1): the time by
// which every child waited for must have ended (steady clock ticks).
std::atomic<bool> g_abortActive{false};
std::atomic<int64_t> g_abortDeadline{0};
constexpr int kAbortSliceMs = 50;
thread_local blprocess::WaitEnd t_lastEnd = blprocess::WaitEnd::Ended;

int statusOf(int wstatus)
{
    if (WIFEXITED(wstatus))
        return WEXITSTATUS(wstatus);
    if (WIFSIGNALED(wstatus))
        return BLCORE_SPAWN_SIGNALED(WTERMSIG(wstatus));
    return BLCORE_SPAWN_FAILED;
}

int pidfdOpen(pid_t pid)
{
#ifdef SYS_pidfd_open
    return int(syscall(SYS_pidfd_open, pid, 0));
#else
    (void)pid;
    errno = ENOSYS;
    return -1;
#endif
}

} // namespace

// A plugin may fork, and its children must not outlive the host that loaded
// it: every child leads a process group of its own, and the whole group is
// ended with it. The leader is not reaped before that, so its id, which is
// the group's, cannot be taken by another process in between.
int blprocess::waitChild(pid_t pid, int timeoutMs, WaitEnd* how)
{
    if (how)
        *how = WaitEnd::Ended;
    siginfo_t info{};
    auto ended = [&](int flags) {
        info.si_pid = 0;
        int r;
        do
            r = waitid(P_PID, id_t(pid), &info, WEXITED | WNOWAIT | flags);
        while (r < 0 && errno == EINTR);
        return r == 0 && info.si_pid == pid;
    };
    if (timeoutMs > 0) {
        using Clock = std::chrono::steady_clock;
        const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
        const int fd = pidfdOpen(pid);
        // Woken every slice to see whether the application quits meanwhile.
        for (;;) {
            const bool aborted = g_abortActive.load();
            const auto end = aborted ? std::min(deadline, Clock::time_point(Clock::duration(g_abortDeadline.load())))
                                     : deadline;
            const auto now = Clock::now();
            if (now >= end) {
                kill(-pid, SIGKILL);
                if (how)
                    *how = aborted && end < deadline ? WaitEnd::Aborted : WaitEnd::TimedOut;
                break;
            }
            const int slice = int(std::min<int64_t>(
                kAbortSliceMs, std::chrono::duration_cast<std::chrono::milliseconds>(end - now).count() + 1));
            if (fd >= 0) {
                pollfd p{fd, POLLIN, 0};
                const int r = poll(&p, 1, slice);
                if (r > 0)
                    break;
            } else {
                // Kernels without pidfd: a short back-off on WNOHANG.
                if (ended(WNOHANG))
                    break;
                std::this_thread::sleep_for(std::chrono::milliseconds(std::min(slice, 2)));
            }
        }
        if (fd >= 0)
            close(fd);
    }
    ended(0);
    kill(-pid, SIGKILL);
    int wstatus = 0;
    while (waitpid(pid, &wstatus, 0) < 0) {
        if (errno != EINTR)
            return BLCORE_SPAWN_FAILED;
    }
    return statusOf(wstatus);
}

int blprocess::spawn(pid_t* pid, char** argv, const posix_spawn_file_actions_t* actions)
{
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attr, 0);
    const int err = std::strchr(argv[0], '/') ? posix_spawn(pid, argv[0], actions, &attr, argv, environ)
                                              : posix_spawnp(pid, argv[0], actions, &attr, argv, environ);
    posix_spawnattr_destroy(&attr);
    return err;
}

extern "C" int BLCORE_SetSpawnTimeout(int milliseconds) { return g_timeoutMs.exchange(milliseconds); }

extern "C" int BLCORE_LastSpawnTimedOut(void) { return t_lastEnd == blprocess::WaitEnd::TimedOut ? 1 : 0; }
extern "C" int BLCORE_LastSpawnAborted(void) { return t_lastEnd == blprocess::WaitEnd::Aborted ? 1 : 0; }

extern "C" void BLCORE_AbortSpawns(int graceMs)
{
    if (graceMs < 0) {
        g_abortActive.store(false);
        return;
    }
    // A second abort while one runs never gives more time.
    const int64_t end = (std::chrono::steady_clock::now() + std::chrono::milliseconds(graceMs)).time_since_epoch().count();
    if (!g_abortActive.load() || end < g_abortDeadline.load())
        g_abortDeadline.store(end);
    g_abortActive.store(true);
}

extern "C" int BLCORE_Spawn(const char* format, ...)
{
    if (!format)
        return -1;
    va_list ap;
    va_start(ap, format);
    char* line = nullptr;
    const int n = vasprintf(&line, format, ap);
    va_end(ap);
    if (n < 0)
        return -1;
    char** argv = BLSTRING_SplitCommandLine(line);
    if (!argv) {
        BLDEBUG_Error(-1, "BLCORE_Spawn: cannot split command line: %s", line);
        std::free(line);
        return -1;
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    pid_t pid = 0;
    const int err = blprocess::spawn(&pid, argv, &actions);
    posix_spawn_file_actions_destroy(&actions);
    int status;
    t_lastEnd = blprocess::WaitEnd::Ended;
    if (err != 0) {
        BLDEBUG_Error(-1, "BLCORE_Spawn: cannot start %s: %s", argv[0], std::strerror(err));
        status = BLCORE_SPAWN_FAILED;
    } else {
        status = blprocess::waitChild(pid, g_timeoutMs.load(), &t_lastEnd);
    }
    std::free(argv);
    std::free(line);
    return status;
}
