// vlorfx apply, run as a user runs it: a child process on real files.
#include "libbase.h"
#include "QVlorUnifiedPluginsModel.h"
#include "testsupport.h"
#include "vlorfx_fixture.h"

#include <QAbstractItemModelTester>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QStringList>

#include <gtest/gtest.h>

#include <sndfile.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <string>
#include <vector>

using namespace vlortest;

TEST_F(Apply, TheGainPluginGivesTheInputTimesTheGain)
{
    ASSERT_EQ(run("apply --vst2 '" + kStereo + "' --param 0=0.75 '" + dir.file("in.wav") + "' '" +
                  dir.file("out.wav") + "'"),
              0)
        << err();
    const std::vector<float> out = read("out.wav");
    ASSERT_EQ(out.size(), input.size());
    const float gain = std::pow(10.0f, 12.0f / 20.0f);
    for (size_t i = 0; i < out.size(); ++i)
        ASSERT_NEAR(out[i], input[i] * gain, 1e-5) << i;
    // One line says what was written: the 12 dB of gain between the peaks.
    EXPECT_EQ(readFile(dir.file("stdout")), "wrote " + dir.file("out.wav") +
                                                ": 0.68 s, 2 channels, 44100 Hz; peak -14.0 dBFS in, -2.0 dBFS out\n");
}

TEST_F(Apply, InProcessGivesTheSameResultWithTheLatencyTakenOut)
{
    setenv("VLOR_FIXTURE_INITIAL_DELAY", "777", 1);
    const int remote = run("apply --vst2 '" + kStereo + "' '" + dir.file("in.wav") + "' '" + dir.file("r.wav") + "'");
    const int local =
        run("apply --vst2 '" + kStereo + "' --in-process '" + dir.file("in.wav") + "' '" + dir.file("l.wav") + "'");
    unsetenv("VLOR_FIXTURE_INITIAL_DELAY");
    ASSERT_EQ(remote, 0) << err();
    ASSERT_EQ(local, 0) << err();
    const std::vector<float> r = read("r.wav"), l = read("l.wav");
    ASSERT_EQ(r.size(), input.size());
    EXPECT_EQ(r, l);
    for (size_t i = 0; i < 2000; ++i)
        ASSERT_FLOAT_EQ(r[i], input[i]) << i; // lined up with the input
}

