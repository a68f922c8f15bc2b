// The plugin manager's rows, composed from the copies of both catalogs and
// the pair store (pure: no manager is asked anything), and the predicates of
// what a row may do.
#include "QVlorUnifiedRows.h"
#include "QVlorUnifiedRows_p.h"

#include "QVlorDisplayText_p.h"
#include "QVlorPluginCategory.h"
#include "QVlorPluginFormat.h"
#include "QVlorPluginLibrary.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QMap>

/* ---- the rows ------------------------------------------------------------ */
using namespace UnifiedRowSteps;

namespace {

// Rows travel in variants under UpmRowRole.
const int kUnifiedRowType = qRegisterMetaType<UnifiedRow>("UnifiedRow");

QString NameOrFileBaseName(const QString& name, const QString& path)
{
    return name.isEmpty() ? QFileInfo(path).completeBaseName() : name;
}

// A format's word, or nothing when it left the question open.
QString DeclaredKey(QVlorAudioPlugins::PluginCategory c)
{
    return c == QVlorAudioPlugins::PluginCategory::Other ? QString() : QVlorAudioPlugins::CategoryKey(c);
}

UnifiedFormatInfo MakeVst2Info(const QVlorVst::Plugin& plugin, bool active, bool enabled, bool gated)
{
    UnifiedFormatInfo info;
    info.present = true;
    info.active = active;
    info.enabled = enabled;
    info.gated = gated;
    info.is32Bit = plugin.arch() == QVlorVst::Arch32Bits;
    info.state = plugin.verifying() ? QStringLiteral("verifying") : plugin.isFailed() ? QStringLiteral("failed") : QString();
    info.error = plugin.isFailed() ? plugin.failReason() : QString();
    info.identity = QVlorAudioPlugins::Vst2RowIdentity(plugin.uniqueId(), plugin.hash(), plugin.pluginId());
    info.declared = DeclaredKey(QVlorAudioPlugins::CategoryOfVst2(plugin.plugCategory()));
    return info;
}

UnifiedFormatInfo MakeVst3Info(const QVlorVst3::CatalogClass& cls, bool active, bool gated)
{
    UnifiedFormatInfo info;
    info.present = true;
    info.active = active;
    info.gated = gated;
    info.enabled = cls.isEnabled();
    info.error = cls.lastError();
    switch (cls.state()) {
    case QVlorVst3::CatalogClass::Verifying:
    case QVlorVst3::CatalogClass::Failed:
    case QVlorVst3::CatalogClass::Crashed:
    case QVlorVst3::CatalogClass::Missing:
        info.state = QVlorVst3::CatalogClass::StateToString(cls.state());
        break;
    default:
        break;
    }
    info.identity = cls.cid();
    info.declared = DeclaredKey(QVlorAudioPlugins::CategoryOfVst3(cls.subCategories()));
    return info;
}

// A pair operation under way shows as verifying; a missing plugin stays missing.
void ApplyPending(UnifiedFormatInfo* info, bool pending)
{
    if (pending && info->state != QLatin1String("missing"))
        info->state = QStringLiteral("verifying");
}

bool Vst2Pending(const QVlorVst::Plugin& p, const QSet<qint64>& ids) { return p.uniqueId() != 0 && ids.contains(p.uniqueId()); }
bool Vst3Pending(const FlatVst3Item& item, const QSet<QString>& cids) { return item.verifying || cids.contains(item.cls.cid()); }

bool VendorGated(const QVlorVst::Path& path, const QString& vendor)
{
    const QString key = vendor.toLower();
    return !key.isEmpty() && !path.isVendorEnabled(key);
}

void FlattenVst2(const QList<QVlorVst::Path>& paths, QList<FlatVst2Item>* items, QList<ShellGroup>* groups,
                 QSet<QString>* seenKeys, QList<QPair<QVlorVst::Plugin, QString>>* rawItems, bool wantRaw)
{
    for (const QVlorVst::Path& path : paths) {
        for (const QVlorVst::Plugin& p : path.plugins()) {
            if (!p.exists())
                continue;
            if (p.isShell()) {
                const QString key = QStringLiteral("vst2shell:") + p.hash();
                if (!seenKeys->contains(key)) {
                    seenKeys->insert(key);
                    groups->append({key, p.name(), QFileInfo(p.filename()).completeBaseName(), p.vendor().toLower(),
                                    p.vendor(), p.isEnabled()});
                }
                // The shell's own vendor gates its children, never theirs.
                const bool gated = !p.isEnabled() || VendorGated(path, p.vendor());
                for (const QVlorVst::Plugin& child : p.plugins())
                    items->append({child, key, child.isEnabled(), gated});
            } else if (p.uniqueId() != 0) {
                items->append({p, QString(), p.isEnabled(), VendorGated(path, p.vendor())});
            } else if (wantRaw && path.isSearched() && path.isEnabled()) {
                rawItems->append({p, path.absolutePath()});
            }
        }
    }
}

void FlattenVst3(const QVlorVst3::Catalog& catalog, const QSet<QString>& disabledVendors, QList<FlatVst3Item>* items,
                 QList<ShellGroup>* groups, QSet<QString>* seenKeys)
{
    for (const QVlorVst3::CatalogBundle& b : catalog.bundles()) {
        QString key;
        if (b.classes().size() > 1) {
            key = QStringLiteral("vst3module:") + b.path();
            if (!seenKeys->contains(key)) {
                seenKeys->insert(key);
                const QString vendor = b.classes().first().vendor();
                groups->append({key, QFileInfo(b.path()).completeBaseName(), QString(), vendor.toLower(), vendor,
                                b.enabled()});
            }
        }
        for (const QVlorVst3::CatalogClass& c : b.classes())
            items->append({c, key, b.path(), !b.enabled() || disabledVendors.contains(c.vendor().toLower()),
                           b.verifying()});
    }
}

// The header rows of a shell group, one per vendor of its rows, each followed by its rows.
void AppendShellGroup(ShellGroup group, const QList<UnifiedRow>& held, QList<UnifiedRow>* out)
{
    if (group.vendorKey.isEmpty())
        for (const UnifiedRow& r : held)
            if (!r.vendorKey.isEmpty()) {
                group.vendorKey = r.vendorKey;
                group.vendor = r.vendor;
                break;
            }
    QStringList vendors;
    QHash<QString, QList<UnifiedRow>> byVendor;
    for (UnifiedRow r : held) {
        if (r.vendorKey.isEmpty()) {
            r.vendorKey = group.vendorKey;
            r.vendor = group.vendor;
        }
        if (!byVendor.contains(r.vendorKey))
            vendors << r.vendorKey;
        byVendor[r.vendorKey] << r;
    }
    for (const QString& vendor : vendors) {
        const QList<UnifiedRow>& rows = byVendor[vendor];
        UnifiedRow header;
        header.isShellHeader = true;
        header.shellKey = group.key;
        header.name = group.name.isEmpty() ? group.fileBaseName : group.name;
        header.vendorKey = vendor;
        header.shellEnabled = group.enabled;
        header.vendor = vendor == group.vendorKey && !group.vendor.isEmpty() ? group.vendor : rows.first().vendor;
        *out << header << rows;
    }
}

UnifiedRow FolderHeader(UpmNewSection section, const QString& folder, bool shown)
{
    UnifiedRow header;
    header.isNewPathHeader = true;
    header.newSection = section;
    header.newPath = folder;
    header.name = folder;
    header.newPathShown = shown;
    return header;
}

// A section's folders in order, each with its header and raw rows; a hidden
// one keeps its header alone, an empty one is left out.
void AppendSection(UpmNewSection section, const QStringList& folders, const QMap<QString, QList<UnifiedRow>>& rows,
                   const QSet<QString>& hidden, QList<UnifiedRow>* out)
{
    for (const QString& folder : folders) {
        if (hidden.contains(folder)) {
            *out << FolderHeader(section, folder, false);
            continue;
        }
        const QList<UnifiedRow> held = rows.value(folder);
        if (held.isEmpty())
            continue;
        *out << FolderHeader(section, folder, true) << held;
    }
}

} // namespace

