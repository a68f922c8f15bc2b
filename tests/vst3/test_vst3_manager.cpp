// The VST3 manager with its real thread and the real host program: scanning
// fixture trees, probing and verifying, the state changes of enabling, the
// published copies and the marks that must outlive them, cancelling, and the
// decisions that a VST2 twin makes for a new class.
#include "QVlorSetting.h"
#include "QVlorVst3_Manager.h"
#include "testsupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QSemaphore>
#include <QThread>

#include <QSaveFile>

#include <gtest/gtest.h>

#include <memory>

using namespace QVlorVst3;
using namespace vlortest;

namespace {

const QString kBundles = QStringLiteral(VLOR_FIXTURE_VST3_DIR);
const QString kEffects = QStringLiteral("vlor-vst3-effects");
const QString kClasses = QStringLiteral("vlor-vst3-classes");
// The effects bundle's classes.
const QString kGain = QStringLiteral("51000000000000000000000000000001");

void sync(Manager& m) { QMetaObject::invokeMethod(&m, [] {}, Qt::BlockingQueuedConnection); }

// What the manager said, and on which thread.
struct Recorder {
    QMutex lock;
    QStringList events;
    QSet<QThread*> threads;
    void add(const QString& e)
    {
        QMutexLocker l(&lock);
        events << e;
        threads << QThread::currentThread();
    }
    int count(const QString& e)
    {
        QMutexLocker l(&lock);
        return int(events.count(e));
    }
    QStringList take()
    {
        QMutexLocker l(&lock);
        QStringList out;
        out.swap(events);
        return out;
    }
    void attach(Manager& m)
    {
        const auto direct = Qt::DirectConnection;
        QObject::connect(&m, &Manager::beginScan, &m, [this] { add(QStringLiteral("begin")); }, direct);
        QObject::connect(&m, &Manager::endScan, &m, [this](bool b) { add(QStringLiteral("end %1").arg(b)); }, direct);
        QObject::connect(&m, &Manager::catalogChanged, &m, [this] { add(QStringLiteral("changed")); }, direct);
        QObject::connect(&m, &Manager::newPluginsFound, &m,
                         [this](const QList<QString>& n) { add(QStringLiteral("new ") + QStringList(n).join(',')); },
                         direct);
        auto state = [this](const char* what) {
            return [this, what](const CatalogClass& c) {
                add(QStringLiteral("%1 %2 %3").arg(QLatin1String(what), c.name(), CatalogClass::StateToString(c.state())));
            };
        };
        QObject::connect(&m, &Manager::pluginStateChanged, &m, state("state"), direct);
        QObject::connect(&m, &Manager::pluginEnabled, &m, state("enabled"), direct);
        QObject::connect(&m, &Manager::pluginDisabled, &m, state("disabled"), direct);
        QObject::connect(&m, &Manager::pluginFailed, &m, state("failed"), direct);
    }
};

// A data folder and plugin roots of the test's own, and a host program that
// logs every start before it hands over to vlorvst3.
class Vst3ManagerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        root = QString::fromStdString(dir.file("root"));
        QDir().mkpath(root);
        hostLog = dir.file("host.log");
        host = QString::fromStdString(dir.file("vlorvst3"));
        writeFile(host.toStdString(),
                  "#!/bin/sh\nprintf '%s\\n' \"$*\" >> '" + hostLog + "'\nexec '" VLOR_BIN_DIR "/vlorvst3' \"$@\"\n",
                  true);
        QVlorSetting::global().change(QLatin1String(K_SETTING_SCAN_VST3), true);
    }
    void TearDown() override { manager.reset(); }

    Manager& make(const QStringList& roots = {})
    {
        manager.reset(new Manager(nullptr, file("catalog_vst3.json"), file("plugin_pairs.json"), 7,
                                  file("opening_sentinel")));
        manager->setHostBinary(host, {});
        manager->setSearchPathsForTesting(roots.isEmpty() ? QStringList{root} : roots);
        events.attach(*manager);
        return *manager;
    }
    QString file(const char* name) const { return QString::fromStdString(dir.file(name)); }
    // A copy of a fixture bundle under the root, its binary renamed to match.
    QString copyBundle(const QString& fixture, const QString& to)
    {
        const QString target = root + QLatin1Char('/') + to;
        const QString base = QFileInfo(to).completeBaseName();
        QDir().mkpath(target + QStringLiteral("/Contents/x86_64-linux"));
        QFile::copy(kBundles + QLatin1Char('/') + fixture + QStringLiteral(".vst3/Contents/x86_64-linux/") + fixture +
                        QStringLiteral(".so"),
                    target + QStringLiteral("/Contents/x86_64-linux/") + base + QStringLiteral(".so"));
        return target;
    }
    int hostRuns() { return int(QString::fromStdString(readFile(hostLog)).count(QLatin1Char('\n'))); }
    // Runs a call on the manager's thread and waits for it, all before it, and
    // what it queued in turn (the save that follows a change).
    void run(const std::function<void(Manager&)>& call)
    {
        call(*manager);
        sync(*manager);
        sync(*manager);
    }
    CatalogClass cls(const QString& cid)
    {
        const Catalog c = manager->catalogCopy();
        const CatalogClass* found = c.findClass(cid);
        return found ? *found : CatalogClass();
    }
    QString cidOf(const QString& name)
    {
        const Catalog catalog = manager->catalogCopy();
        for (const CatalogBundle& b : catalog.bundles())
            for (const CatalogClass& c : b.classes())
                if (c.name() == name)
                    return c.cid();
        return QString();
    }
    CatalogBundle bundle(const QString& path)
    {
        Catalog c = manager->catalogCopy();
        const CatalogBundle* b = c.findBundle(path);
        return b ? *b : CatalogBundle();
    }
    QJsonObject savedCatalog()
    {
        QFile f(file("catalog_vst3.json"));
        f.open(QIODevice::ReadOnly);
        return QJsonDocument::fromJson(f.readAll()).object();
    }
    // A class's state as the saved catalog holds it.
    QString savedState(const QString& cid)
    {
        for (const QJsonValue& b : savedCatalog().value(QStringLiteral("bundles")).toArray())
            for (const QJsonValue& c : b.toObject().value(QStringLiteral("classes")).toArray())
                if (c.toObject().value(QStringLiteral("cid")).toString() == cid)
                    return c.toObject().value(QStringLiteral("state")).toString();
        return QString();
    }

    TempDir dir;
    QString root;
    QString host;
    std::string hostLog;
    Recorder events;
    std::unique_ptr<Manager> manager;
};

} // namespace

