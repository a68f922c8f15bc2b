// The public face of a running plugin. Creation decides where it runs: in the
// host program whenever one is known, in this process otherwise or when the
// host could not bring the plugin up.
#include "aeffect_p.h"
#include "remote_p.h"
#include "vsteffect_p.h"

#include "bldebug.h"
#include "blsettings.h"
#include "blstring.h"

#include <cmath>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

struct _VSTINSTANCE {
    BLMemDescr memDescr;
    _VSTEFFECT* effect;
    _VstEffectInstance* impl;
    uint8_t editorOpen;
    uint8_t remote;
    float* params; // numParams floats behind the record
};

namespace {

void _DestroyConfigInstanceOf(_VSTEFFECT* e);

bool paramIndexOk(const _VSTEFFECT* e, int i) { return AUDIOVST_IsEffect(e) && i >= 0 && i < e->numParams; }

// Every per-instance call starts here.
_VstEffectInstance* implOf(_VSTINSTANCE* i) { return i && i->effect && i->impl ? i->impl : nullptr; }

// Which host program an instance shares, from "vloraudio.plugins.host_groups":
// "each" (its own, the default), "maker" (one per maker) or "one" (one for
// all); an empty key for its own.
std::string _HostGroupKey(const _VSTEFFECT* effect)
{
    char mode[16] = {};
    BLSETTINGS_GetStringEx(nullptr, mode, int(sizeof(mode)), "vloraudio.plugins.host_groups=[each]");
    if (!std::strcmp(mode, "one"))
        return "one";
    // A plugin without a maker's name is a maker of its own.
    if (!std::strcmp(mode, "maker"))
        return std::string("maker:") + (effect->vendor[0] ? effect->vendor : effect->filename);
    return std::string();
}

_VstEffectInstance* _CreateRemote(_VSTINSTANCE* inst, _VSTEFFECT* effect, const char* host)
{
    const std::string group = _HostGroupKey(effect);
    if (!group.empty())
        return vlorvstCreateGroupEffect(group.c_str(), host, _HostCallback, inst, effect->filename, effect->pluginid);
    char* quotedHost = _QuoteArg(host);
    char* file = _QuoteArg(effect->filename);
    _VstEffectInstance* fx = vlorvstCreateRemoteEffect(_HostCallback, inst, "\"%s\" --fxinstance \"%s\" --id %d",
                                                      quotedHost, file, effect->pluginid);
    std::free(quotedHost);
    std::free(file);
    return fx;
}

_VSTINSTANCE* _UnsafeCreateInstance(_VSTEFFECT* effect, bool isConfig)
{
    BLMemDescr mem = BLMEM_CreateMemDescrEx("VST Instance Memory", 0, 0);
    const size_t params = size_t(effect->numParams > 0 ? effect->numParams : 0);
    auto* inst = static_cast<_VSTINSTANCE*>(BLMEM_NewEx(mem, sizeof(_VSTINSTANCE) + params * sizeof(float), 0));
    if (!inst) {
        BLMEM_DisposeMemDescr(mem);
        return nullptr;
    }
    inst->memDescr = mem;
    inst->effect = effect;
    inst->params = reinterpret_cast<float*>(inst + 1);

    const bool haveHost = AUDIOVST_GetVlorVstPath(0) || AUDIOVST_GetVlorVstPath(1);
    const bool remote = haveHost && (!isConfig || effect->architecture != 64);
    if (remote) {
        if (const char* host = AUDIOVST_GetVlorVstPath(effect->architecture == 32 ? 1 : 0)) {
            _VstEffectInstance* fx = _CreateRemote(inst, effect, host);
            if (fx && fx->Check(fx)) {
                inst->impl = fx;
                inst->remote = 1;
            } else if (fx) {
                // A host that failed its first check is dead or stuck: asking
                // it to leave would only cost another read timeout.
                fx->Terminate(fx);
            }
        }
    }
    if (!inst->impl) {
        for (int attempt = 0; attempt < 2 && !inst->impl; ++attempt) {
            if (_UnsafeLoadVSTPlugin(effect))
                inst->impl = aeffectCreateEffect(_HostCallback, inst, effect->entryPoint, effect->pluginid);
            // A plugin that refuses its first creation gets a fresh load.
            if (!inst->impl && attempt == 0 && effect->loaded && !_UnsafeUnloadVSTPlugin(effect))
                break;
        }
    }
    if (!inst->impl) {
        BLMEM_DisposeMemDescr(mem);
        return nullptr;
    }
    return inst;
}

bool checkConfig(_VSTINSTANCE* instance, const char* caller)
{
    if (instance && instance->effect && instance->effect->configInstance == instance)
        return true;
    BLDEBUG_Error(-1, "%s: Invalid config instance (%p)!", caller, static_cast<void*>(instance));
    return false;
}

int endConfigInstance(_VSTINSTANCE** pinstance, bool terminate, const char* caller)
{
    _VSTINSTANCE* instance = pinstance ? *pinstance : nullptr;
    if (!checkConfig(instance, caller))
        return 0;
    _VSTEFFECT* e = instance->effect;
    MutexLock(e->lock);
    _VstEffectInstance* impl = instance->impl;
    if (impl && !(terminate ? impl->Terminate(impl) : impl->Destroy(impl)) && !terminate)
        impl->Terminate(impl); // a host that did not leave cleanly is ended
    e->configInstance = nullptr;
    BLMEM_DisposeMemDescr(instance->memDescr);
    *pinstance = nullptr;
    if (!_ReleaseOrphanLocked(e))
        MutexUnlock(e->lock);
    return 1;
}

} // namespace

