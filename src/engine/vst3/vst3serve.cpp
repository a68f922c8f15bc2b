// The host program's side of a VST3 instance of its own: the engine's
// in-process calls, one per command of the library.
#include "vst3instance_p.h"

#include "fxisolation.h"
#include "fxserve_p.h"

#include <cstdlib>
#include <cstring>

namespace {

using vlorfx::Request;
using vlorvst::Message;

void postEvent(void*, Vst3HostEvent event, int32_t a, int32_t b) { vlorfx::PostEvent(int(event), a, b); }

class Vst3Plugin final : public vlorfx::Plugin {
public:
    explicit Vst3Plugin(_Vst3Instance* h) : m_h(h) { VLORVST3_SetEventCallback(h, postEvent, nullptr); }
    ~Vst3Plugin() override
    {
        if (m_editor)
            VLORVST3_EditorClose(m_h);
        VLORVST3_DestroyInstance(m_h);
    }
    bool process(const float* in, float* out, int channels, int frames) override
    {
        return VLORVST3_ProcessAudio(m_h, in, out, channels, frames) == 1;
    }
    bool editorOpen() const override { return m_editor; }
    void idle() override { VLORVST3_EditorIdle(m_h); }
    bool command(int32_t tag, Request& in, Message& answer) override;

private:
    bool engine(int32_t tag, Request& in, Message& answer);
    bool parameter(int32_t tag, Request& in, Message& answer);
    bool editor(int32_t tag, Request& in, Message& answer);
    _Vst3Instance* m_h;
    bool m_editor = false;
};

bool Vst3Plugin::command(int32_t tag, Request& in, Message& answer)
{
    switch (tag) {
    case VLORFX_FORMAT:
    case VLORFX_START:
    case VLORFX_STOP:
    case VLORFX_RESET:
    case VLORFX_GET_STATE:
    case VLORFX_SET_STATE:
        return engine(tag, in, answer);
    case VLORFX_HAS_EDITOR:
    case VLORFX_EDITOR_SIZE:
    case VLORFX_EDITOR_OPEN:
    case VLORFX_EDITOR_CLOSE:
    case VLORFX_EDITOR_RESIZE:
    case VLORFX_EDITOR_CAN_RESIZE:
        return editor(tag, in, answer);
    default:
        return parameter(tag, in, answer);
    }
}

bool Vst3Plugin::engine(int32_t tag, Request& in, Message& answer)
{
    int32_t rate = 0, channels = 0, offline = 0, block = 0, notify = 0;
    std::string state;
    switch (tag) {
    case VLORFX_FORMAT:
        return in.i32(&rate) && in.i32(&channels) && in.i32(&offline) && in.i32(&block) &&
               VLORVST3_SetAudioFormat(m_h, rate, channels) && VLORVST3_SetOffline(m_h, offline);
    case VLORFX_START: {
        int inputs = 0, outputs = 0;
        if (!VLORVST3_StartEngine(m_h))
            return false;
        VLORVST3_GetBusChannels(m_h, &inputs, &outputs);
        answer.i32(VLORVST3_GetBlockSize(m_h)).i32(inputs).i32(outputs);
        vlorfx::PutF64(answer, VLORVST3_GetLatency(m_h));
        vlorfx::PutF64(answer, VLORVST3_GetTailTime(m_h));
        return true;
    }
    case VLORFX_STOP:
        return VLORVST3_StopEngine(m_h) == 1;
    case VLORFX_RESET:
        return VLORVST3_Reset(m_h) == 1;
    case VLORFX_GET_STATE: {
        char* config = VLORVST3_GetConfig(m_h);
        vlorfx::PutBlob(answer, config, config ? int32_t(std::strlen(config)) : 0);
        VLORVST3_FreeString(config);
        return true;
    }
    case VLORFX_SET_STATE:
        if (!in.str(&state, VLORFX_MAX_BLOB) || !in.i32(&notify))
            return false;
        answer.i32(VLORVST3_SetConfigEx(m_h, state.c_str(), notify != 0));
        return true;
    }
    return false;
}

bool Vst3Plugin::parameter(int32_t tag, Request& in, Message& answer)
{
    int32_t index = 0;
    uint64_t id = 0;
    double value = 0;
    std::string text;
    switch (tag) {
    case VLORFX_NUM_PARAMS:
        answer.i32(VLORVST3_GetNumParams(m_h));
        return true;
    case VLORFX_PARAM_INFO: {
        Vst3ParamInfo info{};
        if (!in.i32(&index) || !VLORVST3_GetParamInfo(m_h, index, &info))
            return false;
        vlorfx::PutBlob(answer, reinterpret_cast<const char*>(&info), int32_t(sizeof(info)));
        return true;
    }
    case VLORFX_GET_PARAM:
        if (!in.u64(&id))
            return false;
        vlorfx::PutF64(answer, VLORVST3_GetParamNormalized(m_h, uint32_t(id)));
        return true;
    case VLORFX_SET_PARAM:
        if (!in.u64(&id) || !in.f64(&value))
            return false;
        answer.i32(VLORVST3_SetParamNormalized(m_h, uint32_t(id), value));
        return true;
    case VLORFX_DISPLAY: {
        char buffer[256] = {};
        if (!in.u64(&id) || !in.f64(&value))
            return false;
        VLORVST3_GetParamDisplay(m_h, uint32_t(id), value, buffer, int(sizeof(buffer)));
        answer.str(buffer);
        return true;
    }
    case VLORFX_SET_TEXT:
        if (!in.u64(&id) || !in.str(&text))
            return false;
        answer.i32(VLORVST3_SetParamByString(m_h, uint32_t(id), text.c_str()));
        return true;
    case VLORFX_BYPASS:
        if (!in.i32(&index))
            return false;
        answer.i32(VLORVST3_SetBypass(m_h, index));
        return true;
    }
    return false;
}

bool Vst3Plugin::editor(int32_t tag, Request& in, Message& answer)
{
    int32_t w = 0, h = 0;
    uint64_t window = 0;
    switch (tag) {
    case VLORFX_HAS_EDITOR:
        answer.i32(VLORVST3_HasEditor(m_h));
        return true;
    case VLORFX_EDITOR_SIZE: {
        const int ok = VLORVST3_EditorGetSize(m_h, &w, &h);
        answer.i32(ok).i32(w).i32(h);
        return true;
    }
    case VLORFX_EDITOR_OPEN:
        if (!in.u64(&window))
            return false;
    {
        const int opened = VLORVST3_EditorOpen(m_h, window);
        m_editor = opened == 1 || m_editor;
        answer.i32(opened).str("");
        return true;
    }
    case VLORFX_EDITOR_CLOSE:
        answer.i32(VLORVST3_EditorClose(m_h));
        m_editor = false;
        return true;
    case VLORFX_EDITOR_RESIZE:
        if (!in.i32(&w) || !in.i32(&h))
            return false;
        answer.i32(VLORVST3_EditorOnSize(m_h, w, h));
        return true;
    case VLORFX_EDITOR_CAN_RESIZE:
        answer.i32(VLORVST3_EditorCanResize(m_h));
        return true;
    }
    return false;
}

} // namespace

// "--fxinstance BUNDLE --cid CID": the instance until the library says "exit".
int vlorvst3ServeInstance(const char* bundle, const char* cid)
{
    VLORFX_SetHostProgram();
    VLORVST3_Initialize();
    _Vst3Instance* h = vlorvst3CreateLocal(bundle, cid);
    Vst3Plugin* plugin = h ? new Vst3Plugin(h) : nullptr;
    const int status = vlorfx::Serve(plugin, "the plugin does not open");
    delete plugin;
    std::_Exit(status);
}
