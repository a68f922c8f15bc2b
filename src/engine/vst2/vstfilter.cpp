// The "VST host" filter: how the audio engine applies a VST2 plugin offline.
// The plugin's initial delay is swallowed here: the first frames it delivers
// are dropped, so the result lines up with the input.
#include "vstfilter.h"

#include "audiovst.h"
#include "vsteffect_p.h"
#include "../channelsplit_p.h"
#include "../fxlock_p.h"
#include "blsettings.h"

#include "bldebug.h"
#include "blmem.h"
#include "blmutex.h"
#include "blstring.h"
#include "blthread.h"
#include "audiofx.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr int kBlockSize = 2048;
constexpr int kFlushBlocks = 50;

// The instances beyond the first when the plugin runs once a channel.
struct SplitInstances {
    std::vector<_VSTINSTANCE*> more;
    ChannelSplitter splitter;
};

struct VstFilterInstance {
    BLMemDescr memDescr;
    AUDIO_FORMAT format;
    bool useConfigInstance;
    _VSTEFFECT* effect;
    _VSTINSTANCE* instance; // the first, or the only one
    int32_t channels;
    int64_t latencyLeft;
    SplitInstances* split; // null when one instance serves every channel
};

Mutex _FxLock = nullptr;

int AUDIO_fxInitialize()
{
    if (!_FxLock)
        _FxLock = MutexInit();
    return 1;
}

int AUDIO_fxFinalize()
{
    MutexDestroy(_FxLock);
    _FxLock = nullptr;
    return 1;
}

bool setParams(_VSTINSTANCE* instance, const char* config)
{
    char text[65536];
    if (!BLSTRING_GetStringValueFromString(config, "params", "", text, sizeof(text)))
        return false;
    const int n = BLSTRING_GetVectorSizeFromString(text);
    std::vector<float> values(size_t(n > 0 ? n : 0));
    BLSTRING_GetFloatVectorValuesFromString(text, values.data(), n);
    // All in one exchange with the host program, not one for each value: the
    // values past the end of the list keep what the plugin holds.
    const int count = AUDIOVST_GetNumParams(AUDIOVST_GetEffectFromInstance(instance));
    if (count <= 0 || n <= 0)
        return true;
    std::vector<float> all(static_cast<size_t>(count));
    if (n >= count || AUDIOVST_GetParameters(instance, all.data(), count)) {
        std::copy(values.begin(), values.begin() + std::min(n, count), all.begin());
        if (AUDIOVST_SetParameters(instance, all.data(), count))
            return true;
    }
    for (int i = 0; i < n; ++i)
        AUDIOVST_SetParameter(instance, i, values[size_t(i)]);
    return true;
}

// The hash names one plugin, a shell's child included; the file name alone
// names only a file. So the hash wins: its settings group, or failing that
// its descriptor, gives the file and the id that were resolved under it.
bool fileOfHash(const char* hash, char* filename, int size, int* id)
{
    char group[VST_SETTINGS_GROUP_SIZE];
    std::snprintf(group, sizeof(group), "%s.%s", VST_SETTINGS_PREFIX, hash);
    if (BLSETTINGS_GetStringEx(0, filename, size, "%s.%s=[]", group, "filename") && filename[0]) {
        *id = BLSETTINGS_GetIntEx(0, "%s.%s=[0]", group, "pluginid");
        return true;
    }
    if (!_GetFileAndIdFromHash(hash, filename, size, id) || !filename[0])
        return false;
    return true;
}

_VSTEFFECT* findPlugin(const char* config)
{
    char hash[64] = "";
    BLSTRING_GetStringValueFromString(config, "vsteffect_hash", "", hash, sizeof(hash));
    char filename[4096] = "";
    if (hash[0]) {
        if (_VSTEFFECT* e = AUDIOVST_FindPluginByHash(hash))
            return e;
        int id = 0;
        if (fileOfHash(hash, filename, sizeof(filename), &id))
            return AUDIOVST_FindPluginEx(filename, id, false);
    }
    if (!BLSTRING_GetStringValueFromString(config, "vsteffect_filename", "", filename, sizeof(filename)) ||
        !filename[0]) {
        if (!BLSTRING_GetStringValueFromString(config, "filename", "", filename, sizeof(filename)) || !filename[0])
            filename[0] = '\0';
    }
    if (!filename[0])
        return nullptr;
    return AUDIOVST_FindPluginEx(filename, 0, false);
}

void releaseInstance(VstFilterInstance* fx)
{
    if (fx->useConfigInstance)
        AUDIOVST_ReleaseConfigInstance(fx->instance);
    else
        AUDIOVST_DestroyInstance(fx->instance);
}

