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

// The events a block brought, to their instance's callback.
void deliverEvents(RemoteInstance* r)
{
    vlorshm::Header* h = r->shm->region.header();
    const int events = std::min<int>(h->numEvents, vlorshm::kMaxEvents);
    for (int k = 0; k < events; ++k) {
        const vlorshm::Event e = h->events[k];
        _VstEffectMessage message{e.type, &r->ops, e.width, e.height};
        if (r->ops.hostCallback)
            r->ops.hostCallback(r->ops.hostData, &message);
    }
    h->numEvents = 0;
}


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

// One round trip through the first effect's region, the others (members of
// its group) named as the chain after it: the block in, the doorbell, the
// wait, the events of each, the answer out. The caller holds the lock.
int roundTrip(_VstEffectInstance** effects, int count, const float* in, float* out, int channels, int frames)
{
    RemoteInstance* r = remote(effects[0]);
    ShmLink* link = r->shm;
    vlorshm::Header* h = link->region.header();
    const size_t bytes = size_t(channels) * size_t(frames) * sizeof(float);
    h->channels = channels;
    h->frames = frames;
    h->status = vlorshm::kFailed;
    h->numEvents = 0;
    h->chainLength = count - 1;
    for (int k = 1; k < count; ++k)
        h->chain[k - 1] = remote(effects[k])->place;
    std::memcpy(vlorshm::InputOf(h), in, bytes);
    const long spin = link->spin.forGap(vlorshm::NowNs() - link->answeredAt);
    h->spin.store(spin > 0 ? 1 : 0, std::memory_order_relaxed);
    const uint32_t seq = ++link->seq;
    vlorshm::Ring(&h->request, seq);
    const vlorshm::Wait w = vlorshm::WaitFor(&h->reply, vlorshm::Until{seq, false}, spin, kSliceMs, kReplyTimeoutMs,
                                             [link] { return link->host.alive(); });
    link->answeredAt = vlorshm::NowNs();
    h->chainLength = 0;
    if (w != vlorshm::Wait::Rung) {
        // Gone, or stuck in the plugin: a late answer would land in a block
        // that is no longer its own, so the region is not used again.
        link->broken = true;
        blockFailed(r);
        return 0;
    }
    for (int k = 0; k < count; ++k)
        deliverEvents(remote(effects[k]));
    if (h->status != vlorshm::kDone)
        return 0;
    std::memcpy(out, vlorshm::OutputOf(h), bytes);
    return 1;
}

int shmProcess(RemoteInstance* r, const float* in, float* out, int channels, int frames)
{
    ShmLink* link = r->shm;
    if (!link)
        return -1;
    if (link->broken)
        return 0;
    if ((long long)channels * frames > link->region.header()->maxSamples)
        return -1;
    _VstEffectInstance* self = &r->ops;
    return roundTrip(&self, 1, in, out, channels, frames);
}

bool shmInCall(RemoteInstance* r) { return r->shm && r->shm->region.header()->inCall.load() != 0; }

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

namespace {

// Whether effects can go as one chain: members of one group, each with its
// region, started, the first's region large enough.
bool chainable(_VstEffectInstance** effects, int count, long long samples)
{
    if (count < 2 || count - 1 > vlorshm::kMaxChain)
        return false;
    RemoteInstance* head = remote(effects[0]);
    for (int k = 0; k < count; ++k) {
        RemoteInstance* r = remote(effects[k]);
        if (!r || !r->group || !r->shm || r->shm->broken || !r->started || (k > 0 && !sameGroup(head, r)))
            return false;
    }
    return samples <= head->shm->region.header()->maxSamples;
}

} // namespace

// The block through every effect in one round trip: the first one's region
// carries it and names the others' places; the host runs them in turn.
int shmProcessChain(_VstEffectInstance** effects, int count, const float* in, float* out, int channels, int frames)
{
    Locked l(remote(effects[0])); // the group's lock: every member's
    return roundTrip(effects, count, in, out, channels, frames);
}

} // namespace vlorvst_remote

extern "C" int vlorvstProcessChain(_VstEffectInstance** effects, int count, const float* in, float* out,
                                   int channels, int frames)
{
    using namespace vlorvst_remote;
    if (!effects || count <= 0 || !in || !out || channels <= 0 || frames < 0)
        return 0;
    if (chainable(effects, count, (long long)channels * frames))
        return shmProcessChain(effects, count, in, out, channels, frames);
    return vlorvstProcessInTurn(effects, count, in, out, channels, frames);
}

extern "C" int vlorvstProcessInTurn(_VstEffectInstance** effects, int count, const float* in, float* out,
                                    int channels, int frames)
{
    if (!effects || count <= 0 || !effects[0]->ProcessAudio(effects[0], in, out, channels, frames))
        return 0;
    for (int k = 1; k < count; ++k)
        if (!effects[k]->ProcessAudio(effects[k], out, out, channels, frames))
            return 0;
    return 1;
}

extern "C" int vlorvstSameGroup(_VstEffectInstance* a, _VstEffectInstance* b)
{
    return a && b && vlorvst_remote::sameGroup(vlorvst_remote::remote(a), vlorvst_remote::remote(b)) ? 1 : 0;
}

extern "C" void vlorvstSetSharedAudio(int mode) { vlorvst_remote::g_sharedAudio.store(mode < 0 ? -1 : mode ? 1 : 0); }
extern "C" int vlorvstGetSharedAudio(void) { return vlorvst_remote::sharedAudioWanted() ? 1 : 0; }

extern "C" int vlorvstBlocksShared(_VstEffectInstance* effect)
{
    auto* r = vlorvst_remote::remote(effect);
    return r && r->shm ? int(r->shm->seq) : 0;
}

extern "C" int vlorvstUsesSharedAudio(_VstEffectInstance* effect)
{
    auto* r = vlorvst_remote::remote(effect);
    return r && r->shm && !r->shm->broken ? 1 : 0;
}
