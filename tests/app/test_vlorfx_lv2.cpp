// vlorfx's LV2 commands on the fixture bundle: probe tells a plugin or why it
// fails, apply checks it in the host program first and runs it on every
// channel of the file.
#include "vlorfx_fixture.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <regex>

using namespace vlortest;

namespace {

class Lv2Cli : public Cli {
protected:
    void SetUp() override
    {
        Cli::SetUp();
        setenv("LV2_PATH", VLOR_FIXTURE_LV2_DIR ":/usr/lib/lv2", 1);
    }
};

TEST_F(Lv2Cli, ProbeTellsAPluginOrWhyItFails)
{
    struct Case {
        const char* args;
        int status;
        const char* says; // on standard output for 0, standard error otherwise
    } cases[] = {
        {"probe --lv2 urn:vlor:fixture:gain", 0, "audio: 1 in, 1 out; 3 parameters; latency 16 frames"},
        {"probe --lv2 urn:vlor:fixture:sidechain", 0, "1 in, 1 out, 1 side chain"},
        {"probe --lv2 urn:vlor:fixture:crash-run", 1, "urn:vlor:fixture:crash-run: the plugin crashed during its check"},
        {"probe --lv2 urn:vlor:fixture:crash-instantiate", 1, "the plugin crashed during its check"},
        {"probe --lv2 urn:vlor:fixture:needs-feature", 1,
         "requires a feature this host does not offer: urn:vlor:fixture#unoffered"},
        {"probe --lv2 urn:vlor:fixture:nan", 1, "invalid samples"},
        {"probe --lv2 urn:vlor:nothing", 1, "no LV2 plugin has this URI"},
        {"probe --lv2 --all", 0, "urn:vlor:fixture:needs-feature  Fixture Needs Feature  (Vlor fixtures; 1 in, 1 out)  needs urn:vlor:fixture#unoffered"},
        {"probe --lv2", 2, "usage: vlorfx probe --lv2 URI"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(run(c.args), c.status) << c.args << "\n" << err();
        const std::string said = c.status == 0 ? out() : err();
        EXPECT_NE(said.find(c.says), std::string::npos) << c.args << "\n" << said;
    }
}

TEST_F(Lv2Cli, ApplyRunsTheEffectOnEveryChannelWithItsParameters)
{
    // A mono effect on a stereo file: one instance a channel, both louder by 6 dB.
    ASSERT_EQ(run("apply --lv2 urn:vlor:fixture:gain --param 0=6 '" + dir.file("in.wav") + "' '" +
                  dir.file("out.wav") + "'"),
              0)
        << err();
    int channels = 0;
    const std::vector<float> out = read("out.wav", &channels);
    ASSERT_EQ(channels, 2);
    ASSERT_EQ(out.size(), input.size());
    const float factor = std::pow(10.0f, 6.0f / 20.0f);
    // The plugin says it is 16 frames late; the render takes that out.
    for (size_t i = 2000; i < out.size(); i += 331)
        ASSERT_NEAR(out[i], input[i] * factor, 1e-3f) << i;
    EXPECT_NE(this->out().find("wrote " + dir.file("out.wav")), std::string::npos);
}

TEST_F(Lv2Cli, ApplyRefusesWhatCannotRunAndWritesNothing)
{
    const std::string files = " '" + dir.file("in.wav") + "' '" + dir.file("out.wav") + "'";
    struct Case {
        std::string args;
        int status;
        const char* says;
    } cases[] = {
        {"apply --lv2 urn:vlor:fixture:crash-instantiate" + files, 1, "the plugin crashed during its check"},
        {"apply --lv2 urn:vlor:fixture:nan" + files, 1, "invalid samples"},
        {"apply --lv2 urn:vlor:fixture:gain --param 7=1" + files, 1, "parameter 7 does not exist: the effect has 3"},
        {"apply --lv2 urn:vlor:fixture:gain --param 0=x" + files, 2, "the value 'x' is no number"},
        {"apply --lv2 urn:vlor:fixture:gain --vst2 '" + kStereo + "'" + files, 2, "--lv2 cannot be used with --vst2 or --vst3"},
        {"apply --lv2 urn:vlor:fixture:gain --cid 0" + files, 2, "are not for --lv2"},
        {"apply --vst2 '" + kStereo + "' --param 0=3" + files, 2, "bad --param '0=3': the value must be from 0 to 1"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(run(c.args), c.status) << c.args << "\n" << err();
        EXPECT_NE(err().find(c.says), std::string::npos) << c.args << "\n" << err();
        EXPECT_FALSE(QFile::exists(QString::fromStdString(dir.file("out.wav")))) << c.args;
    }
}

} // namespace

TEST_F(Lv2Cli, OpenShowsThePanelOrSaysWhyNot)
{
    struct Case {
        const char* args;
        int status;
        const char* says;
    } cases[] = {
        {"open --lv2 urn:vlor:fixture:gain --screenshot '%s'", 0, ".png: 560x"},
        {"open --lv2 urn:vlor:nothing --screenshot '%s'", 1, "urn:vlor:nothing did not start: no LV2 plugin has this URI"},
        {"open --lv2 urn:vlor:fixture:gain /usr/lib/vst3/ZamComp.vst3", 2, "one plugin at a time"},
    };
    // Off any display: the panel, as where no editor can be embedded.
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    for (const Case& c : cases) {
        char args[512];
        std::snprintf(args, sizeof(args), c.args, dir.file("shot.png").c_str());
        EXPECT_EQ(run(args), c.status) << args << "\n" << err();
        const std::string said = c.status == 0 ? out() : err();
        EXPECT_NE(said.find(c.says), std::string::npos) << args << "\n" << said;
    }
    unsetenv("QT_QPA_PLATFORM");
}

// An editor that crashes in the editor's own process takes it down; the
// next start names the plugin, as for the other formats.
TEST_F(Lv2Cli, AnEditorThatCrashesIsNamedAtTheNextStart)
{
    if (std::system("command -v xvfb-run >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "xvfb-run is not installed";
    // In the catalog first, so that the crash has a row to mark: the fixtures alone.
    setenv("LV2_PATH", VLOR_FIXTURE_LV2_DIR, 1);
    ASSERT_EQ(run("scan --quiet --no-vst2 --no-vst3 --check-timeout 2"), 0) << err();
    const std::string open = "env -u QT_QPA_PLATFORM xvfb-run -a '" + kVlorfx + "' --data '" + dir.file("data") +
                             "' open --lv2 urn:vlor:fixture:crash-ui --screenshot '" + dir.file("shot.png") +
                             "' >/dev/null 2>&1";
    EXPECT_NE(std::system(open.c_str()), 0);
    EXPECT_EQ(readFile(dir.file("data/opening_sentinel")), "lv2|urn:vlor:fixture:crash-ui|Fixture Crash UI");
    ASSERT_EQ(run("list --wide"), 0) << err();
    EXPECT_NE(err().find("Last run crashed while opening Fixture Crash UI"), std::string::npos) << err();
    EXPECT_FALSE(QFileInfo::exists(QString::fromStdString(dir.file("data/opening_sentinel"))));
    const std::string listed = out();
    const size_t line = listed.find("Fixture Crash UI");
    ASSERT_NE(line, std::string::npos) << listed;
    EXPECT_NE(listed.substr(line, listed.find('\n', line) - line).find("crashed"), std::string::npos) << listed;
    // Switched on again, it is checked again first (its code is sound), and offered.
    writeFile(dir.file("data/settings.conf"), "vloraudio.plugins.lv2_check_timeout_s=2\n");
    ASSERT_EQ(run("enable 'Fixture Crash UI'"), 0) << out() << err();
    EXPECT_NE(out().find("Fixture Crash UI: LV2 urn:vlor:fixture:crash-ui, on"), std::string::npos) << out();
    // With the LV2 format switched off, a crash pinned on an LV2 plugin is still told, and nothing else.
    writeFile(dir.file("data/settings.conf"), "vloraudio.plugins.lv2_enabled=false\n");
    writeFile(dir.file("data/opening_sentinel"), "lv2|urn:vlor:fixture:crash-ui|Fixture Crash UI");
    ASSERT_EQ(run("list"), 0) << err();
    EXPECT_NE(err().find("Last run crashed while opening Fixture Crash UI"), std::string::npos) << err();
}

// The LV2 catalog through vlorfx: a scan of the fixture folder names every
// fault, and the plugins are switched, listed and applied by name or URI.
TEST_F(Lv2Cli, ScanListSwitchAndApplyTakeLv2PluginsByNameAndUri)
{
    setenv("LV2_PATH", ":", 1);
    // The hang fixture is given two seconds at each of its checks, as the user's setting.
    mkdir(dir.file("data").c_str(), 0700);
    writeFile(dir.file("data/settings.conf"), "vloraudio.plugins.lv2_check_timeout_s=2\n");
    ASSERT_EQ(run("scan --no-vst2 --no-vst3 --check-timeout 2 --lv2-path '" VLOR_FIXTURE_LV2_DIR "'"), 0) << err();
    EXPECT_NE(out().find("LV2: 1 bundles, 14 plugins: 7 on, 0 off, 6 failed, 1 not effects"), std::string::npos)
        << out();
    EXPECT_NE(out().find("LV2 Fixture Crash Run (urn:vlor:fixture:crash-run): the plugin crashed during its check"),
              std::string::npos)
        << out();
    struct Step {
        const char* args;
        int status;
        const char* says;
    } steps[] = {
        {"disable 'Fixture Gain'", 0, "Fixture Gain: LV2 urn:vlor:fixture:gain, off"},
        {"list --wide", 0, "off"},
        {"enable urn:vlor:fixture:gain", 0, "Fixture Gain: LV2 urn:vlor:fixture:gain, on"},
        {"enable urn:vlor:fixture:nan", 1, "Fixture Nan: LV2 urn:vlor:fixture:nan, failed"},
        // A bundle named whole is checked again whole: every plugin told, the failed ones too.
        {"recheck '" VLOR_FIXTURE_LV2_DIR "/vlor-lv2-fixtures.lv2'", 1,
         "Fixture Hang: LV2 urn:vlor:fixture:hang, failed (its check did not end within 2 s)"},
        {"list --json", 0, "\"lv2\": {"},
        {"scan --quiet --no-vst2 --no-vst3", 0, "LV2: 1 bundles, 14 plugins: 7 on, 0 off, 6 failed"},
        {"menu --with-audio", 0, "Fixture Gain \u00B7 LV2  [lv2id-urn:vlor:fixture:gain]"},
        {"prefs --status lv2 --context-menu 'Fixture Atom' --screenshot menu.png", 0,
         "menu: Update Plugin | Reset Plugin | Open file location | Run in its own process"},
    };
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    for (const Step& s : steps) {
        EXPECT_EQ(run(s.args), s.status) << s.args << "\n" << err();
        EXPECT_NE(out().find(s.says), std::string::npos) << s.args << "\n" << out();
    }
    unsetenv("QT_QPA_PLATFORM");
    // The catalog's folder reaches the engine too: applied by name.
    ASSERT_EQ(run("apply --lv2 'Fixture Gain' --param 0=6 '" + dir.file("in.wav") + "' '" + dir.file("out.wav") + "'"),
              0)
        << err();
    EXPECT_EQ(read("out.wav").size(), input.size());
}

// The fixture gain ships as a VST3 class and an LV2 plugin of one name and
// maker: one family, one line of the list with both forms and the one in
// use, one row with both badges, one menu entry under the family's id.
TEST_F(Lv2Cli, AProductInTwoFormatsIsOneLineOneRowAndOneEntry)
{
    setenv("LV2_PATH", ":", 1);
    mkdir(dir.file("data").c_str(), 0700);
    writeFile(dir.file("data/settings.conf"), "vloraudio.plugins.lv2_check_timeout_s=2\n");
    ASSERT_EQ(run("scan --no-vst2 --check-timeout 2 --vst3-path '" VLOR_FIXTURE_VST3_DIR "' --lv2-path '" VLOR_FIXTURE_LV2_DIR
                  "'"),
              0)
        << err();
    EXPECT_NE(out().find("\npairs: 1 (1 by name)"), std::string::npos) << out();
    ASSERT_EQ(run("list --wide"), 0) << err();
    const std::regex line("\nFixture Gain +Vlor Fixtures +- +on +on +vst3 +heuristic +vlor-vst3-effects.vst3 \\+ "
                          "vlor-lv2-fixtures.lv2 urn:vlor:fixture:gain\n");
    EXPECT_TRUE(std::regex_search(out(), line)) << out();
    EXPECT_EQ(out().find("\nFixture Gain "), out().rfind("\nFixture Gain ")) << "one line:\n" << out();

    ASSERT_EQ(run("list --rows --json"), 0) << err();
    const QJsonArray rows = QJsonDocument::fromJson(QByteArray::fromStdString(out())).array();
    int gains = 0;
    for (const QJsonValue& v : rows) {
        const QJsonObject r = v.toObject();
        if (r.value(QStringLiteral("name")).toString() != QLatin1String("Fixture Gain"))
            continue;
        ++gains;
        EXPECT_TRUE(r.value(QStringLiteral("vst3")).toObject().value(QStringLiteral("active")).toBool());
        EXPECT_FALSE(r.value(QStringLiteral("lv2")).toObject().value(QStringLiteral("active")).toBool());
        EXPECT_EQ(r.value(QStringLiteral("lv2")).toObject().value(QStringLiteral("identity")).toString(),
                  QStringLiteral("urn:vlor:fixture:gain"));
    }
    EXPECT_EQ(gains, 1);

    ASSERT_EQ(run("menu --with-audio"), 0) << err();
    EXPECT_TRUE(std::regex_search(out(), std::regex("Fixture Gain \u00B7 VST3  \\[plugid-[0-9a-f-]+\\]"))) << out();
    EXPECT_EQ(out().find("Fixture Gain \u00B7 LV2"), std::string::npos) << out();
}