TEST_F(Vst3ManagerTest, AScanFindsBundlesWhereARootHoldsThemAndNowhereElse)
{
    const QString nested = copyBundle(kEffects, QStringLiteral("a/b/Effects.vst3"));
    const QString upper = copyBundle(kClasses, QStringLiteral("Upper.VST3"));
    // A bundle inside a bundle is part of it, not a bundle of its own.
    copyBundle(kClasses, QStringLiteral("Upper.VST3/Contents/Inner.vst3"));
    // Links are not followed, to a bundle or to a folder.
    TempDir elsewhere;
    QFile::link(kBundles + QStringLiteral("/vlor-vst3-effects.vst3"), root + QStringLiteral("/Link.vst3"));
    QFile::link(kBundles, root + QStringLiteral("/linked-folder"));
    Manager& m = make({root, root + QStringLiteral("/no/such/root")});

    run([](Manager& m) { m.searchPlugins(true); });
    QStringList paths;
    const Catalog found = m.catalogCopy();
    for (const CatalogBundle& b : found.bundles()) {
        paths << b.path();
        EXPECT_FALSE(b.probed());
        EXPECT_TRUE(b.classes().isEmpty());
        EXPECT_EQ(b.mtimeSecs(), QFileInfo(b.path()).lastModified().toSecsSinceEpoch());
    }
    paths.sort();
    EXPECT_EQ(paths, (QStringList{upper, nested}));
    // Recording new bundles loads nothing; they have no classes that are new yet.
    EXPECT_EQ(hostRuns(), 0);
    const QStringList said = events.take();
    EXPECT_EQ(said.first(), QStringLiteral("begin"));
    EXPECT_TRUE(said.contains(QStringLiteral("end 0")));
    EXPECT_TRUE(said.contains(QStringLiteral("new Effects,Upper")) || said.contains(QStringLiteral("new Upper,Effects")));
    EXPECT_TRUE(waitFor([&] { return QFile::exists(file("catalog_vst3.json")); })); // saved as a consequence of catalogChanged

    // Scanning turned off: an end and nothing else.
    QVlorVst3::Manager::setScanEnabled(false);
    run([](Manager& m) { m.searchPlugins(true); });
    EXPECT_EQ(events.take(), QStringList{QStringLiteral("end 0")});
    QVlorVst3::Manager::setScanEnabled(true);
}

TEST_F(Vst3ManagerTest, TheSearchPathsAreTheSystemsAndTheUsersLessThoseTurnedOff)
{
    QVlorSetting& settings = QVlorSetting::global();
    settings.change(QLatin1String(K_SETTING_VST3_CUSTOM_PATHS),
                    QStringList{QStringLiteral("/opt/vst3"), QStringLiteral("/usr/lib/vst3"), QStringLiteral("/opt/vst3")});
    settings.change(QLatin1String(K_SETTING_VST3_DISABLED_PATHS), QStringList{QStringLiteral("/usr/lib/vst3")});
    Manager m(nullptr, file("c.json"), file("p.json"), 0, QString());
    EXPECT_EQ(m.searchPaths(), (QStringList{QDir::homePath() + QStringLiteral("/.vst3"),
                                            QStringLiteral("/usr/local/lib/vst3"), QStringLiteral("/opt/vst3")}));
    m.setSearchPathsForTesting({QStringLiteral("/only")});
    sync(m);
    EXPECT_EQ(m.searchPaths(), QStringList{QStringLiteral("/only")});
    settings.change(QLatin1String(K_SETTING_VST3_CUSTOM_PATHS), QStringList());
    settings.change(QLatin1String(K_SETTING_VST3_DISABLED_PATHS), QStringList());
}

TEST_F(Vst3ManagerTest, ProbingKeepsEffectsOnlyAndTheFirstHolderOfAClassId)
{
    const QString first = copyBundle(kClasses, QStringLiteral("A-Classes.vst3"));
    const QString second = copyBundle(kClasses, QStringLiteral("B-Classes.vst3"));
    make();
    run([](Manager& m) { m.searchPlugins(false); });
    // Two classes: the probe's own single-class shortcut does not apply.
    run([&](Manager& m) { m.enableBundle(first); });
    run([&](Manager& m) { m.enableBundle(second); });
    QStringList names;
    const CatalogBundle firstBundle = bundle(first);
    for (const CatalogClass& c : firstBundle.classes()) {
        names << c.name();
        EXPECT_EQ(c.state(), CatalogClass::New);
        EXPECT_FALSE(c.isEnabled());
    }
    // The instrument is dropped, the instrument that is also an effect kept;
    // the controllers never were classes.
    EXPECT_EQ(names, (QStringList{QStringLiteral("Fixture Delay"), QStringLiteral("Fixture EQ"),
                                  QStringLiteral("Fixture Gate"), QStringLiteral("Fixture Vocoder")}));
    EXPECT_TRUE(bundle(first).probed());
    EXPECT_TRUE(bundle(first).moduleinfoFound() == false); // copies carry no moduleinfo.json
    // The same classes in a second bundle belong to the first.
    EXPECT_TRUE(bundle(second).probed());
    EXPECT_TRUE(bundle(second).classes().isEmpty());

    // A probed bundle: enableBundle does not load it again.
    const int runs = hostRuns();
    run([&](Manager& m) { m.enableBundle(first); });
    EXPECT_EQ(hostRuns(), runs);
}

