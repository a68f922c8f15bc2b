// The LV2 world, the URID map, and what the metadata tells of a plugin.
#include "lv2world_p.h"

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/options/options.h>
#include <lv2/port-props/port-props.h>
#include <lv2/resize-port/resize-port.h>
#include <lv2/state/state.h>
#include <lv2/ui/ui.h>
#include <lv2/units/units.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <algorithm>
#include <deque>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

namespace vlorlv2 {

namespace {

std::mutex s_worldLock;
LilvWorld* s_world = nullptr;
// Bundles named before the world stood (see VLORLV2_AddBundle).
std::vector<std::string> s_pendingBundles;
Nodes s_nodes{};

// The URID map, shared by every instance: a plugin may hand an id to
// another instance of itself through state.
std::mutex s_mapLock;
std::unordered_map<std::string, LV2_URID> s_ids;
// s_uris[id - 1]; a deque keeps each text where it is as it grows, so that
// an unmapped text stays valid for as long as the process runs.
std::deque<std::string> s_uris;

LV2_URID mapCallback(LV2_URID_Map_Handle, const char* uri) { return MapUri(uri); }
const char* unmapCallback(LV2_URID_Unmap_Handle, LV2_URID id) { return UnmapUri(id); }
LV2_URID_Map s_map{nullptr, mapCallback};
LV2_URID_Unmap s_unmap{nullptr, unmapCallback};

const char* const kOffered[] = {
    LV2_URID__map,
    LV2_URID__unmap,
    LV2_OPTIONS__options,
    LV2_BUF_SIZE__boundedBlockLength,
    // A plugin that needs runs of one length (or of a power of two) gets runs
    // of one power of two, gathered from the blocks it is given.
    LV2_BUF_SIZE__fixedBlockLength,
    LV2_BUF_SIZE__powerOf2BlockLength,
    LV2_BUF_SIZE__coarseBlockLength,
    LV2_WORKER__schedule,
    LV2_LOG__log,
    LV2_STATE__makePath,
    LV2_STATE__mapPath,
    LV2_STATE__freePath,
    // Properties of the host, not data handed to the plugin: every run has
    // its own output buffers and may take as long as it needs.
    LV2_CORE__inPlaceBroken,
    LV2_CORE__hardRTCapable,
    LV2_CORE__isLive,
    "http://lv2plug.in/ns/lv2core#isSideChain",
};

void makeNodes(LilvWorld* w)
{
    auto uri = [w](const char* u) { return lilv_new_uri(w, u); };
    s_nodes.audioPort = uri(LV2_CORE__AudioPort);
    s_nodes.controlPort = uri(LV2_CORE__ControlPort);
    s_nodes.cvPort = uri(LV2_CORE__CVPort);
    s_nodes.atomPort = uri(LV2_ATOM__AtomPort);
    s_nodes.inputPort = uri(LV2_CORE__InputPort);
    s_nodes.outputPort = uri(LV2_CORE__OutputPort);
    s_nodes.sideChain = uri("http://lv2plug.in/ns/lv2core#isSideChain");
    s_nodes.connectionOptional = uri(LV2_CORE__connectionOptional);
    s_nodes.toggled = uri(LV2_CORE__toggled);
    s_nodes.integer = uri(LV2_CORE__integer);
    s_nodes.enumeration = uri(LV2_CORE__enumeration);
    s_nodes.logarithmic = uri(LV2_PORT_PROPS__logarithmic);
    s_nodes.unit = uri(LV2_UNITS__unit);
    s_nodes.unitSymbol = uri(LV2_UNITS__symbol);
    s_nodes.bufferSize = uri(LV2_RESIZE_PORT__minimumSize);
    s_nodes.instrumentClass = uri(LV2_CORE__InstrumentPlugin);
    s_nodes.x11Ui = uri(LV2_UI__X11UI);
    s_nodes.name = uri(LV2_CORE__name);
}

void freeNodes()
{
    LilvNode** all = reinterpret_cast<LilvNode**>(&s_nodes);
    for (size_t i = 0; i < sizeof(Nodes) / sizeof(LilvNode*); ++i)
        lilv_node_free(all[i]);
    s_nodes = Nodes{};
}

// The plugin's own types in the core vocabulary, as a world of one bundle
// without the class tree sees them: "http://lv2plug.in/ns/lv2core#ReverbPlugin".
std::vector<std::string> coreTypes(const LilvPlugin* plugin)
{
    std::vector<std::string> types;
    LilvNode* rdfType = lilv_new_uri(s_world, "http://www.w3.org/1999/02/22-rdf-syntax-ns#type");
    LilvNodes* all = lilv_world_find_nodes(s_world, lilv_plugin_get_uri(plugin), rdfType, nullptr);
    LILV_FOREACH (nodes, i, all) {
        const LilvNode* t = lilv_nodes_get(all, i);
        const std::string uri = lilv_node_is_uri(t) ? lilv_node_as_uri(t) : "";
        if (uri.rfind(LV2_CORE_PREFIX, 0) == 0 && uri != LV2_CORE__Plugin)
            types.push_back(uri);
    }
    lilv_nodes_free(all);
    lilv_node_free(rdfType);
    return types;
}

// The label of the plugin's class: from the class tree where the world holds
// it, else from its core type ("ReverbPlugin" reads "Reverb").
std::string classLabel(const LilvPlugin* plugin)
{
    const LilvPluginClass* c = lilv_plugin_get_class(plugin);
    const char* label = c ? lilv_node_as_string(lilv_plugin_class_get_label(c)) : nullptr;
    if (label && *label && std::strcmp(label, "Plugin") != 0)
        return label;
    for (std::string type : coreTypes(plugin)) {
        type = type.substr(std::strlen(LV2_CORE_PREFIX));
        if (type.size() > 6 && type.compare(type.size() - 6, 6, "Plugin") == 0)
            type.resize(type.size() - 6);
        return type;
    }
    return label ? label : "";
}

// Whether the plugin's class or one of its ancestors is the instrument class.
bool isInstrument(const LilvPlugin* plugin)
{
    for (const std::string& type : coreTypes(plugin))
        if (type == LV2_CORE__InstrumentPlugin)
            return true;
    const LilvPluginClass* c = lilv_plugin_get_class(plugin);
    const LilvPluginClasses* all = lilv_world_get_plugin_classes(s_world);
    for (int depth = 0; c && depth < 16; ++depth) {
        if (lilv_node_equals(lilv_plugin_class_get_uri(c), s_nodes.instrumentClass))
            return true;
        c = lilv_plugin_classes_get_by_uri(all, lilv_plugin_class_get_parent_uri(c));
    }
    return false;
}

bool hasX11Ui(const LilvPlugin* plugin)
{
    LilvUIs* uis = lilv_plugin_get_uis(plugin);
    bool found = false;
    LILV_FOREACH (uis, i, uis)
        found = found || lilv_ui_is_a(lilv_uis_get(uis, i), s_nodes.x11Ui);
    lilv_uis_free(uis);
    return found;
}

} // namespace

std::mutex& WorldLock() { return s_worldLock; }
LilvWorld* World() { return s_world; }
const Nodes& WorldNodes() { return s_nodes; }

const LilvPlugin* FindPlugin(const char* uri)
{
    if (!s_world || !uri || !*uri)
        return nullptr;
    LilvNode* node = lilv_new_uri(s_world, uri);
    const LilvPlugin* plugin = node ? lilv_plugins_get_by_uri(lilv_world_get_all_plugins(s_world), node) : nullptr;
    lilv_node_free(node);
    return plugin;
}

LV2_URID MapUri(const char* uri)
{
    if (!uri)
        return 0;
    std::lock_guard<std::mutex> l(s_mapLock);
    const auto found = s_ids.find(uri);
    if (found != s_ids.end())
        return found->second;
    s_uris.emplace_back(uri);
    const LV2_URID id = LV2_URID(s_uris.size());
    s_ids.emplace(uri, id);
    return id;
}

const char* UnmapUri(LV2_URID id)
{
    std::lock_guard<std::mutex> l(s_mapLock);
    return id >= 1 && id <= s_uris.size() ? s_uris[id - 1].c_str() : nullptr;
}

LV2_URID_Map* UridMap() { return &s_map; }
LV2_URID_Unmap* UridUnmap() { return &s_unmap; }

bool FeatureOffered(const char* uri)
{
    return uri && std::any_of(std::begin(kOffered), std::end(kOffered),
                              [uri](const char* offered) { return !std::strcmp(offered, uri); });
}

std::string MissingFeature(const LilvPlugin* plugin)
{
    std::string missing;
    LilvNodes* required = lilv_plugin_get_required_features(plugin);
    LILV_FOREACH (nodes, i, required) {
        const char* uri = lilv_node_as_uri(lilv_nodes_get(required, i));
        if (missing.empty() && !FeatureOffered(uri))
            missing = uri ? uri : "";
    }
    lilv_nodes_free(required);
    return missing;
}

void CopyText(char* out, int size, const char* text)
{
    if (!out || size <= 0)
        return;
    std::strncpy(out, text ? text : "", size_t(size) - 1);
    out[size - 1] = 0;
}

void FillRecord(const LilvPlugin* plugin, Lv2PluginRecord* record)
{
    *record = Lv2PluginRecord{};
    CopyText(record->uri, sizeof(record->uri), lilv_node_as_uri(lilv_plugin_get_uri(plugin)));
    LilvNode* name = lilv_plugin_get_name(plugin);
    CopyText(record->name, sizeof(record->name), name ? lilv_node_as_string(name) : record->uri);
    lilv_node_free(name);
    LilvNode* maker = lilv_plugin_get_author_name(plugin);
    CopyText(record->maker, sizeof(record->maker), maker ? lilv_node_as_string(maker) : "");
    lilv_node_free(maker);
    CopyText(record->className, sizeof(record->className), classLabel(plugin).c_str());
    const Nodes& n = s_nodes;
    for (uint32_t i = 0; i < lilv_plugin_get_num_ports(plugin); ++i) {
        const LilvPort* port = lilv_plugin_get_port_by_index(plugin, i);
        const bool input = lilv_port_is_a(plugin, port, n.inputPort);
        if (lilv_port_is_a(plugin, port, n.audioPort)) {
            if (!input)
                ++record->audioOutputs;
            else if (lilv_port_has_property(plugin, port, n.sideChain))
                ++record->sideChainInputs;
            else
                ++record->audioInputs;
        } else if (input && lilv_port_is_a(plugin, port, n.controlPort)) {
            ++record->controlInputs;
        }
    }
    record->isEffect = record->audioInputs > 0 && record->audioOutputs > 0 && !isInstrument(plugin);
    record->hasX11Ui = hasX11Ui(plugin);
    const LilvNode* library = lilv_plugin_get_library_uri(plugin);
    char* binary = library ? lilv_file_uri_parse(lilv_node_as_uri(library), nullptr) : nullptr;
    CopyText(record->binary, sizeof(record->binary), binary ? binary : "");
    lilv_free(binary);
    CopyText(record->missingFeature, sizeof(record->missingFeature), MissingFeature(plugin).c_str());
}

} // namespace vlorlv2

