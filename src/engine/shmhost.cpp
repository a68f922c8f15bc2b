#include "shmhost_p.h"

#include <algorithm>
#include <climits>
#include <unistd.h>

namespace vlorshm {

namespace {

// The header of the block being served on this thread, for events.
thread_local Header* t_block = nullptr;

constexpr int kHostSliceMs = 200;

} // namespace

BlockServer::BlockServer(Process process, SetParameter setParameter, Spin spin)
    : m_process(std::move(process)), m_setParameter(std::move(setParameter)), m_spin(spin)
{
}

BlockServer::~BlockServer() { stop(); }

bool BlockServer::attach(int ownerPid, int fd, int maxSamples)
{
    stop();
    if (!m_region.attach(ownerPid, fd, maxSamples))
        return false;
    m_region.header()->hostPid.store(int32_t(getpid()));
    // Read before the library hears of us: its first ring may come before
    // the thread has run a line.
    const uint32_t seq = m_region.header()->request.seq.load();
    m_thread = std::thread([this, seq] { run(seq); });
    return true;
}

void BlockServer::stop()
{
    if (m_thread.joinable()) {
        m_region.header()->quit.store(1);
        Ring(&m_region.header()->request, m_region.header()->request.seq.load() + 1);
        m_thread.join();
    }
    m_region.release();
}

void BlockServer::applyChanges()
{
    Header* h = m_region.header();
    if (!h)
        return;
    const int n = std::min<int>(std::max<int32_t>(h->numChanges, 0), kMaxParamChanges);
    for (int k = 0; k < n; ++k)
        m_setParameter(h->changes[k].index, h->changes[k].value);
    h->numChanges = 0;
}

bool BlockServer::PostEvent(int type, int width, int height)
{
    Header* h = t_block;
    if (!h || h->numEvents < 0 || h->numEvents >= kMaxEvents)
        return t_block != nullptr;
    h->events[h->numEvents++] = Event{type, width, height};
    return true;
}

bool BlockServer::runOwn(const float* in, float* out, int channels, int frames)
{
    Header* h = m_region.header();
    Header* outer = t_block;
    t_block = h;
    h->inCall.store(1);
    const bool ok = m_process(in, out, channels, frames);
    h->inCall.store(0);
    t_block = outer;
    return ok;
}

bool BlockServer::processInPlace(float* samples, int channels, int frames)
{
    Header* h = m_region.header();
    if (!h)
        return m_process(samples, samples, channels, frames);
    applyChanges();
    h->numEvents = 0;
    return runOwn(samples, samples, channels, frames);
}

void BlockServer::run(uint32_t seq)
{
    Header* h = m_region.header();
    for (;;) {
        // The library dies with its region; our own end is a ring with quit,
        // which either side may give: any move of the sequence wakes us.
        const long spin = m_spin.forGap(h->spin.load(std::memory_order_relaxed) ? 0 : LLONG_MAX);
        const Wait w = WaitFor(&h->request, Until{seq, true}, spin, kHostSliceMs, -1, [] { return getppid() != 1; });
        if (w != Wait::Rung || h->quit.load())
            return;
        seq = h->request.seq.load(std::memory_order_acquire);
        applyChanges();
        // Read once: the numbers the library wrote are checked before use.
        const int channels = h->channels, frames = h->frames, chainLength = h->chainLength;
        bool ok = channels > 0 && frames >= 0 && (long long)channels * frames <= h->maxSamples &&
                  chainLength >= 0 && chainLength <= kMaxChain && (chainLength == 0 || m_chained);
        h->numEvents = 0;
        if (ok)
            ok = runOwn(InputOf(h), OutputOf(h), channels, frames);
        for (int k = 0; ok && k < chainLength; ++k)
            ok = m_chained(h->chain[k], OutputOf(h), channels, frames);
        h->status = ok ? kDone : kFailed;
        Ring(&h->reply, seq);
    }
}

} // namespace vlorshm
