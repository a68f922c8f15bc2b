#ifndef VST3HOSTING_P_H
#define VST3HOSTING_P_H
// What a host needs around a plugin that the SDK subset does not bring, with
// the names and meaning of the SDK's own hosting helpers: parameter change
// lists and their queues, the crossing of changes from any thread to the
// audio side, an event list, the process data with its bus buffers, and the
// provider that brings component and controller up together.
#include "vst3module_p.h"

#include <pluginterfaces/vst/ivstaudioprocessor.h>
#include <pluginterfaces/vst/ivstcomponent.h>
#include <pluginterfaces/vst/ivsteditcontroller.h>
#include <pluginterfaces/vst/ivstevents.h>
#include <pluginterfaces/vst/ivstmessage.h>
#include <pluginterfaces/vst/ivstparameterchanges.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

namespace Steinberg {
namespace Vst {

// Reference counting for host-side objects that live on the heap.
#define VLOR_REFCOUNT_METHODS                                                                                          \
    uint32 PLUGIN_API addRef() override { return ++m_refs; }                                                           \
    uint32 PLUGIN_API release() override                                                                               \
    {                                                                                                                  \
        const uint32 r = --m_refs;                                                                                     \
        if (r == 0)                                                                                                    \
            delete this;                                                                                               \
        return r;                                                                                                      \
    }                                                                                                                  \
    std::atomic<uint32> m_refs{1};

class ParameterValueQueue : public IParamValueQueue {
public:
    explicit ParameterValueQueue(ParamID id) : m_id(id) { m_points.reserve(8); }
    virtual ~ParameterValueQueue() = default;
    void setParamID(ParamID id) { m_id = id; }
    void clear() { m_points.clear(); }

    ParamID PLUGIN_API getParameterId() override { return m_id; }
    int32 PLUGIN_API getPointCount() override { return int32(m_points.size()); }
    tresult PLUGIN_API getPoint(int32 index, int32& sampleOffset, ParamValue& value) override;
    tresult PLUGIN_API addPoint(int32 sampleOffset, ParamValue value, int32& index) override;
    tresult PLUGIN_API queryInterface(const TUID iid, void** obj) override;
    VLOR_REFCOUNT_METHODS

private:
    ParamID m_id;
    std::vector<std::pair<int32, ParamValue>> m_points;
};

class ParameterChanges : public IParameterChanges {
public:
    explicit ParameterChanges(int32 maxParameters = 0) { setMaxParameters(maxParameters); }
    virtual ~ParameterChanges();
    void setMaxParameters(int32 maxParameters);
    void clearQueue() { m_used = 0; }

    int32 PLUGIN_API getParameterCount() override { return m_used; }
    IParamValueQueue* PLUGIN_API getParameterData(int32 index) override;
    IParamValueQueue* PLUGIN_API addParameterData(const ParamID& id, int32& index) override;
    tresult PLUGIN_API queryInterface(const TUID iid, void** obj) override;
    VLOR_REFCOUNT_METHODS

private:
    std::vector<ParameterValueQueue*> m_queues;
    int32 m_used = 0;
};

// Changes from any thread to the audio side. Writers take a short lock among
// themselves; the reader on the audio side never waits. A full queue drops the change.
class ParameterChangeTransfer {
public:
    explicit ParameterChangeTransfer(int32 maxParameters = 0) { setMaxParameters(maxParameters); }
    void setMaxParameters(int32 maxParameters);
    void addChange(ParamID id, ParamValue value, int32 sampleOffset);
    bool getNextChange(ParamID& id, ParamValue& value, int32& sampleOffset);
    // Moves every pending change into changes, at offset 0; how many were moved.
    int32 transferChangesTo(ParameterChanges& changes);

private:
    struct Change {
        ParamID id;
        ParamValue value;
        int32 offset;
    };
    std::vector<Change> m_ring;
    std::atomic<size_t> m_read{0};
    std::atomic<size_t> m_write{0};
    std::mutex m_writers;
};

class EventList : public IEventList {
public:
    virtual ~EventList() = default;
    void clear() { m_events.clear(); }
    int32 PLUGIN_API getEventCount() override { return int32(m_events.size()); }
    tresult PLUGIN_API getEvent(int32 index, Event& e) override;
    tresult PLUGIN_API addEvent(Event& e) override;
    tresult PLUGIN_API queryInterface(const TUID iid, void** obj) override;
    VLOR_REFCOUNT_METHODS

private:
    std::vector<Event> m_events;
};

// ProcessData that owns the channel buffers of every bus of a component.
class HostProcessData : public ProcessData {
public:
    HostProcessData() = default;
    ~HostProcessData() { unprepare(); }
    HostProcessData(const HostProcessData&) = delete;
    HostProcessData& operator=(const HostProcessData&) = delete;
    bool prepare(IComponent& component, int32 blockSize, int32 sampleSize);
    void unprepare();

private:
    static AudioBusBuffers* makeBuses(IComponent& component, BusDirection direction, int32 count, int32 blockSize);
    static void freeBuses(AudioBusBuffers* buses, int32 count);
};

// Creates a class's component and its controller, connects the two both ways,
// hands the component's state to the controller, and ends all of it, in the
// right order, when released.
class PlugProvider {
public:
    PlugProvider(const VST3::Hosting::PluginFactory& factory, const VST3::Hosting::ClassInfo& info, bool plugIsGlobal);
    ~PlugProvider();
    bool initialize();
    IPtr<IComponent> getComponentPtr() const { return m_component; }
    IPtr<IEditController> getControllerPtr() const { return m_controller; }

private:
    void terminate();
    const VST3::Hosting::PluginFactory& m_factory;
    VST3::Hosting::ClassInfo m_info;
    IPtr<IComponent> m_component;
    IPtr<IEditController> m_controller;
    IPtr<IConnectionPoint> m_componentCP;
    IPtr<IConnectionPoint> m_controllerCP;
    bool m_separateController = false;
};

// UTF-16 of the SDK to UTF-8.
std::string toUtf8(const char16* text);

} // namespace Vst
} // namespace Steinberg

#endif
