// vlorfx open: one effect's widget in a window, as the editor's effect
// dialog shows it, on a display or off one for a picture.
#include "commands.h"
#include "lv2.h"
#include "QVlorPluginFormat.h"
#include "text.h"

#include "QVlorApplication.h"
#include "QVlorLv2_Widget.h"
#include "QVlorAudio.h"
#include "QVlorMixer.h"
#include "QVlorSetting.h"

#include "fxisolation.h"
#include "QVlorVst3_Catalog.h"
#include "QVlorVst3_Widget.h"
#include "QVlorVst_Widget.h"

#include "audiovst.h"
#include "vst3engine.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QPixmap>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QVBoxLayout>
#include <QWindow>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

const char* const kOpenHelp =
    "usage: vlorfx open [--cid CID] [--id N] [--generic] [--apart] [--theme light|dark] [--screenshot FILE] PLUGIN\n"
    "       vlorfx open --lv2 URI [--generic] [--apart] [--theme light|dark] [--screenshot FILE]\n\n"
    "Shows the effect in a window, as the editor's effect dialog does: the\n"
    "plugin's own editor when it has one and a display is there to show it,\n"
    "a panel of its parameters otherwise.\n\n"
    "  PLUGIN            a VST2 file (.so) or a VST3 bundle (.vst3)\n"
    "  --lv2 URI         the LV2 plugin of this URI, or of this name or bundle in the\n"
    "                    catalog (vlorfx probe --lv2 --all lists them)\n"
    "  --cid CID         the effect class of a bundle that holds more than one\n"
    "  --id N            the plugin of a VST2 shell file\n"
    "  --generic         the parameter panel even where the plugin has an editor\n"
    "  --apart           a VST3 or LV2 plugin in a host program of its own, its\n"
    "                    editor embedded from there\n"
    "  --theme T         light (the default) or dark\n"
    "  --screenshot FILE save a picture of the window once it has painted, and quit\n\n"
    "The plugin runs where the editor's dialog would run it: a VST2 plugin in\n"
    "its host program, a VST3 or LV2 one where vloraudio.plugins.isolation says\n"
    "(in this process until it has crashed once). Under xvfb-run\n"
    "the plugin's own editor is drawn on the virtual display.\n\n"
    "example:\n"
    "  xvfb-run -a vlorfx open --screenshot comp.png /usr/lib/vst3/ZamComp.vst3\n"
    "  xvfb-run -a vlorfx open --lv2 urn:zamaudio:ZamComp --screenshot comp.png\n";

int openError(const std::string& message)
{
    std::fprintf(stderr, "vlorfx open: %s (vlorfx open --help tells more)\n", message.c_str());
    return 2;
}


// A picture of the window with what the plugin drew into its own child
// window: a grab of the widget alone would show the widget's background there.
QPixmap picture(QWidget* window)
{
    if (QVlorApplication::platformName() == QLatin1String("xcb") && window->screen())
        return window->screen()->grabWindow(window->winId());
    return window->grab();
}

// The dialog's widget for the LV2 plugin of uri, loaded; null, having said why.
QVlorFxWidget* makeLv2Widget(const std::string& uri, const QVlorAudio& audio, QWidget* parent)
{
    auto* lv2 = new QVlorLv2::Widget(audio, parent);
    if (!lv2->loadPlugin(QString::fromStdString(uri))) {
        std::fprintf(stderr, "vlorfx open: %s did not start: %s\n", uri.c_str(), vlorfx::printable(lv2->error()).constData());
        delete lv2;
        return nullptr;
    }
    return lv2;
}

// The dialog's widget for the plugin at file (a VST3 class, cid or its only
// one, or a VST2 plugin, id in a shell), loaded; null, having said why.
QVlorFxWidget* makeEffectWidget(const std::string& file, std::string cid, int id, const QVlorAudio& audio,
                                QWidget* parent)
{
    const QString path = QString::fromStdString(file);
    if (QFileInfo(path).isDir() || path.endsWith(QLatin1String(".vst3"))) {
        // One listing gives both the class to open and its name and vendor.
        std::vector<Vst3ClassRecord> classes(64);
        const int n = VLORVST3_ListClasses(file.c_str(), classes.data(), int(classes.size()));
        if (cid.empty() && n != 1) {
            std::fprintf(stderr, "vlorfx open: %s\n",
                         n < 0 ? (file + " is not a VST3 bundle that loads here").c_str()
                               : (file + " needs --cid: it holds " + std::to_string(n) + " effects").c_str());
            return nullptr;
        }
        if (cid.empty())
            cid = classes[0].uid;
        QString name, vendor;
        for (int i = 0; i < n; ++i)
            if (QString::fromLatin1(classes[size_t(i)].uid).compare(QString::fromStdString(cid), Qt::CaseInsensitive) == 0) {
                name = QString::fromUtf8(classes[size_t(i)].name);
                vendor = QString::fromUtf8(classes[size_t(i)].vendor);
            }
        auto* vst3 = new QVlorVst3::Widget(audio, parent);
        if (!vst3->loadPlugin(QVlorVst3::Plugin(path, QString::fromStdString(cid).toUpper(), name, vendor, QString(),
                                                QString()))) {
            std::fprintf(stderr, "vlorfx open: %s (%s) did not start\n", file.c_str(), cid.c_str());
            return nullptr;
        }
        return vst3;
    } else {
        _VSTEFFECT* e = AUDIOVST_FindPluginEx(file.c_str(), id, false);
        if (!e || !AUDIOVST_IsEffect(e)) {
            std::fprintf(stderr, "vlorfx open: %s is no VST2 effect that can be used\n", file.c_str());
            return nullptr;
        }
        QVlorVst::Plugin plugin(path);
        plugin.setUniqueId(AUDIOVST_GetUniqueID(e));
        plugin.setName(QString::fromUtf8(AUDIOVST_GetEffectName(e)));
        plugin.setVendor(QString::fromUtf8(AUDIOVST_GetVendorString(e)));
        // The dialog runs the plugin here, as the editor's does.
        AUDIOVST_ForgetVlorVstPath();
        auto* vst2 = new QVlorVst::Widget(audio, parent);
        if (!vst2->loadPlugin(plugin)) {
            std::fprintf(stderr, "vlorfx open: %s did not start\n", file.c_str());
            return nullptr;
        }
        return vst2;
    }
}

} // namespace

