// The context menu of the plugin tree: what the selection allows, and the
// managers' calls of the item chosen. Every item marks its rows busy first,
// so that all of them turn busy at once, before any work starts.
#include "QVlorApplication.h"
#include "QVlorPluginFormat.h"
#include "QVlorLv2_Manager.h"
#include "QVlorPluginsPrefs_p.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"

#include <QAction>
#include <QFile>
#include <QItemSelectionModel>
#include <QMenu>

#include <algorithm>
#include <memory>

namespace {

bool childBusy(const QModelIndex& shell)
{
    const QAbstractItemModel* model = shell.model();
    for (int i = 0; i < model->rowCount(shell); ++i) {
        UnifiedRow child;
        if (ClassifyUnifiedPluginsIndex(model->index(i, 0, shell), &child) == UpmIndexRow && UpmRowBusy(child))
            return true;
    }
    return false;
}

bool hasMissing(const UnifiedRow& row)
{
    return row.vst2.state == QLatin1String("missing") || row.vst3.state == QLatin1String("missing");
}

// "Remove from catalog" is for a known plugin whose file is gone.
bool canRemove(const UnifiedRow& row) { return row.newSection == UpmNewSectionNone && hasMissing(row); }

// "Update Plugin(s)" checks again a known VST2 plugin that is on.
bool canUpdate(const UnifiedRow& row)
{
    return (row.vst2.present && row.vst2.enabled && row.newSection == UpmNewSectionNone) || row.lv2.present;
}

template <typename Predicate> QList<UnifiedRow> rowsWhere(const QList<UnifiedRow>& rows, Predicate keep)
{
    QList<UnifiedRow> out;
    for (const UnifiedRow& row : rows)
        if (keep(row))
            out << row;
    return out;
}

// An item of its own kind, after a separator when items stand above it.
QAction* addApart(QMenu* menu, const QString& text)
{
    if (!menu->isEmpty())
        menu->addSeparator();
    return menu->addAction(text);
}

} // namespace

QString QVlorPluginsPrefs::Data::revealPathForRow(const UnifiedRow& row) const
{
    // An LV2 plugin's place is its bundle.
    if (row.lv2.present && managers.lv2) {
        const QVlorLv2::Catalog catalog = managers.lv2->catalogCopy();
        const QVlorLv2::CatalogBundle* bundle = catalog.bundleOf(row.lv2.identity);
        return bundle ? bundle->path : QString();
    }
    if (row.isShellHeader || (!row.vst2.present && !row.vst3.present))
        return QString();
    const bool useVst3 = (row.vst3.present && !row.vst2.present) || row.vst3.active;
    const UnifiedFormatInfo& info = useVst3 ? row.vst3 : row.vst2;
    if (info.state == QLatin1String("missing"))
        return QString();
    QString path;
    if (!useVst3) {
        QVlorVst::Plugin plugin;
        QVlorVst::Path folder;
        if (findVst2PluginAndPath(row.vst2.identity, &plugin, &folder))
            path = plugin.filename();
    } else if (row.newSection == UpmNewSectionVst3) {
        QVlorAudioPlugins::Vst3BundleOfIdentity(row.vst3.identity, &path);
    } else if (QVlorVst3::Manager* m3 = managers.vst3) {
        const QVlorVst3::Catalog catalog = m3->catalogCopy();
        for (const QVlorVst3::CatalogBundle& bundle : catalog.bundles()) {
            for (const QVlorVst3::CatalogClass& c : bundle.classes())
                if (c.cid() == row.vst3.identity) {
                    path = bundle.path();
                    break;
                }
            if (!path.isEmpty())
                break;
        }
    }
    return !path.isEmpty() && QFile::exists(path) ? path : QString();
}

