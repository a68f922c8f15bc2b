#include "QVlorJsonMerge_p.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QHash>
#include <QSet>
#include <QStringList>

namespace {

// What names a record in the library's files, in the order the files use.
const char* const kIdentityFields[] = {"pairId", "cid", "path", "filename", "plugin_id", "vst2", "vst3", "lv2"};

QString identityOf(const QJsonValue& v)
{
    if (!v.isObject())
        return QString();
    const QJsonObject o = v.toObject();
    QStringList parts;
    for (const char* field : kIdentityFields) {
        const QJsonValue f = o.value(QLatin1String(field));
        if (!f.isUndefined())
            parts << QLatin1String(field) + QLatin1Char('=') +
                         (f.isString() ? f.toString() : QString::number(f.toDouble(), 'g', 17));
    }
    return parts.join(QLatin1Char('\n'));
}

// Records when every element has an identity (no two alike), strings when
// every element is one; otherwise the array is one value.
enum class ArrayKind { Records, Strings, Value };

ArrayKind kindOf(const QJsonArray& a)
{
    bool strings = true, records = true;
    QSet<QString> seen;
    for (const QJsonValue& v : a) {
        strings = strings && v.isString();
        const QString id = identityOf(v);
        records = records && !id.isEmpty() && !seen.contains(id);
        seen.insert(id);
    }
    return strings ? ArrayKind::Strings : records ? ArrayKind::Records : ArrayKind::Value;
}

QJsonArray mergeStrings(const QJsonArray& base, const QJsonArray& mine, const QJsonArray& theirs)
{
    QSet<QString> b, m, t;
    for (const QJsonValue& v : base)
        b.insert(v.toString());
    for (const QJsonValue& v : mine)
        m.insert(v.toString());
    for (const QJsonValue& v : theirs)
        t.insert(v.toString());
    QJsonArray out;
    QSet<QString> taken;
    // Kept by both, or added by either; removed by either is gone.
    auto keep = [&](const QString& s) { return (m.contains(s) && t.contains(s)) || (!b.contains(s) && (m.contains(s) || t.contains(s))); };
    for (const QJsonArray* side : {&mine, &theirs})
        for (const QJsonValue& v : *side) {
            const QString s = v.toString();
            if (!taken.contains(s) && keep(s)) {
                out.append(s);
                taken.insert(s);
            }
        }
    return out;
}

QJsonArray mergeRecords(const QJsonArray& base, const QJsonArray& mine, const QJsonArray& theirs)
{
    QHash<QString, QJsonValue> b, t;
    for (const QJsonValue& v : base)
        b.insert(identityOf(v), v);
    for (const QJsonValue& v : theirs)
        t.insert(identityOf(v), v);
    QJsonArray out;
    QSet<QString> done;
    // Mine in my order, then what only they have, in theirs.
    for (const QJsonArray* side : {&mine, &theirs})
        for (const QJsonValue& v : *side) {
            const QString id = identityOf(v);
            if (done.contains(id))
                continue;
            done.insert(id);
            // What only they have is not in mine: mine is "not there".
            const QJsonValue m = side == &mine ? v : QJsonValue(QJsonValue::Undefined);
            const QJsonValue merged = MergeJson3(b.value(id, QJsonValue(QJsonValue::Undefined)), m,
                                                 t.value(id, QJsonValue(QJsonValue::Undefined)));
            if (!merged.isUndefined())
                out.append(merged);
        }
    return out;
}

QJsonObject mergeObjects(const QJsonObject& base, const QJsonObject& mine, const QJsonObject& theirs)
{
    QJsonObject out;
    QStringList keys = mine.keys();
    for (const QString& k : theirs.keys())
        if (!mine.contains(k))
            keys << k;
    for (const QString& k : base.keys())
        if (!keys.contains(k))
            keys << k;
    for (const QString& k : keys) {
        const QJsonValue merged = MergeJson3(base.value(k), mine.value(k), theirs.value(k));
        if (!merged.isUndefined())
            out.insert(k, merged);
    }
    return out;
}

} // namespace

QJsonValue MergeJson3(const QJsonValue& base, const QJsonValue& mine, const QJsonValue& theirs)
{
    if (mine == base)
        return theirs;
    if (theirs == base || theirs == mine)
        return mine;
    if (mine.isObject() && theirs.isObject())
        return mergeObjects(base.toObject(), mine.toObject(), theirs.toObject());
    if (mine.isArray() && theirs.isArray()) {
        const QJsonArray m = mine.toArray(), t = theirs.toArray(), b = base.toArray();
        const ArrayKind km = kindOf(m), kt = kindOf(t), kb = kindOf(b);
        if (km == ArrayKind::Strings && kt == ArrayKind::Strings && kb == ArrayKind::Strings)
            return mergeStrings(b, m, t);
        if (km == ArrayKind::Records && kt == ArrayKind::Records && kb != ArrayKind::Value)
            return mergeRecords(b, m, t);
    }
    // Both changed one value: this save is the later choice.
    return mine;
}
