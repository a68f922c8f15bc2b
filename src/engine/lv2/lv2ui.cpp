// The plugin's own editor: an X11 UI from the plugin's bundle, loaded into
// this process, embedded in a window of the host's and driven from the
// host's event loop. The editor and the audio side meet only in lock-free
// queues and in control values written whole.
#include "lv2instance_p.h"
#include "lv2remote_p.h"

#include "fxblame_p.h"

#include <lv2/atom/atom.h>
#include <lv2/atom/util.h>
#include <lv2/data-access/data-access.h>
#include <lv2/instance-access/instance-access.h>
#include <lv2/parameters/parameters.h>
#include <lv2/ui/ui.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <dlfcn.h>
#include <limits>

namespace vlorlv2 {

struct Ui {
    _Lv2Instance* owner = nullptr;
    Lv2UiCallback callback = nullptr;
    void* user = nullptr;
    const LV2UI_Descriptor* descriptor = nullptr;
    LV2UI_Handle handle = nullptr;
    LV2UI_Widget widget = nullptr;
    const LV2UI_Idle_Interface* idle = nullptr;
    const LV2UI_Show_Interface* show = nullptr;
    const LV2UI_Resize* ownResize = nullptr; // the editor's, to hear the host's size, called with its handle
    int width = 0, height = 0;
    std::vector<float> sent; // per port, the value the editor last heard; NaN for never
    LV2UI_Resize hostResize{};
    LV2_Extension_Data_Feature dataAccess{};
    float sampleRate = 0, updateRate = 30, scaleFactor = 1;
    LV2_Options_Option options[4]{};
    LV2_Feature features[9]{};
    const LV2_Feature* list[10]{};
    std::vector<char> message;
};

namespace {

// What an editor may require of us. Resident loading costs nothing: an
// editor's library is never unloaded, for those that leave threads behind.
const char* const kUiOffered[] = {
    LV2_UI__parent,       LV2_UI__resize,          LV2_UI__idleInterface,     LV2_URID__map,
    LV2_URID__unmap,      LV2_OPTIONS__options,    LV2_INSTANCE_ACCESS_URI,   LV2_DATA_ACCESS_URI,
    LV2_LOG__log,         LV2_UI__noUserResize,    LV2_UI_PREFIX "makeResident", LV2_UI_PREFIX "makeSONameResident",
    LV2_UI__fixedSize,
};

bool uiFeatureOffered(const char* uri)
{
    return uri && std::any_of(std::begin(kUiOffered), std::end(kUiOffered),
                              [uri](const char* offered) { return !std::strcmp(offered, uri); });
}

struct UiChoice {
    std::string uri, binary, bundle;
    std::string why; // why none was chosen
};

std::string pathOf(const LilvNode* fileUri)
{
    char* path = fileUri ? lilv_file_uri_parse(lilv_node_as_uri(fileUri), nullptr) : nullptr;
    const std::string text = path ? path : "";
    lilv_free(path);
    return text;
}

// The first X11 editor of the plugin whose every required feature we offer. Under WorldLock.
bool chooseUi(const LilvPlugin* plugin, UiChoice* choice)
{
    LilvNode* required = lilv_new_uri(World(), LV2_CORE__requiredFeature);
    LilvUIs* uis = lilv_plugin_get_uis(plugin);
    choice->why = "the plugin has no X11 editor";
    LILV_FOREACH (uis, i, uis) {
        const LilvUI* ui = lilv_uis_get(uis, i);
        if (!lilv_ui_is_a(ui, WorldNodes().x11Ui))
            continue;
        lilv_world_load_resource(World(), lilv_ui_get_uri(ui));
        LilvNodes* needs = lilv_world_find_nodes(World(), lilv_ui_get_uri(ui), required, nullptr);
        std::string missing;
        LILV_FOREACH (nodes, n, needs)
            if (missing.empty() && !uiFeatureOffered(lilv_node_as_uri(lilv_nodes_get(needs, n))))
                missing = lilv_node_as_uri(lilv_nodes_get(needs, n));
        lilv_nodes_free(needs);
        if (!missing.empty()) {
            choice->why = "the editor requires a feature this host does not offer: " + missing;
            continue;
        }
        choice->uri = lilv_node_as_uri(lilv_ui_get_uri(ui));
        choice->binary = pathOf(lilv_ui_get_binary_uri(ui));
        choice->bundle = pathOf(lilv_ui_get_bundle_uri(ui));
        if (!choice->bundle.empty() && choice->bundle.back() != '/')
            choice->bundle += '/';
        break;
    }
    lilv_uis_free(uis);
    lilv_node_free(required);
    return !choice->uri.empty() && !choice->binary.empty();
}

const LV2UI_Descriptor* findDescriptor(const UiChoice& choice, std::string* why)
{
    // Kept loaded for good: see kUiOffered.
    void* library = dlopen(choice.binary.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        const char* error = dlerror();
        *why = std::string("the editor's library does not load: ") + (error ? error : choice.binary.c_str());
        return nullptr;
    }
    const auto entry = reinterpret_cast<LV2UI_DescriptorFunction>(dlsym(library, "lv2ui_descriptor"));
    for (uint32_t i = 0; entry && i < 1024; ++i) {
        const LV2UI_Descriptor* descriptor = entry(i);
        if (!descriptor)
            break;
        if (descriptor->URI && choice.uri == descriptor->URI)
            return descriptor;
    }
    *why = "the editor's library does not describe " + choice.uri;
    return nullptr;
}

int paramOfPort(const _Lv2Instance* d, uint32_t port)
{
    for (size_t k = 0; k < d->params.size(); ++k)
        if (d->params[k].port == int(port))
            return int(k);
    return -1;
}

LV2_URID eventTransfer()
{
    static const LV2_URID id = MapUri(LV2_ATOM__eventTransfer);
    return id;
}

// The editor's writes: a control value at once, an atom through the queue.
void writeFromUi(LV2UI_Controller controller, uint32_t index, uint32_t size, uint32_t protocol, const void* buffer)
{
    auto* ui = static_cast<Ui*>(controller);
    _Lv2Instance* d = ui->owner;
    if (!buffer || index >= d->ports.size())
        return;
    Port& p = d->ports[index];
    if (!p.input)
        return;
    if (protocol == 0 && p.kind == Port::Control && size == sizeof(float)) {
        float v;
        std::memcpy(&v, buffer, sizeof(v));
        if (!std::isfinite(v))
            return;
        v = std::clamp(v, p.minimum, p.maximum);
        StoreValue(p, v);
        ui->sent[index] = v;
        if (ui->callback)
            ui->callback(ui->user, kLv2UiParamEdited, paramOfPort(d, index), 0);
    } else if ((protocol == eventTransfer() || protocol == MapUri(LV2_ATOM__atomTransfer)) && p.kind == Port::Atom &&
               size >= sizeof(LV2_Atom)) {
        const auto* atom = static_cast<const LV2_Atom*>(buffer);
        if (sizeof(LV2_Atom) + size_t(atom->size) > size)
            return;
        const uint32_t head[2] = {index, 0};
        d->uiQueues.load(std::memory_order_acquire)
            ->toPlugin.write(head, sizeof(head), atom, uint32_t(sizeof(LV2_Atom) + atom->size));
    }
}

int resizeFromUi(LV2UI_Feature_Handle handle, int width, int height)
{
    auto* ui = static_cast<Ui*>(handle);
    if (width <= 0 || height <= 0 || width > 16384 || height > 16384)
        return 1;
    ui->width = width;
    ui->height = height;
    if (ui->callback)
        ui->callback(ui->user, kLv2UiResize, width, height);
    return 0;
}

void makeUiFeatures(Ui* ui, uint64_t parent)
{
    _Lv2Instance* d = ui->owner;
    ui->hostResize = {ui, resizeFromUi};
    ui->dataAccess = {lilv_instance_get_descriptor(d->instance)->extension_data};
    ui->sampleRate = float(d->sampleRate);
    const LV2_URID floatType = MapUri(LV2_ATOM__Float);
    ui->options[0] = {LV2_OPTIONS_INSTANCE, 0, MapUri(LV2_PARAMETERS__sampleRate), sizeof(float), floatType,
                      &ui->sampleRate};
    ui->options[1] = {LV2_OPTIONS_INSTANCE, 0, MapUri(LV2_UI__updateRate), sizeof(float), floatType, &ui->updateRate};
    ui->options[2] = {LV2_OPTIONS_INSTANCE, 0, MapUri(LV2_UI__scaleFactor), sizeof(float), floatType,
                      &ui->scaleFactor};
    ui->options[3] = {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr};
    const LV2_Feature features[] = {
        {LV2_UI__parent, reinterpret_cast<void*>(uintptr_t(parent))},
        {LV2_UI__resize, &ui->hostResize},
        {LV2_UI__idleInterface, nullptr},
        {LV2_URID__map, UridMap()},
        {LV2_URID__unmap, UridUnmap()},
        {LV2_OPTIONS__options, ui->options},
        {LV2_INSTANCE_ACCESS_URI, lilv_instance_get_handle(d->instance)},
        {LV2_DATA_ACCESS_URI, &ui->dataAccess},
        {LV2_LOG__log, &d->log},
    };
    size_t i = 0;
    for (; i < sizeof(features) / sizeof(features[0]); ++i) {
        ui->features[i] = features[i];
        ui->list[i] = &ui->features[i];
    }
    ui->list[i] = nullptr;
}

// Every control port the editor has not heard at its value, told.
void tellControls(Ui* ui)
{
    _Lv2Instance* d = ui->owner;
    for (size_t i = 0; i < d->ports.size(); ++i) {
        if (d->ports[i].kind != Port::Control)
            continue;
        const float v = LoadValue(d->ports[i]);
        if (v == ui->sent[i] || !std::isfinite(v))
            continue;
        ui->sent[i] = v;
        ui->descriptor->port_event(ui->handle, uint32_t(i), sizeof(float), 0, &v);
    }
}

int failUi(Ui* ui, char* error, int size, const std::string& why)
{
    CopyText(error, size, why.c_str());
    delete ui;
    return 0;
}

} // namespace

void TakeFromUi(_Lv2Instance* d)
{
    UiQueues* q = d->uiQueues.load(std::memory_order_acquire);
    if (!q)
        return;
    while (q->toPlugin.read(&q->message)) {
        if (q->message.size() < sizeof(LV2_Atom_Event))
            continue;
        uint32_t index = 0;
        std::memcpy(&index, q->message.data(), sizeof(index));
        if (index >= d->ports.size() || d->ports[index].kind != Port::Atom || !d->ports[index].input)
            continue;
        // The message's head becomes the event's time: at the block's start.
        auto* event = reinterpret_cast<LV2_Atom_Event*>(q->message.data());
        event->time.frames = 0;
        Port& p = d->ports[index];
        auto* seq = reinterpret_cast<LV2_Atom_Sequence*>(p.atoms.data());
        // What does not fit this block is dropped, as a full queue drops it.
        lv2_atom_sequence_append_event(seq, uint32_t(p.atoms.size() * sizeof(uint64_t) - sizeof(LV2_Atom)), event);
    }
}

void ForwardToUi(_Lv2Instance* d)
{
    UiQueues* q = d->uiQueues.load(std::memory_order_acquire);
    if (!q || !q->listening.load(std::memory_order_acquire))
        return;
    static const LV2_URID sequence = MapUri(LV2_ATOM__Sequence);
    for (int at : d->atomPorts) {
        const Port& p = d->ports[size_t(at)];
        const auto* seq = reinterpret_cast<const LV2_Atom_Sequence*>(p.atoms.data());
        const size_t capacity = p.atoms.size() * sizeof(uint64_t) - sizeof(LV2_Atom);
        if (p.input || seq->atom.type != sequence || seq->atom.size > capacity)
            continue;
        // A plugin's sequence is read within the bounds it was given.
        const char* end = reinterpret_cast<const char*>(&seq->body) + seq->atom.size;
        for (const LV2_Atom_Event* ev = lv2_atom_sequence_begin(&seq->body);
             !lv2_atom_sequence_is_end(&seq->body, seq->atom.size, ev); ev = lv2_atom_sequence_next(ev)) {
            if (reinterpret_cast<const char*>(ev + 1) + ev->body.size > end)
                break;
            const uint32_t head[2] = {p.index, 0};
            q->toUi.write(head, sizeof(head), &ev->body, uint32_t(sizeof(LV2_Atom) + ev->body.size));
        }
    }
}

void EndUi(_Lv2Instance* d)
{
    VLORLV2_UiClose(d);
    delete d->uiQueues.exchange(nullptr);
}

} // namespace vlorlv2