using namespace vlorlv2;

namespace {

// Into the world, under its lock; a bundle whose plugins it holds already
// (read from LV2_PATH, or added before) is not read twice.
void loadBundle(const std::string& path)
{
    std::string folder = path;
    if (folder.back() != '/')
        folder += '/';
    LilvNode* bundle = lilv_new_file_uri(s_world, nullptr, folder.c_str());
    bool known = false;
    const LilvPlugins* all = lilv_world_get_all_plugins(s_world);
    LILV_FOREACH (plugins, i, all)
        known = known || lilv_node_equals(lilv_plugin_get_bundle_uri(lilv_plugins_get(all, i)), bundle);
    if (!known)
        lilv_world_load_bundle(s_world, bundle);
    lilv_node_free(bundle);
}

} // namespace

std::string vlorlv2::BundleOf(const char* uri)
{
    std::lock_guard<std::mutex> l(WorldLock());
    const LilvPlugin* plugin = s_world && uri ? FindPlugin(uri) : nullptr;
    const LilvNode* bundle = plugin ? lilv_plugin_get_bundle_uri(plugin) : nullptr;
    char* path = bundle ? lilv_file_uri_parse(lilv_node_as_uri(bundle), nullptr) : nullptr;
    std::string folder = path ? path : "";
    lilv_free(path);
    while (folder.size() > 1 && folder.back() == '/')
        folder.pop_back();
    return folder;
}

