// The client side of the host program's protocol. Each operation takes the
// instance's lock for a whole request and answer, so that the audio thread and
// the user interface can share an instance.
#include "remote_p.h"
#include "remote_ops_p.h"

#include "vlorvst_wire.h"

#include "blpopenio.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace vlorvst_remote {

struct IOCallbacks {
    vlorvstOpenProc open = nullptr;
    vlorvstReadProc read = nullptr;
    vlorvstWriteProc write = nullptr;
    vlorvstAvailableProc available = nullptr;
    vlorvstCloseProc close = nullptr;
    vlorvstCloseProc terminate = nullptr;
} g_io;

constexpr int kReadTimeoutMs = 5000;
constexpr int kCloseTimeoutMs = 10000;


int defaultHostCallback(void*, _VstEffectMessage*) { return 0; }

/* ---- raw reads and writes through the callbacks --------------------------- */


bool writeAll(void* io, const void* data, int size)
{
    if (!io || !g_io.write || size < 0)
        return false;
    return vlorvst::WriteAll([io](const void* p, size_t n) { return g_io.write(io, p, int(n)); }, data, size_t(size));
}

bool readAll(void* io, void* data, int size)
{
    if (!io || !g_io.read || size < 0)
        return false;
    return vlorvst::ReadAll([io](void* p, size_t n) { return g_io.read(io, p, int(n)); }, data, size_t(size));
}

bool send(void* io, const Message& m) { return writeAll(io, m.data(), int(m.size())); }

/* ---- the shape of every operation ---------------------------------------- */


// Drains late events, sends, and waits for the answer; true on "OK  ".
bool request(RemoteInstance* r, const Message& m)
{
    bool ok = false;
    return requestAnswered(r, m, &ok) && ok;
}

// Like request, for commands whose state changes on any answer.
bool requestAnswered(RemoteInstance* r, const Message& m, bool* ok)
{
    vlorvstCheckCommand(&r->ops, nullptr);
    *ok = false;
    int32_t reply = 0;
    const bool got = sendTo(r, m) && vlorvstCheckCommand(&r->ops, &reply);
    answered(r, got);
    if (!got)
        return false;
    *ok = reply == VLORVST_OK;
    return true;
}

// A payload we refused (a wrong count, a string too long) is still in the
// pipe: throw it away now rather than read it as the next answer.
bool orResync(RemoteInstance* r, bool ok)
{
    if (!ok)
        vlorvstFlushInput(r->io);
    return ok;
}

int intQuery(_VstEffectInstance* i, int32_t tag)
{
    RemoteInstance* r = remote(i);
    if (!r || !r->io)
        return 0;
    Locked l(r);
    int32_t v = 0;
    return request(r, Message(tag)) && vlorvstRecvIntValue(r->io, &v) ? v : 0;
}

int plainCommand(_VstEffectInstance* i, const Message& m)
{
    RemoteInstance* r = remote(i);
    if (!r || !r->io)
        return 0;
    Locked l(r);
    return request(r, m) ? 1 : 0;
}

/* ---- the operations ------------------------------------------------------ */

int rCanEdit(_VstEffectInstance* i) { return plainCommand(i, Message(VLORVST_CAN_EDIT)); }

int rEditorGetSize(_VstEffectInstance* i, int* width, int* height)
{
    RemoteInstance* r = remote(i);
    if (width)
        *width = 0;
    if (height)
        *height = 0;
    if (!r || !r->io)
        return 0;
    Locked l(r);
    int32_t w = 0, h = 0;
    if (!request(r, Message(VLORVST_EDITOR_SIZE)) || !vlorvstRecvIntValue(r->io, &w) ||
        !vlorvstRecvIntValue(r->io, &h))
        return 0;
    if (width)
        *width = w;
    if (height)
        *height = h;
    return 1;
}

int rEditorOpen(_VstEffectInstance* i, void* window)
{
    RemoteInstance* r = remote(i);
    if (!r || !r->io || !window || r->editorOpen)
        return 0;
    Locked l(r);
    bool ok = false;
    const bool answered =
        requestAnswered(r, Message(VLORVST_EDITOR_OPEN).u64(uint64_t(reinterpret_cast<uintptr_t>(window))), &ok);
    if (answered)
        r->editorOpen = 1;
    return ok ? 1 : 0;
}