TEST_F(Vst3ManagerTest, AClassIdHeldByTwoProbedBundlesStaysWithOne)
{
    // A catalog from elsewhere (an older version, a hand edit) with one class in two bundles.
    Catalog saved;
    for (const char* name : {"A.vst3", "B.vst3"}) {
        CatalogBundle b;
        b.setPath(copyBundle(kEffects, QLatin1String(name)));
        b.setMtimeSecs(QFileInfo(b.path()).lastModified().toSecsSinceEpoch());
        b.setSizeBytes(QFileInfo(b.path()).size());
        b.setProbed(true);
        CatalogClass c(kGain, QStringLiteral("Fixture Gain"), QString(), QStringLiteral("Fx"), QString());
        c.setState(CatalogClass::Enabled);
        c.setEnabled(true);
        b.classes() << c;
        saved.bundles() << b;
    }
    ASSERT_TRUE(saved.save(file("catalog_vst3.json")));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    const Catalog after = m.catalogCopy();
    ASSERT_EQ(after.bundles().size(), 2);
    // The first found in the walk keeps it; the folder decides which that is.
    EXPECT_EQ(after.bundles().at(0).classes().size() + after.bundles().at(1).classes().size(), 1);
    EXPECT_EQ(hostRuns(), 0); // unchanged bundles are not loaded again
}

// A host program that answers with nonsense (ours never does; a broken
// install might): only classes that can be found again by their ID go in.
TEST_F(Vst3ManagerTest, AMalformedProbeReplyAddsOnlyWellFormedClasses)
{
    const QString path = copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    const QString liar = QString::fromStdString(dir.file("liar"));
    writeFile(liar.toStdString(),
              "#!/bin/sh\necho '{\"ok\":true}'\necho '{\"ok\":true,\"truncated\":true,\"classes\":[{\"cid\":\"\"},"
              "{\"cid\":\"xyz\"},{\"cid\":7},null,[],{\"cid\":\"0123456789abcdef0123456789ABCDEF\"},"
              "{\"cid\":\"0123456789ABCDEF0123456789ABCDEF\",\"name\":5,\"subCategories\":[\"Fx\"]}]}'\n",
              true);
    Manager& m = make();
    m.setHostBinary(liar, {});
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundle(path); });
    const CatalogBundle b = bundle(path);
    ASSERT_EQ(b.classes().size(), 1);
    EXPECT_EQ(b.classes().first().cid(), QStringLiteral("0123456789ABCDEF0123456789ABCDEF"));
    EXPECT_EQ(b.classes().first().name(), QString());
    // One well-formed class: the probe's shortcut enables it.
    EXPECT_EQ(b.classes().first().state(), CatalogClass::Enabled);
    EXPECT_EQ(b.lastError(), QStringLiteral("probe class list truncated -- module exposes more classes than the probe cap"));
    EXPECT_FALSE(b.failed());
}

TEST_F(Vst3ManagerTest, ABundleThatGoesAndComesBackKeepsTheUsersChoices)
{
    const QString effects = copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    const QString unprobed = copyBundle(kClasses, QStringLiteral("Unprobed.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundleInternal(effects, false); });
    run([](Manager& m) { m.enableNewPlugins(); });
    // enableNewPlugins also probed the other bundle: made unprobed again, to be pruned below.
    run([&](Manager& m) { m.resetBundle(unprobed); });
    const QString endless = cidOf(QStringLiteral("Fixture Endless"));
    run([&](Manager& m) { m.disablePlugin(endless); });
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Enabled);
    EXPECT_EQ(cls(endless).state(), CatalogClass::Disabled);

    // Both leave the root: the unprobed one is forgotten, the probed one stays with its classes missing.
    const QString away = QString::fromStdString(dir.file("away"));
    QDir().mkpath(away);
    ASSERT_TRUE(QDir().rename(effects, away + QStringLiteral("/Effects.vst3")));
    QDir(unprobed).removeRecursively();
    events.take();
    run([](Manager& m) { m.searchPlugins(false); });
    EXPECT_FALSE(m.catalogCopy().findBundle(unprobed));
    ASSERT_EQ(bundle(effects).classes().size(), 4);
    const CatalogBundle gone = bundle(effects);
    for (const CatalogClass& c : gone.classes())
        EXPECT_EQ(c.state(), CatalogClass::Missing) << c.name().toStdString();
    EXPECT_EQ(events.count(QStringLiteral("state Fixture Gain missing")), 1);

    // Missing stays missing, with no second signal.
    run([](Manager& m) { m.searchPlugins(false); });
    EXPECT_EQ(events.count(QStringLiteral("state Fixture Gain missing")), 1);

    // Back again: probed anew, each class with the choice it had.
    ASSERT_TRUE(QDir().rename(away + QStringLiteral("/Effects.vst3"), effects));
    const int runs = hostRuns();
    run([](Manager& m) { m.searchPlugins(false); });
    EXPECT_EQ(hostRuns(), runs + 1);
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Enabled);
    EXPECT_GT(cls(kGain).verifiedAt(), 0);
    EXPECT_EQ(cls(kGain).verifierBuild(), 7);
    EXPECT_EQ(cls(endless).state(), CatalogClass::Disabled);

    // A root taken out of the search leaves its bundles alone.
    m.setSearchPathsForTesting({QString::fromStdString(dir.file("other"))});
    run([](Manager& m) { m.searchPlugins(false); });
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Enabled);
    run([&](Manager& m) { m.purgeUnprobedUnder(root); }); // nothing unprobed there
    EXPECT_TRUE(m.catalogCopy().findBundle(effects));
}

