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
    // Two forms the user broke apart; the third field is empty.
    struct Split {
        qint64 vst2 = 0;
        QString vst3;
        QString lv2;
    };
    QList<Entry> entries;
    QList<Split> splits;
};

namespace {

const QString kVst2 = QVlorAudioPlugins::Vst2Token();
const QString kVst3 = QVlorAudioPlugins::Vst3Token();
const QString kLv2 = QVlorAudioPlugins::Lv2Token();

// Ids travel as decimal strings: no JSON reader may round a 64-bit value.
QJsonValue idValue(qint64 id) { return id ? QJsonValue(QString::number(id)) : QJsonValue(QJsonValue::Null); }
qint64 idFrom(const QJsonValue& v) { return v.isString() ? v.toString().toLongLong() : 0; }
QJsonValue cidValue(const QString& cid) { return cid.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(cid); }
QString cidFrom(const QJsonValue& v) { return v.isString() ? v.toString() : QString(); }

// The file's version: 2 added the LV2 form; a version 1 file reads as families without one.
constexpr int kFileVersion = 2;

} // namespace

bool QVlorPluginPairs::Entry::holds(const QString& format) const
{
    return format == kVst2 ? vst2 != 0 : format == kVst3 ? !vst3.isEmpty() : format == kLv2 && !lv2.isEmpty();
}

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
        e.lv2 = cidFrom(o.value(kLv2));
        entries.append(e);
    }
    QList<Data::Split> splits;
    for (const QJsonValue& v : root.value(QStringLiteral("splits")).toArray()) {
        const QJsonObject o = v.toObject();
        splits.append({idFrom(o.value(kVst2)), cidFrom(o.value(kVst3)), cidFrom(o.value(kLv2))});
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
        o.insert(kLv2, cidValue(e.lv2));
        pairs.append(o);
    }
    QJsonArray splits;
    for (const Data::Split& s : d->splits) {
        QJsonObject o;
        o.insert(QVlorAudioPlugins::Vst2Token(), idValue(s.vst2));
        o.insert(QVlorAudioPlugins::Vst3Token(), cidValue(s.vst3));
        o.insert(kLv2, cidValue(s.lv2));
        splits.append(o);
    }
    QJsonObject root;
    root.insert(QStringLiteral("version"), kFileVersion);
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

QVlorPluginPairs::Entry* QVlorPluginPairs::findByLv2(const QString& uri)
{
    if (uri.isEmpty())
        return nullptr;
    for (Entry& e : d->entries)
        if (e.lv2 == uri)
            return &e;
    return nullptr;
}

bool QVlorPluginPairs::isSplitBlocked(qint64 vst2, const QString& vst3) const
{
    for (const Data::Split& s : d->splits)
        if (s.vst2 == vst2 && s.vst3 == vst3 && s.lv2.isEmpty())
            return true;
    return false;
}

bool QVlorPluginPairs::isLv2SplitBlocked(const Entry& family, const QString& uri) const
{
    for (const Data::Split& s : d->splits)
        if (s.lv2 == uri && ((s.vst2 != 0 && s.vst2 == family.vst2) || (!s.vst3.isEmpty() && s.vst3 == family.vst3)))
            return true;
    return false;
}

QVlorPluginPairs::Entry* QVlorPluginPairs::addPair(qint64 vst2, const QString& vst3, const QString& origin,
                                                   const QString& activeFormat)
{
    return addFamily(vst2, vst3, QString(), origin, activeFormat);
}

QVlorPluginPairs::Entry* QVlorPluginPairs::addFamily(qint64 vst2, const QString& vst3, const QString& lv2,
                                                     const QString& origin, const QString& activeFormat)
{
    Entry e;
    e.vst2 = vst2;
    e.vst3 = vst3;
    if (e.formCount() == 0 && lv2.isEmpty())
        return nullptr;
    if ((vst2 != 0 && !vst3.isEmpty() && isSplitBlocked(vst2, vst3)) || (!lv2.isEmpty() && isLv2SplitBlocked(e, lv2)))
        return nullptr;
    // An identity lives in one entry at most; a one-sided leftover still holds its side.
    if (findByVst2(vst2) || findByVst3(vst3) || findByLv2(lv2))
        return nullptr;
    e.lv2 = lv2;
    e.pairId = QUuid::createUuid().toString(QUuid::WithoutBraces);
    e.origin = origin;
    e.activeFormat = activeFormat;
    d->entries.append(e);
    return &d->entries.last();
}

QVlorPluginPairs::Entry* QVlorPluginPairs::addLv2Form(const QString& pairId, const QString& uri)
{
    Entry* e = findByPairId(pairId);
    if (!e || uri.isEmpty() || !e->lv2.isEmpty() || findByLv2(uri) || isLv2SplitBlocked(*e, uri))
        return nullptr;
    e->lv2 = uri;
    return e;
}