int rEditorIdle(_VstEffectInstance* i)
{
    RemoteInstance* r = remote(i);
    if (!r || !r->io || !r->editorOpen)
        return 0;
    Locked l(r);
    return request(r, Message(VLORVST_EDITOR_IDLE)) ? 1 : 0;
}

int rEditorClose(_VstEffectInstance* i, void* window)
{
    RemoteInstance* r = remote(i);
    if (!r || !r->io || !r->editorOpen)
        return 0;
    Locked l(r);
    bool ok = false;
    if (requestAnswered(r, Message(VLORVST_EDITOR_CLOSE).u64(uint64_t(reinterpret_cast<uintptr_t>(window))), &ok))
        r->editorOpen = 0;
    return ok ? 1 : 0;
}

int rActivateEngine(_VstEffectInstance* i, int blockSize, int sampleRate)
{
    RemoteInstance* r = remote(i);
    if (!r || !r->io || r->activated == 1)
        return 0;
    Locked l(r);
    if (!request(r, Message(VLORVST_ACTIVATE).i32(blockSize).i32(sampleRate)))
        return 0;
    r->activated = 1;
    // A host that cannot map the region (an older one, a closed /proc)
    // leaves the audio on the pipe.
    shmAttach(r, blockSize, sampleRate);
    return 1;
}

int rStartEngine(_VstEffectInstance* i)
{
    RemoteInstance* r = remote(i);
    if (!r || !r->io || !r->activated || r->started == 1)
        return 0;
    Locked l(r);
    if (!request(r, Message(VLORVST_START)))
        return 0;
    r->started = 1;
    return 1;
}

int rStopEngine(_VstEffectInstance* i)
{
    RemoteInstance* r = remote(i);
    if (!r || !r->io || !r->started)
        return 0;
    Locked l(r);
    bool ok = false;
    if (requestAnswered(r, Message(VLORVST_STOP), &ok))
        r->started = 0;
    return ok ? 1 : 0;
}

int rDeactivateEngine(_VstEffectInstance* i)
{
    RemoteInstance* r = remote(i);
    if (!r || !r->io || !r->activated || r->started == 1)
        return 0;
    Locked l(r);
    bool ok = false;
    if (requestAnswered(r, Message(VLORVST_DEACTIVATE), &ok))
        r->activated = 0;
    return ok ? 1 : 0;
}

int rProcessAudio(_VstEffectInstance* i, const float* in, float* out, int channels, int frames)
{
    RemoteInstance* r = remote(i);
    if (!r || !r->io || !r->started || channels <= 0 || frames < 0)
        return 0;
    const long long samples = (long long)channels * frames;
    if (samples > VLORVST_MAX_SAMPLES)
        return 0;
    const size_t bytes = size_t(samples) * sizeof(float);

    // A missing side is one zeroed block for this call: silence in, or a
    // place for the answer to go.
    float* zero = nullptr;
    if (!in || !out) {
        zero = static_cast<float*>(std::calloc(size_t(samples ? samples : 1), sizeof(float)));
        if (!zero)
            return 0;
        if (!in)
            in = zero;
        if (!out)
            out = zero;
    }

    Locked l(r);
    const int shared = shmProcess(r, in, out, channels, frames);
    if (shared >= 0) {
        std::free(zero);
        return shared;
    }
    const size_t need = 16 + bytes;
    if (r->scratchSize < need) {
        char* grown = static_cast<char*>(std::realloc(r->scratch, need));
        if (!grown) {
            std::free(zero);
            return 0;
        }
        r->scratch = grown;
        r->scratchSize = need;
    }
    const int32_t header[4] = {VLORVST_PROCESS, channels, frames, int32_t(samples)};
    std::memcpy(r->scratch, header, sizeof(header));
    std::memcpy(r->scratch + 16, in, bytes);

    vlorvstCheckCommand(&r->ops, nullptr);
    int32_t reply = 0;
    const bool got = sendPrefix(r) && writeAll(r->io, r->scratch, int(need)) && vlorvstCheckCommand(&r->ops, &reply);
    answered(r, got);
    const bool ok = got && reply == VLORVST_OK && orResync(r, vlorvstRecvFloatVector(r->io, out, int(samples)));
    std::free(zero);
    return ok ? 1 : 0;
}

