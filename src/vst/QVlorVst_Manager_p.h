#ifndef QVLORVST_MANAGER_P_H
#define QVLORVST_MANAGER_P_H

#include "QVlorVst_Manager.h"
#include "QVlorManagerThread_p.h"

#include <QAtomicInt>
#include <QHash>
#include <QJsonObject>
#include <QJsonValue>
#include <QMetaObject>
#include <QMutex>
#include <QPointer>
#include <QSet>
#include <QThread>

namespace QVlorVst {

extern const char* const K_SETTING_SCAN_VST2;

class Manager::Data {
public:
    QList<Path> paths;           // the working list: the manager's thread alone
    mutable QMutex mutex;        // guards published and pendingVerifying
    QList<Path> published;       // the snapshot other threads read
    QSet<QString> pendingVerifying;
    QString saveError; // under mutex
    QAtomicInt cancelled{0};
    // One more at each cancel: checks and scans posted before it are dropped
    // when their turn comes, so that a cancel or a quit never waits behind them.
    QAtomicInt cancelGeneration{0};
    QAtomicInt scanning{0};
    QAtomicInt changed{0};
    QPointer<QThread> thread;
    QTimer* saveTimer = nullptr; // the manager's child, on its thread

    static QList<Path> SystemPaths();
    static Path ConvertJsonValueToPath(const QJsonValue& value);
    static bool PluginIsNewAndEnabled(const Plugin& plugin);
    // Resolves an empty name to the default file of that generation, making
    // the folder when needed.
    static QString catalogFile(const QString& filename, const char* defaultName);
    // Reads a catalog file as one JSON object, with the warnings of a bad one.
    static bool readJsonObject(const QString& filename, QJsonObject* object);
    // The working list from the "paths" array of a catalog; false, and the
    // list as it was, when there is none.
    bool replacePaths(const QJsonObject& root);

    // True when the call must be posted to the manager's thread.
    bool mustHop() const;
    // Posts work that may start a child (a scan, a check) unless a cancel
    // comes first; true when it had to be posted.
    template <typename F> bool postWork(Manager* manager, F&& call)
    {
        if (!mustHop())
            return false;
        PostUnlessCancelled(manager, cancelGeneration, std::forward<F>(call), [this, manager] { dropCancelledWork(manager); });
        return true;
    }
    // A dropped check takes back the marks of the rows it would have settled.
    void dropCancelledWork(Manager* manager);
    // The record in the working list that a (usually detached) record means.
    Plugin* findLivePlugin(const Path& path, const Plugin& plugin);
    Path* findPath(const QString& absolutePath);
    bool applyPendingVerifyingLocked();
    bool clearPendingVerifying(const QString& ref);
};

// Lower-cased vendor -> number of plugins of that vendor in the folder.
QHash<QString, int> _BuildVendorCount(const Path& path);
// A vendor switched off blocks its plugins only where it has several.
bool _VendorBlocksPlugin(const Plugin& plugin, const Path& path, const QHash<QString, int>& counts);

} // namespace QVlorVst

#endif
