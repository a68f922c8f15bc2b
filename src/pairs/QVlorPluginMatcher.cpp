#include "QVlorPluginMatcher.h"

#include <QHash>

#include <utility>

namespace {

using Key = std::pair<QString, QString>;

Key NameVendorKey(const QString& name, const QString& vendor)
{
    return {QVlorPluginMatcher::normalizeKey(name), QVlorPluginMatcher::normalizeKey(vendor)};
}

bool isBlank(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= 9 && u <= 13) || u == 32 || u == 0x85 || u == 0xA0 || (u > 0x7F && c.isSpace());
}

QString activeFormatFor(const QVlorPluginMatcher::Vst2Item& a, const QVlorPluginMatcher::Vst3Item& b)
{
    // The newer format wins unless the user is on the older one and not on the newer.
    return a.enabled && !b.enabled ? QStringLiteral("vst2") : QStringLiteral("vst3");
}

} // namespace

QString QVlorPluginMatcher::fuidFromVst2(qint64 uniqueId, const QString& name)
{
    unsigned char bytes[16] = {'V', 'S', 'T'};
    const quint32 id = quint32(quint64(uniqueId) & 0xffffffffu);
    bytes[3] = uchar(id >> 24);
    bytes[4] = uchar(id >> 16);
    bytes[5] = uchar(id >> 8);
    bytes[6] = uchar(id);
    const QByteArray lowered = name.toLower().toUtf8();
    for (int i = 0; i < 9 && i < lowered.size(); ++i)
        bytes[7 + i] = uchar(lowered.at(i));
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(bytes), 16).toHex().toUpper());
}

QString QVlorPluginMatcher::normalizeKey(const QString& text)
{
    qsizetype begin = 0, end = text.size();
    while (begin < end && isBlank(text.at(begin)))
        ++begin;
    while (end > begin && isBlank(text.at(end - 1)))
        --end;
    QString out;
    out.reserve(end - begin);
    bool inBlank = false;
    for (qsizetype i = begin; i < end; ++i) {
        const QChar c = text.at(i);
        if (isBlank(c)) {
            if (!inBlank)
                out.append(QLatin1Char(' '));
            inBlank = true;
        } else {
            out.append(c.toLower());
            inBlank = false;
        }
    }
    return out;
}

void QVlorPluginMatcher::match(const QList<Vst2Item>& vst2, const QList<Vst3Item>& vst3, QVlorPluginPairs& pairs,
                               const QSet<QString>& onlyCids, qint64 onlyVst2)
{
    // Counted once before any pairing: an item paired during the run still counts.
    QHash<Key, int> vst2Counts, vst3Counts;
    for (const Vst2Item& a : vst2)
        if (a.uniqueId != 0 && !pairs.findByVst2(a.uniqueId))
            ++vst2Counts[NameVendorKey(a.name, a.vendor)];
    for (const Vst3Item& b : vst3)
        if (!pairs.findByVst3(b.cid))
            ++vst3Counts[NameVendorKey(b.name, b.vendor)];

    auto isCandidate = [&](const Vst2Item& a) {
        return a.uniqueId != 0 && !pairs.findByVst2(a.uniqueId) && (onlyVst2 == 0 || a.uniqueId == onlyVst2);
    };
    auto firstCandidate = [&](auto&& rule) -> const Vst2Item* {
        for (const Vst2Item& a : vst2)
            if (isCandidate(a) && rule(a))
                return &a;
        return nullptr;
    };

    for (const Vst3Item& b : vst3) {
        if (pairs.findByVst3(b.cid) || (!onlyCids.isEmpty() && !onlyCids.contains(b.cid)))
            continue;

        bool paired = false;
        for (const QString& compat : b.compat) {
            const Vst2Item* a = firstCandidate([&](const Vst2Item& c) { return fuidFromVst2(c.uniqueId, c.name) == compat; });
            if (a && pairs.addPair(a->uniqueId, b.cid, QStringLiteral("compat"), activeFormatFor(*a, b))) {
                paired = true;
                break;
            }
        }
        if (paired)
            continue;

        if (const Vst2Item* a = firstCandidate([&](const Vst2Item& c) { return fuidFromVst2(c.uniqueId, c.name) == b.cid; })) {
            if (pairs.addPair(a->uniqueId, b.cid, QStringLiteral("fourcc"), activeFormatFor(*a, b)))
                continue;
        }

        // Equal name and vendor prove nothing unless they are unique on both sides.
        const Key key = NameVendorKey(b.name, b.vendor);
        if (vst3Counts.value(key) != 1)
            continue;
        const Vst2Item* a = firstCandidate([&](const Vst2Item& c) { return NameVendorKey(c.name, c.vendor) == key; });
        if (a && vst2Counts.value(key) == 1)
            pairs.addPair(a->uniqueId, b.cid, QStringLiteral("heuristic"), activeFormatFor(*a, b));
    }
}

QString QVlorPluginMatcher::defaultEnableFormat(bool hasVst2, bool vst2Enabled, bool vst2UserDisabled, bool hasVst3)
{
    if (hasVst2 && hasVst3) {
        if (vst2Enabled)
            return QStringLiteral("vst2");
        // A twin the user switched off stays off in its new format too.
        return vst2UserDisabled ? QStringLiteral("veto") : QStringLiteral("vst3");
    }
    if (hasVst2)
        return QStringLiteral("vst2");
    return hasVst3 ? QStringLiteral("vst3") : QStringLiteral("veto");
}
