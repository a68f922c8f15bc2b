#include "blpopenio.h"

#include "bl_process_p.h"
#include "bldebug.h"
#include "blstring.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

// "rw" children get one end of a socket pair as both standard input and
// output: a send can refuse to raise SIGPIPE by itself, and a read can try
// first without waiting, which keeps a round trip at the fewest system calls.
struct BLPOpenIORec {
    pid_t pid = 0;
    int toChild = -1;   // its standard input (the socket in "rw" mode)
    int fromChild = -1; // its standard output (the same socket in "rw" mode)
    bool socket = false;
    // Read ahead: one system call takes a whole answer, which the protocol
    // then reads in small pieces.
    std::vector<char> ahead;
    size_t aheadPos = 0;
    size_t aheadEnd = 0;
};

namespace {

constexpr int kWriteTimeoutMs = 5000;
constexpr int kReadAhead = 1 << 16;
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
    int ends[2] = {-1, -1}; // [0] ours, [1] the child's
    const bool made = writable ? socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0
                               : pipe2(ends, O_CLOEXEC) == 0;
    if (!made) {
        std::free(argv);
        return nullptr;
    }
    if (writable) {
        setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &kPipeSize, sizeof(kPipeSize));
        setsockopt(ends[0], SOL_SOCKET, SO_RCVBUF, &kPipeSize, sizeof(kPipeSize));
        setsockopt(ends[1], SOL_SOCKET, SO_SNDBUF, &kPipeSize, sizeof(kPipeSize));
        setsockopt(ends[1], SOL_SOCKET, SO_RCVBUF, &kPipeSize, sizeof(kPipeSize));
    } else {
        fcntl(ends[0], F_SETPIPE_SZ, kPipeSize);
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (writable)
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDIN_FILENO);
    else
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    pid_t pid = 0;
    const int err = blprocess::spawn(&pid, argv, &actions);
    posix_spawn_file_actions_destroy(&actions);
    closeFd(ends[1]);
    if (err != 0) {
        BLDEBUG_Error(-1, "BLPOPENIO_Create: cannot start %s: %s", argv[0], std::strerror(err));
        closeFd(ends[0]);
        std::free(argv);
        return nullptr;
    }
    std::free(argv);
    auto* io = new BLPOpenIORec;
    io->pid = pid;
    io->fromChild = ends[0];
    io->toChild = writable ? ends[0] : -1;
    io->socket = writable;
    return io;
}

extern "C" int BLPOPENIO_ReadDataEx(BLPOpenIO io, void* buffer, int size, int timeoutMs)
{
    if (!io || !buffer || size <= 0 || io->fromChild < 0)
        return -1;
    const int fd = io->fromChild;
    if (!io->socket) {
        if (waitFd(fd, POLLIN, timeoutMs) <= 0)
            return -1;
        ssize_t n;
        do
            n = read(fd, buffer, size_t(size));
        while (n < 0 && errno == EINTR);
        return n < 0 ? -1 : int(n);
    }
    if (io->aheadPos < io->aheadEnd) {
        const size_t n = std::min(size_t(size), io->aheadEnd - io->aheadPos);
        std::memcpy(buffer, io->ahead.data() + io->aheadPos, n);
        io->aheadPos += n;
        return int(n);
    }
    // What is already there is taken at once; only an empty socket waits.
    // Small reads fill the read-ahead buffer; large ones go straight to the caller.
    const bool viaAhead = size < kReadAhead;
    if (viaAhead && io->ahead.empty())
        io->ahead.resize(kReadAhead);
    for (;;) {
        const ssize_t n = viaAhead ? recv(fd, io->ahead.data(), io->ahead.size(), MSG_DONTWAIT)
                                   : recv(fd, buffer, size_t(size), MSG_DONTWAIT);
        if (n >= 0 && viaAhead) {
            const size_t take = std::min(size_t(n), size_t(size));
            std::memcpy(buffer, io->ahead.data(), take);
            io->aheadPos = take;
            io->aheadEnd = size_t(n);
            return int(take);
        }
        if (n >= 0)
            return int(n);
        if (errno == EINTR)
            continue;
        if ((errno != EAGAIN && errno != EWOULDBLOCK) || waitFd(fd, POLLIN, timeoutMs) <= 0)
            return -1;
    }
}

extern "C" int BLPOPENIO_WriteData(BLPOpenIO io, const void* buffer, int size)
{
    if (!io || !buffer || size < 0 || io->toChild < 0)
        return -1;
    const char* p = static_cast<const char*>(buffer);
    int left = size;
    while (left > 0) {
        ssize_t n = send(io->toChild, p, size_t(left), MSG_NOSIGNAL | MSG_DONTWAIT);
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
    if (ioctl(io->fromChild, FIONREAD, &n) != 0)
        return -1;
    return n + int(io->aheadEnd - io->aheadPos);
}

extern "C" int BLPOPENIO_CloseEx(BLPOpenIO io, int wait, int timeoutMs)
{
    if (!io)
        return -1;
    // The child sees the end of its input first: a well-behaved one ends by itself.
    if (io->socket)
        shutdown(io->toChild, SHUT_WR);
    io->toChild = -1;
    closeFd(io->fromChild);
    if (!wait)
        kill(-io->pid, SIGKILL);
    const int status = blprocess::waitChild(io->pid, wait ? (timeoutMs > 0 ? timeoutMs : 1) : 0);
    delete io;
    return status;
}

extern "C" int BLPOPENIO_GetPid(BLPOpenIO io) { return io ? int(io->pid) : 0; }