/* ---- lifecycle ----------------------------------------------------------- */

extern "C" _VSTINSTANCE* AUDIOVST_CreateInstance(_VSTEFFECT* e)
{
    if (!AUDIOVST_IsEffect(e) || !AUDIOVST_IsEnabled(e))
        return nullptr;
    MutexLock(e->lock);
    _VSTINSTANCE* inst = _UnsafeCreateInstance(e, false);
    if (inst)
        ++e->numInstances;
    MutexUnlock(e->lock);
    return inst;
}

extern "C" _VSTINSTANCE* AUDIOVST_CreateConfigInstance(_VSTEFFECT* e)
{
    if (!AUDIOVST_IsEffect(e) || !AUDIOVST_IsEnabled(e))
        return nullptr;
    MutexLock(e->lock);
    _VSTINSTANCE* inst = nullptr;
    if (e->configInstance)
        BLDEBUG_Error(-1, "AUDIOVST_CreateConfigInstance: Config instance already exists!");
    else if ((inst = _UnsafeCreateInstance(e, true))) {
        e->configInstance = inst;
        e->endConfigInstance = _DestroyConfigInstanceOf;
    }
    MutexUnlock(e->lock);
    return inst;
}

extern "C" _VSTINSTANCE* AUDIOVST_GetConfigInstance(_VSTEFFECT* e)
{
    if (!e)
        return nullptr;
    if (!AUDIOVST_IsEffect(e)) {
        BLDEBUG_Error(-1, "AUDIOVST_GetConfigInstance: Not an effect!");
        return nullptr;
    }
    if (!e->configInstance)
        BLDEBUG_Error(-1, "AUDIOVST_GetConfigInstance: Config instance not created!");
    return static_cast<_VSTINSTANCE*>(e->configInstance);
}

extern "C" int AUDIOVST_ReleaseConfigInstance(_VSTINSTANCE* instance)
{
    return checkConfig(instance, "AUDIOVST_ReleaseConfigInstance") ? 1 : 0;
}

extern "C" int AUDIOVST_DestroyConfigInstance(_VSTINSTANCE** instance)
{
    return endConfigInstance(instance, false, "AUDIOVST_DestroyConfigInstance");
}

extern "C" int AUDIOVST_TerminateConfigInstance(_VSTINSTANCE** instance)
{
    return endConfigInstance(instance, true, "AUDIOVST_DestroyConfigInstance");
}

extern "C" int AUDIOVST_DestroyInstance(_VSTINSTANCE* instance)
{
    if (!instance || !instance->effect)
        return 0;
    _VSTEFFECT* e = instance->effect;
    if (e->configInstance == instance) {
        BLDEBUG_Error(-1, "AUDIOVST_DestroyInstance: Cannot destroy Config Instance!");
        BLDEBUG_Error(-1, "AUDIOVST_DestroyInstance: Use AUDIOVST_DestroyConfigInstance instead!!");
        return 0;
    }
    MutexLock(e->lock);
    _VstEffectInstance* impl = instance->impl;
    if (impl && !impl->Destroy(impl))
        impl->Terminate(impl); // a dead host: nothing is left to ask
    BLMEM_DisposeMemDescr(instance->memDescr);
    --e->numInstances;
    if (!_ReleaseOrphanLocked(e))
        MutexUnlock(e->lock);
    return 1;
}

