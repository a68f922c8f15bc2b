#ifndef QVLORVST3_MANAGER_H
#define QVLORVST3_MANAGER_H

#include "QVlorAudioPluginsExport.h"
#include "QVlorPluginPairs.h"
#include "QVlorVst3_Catalog.h"

#include <QList>
#include "QVlorRunningCheck.h"

#include <QObject>
#include <QHash>
#include <QJsonObject>
#include <QSet>
#include <QStringList>

#include <functional>

namespace QVlorVst3 {

extern QVLOR_PLUGINS_EXPORT const char* const K_SETTING_SCAN_VST3;           // "vloraudio.plugins.scan_vst3"
extern QVLOR_PLUGINS_EXPORT const char* const K_SETTING_VST3_CUSTOM_PATHS;   // "vloraudio.plugins.vst3_custom_paths"
extern QVLOR_PLUGINS_EXPORT const char* const K_SETTING_VST3_DISABLED_PATHS; // "vloraudio.plugins.vst3_disabled_paths"

// Owns the live VST3 catalog and the pair store. It lives on a thread of its
// own: directory walks and host processes never block the user interface.
// Its mutating calls, made from another thread, post themselves there and
// return at once, and report through signals; readers take the published
// copies, which are swapped under a mutex. Behind its calls: what it keeps
// (ManagedCatalog), the children that probe and verify (HostRuns), and what
// it asks of the VST2 side (PairHooks).
class QVLOR_PLUGINS_EXPORT Manager : public QObject {
    Q_OBJECT
public:
    // What the manager is told of one VST2 plugin; the matcher's view of the VST2 side.
    struct Vst2PluginInfo {
        qint64 uniqueId = 0;
        QString name;
        QString vendor;
        bool exists = false; // for a shell's child, the shell's
        bool isNew = false;
        bool enabled = false;
        bool failed = false;
    };
    using Vst2ItemsProvider = std::function<QList<Vst2PluginInfo>()>;
    // What the manager is told of one LV2 plugin that may join a family.
    struct Lv2PluginInfo {
        QString uri;
        QString name;
        QString maker;
        bool enabled = false;
    };
    using Lv2ItemsProvider = std::function<QList<Lv2PluginInfo>()>;
    using Vst2FailedSetter = std::function<void(qint64)>;
    // Told of a crash the sentinel pins on a plugin of another format than
    // these two: its format's token and the plugin's key.
    using OtherFailedSetter = std::function<void(const QString& format, const QString& key)>;

    Manager(QObject* parent, const QString& catalogPath, const QString& pairsPath, qint32 verifierBuild,
            const QString& sentinelPath);
    ~Manager() override;

    // Any thread.
    Catalog catalogCopy() const;
    bool isScanning() const;
    // The checks whose children run now, oldest first; any thread.
    QList<QVlorRunningCheck> runningChecks() const;
    // Ends the child checking the plugin of that name now: it counts as skipped
    // by the user, and is checked again at the next rescan. Any thread.
    bool skipCheck(const QString& name);
    static bool isScanEnabled();
    static void setScanEnabled(bool on);
    QStringList searchPaths() const;
    static QStringList SystemPaths();

    // Setters; from another thread they are posted to the manager's.
    void setVst2ItemsProvider(const Vst2ItemsProvider& provider);
    void setVst2FailedSetter(const Vst2FailedSetter& setter);
    // The LV2 plugins the matcher may join to families; none without one.
    void setLv2ItemsProvider(const Lv2ItemsProvider& provider);
    void setOtherFailedSetter(const OtherFailedSetter& setter);
    void setHostBinary(const QString& path, const QStringList& arguments);
    void setHostBinaryForTesting(const QString& path);
    void setSearchPathsForTesting(const QStringList& paths);