void fillOps(_VstEffectInstance* ops)
{
    ops->Check = rCheck;
    ops->GetNumParams = rGetNumParams;
    ops->GetInitialDelay = rGetInitialDelay;
    ops->GetTailSize = rGetTailSize;
    ops->GetParameter = rGetParameter;
    ops->GetParameters = rGetParameters;
    ops->SetParameter = rSetParameter;
    ops->SetParameters = rSetParameters;
    ops->SetBypass = rSetBypass;
    ops->GetCurrentDisplayValue = rGetCurrentDisplayValue;
    ops->GetDisplayValue = rGetDisplayValue;
    ops->SetStringParameter = rSetStringParameter;
    ops->GetNumPrograms = rGetNumPrograms;
    ops->SetProgram = rSetProgram;
    ops->GetProgram = rGetProgram;
    ops->GetProgramName = rGetProgramName;
    ops->SetProgramName = rSetProgramName;
    ops->CanEdit = rCanEdit;
    ops->EditorGetSize = rEditorGetSize;
    ops->EditorOpen = rEditorOpen;
    ops->EditorIdle = rEditorIdle;
    ops->EditorClose = rEditorClose;
    ops->ActivateEngine = rActivateEngine;
    ops->StartEngine = rStartEngine;
    ops->ProcessAudio = rProcessAudio;
    ops->StopEngine = rStopEngine;
    ops->DeactivateEngine = rDeactivateEngine;
    ops->Destroy = vlorvstDestroyRemoteEffect;
    ops->Terminate = vlorvstTerminateRemoteEffect;
}

void freeRemote(RemoteInstance* r)
{
    shmFree(r);
    VLORVST_MutexDestroy(r->lock);
    std::free(r->scratch);
    std::free(r);
}

/* ---- the platform's pipes ------------------------------------------------- */

void* _openCallback(const char* command) { return BLPOPENIO_Create("rw", command); }
int _readCallback(void* io, void* buffer, int size)
{
    return io ? BLPOPENIO_ReadDataEx(static_cast<BLPOpenIO>(io), buffer, size, kReadTimeoutMs) : 0;
}
int _writeCallback(void* io, const void* buffer, int size)
{
    return io ? BLPOPENIO_WriteData(static_cast<BLPOpenIO>(io), buffer, size) : 0;
}
int _dataAvailableCallback(void* io) { return io ? BLPOPENIO_GetBytesReadAvailable(static_cast<BLPOpenIO>(io)) : 0; }
int _closeCallback(void* io) { return io ? BLPOPENIO_CloseEx(static_cast<BLPOpenIO>(io), 1, kCloseTimeoutMs) : 0; }
int _terminateCallback(void* io) { return io ? BLPOPENIO_CloseEx(static_cast<BLPOpenIO>(io), 0, 0) : 0; }

} // namespace vlorvst_remote

using namespace vlorvst_remote;

/* ---- registration -------------------------------------------------------- */

extern "C" int vlorvstRegisterIOCallbacks(vlorvstOpenProc open, vlorvstReadProc read, vlorvstWriteProc write,
                                          vlorvstAvailableProc dataAvailable, vlorvstCloseProc close,
                                          vlorvstCloseProc terminate)
{
    g_io = IOCallbacks{open, read, write, dataAvailable, close, terminate};
    return 1;
}

extern "C" void _RegisterRemoteIOCallbacks(void)
{
    vlorvstRegisterIOCallbacks(_openCallback, _readCallback, _writeCallback, _dataAvailableCallback, _closeCallback,
                               _terminateCallback);
}

/* ---- wire primitives ----------------------------------------------------- */

