// A VST2 plugin driven in this process. There is no crash protection here
// beyond a catch around loading: a plugin that faults in process takes the
// process down, which is why instances prefer the host program.
#include "aeffect_p.h"
#include "aeffect_ops_p.h"
#include "vsteffect_p.h"
#include "../interleave_p.h"

#include "bldebug.h"
#include "blio.h"
#include "bllib.h"
#include "blnotify.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

int32_t VLORVST_CurrentPluginId = 0;

using namespace aeffect;

namespace {

int defaultHostCallback(void*, _VstEffectMessage*) { return 0; }

_AEffectInstance* instanceOf(AEffect* effect)
{
    return effect ? reinterpret_cast<_AEffectInstance*>(effect->resvd1) : nullptr;
}

VstIntPtr canDo(const char* what)
{
    static const char* const yes[] = {"sendVstTimeInfo", "receiveVstEvents", "sizeWindow", "offline", "supplyIdle"};
    if (!what)
        return 0;
    for (const char* y : yes)
        if (std::strcmp(what, y) == 0)
            return 1;
    return 0;
}

VstIntPtr __HostCallback(AEffect* effect, int opcode, int index, VstIntPtr value, void* ptr, float /*opt*/)
{
    // Answered without looking at the effect: these come also from inside the
    // entry function, before any instance exists.
    switch (opcode) {
    case kAmAutomate:
        return 0;
    case kAmVersion:
        return 2400;
    case kAmCurrentId:
        return VLORVST_CurrentPluginId;
    case kAmGetVendorString:
        if (ptr)
            std::strcpy(static_cast<char*>(ptr), "vloraudio Team");
        return 1;
    case kAmGetProductString:
        if (ptr)
            std::strcpy(static_cast<char*>(ptr), "vloraudio");
        return 1;
    case kAmGetVendorVersion:
        return 32001;
    case kAmCanDo:
        return canDo(static_cast<const char*>(ptr));
    case kAmGetLanguage:
        return 1;
    case kAmUpdateDisplay:
        return 0;
    default:
        break;
    }

    _AEffectInstance* inst = instanceOf(effect);
    if (!inst)
        return 0;
    switch (opcode) {
    case kAmGetTime:
        return reinterpret_cast<VstIntPtr>(aeffectGetTime(&inst->ops));
    case kAmGetCurrentProcessLevel:
        return 2;
    case kAmIdle:
    case kAmBeginEdit:
    case kAmEndEdit:
        if (!inst->alive)
            return 0;
        dispatch(effect, kEffEditIdle);
        return 1;
    case kAmNeedIdle:
        if (!inst->alive)
            return 0;
        dispatch(effect, kEffIdle);
        return 1;
    case kAmSizeWindow: {
        if (!inst->alive)
            return 0;
        _VstEffectMessage message{VSTEFFECT_MESSAGE_RESIZE, &inst->ops, index, int32_t(value)};
        return inst->ops.hostCallback(inst->ops.hostData, &message);
    }
    default:
        return 0;
    }
}

void freeEngine(_AEffectEngine* engine, int numInputs, int numOutputs)
{
    if (!engine)
        return;
    for (int c = 0; engine->inputs && c < numInputs; ++c)
        std::free(engine->inputs[c]);
    for (int c = 0; engine->outputs && c < numOutputs; ++c)
        std::free(engine->outputs[c]);
    std::free(engine->inputs);
    std::free(engine->outputs);
    std::free(engine);
}

float** allocBuffers(int count, int frames)
{
    float** table = static_cast<float**>(std::calloc(size_t(count > 0 ? count : 1), sizeof(float*)));
    for (int c = 0; table && c < count; ++c) {
        table[c] = static_cast<float*>(std::calloc(size_t(frames), sizeof(float)));
        if (!table[c]) {
            for (int k = 0; k < c; ++k)
                std::free(table[k]);
            std::free(table);
            return nullptr;
        }
    }
    return table;
}

void fillOps(_VstEffectInstance* ops)
{
    ops->Check = aeffectCheck;
    ops->GetNumParams = aeffectGetNumParams;
    ops->GetInitialDelay = aeffectGetInitialDelay;
    ops->GetTailSize = aeffectGetTailSize;
    ops->GetParameter = aeffectGetParameter;
    ops->GetParameters = aeffectGetParameters;
    ops->SetParameter = aeffectSetParameter;
    ops->SetParameters = aeffectSetParameters;
    ops->SetBypass = aeffectSetBypass;
    ops->GetCurrentDisplayValue = aeffectGetCurrentDisplayValue;
    ops->GetDisplayValue = aeffectGetDisplayValue;
    ops->SetStringParameter = aeffectSetStringParameter;
    ops->GetNumPrograms = aeffectGetNumPrograms;
    ops->SetProgram = aeffectSetProgram;
    ops->GetProgram = aeffectGetProgram;
    ops->GetProgramName = aeffectGetProgramName;
    ops->SetProgramName = aeffectSetProgramName;
    ops->CanEdit = aeffectCanEdit;
    ops->EditorGetSize = aeffectEditorGetSize;
    ops->EditorOpen = aeffectEditorOpen;
    ops->EditorIdle = aeffectEditorIdle;
    ops->EditorClose = aeffectEditorClose;
    ops->ActivateEngine = aeffectActivateEngine;
    ops->StartEngine = aeffectStartEngine;
    ops->ProcessAudio = aeffectProcessAudio;
    ops->StopEngine = aeffectStopEngine;
    ops->DeactivateEngine = aeffectDeactivateEngine;
    ops->Destroy = aeffectDestroyEffect;
    ops->Terminate = aeffectDestroyEffect;
}

// One block of at most blockSize frames: de-interleave, process, interleave.
void processBlock(AEffect* e, _AEffectEngine* eng, const float* in, float* out, int channels, int frames)
{
    const int numIn = e->numInputs;
    const int numOut = e->numOutputs;
    float** inputs = eng->inputs;
    float** outputs = eng->outputs;

    if (!in || channels <= 0) {
        for (int c = 0; c < numIn; ++c)
            std::memset(inputs[c], 0, sizeof(float) * size_t(frames));
    } else {
        const int used = numIn < channels ? numIn : channels;
        if (used == 2 && channels == 2) {
            deinterleave2(in, inputs[0], inputs[1], frames);
        } else {
            for (int c = 0; c < used; ++c) {
                float* dst = inputs[c];
                const float* src = in + c;
                for (int f = 0; f < frames; ++f)
                    dst[f] = src[size_t(f) * size_t(channels)];
            }
        }
        // A mono source feeds every input of a stereo plugin.
        for (int c = used; c < numIn; ++c)
            std::memcpy(inputs[c], inputs[used - 1], sizeof(float) * size_t(frames));
    }

    e->processReplacing(e, inputs, outputs, frames);

    if (out) {
        const int used = numOut < channels ? numOut : channels;
        if (used == 2 && channels == 2) {
            interleave2(outputs[0], outputs[1], out, frames);
        } else {
            // Channels beyond the plugin's outputs are left as they were.
            for (int c = 0; c < used; ++c) {
                const float* src = outputs[c];
                float* dst = out + c;
                for (int f = 0; f < frames; ++f)
                    dst[size_t(f) * size_t(channels)] = src[f];
            }
        }
    }
    eng->timeInfo.samplePos += frames;
}

} // namespace

