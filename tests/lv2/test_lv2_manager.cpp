// The LV2 manager with its real thread and the real host program: a scan of
// the fixture bundle names each fault and survives it, an unchanged rescan
// starts no child, a touched bundle alone is checked again, and a plugin the
// user switched off stays off through rescans, restarts, a corrupt catalog
// and another process's scan.
#include "QVlorLv2_BundleCheck.h"
#include "QVlorLv2_Manager.h"
#include "QVlorPluginFormat.h"
#include "QVlorSetting.h"
#include "lv2engine.h"
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <memory>
#include <sys/stat.h>

using namespace QVlorLv2;
using namespace vlortest;

namespace {

const QString kFixtureFolder = QStringLiteral(VLOR_FIXTURE_LV2_DIR);
const QString kFixture = QStringLiteral("urn:vlor:fixture:");

void sync(Manager& m) { QMetaObject::invokeMethod(&m, [] {}, Qt::BlockingQueuedConnection); }

// A copy of the fixture bundle in a folder of the test's, so that it can be touched.
QString copyFixtures(const TempDir& dir)
{
    const QString folder = QString::fromStdString(dir.file("lv2"));
    QDir().mkpath(folder);
    const QString cmd = QStringLiteral("cp -r '%1/vlor-lv2-fixtures.lv2' '%2/'").arg(kFixtureFolder, folder);
    EXPECT_EQ(std::system(cmd.toUtf8().constData()), 0);
    return folder;
}

class Lv2Manager : public ::testing::Test {
protected:
    void SetUp() override
    {
        // The hang fixture is given two seconds.
        QVlorSetting::global().setForThisRun(QLatin1String(QVlorAudioPlugins::kLv2Format.checkTimeoutSettingKey), 2);
        folder = copyFixtures(dir);
        catalogPath = QString::fromStdString(dir.file("catalog_lv2.json"));
    }
    void TearDown() override
    {
        QVlorSetting::global().setForThisRun(QLatin1String(QVlorAudioPlugins::kLv2Format.checkTimeoutSettingKey),
                                             QVariant());
    }

    std::unique_ptr<Manager> manager(const QStringList& folders)
    {
        auto m = std::make_unique<Manager>(nullptr, catalogPath);
        m->setSearchPathsForTesting(folders);
        QObject::connect(m.get(), &Manager::progressPlugin, m.get(), [this](const QString& b) { checked << b; },
                         Qt::DirectConnection);
        return m;
    }

    // A scan, waited for; the bundles it checked in children.
    QStringList scan(Manager& m)
    {
        checked.clear();
        m.searchPlugins(false);
        sync(m);
        return checked;
    }

    TempDir dir;
    QString folder, catalogPath;
    QStringList checked;
};

} // namespace

TEST_F(Lv2Manager, AScanNamesEachFaultOfTheFixturesAndKeepsTheRest)
{
    auto m = manager({folder});
    EXPECT_EQ(scan(*m), QStringList{QStringLiteral("vlor-lv2-fixtures.lv2")});
    const Catalog c = m->catalogCopy();
    struct Case {
        const char* fixture;
        CatalogPlugin::State state;
        const char* reason;
    } cases[] = {
        {"gain", CatalogPlugin::Usable, ""},
        {"atom", CatalogPlugin::Usable, ""},
        {"worker", CatalogPlugin::Usable, ""},
        {"sidechain", CatalogPlugin::Usable, ""},
        {"fixed-block", CatalogPlugin::Usable, ""},
        {"crash-ui", CatalogPlugin::Usable, ""},
        {"ui-refuses", CatalogPlugin::Usable, ""},
        {"needs-feature", CatalogPlugin::Failed, "requires a feature this host does not offer: urn:vlor:fixture#unoffered"},
        {"crash-instantiate", CatalogPlugin::Crashed, "the plugin crashed during its check"},
        {"crash-run", CatalogPlugin::Crashed, "the plugin crashed during its check"},
        {"crash-cleanup", CatalogPlugin::Crashed, "the plugin crashed during its check"},
        {"hang", CatalogPlugin::Failed, "its check did not end within 2 s"},
        {"nan", CatalogPlugin::Failed, "invalid samples"},
        {"instrument", CatalogPlugin::NotAnEffect, "not an effect"},
    };
    for (const Case& k : cases) {
        const CatalogPlugin* p = c.findPlugin(kFixture + QLatin1String(k.fixture));
        ASSERT_NE(p, nullptr) << k.fixture;
        EXPECT_EQ(p->state, k.state) << k.fixture << ": " << p->reason.toStdString();
        EXPECT_TRUE(p->reason.contains(QLatin1String(k.reason))) << k.fixture << ": " << p->reason.toStdString();
        EXPECT_EQ(c.isOffered(p->uri), k.state == CatalogPlugin::Usable) << k.fixture;
    }
    // What a crash or a hang cut short still has its name, from the metadata.
    EXPECT_EQ(c.findPlugin(kFixture + QStringLiteral("crash-run"))->name, QStringLiteral("Fixture Crash Run"));
    EXPECT_EQ(c.findPlugin(kFixture + QStringLiteral("gain"))->latency, 16);
    EXPECT_TRUE(c.findPlugin(kFixture + QStringLiteral("gain"))->binary.endsWith(QStringLiteral("/vlor-lv2-fixtures.so")));
    // The class as its core type says, read in a world of that bundle alone.
    EXPECT_EQ(c.findPlugin(kFixture + QStringLiteral("gain"))->className, QStringLiteral("Amplifier"));
    EXPECT_EQ(c.pluginCount(), int(std::size(cases)));
}

