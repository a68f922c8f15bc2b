// vlorfx scan and vlorfx list: the VST2 catalog as the editor keeps it.
#include "catalog.h"
#include "commands.h"

#include "QVlorApplication.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonArray>
#include <QJsonObject>

#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

const char* const kScanHelp =
    "usage: vlorfx scan [--vst2-path DIR]... [--no-vst3]\n"
    "\n"
    "Loads the catalog, adds the folders given (or, when none is given and the\n"
    "catalog has no folders yet, the standard VST2 folders that exist), finds\n"
    "the plugins in them, checks every new one in the host program, saves the\n"
    "catalog and prints a summary. Known plugins are not loaded again.\n";

const char* const kListHelp =
    "usage: vlorfx list [--json]\n"
    "\n"
    "Prints the catalog as a table, or as one JSON object whose \"vst2\" member\n"
    "is the catalog as the catalog file holds it.\n";

QString catalogPath()
{
    return QDir(QVlorApplication::applicationDataLocation()).filePath(QStringLiteral("vstxml/catalog_v2.json"));
}

} // namespace

int cmdScan(int argc, char** argv)
{
    QStringList folders;
    for (int i = 0; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            std::fputs(kScanHelp, stdout);
            return 0;
        } else if (!std::strcmp(argv[i], "--vst2-path") && i + 1 < argc) {
            const QString dir = QString::fromLocal8Bit(argv[++i]);
            if (!QDir(dir).exists()) {
                std::fprintf(stderr, "vlorfx scan: no such folder: %s\n", argv[i]);
                return 1;
            }
            folders << QDir(dir).absolutePath();
        } else if (!std::strcmp(argv[i], "--no-vst3")) {
            // VST3 bundles are not scanned by this version.
        } else {
            std::fprintf(stderr, "vlorfx scan: unknown argument '%s'\n\n%s", argv[i], kScanHelp);
            return 2;
        }
    }
    QVlorVst::Manager manager;
    vlorfx::loadCatalog(manager);
    if (folders.isEmpty() && vlorfx::catalogFolders(manager).isEmpty())
        folders = vlorfx::standardFolders();
    const vlorfx::ScanSummary s = vlorfx::scan(manager, folders, isatty(STDERR_FILENO));
    vlorfx::finish(manager);
    std::printf("folders: %d\nplugins found: %d\nenabled: %d\nfailed: %d\n", s.folders, s.found, s.enabled, s.failed);
    std::printf("shells: %d\n", int(s.shells.size()));
    for (const QString& shell : s.shells)
        std::printf("  %s\n", qPrintable(shell));
    std::printf("time: %.1f ms\n", s.milliseconds);
    if (!QFile::exists(catalogPath()) && s.folders > 0) {
        std::fprintf(stderr, "vlorfx scan: the catalog could not be saved in %s\n", qPrintable(catalogPath()));
        return 1;
    }
    return 0;
}

int cmdList(int argc, char** argv)
{
    bool json = false;
    for (int i = 0; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            std::fputs(kListHelp, stdout);
            return 0;
        } else if (!std::strcmp(argv[i], "--json")) {
            json = true;
        } else {
            std::fprintf(stderr, "vlorfx list: unknown argument '%s'\n\n%s", argv[i], kListHelp);
            return 2;
        }
    }
    // Loading migrates an older catalog; finishing saves it.
    QVlorVst::Manager manager;
    vlorfx::loadCatalog(manager);
    QList<QVlorVst::Path> paths;
    {
        QMetaObject::Connection c = QObject::connect(&manager, &QVlorVst::Manager::paths, &manager, [&paths](const QList<QVlorVst::Path>& p) {
                for (const QVlorVst::Path& path : p)
                    paths << path.detachedCopy();
            },
            Qt::DirectConnection);
        manager.getPaths();
        QMetaObject::invokeMethod(&manager, [] {}, Qt::BlockingQueuedConnection);
        QObject::disconnect(c);
    }
    vlorfx::finish(manager);

    if (json) {
        QJsonObject vst2{{QStringLiteral("paths"), QJsonArray()}};
        QFile file(catalogPath());
        if (file.open(QIODevice::ReadOnly)) {
            const QJsonDocument doc = QJsonDocument::fromJson(file.readAll());
            if (!doc.isObject()) {
                std::fprintf(stderr, "vlorfx list: %s is not a catalog\n", qPrintable(catalogPath()));
                return 1;
            }
            vst2 = doc.object();
        }
        const QJsonObject root{{QStringLiteral("vst2"), vst2}};
        std::fputs(QJsonDocument(root).toJson(QJsonDocument::Indented).constData(), stdout);
        return 0;
    }
    for (const QVlorVst::Path& path : paths) {
        std::printf("%s%s%s\n", qPrintable(path.absolutePath()), path.isEnabled() ? "" : "  (disabled)",
                    path.isSearched() ? "" : "  (not searched)");
        for (const QVlorVst::Plugin& p : path.plugins()) {
            const QString name = p.name().isEmpty() ? p.relativeFilename(path) : p.name();
            std::printf("  %-9s %-30s %-28s %10lld  %s\n", qPrintable(p.isShell() ? QStringLiteral("Shell") : p.state()),
                        qPrintable(name.left(30)), qPrintable(p.vendor().left(28)), p.uniqueId(),
                        qPrintable(p.relativeFilename(path)));
            for (const QVlorVst::Plugin& c : p.plugins())
                std::printf("    %-9s %-28s %-28s %10lld\n", qPrintable(c.state()), qPrintable(c.name().left(28)), "",
                            c.uniqueId());
        }
    }
    return 0;
}
