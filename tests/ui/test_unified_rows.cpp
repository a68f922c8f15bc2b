// The rows of the plugin manager composed from hand-built catalogs: one case
// a rule, each row told in one line.
#include "QVlorPairKeybindings.h"
#include "QVlorPluginFormat.h"
#include "QVlorUnifiedPluginsModel.h"
#include "QVlorUnifiedRows_p.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include <functional>

using namespace QVlorVst;

namespace {

// One line a row: kind, name, vendor key, then each present format as
// "2" or "3", "*" when active, "+" enabled, "g" gated, and its state.
QString describe(const UnifiedRow& r)
{
    if (r.isShellHeader)
        return QStringLiteral("shell %1 (%2)%3").arg(r.name, r.vendorKey, r.shellEnabled ? "" : " off");
    if (r.isNewPathHeader)
        return QStringLiteral("folder%1 %2%3").arg(r.newSection).arg(r.newPath, r.newPathShown ? "" : " hidden");
    auto format = [](const char* n, const UnifiedFormatInfo& f) {
        if (!f.present)
            return QString();
        return QStringLiteral(" %1%2%3%4%5").arg(QLatin1String(n), f.active ? "*" : "", f.enabled ? "+" : "",
                                                f.gated ? "g" : "", f.state.isEmpty() ? QString() : ":" + f.state);
    };
    QString line = QStringLiteral("%1%2 %3 (%4)").arg(r.newSection ? "raw " : "", r.pairId.isEmpty() ? "row" : "pair",
                                                      r.name, r.vendorKey);
    return line + format("2", r.vst2) + format("3", r.vst3) + (r.isNew ? " new" : "") +
           (r.vendorEnabled ? "" : " vendor-off");
}

Plugin vst2(const QString& name, qint64 id, const QString& vendor = QStringLiteral("Zam"), bool enabled = true)
{
    Plugin p(QStringLiteral("/vst/") + name + QStringLiteral(".so"));
    p.setExists(true);
    p.setName(name);
    p.setVendor(vendor);
    p.setUniqueId(id);
    p.setEnabled(enabled);
    return p;
}

Path folder(const QString& dir, const QList<Plugin>& plugins)
{
    Path path(dir, UserPath);
    path.setSearched(true);
    path.setEnabled(true);
    for (const Plugin& p : plugins)
        path.appendPlugin(p);
    return path;
}

QVlorVst3::CatalogClass cls(const QString& cid, const QString& name, QVlorVst3::CatalogClass::State state,
                            const QString& vendor = QStringLiteral("Zam"))
{
    QVlorVst3::CatalogClass c(cid, name, vendor, QStringLiteral("Fx"), QStringLiteral("1.0"));
    c.setState(state);
    c.setEnabled(state == QVlorVst3::CatalogClass::Enabled);
    return c;
}

QVlorVst3::CatalogBundle bundle(const QString& path, const QList<QVlorVst3::CatalogClass>& classes, bool probed = true)
{
    QVlorVst3::CatalogBundle b;
    b.setPath(path);
    b.setProbed(probed);
    b.setEnabled(true);
    b.classes() = classes;
    return b;
}

const QString A = QStringLiteral("AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA");
const QString B = QStringLiteral("BBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBB");
constexpr auto On = QVlorVst3::CatalogClass::Enabled;
constexpr auto Off = QVlorVst3::CatalogClass::Disabled;
constexpr auto New = QVlorVst3::CatalogClass::New;
constexpr auto Missing = QVlorVst3::CatalogClass::Missing;

struct Input {
    QList<Path> paths;
    QVlorVst3::Catalog catalog;
    QList<QVlorPluginPairs::Entry> pairs;
    QList<QString> vst3SearchPaths;
    QSet<QString> hidden;
    QSet<qint64> pendingVst2;
    QSet<QString> pendingCids;
    bool vst2Scan = true;
};

struct Case {
    const char* rule;
    std::function<void(Input&)> build;
    QStringList rows;
};

QVlorPluginPairs::Entry pair(const QString& id, qint64 vst2, const QString& vst3, const QString& active)
{
    QVlorPluginPairs::Entry e;
    e.pairId = id;
    e.vst2 = vst2;
    e.vst3 = vst3;
    e.activeFormat = active;
    return e;
}

} // namespace

