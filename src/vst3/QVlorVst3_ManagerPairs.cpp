// The VST3 manager's pair operations: the matcher over both catalogs, the
// user's pair commands, and the busy marks that show a command on its way.
#include "QVlorVst3_Manager.h"
#include "QVlorPluginFormat.h"
#include "QVlorVst3_Manager_p.h"

#include "QVlorPluginMatcher.h"

#include <QHash>

#include <utility>

namespace QVlorVst3 {

void Manager::runMatcher(const QSet<QString>& cids, qint64 vst2UniqueId)
{
    runMatcher(cids, vst2UniqueId == 0 ? QSet<qint64>() : QSet<qint64>{vst2UniqueId});
}

void Manager::runMatcher(const QSet<QString>& cids, const QSet<qint64>& vst2UniqueIds)
{
    d->pairHooks.match(d->store.live, d->store.pairs, cids, vst2UniqueIds);
}

QList<QVlorPluginPairs::Entry> Manager::pairsEntriesCopy() const { return d->store.pairsCopy(); }
QSet<qint64> Manager::pendingPairOpVst2IdsCopy() const { return d->store.pairOpVst2IdsCopy(); }
QSet<QString> Manager::pendingPairOpCidsCopy() const { return d->store.pairOpCidsCopy(); }

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
    // Behind whatever is queued already: a scan's burst of announcements is one match.
    if (d->pairHooks.queue(vst2UniqueId))
        QMetaObject::invokeMethod(this, [this] { drainQueuedRematches(); }, Qt::QueuedConnection);
}

void Manager::drainQueuedRematches()
{
    QSet<qint64> ids;
    bool all = false;
    if (!d->pairHooks.take(&ids, &all))
        return;
    // The matcher only ever adds forms: their count tells whether it changed anything.
    auto forms = [this] {
        qsizetype n = 0;
        for (const QVlorPluginPairs::Entry& e : d->store.pairs.entries())
            n += e.formCount();
        return n;
    };
    const qsizetype before = forms();
    runMatcher({}, all ? QSet<qint64>() : ids);
    // Nothing paired, nothing to publish: a start announces every plugin.
    if (forms() != before)
        d->commit();
}

void Manager::setPairActiveFormat(const QString& pairId, const QString& format)
{
    if (d->post([this, pairId, format] { setPairActiveFormat(pairId, format); }))
        return;
    QVlorPluginPairs::Entry* entry = d->store.pairs.findByPairId(pairId);
    if (!entry || !entry->holds(format))
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
    if (const QVlorPluginPairs::Entry* entry = d->store.pairs.findByPairId(pairId)) {
        if (entry->vst2 != 0)
            ids.append(entry->vst2);
        if (!entry->vst3.isEmpty())
            cids.append(entry->vst3);
    }
    d->store.pairs.splitPair(pairId, keepFormat);
    d->store.clearPairOpMarks(ids, cids);
    d->commit();
}

void Manager::markPairOpPending(const QList<qint64>& vst2UniqueIds, const QStringList& vst3Cids)
{
    // On the caller's thread: the row turns busy before the command has gone through the queue.
    const bool added = d->store.addPairOpMarks(vst2UniqueIds, vst3Cids);
    if (added)
        emit catalogChanged();
}

void Manager::addManualPair(qint64 vst2UniqueId, const QString& vst3Cid, const QString& activeFormat)
{
    if (d->post([=] { addManualPair(vst2UniqueId, vst3Cid, activeFormat); }))
        return;
    // A refused rejoin still clears the busy marks, so the row stops spinning.
    d->store.pairs.rejoinPair(vst2UniqueId, vst3Cid, activeFormat);
    d->store.clearPairOpMarks({vst2UniqueId}, {vst3Cid});
    d->commit();
}

void Manager::splitForm(const QString& pairId, const QString& format)
{
    if (d->post([=] { splitForm(pairId, format); }))
        return;
    d->store.pairs.splitForm(pairId, format);
    d->commit();
}

void Manager::joinLv2Form(const QString& uri, const QString& pairId, qint64 vst2UniqueId, const QString& vst3Cid,
                          const QString& activeFormat)
{
    if (d->post([=] { joinLv2Form(uri, pairId, vst2UniqueId, vst3Cid, activeFormat); }))
        return;
    d->store.pairs.joinLv2(uri, pairId, vst2UniqueId, vst3Cid, activeFormat);
    d->commit();
}

void Manager::purgePairState(const QList<qint64>& vst2UniqueIds, const QStringList& vst3Cids)
{
    if (d->post([=] { purgePairState(vst2UniqueIds, vst3Cids); }))
        return;
    const bool cleared = d->store.clearPairOpMarks(vst2UniqueIds, vst3Cids);
    const bool purged = d->store.pairs.purgeIdentities(vst2UniqueIds, vst3Cids);
    if (purged) {
        d->publishChange();
    }
    if (cleared || purged)
        emit catalogChanged();
}

} // namespace QVlorVst3
