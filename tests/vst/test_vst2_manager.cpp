// The VST2 manager with its real thread: where slots run and signals come
// from, the snapshots, cancelling, and the scan and operations on folders of
// test plugins, checked by the real host program.
#include "QVlorVst_Manager.h"

#include "QVlorSetting.h"
#include "audiovst.h"
#include "libbase.h"
#include "testsupport.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QFile>
#include <QElapsedTimer>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QSemaphore>
#include <QThread>

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

using namespace QVlorVst;
using namespace vlortest;

namespace {

const QString kFixtures = QStringLiteral(VLOR_FIXTURE_VST_DIR);

void sync(Manager& m) { QMetaObject::invokeMethod(&m, [] {}, Qt::BlockingQueuedConnection); }

// What the manager said, and on which thread.
struct Recorder {
    QMutex lock;
    QStringList events;
    QList<QThread*> threads;
    void add(const QString& e)
    {
        QMutexLocker l(&lock);
        events << e;
        threads << QThread::currentThread();
    }
    QStringList take()
    {
        QMutexLocker l(&lock);
        QStringList out;
        out.swap(events);
        threads.clear();
        return out;
    }
    int count(const QString& prefix)
    {
        QMutexLocker l(&lock);
        int n = 0;
        for (const QString& e : events)
            n += e.startsWith(prefix);
        return n;
    }
    void attach(Manager& m)
    {
        auto direct = Qt::DirectConnection;
        QObject::connect(&m, &Manager::beginScan, &m, [this] { add(QStringLiteral("begin")); }, direct);
        QObject::connect(&m, &Manager::endScan, &m, [this](bool b) { add(QStringLiteral("end %1").arg(b)); }, direct);
        QObject::connect(&m, &Manager::pluginEnabled, &m,
                         [this](const Plugin& p, const Path&) { add(QStringLiteral("enabled ") + p.pluginRef()); },
                         direct);
        QObject::connect(&m, &Manager::pluginDisabled, &m,
                         [this](const Plugin& p, const Path&) { add(QStringLiteral("disabled ") + p.pluginRef()); },
                         direct);
        QObject::connect(&m, &Manager::pluginFailed, &m,
                         [this](const Plugin& p, const Path&) { add(QStringLiteral("failed ") + p.pluginRef()); },
                         direct);
        QObject::connect(&m, &Manager::pathAdded, &m, [this](const QString& p) { add(QStringLiteral("pathAdded ") + p); },
                         direct);
        QObject::connect(&m, &Manager::pathDeleted, &m,
                         [this](const QString& p) { add(QStringLiteral("pathDeleted ") + p); }, direct);
        QObject::connect(&m, &Manager::newPluginsFound, &m,
                         [this](const QStringList& refs) { add(QStringLiteral("new %1").arg(refs.size())); }, direct);
    }
};

// A folder of the test's own with copies of fixture plugins, and a host
// program that logs every start.
class ManagerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        AUDIOVST_Initialize();
        folder = QString::fromStdString(dir.file("plugins"));
        QDir().mkpath(folder);
        const std::string host = dir.file("host");
        QDir().mkpath(QString::fromStdString(host));
        log = dir.file("starts.log");
        writeFile(host + "/vlorvst",
                  "#!/bin/sh\nprintf '%s\\n' \"$1\" >> '" + log + "'\nexec '" VLOR_BIN_DIR "/vlorvst' \"$@\"\n", true);
        AUDIOVST_ForgetVlorVstPath();
        ASSERT_EQ(AUDIOVST_SetVlorVstPath(host.c_str()), 1);
        QVlorSetting::global().change(QStringLiteral("vloraudio.plugins.scan_vst2"), true);
    }
    QString add(const QString& fixture, const QString& name)
    {
        const QString to = folder + QLatin1Char('/') + name;
        QDir().mkpath(QFileInfo(to).absolutePath());
        QFile::remove(to);
        QFile::copy(kFixtures + QLatin1Char('/') + fixture, to);
        return to;
    }
    int checks()
    {
        std::ifstream in(log);
        int n = 0;
        for (std::string line; std::getline(in, line);)
            n += line == "--check";
        return n;
    }
    Plugin find(Manager& m, const QString& file, int id = 0)
    {
        for (const Path& p : m.pathsCopy())
            for (const Plugin& plugin : p.plugins()) {
                if (plugin.filename() == file && plugin.pluginId() == id)
                    return plugin;
                for (const Plugin& c : plugin.plugins())
                    if (c.filename() == file && c.pluginId() == id)
                        return c;
            }
        return Plugin();
    }
    Path pathOf(Manager& m)
    {
        for (const Path& p : m.pathsCopy())
            if (p.absolutePath() == folder)
                return p;
        return Path();
    }
    void scan(Manager& m)
    {
        m.updatePlugins(true, false);
        m.enableNewPlugins();
        sync(m);
    }

    TempDir dir;
    QString folder;
    std::string log;
};

} // namespace

