#include "QVlorPluginsPrefs.h"
#include "QVlorLv2_Manager.h"
#include "QVlorPluginFormat.h"

#include "QVlorPluginsTreeView.h"
#include "QVlorSearchPathsDialog.h"
#include "QVlorSetting.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"
#include "QVlorPluginsPrefs_p.h"

#include <QComboBox>
#include <QFile>
#include <QHeaderView>
#include <QLineEdit>
#include <QTimer>

const char* const K_SETTING_TREE_COLLAPSED = "vloraudio.plugins.tree_collapsed_groups";
const char* const K_SETTING_NEW_PATHS_HIDDEN = "vloraudio.plugins.new_paths_hidden";
const char* const QVlorPluginsPrefs::Factory::Name = "plugin_prefs";

namespace {

const QString kStyleResource = QStringLiteral(":/styles/qvlorpluginsprefs_qtreeview.qss");

} // namespace

QVlorPreferencesTab* QVlorPluginsPrefs::Factory::create(QWidget* parent) { return new QVlorPluginsPrefs(parent); }

// The tree: its style sheet, its look and behaviour, its delegates; and the
// setting bound to the support box.
void QVlorPluginsPrefs::setUpTree()
{
    QVlorPluginsTreeView* tree = d->ui.vstPluginsTreeView;
    const QFont font = tree->font();
    QFile style(kStyleResource);
    if (style.open(QIODevice::ReadOnly)) {
        d->treeStyleSheet = QString::fromUtf8(style.readAll());
        tree->setStyleSheet(d->treeStyleSheet);
    } else {
        qWarning("QVlorPluginsPrefs: styles resource missing, plugins tree falls back to the .ui stylesheet");
        d->treeStyleSheet = tree->styleSheet();
    }
    tree->setFont(font);
    setFocusProxy(tree);

    bind(d->ui.cbEnableVSTSupport, QLatin1String(QVlorAudioPlugins::kVst2Format.supportSettingKey));
    bind(d->ui.cbEnableAudioUnitSupport, QLatin1String(QVlorAudioPlugins::kSupportAudioUnitSettingKey));
    d->ui.cbEnableAudioUnitSupport->hide();

    tree->setHeaderHidden(true);
    tree->setSelectionBehavior(QAbstractItemView::SelectRows);
    tree->setSelectionMode(QAbstractItemView::ExtendedSelection);
    tree->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    tree->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    tree->setAnimated(false);
    tree->setMouseTracking(true);
    tree->setEditTriggers(QAbstractItemView::NoEditTriggers);

    tree->setItemDelegateForColumn(0, new QVlorColNameMarginDelegate(6, tree));
    d->badgeDelegate = new QVlorPluginBadgeDelegate(tree);
    tree->setItemDelegateForColumn(1, d->badgeDelegate);
    d->stateDelegate = new QVlorPluginStateDelegate(tree);
    tree->setItemDelegateForColumn(2, d->stateDelegate);
}

QVlorVst::Manager* QVlorPluginsPrefs::vst2() const { return d->managers.vst2; }
QVlorVst3::Manager* QVlorPluginsPrefs::vst3() const { return d->managers.vst3; }
QVlorLv2::Manager* QVlorPluginsPrefs::lv2() const { return d->managers.lv2; }

QVlorPluginsPrefs::QVlorPluginsPrefs(QWidget* parent)
    : QVlorPluginsPrefs(QVlorAudioPlugins::PluginManagers::installed(), parent)
{
}