/* ---- loading ------------------------------------------------------------- */

extern "C" int _UnsafeLoadVSTPlugin(_VSTEFFECT* effect)
{
    if (!effect)
        return 0;
    const char* name = effect->filename ? effect->filename : "undefined";
    if (effect->loaded && effect->entryPoint && effect->library)
        return 1;

    bool ok = false;
    try {
        if (effect->filename && BLIO_Exists(effect->filename)) {
            void* library = BLLIB_OpenLibrary(effect->filename);
            if (!library) {
                // Released here although the caller releases it too; the
                // platform mutex refuses the second unlock.
                MutexUnlock(effect->lock);
            } else {
                void* entry = BLLIB_GetLibraryFunction(library, "VSTPluginMain");
                if (!entry)
                    entry = BLLIB_GetLibraryFunction(library, "main");
                if (!entry) {
                    BLLIB_CloseLibrary(library);
                } else {
                    effect->library = library;
                    effect->entryPoint = entry;
                    effect->loaded = 1;
                    ok = true;
                }
            }
        }
    } catch (...) {
        BLDEBUG_Error(-1, "_LoadVSTPlugin: Crash on load plugin %s", name);
    }
    if (!ok)
        BLDEBUG_Error(-1, "_LoadVSTPlugin: Fail to load plugin %s", name);
    return ok ? 1 : 0;
}