int cmdOpen(int argc, char** argv)
{
    std::string file, cid, screenshot, lv2;
    int id = 0;
    bool generic = false;
    int theme = QVlorApplication::Light;
    for (int i = 0; i < argc; ++i) {
        const std::string a = argv[i];
        const bool hasValue = i + 1 < argc;
        if (a == "--help" || a == "-h") {
            std::fputs(kOpenHelp, stdout);
            return 0;
        }
        if (a == "--lv2" && hasValue) {
            lv2 = vlorfx::Lv2UriOf(argv[++i]);
        } else if (a == "--cid" && hasValue) {
            cid = argv[++i];
        } else if (a == "--id" && hasValue) {
            id = std::atoi(argv[++i]);
        } else if (a == "--generic") {
            generic = true;
        } else if (a == "--apart") {
            VLORFX_SetIsolationForThisRun("always");
        } else if (a == "--theme" && hasValue) {
            const std::string t = argv[++i];
            if (t != "light" && t != "dark")
                return openError("--theme is light or dark");
            theme = t == "dark" ? QVlorApplication::Dark : QVlorApplication::Light;
        } else if (a == "--screenshot" && hasValue) {
            screenshot = argv[++i];
        } else if (!a.empty() && a[0] == '-') {
            return openError("unknown option " + a);
        } else if (file.empty()) {
            file = a;
        } else {
            return openError("one plugin at a time");
        }
    }
    if (!lv2.empty() && !file.empty())
        return openError("one plugin at a time");
    if (file.empty() && lv2.empty())
        return openError("no plugin given");
    if (lv2.empty() && !QFileInfo::exists(QString::fromStdString(file)))
        return openError(file + " does not exist");
    QVlorApplication::applyTheme(theme);
    if (generic)
        QVlorSetting::global().setForThisRun(QLatin1String(QVlorAudioPlugins::kFallbackEditorSettingKey), true);

    QDialog dialog;
    auto* layout = new QVBoxLayout(&dialog);
    layout->setContentsMargins(0, 0, 0, 0);
    const QVlorAudio audio(QString(), 2, QVlorMixer::Mixer::instance().sampleRate(), 0);
    QVlorFxWidget* widget =
        lv2.empty() ? makeEffectWidget(file, cid, id, audio, &dialog) : makeLv2Widget(lv2, audio, &dialog);
    if (!widget)
        return 1;
    // What the plugin is was worth saying first; a window nobody sees is not.
    if (screenshot.empty())
        if (const int status = vlorfx::refuseWithoutDisplay("open", "--screenshot FILE"))
            return status;
    layout->addWidget(widget, 1);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, &dialog);
    buttons->setContentsMargins(12, 6, 12, 12);
    layout->addWidget(buttons);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    dialog.setWindowTitle(widget->windowTitle());
    // The plugin asks for its size; the dialog follows.
    QObject::connect(widget, &QVlorFxWidget::fxResized, &dialog, [widget, &dialog](int w, int h) {
        if (w <= 0 || h <= 0 || w > 8192 || h > 8192)
            return;
        widget->setFixedSize(w, h);
        dialog.adjustSize();
    });
    QObject::connect(widget, &QVlorFxWidget::fxCrashed, &dialog, &QDialog::reject);
    const QSize hint = widget->sizeHint();
    if (hint.width() > 0 && hint.height() > 0 && hint.width() <= 8192 && hint.height() <= 8192)
        widget->setMinimumSize(hint);
    dialog.show();

    int status = 0;
    if (!screenshot.empty()) {
        // The plugin paints from its idle calls: a few of them, then the picture.
        QTimer::singleShot(1500, &dialog, [&] {
            const QPixmap shot = picture(&dialog);
            if (shot.isNull() || !shot.save(QString::fromStdString(screenshot))) {
                std::fprintf(stderr, "vlorfx open: could not save %s\n", vlorfx::printable(QString::fromStdString(screenshot)).constData());
                status = 1;
            } else {
                std::printf("%s: %dx%d\n", screenshot.c_str(), shot.width(), shot.height());
            }
            dialog.accept();
        });
    }
    dialog.exec();
    // The plugin's editor closes before its instance ends.
    widget->hide();
    delete widget;
    return status;
}
