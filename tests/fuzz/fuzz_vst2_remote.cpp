// The protocol client against a host that answers with whatever the fuzzer
// makes up: every operation must fail or succeed, never crash or hang.
#include "remote_p.h"
#include "vlorvst_protocol.h"

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

struct Stream {
    const uint8_t* data;
    size_t size;
    size_t pos;
};

Stream g_stream;

void* openIO(const char*) { return &g_stream; }
int readIO(void* io, void* buffer, int size)
{
    auto* s = static_cast<Stream*>(io);
    const size_t n = std::min(size_t(size), s->size - s->pos);
    std::memcpy(buffer, s->data + s->pos, n);
    s->pos += n;
    return int(n);
}
int writeIO(void*, const void*, int size) { return size; }
int availableIO(void* io)
{
    auto* s = static_cast<Stream*>(io);
    return int(s->size - s->pos);
}
int closeIO(void*) { return 0; }

int callback(void*, _VstEffectMessage*) { return 1; }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    g_stream = Stream{data, size, 0};
    vlorvstRegisterIOCallbacks(openIO, readIO, writeIO, availableIO, closeIO, closeIO);
    _VstEffectInstance* fx = vlorvstCreateRemoteEffect(callback, nullptr, "fuzz");
    if (!fx)
        return 0;
    char text[64];
    float values[8];
    std::vector<float> audio(2 * 64, 0.25f);
    int w = 0, h = 0, program = 0;
    float v = 0;
    fx->Check(fx);
    fx->GetNumParams(fx);
    fx->GetParameter(fx, 0, &v);
    fx->GetParameters(fx, values, 8);
    fx->GetCurrentDisplayValue(fx, 0, text, sizeof(text));
    fx->GetDisplayValue(fx, 1, 0.5f, text, sizeof(text));
    fx->GetProgramName(fx, text, sizeof(text));
    fx->GetProgram(fx, &program);
    fx->EditorGetSize(fx, &w, &h);
    fx->EditorOpen(fx, reinterpret_cast<void*>(1));
    fx->EditorIdle(fx);
    fx->EditorClose(fx, reinterpret_cast<void*>(1));
    fx->ActivateEngine(fx, 64, 44100);
    fx->StartEngine(fx);
    fx->ProcessAudio(fx, audio.data(), audio.data(), 2, 64);
    fx->ProcessAudio(fx, nullptr, nullptr, 2, 64);
    fx->StopEngine(fx);
    fx->DeactivateEngine(fx);
    if (!fx->Destroy(fx))
        fx->Terminate(fx);
    return 0;
}
