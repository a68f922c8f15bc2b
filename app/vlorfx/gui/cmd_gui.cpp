// vlorfx gui: the reference editor with windows. The library comes up as in
// any editor: Initialize, UI::install with this window as its Host, the
// catalogs loaded; the window supplies only the Host and the editor's basics.
#include "window.h"
#include "QVlorPluginFormat.h"

#include "../commands.h"
#include "../text.h"

#include "QVlorApplication.h"
#include "QVlorAudioPlugins.h"
#include "QVlorPluginsMenu.h"
#include "QVlorSetting.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QIcon>
#include <QMenu>
#include <QMenuBar>
#include <QPainter>
#include <QPixmap>
#include <QScreen>
#include <QTemporaryDir>
#include <QTimer>
#include <QWindow>

#include <sndfile.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace {

const char* const kGuiHelp =
    "usage: vlorfx gui [--theme light|dark] [--screenshot DIR] [AUDIO_FILE]\n\n"
    "The reference editor: open an audio file, select part of it with the mouse,\n"
    "pick an effect from the Plugins menu, try it in its dialog and Apply it (Edit >\n"
    "Undo takes it back); Tools has Quick Open (Ctrl+K), the shortcuts of every\n"
    "command and plugin, and the plugin manager in Preferences.\n\n"
    "  --theme T          light (the default) or dark\n"
    "  --startup-report   print how long the start took to the first paint, and quit\n"
    "  --screenshot DIR   start on a generated sound, save pictures of the window,\n"
    "                     the Plugins menu, the preferences and two effect dialogs\n"
    "                     (a plugin's own editor needs a display: xvfb-run), and quit\n";

// A second of a chord, so that an effect shows in the waveform.
QString generatedAudio(const QString& folder)
{
    const QString file = QDir(folder).filePath(QStringLiteral("chord.wav"));
    SF_INFO info{};
    info.channels = 2;
    info.samplerate = 44100;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* f = sf_open(QFile::encodeName(file).constData(), SFM_WRITE, &info);
    if (!f)
        return QString();
    std::vector<float> v(size_t(2 * 88200));
    for (size_t i = 0; i < v.size() / 2; ++i) {
        const double t = double(i) / 44100.0;
        const double envelope = std::exp(-1.5 * t);
        const float s = float(0.25 * envelope *
                              (std::sin(2 * M_PI * 220 * t) + std::sin(2 * M_PI * 277.2 * t) + std::sin(2 * M_PI * 329.6 * t)));
        v[2 * i] = s;
        v[2 * i + 1] = s * 0.8f;
    }
    sf_writef_float(f, v.data(), sf_count_t(v.size() / 2));
    sf_close(f);
    return file;
}

QPixmap pictureOf(QWidget* window)
{
    if (QGuiApplication::platformName() == QLatin1String("xcb") && window->screen())
        return window->screen()->grabWindow(window->winId());
    return window->grab();
}

QAction* entryNamed(QMenu* menu, const QString& prefix)
{
    for (QAction* a : menu->actions()) {
        if (a->menu())
            if (QAction* inner = entryNamed(a->menu(), prefix))
                return inner;
        if (!a->menu() && a->text().startsWith(prefix))
            return a;
    }
    return nullptr;
}

// Saves the pictures one after the other, each once its window has painted.
class Screenshots : public QObject {
public:
    Screenshots(vlorfx::MainWindow* window, const QString& folder) : m_window(window), m_folder(folder) {}