TEST_F(Vst3ManagerTest, VerifyingMovesAClassThroughItsStates)
{
    const QString effects = copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundleInternal(effects, false); });
    const QString fails = cidOf(QStringLiteral("Fixture Fails"));
    events.take();

    run([&](Manager& m) { m.enablePlugin(kGain); });
    EXPECT_EQ(events.take(), (QStringList{QStringLiteral("state Fixture Gain verifying"),
                                          QStringLiteral("enabled Fixture Gain enabled"), QStringLiteral("changed")}));
    EXPECT_TRUE(cls(kGain).isEnabled());
    EXPECT_NEAR(double(cls(kGain).verifiedAt()), double(QDateTime::currentSecsSinceEpoch()), 60);

    // A failure keeps its reason, and a second try runs the host again.
    for (int attempt = 0; attempt < 2; ++attempt) {
        const int runs = hostRuns();
        run([&](Manager& m) { m.enablePlugin(fails); });
        EXPECT_EQ(hostRuns(), runs + 1);
        EXPECT_EQ(cls(fails).state(), CatalogClass::Failed);
        EXPECT_FALSE(cls(fails).isEnabled());
        EXPECT_FALSE(cls(fails).lastError().isEmpty());
        EXPECT_EQ(cls(fails).verifiedAt(), 0);
    }
    EXPECT_EQ(events.count(QStringLiteral("failed Fixture Fails failed")), 2);

    // An unknown class: nothing runs, no mark stays behind.
    const int runs = hostRuns();
    m.markClassesVerifying({QStringLiteral("0123")});
    run([](Manager& m) { m.enablePlugin(QStringLiteral("0123")); });
    EXPECT_EQ(hostRuns(), runs);

    run([&](Manager& m) { m.disablePlugin(kGain); });
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Disabled);
    EXPECT_FALSE(cls(kGain).isEnabled());
    run([&](Manager& m) { m.clearCrashedState(kGain); }); // not crashed: left alone
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Disabled);

    run([](Manager& m) {
        m.setVendorEnabled(QStringLiteral("ACME"), false);
        m.setVendorEnabled(QStringLiteral("Acme"), false);
    });
    EXPECT_EQ(m.catalogCopy().disabledVendors(), QStringList{QStringLiteral("acme")});
    run([](Manager& m) { m.setVendorEnabled(QStringLiteral("acme"), true); });
    EXPECT_TRUE(m.catalogCopy().disabledVendors().isEmpty());

    // The bundle's own switch is a gate of its own: the classes keep their states.
    run([&](Manager& m) { m.setBundleEnabled(effects, false); });
    EXPECT_FALSE(bundle(effects).enabled());
    EXPECT_EQ(cls(fails).state(), CatalogClass::Failed);

    // Forgetting: the classes one by one, the bundle with its last.
    const CatalogBundle before = bundle(effects);
    for (const CatalogClass& c : before.classes())
        run([&](Manager& m) { m.removeFromCatalog(c.cid()); });
    EXPECT_FALSE(m.catalogCopy().findBundle(effects));
    // Still on disk: found again, unprobed, by the next scan.
    run([](Manager& m) { m.searchPlugins(false); });
    ASSERT_TRUE(m.catalogCopy().findBundle(effects));
    EXPECT_FALSE(bundle(effects).probed());

    // A reset gives a bundle that was switched off its first chance back.
    run([&](Manager& m) { m.enableBundleInternal(effects, false); });
    run([&](Manager& m) { m.setBundleEnabled(effects, false); });
    run([&](Manager& m) { m.resetBundle(effects); });
    EXPECT_FALSE(bundle(effects).probed());
    EXPECT_TRUE(bundle(effects).enabled());
    EXPECT_TRUE(bundle(effects).classes().isEmpty());
}

TEST_F(Vst3ManagerTest, ABundleWithOneClassIsEnabledByItsProbe)
{
    make({QStringLiteral("/usr/lib/vst3")});
    const QString tube = QStringLiteral("/usr/lib/vst3/ZamTube.vst3");
    if (!QFileInfo::exists(tube))
        GTEST_SKIP() << "zam-plugins is not installed";
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundle(tube); });
    ASSERT_EQ(bundle(tube).classes().size(), 1);
    const CatalogClass c = bundle(tube).classes().first();
    EXPECT_EQ(c.state(), CatalogClass::Enabled);
    EXPECT_TRUE(c.isEnabled());
    EXPECT_EQ(c.verifiedAt(), 0); // the probe loaded it; no verify ran
    EXPECT_EQ(hostRuns(), 1);
}

// The editor itself as the host program, told so by "--vst3".
TEST_F(Vst3ManagerTest, TheApplicationCanServeAsItsOwnHostProgram)
{
    const QString effects = copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    Manager& m = make();
    m.setHostBinaryForTesting(QStringLiteral(VLOR_BIN_DIR "/vlorfx"));
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundleInternal(effects, false); });
    run([](Manager& m) { m.enablePlugin(kGain); });
    EXPECT_EQ(bundle(effects).classes().size(), 4);
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Enabled);
    EXPECT_EQ(hostRuns(), 0); // not the logging wrapper
}

