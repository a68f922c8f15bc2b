// Shortcuts follow a plugin into its pair; the fixed commands' bindings move
// once; an effect window learns whether its twin format holds user presets.
#include <QCoreApplication>
#include "QVlorLv2_Manager.h"
#include "QVlorLv2_Widget.h"
#include "QVlorPluginFormat.h"
#include "QVlorAudioPlugins.h"
#include "QVlorFxWidget.h"
#include "QVlorPairKeybindings.h"
#include "QVlorSetting.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst3_Widget.h"
#include "QVlorVst_Manager.h"
#include "QVlorVst_Widget.h"

#include "audiovst.h"
#include "testhost.h"
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

using namespace vlortest;
using QVlorAudioPlugins::KeybindingMigration;
using QVlorAudioPlugins::MigratePluginPairKeybindings;

namespace {

const QString kGain = QStringLiteral("51000000000000000000000000000001");

QVlorPluginPairs::Entry entry(const QString& pairId, qint64 vst2, const QString& vst3, const QString& active,
                              const QString& lv2 = QString())
{
    QVlorPluginPairs::Entry e;
    e.pairId = pairId;
    e.vst2 = vst2;
    e.vst3 = vst3;
    e.activeFormat = active;
    e.lv2 = lv2;
    return e;
}

QString key(const QString& id) { return QLatin1String(QVlorAudioPlugins::K_SHORTCUT_SETTING_PREFIX) + id; }

void settle() { settleManagers(); }

} // namespace

TEST(Keybindings, MovesOfPairedPluginsFollowTheActiveFormatAndRunOnce)
{
    const QMap<QString, QString> both{{QStringLiteral("vstid-7"), QStringLiteral("Ctrl+7")},
                                      {QStringLiteral("vst3id-AB"), QStringLiteral("Ctrl+B")}};
    struct Case {
        const char* name;
        QMap<QString, QString> existing;
        QList<QVlorPluginPairs::Entry> entries;
        QMap<QString, QString> added;
        QStringList removed;
        bool ran;
    };
    const QList<Case> cases = {
        {"no pairs", both, {}, {}, {}, false},
        {"both bound, VST2 active", both, {entry("p1", 7, "AB", "vst2")}, {{"plugid-p1", "Ctrl+7"}}, {"vstid-7", "vst3id-AB"}, true},
        {"both bound, VST3 active", both, {entry("p1", 7, "AB", "vst3")}, {{"plugid-p1", "Ctrl+B"}}, {"vstid-7", "vst3id-AB"}, true},
        {"any other format counts as VST2", both, {entry("p1", 7, "AB", "au")}, {{"plugid-p1", "Ctrl+7"}}, {"vstid-7", "vst3id-AB"}, true},
        {"only the inactive one bound", {{"vst3id-AB", "Ctrl+B"}}, {entry("p1", 7, "AB", "vst2")}, {{"plugid-p1", "Ctrl+B"}}, {"vst3id-AB"}, true},
        {"nothing bound", {}, {entry("p1", 7, "AB", "vst2")}, {}, {}, true},
        {"a one-sided leftover", {{"vstid-7", "Ctrl+7"}}, {entry("p1", 7, "", "vst2")}, {{"plugid-p1", "Ctrl+7"}}, {"vstid-7"}, true},
        {"the first entry of a pair id keeps it", both, {entry("p1", 7, "", "vst2"), entry("p1", 0, "AB", "vst3")},
         {{"plugid-p1", "Ctrl+7"}}, {"vstid-7", "vst3id-AB"}, true},
        // Families with an LV2 form: its "lv2id-" binding moves in too.
        {"an LV2 binding alone", {{"lv2id-urn:z", "Ctrl+L"}}, {entry("p1", 7, "AB", "vst3", "urn:z")},
         {{"plugid-p1", "Ctrl+L"}}, {"lv2id-urn:z"}, true},
        {"three bound, LV2 active", {{"vstid-7", "Ctrl+7"}, {"vst3id-AB", "Ctrl+B"}, {"lv2id-urn:z", "Ctrl+L"}},
         {entry("p1", 7, "AB", "lv2", "urn:z")}, {{"plugid-p1", "Ctrl+L"}}, {"vstid-7", "vst3id-AB", "lv2id-urn:z"}, true},
        {"VST2 and LV2 bound, VST3 active: the oldest", {{"vstid-7", "Ctrl+7"}, {"lv2id-urn:z", "Ctrl+L"}},
         {entry("p1", 7, "AB", "vst3", "urn:z")}, {{"plugid-p1", "Ctrl+7"}}, {"vstid-7", "lv2id-urn:z"}, true},
        {"an LV2 plugin of no family stays", {{"lv2id-urn:y", "Ctrl+Y"}}, {entry("p1", 7, "AB", "vst3", "urn:z")},
         {}, {}, true},
    };
    for (const Case& c : cases) {
        const KeybindingMigration m = MigratePluginPairKeybindings(c.existing, c.entries);
        EXPECT_EQ(m.ran, c.ran) << c.name;
        EXPECT_EQ(m.added, c.added) << c.name;
        EXPECT_EQ(m.removed, c.removed) << c.name;
    }
}

