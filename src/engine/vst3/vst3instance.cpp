// VST3 instances: creation, the engine's start and stop, audio through the
// plugin's buses, and its parameters.
#include "vst3instance_p.h"
#include "vst3remote_p.h"

#include "fxblame_p.h"
#include "fxisolation.h"
#include "../interleave_p.h"
#include "../utf8_p.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

using namespace Steinberg;
using namespace Steinberg::Vst;

// The host's IComponentHandler: edits made in the plugin go to the audio side
// through the instance's queue, and requests reach the caller as events. Once
// the instance is gone, a plugin that kept the handler reaches nothing.
class __ComponentHandler : public IComponentHandler {
public:
    explicit __ComponentHandler(_Vst3Instance* instance) : m_instance(instance) {}
    virtual ~__ComponentHandler() = default;
    void detach() { m_instance.store(nullptr); }
    tresult PLUGIN_API queryInterface(const TUID iid, void** obj) override
    {
        if (FUnknownPrivate::iidEqual(iid, IComponentHandler::iid) || FUnknownPrivate::iidEqual(iid, FUnknown::iid)) {
            addRef();
            *obj = this;
            return kResultOk;
        }
        *obj = nullptr;
        return kNoInterface;
    }
    VLOR_REFCOUNT_METHODS
    tresult PLUGIN_API beginEdit(ParamID) override { return kResultOk; }
    tresult PLUGIN_API endEdit(ParamID) override { return kResultOk; }
    tresult PLUGIN_API performEdit(ParamID id, ParamValue value) override
    {
        _Vst3Instance* instance = m_instance.load();
        if (!instance)
            return kResultFalse;
        instance->paramTransfer.addChange(id, value, 0);
        instance->raise(kVst3EventParamChanged, int32_t(id), 0);
        return kResultOk;
    }
    tresult PLUGIN_API restartComponent(int32 flags) override
    {
        _Vst3Instance* instance = m_instance.load();
        if (!instance)
            return kResultFalse;
        instance->raise(kVst3EventRestart, flags, 0);
        return kResultOk;
    }

private:
    std::atomic<_Vst3Instance*> m_instance;
};

namespace {

bool parseUid(const char* text, VST3::UID* uid)
{
    if (std::strlen(text) != 32)
        return false;
    for (int i = 0; i < 16; ++i) {
        unsigned int byte = 0;
        char pair[3] = {text[2 * i], text[2 * i + 1], 0};
        if (std::sscanf(pair, "%2x", &byte) != 1)
            byte = 0; // a malformed pair finds no class
        (*uid)[size_t(i)] = uint8_t(byte);
    }
    return true;
}

SpeakerArrangement arrangementFor(int32_t channels)
{
    if (channels == 1)
        return SpeakerArr::kMono;
    if (channels == 2)
        return SpeakerArr::kStereo;
    if (channels <= 0)
        return 0;
    return channels >= 64 ? ~SpeakerArrangement(0) : (SpeakerArrangement(1) << channels) - 1;
}

// Moves the queued changes into this block's list; how many there were.
int32 drainChanges(_Vst3Instance* h)
{
    h->inputChanges->clearQueue();
    return h->paramTransfer.transferChangesTo(*h->inputChanges);
}

void prepareSideLists(_Vst3Instance* h)
{
    h->processData.inputParameterChanges = h->inputChanges;
    h->outputChanges->clearQueue();
    h->processData.outputParameterChanges = h->outputChanges;
    h->inputEvents->clear();
    h->outputEvents->clear();
    h->processData.inputEvents = h->inputEvents;
    h->processData.outputEvents = h->outputEvents;
}

} // namespace

extern "C" _Vst3Instance* VLORVST3_CreateInstance(const char* path, const char* uid)
{
    return VLORVST3_CreateInstanceEx(path, uid, -1);
}

extern "C" _Vst3Instance* VLORVST3_CreateInstanceEx(const char* path, const char* uid, int where)
{
    if (!path || !uid)
        return nullptr;
    if (where > 0 || (where < 0 && VLORFX_RunsInOwnProcess("vst3", uid)))
        return vlorvst3CreateRemote(path, uid);
    return vlorvst3CreateLocal(path, uid);
}

