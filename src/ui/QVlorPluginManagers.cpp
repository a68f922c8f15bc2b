#include "QVlorPluginManagers.h"

#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"

namespace QVlorAudioPlugins {

namespace {
// Set and read on the user interface thread only.
PluginManagers s_installed;
} // namespace

PluginManagers PluginManagers::installed() { return s_installed; }

void PluginManagers::setInstalled(const PluginManagers& managers) { s_installed = managers; }

} // namespace QVlorAudioPlugins