extern "C" int VLORLV2_Initialize(void)
{
    std::lock_guard<std::mutex> l(s_worldLock);
    if (s_world)
        return 1;
    s_world = lilv_world_new();
    if (!s_world)
        return 0;
    lilv_world_load_all(s_world);
    // A bundle named while no world stood may have gone since.
    for (const std::string& path : s_pendingBundles)
        if (access((path + "/manifest.ttl").c_str(), R_OK) == 0)
            loadBundle(path);
    s_pendingBundles.clear();
    makeNodes(s_world);
    return 1;
}

extern "C" int VLORLV2_InitializeBundle(const char* path)
{
    std::lock_guard<std::mutex> l(s_worldLock);
    if (s_world || !path || !*path)
        return 0;
    s_world = lilv_world_new();
    if (!s_world)
        return 0;
    loadBundle(path);
    makeNodes(s_world);
    return 1;
}

extern "C" int VLORLV2_AddBundle(const char* path)
{
    std::lock_guard<std::mutex> l(s_worldLock);
    if (!path || !*path)
        return 0;
    if (!s_world) {
        if (std::find(s_pendingBundles.begin(), s_pendingBundles.end(), path) == s_pendingBundles.end())
            s_pendingBundles.emplace_back(path);
        return 1;
    }
    loadBundle(path);
    return 1;
}