QVlorPluginsPrefs::QVlorPluginsPrefs(const QVlorAudioPlugins::PluginManagers& managers, QWidget* parent)
    : QVlorPreferencesTab(parent), d(new Data)
{
    d->managers = managers;
    Ui::QVlorPluginsPrefs& ui = d->ui;
    ui.setupUi(this);
    setObjectName(QStringLiteral("QVlorPluginsPrefs"));
    ui.filterBox->setLabel(tr("Filter"));
    const QVlorSetting& settings = QVlorSetting::global();
    const QStringList collapsed = settings.getStringList(QLatin1String(K_SETTING_TREE_COLLAPSED));
    d->collapsedGroups = QSet<QString>(collapsed.begin(), collapsed.end());
    const QStringList hidden = settings.getStringList(QLatin1String(K_SETTING_NEW_PATHS_HIDDEN));
    d->hiddenNewPaths = QSet<QString>(hidden.begin(), hidden.end());

    QVlorPluginsTreeView* tree = ui.vstPluginsTreeView;
    setUpTree();
    populateStatusFilterCombo();

    auto connectCheckBoxes = [this, &ui] {
        connect(ui.cbEnableVSTSupport, &QCheckBox::toggled, this, &QVlorPreferencesTab::valueChanged);
        connect(ui.cbEnableAudioUnitSupport, &QCheckBox::toggled, this, &QVlorPreferencesTab::valueChanged);
    };
    QVlorVst::Manager* m2 = vst2();
    QVlorVst3::Manager* m3 = vst3();
    if (!m2 && !m3 && !lv2()) {
        tree->hide();
        ui.refreshProgressLabel->hide();
        ui.scanProgressBar->hide();
        ui.scanCancelButton->hide();
        ui.skipCheckButton->hide();
        ui.managePathsBtn->hide();
        ui.updateButton->hide();
        ui.filterBox->hide();
        delete ui.vstButtonsLayout;
        ui.vstButtonsLayout = nullptr;
        connectCheckBoxes();
        return;
    }

    hideProgressLine();
    setUpProgressButtons();
    tree->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(tree, &QWidget::customContextMenuRequested, this, &QVlorPluginsPrefs::onCustomContextMenuRequested);
    connect(&d->model, &QVlorUnifiedPluginsModel::pairCheckToggled, this, &QVlorPluginsPrefs::onPairCheckToggled);
    connect(&d->model, &QVlorUnifiedPluginsModel::vendorCheckToggled, this, &QVlorPluginsPrefs::onVendorCheckToggled);
    connect(&d->model, &QVlorUnifiedPluginsModel::shellGateToggled, this, &QVlorPluginsPrefs::onShellGateToggled);
    connect(&d->model, &QVlorUnifiedPluginsModel::newPathShowToggled, this, &QVlorPluginsPrefs::onNewPathShowToggled);
    connect(d->badgeDelegate, &QVlorPluginBadgeDelegate::activeFormatClicked, this,
            &QVlorPluginsPrefs::onActiveFormatClicked);
    connect(d->badgeDelegate, &QVlorPluginBadgeDelegate::rawAddClicked, this, &QVlorPluginsPrefs::onRawAddClicked);
    connect(ui.updateButton, &QPushButton::clicked, this, &QVlorPluginsPrefs::rescanAll);
    connect(ui.managePathsBtn, &QPushButton::clicked, this, [this] {
        QVlorSearchPathsDialog dialog(d->managers, this);
        connect(&dialog, &QVlorSearchPathsDialog::pathsChanged, this, &QVlorPluginsPrefs::rebuildRows);
        dialog.exec();
    });

    followManagers(m2, m3);
    followLv2();

    d->proxy.setSourceModel(&d->model);
    tree->setModel(&d->proxy);
    QHeaderView* header = tree->header();
    header->setStretchLastSection(false);
    header->setSectionResizeMode(0, QHeaderView::Stretch);
    for (int column : {1, 2, 3})
        header->setSectionResizeMode(column, QHeaderView::Fixed);
    header->resizeSection(1, QVlorPluginBadgeDelegate::preferredColumnWidth(tree->fontMetrics()));
    header->resizeSection(2, QVlorPluginStateDelegate::preferredColumnWidth());
    header->resizeSection(3, 0);
    tree->setSortingEnabled(false);
    d->proxy.sort(0, Qt::AscendingOrder);

    connect(ui.filterBox->comboBox(), qOverload<int>(&QComboBox::currentIndexChanged), this,
            &QVlorPluginsPrefs::onStatusFilterChanged);
    connect(ui.filterBox, &QVlorBoxEditor::textChanged, this, &QVlorPluginsPrefs::filterView);
    setUpLibrary();
    setUpAccess();
    rebuildRows();
    connectCheckBoxes();
}

QVlorPluginsPrefs::~QVlorPluginsPrefs()
{
    // The tree goes with the form's widgets, after this; it must not read a
    // model that is already gone.
    d->ui.vstPluginsTreeView->setModel(nullptr);
    delete d;
}