TEST_F(ManagerTest, PostedSlotsReturnAtOnceAndRunOnTheManagersThread)
{
    Manager m;
    Recorder r;
    r.attach(m);
    QThread* managerThread = m.thread();
    ASSERT_NE(managerThread, QThread::currentThread());
    EXPECT_EQ(managerThread->objectName(), QStringLiteral("QVlorVst::Manager"));
    add(QStringLiteral("vlor-fixture-stereo.so"), QStringLiteral("a.so"));
    m.addPath(folder);
    m.updatePlugins();
    m.enableNewPlugins();
    sync(m);
    ASSERT_GE(r.events.size(), 4);
    for (QThread* t : r.threads)
        EXPECT_EQ(t, managerThread);
    EXPECT_EQ(r.count(QStringLiteral("pathAdded")), 1);
    EXPECT_EQ(r.count(QStringLiteral("end")), 2);
    EXPECT_FALSE(m.isScanning());
}

TEST_F(ManagerTest, SnapshotsNeverAliasTheWorkingRecords)
{
    Manager m;
    for (int i = 0; i < 6; ++i)
        add(QStringLiteral("vlor-fixture-stereo.so"), QStringLiteral("p%1.so").arg(i));
    m.addPath(folder);
    sync(m);
    const QList<Path> before = m.pathsCopy();
    // Snapshots taken while the scan writes: writing to them must not reach the catalog.
    std::atomic<int> taken{0};
    QObject::connect(
        &m, &Manager::progressScan, &m,
        [&](int, int) {
            QList<Path> snap = m.pathsCopy();
            for (Path& p : snap)
                for (Plugin& plugin : p.plugins())
                    plugin.setName(QStringLiteral("written by a reader"));
            ++taken;
        },
        Qt::DirectConnection);
    scan(m);
    EXPECT_GT(taken.load(), 0);
    EXPECT_TRUE(before[0].plugins().isEmpty()); // the old snapshot did not grow
    // The working records, as the manager's thread holds them.
    QStringList names;
    QObject::connect(
        &m, &Manager::paths, &m,
        [&names](const QList<Path>& paths) {
            for (const Plugin& p : paths[0].plugins())
                names << p.name();
        },
        Qt::DirectConnection);
    m.getPaths();
    sync(m);
    ASSERT_EQ(names.size(), 6);
    EXPECT_EQ(names[0], QStringLiteral("Vlor Fixture Stereo")); // the others are copies of it: duplicates
    for (const QString& n : names)
        EXPECT_NE(n, QStringLiteral("written by a reader"));
}

TEST_F(ManagerTest, CancelEndsAScanAndEndScanStillComes)
{
    for (int i = 0; i < 8; ++i)
        add(QStringLiteral("vlor-fixture-stereo.so"), QStringLiteral("c%1.so").arg(i));
    Manager m;
    Recorder r;
    r.attach(m);
    m.addPath(folder);
    m.cancel(); // nothing runs yet: no effect on the scan that follows
    m.updatePlugins(true, false);
    sync(m);
    EXPECT_EQ(r.count(QStringLiteral("end")), 1);
    QObject::connect(&m, &Manager::progressScan, &m, [&m](int, int) { m.cancel(); }, Qt::DirectConnection);
    m.enableNewPlugins();
    sync(m);
    EXPECT_EQ(r.count(QStringLiteral("end")), 2);
    int probed = 0;
    for (const Plugin& p : pathOf(m).plugins())
        probed += p.uniqueId() != 0;
    EXPECT_GE(probed, 1);
    EXPECT_LT(probed, 8);
}

