// The Plugins menu. It is rebuilt whole from the managers' copies, never
// patched: a pair is one row with one active format, so the menu offers
// products, and the user's choice of format decides what an entry opens.
#include "QVlorPluginsMenu.h"
#include "QVlorSlowCheckWatch.h"

#include "QVlorAudio.h"
#include "QVlorDialogs.h"
#include "QVlorPairKeybindings.h"
#include "QVlorPluginFormat.h"
#include "QVlorPluginLibrary.h"
#include "QVlorPluginsMenu_p.h"
#include "QVlorUnifiedPluginsModel.h"
#include "QVlorLv2_Manager.h"
#include "QVlorLv2_Widget.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst3_Widget.h"
#include "QVlorVst_Manager.h"
#include "QVlorVst_Widget.h"

#include "QVlorDisplayText_p.h"
#include "audiovst.h"

#include <QAction>
#include <QAtomicInt>
#include <QEventLoop>
#include <QProgressDialog>
#include <QThread>
#include <QCoreApplication>
#include <QHash>
#include <QMap>
#include <QMenu>
#include <QPointer>
#include <QTimer>

#include <algorithm>

namespace QVlorAudioPlugins {

namespace {

QString trMain(const char* text) { return QCoreApplication::translate("QVlorAudioMainWindow", text); }

int StopOf(void* flag) { return static_cast<QAtomicInt*>(flag)->loadAcquire(); }

// A VST2 plugin whose file changed since its check is checked again before
// it opens: in a child, away from this thread, with progress and Cancel, so
// that one that hangs holds nobody up (its check's own timeout ends it, and
// the opening says it did not answer). False when the user cancelled.
bool CheckBeforeOpening(QWidget* parent, const QVlorVst::Plugin& plugin)
{
    // As the dialog's effect resolves it: a record of this process first,
    // else the file under the plugin's unique id.
    const int id = int(plugin.uniqueId());
    if (AUDIOVST_FindPluginByUniqId(id))
        return true;
    const QByteArray file = plugin.filename().toUtf8();
    if (!AUDIOVST_WouldCheck(file.constData(), id))
        return true;
    QAtomicInt stop{0};
    QThread* worker = QThread::create([&] { AUDIOVST_CheckAhead(file.constData(), id, &StopOf, &stop); });
    QProgressDialog progress(trMain("Checking %1...").arg(plugin.name()), trMain("Cancel"), 0, 0, parent);
    progress.setObjectName(QStringLiteral("pluginCheckProgress"));
    progress.setWindowModality(Qt::WindowModal);
    progress.setMinimumDuration(500);
    progress.setValue(0);
    QTimer::singleShot(500, &progress, [&progress] {
        if (!progress.wasCanceled())
            progress.show();
    });
    QEventLoop loop;
    QObject::connect(worker, &QThread::finished, &loop, &QEventLoop::quit);
    QObject::connect(&progress, &QProgressDialog::canceled, &loop, [&stop] { stop.storeRelease(2); });
    worker->start();
    loop.exec();
    worker->wait();
    delete worker;
    return stop.loadAcquire() == 0;
}

} // namespace

MenuController::MenuController(Host* host) : d(new Data)
{
    d->host = host;
    // Under the progress line, the plugin whose check has run for a while can be skipped.
    d->slowChecks = new QVlorSlowCheckWatch({vstManager(), vst3Manager(), lv2Manager()}, this);
    connect(d->slowChecks, &QVlorSlowCheckWatch::changed, this, [this](const QString& name) {
        if (!d->skipCheckAction)
            return;
        d->skipCheckAction->setVisible(!name.isEmpty());
        d->skipCheckAction->setText(trMain("Skip %1 (checked again at the next rescan)").arg(name));
    });
    if (QVlorVst::Manager* m = vstManager()) {
        connect(m, &QVlorVst::Manager::pluginEnabled, this, &MenuController::rebuildPluginsMenu);
        connect(m, &QVlorVst::Manager::pluginDisabled, this, &MenuController::rebuildPluginsMenu);
        connect(m, &QVlorVst::Manager::endScan, this, &MenuController::rebuildPluginsMenu);
    }
    if (QVlorLv2::Manager* m = lv2Manager())
        connect(m, &QVlorLv2::Manager::catalogChanged, this, &MenuController::rebuildPluginsMenu);
    QVlorPluginLibrary* library = QVlorPluginLibrary::instance();
    for (auto signal : {&QVlorPluginLibrary::categoriesChanged, &QVlorPluginLibrary::menuLayoutChanged})
        connect(library, signal, this, &MenuController::rebuildPluginsMenu);
    // Only the sections at the top change: the entries of the groups stay,
    // and so do the actions a caller may hold.
    for (auto signal : {&QVlorPluginLibrary::favouritesChanged, &QVlorPluginLibrary::recentChanged})
        connect(library, signal, this, [this] {
            if (d->pluginsMenu && !d->rebuildPending)
                d->refreshTopSections(this, d->canApply);
        });
    if (QVlorVst3::Manager* m = vst3Manager()) {
        connect(m, &QVlorVst3::Manager::pluginEnabled, this, &MenuController::rebuildPluginsMenu);
        connect(m, &QVlorVst3::Manager::pluginDisabled, this, &MenuController::rebuildPluginsMenu);
        connect(m, &QVlorVst3::Manager::catalogChanged, this, &MenuController::rebuildPluginsMenu);
        connect(m, &QVlorVst3::Manager::endScan, this, &MenuController::rebuildPluginsMenu);
    }
}

MenuController::~MenuController()
{
    if (d->pluginsMenu) {
        // The menu stays the host's; our entries leave it, and the host forgets them.
        disconnect(d->pluginsMenu, nullptr, this, nullptr);
        for (auto it = d->entries.constBegin(); it != d->entries.constEnd(); ++it) {
            if (d->host) {
                d->host->unregisterAction(it.key());
                d->host->unregisterQuickOpen(it.key());
            }
        }
        for (QAction* fixed : {d->managePluginsAction, d->searchPluginsAction, d->cancelScanAction})
            if (d->host && fixed)
                d->host->unregisterAction(fixed);
        delete d->pluginsMenu.data();
    }
    delete d;
}

QMenu* MenuController::pluginsMenu() const { return d->pluginsMenu; }
QAction* MenuController::scanProgressAction() const { return d->scanProgressAction; }
QAction* MenuController::skipCheckAction() const { return d->skipCheckAction; }
QAction* MenuController::searchPluginsAction() const { return d->searchPluginsAction; }
QAction* MenuController::managePluginsAction() const { return d->managePluginsAction; }
QAction* MenuController::cancelScanAction() const { return d->cancelScanAction; }

void MenuController::createPluginsMenu()
{
    if (d->pluginsMenu || (!vstManager() && !vst3Manager() && !lv2Manager()) || !d->host)
        return;
    QMenu* main = d->host->mainMenu();
    if (!main)
        return;
    QMenu* menu = main->addMenu(trMain("Plugins"));
    menu->menuAction()->setVisible(true);
    d->pluginsMenu = menu;
    d->topAnchor = menu->addSeparator();
    d->topAnchor->setVisible(false);
    d->scanProgressAction = menu->addAction(QStringLiteral("%1 ... 0 %").arg(trMain("Scanning plugins")));
    d->scanProgressAction->setEnabled(false);
    d->skipCheckAction = menu->addAction(QString());
    d->skipCheckAction->setVisible(false);
    connect(d->skipCheckAction, &QAction::triggered, d->slowChecks, &QVlorSlowCheckWatch::skip);
    menu->addSeparator();
    d->menuAnchor = menu->addSeparator();
    d->searchPluginsAction = menu->addAction(trMain("Search new plugins"));
    d->managePluginsAction = menu->addAction(trMain("Manage Plugins..."));
    d->buildLayoutMenu();
    menu->addSeparator();
    d->cancelScanAction = menu->addAction(trMain("Cancel Plugin Scanning"));
    connect(menu, &QObject::destroyed, this, [this] { d->forgetMenu(); });
    const QString category = QStringLiteral("Plugins");
    d->host->registerAction(d->managePluginsAction, QStringLiteral("Plugins_Manage"), category, QString());
    d->host->registerAction(d->searchPluginsAction, QStringLiteral("Plugins_SearchPlugins"), category, QString());
    d->host->registerAction(d->cancelScanAction, QStringLiteral("Plugins_CancelSearch"), category, QString());
    rebuildPluginsMenu();
}

void MenuController::rebuildPluginsMenu()
{
    if (d->rebuildPending)
        return;
    d->rebuildPending = true;
    // A build made at once in the meantime stands for this one.
    QTimer::singleShot(0, this, [this] {
        if (d->rebuildPending)
            rebuildPluginsMenuNow();
    });
}

void MenuController::rebuildPluginsMenuNow()
{
    createPluginsMenu();
    // Making the menu asked for a build; this is it.
    d->rebuildPending = false;
    if (!d->pluginsMenu)
        return;

    d->dropEntries();
    const QList<QVlorVst::Path> paths = vstManager() ? vstManager()->pathsCopy() : QList<QVlorVst::Path>();
    QVlorPluginPairs pairs;
    if (QVlorVst3::Manager* m = vst3Manager()) {
        d->catalog = m->catalogCopy();
        pairs.entries() = m->pairsEntriesCopy();
    } else {
        d->catalog = QVlorVst3::Catalog();
    }
    d->rows = QVlorUnifiedPluginsModel::composeRows(paths, d->catalog, pairs, {}, {}, {}, {}, true,
                                                    lv2Manager() ? lv2Manager()->catalogCopy() : QVlorLv2::Catalog());

    const UpmVst2Index vst2Index(paths);
    const QVlorAudio audio = d->host->currentAudio();
    const bool canApply = audio.isReady() && !audio.isEmpty() && audio.isEditable() && !audio.isRecording();

    QList<const UnifiedRow*> usable;
    for (const UnifiedRow& row : qAsConst(d->rows)) {
        if (row.isShellHeader || (!row.vst2.active && !row.vst3.active && !row.lv2.active) || !row.inUse())
            continue;
        const UnifiedFormatInfo& active = row.vst2.active ? row.vst2 : row.vst3.active ? row.vst3 : row.lv2;
        if (active.state == QLatin1String("missing") || active.state == QLatin1String("failed"))
            continue;
        usable << &row;
    }
    d->entries.reserve(usable.size() + 2 * QVlorPluginLibrary::kRecentLimit);
    d->canApply = canApply;
    d->buildGroups(this, usable, vst2Index, canApply);
    d->refreshTopSections(this, canApply);
}

void MenuController::axnPluginFxTriggered() { openEntry(qobject_cast<QAction*>(sender())); }

void MenuController::openEntry(QAction* action)
{
    if (!d->host)
        return;
    const QVlorAudio audio = d->host->currentAudio();
    if (audio.isEmpty() || !audio.isEditable() || !action || !d->entries.contains(action))
        return;
    const Data::PluginMenuEntry entry = d->entries.value(action);
    QMenu* main = d->host->mainMenu();
    QWidget* parent = main ? main->window() : nullptr;
    const QString informative = trMain("It may be a temporary problem that can be resolved by restarting vloraudio.");

    if (entry.format == QVlorAudioPlugins::Vst2Token()) {
        if (!entry.plugin.isValid() || !CheckBeforeOpening(parent, entry.plugin))
            return;
        auto* widget = new QVlorVst::Widget(audio);
        if (widget->loadPlugin(entry.plugin)) {
            d->host->presentEffectWidget(widget, action, entry.pairId, QVlorAudioPlugins::Vst2Token());
            QVlorPluginLibrary::instance()->noteUsed(entry.identities);
            return;
        }
        // A check that said why (it hung, it crashed) is told in its words.
        const QString why = QString::fromUtf8(AUDIOVST_GetLastFailure());
        QVlorMessageBox::windowModal(parent, QMessageBox::Critical, trMain("VST Load Error"),
                                     why.isEmpty()
                                         ? trMain("The VST %1 plug-in could not be loaded (or crash during this process).")
                                               .arg(entry.plugin.name())
                                         : trMain("The VST %1 plug-in could not be loaded: %2.").arg(entry.plugin.name(), why),
                                     QMessageBox::Ok, informative);
        delete widget;
        return;
    }

    if (entry.format == QVlorAudioPlugins::Lv2Token()) {
        if (openLv2(action, entry.cid, entry.pairId))
            QVlorPluginLibrary::instance()->noteUsed(entry.identities);
        return;
    }
    QVlorVst3::Plugin plugin;
    const QVlorVst3::CatalogClass* found = nullptr;
    for (const QVlorVst3::CatalogBundle& bundle : d->catalog.bundles())
        for (const QVlorVst3::CatalogClass& c : bundle.classes())
            if (!found && c.cid() == entry.cid) {
                found = &c;
                plugin = QVlorVst3::Plugin(bundle.path(), c.cid(), c.name(), c.vendor(), c.subCategories(), c.version());
            }
    if (!found || !plugin.isValid())
        return;
    if (found->state() == QVlorVst3::CatalogClass::Crashed) {
        const QMessageBox::StandardButton answer = QVlorMessageBox::windowModal(
            parent, QMessageBox::Warning, trMain("Question"),
            trMain("This plugin crashed vloraudio the last time it was opened. Open it anyway?"),
            QMessageBox::Yes | QMessageBox::No, QString(), QMessageBox::No);
        if (answer != QMessageBox::Yes)
            return;
        if (QVlorVst3::Manager* m = vst3Manager())
            m->clearCrashedState(entry.cid);
    }
    auto* widget = new QVlorVst3::Widget(audio);
    if (widget->loadPlugin(plugin)) {
        d->host->presentEffectWidget(widget, action, entry.pairId, QVlorAudioPlugins::Vst3Token());
        QVlorPluginLibrary::instance()->noteUsed(entry.identities);
        return;
    }
    QVlorMessageBox::windowModal(parent, QMessageBox::Critical, trMain("VST3 Load Error"),
                                 trMain("The VST3 %1 plug-in could not be loaded (or crash during this process).")
                                     .arg(plugin.name()),
                                 QMessageBox::Ok, informative);
    delete widget;
}

// An LV2 effect opens in this process, as the others' dialogs do; one that
// took the editor down before is opened only when the user says so.
bool MenuController::openLv2(QAction* action, const QString& uri, const QString& pairId)
{
    QMenu* main = d->host->mainMenu();
    QWidget* parent = main ? main->window() : nullptr;
    const QVlorLv2::Catalog catalog = lv2Manager() ? lv2Manager()->catalogCopy() : QVlorLv2::Catalog();
    const QVlorLv2::CatalogPlugin* plugin = catalog.findPlugin(uri);
    if (!plugin)
        return false;
    if (plugin->state == QVlorLv2::CatalogPlugin::Crashed &&
        QVlorMessageBox::windowModal(parent, QMessageBox::Warning, trMain("Question"),
                                     trMain("This plugin crashed vloraudio the last time it was opened. Open it anyway?"),
                                     QMessageBox::Yes | QMessageBox::No, QString(), QMessageBox::No) != QMessageBox::Yes)
        return false;
    auto* widget = new QVlorLv2::Widget(d->host->currentAudio());
    if (widget->loadPlugin(uri)) {
        d->host->presentEffectWidget(widget, action, pairId, QVlorAudioPlugins::Lv2Token());
        return true;
    }
    QVlorMessageBox::windowModal(parent, QMessageBox::Critical, trMain("LV2 Load Error"),
                                 trMain("The LV2 %1 plug-in could not be loaded: %2.").arg(plugin->name, widget->error()),
                                 QMessageBox::Ok);
    delete widget;
    return false;
}

bool MenuController::triggerPairAction(const QString& pairId)
{
    QAction* action = d->pairActions.value(pairId);
    if (!action)
        return false;
    action->activate(QAction::Trigger);
    return true;
}

QStringList MenuController::productIdentities(const QString& identity) const
{
    for (const UnifiedRow& row : qAsConst(d->rows)) {
        const QStringList ids = UpmRowIdentities(row);
        if (ids.contains(identity))
            return ids;
    }
    return {identity};
}

bool MenuController::formatAvailableForPair(const QString& pairId, const QString& format) const
{
    return QVlorUnifiedPluginsModel::formatAvailableForPair(d->rows, pairId, format);
}

} // namespace QVlorAudioPlugins