class Installed : public ::testing::Test {
protected:
    static void SetUpTestSuite() { QVlorAudioPlugins::Initialize(); }
    static void TearDownTestSuite() { QVlorAudioPlugins::Finalize(); }
    void TearDown() override
    {
        QVlorAudioPlugins::AboutToQuit();
        QVlorAudioPlugins::UI::uninstall(&host);
    }
    TestHost host;
};

TEST_F(Installed, TheFixedCommandsMoveOnceAndPairedBindingsMoveWhenThePairsChange)
{
    QVlorSetting& s = QVlorSetting::global();
    s.remove(QLatin1String(QVlorAudioPlugins::K_SETTING_FIXED_MIGRATION_DONE));
    s.change(key(QStringLiteral("Vst_Preferences")), QStringLiteral("Ctrl+P"));
    s.change(key(QStringLiteral("Vst_CancelSearch")), QStringLiteral("Esc"));
    s.change(key(QStringLiteral("Plugins_CancelSearch")), QStringLiteral("Ctrl+Q")); // overwritten at this one chance
    QVlorAudioPlugins::UI::install(&host);
    EXPECT_EQ(s.getString(key(QStringLiteral("Plugins_Manage"))), QStringLiteral("Ctrl+P"));
    EXPECT_EQ(s.getString(key(QStringLiteral("Plugins_CancelSearch"))), QStringLiteral("Esc"));
    EXPECT_FALSE(s.exists(key(QStringLiteral("Vst_Preferences"))));
    EXPECT_FALSE(s.exists(key(QStringLiteral("Plugins_SearchPlugins"))));
    EXPECT_TRUE(s.getBool(QLatin1String(QVlorAudioPlugins::K_SETTING_FIXED_MIGRATION_DONE)));
    QVlorAudioPlugins::AboutToQuit();
    QVlorAudioPlugins::UI::uninstall(&host);
    // Done once: old keys made later stay where they are.
    s.change(key(QStringLiteral("Vst_SearchPlugins")), QStringLiteral("F5"));
    QVlorAudioPlugins::UI::install(&host);
    EXPECT_EQ(s.getString(key(QStringLiteral("Vst_SearchPlugins"))), QStringLiteral("F5"));
    EXPECT_FALSE(s.exists(key(QStringLiteral("Plugins_SearchPlugins"))));

    // A pair made by hand; a change of the pairs moves its bindings, then finds nothing more.
    QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
    vst3->addManualPair(1234, kGain, QStringLiteral("vst3"));
    settle();
    const QList<QVlorPluginPairs::Entry> entries = vst3->pairsEntriesCopy();
    ASSERT_EQ(entries.size(), 1);
    s.change(key(QStringLiteral("vstid-1234")), QStringLiteral("Ctrl+2"));
    s.change(key(QStringLiteral("vst3id-") + kGain), QStringLiteral("Ctrl+3"));
    emit vst3->catalogChanged();
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(s.getString(key(QStringLiteral("plugid-") + entries[0].pairId)), QStringLiteral("Ctrl+3"));
    EXPECT_FALSE(s.exists(key(QStringLiteral("vstid-1234"))));
    EXPECT_FALSE(s.exists(key(QStringLiteral("vst3id-") + kGain)));
    s.change(key(QStringLiteral("plugid-") + entries[0].pairId), QStringLiteral("Ctrl+9")); // the user's later choice
    emit vst3->catalogChanged();
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(s.getString(key(QStringLiteral("plugid-") + entries[0].pairId)), QStringLiteral("Ctrl+9"));
}

