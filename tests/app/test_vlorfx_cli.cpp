// The command line as a person meets it: help, the data folder, scan, list,
// the switches, apply with its questions, a mixer chain, and the windows
// open and prefs show, each run as a user runs vlorfx.
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