// One more instance for a channel of its own, set as the first: the
// parameters of the filter's configuration, or the config instance's own.
_VSTINSTANCE* splitInstance(VstFilterInstance* fx, const char* config, int sampleRate)
{
    _VSTINSTANCE* instance = AUDIOVST_CreateInstance(fx->effect);
    if (!instance)
        return nullptr;
    if (!AUDIOVST_ActivateEngine(instance, kBlockSize, sampleRate)) {
        AUDIOVST_DestroyInstance(instance);
        return nullptr;
    }
    if (fx->useConfigInstance) {
        for (int i = 0; i < AUDIOVST_GetNumParams(fx->effect); ++i)
            AUDIOVST_SetParameter(instance, i, AUDIOVST_GetParameter(fx->instance, i));
    } else {
        setParams(instance, config);
    }
    if (!AUDIOVST_StartEngine(instance)) {
        AUDIOVST_DeactivateEngine(instance);
        AUDIOVST_DestroyInstance(instance);
        return nullptr;
    }
    return instance;
}

void destroyOnMainThread(void* instance) { AUDIOVST_DestroyInstance(static_cast<_VSTINSTANCE*>(instance)); }

// With the filter lock held; plugins are destroyed on the main thread, which
// must not be waited for with the lock held.
void endSplitInstances(VstFilterInstance* fx)
{
    if (!fx->split)
        return;
    for (_VSTINSTANCE* instance : fx->split->more) {
        AUDIOVST_StopEngine(instance);
        AUDIOVST_DeactivateEngine(instance);
        MutexUnlock(_FxLock);
        BLTHREAD_RunInMainThread(destroyOnMainThread, instance);
        MutexLock(_FxLock);
    }
    delete fx->split;
    fx->split = nullptr;
}

void* AUDIO_fxCreate(const AUDIO_FORMAT* format, const char* config)
{
    if (!format || !config)
        return nullptr;
    _VSTEFFECT* effect = findPlugin(config);
    if (!effect) {
        BLDEBUG_Error(-1, "AUDIO_fxCreate: no usable VST plugin for \"%s\"", config);
        return nullptr;
    }
    const ChannelPlan plan =
        PlanChannels(format->numChannels, AUDIOVST_GetNumInputs(effect), AUDIOVST_GetNumOutputs(effect));
    if (plan.instances == 0) {
        const std::string why = WhyNoChannelPlan(AUDIOVST_GetNumInputs(effect), AUDIOVST_GetNumOutputs(effect));
        BLDEBUG_Error(-1, "AUDIO_fxCreate: %s", why.c_str());
        AUDIO_SetEffectError("%s", why.c_str());
        return nullptr;
    }
    const bool useConfig = BLSTRING_GetBooleanValueFromString(config, "use_config_instance", 0) != 0;
    _VSTINSTANCE* instance = useConfig ? AUDIOVST_GetConfigInstance(effect) : AUDIOVST_CreateInstance(effect);
    if (!instance)
        return nullptr;

    BLMemDescr mem = BLMEM_CreateMemDescrEx("VST Effect memory", 0, 8);
    auto* fx = static_cast<VstFilterInstance*>(BLMEM_NewEx(mem, sizeof(VstFilterInstance), 0));
    if (!fx) {
        BLMEM_DisposeMemDescr(mem);
        AUDIOVST_DestroyInstance(useConfig ? nullptr : instance);
        return nullptr;
    }
    fx->memDescr = mem;
    fx->format = *format;
    fx->useConfigInstance = useConfig;
    fx->effect = effect;
    fx->instance = instance;
    fx->channels = format->numChannels;
    fx->split = nullptr;

    if (!AUDIOVST_ActivateEngine(instance, kBlockSize, format->sampleRate)) {
        releaseInstance(fx);
        BLMEM_DisposeMemDescr(mem);
        return nullptr;
    }
    setParams(instance, config);
    if (!AUDIOVST_StartEngine(instance)) {
        releaseInstance(fx);
        BLMEM_DisposeMemDescr(mem);
        return nullptr;
    }
    if (plan.instances > 1) {
        fx->split = new SplitInstances;
        for (int k = 1; k < plan.instances; ++k) {
            _VSTINSTANCE* more = splitInstance(fx, config, format->sampleRate);
            if (!more) {
                MutexLock(_FxLock);
                endSplitInstances(fx);
                MutexUnlock(_FxLock);
                AUDIOVST_StopEngine(instance);
                releaseInstance(fx);
                BLMEM_DisposeMemDescr(mem);
                return nullptr;
            }
            fx->split->more.push_back(more);
        }
    }
    fx->latencyLeft = AUDIOVST_GetInitialDelay(instance);
    return fx;
}

void* AUDIO_fxCreateSecure(void* /*engine*/, const AUDIO_FORMAT* format, const char* config)
{
    FxLocked l(_FxLock);
    return AUDIO_fxCreate(format, config);
}

int AUDIO_fxConfigure(void* handle, const char* config)
{
    auto* fx = static_cast<VstFilterInstance*>(handle);
    if (!fx)
        return 0;
    setParams(fx->instance, config);
    if (fx->split)
        for (_VSTINSTANCE* more : fx->split->more)
            setParams(more, config);
    return 1;
}

