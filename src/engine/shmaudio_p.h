#ifndef SHMAUDIO_P_H
#define SHMAUDIO_P_H
// Audio between the library and a host program through one shared region:
// the block, the parameter changes made for it and the plugin's events of it
// stay in memory both sides map, and a doorbell each way (a futex word in the
// region) says whose turn it is. The pipe keeps the control messages.
//
// The library creates the region (a sealed memfd: the host can neither grow
// nor shrink it, so a mapping never faults) and names it to the host by its
// own process id and descriptor number; the host opens it through /proc.
#include <atomic>
#include <sched.h>
#include <cstddef>
#include <cstdint>

namespace vlorshm {

constexpr uint32_t kMagic = 0x4d485356; // "VSHM"
constexpr uint32_t kVersion = 1;
constexpr int kMaxParamChanges = 128;
constexpr int kMaxEvents = 16;
// The most instances of one group a block may run through after the first.
constexpr int kMaxChain = 15;
// The most samples each way one region carries: 8 channels of 16384 frames.
constexpr int kMaxSamples = 8 * 16384;

struct ParamChange {
    int32_t index;
    float value;
};

struct Event {
    int32_t type, width, height;
};

// One side's doorbell: a sequence the other side waits on, and whether that
// side sleeps in the kernel (so that a ring costs a system call only then).
struct alignas(64) Doorbell {
    std::atomic<uint32_t> seq;
    std::atomic<uint32_t> sleeping;
};

enum Status : int32_t { kFailed = 0, kDone = 1 };

struct alignas(64) Header {
    uint32_t magic;
    uint32_t version;
    uint64_t size;
    int32_t maxSamples;
    std::atomic<int32_t> hostPid; // written by the host once it mapped the region
    std::atomic<int32_t> quit;    // the library leaves: the host's audio thread ends
    std::atomic<int32_t> spin;    // the library's blocks come back to back: spin for the next
    std::atomic<int32_t> inCall;  // the host is inside this instance's plugin: the one to blame
    Doorbell request;             // library to host: a block is ready
    Doorbell reply;               // host to library: the block is done
    // The block: filled by the library before it rings.
    int32_t channels;
    int32_t frames;
    int32_t numChanges;
    ParamChange changes[kMaxParamChanges];
    // The places in the host's group of the instances the output goes
    // through next, in order, in the same round trip.
    int32_t chainLength;
    int32_t chain[kMaxChain];
    // The answer: filled by the host before it rings.
    int32_t status;
    int32_t numEvents;
    Event events[kMaxEvents];
};

static_assert(std::atomic<uint32_t>::is_always_lock_free, "a futex word must be a plain word");

inline size_t RegionSize(int maxSamples)
{
    return (sizeof(Header) + 2 * size_t(maxSamples) * sizeof(float) + 4095) & ~size_t(4095);
}

inline float* InputOf(Header* h) { return reinterpret_cast<float*>(h + 1); }
inline float* OutputOf(Header* h) { return InputOf(h) + h->maxSamples; }

// A mapped region, owned: unmapped and closed by its destructor.
class Region {
public:
    Region() = default;
    ~Region();
    Region(const Region&) = delete;
    Region& operator=(const Region&) = delete;

    // The library's side: a new sealed region for maxSamples each way.
    bool create(int maxSamples);
    // The host's side: the region another process holds as descriptor fd.
    // Refuses one that is not sealed against shrinking, is smaller than its
    // header says, or does not carry our magic and version.
    bool attach(int ownerPid, int fd, int maxSamples);
    void release();

