// The "VST3 host" filter: how the audio engine applies a VST3 effect. The
// plugin's latency is reported, not compensated here.
#include "vst3filter.h"

#include "vst3engine.h"
#include "vst3track_p.h"
#include "../fxlock_p.h"

#include "blmem.h"
#include "blstring.h"
#include "bldebug.h"
#include "audiofx.h"

#include <cstddef>

namespace {

struct Vst3FilterInstance {
    BLMemDescr memDescr;
    AUDIO_FORMAT format;
    Vst3Track* track;
    _Vst3Instance* handle; // the track's first instance
    int32_t blockSize;
};

Mutex _FxLock = nullptr;

int AUDIO_fxInitialize()
{
    if (!_FxLock)
        _FxLock = MutexInit();
    return VLORVST3_Initialize();
}

int AUDIO_fxFinalize()
{
    // The modules stay loaded until the process ends.
    MutexDestroy(_FxLock);
    _FxLock = nullptr;
    return 1;
}

void* AUDIO_fxCreateSecure(void*, const AUDIO_FORMAT* format, const char* config)
{
    FxLocked l(_FxLock);
    if (!format || !config)
        return nullptr;
    char uid[64], path[1024];
    if (!BLSTRING_GetStringValueFromString(config, "vst3effect_uid", "", uid, sizeof(uid)) ||
        !BLSTRING_GetStringValueFromString(config, "vst3effect_path", "", path, sizeof(path)))
        return nullptr;
    BLMemDescr mem = BLMEM_CreateMemDescrEx("VST3 Effect memory", 0, 8);
    if (!mem)
        return nullptr;
    auto* fx = static_cast<Vst3FilterInstance*>(BLMEM_NewEx(mem, sizeof(Vst3FilterInstance), 0));
    if (!fx) {
        BLMEM_DisposeMemDescr(mem);
        return nullptr;
    }
    fx->memDescr = mem;
    fx->format = *format;
    fx->track = new Vst3Track;
    std::string why;
    // Offline unless the configuration allows reconfiguring while it runs.
    const bool offline = !BLSTRING_GetBooleanValueFromString(config, AUDIOFXPARAM_AllowReconfigure, 0);
    if (!fx->track->open(path, uid, format->sampleRate, format->numChannels, offline, &why)) {
        BLDEBUG_Error(-1, "AUDIO_fxCreate: %s: %s", uid, why.c_str());
        AUDIO_SetEffectError("%s", why.c_str());
        delete fx->track;
        BLMEM_DisposeMemDescr(mem);
        return nullptr;
    }
    fx->handle = fx->track->first();
    fx->blockSize = VLORVST3_GetBlockSize(fx->handle);
    fx->track->setConfig(config, false);
    return fx;
}

int AUDIO_fxDestroySecure(void* instance)
{
    FxLocked l(_FxLock);
    auto* fx = static_cast<Vst3FilterInstance*>(instance);
    if (!fx)
        return 0;
    delete fx->track;
    BLMEM_DisposeMemDescr(fx->memDescr);
    return 1;
}

int AUDIO_fxConfigure(void* instance, const char* config)
{
    auto* fx = static_cast<Vst3FilterInstance*>(instance);
    return fx && fx->handle ? fx->track->setConfig(config, false) : 0;
}

int AUDIO_fxReset(void* instance)
{
    auto* fx = static_cast<Vst3FilterInstance*>(instance);
    if (!fx || !fx->handle)
        return 0;
    fx->track->reset();
    return 1;
}

int AUDIO_fxBlockSize(void* instance)
{
    auto* fx = static_cast<Vst3FilterInstance*>(instance);
    return fx ? fx->blockSize : 0;
}

double AUDIO_fxLatency(void* instance)
{
    auto* fx = static_cast<Vst3FilterInstance*>(instance);
    return fx && fx->handle ? VLORVST3_GetLatency(fx->handle) : 0.0;
}

double AUDIO_fxTailTime(void* instance)
{
    auto* fx = static_cast<Vst3FilterInstance*>(instance);
    return fx && fx->handle ? VLORVST3_GetTailTime(fx->handle) : 0.0;
}

int AUDIO_fxProcessSamples(void* instance, const float* in, long* inFrames, float* out, long* outFrames,
                           int wholeBlocks)
{
    auto* fx = static_cast<Vst3FilterInstance*>(instance);
    if (!fx || !fx->handle || !inFrames || !outFrames)
        return 0;
    const long n = *inFrames < *outFrames ? *inFrames : *outFrames;
    *inFrames = n;
    const int channels = fx->format.numChannels;
    if (!wholeBlocks) {
        if (n <= 0) {
            *outFrames = 0;
            return 1;
        }
        *outFrames = n;
        if (!fx->track->process(in, out, channels, int(n))) {
            *outFrames = 0;
            return 0;
        }
        return 1;
    }
    if (n <= 0) {
        *outFrames = 0;
        return 1;
    }
    const long blocks = fx->blockSize > 0 ? *outFrames / fx->blockSize : 0;
    if (blocks == 0) {
        // Less room than one block is a failure in this mode.
        *outFrames = 0;
        return 0;
    }
    *inFrames = n < blocks * fx->blockSize ? n : blocks * fx->blockSize;
    *outFrames = 0;
    long left = *inFrames;
    for (long b = 0; b < blocks; ++b) {
        const long m = left < fx->blockSize ? left : fx->blockSize;
        const size_t offset = size_t(b) * size_t(fx->blockSize) * size_t(channels);
        if (m > 0 && !fx->track->process(in + offset, out + offset, channels, int(m)))
            return 0;
        *outFrames += m;
        left -= m;
    }
    return 1;
}

} // namespace

extern "C" {
__attribute__((visibility("default"))) AUDIO_EffectFilter VST3Effect = {
    "VST3 host", "VST3", "VST3 host", nullptr,
    0x00010000u, 0x00002000u, 1u, 1u, 0x3BFFFF80u, 0x00009004u,
    AUDIO_fxInitialize, AUDIO_fxFinalize, nullptr,
    AUDIO_fxCreateSecure, AUDIO_fxConfigure, AUDIO_fxProcessSamples,
    {nullptr, nullptr, nullptr},
    AUDIO_fxDestroySecure, nullptr,
    AUDIO_fxReset,
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
    AUDIO_fxBlockSize, AUDIO_fxLatency, AUDIO_fxTailTime,
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
};
}
