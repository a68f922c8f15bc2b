// "Add Plugins" on the plugin manager page over N new VST2 plugins (1,000,
// 5,000, 20,000): the time the page's own thread spends from the action to
// its return, as rows a second, against the target of 20,000 rows within a
// second. Each N runs in a process of its own, over a catalog of its own.
#include "QVlorApplication.h"
#include "QVlorAudioPlugins.h"
#include "QVlorPluginsPrefs.h"
#include "QVlorUnifiedPluginsModel.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"
#include "bench_common.h"
#include "synthetic_catalogs.h"
#include "synthetic_library.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// N plugins found by a scan and not added yet, in ten folders.
void writeNewPlugins(const QString& file, const QString& root, int n)
{
    QJsonArray paths;
    for (int k = 0; k < 10; ++k) {
        const QString folder = QStringLiteral("%1/vst%2").arg(root).arg(k);
        QDir().mkpath(folder);
        QVlorVst::Path path(folder, QVlorVst::UserPath);
        path.setSearched(true);
        path.setEnabled(true);
        for (int i = k; i < n; i += 10) {
            const QString fileName = QStringLiteral("%1/new%2.so").arg(folder).arg(i);
            QFile empty(fileName); // there, as a scan found it
            empty.open(QIODevice::WriteOnly);
            QVlorVst::Plugin plugin(fileName);
            plugin.setNew(true);
            plugin.setExists(true);
            path.appendPlugin(plugin);
        }
        paths.append(path.toJsonObject());
    }
    bench::writeVst2Paths(file, paths);
}

int runOne(int argc, char** argv, int n)
{
    QTemporaryDir dir;
    setenv("VLOR_DATA_PATH", qPrintable(dir.path()), 1);
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QVlorApplication app(argc, argv);
    writeNewPlugins(dir.filePath(QStringLiteral("vstxml/catalog_v2.json")), dir.filePath(QStringLiteral("plugins")), n);
    bench::BenchHost host;
    QVlorAudioPlugins::Initialize();
    QVlorAudioPlugins::UI::install(&host);
    QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager();
    vst2->loadCatalog();
    // A loaded catalog reaches the copies through the scan that follows it, as at the editor's start.
    vst2->updatePlugins(false, false);
    QMetaObject::invokeMethod(vst2, [] {}, Qt::BlockingQueuedConnection);
    int added = 0;
    double ms = 0;
    {
        QVlorPluginsPrefs page;
        const QList<UnifiedRow> all = QVlorUnifiedPluginsModel::composeRows(
            vst2->pathsCopy(), QVlorVst3::Catalog(), QVlorPluginPairs(), {}, {}, {}, {}, true);
        QList<UnifiedRow> rows;
        for (const UnifiedRow& r : all)
            if (r.newSection == UpmNewSectionVst2 && !r.isNewPathHeader)
                rows << r;
        added = int(rows.size());
        const auto start = bench::Clock::now();
        page.addPlugins(rows);
        ms = bench::micros(bench::Clock::now() - start) / 1000.0;
        vst2->cancel(); // the checks themselves are not what is measured
    }
    std::printf("  %6d rows: %8.1f ms, %9.0f rows/s\n", added, ms, added / (ms / 1000.0));
    bench::uninstall(&host);
    return added == n ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 2 && !std::strcmp(argv[1], "--rows"))
        return runOne(argc, argv, std::atoi(argv[2]));
    std::printf("Add Plugins over new VST2 plugins (the page's thread, from the action to its return):\n");
    int status = 0;
    for (int n : {1000, 5000, 20000}) {
        const std::string cmd = "'" + bench::selfPath() + "' --rows " + std::to_string(n);
        status |= std::system(cmd.c_str());
    }
    std::printf("target: 20000 rows within 1000 ms (20000 rows/s)\n");
    return status ? 1 : 0;
}
