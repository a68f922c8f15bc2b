#ifndef QVLORVST3_MANAGEDCATALOG_P_H
#define QVLORVST3_MANAGEDCATALOG_P_H
// What the VST3 manager keeps: the live catalog and pair store, which its
// thread alone touches, the copies it hands out to every other thread, and
// the busy marks shown on those copies before the work behind them runs.

#include "QVlorDataFile_p.h"
#include "QVlorPluginPairs.h"
#include "QVlorVst3_Catalog.h"

#include <QHash>
#include <QMutex>
#include <QSet>

namespace QVlorVst3 {

class ManagedCatalog {
public:
    // lock guards the copies and the marks; the manager's other shared state shares it.
    explicit ManagedCatalog(QMutex& lock) : m_lock(lock) {}

    // The files, read; a file that does not read leaves an empty catalog or
    // store until the next save.
    void load(const QString& catalogPath, const QString& pairsPath);
    // Both files written; false with the file and the reason.
    bool save(QString* error) const;
    // What another process saved since this one last read or wrote the
    // files, taken in record by record; true when anything was.
    bool takeInChangesElsewhere();

    // The manager's thread alone.
    Catalog live;
    QVlorPluginPairs pairs;
    // Pair entries whose class the catalog did not hold when both were
    // loaded: such a class that a scan finds again takes its pair's choice.
    QHash<QString, QVlorPluginPairs::Entry> returningPairs;

    // The copies, made anew from the live objects and marked.
    void publish();
    Catalog catalogCopy() const;
    QList<QVlorPluginPairs::Entry> pairsCopy() const;

    // Busy marks of the verification of bundles and classes.
    enum MarkKind { BundleMark, ClassMark };
    void addMarks(MarkKind kind, const QStringList& keys);
    // The marks shown on the copy; true when it changed. Under the lock.
    bool applyMarksLocked();
    // True when there was such a mark.
    bool clearMark(MarkKind kind, const QString& key);
    // Every mark taken back, on the copy's next publish and in the live
    // catalog, each class to the state its record still tells; true when
    // there was any.
    bool dropMarks();

    // Busy marks of pair commands under way.
    bool addPairOpMarks(const QList<qint64>& vst2UniqueIds, const QStringList& vst3Cids);
    bool clearPairOpMarks(const QList<qint64>& vst2UniqueIds, const QStringList& vst3Cids);
    QSet<qint64> pairOpVst2IdsCopy() const;
    QSet<QString> pairOpCidsCopy() const;

    // Failures that are no verdict on a bundle or a class made checkable
    // again: a bundle as never probed, a class as new. The user's skips
    // only when skippedToo. True when anything changed.
    bool retryFailures(bool skippedToo);

private:
    QMutex& m_lock;
    QString m_catalogPath;
    QString m_pairsPath;
    DataFileWatch m_catalogWatch, m_pairsWatch;
    // Under m_lock.
    Catalog m_published;
    QList<QVlorPluginPairs::Entry> m_publishedPairs;
    QSet<QString> m_verifyingBundles;
    QSet<QString> m_verifyingClasses;
    QSet<qint64> m_pairOpVst2Ids;
    QSet<QString> m_pairOpCids;
};

} // namespace QVlorVst3

#endif
