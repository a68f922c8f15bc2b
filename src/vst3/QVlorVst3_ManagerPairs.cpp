// The VST3 manager's pair operations: the matcher over both catalogs, the
// user's pair commands, and the busy marks that show a command on its way.
#include "QVlorVst3_Manager.h"
#include "QVlorVst3_Manager_p.h"

#include "QVlorPluginMatcher.h"

#include <QHash>

#include <utility>

namespace QVlorVst3 {

bool Manager::Data::clearPendingPairOp(const QList<qint64>& ids, const QStringList& cids)
{
    QMutexLocker l(&publishLock);
    bool removed = false;
    for (qint64 id : ids)
        removed = pendingPairOpVst2Ids.remove(id) || removed;
    for (const QString& cid : cids)
        removed = pendingPairOpCids.remove(cid) || removed;
    return removed;
}

void Manager::runMatcher(const QSet<QString>& cids, qint64 vst2UniqueId)
{
    runMatcher(cids, vst2UniqueId == 0 ? QSet<qint64>() : QSet<qint64>{vst2UniqueId});
}

void Manager::runMatcher(const QSet<QString>& cids, const QSet<qint64>& vst2UniqueIds)
{
    QList<QVlorPluginMatcher::Vst3Item> vst3;
    for (const CatalogBundle& b : std::as_const(d->catalog).bundles()) {
        QHash<QString, QStringList> compat;
        for (const CatalogBundle::CompatEntry& e : b.compat())
            compat[e.newCid] += e.oldCids;
        for (const CatalogClass& c : b.classes())
            vst3.append({c.cid(), c.name(), c.vendor(), compat.value(c.cid()), c.isEnabled()});
    }
    QList<QVlorPluginMatcher::Vst2Item> vst2;
    if (d->vst2Items) {
        // A plugin whose file is gone is not offered: its pair, if any, stays.
        for (const Vst2PluginInfo& info : d->vst2Items())
            if (info.exists)
                vst2.append({info.uniqueId, info.name, info.vendor, info.enabled});
    }
    QVlorPluginMatcher::match(vst2, vst3, d->pairs, cids, vst2UniqueIds);
}

QList<QVlorPluginPairs::Entry> Manager::pairsEntriesCopy() const
{
    QMutexLocker l(&d->publishLock);
    return d->publishedPairs;
}

QSet<qint64> Manager::pendingPairOpVst2IdsCopy() const
{
    QMutexLocker l(&d->publishLock);
    return d->pendingPairOpVst2Ids;
}

QSet<QString> Manager::pendingPairOpCidsCopy() const
{
    QMutexLocker l(&d->publishLock);
    return d->pendingPairOpCids;
}

void Manager::rematchPairs(qint64 vst2UniqueId)
{
    if (d->post([this, vst2UniqueId] { rematchPairs(vst2UniqueId); }))
        return;
    runMatcher({}, vst2UniqueId);
    d->commit();
}

void Manager::queueRematch(qint64 vst2UniqueId)
{
    if (d->post([this, vst2UniqueId] { queueRematch(vst2UniqueId); }))
        return;
    if (vst2UniqueId == 0)
        d->queuedRematchAll = true;
    else
        d->queuedRematches.insert(vst2UniqueId);
    if (d->rematchDrainPosted)
        return;
    // Behind whatever is queued already: a scan's burst of announcements is one match.
    d->rematchDrainPosted = true;
    QMetaObject::invokeMethod(this, [this] { drainQueuedRematches(); }, Qt::QueuedConnection);
}

void Manager::drainQueuedRematches()
{
    d->rematchDrainPosted = false;
    const QSet<qint64> ids = std::exchange(d->queuedRematches, {});
    const bool all = std::exchange(d->queuedRematchAll, false);
    if (ids.isEmpty() && !all)
        return;
    const qsizetype before = d->pairs.entries().size();
    runMatcher({}, all ? QSet<qint64>() : ids);
    // Nothing paired, nothing to publish: a start announces every plugin.
    if (d->pairs.entries().size() != before)
        d->commit();
}

void Manager::setPairActiveFormat(const QString& pairId, const QString& format)
{
    if (d->post([this, pairId, format] { setPairActiveFormat(pairId, format); }))
        return;
    if (format != QLatin1String("vst2") && format != QLatin1String("vst3"))
        return;
    QVlorPluginPairs::Entry* entry = d->pairs.findByPairId(pairId);
    if (!entry)
        return;
    entry->activeFormat = format;
    d->commit();
}

void Manager::splitPair(const QString& pairId, const QString& keepFormat, qint64 pendingVst2UniqueId,
                        const QString& pendingVst3Cid)
{
    if (d->post([=] { splitPair(pairId, keepFormat, pendingVst2UniqueId, pendingVst3Cid); }))
        return;
    QList<qint64> ids;
    QStringList cids;
    if (pendingVst2UniqueId != 0)
        ids.append(pendingVst2UniqueId);
    if (!pendingVst3Cid.isEmpty())
        cids.append(pendingVst3Cid);
    if (const QVlorPluginPairs::Entry* entry = d->pairs.findByPairId(pairId)) {
        if (entry->vst2 != 0)
            ids.append(entry->vst2);
        if (!entry->vst3.isEmpty())
            cids.append(entry->vst3);
    }
    d->pairs.splitPair(pairId, keepFormat);
    d->clearPendingPairOp(ids, cids);
    d->commit();
}

void Manager::markPairOpPending(const QList<qint64>& vst2UniqueIds, const QStringList& vst3Cids)
{
    // On the caller's thread: the row turns busy before the command has gone through the queue.
    bool added = false;
    {
        QMutexLocker l(&d->publishLock);
        for (qint64 id : vst2UniqueIds) {
            if (id == 0 || d->pendingPairOpVst2Ids.contains(id))
                continue;
            d->pendingPairOpVst2Ids.insert(id);
            added = true;
        }
        for (const QString& cid : vst3Cids) {
            if (d->pendingPairOpCids.contains(cid))
                continue;
            d->pendingPairOpCids.insert(cid);
            added = true;
        }
    }
    if (added)
        emit catalogChanged();
}

void Manager::addManualPair(qint64 vst2UniqueId, const QString& vst3Cid, const QString& activeFormat)
{
    if (d->post([=] { addManualPair(vst2UniqueId, vst3Cid, activeFormat); }))
        return;
    // A refused rejoin still clears the busy marks, so the row stops spinning.
    d->pairs.rejoinPair(vst2UniqueId, vst3Cid, activeFormat);
    d->clearPendingPairOp({vst2UniqueId}, {vst3Cid});
    d->commit();
}

void Manager::purgePairState(const QList<qint64>& vst2UniqueIds, const QStringList& vst3Cids)
{
    if (d->post([=] { purgePairState(vst2UniqueIds, vst3Cids); }))
        return;
    const bool cleared = d->clearPendingPairOp(vst2UniqueIds, vst3Cids);
    const bool purged = d->pairs.purgeIdentities(vst2UniqueIds, vst3Cids);
    if (purged) {
        d->publishChange();
    }
    if (cleared || purged)
        emit catalogChanged();
}

} // namespace QVlorVst3
