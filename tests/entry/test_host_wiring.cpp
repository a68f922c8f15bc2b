// The library brought up and down as the editor does, and the crash sentinel:
// its file rules, and a real crash in a child process that the next start
// blames on the right plugin. This program runs away from the host programs,
// so the library must start the application itself as its VST3 host.
#include "QVlorAudioPlugins.h"
#include "QVlorPluginsMenu.h"
#include "QVlorSetting.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"
#include "audiovst.h"
#include "testhost.h"
#include "testsupport.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSemaphore>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>

using namespace vlortest;
using QVlorVst3::CatalogClass;

namespace {

const QString kData = QString::fromStdString(dataDir());
const QString kGain = QStringLiteral("51000000000000000000000000000001");
const qint64 kStereoId = 0x566C4678; // "VlFx"

void settle() { settleManagers(); }

QString dataFile(const char* name) { return QDir(kData).filePath(QLatin1String(name)); }

QString readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

void write(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(bytes);
}

// The exit of the open child: the signal that killed it, or -(exit status).
int runOpenChild(const QStringList& args, const char* crashVariable)
{
    // Under the sanitizers the child must die of the signal as it would in the editor.
    std::string cmd = "ASAN_OPTIONS=\"$ASAN_OPTIONS:handle_segv=0\" VLOR_CHILD_ARM=" + std::string(crashVariable) +
                      " '" VLOR_BIN_DIR "/vlor_open_child'";
    for (const QString& a : args)
        cmd += " '" + a.toStdString() + "'";
    cmd += " >/dev/null 2>&1";
    const int status = std::system(cmd.c_str());
    if (WIFSIGNALED(status))
        return WTERMSIG(status);
    // A shell that did not hand over reports a child killed by a signal as 128 + the signal.
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 255;
    return code > 128 ? code - 128 : -code;
}

// The engine's side comes up once, as in the editor; the application's side
// is installed and uninstalled as often as a test needs.
class Wiring : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        QVlorAudioPlugins::Initialize();
        AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR);
    }
    static void TearDownTestSuite() { QVlorAudioPlugins::Finalize(); }
    void TearDown() override
    {
        QVlorAudioPlugins::AboutToQuit();
        QVlorAudioPlugins::UI::uninstall(nullptr);
        QVlorSetting::global().change(QLatin1String(QVlorAudioPlugins::K_SETTING_SUPPORT_VST_PLUGINS), true);
    }
    TestHost host;
};

} // namespace