QString UnifiedRow::rowStateText() const
{
    if (vst3.active)
        return vst3.state;
    if (vst2.active)
        return vst2.state;
    if (lv2.active)
        return lv2.state;
    return QString();
}

bool UnifiedRow::inUse() const
{
    if (newSection != UpmNewSectionNone || isShellHeader)
        return false;
    const UnifiedFormatInfo* f = vst3.active ? &vst3 : vst2.active ? &vst2 : lv2.active ? &lv2 : nullptr;
    if (!f || !f->present || f->gated)
        return false;
    return f->enabled;
}

QString CapitalizedVendorLabel(const QString& key)
{
    if (key.isEmpty())
        return QCoreApplication::translate("QVlorUnifiedPluginsModel", "Other");
    QString label = key;
    label[0] = label[0].toUpper();
    return label;
}

namespace UnifiedRowSteps {

Flattened FlattenBoth(const QList<QVlorVst::Path>& paths, const QVlorVst3::Catalog& catalog, bool vst2ScanEnabled)
{
    Flattened f;
    for (const QString& v : catalog.disabledVendors())
        f.disabledVendors.insert(v.toLower());
    QSet<QString> seenKeys;
    FlattenVst2(paths, &f.vst2, &f.groups, &seenKeys, &f.rawItems, vst2ScanEnabled);
    FlattenVst3(catalog, f.disabledVendors, &f.vst3, &f.groups, &seenKeys);
    return f;
}

// The row of one pair entry, from its plugins at i2 and i3 (-1 for none).
UnifiedRow PairRow(const QVlorPluginPairs::Entry& e, const Flattened& f, int i2, int i3, const Pending& pending)
{
    UnifiedRow row;
    row.pairId = e.pairId;
    bool vst3Active = e.activeFormat == QVlorAudioPlugins::Vst3Token()   ? true
                      : e.activeFormat == QVlorAudioPlugins::Vst2Token() ? false
                                                                         : i3 >= 0;
    if (vst3Active && i3 < 0)
        vst3Active = false;
    if (!vst3Active && i2 < 0)
        vst3Active = true;
    if (i2 >= 0) {
        row.vst2 = MakeVst2Info(f.vst2[i2].plugin, !vst3Active, f.vst2[i2].enabled, f.vst2[i2].gated);
        ApplyPending(&row.vst2, Vst2Pending(f.vst2[i2].plugin, pending.vst2Ids));
    }
    if (i3 >= 0) {
        row.vst3 = MakeVst3Info(f.vst3[i3].cls, vst3Active, f.vst3[i3].gated);
        ApplyPending(&row.vst3, Vst3Pending(f.vst3[i3], pending.cids));
    }
    row.shellKey = i2 >= 0 && !f.vst2[i2].shellKey.isEmpty() ? f.vst2[i2].shellKey
                   : i3 >= 0                                 ? f.vst3[i3].shellKey
                                                             : QString();
    const QVlorVst::Plugin* p2 = i2 >= 0 ? &f.vst2[i2].plugin : nullptr;
    const QVlorVst3::CatalogClass* c3 = i3 >= 0 ? &f.vst3[i3].cls : nullptr;
    // The fallbacks differ by side on purpose: a VST3 row keeps an empty vendor.
    if (!vst3Active) {
        row.name = p2->name();
        row.vendor = p2->vendor();
        if (row.vendor.isEmpty() && c3)
            row.vendor = c3->vendor();
        if (row.name.isEmpty() && c3)
            row.name = c3->name();
        if (row.name.isEmpty())
            row.name = QFileInfo(p2->filename()).completeBaseName();
    } else {
        row.name = c3->name();
        row.vendor = c3->vendor();
        if (row.name.isEmpty() && p2)
            row.name = p2->name();
        if (row.name.isEmpty())
            row.name = p2 ? QFileInfo(p2->filename()).completeBaseName()
                          : QFileInfo(f.vst3[i3].bundlePath).completeBaseName();
    }
    row.vendorKey = row.vendor.toLower();
    row.isNew = (p2 && p2->isNew()) || (c3 && c3->state() == QVlorVst3::CatalogClass::New);
    return row;
}

// A row for every pair whose plugins are there (the last occurrence of an
// id pairs), then one for each plugin no pair claimed.
QList<UnifiedRow> ProductRows(const Flattened& f, const QVlorPluginPairs& pairs, const Pending& pending)
{
    QHash<qint64, int> vst2ById;
    for (int i = 0; i < f.vst2.size(); ++i)
        if (f.vst2[i].plugin.uniqueId() != 0)
            vst2ById.insert(f.vst2[i].plugin.uniqueId(), i);
    QHash<QString, int> vst3ByCid;
    for (int i = 0; i < f.vst3.size(); ++i)
        vst3ByCid.insert(f.vst3[i].cls.cid(), i);
    QVector<bool> claimed2(f.vst2.size(), false), claimed3(f.vst3.size(), false);
    QList<UnifiedRow> rows;
    rows.reserve(f.vst2.size() + f.vst3.size());
    for (const QVlorPluginPairs::Entry& e : pairs.entries()) {
        const int i2 = e.vst2 != 0 ? vst2ById.value(e.vst2, -1) : -1;
        const int i3 = !e.vst3.isEmpty() ? vst3ByCid.value(e.vst3, -1) : -1;
        if (i2 < 0 && i3 < 0)
            continue;
        if (i2 >= 0)
            claimed2[i2] = true;
        if (i3 >= 0)
            claimed3[i3] = true;
        rows.append(PairRow(e, f, i2, i3, pending));
    }
    for (int i = 0; i < f.vst2.size(); ++i) {
        if (claimed2[i])
            continue;
        const QVlorVst::Plugin& p = f.vst2[i].plugin;
        UnifiedRow row;
        row.vst2 = MakeVst2Info(p, true, f.vst2[i].enabled, f.vst2[i].gated);
        ApplyPending(&row.vst2, Vst2Pending(p, pending.vst2Ids));
        row.name = NameOrFileBaseName(p.name(), p.filename());
        row.vendor = p.vendor();
        row.vendorKey = p.vendor().toLower();
        row.isNew = p.isNew();
        row.shellKey = f.vst2[i].shellKey;
        rows.append(std::move(row));
    }
    for (int i = 0; i < f.vst3.size(); ++i) {
        if (claimed3[i])
            continue;
        const QVlorVst3::CatalogClass& c = f.vst3[i].cls;
        UnifiedRow row;
        row.vst3 = MakeVst3Info(c, true, f.vst3[i].gated);
        ApplyPending(&row.vst3, Vst3Pending(f.vst3[i], pending.cids));
        row.name = NameOrFileBaseName(c.name(), f.vst3[i].bundlePath);
        row.vendor = c.vendor();
        row.vendorKey = c.vendor().toLower();
        row.isNew = c.state() == QVlorVst3::CatalogClass::New;
        row.shellKey = f.vst3[i].shellKey;
        rows.append(std::move(row));
    }
    return rows;
}

// Plain rows in order, then each shell group behind its headers.
QList<UnifiedRow> PlainThenShells(QList<UnifiedRow> rows, const QList<ShellGroup>& groups)
{
    QList<UnifiedRow> result;
    result.reserve(rows.size());
    QHash<QString, QList<UnifiedRow>> held;
    for (UnifiedRow& r : rows) {
        if (r.shellKey.isEmpty())
            result.append(std::move(r));
        else
            held[r.shellKey].append(std::move(r));
    }
    for (const ShellGroup& g : groups)
        if (held.contains(g.key))
            AppendShellGroup(g, held.value(g.key), &result);
    return result;
}

// The vendor gate: a vendor switched off in the VST3 or the LV2 catalog or
// on any VST2 path gates every row of it, in every format.
void GateVendors(QList<UnifiedRow>* rows, const QSet<QString>& disabledVendors, const QList<QVlorVst::Path>& paths)
{
    QSet<QString> vendorsOff;
    for (const UnifiedRow& r : std::as_const(*rows)) {
        if (r.vendorKey.isEmpty() || vendorsOff.contains(r.vendorKey))
            continue;
        bool off = disabledVendors.contains(r.vendorKey);
        for (const QVlorVst::Path& path : paths)
            off = off || !path.isVendorEnabled(r.vendorKey);
        if (off)
            vendorsOff.insert(r.vendorKey);
    }
    for (UnifiedRow& r : *rows) {
        if (!vendorsOff.contains(r.vendorKey))
            continue;
        r.vendorEnabled = false;
        if (r.isShellHeader)
            continue;
        if (r.vst2.present)
            r.vst2.gated = true;
        if (r.vst3.present)
            r.vst3.gated = true;
        if (r.lv2.present)
            r.lv2.gated = true;
    }
}

// The hidden new-plugin folders of one format ("vst2|PATH", "vst3|PATH").
QSet<QString> HiddenFolders(const QSet<QString>& hiddenNewPaths, const QVlorAudioPlugins::PluginFormat& format)
{
    const QString prefix = QLatin1String(format.token) + QLatin1Char('|');
    QSet<QString> hidden;
    for (const QString& h : hiddenNewPaths)
        if (h.startsWith(prefix))
            hidden.insert(h.mid(prefix.size()));
    return hidden;
}

// VST2 plugins found and never probed, by folder; the folders in *folders.
QMap<QString, QList<UnifiedRow>> NewVst2Rows(const QList<QVlorVst::Path>& paths, const Flattened& f,
                                             QStringList* folders)
{
    QMap<QString, QList<UnifiedRow>> raw;
    for (const QVlorVst::Path& path : paths)
        if (path.isSearched() && path.isEnabled() && !folders->contains(path.absolutePath()))
            *folders << path.absolutePath();
    for (const auto& item : f.rawItems) {
        const QVlorVst::Plugin& p = item.first;
        UnifiedRow row;
        row.newSection = UpmNewSectionVst2;
        row.newPath = item.second;
        row.vst2 = MakeVst2Info(p, true, p.isEnabled(), false);
        if (p.missing())
            row.vst2.state = QStringLiteral("missing");
        row.name = NameOrFileBaseName(p.name(), p.filename());
        row.isNew = true;
        raw[item.second] << row;
    }
    return raw;
}

// VST3 bundles never probed, under the longest search path that holds them;
// the search paths in *folders.
QMap<QString, QList<UnifiedRow>> NewVst3Rows(const QVlorVst3::Catalog& catalog, const QList<QString>& searchPaths,
                                             QStringList* folders)
{
    for (const QString& s : searchPaths) {
        const QString clean = QDir::cleanPath(s);
        if (!folders->contains(clean))
            *folders << clean;
    }
    QMap<QString, QList<UnifiedRow>> raw;
    for (const QVlorVst3::CatalogBundle& b : catalog.bundles()) {
        if (b.probed())
            continue;
        const QString path = QDir::cleanPath(b.path());
        QString match;
        for (const QString& folder : std::as_const(*folders))
            if ((path == folder || path.startsWith(folder + QLatin1Char('/'))) && folder.size() > match.size())
                match = folder;
        if (match.isEmpty())
            continue;
        UnifiedRow row;
        row.newSection = UpmNewSectionVst3;
        row.newPath = match;
        row.vst3.present = true;
        row.vst3.active = true;
        row.vst3.enabled = true;
        row.vst3.identity = QVlorAudioPlugins::Vst3BundleIdentity(b.path());
        if (b.missing()) {
            row.vst3.state = QStringLiteral("missing");
        } else if (b.verifying()) {
            row.vst3.state = QStringLiteral("verifying");
        } else if (b.failed()) {
            row.vst3.state = QStringLiteral("failed");
            row.vst3.error = b.lastError();
        }
        row.name = QFileInfo(b.path()).completeBaseName();
        row.isNew = true;
        raw[match] << row;
    }
    return raw;
}

// The LV2 rows of plugins a family holds join that family's row, active when
// the family plays its LV2 form; a family of its LV2 form alone keeps its id.
void JoinLv2Forms(QList<UnifiedRow>* rows, const QList<UnifiedRow>& lv2Rows, const QVlorPluginPairs& pairs)
{
    QHash<QString, const QVlorPluginPairs::Entry*> familyOf;
    for (const QVlorPluginPairs::Entry& e : pairs.entries())
        if (!e.lv2.isEmpty())
            familyOf.insert(e.lv2, &e);
    QHash<QString, int> rowOf;
    for (int i = 0; i < rows->size(); ++i)
        if (!rows->at(i).pairId.isEmpty())
            rowOf.insert(rows->at(i).pairId, i);
    for (UnifiedRow lv2 : lv2Rows) {
        const QVlorPluginPairs::Entry* e = familyOf.value(lv2.lv2.identity);
        const int i = e ? rowOf.value(e->pairId, -1) : -1;
        if (i < 0) {
            if (e)
                lv2.pairId = e->pairId;
            rows->append(std::move(lv2));
            continue;
        }
        UnifiedRow& row = (*rows)[i];
        row.lv2 = lv2.lv2;
        row.lv2.active = e->activeFormat == QVlorAudioPlugins::Lv2Token();
        if (!row.lv2.active)
            continue;
        row.vst2.active = row.vst3.active = false;
        row.name = lv2.name;
        row.vendor = lv2.vendor;
        row.vendorKey = lv2.vendorKey;
    }
}

} // namespace UnifiedRowSteps