using namespace vlorlv2;

extern "C" int VLORLV2_HasUi(_Lv2Instance* d)
{
    LV2_REMOTE(d, hasUi(d));
    if (!d)
        return 0;
    std::lock_guard<std::mutex> l(WorldLock());
    UiChoice choice;
    return chooseUi(d->plugin, &choice) ? 1 : 0;
}

extern "C" int VLORLV2_UiOpen(_Lv2Instance* d, uint64_t parent, Lv2UiCallback callback, void* user, char* error,
                              int errorSize)
{
    LV2_REMOTE(d, uiOpen(d, parent, callback, user, error, errorSize));
    CopyText(error, errorSize, "");
    if (!d || d->ui || !parent) {
        CopyText(error, errorSize, d && d->ui ? "the editor is open already" : "no window to show the editor in");
        return 0;
    }
    auto* ui = new Ui;
    ui->owner = d;
    ui->callback = callback;
    ui->user = user;
    UiChoice choice;
    {
        std::lock_guard<std::mutex> l(WorldLock());
        if (!chooseUi(d->plugin, &choice))
            return failUi(ui, error, errorSize, choice.why);
    }
    std::string why;
    ui->descriptor = findDescriptor(choice, &why);
    if (!ui->descriptor)
        return failUi(ui, error, errorSize, why);
    if (!d->uiQueues.load())
        d->uiQueues.store(new UiQueues, std::memory_order_release);
    // What a closed editor left unheard is not for this one.
    while (d->uiQueues.load()->toUi.read(&ui->message)) {
    }
    ui->sent.assign(d->ports.size(), std::numeric_limits<float>::quiet_NaN());
    makeUiFeatures(ui, parent);
    ui->handle = ui->descriptor->instantiate(ui->descriptor, d->uri.c_str(), choice.bundle.c_str(), writeFromUi, ui,
                                             &ui->widget, ui->list);
    if (!ui->handle)
        return failUi(ui, error, errorSize, "the editor did not start");
    if (ui->descriptor->extension_data) {
        ui->idle = static_cast<const LV2UI_Idle_Interface*>(ui->descriptor->extension_data(LV2_UI__idleInterface));
        ui->show = static_cast<const LV2UI_Show_Interface*>(ui->descriptor->extension_data(LV2_UI__showInterface));
        ui->ownResize = static_cast<const LV2UI_Resize*>(ui->descriptor->extension_data(LV2_UI__resize));
    }
    d->ui = ui;
    if (ui->descriptor->port_event)
        tellControls(ui);
    d->uiQueues.load()->listening.store(true, std::memory_order_release);
    // An editor that made no window in ours shows one of its own.
    if (!ui->widget && ui->show && ui->show->show)
        ui->show->show(ui->handle);
    return 1;
}