    // The crash sentinel: a file naming the plugin being opened in process.
    static QString SetOpeningSentinel(const QString& format, const QString& id, const QString& name);
    static void ClearOpeningSentinel(const QString& previous);
    QString consumeCrashSentinel();

signals:
    void beginScan();
    void endScan(bool hasNewPlugins);
    void progressScan(int n, int total);
    // Names the plugin a child process is about to check, probe or verify,
    // so that one that hangs is known while it does.
    void progressPlugin(const QString& name);
    void catalogChanged();
    // A file of the catalog could not be saved: which, and why (once for each reason).
    void saveFailed(const QString& error);
    void pluginStateChanged(const QVlorVst3::CatalogClass& catalogClass);
    void pluginEnabled(const QVlorVst3::CatalogClass& catalogClass);
    void pluginDisabled(const QVlorVst3::CatalogClass& catalogClass);
    void pluginFailed(const QVlorVst3::CatalogClass& catalogClass);
    void newPluginsFound(const QList<QString>& names);

public slots:
    void searchPlugins(bool notifyNew = true);
    void rescanPlugins();
    void cancel();
    void aboutToQuit();
    // True when nothing was left unsaved; a failure keeps the changes to
    // save again and is told by saveError().
    bool saveCatalogAndPairs();
    // The file and the reason of the last save that failed; empty once a save succeeds.
    QString saveError() const;

    // Enabling and verification.
    void enablePlugin(const QString& cid);
    void enableBundle(const QString& path);
    void enableBundleInternal(const QString& path, bool autoEnableSingle);
    void enableNewPlugins();
    void disablePlugin(const QString& cid);
    void setBundleEnabled(const QString& path, bool on);
    void setVendorEnabled(const QString& vendor, bool on);
    void clearCrashedState(const QString& cid);
    void removeFromCatalog(const QString& cid);
    void resetBundle(const QString& path);
    void purgeUnprobedUnder(const QString& root);
    void markClassesVerifying(const QStringList& cids);
    void markBundlesVerifying(const QStringList& paths);

    // Pairs.
    QList<QVlorPluginPairs::Entry> pairsEntriesCopy() const;
    QSet<qint64> pendingPairOpVst2IdsCopy() const;
    QSet<QString> pendingPairOpCidsCopy() const;
    void rematchPairs(qint64 vst2UniqueId = 0);
    // rematchPairs for each VST2 plugin a scan announces: they gather while
    // the manager's queue holds more, and run as one match (0: everything).
    void queueRematch(qint64 vst2UniqueId);
    void setPairActiveFormat(const QString& pairId, const QString& format);
    void splitPair(const QString& pairId, const QString& keepFormat, qint64 pendingVst2UniqueId = 0,
                   const QString& pendingVst3Cid = QString());
    void markPairOpPending(const QList<qint64>& vst2UniqueIds, const QStringList& vst3Cids);
    void addManualPair(qint64 vst2UniqueId, const QString& vst3Cid, const QString& activeFormat);
    // One form ("vst2", "vst3" or "lv2") let go of its family, the others kept together.
    void splitForm(const QString& pairId, const QString& format);
    // An LV2 plugin joined by the user to a family, or to a lone VST2 plugin or VST3 class.
    void joinLv2Form(const QString& uri, const QString& pairId, qint64 vst2UniqueId, const QString& vst3Cid,
                     const QString& activeFormat);
    void purgePairState(const QList<qint64>& vst2UniqueIds, const QStringList& vst3Cids);

private:
    // The calls of the manager's own thread. The live objects behind the copies:
    Catalog& catalog();
    QVlorPluginPairs& pairs();
    // The matcher over the live catalog and store.
    void runMatcher(const QSet<QString>& cids, qint64 vst2UniqueId);
    void runMatcher(const QSet<QString>& cids, const QSet<qint64>& vst2UniqueIds);
    void drainQueuedRematches();
    // The scanning flag that isScanning reads, set by the manager's own signals.
    void onBeginScan();
    void onEndScan(bool hasNewPlugins);
    // The parts of a scan and of a probe.
    void settleGoneBundles(const QStringList& roots, const QSet<QString>& found);
    void visitBundle(const QString& path, QHash<QString, int>* place, QSet<QString>* seen, QList<QString>* newNames);
    void reprobeBundle(const QString& path, QSet<QString>* seen, QList<QString>* newNames);
    void takeProbe(CatalogBundle* bundle, const QJsonObject& reply, bool autoEnableSingle);
    QString newClassFormat(const QString& cid, const QList<Vst2PluginInfo>& vst2) const;
    void decideNewClass(const QString& cid, const QList<Vst2PluginInfo>& vst2);

    class QVLOR_PLUGINS_HIDDEN Data;
    Data* d;
};

} // namespace QVlorVst3

Q_DECLARE_METATYPE(QVlorVst3::CatalogClass)
Q_DECLARE_METATYPE(QVlorVst3::Manager::Vst2PluginInfo)

#endif
