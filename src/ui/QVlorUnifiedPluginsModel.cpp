// The plugin manager's tree over the rows: vendors, shells, plugins and the
// new-plugin sections, rebuilt whole from rows at each setRows.
#include "QVlorUnifiedPluginsModel.h"

#include "QVlorRemoteFault_p.h"

#include "QVlorDisplayText_p.h"
#include "QVlorPluginCategory.h"
#include "QVlorPluginFormat.h"
#include "QVlorPluginLibrary.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QMap>

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
    return row.vst3.active ? &row.vst3 : row.vst2.active ? &row.vst2 : row.lv2.active ? &row.lv2 : nullptr;
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
    QHash<QString, Node*> categories;
    auto vendorNode = [&](const UnifiedRow& r, bool fromShell) {
        if (m_byCategory) {
            Node*& c = categories[r.category];
            if (!c) {
                QVlorAudioPlugins::PluginCategory category = QVlorAudioPlugins::PluginCategory::Other;
                QVlorAudioPlugins::CategoryFromKey(r.category, &category);
                c = addNode(m_root, NodeCategory, QVlorAudioPlugins::CategoryLabel(category));
                c->vendorKey = r.category;
            }
            return c;
        }
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
        } else if (r.isShellHeader && !m_byCategory) {
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
        if (!m_byCategory && !r.shellKey.isEmpty() && shells.contains(r.shellKey)) {
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

// The mark of a row whose active VST3 or LV2 form runs in a host program
// for its own sake.
bool QVlorUnifiedPluginsModel::runsApart(const Node* node)
{
    if (!node->hasRow)
        return false;
    const UnifiedRow& r = node->row;
    const UnifiedFormatInfo* f = activeFormat(r);
    if (f == &r.vst3)
        return QVlorAudioPlugins::RunsApartByItsMarks(QVlorAudioPlugins::Vst3Token(), r.vst3.identity);
    if (f == &r.lv2)
        return QVlorAudioPlugins::RunsApartByItsMarks(QVlorAudioPlugins::Lv2Token(), r.lv2.identity);
    return false;
}

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

// Every cell is named, so that a reader moving along a row hears what each
// painted column stands for.
QVariant QVlorUnifiedPluginsModel::spokenText(const Node* n, int column, int role) const
{
    const QString name = n->fullLabel.isEmpty() ? n->label : n->fullLabel;
    const bool favourite = n->hasRow && QVlorPluginLibrary::instance()->isFavourite(UpmRowIdentities(n->row));
    if (role == Qt::AccessibleDescriptionRole) {
        if (column != 0)
            return QVariant();
        if (n->hasRow)
            return UpmSpokenRow(n->row, favourite);
        if (n->kind == NodeVendor || n->kind == NodeCategory || n->kind == NodeItem)
            return (n->kind == NodeVendor ? tr("maker, %n plugins", nullptr, int(n->children.size()))
                    : n->kind == NodeCategory ? tr("category, %n plugins", nullptr, int(n->children.size()))
                                              : tr("plugin file, %n plugins", nullptr, int(n->children.size())));
        return QVariant();
    }
    if (column == 1 && n->hasRow) {
        const QString formats = UpmSpokenFormats(n->row);
        return formats.isEmpty() ? name : formats;
    }
    if (column == 2 && n->hasRow) {
        const QString state = n->row.rowStateText();
        return state.isEmpty() ? (n->row.inUse() ? tr("on") : tr("off")) : state;
    }
    return name;
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
    if (role == Qt::AccessibleTextRole || role == Qt::AccessibleDescriptionRole)
        return spokenText(n, index.column(), role);
    if (index.column() == 0) {
        switch (role) {
        case Qt::DisplayRole:
            return n->label;
        case Qt::DecorationRole:
            // The star first: it is the user's own mark; the tooltip names both.
            if (n->hasRow && QVlorPluginLibrary::instance()->isFavourite(UpmRowIdentities(n->row)))
                return QVlorPluginLibrary::starIcon();
            return runsApart(n) ? QVariant(QVlorAudioPlugins::RunsApartIcon()) : QVariant();
        case Qt::ToolTipRole: {
            QString tip = n->fullLabel;
            if (n->hasRow && QVlorPluginLibrary::instance()->isFavourite(UpmRowIdentities(n->row)))
                tip += (tip.isEmpty() ? QString() : QStringLiteral("\n")) + tr("Favourite");
            if (runsApart(n))
                tip += (tip.isEmpty() ? QString() : QStringLiteral("\n")) + tr("Runs in its own process");
            return tip.isEmpty() ? QVariant() : QVariant(tip);
        }
        case Qt::CheckStateRole:
            if (n->kind == NodeNewSection || n->kind == NodeCategory || rawRow(n))
                return QVariant();
            return int(effectiveCheckState(n));
        case UpmCategoryKeyRole:
            return n->kind == NodeCategory ? QVariant(n->vendorKey) : QVariant();
        case UpmFavouriteRole:
            return n->hasRow && QVlorPluginLibrary::instance()->isFavourite(UpmRowIdentities(n->row));
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
    if (index.column() == 0 && n->kind != NodeNewSection && n->kind != NodeCategory && !rawRow(n))
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
    case NodeCategory:
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
        const UnifiedFormatInfo& f = format == QVlorAudioPlugins::Vst3Token()  ? r.vst3
                                     : format == QVlorAudioPlugins::Lv2Token() ? r.lv2
                                                                               : r.vst2;
        return f.present && f.enabled && !f.gated && f.state != QLatin1String("missing") &&
               f.state != QLatin1String("failed");
    }
    return false;
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

UpmIndexKind ClassifyUnifiedPluginsIndex(const QModelIndex& index, UnifiedRow* row)
{
    if (!index.isValid())
        return UpmIndexInvalid;
    const QVariant r = index.data(UpmRowRole);
    if (r.isValid()) {
        if (row)
            *row = r.value<UnifiedRow>();
        return UpmIndexRow;
    }
    if (index.data(UpmVendorKeyRole).isValid())
        return UpmIndexVendor;
    if (index.data(UpmCategoryKeyRole).isValid())
        return UpmIndexCategory;
    if (index.data(UpmNewPathRole).isValid())
        return UpmIndexNewPath;
    if (index.data(UpmNewSectionRole).isValid())
        return UpmIndexNewSection;
    return UpmIndexShell;
}

QList<UnifiedRow> QVlorUnifiedPluginsModel::composeRows(const QList<QVlorVst::Path>& paths,
                                                        const QVlorVst3::Catalog& catalog,
                                                        const QVlorPluginPairs& pairs,
                                                        const QList<QString>& vst3SearchPaths,
                                                        const QSet<QString>& hiddenNewPaths,
                                                        const QSet<qint64>& pendingVst2Ids,
                                                        const QSet<QString>& pendingCids, bool vst2ScanEnabled,
                                                        const QVlorLv2::Catalog& lv2Catalog)
{
    return ComposeUnifiedRows(paths, catalog, pairs, vst3SearchPaths, hiddenNewPaths, pendingVst2Ids, pendingCids,
                              vst2ScanEnabled, lv2Catalog);
}
