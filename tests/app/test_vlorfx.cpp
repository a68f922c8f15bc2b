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

/* ---- the command line as a person meets it ------------------------------- */

TEST_F(Cli, HelpVersionAndTheDataFolderSayWhatTheyShould)
{
    struct Case {
        std::string args;
        int status;
        std::string stream; // "out" or "err"
        std::vector<std::string> says;
    };
    const std::vector<Case> cases = {
        {"--version", 0, "out", {"vlorfx 0."}},
        {"--help", 0, "out", {"demo", "scan", "list", "enable", "disable", "recheck", "apply", "VST2 or VST3", "--version"}},
        {"", 2, "err", {"usage: vlorfx"}},
        {"bogus", 2, "err", {"unknown command 'bogus'"}},
    };
    for (const Case& c : cases) {
        const std::string cmd = "'" + kVlorfx + "' " + c.args + " >'" + dir.file("stdout") + "' 2>'" + dir.file("stderr") + "'";
        const int status = std::system(cmd.c_str());
        EXPECT_EQ(WEXITSTATUS(status), c.status) << c.args;
        const std::string text = c.stream == "out" ? out() : err();
        for (const std::string& s : c.says)
            EXPECT_NE(text.find(s), std::string::npos) << c.args << " should say " << s << "\n" << text;
    }
    const std::string cmd = "'" + kVlorfx + "' --data 2>'" + dir.file("stderr") + "'";
    EXPECT_EQ(WEXITSTATUS(std::system(cmd.c_str())), 2);
    EXPECT_NE(err().find("--data needs a folder"), std::string::npos) << err();
    // Every command explains itself with an example.
    for (const char* command : {"demo", "scan", "list", "enable", "disable", "recheck", "apply", "classes", "probe", "open", "menu"}) {
        EXPECT_EQ(run(std::string(command) + " --help"), 0) << command;
        EXPECT_NE(out().find("example:"), std::string::npos) << command << "\n" << out();
    }
}

TEST_F(Cli, ScanWithoutATerminalNamesEachPluginAndListsTheFailures)
{
    const std::string folder = plugins({{"vlor-fixture-stereo.so", "stereo.so"}, {"vlor-fault-synth.so", "synth.so"}});
    ASSERT_EQ(run("scan --no-vst3 --vst2-path '" + folder + "'"), 0) << err();
    EXPECT_NE(err().find("VST2: checking stereo.so"), std::string::npos) << err();
    EXPECT_NE(err().find("VST2: checking synth.so"), std::string::npos) << err();
    EXPECT_EQ(err().find('\r'), std::string::npos); // no terminal: plain lines
    // The summary in its few lines, the failures named after it.
    EXPECT_EQ(out().find("VST2: 2 plugins in 1 folders: 1 enabled, 1 failed, 0 shells\nVST3: 0 bundles"), 0u) << out();
    const std::string summary = out().substr(0, out().find("failures:"));
    EXPECT_LE(std::count(summary.begin(), summary.end(), '\n'), 5) << out();
    EXPECT_NE(out().find("failures:\n  VST2 " + folder + "/synth.so: not an effect"), std::string::npos) << out();

    // --quiet keeps the summary alone; nothing new is checked the second time.
    ASSERT_EQ(run("scan --quiet --no-vst3"), 0) << err();
    EXPECT_NE(out().find(", 1 failed,"), std::string::npos);
    EXPECT_EQ(out().find("failures:"), std::string::npos) << out();
    EXPECT_EQ(err().find("checking"), std::string::npos) << err();
}

TEST_F(Cli, ListSortsEscapesAndSpeaksOneVocabulary)
{
    // The same plugin twice (the second copy is a duplicate and fails), one
    // name with an escape sequence that would clear a terminal.
    const std::string folder = plugins({{"vlor-fixture-stereo.so", "b-stereo.so"},
                                        {"vlor-fixture-stereo.so", "a\x1b[2J-stereo.so"},
                                        {"vlor-fault-synth.so", "synth.so"}});
    ASSERT_EQ(run("scan --no-vst3 --vst2-path '" + folder + "'"), 0) << err();
    ASSERT_EQ(run("list"), 0) << err();
    const std::string list = out();
    EXPECT_EQ(list.find('\x1b'), std::string::npos) << list;
    EXPECT_NE(list.find("a\\e[2J-stereo.so"), std::string::npos) << list;
    // Sorted by product, whatever the folder's order, case aside.
    EXPECT_LT(lineOf(list, "a\\e[2J"), lineOf(list, "synth.so")) << list;
    EXPECT_LT(lineOf(list, "synth.so"), lineOf(list, "Vlor Fixture Stereo")) << list;
    // One vocabulary, and the failure says why.
    for (const char* word : {" on ", " failed ", "(not an effect"})
        EXPECT_NE(list.find(word), std::string::npos) << word << "\n" << list;
    for (const char* word : {"Loaded", "Disabled", "Failed", "Enabled"})
        EXPECT_EQ(list.find(word), std::string::npos) << word << "\n" << list;
}