    Header* header() const { return m_header; }
    int fd() const { return m_fd; }
    explicit operator bool() const { return m_header != nullptr; }

private:
    Header* m_header = nullptr;
    size_t m_size = 0;
    int m_fd = -1;
};

// A ring: the sequence moves on, and a sleeper is woken.
void Ring(Doorbell* bell, uint32_t seq);

// What a wait came to.
enum class Wait { Rung, TimedOut, PeerGone };

// Waits until bell's sequence is seq (or, with changed, until it is no
// longer seq): spins up to spinNs, then sleeps in slices of sliceMs; after
// each slice alive() is asked (a peer that died is seen within a slice) and
// the wait gives up at timeoutMs (< 0: never).
struct Until {
    uint32_t seq;
    bool changed;
    bool met(uint32_t now) const { return changed ? now != seq : now == seq; }
};
template <typename Alive>
Wait WaitFor(Doorbell* bell, Until until, long spinNs, int sliceMs, int timeoutMs, Alive&& alive);

// The longest spin, in nanoseconds, for a block of frames at rate: a
// small share of the block's time.
long SpinBudgetNs(int frames, int sampleRate);

// Whether a wait spins first. Spinning pays when the other side answers
// within the spin: blocks back to back, as in a render (a round trip of half
// a microsecond against 15 for two wake-ups), or a plugin's work on a large
// block. Between blocks of playback a spinning host would only burn a core,
// and a library that always spun tripled the paced round trip on two cores.
// Only the library can tell the cases apart without a wake-up in the figure:
// the time its caller took since the last answer. It spins while that was
// shorter than the spin, and asks the host to do the same.
class Spin {
public:
    enum Policy { Never, Always, BackToBack };
    explicit Spin(long budgetNs = 0, Policy policy = BackToBack) : m_budget(budgetNs), m_policy(policy) {}
    void setBudget(long budgetNs) { m_budget = budgetNs; }
    // gapNs: the caller's time since the last answer (the library), or
    // whether the library asked for a spin (the host: 0 yes, else no).
    long forGap(long long gapNs) const
    {
        return m_policy == Always || (m_policy == BackToBack && gapNs <= m_budget) ? m_budget : 0;
    }

private:
    long m_budget;
    Policy m_policy;
};

// A watch on another process: gone once it has ended, whatever its state.
class PeerWatch {
public:
    PeerWatch() = default;
    ~PeerWatch();
    PeerWatch(const PeerWatch&) = delete;
    PeerWatch& operator=(const PeerWatch&) = delete;
    bool watch(int pid);
    void reset();
    bool alive() const;

private:
    int m_pidfd = -1;
    int m_pid = 0;
};

// The futex calls behind the doorbell.
void FutexWake(std::atomic<uint32_t>* word);
// Sleeps while word holds value, at most timeoutMs; false on a timeout.
bool FutexWait(std::atomic<uint32_t>* word, uint32_t value, int timeoutMs);
long long NowNs();
constexpr long kPauseSpinNs = 5000;

inline void CpuRelax()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

template <typename Alive>
Wait WaitFor(Doorbell* bell, Until until, long spinNs, int sliceMs, int timeoutMs, Alive&& alive)
{
    const long long start = NowNs();
    while (!until.met(bell->seq.load(std::memory_order_acquire))) {
        const long long spun = NowNs() - start;
        if (spun >= spinNs)
            break;
        // Past a wake-up's worth, the spin yields: the side it waits for
        // may have been woken onto this very core.
        if (spun < kPauseSpinNs)
            CpuRelax();
        else
            sched_yield();
    }
    for (;;) {
        if (until.met(bell->seq.load(std::memory_order_acquire)))
            return Wait::Rung;
        bell->sleeping.store(1, std::memory_order_seq_cst);
        const uint32_t now = bell->seq.load(std::memory_order_seq_cst);
        const bool woken = !until.met(now) && FutexWait(&bell->seq, now, sliceMs);
        bell->sleeping.store(0, std::memory_order_relaxed);
        if (until.met(bell->seq.load(std::memory_order_acquire)))
            return Wait::Rung;
        if (!woken) {
            if (!alive())
                return Wait::PeerGone;
            if (timeoutMs >= 0 && NowNs() - start >= (long long)timeoutMs * 1000000)
                return Wait::TimedOut;
        }
    }
}

} // namespace vlorshm

#endif