_Vst3Instance* vlorvst3CreateLocal(const char* path, const char* uid)
{
    if (!path || !uid)
        return nullptr;
    std::string error;
    VST3::Hosting::Module::Ptr module = vlorvst3ModuleForPath(path, error);
    if (!module)
        return nullptr;
    VST3::UID cid;
    if (!parseUid(uid, &cid))
        return nullptr;
    const VST3::Hosting::ClassInfo* info = nullptr;
    const std::vector<VST3::Hosting::ClassInfo> classes = module->getFactory().classInfos();
    for (const auto& c : classes)
        if (c.category() == "Audio Module Class" && c.ID() == cid) {
            info = &c;
            break;
        }
    if (!info)
        return nullptr;

    const std::string blame = std::string("vst3|") + uid + "|" + info->name();
    auto provider = std::make_unique<PlugProvider>(module->getFactory(), *info, true);
    {
        const vlorfx::InPlugin inPlugin(blame.c_str());
        if (!provider->initialize())
            return nullptr;
    }
    IPtr<IComponent> component = provider->getComponentPtr();
    IPtr<IEditController> controller = provider->getControllerPtr();
    if (!component)
        return nullptr;
    FUnknownPtr<IAudioProcessor> processor(component);
    if (!processor)
        return nullptr;

    auto* h = new _Vst3Instance;
    h->blame = blame;
    h->inputChanges = owned(new ParameterChanges(0));
    h->outputChanges = owned(new ParameterChanges(0));
    h->inputEvents = owned(new EventList);
    h->outputEvents = owned(new EventList);
    h->module = module;
    h->component = component;
    h->processor = IPtr<IAudioProcessor>(processor);
    h->controller = controller;
    h->provider = std::move(provider);
    h->blockSize = 8192;
    if (h->controller) {
        h->handler = owned(new __ComponentHandler(h));
        h->controller->setComponentHandler(h->handler);
    }
    h->paramTransfer.setMaxParameters(2048);
    if (h->controller) {
        const int32 count = h->controller->getParameterCount();
        for (int32 i = 0; i < count; ++i) {
            ParameterInfo p{};
            if (h->controller->getParameterInfo(i, p) == kResultOk && (p.flags & ParameterInfo::kIsBypass)) {
                h->hasBypass = 1;
                h->bypassParamId = p.id;
                break;
            }
        }
    }
    return h;
}

extern "C" int VLORVST3_DestroyInstance(_Vst3Instance* h)
{
    if (!h)
        return 0;
    if (h->remote)
        return vlorvst3DestroyRemote(h);
    VLORVST3_StopEngine(h);
    if (h->prepared)
        h->processData.unprepare();
    vlorvst3EditorDestroy(h);
    if (h->controller)
        h->controller->setComponentHandler(nullptr);
    if (h->handler)
        static_cast<__ComponentHandler*>(h->handler.get())->detach();
    h->handler = nullptr;
    // Queried interfaces go before component and controller, and those before the provider.
    h->processor = nullptr;
    h->component = nullptr;
    h->controller = nullptr;
    h->provider.reset();
    h->module.reset(); // the module stays cached: the bundle is not unloaded
    delete h;
    return 1;
}

extern "C" int VLORVST3_SetAudioFormat(_Vst3Instance* h, int sampleRate, int channels)
{
    if (!h || sampleRate <= 0 || channels <= 0)
        return 0;
    h->sampleRate = sampleRate;
    h->channels = channels;
    return 1;
}

extern "C" void VLORVST3_SetEventCallback(_Vst3Instance* h, Vst3EventCallback callback, void* userData)
{
    if (!h)
        return;
    h->eventCallback = callback;
    h->eventUserData = userData;
}

extern "C" int VLORVST3_SetOffline(_Vst3Instance* h, int offline)
{
    if (!h)
        return 0;
    h->offline = uint8_t(offline & 0xff);
    return 1;
}

extern "C" int VLORVST3_StartEngine(_Vst3Instance* h)
{
    VST3_REMOTE(h, start(h));
    if (!h || h->processing)
        return 0;
    SpeakerArrangement in = arrangementFor(h->channels), out = in;
    // A plugin that refuses runs in the arrangement it insists on; processing adapts.
    h->processor->setBusArrangements(&in, 1, &out, 1);
    h->component->activateBus(kAudio, kInput, 0, true);
    h->component->activateBus(kAudio, kOutput, 0, true);
    ProcessSetup setup{};
    setup.processMode = h->offline ? kOffline : kRealtime;
    setup.symbolicSampleSize = kSample32;
    setup.maxSamplesPerBlock = h->blockSize;
    setup.sampleRate = double(h->sampleRate);
    if (h->processor->setupProcessing(setup) != kResultOk)
        return 0;
    {
        std::lock_guard<std::mutex> g(h->processLock);
        h->processData.prepare(*h->component, h->blockSize, kSample32);
        h->prepared = 1;
        h->processData.processMode = setup.processMode;
    }
    if (h->component->setActive(true) != kResultOk)
        return 0;
    h->active = 1;
    h->processor->setProcessing(true);
    h->processing = 1;
    return 1;
}