TEST_F(Cli, EnableDisableAndRecheckActOnAPluginByFileOrName)
{
    const std::string folder = plugins({{"vlor-fixture-stereo.so", "stereo.so"}, {"vlor-fault-synth.so", "synth.so"}});
    ASSERT_EQ(run("scan --no-vst3 --vst2-path '" + folder + "'"), 0) << err();

    ASSERT_EQ(run("disable '" + folder + "/stereo.so'"), 0) << err();
    EXPECT_NE(out().find("Vlor Fixture Stereo: VST2 " + folder + "/stereo.so, off"), std::string::npos) << out();
    ASSERT_EQ(run("list"), 0);
    EXPECT_NE(out().find(" off "), std::string::npos) << out();

    ASSERT_EQ(run("enable 'vlor fixture stereo'"), 0) << err();
    EXPECT_NE(out().find(", on"), std::string::npos) << out();

    // A plugin that cannot be used fails its recheck again, with the reason.
    EXPECT_EQ(run("recheck '" + folder + "/synth.so'"), 1);
    EXPECT_NE(out().find("failed (not an effect"), std::string::npos) << out();
    // One that can is checked anew and comes back on.
    ASSERT_EQ(run("recheck '" + folder + "/stereo.so'"), 0) << err() << out();
    EXPECT_NE(out().find(", on"), std::string::npos) << out();

    EXPECT_EQ(run("enable nothing-like-it"), 1);
    EXPECT_NE(err().find("nothing in the catalog is 'nothing-like-it'"), std::string::npos) << err();
    EXPECT_EQ(run("disable"), 2);
}

TEST_F(Cli, ApplyKeepsTheFormatReportsClippingAndAsksBeforeWritingOverItsInput)
{
    writePcm16("pcm.wav", 0.5f);
    const std::string stereo = "apply --vst2 '" + kStereo + "' ";
    // +24 dB on a half-scale signal: 16-bit output cuts it, and says so.
    ASSERT_EQ(run(stereo + "--param 0=1 '" + dir.file("pcm.wav") + "' '" + dir.file("loud.wav") + "'"), 0) << err();
    EXPECT_EQ(formatOf("loud.wav"), SF_FORMAT_PCM_16);
    EXPECT_NE(err().find("went beyond full scale"), std::string::npos) << err();
    EXPECT_NE(err().find("--float keeps them"), std::string::npos) << err();
    ASSERT_EQ(run(stereo + "--float --param 0=1 '" + dir.file("pcm.wav") + "' '" + dir.file("float.wav") + "'"), 0);
    EXPECT_EQ(formatOf("float.wav"), SF_FORMAT_FLOAT);
    EXPECT_EQ(err().find("full scale"), std::string::npos) << err();
    const std::vector<float> kept = read("float.wav");
    ASSERT_FALSE(kept.empty());
    EXPECT_GT(*std::max_element(kept.begin(), kept.end()), 1.5f);

    // Over its own input only when asked.
    EXPECT_EQ(run(stereo + "'" + dir.file("pcm.wav") + "' '" + dir.file("pcm.wav") + "'"), 2);
    ASSERT_EQ(run(stereo + "--force --param 0=0.5 '" + dir.file("pcm.wav") + "' '" + dir.file("pcm.wav") + "'"), 0)
        << err();
    EXPECT_EQ(formatOf("pcm.wav"), SF_FORMAT_PCM_16);

    // What a plugin prints while it runs here reaches neither output.
    ASSERT_EQ(run("apply --in-process --vst2 '" VLOR_FIXTURE_VST_DIR "/vlor-fault-chatty.so' '" + dir.file("in.wav") +
                  "' '" + dir.file("chat.wav") + "'"),
              0)
        << err();
    EXPECT_EQ(out().find("chatty plugin says"), std::string::npos) << out();
    EXPECT_EQ(err().find("chatty plugin says"), std::string::npos) << err();
}

