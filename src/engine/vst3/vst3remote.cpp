// A VST3 instance in a host program of its own, behind the same handle: the
// engine's calls go over the wire (fxremote_p.h), the audio through the
// shared region. What the host told at the start (buses, latency, tail) is
// kept here, so that the audio thread never asks the pipe.
#include "vst3instance_p.h"

#include "fxremote_p.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

using vlorfx::Answer;
using vlorvst::Message;

struct Vst3RemoteSide {
    std::unique_ptr<vlorfx::Remote> link;
    bool started = false;
    int32_t inputs = 0, outputs = 0;
    double latency = 0, tail = 0;
};

namespace {

// Region room: the engine's largest block in up to 8 channels.
constexpr int kRegionFrames = 8192;
constexpr int kRegionChannels = 8;
constexpr int kSpinFrames = 1024;

vlorfx::Remote* linkOf(_Vst3Instance* h)
{
    return h && h->remote && h->remote->link->life() == vlorfx::Life::Alive ? h->remote->link.get() : nullptr;
}

void sink(void* user, int event, int a, int b)
{
    static_cast<_Vst3Instance*>(user)->raise(Vst3HostEvent(event), a, b);
}

int intCall(_Vst3Instance* h, const Message& m)
{
    vlorfx::Remote* r = linkOf(h);
    return r ? r->callInt(m, 0) : 0;
}

} // namespace

_Vst3Instance* vlorvst3CreateRemote(const char* path, const char* uid)
{
    std::string error;
    const std::string command = vlorfx::HostCommand("vlorvst3", "--vst3", {"--fxinstance", path, "--cid", uid});
    std::unique_ptr<vlorfx::Remote> link = vlorfx::Remote::Start(command, &error);
    if (!link)
        return nullptr;
    auto* h = new _Vst3Instance;
    h->remote = new Vst3RemoteSide;
    link->setEventSink(sink, h);
    h->remote->link = std::move(link);
    return h;
}

int vlorvst3DestroyRemote(_Vst3Instance* h)
{
    Vst3RemoteSide* side = h->remote;
    side->link->setEventSink(nullptr, nullptr);
    delete side; // asks the host to end, or ends it
    h->remote = nullptr;
    delete h;
    return 1;
}

extern "C" int VLORVST3_GetRemoteState(_Vst3Instance* h) { return h && h->remote ? int(h->remote->link->life()) : 0; }
extern "C" int VLORVST3_GetRemotePid(_Vst3Instance* h) { return h && h->remote ? h->remote->link->pid() : 0; }
extern "C" int VLORVST3_Terminate(_Vst3Instance* h)
{
    if (!h || !h->remote)
        return 0;
    h->remote->link->terminate();
    return 1;
}