TEST(UnifiedRows, EachRuleOfTheComposition)
{
    const std::vector<Case> cases = {
        {"nothing in, nothing out", [](Input&) {}, {}},
        {"a pair is one row; the active format as the pair says",
         [](Input& in) {
             in.paths = {folder("/vst", {vst2("ZamComp", 11)})};
             in.catalog.bundles() = {bundle("/vst3/ZamComp.vst3", {cls(A, "ZamComp VST3", On)})};
             in.pairs = {pair("p1", 11, A, "vst2")};
         },
         {"pair ZamComp (zam) 2*+ 3+"}},
        {"a pair whose VST2 side is gone keeps one format, active whatever it says",
         [](Input& in) {
             in.catalog.bundles() = {bundle("/vst3/ZamComp.vst3", {cls(A, "ZamComp", On)})};
             in.pairs = {pair("p1", 11, A, "vst2")};
         },
         {"pair ZamComp (zam) 3*+"}},
        {"a pair with both sides gone yields nothing", [](Input& in) { in.pairs = {pair("p1", 11, A, "vst3")}; }, {}},
        {"with VST3 active an empty vendor stays empty; with VST2 active it comes from VST3",
         [](Input& in) {
             in.paths = {folder("/vst", {vst2("One", 1, ""), vst2("Two", 2, "")})};
             in.catalog.bundles() = {bundle("/vst3/a.vst3", {cls(A, "One3", On, "")}),
                                     bundle("/vst3/b.vst3", {cls(B, "Two3", On, "Maker")})};
             in.pairs = {pair("p1", 1, A, "vst3"), pair("p2", 2, B, "vst2")};
         },
         {"pair One3 () 2+ 3*+", "pair Two (maker) 2*+ 3+"}},
        {"unpaired plugins of both formats are rows of their own, new ones marked",
         [](Input& in) {
             Plugin fresh = vst2("Fresh", 5);
             fresh.setNew(true);
             in.paths = {folder("/vst", {fresh})};
             in.catalog.bundles() = {bundle("/vst3/x.vst3", {cls(A, "", New)})};
         },
         {"row Fresh (zam) 2*+ new", "row x (zam) 3* new"}},
        {"a shell: a header per vendor, its children behind it; a disabled shell gates them",
         [](Input& in) {
             Plugin shell(QStringLiteral("/vst/Shell.so"));
             shell.setExists(true);
             shell.setKind(ShellPlugin);
             shell.setName(QStringLiteral("Shell"));
             shell.setVendor(QStringLiteral("Waves"));
             shell.setUniqueId(100);
             shell.setEnabled(false);
             shell.addPlugin(QStringLiteral("Child A"), 101, nullptr);
             shell.addPlugin(QStringLiteral("Child B"), 102, nullptr);
             for (Plugin& c : shell.plugins()) {
                 c.setUniqueId(c.pluginId());
                 c.setEnabled(true);
                 c.setExists(true);
             }
             in.paths = {folder("/vst", {shell})};
         },
         {"shell Shell (waves) off", "row Child A (waves) 2*+g", "row Child B (waves) 2*+g"}},
        {"a VST3 bundle of several classes is a shell; one of a single class is not",
         [](Input& in) {
             in.catalog.bundles() = {bundle("/vst3/Multi.vst3", {cls(A, "First", On), cls(B, "Second", Off)}),
                                     bundle("/vst3/Single.vst3", {cls("CCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCC", "Alone", On)})};
         },
         {"row Alone (zam) 3*+", "shell Multi (zam)", "row First (zam) 3*+", "row Second (zam) 3*"}},
        {"a pending pair operation shows as verifying, but missing stays missing",
         [](Input& in) {
             in.paths = {folder("/vst", {vst2("P", 7)})};
             in.catalog.bundles() = {bundle("/vst3/m.vst3", {cls(A, "Gone", Missing)})};
             in.pendingVst2 = {7};
             in.pendingCids = {A};
         },
         {"row P (zam) 2*+:verifying", "row Gone (zam) 3*:missing"}},
        {"a vendor switched off on one VST2 path gates every format of its rows",
         [](Input& in) {
             Path path = folder("/vst", {vst2("V", 3, "Acme")});
             path.setVendorEnabled(QStringLiteral("acme"), false);
             in.paths = {path};
             in.catalog.bundles() = {bundle("/vst3/v.vst3", {cls(A, "V3", On, "Acme")})};
         },
         {"row V (acme) 2*+g vendor-off", "row V3 (acme) 3*+g vendor-off"}},
        {"never-probed VST2 plugins under their folder; none when VST2 scanning is off",
         [](Input& in) {
             Plugin raw(QStringLiteral("/new/Raw.so"));
             raw.setExists(true);
             raw.setMissing(true);
             in.paths = {folder("/new", {raw})};
         },
         {"folder1 /new", "raw row Raw () 2*:missing new"}},
        {"with VST2 scanning off a never-probed plugin yields nothing",
         [](Input& in) {
             Plugin raw(QStringLiteral("/new/Raw.so"));
             raw.setExists(true);
             in.paths = {folder("/new", {raw})};
             in.vst2Scan = false;
         },
         {}},
        {"an unprobed bundle lands under the longest search path; a prefix that is no folder does not match",
         [](Input& in) {
             in.catalog.bundles() = {bundle("/a/b/c.vst3", {}, false), bundle("/a/bb2/d.vst3", {}, false),
                                     bundle("/elsewhere/e.vst3", {}, false)};
             in.vst3SearchPaths = {"/a", "/a/b/", "/a/bb"};
         },
         {"folder2 /a", "raw row d () 3*+ new", "folder2 /a/b", "raw row c () 3*+ new"}},
        {"a hidden folder keeps its header alone; the same folder of the other format is not hidden",
         [](Input& in) {
             Plugin raw(QStringLiteral("/a/Raw.so"));
             raw.setExists(true);
             in.paths = {folder("/a", {raw})};
             in.catalog.bundles() = {bundle("/a/x.vst3", {}, false)};
             in.vst3SearchPaths = {"/a"};
             in.hidden = {"vst3|/a"};
         },
         {"folder1 /a", "raw row Raw () 2* new", "folder2 /a hidden"}},
    };
    for (const Case& c : cases) {
        Input in;
        c.build(in);
        QVlorPluginPairs pairs;
        pairs.entries() = in.pairs;
        QStringList got;
        for (const UnifiedRow& r :
             QVlorUnifiedPluginsModel::composeRows(in.paths, in.catalog, pairs, in.vst3SearchPaths, in.hidden,
                                                   in.pendingVst2, in.pendingCids, in.vst2Scan))
            got << describe(r);
        EXPECT_EQ(got, c.rows) << c.rule << "\n  got: " << got.join(" | ").toStdString();
        // The tree over the same rows holds together, as a view would walk it.
        QVlorUnifiedPluginsModel model;
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
        model.setRows(QVlorUnifiedPluginsModel::composeRows(in.paths, in.catalog, pairs, in.vst3SearchPaths, in.hidden,
                                                            in.pendingVst2, in.pendingCids, in.vst2Scan));
    }
}

