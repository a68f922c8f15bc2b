#include "QVlorVst3_ManagedCatalog_p.h"

#include "QVlorCheckVerdict_p.h"

#include <QJsonObject>

namespace QVlorVst3 {

void ManagedCatalog::load(const QString& catalogPath, const QString& pairsPath)
{
    m_catalogPath = catalogPath;
    m_pairsPath = pairsPath;
    if (!live.load(catalogPath))
        live = Catalog();
    pairs.load(pairsPath);
    // One look at each class, not one walk of the catalog per pair.
    QSet<QString> known;
    for (const CatalogBundle& b : std::as_const(live).bundles())
        for (const CatalogClass& c : b.classes())
            known.insert(c.cid());
    for (const QVlorPluginPairs::Entry& e : std::as_const(pairs).entries())
        if (!e.vst3.isEmpty() && !known.contains(e.vst3))
            returningPairs.insert(e.vst3, e);
}

bool ManagedCatalog::save(QString* error) const
{
    return live.save(m_catalogPath, error) && pairs.save(m_pairsPath, error);
}

bool ManagedCatalog::takeInChangesElsewhere()
{
    QJsonObject merged;
    bool took = false;
    if (m_catalogWatch.takeIn(m_catalogPath, [this] { return live.toJson(); }, &merged)) {
        live.fromJson(merged);
        took = true;
    }
    if (m_pairsWatch.takeIn(m_pairsPath, [this] { return pairs.toJson(); }, &merged)) {
        pairs.fromJson(merged);
        took = true;
    }
    return took;
}

void ManagedCatalog::publish()
{
    QMutexLocker l(&m_lock);
    m_published = live;
    m_publishedPairs = pairs.entries();
    applyMarksLocked();
}

Catalog ManagedCatalog::catalogCopy() const
{
    QMutexLocker l(&m_lock);
    return m_published;
}

QList<QVlorPluginPairs::Entry> ManagedCatalog::pairsCopy() const
{
    QMutexLocker l(&m_lock);
    return m_publishedPairs;
}

void ManagedCatalog::addMarks(MarkKind kind, const QStringList& keys)
{
    QSet<QString>& marks = kind == BundleMark ? m_verifyingBundles : m_verifyingClasses;
    for (const QString& key : keys)
        marks.insert(key);
}

bool ManagedCatalog::applyMarksLocked()
{
    bool changed = false;
    for (const QString& path : std::as_const(m_verifyingBundles)) {
        CatalogBundle* b = m_published.findBundle(path);
        if (b && !b->missing() && !b->verifying()) {
            b->setVerifying(true);
            changed = true;
        }
    }
    for (const QString& cid : std::as_const(m_verifyingClasses)) {
        const CatalogClass* found = std::as_const(m_published).findClass(cid);
        if (!found || found->state() == CatalogClass::Missing || found->state() == CatalogClass::Verifying)
            continue;
        // Only now is the copy detached: a publish with nothing to mark stays a pointer copy.
        m_published.findClass(cid)->setState(CatalogClass::Verifying);
        changed = true;
    }
    return changed;
}

bool ManagedCatalog::clearMark(MarkKind kind, const QString& key)
{
    QMutexLocker l(&m_lock);
    return (kind == BundleMark ? m_verifyingBundles : m_verifyingClasses).remove(key);
}

bool ManagedCatalog::dropMarks()
{
    bool dropped;
    {
        QMutexLocker l(&m_lock);
        dropped = !m_verifyingBundles.isEmpty() || !m_verifyingClasses.isEmpty();
        m_verifyingBundles.clear();
        m_verifyingClasses.clear();
    }
    // The marks reached the live catalog too; nothing else is verifying now,
    // as work runs one piece at a time and this piece is not going to.
    for (CatalogBundle& b : live.bundles()) {
        dropped = dropped || b.verifying();
        b.setVerifying(false);
        for (CatalogClass& c : b.classes()) {
            if (c.state() != CatalogClass::Verifying)
                continue;
            // The state it had before the mark: what its record still says.
            c.setState(c.isEnabled()              ? CatalogClass::Enabled
                       : !c.lastError().isEmpty() ? CatalogClass::Failed
                       : c.verifiedAt() != 0      ? CatalogClass::Disabled
                                                  : CatalogClass::New);
            dropped = true;
        }
    }
    return dropped;
}

bool ManagedCatalog::addPairOpMarks(const QList<qint64>& vst2UniqueIds, const QStringList& vst3Cids)
{
    QMutexLocker l(&m_lock);
    bool added = false;
    for (qint64 id : vst2UniqueIds) {
        if (id == 0 || m_pairOpVst2Ids.contains(id))
            continue;
        m_pairOpVst2Ids.insert(id);
        added = true;
    }
    for (const QString& cid : vst3Cids) {
        if (m_pairOpCids.contains(cid))
            continue;
        m_pairOpCids.insert(cid);
        added = true;
    }
    return added;
}

bool ManagedCatalog::clearPairOpMarks(const QList<qint64>& vst2UniqueIds, const QStringList& vst3Cids)
{
    QMutexLocker l(&m_lock);
    bool removed = false;
    for (qint64 id : vst2UniqueIds)
        removed = m_pairOpVst2Ids.remove(id) || removed;
    for (const QString& cid : vst3Cids)
        removed = m_pairOpCids.remove(cid) || removed;
    return removed;
}

QSet<qint64> ManagedCatalog::pairOpVst2IdsCopy() const
{
    QMutexLocker l(&m_lock);
    return m_pairOpVst2Ids;
}

QSet<QString> ManagedCatalog::pairOpCidsCopy() const
{
    QMutexLocker l(&m_lock);
    return m_pairOpCids;
}

bool ManagedCatalog::retryFailures(bool skippedToo)
{
    auto retry = [skippedToo](const QString& reason) {
        return IsEndedFromOutside(reason) || (skippedToo && IsSkippedByUser(reason));
    };
    bool changed = false;
    for (CatalogBundle& b : live.bundles()) {
        if (!b.probed() && b.failed() && retry(b.lastError())) {
            b.setFailed(false);
            b.setLastError(QString());
            changed = true;
        }
        for (CatalogClass& c : b.classes())
            if (c.state() == CatalogClass::Failed && retry(c.lastError())) {
                c.setState(CatalogClass::New);
                c.setLastError(QString());
                changed = true;
            }
    }
    return changed;
}

} // namespace QVlorVst3