extern "C" int VLORLV2_UiIdle(_Lv2Instance* d)
{
    LV2_REMOTE(d, uiIdle(d));
    const vlorfx::InPlugin inPlugin(d ? d->blame.c_str() : nullptr);
    Ui* ui = d ? d->ui : nullptr;
    if (!ui)
        return 0;
    UiQueues* q = d->uiQueues.load(std::memory_order_acquire);
    while (q->toUi.read(&ui->message)) {
        if (ui->message.size() < 8 + sizeof(LV2_Atom) || !ui->descriptor->port_event)
            continue;
        uint32_t index = 0;
        std::memcpy(&index, ui->message.data(), sizeof(index));
        ui->descriptor->port_event(ui->handle, index, uint32_t(ui->message.size() - 8), eventTransfer(),
                                   ui->message.data() + 8);
    }
    if (ui->descriptor->port_event)
        tellControls(ui);
    // An editor's idle answering non-zero has been closed by its user.
    if (ui->idle && ui->idle->idle && ui->idle->idle(ui->handle) != 0)
        return 0;
    return 1;
}

extern "C" uint64_t VLORLV2_UiGetWidget(_Lv2Instance* d)
{
    LV2_REMOTE(d, uiWidget(d));
    return d && d->ui ? uint64_t(reinterpret_cast<uintptr_t>(d->ui->widget)) : 0;
}