// The steps of the composition taken alone, each on the least input that
// shows what it does.
TEST(UnifiedRowSteps, EachStepAlone)
{
    using namespace UnifiedRowSteps;
    auto lines = [](const QList<UnifiedRow>& rows) {
        QStringList out;
        for (const UnifiedRow& r : rows)
            out << describe(r);
        return out;
    };
    // Flattening: a VST2 shell's group comes first; the VST3 catalog's
    // vendors switched off are kept in lower case.
    Plugin shell = vst2(QStringLiteral("Shell"), 10);
    shell.setKind(ShellPlugin);
    shell.addPlugin(QStringLiteral("Inner"), 11, nullptr);
    for (Plugin& c : shell.plugins()) {
        c.setUniqueId(c.pluginId());
        c.setEnabled(true);
        c.setExists(true);
    }
    QVlorVst3::Catalog catalog;
    catalog.bundles() << bundle(QStringLiteral("/vst3/Eq.vst3"), {cls(A, QStringLiteral("Eq"), On)});
    catalog.disabledVendors() << QStringLiteral("Muted");
    const QList<Path> paths{folder(QStringLiteral("/vst"), {vst2(QStringLiteral("Comp"), 7), shell})};
    const Flattened flat = FlattenBoth(paths, catalog, true);
    EXPECT_EQ(flat.vst2.size(), 2);
    EXPECT_EQ(flat.vst3.size(), 1);
    ASSERT_EQ(flat.groups.size(), 1);
    EXPECT_EQ(flat.disabledVendors, QSet<QString>{QStringLiteral("muted")});

    // Products: one row a plugin no pair claims, one for a pair.
    QVlorPluginPairs pairs;
    const QSet<qint64> noIds;
    const QSet<QString> noCids;
    EXPECT_EQ(ProductRows(flat, pairs, {noIds, noCids}).size(), 3);
    pairs.entries() << pair(QStringLiteral("p1"), 7, A, QStringLiteral("vst3"));
    const QList<UnifiedRow> products = ProductRows(flat, pairs, {noIds, QSet<QString>{A}});
    ASSERT_EQ(products.size(), 2);
    // The pair takes the name of its active format; a pending class shows busy.
    EXPECT_EQ(describe(products.first()), QStringLiteral("pair Eq (zam) 2+ 3*+:verifying"));

    // Shell rows behind their header, after the plain rows.
    EXPECT_EQ(lines(PlainThenShells(products, flat.groups)).last(2),
              (QStringList{QStringLiteral("shell Shell (zam)"), QStringLiteral("row Inner (zam) 2*+")}));

    // A vendor off on a VST2 path gates both formats of its rows, and no
    // other vendor's (the shell's child has none before its group).
    Path gated = paths.first();
    gated.setVendorEnabled(QStringLiteral("zam"), false);
    QList<UnifiedRow> rows = products;
    GateVendors(&rows, {}, {gated});
    EXPECT_EQ(lines(rows), (QStringList{QStringLiteral("pair Eq (zam) 2+g 3*+g:verifying vendor-off"),
                                        QStringLiteral("row Inner () 2*+")}));

    // Hidden folders by format.
    const QSet<QString> hidden{QStringLiteral("vst2|/a"), QStringLiteral("vst3|/b"), QStringLiteral("vst3|/c")};
    EXPECT_EQ(HiddenFolders(hidden, QVlorAudioPlugins::Vst2Format()), QSet<QString>{QStringLiteral("/a")});
    EXPECT_EQ(HiddenFolders(hidden, QVlorAudioPlugins::Vst3Format()),
              (QSet<QString>{QStringLiteral("/b"), QStringLiteral("/c")}));

    // A bundle never probed lands under the longest search path holding it.
    QVlorVst3::Catalog raw;
    raw.bundles() << bundle(QStringLiteral("/vst3/deep/New.vst3"), {}, false);
    QStringList folders;
    const auto byFolder = NewVst3Rows(raw, {QStringLiteral("/vst3"), QStringLiteral("/vst3/deep/")}, &folders);
    EXPECT_EQ(folders, (QStringList{QStringLiteral("/vst3"), QStringLiteral("/vst3/deep")}));
    EXPECT_EQ(byFolder.keys(), QStringList{QStringLiteral("/vst3/deep")});
}

