// A VST2 plugin in this process: its parameters and their texts, its
// programs, its editor and its bypass, each call checked before it reaches
// the plugin.
#include "aeffect_ops_p.h"

#include <cstdio>
#include <cstring>

using namespace aeffect;

extern "C" AEffect* aeffectGetAEffect(_VstEffectInstance* i) { return valid(i); }

extern "C" int aeffectGetString(_VstEffectInstance* i, int opcode, int index, char* out, int size)
{
    AEffect* e = validAlive(i);
    if (!e || !out || size <= 0)
        return 0;
    // Plugins overrun the classic limits freely; give them room and cut after.
    char buf[512];
    std::memset(buf, 0, sizeof(buf));
    dispatch(e, opcode, index, 0, buf);
    buf[sizeof(buf) - 1] = '\0';
    std::snprintf(out, size_t(size), "%s", buf);
    return 1;
}

extern "C" VstTimeInfo* aeffectGetTime(_VstEffectInstance* i)
{
    _AEffectInstance* a = impl(i);
    return a && a->engine ? &a->engine->timeInfo : nullptr;
}

/* ---- operations ---------------------------------------------------------- */

extern "C" int aeffectCheck(_VstEffectInstance* i) { return valid(i) ? 1 : 0; }

extern "C" int aeffectGetNumParams(_VstEffectInstance* i)
{
    AEffect* e = valid(i);
    return e ? e->numParams : 0;
}

extern "C" int aeffectGetNumPrograms(_VstEffectInstance* i)
{
    AEffect* e = valid(i);
    return e ? e->numPrograms : 0;
}

extern "C" int aeffectGetInitialDelay(_VstEffectInstance* i)
{
    AEffect* e = valid(i);
    return e ? e->initialDelay : 0;
}

extern "C" int aeffectCanEdit(_VstEffectInstance* i)
{
    AEffect* e = valid(i);
    return e ? int(uint32_t(e->flags) & 1u) : 0;
}

extern "C" int aeffectGetTailSize(_VstEffectInstance* i)
{
    AEffect* e = valid(i);
    return e ? int(dispatch(e, kEffGetTailSize)) : 0;
}

extern "C" int aeffectGetParameter(_VstEffectInstance* i, int index, float* out)
{
    AEffect* e = validAlive(i);
    if (!e || !indexOk(e, index))
        return 0;
    if (out)
        *out = e->getParameter(e, index);
    return 1;
}

extern "C" int aeffectSetParameter(_VstEffectInstance* i, int index, float value)
{
    AEffect* e = validAlive(i);
    if (!e || !indexOk(e, index))
        return 0;
    // An unchanged value does not reach the plugin.
    if (e->getParameter(e, index) != value)
        e->setParameter(e, index, value);
    return 1;
}

extern "C" int aeffectGetParameters(_VstEffectInstance* i, float* out, int count)
{
    AEffect* e = validAlive(i);
    if (!e || !out || count != e->numParams)
        return 0;
    for (int k = 0; k < count; ++k)
        out[k] = e->getParameter(e, k);
    return 1;
}

extern "C" int aeffectSetParameters(_VstEffectInstance* i, const float* values, int count)
{
    AEffect* e = validAlive(i);
    if (!e || !values || count != e->numParams)
        return 0;
    for (int k = 0; k < count; ++k)
        if (e->getParameter(e, k) != values[k])
            e->setParameter(e, k, values[k]);
    return 1;
}

extern "C" int aeffectSetStringParameter(_VstEffectInstance* i, int index, const char* text)
{
    AEffect* e = validAlive(i);
    if (!e || !indexOk(e, index))
        return 0;
    return dispatch(e, kEffString2Parameter, index, 0, const_cast<char*>(text)) != 0 ? 1 : 0;
}

extern "C" int aeffectSetProgram(_VstEffectInstance* i, int program)
{
    AEffect* e = validAlive(i);
    if (!e || program < 0 || program >= e->numPrograms)
        return 0;
    dispatch(e, kEffSetProgram, 0, program);
    return 1;
}

extern "C" int aeffectGetProgram(_VstEffectInstance* i, int* out)
{
    AEffect* e = validAlive(i);
    if (!e)
        return 0;
    const int p = int(dispatch(e, kEffGetProgram));
    if (out)
        *out = p;
    return 1;
}

extern "C" int aeffectSetProgramName(_VstEffectInstance* i, const char* name)
{
    AEffect* e = validAlive(i);
    if (!e || !name)
        return 0;
    dispatch(e, kEffSetProgramName, 0, 0, const_cast<char*>(name));
    return 1;
}

// Texts from the plugin are cut by a zero put in after the call, whatever the
// plugin wrote; the buffer handed over is larger than the limit, since many
// plugins write past it.
extern "C" int aeffectGetProgramName(_VstEffectInstance* i, char* out, int size)
{
    AEffect* e = validAlive(i);
    if (!e || !out || size < 24)
        return 0;
    char buf[256];
    std::memset(buf, 0, sizeof(buf));
    dispatch(e, kEffGetProgramName, 0, 0, buf);
    buf[23] = '\0';
    std::memset(out, 0, 24);
    std::memcpy(out, buf, 24);
    return 1;
}

extern "C" int aeffectGetCurrentDisplayValue(_VstEffectInstance* i, int index, char* out, int size)
{
    AEffect* e = validAlive(i);
    if (!e || !indexOk(e, index) || !out || size < 8)
        return 0;
    char buf[256];
    std::memset(buf, 0, sizeof(buf));
    dispatch(e, kEffGetParamDisplay, index, 0, buf);
    buf[7] = '\0';
    std::memcpy(out, buf, 8);
    return 1;
}

extern "C" int aeffectGetDisplayValue(_VstEffectInstance* i, int index, float value, char* out, int size)
{
    AEffect* e = validAlive(i);
    if (!e || !indexOk(e, index) || !out || size < 8)
        return 0;
    const float saved = e->getParameter(e, index);
    e->setParameter(e, index, value);
    aeffectGetCurrentDisplayValue(i, index, out, size);
    e->setParameter(e, index, saved);
    return 1;
}

extern "C" int aeffectEditorGetSize(_VstEffectInstance* i, int* width, int* height)
{
    AEffect* e = validAlive(i);
    if (width)
        *width = 0;
    if (height)
        *height = 0;
    if (!e)
        return 0;
    ERect* rect = nullptr;
    const VstIntPtr r = dispatch(e, kEffEditGetRect, 0, 0, &rect);
    if (rect) {
        if (width)
            *width = rect->right - rect->left;
        if (height)
            *height = rect->bottom - rect->top;
    }
    return r != 0 ? 1 : 0;
}

extern "C" int aeffectEditorOpen(_VstEffectInstance* i, void* window)
{
    AEffect* e = valid(i);
    if (!e)
        return 0;
    dispatch(e, kEffEditOpen, 0, 0, window);
    return 1;
}

extern "C" int aeffectEditorIdle(_VstEffectInstance* i)
{
    AEffect* e = valid(i);
    if (!e)
        return 0;
    dispatch(e, kEffEditIdle);
    return 1;
}

extern "C" int aeffectEditorClose(_VstEffectInstance* i, void* window)
{
    AEffect* e = valid(i);
    if (!e)
        return 0;
    dispatch(e, kEffEditClose, 0, 0, window);
    return 1;
}

extern "C" int aeffectSetBypass(_VstEffectInstance* i, int bypass)
{
    AEffect* e = valid(i);
    return e && dispatch(e, kEffSetBypass, 0, bypass) != 0 ? 1 : 0;
}

/* ---- engine -------------------------------------------------------------- */