QList<UnifiedRow> ComposeUnifiedRows(const QList<QVlorVst::Path>& paths, const QVlorVst3::Catalog& catalog,
                                     const QVlorPluginPairs& pairs, const QList<QString>& vst3SearchPaths,
                                     const QSet<QString>& hiddenNewPaths, const QSet<qint64>& pendingVst2Ids,
                                     const QSet<QString>& pendingCids, bool vst2ScanEnabled,
                                     const QVlorLv2::Catalog& lv2Catalog)
{
    using namespace UnifiedRowSteps;
    const Flattened flat = FlattenBoth(paths, catalog, vst2ScanEnabled);
    QList<UnifiedRow> result = PlainThenShells(ProductRows(flat, pairs, {pendingVst2Ids, pendingCids}), flat.groups);
    JoinLv2Forms(&result, Lv2Rows(lv2Catalog), pairs);
    QSet<QString> vendorsOff = flat.disabledVendors;
    for (const QString& v : lv2Catalog.disabledVendors)
        vendorsOff.insert(v);
    GateVendors(&result, vendorsOff, paths);
    // The sections of new plugins, VST2 first.
    QStringList folders2, folders3;
    const QMap<QString, QList<UnifiedRow>> raw2 =
        vst2ScanEnabled ? NewVst2Rows(paths, flat, &folders2) : QMap<QString, QList<UnifiedRow>>();
    const QMap<QString, QList<UnifiedRow>> raw3 = NewVst3Rows(catalog, vst3SearchPaths, &folders3);
    AppendSection(UpmNewSectionVst2, folders2, raw2, HiddenFolders(hiddenNewPaths, QVlorAudioPlugins::Vst2Format()),
                  &result);
    AppendSection(UpmNewSectionVst3, folders3, raw3, HiddenFolders(hiddenNewPaths, QVlorAudioPlugins::Vst3Format()),
                  &result);
    const QHash<QString, QString> overrides = QVlorPluginLibrary::instance()->categoryOverrides();
    for (UnifiedRow& row : result)
        if (!row.isShellHeader && !row.isNewPathHeader)
            row.category = UpmRowCategory(row, overrides);
    return result;
}
