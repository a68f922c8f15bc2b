// vlorfx's presets: one saved from a product's VST3 form sounds the same in
// its LV2 and VST2 forms; the factory's presets of each format are listed and
// change the sound; a VST3 preset file of the standard folders is read; the
// user's presets are exported, imported and removed, and mistakes are told.
#include "vlorfx_fixture.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtEndian>

#include <cmath>
#include <sys/stat.h>

using namespace vlortest;

namespace {

const std::string kZamVst3 = "/usr/lib/vst3/ZamComp.vst3";
const std::string kZamVst2 = "/usr/lib/vst/ZamComp-vst.so";
const std::string kZamLv2 = "/usr/lib/lv2/ZamComp.lv2";
const std::string kFixtureBundle = std::string(VLOR_FIXTURE_VST3_DIR) + "/vlor-vst3-effects.vst3";
const std::string kFixtureGain = " --vst3 '" + kFixtureBundle + "' --cid 51000000000000000000000000000001";

class PresetCli : public Cli {
protected:
    void SetUp() override
    {
        Cli::SetUp();
        setenv("LV2_PATH", VLOR_FIXTURE_LV2_DIR ":/usr/lib/lv2", 1);
        // The standard folders of VST3 presets under a home of the test's own.
        setenv("HOME", dir.file("home").c_str(), 1);
    }
    void TearDown() override { unsetenv("HOME"); }
    std::string files(const std::string& out) const { return " '" + dir.file("in.wav") + "' '" + dir.file(out) + "'"; }
    static float maxDifference(const std::vector<float>& a, const std::vector<float>& b)
    {
        float most = a.size() == b.size() ? 0.0f : 1e9f;
        for (size_t i = 0; i < a.size() && i < b.size(); ++i)
            most = std::max(most, std::fabs(a[i] - b[i]));
        return most;
    }
};

bool Exists(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

} // namespace

TEST_F(PresetCli, AZamPresetSavedFromVst3SoundsTheSameInItsLv2AndVst2Forms)
{
    for (const std::string& p : {kZamVst3, kZamVst2, kZamLv2})
        if (!Exists(p))
            GTEST_SKIP() << p << " is not installed (zam-plugins): no product in three formats to load a preset into";
    ASSERT_EQ(run("preset save Punch --vst3 " + kZamVst3 + " --param Threshold=0.75 --param Makeup=0.4 --param Ratio=0.3"), 0)
        << err();
    // Listed for every form of the product.
    for (const std::string& form : {std::string("--lv2 urn:zamaudio:ZamComp"), "--vst2 " + kZamVst2}) {
        ASSERT_EQ(run("preset list " + form), 0) << err();
        EXPECT_NE(out().find("user     Punch"), std::string::npos) << form << "\n" << out();
    }
    ASSERT_EQ(run("preset load Punch --lv2 urn:zamaudio:ZamComp"), 0) << err();
    EXPECT_NE(out().find("Threshold                    -20"), std::string::npos) << "-80 dB to 0 at 0.75\n" << out();
    EXPECT_EQ(out().find("not matched"), std::string::npos) << out();

    std::vector<float> outputs[3];
    const std::string forms[3] = {"--vst3 " + kZamVst3, "--lv2 urn:zamaudio:ZamComp", "--vst2 " + kZamVst2};
    for (int k = 0; k < 3; ++k) {
        ASSERT_EQ(run("apply " + forms[k] + " --preset Punch --float" + files("out" + std::to_string(k) + ".wav")), 0)
            << forms[k] << "\n" << err();
        outputs[k] = read("out" + std::to_string(k) + ".wav");
    }
    ASSERT_EQ(run("apply --vst3 " + kZamVst3 + " --float" + files("default.wav")), 0) << err();
    // The preset is heard: louder by its makeup, and not the plugin's defaults.
    EXPECT_GT(maxDifference(outputs[0], read("default.wav")), 0.05f);
    EXPECT_GT(maxDifference(outputs[0], input), 0.05f);
    EXPECT_LT(maxDifference(outputs[0], outputs[1]), 2e-3f) << "VST3 and LV2";
    EXPECT_LT(maxDifference(outputs[0], outputs[2]), 2e-3f) << "VST3 and VST2";
}

TEST_F(PresetCli, FactoryPresetsOfEachFormatAreListedAndChangeTheSound)
{
    if (!Exists(kZamLv2) || !Exists(kZamVst2) || !Exists(kZamVst3))
        GTEST_SKIP() << "zam-plugins are not installed: no factory presets to list";
    ASSERT_EQ(run("preset list --lv2 urn:zamaudio:ZamComp"), 0) << err();
    EXPECT_NE(out().find("factory  PoppySnare"), std::string::npos) << out();
    ASSERT_EQ(run("preset list --vst2 " + kZamVst2), 0) << err();
    EXPECT_NE(out().find("factory  "), std::string::npos) << "the VST2 form's programs\n" << out();
    ASSERT_EQ(run("apply --lv2 urn:zamaudio:ZamComp --float" + files("default.wav")), 0) << err();
    ASSERT_EQ(run("apply --lv2 urn:zamaudio:ZamComp --preset PoppySnare --float" + files("poppy.wav")), 0) << err();
    EXPECT_GT(maxDifference(read("default.wav"), read("poppy.wav")), 0.01f) << "a factory preset is heard";
    // The VST3 form's program list: the same program, the same sound.
    ASSERT_EQ(run("preset list --vst3 " + kZamVst3), 0) << err();
    EXPECT_NE(out().find("factory  PoppySnare"), std::string::npos) << out();
    ASSERT_EQ(run("apply --vst3 " + kZamVst3 + " --preset PoppySnare --float" + files("poppy3.wav")), 0) << err();
    EXPECT_LT(maxDifference(read("poppy.wav"), read("poppy3.wav")), 2e-3f);
}

// A preset file of the VST3 format, made as a plugin's vendor ships one:
// the component's state of the fixture gain at 0.9, in the user's folder.
TEST_F(PresetCli, AVst3PresetFileOfTheStandardFoldersIsAFactoryPreset)
{
    ASSERT_EQ(run("preset save Loud" + kFixtureGain + " --param Gain=0.9"), 0) << err();
    QFile saved(QString::fromStdString(dir.file("data/presets/Fixture Gain/Loud.vlorpreset")));
    ASSERT_TRUE(saved.open(QIODevice::ReadOnly));
    const QString state = QJsonDocument::fromJson(saved.readAll()).object().value(QStringLiteral("state")).toString();
    const int at = state.indexOf(QStringLiteral("presetdata=\"")) + 12;
    const QByteArray comp = QByteArray::fromBase64(state.mid(at, state.indexOf(QLatin1Char('"'), at) - at).toLatin1());
    ASSERT_FALSE(comp.isEmpty()) << state.toStdString();
    QByteArray file = "VST3" + QByteArray(4, '\0') + QByteArray("51000000000000000000000000000001");
    char word[8];
    qToLittleEndian<qint64>(48 + comp.size(), word);
    file += QByteArray(word, 8) + comp + "List";
    qToLittleEndian<qint32>(1, word);
    file += QByteArray(word, 4) + "Comp";
    qToLittleEndian<qint64>(48, word);
    file += QByteArray(word, 8);
    qToLittleEndian<qint64>(comp.size(), word);
    file += QByteArray(word, 8);
    const QString folder = QString::fromStdString(dir.file("home")) + QStringLiteral("/.vst3/presets/Vlor Fixtures/Fixture Gain");
    ASSERT_TRUE(QDir().mkpath(folder));
    QFile preset(folder + QStringLiteral("/Very Loud.vstpreset"));
    ASSERT_TRUE(preset.open(QIODevice::WriteOnly) && preset.write(file) == file.size());
    preset.close();
    // One of another class, and a file that is no preset: passed over when loaded.
    QFile other(folder + QStringLiteral("/Broken.vstpreset"));
    ASSERT_TRUE(other.open(QIODevice::WriteOnly) && other.write("VST3 but nothing after") > 0);
    other.close();

    ASSERT_EQ(run("preset delete Loud" + kFixtureGain), 0) << err();
    ASSERT_EQ(run("preset list" + kFixtureGain), 0) << err();
    EXPECT_EQ(out(), "factory  Broken\nfactory  Very Loud\n");
    ASSERT_EQ(run("preset load 'Very Loud'" + kFixtureGain), 0) << err();
    EXPECT_NE(out().find("Gain                         0.9"), std::string::npos) << out();
    EXPECT_EQ(run("preset load Broken" + kFixtureGain), 1);
    EXPECT_NE(err().find("cannot be loaded"), std::string::npos) << err();
}

TEST_F(PresetCli, ExportImportRemoveAndMistakes)
{
    ASSERT_EQ(run("preset save Soft" + kFixtureGain + " --param Gain=0.25"), 0) << err();
    ASSERT_EQ(run("preset export Soft '" + dir.file("soft.vlorpreset") + "'" + kFixtureGain), 0) << err();
    ASSERT_EQ(run("preset delete Soft" + kFixtureGain), 0) << err();
    EXPECT_EQ(run("preset load Soft" + kFixtureGain), 1);
    ASSERT_EQ(run("preset import '" + dir.file("soft.vlorpreset") + "'"), 0) << err();
    EXPECT_NE(out().find("imported Soft of Fixture Gain"), std::string::npos) << out();
    ASSERT_EQ(run("preset load Soft" + kFixtureGain), 0) << err();
    EXPECT_NE(out().find("Gain                         0.25"), std::string::npos) << out();

    {
        QFile broken(QString::fromStdString(dir.file("broken.vlorpreset")));
        ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
        broken.write(R"({"kind":"vloraudio-preset","name":"X","params":[{"name":"Gain","normalized":7}]})");
    }
    struct Case {
        std::string args;
        int status;
        const char* says;
    } cases[] = {
        {"preset load Nothing" + kFixtureGain, 1, "no preset named 'Nothing' for Fixture Gain"},
        {"preset import '" + dir.file("broken.vlorpreset") + "'", 1, "a parameter's value cannot be read"},
        {"preset import '" + dir.file("in.wav") + "'", 1, "in.wav"},
        {"preset save X" + kFixtureGain + " --param Nope=0.5", 1, "has no parameter named 'Nope'"},
        {"preset save X" + kFixtureGain + " --param Gain=3", 2, "a VST value is from 0 to 1"},
        {"preset save X" + kFixtureGain + " --param Gain", 2, "it needs NAME=VALUE"},
        {"preset save X", 2, "one plugin is needed"},
        {"preset load" + kFixtureGain, 2, "'load' takes 1 word(s)"},
        {"preset", 2, "a verb is needed"},
        {"apply" + kFixtureGain + " --preset Soft --param 1=0.5" + files("x.wav"), 2,
         "--preset cannot be used with --param"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(run(c.args), c.status) << c.args << "\n" << err();
        EXPECT_NE(err().find(c.says), std::string::npos) << c.args << "\n" << err();
    }
}
