// vlorfx prefs: the plugin manager page in a window, on the machine's real
// catalogs, as the editor's preferences dialog shows it.
#include "catalog.h"
#include "commands.h"
#include "text.h"

#include "QVlorApplication.h"
#include "QVlorAudioPlugins.h"
#include "QVlorPluginsPrefs.h"
#include "QVlorLv2_Manager.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QContextMenuEvent>
#include <QItemSelectionModel>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QTreeView>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLineEdit>
#include <QPixmap>
#include <QTimer>
#include <QVBoxLayout>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

namespace {

const char* const kPrefsHelp =
    "usage: vlorfx prefs [--theme light|dark] [--filter TEXT]\n"
    "                    [--status all|new|failed|enabled|vst2|vst3|lv2]\n"
    "                    [--rescan] [--size WxH] [--context-menu NAME] [--focus NAME]\n"
    "                    [--search-paths]\n"
    "                    [--screenshot FILE]\n\n"
    "Shows the plugin manager page on this machine's catalogs: one tree of both\n"
    "formats by vendor, check boxes that switch plugins, vendors and shells on\n"
    "and off, the format badges of each product (a click on the other badge of a\n"
    "pair makes that format the active one), the state of each plugin, a filter\n"
    "and the rescan.\n\n"
    "  --theme T          light (the default) or dark\n"
    "  --filter TEXT      type TEXT into the filter\n"
    "  --status S         pick the status filter (or the format filter: vst2, vst3, lv2)\n"
    "  --rescan           start \"Rescan Plugins\" at once\n"
    "  --size WxH         the window's size (default 760x620)\n"
    "  --context-menu NAME  select the product NAME and open its context menu\n"
    "  --focus NAME       put the keyboard on the product NAME, as Tab and the arrows do\n"
    "  --search-paths     open \"Manage Search Paths...\" (with --screenshot, a\n"
    "                     picture of that dialog; closing it applies its edits)\n"
    "  --screenshot FILE  save a picture once the tree is built (during the scan\n"
    "                     with --rescan), and quit\n\n"
    "QT_SCALE_FACTOR=2 draws it at twice the pixel ratio. Under xvfb-run or on a\n"
    "desktop the window stays until it is closed.\n\n"
    "example:\n"
    "  vlorfx prefs --theme dark --filter zam --screenshot prefs.png\n";

int prefsError(const std::string& message)
{
    std::fprintf(stderr, "vlorfx prefs: %s (vlorfx prefs --help tells more)\n", message.c_str());
    return 2;
}

QModelIndex findRow(const QAbstractItemModel* model, const QString& name, const QModelIndex& parent = QModelIndex())
{
    for (int i = 0; i < model->rowCount(parent); ++i) {
        const QModelIndex child = model->index(i, 0, parent);
        if (child.data().toString() == name)
            return child;
        if (const QModelIndex inner = findRow(model, name, child); inner.isValid())
            return inner;
    }
    return QModelIndex();
}

// What the command line asked for.
struct PrefsOptions {
    std::string screenshot, filter, contextRow, focusRow;
    bool searchPaths = false;
    int status = -1;
    bool rescan = false;
    bool help = false;
    int theme = QVlorApplication::Light;
    QSize size{760, 620};
};

// 0 when the options are read (or --help was printed), else the exit status.
int readPrefsOptions(int argc, char** argv, PrefsOptions* o)
{
    for (int i = 0; i < argc; ++i) {
        const std::string a = argv[i];
        const bool hasValue = i + 1 < argc;
        if (a == "--help" || a == "-h") {
            std::fputs(kPrefsHelp, stdout);
            o->help = true;
            return 0;
        }
        if (a == "--theme" && hasValue) {
            const std::string t = argv[++i];
            if (t != "light" && t != "dark")
                return prefsError("--theme is light or dark");
            o->theme = t == "dark" ? QVlorApplication::Dark : QVlorApplication::Light;
        } else if (a == "--filter" && hasValue) {
            o->filter = argv[++i];
        } else if (a == "--status" && hasValue) {
            const std::string s = argv[++i];
            const char* const names[] = {"all", "new", "failed", "enabled", "vst2", "vst3", "lv2"};
            for (int k = 0; k < 7; ++k)
                if (s == names[k])
                    o->status = k;
            if (o->status < 0)
                return prefsError("--status is all, new, failed, enabled, vst2, vst3 or lv2");
        } else if (a == "--rescan") {
            o->rescan = true;
        } else if (a == "--size" && hasValue) {
            int w = 0, h = 0;
            if (std::sscanf(argv[++i], "%dx%d", &w, &h) != 2 || w < 200 || h < 150 || w > 8192 || h > 8192)
                return prefsError("--size is WIDTHxHEIGHT, at least 200x150");
            o->size = QSize(w, h);
        } else if (a == "--context-menu" && hasValue) {
            o->contextRow = argv[++i];
        } else if (a == "--focus" && hasValue) {
            o->focusRow = argv[++i];
        } else if (a == "--search-paths") {
            o->searchPaths = true;
        } else if (a == "--screenshot" && hasValue) {
            o->screenshot = argv[++i];
        } else {
            return prefsError("unknown argument " + a);
        }
    }
    return 0;
}

// Selects the product's row once the tree is built and opens its context
// menu as a right click does; with picture, saves the page with the menu
// where it opened and prints what the menu offers.
void openRowMenu(QDialog& dialog, QTreeView* tree, const std::string& product, bool picture,
                 const std::function<void(const QPixmap&)>& save, int& result)
{
    // The timers outlive this call: what they use is copied, but the dialog
    // and the result, which outlive the timers.
    QTimer::singleShot(100, &dialog, [&dialog, &result, tree, product, picture, save] {
        const QModelIndex row = findRow(tree->model(), QString::fromStdString(product));
        if (!row.isValid()) {
            std::fprintf(stderr, "vlorfx prefs: no row named %s\n", product.c_str());
            result = 1;
            dialog.reject();
            return;
        }
        tree->scrollTo(row);
        tree->selectionModel()->select(row, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        const QRect rect = tree->visualRect(row);
        if (picture)
            QTimer::singleShot(200, &dialog, [&dialog, &result, save] {
                auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
                if (!menu) {
                    std::fprintf(stderr, "vlorfx prefs: the row has no menu\n");
                    result = 1;
                    dialog.reject();
                    return;
                }
                // The page with the menu where it opened.
                QPixmap shot = dialog.grab();
                QPainter painter(&shot);
                painter.drawPixmap(dialog.mapFromGlobal(menu->pos()), menu->grab());
                painter.end();
                save(shot);
                // What it offers, in words, for whoever reads the output rather than the picture.
                QStringList items;
                for (QAction* action : menu->actions())
                    if (!action->isSeparator() && action->isVisible())
                        items << action->text();
                std::printf("menu: %s\n", vlorfx::printable(items.join(QStringLiteral(" | "))).constData());
                menu->close();
                dialog.accept();
            });
        QContextMenuEvent event(QContextMenuEvent::Mouse, rect.center(), tree->viewport()->mapToGlobal(rect.center()));
        QCoreApplication::sendEvent(tree->viewport(), &event);
    });
}

} // namespace

// The picture shows the scan under way: taken at its first step past the
// start, or after a minute at the latest.
static void takeDuringScan(QDialog* dialog, const std::function<void()>& take)
{
    auto taken = std::make_shared<bool>(false);
    auto onProgress = [dialog, take, taken](int value, int) {
        if (*taken || value < 1)
            return;
        *taken = true;
        QTimer::singleShot(0, dialog, take);
    };
    if (QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager())
        QObject::connect(vst2, &QVlorVst::Manager::progressScan, dialog, onProgress, Qt::QueuedConnection);
    if (QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager())
        QObject::connect(vst3, &QVlorVst3::Manager::progressScan, dialog, onProgress, Qt::QueuedConnection);
    QTimer::singleShot(60000, dialog, [take, taken] {
        if (!*taken)
            take();
    });
}

// The keyboard on a product's row, as Tab and the arrows put it there.
static void putKeysOn(QDialog* dialog, QTreeView* tree, const std::string& product)
{
    const QModelIndex row = findRow(tree->model(), QString::fromStdString(product));
    if (!row.isValid())
        std::fprintf(stderr, "vlorfx prefs: no product %s\n", product.c_str());
    dialog->activateWindow();
    tree->setFocus(Qt::TabFocusReason);
    tree->setCurrentIndex(row);
}

int cmdPrefs(int argc, char** argv)
{
    PrefsOptions options;
    if (const int bad = readPrefsOptions(argc, argv, &options))
        return bad;
    if (options.help)
        return 0;
    const std::string& screenshot = options.screenshot;
    const std::string& contextRow = options.contextRow;
    const bool rescan = options.rescan;
    if (screenshot.empty())
        if (const int status = vlorfx::refuseWithoutDisplay("prefs", "--screenshot FILE"))
            return status;
    QVlorApplication::applyTheme(options.theme);
    // A loaded VST2 catalog reaches the copies through the scan that follows
    // it, as at the editor's start.
    if (QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager())
        vst2->updatePlugins(false, false);
    vlorfx::settle();

    QDialog dialog;
    dialog.setWindowTitle(QStringLiteral("Preferences"));
    auto* layout = new QVBoxLayout(&dialog);
    auto* page = new QVlorPluginsPrefs(
        {QVlorAudioPlugins::vstManager(), QVlorAudioPlugins::vst3Manager(), QVlorAudioPlugins::lv2Manager()}, &dialog);
    layout->addWidget(page, 1);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, &dialog);
    layout->addWidget(buttons);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    page->syncPreferences();
    if (auto* box = page->findChild<QVlorBoxEditor*>(QStringLiteral("filterBox"))) {
        if (options.status >= 0)
            box->comboBox()->setCurrentIndex(box->comboBox()->findData(options.status));
        box->lineEdit()->setText(QString::fromStdString(options.filter));
    }
    dialog.resize(options.size);
    dialog.show();
    if (rescan)
        page->rescanAll();