namespace vst3remote {

int start(_Vst3Instance* h)
{
    vlorfx::Remote* r = linkOf(h);
    Vst3RemoteSide* s = h->remote;
    if (!r || s->started)
        return 0;
    const bool ok =
        r->call(Message(VLORFX_FORMAT).i32(h->sampleRate).i32(h->channels).i32(h->offline).i32(h->blockSize)) &&
        r->call(Message(VLORFX_START), [s](Answer& a) {
            int32_t block = 0;
            return a.i32(&block) && a.i32(&s->inputs) && a.i32(&s->outputs) && a.f64(&s->latency) && a.f64(&s->tail);
        });
    if (!ok)
        return 0;
    const int samples = std::min(8 * 16384, kRegionFrames * std::max(kRegionChannels, h->channels));
    if (!r->attachAudio(samples, kSpinFrames, h->sampleRate)) {
        r->call(Message(VLORFX_STOP));
        return 0;
    }
    s->started = true;
    return 1;
}

int stop(_Vst3Instance* h)
{
    vlorfx::Remote* r = linkOf(h);
    if (!r)
        return 0;
    h->remote->started = false;
    return r->call(Message(VLORFX_STOP)) ? 1 : 0;
}

int reset(_Vst3Instance* h)
{
    vlorfx::Remote* r = linkOf(h);
    return r && r->call(Message(VLORFX_RESET)) ? 1 : 0;
}

double latency(_Vst3Instance* h) { return h->remote->latency; }
double tail(_Vst3Instance* h) { return h->remote->tail; }

int busChannels(_Vst3Instance* h, int* inputs, int* outputs)
{
    if (!h->remote->started || !inputs || !outputs)
        return 0;
    *inputs = h->remote->inputs;
    *outputs = h->remote->outputs;
    return 1;
}

int process(_Vst3Instance* h, const float* in, float* out, int channels, int frames)
{
    vlorfx::Remote* r = linkOf(h);
    if (!r || !h->remote->started || !in || !out || channels < 1)
        return 0;
    return r->process(in, out, channels, frames) ? 1 : 0;
}

int numParams(_Vst3Instance* h) { return intCall(h, Message(VLORFX_NUM_PARAMS)); }

int paramInfo(_Vst3Instance* h, int index, Vst3ParamInfo* info)
{
    vlorfx::Remote* r = linkOf(h);
    std::string bytes;
    bool isNull = false;
    if (!r || !info || !r->call(Message(VLORFX_PARAM_INFO).i32(index),
                                [&](Answer& a) { return a.blob(&bytes, &isNull); }))
        return 0;
    if (bytes.size() != sizeof(Vst3ParamInfo))
        return 0;
    std::memcpy(info, bytes.data(), sizeof(Vst3ParamInfo));
    return 1;
}

double paramNormalized(_Vst3Instance* h, uint32_t id)
{
    vlorfx::Remote* r = linkOf(h);
    double v = 0;
    return r && r->call(Message(VLORFX_GET_PARAM).u64(id), [&v](Answer& a) { return a.f64(&v); }) ? v : 0.0;
}

int setParamNormalized(_Vst3Instance* h, uint32_t id, double value)
{
    uint64_t bits;
    std::memcpy(&bits, &value, 8);
    return intCall(h, Message(VLORFX_SET_PARAM).u64(id).u64(bits));
}

int paramDisplay(_Vst3Instance* h, uint32_t id, double value, char* buffer, int size)
{
    vlorfx::Remote* r = linkOf(h);
    uint64_t bits;
    std::memcpy(&bits, &value, 8);
    std::string text;
    if (!r || !buffer || size <= 0 ||
        !r->call(Message(VLORFX_DISPLAY).u64(id).u64(bits), [&text](Answer& a) { return a.str(&text); }))
        return 0;
    const size_t n = std::min(text.size(), size_t(size - 1));
    std::memcpy(buffer, text.data(), n);
    buffer[n] = '\0';
    return 1;
}

int setParamByString(_Vst3Instance* h, uint32_t id, const char* text)
{
    return text ? intCall(h, Message(VLORFX_SET_TEXT).u64(id).str(text)) : 0;
}

int setBypass(_Vst3Instance* h, int on) { return intCall(h, Message(VLORFX_BYPASS).i32(on ? 1 : 0)); }

char* getConfig(_Vst3Instance* h)
{
    vlorfx::Remote* r = linkOf(h);
    std::string bytes;
    bool isNull = true;
    if (!r || !r->call(Message(VLORFX_GET_STATE), [&](Answer& a) { return a.blob(&bytes, &isNull); }) || isNull)
        return nullptr;
    return strdup(bytes.c_str());
}

int setConfig(_Vst3Instance* h, const char* config, bool notify)
{
    if (!config)
        return 0;
    Message m(VLORFX_SET_STATE);
    m.i32(int32_t(std::strlen(config))).bytes(config, std::strlen(config)).i32(notify ? 1 : 0);
    return intCall(h, m);
}

int hasEditor(_Vst3Instance* h) { return intCall(h, Message(VLORFX_HAS_EDITOR)); }

int editorSize(_Vst3Instance* h, int32_t* width, int32_t* height)
{
    vlorfx::Remote* r = linkOf(h);
    int32_t ok = 0, w = 0, hh = 0;
    if (!r || !width || !height ||
        !r->call(Message(VLORFX_EDITOR_SIZE), [&](Answer& a) { return a.i32(&ok) && a.i32(&w) && a.i32(&hh); }) ||
        !ok)
        return 0;
    *width = w;
    *height = hh;
    return 1;
}

int editorOpen(_Vst3Instance* h, uint64_t window)
{
    vlorfx::Remote* r = linkOf(h);
    int32_t ok = 0;
    std::string reason;
    return r && window &&
                   r->call(Message(VLORFX_EDITOR_OPEN).u64(window),
                           [&](Answer& a) { return a.i32(&ok) && a.str(&reason); }) &&
                   ok
               ? 1
               : 0;
}

int editorClose(_Vst3Instance* h) { return intCall(h, Message(VLORFX_EDITOR_CLOSE)); }
int editorOnSize(_Vst3Instance* h, int32_t w, int32_t hh) { return intCall(h, Message(VLORFX_EDITOR_RESIZE).i32(w).i32(hh)); }
int editorCanResize(_Vst3Instance* h) { return intCall(h, Message(VLORFX_EDITOR_CAN_RESIZE)); }

// The host program gives the editor its time; here only its events arrive.
int editorIdle(_Vst3Instance* h)
{
    if (vlorfx::Remote* r = linkOf(h))
        r->pollEvents();
    return 0;
}

} // namespace vst3remote