TEST(UnifiedRows, InUseAndTheStateOfTheActiveFormat)
{
    UnifiedRow r;
    r.vst2 = {true, true, true, false, false, QStringLiteral("failed"), {}, QStringLiteral("vstid-1"), {}};
    r.vst3 = {true, false, false, false, false, QStringLiteral("crashed"), {}, A, {}};
    EXPECT_TRUE(r.inUse());
    EXPECT_EQ(r.rowStateText(), QStringLiteral("failed"));
    r.vst2.gated = true;
    EXPECT_FALSE(r.inUse());
    r.vst3.active = true;
    EXPECT_EQ(r.rowStateText(), QStringLiteral("crashed"));
    EXPECT_FALSE(r.inUse()); // VST3 active and off
    r.isShellHeader = true;
    EXPECT_FALSE(r.inUse());
    EXPECT_EQ(CapitalizedVendorLabel(QString()), QStringLiteral("Other"));
    EXPECT_EQ(CapitalizedVendorLabel(QStringLiteral("zam audio")), QStringLiteral("Zam audio"));
    // Rows travel in variants under their registered name.
    EXPECT_EQ(QMetaType::fromName("UnifiedRow").id(), QMetaType::fromType<UnifiedRow>().id());
    EXPECT_EQ(QVariant::fromValue(r).value<UnifiedRow>().vst3.state, QStringLiteral("crashed"));
}

