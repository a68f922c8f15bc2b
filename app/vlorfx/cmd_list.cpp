// vlorfx list: both catalogs and the pair store as the editor keeps them,
// as a table of products, the plugin manager's rows, or the files themselves.
#include "catalog.h"
#include "commands.h"
#include "QVlorSetting.h"
#include "text.h"

#include "QVlorApplication.h"
#include "QVlorAudioPlugins.h"
#include "QVlorPluginFormat.h"
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
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

const char* const kListHelp =
    "usage: vlorfx list [--wide] [--json]\n"
    "       vlorfx list --rows [--wide] [--json]\n"
    "\n"
    "Prints one line per product: the forms of one product (VST2, VST3, LV2)\n"
    "side by side with the one in use under ACTIVE, a plugin of one format on\n"
    "a line of its own; or one JSON object with \"vst2\", \"vst3\", \"pairs\"\n"
    "and \"lv2\", each as its file holds it (a family's forms in \"pairs\").\n"
    "Rows are sorted by product; a plugin that failed says why after its file.\n"
    "States: on, off, new, failed, crashed, missing, verifying (and unprobed\n"
    "for a VST3 bundle not opened yet; not an effect for an LV2 instrument).\n"
    "\n"
    "With --rows, the rows the plugin manager shows, in the same columns: a\n"
    "plugin of a shell or of a folder of new plugins says so after its file.\n"
    "With --json as well, the rows as JSON, in the page's order.\n"
    "\n"
    "On a terminal the table is fitted to its width (the files, then long names\n"
    "and vendors, are cut with ...); --wide, or output to a file or a pipe,\n"
    "prints every line whole.\n"
    "\n"
    "example:\n"
    "  vlorfx list | grep failed\n";

QString dataFile(const QString& name) { return QDir(QVlorApplication::applicationDataLocation()).filePath(name); }

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


// The pair store keeps a VST2 id as text (it outgrows a double in no case,
// but the file is the store's); shown beside the catalog, it is a number there too.
QJsonObject numericIds(QJsonObject pairs)
{
    for (const QString& key : {QStringLiteral("pairs"), QStringLiteral("splits")}) {
        QJsonArray list = pairs.value(key).toArray();
        for (int i = 0; i < list.size(); ++i) {
            QJsonObject o = list.at(i).toObject();
            bool ok = false;
            const qint64 id = o.value(QVlorAudioPlugins::Vst2Token()).toString().toLongLong(&ok);
            if (ok)
                o.insert(QVlorAudioPlugins::Vst2Token(), id);
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
        {QVlorAudioPlugins::kVst2Format.token,
         dataFile(QLatin1String(QVlorAudioPlugins::kVst2Format.catalogFile)),
         {{QStringLiteral("paths"), QJsonArray()}}},
        {QVlorAudioPlugins::kVst3Format.token,
         dataFile(QLatin1String(QVlorAudioPlugins::kVst3Format.catalogFile)),
         {{QStringLiteral("bundles"), QJsonArray()}}},
        {"pairs", dataFile(QLatin1String(QVlorAudioPlugins::kPairsFile)), {{QStringLiteral("pairs"), QJsonArray()}}},
        {QVlorAudioPlugins::kLv2Format.token,
         dataFile(QLatin1String(QVlorAudioPlugins::kLv2Format.catalogFile)),
         {{QStringLiteral("bundles"), QJsonArray()}}},
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
    QString name, vendor, vst2, vst3, active, origin, files, lv2;
};

// A failure says why, after the file it concerns.
QString why(const QString& reason) { return reason.isEmpty() ? QString() : QStringLiteral("  (%1)").arg(reason); }

// The width lines are fitted to: the terminal's, or none (0) with --wide
// and off a terminal.
int lineLimit(bool wide)
{
    if (wide || !isatty(STDOUT_FILENO))
        return 0;
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    const int columns = qEnvironmentVariableIntValue("COLUMNS");
    return columns > 0 ? columns : 80;
}

QString cut(const QString& text, int width)
{
    if (width <= 0 || text.size() <= width)
        return text;
    return text.left(std::max(0, width - 3)) + QStringLiteral("...");
}

// The columns as wide as their widest entry, sorted by product, names
// escaped; with a limit the files, then the names and vendors, are cut so
// that no line is longer. The LV2 column shows when an LV2 plugin does.
void printTable(QList<Row> rows, int limit)
{
    std::sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) {
        const int c = a.name.compare(b.name, Qt::CaseInsensitive);
        return c != 0 ? c < 0 : a.files < b.files;
    });
    const bool withLv2 = std::any_of(rows.begin(), rows.end(), [](const Row& r) { return !r.lv2.isEmpty(); });
    rows.prepend(Row{QStringLiteral("PRODUCT"), QStringLiteral("VENDOR"), QStringLiteral("VST2"), QStringLiteral("VST3"),
                     QStringLiteral("ACTIVE"), QStringLiteral("PAIRED BY"), QStringLiteral("FILES"), QStringLiteral("LV2")});
    QList<QString Row::*> fields{&Row::name, &Row::vendor, &Row::vst2, &Row::vst3};
    if (withLv2)
        fields << &Row::lv2;
    fields << &Row::active << &Row::origin << &Row::files;
    const int n = int(fields.size()), last = n - 1;
    QList<QStringList> cells;
    QList<int> width(n, 0);
    for (const Row& r : rows) {
        QStringList line;
        for (QString Row::*field : fields)
            line << QString::fromUtf8(vlorfx::printable(r.*field));
        for (int k = 0; k < n; ++k)
            width[k] = std::max(width[k], int(line[k].size()));
        cells << line;
    }
    constexpr int kLeastFiles = 16, kLeastName = 6;
    auto fixedWidth = [&width, last] {
        int w = 0;
        for (int k = 0; k < last; ++k)
            w += width[k] + 2;
        return w;
    };
    if (limit > 0) {
        // Names and vendors give way only when the files alone cannot.
        while (fixedWidth() + kLeastFiles > limit && (width[0] > kLeastName || width[1] > kLeastName))
            --width[width[0] >= width[1] ? 0 : 1];
        width[last] = std::max(3, limit - fixedWidth());
    }
    for (const QStringList& line : cells) {
        QString text;
        for (int k = 0; k < last; ++k)
            text += cut(line[k], width[k]).leftJustified(width[k] + 2);
        text += cut(line[last], limit > 0 ? width[last] : 0);
        std::printf("%s\n", text.toUtf8().constData());
    }
}