    void start()
    {
        m_steps = {
            [this] { save(m_window, "gui-main"); },
            [this] {
                QMenu* plugins = QAudioMenu();
                if (!plugins)
                    return;
                // The menu where the menu bar opens it, drawn over the window.
                QMenuBar* bar = m_window->menuBar();
                plugins->popup(bar->mapToGlobal(bar->actionGeometry(plugins->menuAction()).bottomLeft()));
                // One group's entries open beside it: zam's where they are
                // installed, the reverbs where the menu is by category.
                QMenu* maker = nullptr;
                for (QAction* a : plugins->actions())
                    if (a->menu() && a->menu()->objectName() != QLatin1String("pluginsLayoutMenu") &&
                        (!maker || a->text() == QLatin1String("Damien Zammit") || a->text() == QLatin1String("Reverb")))
                        maker = a->menu();
                if (maker) {
                    plugins->setActiveAction(maker->menuAction());
                    maker->popup(plugins->mapToGlobal(plugins->actionGeometry(maker->menuAction()).topRight()));
                }
                QTimer::singleShot(300, this, [this, plugins, maker] {
                    QPixmap shot = pictureOf(m_window);
                    QPainter painter(&shot);
                    painter.drawPixmap(m_window->mapFromGlobal(plugins->pos()), plugins->grab());
                    if (maker)
                        painter.drawPixmap(m_window->mapFromGlobal(maker->pos()), maker->grab());
                    painter.end();
                    if (maker)
                        maker->close();
                    write(shot, "gui-plugins-menu");
                    plugins->close();
                });
            },
            [this] {
                m_window->showPreferences();
                QTimer::singleShot(400, this, [this] {
                    if (auto* prefs = m_window->findChild<QDialog*>(QStringLiteral("preferencesDialog"))) {
                        save(prefs, "gui-preferences");
                        prefs->hide();
                    }
                });
            },
            [this] { openEffect(false, "gui-effect-own-editor"); },
            [this] { openEffect(true, "gui-effect-panel"); },
            [] { qApp->quit(); },
        };
        next();
    }

private:
    QMenu* QAudioMenu() const
    {
        QVlorAudioPlugins::MenuController* controller = QVlorAudioPlugins::UI::menuController();
        return controller ? controller->pluginsMenu() : nullptr;
    }
    void next()
    {
        if (m_step >= m_steps.size())
            return;
        const auto step = m_steps.at(m_step++);
        QTimer::singleShot(m_step == 1 ? 600 : 1600, this, [this, step] {
            step();
            next();
        });
    }
    void openEffect(bool panel, const char* name)
    {
        QVlorSetting::global().setForThisRun(QLatin1String(QVlorAudioPlugins::kFallbackEditorSettingKey), panel);
        QMenu* plugins = QAudioMenu();
        QAction* zam = plugins ? entryNamed(plugins, QStringLiteral("ZamComp ")) : nullptr;
        if (!zam && plugins)
            zam = entryNamed(plugins, QString());
        if (!zam) {
            std::fprintf(stderr, "vlorfx gui: the Plugins menu has no effect to show\n");
            return;
        }
        zam->trigger();
        QTimer::singleShot(1200, this, [this, name, panel] {
            if (vlorfx::EffectDialog* dialog = m_window->effectDialog()) {
                save(dialog, name);
                dialog->close();
            }
            QVlorSetting::global().setForThisRun(QLatin1String(QVlorAudioPlugins::kFallbackEditorSettingKey),
                                                 QVariant());
        });
    }
    void save(QWidget* widget, const char* name) { write(pictureOf(widget), name); }
    void write(const QPixmap& shot, const char* name)
    {
        const QString file = QDir(m_folder).filePath(QLatin1String(name) + QStringLiteral(".png"));
        if (shot.isNull() || !shot.save(file))
            std::fprintf(stderr, "vlorfx gui: could not save %s\n", vlorfx::printable(file).constData());
        else
            std::printf("%s: %dx%d\n", qPrintable(file), shot.width(), shot.height());
    }

    vlorfx::MainWindow* m_window;
    QString m_folder;
    std::vector<std::function<void()>> m_steps;
    size_t m_step = 0;
};

} // namespace

// Prints how long the start took, to the first paint of the window, and quits there.
class StartupReport : public QObject {
public:
    StartupReport(const QElapsedTimer& clock, double libraryMs) : m_clock(clock), m_libraryMs(libraryMs) {}

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::Paint && !m_done) {
            m_done = true;
            const double paintMs = double(m_clock.nsecsElapsed()) / 1e6;
            QTimer::singleShot(0, qApp, [this, paintMs] {
                QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager();
                QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
                const bool scanning = (vst2 && vst2->isScanning()) || (vst3 && vst3->isScanning());
                std::printf("library: %.1f ms\nfirst paint: %.1f ms\nchildren: %d\nscanning: %d\n", m_libraryMs, paintMs,
                            childProcesses(), scanning ? 1 : 0);
                qApp->quit();
            });
        }
        return false;
    }