// An LV2 plugin is a row of its own under its maker, active in its one
// format, with the page's words for its state.
namespace {

UnifiedRow plain(const QString& name, const QString& vendorKey, bool enabled, const QString& state = QString())
{
    UnifiedRow r;
    r.name = name;
    r.vendorKey = vendorKey;
    r.vendor = vendorKey;
    r.vst2 = {true, true, enabled, false, false, state, {}, QStringLiteral("vstid-%1").arg(qHash(name)), {}};
    return r;
}

} // namespace

TEST(UnifiedModel, TheTreeItsChecksAndWhatAClickTells)
{
    UnifiedRow header;
    header.isShellHeader = true;
    header.shellKey = QStringLiteral("vst2shell:h");
    header.name = QStringLiteral("Shell");
    header.vendorKey = QStringLiteral("waves");
    UnifiedRow child = plain(QStringLiteral("Child"), QStringLiteral("other"), true); // its vendor was re-assigned
    child.shellKey = QStringLiteral("vst2shell:h");
    UnifiedRow lost = plain(QStringLiteral("Lost"), QStringLiteral("zam"), true);
    lost.shellKey = QStringLiteral("vst2shell:none"); // names no shell: a plain plugin
    UnifiedRow busy = plain(QStringLiteral("Busy"), QStringLiteral("zam"), true, QStringLiteral("verifying"));
    busy.pairId = QStringLiteral("p1");
    UnifiedRow folder;
    folder.isNewPathHeader = true;
    folder.newSection = UpmNewSectionVst2;
    folder.newPath = folder.name = QStringLiteral("/new");
    UnifiedRow raw = plain(QStringLiteral("Raw"), QString(), false);
    raw.newSection = UpmNewSectionVst2;
    raw.newPath = QStringLiteral("/new");

    QVlorUnifiedPluginsModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    model.setRows({});
    EXPECT_EQ(model.rowCount(), 0);
    model.setRows({lost, busy, header, child, folder, raw});

    // Headers make their nodes first: waves (capitalised) and the new section; zam after.
    ASSERT_EQ(model.rowCount(), 3);
    const QModelIndex waves = model.index(0, 0);
    EXPECT_EQ(waves.data().toString(), QStringLiteral("Waves"));
    const QModelIndex shell = model.index(0, 0, waves);
    EXPECT_EQ(shell.data().toString(), QStringLiteral("Shell"));
    EXPECT_EQ(model.rowCount(shell), 1); // the only shell of its key takes the child
    const QModelIndex zam = model.index(2, 0);
    EXPECT_EQ(model.rowCount(zam), 2); // Lost and Busy
    const QModelIndex section = model.index(1, 0);
    EXPECT_EQ(section.data().toString(), QStringLiteral("New VST2 Plugins"));
    EXPECT_EQ(UpmNewRootSortRank(section), 1);
    const QModelIndex newFolder = model.index(0, 0, section);
    const QModelIndex rawIndex = model.index(0, 0, newFolder);
    EXPECT_FALSE(rawIndex.data(Qt::CheckStateRole).isValid());
    EXPECT_FALSE(model.flags(rawIndex) & Qt::ItemIsUserCheckable);
    EXPECT_TRUE(model.flags(newFolder) & Qt::ItemIsUserCheckable);
    EXPECT_EQ(ClassifyUnifiedPluginsIndex(waves, nullptr), 1);
    EXPECT_EQ(ClassifyUnifiedPluginsIndex(shell, nullptr), 2);
    EXPECT_EQ(ClassifyUnifiedPluginsIndex(section, nullptr), 3);
    EXPECT_EQ(ClassifyUnifiedPluginsIndex(newFolder, nullptr), 4);
    UnifiedRow back;
    EXPECT_EQ(ClassifyUnifiedPluginsIndex(rawIndex, &back), 0);
    EXPECT_EQ(back.name, QStringLiteral("Raw"));

    // A click is told, not applied; a busy row takes none, the same value still goes out.
    QSignalSpy pairs(&model, &QVlorUnifiedPluginsModel::pairCheckToggled);
    QSignalSpy vendors(&model, &QVlorUnifiedPluginsModel::vendorCheckToggled);
    QSignalSpy folders(&model, &QVlorUnifiedPluginsModel::newPathShowToggled);
    const QModelIndex lostIndex = model.index(0, 0, zam);
    const QModelIndex busyIndex = model.index(1, 0, zam);
    EXPECT_TRUE(model.setData(lostIndex, Qt::Checked, Qt::CheckStateRole));
    EXPECT_EQ(pairs.count(), 1);
    EXPECT_EQ(lostIndex.data(Qt::CheckStateRole).toInt(), int(Qt::Checked));
    EXPECT_FALSE(model.setData(busyIndex, Qt::Unchecked, Qt::CheckStateRole));
    EXPECT_EQ(pairs.count(), 1);
    EXPECT_EQ(model.flags(busyIndex), Qt::ItemIsSelectable);
    EXPECT_TRUE(model.setData(zam, Qt::Unchecked, Qt::CheckStateRole));
    EXPECT_EQ(vendors.count(), 1);
    EXPECT_EQ(vendors.first().at(0).toString(), QStringLiteral("zam"));
    EXPECT_TRUE(model.setData(newFolder, Qt::Unchecked, Qt::CheckStateRole));
    EXPECT_EQ(folders.count(), 1);
    EXPECT_FALSE(model.setData(section, Qt::Unchecked, Qt::CheckStateRole));

    // With its vendor switched off, a plugin below is only selectable, and keeps its own check.
    UnifiedRow off = plain(QStringLiteral("Off"), QStringLiteral("acme"), true);
    off.vendorEnabled = false;
    model.setRows({off});
    const QModelIndex offIndex = model.index(0, 0, model.index(0, 0));
    EXPECT_EQ(model.flags(offIndex), Qt::ItemIsSelectable);
    EXPECT_EQ(offIndex.data(Qt::CheckStateRole).toInt(), int(Qt::Checked));
}

