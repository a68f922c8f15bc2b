// The readers of what VST3 bundles and host programs hand us, and of our own
// files that a crash or a user may have mangled, on whatever the fuzzer makes.
// One source, one target per reader (FUZZ_READER).
#include "QVlorPluginPairs.h"
#include "QVlorVst3_Catalog.h"
#include "QVlorVst3_Catalog_p.h"
#include "QVlorVst3_ModuleInfo.h"
#include "QVlorVst3_Probe_p.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// The input as a file, without touching the disk.
QString inputFile(const uint8_t* data, size_t size)
{
    static const int fd = memfd_create("input", 0);
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != ssize_t(size))
        return QString();
    return QStringLiteral("/proc/self/fd/%1").arg(fd);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
#if FUZZ_READER == 1
    // What the scan does with a probe's output, through the very functions it calls.
    QJsonObject reply;
    if (QVlorVst3::ParseHostReply(bytes, &reply)) {
        QSet<QString> taken;
        for (const QVlorVst3::CatalogClass& k : QVlorVst3::ReplyClasses(reply, &taken))
            (void)k.toJsonObject();
    }
#elif FUZZ_READER == 2
    // The direct reading takes only what QJsonDocument takes, and reads it the same.
    QList<QVlorVst3::CatalogBundle> direct, viaDocument;
    QStringList directVendors, viaDocumentVendors;
    if (QVlorVst3::ReadCatalogText(bytes.constData(), bytes.constData() + bytes.size(), &direct, &directVendors)) {
        QJsonParseError error;
        const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
        if (error.error != QJsonParseError::NoError || !doc.isObject()) {
            std::fprintf(stderr, "the direct reading took a text QJsonDocument refuses\n");
            std::abort();
        }
        QVlorVst3::CatalogFromJson(doc.object(), &viaDocument, &viaDocumentVendors);
        auto persisted = [](const QList<QVlorVst3::CatalogBundle>& bundles, const QStringList& vendors) {
            QJsonArray list;
            for (const QVlorVst3::CatalogBundle& b : bundles)
                list.append(b.toJsonObject());
            return QJsonDocument(QJsonObject{{QStringLiteral("b"), list},
                                             {QStringLiteral("v"), QJsonArray::fromStringList(vendors)}})
                .toJson(QJsonDocument::Compact);
        };
        if (persisted(direct, directVendors) != persisted(viaDocument, viaDocumentVendors)) {
            std::fprintf(stderr, "the two readings differ\n");
            std::abort();
        }
    }
    QVlorVst3::Catalog catalog;
    if (catalog.load(inputFile(data, size))) {
        for (const QVlorVst3::CatalogBundle& b : catalog.bundles()) {
            (void)b.isOutdated();
            for (const QVlorVst3::CatalogClass& c : b.classes())
                (void)catalog.findClass(c.cid());
        }
        catalog.save(QStringLiteral("/dev/null"));
    }
#elif FUZZ_READER == 3
    QVlorPluginPairs pairs;
    if (pairs.load(inputFile(data, size))) {
        for (const QVlorPluginPairs::Entry& e : QList<QVlorPluginPairs::Entry>(pairs.entries())) {
            pairs.findByVst2(e.vst2);
            pairs.rejoinPair(e.vst2, e.vst3, e.activeFormat);
            pairs.splitPair(e.pairId, QStringLiteral("vst3"));
        }
        (void)PluginPairEffectBlobExtract(bytes, nullptr, nullptr);
    }
#elif FUZZ_READER == 4
    // A bundle whose module information is the input.
    static const QString bundle = [] {
        const QString dir = QDir::tempPath() + QStringLiteral("/vlorfuzz-%1.vst3").arg(getpid());
        QDir().mkpath(dir + QStringLiteral("/Contents/Resources"));
        return dir;
    }();
    const QString file = bundle + QStringLiteral("/Contents/Resources/moduleinfo.json");
    QFile::remove(file);
    QFile::link(inputFile(data, size), file);
    QList<QVlorVst3::ModuleInfo::ClassEntry> classes;
    QList<QVlorVst3::ModuleInfo::CompatEntry> compat;
    QString vendor;
    QVlorVst3::ModuleInfo::read(bundle, &classes, &compat, &vendor);
#endif
    return 0;
}
