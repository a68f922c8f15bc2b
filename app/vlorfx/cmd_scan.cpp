// vlorfx scan and vlorfx list: both catalogs and the pair store as the editor keeps them.
#include "catalog.h"
#include "commands.h"
#include "QVlorSetting.h"
#include "text.h"

#include "QVlorApplication.h"
#include "QVlorAudioPlugins.h"
#include "QVlorUnifiedPluginsModel.h"
#include "QVlorVst3_Manager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

const char* const kScanHelp =
    "usage: vlorfx scan [--vst2-path DIR]... [--vst3-path DIR]... [--no-vst2] [--no-vst3]\n"
    "                   [--parallel N] [--check-timeout SECONDS]\n"
    "\n"
    "Finds the plugins of both formats and checks every new one in a host\n"
    "program. VST2: the folders given are added to the catalog (at the first\n"
    "scan, beside the standard folders that exist, or those VST_PATH names,\n"
    "separated by ':'). A folder that is not searched (the root of the file\n"
    "system, one that cannot be read) is named after the summary. VST3: the standard roots (~/.vst3, /usr/lib/vst3, /usr/local/lib/vst3)\n"
    "and the folders given, which stay among the roots. Twins of one product\n"
    "are paired. Known plugins are not loaded again.\n"
    "\n"
    "Each plugin checked is named as it is (one updating line on a terminal),\n"
    "and the failures are listed with their reasons after the summary.\n"
    "  --quiet            the summary only\n"
    "  --parallel N       check up to N plugins at a time (default: one a core,\n"
    "                     at most 8; kept as the setting)\n"
    "  --check-timeout S  give each check S seconds (default 30; kept)\n"
    "\n"
    "example:\n"
    "  vlorfx scan --vst2-path ~/.vst --vst3-path ~/my-vst3\n";

const char* const kListHelp =
    "usage: vlorfx list [--json]\n"
    "       vlorfx list --rows [--json]\n"
    "\n"
    "Prints one line per product, both formats side by side when they are\n"
    "paired; or one JSON object with \"vst2\", \"vst3\" and \"pairs\", each as\n"
    "its file holds it. Rows are sorted by product; a plugin that failed\n"
    "says why after its file. States: on, off, new, failed, crashed, missing,\n"
    "verifying (and unprobed for a VST3 bundle not opened yet).\n"
    "\n"
    "With --rows, the rows the plugin manager shows: one a product, grouped by\n"
    "vendor and shell, with the new-plugin folders last; the active format is\n"
    "marked with *. With --json as well, the rows as JSON.\n"
    "\n"
    "example:\n"
    "  vlorfx list | grep failed\n";

QString dataFile(const QString& name) { return QDir(QVlorApplication::applicationDataLocation()).filePath(name); }

bool addFolder(const char* arg, QStringList* folders)
{
    const QString dir = QString::fromLocal8Bit(arg);
    if (!QDir(dir).exists()) {
        std::fprintf(stderr, "vlorfx scan: no such folder: %s\n", arg);
        return false;
    }
    *folders << QDir(dir).absolutePath();
    return true;
}

// A missing file reads as empty; a broken one is an error.
bool readObject(const QString& file, const QJsonObject& empty, QJsonObject* out)
{
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly)) {
        *out = empty;
        return !f.exists();
    }
    const QJsonDocument doc = QJsonDocument::fromJson(f.readAll());
    if (!doc.isObject())
        return false;
    *out = doc.object();
    return true;
}


} // namespace

