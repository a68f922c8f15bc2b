// The VST2 catalog's records and files: sharing, JSON forms, and the two
// generations of the catalog file.
#include "QVlorVst_Manager.h"
#include "QVlorVst_Path.h"
#include "QVlorVst_Plugin.h"

#include "audiovst.h"
#include "testsupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QThread>

#include <gtest/gtest.h>

using namespace QVlorVst;
using namespace vlortest;

namespace {

QJsonObject parse(const char* json) { return QJsonDocument::fromJson(json).object(); }

// Collects Qt's warnings while it lives.
class WarningCapture {
public:
    WarningCapture() { s_lines.clear(), m_old = qInstallMessageHandler(handler); }
    ~WarningCapture() { qInstallMessageHandler(m_old); }
    bool contains(const QString& text) const
    {
        for (const QString& l : s_lines)
            if (l.contains(text))
                return true;
        return false;
    }
    int count() const { return int(s_lines.size()); }

private:
    static void handler(QtMsgType type, const QMessageLogContext&, const QString& msg)
    {
        if (type == QtWarningMsg)
            s_lines << msg;
    }
    static inline QStringList s_lines;
    QtMessageHandler m_old;
};

// Runs everything queued on the manager's thread so far.
void sync(Manager& m) { QMetaObject::invokeMethod(&m, [] {}, Qt::BlockingQueuedConnection); }

} // namespace

TEST(PluginRecord, DefaultsAndFlagsRead)
{
    Plugin none;
    EXPECT_FALSE(none.isValid());
    EXPECT_FALSE(none.isEnabled());
    EXPECT_FALSE(none.isLoaded());
    EXPECT_TRUE(none.toJsonObject().isEmpty());

    Plugin failed(parse(R"({"filename":"/p/a.so","enabled":true,"failed":true})"));
    EXPECT_FALSE(failed.isEnabled());
    EXPECT_EQ(failed.state(), QStringLiteral("Failed"));
    Plugin child(parse(R"({"filename":"/p/s.so","plugin_id":7})"));
    EXPECT_EQ(child.uniqueId(), 7);
    EXPECT_EQ(child.pluginRef(), QStringLiteral("/p/s.so:7"));
    Plugin arch(parse(R"({"filename":"/p/a.so","arch":"undefined","unique_id":-5})"));
    EXPECT_EQ(arch.arch(), Arch64Bits);
    EXPECT_EQ(arch.uniqueId(), -5);
    EXPECT_EQ(arch.hash(), Hash(QStringLiteral("/p/a.so")));
}

TEST(PluginRecord, ShellsWriteOnlyWhatTheyHave)
{
    Plugin shell(parse(R"({"filename":"/p/shell.so","kind":"shell","name":"ignored"})"));
    ASSERT_TRUE(shell.isShell());
    EXPECT_TRUE(shell.isExpanded());
    const QJsonObject o = shell.toJsonObject();
    EXPECT_FALSE(o.contains(QStringLiteral("plugins")));
    EXPECT_FALSE(o.contains(QStringLiteral("name")));
    EXPECT_EQ(o.value(QStringLiteral("kind")).toString(), QStringLiteral("shell"));
    EXPECT_EQ(o.value(QStringLiteral("expanded")).toBool(false), true);

    QList<Plugin> previous;
    shell.addPlugin(QStringLiteral("One"), 11, &previous);
    shell.addPlugin(QStringLiteral("Two"), 22, &previous);
    ASSERT_EQ(shell.plugins().size(), 2);
    EXPECT_FALSE(shell.plugins()[0].isNew());
    EXPECT_FALSE(shell.plugins()[0].isEnabled());
    shell.plugins()[1].setEnabled(true);
    // A re-probe that offers only "Two" keeps it as it was and drops "One".
    previous = shell.plugins();
    shell.addPlugin(QStringLiteral("Two"), 22, &previous);
    for (const Plugin& gone : previous)
        shell.removePlugin(gone);
    ASSERT_EQ(shell.plugins().size(), 1);
    EXPECT_TRUE(shell.plugins()[0].isEnabled());

    const Plugin back(shell.toJsonObject());
    ASSERT_EQ(back.plugins().size(), 1);
    EXPECT_EQ(back.plugins()[0].uniqueId(), 22);

    Plugin plain(QStringLiteral("/p/plain.so"));
    QList<Plugin> untouched{plain};
    plain.addPlugin(QStringLiteral("x"), 1, &untouched);
    EXPECT_TRUE(plain.plugins().isEmpty());
    EXPECT_EQ(untouched.size(), 1);
}

