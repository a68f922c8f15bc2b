#include "QVlorPluginFormat.h"

namespace QVlorAudioPlugins {

namespace {

const char* const K_PAIR_ACTION_ID_PREFIX = "plugid-";
const char* const K_VST2_HASH_ID_PREFIX = "vsthash-";
const char* const K_VST3_BUNDLE_ID_PREFIX = "vst3path-";

constexpr const PluginFormat& kVst2 = kVst2Format;
constexpr const PluginFormat& kVst3 = kVst3Format;

// The rest of text after prefix; false when text does not begin with it.
bool after(const QString& text, const char* prefix, QString* rest)
{
    const QLatin1String p(prefix);
    if (!text.startsWith(p))
        return false;
    if (rest)
        *rest = text.mid(p.size());
    return true;
}

} // namespace

const PluginFormat& Vst2Format() { return kVst2; }
const PluginFormat& Vst3Format() { return kVst3; }
QList<const PluginFormat*> PluginFormats() { return {&kVst2, &kVst3, &kLv2Format}; }

QString BadgeText(const PluginFormat& format, bool is32Bit)
{
    return QLatin1String(format.badge) + (is32Bit ? QStringLiteral("\u00B732") : QString());
}

QStringList ParseFormatOrder(const QString& text)
{
    const QStringList known = {Vst3Token(), Lv2Token(), Vst2Token()};
    QStringList order;
    for (const QString& part : text.split(QLatin1Char(',')))
        if (const QString token = part.trimmed().toLower(); known.contains(token) && !order.contains(token))
            order << token;
    for (const QString& token : known)
        if (!order.contains(token))
            order << token;
    return order;
}

QString PairActionId(const QString& pairId) { return QLatin1String(K_PAIR_ACTION_ID_PREFIX) + pairId; }
bool IsPairActionId(const QString& actionId) { return after(actionId, K_PAIR_ACTION_ID_PREFIX, nullptr); }

QString Vst2RowIdentity(qint64 uniqueId, const QString& hash, int pluginId)
{
    if (uniqueId != 0)
        return QLatin1String(kVst2.actionIdPrefix) + QString::number(uniqueId);
    return QStringLiteral("%1%2:%3").arg(QLatin1String(K_VST2_HASH_ID_PREFIX), hash).arg(pluginId);
}

bool Vst2HashIdentityParts(const QString& identity, QString* hashAndId)
{
    return after(identity, K_VST2_HASH_ID_PREFIX, hashAndId);
}

qint64 Vst2UniqueIdOfIdentity(const QString& identity)
{
    QString rest;
    return after(identity, kVst2.actionIdPrefix, &rest) ? rest.toLongLong() : 0;
}

QString Vst3BundleIdentity(const QString& path) { return QLatin1String(K_VST3_BUNDLE_ID_PREFIX) + path; }

bool Vst3BundleOfIdentity(const QString& identity, QString* path)
{
    return after(identity, K_VST3_BUNDLE_ID_PREFIX, path);
}

} // namespace QVlorAudioPlugins