TEST(UnifiedModel, WhatARowMayDo)
{
    QList<QVlorPluginPairs::Entry> entries = {pair("both", 1, A, "vst3"), pair("half", 2, QString(), "vst2")};
    UnifiedRow r2 = plain(QStringLiteral("Two"), QStringLiteral("zam"), true);
    UnifiedRow r3;
    r3.vst3 = {true, true, false, false, false, {}, {}, A, {}};
    EXPECT_TRUE(UpmRowEffectivelyUnpaired(r2, entries));
    r2.pairId = QStringLiteral("half");
    EXPECT_TRUE(UpmRowEffectivelyUnpaired(r2, entries));
    EXPECT_FALSE(UpmRowSplitEligible(r2, entries));
    const UnifiedRow* a = nullptr;
    const UnifiedRow* b = nullptr;
    QString active;
    ASSERT_TRUE(UpmJoinPairEligible(r3, r2, &a, &b, &active, entries));
    EXPECT_EQ(a, &r2);
    EXPECT_EQ(active, QStringLiteral("vst2")); // only the VST2 plugin is on
    r3.pairId = QStringLiteral("both");
    EXPECT_TRUE(UpmRowSplitEligible(r3, entries));
    EXPECT_FALSE(UpmJoinPairEligible(r3, r2, nullptr, nullptr, nullptr, entries));

    QVlorVst3::Catalog catalog;
    catalog.bundles() = {bundle("/vst3/one.vst3", {cls(A, "One", On)}),
                         bundle("/vst3/two.vst3", {cls(B, "B1", On), cls("CCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCC", "B2", On)})};
    QString path;
    EXPECT_TRUE(UpmRowResetEligible(r3, catalog, &path));
    EXPECT_EQ(path, QStringLiteral("/vst3/one.vst3"));
    r3.vst3.identity = B;
    EXPECT_FALSE(UpmRowResetEligible(r3, catalog, nullptr)); // through its shell header only

    // Available for a pair: present, on, not gated, neither missing nor failed; crashed still counts.
    UnifiedRow p = plain(QStringLiteral("P"), QStringLiteral("zam"), true, QStringLiteral("crashed"));
    p.pairId = QStringLiteral("both");
    EXPECT_TRUE(QVlorUnifiedPluginsModel::formatAvailableForPair({p}, QStringLiteral("both"), QStringLiteral("vst2")));
    p.vst2.state = QStringLiteral("failed");
    EXPECT_FALSE(QVlorUnifiedPluginsModel::formatAvailableForPair({p}, QStringLiteral("both"), QStringLiteral("vst2")));
    EXPECT_FALSE(QVlorUnifiedPluginsModel::formatAvailableForPair({p}, QStringLiteral("both"), QStringLiteral("vst3")));
    EXPECT_FALSE(QVlorUnifiedPluginsModel::formatAvailableForPair({p}, QString(), QStringLiteral("vst2")));
}

