#ifndef QVLORPLUGINMANAGERS_H
#define QVLORPLUGINMANAGERS_H
// The managers a window of the library shows, handed to it by whoever builds
// it. Either may be missing (VST2 support off) or go away while the window
// lives (the library uninstalled), which the guarded pointers tell.

#include "QVlorAudioPluginsExport.h"
#include <QPointer>

namespace QVlorVst {
class Manager;
}
namespace QVlorVst3 {
class Manager;
}
namespace QVlorLv2 {
class Manager;
}

namespace QVlorAudioPlugins {

struct QVLOR_PLUGINS_EXPORT PluginManagers {
    QPointer<QVlorVst::Manager> vst2;
    QPointer<QVlorVst3::Manager> vst3;
    QPointer<QVlorLv2::Manager> lv2; // null when the LV2 format is off

    // The managers the library was installed with: what the pages and
    // dialogs made by name (the preferences dialog's factory) show. Set by
    // the install, emptied by the uninstall.
    static PluginManagers installed();
    static void setInstalled(const PluginManagers& managers);
};

} // namespace QVlorAudioPlugins

#endif