TEST_F(Wiring, WithoutVst2SupportTheVst3SideComesUpAlone)
{
    QVlorAudioPlugins::AboutToQuit(); // before install: nothing to do
    EXPECT_EQ(QVlorAudioPlugins::vst3Manager(), nullptr);
    QVlorSetting::global().change(QLatin1String(QVlorAudioPlugins::K_SETTING_SUPPORT_VST_PLUGINS), false);
    QVlorAudioPlugins::UI::install(&host);
    TestHost other;
    QVlorAudioPlugins::UI::install(&other); // a second install changes nothing
    EXPECT_EQ(QVlorAudioPlugins::host(), &host);
    EXPECT_EQ(QVlorAudioPlugins::vstManager(), nullptr);
    QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
    ASSERT_NE(vst3, nullptr);
    ASSERT_NE(QVlorAudioPlugins::UI::menuController(), nullptr);
    EXPECT_EQ(QVlorAudioPlugins::UI::menuController()->pluginsMenu(), nullptr); // the host has no main menu

    // No vlorvst3 beside this program: the program itself, with "--vst3", probes and verifies.
    TempDir root;
    QDir().mkpath(QString::fromStdString(root.path()));
    const QString bundle = QString::fromStdString(root.file("Effects.vst3"));
    QDir().mkpath(bundle + QStringLiteral("/Contents/x86_64-linux"));
    QFile::copy(QStringLiteral(VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3/Contents/x86_64-linux/vlor-vst3-effects.so"),
                bundle + QStringLiteral("/Contents/x86_64-linux/Effects.so"));
    vst3->setSearchPathsForTesting({QString::fromStdString(root.path())});
    vst3->searchPlugins(true);
    vst3->enableNewPlugins();
    settle();
    const QVlorVst3::Catalog catalog = vst3->catalogCopy();
    ASSERT_NE(catalog.findClass(kGain), nullptr);
    EXPECT_EQ(catalog.findClass(kGain)->state(), CatalogClass::Enabled);
    // A class with no VST2 side to ask: the failed setter does nothing, the provider gives nothing.
    write(dataFile("opening_sentinel"), "vst2|123|Lonely");
    EXPECT_EQ(vst3->consumeCrashSentinel(), QStringLiteral("Lonely"));
    EXPECT_TRUE(vst3->pairsEntriesCopy().isEmpty());
    // The host heard of the new bundle, on the main thread's loop.
    QCoreApplication::processEvents();
    EXPECT_EQ(host.announced, QList<QString>{QStringLiteral("Effects")});
    EXPECT_TRUE(other.announced.isEmpty());
}

TEST(Sentinel, SetAndClearNestAndConsumingBlamesOnce)
{
    TempDir dir;
    const QString path = QString::fromStdString(dir.file("opening_sentinel"));
    QVlorVst3::Manager m(nullptr, QString::fromStdString(dir.file("c.json")), QString::fromStdString(dir.file("p.json")),
                         0, path);
    std::vector<qint64> blamed; // not a QList: Qt's own compare of two empty ones is undefined behaviour
    m.setVst2FailedSetter([&blamed](qint64 id) { blamed.push_back(id); });

    EXPECT_EQ(m.consumeCrashSentinel(), QString()); // no file
    const QString a = QVlorVst3::Manager::SetOpeningSentinel(QStringLiteral("vst3"), QStringLiteral("AA"), QStringLiteral("A"));
    EXPECT_EQ(a, QString());
    const QString b = QVlorVst3::Manager::SetOpeningSentinel(QStringLiteral("vst2"), QStringLiteral("5"), QStringLiteral("B"));
    EXPECT_EQ(b, QStringLiteral("vst3|AA|A"));
    EXPECT_EQ(readAll(path), QStringLiteral("vst2|5|B"));
    QVlorVst3::Manager::ClearOpeningSentinel(b);
    EXPECT_EQ(readAll(path), QStringLiteral("vst3|AA|A"));
    QVlorVst3::Manager::ClearOpeningSentinel(a);
    EXPECT_FALSE(QFile::exists(path));

    struct Case {
        QByteArray content;
        QString name;
        std::vector<qint64> blamed;
    };
    const QList<Case> cases = {
        {"vst3|0123|My|Plugin", QStringLiteral("My|Plugin"), {}}, // an unknown class still gives the name
        {"vst3|0123", QString(), {}},
        {"vst2|12x|Broken id", QStringLiteral("Broken id"), {0}},
        {"vst2|-9000000000|Big", QStringLiteral("Big"), {-9000000000LL}},
        {"au|1|Other format", QStringLiteral("Other format"), {}},
        {"", QString(), {}},
        {QByteArray("vst3|\xff\xfe|\x00\x01", 10), QString::fromUtf8(QByteArray("\x00\x01", 2)), {}},
    };
    for (const Case& c : cases) {
        blamed.clear();
        write(path, c.content);
        EXPECT_EQ(m.consumeCrashSentinel(), c.name) << c.content.toStdString();
        EXPECT_EQ(blamed, c.blamed) << c.content.toStdString();
        EXPECT_FALSE(QFile::exists(path));
        EXPECT_EQ(m.consumeCrashSentinel(), QString()); // blamed once
    }
    // Something that is no file in its place: nobody is blamed, nothing blocks.
    ASSERT_EQ(mkfifo(path.toLocal8Bit().constData(), 0600), 0);
    EXPECT_EQ(m.consumeCrashSentinel(), QString());
    EXPECT_FALSE(QFile::exists(path));
}

TEST_F(Wiring, ARealCrashInTheGuardedStretchIsBlamedOnItsPluginAtTheNextStart)
{
    // A first run finds and enables one plugin of each format.
    const FixturePlugins plugins;
    const QString& vst2File = plugins.vst2File;
    const QString& bundle = plugins.bundle;
    QVlorAudioPlugins::UI::install(&host);
    ASSERT_NE(QVlorAudioPlugins::vstManager(), nullptr);
    plugins.scanWithInstalledManagers();
    settle();
    QVlorAudioPlugins::AboutToQuit();
    QVlorAudioPlugins::UI::uninstall(&host);

    // The effect dialog's process dies while its widget opens the VST3 class.
    EXPECT_EQ(runOpenChild({QStringLiteral("vst3"), kGain, QStringLiteral("Fixture Gain"), bundle},
                           "VLOR_FIXTURE_CRASH_ON_CREATE"),
              SIGSEGV);
    EXPECT_EQ(readAll(dataFile("opening_sentinel")), QStringLiteral("vst3|") + kGain + QStringLiteral("|Fixture Gain"));

    QVlorAudioPlugins::UI::install(&host);
    QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
    EXPECT_EQ(vst3->consumeCrashSentinel(), QStringLiteral("Fixture Gain"));
    EXPECT_EQ(vst3->consumeCrashSentinel(), QString());
    const QVlorVst3::Catalog afterCrash = vst3->catalogCopy();
    const CatalogClass* gain = afterCrash.findClass(kGain);
    ASSERT_NE(gain, nullptr);
    EXPECT_EQ(gain->state(), CatalogClass::Crashed);
    EXPECT_TRUE(gain->isEnabled());
    QVlorAudioPlugins::AboutToQuit();
    EXPECT_TRUE(readAll(dataFile("catalog_vst3.json")).contains(QStringLiteral("\"crashed\"")));
    QVlorAudioPlugins::UI::uninstall(&host);

    // The user opens it anyway: back to enabled, and saved so.
    QVlorAudioPlugins::UI::install(&host);
    QVlorAudioPlugins::vst3Manager()->clearCrashedState(kGain);
    settle();
    EXPECT_EQ(QVlorAudioPlugins::vst3Manager()->catalogCopy().findClass(kGain)->state(), CatalogClass::Enabled);
    QVlorAudioPlugins::AboutToQuit();
    EXPECT_FALSE(readAll(dataFile("catalog_vst3.json")).contains(QStringLiteral("\"crashed\"")));
    QVlorAudioPlugins::UI::uninstall(&host);

    // The same for a VST2 plugin, which the VST3 side blames through the setter.
    EXPECT_EQ(runOpenChild({QStringLiteral("vst2"), QString::number(kStereoId), QStringLiteral("Stereo"), vst2File},
                           "VLOR_FIXTURE_CRASH_IN_MAIN"),
              SIGSEGV);
    QVlorAudioPlugins::UI::install(&host);
    QVlorAudioPlugins::vstManager()->loadCatalog();
    // The VST2 dialog names the plugin by its file.
    EXPECT_EQ(QVlorAudioPlugins::vst3Manager()->consumeCrashSentinel(), vst2File);
    EXPECT_EQ(QVlorAudioPlugins::vst3Manager()->consumeCrashSentinel(), QString());
    settle();
    bool failed = false;
    for (const QVlorVst::Path& path : QVlorAudioPlugins::vstManager()->pathsCopy())
        for (const QVlorVst::Plugin& p : path.plugins())
            if (p.uniqueId() == kStereoId)
                failed = p.isFailed() && !p.isEnabled();
    EXPECT_TRUE(failed);

    // Without the crash, the stretch leaves no file behind.
    QVlorAudioPlugins::AboutToQuit();
    QVlorAudioPlugins::UI::uninstall(&host);
    EXPECT_EQ(runOpenChild({QStringLiteral("vst3"), kGain, QStringLiteral("Fixture Gain"), bundle}, "VLOR_UNUSED"), 0);
    EXPECT_FALSE(QFile::exists(dataFile("opening_sentinel")));
}

TEST_F(Wiring, BrokenFilesAreToleratedAndTheNextSaveReplacesThemWhole)
{
    struct Bad {
        const char* name;
        QByteArray content;
    };
    const QList<Bad> bads = {
        {"truncated", "{\"version\":1,\"bundles\":[{\"path\":\"/x.vst3\",\"classes\":[{\"cid\":"},
        {"not an object", "[1,2,3]"},
        {"hostile", "{\"bundles\":[{\"path\":7,\"classes\":\"no\",\"mtimeSecs\":1e999},null,[],{\"classes\":[{\"state\":"
                    "\"exploded\",\"verifiedAt\":-1e300}]}],\"pairs\":[{\"vst2\":\"x\",\"vst3\":[]},7],\"splits\":{}}"},
        {"binary", QByteArray("\x00\xff\xfe{{{", 6)},
    };
    for (const Bad& bad : bads) {
        for (const char* file : {"catalog_vst3.json", "plugin_pairs.json", "opening_sentinel"})
            write(dataFile(file), bad.content);
        QVlorAudioPlugins::UI::install(&host);
        QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
        EXPECT_EQ(vst3->consumeCrashSentinel(), QString()) << bad.name;
        // A change makes the manager save: both files come out whole and readable.
        vst3->setVendorEnabled(QStringLiteral("someone"), false);
        vst3->rematchPairs();
        QVlorAudioPlugins::AboutToQuit();
        QVlorAudioPlugins::UI::uninstall(&host);
        for (const char* file : {"catalog_vst3.json", "plugin_pairs.json"}) {
            QFile f(dataFile(file));
            ASSERT_TRUE(f.open(QIODevice::ReadOnly)) << bad.name << file;
            EXPECT_TRUE(QJsonDocument::fromJson(f.readAll()).isObject()) << bad.name << file;
        }
        EXPECT_FALSE(QFile::exists(dataFile("opening_sentinel")));
    }
    // Pipes in the files' places: a start that does not hang, and saves that
    // refuse to replace them and say so.
    for (const char* file : {"catalog_vst3.json", "plugin_pairs.json", "opening_sentinel"}) {
        QFile::remove(dataFile(file));
        ASSERT_EQ(mkfifo(dataFile(file).toLocal8Bit().constData(), 0600), 0);
    }
    QVlorAudioPlugins::UI::install(&host);
    EXPECT_EQ(QVlorAudioPlugins::vst3Manager()->consumeCrashSentinel(), QString());
    QVlorAudioPlugins::vst3Manager()->setVendorEnabled(QStringLiteral("someone"), false);
    QVlorAudioPlugins::AboutToQuit();
    const QString error = QVlorAudioPlugins::vst3Manager()->saveError();
    QVlorAudioPlugins::UI::uninstall(&host);
    EXPECT_TRUE(error.startsWith(dataFile("catalog_vst3.json")) && error.contains(QStringLiteral("pipe")))
        << error.toStdString();
    // (The sentinel is consumed at the start: its name is removed, nothing written.)
    for (const char* file : {"catalog_vst3.json", "plugin_pairs.json"}) {
        struct stat st;
        EXPECT_TRUE(stat(dataFile(file).toLocal8Bit().constData(), &st) == 0 && S_ISFIFO(st.st_mode)) << file;
        QFile::remove(dataFile(file));
    }
    QFile::remove(dataFile("opening_sentinel"));
}

// The editor quits while each manager waits on a plugin that hangs: both
// children get the same two seconds, so the quit takes that long, not twice.
TEST_F(Wiring, AQuitWithBothFormatsHangingTakesOneGrace)
{
    TempDir plugins;
    const QString vst2Folder = QString::fromStdString(plugins.file("vst2"));
    QDir().mkpath(vst2Folder);
    QFile::copy(QStringLiteral(VLOR_FIXTURE_VST_DIR "/vlor-fault-hang-open.so"), vst2Folder + QStringLiteral("/hang.so"));
    const QString bundle = QString::fromStdString(plugins.file("vst3/Hang.vst3"));
    QDir().mkpath(bundle + QStringLiteral("/Contents/x86_64-linux"));
    QFile::copy(QStringLiteral(VLOR_FIXTURE_VST3_DIR "/vlor-vst3-hang-entry.vst3/Contents/x86_64-linux/vlor-vst3-hang-entry.so"),
                bundle + QStringLiteral("/Contents/x86_64-linux/Hang.so"));
    QVlorAudioPlugins::UI::install(&host);
    QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager();
    QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
    ASSERT_TRUE(vst2 && vst3);
    QSemaphore hanging;
    QObject::connect(vst2, &QVlorVst::Manager::progressPlugin, vst2, [&hanging](const QString&) { hanging.release(); },
                     Qt::DirectConnection);
    QObject::connect(vst3, &QVlorVst3::Manager::progressPlugin, vst3, [&hanging](const QString&) { hanging.release(); },
                     Qt::DirectConnection);
    vst2->addPath(vst2Folder);
    vst2->updatePlugins(true, false);
    vst2->enableNewPlugins();
    vst3->setSearchPathsForTesting({QFileInfo(bundle).absolutePath()});
    vst3->searchPlugins(true);
    vst3->enableNewPlugins();
    ASSERT_TRUE(hanging.tryAcquire(2, 20000));
    QElapsedTimer timer;
    timer.start();
    QVlorAudioPlugins::AboutToQuit();
    EXPECT_LT(timer.elapsed(), 2000 + 1500);
    QVlorAudioPlugins::UI::uninstall(&host);
}

// The sentinel is written only as a regular file: a link to a pipe in its
// place is neither blocked on nor replaced.
TEST_F(Wiring, TheSentinelReplacesNothingButAFile)
{
    TempDir elsewhere;
    const std::string fifo = elsewhere.file("pipe");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    QFile::remove(dataFile("opening_sentinel"));
    ASSERT_TRUE(QFile::link(QString::fromStdString(fifo), dataFile("opening_sentinel")));
    QVlorAudioPlugins::UI::install(&host);
    const QString previous = QVlorVst3::Manager::SetOpeningSentinel(QStringLiteral("vst3"), kGain, QStringLiteral("Gain"));
    EXPECT_TRUE(previous.isEmpty());
    struct stat st;
    ASSERT_EQ(stat(fifo.c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));
    EXPECT_TRUE(QFileInfo(dataFile("opening_sentinel")).isSymLink());
    QVlorVst3::Manager::ClearOpeningSentinel(previous);
    QVlorAudioPlugins::AboutToQuit();
    QVlorAudioPlugins::UI::uninstall(&host);
    QFile::remove(dataFile("opening_sentinel"));
}

// The editor is killed a second after the user's choices, of both formats:
// every one of them is on disk.
TEST(Choices, AreOnDiskWithinASecondOfBeingMade)
{
    TempDir dir;
    const std::string data = dir.file("data");
    const std::string vst2 = dir.file("vst2");
    const std::string vst3 = dir.file("vst3");
    ASSERT_EQ(std::system(("mkdir -p '" + data + "' '" + vst2 + "' '" + vst3 + "' && cp '" VLOR_FIXTURE_VST_DIR
                           "/vlor-fault-chatty.so' '" + vst2 + "/a.so' && cp '" VLOR_FIXTURE_VST_DIR
                           "/vlor-fault-resize.so' '" + vst2 + "/b.so' && cp -r '" VLOR_FIXTURE_VST3_DIR
                           "/vlor-vst3-effects.vst3' '" + vst3 + "/'")
                              .c_str()),
              0);
    const std::string child = VLOR_BIN_DIR "/vlor_choice_child";
    const std::string env = "VLOR_DATA_PATH='" + data + "' QT_QPA_PLATFORM=offscreen ";
    ASSERT_EQ(std::system((env + "'" + child + "' scan '" + vst2 + "' '" + vst3 + "' >/dev/null 2>&1").c_str()), 0);

    FILE* out = popen((env + "exec '" + child + "' choose '" + vst2 + "' '" + vst3 + "' 2>/dev/null & echo $!").c_str(), "r");
    ASSERT_NE(out, nullptr);
    char line[64] = "";
    ASSERT_NE(std::fgets(line, sizeof(line), out), nullptr);
    const pid_t pid = pid_t(std::atol(line));
    // (What a plugin prints may come first.)
    bool chosen = false;
    while (!chosen && std::fgets(line, sizeof(line), out))
        chosen = !std::strcmp(line, "chosen\n");
    ASSERT_TRUE(chosen);
    usleep(1000 * 1000);
    kill(pid, SIGKILL);
    pclose(out);

    const QJsonObject v2 = QJsonDocument::fromJson(readAll(QString::fromStdString(data + "/vstxml/catalog_v2.json")).toUtf8()).object();
    QMap<QString, bool> enabled;
    for (const QJsonValue& p : v2.value(QStringLiteral("paths")).toArray())
        for (const QJsonValue& plugin : p.toObject().value(QStringLiteral("plugins")).toArray())
            enabled[QFileInfo(plugin.toObject().value(QStringLiteral("filename")).toString()).fileName()] =
                plugin.toObject().value(QStringLiteral("enabled")).toBool();
    EXPECT_EQ(enabled.value(QStringLiteral("a.so"), true), false); // disabled
    EXPECT_EQ(enabled.value(QStringLiteral("b.so"), false), true); // enabled again, through the fast path
    const QJsonObject v3 = QJsonDocument::fromJson(readAll(QString::fromStdString(data + "/catalog_vst3.json")).toUtf8()).object();
    int classes = 0;
    for (const QJsonValue& b : v3.value(QStringLiteral("bundles")).toArray())
        for (const QJsonValue& c : b.toObject().value(QStringLiteral("classes")).toArray()) {
            ++classes;
            EXPECT_EQ(c.toObject().value(QStringLiteral("state")).toString(), QStringLiteral("disabled"))
                << c.toObject().value(QStringLiteral("name")).toString().toStdString();
        }
    EXPECT_GT(classes, 0);
}

// Both catalogs become unreadable between two runs. Each is kept aside, and
// what the user chose lives on where another store holds it: the active
// format of every pair (the pair store) and every VST2 plugin switched off
// (its settings) come out of the rescan as the user left them.
TEST_F(Wiring, UnreadableCatalogsAreKeptAsideAndTheChoicesOfOtherStoresSurvive)
{
    if (!QFile::exists(QStringLiteral("/usr/lib/vst/ZamDelay-vst.so")) ||
        !QFile::exists(QStringLiteral("/usr/lib/vst/ZamComp-vst.so")) ||
        !QFile::exists(QStringLiteral("/usr/lib/vst3/ZamDelay.vst3")) || !QFile::exists(QStringLiteral("/usr/lib/vst3/ZamComp.vst3")))
        GTEST_SKIP() << "zam-plugins is not installed";
    TempDir plugins;
    const QString vst2Folder = QString::fromStdString(plugins.file("vst2"));
    const QString vst3Root = QString::fromStdString(plugins.file("vst3"));
    ASSERT_EQ(std::system(("mkdir -p '" + vst2Folder.toStdString() + "' '" + vst3Root.toStdString() +
                           "' && cp /usr/lib/vst/ZamDelay-vst.so /usr/lib/vst/ZamComp-vst.so '" + vst2Folder.toStdString() +
                           "/' && cp -r /usr/lib/vst3/ZamDelay.vst3 /usr/lib/vst3/ZamComp.vst3 '" + vst3Root.toStdString() + "/'")
                              .c_str()),
              0);
    for (const char* f : {"catalog_vst3.json", "plugin_pairs.json", "vstxml/catalog_v2.json"}) {
        QFile::remove(dataFile(f));
        const QFileInfo file(dataFile(f));
        for (const QString& old : file.dir().entryList({file.fileName() + QStringLiteral(".unreadable-*")}, QDir::Files))
            QFile::remove(file.dir().filePath(old));
    }
    // A run as the editor's: the VST2 files found, VST3 decided, VST2 checked.
    auto scanRun = [&](const std::function<void()>& choose) {
        QVlorAudioPlugins::UI::install(&host);
        QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager();
        QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
        vst2->loadCatalog();
        vst2->addPath(vst2Folder);
        vst2->updatePlugins(true, false);
        settle();
        vst3->setSearchPathsForTesting({vst3Root});
        vst3->searchPlugins(true);
        vst3->enableNewPlugins();
        settle();
        vst2->enableNewPlugins();
        settle();
        settle();
        choose();
        settle();
        QVlorAudioPlugins::AboutToQuit();
        // What the user sees: each pair's format, each VST3 class's state, each VST2 switch.
        QStringList seen;
        for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
            seen << QStringLiteral("pair %1 %2").arg(e.vst2).arg(e.activeFormat);
        // A VST3 class of a pair that runs as VST2 is not what the user sees of it.
        const QVlorVst3::Catalog catalog = vst3->catalogCopy();
        for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
            if (e.activeFormat == QLatin1String("vst3") && catalog.findClass(e.vst3))
                seen << QStringLiteral("class %1 %2").arg(catalog.findClass(e.vst3)->name(),
                                                          QVlorVst3::CatalogClass::StateToString(catalog.findClass(e.vst3)->state()));
        for (const QVlorVst::Path& p : vst2->pathsCopy())
            for (const QVlorVst::Plugin& plugin : p.plugins())
                seen << QStringLiteral("vst2 %1 %2").arg(QFileInfo(plugin.filename()).fileName()).arg(plugin.isEnabled());
        QVlorAudioPlugins::UI::uninstall(&host);
        seen.sort();
        return seen;
    };
    const QStringList chosen = scanRun([] {
        QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
        QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager();
        // The delay runs as VST2; the compressor stays as it came, in VST3, and its VST2 file is off.
        const QVlorVst3::Catalog catalog = vst3->catalogCopy();
        for (const QVlorPluginPairs::Entry& e : vst3->pairsEntriesCopy())
            if (const QVlorVst3::CatalogClass* c = catalog.findClass(e.vst3); c && c->name() == QLatin1String("ZamDelay"))
                vst3->setPairActiveFormat(e.pairId, QStringLiteral("vst2"));
        for (const QVlorVst::Path& p : vst2->pathsCopy())
            for (QVlorVst::Plugin plugin : p.plugins())
                if (plugin.filename().endsWith(QLatin1String("ZamComp-vst.so")))
                    vst2->disablePlugin(plugin, p);
    });
    ASSERT_EQ(chosen.filter(QStringLiteral("pair ")).size(), 2) << chosen.join(',').toStdString();
    ASSERT_EQ(chosen.filter(QStringLiteral(" vst2")).size(), 1) << chosen.join(',').toStdString();
    ASSERT_TRUE(chosen.contains(QStringLiteral("class ZamComp enabled"))) << chosen.join(',').toStdString();
    ASSERT_TRUE(chosen.contains(QStringLiteral("vst2 ZamComp-vst.so 0"))) << chosen.join(',').toStdString();

    for (const char* f : {"catalog_vst3.json", "vstxml/catalog_v2.json"})
        write(dataFile(f), "{\"bundles\": [ broken");
    const QStringList after = scanRun([] {});
    EXPECT_EQ(after, chosen);
    for (const char* f : {"catalog_vst3.json", "vstxml/catalog_v2.json"}) {
        const QFileInfo file(dataFile(f));
        const QStringList aside =
            file.dir().entryList({file.fileName() + QStringLiteral(".unreadable-*")}, QDir::Files);
        ASSERT_EQ(aside.size(), 1) << f;
        EXPECT_EQ(readAll(file.dir().filePath(aside.first())), QStringLiteral("{\"bundles\": [ broken"));
        QFile::remove(file.dir().filePath(aside.first()));
    }
}