TEST_F(Vst3ManagerTest, MarksOfTheUserInterfaceOutliveEveryPublishUntilTheWorkIsDone)
{
    const QString effects = copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundleInternal(effects, false); });

    // The manager's thread is held busy while the user interface marks and posts.
    QSemaphore release1, release2;
    QMetaObject::invokeMethod(&m, [&] { release1.acquire(); });
    QThread* uiThread = QThread::currentThread();
    QThread* signalThread = nullptr;
    const auto c = QObject::connect(&m, &Manager::catalogChanged, &m, [&] { signalThread = QThread::currentThread(); },
                                    Qt::DirectConnection);
    m.markClassesVerifying({kGain});
    // Shown at once, from the caller's thread, on the published copy alone.
    EXPECT_EQ(signalThread, uiThread);
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Verifying);
    QObject::disconnect(c);
    m.setVendorEnabled(QStringLiteral("someone"), false); // publishes before the verify
    QMetaObject::invokeMethod(&m, [&] { release2.acquire(); });
    m.enablePlugin(kGain);
    release1.release();
    // The vendor change has published; the verify has not begun.
    for (int i = 0; i < 2500 && m.catalogCopy().disabledVendors().isEmpty(); ++i)
        QThread::msleep(2);
    ASSERT_EQ(m.catalogCopy().disabledVendors(), QStringList{QStringLiteral("someone")});
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Verifying);
    release2.release();
    sync(m);
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Enabled);
    // The mark is gone with the work: later publishes show the real state.
    run([](Manager& m) { m.setVendorEnabled(QStringLiteral("someone"), true); });
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Enabled);

    // A bundle's mark likewise, until its probe is done.
    run([&](Manager& m) { m.resetBundle(effects); });
    QSemaphore release3;
    QMetaObject::invokeMethod(&m, [&] { release3.acquire(); });
    m.markBundlesVerifying({effects});
    EXPECT_TRUE(bundle(effects).verifying());
    m.enableBundle(effects);
    release3.release();
    sync(m);
    EXPECT_FALSE(bundle(effects).verifying());
    EXPECT_TRUE(bundle(effects).probed());

    // Every signal came from the manager's own thread, but the marks' own catalogChanged.
    for (QThread* t : events.threads)
        EXPECT_TRUE(t == uiThread || t->objectName() == QStringLiteral("QVlorVst3::Manager"));
    EXPECT_TRUE(QVlorVst3::Manager::isScanEnabled());
    EXPECT_FALSE(m.isScanning());
}

TEST_F(Vst3ManagerTest, AfterShutdownCallsRunOnTheCallersThreadAndTheLastChangeIsSaved)
{
    const QString effects = copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    m.aboutToQuit();
    m.aboutToQuit(); // a second time: nothing left to stop
    // No thread to post to: the work is done here and now.
    m.enableBundleInternal(effects, false);
    EXPECT_EQ(bundle(effects).classes().size(), 4);
    QThread* here = QThread::currentThread();
    bool sameThread = false;
    const auto c = QObject::connect(&m, &Manager::pluginEnabled, &m, [&] { sameThread = QThread::currentThread() == here; },
                                    Qt::DirectConnection);
    m.enablePlugin(kGain);
    QObject::disconnect(c);
    EXPECT_TRUE(sameThread);
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Enabled);
    // Saving is a queued consequence of a change; with no loop left, the owner saves.
    m.saveCatalogAndPairs();
    EXPECT_EQ(savedState(kGain), QStringLiteral("enabled"));
}

TEST_F(Vst3ManagerTest, CancelEndsTheScanBetweenBundlesAndStillPublishesAndSaves)
{
    // One check at a time, so that the cancel finds exactly one child started.
    QVlorSetting::global().change(QStringLiteral("vloraudio.plugins.parallel_checks"), 1);
    QStringList paths;
    for (const char* name : {"A.vst3", "B.vst3", "C.vst3"})
        paths << copyBundle(kEffects, QLatin1String(name));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) {
        for (const QString& p : paths)
            m.enableBundleInternal(p, false);
    });
    // Only the first bundle holds the classes; all three are probed.
    // A rescan probes each again; a cancel at the first progress stops it there.
    bool scanning = false;
    const auto c = QObject::connect(&m, &Manager::progressScan, &m, [&](int n, int) {
            if (n == 1) {
                scanning = m.isScanning();
                m.cancel();
            }
        },
        Qt::DirectConnection);
    const int runs = hostRuns();
    events.take();
    run([](Manager& m) { m.rescanPlugins(); });
    QObject::disconnect(c);
    EXPECT_TRUE(scanning);
    EXPECT_FALSE(m.isScanning());
    // The first probe ran; the second may have started ahead as the first
    // ended, and the cancel ended it at once; the third never started.
    EXPECT_GE(hostRuns(), runs + 1);
    EXPECT_LE(hostRuns(), runs + 2);
    QVlorSetting::global().remove(QStringLiteral("vloraudio.plugins.parallel_checks"));
    const QStringList said = events.take();
    EXPECT_TRUE(said.contains(QStringLiteral("changed")));
    EXPECT_TRUE(said.contains(QStringLiteral("end 1"))); // the classes are still new
    // The first bundle has its fresh stamp; the others still carry the rescan's zero.
    int stamped = 0;
    const Catalog after = m.catalogCopy();
    for (const CatalogBundle& b : after.bundles())
        stamped += b.mtimeSecs() != 0;
    EXPECT_EQ(stamped, 1);
    auto savedStamped = [&] {
        int n = 0;
        for (const QJsonValue& v : savedCatalog().value(QStringLiteral("bundles")).toArray())
            n += v.toObject().value(QStringLiteral("mtime")).toInteger() != 0;
        return n;
    };
    EXPECT_TRUE(waitFor([&] { return savedStamped() == 1; })) << savedStamped();
}