QSize QVlorPluginsPrefs::sizeHint() const { return QSize(680, 460); }

QList<UnifiedRow> QVlorPluginsPrefs::rows() const { return d->rows; }

void QVlorPluginsPrefs::populateStatusFilterCombo()
{
    QComboBox* combo = d->ui.filterBox->comboBox();
    const QSignalBlocker blocker(combo);
    combo->clear();
    combo->addItem(tr("All"), int(ProxyFilter::StatusAll));
    combo->addItem(tr("New"), int(ProxyFilter::StatusNew));
    combo->addItem(tr("Failed"), int(ProxyFilter::StatusFailed));
    combo->addItem(tr("Enabled"), int(ProxyFilter::StatusEnabled));
    combo->addItem(tr("Favourites"), int(ProxyFilter::StatusFavourite));
    combo->insertSeparator(1);
    // The formats after the states: a row shows under each format it is there in.
    combo->insertSeparator(combo->count());
    combo->addItem(QStringLiteral("VST2"), int(ProxyFilter::FormatVst2));
    combo->addItem(QStringLiteral("VST3"), int(ProxyFilter::FormatVst3));
    combo->addItem(QStringLiteral("LV2"), int(ProxyFilter::FormatLv2));
}

void QVlorPluginsPrefs::showStatus(ProxyFilter::StatusFilter filter)
{
    QComboBox* combo = d->ui.filterBox->comboBox();
    const int index = combo->findData(int(filter));
    if (index >= 0)
        combo->setCurrentIndex(index);
}

void QVlorPluginsPrefs::syncPreferences()
{
    const QVlorSetting& settings = QVlorSetting::global();
    d->ui.cbEnableVSTSupport->setChecked(
        settings.getBool(QLatin1String(QVlorAudioPlugins::kVst2Format.supportSettingKey), true));
    d->ui.cbEnableAudioUnitSupport->setChecked(
        settings.getBool(QLatin1String(QVlorAudioPlugins::kSupportAudioUnitSettingKey), true));
    QVlorVst::Manager* m2 = vst2();
    QVlorVst3::Manager* m3 = vst3();
    if ((m2 && m2->isScanning()) || (m3 && m3->isScanning())) {
        onBeginScan();
        return;
    }
    if (m2 || m3)
        rebuildRows();
}

void QVlorPluginsPrefs::onLanguageChanged()
{
    populateStatusFilterCombo();
    if (vst2() || vst3())
        rebuildRows();
}

void QVlorPluginsPrefs::onPaletteChanged()
{
    // palette() references in the style sheet resolve when it is set.
    d->ui.vstPluginsTreeView->setStyleSheet(d->treeStyleSheet);
    QVlorPreferencesTab::onPaletteChanged();
}

void QVlorPluginsPrefs::rebuildRows()
{
    if (d->rebuildPending)
        return;
    d->rebuildPending = true;
    QTimer::singleShot(0, this, &QVlorPluginsPrefs::rebuildRowsNow);
}

void QVlorPluginsPrefs::rebuildRowsNow()
{
    d->rebuildPending = false;
    QVlorVst::Manager* m2 = vst2();
    QVlorVst3::Manager* m3 = vst3();
    if (!m2 && !m3 && !lv2())
        return;
    QList<QVlorVst::Path> paths;
    if (m2)
        paths = m2->pathsCopy();
    QVlorVst3::Catalog catalog;
    QVlorPluginPairs pairs;
    QStringList searchPaths;
    QSet<qint64> pendingVst2Ids;
    QSet<QString> pendingCids;
    if (m3) {
        catalog = m3->catalogCopy();
        pairs.entries() = m3->pairsEntriesCopy();
        if (QVlorVst3::Manager::isScanEnabled())
            searchPaths = m3->searchPaths();
        pendingVst2Ids = m3->pendingPairOpVst2IdsCopy();
        pendingCids = m3->pendingPairOpCidsCopy();
    }
    d->paths = paths;
    d->vst2Index.reset();
    d->rows = QVlorUnifiedPluginsModel::composeRows(d->paths, catalog, pairs, searchPaths, d->hiddenNewPaths,
                                                    pendingVst2Ids, pendingCids, QVlorVst::Manager::isScanEnabled(),
                                                    lv2() ? lv2()->catalogCopy() : QVlorLv2::Catalog());
    QTreeView* tree = d->ui.vstPluginsTreeView;
    d->captureExpansion(tree);
    const QString current = d->currentKey(tree->currentIndex());
    d->model.setRows(d->rows);
    tree->expandAll();
    if (!d->proxy.isFiltering())
        d->applyCollapsed(tree, QModelIndex());
    d->restoreCurrent(tree, current, QModelIndex());
    updateCheckProgress();
}