TEST_F(Lv2Manager, AnUnchangedRescanStartsNoChildAndATouchedBundleAloneIsCheckedAgain)
{
    const QString zam = QStringLiteral("/usr/lib/lv2/ZamComp.lv2");
    if (!QFileInfo::exists(zam))
        GTEST_SKIP() << "zam-plugins (ZamComp.lv2) is not installed";
    ASSERT_EQ(std::system(QStringLiteral("cp -r '%1' '%2/'").arg(zam, folder).toUtf8().constData()), 0);
    auto m = manager({folder});
    EXPECT_EQ(scan(*m).size(), 2);
    EXPECT_TRUE(scan(*m).isEmpty()) << "an unchanged rescan checks nothing";
    // A file of one bundle changes: that bundle, and only it, is checked.
    const QString ttl = folder + QStringLiteral("/ZamComp.lv2/manifest.ttl");
    struct timespec times[2] = {{0, UTIME_NOW}, {1, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, ttl.toUtf8().constData(), times, 0), 0);
    EXPECT_EQ(scan(*m), QStringList{QStringLiteral("ZamComp.lv2")});
    EXPECT_TRUE(m->catalogCopy().isOffered(QStringLiteral("urn:zamaudio:ZamComp")));
    // A bundle that goes leaves the catalog with its plugins.
    ASSERT_EQ(std::system(QStringLiteral("rm -r '%1/ZamComp.lv2'").arg(folder).toUtf8().constData()), 0);
    EXPECT_TRUE(scan(*m).isEmpty());
    EXPECT_EQ(m->catalogCopy().findPlugin(QStringLiteral("urn:zamaudio:ZamComp")), nullptr);
}

TEST_F(Lv2Manager, APluginSwitchedOffStaysOffThroughRescansRestartsACorruptCatalogAndAnotherProcess)
{
    const QString gain = kFixture + QStringLiteral("gain");
    {
        auto m = manager({folder});
        scan(*m);
        m->setPluginEnabled(gain, false);
        sync(*m);
        EXPECT_FALSE(m->catalogCopy().isOffered(gain));
        m->recheckAll();
        sync(*m);
        EXPECT_FALSE(m->catalogCopy().isOffered(gain)) << "a rescan of everything";
        ASSERT_TRUE(m->saveCatalog());
        // Saved twice, so that the last good copy holds the choice.
        m->setPluginEnabled(kFixture + QStringLiteral("atom"), false);
        m->setPluginEnabled(kFixture + QStringLiteral("atom"), true);
        sync(*m);
        ASSERT_TRUE(m->saveCatalog());
        m->aboutToQuit();
    }
    EXPECT_FALSE(manager({folder})->catalogCopy().isEnabled(gain)) << "a restart";
    // Another process scans with the same catalog: the choice stays.
    QProcess other;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("LV2_PATH"), QStringLiteral(":"));
    other.setProcessEnvironment(env);
    other.start(QStringLiteral(VLOR_BIN_DIR "/vlorfx"),
                {QStringLiteral("--data"), QString::fromStdString(dir.path()), QStringLiteral("scan"),
                 QStringLiteral("--quiet"), QStringLiteral("--no-vst2"), QStringLiteral("--no-vst3"),
                 QStringLiteral("--lv2-path"), folder});
    ASSERT_TRUE(other.waitForFinished(120000));
    EXPECT_EQ(other.exitCode(), 0) << other.readAllStandardError().toStdString();
    EXPECT_FALSE(manager({folder})->catalogCopy().isEnabled(gain)) << "another process's scan";
    // The catalog is damaged: its last good copy still knows.
    QFile broken(catalogPath);
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly | QIODevice::Truncate));
    broken.write("{\"bundles\": [ this is not JSON");
    broken.close();
    auto m = manager({folder});
    EXPECT_FALSE(m->catalogCopy().isEnabled(gain)) << "a corrupt catalog";
    EXPECT_GT(m->catalogCopy().pluginCount(), 0);
    // A reset forgets the switch and checks the plugin's bundle again.
    checked.clear();
    m->resetPlugin(gain);
    sync(*m);
    EXPECT_TRUE(m->catalogCopy().isOffered(gain));
    EXPECT_EQ(checked, QStringList{QStringLiteral("Fixture Gain")}) << "the plugin alone, its bundle unchanged";
}