TEST_F(Vst3ManagerTest, ANewClassIsDecidedByItsVst2Twin)
{
    const QString effects = copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundleInternal(effects, false); });
    const QString vendor = cls(kGain).vendor();
    auto twin = [&](qint64 id, const char* name, bool enabled, bool failed) {
        Manager::Vst2PluginInfo i;
        i.uniqueId = id;
        i.name = QLatin1String(name);
        i.vendor = vendor;
        i.exists = true;
        i.enabled = enabled;
        i.failed = failed;
        return i;
    };
    // Gain's twin is in use, Endless's was switched off by the user, Alone's crashed; Fails has none.
    const QList<Manager::Vst2PluginInfo> vst2{twin(1001, "Fixture Gain", true, false),
                                              twin(1002, "Fixture Endless", false, false),
                                              twin(1003, "Fixture Alone", false, true)};
    m.setVst2ItemsProvider([vst2] { return vst2; });
    run([](Manager& m) { m.rematchPairs(); });
    ASSERT_EQ(m.pairsEntriesCopy().size(), 3);
    run([](Manager& m) { m.enableNewPlugins(); });

    auto entryOf = [&](qint64 id) {
        for (const QVlorPluginPairs::Entry& e : m.pairsEntriesCopy())
            if (e.vst2 == id)
                return e;
        return QVlorPluginPairs::Entry();
    };
    // "vst2": turned off without a verify.
    EXPECT_EQ(cls(kGain).state(), CatalogClass::Disabled);
    EXPECT_EQ(cls(kGain).verifiedAt(), 0);
    EXPECT_EQ(entryOf(1001).activeFormat, QStringLiteral("vst2"));
    // "veto": left new, and the pair remembers it.
    EXPECT_EQ(cls(cidOf(QStringLiteral("Fixture Endless"))).state(), CatalogClass::New);
    EXPECT_TRUE(entryOf(1002).vetoedAutoEnable);
    // "vst3": verified and enabled.
    EXPECT_EQ(cls(cidOf(QStringLiteral("Fixture Alone"))).state(), CatalogClass::Enabled);
    EXPECT_EQ(entryOf(1003).activeFormat, QStringLiteral("vst3"));
    // No twin: "vst3", and its verify fails.
    EXPECT_EQ(cls(cidOf(QStringLiteral("Fixture Fails"))).state(), CatalogClass::Failed);

    // A later verify of the vetoed class lifts the veto.
    run([&](Manager& m) { m.enablePlugin(cidOf(QStringLiteral("Fixture Endless"))); });
    EXPECT_FALSE(entryOf(1002).vetoedAutoEnable);
    // Saved with the catalog.
    auto savedPairs = [&] {
        QFile pairs(file("plugin_pairs.json"));
        return pairs.open(QIODevice::ReadOnly)
                   ? QJsonDocument::fromJson(pairs.readAll()).object().value(QStringLiteral("pairs")).toArray().size()
                   : -1;
    };
    EXPECT_TRUE(waitFor([&] { return savedPairs() == 3; })) << savedPairs();
}

TEST_F(Vst3ManagerTest, PairCommandsClearTheirBusyMarksAndPublish)
{
    const QString effects = copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundleInternal(effects, false); });
    const QString vendor = cls(kGain).vendor();
    Manager::Vst2PluginInfo gain;
    gain.uniqueId = 1001;
    gain.name = QStringLiteral("Fixture Gain");
    gain.vendor = vendor;
    gain.exists = false; // its file is gone: not offered to the matcher
    QList<Manager::Vst2PluginInfo> vst2{gain};
    m.setVst2ItemsProvider([&vst2] { return vst2; });
    events.take();
    run([](Manager& m) { m.rematchPairs(); });
    EXPECT_TRUE(m.pairsEntriesCopy().isEmpty());
    EXPECT_EQ(events.take(), QStringList{QStringLiteral("changed")}); // emitted even with nothing added
    vst2[0].exists = true;
    run([](Manager& m) { m.rematchPairs(1001); });
    ASSERT_EQ(m.pairsEntriesCopy().size(), 1);
    const QString pairId = m.pairsEntriesCopy().first().pairId;

    run([&](Manager& m) { m.setPairActiveFormat(pairId, QStringLiteral("veto")); });
    EXPECT_EQ(m.pairsEntriesCopy().first().activeFormat, QStringLiteral("vst3"));
    run([&](Manager& m) { m.setPairActiveFormat(pairId, QStringLiteral("vst2")); });
    EXPECT_EQ(m.pairsEntriesCopy().first().activeFormat, QStringLiteral("vst2"));

    // Marks: emitted once, however often they are asked for.
    events.take();
    m.markPairOpPending({1001, 0}, {kGain});
    m.markPairOpPending({1001}, {kGain});
    EXPECT_EQ(events.take(), QStringList{QStringLiteral("changed")});
    EXPECT_EQ(m.pendingPairOpVst2IdsCopy(), QSet<qint64>{1001});
    // A split clears the marks of the pair's identities; the split forbids the pair.
    run([&](Manager& m) { m.splitPair(pairId, QStringLiteral("vst3")); });
    EXPECT_TRUE(m.pendingPairOpVst2IdsCopy().isEmpty());
    EXPECT_TRUE(m.pendingPairOpCidsCopy().isEmpty());
    run([](Manager& m) { m.rematchPairs(); });
    ASSERT_EQ(m.pairsEntriesCopy().size(), 1);
    EXPECT_EQ(m.pairsEntriesCopy().first().vst2, 0); // the VST3 side stays, alone
    // With an unknown pair id, the marks given still go.
    m.markPairOpPending({77}, {QStringLiteral("X")});
    run([](Manager& m) { m.splitPair(QStringLiteral("nope"), QStringLiteral("vst2"), 77, QStringLiteral("X")); });
    EXPECT_TRUE(m.pendingPairOpVst2IdsCopy().isEmpty());
    // A manual pair lifts the split, in the entry that held the VST3 side.
    m.markPairOpPending({1001}, {kGain});
    run([&](Manager& m) { m.addManualPair(1001, kGain, QStringLiteral("vst3")); });
    ASSERT_EQ(m.pairsEntriesCopy().size(), 1);
    EXPECT_EQ(m.pairsEntriesCopy().first().vst2, 1001);
    EXPECT_TRUE(m.pairsEntriesCopy().first().manualOverride);
    EXPECT_TRUE(m.pendingPairOpCidsCopy().isEmpty());

    // Purging identities that are only marked: a signal, no publish needed.
    m.markPairOpPending({555}, {});
    events.take();
    run([](Manager& m) { m.purgePairState({555}, {}); });
    EXPECT_EQ(events.take(), QStringList{QStringLiteral("changed")});
    EXPECT_EQ(m.pairsEntriesCopy().size(), 1);
    run([&](Manager& m) { m.purgePairState({}, {kGain}); });
    EXPECT_TRUE(m.pairsEntriesCopy().isEmpty());
}