TEST(PluginRecord, CopiesAliasAndDetachedCopiesDoNot)
{
    Plugin shell(QStringLiteral("/p/s.so"));
    shell.setKind(ShellPlugin);
    shell.addPlugin(QStringLiteral("child"), 3, nullptr);
    Plugin alias = shell;
    alias.setName(QStringLiteral("renamed"));
    EXPECT_EQ(shell.name(), QStringLiteral("renamed"));

    Plugin detached = shell.detachedCopy();
    detached.setName(QStringLiteral("other"));
    detached.plugins()[0].setEnabled(true);
    EXPECT_EQ(shell.name(), QStringLiteral("renamed"));
    EXPECT_FALSE(shell.plugins()[0].isEnabled());
    EXPECT_TRUE(detached == shell); // same file and id

    Plugin fresh(QStringLiteral("/p/new-file.so"));
    EXPECT_TRUE(fresh.isNew());
    fresh.setFailed(false);
    EXPECT_FALSE(fresh.isNew());
    EXPECT_EQ(fresh.relativeFilename(Path(QStringLiteral("/elsewhere"), UserPath)), QStringLiteral(".so"));
}

TEST(PluginRecord, HashesAgreeWithTheEngine)
{
    char engine[64];
    AUDIOVST_ComputePluginHash("/usr/lib/vst/ZamComp-vst.so", 0, engine, sizeof(engine));
    EXPECT_EQ(Hash(QStringLiteral("/usr/lib/vst/ZamComp-vst.so")), QString::fromLatin1(engine));
    AUDIOVST_ComputePluginHash("/usr/lib/vst/ZamComp-vst.so", 1234, engine, sizeof(engine));
    EXPECT_EQ(PluginSettingsHash(QStringLiteral("/usr/lib/vst/ZamComp-vst.so"), 1234), QString::fromLatin1(engine));
    EXPECT_TRUE(Hash(QString()).isEmpty());
    EXPECT_TRUE(PluginSettingsHash(QString(), 1).isEmpty());
}

TEST(PathRecord, DefaultsKindsAndPlugins)
{
    Path none;
    EXPECT_FALSE(none.isEnabled());
    EXPECT_TRUE(none.isSearched());
    EXPECT_TRUE(none.toJsonObject().isEmpty());
    EXPECT_EQ(Path(parse(R"({"path":"/x","kind":"System"})")).kind(), UserPath);
    EXPECT_EQ(Path(parse(R"({"path":"/x","kind":"system"})")).kind(), SystemPath);

    TempDir dir;
    writeFile(dir.file("a.so"), "");
    Path path(QString::fromStdString(dir.path()), UserPath);
    ASSERT_TRUE(path.addPlugin(QString::fromStdString(dir.file("a.so"))).isValid());
    const QString cwd = QDir::currentPath();
    QDir::setCurrent(QString::fromStdString(dir.path()));
    EXPECT_FALSE(path.addPlugin(QStringLiteral("a.so")).isValid()); // relative, but known
    QDir::setCurrent(cwd);
    Plugin other(QString::fromStdString(dir.file("a.so")));
    other.setName(QStringLiteral("second"));
    path.appendPlugin(other);
    ASSERT_EQ(path.plugins().size(), 1);
    EXPECT_TRUE(path.plugins()[0].name().isEmpty());

    Path three(QStringLiteral("/x"), UserPath);
    for (int id : {0, 5, 0}) {
        Plugin p(QStringLiteral("/x/%1.so").arg(three.plugins().size()));
        p.setUniqueId(id);
        three.appendPlugin(p);
    }
    EXPECT_EQ(three.dropUnprobedPlugins(), 2);
    ASSERT_EQ(three.plugins().size(), 1);
    EXPECT_EQ(three.plugins()[0].uniqueId(), 5);

    three.setVendorEnabled(QStringLiteral("acme"), false);
    EXPECT_FALSE(three.isVendorEnabled(QStringLiteral("acme")));
    EXPECT_TRUE(three.isVendorEnabled(QStringLiteral("Acme")));
    three.setEnabled(false);
    const QJsonObject o = three.toJsonObject();
    EXPECT_TRUE(o.value(QStringLiteral("disabled")).toBool());
    EXPECT_EQ(o.value(QStringLiteral("disabledVendors")).toArray().size(), 1);
    const Path back(o);
    EXPECT_FALSE(back.isEnabled());
    EXPECT_FALSE(back.isVendorEnabled(QStringLiteral("acme")));
    EXPECT_EQ(back.plugins().size(), 1);
}

