// The client side of the protocol for a plugin's parameters, their texts,
// its programs and its bypass: each a request under the instance's lock.
#include "remote_ops_p.h"

#include <cstring>

namespace vlorvst_remote {

namespace {

int stringQuery(_VstEffectInstance* i, const Message& m, char* out, int size)
{
    RemoteInstance* r = remote(i);
    if (!r || !r->io || !out || size <= 0)
        return 0;
    Locked l(r);
    return request(r, m) && orResync(r, vlorvstRecvString(r->io, out, size)) ? 1 : 0;
}

} // namespace

int rCheck(_VstEffectInstance* i) { return plainCommand(i, Message(VLORVST_CHECK)); }
int rGetNumParams(_VstEffectInstance* i) { return intQuery(i, VLORVST_NUM_PARAMS); }
int rGetInitialDelay(_VstEffectInstance* i) { return intQuery(i, VLORVST_INITIAL_DELAY); }
int rGetTailSize(_VstEffectInstance* i) { return intQuery(i, VLORVST_TAIL_SIZE); }
int rGetNumPrograms(_VstEffectInstance* i) { return intQuery(i, VLORVST_NUM_PROGRAMS); }

int rGetParameter(_VstEffectInstance* i, int index, float* out)
{
    RemoteInstance* r = remote(i);
    if (out)
        *out = 0.0f;
    if (!r || !r->io)
        return 0;
    Locked l(r);
    float v = 0;
    if (!request(r, Message(VLORVST_GET_PARAM).i32(index)) || !vlorvstRecvFloatValue(r->io, &v))
        return 0;
    if (out)
        *out = v;
    return 1;
}

int rGetParameters(_VstEffectInstance* i, float* out, int count)
{
    RemoteInstance* r = remote(i);
    if (!r || !r->io || !out || count < 0)
        return 0;
    Locked l(r);
    return request(r, Message(VLORVST_GET_PARAMS)) && orResync(r, vlorvstRecvFloatVector(r->io, out, count)) ? 1 : 0;
}

int rSetParameter(_VstEffectInstance* i, int index, float value)
{
    RemoteInstance* r = remote(i);
    if (r && r->io) {
        Locked l(r);
        if (shmQueueParameter(r, index, value))
            return 1;
    }
    return plainCommand(i, Message(VLORVST_SET_PARAM).i32(index).f32(value));
}

int rSetParameters(_VstEffectInstance* i, const float* values, int count)
{
    if (!values || count < 0)
        return 0;
    return plainCommand(i, Message(VLORVST_SET_PARAMS).vec(values, count));
}

int rSetBypass(_VstEffectInstance* i, int bypass)
{
    return plainCommand(i, Message(VLORVST_BYPASS).i32(bypass ? 1 : 0));
}

int rGetCurrentDisplayValue(_VstEffectInstance* i, int index, char* out, int size)
{
    return stringQuery(i, Message(VLORVST_DISPLAY).i32(index), out, size);
}

int rGetDisplayValue(_VstEffectInstance* i, int index, float value, char* out, int size)
{
    return stringQuery(i, Message(VLORVST_DISPLAY_VALUE).i32(index).f32(value), out, size);
}

int rGetProgramName(_VstEffectInstance* i, char* out, int size)
{
    return stringQuery(i, Message(VLORVST_PROGRAM_NAME), out, size);
}

int rSetStringParameter(_VstEffectInstance* i, int index, const char* text)
{
    // The host takes no longer text: refused here, not cut short.
    if (!text || std::strlen(text) >= VLORVST_MAX_STRING)
        return 0;
    return plainCommand(i, Message(VLORVST_STRING_PARAM).i32(index).str(text));
}

int rSetProgram(_VstEffectInstance* i, int program)
{
    return plainCommand(i, Message(VLORVST_SET_PROGRAM).i32(program));
}

int rGetProgram(_VstEffectInstance* i, int* out)
{
    RemoteInstance* r = remote(i);
    if (!r || !r->io)
        return 0;
    Locked l(r);
    int32_t v = 0;
    if (!request(r, Message(VLORVST_GET_PROGRAM)) || !vlorvstRecvIntValue(r->io, &v))
        return 0;
    if (out)
        *out = v;
    return 1;
}

int rSetProgramName(_VstEffectInstance* i, const char* name)
{
    if (!name || std::strlen(name) >= VLORVST_MAX_STRING)
        return 0;
    return plainCommand(i, Message(VLORVST_SET_PROGRAM_NAME).str(name));
}

} // namespace vlorvst_remote
