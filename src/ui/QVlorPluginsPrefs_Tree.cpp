// The page's filter over the tree (by name or vendor, by status, keeping the
// parents of what matches) and what the page remembers of the tree: the
// groups the user collapsed, by a key that outlives a rebuild.
#include "QVlorPluginCategory.h"
#include "QVlorPluginLibrary.h"
#include "QVlorPluginsPrefs.h"

#include "QVlorSetting.h"
#include "QVlorVst_Manager.h"
#include "QVlorPluginsPrefs_p.h"

namespace {

bool isFailedState(const UnifiedFormatInfo& info)
{
    return info.present && (info.state == QLatin1String("failed") || info.state == QLatin1String("crashed") ||
                            info.state == QLatin1String("missing"));
}

} // namespace

// Filtering.

QVlorPluginsPrefs::ProxyFilter::ProxyFilter(QObject* parent) : QSortFilterProxyModel(parent) {}

void QVlorPluginsPrefs::ProxyFilter::setFilterString(const QString& text)
{
    m_filterString = text.toLower();
    invalidateFilter();
}

void QVlorPluginsPrefs::ProxyFilter::setStatusFilter(StatusFilter filter)
{
    if (filter == m_statusFilter)
        return;
    m_statusFilter = filter;
    invalidateFilter();
}

bool QVlorPluginsPrefs::ProxyFilter::acceptStatus(const UnifiedRow& row, StatusFilter filter)
{
    switch (filter) {
    case StatusAll:
        return true;
    case StatusNew:
        return row.isNew;
    case StatusFailed:
        return isFailedState(row.vst2) || isFailedState(row.vst3) || isFailedState(row.lv2);
    case StatusEnabled:
        if (row.vst2.active)
            return row.vst2.enabled;
        if (row.lv2.active)
            return row.lv2.enabled && row.lv2.state.isEmpty();
        return row.vst3.active && row.vst3.enabled;
    case FormatVst2:
        return row.vst2.present;
    case FormatVst3:
        return row.vst3.present;
    case FormatLv2:
        return row.lv2.present;
    case StatusFavourite:
        return QVlorPluginLibrary::instance()->isFavourite(UpmRowIdentities(row));
    }
    return false;
}

bool QVlorPluginsPrefs::ProxyFilter::accept(const QModelIndex& sourceIndex) const
{
    // A product is found by its name or by what it does: "reverb" finds every reverb.
    if (!m_filterString.isEmpty() && !sourceIndex.data(Qt::DisplayRole).toString().toLower().contains(m_filterString)) {
        const QVariant row = sourceIndex.data(UpmRowRole);
        QVlorAudioPlugins::PluginCategory category = QVlorAudioPlugins::PluginCategory::Other;
        if (!row.isValid() || !QVlorAudioPlugins::CategoryFromKey(row.value<UnifiedRow>().category, &category) ||
            !QVlorAudioPlugins::CategoryLabel(category).toLower().contains(m_filterString))
            return false;
    }
    if (m_statusFilter != StatusAll) {
        const QVariant row = sourceIndex.data(UpmRowRole);
        if (!row.isValid() || !acceptStatus(row.value<UnifiedRow>(), m_statusFilter))
            return false;
    }
    return true;
}

bool QVlorPluginsPrefs::ProxyFilter::filterGroup(const QModelIndex& sourceIndex) const
{
    if (accept(sourceIndex))
        return true;
    const QAbstractItemModel* model = sourceModel();
    const int count = model->rowCount(sourceIndex);
    for (int i = 0; i < count; ++i)
        if (filterGroup(model->index(i, 0, sourceIndex)))
            return true;
    return false;
}

bool QVlorPluginsPrefs::ProxyFilter::filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const
{
    if (!isFiltering())
        return true;
    // A vendor or shell that matches shows all of its children; it only got
    // here by passing both tests itself.
    if (sourceParent.isValid() && accept(sourceParent))
        return true;
    return filterGroup(sourceModel()->index(sourceRow, 0, sourceParent));
}

