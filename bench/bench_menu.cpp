// A rebuild of the Plugins menu over 5000 plugins of each format and 1000
// pairs (the synthetic catalogs of bench_copies), against the 50 ms under
// which opening the menu right after a scan shows no stall.
#include "QVlorApplication.h"
#include "QVlorAudio.h"
#include "QVlorAudioPlugins.h"
#include "QVlorPluginsMenu.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"
#include "bench_common.h"
#include "synthetic_library.h"

#include <QAction>
#include <QMenu>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr double kTargetMs = 50.0;


int countEntries(const QMenu* menu)
{
    int n = 0;
    for (QAction* a : menu->actions())
        n += a->menu() ? countEntries(a->menu()) : 0;
    return n + (menu->title() != QStringLiteral("Plugins") ? int(menu->actions().size()) : 0);
}

} // namespace

int main(int argc, char** argv)
{
    QTemporaryDir dir;
    setenv("VLOR_DATA_PATH", qPrintable(dir.path()), 1);
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QVlorApplication app(argc, argv);
    bench::BenchHost host;
    host.withMenu = true;
    bench::installOverSyntheticCatalogs(dir, &host);
    QVlorAudioPlugins::MenuController* controller = QVlorAudioPlugins::UI::menuController();

    std::vector<double> runs;
    for (int i = 0; i < 12; ++i) {
        const auto start = bench::Clock::now();
        controller->rebuildPluginsMenuNow();
        runs.push_back(bench::micros(bench::Clock::now() - start) / 1000.0);
    }
    const int entries = countEntries(controller->pluginsMenu());
    const double ms = bench::median(runs);
    std::printf("Plugins menu over %d VST2 plugins, %d VST3 classes and %d pairs: %d entries in %d vendor menus\n",
                bench::kPlugins, bench::kPlugins, bench::kPairs, entries,
                int(controller->pluginsMenu()->actions().size()) - 7);
    std::printf("rebuild: median %.1f ms, worst %.1f ms; %.2f of the %.0f ms target\n", ms,
                *std::max_element(runs.begin(), runs.end()), ms / kTargetMs, kTargetMs);
    bench::uninstall(&host);
    return 0;
}