TEST_F(ManagerTest, AfterAboutToQuitCallsRunOnTheCallersThread)
{
    Manager m;
    Recorder r;
    r.attach(m);
    QThread* thread = m.thread();
    m.aboutToQuit();
    EXPECT_TRUE(thread->isFinished());
    m.addPath(folder); // runs here and now
    EXPECT_EQ(r.count(QStringLiteral("pathAdded")), 1);
    EXPECT_EQ(r.threads.value(0), QThread::currentThread());
    m.aboutToQuit(); // twice is harmless
}

TEST_F(ManagerTest, AScanFindsFilesButNotLinksUpperCaseOrRoot)
{
    const QString good = add(QStringLiteral("vlor-fixture-stereo.so"), QStringLiteral("sub/dir/deep.so"));
    add(QStringLiteral("vlor-fixture-stereo.so"), QStringLiteral("UPPER.SO"));
    QFile::link(good, folder + QStringLiteral("/link.so"));
    QDir().mkpath(QString::fromStdString(dir.file("elsewhere")));
    QFile::link(QString::fromStdString(dir.file("elsewhere")), folder + QStringLiteral("/linkdir"));
    Manager m;
    m.addPath(folder);
    m.addPath(QStringLiteral("/"));
    m.updatePlugins(true, false);
    sync(m);
    const QList<Path> paths = m.pathsCopy();
    ASSERT_EQ(paths.size(), 2);
    ASSERT_EQ(paths[0].plugins().size(), 1);
    EXPECT_EQ(paths[0].plugins()[0].filename(), good);
    EXPECT_TRUE(paths[0].plugins()[0].isNew());
    EXPECT_FALSE(paths[1].isEnabled()); // the root disables its path
    EXPECT_EQ(checks(), 0);             // finding opens nothing
}

TEST_F(ManagerTest, TheFastPathOfEnablePluginStartsNoChild)
{
    const QString file = add(QStringLiteral("vlor-fixture-stereo.so"), QStringLiteral("fast.so"));
    Manager m;
    Recorder r;
    r.attach(m);
    m.addPath(folder);
    scan(m);
    const int after = checks();
    EXPECT_EQ(after, 1);
    Plugin p = find(m, file);
    ASSERT_TRUE(p.isEnabled());
    m.disablePlugin(p, pathOf(m));
    sync(m);
    EXPECT_FALSE(find(m, file).isEnabled());
    p = find(m, file);
    m.enablePlugin(p, pathOf(m));
    m.updatePlugins(true, false);
    sync(m);
    EXPECT_TRUE(find(m, file).isEnabled());
    EXPECT_EQ(checks(), after);
    EXPECT_GE(r.count(QStringLiteral("enabled ") + file), 2);
}

TEST_F(ManagerTest, AShellsChildrenAreReplacedAtADeepReprobeAndKeepTheirChoices)
{
    const QString file = add(QStringLiteral("vlor-fixture-shell.so"), QStringLiteral("shell.so"));
    Manager m;
    m.addPath(folder);
    scan(m);
    Plugin shell = find(m, file);
    ASSERT_TRUE(shell.isShell());
    ASSERT_EQ(shell.plugins().size(), 4);
    Plugin second = shell.plugins()[1];
    EXPECT_FALSE(second.isEnabled()); // children are enabled one by one
    m.enablePlugin(second, pathOf(m));
    sync(m);
    ASSERT_TRUE(find(m, file, second.pluginId()).isEnabled());

    setenv("VLOR_FIXTURE_SHELL_CHILDREN", "2", 1);
    m.rescanPlugins();
    sync(m);
    unsetenv("VLOR_FIXTURE_SHELL_CHILDREN");
    shell = find(m, file);
    ASSERT_EQ(shell.plugins().size(), 2);
    EXPECT_TRUE(shell.plugins()[1].isEnabled());
}

TEST_F(ManagerTest, ResetForgetsWhatWasLearned)
{
    const QString file = add(QStringLiteral("vlor-fixture-shell.so"), QStringLiteral("reset-shell.so"));
    const QString plain = add(QStringLiteral("vlor-fixture-stereo.so"), QStringLiteral("reset.so"));
    Manager m;
    Recorder r;
    r.attach(m);
    m.addPath(folder);
    scan(m);
    Plugin p = find(m, plain);
    ASSERT_NE(p.uniqueId(), 0);
    m.resetPlugin(p, pathOf(m));
    Plugin s = find(m, file);
    m.resetPlugin(s, pathOf(m));
    sync(m);
    p = find(m, plain);
    EXPECT_TRUE(p.isNew());
    EXPECT_FALSE(p.isEnabled());
    EXPECT_EQ(p.uniqueId(), 0);
    s = find(m, file);
    EXPECT_EQ(s.kind(), EffectPlugin);
    EXPECT_TRUE(s.plugins().isEmpty());
    EXPECT_EQ(r.count(QStringLiteral("disabled ") + file + QLatin1Char(':')), 5); // four children, then the file
    EXPECT_EQ(AUDIOVST_GetPluginStatusEx(plain.toUtf8().constData(), int(('V' << 24) | ('l' << 16) | ('F' << 8) | 'x')),
              AUDIOVST_STATUS_UNKNOWN);
}

