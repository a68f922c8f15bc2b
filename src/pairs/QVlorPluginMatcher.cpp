#include "QVlorPluginMatcher.h"
#include "QVlorPluginFormat.h"

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
    return a.enabled && !b.enabled ? QVlorAudioPlugins::Vst2Token() : QVlorAudioPlugins::Vst3Token();
}

// A new pair, or the form a family of the other form lacks; two families are never merged.
bool joinOrPair(QVlorPluginPairs& pairs, const QVlorPluginMatcher::Vst2Item& a, const QVlorPluginMatcher::Vst3Item& b,
                const QString& origin)
{
    const QVlorPluginPairs::Entry* withA = pairs.findByVst2(a.uniqueId);
    const QVlorPluginPairs::Entry* withB = pairs.findByVst3(b.cid);
    if (withA && withB)
        return false;
    if (withA)
        return pairs.addVst3Form(withA->pairId, b.cid) != nullptr;
    if (withB)
        return pairs.addVst2Form(withB->pairId, a.uniqueId) != nullptr;
    return pairs.addPair(a.uniqueId, b.cid, origin, activeFormatFor(a, b)) != nullptr;
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
    match(vst2, vst3, pairs, onlyCids, onlyVst2 == 0 ? QSet<qint64>() : QSet<qint64>{onlyVst2});
}

void QVlorPluginMatcher::match(const QList<Vst2Item>& vst2, const QList<Vst3Item>& vst3, QVlorPluginPairs& pairs,
                               const QSet<QString>& onlyCids, const QSet<qint64>& onlyVst2)
{
    // What is paired, as sets: the pair store answers by walking its entries.
    // A VST form in a family with an LV2 plugin but not the other VST form
    // is still free to take it; a leftover of a split is not.
    QSet<qint64> pairedVst2;
    QSet<QString> pairedVst3;
    for (const QVlorPluginPairs::Entry& e : pairs.entries()) {
        const bool open = !e.lv2.isEmpty() && (e.vst2 == 0 || e.vst3.isEmpty());
        if (e.vst2 != 0 && !open)
            pairedVst2.insert(e.vst2);
        if (!e.vst3.isEmpty() && !open)
            pairedVst3.insert(e.vst3);
    }

    // The VST2 plugins that may pair, in their order, each with its class id
    // by the SDK's convention and its name key, worked out once.
    struct Candidate {
        const Vst2Item* item;
        QString fuid;
        Key key;
    };
    QList<Candidate> candidates;
    QHash<Key, int> vst2Counts, vst3Counts;
    // Counted once before any pairing: an item paired during the run still counts.
    for (const Vst2Item& a : vst2) {
        if (a.uniqueId == 0 || pairedVst2.contains(a.uniqueId))
            continue;
        Key key = NameVendorKey(a.name, a.vendor);
        ++vst2Counts[key];
        if (onlyVst2.isEmpty() || onlyVst2.contains(a.uniqueId))
            candidates.append({&a, fuidFromVst2(a.uniqueId, a.name), std::move(key)});
    }
    if (candidates.isEmpty())
        return;
    for (const Vst3Item& b : vst3)
        if (!pairedVst3.contains(b.cid))
            ++vst3Counts[NameVendorKey(b.name, b.vendor)];

    auto firstCandidate = [&](auto&& rule) -> const Vst2Item* {
        for (const Candidate& c : std::as_const(candidates))
            if (!pairedVst2.contains(c.item->uniqueId) && rule(c))
                return c.item;
        return nullptr;
    };
    auto pair = [&](const Vst2Item* a, const Vst3Item& b, const char* origin) {
        if (!joinOrPair(pairs, *a, b, QLatin1String(origin)))
            return false;
        pairedVst2.insert(a->uniqueId);
        pairedVst3.insert(b.cid);
        return true;
    };

    for (const Vst3Item& b : vst3) {
        if (pairedVst3.contains(b.cid) || (!onlyCids.isEmpty() && !onlyCids.contains(b.cid)))
            continue;

        bool paired = false;
        for (const QString& compat : b.compat) {
            const Vst2Item* a = firstCandidate([&](const Candidate& c) { return c.fuid == compat; });
            if (a && pair(a, b, "compat")) {
                paired = true;
                break;
            }
        }
        if (paired)
            continue;

        if (const Vst2Item* a = firstCandidate([&](const Candidate& c) { return c.fuid == b.cid; })) {
            if (pair(a, b, "fourcc"))
                continue;
        }

        // Equal name and vendor prove nothing unless they are unique on both sides.
        const Key key = NameVendorKey(b.name, b.vendor);
        if (vst3Counts.value(key) != 1)
            continue;
        const Vst2Item* a = firstCandidate([&](const Candidate& c) { return c.key == key; });
        if (a && vst2Counts.value(key) == 1)
            pair(a, b, "heuristic");
    }
}

QString QVlorPluginMatcher::defaultEnableFormat(bool hasVst2, bool vst2Enabled, bool vst2UserDisabled, bool hasVst3)
{
    if (hasVst2 && hasVst3) {
        if (vst2Enabled)
            return QVlorAudioPlugins::Vst2Token();
        // A twin the user switched off stays off in its new format too.
        return vst2UserDisabled ? QStringLiteral("veto") : QVlorAudioPlugins::Vst3Token();
    }
    if (hasVst2)
        return QVlorAudioPlugins::Vst2Token();
    return hasVst3 ? QVlorAudioPlugins::Vst3Token() : QStringLiteral("veto");
}