/* ---- creation ------------------------------------------------------------ */

extern "C" _VstEffectInstance* aeffectCreateEffect(VstHostCallbackProc hostCallback, void* hostData,
                                                   void* entryPoint, int32_t pluginId)
{
    if (!entryPoint)
        return nullptr;
    // A shell asks for this with audioMasterCurrentId from inside its entry.
    VLORVST_CurrentPluginId = pluginId;

    auto* inst = static_cast<_AEffectInstance*>(std::calloc(1, sizeof(_AEffectInstance)));
    if (!inst)
        return nullptr;
    inst->ops.hostCallback = hostCallback ? hostCallback : defaultHostCallback;
    inst->ops.hostData = hostData;

    AEffect* e = reinterpret_cast<EntryProc>(entryPoint)(reinterpret_cast<audioMasterCallback>(__HostCallback));
    inst->effect = e;
    inst->engine = nullptr;
    inst->alive = 1;
    if (!e) {
        std::free(inst);
        return nullptr;
    }
    dispatch(e, kEffSetSampleRate, 0, 0, nullptr, 44100.0f);
    dispatch(e, kEffSetBlockSize, 0, 512);
    dispatch(e, kEffIdentify);
    dispatch(e, kEffOpen);

    // Only now can callbacks find the instance.
    e->resvd1 = reinterpret_cast<VstIntPtr>(inst);
    fillOps(&inst->ops);
    return &inst->ops;
}

extern "C" int aeffectActivateEngine(_VstEffectInstance* i, int blockSize, int sampleRate)
{
    AEffect* e = validAlive(i);
    if (!e || blockSize <= 0 || sampleRate < 6000 || impl(i)->engine)
        return 0;
    // A full on/off cycle at another block size before the real one: some
    // plugins only settle their buffers after such a cycle.
    dispatch(e, kEffSetSampleRate, 0, 0, nullptr, float(sampleRate));
    dispatch(e, kEffSetBlockSize, 0, 11025);
    dispatch(e, kEffMainsChanged, 0, 1);
    dispatch(e, kEffMainsChanged, 0, 0);
    dispatch(e, kEffSetBlockSize, 0, blockSize);
    dispatch(e, kEffMainsChanged, 0, 1);

    auto* eng = static_cast<_AEffectEngine*>(std::calloc(1, sizeof(_AEffectEngine)));
    if (!eng)
        return 0;
    eng->inputs = allocBuffers(e->numInputs, blockSize);
    eng->outputs = allocBuffers(e->numOutputs, blockSize);
    if (!eng->inputs || !eng->outputs) {
        freeEngine(eng, eng->inputs ? e->numInputs : 0, eng->outputs ? e->numOutputs : 0);
        return 0;
    }
    eng->blockSize = blockSize;
    eng->sampleRate = sampleRate;
    eng->timeInfo.sampleRate = sampleRate;
    impl(i)->engine = eng;
    return 1;
}

extern "C" int aeffectDeactivateEngine(_VstEffectInstance* i)
{
    AEffect* e = validAlive(i);
    if (!e || !impl(i)->engine)
        return 0;
    dispatch(e, kEffMainsChanged, 0, 0);
    freeEngine(impl(i)->engine, e->numInputs, e->numOutputs);
    impl(i)->engine = nullptr;
    return 1;
}

extern "C" int aeffectStartEngine(_VstEffectInstance* i)
{
    AEffect* e = validAlive(i);
    if (!e || !impl(i)->engine)
        return 0;
    dispatch(e, kEffStartProcess);
    return 1;
}

extern "C" int aeffectStopEngine(_VstEffectInstance* i)
{
    AEffect* e = validAlive(i);
    if (!e || !impl(i)->engine)
        return 0;
    dispatch(e, kEffStopProcess);
    return 1;
}

