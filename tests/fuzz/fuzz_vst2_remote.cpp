// The protocol client against a host that answers with whatever the fuzzer
// makes up: every operation must fail or succeed, never crash or hang. When
// the made-up answers accept the shared region, a block server of ours maps
// it and answers each block with a status and events from the input's last
// bytes.
#include "remote_p.h"
#include "shmaudio_p.h"
#include "vlorvst_protocol.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct Stream {
    const uint8_t* data;
    size_t size;
    size_t pos;
};

Stream g_stream;

// The host's side of the region, once "shma" went out.
struct Blocks {
    vlorshm::Region region;
    std::thread thread;
    int32_t status = 0, numEvents = 0;

    void attach(const char* message, int size)
    {
        int32_t head[4];
        if (size != int(sizeof(head)) || thread.joinable())
            return;
        std::memcpy(head, message, sizeof(head));
        if (!region.attach(head[1], head[2], head[3]))
            return;
        vlorshm::Header* h = region.header();
        h->hostPid.store(int32_t(getpid()));
        const uint32_t seq = h->request.seq.load();
        thread = std::thread([this, h, seq] {
            for (uint32_t served = seq;;) {
                vlorshm::WaitFor(&h->request, vlorshm::Until{served, true}, 0, 50, -1, [] { return true; });
                if (h->quit.load())
                    return;
                served = h->request.seq.load();
                h->status = status;
                h->numEvents = numEvents;
                for (vlorshm::Event& e : h->events)
                    e = vlorshm::Event{numEvents, status, 7};
                vlorshm::Ring(&h->reply, served);
            }
        });
    }
    void end()
    {
        if (thread.joinable()) {
            region.header()->quit.store(1);
            vlorshm::Ring(&region.header()->request, region.header()->request.seq.load() + 1);
            thread.join();
        }
        region.release();
    }
};

Blocks g_blocks;

void* openIO(const char*) { return &g_stream; }
int readIO(void* io, void* buffer, int size)
{
    auto* s = static_cast<Stream*>(io);
    const size_t n = std::min(size_t(size), s->size - s->pos);
    std::memcpy(buffer, s->data + s->pos, n);
    s->pos += n;
    return int(n);
}
int writeIO(void*, const void* data, int size)
{
    int32_t tag = 0;
    if (size >= 4)
        std::memcpy(&tag, data, 4);
    if (tag == VLORVST_SHM_ATTACH)
        g_blocks.attach(static_cast<const char*>(data), size);
    return size;
}
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
    g_blocks.status = g_blocks.numEvents = 0;
    if (size >= 8) {
        std::memcpy(&g_blocks.status, data + size - 8, 4);
        std::memcpy(&g_blocks.numEvents, data + size - 4, 4);
    }
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
    fx->SetParameter(fx, 0, 0.5f);
    fx->SetParameter(fx, 1 << 30, 0.5f);
    fx->ProcessAudio(fx, audio.data(), audio.data(), 2, 64);
    fx->ProcessAudio(fx, nullptr, nullptr, 2, 64);
    fx->StopEngine(fx);
    fx->DeactivateEngine(fx);
    if (!fx->Destroy(fx))
        fx->Terminate(fx);
    g_blocks.end();
    return 0;
}
