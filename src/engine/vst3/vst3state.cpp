// A plugin's state as text: the component's and the controller's streams in
// Base64 inside a key=value configuration string, and back.
#include "vst3instance_p.h"
#include "vst3remote_p.h"

#include "blstring.h"

#include <pluginterfaces/base/ibstream.h>
#include <public.sdk/source/common/memorystream.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

// The SDK's stream, with what a plugin passes it checked first: a negative
// count, or a position before the start, would reach outside its memory.
class __StateStream : public MemoryStream {
public:
    static constexpr int64 kLargestState = int64(256) << 20;

    tresult PLUGIN_API read(void* buffer, int32 count, int32* done) override
    {
        if (cursor < 0)
            cursor = 0;
        return MemoryStream::read(buffer, count < 0 ? 0 : count, done);
    }
    tresult PLUGIN_API write(void* buffer, int32 count, int32* done) override
    {
        if (cursor < 0)
            cursor = 0;
        if (count < 0)
            count = 0;
        if (done)
            *done = 0;
        // Past any state a plugin sensibly keeps: refused, not allocated.
        if (cursor + count > kLargestState)
            return kOutOfMemory;
        // A seek past the end leaves a gap that reads as zeros.
        if (cursor > size) {
            const TSize end = size;
            const int64 at = cursor;
            setSize(at);
            if (allocationError || !memory || size < at)
                return kOutOfMemory;
            std::memset(memory + end, 0, size_t(at - end));
            cursor = at;
        }
        return MemoryStream::write(buffer, count, done);
    }
    tresult PLUGIN_API seek(int64 offset, int32 mode, int64* result) override
    {
        const tresult r = MemoryStream::seek(offset, mode, nullptr);
        if (cursor < 0)
            cursor = 0;
        if (result)
            *result = cursor;
        return r;
    }
    void rewind() { cursor = 0; }
};

// Heap-held and counted: a plugin that keeps the stream keeps only the stream.
IPtr<__StateStream> newStream() { return owned(new __StateStream); }

void __AppendStreamAsB64(std::string& text, const char* sizeKey, const char* dataKey, const __StateStream& stream)
{
    if (stream.getSize() <= 0 || !stream.getData())
        return;
    char* b64 = BLSTRING_ToBase64(stream.getData(), int(stream.getSize()));
    if (!b64)
        return;
    if (!text.empty())
        text += ",";
    text += std::string(sizeKey) + "=" + std::to_string(std::strlen(b64)) + "," + dataKey + "=\"" + b64 + "\"";
    std::free(b64);
}

int __ReadB64Stream(const char* config, const char* sizeKey, const char* dataKey, __StateStream& stream)
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
    return done == length ? 1 : 0;
}

} // namespace

extern "C" char* VLORVST3_GetConfig(_Vst3Instance* h)
{
    VST3_REMOTE(h, getConfig(h));
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
        IPtr<__StateStream> stream = newStream();
        if (h->component->getState(stream) == kResultOk)
            __AppendStreamAsB64(text, "presetsize", "presetdata", *stream);
    }
    if (h->controller) {
        IPtr<__StateStream> stream = newStream();
        if (h->controller->getState(stream) == kResultOk)
            __AppendStreamAsB64(text, "ctrlsize", "ctrldata", *stream);
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
    VST3_REMOTE(h, setConfig(h, config, notify));
    if (!h || !config)
        return 0;
    IPtr<__StateStream> preset = newStream();
    if (__ReadB64Stream(config, "presetsize", "presetdata", *preset)) {
        if (h->component && h->component->setState(preset) != kResultOk)
            return 0;
        preset->rewind();
        if (h->controller)
            h->controller->setComponentState(preset);
    }
    if (h->controller) {
        IPtr<__StateStream> ctrl = newStream();
        if (__ReadB64Stream(config, "ctrlsize", "ctrldata", *ctrl))
            h->controller->setState(ctrl);
    }
    if (notify)
        h->raise(kVst3EventParamChanged, -1, 0);
    return 1;
}