TEST_F(Apply, BadRequestsFailClearlyAndWriteNothing)
{
    const std::string in = "'" + dir.file("in.wav") + "'";
    const std::string out = "'" + dir.file("out.wav") + "'";
    writeFile(dir.file("text.wav"), "not audio");
    struct Case {
        std::string args;
        int status;
        std::string message;
    };
    const std::vector<Case> cases = {
        {"apply " + in + " " + out, 2, "one of --vst2 FILE and --vst3 BUNDLE is needed"},
        {"apply --vst2 '" + kStereo + "' " + in, 2, "an input and an output file are needed"},
        // A bad value says which and why, in one line.
        {"apply --vst2 '" + kStereo + "' --param 0 " + in + " " + out, 2, "bad --param '0': it needs INDEX=VALUE"},
        {"apply --vst2 '" + kStereo + "' --param 0=1.5 " + in + " " + out, 2, "the value must be from 0 to 1"},
        {"apply --vst2 '" + kStereo + "' --param x=0.5 " + in + " " + out, 2, "the index 'x' is no number"},
        {"apply --vst2 '" + kStereo + "' --param 0=loud " + in + " " + out, 2, "the value 'loud' is no number"},
        {"apply --vst2 '" + kStereo + "' " + in + " --param", 2, "--param needs a value"},
        {"apply --vst2 '" + kStereo + "' --cid 51000000000000000000000000000001 " + in + " " + out, 2,
         "--cid is for --vst3"},
        {"apply --vst2 '" + kStereo + "' --id 12 " + in + " " + out, 2, "holds one plugin, not a shell"},
        {"apply --vst2 '" + kStereo + "' " + in + " " + in, 2, "is the input file; give --force"},
        {"apply --vst2 '" + kStereo + "' --bogus " + in + " " + out, 2, "unknown option"},
        {"apply --vst2 '" + kStereo + "' --param 9=0.5 " + in + " " + out, 1, "does not exist"},
        {"apply --vst2 /no/such.so " + in + " " + out, 1, "No such file"},
        {"apply --vst2 '" VLOR_FIXTURE_VST_DIR "/vlor-fault-synth.so' " + in + " " + out, 1, "cannot be applied"},
        {"apply --vst2 '" VLOR_FIXTURE_VST_DIR "/vlor-fault-crash-open.so' " + in + " " + out, 1, "crashed"},
        {"apply --vst2 '" VLOR_FIXTURE_VST_DIR "/vlor-fixture-shell.so' " + in + " " + out, 1, "--id"},
        {"apply --vst2 '" + kStereo + "' '" + dir.file("text.wav") + "' " + out, 1, "cannot read"},
        {"apply --vst2 '" + kStereo + "' " + in + " '" + dir.file("none/out.wav") + "'", 1, "cannot write"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(run(c.args), c.status) << c.args;
        EXPECT_NE(err().find(c.message), std::string::npos) << c.args << "\n" << err();
        EXPECT_FALSE(BLIO_Exists(dir.file("out.wav").c_str())) << c.args;
        if (c.status == 2 && c.message != "unknown option") { // the help is asked for, not pressed on
            EXPECT_EQ(err().find("usage:"), std::string::npos) << c.args;
        }
    }
    EXPECT_EQ(run("apply --help"), 0);
    EXPECT_NE(readFile(dir.file("stdout")).find("usage: vlorfx apply"), std::string::npos);
}

TEST_F(Apply, AShellChildIsAppliedByItsId)
{
    const int id = ('V' << 24) | ('s' << 16) | ('A' << 8) | '2';
    ASSERT_EQ(run("apply --vst2 '" VLOR_FIXTURE_VST_DIR "/vlor-fixture-shell.so' --id " + std::to_string(id) + " '" +
                  dir.file("in.wav") + "' '" + dir.file("out.wav") + "'"),
              0)
        << err();
    const std::vector<float> out = read("out.wav");
    ASSERT_EQ(out.size(), input.size());
    EXPECT_FLOAT_EQ(out[101], input[101] * 0.5f);
}

TEST_F(Apply, AVst3EffectIsAppliedWithItsParametersOrAState)
{
    const std::string bundle = VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3";
    const std::string in = "'" + dir.file("in.wav") + "'";
    // Gain 1.0 doubles the signal (the fixture's gain parameter has ID 1).
    ASSERT_EQ(run("apply --vst3 '" + bundle + "' --cid 51000000000000000000000000000001 --param 1=1.0 " + in + " '" +
                  dir.file("v3.wav") + "'"),
              0)
        << err();
    const std::vector<float> out = read("v3.wav");
    ASSERT_EQ(out.size(), input.size());
    // The effect reports a latency of 100 frames (it has none): the output is
    // moved up by that much, as it would be for a plugin that has one.
    for (size_t i = 0; i + 200 < out.size(); i += 97)
        ASSERT_NEAR(out[i], input[i + 200] * 2.0f, 1e-5) << i;

    struct Case {
        std::string args;
        std::string message;
    };
    const std::vector<Case> cases = {
        {"apply --vst3 '" + bundle + "' " + in, "an input and an output file are needed"},
        {"apply --vst3 '" + bundle + "' " + in + " '" + dir.file("x.wav") + "'", "--cid"},
        {"apply --vst3 '" + bundle + "' --cid 00000000000000000000000000000000 " + in + " '" + dir.file("x.wav") + "'",
         "no effect class"},
        {"apply --vst3 '" + bundle + "' --cid 51000000000000000000000000000001 --param 9=0.5 " + in + " '" +
             dir.file("x.wav") + "'",
         "no parameter with ID 9"},
        {"apply --vst3 /tmp " + in + " '" + dir.file("x.wav") + "'", "not a VST3 bundle"},
        {"apply --vst2 x.so --vst3 '" + bundle + "' " + in + " '" + dir.file("x.wav") + "'", "cannot be used together"},
        {"apply --vst3 '" + bundle + "' --in-process " + in + " '" + dir.file("x.wav") + "'", "--in-process is for --vst2"},
        {"apply --vst3 '" + bundle + "' --id 3 " + in + " '" + dir.file("x.wav") + "'", "--id is for --vst2"},
        {"apply --vst3 '" + bundle + "' --cid 51000000000000000000000000000001 --state garbage " + in + " '" +
             dir.file("x.wav") + "'",
         "--state cannot be read"},
    };
    for (const Case& c : cases) {
        EXPECT_NE(run(c.args), 0) << c.args;
        EXPECT_NE(err().find(c.message), std::string::npos) << c.args << "\n" << err();
        EXPECT_FALSE(BLIO_Exists(dir.file("x.wav").c_str()));
    }
}

// vlorfx probe lists through a host process; a bundle that crashes takes only
// that process down, and the error says so.
TEST_F(Apply, ProbeListsVerifiesAndSurvivesACrashingBundle)
{
    const std::string effects = VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3";
    EXPECT_EQ(run("probe --verify '" + effects + "'"), 1); // one class fails to process
    const std::string out = readFile(dir.file("stdout"));
    EXPECT_NE(out.find("51000000000000000000000000000001  Fixture Gain"), std::string::npos) << out;
    EXPECT_NE(out.find("verified"), std::string::npos) << out;
    EXPECT_NE(out.find("FAILED: the effect fails to process audio"), std::string::npos) << out;

    EXPECT_EQ(run("probe '" VLOR_FIXTURE_VST3_DIR "/vlor-vst3-crash-entry.vst3'"), 1);
    EXPECT_NE(err().find("probe crashed"), std::string::npos) << err();
    EXPECT_EQ(run("probe"), 2);
}

// The machine's own plugins, scanned as the editor does: every zam VST3 class
// verified and enabled, and each zam product that exists in both formats
// paired once. A second scan loads nothing.
TEST_F(Apply, ScanOfTheDebianPluginsPairsTheZamTwinsOnce)
{
    if (!BLIO_Exists("/usr/lib/vst3/ZamTube.vst3") || !BLIO_Exists("/usr/lib/vst/ZamTube-vst.so"))
        GTEST_SKIP() << "zam-plugins is not installed";
    ASSERT_EQ(run("scan --vst2-path /usr/lib/vst --vst2-path /usr/lib/lxvst --vst3-path /usr/lib/vst3"), 0) << err();
    ASSERT_EQ(run("list --json"), 0) << err();
    const QJsonObject root = QJsonDocument::fromJson(QByteArray::fromStdString(readFile(dir.file("stdout")))).object();
    QHash<qint64, QString> vst2Names; // unique id -> file
    for (const QJsonValue& path : root.value("vst2").toObject().value("paths").toArray())
        for (const QJsonValue& p : path.toObject().value("plugins").toArray())
            if (p.toObject().value("filename").toString().contains("/Zam") ||
                p.toObject().value("filename").toString().contains("/ZaM"))
                vst2Names.insert(p.toObject().value("unique_id").toInteger(), p.toObject().value("filename").toString());
    // The set installed is whatever the package holds: counted, not assumed.
    const QStringList zamBundles = QDir(QStringLiteral("/usr/lib/vst3")).entryList({QStringLiteral("Za*.vst3")});
    int twins = 0;
    for (const QString& b : zamBundles)
        twins += QFile::exists(QStringLiteral("/usr/lib/vst/%1-vst.so").arg(QFileInfo(b).completeBaseName()));
    int enabledClasses = 0;
    for (const QJsonValue& b : root.value("vst3").toObject().value("bundles").toArray())
        for (const QJsonValue& c : b.toObject().value("classes").toArray())
            enabledClasses += c.toObject().value("state").toString() == "enabled";
    QStringList zamCids;
    for (const QJsonValue& b : root.value("vst3").toObject().value("bundles").toArray()) {
        if (!b.toObject().value("path").toString().startsWith("/usr/lib/vst3/Za"))
            continue;
        const QJsonArray classes = b.toObject().value("classes").toArray();
        ASSERT_EQ(classes.size(), 1) << b.toObject().value("path").toString().toStdString();
        const QJsonObject c = classes.first().toObject();
        EXPECT_EQ(c.value("state").toString(), "enabled") << c.value("name").toString().toStdString();
        EXPECT_TRUE(c.value("enabled").toBool());
        EXPECT_GT(c.value("verifiedAt").toInteger(), 0) << c.value("name").toString().toStdString();
        zamCids << c.value("cid").toString();
    }
    EXPECT_EQ(zamCids.size(), zamBundles.size());
    QSet<qint64> pairedVst2;
    QSet<QString> pairedCids;
    for (const QJsonValue& v : root.value("pairs").toObject().value("pairs").toArray()) {
        const QJsonObject e = v.toObject();
        const QString cid = e.value("vst3").toString();
        // A number, as the VST2 catalog's unique ids are (the pair store's file keeps text).
        ASSERT_TRUE(e.value("vst2").isDouble()) << cid.toStdString();
        const qint64 id = e.value("vst2").toInteger();
        if (!zamCids.contains(cid))
            continue;
        EXPECT_FALSE(pairedCids.contains(cid)) << cid.toStdString();
        EXPECT_FALSE(pairedVst2.contains(id)) << id;
        EXPECT_TRUE(vst2Names.contains(id)) << cid.toStdString();
        pairedCids.insert(cid);
        pairedVst2.insert(id);
    }
    // Every zam VST3 product that also ships as VST2 is paired with it.
    EXPECT_EQ(pairedCids.size(), twins);

    // The plugin manager's rows: each paired zam product is one row with both
    // formats, and no plugin shows twice.
    ASSERT_EQ(run("list --rows --json"), 0) << err();
    const QJsonArray rows = QJsonDocument::fromJson(QByteArray::fromStdString(readFile(dir.file("stdout")))).array();
    ASSERT_FALSE(rows.isEmpty());
    QSet<QString> identities;
    int zamPairRows = 0;
    for (const QJsonValue& v : rows) {
        const QJsonObject r = v.toObject();
        for (const char* format : {"vst2", "vst3"}) {
            const QString id = r.value(format).toObject().value("identity").toString();
            if (id.isEmpty())
                continue;
            EXPECT_FALSE(identities.contains(id)) << id.toStdString() << " shows twice";
            identities.insert(id);
        }
        if (zamCids.contains(r.value("vst3").toObject().value("identity").toString()) && r.contains("vst2"))
            ++zamPairRows;
    }
    EXPECT_EQ(zamPairRows, twins);
    // The tree over the real catalogs holds together as a view walks it.
    QList<QVlorVst::Path> paths;
    for (const QJsonValue& v : root.value("vst2").toObject().value("paths").toArray())
        paths << QVlorVst::Path(v.toObject());
    QVlorVst3::Catalog catalog;
    ASSERT_TRUE(catalog.load(QString::fromStdString(dir.file("data") + "/catalog_vst3.json")));
    QVlorPluginPairs pairStore;
    ASSERT_TRUE(pairStore.load(QString::fromStdString(dir.file("data") + "/plugin_pairs.json")));
    QVlorUnifiedPluginsModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    model.setRows(QVlorUnifiedPluginsModel::composeRows(paths, catalog, pairStore, {QStringLiteral("/usr/lib/vst3")}, {},
                                                        {}, {}, true));
    EXPECT_GT(model.rowCount(), 0);

    // Nothing changed: no host program runs at all.
    setenv("VLORFX_VERBOSE", "1", 1);
    const int again = run("scan");
    unsetenv("VLORFX_VERBOSE");
    ASSERT_EQ(again, 0) << err();
    EXPECT_EQ(err().find("host run"), std::string::npos) << err();
    EXPECT_NE(readFile(dir.file("stdout")).find(" classes: " + std::to_string(enabledClasses) + " enabled,"),
              std::string::npos);

    // The Plugins menu: every zam product once, under its vendor, by its pair's id, in its active format.
    ASSERT_EQ(run("menu --json --with-audio"), 0) << err();
    const QJsonObject menu = QJsonDocument::fromJson(QByteArray::fromStdString(readFile(dir.file("stdout")))).object();
    QJsonArray zam;
    for (const QJsonValue& item : menu.value("items").toArray())
        if (item.toObject().value("text").toString() == QStringLiteral("Damien Zammit"))
            zam = item.toObject().value("items").toArray();
    ASSERT_EQ(zam.size(), zamBundles.size());
    QSet<QString> names;
    for (const QJsonValue& e : zam) {
        const QString text = e.toObject().value("text").toString();
        names.insert(text.section(QStringLiteral(" \u00B7 "), 0, 0));
        EXPECT_TRUE(text.endsWith(QStringLiteral("VST3")) || text.endsWith(QStringLiteral("VST2"))) << text.toStdString();
        EXPECT_TRUE(e.toObject().value("id").toString().startsWith(QStringLiteral("plugid-"))) << text.toStdString();
        EXPECT_TRUE(e.toObject().value("enabled").toBool());
    }
    EXPECT_EQ(names.size(), zamBundles.size());
    ASSERT_EQ(run("menu"), 0) << err();
    EXPECT_NE(readFile(dir.file("stdout")).find("(disabled)"), std::string::npos) << "without audio every entry is off";
}

// A start after a crash names the plugin once, as the editor would.
TEST_F(Apply, AStartAfterACrashNamesThePluginOnce)
{
    BLIOUTILS_MakeDirectory(dir.file("data").c_str());
    writeFile(dir.file("data/opening_sentinel"), "vst3|0123|Some|Plugin");
    ASSERT_EQ(run("list"), 0) << err();
    EXPECT_NE(err().find("Last run crashed while opening Some|Plugin"), std::string::npos) << err();
    ASSERT_EQ(run("list"), 0) << err();
    EXPECT_EQ(err().find("Last run crashed"), std::string::npos) << err();
}

// Real plugins in folders and files named with what XML and command lines
// must escape: both formats scan, list as enabled, pair, and apply.
TEST_F(Apply, NamesThatMustBeEscapedScanListAndApplyInBothFormats)
{
    if (!BLIO_Exists("/usr/lib/vst/ZamDelay-vst.so") || !BLIO_Exists("/usr/lib/vst/ZamComp-vst.so") ||
        !BLIO_Exists("/usr/lib/vst3/ZamDelay.vst3"))
        GTEST_SKIP() << "zam-plugins is not installed";
    const std::string folder2 = dir.file("vst2") + "/Drums & Bass";
    const std::string folder3 = dir.file("vst3") + "/Drums & Bass";
    const std::string delay2 = folder2 + "/Zam <Delay> \"q\" Caf\xC3\xA9.so";
    const std::string comp2 = folder2 + "/Comp & co \xC3\xBCn\xC3\xAF.so";
    const std::string name3 = "Zam <Delay> & \"q\" Caf\xC3\xA9";
    const std::string delay3 = folder3 + "/" + name3 + ".vst3";
    ASSERT_EQ(std::system(("mkdir -p '" + folder2 + "' '" + folder3 + "' '" + dir.file("data") + "' && cp /usr/lib/vst/ZamDelay-vst.so '" +
                           delay2 + "' && cp /usr/lib/vst/ZamComp-vst.so '" + comp2 + "' && cp -r /usr/lib/vst3/ZamDelay.vst3 '" +
                           delay3 + "' && mv '" + delay3 + "/Contents/x86_64-linux/ZamDelay.so' '" + delay3 +
                           "/Contents/x86_64-linux/" + name3 + ".so'")
                              .c_str()),
              0);
    // Only the roots of this test: the system's own copies would be the same classes.
    writeFile(dir.file("data") + "/settings.conf",
              "vloraudio.plugins.vst3_disabled_paths=[\"/usr/lib/vst3\",\"/usr/local/lib/vst3\",\"" + dir.path() +
                  "/.vst3\"]\n");
    const std::string home = getenv("HOME") ? getenv("HOME") : "";
    setenv("HOME", dir.path().c_str(), 1);
    const int scanned = run("scan --vst2-path '" + dir.file("vst2") + "' --vst3-path '" + dir.file("vst3") + "'");
    ASSERT_EQ(scanned, 0) << err();
    ASSERT_EQ(run("list --json"), 0) << err();
    const QJsonObject root = QJsonDocument::fromJson(QByteArray::fromStdString(readFile(dir.file("stdout")))).object();
    QStringList enabled2;
    for (const QJsonValue& path : root.value("vst2").toObject().value("paths").toArray())
        for (const QJsonValue& p : path.toObject().value("plugins").toArray())
            if (p.toObject().value("enabled").toBool() && !p.toObject().value("failed").toBool())
                enabled2 << p.toObject().value("filename").toString();
    EXPECT_TRUE(enabled2.contains(QString::fromStdString(delay2))) << enabled2.join(',').toStdString();
    EXPECT_TRUE(enabled2.contains(QString::fromStdString(comp2))) << enabled2.join(',').toStdString();
    QStringList enabled3;
    for (const QJsonValue& b : root.value("vst3").toObject().value("bundles").toArray())
        for (const QJsonValue& c : b.toObject().value("classes").toArray())
            if (c.toObject().value("state").toString() == "enabled")
                enabled3 << b.toObject().value("path").toString();
    EXPECT_EQ(enabled3, QStringList{QString::fromStdString(delay3)});
    EXPECT_EQ(root.value("pairs").toObject().value("pairs").toArray().size(), 1); // the two ZamDelay

    for (const std::string& how :
         {"--vst2 '" + delay2 + "'", "--vst2 '" + comp2 + "' --in-process", "--vst3 '" + delay3 + "'"}) {
        ASSERT_EQ(run("apply " + how + " '" + dir.file("in.wav") + "' '" + dir.file("out.wav") + "'"), 0) << how << err();
        EXPECT_EQ(read("out.wav").size(), input.size()) << how;
    }
    setenv("HOME", home.c_str(), 1);
}

// A scan whose catalog cannot be kept says which file and why, and fails:
// a folder in the catalog's place, and a disk that is full (a file size limit).
TEST_F(Apply, AScanThatCannotSaveSaysWhyAndFails)
{
    const std::string home = getenv("HOME") ? getenv("HOME") : "";
    const std::string roots = "--no-vst2 --vst3-path '" + dir.file("vst3") + "'";
    ASSERT_EQ(std::system(("mkdir -p '" + dir.file("vst3") + "' && cp -r '" VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3' '" +
                           dir.file("vst3") + "/' && mkdir -p '" + dir.file("data") + "/catalog_vst3.json'")
                              .c_str()),
              0);
    setenv("HOME", dir.path().c_str(), 1); // no bundles of the user's own
    EXPECT_EQ(run("scan " + roots), 1);
    EXPECT_NE(err().find("could not save " + dir.file("data") + "/catalog_vst3.json: a folder stands in its place"),
              std::string::npos)
        << err();
    ASSERT_EQ(std::system(("rmdir '" + dir.file("data") + "/catalog_vst3.json'").c_str()), 0);

    const std::string cmd = "ulimit -f 2; '" + kVlorfx + "' --data '" + dir.file("data") + "' scan " + roots + " >'" +
                            dir.file("stdout") + "' 2>'" + dir.file("stderr") + "'";
    const int status = std::system(("bash -c \"" + cmd + "\"").c_str());
    EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 1) << err();
    EXPECT_NE(err().find("could not save " + dir.file("data") + "/catalog_vst3.json: File too large"), std::string::npos)
        << err();
    setenv("HOME", home.c_str(), 1);
}

