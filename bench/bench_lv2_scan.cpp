// The LV2 scan against the metadata floor: `lv2ls -n` (lilv reading every
// plugin's data and naming them) next to the manager's first scan, every
// plugin checked in a child, and its rescan of the unchanged folders, which
// starts no child and reads no Turtle. One run, the same machine, the same
// folders (LV2_PATH or the standard ones).
//
//   build/bin/bench_lv2_scan
#include "QVlorLv2_Manager.h"

#include "bench_common.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <cstdio>

using namespace bench;

namespace {

double seconds(const std::function<void()>& job)
{
    const auto t0 = Clock::now();
    job();
    return micros(Clock::now() - t0) / 1e6;
}

void scanAndWait(QVlorLv2::Manager& m)
{
    m.searchPlugins(false);
    QMetaObject::invokeMethod(&m, [] {}, Qt::BlockingQueuedConnection);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (std::system("command -v lv2ls >/dev/null 2>&1") != 0) {
        std::fprintf(stderr, "bench_lv2_scan: needs lv2ls (package lilv-utils)\n");
        return 1;
    }
    std::vector<double> floor;
    for (int round = 0; round < 3; ++round)
        floor.push_back(seconds([] { (void)!std::system("lv2ls -n >/dev/null 2>&1"); }));
    QTemporaryDir dir;
    QVlorLv2::Manager m(nullptr, dir.filePath(QStringLiteral("catalog_lv2.json")));
    const double first = seconds([&m] { scanAndWait(m); });
    const QVlorLv2::Catalog c = m.catalogCopy();
    std::vector<double> rescans;
    for (int round = 0; round < 5; ++round)
        rescans.push_back(seconds([&m] { scanAndWait(m); }));
    const double lv2ls = median(floor), rescan = median(rescans);
    std::printf("%d bundles, %d plugins in %s\n\n", int(c.bundles.size()), c.pluginCount(),
                qPrintable(m.searchPaths().join(QLatin1Char(':'))));
    std::printf("%-44s %9.3f s\n", "lv2ls -n (the metadata floor)", lv2ls);
    std::printf("%-44s %9.3f s %8.3fx\n", "first scan, every plugin checked in a child", first, first / lv2ls);
    std::printf("%-44s %9.3f s %8.3fx\n", "rescan, nothing changed", rescan, rescan / lv2ls);
    m.aboutToQuit();
    return 0;
}