TEST_F(ManagerTest, PathsVendorsAndCrashes)
{
    const QString a = add(QStringLiteral("vlor-fault-chatty.so"), QStringLiteral("v1.so"));
    const QString b = add(QStringLiteral("vlor-fault-resize.so"), QStringLiteral("v2.so"));
    Manager m;
    Recorder r;
    r.attach(m);
    m.addPath(folder);
    m.addPath(QStringLiteral("/no/such/folder"));
    scan(m);
    ASSERT_EQ(m.pathsCopy().size(), 1);

    // Two plugins of one vendor: switching the vendor off blocks both, their flags untouched.
    ASSERT_TRUE(find(m, a).isEnabled());
    ASSERT_TRUE(find(m, b).isEnabled());
    m.setVendorEnabled(folder, QStringLiteral("VLOR \"Faults\" & CO"), false);
    sync(m);
    EXPECT_FALSE(pathOf(m).isVendorEnabled(QStringLiteral("vlor \"faults\" & co")));
    EXPECT_TRUE(find(m, a).isEnabled());
    EXPECT_EQ(r.count(QStringLiteral("disabled ")), 2);
    const int enabledBefore = r.count(QStringLiteral("enabled ") + a);
    m.updatePlugins(true, false);
    sync(m);
    EXPECT_EQ(r.count(QStringLiteral("enabled ") + a), enabledBefore); // blocked

    // A crash seen elsewhere marks the first record with that id.
    m.markPluginCrashed(find(m, a).uniqueId());
    sync(m);
    EXPECT_TRUE(find(m, a).isFailed());
    EXPECT_FALSE(find(m, b).isFailed());

    // Deleting keeps probed plugins out of scans; adding brings them back.
    add(QStringLiteral("vlor-fixture-stereo.so"), QStringLiteral("unprobed.so"));
    m.searchPlugins(false);
    sync(m);
    ASSERT_EQ(pathOf(m).plugins().size(), 3);
    m.deletePath(folder);
    sync(m);
    ASSERT_TRUE(pathOf(m).isValid());
    EXPECT_FALSE(pathOf(m).isSearched());
    EXPECT_EQ(pathOf(m).plugins().size(), 2);
    m.addPath(folder);
    sync(m);
    EXPECT_TRUE(pathOf(m).isSearched());
    EXPECT_EQ(pathOf(m).plugins().size(), 2);
    EXPECT_EQ(r.count(QStringLiteral("pathAdded")), 2);

    // A vanished file fails its next enable without a check.
    QFile::remove(b);
    Plugin gone = find(m, b);
    const int before = checks();
    m.enablePlugin(gone, pathOf(m));
    sync(m);
    EXPECT_TRUE(find(m, b).missing());
    EXPECT_EQ(checks(), before);
}

TEST_F(ManagerTest, VerifyingMarksShowBeforeTheWorkAndClearAfter)
{
    const QString file = add(QStringLiteral("vlor-fixture-stereo.so"), QStringLiteral("mark.so"));
    Manager m;
    m.addPath(folder);
    m.searchPlugins(false);
    sync(m);
    const QString ref = find(m, file).pluginRef();
    // Hold the manager's thread so that the mark is seen before the work.
    QMutex gate;
    gate.lock();
    QMetaObject::invokeMethod(&m, [&gate] { QMutexLocker l(&gate); }, Qt::QueuedConnection);
    m.markPluginsVerifying({ref, ref});
    m.enablePlugins({ref});
    EXPECT_TRUE(find(m, file).verifying());
    gate.unlock();
    sync(m);
    EXPECT_FALSE(find(m, file).verifying());
    EXPECT_TRUE(find(m, file).isEnabled());
}

