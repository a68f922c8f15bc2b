#ifndef SHMHOST_P_H
#define SHMHOST_P_H
// The host program's side of the shared region: a thread that waits on the
// library's doorbell, runs the block through the plugin, and rings back.
// The library holds its instance's lock for a whole block, so the control
// thread and this one never run the same plugin at once.
#include "shmaudio_p.h"

#include <functional>
#include <thread>

namespace vlorshm {

// The next block comes a whole block's time later in playback, at once in a
// render: the host spins as long as a wake-up costs, while blocks come so.
constexpr long kHostSpinNs = 20000;

class BlockServer {
public:
    // In place of the plugin: process a block (1 on success), set one
    // parameter; both run on the server's thread, or on the control
    // thread through applyChanges.
    using Process = std::function<bool(const float* in, float* out, int channels, int frames)>;
    using SetParameter = std::function<void(int index, float value)>;

    // spin: how the thread waits for the next block.
    BlockServer(Process process, SetParameter setParameter, Spin spin = Spin(kHostSpinNs));
    ~BlockServer();
    BlockServer(const BlockServer&) = delete;
    BlockServer& operator=(const BlockServer&) = delete;

    // Maps the library's region and starts serving it; a region served
    // before is left first.
    bool attach(int ownerPid, int fd, int maxSamples);
    void stop();
    // Parameter changes that wait for a block: the control thread applies
    // them before any command, so that a later query sees them.
    void applyChanges();
    // A plugin's event raised during a block travels back with it; false
    // outside a block of this thread, for the pipe to carry it.
    static bool PostEvent(int type, int width, int height);

    // The rest of a chain: the output of the block through the instance at
    // each place the library named, in order, on this thread. Without one,
    // a chain fails.
    using Chained = std::function<bool(int place, float* samples, int channels, int frames)>;
    void setChained(Chained chained) { m_chained = std::move(chained); }
    // This instance's part of another's chain, in place: its waiting
    // parameter changes first, its events and blame in its own region.
    bool processInPlace(float* samples, int channels, int frames);

private:
    bool runOwn(const float* in, float* out, int channels, int frames);
    void run(uint32_t seq);

    Process m_process;
    SetParameter m_setParameter;
    Chained m_chained;
    Spin m_spin;
    Region m_region;
    std::thread m_thread;
};

} // namespace vlorshm

#endif
