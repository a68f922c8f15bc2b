#ifndef QVLORPLUGINPAIRS_H
#define QVLORPLUGINPAIRS_H
// The record of which VST2 plugin, VST3 class and LV2 plugin are one product
// (a family of up to three forms; "pair" stays its name in the code and the
// file), and of the forms the user broke apart. Held by identity, so it
// survives moved files.

#include "QVlorAudioPluginsExport.h"
#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QJsonObject>
#include <QString>

extern QVLOR_PLUGINS_EXPORT const char* const K_PLUGIN_PAIR_ID;     // "pluginPairId"
extern QVLOR_PLUGINS_EXPORT const char* const K_PLUGIN_PAIR_FORMAT; // "pluginPairFormat"

class QVLOR_PLUGINS_EXPORT QVlorPluginPairs
{
public:
    struct Entry {
        QString pairId;
        qint64 vst2 = 0;
        QString vst3;
        QString origin; // "compat", "fourcc", "heuristic" or "manual"
        bool manualOverride = false;
        QString activeFormat; // "vst2", "vst3" or "lv2"
        bool vetoedAutoEnable = false;
        QString lv2; // the LV2 plugin's URI; empty when the family has none
        // How many of the three forms it holds.
        int formCount() const { return (vst2 != 0) + !vst3.isEmpty() + !lv2.isEmpty(); }
        bool holds(const QString& format) const;
    };
    struct QVLOR_PLUGINS_HIDDEN Data;

    QVlorPluginPairs();
    ~QVlorPluginPairs();
    QVlorPluginPairs(const QVlorPluginPairs&) = delete;
    QVlorPluginPairs& operator=(const QVlorPluginPairs&) = delete;

    QList<Entry>& entries();
    const QList<Entry>& entries() const;

    // A missing file is an empty store; a broken one leaves the store as it was.
    bool load(const QString& filename);
    // False, with the file and the reason in *error, when nothing was kept.
    bool save(const QString& filename, QString* error = nullptr) const;
    // The store as its file holds it, and from such a document.
    QJsonObject toJson() const;
    void fromJson(const QJsonObject& root);

    Entry* findByPairId(const QString& pairId);
    Entry* findByVst2(qint64 id);
    Entry* findByVst3(const QString& cid);
    Entry* findByLv2(const QString& uri);
    bool isSplitBlocked(qint64 vst2, const QString& vst3) const;
    // Whether the user broke that LV2 plugin apart from any form the entry holds.
    bool isLv2SplitBlocked(const Entry& family, const QString& uri) const;

    Entry* addPair(qint64 vst2, const QString& vst3, const QString& origin, const QString& activeFormat);
    // A family of any two or three forms; null when a form is held already or a split forbids it.
    Entry* addFamily(qint64 vst2, const QString& vst3, const QString& lv2, const QString& origin,
                     const QString& activeFormat);
    // The LV2 plugin joins the family of that id; null when it is held or a split forbids it.
    Entry* addLv2Form(const QString& pairId, const QString& uri);
    // The same for a VST2 plugin and a VST3 class joining a family that lacks its format.
    Entry* addVst2Form(const QString& pairId, qint64 vst2);
    Entry* addVst3Form(const QString& pairId, const QString& cid);
    // One form let go of its family ("vst2", "vst3" or "lv2"); the others stay together,
    // and the form is never joined to them again by the matcher.
    void splitForm(const QString& pairId, const QString& letGoFormat);
    Entry* rejoinPair(qint64 vst2, const QString& vst3, const QString& activeFormat);
    // The user's join of an LV2 plugin to a family (pairId), or to a lone VST2
    // plugin or VST3 class: the splits between them are forgotten. Null when
    // the plugin is in a family of two forms or more already.
    Entry* joinLv2(const QString& uri, const QString& pairId, qint64 vst2, const QString& vst3,
                   const QString& activeFormat);
    void splitPair(const QString& pairId, const QString& keepFormat);
    bool purgeIdentities(const QList<qint64>& vst2Ids, const QList<QString>& vst3Cids,
                         const QList<QString>& lv2Uris = {});

private:
    Data* d;
};

Q_DECLARE_METATYPE(QVlorPluginPairs::Entry)

// A saved effect configuration of a paired plugin remembers its pair.
QVLOR_PLUGINS_EXPORT QByteArray PluginPairEffectBlobAppend(const QByteArray& blob, const QString& pairId, const QString& format);
QVLOR_PLUGINS_EXPORT bool PluginPairEffectBlobExtract(const QByteArray& blob, QString* pairId, QString* format);

#endif
