// A rebuild of the plugin manager's tree: composeRows and setRows over 5000
// VST2 plugins, 5000 VST3 classes and 1000 pairs (the synthetic catalogs of
// bench_copies), against the 50 ms under which a rebuild shows as no stall;
// then with 5000 LV2 plugins, 1000 of them joined to the pairs as families of
// three by the matcher (timed too, as at the end of an LV2 scan).
#include "QVlorPluginFormat.h"
#include "QVlorPluginMatcher.h"
#include "QVlorUnifiedPluginsModel.h"
#include "bench_common.h"

#include <QCoreApplication>

#include <cstdio>

namespace {

constexpr int kPlugins = 5000;
constexpr int kPairs = 1000;
constexpr double kTargetMs = 50.0;

QString cidOf(int i) { return QStringLiteral("%1").arg(i, 32, 16, QLatin1Char('0')).toUpper(); }

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QList<QVlorVst::Path> paths;
    for (int p = 0; p < 10; ++p) {
        QVlorVst::Path path(QStringLiteral("/synthetic/vst%1").arg(p), QVlorVst::SystemPath);
        path.setSearched(true);
        path.setEnabled(true);
        for (int i = 0; i < kPlugins / 10; ++i) {
            const int n = p * (kPlugins / 10) + i;
            QVlorVst::Plugin plugin(QStringLiteral("/synthetic/vst%1/plugin%2.so").arg(p).arg(n));
            plugin.setExists(true);
            plugin.setName(QStringLiteral("Plugin %1").arg(n));
            plugin.setVendor(QStringLiteral("Vendor %1").arg(n % 40));
            plugin.setUniqueId(1000 + n);
            plugin.setEnabled(true);
            path.appendPlugin(plugin);
        }
        paths << path;
    }
    QVlorVst3::Catalog catalog;
    for (int i = 0; i < kPlugins; ++i) {
        QVlorVst3::CatalogBundle b;
        b.setPath(QStringLiteral("/synthetic/vst3/Plugin%1.vst3").arg(i));
        b.setProbed(true);
        b.setEnabled(true);
        QVlorVst3::CatalogClass c(cidOf(i), QStringLiteral("Plugin %1").arg(i), QStringLiteral("Vendor %1").arg(i % 40),
                                  QStringLiteral("Fx"), QStringLiteral("1.0"));
        c.setState(QVlorVst3::CatalogClass::Enabled);
        c.setEnabled(true);
        b.classes() << c;
        catalog.bundles() << b;
    }
    QVlorPluginPairs pairs;
    for (int i = 0; i < kPairs; ++i)
        pairs.addPair(1000 + i, cidOf(i), QStringLiteral("heuristic"), QStringLiteral("vst3"));

    auto measure = [&](const QVlorLv2::Catalog& lv2, const char* what) {
        std::vector<double> compose, set, total;
        QVlorUnifiedPluginsModel model;
        int rowCount = 0;
        for (int round = 0; round < 15; ++round) {
            const auto t0 = bench::Clock::now();
            const QList<UnifiedRow> rows = QVlorUnifiedPluginsModel::composeRows(
                paths, catalog, pairs, {QStringLiteral("/synthetic/vst3")}, {}, {}, {}, true, lv2);
            const auto t1 = bench::Clock::now();
            model.setRows(rows);
            const auto t2 = bench::Clock::now();
            compose.push_back(bench::micros(t1 - t0) / 1000);
            set.push_back(bench::micros(t2 - t1) / 1000);
            total.push_back(bench::micros(t2 - t0) / 1000);
            rowCount = int(rows.size());
        }
        std::printf("%s: %d rows (median of 15)\n", what, rowCount);
        std::printf("  composeRows %.1f ms, setRows %.1f ms, together %.1f ms: %.2f of the %.0f ms target\n",
                    bench::median(compose), bench::median(set), bench::median(total), bench::median(total) / kTargetMs,
                    kTargetMs);
        return bench::median(total);
    };
    std::printf("%d VST2 plugins, %d VST3 classes, %d pairs\n", kPlugins, kPlugins, kPairs);
    const double without = measure(QVlorLv2::Catalog(), "without LV2");

    // LV2 plugins: the first 1000 of the pairs' products, the rest of their own.
    QVlorLv2::CatalogBundle bundle;
    bundle.path = QStringLiteral("/synthetic/lv2/all.lv2");
    QList<QVlorPluginMatcher::Lv2Item> lv2Items;
    for (int i = 0; i < kPlugins; ++i) {
        QVlorLv2::CatalogPlugin p;
        p.uri = QStringLiteral("urn:synthetic:%1").arg(i);
        p.name = i < kPairs ? QStringLiteral("Plugin %1").arg(i) : QStringLiteral("Lv2 Only %1").arg(i);
        p.maker = QStringLiteral("Vendor %1").arg(i % 40);
        bundle.plugins << p;
        lv2Items.append({p.uri, p.name, p.maker, true});
    }
    QVlorLv2::Catalog lv2;
    lv2.bundles << bundle;
    QList<QVlorPluginMatcher::Vst2Item> vst2Items;
    for (const QVlorVst::Path& path : paths)
        for (const QVlorVst::Plugin& p : path.plugins())
            vst2Items.append({p.uniqueId(), p.name(), p.vendor(), true});
    QList<QVlorPluginMatcher::Vst3Item> vst3Items;
    for (const QVlorVst3::CatalogBundle& b : catalog.bundles())
        for (const QVlorVst3::CatalogClass& c : b.classes())
            vst3Items.append({c.cid(), c.name(), c.vendor(), {}, true});
    const QStringList order = QVlorAudioPlugins::ParseFormatOrder(QString());
    std::vector<double> matching;
    for (int round = 0; round < 5; ++round) {
        QVlorPluginPairs trial;
        trial.entries() = pairs.entries();
        const auto t0 = bench::Clock::now();
        QVlorPluginMatcher::matchLv2(vst2Items, vst3Items, lv2Items, trial, order);
        matching.push_back(bench::micros(bench::Clock::now() - t0) / 1000);
        if (round == 4)
            pairs.entries() = trial.entries();
    }
    int families = 0;
    for (const QVlorPluginPairs::Entry& e : pairs.entries())
        families += e.formCount() == 3 ? 1 : 0;
    std::printf("matchLv2 of %d LV2 plugins: %.1f ms (median of 5), %d families of three: %.2f of the %.0f ms target\n",
                kPlugins, bench::median(matching), families, bench::median(matching) / kTargetMs, kTargetMs);
    const double with = measure(lv2, "with LV2");
    std::printf("rows with LV2 / rows without: %.2fx (for %d more plugins)\n", with / without, kPlugins);
    return 0;
}