// The rows and the shells of the selection that are not busy, and the
// children of those shells.
void QVlorPluginsPrefs::takeMenuSelection(QList<UnifiedRow>* rows, QStringList* shells,
                                          QList<UnifiedRow>* shellChildren) const
{
    const QItemSelectionModel* selection = d->ui.vstPluginsTreeView->selectionModel();
    for (const QModelIndex& index : selection->selectedRows(0)) {
        const QModelIndex source = d->proxy.mapToSource(index);
        UnifiedRow row;
        const UpmIndexKind kind = ClassifyUnifiedPluginsIndex(source, &row);
        if (kind == UpmIndexRow && !UpmRowBusy(row)) {
            rows->append(row);
        } else if (kind == UpmIndexShell && !childBusy(source)) {
            *shells << source.data(UpmShellKeyRole).toString();
            for (int i = 0; i < d->model.rowCount(source); ++i) {
                UnifiedRow child;
                if (ClassifyUnifiedPluginsIndex(d->model.index(i, 1, source), &child) == UpmIndexRow)
                    shellChildren->append(child);
            }
        }
    }
}

// "Pair with...": the products of the other format that no pair holds, of
// the same vendor first, then by name; the actions carry their identities.
QList<QAction*> QVlorPluginsPrefs::addPartnerMenu(QMenu* menu, const UnifiedRow& single,
                                                  const QList<QVlorPluginPairs::Entry>& entries) const
{
    QList<QAction*> actions;
    QMenu* partners = menu->addMenu(tr("Pair with..."));
    const bool wantVst3 = single.vst2.present;
    QList<UnifiedRow> candidates;
    for (const UnifiedRow& r : std::as_const(d->rows))
        if (UpmRowEffectivelyUnpaired(r, entries) && r.newSection == UpmNewSectionNone &&
            (wantVst3 ? (r.vst3.present && !r.vst2.present) : (r.vst2.present && !r.vst3.present)))
            candidates << r;
    const QString vendor = single.vendorKey;
    std::stable_sort(candidates.begin(), candidates.end(), [&vendor](const UnifiedRow& a, const UnifiedRow& b) {
        const bool aSame = a.vendorKey == vendor;
        const bool bSame = b.vendorKey == vendor;
        if (aSame != bSame)
            return aSame;
        return QString::localeAwareCompare(a.name, b.name) < 0;
    });
    for (const UnifiedRow& partner : std::as_const(candidates)) {
        QAction* a = partners->addAction(partner.name);
        a->setData(wantVst3 ? partner.vst3.identity : partner.vst2.identity);
        actions << a;
    }
    partners->setEnabled(!candidates.isEmpty());
    return actions;
}

// The rows "Reset" may act on, each with its VST3 bundle; a catalog copy
// only when a row needs one, taken once.
QList<QPair<UnifiedRow, QString>> QVlorPluginsPrefs::resettableRows(const QList<UnifiedRow>& rows) const
{
    QVlorVst3::Manager* m3 = vst3();
    std::unique_ptr<QVlorVst3::Catalog> catalog;
    QList<QPair<UnifiedRow, QString>> out;
    for (const UnifiedRow& row : rows) {
        if (!catalog && row.vst3.present && row.newSection == UpmNewSectionNone && row.shellKey.isEmpty())
            catalog = std::make_unique<QVlorVst3::Catalog>(m3 ? m3->catalogCopy() : QVlorVst3::Catalog());
        // A family's LV2 form is reset with its VST forms, or alone where they cannot be.
        QString bundle;
        const bool vst = (row.vst2.present || row.vst3.present) &&
                         UpmRowResetEligible(row, catalog ? *catalog : QVlorVst3::Catalog(), &bundle);
        if (vst || row.lv2.present)
            out << qMakePair(row, bundle);
    }
    return out;
}