void QVlorPluginsPrefs::rescanAll()
{
    if (QVlorLv2::Manager* m = lv2())
        m->searchPlugins(false);
    if (QVlorVst::Manager* m2 = vst2())
        m2->rescanPlugins();
    if (QVlorVst3::Manager* m3 = vst3())
        m3->rescanPlugins();
}

void QVlorPluginsPrefs::showProgressLine(const QString& text, const QString& format, int value, int total)
{
    Ui::QVlorPluginsPrefs& ui = d->ui;
    ui.refreshProgressLabel->setText(text);
    ui.scanProgressBar->setFormat(format);
    ui.refreshProgressLabel->show();
    ui.scanProgressBar->setRange(0, total);
    ui.scanProgressBar->setValue(value);
    ui.scanProgressBar->show();
    ui.scanCancelButton->show();
}

void QVlorPluginsPrefs::hideProgressLine()
{
    Ui::QVlorPluginsPrefs& ui = d->ui;
    ui.refreshProgressLabel->hide();
    ui.scanProgressBar->hide();
    ui.scanCancelButton->hide();
}

void QVlorPluginsPrefs::onBeginScan()
{
    Ui::QVlorPluginsPrefs& ui = d->ui;
    d->scanning = true;
    ui.vstPluginsTreeView->setEnabled(false);
    ui.managePathsBtn->setEnabled(false);
    ui.updateButton->setEnabled(false);
    showProgressLine(tr("Scanning Plugins"), QStringLiteral("%p%"), 0, 1);
    announceScan(0, 1, false);
}

void QVlorPluginsPrefs::onEndScan(bool)
{
    Ui::QVlorPluginsPrefs& ui = d->ui;
    d->scanning = false;
    ui.vstPluginsTreeView->setEnabled(true);
    ui.managePathsBtn->setEnabled(true);
    ui.updateButton->setEnabled(true);
    hideProgressLine();
    announceScan(0, 0, true);
    rebuildRows();
}

void QVlorPluginsPrefs::updateCheckProgress()
{
    QSet<QString> busy;
    for (const UnifiedRow& r : std::as_const(d->rows)) {
        if (r.vst2.state == QLatin1String("verifying"))
            busy.insert(QStringLiteral("vst2|") + r.vst2.identity);
        if (r.vst3.state == QLatin1String("verifying"))
            busy.insert(QStringLiteral("vst3|") + r.vst3.identity);
    }
    if (busy.isEmpty()) {
        d->checkBatch.clear();
        if (!d->scanning)
            hideProgressLine();
        return;
    }
    if (d->checkBatch.isEmpty()) {
        d->checkClock.start();
        // One check is often done in a moment; the line shows for one that is not.
        QTimer::singleShot(1000, this, [this] {
            if (!d->checkBatch.isEmpty())
                updateCheckProgress();
        });
    }
    d->checkBatch.unite(busy);
    const int total = int(d->checkBatch.size());
    if (d->scanning || (total < 2 && d->checkClock.elapsed() < 1000))
        return;
    // Checks are counted, not measured: a count says more than a share.
    showProgressLine(total == 1 ? tr("Checking a plugin") : tr("Checking plugins"), tr("%v of %m"),
                     total - int(busy.size()), total);
}

void QVlorPluginsPrefs::onProgressScan(int value, int total)
{
    d->ui.scanProgressBar->setMaximum(total);
    d->ui.scanProgressBar->setValue(value);
    announceScan(value, total, false);
}