TEST_F(Cli, ApplyThroughAMixerChainOfBothFormats)
{
    const std::string chain = "apply --mixer --block 256 --vst2 '" + kStereo + "' --vst3 '" VLOR_FIXTURE_VST3_DIR
                              "/vlor-vst3-effects.vst3' --cid 51000000000000000000000000000001 ";
    ASSERT_EQ(run(chain + "'" + dir.file("in.wav") + "' '" + dir.file("chain.wav") + "'"), 0) << err();
    const std::vector<float> out = read("chain.wav");
    ASSERT_EQ(out.size(), input.size());
    float peakOut = 0;
    for (float v : out)
        peakOut = std::max(peakOut, std::fabs(v));
    EXPECT_GT(peakOut, 0.05f); // both at their defaults: the signal goes through
    EXPECT_EQ(err(), "");

    struct Case {
        std::string args;
        int status;
        std::string says;
    };
    const std::vector<Case> cases = {
        {"apply --mixer '" + dir.file("in.wav") + "' '" + dir.file("x.wav") + "'", 2, "no effect"},
        {"apply --mixer --cid 0 --vst2 '" + kStereo + "' '" + dir.file("in.wav") + "' '" + dir.file("x.wav") + "'", 2,
         "--cid follows the --vst3"},
        {"apply --mixer --block 3 --vst2 '" + kStereo + "' '" + dir.file("in.wav") + "' '" + dir.file("x.wav") + "'", 2,
         "bad --block"},
        {"apply --mixer --vst2 /no/such.so '" + dir.file("in.wav") + "' '" + dir.file("x.wav") + "'", 1,
         "no VST2 effect that can be used"},
        {"apply --mixer --vst2 '" + kStereo + "' '" + dir.file("in.wav") + "' '" + dir.file("in.wav") + "'", 2,
         "give --force"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(run(c.args), c.status) << c.args;
        EXPECT_NE(err().find(c.says), std::string::npos) << c.args << "\n" << err();
        EXPECT_FALSE(BLIO_Exists(dir.file("x.wav").c_str())) << c.args;
    }
}

TEST_F(Cli, OpenShowsAnEffectsDialogAndSavesAPictureOfIt)
{
    const std::string bundle = VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3";
    struct Shot {
        std::string args;
        std::string file;
    };
    // Off a display both open as panels; the plugins' own editors are tried under xvfb by the widget tests.
    const std::vector<Shot> shots = {
        {"open --cid 51000000000000000000000000000001 --theme dark '" + bundle + "'", "vst3.png"},
        {"open '" + kStereo + "'", "vst2.png"},
    };
    for (const Shot& s : shots) {
        ASSERT_EQ(run(s.args + " --screenshot '" + dir.file(s.file) + "'"), 0) << s.args << "\n" << err();
        const QImage image(QString::fromStdString(dir.file(s.file)));
        ASSERT_FALSE(image.isNull()) << s.args;
        QSet<QRgb> colours;
        for (int y = 0; y < image.height(); y += 2)
            for (int x = 0; x < image.width(); x += 2)
                colours.insert(image.pixel(x, y));
        EXPECT_GT(colours.size(), 10) << s.args << ": a picture of nothing";
    }
    struct Case {
        std::string args;
        int status;
        std::string says;
    };
    const std::vector<Case> cases = {
        {"open", 2, "no plugin given"},
        {"open /no/such.so", 2, "does not exist"},
        {"open --theme pink '" + kStereo + "'", 2, "--theme is light or dark"},
        {"open '" + kStereo + "' '" + kStereo + "'", 2, "one plugin at a time"},
        {"open '" + bundle + "'", 1, "needs --cid"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(run(c.args), c.status) << c.args << "\n" << err();
        EXPECT_NE(err().find(c.says), std::string::npos) << c.args << "\n" << err();
    }
}

TEST_F(Cli, PrefsShowsThePluginManagerPageAndSavesAPictureOfIt)
{
    const std::string folder = plugins({{"vlor-fixture-stereo.so", "Stereo.so"}});
    ASSERT_EQ(run("scan --no-vst3 --vst2-path '" + folder + "'"), 0) << err();
    ASSERT_EQ(run("prefs --theme dark --filter stereo --screenshot '" + dir.file("page.png") + "'"), 0) << err();
    const QImage image(QString::fromStdString(dir.file("page.png")));
    ASSERT_FALSE(image.isNull());
    EXPECT_EQ(image.size(), QSize(760, 620));
    // The stereo fixture's row is drawn with its badge in the blue of a format in use.
    int blue = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const QColor c = image.pixelColor(x, y);
            blue += std::abs(c.red() - 22) + std::abs(c.green() - 119) + std::abs(c.blue() - 217) < 40;
        }
    EXPECT_GT(blue, 100) << "no badge in the picture";

    struct Case {
        std::string args;
        std::string says;
    };
    const std::vector<Case> cases = {
        {"prefs --theme pink", "--theme is light or dark"},
        {"prefs --status lost", "--status is all, new, failed, enabled, vst2, vst3 or lv2"},
        {"prefs --size 10x10", "--size is WIDTHxHEIGHT"},
        {"prefs --what", "unknown argument --what"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(run(c.args), 2) << c.args;
        EXPECT_NE(err().find(c.says), std::string::npos) << c.args << "\n" << err();
    }
}
