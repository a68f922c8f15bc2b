#ifndef QVLORVST3_MANAGER_P_H
#define QVLORVST3_MANAGER_P_H

#include "QVlorDataFile_p.h"
#include "QVlorVst3_Manager.h"
#include "QVlorManagerCore_p.h"
#include "QVlorVst3_HostRuns_p.h"
#include "QVlorVst3_ManagedCatalog_p.h"
#include "QVlorVst3_PairHooks_p.h"

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
    Data() : store(publishLock), runs(ahead, [this] { return cancelledSinceWorkBegan(); }) {}

    QString sentinelPath;
    qint32 verifierBuild = 0;
    QStringList searchPathsOverride; // under publishLock
    bool searchPathsOverridden = false;

    ManagedCatalog store;
    HostRuns runs;
    PairHooks pairHooks;
    Manager::OtherFailedSetter otherFailed;

    void publish() { store.publish(); }
    // What a dropped piece of work leaves: the marks of the rows it would
    // have settled are taken back.
    void dropCancelledWork();
    // Failures that are no verdict made checkable again; the user's skips
    // only at a rescan.
    bool retryChecks(bool skippedToo);
    // What another process saved, taken in and published.
    void absorbChangesElsewhere();
    // The user interface's marks, recorded at once. Away from the manager's
    // running thread they are shown on the published copy (shown: it changed)
    // and the answer is true: the caller posts the rest of the work.
    bool addMarks(ManagedCatalog::MarkKind kind, const QStringList& keys, bool* shown);
};

// The bundle holding the class and the class itself, both detached, in the live catalog.
bool __LocateClassAndBundle(Catalog& catalog, const QString& cid, CatalogBundle** bundle,
                            CatalogClass** catalogClass);
// Every .vst3 under directory; a bundle is not entered, links are not followed.
void __CollectBundlePaths(const QString& directory, QStringList* output);

extern const char* const K_PROBE_TRUNCATED_TEXT;

} // namespace QVlorVst3

#endif