// A quit while a bundle hangs its probe, with more queued behind it: the
// hanging child gets two seconds, the queue does not start, and what was cut
// short is not marked failed.
TEST_F(Vst3ManagerTest, AQuitWaitsForNoQueueAndAHangForTwoSecondsAtMost)
{
    const QString first = copyBundle(kEffects, QStringLiteral("First.vst3"));
    const QString hang = copyBundle(QStringLiteral("vlor-vst3-hang-entry"), QStringLiteral("Hang.vst3"));
    const QString after = copyBundle(kClasses, QStringLiteral("After.vst3"));
    const QString last = copyBundle(kEffects, QStringLiteral("Last.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    QSemaphore hanging;
    QObject::connect(&m, &Manager::progressPlugin, &m,
                     [&hanging](const QString& name) {
                         if (name == QLatin1String("Hang.vst3"))
                             hanging.release();
                     },
                     Qt::DirectConnection);
    for (const QString& path : {first, hang, after, last})
        m.enableBundle(path);
    ASSERT_TRUE(hanging.tryAcquire(1, 10000));
    QElapsedTimer timer;
    timer.start();
    m.aboutToQuit();
    EXPECT_LT(timer.elapsed(), 2000 + 1500);
    EXPECT_TRUE(bundle(first).probed());
    EXPECT_FALSE(bundle(hang).probed());
    EXPECT_FALSE(bundle(hang).failed()); // cut short, not failed: the next start probes it
    EXPECT_FALSE(bundle(after).probed());
    EXPECT_FALSE(bundle(last).probed());
    EXPECT_EQ(readFile(hostLog).find("After.vst3"), std::string::npos);
}

// Cancel drops the probes queued before it; those asked for after it run.
TEST_F(Vst3ManagerTest, CancelDropsTheWorkQueuedBeforeIt)
{
    QVlorSetting::global().change(QStringLiteral("vloraudio.plugins.vst3_probe_timeout_s"), 1);
    const QString hang = copyBundle(QStringLiteral("vlor-vst3-hang-entry"), QStringLiteral("Hang.vst3"));
    const QString queued = copyBundle(kEffects, QStringLiteral("Queued.vst3"));
    const QString later = copyBundle(kClasses, QStringLiteral("Later.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    QSemaphore hanging;
    QObject::connect(&m, &Manager::progressPlugin, &m, [&hanging](const QString&) { hanging.release(); },
                     Qt::DirectConnection);
    m.markBundlesVerifying({queued});
    m.enableBundle(hang);
    m.enableBundle(queued);
    ASSERT_TRUE(hanging.tryAcquire(1, 10000));
    m.cancel();
    m.enableBundle(later);
    sync(m);
    sync(m);
    QVlorSetting::global().change(QStringLiteral("vloraudio.plugins.vst3_probe_timeout_s"), 30);
    // The cancel ended the hung child too: not a failure, tried again later.
    EXPECT_FALSE(bundle(hang).probed());
    EXPECT_FALSE(bundle(hang).failed());
    EXPECT_EQ(bundle(hang).lastError(), QString());
    EXPECT_FALSE(bundle(queued).probed());
    EXPECT_FALSE(bundle(queued).verifying()); // its mark is taken back
    EXPECT_TRUE(bundle(later).probed());
}

// A bundle whose factory names its classes in Latin-1 probes and verifies
// through the manager, and its classes list with readable names.
TEST_F(Vst3ManagerTest, ClassesNamedInAnotherCodePageListReadably)
{
    const QString path = copyBundle(QStringLiteral("vlor-vst3-latin1"), QStringLiteral("Latin.vst3"));
    make();
    run([](Manager& m) { m.searchPlugins(false); });
    run([&path](Manager& m) { m.enableBundle(path); });
    const QString cafe = cidOf(QStringLiteral("Fixture Caf\u00E9 Gain"));
    ASSERT_FALSE(cafe.isEmpty());
    EXPECT_FALSE(cidOf(QStringLiteral("Fixture Endless \uFFFDt\uFFFD")).isEmpty());
    run([&cafe](Manager& m) { m.enablePlugin(cafe); });
    EXPECT_EQ(cls(cafe).state(), CatalogClass::Enabled) << cls(cafe).lastError().toStdString();
    EXPECT_TRUE(waitFor([&] {
        return savedCatalog().value(QStringLiteral("bundles")).toArray().first().toObject().value(QStringLiteral("classes"))
                   .toArray().first().toObject().value(QStringLiteral("name")).toString() == QStringLiteral("Fixture Caf\u00E9 Gain");
    }));
}

// A probe that hangs, skipped by the user while it runs: its child ends at
// once, the bundle fails as skipped, and a rescan gives it its chance again.
TEST_F(Vst3ManagerTest, ASkippedProbeEndsAtOnceAndIsTriedAgainAtTheNextRescan)
{
    const QString hang = copyBundle(QStringLiteral("vlor-vst3-hang-entry"), QStringLiteral("Hang.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    m.enableBundle(hang);
    ASSERT_TRUE(waitFor([&] {
        const QList<QVlorRunningCheck> running = m.runningChecks();
        return !running.isEmpty() && running.first().name == QStringLiteral("Hang.vst3");
    }, 10000));
    EXPECT_FALSE(m.skipCheck(QStringLiteral("Other.vst3")));
    QElapsedTimer clock;
    clock.start();
    EXPECT_TRUE(m.skipCheck(QStringLiteral("Hang.vst3")));
    sync(m);
    EXPECT_LT(clock.elapsed(), 10000) << "not the probe's timeout";
    EXPECT_TRUE(m.runningChecks().isEmpty());
    EXPECT_TRUE(bundle(hang).failed());
    EXPECT_EQ(bundle(hang).lastError(), QStringLiteral("skipped by the user (checked again at the next rescan)"));
    // A plain scan leaves the user's skip alone: only a rescan tries again.
    run([](Manager& m) { m.searchPlugins(false); });
    EXPECT_TRUE(bundle(hang).failed());
    EXPECT_EQ(bundle(hang).lastError(), QStringLiteral("skipped by the user (checked again at the next rescan)"));
    QVlorSetting::global().change(QStringLiteral("vloraudio.plugins.vst3_probe_timeout_s"), 1);
    run([](Manager& m) { m.rescanPlugins(); });
    QVlorSetting::global().change(QStringLiteral("vloraudio.plugins.vst3_probe_timeout_s"), 30);
    EXPECT_FALSE(bundle(hang).failed()) << "offered to be probed again";
    EXPECT_FALSE(bundle(hang).probed());
}

// Failures that are no verdict on the plugin are tried again, at the scan
// or the rescan each belongs to; a verdict stays, and so does a class that
// did not fail whatever its last error says.
TEST_F(Vst3ManagerTest, OnlyFailuresThatAreNoVerdictAreTriedAgain)
{
    struct Case {
        const char* cid;
        CatalogClass::State state;
        const char* error;
        CatalogClass::State afterScan, afterRescan;
    } cases[] = {
        {"A0000000000000000000000000000000", CatalogClass::Failed, "the effect fails to process audio",
         CatalogClass::Failed, CatalogClass::Failed},
        {"B0000000000000000000000000000000", CatalogClass::Failed,
         "the check was ended from outside (signal 9; checked again at the next scan)", CatalogClass::New,
         CatalogClass::New},
        {"C0000000000000000000000000000000", CatalogClass::Failed,
         "skipped by the user (checked again at the next rescan)", CatalogClass::Failed, CatalogClass::New},
        {"D0000000000000000000000000000000", CatalogClass::Disabled,
         "the check was ended from outside (signal 9; checked again at the next scan)", CatalogClass::Disabled,
         CatalogClass::Disabled},
    };
    // A bundle outside the scanned root: the scan leaves it where it is.
    CatalogBundle b;
    b.setPath(file("elsewhere/Kept.vst3"));
    b.setProbed(true);
    b.setEnabled(true);
    for (const Case& c : cases) {
        CatalogClass k(QLatin1String(c.cid), QLatin1String(c.cid), QStringLiteral("V"), QStringLiteral("Fx"),
                       QStringLiteral("1"));
        k.setState(c.state);
        k.setLastError(QLatin1String(c.error));
        b.classes().append(k);
    }
    Catalog catalog;
    catalog.bundles().append(b);
    QString error;
    ASSERT_TRUE(catalog.save(file("catalog_vst3.json"), &error)) << error.toStdString();
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    for (const Case& c : cases)
        EXPECT_EQ(cls(QLatin1String(c.cid)).state(), c.afterScan) << c.cid << " after a scan";
    run([](Manager& m) { m.rescanPlugins(); });
    for (const Case& c : cases)
        EXPECT_EQ(cls(QLatin1String(c.cid)).state(), c.afterRescan) << c.cid << " after a rescan";
}

// Another process switches a class off (its save replaces the file): the
// running manager takes it in within a second or so, tells it as a change,
// and its own next save keeps it.
TEST_F(Vst3ManagerTest, AChoiceSavedByAnotherProcessReachesARunningManager)
{
    copyBundle(kEffects, QStringLiteral("Effects.vst3"));
    Manager& m = make();
    run([](Manager& m) { m.searchPlugins(false); });
    run([&](Manager& m) { m.enableBundleInternal(root + QStringLiteral("/Effects.vst3"), false); });
    run([](Manager& m) { m.enablePlugin(kGain); });
    ASSERT_EQ(cls(kGain).state(), CatalogClass::Enabled);
    run([](Manager& m) { m.saveCatalogAndPairs(); });
    events.take();

    QJsonObject catalog = savedCatalog();
    QJsonArray bundles = catalog.value(QStringLiteral("bundles")).toArray();
    for (int b = 0; b < bundles.size(); ++b) {
        QJsonObject bundle = bundles[b].toObject();
        QJsonArray classes = bundle.value(QStringLiteral("classes")).toArray();
        for (int c = 0; c < classes.size(); ++c) {
            QJsonObject o = classes[c].toObject();
            if (o.value(QStringLiteral("cid")).toString() == kGain) {
                o.insert(QStringLiteral("state"), QStringLiteral("disabled"));
                o.insert(QStringLiteral("enabled"), false);
            }
            classes[c] = o;
        }
        bundle.insert(QStringLiteral("classes"), classes);
        bundles[b] = bundle;
    }
    catalog.insert(QStringLiteral("bundles"), bundles);
    const QString path = file("catalog_vst3.json");
    QSaveFile out(path);
    ASSERT_TRUE(out.open(QIODevice::WriteOnly));
    out.write(QJsonDocument(catalog).toJson());
    ASSERT_TRUE(out.commit());

    EXPECT_TRUE(waitFor([&] { return cls(kGain).state() == CatalogClass::Disabled; }, 3000)) << "not taken in";
    EXPECT_TRUE(events.take().contains(QStringLiteral("changed")));
    m.disablePlugin(QStringLiteral("51000000000000000000000000000003")); // a change of its own, saved
    run([](Manager& m) { m.saveCatalogAndPairs(); });
    EXPECT_EQ(savedState(kGain), QStringLiteral("disabled"));
}
