#ifndef QVLORPLUGINSMENU_H
#define QVLORPLUGINSMENU_H
// The application's "Plugins" menu: a submenu per vendor, an entry per usable
// product whatever its format, and the scan and manage commands.

#include "QVlorAudioPluginsExport.h"
#include "QVlorAudioPlugins.h"

#include <QObject>
#include <QString>

class QAction;
class QMenu;

namespace QVlorAudioPlugins {

class QVLOR_PLUGINS_EXPORT MenuController : public QObject {
    Q_OBJECT
public:
    explicit MenuController(Host* host);
    ~MenuController() override;

    QMenu* pluginsMenu() const;
    QAction* scanProgressAction() const;
    // "Skip <plugin>", shown while a plugin's check has run for more than 3 s.
    QAction* skipCheckAction() const;
    QAction* searchPluginsAction() const;
    QAction* managePluginsAction() const;
    QAction* cancelScanAction() const;

    void createPluginsMenu();
    // Opens the effect of a pair as its menu entry would; false for an unknown pair.
    bool triggerPairAction(const QString& pairId);
    bool formatAvailableForPair(const QString& pairId, const QString& format) const;
    // The identities of every form of the product one form belongs to, as the
    // last build knew them; the one given alone when no row holds it.
    QStringList productIdentities(const QString& identity) const;

public slots:
    // Coalesced: a burst of catalog signals costs one rebuild.
    void rebuildPluginsMenu();
    void rebuildPluginsMenuNow();
    void axnPluginFxTriggered();
    // Opens the effect of an entry of the menu (the groups, favourites, recent).
    void openEntryOf(QAction* action) { openEntry(action); }

private:
    void openEntry(QAction* action);
    bool openLv2(QAction* action, const QString& uri, const QString& pairId);
    class QVLOR_PLUGINS_HIDDEN Data;
    Data* d;
};

} // namespace QVlorAudioPlugins

#endif
