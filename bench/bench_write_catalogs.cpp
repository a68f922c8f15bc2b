// Writes the synthetic catalogs (5000 plugins of each format, 1000 pairs) into
// a data folder, for the benchmarks that start whole programs on them.
#include "synthetic_catalogs.h"

#include <QCoreApplication>
#include <QDir>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: bench_write_catalogs DATA_DIR\n");
        return 2;
    }
    const QDir dir(QString::fromLocal8Bit(argv[1]));
    dir.mkpath(QStringLiteral("."));
    bench::writeVst2Catalog(dir.filePath(QStringLiteral("vstxml/catalog_v2.json")), dir.filePath(QStringLiteral("plugins")));
    bench::writeVst3Files(dir.filePath(QStringLiteral("catalog_vst3.json")), dir.filePath(QStringLiteral("plugin_pairs.json")));
    return 0;
}