extern "C" _VSTEFFECT* AUDIOVST_GetEffectFromInstance(_VSTINSTANCE* i) { return i && i->impl ? i->effect : nullptr; }
extern "C" int AUDIOVST_IsRemoteInstance(_VSTINSTANCE* i) { return i && i->remote ? 1 : 0; }

namespace {

/* Unloading destroys the config instance: it is the library's own. */
void _DestroyConfigInstanceOf(_VSTEFFECT* e)
{
    auto* inst = static_cast<_VSTINSTANCE*>(e->configInstance);
    if (!inst)
        return;
    if (inst->impl && !inst->impl->Destroy(inst->impl))
        inst->impl->Terminate(inst->impl);
    e->configInstance = nullptr;
    BLMEM_DisposeMemDescr(inst->memDescr);
}

} // namespace

/* ---- static description -------------------------------------------------- */

extern "C" const char* AUDIOVST_GetParameterName(const _VSTEFFECT* e, int i)
{
    return paramIndexOk(e, i) && e->parameters ? e->parameters[i].name : nullptr;
}

extern "C" const char* AUDIOVST_GetParameterLabel(const _VSTEFFECT* e, int i)
{
    return paramIndexOk(e, i) && e->parameters ? e->parameters[i].label : nullptr;
}

extern "C" int AUDIOVST_GetParameterKind(const _VSTEFFECT* e, int i)
{
    return paramIndexOk(e, i) && e->parameters ? e->parameters[i].kind : 0;
}

extern "C" float AUDIOVST_GetParameterMinValue(const _VSTEFFECT* e, int i)
{
    return paramIndexOk(e, i) && e->parameters ? e->parameters[i].minValue : 0.0f;
}

extern "C" float AUDIOVST_GetParameterMaxValue(const _VSTEFFECT* e, int i)
{
    return paramIndexOk(e, i) && e->parameters ? e->parameters[i].maxValue : 0.0f;
}

extern "C" const char* AUDIOVST_GetParameterMinValueString(const _VSTEFFECT* e, int i)
{
    const int kind = AUDIOVST_GetParameterKind(e, i);
    return kind == 2 || kind == 3 ? e->parameters[i].minDisplay : nullptr;
}

extern "C" const char* AUDIOVST_GetParameterMaxValueString(const _VSTEFFECT* e, int i)
{
    const int kind = AUDIOVST_GetParameterKind(e, i);
    return kind == 2 || kind == 3 ? e->parameters[i].maxDisplay : nullptr;
}

extern "C" int AUDIOVST_GetNumParamOptions(const _VSTEFFECT* e, int i)
{
    if (!paramIndexOk(e, i) || !e->parameters || !e->parameters[i].valueType)
        return 0;
    return e->parameters[i].valueType->count;
}

extern "C" const char* AUDIOVST_GetParamOptionLabel(const _VSTEFFECT* e, int i, int option)
{
    if (option < 0 || option >= AUDIOVST_GetNumParamOptions(e, i))
        return nullptr;
    return e->parameters[i].valueType->entries[option].name;
}

extern "C" int AUDIOVST_GetNumBuiltInPrograms(const _VSTEFFECT* e) { return AUDIOVST_IsEffect(e) ? e->numPrograms : 0; }

static const ProgramRecord* _Program(const _VSTEFFECT* e, int p)
{
    return AUDIOVST_IsEffect(e) && e->programs && p >= 0 && p < e->numPrograms ? e->programs[p] : nullptr;
}

extern "C" const char* AUDIOVST_GetProgramName(const _VSTEFFECT* e, int p)
{
    const ProgramRecord* r = _Program(e, p);
    return r ? r->name : nullptr;
}

extern "C" const float* AUDIOVST_GetBuiltInProgramParams(const _VSTEFFECT* e, int p)
{
    const ProgramRecord* r = _Program(e, p);
    return r ? r->values : nullptr;
}

extern "C" const float* AUDIOVST_GetDefaultProgram(const _VSTEFFECT* e)
{
    return AUDIOVST_IsEffect(e) && e->defaultProgram ? e->defaultProgram->values : nullptr;
}

extern "C" int AUDIOVST_GetProgramIndex(const _VSTEFFECT* e, const char* name)
{
    if (!name)
        return -1;
    for (int p = 0; p < AUDIOVST_GetNumBuiltInPrograms(e); ++p) {
        const char* n = AUDIOVST_GetProgramName(e, p);
        if (!n || !*n)
            continue;
        const int len = int(std::max(std::strlen(n), std::strlen(name)));
        if (BLSTRING_CompareInsensitiveN(n, name, len) == 0)
            return p;
    }
    return -1;
}