extern "C" int vlorvstSendCommand(void* io, int32_t tag) { return writeAll(io, &tag, 4) ? 1 : 0; }
extern "C" int vlorvstRecvCommand(void* io, int32_t* tag) { return tag && readAll(io, tag, 4) ? 1 : 0; }
extern "C" int vlorvstSendIntValue(void* io, int32_t value) { return writeAll(io, &value, 4) ? 1 : 0; }
extern "C" int vlorvstRecvIntValue(void* io, int32_t* value) { return value && readAll(io, value, 4) ? 1 : 0; }
extern "C" int vlorvstSendFloatValue(void* io, float value) { return writeAll(io, &value, 4) ? 1 : 0; }
extern "C" int vlorvstRecvFloatValue(void* io, float* value) { return value && readAll(io, value, 4) ? 1 : 0; }
extern "C" int vlorvstSendUWord64Value(void* io, uint64_t value) { return writeAll(io, &value, 8) ? 1 : 0; }
extern "C" int vlorvstRecvUWord64Value(void* io, uint64_t* value) { return value && readAll(io, value, 8) ? 1 : 0; }

extern "C" int vlorvstSendFloatVector(void* io, const float* values, int count)
{
    if (count < 0 || (!values && count))
        return 0;
    return vlorvstSendIntValue(io, count) && writeAll(io, values, count * int(sizeof(float))) ? 1 : 0;
}

extern "C" int vlorvstRecvFloatVector(void* io, float* values, int count)
{
    int32_t n = 0;
    if (!values || count < 0 || !vlorvstRecvIntValue(io, &n) || n != count)
        return 0;
    return count == 0 || readAll(io, values, count * int(sizeof(float))) ? 1 : 0;
}

extern "C" int vlorvstSendString(void* io, const char* text)
{
    if (!text)
        return 0;
    const int32_t n = int32_t(std::strlen(text));
    return vlorvstSendIntValue(io, n) && (n == 0 || writeAll(io, text, n)) ? 1 : 0;
}

extern "C" int vlorvstRecvString(void* io, char* out, int size)
{
    int32_t n = 0;
    if (!out || size <= 0 || !vlorvstRecvIntValue(io, &n) || n < 0 || n >= size)
        return 0;
    if (n > 0 && !readAll(io, out, n))
        return 0;
    out[n] = '\0';
    return 1;
}

/* ---- the pipe ------------------------------------------------------------ */

extern "C" int vlorvstOpenIO(const char* command, void** io)
{
    if (!g_io.open)
        return command ? 0 : 1;
    if (!g_io.read || !g_io.write || !g_io.close || !command || !io)
        return 0;
    *io = g_io.open(command);
    return *io ? 1 : 0;
}

extern "C" int vlorvstCloseIO(void* io) { return io && g_io.close ? g_io.close(io) : 0; }
extern "C" int vlorvsTerminateIO(void* io) { return io && g_io.terminate ? g_io.terminate(io) : 0; }

extern "C" int vlorvstFlushInput(void* io)
{
    if (!io || !g_io.available || !g_io.read)
        return 0;
    char buf[4096];
    int n;
    while ((n = g_io.available(io)) > 0) {
        if (g_io.read(io, buf, n < int(sizeof(buf)) ? n : int(sizeof(buf))) < 1)
            break;
    }
    return 1;
}

extern "C" int vlorvstPeekCommand(void* io, int32_t* tag)
{
    if (!io || !g_io.available || g_io.available(io) < 4)
        return 0;
    return vlorvstRecvCommand(io, tag);
}

static int _ProcessEvent(RemoteInstance* r)
{
    int32_t values[3];
    for (int32_t& v : values) {
        if (!vlorvstRecvIntValue(r->io, &v)) {
            vlorvstFlushInput(r->io);
            return 0;
        }
    }
    _VstEffectMessage message{values[0], &r->ops, values[1], values[2]};
    if (r->ops.hostCallback)
        r->ops.hostCallback(r->ops.hostData, &message);
    return 1;
}