// An apply killed in the middle leaves its partial output; the next apply into
// that folder removes it, and leaves what a live process is writing.
TEST_F(Apply, PartialOutputsOfProcessesGoneAreRemovedByTheNextRun)
{
    const pid_t gone = fork();
    if (gone == 0)
        _exit(0);
    waitpid(gone, nullptr, 0);
    const std::string stale = dir.file("killed.wav.partial-" + std::to_string(gone));
    const std::string live = dir.file("busy.wav.partial-" + std::to_string(getpid()));
    // Names that only look like one: no pid behind the mark, no mark at all.
    const std::vector<std::string> others = {dir.file("notes.partial-draft"), dir.file("empty.wav.partial-"),
                                             dir.file("abcdefgh" + std::to_string(gone))};
    for (const std::string& f : others)
        writeFile(f, std::string(4096, 'x'));
    for (const std::string& f : {stale, live})
        writeFile(f, std::string(4096, 'x'));
    ASSERT_EQ(run("apply --vst2 '" + kStereo + "' '" + dir.file("in.wav") + "' '" + dir.file("out.wav") + "'"), 0) << err();
    EXPECT_FALSE(BLIO_Exists(stale.c_str()));
    EXPECT_TRUE(BLIO_Exists(live.c_str()));
    for (const std::string& f : others)
        EXPECT_TRUE(BLIO_Exists(f.c_str())) << f;
}

// The settings store in a pipe's place: read as empty without blocking, never
// replaced, and the settings that could not be saved are told.
TEST_F(Apply, TheSettingsStoreReplacesNothingButAFile)
{
    const std::string fifo = dir.file("pipe");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    ASSERT_EQ(std::system(("mkdir -p '" + dir.file("data") + "' && ln -s '" + fifo + "' '" + dir.file("data") +
                           "/settings.conf' && mkdir -p '" + dir.file("vst3") + "'")
                              .c_str()),
              0);
    EXPECT_EQ(run("scan --no-vst2 --vst3-path '" + dir.file("vst3") + "'"), 1) << err();
    EXPECT_NE(err().find("could not save " + dir.file("data") + "/settings.conf: a pipe stands in its place"),
              std::string::npos)
        << err();
    struct stat st;
    ASSERT_EQ(lstat((dir.file("data") + "/settings.conf").c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    ASSERT_EQ(stat(fifo.c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));
}
