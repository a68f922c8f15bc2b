#ifndef QVLORPLUGINMATCHER_H
#define QVLORPLUGINMATCHER_H
// Which VST2 plugin and which VST3 class are one effect. Stateless: match()
// only ever adds pairs, so every decision the store holds survives rematching.

#include "QVlorPluginPairs.h"

#include <QList>
#include <QSet>
#include <QString>

class QVlorPluginMatcher
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

    // Empty onlyCids and zero onlyVst2 mean no restriction.
    static void match(const QList<Vst2Item>& vst2, const QList<Vst3Item>& vst3, QVlorPluginPairs& pairs,
                      const QSet<QString>& onlyCids, qint64 onlyVst2);
    // The same, restricted to a set of VST2 plugins (empty: no restriction),
    // as one run: the rematches of a scan's announcements together.
    static void match(const QList<Vst2Item>& vst2, const QList<Vst3Item>& vst3, QVlorPluginPairs& pairs,
                      const QSet<QString>& onlyCids, const QSet<qint64>& onlyVst2);
    // The class id the SDK's convention gives a plugin converted from VST2.
    static QString fuidFromVst2(qint64 uniqueId, const QString& name);
    static QString normalizeKey(const QString& text);
    // "vst2", "vst3" or "veto": which twin a new pair should use.
    static QString defaultEnableFormat(bool hasVst2, bool vst2Enabled, bool vst2UserDisabled, bool hasVst3);
};

#endif
