// An LV2 instance in a host program of its own, behind the same handle: the
// engine's calls over the wire (fxremote_p.h), the audio through the shared
// region. The editor is made in the host program, in the window the caller
// gives; its events come back here to the caller's callback.
#include "lv2instance_p.h"
#include "lv2remote_p.h"

#include "fxremote_p.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using vlorfx::Answer;
using vlorvst::Message;

struct Lv2RemoteSide {
    std::unique_ptr<vlorfx::Remote> link;
    int maxBlock = 0;
    int inputs = 0, outputs = 0;
    bool active = false;
    Lv2UiCallback uiCallback = nullptr;
    void* uiUser = nullptr;
    std::atomic<bool> uiOpen{false};
};

namespace {

constexpr int kRegionChannels = 8;
constexpr int kSpinFrames = 1024;

vlorfx::Remote* linkOf(_Lv2Instance* d)
{
    return d && d->remote && d->remote->link->life() == vlorfx::Life::Alive ? d->remote->link.get() : nullptr;
}

void sink(void* user, int event, int a, int b)
{
    Lv2RemoteSide* s = static_cast<_Lv2Instance*>(user)->remote;
    if (event == VLORFX_EVENT_EDITOR_CLOSED) {
        s->uiOpen.store(false);
        return;
    }
    if (s->uiCallback)
        s->uiCallback(s->uiUser, event, a, b);
}

int intCall(_Lv2Instance* d, const Message& m, int fallback = 0)
{
    vlorfx::Remote* r = linkOf(d);
    return r ? r->callInt(m, fallback) : fallback;
}

void copyText(char* out, int size, const std::string& text)
{
    if (out && size > 0)
        std::snprintf(out, size_t(size), "%s", text.c_str());
}

} // namespace

namespace vlorlv2 {

_Lv2Instance* CreateRemote(const char* uri, double sampleRate, int maxBlock, char* error, int errorSize)
{
    std::vector<std::string> args{"--fxinstance", uri, "--rate", std::to_string(sampleRate), "--block",
                                  std::to_string(maxBlock)};
    const std::string bundle = BundleOf(uri);
    if (!bundle.empty())
        args.insert(args.end(), {"--bundle", bundle});
    std::string why;
    std::unique_ptr<vlorfx::Remote> link = vlorfx::Remote::Start(vlorfx::HostCommand("vlorlv2", "--lv2", args), &why);
    if (!link) {
        copyText(error, errorSize, why);
        return nullptr;
    }
    auto* d = new _Lv2Instance;
    d->uri = uri;
    d->sampleRate = sampleRate;
    d->maxBlock = maxBlock;
    d->remote = new Lv2RemoteSide;
    d->remote->maxBlock = maxBlock;
    link->setEventSink(sink, d);
    d->remote->link = std::move(link);
    Lv2RemoteSide* s = d->remote;
    s->link->call(Message(VLORFX_BUSES), [s](Answer& a) { return a.i32(&s->inputs) && a.i32(&s->outputs); });
    return d;
}

int DestroyRemote(_Lv2Instance* d)
{
    d->remote->link->setEventSink(nullptr, nullptr);
    delete d->remote;
    d->remote = nullptr;
    delete d;
    return 1;
}

} // namespace vlorlv2

extern "C" int VLORLV2_GetRemoteState(_Lv2Instance* d) { return d && d->remote ? int(d->remote->link->life()) : 0; }
extern "C" int VLORLV2_GetRemotePid(_Lv2Instance* d) { return d && d->remote ? d->remote->link->pid() : 0; }
extern "C" int VLORLV2_Terminate(_Lv2Instance* d)
{
    if (!d || !d->remote)
        return 0;
    d->remote->link->terminate();
    return 1;
}

