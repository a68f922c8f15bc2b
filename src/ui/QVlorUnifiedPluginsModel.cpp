// The plugin manager's rows, composed from the copies of both catalogs and
// the pair store (pure: no manager is asked anything), the tree over them,
// and the predicates of what a row may do.
#include "QVlorUnifiedPluginsModel.h"

#include "QVlorDisplayText_p.h"
#include "QVlorPluginFormat.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QMap>

/* ---- the rows ------------------------------------------------------------ */
namespace {

// Rows travel in variants under UpmRowRole.
const int kUnifiedRowType = qRegisterMetaType<UnifiedRow>("UnifiedRow");

struct FlatVst2Item {
    QVlorVst::Plugin plugin;
    QString shellKey;
    bool enabled = false;
    bool gated = false;
};

struct FlatVst3Item {
    QVlorVst3::CatalogClass cls;
    QString shellKey;
    QString bundlePath;
    bool gated = false;
    bool verifying = false;
};

struct ShellGroup {
    QString key, name, fileBaseName, vendorKey, vendor;
    bool enabled = true;
};

QString NameOrFileBaseName(const QString& name, const QString& path)
{
    return name.isEmpty() ? QFileInfo(path).completeBaseName() : name;
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
    return QString();
}

bool UnifiedRow::inUse() const
{
    if (newSection != UpmNewSectionNone || isShellHeader)
        return false;
    const UnifiedFormatInfo* f = vst3.active ? &vst3 : vst2.active ? &vst2 : nullptr;
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

QList<UnifiedRow> QVlorUnifiedPluginsModel::composeRows(const QList<QVlorVst::Path>& paths,
                                                        const QVlorVst3::Catalog& catalog,
                                                        const QVlorPluginPairs& pairs,
                                                        const QList<QString>& vst3SearchPaths,
                                                        const QSet<QString>& hiddenNewPaths,
                                                        const QSet<qint64>& pendingVst2Ids,
                                                        const QSet<QString>& pendingCids, bool vst2ScanEnabled)
{
    // 1. Flatten both formats; VST2 shell groups first.
    QSet<QString> disabledVendors;
    for (const QString& v : catalog.disabledVendors())
        disabledVendors.insert(v.toLower());
    QList<FlatVst2Item> vst2;
    QList<FlatVst3Item> vst3;
    QList<ShellGroup> groups;
    QSet<QString> seenKeys;
    QList<QPair<QVlorVst::Plugin, QString>> rawItems;
    FlattenVst2(paths, &vst2, &groups, &seenKeys, &rawItems, vst2ScanEnabled);
    FlattenVst3(catalog, disabledVendors, &vst3, &groups, &seenKeys);

    // 2. Index: the last occurrence of an id pairs.
    QHash<qint64, int> vst2ById;
    for (int i = 0; i < vst2.size(); ++i)
        if (vst2[i].plugin.uniqueId() != 0)
            vst2ById.insert(vst2[i].plugin.uniqueId(), i);
    QHash<QString, int> vst3ByCid;
    for (int i = 0; i < vst3.size(); ++i)
        vst3ByCid.insert(vst3[i].cls.cid(), i);
    QVector<bool> claimed2(vst2.size(), false), claimed3(vst3.size(), false);

    QList<UnifiedRow> rows;
    rows.reserve(vst2.size() + vst3.size());
    // 3. Pair rows.
    for (const QVlorPluginPairs::Entry& e : pairs.entries()) {
        const int i2 = e.vst2 != 0 ? vst2ById.value(e.vst2, -1) : -1;
        const int i3 = !e.vst3.isEmpty() ? vst3ByCid.value(e.vst3, -1) : -1;
        if (i2 < 0 && i3 < 0)
            continue;
        UnifiedRow row;
        row.pairId = e.pairId;
        bool vst3Active = e.activeFormat == QLatin1String("vst3")   ? true
                          : e.activeFormat == QLatin1String("vst2") ? false
                                                                    : i3 >= 0;
        if (vst3Active && i3 < 0)
            vst3Active = false;
        if (!vst3Active && i2 < 0)
            vst3Active = true;
        if (i2 >= 0) {
            claimed2[i2] = true;
            row.vst2 = MakeVst2Info(vst2[i2].plugin, !vst3Active, vst2[i2].enabled, vst2[i2].gated);
            ApplyPending(&row.vst2, Vst2Pending(vst2[i2].plugin, pendingVst2Ids));
        }
        if (i3 >= 0) {
            claimed3[i3] = true;
            row.vst3 = MakeVst3Info(vst3[i3].cls, vst3Active, vst3[i3].gated);
            ApplyPending(&row.vst3, Vst3Pending(vst3[i3], pendingCids));
        }
        row.shellKey = i2 >= 0 && !vst2[i2].shellKey.isEmpty() ? vst2[i2].shellKey
                       : i3 >= 0                               ? vst3[i3].shellKey
                                                               : QString();
        const QVlorVst::Plugin* p2 = i2 >= 0 ? &vst2[i2].plugin : nullptr;
        const QVlorVst3::CatalogClass* c3 = i3 >= 0 ? &vst3[i3].cls : nullptr;
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
                              : QFileInfo(vst3[i3].bundlePath).completeBaseName();
        }
        row.vendorKey = row.vendor.toLower();
        row.isNew = (p2 && p2->isNew()) || (c3 && c3->state() == QVlorVst3::CatalogClass::New);
        rows.append(std::move(row));
    }
    // 4, 5. What no pair claimed.
    for (int i = 0; i < vst2.size(); ++i) {
        if (claimed2[i])
            continue;
        const QVlorVst::Plugin& p = vst2[i].plugin;
        UnifiedRow row;
        row.vst2 = MakeVst2Info(p, true, vst2[i].enabled, vst2[i].gated);
        ApplyPending(&row.vst2, Vst2Pending(p, pendingVst2Ids));
        row.name = NameOrFileBaseName(p.name(), p.filename());
        row.vendor = p.vendor();
        row.vendorKey = p.vendor().toLower();
        row.isNew = p.isNew();
        row.shellKey = vst2[i].shellKey;
        rows.append(std::move(row));
    }
    for (int i = 0; i < vst3.size(); ++i) {
        if (claimed3[i])
            continue;
        const QVlorVst3::CatalogClass& c = vst3[i].cls;
        UnifiedRow row;
        row.vst3 = MakeVst3Info(c, true, vst3[i].gated);
        ApplyPending(&row.vst3, Vst3Pending(vst3[i], pendingCids));
        row.name = NameOrFileBaseName(c.name(), vst3[i].bundlePath);
        row.vendor = c.vendor();
        row.vendorKey = c.vendor().toLower();
        row.isNew = c.state() == QVlorVst3::CatalogClass::New;
        row.shellKey = vst3[i].shellKey;
        rows.append(std::move(row));
    }

    // 6, 7. Plain rows in order, then each shell group behind its headers.
    QList<UnifiedRow> result;
    result.reserve(rows.size());
    QHash<QString, QList<UnifiedRow>> held;
    for (UnifiedRow& r : rows) {
        if (r.shellKey.isEmpty())
            result.append(std::move(r));
        else
            held[r.shellKey].append(std::move(r));
    }
    for (const ShellGroup& g : std::as_const(groups))
        if (held.contains(g.key))
            AppendShellGroup(g, held.value(g.key), &result);

    // 8. The vendor gate: switched off in the VST3 catalog or on any VST2 path.
    QSet<QString> vendorsOff;
    for (const UnifiedRow& r : std::as_const(result)) {
        if (r.vendorKey.isEmpty() || vendorsOff.contains(r.vendorKey))
            continue;
        bool off = disabledVendors.contains(r.vendorKey);
        for (const QVlorVst::Path& path : paths)
            off = off || !path.isVendorEnabled(r.vendorKey);
        if (off)
            vendorsOff.insert(r.vendorKey);
    }
    for (UnifiedRow& r : result) {
        if (!vendorsOff.contains(r.vendorKey))
            continue;
        r.vendorEnabled = false;
        if (r.isShellHeader)
            continue;
        if (r.vst2.present)
            r.vst2.gated = true;
        if (r.vst3.present)
            r.vst3.gated = true;
    }

    // 9. Hidden folders, by format.
    QSet<QString> hidden2, hidden3;
    for (const QString& h : hiddenNewPaths) {
        if (h.startsWith(QLatin1String("vst2|")))
            hidden2.insert(h.mid(5));
        else if (h.startsWith(QLatin1String("vst3|")))
            hidden3.insert(h.mid(5));
    }

    // 10. VST2 plugins found and never probed, by folder.
    QStringList folders2;
    QMap<QString, QList<UnifiedRow>> raw2;
    if (vst2ScanEnabled) {
        for (const QVlorVst::Path& path : paths)
            if (path.isSearched() && path.isEnabled() && !folders2.contains(path.absolutePath()))
                folders2 << path.absolutePath();
        for (const auto& item : std::as_const(rawItems)) {
            const QVlorVst::Plugin& p = item.first;
            UnifiedRow row;
            row.newSection = UpmNewSectionVst2;
            row.newPath = item.second;
            row.vst2 = MakeVst2Info(p, true, p.isEnabled(), false);
            if (p.missing())
                row.vst2.state = QStringLiteral("missing");
            row.name = NameOrFileBaseName(p.name(), p.filename());
            row.isNew = true;
            raw2[item.second] << row;
        }
    }

    // 11. VST3 bundles never probed, under the longest search path that holds them.
    QStringList folders3;
    for (const QString& s : vst3SearchPaths) {
        const QString clean = QDir::cleanPath(s);
        if (!folders3.contains(clean))
            folders3 << clean;
    }
    QMap<QString, QList<UnifiedRow>> raw3;
    for (const QVlorVst3::CatalogBundle& b : catalog.bundles()) {
        if (b.probed())
            continue;
        const QString path = QDir::cleanPath(b.path());
        QString match;
        for (const QString& folder : std::as_const(folders3))
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
        raw3[match] << row;
    }

    // 12. The sections, VST2 first.
    AppendSection(UpmNewSectionVst2, folders2, raw2, hidden2, &result);
    AppendSection(UpmNewSectionVst3, folders3, raw3, hidden3, &result);
    return result;
}

/* ---- the tree ------------------------------------------------------------ */

using Node = QVlorUnifiedPluginsModel::Node;

namespace {

constexpr int kColumns = 4;

Node* addNode(Node* parent, QVlorUnifiedPluginsModel::NodeKind kind, const QString& label)
{
    auto* node = new Node;
    node->kind = kind;
    bool cut = false;
    node->label = CutForDisplay(label, &cut);
    if (cut)
        node->fullLabel = label;
    node->parent = parent;
    parent->children << node;
    return node;
}

const UnifiedFormatInfo* activeFormat(const UnifiedRow& row)
{
    return row.vst3.active ? &row.vst3 : row.vst2.active ? &row.vst2 : nullptr;
}

bool rawRow(const Node* node) { return node->hasRow && node->row.newSection != UpmNewSectionNone; }

bool childBusy(const Node* node)
{
    for (const Node* c : node->children)
        if (c->hasRow && UpmRowBusy(c->row))
            return true;
    return false;
}

} // namespace

QVlorUnifiedPluginsModel::QVlorUnifiedPluginsModel(QObject* parent) : QAbstractItemModel(parent), m_root(new Node) {}

QVlorUnifiedPluginsModel::~QVlorUnifiedPluginsModel() { delete m_root; }

void QVlorUnifiedPluginsModel::setRows(const QList<UnifiedRow>& rows)
{
    beginResetModel();
    delete m_root;
    m_root = new Node;
    QHash<int, Node*> sections;
    QHash<QPair<int, QString>, Node*> folders;
    QHash<QString, Node*> vendors;
    QHash<QString, QHash<QString, Node*>> shells; // shell key -> vendor key -> node
    auto vendorNode = [&](const UnifiedRow& r, bool fromShell) {
        Node*& v = vendors[r.vendorKey];
        if (!v) {
            const QString label =
                fromShell || r.vendor.isEmpty() ? CapitalizedVendorLabel(r.vendorKey) : r.vendor;
            v = addNode(m_root, NodeVendor, label);
            v->vendorKey = r.vendorKey;
            v->checked = r.vendorEnabled;
        }
        return v;
    };
    // Headers first: folders and shells exist before the rows they hold.
    for (const UnifiedRow& r : rows) {
        if (r.isNewPathHeader) {
            Node*& section = sections[r.newSection];
            if (!section) {
                section = addNode(m_root, NodeNewSection,
                                  r.newSection == UpmNewSectionVst2 ? tr("New VST2 Plugins") : tr("New VST3 Plugins"));
                section->row.newSection = r.newSection;
            }
            Node* folder = addNode(section, NodeNewPath, r.newPath);
            folder->row = r;
            folders.insert({int(r.newSection), r.newPath}, folder);
        } else if (r.isShellHeader) {
            Node* shell = addNode(vendorNode(r, true), NodeItem, r.name);
            shell->row = r;
            shell->checked = r.shellEnabled;
            shells[r.shellKey].insert(r.vendorKey, shell);
        }
    }
    for (const UnifiedRow& r : rows) {
        if (r.isNewPathHeader || r.isShellHeader)
            continue;
        const UnifiedFormatInfo* active = activeFormat(r);
        if (r.newSection != UpmNewSectionNone) {
            // A hidden folder has no node: its rows are not shown.
            if (Node* folder = folders.value({int(r.newSection), r.newPath})) {
                Node* n = addNode(folder, NodeChild, r.name);
                n->row = r;
                n->hasRow = true;
            }
            continue;
        }
        Node* shell = nullptr;
        if (!r.shellKey.isEmpty() && shells.contains(r.shellKey)) {
            const QHash<QString, Node*>& byVendor = shells[r.shellKey];
            shell = byVendor.value(r.vendorKey);
            if (!shell && byVendor.size() == 1)
                shell = byVendor.begin().value();
        }
        Node* n = shell ? addNode(shell, NodeChild, r.name) : addNode(vendorNode(r, false), NodeItem, r.name);
        n->row = r;
        n->hasRow = true;
        n->gated = active && active->gated;
    }
    endResetModel();
}

Node* QVlorUnifiedPluginsModel::nodeOf(const QModelIndex& index) const
{
    return index.isValid() ? static_cast<Node*>(index.internalPointer()) : m_root;
}

QModelIndex QVlorUnifiedPluginsModel::index(int row, int column, const QModelIndex& parent) const
{
    if (column < 0 || column >= kColumns || (parent.isValid() && parent.column() != 0))
        return QModelIndex();
    const Node* p = nodeOf(parent);
    if (row < 0 || row >= p->children.size())
        return QModelIndex();
    return createIndex(row, column, p->children[row]);
}

QModelIndex QVlorUnifiedPluginsModel::parent(const QModelIndex& child) const
{
    if (!child.isValid())
        return QModelIndex();
    const Node* p = nodeOf(child)->parent;
    if (!p || p == m_root)
        return QModelIndex();
    return createIndex(int(p->parent->children.indexOf(const_cast<Node*>(p))), 0, const_cast<Node*>(p));
}

int QVlorUnifiedPluginsModel::rowCount(const QModelIndex& parent) const
{
    if (parent.isValid() && parent.column() != 0)
        return 0;
    return int(nodeOf(parent)->children.size());
}

int QVlorUnifiedPluginsModel::columnCount(const QModelIndex&) const { return kColumns; }

Qt::CheckState QVlorUnifiedPluginsModel::effectiveCheckState(Node* node)
{
    if (node->kind == NodeNewPath)
        return node->row.newPathShown ? Qt::Checked : Qt::Unchecked;
    if (node->hasRow) {
        const UnifiedFormatInfo* f = activeFormat(node->row);
        return f && f->enabled ? Qt::Checked : Qt::Unchecked;
    }
    return node->checked ? Qt::Checked : Qt::Unchecked;
}

QVariant QVlorUnifiedPluginsModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid())
        return QVariant();
    Node* n = nodeOf(index);
    if (role == UpmRowRole)
        return n->hasRow ? QVariant::fromValue(n->row) : QVariant();
    if (role == UpmNewSectionRole)
        return n->kind == NodeNewSection || n->kind == NodeNewPath ? QVariant(int(n->row.newSection)) : QVariant();
    if (role == UpmNewPathRole)
        return n->kind == NodeNewPath ? QVariant(n->row.newPath) : QVariant();
    if (index.column() == 0) {
        switch (role) {
        case Qt::DisplayRole:
            return n->label;
        case Qt::ToolTipRole:
            return n->fullLabel.isEmpty() ? QVariant() : QVariant(n->fullLabel);
        case Qt::CheckStateRole:
            if (n->kind == NodeNewSection || rawRow(n))
                return QVariant();
            return int(effectiveCheckState(n));
        case UpmVendorKeyRole:
            return n->kind == NodeVendor ? QVariant(n->vendorKey) : QVariant();
        case UpmShellKeyRole:
            return n->kind == NodeItem && !n->hasRow ? QVariant(n->row.shellKey) : QVariant();
        default:
            return QVariant();
        }
    }
    if (index.column() == 2) {
        const QString state = n->hasRow ? n->row.rowStateText() : QString();
        switch (role) {
        case Qt::DisplayRole:
            return n->hasRow ? QVariant(state) : QVariant();
        case Qt::ToolTipRole:
            if (state == QLatin1String("verifying"))
                return tr("Verifying...");
            if (state == QLatin1String("failed"))
                return tr("Failed");
            if (state == QLatin1String("missing"))
                return tr("Missing");
            if (state == QLatin1String("crashed"))
                return tr("Crashed");
            return QVariant();
        case Qt::TextAlignmentRole:
            return int(Qt::AlignRight | Qt::AlignVCenter);
        default:
            return QVariant();
        }
    }
    return QVariant();
}

QVariant QVlorUnifiedPluginsModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QVariant();
    switch (section) {
    case 0:
        return tr("Plugin");
    case 1:
        return tr("Format");
    case 2:
        return tr("State");
    default:
        return QVariant();
    }
}

Qt::ItemFlags QVlorUnifiedPluginsModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    const Node* n = nodeOf(index);
    if (!n)
        return Qt::ItemIsSelectable | Qt::ItemIsEnabled | (index.column() == 0 ? Qt::ItemIsUserCheckable : Qt::NoItemFlags);
    bool ancestorOff = false;
    for (const Node* a = n->parent; a && !ancestorOff; a = a->parent)
        ancestorOff = a != m_root && !a->checked;
    if ((n->hasRow && n->gated) || ancestorOff || (n->hasRow && UpmRowBusy(n->row)) || (!n->hasRow && childBusy(n)))
        return Qt::ItemIsSelectable;
    if (index.column() == 0 && n->kind != NodeNewSection && !rawRow(n))
        return Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemIsUserCheckable;
    return Qt::ItemIsSelectable | Qt::ItemIsEnabled;
}

bool QVlorUnifiedPluginsModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (role != Qt::CheckStateRole || index.column() != 0 || !index.isValid())
        return false;
    Node* n = nodeOf(index);
    if (!n)
        return false;
    const bool checked = value.toInt() != 0;
    switch (n->kind) {
    case NodeNewSection:
        return false;
    case NodeNewPath:
        emit newPathShowToggled(int(n->row.newSection), n->row.newPath, checked);
        return true;
    case NodeVendor:
        emit vendorCheckToggled(n->vendorKey, checked);
        return true;
    default:
        break;
    }
    if (!n->hasRow) {
        if (childBusy(n))
            return false;
        emit shellGateToggled(n->row.shellKey, n->row, checked);
        return true;
    }
    if (UpmRowBusy(n->row))
        return false;
    emit pairCheckToggled(n->row.pairId, n->row, checked);
    return true;
}

