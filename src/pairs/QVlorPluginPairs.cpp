#include "QVlorPluginPairs.h"
#include "QVlorPluginFormat.h"

#include "QVlorDataFile_p.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

const char* const K_PLUGIN_PAIR_ID = "pluginPairId";
const char* const K_PLUGIN_PAIR_FORMAT = "pluginPairFormat";

struct QVlorPluginPairs::Data {
    struct Split {
        qint64 vst2 = 0;
        QString vst3;
    };
    QList<Entry> entries;
    QList<Split> splits;
};

namespace {

const QString kVst2 = QVlorAudioPlugins::Vst2Token();
const QString kVst3 = QVlorAudioPlugins::Vst3Token();

// Ids travel as decimal strings: no JSON reader may round a 64-bit value.
QJsonValue idValue(qint64 id) { return id ? QJsonValue(QString::number(id)) : QJsonValue(QJsonValue::Null); }
qint64 idFrom(const QJsonValue& v) { return v.isString() ? v.toString().toLongLong() : 0; }
QJsonValue cidValue(const QString& cid) { return cid.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(cid); }
QString cidFrom(const QJsonValue& v) { return v.isString() ? v.toString() : QString(); }

} // namespace

QVlorPluginPairs::QVlorPluginPairs()
    : d(new Data)
{
    static const int registered = (qRegisterMetaType<Entry>(), qRegisterMetaType<QList<Entry>>(), 0);
    Q_UNUSED(registered);
}

QVlorPluginPairs::~QVlorPluginPairs() { delete d; }

QList<QVlorPluginPairs::Entry>& QVlorPluginPairs::entries() { return d->entries; }
const QList<QVlorPluginPairs::Entry>& QVlorPluginPairs::entries() const { return d->entries; }

bool QVlorPluginPairs::load(const QString& filename)
{
    if (!QFile::exists(filename)) {
        d->entries.clear();
        d->splits.clear();
        return true;
    }
    QJsonObject root;
    if (!ReadJsonFileObject(filename, &root))
        return false;
    fromJson(root);
    return true;
}

void QVlorPluginPairs::fromJson(const QJsonObject& root)
{
    QList<Entry> entries;
    for (const QJsonValue& v : root.value(QStringLiteral("pairs")).toArray()) {
        const QJsonObject o = v.toObject();
        Entry e;
        e.pairId = o.value(QStringLiteral("pairId")).toString();
        e.vst2 = idFrom(o.value(QVlorAudioPlugins::Vst2Token()));
        e.vst3 = cidFrom(o.value(QVlorAudioPlugins::Vst3Token()));
        e.origin = o.value(QStringLiteral("origin")).toString();
        e.manualOverride = o.value(QStringLiteral("manualOverride")).toBool(false);
        e.activeFormat = o.value(QStringLiteral("activeFormat")).toString();
        e.vetoedAutoEnable = o.value(QStringLiteral("vetoedAutoEnable")).toBool(false);
        entries.append(e);
    }
    QList<Data::Split> splits;
    for (const QJsonValue& v : root.value(QStringLiteral("splits")).toArray()) {
        const QJsonObject o = v.toObject();
        splits.append(
            {idFrom(o.value(QVlorAudioPlugins::Vst2Token())), cidFrom(o.value(QVlorAudioPlugins::Vst3Token()))});
    }
    d->entries = entries;
    d->splits = splits;
}

bool QVlorPluginPairs::save(const QString& filename, QString* error) const
{
    return WriteJsonFileAtomically(filename, toJson(), error);
}

QJsonObject QVlorPluginPairs::toJson() const
{
    QJsonArray pairs;
    for (const Entry& e : d->entries) {
        QJsonObject o;
        o.insert(QStringLiteral("pairId"), e.pairId);
        o.insert(QVlorAudioPlugins::Vst2Token(), idValue(e.vst2));
        o.insert(QVlorAudioPlugins::Vst3Token(), cidValue(e.vst3));
        o.insert(QStringLiteral("origin"), e.origin);
        o.insert(QStringLiteral("manualOverride"), e.manualOverride);
        o.insert(QStringLiteral("activeFormat"), e.activeFormat);
        o.insert(QStringLiteral("vetoedAutoEnable"), e.vetoedAutoEnable);
        pairs.append(o);
    }
    QJsonArray splits;
    for (const Data::Split& s : d->splits) {
        QJsonObject o;
        o.insert(QVlorAudioPlugins::Vst2Token(), idValue(s.vst2));
        o.insert(QVlorAudioPlugins::Vst3Token(), cidValue(s.vst3));
        splits.append(o);
    }
    QJsonObject root;
    root.insert(QStringLiteral("version"), 1);
    root.insert(QStringLiteral("pairs"), pairs);
    root.insert(QStringLiteral("splits"), splits);
    return root;
}

QVlorPluginPairs::Entry* QVlorPluginPairs::findByPairId(const QString& pairId)
{
    for (Entry& e : d->entries)
        if (e.pairId == pairId)
            return &e;
    return nullptr;
}

QVlorPluginPairs::Entry* QVlorPluginPairs::findByVst2(qint64 id)
{
    if (id == 0)
        return nullptr;
    for (Entry& e : d->entries)
        if (e.vst2 == id)
            return &e;
    return nullptr;
}