TEST_F(ManagerTest, ScanSwitchedOffSaysSoAndDoesNothing)
{
    Manager m;
    Recorder r;
    r.attach(m);
    QVlorVst::Manager::setScanEnabled(false);
    m.updatePlugins();
    sync(m);
    QVlorVst::Manager::setScanEnabled(true);
    QMutexLocker l(&r.lock);
    EXPECT_EQ(r.events, (QStringList{QStringLiteral("begin"), QStringLiteral("end 0")}));
}

TEST(DebianSet, EveryFileFoundEveryEffectEnabledTheCoreFailed)
{
    if (!QDir(QStringLiteral("/usr/lib/vst")).exists())
        GTEST_SKIP() << "no system plugins";
    AUDIOVST_Initialize();
    AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR);
    int files = 0;
    for (const char* dir : {"/usr/lib/vst", "/usr/lib/lxvst"}) {
        QDirIterator it(QString::fromLatin1(dir), {QStringLiteral("*.so")}, QDir::Files | QDir::NoSymLinks,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            it.next();
            ++files;
        }
    }
    Manager m;
    m.addPath(QStringLiteral("/usr/lib/vst"));
    m.addPath(QStringLiteral("/usr/lib/lxvst"));
    m.updatePlugins(true, false);
    m.enableNewPlugins();
    sync(m);
    int found = 0;
    for (const Path& p : m.pathsCopy())
        for (const Plugin& plugin : p.plugins()) {
            ++found;
            if (plugin.isEnabled())
                continue;
            const QString name = QFileInfo(plugin.filename()).fileName();
            // What fails is the shared core with no entry point and the instruments.
            const bool expected = name.startsWith(QStringLiteral("lsp-plugins-vst2")) ||
                                  name.contains(QStringLiteral("sampler")) || name.contains(QStringLiteral("trigger")) ||
                                  name == QStringLiteral("Nekobi-vst.so") || name == QStringLiteral("Kars-vst.so");
            EXPECT_TRUE(expected) << qPrintable(plugin.filename());
            EXPECT_TRUE(plugin.isFailed()) << qPrintable(plugin.filename());
        }
    EXPECT_EQ(found, files);
}

// A plugin that hangs its check is named before the check starts and is
// remembered with a reason a user can read; so are the others that fail.
TEST_F(ManagerTest, AFailedCheckIsNamedAndKeepsItsReason)
{
    const QString hang = add(QStringLiteral("vlor-fault-hang-open.so"), QStringLiteral("hang.so"));
    const QString synth = add(QStringLiteral("vlor-fault-synth.so"), QStringLiteral("synth.so"));
    const QString crash = add(QStringLiteral("vlor-fault-crash-open.so"), QStringLiteral("crash.so"));
    QVlorSetting::global().change(QStringLiteral("vloraudio.plugins.vst2_check_timeout_s"), 1);
    Manager m;
    QStringList named;
    QObject::connect(&m, &Manager::progressPlugin, &m, [&named](const QString& n) { named << n; }, Qt::DirectConnection);
    m.addPath(folder);
    scan(m);
    QVlorSetting::global().remove(QStringLiteral("vloraudio.plugins.vst2_check_timeout_s"));
    EXPECT_TRUE(named.contains(QStringLiteral("hang.so"))) << named.join(QLatin1Char(',')).toStdString();
    struct Expect {
        QString file;
        QString reason;
    };
    for (const Expect& e : {Expect{hang, QStringLiteral("did not answer within 1 s")},
                            Expect{synth, QStringLiteral("not an effect this host can use (an instrument, or no audio in place)")},
                            Expect{crash, QStringLiteral("crashed while being checked (signal 11)")}}) {
        const Plugin p = find(m, e.file);
        EXPECT_TRUE(p.isFailed()) << e.file.toStdString();
        EXPECT_EQ(p.failReason(), e.reason) << e.file.toStdString();
    }
    // The reason travels with the record into the catalog file.
    const Plugin p = find(m, hang);
    EXPECT_EQ(Plugin(p.toJsonObject()).failReason(), QStringLiteral("did not answer within 1 s"));
    Plugin revived = p.detachedCopy();
    revived.setFailed(false);
    EXPECT_TRUE(revived.failReason().isEmpty());
}

