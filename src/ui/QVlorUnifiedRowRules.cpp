// What a row of the plugin manager may do, shared by the delegates, the page,
// its row menu and the Plugins menu: add, split, join, reset, and the VST2
// records rows name.
#include "QVlorUnifiedPluginsModel.h"

#include "QVlorPluginCategory.h"
#include "QVlorPluginFormat.h"

bool UpmRowNotAnEffect(const UnifiedRow& row)
{
    // The checks word every such verdict with these words; a check made
    // again cannot turn an instrument into an effect.
    const QLatin1String words("not an effect");
    const UnifiedFormatInfo& f = row.lv2.active                                          ? row.lv2
                                 : row.vst3.present && (row.vst3.active || !row.vst2.present) ? row.vst3
                                                                                              : row.vst2;
    return f.present && f.state == QLatin1String("failed") && f.error.contains(words, Qt::CaseInsensitive);
}

bool UpmRowAddable(const UnifiedRow& row)
{
    if (row.newSection == UpmNewSectionNone || row.isNewPathHeader)
        return false;
    const QString token = row.rowStateText();
    return token != QLatin1String("verifying") && token != QLatin1String("missing") && !UpmRowNotAnEffect(row);
}

bool UpmRowBusy(const UnifiedRow& row)
{
    return (row.vst2.present && row.vst2.state == QLatin1String("verifying")) ||
           (row.vst3.present && row.vst3.state == QLatin1String("verifying"));
}

const QVlorPluginPairs::Entry* UpmPairEntry(const QString& pairId, const QList<QVlorPluginPairs::Entry>& entries)
{
    for (const QVlorPluginPairs::Entry& e : entries)
        if (e.pairId == pairId)
            return &e;
    return nullptr;
}

bool UpmParseVst2Identity(const QString& identity, UpmVst2Identity* out)
{
    UpmVst2Identity parsed;
    QString rest;
    if (QVlorAudioPlugins::Vst2HashIdentityParts(identity, &rest)) {
        const int colon = rest.lastIndexOf(QLatin1Char(':'));
        parsed.hash = colon < 0 ? rest : rest.left(colon);
        bool ok = false;
        const qint64 id = colon < 0 ? 0 : rest.mid(colon + 1).toLongLong(&ok);
        parsed.pluginId = ok && id >= INT32_MIN && id <= INT32_MAX ? int(id) : 0;
        if (parsed.hash.isEmpty())
            return false;
    } else if ((parsed.uniqueId = QVlorAudioPlugins::Vst2UniqueIdOfIdentity(identity)) == 0) {
        return false;
    }
    if (out)
        *out = parsed;
    return true;
}

UpmVst2Index::UpmVst2Index(const QList<QVlorVst::Path>& paths) : m_paths(paths)
{
    for (int k = 0; k < paths.size(); ++k)
        for (const QVlorVst::Plugin& p : paths.at(k).plugins()) {
            add(p, k);
            if (p.isShell())
                for (const QVlorVst::Plugin& child : p.plugins())
                    add(child, k);
        }
}

void UpmVst2Index::add(const QVlorVst::Plugin& p, int path)
{
    if (!m_byId.contains(p.uniqueId()))
        m_byId.insert(p.uniqueId(), {p, path});
    const QString key = p.hash() + QLatin1Char(':') + QString::number(p.pluginId());
    if (!m_byHash.contains(key))
        m_byHash.insert(key, {p, path});
}

bool UpmVst2Index::find(const QString& identity, QVlorVst::Plugin* plugin, QVlorVst::Path* path) const
{
    UpmVst2Identity wanted;
    if (!UpmParseVst2Identity(identity, &wanted))
        return false;
    const Entry* found = nullptr;
    if (!wanted.hash.isEmpty()) {
        auto it = m_byHash.constFind(wanted.hash + QLatin1Char(':') + QString::number(wanted.pluginId));
        found = it == m_byHash.constEnd() ? nullptr : &it.value();
    } else {
        auto it = m_byId.constFind(wanted.uniqueId);
        found = it == m_byId.constEnd() ? nullptr : &it.value();
    }
    if (!found)
        return false;
    if (plugin)
        *plugin = found->plugin;
    if (path)
        *path = m_paths.at(found->path);
    return true;
}

bool UpmVst2Identity::names(const QVlorVst::Plugin& plugin) const
{
    return hash.isEmpty() ? plugin.uniqueId() == uniqueId : plugin.hash() == hash && plugin.pluginId() == pluginId;
}

bool UpmRowEffectivelyUnpaired(const UnifiedRow& row, const QList<QVlorPluginPairs::Entry>& entries)
{
    if (row.pairId.isEmpty())
        return true;
    const QVlorPluginPairs::Entry* e = UpmPairEntry(row.pairId, entries);
    return e && (e->vst2 == 0 || e->vst3.isEmpty());
}