QVlorPluginPairs::Entry* QVlorPluginPairs::findByVst3(const QString& cid)
{
    if (cid.isEmpty())
        return nullptr;
    for (Entry& e : d->entries)
        if (e.vst3 == cid)
            return &e;
    return nullptr;
}

bool QVlorPluginPairs::isSplitBlocked(qint64 vst2, const QString& vst3) const
{
    for (const Data::Split& s : d->splits)
        if (s.vst2 == vst2 && s.vst3 == vst3)
            return true;
    return false;
}

QVlorPluginPairs::Entry* QVlorPluginPairs::addPair(qint64 vst2, const QString& vst3, const QString& origin,
                                                   const QString& activeFormat)
{
    if ((vst2 == 0 && vst3.isEmpty()) || isSplitBlocked(vst2, vst3))
        return nullptr;
    // An identity lives in one entry at most; a one-sided leftover still holds its side.
    if (findByVst2(vst2) || findByVst3(vst3))
        return nullptr;
    Entry e;
    e.pairId = QUuid::createUuid().toString(QUuid::WithoutBraces);
    e.vst2 = vst2;
    e.vst3 = vst3;
    e.origin = origin;
    e.activeFormat = activeFormat;
    d->entries.append(e);
    return &d->entries.last();
}

QVlorPluginPairs::Entry* QVlorPluginPairs::rejoinPair(qint64 vst2, const QString& vst3, const QString& activeFormat)
{
    if (vst2 == 0 || vst3.isEmpty())
        return nullptr;
    QString leftover2, leftover3; // pairIds of the one-sided entries
    for (const Entry& e : std::as_const(d->entries)) {
        const bool touches = e.vst2 == vst2 || e.vst3 == vst3;
        if (!touches)
            continue;
        if (e.vst2 != 0 && !e.vst3.isEmpty())
            return nullptr; // a whole pair is in the way
        if (e.vst2 == vst2)
            leftover2 = e.pairId;
        else
            leftover3 = e.pairId;
    }
    for (int i = int(d->splits.size()) - 1; i >= 0; --i)
        if (d->splits.at(i).vst2 == vst2 && d->splits.at(i).vst3 == vst3)
            d->splits.removeAt(i);

    QString kept = leftover2.isEmpty() ? leftover3 : leftover2;
    if (!leftover2.isEmpty() && !leftover3.isEmpty()) {
        kept = activeFormat == kVst3 ? leftover3 : leftover2;
        const QString dropped = kept == leftover2 ? leftover3 : leftover2;
        d->entries.removeIf([&dropped](const Entry& e) { return e.pairId == dropped; });
    }
    if (kept.isEmpty())
        return addPair(vst2, vst3, QStringLiteral("manual"), activeFormat);
    Entry* e = findByPairId(kept);
    e->vst2 = vst2;
    e->vst3 = vst3;
    e->activeFormat = activeFormat;
    e->manualOverride = true;
    return e;
}

void QVlorPluginPairs::splitPair(const QString& pairId, const QString& keepFormat)
{
    if (keepFormat != kVst2 && keepFormat != kVst3)
        return;
    Entry* e = findByPairId(pairId);
    if (!e || e->vst2 == 0 || e->vst3.isEmpty())
        return;
    d->splits.append({e->vst2, e->vst3});
    if (keepFormat == kVst2)
        e->vst3.clear();
    else
        e->vst2 = 0;
    e->manualOverride = true;
    e->activeFormat = keepFormat;
}

bool QVlorPluginPairs::purgeIdentities(const QList<qint64>& vst2Ids, const QList<QString>& vst3Cids)
{
    auto named = [&](qint64 vst2, const QString& vst3) {
        return (vst2 != 0 && vst2Ids.contains(vst2)) || (!vst3.isEmpty() && vst3Cids.contains(vst3));
    };
    const qsizetype removed = d->entries.removeIf([&](const Entry& e) { return named(e.vst2, e.vst3); }) +
                              d->splits.removeIf([&](const Data::Split& s) { return named(s.vst2, s.vst3); });
    return removed > 0;
}

QByteArray PluginPairEffectBlobAppend(const QByteArray& blob, const QString& pairId, const QString& format)
{
    if (blob.isEmpty() || pairId.isEmpty())
        return blob;
    const QJsonDocument doc = QJsonDocument::fromJson(blob);
    if (!doc.isObject())
        return blob;
    QJsonObject o = doc.object();
    o.insert(QLatin1String(K_PLUGIN_PAIR_ID), pairId);
    o.insert(QLatin1String(K_PLUGIN_PAIR_FORMAT), format);
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

bool PluginPairEffectBlobExtract(const QByteArray& blob, QString* pairId, QString* format)
{
    const QJsonObject o = QJsonDocument::fromJson(blob).object();
    const QString id = o.value(QLatin1String(K_PLUGIN_PAIR_ID)).toString();
    const QString fmt = o.value(QLatin1String(K_PLUGIN_PAIR_FORMAT)).toString();
    if (id.isEmpty() || fmt.isEmpty())
        return false;
    if (pairId)
        *pairId = id;
    if (format)
        *format = fmt;
    return true;
}