extern "C" void VLORLV2_Finalize(void)
{
    std::lock_guard<std::mutex> l(s_worldLock);
    if (!s_world)
        return;
    freeNodes();
    lilv_world_free(s_world);
    s_world = nullptr;
}

extern "C" int VLORLV2_ListPlugins(Lv2PluginRecord* records, int limit)
{
    std::lock_guard<std::mutex> l(s_worldLock);
    if (!s_world)
        return -1;
    const LilvPlugins* all = lilv_world_get_all_plugins(s_world);
    std::vector<const LilvPlugin*> plugins;
    LILV_FOREACH (plugins, i, all)
        plugins.push_back(lilv_plugins_get(all, i));
    std::sort(plugins.begin(), plugins.end(), [](const LilvPlugin* a, const LilvPlugin* b) {
        return std::strcmp(lilv_node_as_uri(lilv_plugin_get_uri(a)), lilv_node_as_uri(lilv_plugin_get_uri(b))) < 0;
    });
    for (int i = 0; records && i < limit && i < int(plugins.size()); ++i)
        FillRecord(plugins[size_t(i)], &records[i]);
    return int(plugins.size());
}

extern "C" int VLORLV2_DescribePlugin(const char* uri, Lv2PluginRecord* record)
{
    std::lock_guard<std::mutex> l(s_worldLock);
    const LilvPlugin* plugin = FindPlugin(uri);
    if (!plugin || !record)
        return 0;
    FillRecord(plugin, record);
    return 1;
}