private:
    static int childProcesses()
    {
        int n = 0;
        for (const QString& task : QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
            QFile children(QStringLiteral("/proc/self/task/%1/children").arg(task));
            if (children.open(QIODevice::ReadOnly))
                n += int(QString::fromLatin1(children.readAll()).split(QLatin1Char(' '), Qt::SkipEmptyParts).size());
        }
        return n;
    }

    QElapsedTimer m_clock;
    double m_libraryMs;
    bool m_done = false;
};

int runGui(int argc, char** argv)
{
    QElapsedTimer clock;
    clock.start();
    bool startupReport = false;
    std::string screenshots, file;
    int theme = QVlorApplication::Light;
    for (int i = 2; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--help" || a == "-h") {
            std::fputs(kGuiHelp, stdout);
            return 0;
        }
        if (a == "--theme" && i + 1 < argc) {
            const std::string t = argv[++i];
            if (t != "light" && t != "dark") {
                std::fprintf(stderr, "vlorfx gui: --theme is light or dark\n");
                return 2;
            }
            theme = t == "dark" ? QVlorApplication::Dark : QVlorApplication::Light;
        } else if (a == "--screenshot" && i + 1 < argc) {
            screenshots = argv[++i];
        } else if (a == "--startup-report") {
            startupReport = true;
        } else if (!a.empty() && a[0] == '-') {
            std::fprintf(stderr, "vlorfx gui: unknown option %s (vlorfx gui --help tells more)\n", a.c_str());
            return 2;
        } else if (file.empty()) {
            file = a;
        } else {
            std::fprintf(stderr, "vlorfx gui: one audio file at a time\n");
            return 2;
        }
    }
    // Without a display the window still works, off screen, for pictures
    // and the start's report; a display that is set but gone is none.
    if (!vlorfx::displayReachable())
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QVlorApplication app(argc, argv);
    if (screenshots.empty() && !startupReport)
        if (const int status = vlorfx::refuseWithoutDisplay("gui", "--screenshot DIR"))
            return status;
    QVlorApplication::applyTheme(theme);
    // The desktop matches the windows to the installed entry, and its icon,
    // by this name; run from the build tree, the icon comes from within.
    QGuiApplication::setDesktopFileName(QStringLiteral("vlorfx"));
    const QIcon builtIn(QStringLiteral(":/vlorfx/vlorfx.svg"));
    QGuiApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("vlorfx"), builtIn));
    // The library's own part of the start, apart from the application's and the window's.
    QElapsedTimer library;
    library.start();
    QVlorAudioPlugins::Initialize();
    qint64 libraryNs = library.nsecsElapsed();
    int status = 0;
    {
        vlorfx::MainWindow window;
        library.restart();
        QVlorAudioPlugins::UI::install(&window);
        if (QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager()) {
            vst2->loadCatalog();
            // The unchanged scan publishes the loaded catalog, as at the editor's start.
            vst2->updatePlugins(false, false);
        }
        window.libraryInstalled();
        libraryNs += library.nsecsElapsed();
        const double libraryMs = double(libraryNs) / 1e6;
        StartupReport report(clock, libraryMs);
        if (startupReport)
            window.installEventFilter(&report);
        QTemporaryDir generated;
        QString audio = QString::fromStdString(file);
        if (!screenshots.empty()) {
            QDir().mkpath(QString::fromStdString(screenshots));
            audio = generatedAudio(generated.path());
            // Pictures are not a first start: no question to answer.
            QVlorSetting::global().change(QStringLiteral("vlorfx.gui.first_scan_offered"), true);
        }
        if (!audio.isEmpty() && !window.openFile(audio))
            status = 1;
        window.show();
        if (!startupReport)
            QTimer::singleShot(0, &window, [&window] { window.greet(); });
        Screenshots shots(&window, QString::fromStdString(screenshots));
        if (!screenshots.empty())
            shots.start();
        const int code = app.exec();
        status = status ? status : code;
        QVlorAudioPlugins::AboutToQuit();
        QVlorAudioPlugins::UI::uninstall(&window);
    }
    QVlorAudioPlugins::Finalize();
    return status;
}
