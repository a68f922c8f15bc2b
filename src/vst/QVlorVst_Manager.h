#ifndef QVLORVST_MANAGER_H
#define QVLORVST_MANAGER_H

#include "QVlorAudioPluginsExport.h"
#include "QVlorVst_Path.h"
#include "QVlorRunningCheck.h"
#include "QVlorVst_Plugin.h"

#include <QList>
#include <QObject>
#include <QStringList>

namespace QVlorVst {

// Owns the VST2 catalog: the search paths with their plugins. It lives on a
// thread of its own; its mutating slots, called from another thread, post
// themselves there and return at once, and report through signals. Readers
// on other threads take detached snapshots with pathsCopy().
class QVLOR_PLUGINS_EXPORT Manager : public QObject {
    Q_OBJECT
public:
    explicit Manager(QObject* parent = nullptr);
    ~Manager() override;

    bool hasNewPlugins() const;
    bool hasChanges() const;
    // The file and the reason of the last save that failed; empty once a save succeeds.
    QString saveError() const;
    static bool isScanEnabled();
    static void setScanEnabled(bool enabled);

signals:
    void paths(const QList<QVlorVst::Path>& paths);
    void newPluginsFound(const QStringList& newPlugins);
    void beginScan();
    void endScan(bool hasNewPluginsToAdd);
    void progressScan(int n, int total);
    // Names the plugin a child process is about to check, probe or verify,
    // so that one that hangs is known while it does.
    void progressPlugin(const QString& name);
    void pluginEnabled(const QVlorVst::Plugin& plugin, const QVlorVst::Path& path);
    void pluginDisabled(const QVlorVst::Plugin& plugin, const QVlorVst::Path& path);
    void pluginFailed(const QVlorVst::Plugin& plugin, const QVlorVst::Path& path);
    void catalogChanged();
    // A file of the catalog could not be saved: which, and why (once for each reason).
    void saveFailed(const QString& error);
    void finished();
    void pathAdded(const QString& path);
    void pathDisabled(const QString& path);
    void pathEnabled(const QString& path);
    void pathDeleted(const QString& path);
    void vendorEnabledChanged(const QString& path);

public slots:
    bool isScanning() const;
    // The checks whose children run now, oldest first; any thread.
    QList<QVlorRunningCheck> runningChecks() const;
    // Ends the child checking the plugin of that name now: it counts as skipped
    // by the user, and is checked again at the next rescan. Any thread.
    bool skipCheck(const QString& name);
    QList<QVlorVst::Path> pathsCopy() const;
    void getPaths();
    void loadCatalog(const QString& filename = QString());
    // True when nothing was left unsaved (or the save was posted to the
    // manager's thread); a failure keeps the changed flag and is told by saveError().
    bool saveCatalog(const QString& filename = QString());
    void searchPlugins(bool notifyNewPlugins = true);
    void updatePlugins(bool notifyNewPlugins = true, bool deep_check_shell_plugins = false);
    void rescanPlugins();
    void cancel();
    void aboutToQuit();
    void addPath(const QString& path);
    void disablePath(const QString& path);
    void enablePath(const QString& path);
    void deletePath(const QString& path);
    void enableNewPlugins();
    void enablePlugins(const QStringList& plugins);
    void markPluginsVerifying(const QStringList& pluginRefs);
    void enablePlugin(QVlorVst::Plugin& plugin, const QVlorVst::Path& path, bool deep_check_shell_plugins = false);
    void disablePlugin(QVlorVst::Plugin& plugin, const QVlorVst::Path& path);
    void resetPlugin(QVlorVst::Plugin& plugin, const QVlorVst::Path& path);
    void setVendorEnabled(const QString& path, const QString& vendorKey, bool enabled);
    void markPluginCrashed(qint64 uniqueId);
    void setChanged();
    void onBeginScan();
    void onEndScan(bool hasNewPluginsToAdd);

private:
    void loadCatalog_v1(const QString& filename);
    void enableKnownPlugin(QVlorVst::Plugin& plugin, const QVlorVst::Path& path);
    bool announcePath(QVlorVst::Path& path, bool notifyNewPlugins, bool deepCheckShells, QStringList* newRefs,
                      int* done, int* total);
    bool searchPluginsInPath(const QString& folder, QVlorVst::Path& path, QStringList& refs);
    static bool retryEndedChecks(QVlorVst::Plugin& plugin, bool skippedToo);
    void publish();

    class QVLOR_PLUGINS_HIDDEN Data;
    Data* d;
};

} // namespace QVlorVst

#endif