int cmdScan(int argc, char** argv)
{
    vlorfx::ScanOptions options;
    bool quiet = false;
    for (int i = 0; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            std::fputs(kScanHelp, stdout);
            return 0;
        } else if (!std::strcmp(argv[i], "--vst2-path") && i + 1 < argc) {
            if (!addFolder(argv[++i], &options.vst2Folders))
                return 1;
        } else if (!std::strcmp(argv[i], "--vst3-path") && i + 1 < argc) {
            if (!addFolder(argv[++i], &options.vst3Roots))
                return 1;
        } else if (!std::strcmp(argv[i], "--no-vst2")) {
            options.vst2 = false;
        } else if (!std::strcmp(argv[i], "--no-vst3")) {
            options.vst3 = false;
        } else if (!std::strcmp(argv[i], "--quiet") || !std::strcmp(argv[i], "-q")) {
            quiet = true;
        } else if ((!std::strcmp(argv[i], "--parallel") || !std::strcmp(argv[i], "--check-timeout")) && i + 1 < argc) {
            const bool parallel = !std::strcmp(argv[i], "--parallel");
            char* end = nullptr;
            const long n = std::strtol(argv[++i], &end, 10);
            if (!end || *end || n < 1 || n > (parallel ? 64 : 3600)) {
                std::fprintf(stderr, "vlorfx scan: %s wants a number from 1 to %d\n", argv[i - 1], parallel ? 64 : 3600);
                return 2;
            }
            QVlorSetting::global().setForThisRun(QLatin1String(parallel ? "vloraudio.plugins.parallel_checks"
                                                                        : "vloraudio.plugins.vst2_check_timeout_s"),
                                                 int(n));
            if (!parallel)
                QVlorSetting::global().setForThisRun(QLatin1String("vloraudio.plugins.vst3_probe_timeout_s"), int(n));
        } else {
            std::fprintf(stderr, "vlorfx scan: unknown argument '%s'\n\n%s", argv[i], kScanHelp);
            return 2;
        }
    }
    // A first scan keeps the standard folders beside those given: a folder of
    // the user's own never stands for all of them.
    if (options.vst2 && vlorfx::catalogFolders().isEmpty())
        for (const QString& f : vlorfx::standardFolders())
            if (!options.vst2Folders.contains(f))
                options.vst2Folders.prepend(f);
    options.progress = quiet                    ? vlorfx::ScanOptions::Silent
                       : isatty(STDERR_FILENO) ? vlorfx::ScanOptions::OneLine
                                               : vlorfx::ScanOptions::Lines;
    const vlorfx::ScanSummary s = vlorfx::scan(options);
    // Asked of the managers' threads while they still run.
    const QStringList passedOver = vlorfx::foldersNotSearched(
        QVlorSetting::global().getStringList(QLatin1String(QVlorVst3::K_SETTING_VST3_CUSTOM_PATHS)));
    QVlorAudioPlugins::AboutToQuit(); // saves both catalogs and the pairs now, to check them below
    std::printf("folders: %d\nplugins found: %d\nenabled: %d\nfailed: %d\n", s.folders, s.found, s.enabled, s.failed);
    std::printf("shells: %d\n", int(s.shells.size()));
    for (const QString& shell : s.shells)
        std::printf("  %s\n", vlorfx::printable(shell).constData());
    std::printf("bundles: %d\nclasses: %d\nclasses enabled: %d\nclasses failed: %d\nclasses crashed: %d\n", s.bundles,
                s.classes, s.classesEnabled, s.classesFailed, s.classesCrashed);
    int pairs = 0;
    for (int n : s.pairsByOrigin)
        pairs += n;
    std::printf("pairs: %d\n", pairs);
    for (auto it = s.pairsByOrigin.begin(); it != s.pairsByOrigin.end(); ++it)
        std::printf("  %s: %d\n", qPrintable(it.key()), it.value());
    std::printf("time: %.1f ms\n", s.milliseconds);
    if (!passedOver.isEmpty()) {
        std::printf("folders not searched:\n");
        for (const QString& f : passedOver)
            std::printf("  %s\n", vlorfx::printable(f).constData());
    }
    if (!quiet && !s.failures.isEmpty()) {
        std::printf("failures:\n");
        for (const QString& f : s.failures)
            std::printf("  %s\n", vlorfx::printable(f).constData());
    }
    // What was found is only kept if it was saved: the next scan would redo it all.
    return vlorfx::reportSaveErrors("vlorfx scan") ? 1 : 0;
}