struct Lv2Row {
    QVlorLv2::CatalogPlugin plugin;
    QString file; // its bundle's folder name
};

// The plugins of the three catalogs by identity, with their files.
struct Lookups {
    QHash<qint64, Vst2Row> vst2ById;
    QHash<QString, QPair<QVlorVst3::CatalogClass, QString>> vst3ByCid;
    QVlorLv2::Catalog lv2Catalog;
    QHash<QString, Lv2Row> lv2ByUri;
};

template <class Hash, class Key>
const typename Hash::mapped_type* valueIn(const Hash& hash, const Key& key)
{
    const auto it = hash.constFind(key);
    return it == hash.constEnd() ? nullptr : &it.value();
}

// The line of a family of which two forms or more are in the catalogs; its
// name and vendor are those of the form in use where it is there.
bool familyRow(const Lookups& in, const QVlorPluginPairs::Entry& e, Row* row)
{
    const Vst2Row* a = e.vst2 != 0 ? valueIn(in.vst2ById, e.vst2) : nullptr;
    const auto* b = valueIn(in.vst3ByCid, e.vst3);
    const Lv2Row* l = valueIn(in.lv2ByUri, e.lv2);
    if ((a != nullptr) + (b != nullptr) + (l != nullptr) < 2)
        return false;
    const QString none = QStringLiteral("-");
    *row = Row{QString(), QString(), none, none, e.activeFormat, e.origin, QString(), none};
    QStringList files;
    QString reason;
    const bool lv2Plays = l && (!b || e.activeFormat == QVlorAudioPlugins::Lv2Token());
    if (a) {
        row->vst2 = vlorfx::stateWord(a->plugin);
        files << a->file;
        reason = a->plugin.isFailed() ? a->plugin.failReason() : QString();
        row->name = a->plugin.name();
        row->vendor = a->plugin.vendor();
    }
    if (b) {
        row->vst3 = vlorfx::stateWord(b->first);
        files << b->second;
        if (reason.isEmpty())
            reason = b->first.lastError();
        if (!lv2Plays) {
            row->name = b->first.name();
            row->vendor = b->first.vendor();
        }
    }
    if (l) {
        row->lv2 = vlorfx::stateWord(in.lv2Catalog, l->plugin);
        files << l->file + QStringLiteral(" ") + l->plugin.uri;
        if (reason.isEmpty() && l->plugin.state != QVlorLv2::CatalogPlugin::Usable)
            reason = l->plugin.reason;
        if (lv2Plays) {
            row->name = l->plugin.name;
            row->vendor = l->plugin.maker;
        }
    }
    row->files = files.join(QStringLiteral(" + ")) + why(reason);
    return true;
}