bool QVlorPluginsPrefs::ProxyFilter::lessThan(const QModelIndex& left, const QModelIndex& right) const
{
    const int leftRank = UpmNewRootSortRank(left);
    const int rightRank = UpmNewRootSortRank(right);
    if (leftRank != rightRank)
        return leftRank < rightRank;
    // Categories in the vocabulary's order, Other last.
    const QVariant leftCategory = left.data(UpmCategoryKeyRole);
    const QVariant rightCategory = right.data(UpmCategoryKeyRole);
    if (leftCategory.isValid() && rightCategory.isValid()) {
        QVlorAudioPlugins::PluginCategory a = QVlorAudioPlugins::PluginCategory::Other, b = a;
        QVlorAudioPlugins::CategoryFromKey(leftCategory.toString(), &a);
        QVlorAudioPlugins::CategoryFromKey(rightCategory.toString(), &b);
        return int(a) < int(b);
    }
    const QVariant leftVendor = left.data(UpmVendorKeyRole);
    const QVariant rightVendor = right.data(UpmVendorKeyRole);
    if (leftVendor.isValid() != rightVendor.isValid())
        return leftVendor.isValid();
    if (leftVendor.isValid()) {
        const bool leftEmpty = leftVendor.toString().isEmpty();
        const bool rightEmpty = rightVendor.toString().isEmpty();
        if (leftEmpty != rightEmpty)
            return rightEmpty;
    }
    return QString::localeAwareCompare(left.data(Qt::DisplayRole).toString(), right.data(Qt::DisplayRole).toString()) < 0;
}

// What the page remembers of the tree.

QString QVlorPluginsPrefs::Data::expansionKey(const QModelIndex& index) const
{
    const QVariant section = index.data(UpmNewSectionRole);
    const QVariant folder = index.data(UpmNewPathRole);
    if (folder.isValid())
        return QStringLiteral("np|%1|%2").arg(section.toInt()).arg(folder.toString());
    if (section.isValid())
        return QStringLiteral("nr|%1").arg(section.toInt());
    const QVariant vendor = index.data(UpmVendorKeyRole);
    if (vendor.isValid())
        return QStringLiteral("v|") + vendor.toString();
    return QStringLiteral("s|%1|%2")
        .arg(index.parent().data(UpmVendorKeyRole).toString(), index.data(UpmShellKeyRole).toString());
}

void QVlorPluginsPrefs::Data::collectCollapsed(QTreeView* tree, const QModelIndex& parent)
{
    const QAbstractItemModel* m = tree->model();
    const int count = m->rowCount(parent);
    for (int i = 0; i < count; ++i) {
        const QModelIndex child = m->index(i, 0, parent);
        if (m->rowCount(child) == 0)
            continue;
        if (!tree->isExpanded(child))
            collapsedGroups.insert(expansionKey(child));
        collectCollapsed(tree, child);
    }
}

void QVlorPluginsPrefs::Data::captureExpansion(QTreeView* tree)
{
    // A search expands everything; what the user collapsed must outlive it.
    if (proxy.isFiltering() || !tree->model() || tree->model()->rowCount() == 0)
        return;
    collapsedGroups.clear();
    collectCollapsed(tree, QModelIndex());
    QVlorSetting::global().change(QLatin1String(K_SETTING_TREE_COLLAPSED), SortedList(collapsedGroups));
}

void QVlorPluginsPrefs::Data::applyCollapsed(QTreeView* tree, const QModelIndex& parent)
{
    const QAbstractItemModel* m = tree->model();
    if (!m)
        return;
    const int count = m->rowCount(parent);
    for (int i = 0; i < count; ++i) {
        const QModelIndex child = m->index(i, 0, parent);
        if (m->rowCount(child) == 0)
            continue;
        if (collapsedGroups.contains(expansionKey(child)))
            tree->collapse(child);
        applyCollapsed(tree, child);
    }
}

qint64 QVlorPluginsPrefs::Data::ParseVst2UniqueId(const QString& identity)
{
    UpmVst2Identity parsed;
    return UpmParseVst2Identity(identity, &parsed) ? parsed.uniqueId : 0;
}

// In the paths the rows were made from; a shell's children right after it.
bool QVlorPluginsPrefs::Data::findVst2PluginAndPath(const QString& identity, QVlorVst::Plugin* plugin,
                                                    QVlorVst::Path* path) const
{
    if (!vst2Index)
        vst2Index = std::make_unique<UpmVst2Index>(paths);
    return vst2Index->find(identity, plugin, path);
}