namespace {

// The pair store keeps a VST2 id as text (it outgrows a double in no case,
// but the file is the store's); shown beside the catalog, it is a number there too.
QJsonObject numericIds(QJsonObject pairs)
{
    for (const QString& key : {QStringLiteral("pairs"), QStringLiteral("splits")}) {
        QJsonArray list = pairs.value(key).toArray();
        for (int i = 0; i < list.size(); ++i) {
            QJsonObject o = list.at(i).toObject();
            bool ok = false;
            const qint64 id = o.value(QStringLiteral("vst2")).toString().toLongLong(&ok);
            if (ok)
                o.insert(QStringLiteral("vst2"), id);
            list[i] = o;
        }
        if (pairs.contains(key))
            pairs.insert(key, list);
    }
    return pairs;
}

// The three files as the library keeps them, in one object.
int listFilesAsJson()
{
    // Loading may have migrated an older catalog: saved first, so the files say what the managers hold.
    QVlorAudioPlugins::AboutToQuit();
    const struct {
        const char* key;
        QString file;
        QJsonObject empty;
    } files[] = {
        {"vst2", dataFile(QStringLiteral("vstxml/catalog_v2.json")), {{QStringLiteral("paths"), QJsonArray()}}},
        {"vst3", dataFile(QStringLiteral("catalog_vst3.json")), {{QStringLiteral("bundles"), QJsonArray()}}},
        {"pairs", dataFile(QStringLiteral("plugin_pairs.json")), {{QStringLiteral("pairs"), QJsonArray()}}},
    };
    QJsonObject root;
    for (const auto& f : files) {
        QJsonObject object;
        if (!readObject(f.file, f.empty, &object)) {
            std::fprintf(stderr, "vlorfx list: %s is not readable JSON\n", qPrintable(f.file));
            return 1;
        }
        if (!std::strcmp(f.key, "pairs"))
            object = numericIds(object);
        root.insert(QLatin1String(f.key), object);
    }
    std::fputs(QJsonDocument(root).toJson(QJsonDocument::Indented).constData(), stdout);
    return 0;
}

struct Vst2Row {
    QVlorVst::Plugin plugin;
    QString file;
};

// Every VST2 plugin, a shell's children in its place, with the file it is in.
QList<Vst2Row> vst2Rows()
{
    QList<Vst2Row> rows;
    for (const QVlorVst::Path& path : vlorfx::vst2Paths())
        for (const QVlorVst::Plugin& p : path.plugins()) {
            const QList<QVlorVst::Plugin> members = p.isShell() ? p.plugins() : QList<QVlorVst::Plugin>{p};
            for (const QVlorVst::Plugin& member : members)
                rows << Vst2Row{member, p.relativeFilename(path)};
        }
    return rows;
}

struct Row {
    QString name, vendor, vst2, vst3, active, origin, files;
};

// A failure says why, after the file it concerns.
QString why(const QString& reason) { return reason.isEmpty() ? QString() : QStringLiteral("  (%1)").arg(reason); }

// The columns as wide as their widest entry; names printed whole and escaped.
void printTable(QList<Row> rows, const Row& head, bool sorted = true)
{
    if (sorted)
        std::sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) {
            const int c = a.name.compare(b.name, Qt::CaseInsensitive);
            return c != 0 ? c < 0 : a.files < b.files;
        });
    rows.prepend(head);
    QList<QList<QByteArray>> cells;
    int width[6] = {0, 0, 0, 0, 0, 0};
    for (const Row& r : rows) {
        const QList<QByteArray> line = {vlorfx::printable(r.name),   vlorfx::printable(r.vendor),
                                        vlorfx::printable(r.vst2),   vlorfx::printable(r.vst3),
                                        vlorfx::printable(r.active), vlorfx::printable(r.origin),
                                        vlorfx::printable(r.files)};
        for (int k = 0; k < 6; ++k)
            width[k] = std::max(width[k], int(QString::fromUtf8(line[k]).size()));
        cells << line;
    }
    for (const QList<QByteArray>& line : cells) {
        QByteArray text;
        for (int k = 0; k < 6; ++k)
            text += line[k] + QByteArray(width[k] - int(QString::fromUtf8(line[k]).size()) + 2, ' ');
        std::printf("%s%s\n", text.constData(), line[6].constData());
    }
}

