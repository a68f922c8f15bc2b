// A plugin whose name is one letter under 10,000 combining marks, in the
// plugin manager's tree among 50 plain ones: a paint of the tree with the
// name as the page shows it (cut for display), against the same tree showing
// the whole name, and against the one-frame budget of 16 ms.
#include "QVlorUnifiedPluginsModel.h"
#include "bench_common.h"

#include <QApplication>
#include <QStandardItemModel>
#include <QTreeView>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr double kFrameMs = 16.0;

UnifiedRow rowNamed(const QString& name)
{
    UnifiedRow r;
    r.name = name;
    r.vendor = QStringLiteral("Vendor");
    r.vendorKey = QStringLiteral("vendor");
    r.vst2.identity = QStringLiteral("vstid-1");
    r.vst2.active = true;
    r.vst2.enabled = true;
    return r;
}

// Median of paints of the whole view, in ms.
double paintMs(QTreeView* view)
{
    std::vector<double> runs;
    for (int i = 0; i < 7; ++i) {
        const auto start = bench::Clock::now();
        view->grab();
        runs.push_back(bench::micros(bench::Clock::now() - start) / 1000.0);
    }
    return bench::median(runs);
}

} // namespace

int main(int argc, char** argv)
{
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication app(argc, argv);
    const QString hostile = QStringLiteral("a") + QString(10000, QChar(0x0301));
    QList<UnifiedRow> rows;
    for (int i = 0; i < 50; ++i)
        rows << rowNamed(QStringLiteral("Plugin %1").arg(i));
    rows << rowNamed(hostile);

    QVlorUnifiedPluginsModel model;
    model.setRows(rows);
    QTreeView cut;
    cut.setModel(&model);
    cut.expandAll();
    cut.resize(720, 1400);

    // The same tree showing each name whole, as it did.
    QStandardItemModel whole;
    auto* vendor = new QStandardItem(QStringLiteral("Vendor"));
    for (const UnifiedRow& r : rows)
        vendor->appendRow(new QStandardItem(r.name));
    whole.appendRow(vendor);
    QTreeView full;
    full.setModel(&whole);
    full.expandAll();
    full.resize(720, 1400);

    const double plainMs = [&] {
        QVlorUnifiedPluginsModel m;
        m.setRows(rows.mid(0, 50));
        QTreeView v;
        v.setModel(&m);
        v.expandAll();
        v.resize(720, 1400);
        return paintMs(&v);
    }();
    const double cutMs = paintMs(&cut);
    const double wholeMs = paintMs(&full);
    std::printf("a paint of the tree with a name of 10,000 combining marks: %.1f ms cut for display, %.1f ms whole "
                "(%.0fx); %.1f ms without that name; %.2f of the %.0f ms frame\n",
                cutMs, wholeMs, wholeMs / cutMs, plainMs, cutMs / kFrameMs, kFrameMs);
    return 0;
}
