// The effect dialogs: time from loadPlugin to the widget's first paint for
// each zam plugin in each format (own editors when a display is there: run
// under xvfb-run; the panels otherwise), and the VST3 panel's build for a
// class with 500 parameters, against the 100 ms under which a dialog opens
// with no wait a person notices.
#include "QVlorApplication.h"
#include "QVlorAudio.h"
#include "QVlorVst3_Widget.h"
#include "QVlorVst_Widget.h"
#include "audiovst.h"
#include "bench_common.h"
#include "vst3engine.h"

#include <QDir>
#include <QElapsedTimer>
#include <QEvent>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr double kPanelTargetMs = 100.0;

class PaintWatch : public QObject {
public:
    bool painted = false;
    bool eventFilter(QObject*, QEvent* e) override
    {
        if (e->type() == QEvent::Paint)
            painted = true;
        return false;
    }
};

template <typename W, typename P> double untilPainted(const P& plugin, bool* ok)
{
    const QVlorAudio audio(QString(), 2, 44100, 44100);
    QElapsedTimer t;
    t.start();
    W w(audio);
    PaintWatch watch;
    w.installEventFilter(&watch);
    *ok = w.loadPlugin(plugin);
    if (!*ok)
        return 0;
    w.show();
    while (!watch.painted && t.elapsed() < 10000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    const double ms = double(t.nsecsElapsed()) / 1e6;
    w.hide();
    return ms;
}

} // namespace

int main(int argc, char** argv)
{
    if (!std::getenv("DISPLAY"))
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QVlorApplication app(argc, argv);
    AUDIOVST_Initialize();
    AUDIOVST_ForgetVlorVstPath(); // the dialog runs plugins in the editor's process
    VLORVST3_Initialize();
    const bool own = QVlorVst::Widget::CanEmbedEditors();
    std::printf("loadPlugin to first paint (%s), ms:\n", own ? "own editors, X display" : "panels, offscreen");
    std::printf("  %-16s %8s %8s\n", "plugin", "VST2", "VST3");
    const QStringList bundles = QDir(QStringLiteral("/usr/lib/vst3")).entryList({QStringLiteral("Za*.vst3")});
    int measured = 0;
    for (const QString& b : bundles) {
        const QString name = b.chopped(5);
        const QString vst3 = QStringLiteral("/usr/lib/vst3/") + b;
        const QString vst2 = QStringLiteral("/usr/lib/vst/%1-vst.so").arg(name);
        double ms2 = -1, ms3 = -1;
        bool ok = false;
        if (QFileInfo::exists(vst2)) {
            _VSTEFFECT* e = AUDIOVST_FindPluginEx(vst2.toUtf8().constData(), 0, false);
            if (e && AUDIOVST_IsEffect(e)) {
                QVlorVst::Plugin p(vst2);
                p.setUniqueId(AUDIOVST_GetUniqueID(e));
                ms2 = untilPainted<QVlorVst::Widget>(p, &ok);
                if (!ok)
                    ms2 = -1;
            }
        }
        Vst3ClassRecord r;
        if (VLORVST3_ListClasses(vst3.toUtf8().constData(), &r, 1) == 1) {
            ms3 = untilPainted<QVlorVst3::Widget>(
                QVlorVst3::Plugin(vst3, QString::fromLatin1(r.uid), name, QString(), QString(), QString()), &ok);
            if (!ok)
                ms3 = -1;
        }
        std::printf("  %-16s %8.1f %8.1f\n", qPrintable(name), ms2, ms3);
        ++measured;
    }
    if (!measured)
        std::printf("  (no zam plugins installed)\n");

    // The panel alone: a class with 500 parameters, made twice (the first
    // pays the bundle's load) and the second timed.
    setenv("VLOR_FIXTURE_PARAMS", "500", 1);
    const QString fixture = QString::fromStdString(bench::binDir()) + QStringLiteral("/../fixtures/vst3/vlor-vst3-effects.vst3");
    const QVlorVst3::Plugin panel(fixture, QStringLiteral("51000000000000000000000000000004"), QStringLiteral("Panel"),
                                  QString(), QString(), QString());
    bool ok = false;
    untilPainted<QVlorVst3::Widget>(panel, &ok);
    std::vector<double> runs;
    for (int i = 0; i < 5 && ok; ++i)
        runs.push_back(untilPainted<QVlorVst3::Widget>(panel, &ok));
    if (!ok) {
        std::printf("500-parameter panel: the fixture bundle did not load (%s)\n", qPrintable(fixture));
        return 1;
    }
    const double ms = bench::median(runs);
    std::printf("500-parameter VST3 panel (450 rows), loadPlugin to first paint: %.1f ms, %.2f of the %.0f ms target\n",
                ms, ms / kPanelTargetMs, kPanelTargetMs);
    return 0;
}
