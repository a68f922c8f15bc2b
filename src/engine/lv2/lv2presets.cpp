// The presets a plugin's bundle ships: listed by label, and each read as a
// state text that VLORLV2_SetState restores, so that a preset loads the same
// way into an instance here or in a host program.
#include "lv2instance_p.h"

#include <lv2/presets/presets.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

using namespace vlorlv2;

extern "C" int VLORLV2_ListPresets(const char* uri, char* out, int size)
{
    if (!uri)
        return -1;
    std::lock_guard<std::mutex> l(WorldLock());
    const LilvPlugin* plugin = World() ? FindPlugin(uri) : nullptr;
    if (!plugin)
        return -1;
    LilvWorld* world = World();
    LilvNode* presetClass = lilv_new_uri(world, LV2_PRESETS__Preset);
    LilvNode* label = lilv_new_uri(world, LILV_NS_RDFS "label");
    LilvNodes* presets = lilv_plugin_get_related(plugin, presetClass);
    std::vector<std::pair<std::string, std::string>> found;
    LILV_FOREACH (nodes, i, presets) {
        const LilvNode* preset = lilv_nodes_get(presets, i);
        // A preset's label lives in its own file, read when first asked of.
        lilv_world_load_resource(world, preset);
        LilvNode* name = lilv_world_get(world, preset, label, nullptr);
        const std::string text = name ? lilv_node_as_string(name) : lilv_node_as_uri(preset);
        lilv_node_free(name);
        // A tab or a line end would break the list's lines.
        if (text.find_first_of("\t\n") == std::string::npos)
            found.emplace_back(text, lilv_node_as_uri(preset));
    }
    lilv_nodes_free(presets);
    lilv_node_free(label);
    lilv_node_free(presetClass);
    std::sort(found.begin(), found.end());
    std::string lines;
    for (const auto& [name, presetUri] : found)
        lines += name + "\t" + presetUri + "\n";
    CopyText(out, size, lines.c_str());
    return int(found.size());
}

extern "C" char* VLORLV2_GetPresetState(const char* presetUri)
{
    if (!presetUri)
        return nullptr;
    std::lock_guard<std::mutex> l(WorldLock());
    if (!World())
        return nullptr;
    LilvNode* node = lilv_new_uri(World(), presetUri);
    lilv_world_load_resource(World(), node);
    LilvState* state = lilv_state_new_from_world(World(), UridMap(), node);
    lilv_node_free(node);
    return TakeStateText(state);
}