void QVlorPluginsPrefs::filterView(const QString& text)
{
    QTreeView* tree = d->ui.vstPluginsTreeView;
    d->captureExpansion(tree);
    d->proxy.setFilterString(text);
    tree->expandAll();
    if (!d->proxy.isFiltering())
        d->applyCollapsed(tree, QModelIndex());
}

void QVlorPluginsPrefs::onStatusFilterChanged(int index)
{
    QTreeView* tree = d->ui.vstPluginsTreeView;
    d->captureExpansion(tree);
    const int value = d->ui.filterBox->comboBox()->itemData(index).toInt();
    d->proxy.setStatusFilter(ProxyFilter::StatusFilter(value));
    tree->expandAll();
    if (!d->proxy.isFiltering())
        d->applyCollapsed(tree, QModelIndex());
}

void QVlorPluginsPrefs::enableVst2Plugin(const QString& identity)
{
    QVlorVst::Manager* m2 = vst2();
    QVlorVst::Plugin plugin;
    QVlorVst::Path path;
    if (!m2 || !d->findVst2PluginAndPath(identity, &plugin, &path))
        return;
    // A plugin that needs its load check shows the busy state before it starts.
    if (plugin.isFailed() || plugin.uniqueId() == 0 || plugin.needRecheck())
        m2->markPluginsVerifying({plugin.pluginRef()});
    m2->enablePlugin(plugin, path, false);
}

void QVlorPluginsPrefs::onPairCheckToggled(const QString&, const UnifiedRow& row, bool checked)
{
    if (row.newSection != UpmNewSectionNone)
        return;
    QVlorVst3::Manager* m3 = vst3();
    QVlorVst::Manager* m2 = vst2();
    if (row.lv2.active) {
        if (QVlorLv2::Manager* m = lv2())
            m->setPluginEnabled(row.lv2.identity, checked);
        return;
    }
    if (row.vst3.active && m3) {
        if (checked) {
            m3->markClassesVerifying({row.vst3.identity});
            m3->enablePlugin(row.vst3.identity);
        } else {
            m3->disablePlugin(row.vst3.identity);
        }
        return;
    }
    if (!row.vst2.active || !m2)
        return;
    if (checked) {
        enableVst2Plugin(row.vst2.identity);
        return;
    }
    QVlorVst::Plugin plugin;
    QVlorVst::Path path;
    if (d->findVst2PluginAndPath(row.vst2.identity, &plugin, &path))
        m2->disablePlugin(plugin, path);
}

void QVlorPluginsPrefs::onVendorCheckToggled(const QString& vendorKey, bool checked)
{
    if (QVlorVst::Manager* m2 = vst2())
        for (const QVlorVst::Path& path : std::as_const(d->paths))
            m2->setVendorEnabled(path.absolutePath(), vendorKey, checked);
    if (QVlorVst3::Manager* m3 = vst3())
        m3->setVendorEnabled(vendorKey, checked);
    if (QVlorLv2::Manager* m = lv2())
        m->setVendorEnabled(vendorKey, checked);
}

void QVlorPluginsPrefs::onShellGateToggled(const QString& shellKey, const UnifiedRow&, bool checked)
{
    const QString module = QStringLiteral("vst3module:");
    const QString shell = QStringLiteral("vst2shell:");
    if (shellKey.startsWith(module)) {
        const QString path = shellKey.mid(module.size());
        if (QVlorVst3::Manager* m3 = vst3(); m3 && !path.isEmpty())
            m3->setBundleEnabled(path, checked);
        return;
    }
    QVlorVst::Manager* m2 = vst2();
    if (!shellKey.startsWith(shell) || !m2)
        return;
    const QString hash = shellKey.mid(shell.size());
    for (const QVlorVst::Path& path : std::as_const(d->paths))
        for (const QVlorVst::Plugin& candidate : path.plugins())
            if (candidate.isShell() && candidate.hash() == hash) {
                QVlorVst::Plugin plugin = candidate;
                if (checked)
                    m2->enablePlugin(plugin, path, false);
                else
                    m2->disablePlugin(plugin, path);
                return;
            }
}

