#ifndef QVLORVST_MANAGER_P_H
#define QVLORVST_MANAGER_P_H

#include "QVlorDataFile_p.h"
#include "QVlorVst_Manager.h"
#include "QVlorManagerCore_p.h"

#include <QHash>
#include <QJsonObject>
#include <QSet>

struct _VSTEFFECT;

namespace QVlorVst {

extern const char* const K_SETTING_SCAN_VST2;
extern const char* const K_SETTING_CHECK_TIMEOUT_S; // seconds, default 30

class Manager::Data : public ManagerCore<Manager, Manager::Data> {
public:
    QList<Path> paths;           // the working list: the manager's thread alone
    QList<Path> published;       // the snapshot other threads read; under publishLock
    QSet<QString> pendingVerifying; // under publishLock

    static QList<Path> SystemPaths();
    static Path ConvertJsonValueToPath(const QJsonValue& value);
    static bool PluginIsNewAndEnabled(const Plugin& plugin);
    // Resolves an empty name to the default file of that generation, making
    // the folder when needed.
    static QString catalogFile(const QString& filename, const char* defaultName);
    // Reads a catalog file as one JSON object, with the warnings of a bad one.
    static bool readCatalog(const QString& filename, QJsonObject* root);
    // The working list from the "paths" array of a catalog; false, and the
    // list as it was, when there is none.
    bool replacePaths(const QJsonObject& root);

    void publish();
    // A dropped check takes back the marks of the rows it would have settled.
    void dropCancelledWork();
    // The record in the working list that a (usually detached) record means.
    Plugin* findLivePlugin(const Path& path, const Plugin& plugin);
    // That record, or the one given when the working list has none.
    Plugin& livePlugin(const Path& path, Plugin& plugin)
    {
        Plugin* live = findLivePlugin(path, plugin);
        return live ? *live : plugin;
    }
    Path* findPath(const QString& absolutePath);
    bool applyPendingVerifyingLocked();
    static bool takeCheck(Plugin& plugin, _VSTEFFECT* effect);
    // The check timeout of the settings, handed to the engine.
    static void ApplyCheckTimeout();
    // Whether enabling the plugin loads it in a child (the catalog cannot answer).
    static bool NeedsCheck(const Plugin& plugin, bool deepShell);
    // The check of the plugin's file starts as soon as the limit allows; the
    // resolution in its turn takes the outcome.
    void checkAhead(const Plugin& plugin) const;
    // Waits for the plugin's check (started now if it was not ahead): false
    // if a cancel dropped it before it began.
    bool takeCheckAhead(const Plugin& plugin) const;
    bool clearPendingVerifying(const QString& ref);

    // The working list as the catalog file holds it.
    QJsonObject catalogJson() const;
    DataFileWatch catalogWatch;
    // What another process saved since this one last read or wrote the
    // catalog, taken into the working list record by record; published.
    void absorbChangesElsewhere();
};

// Lower-cased vendor -> number of plugins of that vendor in the folder.
QHash<QString, int> _BuildVendorCount(const Path& path);
// A vendor switched off blocks its plugins only where it has several.
bool _VendorBlocksPlugin(const Plugin& plugin, const Path& path, const QHash<QString, int>& counts);

} // namespace QVlorVst

#endif