// A quit while a plugin hangs its check, with more queued behind it: the
// check gets two seconds, the queue does not start, and the plugin cut short
// is neither failed nor crashed.
TEST_F(ManagerTest, AQuitWaitsForNoQueueAndAHangForTwoSecondsAtMost)
{
    const QStringList files = {add(QStringLiteral("vlor-fixture-stereo.so"), QStringLiteral("first.so")),
                               add(QStringLiteral("vlor-fault-hang-open.so"), QStringLiteral("hang.so")),
                               add(QStringLiteral("vlor-fixture-stereo.so"), QStringLiteral("after.so")),
                               add(QStringLiteral("vlor-fixture-stereo.so"), QStringLiteral("last.so"))};
    Manager m;
    m.addPath(folder);
    m.searchPlugins(false);
    sync(m);
    QSemaphore hanging;
    QObject::connect(&m, &Manager::progressPlugin, &m,
                     [&hanging](const QString& name) {
                         if (name == QLatin1String("hang.so"))
                             hanging.release();
                     },
                     Qt::DirectConnection);
    for (const QString& f : files) {
        Plugin p = find(m, f);
        m.enablePlugin(p, pathOf(m));
    }
    ASSERT_TRUE(hanging.tryAcquire(1, 10000));
    QElapsedTimer timer;
    timer.start();
    m.aboutToQuit();
    EXPECT_LT(timer.elapsed(), 2000 + 1500);
    // First, and hang if its child had begun: the rest never started.
    EXPECT_GE(checks(), 1);
    EXPECT_LE(checks(), 2);
    const Plugin hang = find(m, files[1]);
    EXPECT_FALSE(hang.isFailed());
    EXPECT_FALSE(hang.verifying());
    EXPECT_EQ(AUDIOVST_GetPluginStatusEx(files[1].toUtf8().constData(), 0) & AUDIOVST_STATUS_CRASHED, 0);
    EXPECT_TRUE(find(m, files[2]).isNew());
}

// Cancel drops the checks queued before it; one asked for after it runs.
TEST_F(ManagerTest, CancelDropsTheChecksQueuedBeforeIt)
{
    const QString hang = add(QStringLiteral("vlor-fault-hang-open.so"), QStringLiteral("hang.so"));
    const QString queued = add(QStringLiteral("vlor-fixture-stereo.so"), QStringLiteral("queued.so"));
    const QString later = add(QStringLiteral("vlor-fixture-stereo.so"), QStringLiteral("later.so"));
    Manager m;
    m.addPath(folder);
    m.searchPlugins(false);
    sync(m);
    QSemaphore checking;
    QObject::connect(&m, &Manager::progressPlugin, &m, [&checking](const QString&) { checking.release(); },
                     Qt::DirectConnection);
    m.markPluginsVerifying({find(m, queued).pluginRef()});
    Plugin p = find(m, hang);
    m.enablePlugin(p, pathOf(m));
    p = find(m, queued);
    m.enablePlugin(p, pathOf(m));
    ASSERT_TRUE(checking.tryAcquire(1, 10000));
    m.cancel();
    p = find(m, later);
    m.enablePlugin(p, pathOf(m));
    sync(m);
    sync(m);
    // The cancel ended the hung check too: not a failure, checked again later.
    EXPECT_FALSE(find(m, hang).isFailed());
    EXPECT_TRUE(find(m, hang).failReason().isEmpty());
    EXPECT_TRUE(find(m, hang).isNew());
    EXPECT_TRUE(find(m, queued).isNew());
    EXPECT_FALSE(find(m, queued).verifying()); // its mark is taken back
    EXPECT_TRUE(find(m, later).isEnabled());
}

