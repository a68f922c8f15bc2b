#ifndef AEFFECT_OPS_P_H
#define AEFFECT_OPS_P_H
// What the files of the in-process adapter share: the numbers of the
// published interface and the checks every operation starts with.
#include "aeffect_p.h"

namespace aeffect {

// The numbers of the published interface. Some carry made-up values in the
// header we compile against, so none of its names are used for opcodes.
enum EffectOpcode {
    kEffOpen = 0,
    kEffClose = 1,
    kEffSetProgram = 2,
    kEffGetProgram = 3,
    kEffSetProgramName = 4,
    kEffGetProgramName = 5,
    kEffGetParamDisplay = 7,
    kEffSetSampleRate = 10,
    kEffSetBlockSize = 11,
    kEffMainsChanged = 12,
    kEffEditGetRect = 13,
    kEffEditOpen = 14,
    kEffEditClose = 15,
    kEffEditIdle = 19,
    kEffIdentify = 22,
    kEffString2Parameter = 27,
    kEffSetBypass = 44,
    kEffGetTailSize = 52,
    kEffIdle = 53,
    kEffStartProcess = 71,
    kEffStopProcess = 72,
};

enum HostOpcode {
    kAmAutomate = 0,
    kAmVersion = 1,
    kAmCurrentId = 2,
    kAmIdle = 3,
    kAmGetTime = 7,
    kAmNeedIdle = 14,
    kAmSizeWindow = 15,
    kAmGetCurrentProcessLevel = 23,
    kAmGetVendorString = 32,
    kAmGetProductString = 33,
    kAmGetVendorVersion = 34,
    kAmCanDo = 37,
    kAmGetLanguage = 38,
    kAmUpdateDisplay = 42,
    kAmBeginEdit = 43,
    kAmEndEdit = 44,
};

constexpr int32_t kVstMagic = 0x56737450; // "VstP"

typedef AEffect* (*EntryProc)(audioMasterCallback);

inline _AEffectInstance* impl(_VstEffectInstance* i) { return reinterpret_cast<_AEffectInstance*>(i); }

// Every operation starts here: an instance, an effect, the right magic.
inline AEffect* valid(_VstEffectInstance* i)
{
    _AEffectInstance* a = impl(i);
    return a && a->effect && a->effect->magic == kVstMagic ? a->effect : nullptr;
}

inline AEffect* validAlive(_VstEffectInstance* i)
{
    AEffect* e = valid(i);
    return e && impl(i)->alive ? e : nullptr;
}

inline VstIntPtr dispatch(AEffect* e, int op, int index = 0, VstIntPtr value = 0, void* ptr = nullptr, float opt = 0)
{
    return e->dispatcher(e, op, index, value, ptr, opt);
}

inline bool indexOk(AEffect* e, int index) { return index >= 0 && index < e->numParams; }

} // namespace aeffect

#endif
