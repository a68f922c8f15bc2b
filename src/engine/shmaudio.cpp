#include "shmaudio_p.h"

#include <cerrno>
#include <climits>
#include <new>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <linux/futex.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vlorshm {

namespace {

// A wake-up on another core costs 15 to 20 us here (bench_remote_audio),
// with a 99th percentile of 30 to 55 us; a ring caught by a spin, under a
// microsecond. The spin may take this share of a block's time at most.
constexpr int kSpinShareOfBlock = 16;

void* mapShared(int fd, size_t size)
{
    void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return p == MAP_FAILED ? nullptr : p;
}

} // namespace

Region::~Region() { release(); }

void Region::release()
{
    if (m_header)
        munmap(m_header, m_size);
    if (m_fd >= 0)
        close(m_fd);
    m_header = nullptr;
    m_size = 0;
    m_fd = -1;
}

bool Region::create(int maxSamples)
{
    release();
    if (maxSamples <= 0 || maxSamples > kMaxSamples)
        return false;
    const size_t size = RegionSize(maxSamples);
    const int fd = int(syscall(SYS_memfd_create, "vlor-audio", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (fd < 0)
        return false;
    void* p = nullptr;
    if (ftruncate(fd, off_t(size)) != 0 ||
        fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0 || !(p = mapShared(fd, size))) {
        close(fd);
        return false;
    }
    m_fd = fd;
    m_size = size;
    m_header = new (p) Header();
    m_header->magic = kMagic;
    m_header->version = kVersion;
    m_header->size = size;
    m_header->maxSamples = maxSamples;
    return true;
}

bool Region::attach(int ownerPid, int fd, int maxSamples)
{
    release();
    if (ownerPid <= 0 || fd < 0 || maxSamples <= 0 || maxSamples > kMaxSamples)
        return false;
    char path[64];
    std::snprintf(path, sizeof(path), "/proc/%d/fd/%d", ownerPid, fd);
    const int own = open(path, O_RDWR | O_CLOEXEC);
    if (own < 0)
        return false;
    const size_t size = RegionSize(maxSamples);
    struct stat st {};
    const int seals = fcntl(own, F_GET_SEALS);
    // Unsealed, the owner could shrink it under our feet: every touch of
    // the lost pages would end us with SIGBUS.
    void* p = nullptr;
    if (seals < 0 || !(seals & F_SEAL_SHRINK) || fstat(own, &st) != 0 || size_t(st.st_size) < size ||
        !(p = mapShared(own, size))) {
        close(own);
        return false;
    }
    auto* h = static_cast<Header*>(p);
    if (h->magic != kMagic || h->version != kVersion || h->maxSamples != maxSamples || h->size != size) {
        munmap(p, size);
        close(own);
        return false;
    }
    m_fd = own;
    m_size = size;
    m_header = h;
    return true;
}

void FutexWake(std::atomic<uint32_t>* word)
{
    syscall(SYS_futex, reinterpret_cast<uint32_t*>(word), FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

bool FutexWait(std::atomic<uint32_t>* word, uint32_t value, int timeoutMs)
{
    timespec ts{timeoutMs / 1000, long(timeoutMs % 1000) * 1000000};
    const long r = syscall(SYS_futex, reinterpret_cast<uint32_t*>(word), FUTEX_WAIT, value, &ts, nullptr, 0);
    return r == 0 || errno != ETIMEDOUT;
}

void Ring(Doorbell* bell, uint32_t seq)
{
    bell->seq.store(seq, std::memory_order_seq_cst);
    if (bell->sleeping.load(std::memory_order_seq_cst))
        FutexWake(&bell->seq);
}

long long NowNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (long long)ts.tv_sec * 1000000000LL + ts.tv_nsec;
}

long SpinBudgetNs(int frames, int sampleRate)
{
    if (frames <= 0 || sampleRate <= 0)
        return 0;
    const long block = long((long long)frames * 1000000000LL / sampleRate);
    return block / kSpinShareOfBlock;
}

PeerWatch::~PeerWatch() { reset(); }

void PeerWatch::reset()
{
    if (m_pidfd >= 0)
        close(m_pidfd);
    m_pidfd = -1;
    m_pid = 0;
}

bool PeerWatch::watch(int pid)
{
    reset();
    if (pid <= 0)
        return false;
    m_pid = pid;
    m_pidfd = int(syscall(SYS_pidfd_open, pid, 0));
    // Without pidfds (kernels before 5.3) the process id alone: a zombie
    // still answers it, which the slower read timeout then catches.
    return m_pidfd >= 0 || kill(pid, 0) == 0;
}

bool PeerWatch::alive() const
{
    if (m_pidfd >= 0) {
        pollfd p{m_pidfd, POLLIN, 0};
        return poll(&p, 1, 0) == 0;
    }
    return m_pid > 0 && kill(m_pid, 0) == 0;
}

} // namespace vlorshm
