// A plugin's own editor, embedded in an X11 window of the caller. The frame
// is also the run loop that plugins on Linux ask for: their timers and file
// handlers are run by VLORVST3_EditorIdle, from the window's thread.
#include "vst3instance_p.h"
#include "vst3remote_p.h"

#include "fxblame_p.h"

#include <pluginterfaces/gui/iplugview.h>
#include <pluginterfaces/vst/ivsteditcontroller.h>

#include <chrono>
#include <poll.h>
#include <vector>

using namespace Steinberg;

// The subset of the SDK defines none of these.
namespace Steinberg {
DEF_CLASS_IID(IPlugView)
DEF_CLASS_IID(IPlugFrame)
namespace Linux {
DEF_CLASS_IID(IRunLoop)
DEF_CLASS_IID(IEventHandler)
DEF_CLASS_IID(ITimerHandler)
} // namespace Linux
} // namespace Steinberg

// Once its view is gone, a plugin that kept the frame resizes nothing.
class __PlugFrame : public IPlugFrame, public Linux::IRunLoop {
public:
    explicit __PlugFrame(_Vst3Instance* instance) : m_instance(instance) {}
    void detach() { m_instance.store(nullptr); }
    virtual ~__PlugFrame()
    {
        for (auto& t : m_timers)
            t.handler->release();
        for (auto& e : m_handlers)
            e.handler->release();
    }
    tresult PLUGIN_API queryInterface(const TUID iid, void** obj) override
    {
        if (FUnknownPrivate::iidEqual(iid, IPlugFrame::iid) || FUnknownPrivate::iidEqual(iid, FUnknown::iid)) {
            addRef();
            *obj = static_cast<IPlugFrame*>(this);
            return kResultOk;
        }
        if (FUnknownPrivate::iidEqual(iid, Linux::IRunLoop::iid)) {
            addRef();
            *obj = static_cast<Linux::IRunLoop*>(this);
            return kResultOk;
        }
        *obj = nullptr;
        return kNoInterface;
    }
    uint32 PLUGIN_API addRef() override { return ++m_refs; }
    uint32 PLUGIN_API release() override
    {
        const uint32 r = --m_refs;
        if (r == 0)
            delete this;
        return r;
    }

    // The frame resizes nothing itself: the receiver of the event does.
    tresult PLUGIN_API resizeView(IPlugView*, ViewRect* rect) override
    {
        if (!rect)
            return kInvalidArgument;
        _Vst3Instance* instance = m_instance.load();
        if (!instance)
            return kResultFalse;
        instance->raise(kVst3EventResize, rect->right - rect->left, rect->bottom - rect->top);
        return kResultOk;
    }

    tresult PLUGIN_API registerEventHandler(Linux::IEventHandler* handler, Linux::FileDescriptor fd) override
    {
        if (!handler)
            return kInvalidArgument;
        handler->addRef();
        m_handlers.push_back({handler, fd});
        return kResultOk;
    }
    tresult PLUGIN_API unregisterEventHandler(Linux::IEventHandler* handler) override
    {
        for (size_t i = 0; i < m_handlers.size();) {
            if (m_handlers[i].handler == handler) {
                handler->release();
                m_handlers.erase(m_handlers.begin() + long(i));
            } else {
                ++i;
            }
        }
        return kResultOk;
    }
    tresult PLUGIN_API registerTimer(Linux::ITimerHandler* handler, Linux::TimerInterval ms) override
    {
        if (!handler)
            return kInvalidArgument;
        handler->addRef();
        m_timers.push_back({handler, std::chrono::milliseconds(ms ? ms : 1), Clock::now()});
        return kResultOk;
    }
    tresult PLUGIN_API unregisterTimer(Linux::ITimerHandler* handler) override
    {
        for (size_t i = 0; i < m_timers.size();) {
            if (m_timers[i].handler == handler) {
                handler->release();
                m_timers.erase(m_timers.begin() + long(i));
            } else {
                ++i;
            }
        }
        return kResultOk;
    }