extern "C" int VLORVST3_StopEngine(_Vst3Instance* h)
{
    VST3_REMOTE(h, stop(h));
    if (!h)
        return 0;
    if (h->processing) {
        h->processor->setProcessing(false);
        h->processing = 0;
    }
    if (h->active) {
        h->component->setActive(false);
        h->active = 0;
    }
    return 1;
}

extern "C" int VLORVST3_Reset(_Vst3Instance* h)
{
    VST3_REMOTE(h, reset(h));
    return VLORVST3_StopEngine(h) ? VLORVST3_StartEngine(h) : 0;
}

extern "C" int VLORVST3_GetBlockSize(_Vst3Instance* h) { return h ? h->blockSize : 0; }

extern "C" double VLORVST3_GetLatency(_Vst3Instance* h)
{
    VST3_REMOTE(h, latency(h));
    if (!h || h->sampleRate <= 0)
        return 0.0;
    return double(uint32_t(h->processor->getLatencySamples())) / h->sampleRate;
}

extern "C" double VLORVST3_GetTailTime(_Vst3Instance* h)
{
    VST3_REMOTE(h, tail(h));
    if (!h || h->sampleRate <= 0)
        return 0.0;
    const uint32 tail = h->processor->getTailSamples();
    if (tail == kInfiniteTail)
        return 10.0;
    return double(tail) / h->sampleRate;
}

/* ---- audio --------------------------------------------------------------- */

extern "C" int VLORVST3_GetBusChannels(_Vst3Instance* h, int* inputs, int* outputs)
{
    VST3_REMOTE(h, busChannels(h, inputs, outputs));
    if (!h || !h->prepared || !inputs || !outputs)
        return 0;
    std::lock_guard<std::mutex> g(h->processLock);
    const HostProcessData& pd = h->processData;
    *inputs = pd.numInputs > 0 ? pd.inputs[0].numChannels : 0;
    *outputs = pd.numOutputs > 0 ? pd.outputs[0].numChannels : 0;
    return 1;
}

extern "C" int VLORVST3_ProcessAudio(_Vst3Instance* h, const float* input, float* output, int channels, int frames)
{
    VST3_REMOTE(h, process(h, input, output, channels, frames));
    if (!h || !h->processing || !h->prepared || !input || !output || channels < 1)
        return 0;
    const vlorfx::InPlugin inPlugin(h->blame.c_str());
    std::lock_guard<std::mutex> g(h->processLock);
    HostProcessData& pd = h->processData;
    if (pd.numInputs < 1 || pd.numOutputs < 1 || pd.inputs[0].numChannels < 1 || pd.outputs[0].numChannels < 1)
        return 0;
    const int inCh = pd.inputs[0].numChannels;
    const int outCh = pd.outputs[0].numChannels;
    float** inBus = pd.inputs[0].channelBuffers32;
    float** outBus = pd.outputs[0].channelBuffers32;
    for (int done = 0; done < frames;) {
        const int n = frames - done < h->blockSize ? frames - done : h->blockSize;
        const float* src = input + size_t(done) * size_t(channels);
        const int used = inCh < channels ? inCh : channels;
        if (channels == 2 && used == 2) {
            deinterleave2(src, inBus[0], inBus[1], n);
        } else {
            for (int c = 0; c < used; ++c) {
                float* dst = inBus[c];
                for (int f = 0; f < n; ++f)
                    dst[f] = src[size_t(f) * size_t(channels) + size_t(c)];
            }
        }
        // Only a mono source is spread; other missing channels are silence.
        for (int c = used; c < inCh; ++c) {
            if (channels == 1)
                std::memcpy(inBus[c], inBus[0], sizeof(float) * size_t(n));
            else
                std::memset(inBus[c], 0, sizeof(float) * size_t(n));
        }
        pd.numSamples = n;
        drainChanges(h);
        prepareSideLists(h);
        if (h->processor->process(pd) != kResultOk)
            return 0;
        float* dst = output + size_t(done) * size_t(channels);
        if (channels == 2 && outCh >= 2) {
            interleave2(outBus[0], outBus[1], dst, n);
            done += n;
            continue;
        }
        for (int c = 0; c < channels; ++c) {
            // Channels beyond the plugin's repeat its last one.
            const float* from = outBus[c < outCh ? c : outCh - 1];
            for (int f = 0; f < n; ++f)
                dst[size_t(f) * size_t(channels) + size_t(c)] = from[f];
        }
        done += n;
    }
    return 1;
}

