#ifndef LV2WORLD_P_H
#define LV2WORLD_P_H
// The process-wide LV2 world: lilv's view of the installed bundles, the
// nodes the engine asks about, and the URID map every instance shares.

#include "lv2engine.h"

#include <lilv/lilv.h>
#include <lv2/urid/urid.h>

#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace vlorlv2 {

// The URIs the engine asks lilv about, made once.
struct Nodes {
    LilvNode* audioPort;
    LilvNode* controlPort;
    LilvNode* cvPort;
    LilvNode* atomPort;
    LilvNode* inputPort;
    LilvNode* outputPort;
    LilvNode* sideChain;
    LilvNode* connectionOptional;
    LilvNode* toggled;
    LilvNode* integer;
    LilvNode* enumeration;
    LilvNode* logarithmic;
    LilvNode* unit;
    LilvNode* unitSymbol;
    LilvNode* bufferSize;
    LilvNode* instrumentClass;
    LilvNode* x11Ui;
    LilvNode* name;
};

// Every lilv call on the world is made under this lock: lilv is not made for
// threads, and a scan, a dialog and a filter may ask at once.
std::mutex& WorldLock();
// The world and its nodes; null before VLORLV2_Initialize. Under WorldLock.
LilvWorld* World();
const Nodes& WorldNodes();
// The folder of the plugin's bundle; empty when no world knows it. Takes WorldLock.
std::string BundleOf(const char* uri);
// The plugin of a URI; null if none. Under WorldLock.
const LilvPlugin* FindPlugin(const char* uri);

// The URID map: ids from 1, the same for a URI in every instance; any thread.
LV2_URID MapUri(const char* uri);
const char* UnmapUri(LV2_URID id);
LV2_URID_Map* UridMap();
LV2_URID_Unmap* UridUnmap();

// Whether the engine offers a feature a plugin may require (some are
// properties of the host rather than data passed to it).
bool FeatureOffered(const char* uri);
// The first required feature of a plugin that is not offered, or empty. Under WorldLock.
std::string MissingFeature(const LilvPlugin* plugin);

// A state as the text VLORLV2_SetState reads, freed with free(); the state is
// freed. Null for a null state. Under WorldLock.
char* TakeStateText(LilvState* state);

// The record of a plugin, from its metadata alone. Under WorldLock.
void FillRecord(const LilvPlugin* plugin, Lv2PluginRecord* record);

// Copies text into a buffer of size bytes, cut and terminated.
void CopyText(char* out, int size, const char* text);

} // namespace vlorlv2

#endif