// One row a product: a pair on one row, what is in one format only on its own.
int listTable()
{
    const QList<Vst2Row> vst2 = vst2Rows();
    QHash<qint64, Vst2Row> vst2ById;
    for (const Vst2Row& row : vst2)
        if (row.plugin.uniqueId() != 0)
            vst2ById.insert(row.plugin.uniqueId(), row);
    QVlorVst3::Catalog catalog;
    QList<QVlorPluginPairs::Entry> pairs;
    if (QVlorVst3::Manager* m = QVlorAudioPlugins::vst3Manager()) {
        catalog = m->catalogCopy();
        pairs = m->pairsEntriesCopy();
    }
    QHash<QString, QPair<QVlorVst3::CatalogClass, QString>> vst3ByCid;
    for (const QVlorVst3::CatalogBundle& b : catalog.bundles())
        for (const QVlorVst3::CatalogClass& c : b.classes())
            vst3ByCid.insert(c.cid(), {c, QFileInfo(b.path()).fileName()});
    const QString none = QStringLiteral("-");

    QList<Row> rows;
    QSet<qint64> shown2;
    QSet<QString> shown3;
    for (const QVlorPluginPairs::Entry& e : pairs) {
        if (e.vst2 == 0 || e.vst3.isEmpty() || !vst2ById.contains(e.vst2) || !vst3ByCid.contains(e.vst3))
            continue;
        const Vst2Row& a = vst2ById[e.vst2];
        const auto& b = vst3ByCid[e.vst3];
        const QString reason = a.plugin.isFailed() ? a.plugin.failReason() : b.first.lastError();
        rows << Row{b.first.name(), b.first.vendor(), vlorfx::stateWord(a.plugin), vlorfx::stateWord(b.first),
                    e.activeFormat, e.origin, a.file + QStringLiteral(" + ") + b.second + why(reason)};
        shown2.insert(e.vst2);
        shown3.insert(e.vst3);
    }
    for (const Vst2Row& a : vst2)
        if (a.plugin.uniqueId() == 0 || !shown2.contains(a.plugin.uniqueId()))
            rows << Row{a.plugin.name().isEmpty() ? a.file : a.plugin.name(), a.plugin.vendor(),
                        vlorfx::stateWord(a.plugin), none, QStringLiteral("vst2"), none,
                        a.file + why(a.plugin.failReason())};
    for (const QVlorVst3::CatalogBundle& b : catalog.bundles()) {
        const QString file = QFileInfo(b.path()).fileName();
        if (b.classes().isEmpty())
            rows << Row{QFileInfo(b.path()).completeBaseName(), QString(), none,
                        b.failed() ? QStringLiteral("failed") : QStringLiteral("unprobed"), QStringLiteral("vst3"), none,
                        file + why(b.failed() ? b.lastError() : QString())};
        for (const QVlorVst3::CatalogClass& c : b.classes())
            if (!shown3.contains(c.cid()))
                rows << Row{c.name(), c.vendor(), none, vlorfx::stateWord(c), QStringLiteral("vst3"), none,
                            file + why(c.state() == QVlorVst3::CatalogClass::Failed ? c.lastError() : QString())};
    }
    printTable(rows, {QStringLiteral("PRODUCT"), QStringLiteral("VENDOR"), QStringLiteral("VST2"), QStringLiteral("VST3"),
                      QStringLiteral("ACTIVE"), QStringLiteral("PAIRED BY"), QStringLiteral("FILES")});
    return 0;
}