int AUDIO_fxProcessSamples(void* handle, const float* in, long* inFrames, float* out, long* outFrames, int)
{
    auto* fx = static_cast<VstFilterInstance*>(handle);
    if (!fx || !fx->instance || !inFrames || !outFrames)
        return 0;
    long n = *inFrames < *outFrames ? *inFrames : *outFrames;
    *inFrames = n;
    if (n < 1) {
        *outFrames = 0;
        return 1;
    }
    if (fx->channels == 0)
        return 0;
    if (n > kBlockSize)
        n = kBlockSize;
    *inFrames = *outFrames = n;
    const bool processed =
        fx->split ? fx->split->splitter.process(in, out, fx->channels, int(n),
                                                [fx](int k, const float* mono, float* monoOut, int frames) {
                                                    _VSTINSTANCE* i = k == 0 ? fx->instance : fx->split->more[size_t(k - 1)];
                                                    return AUDIOVST_ProcessSamples(i, mono, monoOut, 1, frames) != 0;
                                                })
                  : AUDIOVST_ProcessSamples(fx->instance, in, out, fx->channels, int(n)) != 0;
    if (!processed) {
        *outFrames = 0;
        return 0;
    }
    if (fx->latencyLeft > 0) {
        const long k = *outFrames < fx->latencyLeft ? *outFrames : long(fx->latencyLeft);
        *outFrames -= k;
        fx->latencyLeft -= k;
        std::memmove(out, out + size_t(k) * size_t(fx->channels), size_t(*outFrames) * size_t(fx->channels) * sizeof(float));
    }
    return 1;
}

int AUDIO_fxDestroySecure(void* handle)
{
    auto* fx = static_cast<VstFilterInstance*>(handle);
    if (!fx)
        return 0;
    MutexLock(_FxLock);
    endSplitInstances(fx);
    if (fx->instance && fx->useConfigInstance && fx->channels > 0) {
        // The config instance lives on after the filter: what the plugin still
        // holds of the signal is flushed out with silence.
        std::vector<float> silence(size_t(kBlockSize) * size_t(fx->channels), 0.0f);
        std::vector<float> scratch(silence.size());
        for (int b = 0; b < kFlushBlocks; ++b) {
            AUDIOVST_ProcessSamples(fx->instance, silence.data(), scratch.data(), fx->channels, kBlockSize);
            AUDIOVST_EditorIdle(fx->instance);
        }
    }
    AUDIOVST_StopEngine(fx->instance);
    AUDIOVST_DeactivateEngine(fx->instance);
    if (fx->useConfigInstance) {
        AUDIOVST_ReleaseConfigInstance(fx->instance);
    } else {
        // Plugins are destroyed on the main thread, which must not be waited
        // for with the lock held.
        MutexUnlock(_FxLock);
        BLTHREAD_RunInMainThread(destroyOnMainThread, fx->instance);
        MutexLock(_FxLock);
    }
    BLMEM_DisposeMemDescr(fx->memDescr);
    MutexUnlock(_FxLock);
    return 1;
}

} // namespace

extern "C" {
AUDIOVST_EXPORT AUDIO_EffectFilter VSTEffect = {
    "VST host", "VST", "VST host", nullptr,
    0x00010000u, 0x00000800u, 1u, 1u, 0x3BFFFF80u, 0x00001004u,
    AUDIO_fxInitialize, AUDIO_fxFinalize, nullptr,
    AUDIO_fxCreateSecure, AUDIO_fxConfigure, AUDIO_fxProcessSamples,
    {nullptr, nullptr, nullptr},
    AUDIO_fxDestroySecure, nullptr,
    nullptr,
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
    nullptr, nullptr, nullptr,
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
};
}

// The audio engine reads the record by position.
static_assert(sizeof(AUDIO_EffectFilter) == 320, "filter record size");
static_assert(offsetof(AUDIO_EffectFilter, classWord) == 32, "class word");
static_assert(offsetof(AUDIO_EffectFilter, capabilityMask) == 52, "capability mask");
static_assert(offsetof(AUDIO_EffectFilter, initialize) == 56, "initialize");
static_assert(offsetof(AUDIO_EffectFilter, finalize) == 64, "finalize");
static_assert(offsetof(AUDIO_EffectFilter, create) == 80, "create");
static_assert(offsetof(AUDIO_EffectFilter, configure) == 88, "configure");
static_assert(offsetof(AUDIO_EffectFilter, processSamples) == 96, "process");
static_assert(offsetof(AUDIO_EffectFilter, destroy) == 128, "destroy");
static_assert(offsetof(AUDIO_EffectFilter, reset) == 144, "reset");
static_assert(offsetof(AUDIO_EffectFilter, blockSize) == 232, "block size");
static_assert(offsetof(AUDIO_EffectFilter, latency) == 240, "latency");
static_assert(offsetof(AUDIO_EffectFilter, tailTime) == 248, "tail time");
