// A plugin's state as text: the component's and the controller's streams in
// Base64 inside a key=value configuration string, and back.
#include "vst3instance_p.h"

#include "blstring.h"

#include <pluginterfaces/base/ibstream.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

// An in-memory stream that lives on the stack of the function using it: it
// counts no references, and no plugin may keep it.
class __MemBStream : public IBStream {
public:
    virtual ~__MemBStream() = default;
    tresult PLUGIN_API queryInterface(const TUID iid, void** obj) override
    {
        if (FUnknownPrivate::iidEqual(iid, IBStream::iid) || FUnknownPrivate::iidEqual(iid, FUnknown::iid)) {
            *obj = this;
            return kResultOk;
        }
        *obj = nullptr;
        return kNoInterface;
    }
    uint32 PLUGIN_API addRef() override { return 1000; }
    uint32 PLUGIN_API release() override { return 1000; }
    tresult PLUGIN_API read(void* buffer, int32 count, int32* done) override
    {
        int64 available = int64(m_data.size()) - m_pos;
        if (available < 0)
            available = 0;
        const int64 n = count < 0 ? 0 : (count < available ? count : available);
        if (n > 0)
            std::memcpy(buffer, m_data.data() + m_pos, size_t(n));
        m_pos += n;
        if (done)
            *done = int32(n);
        return kResultOk;
    }
    tresult PLUGIN_API write(void* buffer, int32 count, int32* done) override
    {
        if (count > 0) {
            if (m_pos + count > int64(m_data.size()))
                m_data.resize(size_t(m_pos + count), 0); // a gap left by a seek reads as zeros
            std::memcpy(m_data.data() + m_pos, buffer, size_t(count));
            m_pos += count;
        }
        if (done)
            *done = count < 0 ? 0 : count;
        return kResultOk;
    }
    tresult PLUGIN_API seek(int64 offset, int32 mode, int64* result) override
    {
        int64 p = mode == kIBSeekCur ? m_pos + offset : mode == kIBSeekEnd ? int64(m_data.size()) + offset : offset;
        m_pos = p < 0 ? 0 : p;
        if (result)
            *result = m_pos;
        return kResultOk;
    }
    tresult PLUGIN_API tell(int64* position) override
    {
        if (position)
            *position = m_pos;
        return kResultOk;
    }
    const std::vector<unsigned char>& data() const { return m_data; }
    void rewind() { m_pos = 0; }

private:
    std::vector<unsigned char> m_data;
    int64 m_pos = 0;
};

void __AppendStreamAsB64(std::string& text, const char* sizeKey, const char* dataKey, const __MemBStream& stream)
{
    if (stream.data().empty())
        return;
    char* b64 = BLSTRING_ToBase64(stream.data().data(), int(stream.data().size()));
    if (!b64)
        return;
    if (!text.empty())
        text += ",";
    text += std::string(sizeKey) + "=" + std::to_string(std::strlen(b64)) + "," + dataKey + "=\"" + b64 + "\"";
    std::free(b64);
}

int __ReadB64Stream(const char* config, const char* sizeKey, const char* dataKey, __MemBStream& stream)
{
    const int size = BLSTRING_GetIntegerValueFromString(config, sizeKey, 0);
    if (size < 1)
        return 0;
    char* buffer = static_cast<char*>(std::malloc(size_t(size) + 1));
    if (!buffer)
        return 0;
    if (!BLSTRING_GetStringValueFromString(config, dataKey, "", buffer, size + 1)) {
        std::free(buffer);
        return 0;
    }
    int length = 0;
    void* bytes = BLSTRING_FromBase64(buffer, &length);
    std::free(buffer);
    if (!bytes)
        return 0;
    if (length < 1) {
        std::free(bytes);
        return 0;
    }
    int32 done = 0;
    stream.write(bytes, length, &done);
    std::free(bytes);
    stream.rewind();
    return 1;
}

} // namespace

extern "C" char* VLORVST3_GetConfig(_Vst3Instance* h)
{
    if (!h)
        return nullptr;
    __FlushPendingParameters(h);
    // The bypass is the user's switch of the moment, not part of the settings.
    double lifted = 0.0;
    if (h->hasBypass && h->controller) {
        const double v = h->controller->getParamNormalized(h->bypassParamId);
        if (v > 0.0) {
            lifted = v;
            h->controller->setParamNormalized(h->bypassParamId, 0.0);
            h->paramTransfer.addChange(h->bypassParamId, 0.0, 0);
            __FlushPendingParameters(h);
        }
    }
    std::string text;
    if (h->component) {
        __MemBStream stream;
        if (h->component->getState(&stream) == kResultOk)
            __AppendStreamAsB64(text, "presetsize", "presetdata", stream);
    }
    if (h->controller) {
        __MemBStream stream;
        if (h->controller->getState(&stream) == kResultOk)
            __AppendStreamAsB64(text, "ctrlsize", "ctrldata", stream);
    }
    if (lifted > 0.0) {
        h->controller->setParamNormalized(h->bypassParamId, lifted);
        h->paramTransfer.addChange(h->bypassParamId, lifted, 0);
        __FlushPendingParameters(h);
    }
    if (text.empty())
        return nullptr;
    char* out = static_cast<char*>(std::malloc(text.size() + 1));
    if (out)
        std::memcpy(out, text.c_str(), text.size() + 1);
    return out;
}

extern "C" void VLORVST3_FreeString(char* text) { std::free(text); }

extern "C" int VLORVST3_SetConfigEx(_Vst3Instance* h, const char* config, bool notify)
{
    if (!h || !config)
        return 0;
    __MemBStream preset;
    if (__ReadB64Stream(config, "presetsize", "presetdata", preset)) {
        if (h->component && h->component->setState(&preset) != kResultOk)
            return 0;
        preset.rewind();
        if (h->controller)
            h->controller->setComponentState(&preset);
    }
    if (h->controller) {
        __MemBStream ctrl;
        if (__ReadB64Stream(config, "ctrlsize", "ctrldata", ctrl))
            h->controller->setState(&ctrl);
    }
    if (notify)
        h->raise(kVst3EventParamChanged, -1, 0);
    return 1;
}