extern "C" int aeffectProcessAudio(_VstEffectInstance* i, const float* in, float* out, int channels, int frames)
{
    AEffect* e = validAlive(i);
    _AEffectEngine* eng = e ? impl(i)->engine : nullptr;
    if (!eng || frames < 0 || !e->processReplacing)
        return 0;
    // Callers never pass more than the block size; should one do so anyway,
    // the work is cut into blocks rather than run past the buffers.
    const int step = eng->blockSize;
    const size_t stride = size_t(channels > 0 ? channels : 0);
    for (int done = 0; done < frames; done += step) {
        const int n = frames - done < step ? frames - done : step;
        processBlock(e, eng, in ? in + size_t(done) * stride : nullptr, out ? out + size_t(done) * stride : nullptr,
                     channels, n);
    }
    return 1;
}

extern "C" int aeffectDestroyEffect(_VstEffectInstance* i)
{
    _AEffectInstance* a = impl(i);
    AEffect* e = valid(i);
    if (!e)
        return 0;
    // The plugin frees its AEffect in effClose: read what we need before.
    const int numInputs = e->numInputs;
    const int numOutputs = e->numOutputs;
    if (a->engine && a->alive)
        dispatch(e, kEffStopProcess);
    dispatch(e, kEffClose);
    // A caller that did not deactivate would otherwise leak the buffers.
    freeEngine(a->engine, numInputs, numOutputs);
    std::free(a);
    return 1;
}

/* ---- host side ----------------------------------------------------------- */

extern "C" int _HostCallback(void* hostData, _VstEffectMessage* message)
{
    if (!message)
        return -1;
    switch (message->type) {
    case VSTEFFECT_MESSAGE_RESIZE: {
        int width = message->width;
        int height = message->height;
        return BLNOTIFY_SendEvent(hostData, 0, AUDIOVST_NOTIFY_EDITOR_RESIZE, &width, &height) == 0 ? 1 : 0;
    }
    case VSTEFFECT_MESSAGE_OTHER:
        return 1;
    default:
        return 0;
    }
}

extern "C" const char* callbackOpCodeString(int opcode)
{
    static const char* const names[50] = {"audioMasterAutomate",
                                          "audioMasterVersion",
                                          "audioMasterCurrentId",
                                          "audioMasterIdle",
                                          "audioMasterPinConnected",
                                          "unsuported",
                                          "audioMasterWantMidi",
                                          "audioMasterGetTime",
                                          "audioMasterProcessEvents",
                                          "audioMasterSetTime",
                                          "audioMasterTempoAt",
                                          "audioMasterGetNumAutomatableParameters",
                                          "audioMasterGetParameterQuantization",
                                          "audioMasterIOChanged",
                                          "audioMasterNeedIdle",
                                          "audioMasterSizeWindow",
                                          "audioMasterGetSampleRate",
                                          "audioMasterGetBlockSize",
                                          "audioMasterGetInputLatency",
                                          "audioMasterGetOutputLatency",
                                          "audioMasterGetPreviousPlug",
                                          "audioMasterGetNextPlug",
                                          "audioMasterWillReplaceOrAccumulate",
                                          "audioMasterGetCurrentProcessLevel",
                                          "audioMasterGetAutomationState",
                                          "audioMasterOfflineStart",
                                          "audioMasterOfflineRead",
                                          "audioMasterOfflineWrite",
                                          "audioMasterOfflineGetCurrentPass",
                                          "audioMasterOfflineGetCurrentMetaPass",
                                          "audioMasterSetOutputSampleRate",
                                          "audioMasterGetOutputSpeakerArrangement",
                                          "audioMasterGetVendorString",
                                          "audioMasterGetProductString",
                                          "audioMasterGetVendorVersion",
                                          "audioMasterVendorSpecific",
                                          "audioMasterSetIcon",
                                          "audioMasterCanDo",
                                          "audioMasterGetLanguage",
                                          "audioMasterOpenWindow",
                                          "audioMasterCloseWindow",
                                          "audioMasterGetDirectory",
                                          "audioMasterUpdateDisplay",
                                          "audioMasterBeginEdit",
                                          "audioMasterEndEdit",
                                          "audioMasterOpenFileSelector",
                                          "audioMasterCloseFileSelector",
                                          "audioMasterEditFile",
                                          "audioMasterGetChunkFile",
                                          "audioMasterGetInputSpeakerArrangement"};
    return opcode >= 0 && opcode < 50 ? names[opcode] : "unsuported";
}
