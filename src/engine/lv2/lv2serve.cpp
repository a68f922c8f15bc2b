// The host program's side of an LV2 instance of its own: the engine's
// in-process calls, one per command of the library, and the editor's idle
// time between them.
#include "lv2instance_p.h"

#include "fxisolation.h"
#include "fxserve_p.h"

#include <cstdlib>
#include <cstring>

namespace {

using vlorfx::Request;
using vlorvst::Message;

void postEvent(void*, int event, int a, int b) { vlorfx::PostEvent(event, a, b); }

class Lv2Plugin final : public vlorfx::Plugin {
public:
    explicit Lv2Plugin(_Lv2Instance* d) : m_d(d) {}
    ~Lv2Plugin() override
    {
        VLORLV2_UiClose(m_d);
        VLORLV2_DestroyInstance(m_d);
    }
    bool process(const float* in, float* out, int channels, int frames) override
    {
        return VLORLV2_ProcessAudio(m_d, in, out, channels, frames) == 1;
    }
    bool editorOpen() const override { return m_editor; }
    void idle() override
    {
        if (m_editor && !VLORLV2_UiIdle(m_d)) {
            // Its user closed it: the library's dialog hears so.
            VLORLV2_UiClose(m_d);
            m_editor = false;
            vlorfx::PostEvent(VLORFX_EVENT_EDITOR_CLOSED, 0, 0);
        }
    }
    bool command(int32_t tag, Request& in, Message& answer) override
    {
        return engine(tag, in, answer) || parameter(tag, in, answer) || editor(tag, in, answer);
    }

private:
    bool engine(int32_t tag, Request& in, Message& answer);
    bool parameter(int32_t tag, Request& in, Message& answer);
    bool editor(int32_t tag, Request& in, Message& answer);
    _Lv2Instance* m_d;
    bool m_editor = false;
};

bool Lv2Plugin::engine(int32_t tag, Request& in, Message& answer)
{
    int inputs = 0, outputs = 0;
    int32_t notify = 0;
    std::string state;
    switch (tag) {
    case VLORFX_BUSES:
        VLORLV2_GetBusChannels(m_d, &inputs, &outputs);
        answer.i32(inputs).i32(outputs);
        return true;
    case VLORFX_START:
        if (!VLORLV2_Activate(m_d))
            return false;
        VLORLV2_GetBusChannels(m_d, &inputs, &outputs);
        answer.i32(0).i32(inputs).i32(outputs);
        vlorfx::PutF64(answer, VLORLV2_GetLatency(m_d));
        vlorfx::PutF64(answer, 0.0);
        return true;
    case VLORFX_STOP:
        return VLORLV2_Deactivate(m_d) == 1;
    case VLORFX_LATENCY:
        vlorfx::PutF64(answer, VLORLV2_GetLatency(m_d));
        return true;
    case VLORFX_GET_STATE: {
        char* text = VLORLV2_GetState(m_d);
        vlorfx::PutBlob(answer, text, text ? int32_t(std::strlen(text)) : 0);
        VLORLV2_FreeString(text);
        return true;
    }
    case VLORFX_SET_STATE:
        if (!in.str(&state, VLORFX_MAX_BLOB) || !in.i32(&notify))
            return false;
        answer.i32(VLORLV2_SetState(m_d, state.c_str()));
        return true;
    }
    return false;
}

bool Lv2Plugin::parameter(int32_t tag, Request& in, Message& answer)
{
    int32_t index = 0, point = 0;
    uint64_t id = 0;
    double value = 0;
    switch (tag) {
    case VLORFX_NUM_PARAMS:
        answer.i32(VLORLV2_GetNumParams(m_d));
        return true;
    case VLORFX_PARAM_INFO: {
        Lv2ParamInfo info{};
        if (!in.i32(&index) || !VLORLV2_GetParamInfo(m_d, index, &info))
            return false;
        vlorfx::PutBlob(answer, reinterpret_cast<const char*>(&info), int32_t(sizeof(info)));
        return true;
    }
    case VLORFX_SCALE_POINT: {
        float v = 0;
        char label[256] = {};
        if (!in.i32(&index) || !in.i32(&point) || !VLORLV2_GetScalePoint(m_d, index, point, &v, label, 256))
            return false;
        answer.f32(v).str(label);
        return true;
    }
    case VLORFX_GET_PARAM:
        if (!in.u64(&id))
            return false;
        vlorfx::PutF64(answer, VLORLV2_GetParam(m_d, int(id)));
        return true;
    case VLORFX_SET_PARAM:
        if (!in.u64(&id) || !in.f64(&value))
            return false;
        answer.i32(VLORLV2_SetParam(m_d, int(id), float(value)));
        return true;
    }
    return false;
}

bool Lv2Plugin::editor(int32_t tag, Request& in, Message& answer)
{
    int w = 0, h = 0;
    int32_t w32 = 0, h32 = 0;
    uint64_t window = 0;
    switch (tag) {
    case VLORFX_HAS_EDITOR:
        answer.i32(VLORLV2_HasUi(m_d));
        return true;
    case VLORFX_EDITOR_OPEN: {
        char why[512] = {};
        if (!in.u64(&window))
            return false;
        m_editor = VLORLV2_UiOpen(m_d, window, postEvent, nullptr, why, int(sizeof(why))) == 1;
        answer.i32(m_editor ? 1 : 0).str(why);
        return true;
    }
    case VLORFX_EDITOR_CLOSE:
        answer.i32(VLORLV2_UiClose(m_d));
        m_editor = false;
        return true;
    case VLORFX_EDITOR_SIZE: {
        const int ok = VLORLV2_UiGetSize(m_d, &w, &h);
        answer.i32(ok).i32(w).i32(h);
        return true;
    }
    case VLORFX_EDITOR_RESIZE:
        if (!in.i32(&w32) || !in.i32(&h32))
            return false;
        answer.i32(VLORLV2_UiSetSize(m_d, w32, h32));
        return true;
    case VLORFX_EDITOR_WINDOW:
        answer.u64(VLORLV2_UiGetWidget(m_d));
        return true;
    }
    return false;
}

const char* option(int argc, char** argv, const char* name)
{
    for (int i = 3; i + 1 < argc; i += 2)
        if (!std::strcmp(argv[i], name))
            return argv[i + 1];
    return nullptr;
}

} // namespace

// "--fxinstance URI --rate R --block B [--bundle FOLDER]": the instance until
// the library says "exit". A known bundle spares reading every other.
int vlorlv2ServeInstance(int argc, char** argv)
{
    VLORFX_SetHostProgram();
    const char* rate = option(argc, argv, "--rate");
    const char* block = option(argc, argv, "--block");
    const char* bundle = option(argc, argv, "--bundle");
    char why[512] = "bad arguments to the LV2 host";
    _Lv2Instance* d = nullptr;
    if (rate && block && (bundle ? VLORLV2_InitializeBundle(bundle) : VLORLV2_Initialize()))
        d = vlorlv2::CreateLocal(argv[2], std::atof(rate), std::atoi(block), why, int(sizeof(why)));
    Lv2Plugin* plugin = d ? new Lv2Plugin(d) : nullptr;
    const int status = vlorfx::Serve(plugin, why);
    delete plugin;
    std::_Exit(status);
}