    // Runs the timers that are due and the handlers whose descriptors are ready.
    int idle()
    {
        int ran = 0;
        const auto now = Clock::now();
        // Copies: a handler may unregister itself while it runs.
        std::vector<Linux::ITimerHandler*> due;
        for (auto& t : m_timers)
            if (now - t.last >= t.interval) {
                t.last = now;
                due.push_back(t.handler);
            }
        for (Linux::ITimerHandler* h : due) {
            h->onTimer();
            ++ran;
        }
        std::vector<std::pair<Linux::IEventHandler*, int>> ready;
        for (const auto& e : m_handlers) {
            pollfd p{e.fd, POLLIN, 0};
            if (poll(&p, 1, 0) > 0)
                ready.emplace_back(e.handler, e.fd);
        }
        for (const auto& r : ready) {
            r.first->onFDIsSet(r.second);
            ++ran;
        }
        return ran;
    }

private:
    using Clock = std::chrono::steady_clock;
    struct Timer {
        Linux::ITimerHandler* handler;
        std::chrono::milliseconds interval;
        Clock::time_point last;
    };
    struct Handler {
        Linux::IEventHandler* handler;
        int fd;
    };
    std::atomic<_Vst3Instance*> m_instance;
    std::atomic<uint32> m_refs{1};
    std::vector<Timer> m_timers;
    std::vector<Handler> m_handlers;
};

namespace {

IPlugView* viewOf(_Vst3Instance* h)
{
    if (h->view)
        return h->view;
    if (h->viewProbed)
        return nullptr;
    // The controller is asked once: a plugin with no view is not asked again.
    h->viewProbed = 1;
    if (!h->controller)
        return nullptr;
    // The view comes with a reference of ours.
    h->view = owned(h->controller->createView(Vst::ViewType::kEditor));
    h->viewAvailable = h->view != nullptr;
    return h->view;
}

__PlugFrame* frameOf(_Vst3Instance* h) { return static_cast<__PlugFrame*>(h->frame.get()); }

} // namespace

extern "C" int VLORVST3_HasEditor(_Vst3Instance* h)
{
    VST3_REMOTE(h, hasEditor(h));
    return h && viewOf(h) ? 1 : 0;
}

extern "C" int VLORVST3_EditorGetSize(_Vst3Instance* h, int32_t* width, int32_t* height)
{
    VST3_REMOTE(h, editorSize(h, width, height));
    IPlugView* view = h && width && height ? viewOf(h) : nullptr;
    if (!view)
        return 0;
    ViewRect rect{};
    if (view->getSize(&rect) != kResultOk)
        return 0;
    *width = rect.right - rect.left;
    *height = rect.bottom - rect.top;
    return 1;
}

extern "C" int VLORVST3_EditorOpen(_Vst3Instance* h, uint64_t window)
{
    VST3_REMOTE(h, editorOpen(h, window));
    if (!h || window == 0)
        return 0;
    const vlorfx::InPlugin inPlugin(h->blame.c_str());
    IPlugView* view = viewOf(h);
    if (!view || h->editorAttached)
        return 0;
    if (view->isPlatformTypeSupported(kPlatformTypeX11EmbedWindowID) != kResultOk)
        return 0;
    if (!h->frame)
        h->frame = owned(static_cast<IPlugFrame*>(new __PlugFrame(h)));
    view->setFrame(h->frame);
    if (view->attached(reinterpret_cast<void*>(window), kPlatformTypeX11EmbedWindowID) == kResultOk) {
        h->editorAttached = 1;
        return 1;
    }
    view->setFrame(nullptr);
    return 0;
}

extern "C" int VLORVST3_EditorClose(_Vst3Instance* h)
{
    VST3_REMOTE(h, editorClose(h));
    if (!h || !h->view)
        return 0;
    if (h->editorAttached) {
        h->view->removed();
        h->editorAttached = 0;
    }
    h->view->setFrame(nullptr);
    return 1;
}

extern "C" int VLORVST3_EditorOnSize(_Vst3Instance* h, int32_t width, int32_t height)
{
    VST3_REMOTE(h, editorOnSize(h, width, height));
    if (!h || !h->view)
        return 0;
    ViewRect rect(0, 0, width, height);
    if (h->view->checkSizeConstraint(&rect) != kResultOk)
        h->view->getSize(&rect);
    return h->view->onSize(&rect) == kResultOk ? 1 : 0;
}

extern "C" int VLORVST3_EditorCanResize(_Vst3Instance* h)
{
    VST3_REMOTE(h, editorCanResize(h));
    return h && h->view && h->view->canResize() == kResultTrue ? 1 : 0;
}

extern "C" int VLORVST3_EditorIdle(_Vst3Instance* h)
{
    VST3_REMOTE(h, editorIdle(h));
    const vlorfx::InPlugin inPlugin(h ? h->blame.c_str() : nullptr);
    return h && h->frame ? frameOf(h)->idle() : 0;
}

void vlorvst3EditorDestroy(_Vst3Instance* h)
{
    if (h->view) {
        if (h->editorAttached) {
            h->view->removed();
            h->editorAttached = 0;
        }
        h->view->setFrame(nullptr);
        h->view = nullptr;
    }
    if (h->frame)
        frameOf(h)->detach();
    h->frame = nullptr;
}
