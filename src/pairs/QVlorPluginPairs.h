#ifndef QVLORPLUGINPAIRS_H
#define QVLORPLUGINPAIRS_H
// The record of which VST2 plugin and which VST3 class are one product, and
// of the pairs the user broke. Held by identity, so it survives moved files.

#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QJsonObject>
#include <QString>

extern const char* const K_PLUGIN_PAIR_ID;     // "pluginPairId"
extern const char* const K_PLUGIN_PAIR_FORMAT; // "pluginPairFormat"

class QVlorPluginPairs
{
public:
    struct Entry {
        QString pairId;
        qint64 vst2 = 0;
        QString vst3;
        QString origin; // "compat", "fourcc", "heuristic" or "manual"
        bool manualOverride = false;
        QString activeFormat; // "vst2" or "vst3"
        bool vetoedAutoEnable = false;
    };
    struct Data;

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
    bool isSplitBlocked(qint64 vst2, const QString& vst3) const;

    Entry* addPair(qint64 vst2, const QString& vst3, const QString& origin, const QString& activeFormat);
    Entry* rejoinPair(qint64 vst2, const QString& vst3, const QString& activeFormat);
    void splitPair(const QString& pairId, const QString& keepFormat);
    bool purgeIdentities(const QList<qint64>& vst2Ids, const QList<QString>& vst3Cids);

private:
    Data* d;
};

Q_DECLARE_METATYPE(QVlorPluginPairs::Entry)

// A saved effect configuration of a paired plugin remembers its pair.
QByteArray PluginPairEffectBlobAppend(const QByteArray& blob, const QString& pairId, const QString& format);
bool PluginPairEffectBlobExtract(const QByteArray& blob, QString* pairId, QString* format);

#endif