/* ---- catalog files -------------------------------------------------------- */

class CatalogFiles : public ::testing::Test {
protected:
    void SetUp() override
    {
        QDir(QString::fromStdString(dataDir() + "/vstxml")).removeRecursively();
        v2 = QString::fromStdString(dataDir() + "/vstxml/catalog_v2.json");
        v1 = QString::fromStdString(dataDir() + "/vstxml/catalog.json");
    }
    QString v1, v2;
};

TEST_F(CatalogFiles, NeitherFileGivesAnEmptyListAndNoWarning)
{
    WarningCapture warnings;
    Manager m;
    m.loadCatalog();
    sync(m);
    EXPECT_TRUE(QDir(QString::fromStdString(dataDir() + "/vstxml")).exists());
    m.aboutToQuit();
    m.saveCatalog();
    EXPECT_FALSE(QFile::exists(v2)); // nothing changed: nothing written
    EXPECT_EQ(warnings.count(), 0);
}

TEST_F(CatalogFiles, TheFirstGenerationMigratesOnce)
{
    QDir().mkpath(QFileInfo(v1).absolutePath());
    writeFile(v1.toStdString(), R"({"paths":[{"path":"/opt/vst"},{"path":"/opt/other"}],
        "descriptors":[
          {"path":"/opt/vst","filename":"/opt/vst/a.so","unique_id":11,"disabled":false,"name":"A"},
          {"path":"/opt/vst","filename":"/opt/vst/a.so","unique_id":12,"name":"A again"},
          {"path":"/opt/vst","filename":"/opt/vst/b.so","unique_id":13,"disabled":true},
          {"path":"/opt/vst","filename":"/opt/vst/c.so","unique_id":14,"failed":true},
          {"path":"/opt/vst","filename":"/opt/vst/d.so","unique_id":0},
          {"path":"/opt/vst","filename":"/opt/vst/e.so","is_new":true},
          {"path":"/nowhere","filename":"/nowhere/f.so","unique_id":15}]})");
    {
        Manager m;
        m.loadCatalog();
        sync(m);
        ASSERT_TRUE(vlortest::waitFor([&] { return QFile::exists(v2); })); // saved a moment later
        const QList<Path> paths = m.pathsCopy();
        ASSERT_EQ(paths.size(), 2);
        const QList<Plugin>& plugins = paths[0].plugins();
        ASSERT_EQ(plugins.size(), 3); // a (the first), b, e
        EXPECT_EQ(plugins[0].name(), QStringLiteral("A"));
        EXPECT_TRUE(plugins[0].isEnabled());
        EXPECT_FALSE(plugins[1].isEnabled());
        EXPECT_TRUE(plugins[2].isNew());
    }
    // From now on the second generation is read; the first stays where it was.
    const QByteArray written = readFile(v2.toStdString()).c_str();
    writeFile(v1.toStdString(), R"({"paths":[{"path":"/changed"}]})");
    Manager again;
    again.loadCatalog();
    sync(again);
    again.aboutToQuit();
    again.saveCatalog();
    EXPECT_EQ(QByteArray(readFile(v2.toStdString()).c_str()), written);
    EXPECT_TRUE(QFile::exists(v1));
}

TEST_F(CatalogFiles, BrokenFilesLeaveTheListAsItWasWithAWarning)
{
    QDir().mkpath(QFileInfo(v2).absolutePath());
    Manager m;
    m.addPath(QStringLiteral("/tmp"));
    sync(m);
    struct Case {
        const char* text;
        const char* warning;
    };
    for (const Case c : {Case{R"({"paths":[{"path":"/a"},)", "Failed to parser vst plugin catalog"},
                         Case{"[1,2,3]", "Unexpected data in plugin catalog"}, Case{R"({"paths":5})", nullptr}}) {
        WarningCapture warnings;
        writeFile(v2.toStdString(), c.text);
        m.loadCatalog();
        sync(m);
        QStringList seen;
        QMetaObject::Connection conn = QObject::connect(
            &m, &Manager::paths, &m,
            [&seen](const QList<Path>& paths) {
                for (const Path& p : paths)
                    seen << p.absolutePath();
            },
            Qt::DirectConnection);
        m.getPaths();
        sync(m);
        QObject::disconnect(conn);
        EXPECT_EQ(seen, QStringList{QStringLiteral("/tmp")}) << c.text;
        if (c.warning)
            EXPECT_TRUE(warnings.contains(QString::fromLatin1(c.warning))) << c.text;
        else
            EXPECT_EQ(warnings.count(), 0) << c.text;
    }
}
