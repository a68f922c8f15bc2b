#include "QVlorVst3_PairHooks_p.h"

#include "QVlorPluginFormat.h"
#include "QVlorPluginMatcher.h"
#include "QVlorSetting.h"

#include <QHash>

#include <utility>

namespace QVlorVst3 {

void PairHooks::match(const Catalog& catalog, QVlorPluginPairs& pairs, const QSet<QString>& cids,
                      const QSet<qint64>& vst2UniqueIds) const
{
    QList<QVlorPluginMatcher::Vst3Item> vst3;
    for (const CatalogBundle& b : catalog.bundles()) {
        QHash<QString, QStringList> compat;
        for (const CatalogBundle::CompatEntry& e : b.compat())
            compat[e.newCid] += e.oldCids;
        for (const CatalogClass& c : b.classes())
            vst3.append({c.cid(), c.name(), c.vendor(), compat.value(c.cid()), c.isEnabled()});
    }
    QList<QVlorPluginMatcher::Vst2Item> vst2;
    // A plugin whose file is gone is not offered: its pair, if any, stays.
    for (const Manager::Vst2PluginInfo& info : vst2Plugins())
        if (info.exists)
            vst2.append({info.uniqueId, info.name, info.vendor, info.enabled});
    QVlorPluginMatcher::match(vst2, vst3, pairs, cids, vst2UniqueIds);
    if (!lv2Items)
        return;
    QList<QVlorPluginMatcher::Lv2Item> lv2;
    for (const Manager::Lv2PluginInfo& info : lv2Items())
        lv2.append({info.uri, info.name, info.maker, info.enabled});
    const QString order = QVlorSetting::global().getString(QLatin1String(QVlorAudioPlugins::kFormatOrderSettingKey),
                                                           QString());
    QVlorPluginMatcher::matchLv2(vst2, vst3, lv2, pairs, QVlorAudioPlugins::ParseFormatOrder(order));
}

bool PairHooks::queue(qint64 vst2UniqueId)
{
    if (vst2UniqueId == 0)
        m_queuedAll = true;
    else
        m_queued.insert(vst2UniqueId);
    return !std::exchange(m_runPosted, true);
}

bool PairHooks::take(QSet<qint64>* vst2UniqueIds, bool* all)
{
    m_runPosted = false;
    *vst2UniqueIds = std::exchange(m_queued, {});
    *all = std::exchange(m_queuedAll, false);
    return *all || !vst2UniqueIds->isEmpty();
}

} // namespace QVlorVst3
