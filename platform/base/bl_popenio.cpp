#include "blpopenio.h"

#include "bl_process_p.h"
#include "bldebug.h"
#include "blstring.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

struct BLPOpenIORec {
    pid_t pid = 0;
    int toChild = -1;   // its standard input
    int fromChild = -1; // its standard output
};

namespace {

constexpr int kWriteTimeoutMs = 5000;
// Audio blocks of a few thousand stereo frames go in one write.
constexpr int kPipeSize = 1 << 20;

void closeFd(int& fd)
{
    if (fd >= 0)
        close(fd);
    fd = -1;
}

// Waits for fd to be ready; 1 ready, 0 time out, -1 error.
int waitFd(int fd, short events, int timeoutMs)
{
    pollfd p{fd, events, 0};
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        int left = -1;
        if (timeoutMs >= 0) {
            left = int(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now())
                           .count());
            if (left < 0)
                left = 0;
        }
        const int r = poll(&p, 1, left);
        if (r > 0)
            return 1;
        if (r == 0)
            return 0;
        if (errno != EINTR)
            return -1;
    }
}

// A write to a child that is gone raises SIGPIPE; it is blocked for this
// thread and any pending one consumed, so the editor never sees it.
class SigpipeGuard {
public:
    SigpipeGuard()
    {
        sigset_t pipeSet;
        sigemptyset(&pipeSet);
        sigaddset(&pipeSet, SIGPIPE);
        sigpending(&m_pending);
        m_wasPending = sigismember(&m_pending, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipeSet, &m_old);
    }
    ~SigpipeGuard()
    {
        if (!m_wasPending) {
            sigset_t pipeSet;
            sigemptyset(&pipeSet);
            sigaddset(&pipeSet, SIGPIPE);
            const timespec zero{0, 0};
            while (sigtimedwait(&pipeSet, nullptr, &zero) > 0) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &m_old, nullptr);
    }

private:
    sigset_t m_old;
    sigset_t m_pending;
    bool m_wasPending = false;
};

} // namespace

extern "C" BLPOpenIO BLPOPENIO_Create(const char* mode, const char* command)
{
    if (!mode || !command)
        return nullptr;
    const bool writable = std::strchr(mode, 'w') != nullptr;
    char** argv = BLSTRING_SplitCommandLine(command);
    if (!argv) {
        BLDEBUG_Error(-1, "BLPOPENIO_Create: cannot split command line: %s", command);
        return nullptr;
    }
    int in[2] = {-1, -1}, out[2] = {-1, -1};
    if ((writable && pipe2(in, O_CLOEXEC) != 0) || pipe2(out, O_CLOEXEC) != 0) {
        closeFd(in[0]);
        closeFd(in[1]);
        std::free(argv);
        return nullptr;
    }
    fcntl(out[0], F_SETPIPE_SZ, kPipeSize);
    if (writable)
        fcntl(in[1], F_SETPIPE_SZ, kPipeSize);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (writable)
        posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    else
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    pid_t pid = 0;
    const int err = blprocess::spawn(&pid, argv, &actions);
    posix_spawn_file_actions_destroy(&actions);
    closeFd(in[0]);
    closeFd(out[1]);
    if (err != 0) {
        BLDEBUG_Error(-1, "BLPOPENIO_Create: cannot start %s: %s", argv[0], std::strerror(err));
        closeFd(in[1]);
        closeFd(out[0]);
        std::free(argv);
        return nullptr;
    }
    std::free(argv);
    auto* io = new BLPOpenIORec;
    io->pid = pid;
    io->toChild = in[1];
    io->fromChild = out[0];
    return io;
}

extern "C" int BLPOPENIO_ReadDataEx(BLPOpenIO io, void* buffer, int size, int timeoutMs)
{
    if (!io || !buffer || size <= 0 || io->fromChild < 0)
        return -1;
    const int ready = waitFd(io->fromChild, POLLIN, timeoutMs);
    if (ready <= 0)
        return -1;
    ssize_t n;
    do
        n = read(io->fromChild, buffer, size_t(size));
    while (n < 0 && errno == EINTR);
    return n < 0 ? -1 : int(n);
}

extern "C" int BLPOPENIO_WriteData(BLPOpenIO io, const void* buffer, int size)
{
    if (!io || !buffer || size < 0 || io->toChild < 0)
        return -1;
    SigpipeGuard guard;
    const char* p = static_cast<const char*>(buffer);
    int left = size;
    while (left > 0) {
        ssize_t n = write(io->toChild, p, size_t(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && errno == EAGAIN)
            n = 0;
        if (n < 0)
            return -1;
        p += n;
        left -= int(n);
        if (left > 0 && waitFd(io->toChild, POLLOUT, kWriteTimeoutMs) <= 0)
            return -1;
    }
    return size;
}

extern "C" int BLPOPENIO_GetBytesReadAvailable(BLPOpenIO io)
{
    if (!io || io->fromChild < 0)
        return -1;
    int n = 0;
    return ioctl(io->fromChild, FIONREAD, &n) == 0 ? n : -1;
}

extern "C" int BLPOPENIO_CloseEx(BLPOpenIO io, int wait, int timeoutMs)
{
    if (!io)
        return -1;
    // The child sees the end of its input first: a well-behaved one ends by itself.
    closeFd(io->toChild);
    closeFd(io->fromChild);
    if (!wait)
        kill(io->pid, SIGKILL);
    const int status = blprocess::waitChild(io->pid, wait ? (timeoutMs > 0 ? timeoutMs : 1) : 0);
    delete io;
    return status;
}

extern "C" int BLPOPENIO_GetPid(BLPOpenIO io) { return io ? int(io->pid) : 0; }