// A switched-off vendor blocks its plugins where it has several; its only
// plugin in a folder is not blocked. And a scan's end says whether it found
// a new plugin to add.
TEST_F(ManagerTest, VendorsBlockWhereTheyHaveSeveralAndTheEndOfAScanTellsOfNewPlugins)
{
    const QString a = add(QStringLiteral("vlor-fault-chatty.so"), QStringLiteral("v1.so"));
    const QString b = add(QStringLiteral("vlor-fault-resize.so"), QStringLiteral("v2.so"));
    const QString only = add(QStringLiteral("vlor-fixture-stereo.so"), QStringLiteral("only.so"));
    Manager m;
    Recorder r;
    r.attach(m);
    m.addPath(folder);
    scan(m);
    ASSERT_TRUE(find(m, a).isEnabled() && find(m, b).isEnabled() && find(m, only).isEnabled());
    m.setVendorEnabled(folder, QStringLiteral("vlor \"faults\" & co"), false);
    m.setVendorEnabled(folder, QStringLiteral("vlor test vendor"), false);
    sync(m);

    r.take();
    m.enablePlugins({});
    sync(m);
    EXPECT_EQ(r.count(QStringLiteral("enabled ") + a), 0);
    EXPECT_EQ(r.count(QStringLiteral("enabled ") + b), 0);
    EXPECT_EQ(r.count(QStringLiteral("enabled ") + only), 1);

    r.take();
    m.updatePlugins(true, false); // nothing new
    sync(m);
    EXPECT_TRUE(r.events.contains(QStringLiteral("end 0"))) << r.events.join(QLatin1Char(',')).toStdString();
    // A plugin new and enabled, as a catalog may hold it: the scan ends saying so.
    const QString catalog = QString::fromStdString(dir.file("catalog.json"));
    sync(m); // the save that the scan queued comes first
    m.setChanged();
    m.saveCatalog(catalog);
    sync(m);
    QString text = QString::fromStdString(readFile(catalog.toStdString()));
    ASSERT_TRUE(text.contains(QStringLiteral("only.so"))) << text.toStdString();
    QJsonObject root = QJsonDocument::fromJson(text.toUtf8()).object();
    QJsonArray paths = root.value(QStringLiteral("paths")).toArray();
    QJsonObject path = paths[0].toObject();
    QJsonArray plugins = path.value(QStringLiteral("plugins")).toArray();
    for (int i = 0; i < plugins.size(); ++i) {
        QJsonObject p = plugins[i].toObject();
        if (p.value(QStringLiteral("filename")).toString() == only) {
            p.insert(QStringLiteral("is_new"), true);
            plugins[i] = p;
        }
    }
    path.insert(QStringLiteral("plugins"), plugins);
    paths[0] = path;
    root.insert(QStringLiteral("paths"), paths);
    writeFile(catalog.toStdString(), QJsonDocument(root).toJson().toStdString());
    Manager again;
    Recorder r2;
    r2.attach(again);
    again.loadCatalog(catalog);
    again.updatePlugins(false, false);
    sync(again);
    EXPECT_TRUE(r2.events.contains(QStringLiteral("end 1"))) << r2.events.join(QLatin1Char(',')).toStdString();
}

// Every child of a shell enabled in one session keeps its own id, name and
// hash in the catalog, and the engine keeps each one's own descriptor.
TEST_F(ManagerTest, EveryChildOfAShellEnabledInOneSessionKeepsItsOwnIdentity)
{
    const QString file = add(QStringLiteral("vlor-fixture-shell.so"), QStringLiteral("children.so"));
    Manager m;
    m.addPath(folder);
    scan(m);
    const Plugin shell = find(m, file);
    ASSERT_EQ(shell.plugins().size(), 4);
    // Marked crashed first, so that enabling each one checks it in the engine.
    for (const Plugin& child : shell.plugins())
        m.markPluginCrashed(child.pluginId());
    sync(m);
    for (Plugin child : find(m, file).plugins())
        if (!child.name().contains(QStringLiteral("Synth")))
            m.enablePlugin(child, pathOf(m));
    sync(m);
    int enabled = 0;
    for (const Plugin& child : find(m, file).plugins()) {
        if (child.name().contains(QStringLiteral("Synth")))
            continue;
        ++enabled;
        EXPECT_TRUE(child.isEnabled()) << child.name().toStdString();
        EXPECT_EQ(child.uniqueId(), child.pluginId()) << child.name().toStdString();
        _VSTEFFECT* e = AUDIOVST_FindPluginByHash(QVlorVst::PluginSettingsHash(file, child.pluginId()).toUtf8().constData());
        ASSERT_NE(e, nullptr) << child.name().toStdString();
        EXPECT_EQ(AUDIOVST_GetUniqueID(e), child.pluginId());
        EXPECT_EQ(QString::fromUtf8(AUDIOVST_GetEffectName(e)), child.name());
    }
    EXPECT_EQ(enabled, 3);
}