// A check of one plugin of a bundle runs that plugin alone, whatever it does;
// one the bundle does not hold gives no report and no error.
TEST_F(Lv2Manager, ACheckOfOnePluginRunsItAlone)
{
    const QString bundle = folder + QStringLiteral("/vlor-lv2-fixtures.lv2");
    struct Case {
        const char* fixture;
        int reports;
        bool ok;
        const char* reason;
    } cases[] = {
        {"gain", 1, true, ""},
        {"crash-run", 1, false, "the plugin crashed during its check"},
        {"hang", 1, false, "its check did not end within 2 s"},
        {"instrument", 1, false, "not an effect"},
        {"no-such-plugin", 0, true, ""},
    };
    for (const Case& c : cases) {
        const QString uri = kFixture + QLatin1String(c.fixture);
        QStringList began;
        const BundleCheck check = CheckBundle(bundle, 2000, nullptr, [&](const QString& u) { began << u; }, uri);
        EXPECT_TRUE(check.error.isEmpty()) << c.fixture << ": " << check.error.toStdString();
        ASSERT_EQ(check.reports.size(), c.reports) << c.fixture;
        for (const QString& u : began)
            EXPECT_EQ(u, uri) << c.fixture;
        if (!c.reports)
            continue;
        const QJsonObject r = check.reports.first();
        EXPECT_EQ(r.value(QStringLiteral("uri")).toString(), uri) << c.fixture;
        EXPECT_EQ(r.value(QStringLiteral("ok")).toBool(), c.ok) << c.fixture;
        EXPECT_TRUE(r.value(QStringLiteral("error")).toString().contains(QLatin1String(c.reason))) << c.fixture;
    }
}

// Update of one plugin checks it alone and leaves its siblings' records; once
// its bundle changed on disk, the whole bundle is checked.
TEST_F(Lv2Manager, UpdatingOnePluginChecksItAloneWhileItsBundleIsUnchanged)
{
    auto m = manager({folder});
    scan(*m);
    const QString gain = kFixture + QStringLiteral("gain");
    const QString hang = kFixture + QStringLiteral("hang");
    const Catalog before = m->catalogCopy();
    checked.clear();
    m->recheckPlugin(gain);
    sync(*m);
    EXPECT_EQ(checked, QStringList{QStringLiteral("Fixture Gain")});
    const Catalog after = m->catalogCopy();
    EXPECT_TRUE(after.isOffered(gain));
    EXPECT_EQ(after.pluginCount(), before.pluginCount());
    EXPECT_EQ(after.findPlugin(hang)->toJsonObject(), before.findPlugin(hang)->toJsonObject());
    EXPECT_EQ(after.bundleOf(gain)->stamp, before.bundleOf(gain)->stamp);
    // The bundle's files change: the plugin's update checks all of it.
    const QString ttl = folder + QStringLiteral("/vlor-lv2-fixtures.lv2/manifest.ttl");
    struct timespec times[2] = {{0, UTIME_NOW}, {2, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, ttl.toUtf8().constData(), times, 0), 0);
    checked.clear();
    m->recheckPlugin(gain);
    sync(*m);
    EXPECT_EQ(checked, QStringList{QStringLiteral("vlor-lv2-fixtures.lv2")});
    EXPECT_NE(m->catalogCopy().bundleOf(gain)->stamp.toStdString(), before.bundleOf(gain)->stamp.toStdString());
    EXPECT_TRUE(scan(*m).isEmpty()) << "the whole bundle's check stamped it";
}

