// The "LV2 host" filter: how the audio engine applies an LV2 effect, with
// one instance over the track's channels or one a channel (see
// channelsplit_p.h). The plugin's latency is reported, not compensated here.
#include "lv2filter.h"

#include "lv2engine.h"
#include "lv2track_p.h"
#include "../fxlock_p.h"

#include "bldebug.h"
#include "blstring.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kBlock = 4096;

struct Lv2Filter {
    AUDIO_FORMAT format{};
    Lv2Track track;
    // Every instance made, set from config and activated; why, when not.
    bool open(const char* uri, const char* config, std::string* why);
};

Mutex _FxLock = nullptr;

bool Lv2Filter::open(const char* uri, const char* config, std::string* why)
{
    if (!track.open(uri, format.sampleRate, format.numChannels, kBlock, why))
        return false;
    if (!track.configure(config)) {
        *why = "the saved state of the effect does not read";
        return false;
    }
    return true;
}

int AUDIO_fxInitialize()
{
    if (!_FxLock)
        _FxLock = MutexInit();
    return VLORLV2_Initialize();
}

int AUDIO_fxFinalize()
{
    // The world stays until the process ends: instances elsewhere may use it.
    MutexDestroy(_FxLock);
    _FxLock = nullptr;
    return 1;
}

void* AUDIO_fxCreateSecure(void*, const AUDIO_FORMAT* format, const char* config)
{
    FxLocked l(_FxLock);
    if (!format || !config)
        return nullptr;
    const std::string uri = Lv2ConfigText(config, "lv2effect_uri");
    if (uri.empty())
        return nullptr;
    auto fx = std::make_unique<Lv2Filter>();
    fx->format = *format;
    std::string why;
    if (!fx->open(uri.c_str(), config, &why)) {
        BLDEBUG_Error(-1, "AUDIO_fxCreate: %s: %s", uri.c_str(), why.c_str());
        AUDIO_SetEffectError("%s", why.c_str());
        return nullptr;
    }
    return fx.release();
}

int AUDIO_fxDestroySecure(void* instance)
{
    FxLocked l(_FxLock);
    delete static_cast<Lv2Filter*>(instance);
    return instance ? 1 : 0;
}

int AUDIO_fxConfigure(void* instance, const char* config)
{
    auto* fx = static_cast<Lv2Filter*>(instance);
    return fx && config && fx->track.configure(config) ? 1 : 0;
}

int AUDIO_fxReset(void* instance)
{
    auto* fx = static_cast<Lv2Filter*>(instance);
    if (!fx)
        return 0;
    fx->track.reset();
    return 1;
}

int AUDIO_fxBlockSize(void* instance) { return instance ? kBlock : 0; }

double AUDIO_fxLatency(void* instance)
{
    auto* fx = static_cast<Lv2Filter*>(instance);
    return fx && fx->track.first() && fx->format.sampleRate > 0
               ? double(VLORLV2_GetLatency(fx->track.first())) / fx->format.sampleRate
               : 0.0;
}

double AUDIO_fxTailTime(void*) { return 0.0; }

int AUDIO_fxProcessSamples(void* instance, const float* in, long* inFrames, float* out, long* outFrames, int)
{
    auto* fx = static_cast<Lv2Filter*>(instance);
    if (!fx || !inFrames || !outFrames)
        return 0;
    // Any number of frames: the engine cuts its runs at the largest block.
    const long n = *inFrames < *outFrames ? *inFrames : *outFrames;
    *inFrames = n > 0 ? n : 0;
    *outFrames = *inFrames;
    if (n <= 0)
        return 1;
    if (!fx->track.process(in, out, fx->format.numChannels, int(n))) {
        *outFrames = 0;
        return 0;
    }
    return 1;
}

} // namespace

extern "C" {
__attribute__((visibility("default"))) AUDIO_EffectFilter LV2Effect = {
    "LV2 host", "LV2", "LV2 host", nullptr,
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