Lookups lookups(const QList<Vst2Row>& vst2, const QVlorVst3::Catalog& catalog)
{
    Lookups in;
    for (const Vst2Row& row : vst2)
        if (row.plugin.uniqueId() != 0)
            in.vst2ById.insert(row.plugin.uniqueId(), row);
    for (const QVlorVst3::CatalogBundle& b : catalog.bundles())
        for (const QVlorVst3::CatalogClass& c : b.classes())
            in.vst3ByCid.insert(c.cid(), {c, QFileInfo(b.path()).fileName()});
    if (QVlorLv2::Manager* m = QVlorAudioPlugins::lv2Manager())
        in.lv2Catalog = m->catalogCopy();
    for (const QVlorLv2::CatalogBundle& b : in.lv2Catalog.bundles)
        for (const QVlorLv2::CatalogPlugin& p : b.plugins)
            in.lv2ByUri.insert(p.uri, {p, QFileInfo(b.path).fileName()});
    return in;
}

// One row a product: a family on one row, what is in one format only on its own.
int listTable(int limit)
{
    const QList<Vst2Row> vst2 = vst2Rows();
    QVlorVst3::Catalog catalog;
    QList<QVlorPluginPairs::Entry> pairs;
    if (QVlorVst3::Manager* m = QVlorAudioPlugins::vst3Manager()) {
        catalog = m->catalogCopy();
        pairs = m->pairsEntriesCopy();
    }
    const Lookups in = lookups(vst2, catalog);
    const QString none = QStringLiteral("-");

    QList<Row> rows;
    QSet<qint64> shown2;
    QSet<QString> shown3, shownLv2;
    for (const QVlorPluginPairs::Entry& e : pairs) {
        Row row;
        if (!familyRow(in, e, &row))
            continue;
        rows << row;
        shown2.insert(e.vst2);
        shown3.insert(e.vst3);
        shownLv2.insert(e.lv2);
    }
    for (const Vst2Row& a : vst2)
        if (a.plugin.uniqueId() == 0 || !shown2.contains(a.plugin.uniqueId()))
            rows << Row{a.plugin.name().isEmpty() ? a.file : a.plugin.name(), a.plugin.vendor(),
                        vlorfx::stateWord(a.plugin), none, QVlorAudioPlugins::Vst2Token(), none,
                        a.file + why(a.plugin.failReason()), {}};
    for (const QVlorVst3::CatalogBundle& b : catalog.bundles()) {
        const QString file = QFileInfo(b.path()).fileName();
        if (b.classes().isEmpty())
            rows << Row{QFileInfo(b.path()).completeBaseName(), QString(), none,
                        b.failed() ? QStringLiteral("failed") : QStringLiteral("unprobed"),
                        QVlorAudioPlugins::Vst3Token(), none, file + why(b.failed() ? b.lastError() : QString()), {}};
        for (const QVlorVst3::CatalogClass& c : b.classes())
            if (!shown3.contains(c.cid()))
                rows << Row{c.name(), c.vendor(), none, vlorfx::stateWord(c), QVlorAudioPlugins::Vst3Token(), none,
                            file + why(c.state() == QVlorVst3::CatalogClass::Failed ? c.lastError() : QString()), {}};
    }
    // Each LV2 plugin of no family on a row of its own, its bundle as its file.
    for (const Lv2Row& l : in.lv2ByUri)
        if (!shownLv2.contains(l.plugin.uri))
            rows << Row{l.plugin.name.isEmpty() ? l.plugin.uri : l.plugin.name, l.plugin.maker, none, none,
                        QVlorAudioPlugins::Lv2Token(), none,
                        l.file + QStringLiteral(" ") + l.plugin.uri +
                            why(l.plugin.state == QVlorLv2::CatalogPlugin::Usable ? QString() : l.plugin.reason),
                        vlorfx::stateWord(in.lv2Catalog, l.plugin)};
    printTable(rows, limit);
    return 0;
}

QJsonObject formatJson(const UnifiedFormatInfo& f)
{
    return {{QStringLiteral("active"), f.active},     {QStringLiteral("enabled"), f.enabled},
            {QStringLiteral("gated"), f.gated},       {QStringLiteral("state"), f.state},
            {QStringLiteral("identity"), f.identity}, {QStringLiteral("error"), f.error}};
}

// A format of a row in the words of the table: its state, or on and off.
QString stateOf(const UnifiedFormatInfo& f, bool isNew)
{
    if (!f.present)
        return QStringLiteral("-");
    if (!f.state.isEmpty())
        return f.state;
    if (isNew)
        return QStringLiteral("new");
    return f.enabled && !f.gated ? QStringLiteral("on") : QStringLiteral("off");
}