/* ---- per instance -------------------------------------------------------- */

#define VST_INSTANCE_CALL(call)                                                                                        \
    _VstEffectInstance* impl = implOf(instance);                                                                       \
    return impl && (call) ? 1 : 0

extern "C" int AUDIOVST_CheckState(_VSTINSTANCE* instance) { VST_INSTANCE_CALL(impl->Check(impl)); }

extern "C" int AUDIOVST_HasEditor(_VSTINSTANCE* instance)
{
    _VstEffectInstance* impl = implOf(instance);
    if (!impl || !AUDIOVST_IsEffect(instance->effect) || !(instance->effect->u.fx.flags & VSTEFFECT_FLAG_HAS_EDITOR))
        return 0;
    return impl->CanEdit(impl) ? 1 : 0;
}

extern "C" float AUDIOVST_GetParameter(_VSTINSTANCE* instance, int index)
{
    _VstEffectInstance* impl = implOf(instance);
    float v = 0.0f;
    if (!impl || !paramIndexOk(instance->effect, index) || !impl->GetParameter(impl, index, &v))
        return 0.0f;
    return v;
}

extern "C" int AUDIOVST_SetParameter(_VSTINSTANCE* instance, int index, float value)
{
    VST_INSTANCE_CALL(paramIndexOk(instance->effect, index) && impl->SetParameter(impl, index, value));
}

extern "C" int AUDIOVST_GetParameters(_VSTINSTANCE* instance, float* values, int count)
{
    VST_INSTANCE_CALL(impl->GetParameters(impl, values, count));
}

extern "C" int AUDIOVST_SetParameters(_VSTINSTANCE* instance, const float* values, int count)
{
    VST_INSTANCE_CALL(impl->SetParameters(impl, values, count));
}

extern "C" int AUDIOVST_SetStringParameter(_VSTINSTANCE* instance, int index, const char* text)
{
    VST_INSTANCE_CALL(impl->SetStringParameter(impl, index, text));
}

extern "C" int AUDIOVST_SetBypass(_VSTINSTANCE* instance, int bypass) { VST_INSTANCE_CALL(impl->SetBypass(impl, bypass)); }

extern "C" int AUDIOVST_GetInitialDelay(_VSTINSTANCE* instance)
{
    _VstEffectInstance* impl = implOf(instance);
    return impl ? impl->GetInitialDelay(impl) : 0;
}

extern "C" int AUDIOVST_GetTailSize(_VSTINSTANCE* instance)
{
    _VstEffectInstance* impl = implOf(instance);
    return impl ? impl->GetTailSize(impl) : 0;
}

extern "C" int AUDIOVST_GetNumPrograms(_VSTINSTANCE* instance)
{
    _VstEffectInstance* impl = implOf(instance);
    return impl ? impl->GetNumPrograms(impl) : 0;
}

extern "C" int AUDIOVST_SetProgram(_VSTINSTANCE* instance, int program)
{
    VST_INSTANCE_CALL(impl->SetProgram(impl, program));
}

extern "C" int AUDIOVST_SetProgramName(_VSTINSTANCE* instance, const char* name)
{
    VST_INSTANCE_CALL(impl->SetProgramName(impl, name));
}

extern "C" int AUDIOVST_GetCurrentProgramName(_VSTINSTANCE* instance, char* out, int size)
{
    VST_INSTANCE_CALL(impl->GetProgramName(impl, out, size));
}

extern "C" int AUDIOVST_ActivateEngine(_VSTINSTANCE* instance, int blockSize, int sampleRate)
{
    VST_INSTANCE_CALL(impl->ActivateEngine(impl, blockSize, sampleRate));
}

extern "C" int AUDIOVST_DeactivateEngine(_VSTINSTANCE* instance) { VST_INSTANCE_CALL(impl->DeactivateEngine(impl)); }
extern "C" int AUDIOVST_StartEngine(_VSTINSTANCE* instance) { VST_INSTANCE_CALL(impl->StartEngine(impl)); }
extern "C" int AUDIOVST_StopEngine(_VSTINSTANCE* instance) { VST_INSTANCE_CALL(impl->StopEngine(impl)); }

extern "C" int AUDIOVST_ProcessSamples(_VSTINSTANCE* instance, const float* in, float* out, int channels, int frames)
{
    VST_INSTANCE_CALL(impl->ProcessAudio(impl, in, out, channels, frames));
}

