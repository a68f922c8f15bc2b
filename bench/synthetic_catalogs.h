#pragma once
// Synthetic catalogs of both formats and a pair store, as files the managers
// load: kPlugins plugins a format, in 40 vendors, and kPairs pairs.
#include "QVlorPluginPairs.h"
#include "QVlorVst3_Catalog.h"
#include "QVlorVst_Path.h"
#include "QVlorVst_Plugin.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QString>

namespace bench {

constexpr int kPlugins = 5000;
constexpr int kPairs = 1000;

inline QString cidOf(int i) { return QStringLiteral("%1").arg(i, 32, 16, QLatin1Char('0')).toUpper(); }

// A VST2 catalog file of these paths.
inline void writeVst2Paths(const QString& file, const QJsonArray& paths)
{
    QDir().mkpath(QFileInfo(file).absolutePath());
    QSaveFile f(file);
    f.open(QIODevice::WriteOnly);
    f.write(QJsonDocument(QJsonObject{{QStringLiteral("paths"), paths}}).toJson());
    f.commit();
}

// With root, the plugins' files are made there (empty), so that they exist.
inline void writeVst2Catalog(const QString& file, const QString& root = QStringLiteral("/synthetic"))
{
    QJsonArray paths;
    for (int p = 0; p < 10; ++p) {
        const QString folder = QStringLiteral("%1/vst%2").arg(root).arg(p);
        if (root != QLatin1String("/synthetic"))
            QDir().mkpath(folder);
        QVlorVst::Path path(folder, QVlorVst::SystemPath);
        path.setSearched(true);
        path.setEnabled(true);
        for (int i = 0; i < kPlugins / 10; ++i) {
            const int n = p * (kPlugins / 10) + i;
            const QString fileName = QStringLiteral("%1/plugin%2.so").arg(folder).arg(n);
            if (root != QLatin1String("/synthetic")) {
                QFile empty(fileName);
                empty.open(QIODevice::WriteOnly);
            }
            QVlorVst::Plugin plugin(fileName);
            plugin.setName(QStringLiteral("Plugin %1").arg(n));
            plugin.setVendor(QStringLiteral("Vendor %1").arg(n % 40));
            plugin.setUniqueId(1000 + n);
            plugin.setEnabled(true);
            plugin.setExists(true);
            path.appendPlugin(plugin);
        }
        paths.append(path.toJsonObject());
    }
    writeVst2Paths(file, paths);
}

inline void writeVst3Files(const QString& catalogFile, const QString& pairsFile)
{
    QVlorVst3::Catalog catalog;
    for (int i = 0; i < kPlugins; ++i) {
        QVlorVst3::CatalogBundle b;
        b.setPath(QStringLiteral("/synthetic/vst3/Plugin%1.vst3").arg(i));
        b.setProbed(true);
        QVlorVst3::CatalogClass c(cidOf(i), QStringLiteral("Plugin %1").arg(i), QStringLiteral("Vendor %1").arg(i % 40),
                                  QStringLiteral("Fx"), QStringLiteral("1.0"));
        c.setEnabled(true);
        c.setState(QVlorVst3::CatalogClass::Enabled);
        b.classes().append(c);
        catalog.bundles().append(b);
    }
    catalog.save(catalogFile);
    QVlorPluginPairs pairs;
    for (int i = 0; i < kPairs; ++i)
        pairs.addPair(1000 + i, cidOf(i), QStringLiteral("heuristic"), QStringLiteral("vst3"));
    pairs.save(pairsFile);
}

} // namespace bench
