#ifndef QVLORVST3_PAIRHOOKS_P_H
#define QVLORVST3_PAIRHOOKS_P_H
// What the VST3 manager asks of the VST2 side, through the closures the
// library's install hands it, and the matches that side's scans queue.

#include "QVlorPluginPairs.h"
#include "QVlorVst3_Catalog.h"
#include "QVlorVst3_Manager.h"

#include <QSet>

namespace QVlorVst3 {

class PairHooks {
public:
    Manager::Vst2ItemsProvider vst2Items;
    Manager::Vst2FailedSetter vst2Failed;
    Manager::Lv2ItemsProvider lv2Items;

    // The VST2 plugins as the provider tells them; none without one.
    QList<Manager::Vst2PluginInfo> vst2Plugins() const
    {
        return vst2Items ? vst2Items() : QList<Manager::Vst2PluginInfo>();
    }
    // A VST2 plugin that took the process down, marked so on its side.
    void markVst2Crashed(qint64 uniqueId) const
    {
        if (vst2Failed)
            vst2Failed(uniqueId);
    }

    // The matcher over the catalog and both sides' plugins, into pairs: for
    // those classes and VST2 plugins, or every one when both sets are empty;
    // then the LV2 plugins into the families of their products.
    void match(const Catalog& catalog, QVlorPluginPairs& pairs, const QSet<QString>& cids,
               const QSet<qint64>& vst2UniqueIds) const;

    // A rematch for one VST2 plugin (0: everything) queued; true when no run
    // of the queue is on its way yet, so that the caller posts one.
    bool queue(qint64 vst2UniqueId);
    // The queued rematches, taken: false when none; *all when everything.
    bool take(QSet<qint64>* vst2UniqueIds, bool* all);

private:
    QSet<qint64> m_queued;
    bool m_queuedAll = false;
    bool m_runPosted = false;
};

} // namespace QVlorVst3

#endif