// "Split Pair(s)": every member marked first, then each pair split, the
// active format of each row kept.
void QVlorPluginsPrefs::splitPairsOf(const QList<UnifiedRow>& rows, const QList<QVlorPluginPairs::Entry>& entries)
{
    QVlorVst3::Manager* m3 = vst3();
    if (!m3)
        return;
    QList<qint64> ids;
    QStringList cids;
    for (const UnifiedRow& row : rows)
        if (const QVlorPluginPairs::Entry* e = UpmPairEntry(row.pairId, entries)) {
            if (e->vst2 != 0)
                ids << e->vst2;
            if (!e->vst3.isEmpty())
                cids << e->vst3;
        }
    if (!ids.isEmpty() || !cids.isEmpty())
        m3->markPairOpPending(ids, cids);
    for (const UnifiedRow& row : rows)
        if (const QVlorPluginPairs::Entry* e = UpmPairEntry(row.pairId, entries))
            m3->splitPair(row.pairId, keptFormat(row), e->vst2, e->vst3);
}

// A pair made by hand of a VST2 row's identity and a class ID, marked first.
void QVlorPluginsPrefs::pairByHand(const QString& vst2Identity, const QString& cid, const QString& activeFormat)
{
    const qint64 id = Data::ParseVst2UniqueId(vst2Identity);
    QVlorVst3::Manager* m3 = vst3();
    if (id == 0 || !m3)
        return;
    m3->markPairOpPending({id}, {cid});
    m3->addManualPair(id, cid, activeFormat);
}

// "Update Plugin(s)": each VST2 plugin of the rows checked again, all marked first.
void QVlorPluginsPrefs::updateVst2Rows(const QList<UnifiedRow>& rows)
{
    // An LV2 plugin is checked again with its bundle.
    if (QVlorLv2::Manager* m = lv2())
        for (const UnifiedRow& row : rows)
            if (row.lv2.present)
                m->recheckPlugin(row.lv2.identity);
    QVlorVst::Manager* m2 = vst2();
    if (!m2)
        return;
    QStringList refs;
    QList<QPair<QVlorVst::Plugin, QVlorVst::Path>> targets;
    for (const UnifiedRow& row : std::as_const(rows)) {
        QVlorVst::Plugin plugin;
        QVlorVst::Path path;
        if (!row.vst2.present || !row.vst2.enabled || !d->findVst2PluginAndPath(row.vst2.identity, &plugin, &path))
            continue;
        plugin.setNeedRecheck(true);
        refs << plugin.pluginRef();
        targets << qMakePair(plugin, path);
    }
    if (!refs.isEmpty())
        m2->markPluginsVerifying(refs);
    for (auto& target : targets)
        m2->enablePlugin(target.first, target.second, true);
}

// "Reset Plugin(s)": the rows' plugins and the shells' members forgotten and
// offered as new, all marked first; the pairs of the VST2 ids lose their state.
void QVlorPluginsPrefs::resetRowsAndShells(const QList<QPair<UnifiedRow, QString>>& resetRows,
                                           const QStringList& shells)
{
    for (const auto& reset : resetRows)
        if (QVlorLv2::Manager* m = lv2(); m && reset.first.lv2.present)
            m->resetPlugin(reset.first.lv2.identity);
    QVlorVst::Manager* m2 = vst2();
    QVlorVst3::Manager* m3 = vst3();
    QList<qint64> ids;
    QStringList refs, bundles;
    QList<QPair<QVlorVst::Plugin, QVlorVst::Path>> targets;
    auto take = [&](const QVlorVst::Plugin& plugin) {
        if (plugin.uniqueId() != 0)
            ids << plugin.uniqueId();
        refs << plugin.pluginRef();
    };
    for (const auto& reset : std::as_const(resetRows)) {
        const UnifiedRow& row = reset.first;
        QVlorVst::Plugin plugin;
        QVlorVst::Path path;
        if (row.vst2.present && m2 && d->findVst2PluginAndPath(row.vst2.identity, &plugin, &path)) {
            if (const qint64 id = Data::ParseVst2UniqueId(row.vst2.identity))
                ids << id;
            refs << plugin.pluginRef();
            targets << qMakePair(plugin, path);
        }
        if (!reset.second.isEmpty() && m3)
            bundles << reset.second;
    }
    for (const QString& shell : std::as_const(shells)) {
        const QString module = QStringLiteral("vst3module:");
        const QString vst2Shell = QStringLiteral("vst2shell:");
        if (shell.startsWith(module)) {
            if (shell.size() > module.size() && m3)
                bundles << shell.mid(module.size());
            continue;
        }
        if (!shell.startsWith(vst2Shell) || !m2)
            continue;
        const QString hash = shell.mid(vst2Shell.size());
        for (const QVlorVst::Path& path : std::as_const(d->paths)) {
            auto it = std::find_if(path.plugins().begin(), path.plugins().end(), [&hash](const QVlorVst::Plugin& p) {
                return p.isShell() && p.hash() == hash;
            });
            if (it == path.plugins().end())
                continue;
            take(*it);
            for (const QVlorVst::Plugin& child : it->plugins())
                take(child);
            targets << qMakePair(*it, path);
        }
    }
    if (!refs.isEmpty() && m2)
        m2->markPluginsVerifying(refs);
    if (!bundles.isEmpty() && m3)
        m3->markBundlesVerifying(bundles);
    for (auto& target : targets)
        m2->resetPlugin(target.first, target.second);
    for (const QString& bundle : std::as_const(bundles))
        m3->resetBundle(bundle);
    if (!ids.isEmpty() && m3)
        m3->purgePairState(ids, {});
}

