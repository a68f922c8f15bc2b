// What an effect does: the formats' own words, the name rules where they say
// nothing, the order in which a product's forms are asked, and the user's choice.
#include "QVlorPluginCategory.h"
#include "QVlorPluginLibrary.h"
#include "QVlorSetting.h"
#include "QVlorUnifiedRows_p.h"

#include <gtest/gtest.h>

using namespace QVlorAudioPlugins;

namespace {

QString key(PluginCategory c) { return CategoryKey(c); }

} // namespace

TEST(Categories, TheFormatsOwnWordsAndTheNameRules)
{
    struct Case {
        const char* what;
        PluginCategory got;
        const char* expected;
    };
    const Case cases[] = {
        // VST3 subcategories: the first word that says something.
        {"Fx|Dynamics", CategoryOfVst3(QStringLiteral("Fx|Dynamics")), "Dynamics"},
        {"Fx|EQ|Stereo", CategoryOfVst3(QStringLiteral("Fx|EQ|Stereo")), "EQ"},
        {"Fx|Pitch Shift", CategoryOfVst3(QStringLiteral("Fx|Pitch Shift")), "Pitch"},
        {"Fx|Tools", CategoryOfVst3(QStringLiteral("Fx|Tools")), "Utility"},
        {"Fx|Surround|Mono", CategoryOfVst3(QStringLiteral("Fx|Surround|Mono")), "Spatial"},
        {"Fx (vague)", CategoryOfVst3(QStringLiteral("Fx")), "Other"},
        {"Fx|Mastering (vague)", CategoryOfVst3(QStringLiteral("Fx|Mastering")), "Other"},
        {"empty subcategories", CategoryOfVst3(QString()), "Other"},
        // LV2 class labels.
        {"lv2 Compressor", CategoryOfLv2(QStringLiteral("Compressor")), "Dynamics"},
        {"lv2 Parametric", CategoryOfLv2(QStringLiteral("Parametric")), "EQ"},
        {"lv2 Lowpass", CategoryOfLv2(QStringLiteral("Lowpass")), "Filter"},
        {"lv2 Phaser", CategoryOfLv2(QStringLiteral("Phaser")), "Modulation"},
        {"lv2 Waveshaper", CategoryOfLv2(QStringLiteral("Waveshaper")), "Distortion"},
        {"lv2 Analyser", CategoryOfLv2(QStringLiteral("Analyser")), "Analyzer"},
        {"lv2 Amplifier", CategoryOfLv2(QStringLiteral("Amplifier")), "Utility"},
        {"lv2 Reverb", CategoryOfLv2(QStringLiteral("Reverb")), "Reverb"},
        {"lv2 Simulator (vague)", CategoryOfLv2(QStringLiteral("Simulator")), "Other"},
        {"lv2 Plugin (vague)", CategoryOfLv2(QStringLiteral("Plugin")), "Other"},
        // VST2 plugin categories.
        {"vst2 effect (vague)", CategoryOfVst2(1), "Other"},
        {"vst2 analysis", CategoryOfVst2(3), "Analyzer"},
        {"vst2 room", CategoryOfVst2(6), "Reverb"},
        {"vst2 spacializer", CategoryOfVst2(5), "Spatial"},
        {"vst2 restoration", CategoryOfVst2(8), "Restoration"},
        {"vst2 unknown", CategoryOfVst2(0), "Other"},
        // Names: words split at case and digit turns, the first rule that matches.
        {"ZamComp", CategoryByName(QStringLiteral("ZamComp")), "Dynamics"},
        {"ZamGEQ31", CategoryByName(QStringLiteral("ZamGEQ31")), "EQ"},
        {"ZaMultiCompX2", CategoryByName(QStringLiteral("ZaMultiCompX2")), "Dynamics"},
        {"MVerb", CategoryByName(QStringLiteral("MVerb")), "Reverb"},
        {"ZamTube", CategoryByName(QStringLiteral("ZamTube")), "Distortion"},
        {"Dragonfly Early Reflections", CategoryByName(QStringLiteral("Dragonfly Early Reflections")), "Reverb"},
        {"LSP Spectrum Analyzer x16", CategoryByName(QStringLiteral("LSP Spectrum Analyzer x16")), "Analyzer"},
        {"Guitar Tuner (no pitch effect)", CategoryByName(QStringLiteral("Guitar Tuner")), "Analyzer"},
        {"Ping Pong Pan", CategoryByName(QStringLiteral("Ping Pong Pan")), "Spatial"},
        {"Stereo Chorus (modulation first)", CategoryByName(QStringLiteral("Stereo Chorus")), "Modulation"},
        {"Tape Echo", CategoryByName(QStringLiteral("Tape Echo")), "Delay"},
        {"Denoiser", CategoryByName(QStringLiteral("Denoiser")), "Restoration"},
        {"Fixture Gain", CategoryByName(QStringLiteral("Fixture Gain")), "Utility"},
        {"Frequency Shifter (no EQ in frequency)", CategoryByName(QStringLiteral("Frequency Shifter")), "Pitch"},
        {"Nekobi (nothing said)", CategoryByName(QStringLiteral("Nekobi")), "Other"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(key(c.got), QLatin1String(c.expected)) << c.what;
}

TEST(Categories, KeysLabelsAndTheVocabularyInItsOrder)
{
    const QList<PluginCategory> all = PluginCategories();
    ASSERT_EQ(all.size(), 13);
    EXPECT_EQ(all.first(), PluginCategory::Dynamics);
    EXPECT_EQ(all.last(), PluginCategory::Other);
    for (PluginCategory c : all) {
        PluginCategory back = PluginCategory::Other;
        EXPECT_TRUE(CategoryFromKey(CategoryKey(c), &back));
        EXPECT_EQ(back, c);
        EXPECT_FALSE(CategoryLabel(c).isEmpty());
    }
    EXPECT_FALSE(CategoryFromKey(QStringLiteral("reverb"), nullptr)) << "keys are as written";
}

TEST(Categories, AProductAsksTheUsersChoiceThenItsFormInUseThenItsOtherFormsThenItsName)
{
    UnifiedRow row;
    row.name = QStringLiteral("Plate Thing");
    row.vst2 = {true, false, true, false, false, {}, {}, QStringLiteral("vstid-7"), QStringLiteral("Restoration")};
    row.vst3 = {true, true, true, false, false, {}, {}, QStringLiteral("CID"), QString()};
    row.lv2 = {true, false, true, false, false, {}, {}, QStringLiteral("urn:x"), QStringLiteral("Delay")};
    struct Case {
        const char* what;
        QString vst3Declared;
        QHash<QString, QString> overrides;
        const char* expected;
    };
    const Case cases[] = {
        {"the form in use says", QStringLiteral("EQ"), {}, "EQ"},
        {"the form in use is vague: VST3, then LV2, then VST2", QString(), {}, "Delay"},
        {"the user's choice by any form's identity", QStringLiteral("EQ"), {{QStringLiteral("urn:x"), QStringLiteral("Pitch")}},
         "Pitch"},
        {"a choice that names no category is passed over", QStringLiteral("EQ"),
         {{QStringLiteral("CID"), QStringLiteral("Nonsense")}}, "EQ"},
    };
    for (const Case& c : cases) {
        row.vst3.declared = c.vst3Declared;
        EXPECT_EQ(UpmRowCategory(row, c.overrides), QLatin1String(c.expected)) << c.what;
    }
    row.vst3.declared.clear();
    row.lv2 = UnifiedFormatInfo();
    row.vst2.declared.clear();
    EXPECT_EQ(UpmRowCategory(row, {}), QStringLiteral("Reverb")) << "nothing declared: the name's words";
    EXPECT_EQ(UpmRowIdentities(row), (QStringList{QStringLiteral("CID"), QStringLiteral("vstid-7")}));
}

TEST(Categories, TheLibraryKeepsMarksByProductAcrossItsForms)
{
    for (const char* k : {"vloraudio.plugins.favourites", "vloraudio.plugins.recent", "vloraudio.plugins.category_overrides"})
        QVlorSetting::global().remove(QLatin1String(k));
    QVlorPluginLibrary* lib = QVlorPluginLibrary::instance();
    lib->reload();
    const QStringList zam{QStringLiteral("vstid-1"), QStringLiteral("CID-Z"), QStringLiteral("urn:zam")};
    lib->setFavourite(zam, true);
    EXPECT_TRUE(lib->isFavourite({QStringLiteral("urn:zam")})) << "any form's identity finds the product";
    EXPECT_FALSE(lib->isFavourite({QStringLiteral("urn:other")}));
    // Recent: most recent first, one entry a product, at most ten.
    for (int i = 0; i < 12; ++i)
        lib->noteUsed({QStringLiteral("urn:p%1").arg(i)});
    lib->noteUsed({QStringLiteral("urn:p5"), QStringLiteral("CID-P5")});
    QList<QStringList> recent = lib->recent();
    ASSERT_EQ(recent.size(), QVlorPluginLibrary::kRecentLimit);
    EXPECT_EQ(recent.first(), (QStringList{QStringLiteral("urn:p5"), QStringLiteral("CID-P5")}));
    EXPECT_EQ(recent.at(1), QStringList{QStringLiteral("urn:p11")});
    EXPECT_EQ(std::count_if(recent.begin(), recent.end(), [](const QStringList& r) { return r.contains(QStringLiteral("urn:p5")); }), 1);
    lib->setCategoryOverride(zam, QStringLiteral("Reverb"));
    // What another start reads back.
    lib->reload();
    EXPECT_TRUE(lib->isFavourite({QStringLiteral("CID-Z")}));
    EXPECT_EQ(lib->recent(), recent);
    EXPECT_EQ(lib->categoryOverride({QStringLiteral("vstid-1")}), QStringLiteral("Reverb"));
    lib->setFavourite({QStringLiteral("urn:zam")}, false);
    lib->setCategoryOverride(zam, QString());
    lib->clearRecent();
    lib->reload();
    EXPECT_FALSE(lib->isFavourite(zam)) << "taken back by one form, gone for all";
    EXPECT_TRUE(lib->recent().isEmpty());
    EXPECT_TRUE(lib->categoryOverride(zam).isEmpty());
}
