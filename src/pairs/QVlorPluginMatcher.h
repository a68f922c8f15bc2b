#ifndef QVLORPLUGINMATCHER_H
#define QVLORPLUGINMATCHER_H
// Which VST2 plugin, VST3 class and LV2 plugin are one effect. Stateless:
// match() and matchLv2() only ever add forms to families, so every decision
// the store holds survives rematching.

#include "QVlorAudioPluginsExport.h"
#include "QVlorPluginPairs.h"

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <utility>

class QVLOR_PLUGINS_EXPORT QVlorPluginMatcher
{
public:
    struct Vst2Item {
        qint64 uniqueId = 0; // 0: not probed
        QString name;
        QString vendor;
        bool enabled = false;
    };
    struct Vst3Item {
        QString cid; // 32 upper-case hexadecimal digits
        QString name;
        QString vendor;
        QList<QString> compat; // class ids this class succeeds, from its bundle's module information
        bool enabled = false;
    };

    struct Lv2Item {
        QString uri;
        QString name;
        QString maker;
        bool enabled = false;
    };

    // Empty onlyCids and zero onlyVst2 mean no restriction.
    static void match(const QList<Vst2Item>& vst2, const QList<Vst3Item>& vst3, QVlorPluginPairs& pairs,
                      const QSet<QString>& onlyCids, qint64 onlyVst2);
    // The same, restricted to a set of VST2 plugins (empty: no restriction),
    // as one run: the rematches of a scan's announcements together.
    static void match(const QList<Vst2Item>& vst2, const QList<Vst3Item>& vst3, QVlorPluginPairs& pairs,
                      const QSet<QString>& onlyCids, const QSet<qint64>& onlyVst2);
    // LV2 plugins join the families (or the lone VST2 plugins and VST3
    // classes) of their product, after the two older formats were matched:
    // by their product keys, each unique on both sides. formatOrder ranks
    // the formats a new family may take when the user uses none of its forms.
    static void matchLv2(const QList<Vst2Item>& vst2, const QList<Vst3Item>& vst3, const QList<Lv2Item>& lv2,
                         QVlorPluginPairs& pairs, const QStringList& formatOrder);
    // What makes two forms one product: the name and the maker normalised,
    // less what a maker writes differently in each format (see the .cpp).
    static std::pair<QString, QString> productKey(const QString& name, const QString& maker);
    // The class id the SDK's convention gives a plugin converted from VST2.
    static QString fuidFromVst2(qint64 uniqueId, const QString& name);
    static QString normalizeKey(const QString& text);
    // "vst2", "vst3" or "veto": which twin a new pair should use.
    static QString defaultEnableFormat(bool hasVst2, bool vst2Enabled, bool vst2UserDisabled, bool hasVst3);
};

#endif
