#ifndef QVLORAUDIOPLUGINS_H
#define QVLORAUDIOPLUGINS_H

#include "QVlorAudioPluginsExport.h"
#include <QList>
#include <QString>

class QAction;
class QMenu;
class QVlorAudio;
class QVlorFxWidget;

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

extern QVLOR_PLUGINS_EXPORT const char* const K_SETTING_SUPPORT_VST_PLUGINS;        // "vloraudio.support_vst_plugins"
extern QVLOR_PLUGINS_EXPORT const char* const K_SETTING_SUPPORT_AUDIO_UNIT_PLUGINS; // "vloraudio.support_audio_unit_plugins"

// What the library asks of the application. The application implements it
// and hands it to UI::install; the library never creates one.
class QVLOR_PLUGINS_EXPORT Host {
public:
    virtual ~Host() = default;
    // Names of plugins that a scan has just found for the first time.
    virtual void announceNewPlugins(const QList<QString>& names) = 0;

    // The Plugins menu's needs.
    virtual QMenu* mainMenu() = 0;
    virtual void registerAction(QAction* action, const QString& id, const QString& category, const QString& title) = 0;
    virtual void registerQuickOpen(int kind, QAction* action, const QString& url, const QString& title,
                                   const QString& description, const QString& module, const QString& icon) = 0;
    virtual void unregisterAction(QAction* action) = 0;
    virtual void unregisterQuickOpen(QAction* action) = 0;
    virtual QVlorAudio currentAudio() = 0;
    virtual void presentEffectWidget(QVlorFxWidget* widget, QAction* action, const QString& pairId,
                                     const QString& format) = 0;
};

class MenuController;

// The engine's front door: runs before any audio work and needs no
// application object. The application keeps the order Initialize,
// UI::install, the run, AboutToQuit, UI::uninstall, Finalize.
QVLOR_PLUGINS_EXPORT int Initialize();
QVLOR_PLUGINS_EXPORT int Finalize();

// Stops both managers' threads and saves what they hold.
QVLOR_PLUGINS_EXPORT void AboutToQuit();

// Null before UI::install and after UI::uninstall; vstManager() stays null
// for the whole run when VST support is off.
QVLOR_PLUGINS_EXPORT QVlorVst::Manager* vstManager();
QVLOR_PLUGINS_EXPORT QVlorVst3::Manager* vst3Manager();
// Null also for the whole run when the LV2 format is switched off.
QVLOR_PLUGINS_EXPORT QVlorLv2::Manager* lv2Manager();
QVLOR_PLUGINS_EXPORT Host* host();

namespace UI {
// Creates the managers and ties them together; a second install changes nothing.
QVLOR_PLUGINS_EXPORT void install(Host* host);
QVLOR_PLUGINS_EXPORT void uninstall(Host* host);
QVLOR_PLUGINS_EXPORT MenuController* menuController();
// Whether another form of this effect's family holds user presets: its
// label ("VST3", "LV2" or "VST2", the first in that order that has some) and
// how many, for the effect's preset menu.
QVLOR_PLUGINS_EXPORT bool twinPresetHint(QVlorFxWidget* widget, QString* twinFormat, int* presetCount);
} // namespace UI

} // namespace QVlorAudioPlugins

#endif
