#ifndef QVLORVST3_MANAGER_P_H
#define QVLORVST3_MANAGER_P_H

#include "QVlorDataFile_p.h"
#include "QVlorVst3_Manager.h"
#include "QVlorManagerCore_p.h"

#include <QAtomicInt>
#include <QHash>
#include <QJsonObject>
#include <QMetaObject>
#include <QMutex>
#include <QPointer>
#include <QSet>
#include <QThread>

namespace QVlorVst3 {

class Manager::Data : public ManagerCore<Manager, Manager::Data> {
public:
    QString catalogPath;
    QString pairsPath;
    QString sentinelPath;
    qint32 verifierBuild = 0;
    Vst2ItemsProvider vst2Items;
    Vst2FailedSetter vst2Failed;
    QStringList searchPathsOverride; // under publishLock
    bool searchPathsOverridden = false;
    QString hostBinary;
    QStringList hostArgs;

    Catalog catalog;        // the manager's thread alone
    // Pair entries whose class the catalog did not hold when both were
    // loaded: such a class that a scan finds again takes its pair's choice.
    QHash<QString, QVlorPluginPairs::Entry> returningPairs; // by cid; the manager's thread alone
    QVlorPluginPairs pairs; // likewise

    // publishLock guards the copies, every pending set and the search paths' override.
    Catalog publishedCatalog;
    QList<QVlorPluginPairs::Entry> publishedPairs;
    QSet<QString> pendingVerifyingBundles;
    QSet<QString> pendingVerifyingClasses;
    QSet<qint64> pendingPairOpVst2Ids;
    QSet<QString> pendingPairOpCids;
    // The rematches queued by a scan's announcements, run as one (manager's thread).
    QSet<qint64> queuedRematches;
    bool queuedRematchAll = false;
    bool rematchDrainPosted = false;

    // Set when the application quits: the child under way gets a short grace.
    QAtomicInt quitting{0};

    // What a dropped piece of work leaves: the marks of the rows it would
    // have settled are taken back.
    void dropCancelledWork();

    void publish();
    bool retryChecks(bool skippedToo);
    // What another process saved in the catalog or the pair store since this
    // one last read or wrote them, taken in record by record; published.
    DataFileWatch catalogWatch, pairsWatch;
    void absorbChangesElsewhere();
    bool applyPendingVerifyingLocked();
    // The user interface's marks, recorded at once. Away from the manager's
    // running thread they are shown on the published copy (shown: it changed)
    // and the answer is true: the caller posts the rest of the work.
    bool addMarks(QSet<QString>* pending, const QStringList& keys, bool* shown);
    void clearPendingVerifyingBundle(const QString& path);
    void clearPendingVerifyingClass(const QString& cid);
    bool clearPendingPairOp(const QList<qint64>& ids, const QStringList& cids);

    // One job of the host program; the reply and the failure's text as
    // __RunHostProcess gives them. A job handed ahead (runAhead) is waited
    // for; any other runs now, as one of the children the limit allows.
    // label names the plugin to whoever would skip it.
    bool runHost(const QStringList& job, QJsonObject* reply, QString* errorText, const QString& label) const;
    // The job starts as soon as the limit allows; its outcome waits for runHost.
    void runAhead(const QStringList& job, const QString& label) const;
    struct HostOutcome {
        bool ok = false;
        QJsonObject reply;
        QString error;
    };
    mutable QMutex outcomesLock;
    mutable QHash<QString, HostOutcome> outcomes; // by job, under outcomesLock
    // A run that failed only because the application quits under it, or the
    // user cancelled it: what it was about is left as it was, not marked failed.
    bool quitCut(const QString& errorText) const { return errorText == QLatin1String("cancelled"); }
    // The moduleinfo compatibility list of the bundle, and whether it has moduleinfo at all.
    static void ReadModuleInfo(CatalogBundle* bundle);
    static void StoreFileStamp(CatalogBundle* bundle);
};

// The bundle holding the class and the class itself, both detached, in the live catalog.
bool __LocateClassAndBundle(Catalog& catalog, const QString& cid, CatalogBundle** bundle,
                            CatalogClass** catalogClass);
// Every .vst3 under directory; a bundle is not entered, links are not followed.
void __CollectBundlePaths(const QString& directory, QStringList* output);

extern const char* const K_PROBE_TRUNCATED_TEXT;

} // namespace QVlorVst3

#endif
