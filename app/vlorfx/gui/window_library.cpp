// The window as the library's host: its Plugins menu attached, scans shown
// in the status bar and the menu, new plugins counted, plugins' actions
// registered for shortcuts and Quick Open, the first start's offer.
#include "window.h"

#include "QVlorAccessible.h"

#include "../catalog.h"

#include "QVlorApplication.h"
#include "QVlorAudio.h"
#include "QVlorDialogs.h"
#include "QVlorFxWidget.h"
#include "QVlorPairKeybindings.h"
#include "QVlorPluginsMenu.h"
#include "QVlorPluginsPrefs.h"
#include "QVlorSetting.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst3_Widget.h"
#include "QVlorVst_Manager.h"
#include "QVlorVst_Widget.h"
#include "QVlorWidgets.h"

#include "audiofx.h"
#include "blthread.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDialogButtonBox>
#include <QEventLoop>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QKeySequenceEdit>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenuBar>
#include <QMouseEvent>
#include <QPainter>
#include <QProgressBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QStatusBar>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <QVBoxLayout>

#include <atomic>
#include <cmath>
namespace vlorfx {

namespace {

const char* const kFirstScanOffered = "vlorfx.gui.first_scan_offered";

} // namespace

void MainWindow::attachPluginsMenu()
{
    QVlorAudioPlugins::MenuController* controller = QVlorAudioPlugins::UI::menuController();
    if (!controller)
        return;
    // The controller rebuilds its menu on the managers' signals; only a menu
    // not made yet is built here.
    if (!controller->pluginsMenu())
        controller->rebuildPluginsMenuNow();
    QMenu* plugins = controller->pluginsMenu();
    if (!plugins || m_attached == plugins)
        return;
    // The library's menu, shown in the menu bar before Tools.
    const QList<QAction*> bar = menuBar()->actions();
    menuBar()->insertMenu(bar.value(bar.size() - 1), plugins);
    m_attached = plugins;
    QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager();
    QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
    showScanLine((vst2 && vst2->isScanning()) || (vst3 && vst3->isScanning()));
}

void MainWindow::libraryInstalled()
{
    attachPluginsMenu();
    onScanEnded();
    QVlorAudioPlugins::MenuController* controller = QVlorAudioPlugins::UI::menuController();
    QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager();
    QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
    if (controller && controller->searchPluginsAction()) {
        connect(controller->searchPluginsAction(), &QAction::triggered, this, [vst2, vst3] {
            if (vst2)
                vst2->updatePlugins(true, false);
            if (vst3)
                vst3->searchPlugins(true);
        });
        auto cancel = [vst2, vst3] {
            if (vst2)
                vst2->cancel();
            if (vst3)
                vst3->cancel();
        };
        connect(controller->cancelScanAction(), &QAction::triggered, this, cancel);
        connect(m_scanCancel, &QPushButton::clicked, this, cancel);
        connect(controller->managePluginsAction(), &QAction::triggered, this, &MainWindow::showPreferences);
    }
    if (vst2) {
        connect(vst2, &QVlorVst::Manager::progressScan, this, &MainWindow::onScanProgress);
        connect(vst2, &QVlorVst::Manager::endScan, this, &MainWindow::onScanEnded);
    }
    if (vst3) {
        connect(vst3, &QVlorVst3::Manager::progressScan, this, &MainWindow::onScanProgress);
        connect(vst3, &QVlorVst3::Manager::endScan, this, &MainWindow::onScanEnded);
    }
    m_saveFailures->watch(vst2, vst3);
}

void MainWindow::onScanProgress(int value, int total)
{
    m_scanBar->setRange(0, std::max(1, total));
    m_scanBar->setValue(value);
    m_scanBar->show();
    m_scanCancel->show();
    QVlorAudioPlugins::MenuController* controller = QVlorAudioPlugins::UI::menuController();
    if (controller && controller->scanProgressAction())
        controller->scanProgressAction()->setText(
            QStringLiteral("%1 ... %2 %").arg(tr("Scanning plugins")).arg(total > 0 ? value * 100 / total : 0));
    showScanLine(true);
    // Each tenth told, where the focus is left alone.
    QVlorAccessible::announce(this, tr("Scanning plugins: %1 %").arg(total > 0 ? value * 10 / total * 10 : 0));
}

// The menu's progress line and its Cancel are there while a scan runs, and
// only then.
void MainWindow::showScanLine(bool running)
{
    QVlorAudioPlugins::MenuController* controller = QVlorAudioPlugins::UI::menuController();
    if (!controller)
        return;
    for (QAction* action : {controller->scanProgressAction(), controller->cancelScanAction()})
        if (action)
            action->setVisible(running);
}

void MainWindow::onScanEnded()
{
    QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager();
    QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
    if ((vst2 && vst2->isScanning()) || (vst3 && vst3->isScanning()))
        return;
    m_scanBar->hide();
    m_scanCancel->hide();
    attachPluginsMenu();
    showScanLine(false);
    QVlorAccessible::announce(this, tr("Plugin scan finished"));
}

void MainWindow::greet()
{
    QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
    QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager();
    const QString crashed = vst3 ? vst3->consumeCrashSentinel() : QString();
    if (!crashed.isEmpty())
        QVlorMessageBox::warning(this, tr("Plugin crashed"),
                                 tr("vlorfx closed while opening %1 last time. The Plugins menu will ask before "
                                    "opening it again.")
                                     .arg(crashed));
    QVlorSetting& settings = QVlorSetting::global();
    const bool nothingKnown = (!vst2 || vst2->pathsCopy().isEmpty()) && (!vst3 || vst3->catalogCopy().bundles().isEmpty());
    if (!nothingKnown || settings.getBool(QLatin1String(kFirstScanOffered), false))
        return;
    settings.change(QLatin1String(kFirstScanOffered), true);
    if (QVlorMessageBox::question(this, tr("Plugins"),
                                  tr("No plugins are known yet. Look for them in the standard folders now?")) !=
        QMessageBox::Yes)
        return;
    if (vst2)
        for (const QString& folder : standardFolders())
            vst2->addPath(folder);
    if (QVlorAudioPlugins::MenuController* controller = QVlorAudioPlugins::UI::menuController())
        if (controller->searchPluginsAction())
            controller->searchPluginsAction()->trigger();
}

void MainWindow::announceNewPlugins(const QList<QString>& names)
{
    // The names are the library's references to plugins, not words for a
    // person: the count is told, and the plugin manager shows which.
    if (names.isEmpty())
        return;
    m_newPlugins->setText(names.size() == 1 ? tr("1 new plugin found") : tr("%1 new plugins found").arg(names.size()));
    m_newPlugins->show();
    m_showNewPlugins->show();
}

void MainWindow::showNewPlugins()
{
    m_newPlugins->hide();
    m_showNewPlugins->hide();
    showPreferences();
    if (auto* page = findChild<QVlorPluginsPrefs*>())
        page->showStatus(QVlorPluginsPrefs::ProxyFilter::StatusNew);
}

void MainWindow::registerAction(QAction* action, const QString& id, const QString&, const QString&)
{
    m_ids.insert(action, id);
    const QString stored = QVlorSetting::global().getString(QVlorAudioPlugins::ShortcutSettingKey(id));
    if (!stored.isEmpty())
        action->setShortcut(QKeySequence(stored));
    // A shortcut works with the menu closed when the window holds its action;
    // only bound ones need it, and a menu of thousands builds faster without.
    if (!action->shortcut().isEmpty())
        addAction(action);
}

void MainWindow::registerQuickOpen(int, QAction* action, const QString&, const QString& title,
                                   const QString& description, const QString&, const QString&)
{
    m_quick.insert(action, QuickEntry{action, title, description});
}

void MainWindow::unregisterAction(QAction* action)
{
    m_ids.remove(action);
    removeAction(action);
}

void MainWindow::unregisterQuickOpen(QAction* action) { m_quick.remove(action); }

} // namespace vlorfx
