#ifndef VST3INSTANCE_P_H
#define VST3INSTANCE_P_H
// One live VST3 effect: processor and controller with everything needed to
// feed it audio. The record behind the opaque handle of the engine.
#include "vst3engine.h"
#include "vst3hosting_p.h"

#include <mutex>
#include <string>

#include <pluginterfaces/gui/iplugview.h>

struct _Vst3Instance {
    VST3::Hosting::Module::Ptr module;
    std::unique_ptr<Steinberg::Vst::PlugProvider> provider;
    Steinberg::IPtr<Steinberg::Vst::IComponent> component;
    Steinberg::IPtr<Steinberg::Vst::IAudioProcessor> processor;
    Steinberg::IPtr<Steinberg::Vst::IEditController> controller;
    Steinberg::Vst::HostProcessData processData;
    Steinberg::Vst::ParameterChangeTransfer paramTransfer{0};
    // Host-side objects are held like the plugin's: a plugin that keeps a
    // reference keeps the object, never the instance.
    Steinberg::IPtr<Steinberg::Vst::ParameterChanges> inputChanges;
    // Given to process so that plugins that write changes or events find a
    // place for them; nothing reads them.
    Steinberg::IPtr<Steinberg::Vst::ParameterChanges> outputChanges;
    Steinberg::IPtr<Steinberg::Vst::EventList> inputEvents;
    Steinberg::IPtr<Steinberg::Vst::EventList> outputEvents;
    std::mutex processLock;
    int32_t sampleRate = 44100;
    int32_t channels = 2;
    int32_t blockSize = 8192;
    uint8_t offline = 0;
    uint8_t active = 0;
    uint8_t processing = 0;
    uint8_t prepared = 0;
    Vst3EventCallback eventCallback = nullptr;
    void* eventUserData = nullptr;
    Steinberg::IPtr<Steinberg::Vst::IComponentHandler> handler; // ours: vst3instance.cpp
    Steinberg::Vst::ParamID bypassParamId = 0;
    uint8_t hasBypass = 0;
    Steinberg::IPtr<Steinberg::IPlugView> view;
    Steinberg::IPtr<Steinberg::IPlugFrame> frame; // ours: vst3editor.cpp
    uint8_t viewProbed = 0;
    uint8_t viewAvailable = 0;
    uint8_t editorAttached = 0;

    // Set when the plugin runs in a host program (vst3remote.cpp): every
    // call then goes there, and the fields above stay unused.
    struct Vst3RemoteSide* remote = nullptr;
    // "vst3|UID|name": what a crash inside one of its calls here is told as.
    std::string blame;

    void raise(Vst3HostEvent event, int32_t a, int32_t b) const
    {
        if (Vst3EventCallback cb = eventCallback)
            cb(eventUserData, event, a, b);
    }
};

// The instance in this process, whatever the isolation setting says.
_Vst3Instance* vlorvst3CreateLocal(const char* path, const char* uid);
_Vst3Instance* vlorvst3CreateRemote(const char* path, const char* uid);
int vlorvst3DestroyRemote(_Vst3Instance* instance);

// Hands queued parameter changes to the plugin outside of audio.
void __FlushPendingParameters(_Vst3Instance* instance);
// Closes and releases the editor's view and frame; part of the instance's end.
void vlorvst3EditorDestroy(_Vst3Instance* instance);

#endif