// An editor's manager holds the catalog for long; vlorfx beside it flips
// another plugin 120 times. The editor's own flips and its last save keep
// every choice vlorfx made: each save merges what changed on disk since the
// editor last read or wrote the file.
TEST_F(ManagerTest, ALongLivedManagerKeepsTheChoicesAnotherProcessSaved)
{
    Manager m;
    const QString a = add(QStringLiteral("vlor-fixture-stereo.so"), QStringLiteral("a.so"));
    const QString b = add(QStringLiteral("vlor-fault-many-params.so"), QStringLiteral("b.so"));
    m.addPath(folder);
    scan(m);
    ASSERT_TRUE(m.saveCatalog());
    ASSERT_TRUE(find(m, a).isEnabled() && find(m, b).isEnabled());
    const std::string vlorfx = "'" VLOR_BIN_DIR "/vlorfx' --data '" + dataDir() + "' ";
    const std::string fileB = b.toStdString();
    const pid_t other = fork();
    ASSERT_GE(other, 0);
    if (other == 0) {
        // A command that fails leaves what it said for the test to show.
        const std::string said = " '" + fileB + "' >/dev/null 2>'" + dataDir() + "/failed.txt' || exit 1\n";
        std::string script;
        for (int i = 0; i < 120; ++i)
            script += vlorfx + (i % 2 == 0 ? "disable" : "enable") + said;
        script += vlorfx + "disable" + said;
        execl("/bin/sh", "sh", "-c", script.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    // Meanwhile the editor flips its own plugin and saves, again and again.
    int flips = 0;
    int status = 0;
    for (; waitpid(other, &status, WNOHANG) == 0; ++flips) {
        Plugin p = find(m, a);
        Path path = pathOf(m);
        if (p.isEnabled())
            m.disablePlugin(p, path);
        else
            m.enablePlugin(p, path, false);
        sync(m);
        m.saveCatalog();
    }
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a vlorfx command failed: "
                                                                << readFile(dataDir() + "/failed.txt");
    EXPECT_GT(flips, 5);
    // The editor's last save comes after vlorfx's last word.
    Plugin p = find(m, a);
    m.disablePlugin(p, pathOf(m));
    sync(m);
    ASSERT_TRUE(m.saveCatalog()); // posted to the manager's thread
    sync(m);
    const std::string catalog = readFile(dataDir() + "/vstxml/catalog_v2.json");
    const QJsonDocument doc = QJsonDocument::fromJson(QByteArray::fromStdString(catalog));
    QHash<QString, bool> enabled;
    for (const QJsonValue& path : doc.object().value(QStringLiteral("paths")).toArray())
        for (const QJsonValue& plugin : path.toObject().value(QStringLiteral("plugins")).toArray())
            enabled.insert(plugin.toObject().value(QStringLiteral("filename")).toString(),
                           plugin.toObject().value(QStringLiteral("enabled")).toBool(false));
    ASSERT_TRUE(enabled.contains(b)) << catalog;
    EXPECT_FALSE(enabled.value(b)) << "vlorfx's last choice, kept through the editor's saves";
    EXPECT_FALSE(enabled.value(a)) << "the editor's own";
}

// A choice made in another process reaches a running manager within a
// second or so: its copies change and catalogChanged tells the page and the
// menu, without a save of its own undoing it.
TEST_F(ManagerTest, AChoiceSavedByAnotherProcessReachesARunningManager)
{
    Manager m;
    const QString b = add(QStringLiteral("vlor-fault-many-params.so"), QStringLiteral("b.so"));
    m.addPath(folder);
    scan(m);
    ASSERT_TRUE(m.saveCatalog());
    sync(m);
    m.loadCatalog(); // as at a start: what is on disk is what this process read
    sync(m);
    ASSERT_TRUE(find(m, b).isEnabled());
    std::atomic<int> changed{0};
    QObject::connect(&m, &Manager::catalogChanged, &m, [&changed] { ++changed; }, Qt::DirectConnection);
    const std::string cmd = "'" VLOR_BIN_DIR "/vlorfx' --data '" + dataDir() + "' disable '" + b.toStdString() +
                            "' >/dev/null 2>&1";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    EXPECT_TRUE(waitFor([&] { return !find(m, b).isEnabled(); }, 3000)) << "not taken in";
    EXPECT_GT(changed.load(), 0);
    // Its next save keeps it.
    m.saveCatalog();
    sync(m);
    EXPECT_EQ(readFile(dataDir() + "/vstxml/catalog_v2.json").find("\"enabled\": true"), std::string::npos);
}
