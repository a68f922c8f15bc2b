// What a reader on the user interface's thread pays for a copy of a manager's
// catalog: pathsCopy (VST2), catalogCopy and pairsEntriesCopy (VST3), with a
// synthetic catalog of 5000 plugins in each format and 1000 pairs. The copies
// are taken while the managers' threads publish again and again, as during a
// scan, so that the lock is contended as it is in use.
#include "QVlorPluginPairs.h"
#include "QVlorVst3_Manager.h"
#include "synthetic_catalogs.h"
#include "QVlorVst_Manager.h"
#include "bench_common.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QTemporaryDir>

#include <atomic>
#include <cstdio>
#include <functional>
#include <thread>

using namespace bench;

namespace {

constexpr int kRounds = 2000;

struct Figures {
    double median = 0, worst = 0;
};

Figures measure(const std::function<int()>& copy)
{
    std::vector<double> t;
    t.reserve(kRounds);
    int sink = 0;
    for (int i = 0; i < kRounds; ++i) {
        const auto a = bench::Clock::now();
        sink += copy();
        t.push_back(bench::micros(bench::Clock::now() - a));
    }
    if (sink < 0)
        std::printf("%d\n", sink);
    Figures f;
    f.median = bench::median(t);
    f.worst = *std::max_element(t.begin(), t.end());
    return f;
}

} // namespace

int main(int argc, char** argv)
{
    QTemporaryDir dir;
    setenv("VLOR_DATA_PATH", qPrintable(dir.path()), 1);
    QCoreApplication app(argc, argv);
    writeVst2Catalog(dir.filePath(QStringLiteral("vstxml/catalog_v2.json")));
    writeVst3Files(dir.filePath(QStringLiteral("catalog_vst3.json")), dir.filePath(QStringLiteral("plugin_pairs.json")));

    QVlorVst::Manager vst2;
    vst2.loadCatalog();
    QVlorVst3::Manager vst3(nullptr, dir.filePath(QStringLiteral("catalog_vst3.json")),
                            dir.filePath(QStringLiteral("plugin_pairs.json")), 0, QString());
    // A load is published by the next operation that changes something.
    vst2.markPluginCrashed(1000);
    QMetaObject::invokeMethod(&vst2, [] {}, Qt::BlockingQueuedConnection);

    // The managers publish without pause meanwhile, as a scan does.
    std::atomic<bool> stop{false};
    std::thread churn([&] {
        int n = 0;
        while (!stop.load()) {
            vst3.setVendorEnabled(QStringLiteral("vendor %1").arg(n % 40), (n / 40) % 2 == 1);
            vst2.markPluginCrashed(1000 + (n % kPlugins));
            ++n;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });

    const Figures paths = measure([&] { return int(vst2.pathsCopy().size()); });
    const Figures catalog = measure([&] { return int(vst3.catalogCopy().bundles().size()); });
    const Figures pairs = measure([&] { return int(vst3.pairsEntriesCopy().size()); });
    stop = true;
    churn.join();

    int vst2Plugins = 0;
    for (const QVlorVst::Path& p : vst2.pathsCopy())
        vst2Plugins += int(p.plugins().size());
    std::printf("synthetic catalogs: %d VST2 plugins, %d VST3 classes, %d pairs; %d copies each, managers publishing\n",
                vst2Plugins, int(vst3.catalogCopy().bundles().size()), int(vst3.pairsEntriesCopy().size()), kRounds);
    std::printf("%-18s %10s %10s\n", "copy", "median us", "worst us");
    std::printf("%-18s %10.2f %10.1f\n", "pathsCopy", paths.median, paths.worst);
    std::printf("%-18s %10.2f %10.1f\n", "catalogCopy", catalog.median, catalog.worst);
    std::printf("%-18s %10.2f %10.1f\n", "pairsEntriesCopy", pairs.median, pairs.worst);
    std::printf("budget: 1000 us each\n");
    return 0;
}