// The plugin manager's rows in the columns of the product table: a row's
// files found again from its formats' identities, and where the page shows
// it (a shell, a folder of new plugins) after them.
QList<Row> rowsAsTable(const QList<UnifiedRow>& rows, const QVlorVst3::Catalog& catalog,
                       const QList<QVlorPluginPairs::Entry>& pairs)
{
    QHash<QString, QString> files; // identity -> file name
    for (const Vst2Row& a : vst2Rows()) {
        files.insert(QVlorAudioPlugins::Vst2RowIdentity(a.plugin.uniqueId(), a.plugin.hash(), a.plugin.pluginId()), a.file);
        files.insert(QVlorAudioPlugins::Vst2RowIdentity(0, a.plugin.hash(), a.plugin.pluginId()), a.file);
    }
    for (const QVlorVst3::CatalogBundle& b : catalog.bundles()) {
        files.insert(QVlorAudioPlugins::Vst3BundleIdentity(b.path()), QFileInfo(b.path()).fileName());
        for (const QVlorVst3::CatalogClass& c : b.classes())
            files.insert(c.cid(), QFileInfo(b.path()).fileName());
    }
    QHash<QString, QString> origins;
    for (const QVlorPluginPairs::Entry& e : pairs)
        origins.insert(e.pairId, e.origin);
    QList<Row> table;
    for (const UnifiedRow& r : rows) {
        if (r.isShellHeader || r.isNewPathHeader)
            continue;
        const bool isNew = r.newSection != UpmNewSectionNone;
        QStringList where;
        if (r.vst2.present)
            where << files.value(r.vst2.identity, r.vst2.identity);
        if (r.vst3.present)
            where << files.value(r.vst3.identity, r.vst3.identity);
        if (r.lv2.present)
            where << r.lv2.identity;
        QString place = where.join(QStringLiteral(" + "));
        if (!r.shellKey.isEmpty())
            place += QStringLiteral("  (in shell %1)").arg(r.shellKey);
        if (isNew)
            place += QStringLiteral("  (new in %1)").arg(r.newPath);
        for (const UnifiedFormatInfo* f : {&r.vst2, &r.vst3, &r.lv2})
            if (f->state == QLatin1String("failed") && !f->error.isEmpty()) {
                place += why(f->error);
                break;
            }
        const QString active = r.vst3.present && r.vst3.active   ? QVlorAudioPlugins::Vst3Token()
                               : r.vst2.present && r.vst2.active ? QVlorAudioPlugins::Vst2Token()
                               : r.lv2.present && r.lv2.active   ? QVlorAudioPlugins::Lv2Token()
                                                                 : QStringLiteral("-");
        table << Row{r.name, r.vendor, stateOf(r.vst2, isNew), stateOf(r.vst3, isNew), active,
                     r.pairId.isEmpty() ? QStringLiteral("-") : origins.value(r.pairId, QStringLiteral("-")), place,
                     r.lv2.present ? stateOf(r.lv2, isNew) : QString()};
    }
    return table;
}

// The rows of the plugin manager, composed from the managers' copies as the page composes them.
int listRows(bool json, int limit)
{
    QVlorVst3::Manager* m3 = QVlorAudioPlugins::vst3Manager();
    const QList<UnifiedRow> rows = vlorfx::pageRows();
    if (json) {
        QJsonArray list;
        for (const UnifiedRow& r : rows) {
            QJsonObject o{{QStringLiteral("name"), r.name},         {QStringLiteral("vendor"), r.vendor},
                          {QStringLiteral("pairId"), r.pairId},     {QStringLiteral("shellKey"), r.shellKey},
                          {QStringLiteral("isShellHeader"), r.isShellHeader},
                          {QStringLiteral("newPath"), r.newPath},   {QStringLiteral("isNew"), r.isNew},
                          {QStringLiteral("state"), r.rowStateText()}, {QStringLiteral("category"), r.category}};
            if (r.vst2.present)
                o.insert(QVlorAudioPlugins::Vst2Token(), formatJson(r.vst2));
            if (r.vst3.present)
                o.insert(QVlorAudioPlugins::Vst3Token(), formatJson(r.vst3));
            if (r.lv2.present)
                o.insert(QVlorAudioPlugins::Lv2Token(), formatJson(r.lv2));
            list.append(o);
        }
        std::fputs(QJsonDocument(list).toJson(QJsonDocument::Indented).constData(), stdout);
        return 0;
    }
    printTable(rowsAsTable(rows, m3->catalogCopy(), m3->pairsEntriesCopy()), limit);
    return 0;
}

} // namespace

int cmdList(int argc, char** argv)
{
    bool json = false;
    bool rows = false;
    bool wide = false;
    for (int i = 0; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            std::fputs(kListHelp, stdout);
            return 0;
        } else if (!std::strcmp(argv[i], "--json")) {
            json = true;
        } else if (!std::strcmp(argv[i], "--rows")) {
            rows = true;
        } else if (!std::strcmp(argv[i], "--wide")) {
            wide = true;
        } else {
            std::fprintf(stderr, "vlorfx list: unknown argument '%s'\n\n%s", argv[i], kListHelp);
            return 2;
        }
    }
    vlorfx::settle();
    if (rows)
        return listRows(json, lineLimit(wide));
    return json ? listFilesAsJson() : listTable(lineLimit(wide));
}
