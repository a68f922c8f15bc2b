// An editor that a test kills right after the user's choices: starts the
// library as the editor does, and makes the choices from this thread, as the
// plugin manager page would, through the managers' posted calls.
// usage: vlor_choice_child scan VST2FOLDER VST3ROOT    scans, disables the second VST2 plugin, quits
//        vlor_choice_child choose VST2FOLDER VST3ROOT  disables the first VST2 plugin, enables the
//                                                      second again, disables every VST3 class, says
//                                                      "chosen" and waits to be killed
#include "QVlorAudioPlugins.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"
#include "testhost.h"

#include <QCoreApplication>
#include <QMetaObject>

#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

void settle(QObject* manager)
{
    for (int i = 0; i < 3; ++i)
        QMetaObject::invokeMethod(manager, [] {}, Qt::BlockingQueuedConnection);
}

QList<QVlorVst::Plugin> vst2Plugins(QVlorVst::Manager* m)
{
    QList<QVlorVst::Plugin> out;
    for (const QVlorVst::Path& p : m->pathsCopy())
        for (const QVlorVst::Plugin& plugin : p.plugins())
            out << plugin;
    std::sort(out.begin(), out.end(),
              [](const QVlorVst::Plugin& a, const QVlorVst::Plugin& b) { return a.filename() < b.filename(); });
    return out;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
        return 2;
    QCoreApplication app(argc, argv);
    QVlorAudioPlugins::Initialize();
    vlortest::TestHost host;
    QVlorAudioPlugins::UI::install(&host);
    QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager();
    QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
    vst2->loadCatalog();
    vst2->addPath(QString::fromUtf8(argv[2]));
    vst2->updatePlugins(true, false);
    vst3->setSearchPathsForTesting({QString::fromUtf8(argv[3])});
    vst3->searchPlugins(false);
    settle(vst2);
    settle(vst3);
    const QList<QVlorVst::Plugin> plugins = vst2Plugins(vst2);
    const QVlorVst::Path path = vst2->pathsCopy().value(0);
    if (plugins.size() < 2)
        return 3;
    if (!std::strcmp(argv[1], "scan")) {
        vst2->enableNewPlugins();
        vst3->enableNewPlugins();
        settle(vst2);
        settle(vst3);
        QVlorVst::Plugin second = vst2Plugins(vst2).value(1);
        vst2->disablePlugin(second, path);
        settle(vst2);
        QVlorAudioPlugins::AboutToQuit();
        QVlorAudioPlugins::UI::uninstall(&host);
        return 0;
    }
    QVlorVst::Plugin first = plugins[0];
    QVlorVst::Plugin second = plugins[1];
    vst2->disablePlugin(first, path);
    vst2->enablePlugin(second, path);
    const QVlorVst3::Catalog catalog = vst3->catalogCopy();
    for (const QVlorVst3::CatalogBundle& b : catalog.bundles())
        for (const QVlorVst3::CatalogClass& c : b.classes())
            vst3->disablePlugin(c.cid());
    std::printf("chosen\n");
    std::fflush(stdout);
    for (;;)
        pause();
}