QJsonObject formatJson(const UnifiedFormatInfo& f)
{
    return {{QStringLiteral("active"), f.active},     {QStringLiteral("enabled"), f.enabled},
            {QStringLiteral("gated"), f.gated},       {QStringLiteral("state"), f.state},
            {QStringLiteral("identity"), f.identity}, {QStringLiteral("error"), f.error}};
}

// The rows of the plugin manager, composed from the managers' copies as the page composes them.
int listRows(bool json)
{
    QVlorVst3::Manager* m3 = QVlorAudioPlugins::vst3Manager();
    QVlorVst::Manager* m2 = QVlorAudioPlugins::vstManager();
    QVlorPluginPairs pairs;
    pairs.entries() = m3->pairsEntriesCopy();
    const QList<UnifiedRow> rows = QVlorUnifiedPluginsModel::composeRows(
        vlorfx::vst2Paths(), m3->catalogCopy(), pairs, m3->isScanEnabled() ? m3->searchPaths() : QStringList(), {},
        m3->pendingPairOpVst2IdsCopy(), m3->pendingPairOpCidsCopy(), m2 && m2->isScanEnabled());
    if (json) {
        QJsonArray list;
        for (const UnifiedRow& r : rows) {
            QJsonObject o{{QStringLiteral("name"), r.name},         {QStringLiteral("vendor"), r.vendor},
                          {QStringLiteral("pairId"), r.pairId},     {QStringLiteral("shellKey"), r.shellKey},
                          {QStringLiteral("isShellHeader"), r.isShellHeader},
                          {QStringLiteral("newPath"), r.newPath},   {QStringLiteral("isNew"), r.isNew},
                          {QStringLiteral("state"), r.rowStateText()}};
            if (r.vst2.present)
                o.insert(QStringLiteral("vst2"), formatJson(r.vst2));
            if (r.vst3.present)
                o.insert(QStringLiteral("vst3"), formatJson(r.vst3));
            list.append(o);
        }
        std::fputs(QJsonDocument(list).toJson(QJsonDocument::Indented).constData(), stdout);
        return 0;
    }
    QList<Row> table;
    for (const UnifiedRow& r : rows) {
        QStringList formats;
        if (r.vst2.present)
            formats << (r.vst2.active ? QStringLiteral("*VST2") : QStringLiteral("VST2"));
        if (r.vst3.present)
            formats << (r.vst3.active ? QStringLiteral("*VST3") : QStringLiteral("VST3"));
        const QString kind = r.isShellHeader     ? QStringLiteral("[shell]")
                             : r.isNewPathHeader ? QStringLiteral("[new]")
                                                 : formats.join(QLatin1Char(' '));
        const QString state = r.rowStateText().isEmpty() && !r.isShellHeader && !r.isNewPathHeader
                                  ? (r.inUse() ? QStringLiteral("on") : QStringLiteral("off"))
                                  : r.rowStateText();
        table << Row{r.name, r.vendor, kind, state, r.shellKey.isEmpty() ? QString() : QStringLiteral("in shell"),
                     r.pairId.isEmpty() ? QString() : QStringLiteral("paired"), r.newPath};
    }
    printTable(table, {QStringLiteral("NAME"), QStringLiteral("VENDOR"), QStringLiteral("FORMATS"),
                       QStringLiteral("STATE"), QStringLiteral("SHELL"), QStringLiteral("PAIR"),
                       QStringLiteral("NEW FOLDER")},
               false);
    return 0;
}

} // namespace

int cmdList(int argc, char** argv)
{
    bool json = false;
    bool rows = false;
    for (int i = 0; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            std::fputs(kListHelp, stdout);
            return 0;
        } else if (!std::strcmp(argv[i], "--json")) {
            json = true;
        } else if (!std::strcmp(argv[i], "--rows")) {
            rows = true;
        } else {
            std::fprintf(stderr, "vlorfx list: unknown argument '%s'\n\n%s", argv[i], kListHelp);
            return 2;
        }
    }
    vlorfx::settle();
    if (rows)
        return listRows(json);
    return json ? listFilesAsJson() : listTable();
}