void QVlorPluginsPrefs::onNewPathShowToggled(int section, const QString& path, bool shown)
{
    const QString key = (section == UpmNewSectionVst2 ? QStringLiteral("vst2|") : QStringLiteral("vst3|")) + path;
    if (shown)
        d->hiddenNewPaths.remove(key);
    else
        d->hiddenNewPaths.insert(key);
    QVlorSetting::global().change(QLatin1String(K_SETTING_NEW_PATHS_HIDDEN), SortedList(d->hiddenNewPaths));
    if (shown) {
        // A folder coming back is looked at again.
        if (section == UpmNewSectionVst2) {
            if (QVlorVst::Manager* m2 = vst2())
                m2->searchPlugins(false);
        } else if (QVlorVst3::Manager* m3 = vst3()) {
            m3->searchPlugins(false);
        }
    }
    rebuildRows();
}

void QVlorPluginsPrefs::addPlugins(const QList<UnifiedRow>& rows)
{
    QVlorVst3::Manager* m3 = vst3();
    QVlorVst::Manager* m2 = vst2();
    QStringList bundles, refs;
    QList<QPair<QVlorVst::Plugin, QVlorVst::Path>> plugins;
    for (const UnifiedRow& row : rows) {
        if (!UpmRowAddable(row))
            continue;
        if (row.newSection == UpmNewSectionVst3) {
            QString bundle;
            if (m3 && QVlorAudioPlugins::Vst3BundleOfIdentity(row.vst3.identity, &bundle))
                bundles << bundle;
            continue;
        }
        QVlorVst::Plugin plugin;
        QVlorVst::Path path;
        if (m2 && d->findVst2PluginAndPath(row.vst2.identity, &plugin, &path)) {
            refs << plugin.pluginRef();
            plugins.append({plugin, path});
        }
    }
    // The marks first, in one call each: every row turns busy at the next rebuild.
    if (!bundles.isEmpty())
        m3->markBundlesVerifying(bundles);
    if (!refs.isEmpty())
        m2->markPluginsVerifying(refs);
    for (const QString& bundle : std::as_const(bundles))
        m3->enableBundle(bundle);
    for (auto& p : plugins)
        m2->enablePlugin(p.first, p.second, false);
}

void QVlorPluginsPrefs::onRawAddClicked(const QModelIndex& index)
{
    UnifiedRow row;
    if (ClassifyUnifiedPluginsIndex(index, &row) == UpmIndexRow && row.newSection != UpmNewSectionNone)
        addPlugins({row});
}

void QVlorPluginsPrefs::onActiveFormatClicked(const QModelIndex& index, const QString& format)
{
    UnifiedRow row;
    if (ClassifyUnifiedPluginsIndex(index, &row) != UpmIndexRow || row.pairId.isEmpty() || UpmRowBusy(row))
        return;
    const UnifiedFormatInfo& target = format == QVlorAudioPlugins::Vst3Token()  ? row.vst3
                                      : format == QVlorAudioPlugins::Lv2Token() ? row.lv2
                                                                                : row.vst2;
    if (!target.present || target.state == QLatin1String("failed") || target.state == QLatin1String("missing") ||
        target.state == QLatin1String("crashed"))
        return;
    QVlorVst3::Manager* m3 = vst3();
    if (m3)
        m3->setPairActiveFormat(row.pairId, format);
    const UnifiedFormatInfo& source = row.vst3.active ? row.vst3 : row.lv2.active ? row.lv2 : row.vst2;
    if (source.enabled == target.enabled)
        return;
    // Switching format never changes whether the product is in use.
    if (&target == &row.lv2) {
        if (QVlorLv2::Manager* m = lv2())
            m->setPluginEnabled(row.lv2.identity, source.enabled);
        return;
    }
    if (&target == &row.vst3) {
        if (!m3)
            return;
        if (source.enabled) {
            m3->markClassesVerifying({row.vst3.identity});
            m3->enablePlugin(row.vst3.identity);
        } else {
            m3->disablePlugin(row.vst3.identity);
        }
        return;
    }
    if (source.enabled) {
        enableVst2Plugin(row.vst2.identity);
        return;
    }
    QVlorVst::Manager* m2 = vst2();
    QVlorVst::Plugin plugin;
    QVlorVst::Path path;
    if (m2 && d->findVst2PluginAndPath(row.vst2.identity, &plugin, &path))
        m2->disablePlugin(plugin, path);
}