// The format of the row under the pointer, which decides a pair made of two
// rows that agree in being on or off.
QString QVlorPluginsPrefs::formatUnder(const QPoint& pos) const
{
    UnifiedRow under;
    const QModelIndex source = d->proxy.mapToSource(d->ui.vstPluginsTreeView->indexAt(pos));
    const bool vst3Under = ClassifyUnifiedPluginsIndex(source, &under) == UpmIndexRow && under.vst3.present &&
                           !under.vst2.present;
    return vst3Under ? QVlorAudioPlugins::Vst3Token() : QVlorAudioPlugins::Vst2Token();
}

void QVlorPluginsPrefs::onCustomContextMenuRequested(const QPoint& pos)
{
    QTreeView* tree = d->ui.vstPluginsTreeView;
    if (!tree->selectionModel())
        return;
    QList<UnifiedRow> rows;
    QStringList shells;
    QList<UnifiedRow> shellChildren; // read now: a rebuild while the menu is open resets the tree
    takeMenuSelection(&rows, &shells, &shellChildren);
    if (rows.isEmpty() && shells.isEmpty())
        return;
    QVlorVst3::Manager* m3 = vst3();
    const QList<QVlorPluginPairs::Entry> entries = m3 ? m3->pairsEntriesCopy() : QList<QVlorPluginPairs::Entry>();
    // What each item would act on.
    const QList<UnifiedRow> addRows = rowsWhere(rows, UpmRowAddable);
    const QList<UnifiedRow> splitRows =
        rowsWhere(rows, [&entries](const UnifiedRow& r) { return UpmRowSplitEligible(r, entries); });
    const UnifiedRow* single = rows.size() == 1 ? &rows.first() : nullptr;
    const bool pairWith = single && shells.isEmpty() && UpmRowEffectivelyUnpaired(*single, entries) &&
                          single->newSection == UpmNewSectionNone && (single->vst2.present != single->vst3.present);
    const UnifiedRow* joinVst2 = nullptr;
    const UnifiedRow* joinVst3 = nullptr;
    QString joinFormat;
    const bool join = rows.size() == 2 &&
                      UpmJoinPairEligible(rows[0], rows[1], &joinVst2, &joinVst3, &joinFormat, entries);
    const bool remove = std::any_of(rows.begin(), rows.end(), canRemove);
    const bool update = std::any_of(rows.begin(), rows.end(), canUpdate);
    const QList<QPair<UnifiedRow, QString>> resetRows = resettableRows(rows);
    const int resetCount = int(shells.size() + resetRows.size());
    const QString reveal = single ? d->revealPathForRow(*single) : QString();

    QMenu menu(this);
    QAction *addAction = nullptr, *splitAction = nullptr, *joinAction = nullptr, *removeAction = nullptr;
    QAction *updateAction = nullptr, *resetAction = nullptr, *revealAction = nullptr, *vst3ChildrenAction = nullptr,
            *vst2ChildrenAction = nullptr;
    QList<QAction*> partnerActions;
    if (!addRows.isEmpty())
        addAction = menu.addAction(addRows.size() == 1 ? tr("Add Plugin") : tr("Add Plugins"));
    const bool families = std::any_of(splitRows.begin(), splitRows.end(), [](const UnifiedRow& r) { return r.lv2.present; });
    if (!splitRows.isEmpty())
        splitAction = menu.addAction(families ? (splitRows.size() == 1 ? tr("Split Family") : tr("Split Families"))
                                              : (splitRows.size() == 1 ? tr("Split Pair") : tr("Split Pairs")));
    FamilyMenuItems family = addFamilyItems(&menu, rows, entries);
    if (pairWith)
        partnerActions = addPartnerMenu(&menu, *single, entries);
    if (join)
        joinAction = menu.addAction(tr("Join Pair"));
    if (remove)
        removeAction = menu.addAction(tr("Remove from catalog"));
    if (update)
        updateAction = menu.addAction(rows.size() == 1 ? tr("Update Plugin") : tr("Update Plugins"));
    if (resetCount > 0)
        resetAction = menu.addAction(resetCount == 1 ? tr("Reset Plugin") : tr("Reset Plugins"));
    if (!reveal.isEmpty())
        revealAction = addApart(&menu, tr("Open file location"));
    if (!shells.isEmpty()) {
        vst3ChildrenAction = addApart(&menu, tr("Use VST3 in all children"));
        vst2ChildrenAction = menu.addAction(tr("Use VST2 in all children"));
        addLv2ChildrenItem(&menu, shellChildren, &family);
    }
    addProductItems(&menu, single, &family);
    if (menu.isEmpty())
        return;
    QVlorStyle::updateMenuStylesheet(&menu, QString());
    QAction* chosen = menu.exec(tree->mapToGlobal(pos));
    if (!chosen)
        return;
    if (actOnFamilyItem(family, chosen)) {
        return;
    } else if (chosen == addAction) {
        addPlugins(addRows);
    } else if (chosen == splitAction) {
        splitPairsOf(splitRows, entries);
    } else if (chosen == joinAction) {
        pairByHand(joinVst2->vst2.identity, joinVst3->vst3.identity,
                   joinFormat.isEmpty() ? formatUnder(pos) : joinFormat);
    } else if (partnerActions.contains(chosen)) {
        const QString other = chosen->data().toString();
        const bool selectedIsVst3 = !single->vst2.present;
        pairByHand(selectedIsVst3 ? other : single->vst2.identity, selectedIsVst3 ? single->vst3.identity : other,
                   selectedIsVst3 ? QVlorAudioPlugins::Vst3Token() : QVlorAudioPlugins::Vst2Token());
    } else if (chosen == removeAction) {
        for (const UnifiedRow& row : std::as_const(rows))
            if (row.vst3.state == QLatin1String("missing") && m3)
                m3->removeFromCatalog(row.vst3.identity);
    } else if (chosen == updateAction) {
        updateVst2Rows(rows);
    } else if (chosen == resetAction) {
        resetRowsAndShells(resetRows, shells);
    } else if (chosen == revealAction) {
        QVlorApplication::showExternalLocation(reveal);
    } else if ((chosen == vst3ChildrenAction || chosen == vst2ChildrenAction) && m3) {
        const bool toVst3 = chosen == vst3ChildrenAction;
        for (const UnifiedRow& child : std::as_const(shellChildren))
            if (!child.pairId.isEmpty() && (toVst3 ? child.vst3.present : child.vst2.present))
                m3->setPairActiveFormat(child.pairId,
                                        toVst3 ? QVlorAudioPlugins::Vst3Token() : QVlorAudioPlugins::Vst2Token());
    }
}