// A new plugin offers "Add" unless it is busy, gone, or no effect at all: an
// instrument's check says it is not an effect, and no check will change that.
TEST(UnifiedModel, ANewPluginIsAddableUnlessBusyGoneOrNoEffect)
{
    const QString instrument = QStringLiteral("not an effect this host can use (an instrument, or no audio in place)");
    struct Case {
        const char* what;
        UpmNewSection section;
        QString state;
        QString error;
        bool addable;
    };
    const Case cases[] = {
        {"new", UpmNewSectionVst2, QString(), QString(), true},
        {"failed for a while", UpmNewSectionVst2, QStringLiteral("failed"), QStringLiteral("did not answer within 30 s"), true},
        {"an instrument", UpmNewSectionVst2, QStringLiteral("failed"), instrument, false},
        {"being checked", UpmNewSectionVst2, QStringLiteral("verifying"), QString(), false},
        {"gone", UpmNewSectionVst2, QStringLiteral("missing"), QString(), false},
        {"a known plugin", UpmNewSectionNone, QString(), QString(), false},
    };
    for (const Case& c : cases) {
        UnifiedRow r = plain(QStringLiteral("P"), QStringLiteral("zam"), false, c.state);
        r.newSection = c.section;
        r.vst2.error = c.error;
        EXPECT_EQ(UpmRowAddable(r), c.addable) << c.what;
    }
    // The reason a VST2 check gave reaches the row, for its tooltip and this rule.
    Plugin failed = vst2(QStringLiteral("Synth"), 7);
    failed.setFailed(true);
    failed.setFailReason(instrument);
    QVlorPluginPairs pairs;
    const QList<UnifiedRow> rows = QVlorUnifiedPluginsModel::composeRows({folder(QStringLiteral("/vst"), {failed})},
                                                                         QVlorVst3::Catalog(), pairs, {}, {}, {}, {}, true);
    bool seen = false;
    for (const UnifiedRow& r : rows)
        if (r.name == QStringLiteral("Synth")) {
            seen = true;
            EXPECT_EQ(r.vst2.error, instrument);
            EXPECT_TRUE(UpmRowNotAnEffect(r));
        }
    EXPECT_TRUE(seen);
}

// A name a plugin gives itself is shown cut to what a person reads, at a
// character boundary; the whole of it stays in the tooltip.
TEST(UnifiedModel, LongAndPathologicalNamesAreCutForDisplayWithTheWholeInTheTooltip)
{
    const QString family = QString::fromUtf8("\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7");
    struct Case {
        QString name;
        bool cut;
        int maxUnits; // of the text shown
    };
    const std::vector<Case> cases = {
        {QStringLiteral("ZamComp"), false, 7},
        {QString(120, QLatin1Char('x')), false, 120},
        {QString(121, QLatin1Char('x')), true, 121},
        {QStringLiteral("a") + QString(10000, QChar(0x0301)), true, 40},          // one letter under ten thousand marks
        {QString(5000, QChar(0x0301)), true, 40},                                  // marks alone
        {family.repeated(200), true, 121 * 8},                                     // emoji kept whole
        {QString::fromUtf8("\xF0\x9F\x8E\xB9").repeated(3000), true, 121 * 2},   // surrogate pairs never split
    };
    for (const Case& c : cases) {
        QVlorUnifiedPluginsModel model;
        model.setRows({plain(c.name, QStringLiteral("zam"), true)});
        const QModelIndex vendor = model.index(0, 0);
        ASSERT_EQ(model.rowCount(vendor), 1);
        const QModelIndex row = model.index(0, 0, vendor);
        const QString shown = row.data(Qt::DisplayRole).toString();
        EXPECT_LE(shown.size(), c.maxUnits) << c.name.size();
        EXPECT_EQ(row.data(Qt::ToolTipRole).toString(), c.cut ? c.name : QString()) << c.name.size();
        if (!c.cut) {
            EXPECT_EQ(shown, c.name);
            continue;
        }
        EXPECT_TRUE(shown.endsWith(QChar(0x2026))) << shown.size();
        const QString kept = shown.chopped(1);
        EXPECT_FALSE(kept.isEmpty() || kept.back().isHighSurrogate()) << c.name.size();
        if (c.name.startsWith(family)) {
            EXPECT_TRUE(kept.startsWith(family) && kept.size() % family.size() == 0) << kept.size();
        }
    }
}