bool QVlorUnifiedPluginsModel::formatAvailableForPair(const QList<UnifiedRow>& rows, const QString& pairId,
                                                      const QString& format)
{
    if (pairId.isEmpty())
        return false;
    for (const UnifiedRow& r : rows) {
        if (r.pairId != pairId)
            continue;
        const UnifiedFormatInfo& f = format == QLatin1String("vst3") ? r.vst3 : r.vst2;
        return f.present && f.enabled && !f.gated && f.state != QLatin1String("missing") &&
               f.state != QLatin1String("failed");
    }
    return false;
}

bool UpmRowNotAnEffect(const UnifiedRow& row)
{
    // The checks word every such verdict with these words; a check made
    // again cannot turn an instrument into an effect.
    const QLatin1String words("not an effect");
    const UnifiedFormatInfo& f = row.vst3.present && (row.vst3.active || !row.vst2.present) ? row.vst3 : row.vst2;
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
    return e && e->vst2 != 0 && !e->vst3.isEmpty();
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
                        : r2->vst2.enabled                   ? QStringLiteral("vst2")
                                                             : QStringLiteral("vst3");
    return true;
}

int UpmNewRootSortRank(const QModelIndex& index)
{
    if (!index.isValid() || index.data(UpmNewPathRole).isValid())
        return 0;
    const QVariant section = index.data(UpmNewSectionRole);
    if (!section.isValid())
        return 0;
    return section.toInt() == UpmNewSectionVst2 ? 1 : section.toInt() == UpmNewSectionVst3 ? 2 : 0;
}

int ClassifyUnifiedPluginsIndex(const QModelIndex& index, UnifiedRow* row)
{
    if (!index.isValid())
        return 5;
    const QVariant r = index.data(UpmRowRole);
    if (r.isValid()) {
        if (row)
            *row = r.value<UnifiedRow>();
        return 0;
    }
    if (index.data(UpmVendorKeyRole).isValid())
        return 1;
    if (index.data(UpmNewPathRole).isValid())
        return 4;
    if (index.data(UpmNewSectionRole).isValid())
        return 3;
    return 2;
}
