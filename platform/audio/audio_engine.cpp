// The engine's registry of effect filters and the effects made from them.
#include "audiofx.h"
#include "audio_p.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <vector>

static_assert(sizeof(AUDIO_FORMAT) == 40, "the engine's audio format is 40 bytes");
static_assert(sizeof(AUDIO_EffectFilter) == 320, "a filter record is 320 bytes");

struct AUDIO_Effect {
    const AUDIO_EffectFilter* filter;
    void* instance;
};

using audio::setError;

namespace {

std::mutex g_lock;
std::vector<const AUDIO_EffectFilter*> g_filters;


} // namespace

extern "C" int AUDIO_AddEffectFilter(const AUDIO_EffectFilter* filter)
{
    if (!filter || !filter->name || !filter->create || !filter->processSamples || !filter->destroy)
        return 0;
    {
        std::lock_guard<std::mutex> g(g_lock);
        bool replaced = false;
        for (auto& f : g_filters) {
            if (std::strcmp(f->name, filter->name) == 0) {
                if (f == filter)
                    return 1; // already there: initialised once
                f = filter;
                replaced = true;
            }
        }
        if (!replaced)
            g_filters.push_back(filter);
    }
    return filter->initialize ? filter->initialize() : 1;
}

extern "C" int AUDIO_RemoveEffectFilter(const char* name)
{
    std::lock_guard<std::mutex> g(g_lock);
    for (auto it = g_filters.begin(); name && it != g_filters.end(); ++it) {
        if (std::strcmp((*it)->name, name) == 0) {
            g_filters.erase(it);
            return 1;
        }
    }
    return 0;
}

extern "C" const AUDIO_EffectFilter* AUDIO_FindEffectFilter(const char* name)
{
    std::lock_guard<std::mutex> g(g_lock);
    for (const AUDIO_EffectFilter* f : g_filters)
        if (name && std::strcmp(f->name, name) == 0)
            return f;
    return nullptr;
}

extern "C" int AUDIO_EffectFilterCount(void)
{
    std::lock_guard<std::mutex> g(g_lock);
    return int(g_filters.size());
}

extern "C" const AUDIO_EffectFilter* AUDIO_GetEffectFilter(int index)
{
    std::lock_guard<std::mutex> g(g_lock);
    return index >= 0 && size_t(index) < g_filters.size() ? g_filters[size_t(index)] : nullptr;
}

namespace {
thread_local char t_effectError[512];
} // namespace

extern "C" void AUDIO_SetEffectError(const char* format, ...)
{
    va_list ap;
    va_start(ap, format);
    std::vsnprintf(t_effectError, sizeof(t_effectError), format, ap);
    va_end(ap);
}

extern "C" AUDIO_Effect* AUDIO_CreateEffect(const char* filterName, const AUDIO_FORMAT* format, const char* config,
                                            char* error, int errorSize)
{
    const AUDIO_EffectFilter* filter = AUDIO_FindEffectFilter(filterName);
    if (!filter) {
        setError(error, errorSize, "no effect filter named \"%s\"", filterName ? filterName : "");
        return nullptr;
    }
    if (!format || format->sampleRate <= 0 || format->numChannels <= 0) {
        setError(error, errorSize, "invalid audio format");
        return nullptr;
    }
    t_effectError[0] = '\0';
    void* instance = filter->create(nullptr, format, config ? config : "");
    if (!instance) {
        if (t_effectError[0])
            setError(error, errorSize, "%s", t_effectError);
        else
            setError(error, errorSize, "the %s filter could not create the effect", filter->name);
        return nullptr;
    }
    return new AUDIO_Effect{filter, instance};
}

extern "C" int AUDIO_ConfigureEffect(AUDIO_Effect* e, const char* config)
{
    return e && e->filter->configure ? e->filter->configure(e->instance, config ? config : "") : 0;
}

extern "C" int AUDIO_ProcessEffectEx(AUDIO_Effect* e, const float* in, long* inFrames, float* out, long* outFrames,
                                     int wholeBlocks)
{
    return e && inFrames && outFrames ? e->filter->processSamples(e->instance, in, inFrames, out, outFrames, wholeBlocks)
                                      : 0;
}

extern "C" int AUDIO_ProcessEffect(AUDIO_Effect* e, const float* in, long* inFrames, float* out, long* outFrames)
{
    return AUDIO_ProcessEffectEx(e, in, inFrames, out, outFrames, 0);
}

extern "C" int AUDIO_ResetEffect(AUDIO_Effect* e) { return e && e->filter->reset ? e->filter->reset(e->instance) : 0; }

extern "C" int AUDIO_EffectBlockSize(AUDIO_Effect* e)
{
    return e && e->filter->blockSize ? e->filter->blockSize(e->instance) : 0;
}

extern "C" double AUDIO_EffectLatency(AUDIO_Effect* e)
{
    return e && e->filter->latency ? e->filter->latency(e->instance) : 0.0;
}

extern "C" double AUDIO_EffectTailTime(AUDIO_Effect* e)
{
    return e && e->filter->tailTime ? e->filter->tailTime(e->instance) : 0.0;
}

extern "C" int AUDIO_DestroyEffect(AUDIO_Effect* e)
{
    if (!e)
        return 0;
    const int r = e->filter->destroy(e->instance);
    delete e;
    return r;
}