// Every id of a row or an action is made and read back through the formats'
// one description, spelled as saved shortcuts and catalogs already hold them.
TEST(PluginFormats, IdsAreMadeAndReadBackThroughOneDescription)
{
    using namespace QVlorAudioPlugins;
    EXPECT_EQ(Vst2RowIdentity(1514360144, QStringLiteral("abc"), 7), QStringLiteral("vstid-1514360144"));
    EXPECT_EQ(Vst2RowIdentity(0, QStringLiteral("abc"), 7), QStringLiteral("vsthash-abc:7"));
    EXPECT_EQ(Vst2RowIdentity(1514360144, QString(), 0), Vst2ActionId(1514360144));
    EXPECT_EQ(Vst3ActionId(QStringLiteral("AB")), QStringLiteral("vst3id-AB"));
    EXPECT_EQ(PairActionId(QStringLiteral("p1")), QStringLiteral("plugid-p1"));
    EXPECT_TRUE(IsPairActionId(QStringLiteral("plugid-p1")));
    EXPECT_FALSE(IsPairActionId(QStringLiteral("vstid-1")));
    EXPECT_EQ(Vst2UniqueIdOfIdentity(QStringLiteral("vstid-42")), 42);
    EXPECT_EQ(Vst2UniqueIdOfIdentity(QStringLiteral("vst3id-42")), 0);
    QString rest;
    EXPECT_TRUE(Vst2HashIdentityParts(QStringLiteral("vsthash-abc:7"), &rest));
    EXPECT_EQ(rest, QStringLiteral("abc:7"));
    EXPECT_FALSE(Vst2HashIdentityParts(QStringLiteral("vstid-42"), &rest));
    QString path;
    EXPECT_TRUE(Vst3BundleOfIdentity(Vst3BundleIdentity(QStringLiteral("/a/b.vst3")), &path));
    EXPECT_EQ(path, QStringLiteral("/a/b.vst3"));
    EXPECT_FALSE(Vst3BundleOfIdentity(QStringLiteral("/a/b.vst3"), &path));
    EXPECT_EQ(BadgeText(Vst2Format(), true), QString::fromUtf8("VST2\u00B732"));
    EXPECT_EQ(BadgeText(Vst3Format(), false), QStringLiteral("VST3"));
    QStringList tokens;
    for (const PluginFormat* f : PluginFormats())
        tokens << QStringList{QLatin1String(f->token), QLatin1String(f->scanSettingKey),
                              QLatin1String(f->checkTimeoutSettingKey), QLatin1String(f->hostProgram),
                              QLatin1String(f->catalogFile)}
                      .join(QLatin1Char(' '));
    // The saved names of the VST formats, as catalogs and settings of earlier
    // versions hold them; LV2's in the "vloraudio.plugins.lv2_" family.
    EXPECT_EQ(tokens,
              (QStringList{QStringLiteral("vst2 vloraudio.plugins.scan_vst2 vloraudio.plugins.vst2_check_timeout_s "
                                          "vlorvst vstxml/catalog_v2.json"),
                           QStringLiteral("vst3 vloraudio.plugins.scan_vst3 vloraudio.plugins.vst3_probe_timeout_s "
                                          "vlorvst3 catalog_vst3.json"),
                           QStringLiteral("lv2 vloraudio.plugins.lv2_scan vloraudio.plugins.lv2_check_timeout_s "
                                          "vlorlv2 catalog_lv2.json")}));
    EXPECT_STREQ(kLv2Format.supportSettingKey, "vloraudio.plugins.lv2_enabled");
}
