#ifndef QVLORPLUGINSMENU_P_H
#define QVLORPLUGINSMENU_P_H
// What the Plugins menu keeps between builds, shared by its build and its
// sections (favourites, recently used, the groups of the layout chosen).

#include "QVlorPluginsMenu.h"

#include "QVlorSlowCheckWatch.h"
#include "QVlorUnifiedRows.h"
#include "QVlorVst3_Catalog.h"
#include "QVlorVst_Plugin.h"

#include <QHash>
#include <QList>
#include <QMap>
#include <QPointer>
#include <QStringList>

class QMenu;

namespace QVlorAudioPlugins {

class MenuController::Data {
public:
    struct PluginMenuEntry {
        QString pairId;
        QString format;
        QVlorVst::Plugin plugin;
        QString cid; // a VST3 class ID, or an LV2 plugin's URI
        QStringList identities; // of every form of the product: what favourites and recent entries are kept by
        QString name, formatLabel, groupLabel, formatId;
    };

    Host* host = nullptr;
    QPointer<QMenu> pluginsMenu;
    QAction* topAnchor = nullptr; // favourites and recent entries go above it
    QAction* menuAnchor = nullptr;
    QAction* scanProgressAction = nullptr;
    QAction* skipCheckAction = nullptr;
    QAction* cancelScanAction = nullptr;
    QAction* managePluginsAction = nullptr;
    QAction* searchPluginsAction = nullptr;
    QMenu* layoutMenu = nullptr;
    QMap<QString, QMenu*> vendorMenus; // the groups of the layout: by maker or by category
    QList<QAction*> flatActions;       // the entries of the flat layout, in the menu itself
    QList<QAction*> topActions;        // the favourites' and recent sections, with their headers
    QHash<QAction*, PluginMenuEntry> entries;
    QHash<QString, QAction*> pairActions;
    QVlorSlowCheckWatch* slowChecks = nullptr;
    QList<UnifiedRow> rows;
    QVlorVst3::Catalog catalog;
    bool rebuildPending = false;
    bool canApply = false; // at the last build

    void forgetMenu();
    // The entries of the last build, gone from the menu and from the host.
    void dropEntries();
    // What an entry of a usable row opens; false when its form cannot be found.
    bool makeEntry(const UnifiedRow& row, const UpmVst2Index& vst2Index, PluginMenuEntry* entry) const;
    // The groups of the layout the settings name, each entry registered with the host.
    void buildGroups(MenuController* controller, const QList<const UnifiedRow*>& usable, const UpmVst2Index& vst2Index,
                     bool canApply);
    // "Favourites" and "Recently used" at the top, with "Clear recently used",
    // made again from the entries of the groups.
    void refreshTopSections(MenuController* controller, bool canApply);
    // The "Arrange" submenu: by maker, by category, flat.
    void buildLayoutMenu();
    QAction* entryAction(const PluginMenuEntry& entry, QMenu* menu) const;
};

} // namespace QVlorAudioPlugins

#endif
