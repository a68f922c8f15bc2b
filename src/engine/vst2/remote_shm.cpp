// "aud " without the pipe: the block goes through a region both processes
// map, and a doorbell each way wakes the other side. The pipe stays for the
// control messages and for any block the region cannot take.
#include "remote_ops_p.h"

#include "../shmaudio_p.h"

#include "blsettings.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <unistd.h>

namespace vlorvst_remote {

namespace {

// 1 shared, 0 the pipe, -1 as the user's setting says.
std::atomic<int> g_sharedAudio{-1};
constexpr const char* kSettingKey = "vloraudio.plugins.remote_audio";

bool sharedAudioWanted()
{
    const int forced = g_sharedAudio.load();
    if (forced >= 0)
        return forced == 1;
    char value[32] = {};
    BLSETTINGS_GetStringEx(nullptr, value, int(sizeof(value)), "%s=[shared_memory]", kSettingKey);
    return std::strcmp(value, "pipe") != 0;
}

// A block's answer may take the plugin's whole processing time: the doorbell
// is given as long as the pipe's read, and the host's life is looked at
// every slice, so that a host killed in a block is seen within one.
constexpr int kReplyTimeoutMs = 5000;
constexpr int kSliceMs = 5;
// Enough for the channels of any effect the editor runs.
constexpr int kRegionChannels = 8;

} // namespace

struct ShmLink {
    vlorshm::Region region;
    vlorshm::PeerWatch host;
    uint32_t seq = 0;
    bool broken = false;
    vlorshm::Spin spin;
    long long answeredAt = 0; // when the last block came back
    int numParams = 0;
};

bool shmAttach(RemoteInstance* r, int blockSize, int sampleRate)
{
    if (blockSize <= 0 || !sharedAudioWanted())
        return false;
    const int samples = std::min(vlorshm::kMaxSamples, std::max(blockSize, 64) * kRegionChannels);
    if (r->shm && !r->shm->broken && r->shm->region.header()->maxSamples >= samples) {
        r->shm->spin.setBudget(vlorshm::SpinBudgetNs(blockSize, sampleRate));
        return true;
    }
    shmLeave(r);
    auto* link = new ShmLink;
    int32_t numParams = 0;
    const bool ok = link->region.create(samples) &&
                    request(r, Message(VLORVST_SHM_ATTACH).i32(int32_t(getpid())).i32(link->region.fd()).i32(samples)) &&
                    vlorvstRecvIntValue(r->io, &numParams) && numParams >= 0 &&
                    link->host.watch(link->region.header()->hostPid.load());
    if (!ok) {
        delete link;
        return false;
    }
    link->numParams = numParams;
    link->spin.setBudget(vlorshm::SpinBudgetNs(blockSize, sampleRate));
    r->shm = link;
    return true;
}

// The host's audio thread is told to end; the region goes with the link.
void shmLeave(RemoteInstance* r)
{
    ShmLink* link = r->shm;
    if (!link)
        return;
    r->shm = nullptr;
    vlorshm::Header* h = link->region.header();
    h->quit.store(1);
    vlorshm::Ring(&h->request, ++link->seq);
    delete link;
}

void shmFree(RemoteInstance* r)
{
    delete r->shm;
    r->shm = nullptr;
}

int shmProcess(RemoteInstance* r, const float* in, float* out, int channels, int frames)
{
    ShmLink* link = r->shm;
    if (!link)
        return -1;
    if (link->broken)
        return 0;
    vlorshm::Header* h = link->region.header();
    const long long samples = (long long)channels * frames;
    if (samples > h->maxSamples)
        return -1;
    h->channels = channels;
    h->frames = frames;
    h->status = vlorshm::kFailed;
    h->numEvents = 0;
    std::memcpy(vlorshm::InputOf(h), in, size_t(samples) * sizeof(float));
    const long spin = link->spin.forGap(vlorshm::NowNs() - link->answeredAt);
    h->spin.store(spin > 0 ? 1 : 0, std::memory_order_relaxed);
    const uint32_t seq = ++link->seq;
    vlorshm::Ring(&h->request, seq);
    const vlorshm::Wait w = vlorshm::WaitFor(&h->reply, vlorshm::Until{seq, false}, spin, kSliceMs, kReplyTimeoutMs,
                                             [link] { return link->host.alive(); });
    link->answeredAt = vlorshm::NowNs();
    if (w != vlorshm::Wait::Rung) {
        // Gone, or stuck in the plugin: a late answer would land in a block
        // that is no longer its own, so the region is not used again.
        link->broken = true;
        return 0;
    }
    const int events = std::min<int>(h->numEvents, vlorshm::kMaxEvents);
    for (int k = 0; k < events; ++k) {
        const vlorshm::Event e = h->events[k];
        _VstEffectMessage message{e.type, &r->ops, e.width, e.height};
        if (r->ops.hostCallback)
            r->ops.hostCallback(r->ops.hostData, &message);
    }
    if (h->status != vlorshm::kDone)
        return 0;
    std::memcpy(out, vlorshm::OutputOf(h), size_t(samples) * sizeof(float));
    return 1;
}

// A parameter set while the engine runs travels with the next block: the
// host applies the changes in order before it, or before its next command.
// False when the pipe must carry it.
bool shmQueueParameter(RemoteInstance* r, int index, float value)
{
    ShmLink* link = r->shm;
    if (!link || link->broken || !r->started || index < 0 || index >= link->numParams)
        return false;
    vlorshm::Header* h = link->region.header();
    if (h->numChanges >= vlorshm::kMaxParamChanges)
        return false;
    h->changes[h->numChanges++] = vlorshm::ParamChange{index, value};
    return true;
}

} // namespace vlorvst_remote

extern "C" void vlorvstSetSharedAudio(int mode) { vlorvst_remote::g_sharedAudio.store(mode < 0 ? -1 : mode ? 1 : 0); }
extern "C" int vlorvstGetSharedAudio(void) { return vlorvst_remote::sharedAudioWanted() ? 1 : 0; }

extern "C" int vlorvstUsesSharedAudio(_VstEffectInstance* effect)
{
    auto* r = vlorvst_remote::remote(effect);
    return r && r->shm && !r->shm->broken ? 1 : 0;
}
