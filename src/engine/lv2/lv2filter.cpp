// The "LV2 host" filter: how the audio engine applies an LV2 effect, with
// one instance over the track's channels or one a channel (see
// channelsplit_p.h). The plugin's latency is reported, not compensated here.
#include "lv2filter.h"

#include "lv2engine.h"
#include "../channelsplit_p.h"
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
    std::vector<_Lv2Instance*> instances; // one, or one a channel
    ChannelSplitter splitter;

    ~Lv2Filter()
    {
        for (_Lv2Instance* fx : instances)
            VLORLV2_DestroyInstance(fx);
    }
    // Every instance made, set from config and activated; why, when not.
    bool open(const char* uri, const char* config, std::string* why);
    bool configure(const char* config);
};

Mutex _FxLock = nullptr;

// A key's whole value, however long (a state runs to megabytes); empty when absent.
std::string textOf(const char* config, const char* key)
{
    if (!BLSTRING_HasKeyInString(config, key))
        return std::string();
    for (size_t size = 4096; size <= (size_t(1) << 28); size *= 4) {
        std::vector<char> text(size);
        if (BLSTRING_GetStringValueFromString(config, key, "", text.data(), int(size)))
            return text.data();
    }
    return std::string();
}

std::string fromBase64(const std::string& text)
{
    int length = 0;
    void* bytes = BLSTRING_FromBase64(text.c_str(), &length);
    std::string out = bytes ? std::string(static_cast<const char*>(bytes), size_t(length)) : std::string();
    std::free(bytes);
    return out;
}

bool Lv2Filter::configure(const char* config)
{
    const std::string state = fromBase64(textOf(config, "lv2effect_state"));
    const std::string params = textOf(config, "lv2effect_params");
    for (_Lv2Instance* fx : instances) {
        if (BLSTRING_HasKeyInString(config, "lv2effect_state") && !VLORLV2_SetState(fx, state.c_str()))
            return false;
        if (!params.empty()) {
            std::vector<float> values(size_t(VLORLV2_GetNumParams(fx)));
            const int n = BLSTRING_GetFloatVectorValuesFromString(params.c_str(), values.data(), int(values.size()));
            for (int i = 0; i < n; ++i)
                VLORLV2_SetParam(fx, i, values[size_t(i)]);
        }
    }
    return true;
}

bool Lv2Filter::open(const char* uri, const char* config, std::string* why)
{
    char error[512] = "";
    _Lv2Instance* first = VLORLV2_CreateInstance(uri, format.sampleRate, kBlock, error, sizeof(error));
    if (!first) {
        *why = error;
        return false;
    }
    instances.push_back(first);
    int inputs = 0, outputs = 0;
    VLORLV2_GetBusChannels(first, &inputs, &outputs);
    const ChannelPlan plan = PlanChannels(format.numChannels, inputs, outputs);
    if (plan.instances == 0) {
        *why = WhyNoChannelPlan(inputs, outputs);
        return false;
    }
    while (int(instances.size()) < plan.instances) {
        _Lv2Instance* fx = VLORLV2_CreateInstance(uri, format.sampleRate, kBlock, error, sizeof(error));
        if (!fx) {
            *why = error;
            return false;
        }
        instances.push_back(fx);
    }
    if (!configure(config)) {
        *why = "the saved state of the effect does not read";
        return false;
    }
    for (_Lv2Instance* fx : instances)
        VLORLV2_Activate(fx);
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
    const std::string uri = textOf(config, "lv2effect_uri");
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
    return fx && config && fx->configure(config) ? 1 : 0;
}

int AUDIO_fxReset(void* instance)
{
    auto* fx = static_cast<Lv2Filter*>(instance);
    if (!fx)
        return 0;
    for (_Lv2Instance* i : fx->instances) {
        VLORLV2_Deactivate(i);
        VLORLV2_Activate(i);
    }
    return 1;
}

int AUDIO_fxBlockSize(void* instance) { return instance ? kBlock : 0; }

double AUDIO_fxLatency(void* instance)
{
    auto* fx = static_cast<Lv2Filter*>(instance);
    return fx && !fx->instances.empty() && fx->format.sampleRate > 0
               ? double(VLORLV2_GetLatency(fx->instances.front())) / fx->format.sampleRate
               : 0.0;
}

double AUDIO_fxTailTime(void*) { return 0.0; }

bool processBlock(Lv2Filter* fx, const float* in, float* out, int frames)
{
    const int channels = fx->format.numChannels;
    if (fx->instances.size() == 1)
        return VLORLV2_ProcessAudio(fx->instances.front(), in, out, channels, frames) == 1;
    return fx->splitter.process(in, out, channels, frames, [fx](int k, const float* i, float* o, int n) {
        return VLORLV2_ProcessAudio(fx->instances[size_t(k)], i, o, 1, n) == 1;
    });
}

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
    if (!processBlock(fx, in, out, int(n))) {
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