QVlorPluginPairs::Entry* QVlorPluginPairs::addVst2Form(const QString& pairId, qint64 vst2)
{
    Entry* e = findByPairId(pairId);
    if (!e || vst2 == 0 || e->vst2 != 0 || findByVst2(vst2) ||
        (!e->vst3.isEmpty() && isSplitBlocked(vst2, e->vst3)))
        return nullptr;
    Entry probe;
    probe.vst2 = vst2;
    if (!e->lv2.isEmpty() && isLv2SplitBlocked(probe, e->lv2))
        return nullptr;
    e->vst2 = vst2;
    return e;
}

QVlorPluginPairs::Entry* QVlorPluginPairs::addVst3Form(const QString& pairId, const QString& cid)
{
    Entry* e = findByPairId(pairId);
    if (!e || cid.isEmpty() || !e->vst3.isEmpty() || findByVst3(cid) ||
        (e->vst2 != 0 && isSplitBlocked(e->vst2, cid)))
        return nullptr;
    Entry probe;
    probe.vst3 = cid;
    if (!e->lv2.isEmpty() && isLv2SplitBlocked(probe, e->lv2))
        return nullptr;
    e->vst3 = cid;
    return e;
}

void QVlorPluginPairs::splitForm(const QString& pairId, const QString& letGoFormat)
{
    Entry* e = findByPairId(pairId);
    if (!e || !e->holds(letGoFormat) || e->formCount() < 2)
        return;
    // Apart from each form that stays.
    if (letGoFormat == kLv2) {
        if (e->vst2 != 0)
            d->splits.append({e->vst2, QString(), e->lv2});
        if (!e->vst3.isEmpty())
            d->splits.append({0, e->vst3, e->lv2});
        e->lv2.clear();
    } else {
        const qint64 vst2 = letGoFormat == kVst2 ? e->vst2 : 0;
        const QString vst3 = letGoFormat == kVst3 ? e->vst3 : QString();
        if (letGoFormat == kVst2 ? !e->vst3.isEmpty() : e->vst2 != 0)
            d->splits.append({e->vst2, e->vst3, QString()});
        if (!e->lv2.isEmpty())
            d->splits.append({vst2, vst3, e->lv2});
        if (letGoFormat == kVst2)
            e->vst2 = 0;
        else
            e->vst3.clear();
    }
    e->manualOverride = true;
    if (e->activeFormat == letGoFormat)
        for (const QString& f : {kVst3, kLv2, kVst2})
            if (e->holds(f)) {
                e->activeFormat = f;
                break;
            }
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
        // An LV2 form of the dropped leftover stays with the product.
        const QString lv2 = findByPairId(dropped)->lv2;
        d->entries.removeIf([&dropped](const Entry& e) { return e.pairId == dropped; });
        if (Entry* k = findByPairId(kept); k && k->lv2.isEmpty())
            k->lv2 = lv2;
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

QVlorPluginPairs::Entry* QVlorPluginPairs::joinLv2(const QString& uri, const QString& pairId, qint64 vst2,
                                                   const QString& vst3, const QString& activeFormat)
{
    if (uri.isEmpty())
        return nullptr;
    if (const Entry* held = findByLv2(uri)) {
        if (held->formCount() > 1)
            return nullptr;
        // A leftover of the LV2 form alone gives it up.
        const QString leftover = held->pairId;
        d->entries.removeIf([&leftover](const Entry& e) { return e.pairId == leftover; });
    }
    Entry* family = pairId.isEmpty() ? nullptr : findByPairId(pairId);
    const qint64 with2 = family ? family->vst2 : vst2;
    const QString with3 = family ? family->vst3 : vst3;
    d->splits.removeIf([&](const Data::Split& s) {
        return s.lv2 == uri && ((s.vst2 != 0 && s.vst2 == with2) || (!s.vst3.isEmpty() && s.vst3 == with3));
    });
    if (!family)
        return addFamily(vst2, vst3, uri, QStringLiteral("manual"), activeFormat);
    if (!family->lv2.isEmpty())
        return nullptr;
    family->lv2 = uri;
    family->manualOverride = true;
    family->activeFormat = activeFormat;
    return family;
}

void QVlorPluginPairs::splitPair(const QString& pairId, const QString& keepFormat)
{
    if (keepFormat != kVst2 && keepFormat != kVst3 && keepFormat != kLv2)
        return;
    Entry* e = findByPairId(pairId);
    if (!e || !e->holds(keepFormat) || e->formCount() < 2)
        return;
    for (const QString& f : {kVst2, kVst3, kLv2})
        if (f != keepFormat && e->holds(f))
            splitForm(pairId, f);
    e->activeFormat = keepFormat;
}

bool QVlorPluginPairs::purgeIdentities(const QList<qint64>& vst2Ids, const QList<QString>& vst3Cids,
                                       const QList<QString>& lv2Uris)
{
    auto named = [&](qint64 vst2, const QString& vst3, const QString& lv2) {
        return (vst2 != 0 && vst2Ids.contains(vst2)) || (!vst3.isEmpty() && vst3Cids.contains(vst3)) ||
               (!lv2.isEmpty() && lv2Uris.contains(lv2));
    };
    const qsizetype removed =
        d->entries.removeIf([&](const Entry& e) { return named(e.vst2, e.vst3, e.lv2); }) +
        d->splits.removeIf([&](const Data::Split& s) { return named(s.vst2, s.vst3, s.lv2); });
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