TEST_F(Installed, TheTwinPresetHintNamesTheOtherFormatOnlyWhenItHasUserPresets)
{
    // One plugin of each format, found by scans, then paired by hand.
    const FixturePlugins plugins;
    const QString& bundle = plugins.bundle;
    AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR);
    QVlorAudioPlugins::UI::install(&host);
    QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager();
    QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
    plugins.scanWithInstalledManagers();
    settle();
    ASSERT_TRUE(waitFor([&] { settle(); return vst3->catalogCopy().findClass(kGain) != nullptr; }, 20000));
    QVlorVst::Plugin stereo;
    for (const QVlorVst::Path& path : vst2->pathsCopy())
        for (const QVlorVst::Plugin& p : path.plugins())
            stereo = p;
    ASSERT_NE(stereo.uniqueId(), 0);
    vst3->purgePairState({1234}, {kGain}); // the pair of the test before
    vst3->addManualPair(stereo.uniqueId(), kGain, QStringLiteral("vst2"));
    settle();
    const QList<QVlorPluginPairs::Entry> pairs = vst3->pairsEntriesCopy();
    ASSERT_EQ(pairs.size(), 1);
    ASSERT_EQ(pairs[0].vst2, stereo.uniqueId());
    ASSERT_EQ(pairs[0].vst3, kGain);
    ASSERT_NE(vst3->catalogCopy().findClass(kGain), nullptr);

    const QVlorAudio audio(QString(), 2, 44100, 44100);
    QVlorVst::Widget w2(audio);
    ASSERT_TRUE(w2.loadPlugin(stereo));
    QVlorVst3::Widget w3(audio);
    ASSERT_TRUE(w3.loadPlugin(QVlorVst3::Plugin(bundle, kGain, QStringLiteral("Fixture Gain"), QString(), QString(), QString())));
    QVlorFxWidget neither(audio);
    QString format = QStringLiteral("untouched");
    int count = -1;
    EXPECT_FALSE(QVlorAudioPlugins::UI::twinPresetHint(nullptr, &format, &count));
    EXPECT_FALSE(QVlorAudioPlugins::UI::twinPresetHint(&neither, &format, &count));
    EXPECT_FALSE(QVlorAudioPlugins::UI::twinPresetHint(&w2, &format, &count));
    EXPECT_FALSE(QVlorAudioPlugins::UI::twinPresetHint(&w3, &format, &count));
    EXPECT_EQ(format, QStringLiteral("untouched"));
    EXPECT_EQ(count, -1);

    // Presets of the VST3 side live under its class id in lower case.
    QVlorFxPresets(QStringLiteral("vloraudio.fx.vst3.") + kGain.toLower()).storeUserPreset(QStringLiteral("Warm"), QStringLiteral("x"));
    QVlorFxPresets(QStringLiteral("vloraudio.fx.vst.") + QVlorVst::PluginSettingsHash(stereo.filename(), stereo.uniqueId()))
        .storeUserPreset(QStringLiteral("A"), QStringLiteral("params=[0]"));
    QVlorFxPresets(QStringLiteral("vloraudio.fx.vst.") + QVlorVst::PluginSettingsHash(stereo.filename(), stereo.uniqueId()))
        .storeUserPreset(QStringLiteral("B"), QStringLiteral("params=[1]"));
    EXPECT_TRUE(QVlorAudioPlugins::UI::twinPresetHint(&w2, &format, &count));
    EXPECT_EQ(format, QStringLiteral("VST3"));
    EXPECT_EQ(count, 1);
    EXPECT_TRUE(QVlorAudioPlugins::UI::twinPresetHint(&w3, &format, nullptr));
    EXPECT_EQ(format, QStringLiteral("VST2"));
    EXPECT_TRUE(QVlorAudioPlugins::UI::twinPresetHint(&w3, nullptr, &count));
    EXPECT_EQ(count, 2);

    // The LV2 gain joins the family as its third form: after VST3's, its presets come first.
    QVlorLv2::Manager* lv2 = QVlorAudioPlugins::lv2Manager();
    ASSERT_NE(lv2, nullptr);
    const QString uri = QStringLiteral("urn:vlor:fixture:gain");
    // The fixtures' hang is given two seconds, not the default's thirty.
    QVlorSetting::global().setForThisRun(QLatin1String(QVlorAudioPlugins::kLv2Format.checkTimeoutSettingKey), 2);
    lv2->setSearchPathsForTesting({QStringLiteral(VLOR_FIXTURE_LV2_DIR)});
    lv2->searchPlugins(false);
    ASSERT_TRUE(waitFor([&] {
        settle();
        return vst3->pairsEntriesCopy().value(0).lv2 == uri;
    }, 30000));
    QVlorSetting::global().setForThisRun(QLatin1String(QVlorAudioPlugins::kLv2Format.checkTimeoutSettingKey), QVariant());
    QVlorLv2::Widget w4(audio);
    ASSERT_TRUE(w4.loadPlugin(uri));
    EXPECT_TRUE(QVlorAudioPlugins::UI::twinPresetHint(&w4, &format, &count));
    EXPECT_EQ(format, QStringLiteral("VST3"));
    EXPECT_EQ(count, 1);
    for (const char* name : {"Soft", "Hard", "Loud"})
        QVlorFxPresets(QVlorLv2::Widget::SettingsRoot(uri)).storeUserPreset(QLatin1String(name), QStringLiteral("x"));
    EXPECT_TRUE(QVlorAudioPlugins::UI::twinPresetHint(&w3, &format, &count));
    EXPECT_EQ(format, QStringLiteral("LV2"));
    EXPECT_EQ(count, 3);
    EXPECT_TRUE(QVlorAudioPlugins::UI::twinPresetHint(&w2, &format, &count));
    EXPECT_EQ(format, QStringLiteral("VST3"));
}
