#include "vst3hosting_p.h"
#include "../utf8_p.h"

#include <pluginterfaces/vst/ivstmessage.h>
#include <public.sdk/source/common/memorystream.h>

#include <cstring>

namespace Steinberg {
namespace Vst {

namespace {
template <typename T> tresult answer(T* self, const TUID iid, void** obj)
{
    if (FUnknownPrivate::iidEqual(iid, T::iid) || FUnknownPrivate::iidEqual(iid, FUnknown::iid)) {
        self->addRef();
        *obj = self;
        return kResultOk;
    }
    *obj = nullptr;
    return kNoInterface;
}
} // namespace

/* ---- ParameterValueQueue --------------------------------------------------- */

tresult PLUGIN_API ParameterValueQueue::getPoint(int32 index, int32& sampleOffset, ParamValue& value)
{
    if (index < 0 || size_t(index) >= m_points.size())
        return kResultFalse;
    sampleOffset = m_points[size_t(index)].first;
    value = m_points[size_t(index)].second;
    return kResultTrue;
}

tresult PLUGIN_API ParameterValueQueue::addPoint(int32 sampleOffset, ParamValue value, int32& index)
{
    // Points stay ordered by offset; a point at an offset already there replaces it.
    size_t at = 0;
    while (at < m_points.size() && m_points[at].first < sampleOffset)
        ++at;
    if (at < m_points.size() && m_points[at].first == sampleOffset) {
        m_points[at].second = value;
    } else {
        m_points.insert(m_points.begin() + long(at), {sampleOffset, value});
    }
    index = int32(at);
    return kResultTrue;
}

tresult PLUGIN_API ParameterValueQueue::queryInterface(const TUID iid, void** obj) { return answer(this, iid, obj); }

/* ---- ParameterChanges ------------------------------------------------------ */

ParameterChanges::~ParameterChanges()
{
    for (ParameterValueQueue* q : m_queues)
        q->release();
}

void ParameterChanges::setMaxParameters(int32 maxParameters)
{
    while (int32(m_queues.size()) < maxParameters)
        m_queues.push_back(new ParameterValueQueue(kNoParamId));
}

IParamValueQueue* PLUGIN_API ParameterChanges::getParameterData(int32 index)
{
    return index >= 0 && index < m_used ? m_queues[size_t(index)] : nullptr;
}

IParamValueQueue* PLUGIN_API ParameterChanges::addParameterData(const ParamID& id, int32& index)
{
    for (int32 i = 0; i < m_used; ++i) {
        if (m_queues[size_t(i)]->getParameterId() == id) {
            index = i;
            return m_queues[size_t(i)];
        }
    }
    if (m_used == int32(m_queues.size()))
        m_queues.push_back(new ParameterValueQueue(id));
    ParameterValueQueue* q = m_queues[size_t(m_used)];
    q->setParamID(id);
    q->clear();
    index = m_used++;
    return q;
}

tresult PLUGIN_API ParameterChanges::queryInterface(const TUID iid, void** obj) { return answer(this, iid, obj); }

/* ---- ParameterChangeTransfer ----------------------------------------------- */

void ParameterChangeTransfer::setMaxParameters(int32 maxParameters)
{
    std::lock_guard<std::mutex> g(m_writers);
    m_ring.assign(size_t(maxParameters > 0 ? maxParameters : 0) + 1, Change{0, 0, 0});
    m_read = 0;
    m_write = 0;
}

void ParameterChangeTransfer::addChange(ParamID id, ParamValue value, int32 sampleOffset)
{
    std::lock_guard<std::mutex> g(m_writers);
    if (m_ring.size() < 2)
        return;
    const size_t w = m_write.load(std::memory_order_relaxed);
    const size_t next = (w + 1) % m_ring.size();
    if (next == m_read.load(std::memory_order_acquire))
        return; // full: the change is dropped
    m_ring[w] = Change{id, value, sampleOffset};
    m_write.store(next, std::memory_order_release);
}

bool ParameterChangeTransfer::getNextChange(ParamID& id, ParamValue& value, int32& sampleOffset)
{
    const size_t r = m_read.load(std::memory_order_relaxed);
    if (m_ring.empty() || r == m_write.load(std::memory_order_acquire))
        return false;
    id = m_ring[r].id;
    value = m_ring[r].value;
    sampleOffset = m_ring[r].offset;
    m_read.store((r + 1) % m_ring.size(), std::memory_order_release);
    return true;
}

int32 ParameterChangeTransfer::transferChangesTo(ParameterChanges& changes)
{
    int32 moved = 0;
    ParamID id;
    ParamValue value;
    int32 offset;
    while (getNextChange(id, value, offset)) {
        ++moved;
        int32 index = 0;
        if (IParamValueQueue* q = changes.addParameterData(id, index)) {
            int32 point = 0;
            q->addPoint(0, value, point);
        }
    }
    return moved;
}

/* ---- EventList ------------------------------------------------------------- */

tresult PLUGIN_API EventList::getEvent(int32 index, Event& e)
{
    if (index < 0 || size_t(index) >= m_events.size())
        return kResultFalse;
    e = m_events[size_t(index)];
    return kResultTrue;
}

tresult PLUGIN_API EventList::addEvent(Event& e)
{
    m_events.push_back(e);
    return kResultTrue;
}

tresult PLUGIN_API EventList::queryInterface(const TUID iid, void** obj) { return answer(this, iid, obj); }

/* ---- HostProcessData ------------------------------------------------------- */

AudioBusBuffers* HostProcessData::makeBuses(IComponent& component, BusDirection direction, int32 count,
                                            int32 blockSize)
{
    if (count <= 0)
        return nullptr;
    auto* buses = new AudioBusBuffers[size_t(count)];
    for (int32 b = 0; b < count; ++b) {
        BusInfo info{};
        int32 channels = 0;
        if (component.getBusInfo(kAudio, direction, b, info) == kResultOk)
            channels = info.channelCount;
        buses[b].numChannels = channels;
        buses[b].silenceFlags = 0;
        buses[b].channelBuffers32 = channels > 0 ? new Sample32*[size_t(channels)] : nullptr;
        for (int32 c = 0; c < channels; ++c)
            buses[b].channelBuffers32[c] = new Sample32[size_t(blockSize)]();
    }
    return buses;
}

void HostProcessData::freeBuses(AudioBusBuffers* buses, int32 count)
{
    if (!buses)
        return;
    for (int32 b = 0; b < count; ++b) {
        for (int32 c = 0; c < buses[b].numChannels; ++c)
            delete[] buses[b].channelBuffers32[c];
        delete[] buses[b].channelBuffers32;
    }
    delete[] buses;
}

bool HostProcessData::prepare(IComponent& component, int32 blockSize, int32 sampleSize)
{
    unprepare();
    if (sampleSize != kSample32 || blockSize <= 0)
        return false;
    symbolicSampleSize = sampleSize;
    numInputs = component.getBusCount(kAudio, kInput);
    numOutputs = component.getBusCount(kAudio, kOutput);
    inputs = makeBuses(component, kInput, numInputs, blockSize);
    outputs = makeBuses(component, kOutput, numOutputs, blockSize);
    return true;
}

void HostProcessData::unprepare()
{
    freeBuses(inputs, numInputs);
    freeBuses(outputs, numOutputs);
    inputs = outputs = nullptr;
    numInputs = numOutputs = 0;
}

/* ---- PlugProvider ---------------------------------------------------------- */

PlugProvider::PlugProvider(const VST3::Hosting::PluginFactory& factory, const VST3::Hosting::ClassInfo& info, bool)
    : m_factory(factory), m_info(info)
{
}

PlugProvider::~PlugProvider() { terminate(); }

bool PlugProvider::initialize()
{
    FUnknown* context = PluginContextFactory::instance().getPluginContext();
    m_component = m_factory.createInstance<IComponent>(m_info.ID());
    if (!m_component)
        return false;
    if (m_component->initialize(context) != kResultOk) {
        m_component = nullptr;
        return false;
    }
    // A component may be its own controller; otherwise the controller is a class of its own.
    FUnknownPtr<IEditController> self(m_component);
    if (self) {
        m_controller = IPtr<IEditController>(self);
    } else {
        TUID cid;
        if (m_component->getControllerClassId(cid) == kResultOk) {
            VST3::UID uid;
            std::memcpy(uid.data(), cid, 16);
            m_controller = m_factory.createInstance<IEditController>(uid);
            if (m_controller && m_controller->initialize(context) != kResultOk)
                m_controller = nullptr;
            m_separateController = m_controller != nullptr;
        }
    }
    if (m_controller && m_separateController) {
        FUnknownPtr<IConnectionPoint> a(m_component);
        FUnknownPtr<IConnectionPoint> b(m_controller);
        if (a && b) {
            m_componentCP = IPtr<IConnectionPoint>(a);
            m_controllerCP = IPtr<IConnectionPoint>(b);
            m_componentCP->connect(m_controllerCP);
            m_controllerCP->connect(m_componentCP);
        }
        // The controller starts from the component's state.
        MemoryStream stream;
        if (m_component->getState(&stream) == kResultOk) {
            stream.seek(0, IBStream::kIBSeekSet, nullptr);
            m_controller->setComponentState(&stream);
        }
    }
    return true;
}

void PlugProvider::terminate()
{
    if (m_componentCP && m_controllerCP) {
        m_componentCP->disconnect(m_controllerCP);
        m_controllerCP->disconnect(m_componentCP);
    }
    m_componentCP = nullptr;
    m_controllerCP = nullptr;
    if (m_controller && m_separateController)
        m_controller->terminate();
    m_controller = nullptr;
    if (m_component)
        m_component->terminate();
    m_component = nullptr;
}

std::string toUtf8(const char16* text) { return Utf16ToUtf8(text); }

} // namespace Vst
} // namespace Steinberg