extern "C" int AUDIOVST_ProcessChain(_VSTINSTANCE** instances, int count, const float* in, float* out, int channels,
                                     int frames)
{
    if (!instances || count <= 0 || count > 64)
        return 0;
    _VstEffectInstance* impls[64];
    for (int k = 0; k < count; ++k)
        if (!(impls[k] = implOf(instances[k])))
            return 0;
    // Only remote instances of one group share a round trip; the rest go
    // one by one, as they would alone.
    bool remote = true;
    for (int k = 0; k < count; ++k)
        remote = remote && instances[k]->remote;
    return remote ? vlorvstProcessChain(impls, count, in, out, channels, frames)
                  : vlorvstProcessInTurn(impls, count, in, out, channels, frames);
}

extern "C" int AUDIOVST_SameHostProgram(_VSTINSTANCE* a, _VSTINSTANCE* b)
{
    return a && b && a->remote && b->remote && vlorvstSameGroup(implOf(a), implOf(b)) ? 1 : 0;
}

extern "C" int AUDIOVST_GetCrashBlame(_VSTINSTANCE* instance)
{
    _VstEffectInstance* impl = implOf(instance);
    return impl && instance->remote ? vlorvstCrashBlame(impl) : -1;
}

extern "C" int AUDIOVST_EditorGetSize(_VSTINSTANCE* instance, int* width, int* height)
{
    VST_INSTANCE_CALL(impl->EditorGetSize(impl, width, height));
}

extern "C" int AUDIOVST_EditorOpen(_VSTINSTANCE* instance, void* window)
{
    _VstEffectInstance* impl = implOf(instance);
    if (!impl || !impl->EditorOpen(impl, window))
        return 0;
    instance->editorOpen = 1;
    return 1;
}

extern "C" int AUDIOVST_EditorIdle(_VSTINSTANCE* instance)
{
    VST_INSTANCE_CALL(instance->editorOpen && impl->EditorIdle(impl));
}

extern "C" int AUDIOVST_EditorClose(_VSTINSTANCE* instance, void* window)
{
    _VstEffectInstance* impl = implOf(instance);
    if (!impl || !instance->editorOpen || !impl->EditorClose(impl, window))
        return 0;
    instance->editorOpen = 0;
    return 1;
}

extern "C" int AUDIOVST_GetParameterDisplayString(_VSTINSTANCE* instance, int index, char* out, int size, float value)
{
    _VstEffectInstance* impl = implOf(instance);
    if (!impl || !out || size <= 0 || !paramIndexOk(instance->effect, index))
        return 0;
    out[0] = '\0';
    const ParameterRecord* p = instance->effect->parameters ? &instance->effect->parameters[index] : nullptr;
    const int kind = p ? p->kind : 0;
    if (kind == 2) {
        std::snprintf(out, size_t(size), "%5.1f", double((p->maxValue - p->minValue) * value + p->minValue));
    } else if (kind == 1) {
        const ValueType* vt = p->valueType;
        if (vt && vt->count > 0) {
            for (int k = 0; k < vt->count; ++k) {
                if (vt->entries[k].low <= value && value <= vt->entries[k].high) {
                    std::snprintf(out, size_t(size), "%s", vt->entries[k].name);
                    return 1;
                }
            }
            return 1; // a value in no entry's range shows nothing
        }
    } else {
        char text[64];
        if (!impl->GetDisplayValue(impl, index, value, text, sizeof(text)))
            return 0;
        StripString(text);
        // A numeric text loses the unit behind its number.
        if (text[0] && std::strchr("01234567890+-.eE", text[0])) {
            const size_t n = std::strspn(text, "01234567890+-.eE");
            text[n] = '\0';
        }
        std::snprintf(out, size_t(size), "%s", text);
    }
    if (size > 8)
        out[8] = '\0';
    return 1;
}

extern "C" int AUDIOVST_SetParameterOption(_VSTINSTANCE* instance, int index, const char* label)
{
    _VstEffectInstance* impl = implOf(instance);
    if (!impl || !label || !paramIndexOk(instance->effect, index) || !instance->effect->parameters)
        return 0;
    const ValueType* vt = instance->effect->parameters[index].valueType;
    if (!vt || vt->count < 1)
        return 0;
    for (int k = 0; k < vt->count; ++k)
        if (std::strcmp(vt->entries[k].name, label) == 0)
            return impl->SetParameter(impl, index, (vt->entries[k].high - vt->entries[k].low) * 0.5f + vt->entries[k].low)
                       ? 1
                       : 0;
    return 0;
}