namespace lv2remote {

int activate(_Lv2Instance* d)
{
    vlorfx::Remote* r = linkOf(d);
    Lv2RemoteSide* s = d->remote;
    if (!r)
        return 0;
    if (s->active)
        return 1;
    int32_t block = 0, inputs = 0, outputs = 0;
    double latency = 0, tail = 0;
    const int channels = std::max({kRegionChannels, s->inputs, s->outputs});
    if (!r->call(Message(VLORFX_START), [&](Answer& a) {
            return a.i32(&block) && a.i32(&inputs) && a.i32(&outputs) && a.f64(&latency) && a.f64(&tail);
        }) ||
        !r->attachAudio(std::min(8 * 16384, s->maxBlock * channels), kSpinFrames, int(d->sampleRate)))
        return 0;
    s->active = true;
    return 1;
}

int deactivate(_Lv2Instance* d)
{
    vlorfx::Remote* r = linkOf(d);
    if (!r)
        return 0;
    d->remote->active = false;
    return r->call(Message(VLORFX_STOP)) ? 1 : 0;
}

int busChannels(_Lv2Instance* d, int* inputs, int* outputs)
{
    if (!inputs || !outputs)
        return 0;
    *inputs = d->remote->inputs;
    *outputs = d->remote->outputs;
    return 1;
}

int latency(_Lv2Instance* d)
{
    vlorfx::Remote* r = linkOf(d);
    double frames = 0;
    return r && r->call(Message(VLORFX_LATENCY), [&frames](Answer& a) { return a.f64(&frames); }) ? int(frames) : 0;
}

int process(_Lv2Instance* d, const float* in, float* out, int channels, int frames)
{
    vlorfx::Remote* r = linkOf(d);
    if (!r || !d->remote->active || !in || !out || channels < 1)
        return 0;
    return r->process(in, out, channels, frames) ? 1 : 0;
}

int numParams(_Lv2Instance* d) { return intCall(d, Message(VLORFX_NUM_PARAMS), -1); }

int paramInfo(_Lv2Instance* d, int index, Lv2ParamInfo* info)
{
    vlorfx::Remote* r = linkOf(d);
    std::string bytes;
    bool isNull = false;
    if (!r || !info ||
        !r->call(Message(VLORFX_PARAM_INFO).i32(index), [&](Answer& a) { return a.blob(&bytes, &isNull); }) ||
        bytes.size() != sizeof(Lv2ParamInfo))
        return 0;
    std::memcpy(info, bytes.data(), sizeof(Lv2ParamInfo));
    return 1;
}

int scalePoint(_Lv2Instance* d, int index, int point, float* value, char* label, int labelSize)
{
    vlorfx::Remote* r = linkOf(d);
    float v = 0;
    std::string text;
    if (!r || !r->call(Message(VLORFX_SCALE_POINT).i32(index).i32(point),
                       [&](Answer& a) { return a.f32(&v) && a.str(&text); }))
        return 0;
    if (value)
        *value = v;
    copyText(label, labelSize, text);
    return 1;
}

float param(_Lv2Instance* d, int index)
{
    vlorfx::Remote* r = linkOf(d);
    double v = 0;
    return r && r->call(Message(VLORFX_GET_PARAM).u64(uint64_t(index)), [&v](Answer& a) { return a.f64(&v); })
               ? float(v)
               : 0.0f;
}

int setParam(_Lv2Instance* d, int index, float value)
{
    const double v = value;
    uint64_t bits;
    std::memcpy(&bits, &v, 8);
    return intCall(d, Message(VLORFX_SET_PARAM).u64(uint64_t(index)).u64(bits));
}

char* state(_Lv2Instance* d)
{
    vlorfx::Remote* r = linkOf(d);
    std::string bytes;
    bool isNull = true;
    if (!r || !r->call(Message(VLORFX_GET_STATE), [&](Answer& a) { return a.blob(&bytes, &isNull); }) || isNull)
        return nullptr;
    return strdup(bytes.c_str());
}

int setState(_Lv2Instance* d, const char* text)
{
    if (!text)
        return 0;
    const size_t n = std::strlen(text);
    return intCall(d, Message(VLORFX_SET_STATE).i32(int32_t(n)).bytes(text, n).i32(0));
}

int hasUi(_Lv2Instance* d) { return intCall(d, Message(VLORFX_HAS_EDITOR)); }

int uiOpen(_Lv2Instance* d, uint64_t parent, Lv2UiCallback callback, void* user, char* error, int errorSize)
{
    vlorfx::Remote* r = linkOf(d);
    Lv2RemoteSide* s = d->remote;
    int32_t ok = 0;
    std::string why = "the plugin's host program is gone";
    s->uiCallback = callback;
    s->uiUser = user;
    if (r)
        r->call(Message(VLORFX_EDITOR_OPEN).u64(parent), [&](Answer& a) { return a.i32(&ok) && a.str(&why); });
    s->uiOpen.store(ok != 0);
    copyText(error, errorSize, ok ? std::string() : why);
    return ok ? 1 : 0;
}

// The host program gives the editor its time; here its events arrive.
int uiIdle(_Lv2Instance* d)
{
    vlorfx::Remote* r = linkOf(d);
    if (!r)
        return 0;
    r->pollEvents();
    return d->remote->uiOpen.load() ? 1 : 0;
}

uint64_t uiWidget(_Lv2Instance* d)
{
    vlorfx::Remote* r = linkOf(d);
    uint64_t window = 0;
    return r && r->call(Message(VLORFX_EDITOR_WINDOW), [&window](Answer& a) { return a.u64(&window); }) ? window : 0;
}

int uiSize(_Lv2Instance* d, int* width, int* height)
{
    vlorfx::Remote* r = linkOf(d);
    int32_t ok = 0, w = 0, h = 0;
    if (!r || !r->call(Message(VLORFX_EDITOR_SIZE), [&](Answer& a) { return a.i32(&ok) && a.i32(&w) && a.i32(&h); }) ||
        !ok)
        return 0;
    if (width)
        *width = w;
    if (height)
        *height = h;
    return 1;
}

int uiSetSize(_Lv2Instance* d, int width, int height)
{
    return intCall(d, Message(VLORFX_EDITOR_RESIZE).i32(width).i32(height));
}

int uiClose(_Lv2Instance* d)
{
    d->remote->uiOpen.store(false);
    return intCall(d, Message(VLORFX_EDITOR_CLOSE));
}

} // namespace lv2remote