void __FlushPendingParameters(_Vst3Instance* h)
{
    std::lock_guard<std::mutex> g(h->processLock);
    if (!h->processing || !h->prepared)
        return;
    if (drainChanges(h) == 0)
        return;
    prepareSideLists(h);
    // Plugins may skip the parameters of an empty block (the SDK allows a
    // flush, not every framework reads one): a block of one silent frame is
    // read by all, and one frame of silence in a live stream is not heard.
    ProcessData& pd = h->processData;
    const int32 saved = pd.numSamples;
    for (int32 b = 0; b < pd.numInputs; ++b)
        for (int32 c = 0; c < pd.inputs[b].numChannels; ++c)
            if (pd.inputs[b].channelBuffers32 && pd.inputs[b].channelBuffers32[c])
                pd.inputs[b].channelBuffers32[c][0] = 0.0f;
    pd.numSamples = 1;
    h->processor->process(pd);
    pd.numSamples = saved;
}

/* ---- parameters ---------------------------------------------------------- */

extern "C" int VLORVST3_GetNumParams(_Vst3Instance* h)
{
    VST3_REMOTE(h, numParams(h));
    return h && h->controller ? h->controller->getParameterCount() : 0;
}

extern "C" int VLORVST3_GetParamInfo(_Vst3Instance* h, int index, Vst3ParamInfo* info)
{
    VST3_REMOTE(h, paramInfo(h, index, info));
    if (!h || !h->controller || !info || index < 0 || index >= h->controller->getParameterCount())
        return 0;
    ParameterInfo p{};
    if (h->controller->getParameterInfo(index, p) != kResultOk)
        return 0;
    std::memset(info, 0, sizeof(*info));
    info->id = p.id;
    std::strncpy(info->title, toUtf8(p.title).c_str(), sizeof(info->title) - 1);
    std::strncpy(info->units, toUtf8(p.units).c_str(), sizeof(info->units) - 1);
    info->stepCount = p.stepCount;
    info->defaultNormalized = p.defaultNormalizedValue;
    info->canAutomate = (p.flags & ParameterInfo::kCanAutomate) ? 1 : 0;
    info->isBypass = (p.flags & ParameterInfo::kIsBypass) ? 1 : 0;
    info->isReadOnly = (p.flags & ParameterInfo::kIsReadOnly) ? 1 : 0;
    info->isHidden = (p.flags & ParameterInfo::kIsHidden) ? 1 : 0;
    info->isProgramChange = (p.flags & ParameterInfo::kIsProgramChange) ? 1 : 0;
    return 1;
}

extern "C" double VLORVST3_GetParamNormalized(_Vst3Instance* h, uint32_t id)
{
    VST3_REMOTE(h, paramNormalized(h, id));
    return h && h->controller ? h->controller->getParamNormalized(id) : 0.0;
}

extern "C" int VLORVST3_SetParamNormalized(_Vst3Instance* h, uint32_t id, double value)
{
    VST3_REMOTE(h, setParamNormalized(h, id, value));
    if (!h || !h->controller)
        return 0;
    h->controller->setParamNormalized(id, value);
    h->paramTransfer.addChange(id, value, 0);
    return 1;
}

extern "C" int VLORVST3_GetParamDisplay(_Vst3Instance* h, uint32_t id, double value, char* buffer, int bufferSize)
{
    VST3_REMOTE(h, paramDisplay(h, id, value, buffer, bufferSize));
    if (!h || !h->controller || !buffer || bufferSize < 1)
        return 0;
    String128 text{};
    if (h->controller->getParamStringByValue(id, value, text) != kResultOk)
        return 0;
    const std::string utf8 = toUtf8(text);
    const size_t n = utf8.size() < size_t(bufferSize) ? utf8.size() : size_t(bufferSize - 1);
    std::memcpy(buffer, utf8.data(), n);
    buffer[n] = '\0';
    return 1;
}

extern "C" int VLORVST3_SetParamByString(_Vst3Instance* h, uint32_t id, const char* text)
{
    VST3_REMOTE(h, setParamByString(h, id, text));
    if (!h || !h->controller || !text || !*text)
        return 0;
    String128 wide{};
    Utf8ToUtf16(text, reinterpret_cast<char16_t*>(wide), 128);
    ParamValue value = 0;
    if (h->controller->getParamValueByString(id, wide, value) != kResultOk || !std::isfinite(value))
        return 0;
    return VLORVST3_SetParamNormalized(h, id, std::min(std::max(value, 0.0), 1.0));
}

extern "C" int VLORVST3_SetBypass(_Vst3Instance* h, int on)
{
    VST3_REMOTE(h, setBypass(h, on));
    if (!h || !h->controller || !h->hasBypass)
        return 0;
    return VLORVST3_SetParamNormalized(h, h->bypassParamId, (on & 0xff) ? 1.0 : 0.0);
}