    int result = 0;
    const QString file = QString::fromStdString(screenshot);
    auto save = [&](const QPixmap& shot) {
        if (shot.isNull() || !shot.save(file)) {
            std::fprintf(stderr, "vlorfx prefs: could not save %s\n", vlorfx::printable(file).constData());
            result = 1;
        } else {
            std::printf("%s: %dx%d\n", screenshot.c_str(), shot.width(), shot.height());
        }
    };
    auto* tree = page->findChild<QTreeView*>(QStringLiteral("vstPluginsTreeView"));
    if (!contextRow.empty()) {
        openRowMenu(dialog, tree, contextRow, !screenshot.empty(), save, result);
    } else if (options.searchPaths) {
        auto* manage = page->findChild<QPushButton*>(QStringLiteral("managePathsBtn"));
        QTimer::singleShot(100, &dialog, [&, manage] {
            if (!screenshot.empty())
                QTimer::singleShot(300, &dialog, [&] {
                    if (QWidget* paths = QApplication::activeModalWidget(); paths && paths != &dialog) {
                        save(paths->grab());
                        paths->close();
                    }
                    dialog.accept();
                });
            manage->click();
        });
    } else if (!screenshot.empty()) {
        auto take = [&] {
            save(dialog.grab());
            dialog.accept();
        };
        if (rescan) {
            takeDuringScan(&dialog, take);
        } else {
            // The tree is built at the first turn of the event loop; a few more paint it.
            QTimer::singleShot(300, &dialog, take);
        }
    }
    if (!options.focusRow.empty()) {
        QTimer::singleShot(150, &dialog, [&, tree] { putKeysOn(&dialog, tree, options.focusRow); });
    }
    dialog.exec();
    delete page;
    if (rescan)
        vlorfx::settle();
    return result;
}