extern "C" int VLORLV2_UiGetSize(_Lv2Instance* d, int* width, int* height)
{
    LV2_REMOTE(d, uiSize(d, width, height));
    if (!d || !d->ui || d->ui->width <= 0)
        return 0;
    if (width)
        *width = d->ui->width;
    if (height)
        *height = d->ui->height;
    return 1;
}

extern "C" int VLORLV2_UiSetSize(_Lv2Instance* d, int width, int height)
{
    LV2_REMOTE(d, uiSetSize(d, width, height));
    Ui* ui = d ? d->ui : nullptr;
    if (!ui || !ui->ownResize || !ui->ownResize->ui_resize || width <= 0 || height <= 0)
        return 0;
    // Extension data is the same for every editor: it is told which by its handle.
    return ui->ownResize->ui_resize(ui->handle, width, height) == 0 ? 1 : 0;
}

extern "C" int VLORLV2_UiClose(_Lv2Instance* d)
{
    LV2_REMOTE(d, uiClose(d));
    Ui* ui = d ? d->ui : nullptr;
    if (!ui)
        return 0;
    if (UiQueues* q = d->uiQueues.load())
        q->listening.store(false, std::memory_order_release);
    if (!ui->widget && ui->show && ui->show->hide)
        ui->show->hide(ui->handle);
    if (ui->descriptor->cleanup)
        ui->descriptor->cleanup(ui->handle);
    d->ui = nullptr;
    delete ui;
    return 1;
}