// A maker switched off holds every plugin of it out of the menu, outlives a
// restart, and leaves the plugins' own switches as they were.
TEST_F(Lv2Manager, AMakerSwitchedOffHoldsItsPluginsBackThroughARestart)
{
    const QString gain = kFixture + QStringLiteral("gain");
    {
        auto m = manager({folder});
        scan(*m);
        m->setVendorEnabled(QStringLiteral("VLOR Fixtures"), false);
        sync(*m);
        EXPECT_FALSE(m->catalogCopy().isOffered(gain));
        EXPECT_TRUE(m->catalogCopy().isEnabled(gain));
        ASSERT_TRUE(m->saveCatalog());
    }
    auto m = manager({folder});
    EXPECT_FALSE(m->catalogCopy().isOffered(gain)) << "a restart";
    EXPECT_EQ(m->catalogCopy().disabledVendors, QStringList{QStringLiteral("vlor fixtures")});
    m->setVendorEnabled(QStringLiteral("Vlor fixtures"), true);
    sync(*m);
    EXPECT_TRUE(m->catalogCopy().isOffered(gain));
}

// A switch flipped by another process reaches a running manager within a
// second or so, and the running manager's next save keeps it.
TEST_F(Lv2Manager, AChoiceSavedByAnotherProcessReachesARunningManager)
{
    const QString atom = kFixture + QStringLiteral("atom");
    auto m = manager({folder});
    scan(*m);
    ASSERT_TRUE(m->saveCatalog());
    int changed = 0;
    QObject::connect(m.get(), &Manager::catalogChanged, m.get(), [&changed] { ++changed; }, Qt::DirectConnection);
    QProcess other;
    other.start(QStringLiteral(VLOR_BIN_DIR "/vlorfx"), {QStringLiteral("--data"), QString::fromStdString(dir.path()),
                                                         QStringLiteral("disable"), atom});
    ASSERT_TRUE(other.waitForFinished(60000));
    ASSERT_EQ(other.exitCode(), 0) << other.readAllStandardError().toStdString();
    EXPECT_TRUE(waitFor([&] { return !m->catalogCopy().isEnabled(atom); }, 3000)) << "not taken in";
    EXPECT_GT(changed, 0);
    m->setPluginEnabled(kFixture + QStringLiteral("gain"), false);
    sync(*m);
    ASSERT_TRUE(m->saveCatalog());
    Catalog disk;
    ASSERT_TRUE(disk.load(catalogPath));
    EXPECT_FALSE(disk.isEnabled(atom)) << "the other process's choice";
    EXPECT_FALSE(disk.isEnabled(kFixture + QStringLiteral("gain"))) << "this one's";
}

// A bundle a scan found in a folder the process's world was not made from
// (one the user added since the start) opens in this process at once; read
// once, however often it is named.
TEST_F(Lv2Manager, WhatAScanFoundInAFolderAddedSinceTheStartOpensInThisProcess)
{
    auto m = manager({folder});
    scan(*m);
    qputenv("LV2_PATH", ":");
    ASSERT_EQ(VLORLV2_Initialize(), 1);
    Lv2PluginRecord record{};
    EXPECT_EQ(VLORLV2_DescribePlugin("urn:vlor:fixture:gain", &record), 1) << "the scan's bundle is in the world";
    const int count = VLORLV2_ListPlugins(nullptr, 0);
    EXPECT_EQ(count, m->catalogCopy().pluginCount());
    // Named again, by a rescan of everything and by hand: nothing is read twice.
    m->recheckAll();
    sync(*m);
    EXPECT_EQ(VLORLV2_AddBundle((folder + QStringLiteral("/vlor-lv2-fixtures.lv2")).toUtf8().constData()), 1);
    EXPECT_EQ(VLORLV2_ListPlugins(nullptr, 0), count);
    char error[256];
    _Lv2Instance* fx = VLORLV2_CreateInstance("urn:vlor:fixture:gain", 48000, 64, error, sizeof(error));
    ASSERT_NE(fx, nullptr) << error;
    VLORLV2_DestroyInstance(fx);
}