extern "C" int vlorvstCheckCommand(_VstEffectInstance* effect, int32_t* tag)
{
    RemoteInstance* r = remote(effect);
    if (!r || !r->io)
        return 0;
    if (!tag) {
        // Drain: events that came while nobody asked; anything else is a
        // stale answer and the stream is out of step.
        int32_t seen = 0;
        while (vlorvstPeekCommand(r->io, &seen)) {
            const bool handled = seen == VLORVST_CDAT ? _ProcessEvent(r) != 0
                                 : seen == VLORVST_GROUP_EVENT && r->group ? routeGroupEvent(r)
                                                                           : false;
            if (!handled)
                return 0;
        }
        return 1;
    }
    if (!vlorvstRecvCommand(r->io, tag))
        return 0;
    while (*tag == VLORVST_CDAT || (*tag == VLORVST_GROUP_EVENT && r->group)) {
        const bool handled = *tag == VLORVST_CDAT ? _ProcessEvent(r) != 0 : routeGroupEvent(r);
        if (!handled || !vlorvstRecvCommand(r->io, tag))
            return 0;
    }
    return 1;
}

/* ---- life of a remote instance ------------------------------------------- */

extern "C" _VstEffectInstance* vlorvstCreateRemoteEffect(VstHostCallbackProc hostCallback, void* hostData,
                                                         const char* format, ...)
{
    if (!format)
        return nullptr;
    char* command = nullptr;
    va_list ap;
    va_start(ap, format);
    const int n = vasprintf(&command, format, ap);
    va_end(ap);
    if (n < 0)
        return nullptr;
    void* io = nullptr;
    const int opened = vlorvstOpenIO(command, &io);
    std::free(command);
    if (!opened || !io)
        return nullptr;
    auto* r = static_cast<RemoteInstance*>(std::calloc(1, sizeof(RemoteInstance)));
    if (!r) {
        vlorvsTerminateIO(io);
        return nullptr;
    }
    r->ops.hostCallback = hostCallback ? hostCallback : defaultHostCallback;
    r->ops.hostData = hostData;
    r->io = io;
    r->lock = VLORVST_MutexInit();
    r->crash = kCrashNone;
    fillOps(&r->ops);
    // Nothing is sent yet: the caller's Check is the first exchange.
    return &r->ops;
}

extern "C" int vlorvstDestroyRemoteEffect(_VstEffectInstance* effect)
{
    RemoteInstance* r = remote(effect);
    if (!r || !r->io)
        return 0;
    if (r->started) {
        rStopEngine(effect);
        r->started = 0;
    }
    VLORVST_MutexLock(r->lock);
    shmLeave(r);
    const bool ok = request(r, Message(VLORVST_EXIT));
    VLORVST_MutexUnlock(r->lock);
    if (!ok)
        return 0; // the caller's Terminate is what remains
    if (r->group)
        leaveGroup(r, false);
    else
        vlorvstCloseIO(r->io);
    freeRemote(r);
    return 1;
}

extern "C" int vlorvstTerminateRemoteEffect(_VstEffectInstance* effect)
{
    RemoteInstance* r = remote(effect);
    if (!r)
        return 0;
    // A member leaves its group's host to the others; the last one ends it.
    if (r->group)
        leaveGroup(r, true);
    else
        vlorvsTerminateIO(r->io);
    freeRemote(r);
    return 1;
}

extern "C" void* vlorvstGetIO(_VstEffectInstance* effect) { return effect ? remote(effect)->io : nullptr; }

/* ---- mutexes ------------------------------------------------------------- */

extern "C" pthread_mutex_t* VLORVST_MutexInit(void)
{
    auto* m = static_cast<pthread_mutex_t*>(std::malloc(sizeof(pthread_mutex_t)));
    if (m && pthread_mutex_init(m, nullptr) != 0) {
        std::free(m);
        m = nullptr;
    }
    return m;
}

extern "C" int VLORVST_MutexLock(pthread_mutex_t* m) { return m && pthread_mutex_lock(m) == 0 ? 1 : 0; }
extern "C" int VLORVST_MutexUnlock(pthread_mutex_t* m) { return m && pthread_mutex_unlock(m) == 0 ? 1 : 0; }

extern "C" int VLORVST_MutexDestroy(pthread_mutex_t* m)
{
    if (!m)
        return 0;
    // A mutex that will not be destroyed is still held by somebody: freeing
    // it would leave them unlocking freed memory. It is left, a small leak.
    const int err = pthread_mutex_destroy(m);
    if (err != 0)
        return -err;
    std::free(m);
    return 1;
}