bool UpmRowSplitEligible(const UnifiedRow& row, const QList<QVlorPluginPairs::Entry>& entries)
{
    const QVlorPluginPairs::Entry* e = row.pairId.isEmpty() ? nullptr : UpmPairEntry(row.pairId, entries);
    return e && e->formCount() >= 2;
}

bool UpmRowResetEligible(const UnifiedRow& row, const QVlorVst3::Catalog& catalog, QString* bundlePath)
{
    if (row.newSection != UpmNewSectionNone)
        return false;
    if (row.isShellHeader)
        return true;
    if (!row.shellKey.isEmpty())
        return false;
    if (row.vst2.present && !row.vst3.present)
        return true;
    if (!row.vst3.present)
        return false;
    for (const QVlorVst3::CatalogBundle& b : catalog.bundles())
        for (const QVlorVst3::CatalogClass& c : b.classes())
            if (c.cid() == row.vst3.identity) {
                // A class of a bundle of several is reset through its shell header.
                if (b.classes().size() > 1)
                    return false;
                if (bundlePath)
                    *bundlePath = b.path();
                return true;
            }
    return false;
}

bool UpmJoinPairEligible(const UnifiedRow& a, const UnifiedRow& b, const UnifiedRow** vst2Row, const UnifiedRow** vst3Row,
                         QString* activeFormat, const QList<QVlorPluginPairs::Entry>& entries)
{
    if (!UpmRowEffectivelyUnpaired(a, entries) || !UpmRowEffectivelyUnpaired(b, entries) ||
        a.newSection != UpmNewSectionNone || b.newSection != UpmNewSectionNone)
        return false;
    auto only2 = [](const UnifiedRow& r) { return r.vst2.present && !r.vst3.present; };
    auto only3 = [](const UnifiedRow& r) { return r.vst3.present && !r.vst2.present; };
    const UnifiedRow* r2 = only2(a) && only3(b) ? &a : only2(b) && only3(a) ? &b : nullptr;
    if (!r2)
        return false;
    const UnifiedRow* r3 = r2 == &a ? &b : &a;
    if (vst2Row)
        *vst2Row = r2;
    if (vst3Row)
        *vst3Row = r3;
    if (activeFormat)
        *activeFormat = r2->vst2.enabled == r3->vst3.enabled ? QString()
                        : r2->vst2.enabled                   ? QVlorAudioPlugins::Vst2Token()
                                                             : QVlorAudioPlugins::Vst3Token();
    return true;
}

QList<UnifiedRow> Lv2Rows(const QVlorLv2::Catalog& catalog)
{
    QList<UnifiedRow> rows;
    for (const QVlorLv2::CatalogBundle& b : catalog.bundles)
        for (const QVlorLv2::CatalogPlugin& p : b.plugins) {
            UnifiedRow row;
            row.name = p.name.isEmpty() ? p.uri : p.name;
            row.vendor = p.maker;
            row.vendorKey = p.maker.toLower();
            row.lv2.present = true;
            row.lv2.active = true;
            row.lv2.enabled = catalog.isEnabled(p.uri);
            row.lv2.identity = p.uri;
            const QVlorAudioPlugins::PluginCategory c = QVlorAudioPlugins::CategoryOfLv2(p.className);
            if (c != QVlorAudioPlugins::PluginCategory::Other)
                row.lv2.declared = QVlorAudioPlugins::CategoryKey(c);
            row.lv2.error = p.reason;
            // The page's words: an instrument is a check that failed for that reason.
            if (p.state == QVlorLv2::CatalogPlugin::Crashed)
                row.lv2.state = QStringLiteral("crashed");
            else if (p.state != QVlorLv2::CatalogPlugin::Usable)
                row.lv2.state = QStringLiteral("failed");
            rows << row;
        }
    return rows;
}

QStringList UpmRowIdentities(const UnifiedRow& row)
{
    QStringList ids;
    for (const UnifiedFormatInfo* f : {&row.vst3, &row.vst2, &row.lv2})
        if (f->present && !f->identity.isEmpty())
            ids << f->identity;
    return ids;
}

QString UpmRowCategory(const UnifiedRow& row, const QHash<QString, QString>& overrides)
{
    for (const QString& id : UpmRowIdentities(row))
        if (overrides.contains(id) && QVlorAudioPlugins::CategoryFromKey(overrides.value(id), nullptr))
            return overrides.value(id);
    const UnifiedFormatInfo* active = row.vst2.active ? &row.vst2 : row.vst3.active ? &row.vst3 : &row.lv2;
    if (active->present && !active->declared.isEmpty())
        return active->declared;
    // A VST3 subcategory is the most precise word, an LV2 class next.
    for (const UnifiedFormatInfo* f : {&row.vst3, &row.lv2, &row.vst2})
        if (f->present && !f->declared.isEmpty())
            return f->declared;
    return QVlorAudioPlugins::CategoryKey(QVlorAudioPlugins::CategoryByName(row.name));
}
