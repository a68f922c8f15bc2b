// The effect dialog's preset bar over the fixture gain in VST3 and LV2 (one
// product, "Fixture Gain"): save, load, delete, export and import through the
// dialogs' seam; a preset of one form loads into the other by parameter name
// and says what found no match; the star is the library's favourite mark.
#include "QVlorDialogs.h"
#include "QVlorLv2_MixerEffect.h"
#include "QVlorLv2_Widget.h"
#include "QVlorPluginLibrary.h"
#include "QVlorPresetBar.h"
#include "QVlorPresets.h"
#include "QVlorSetting.h"
#include "QVlorVst3_MixerEffect.h"
#include "QVlorVst3_Widget.h"

#include "accesswalk.h"
#include "lv2engine.h"
#include "testsupport.h"
#include "vst3engine.h"

#include <QDir>
#include <QGuiApplication>
#include <QFile>
#include <QAccessible>
#include <QLineEdit>
#include <QSlider>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

#include <memory>

namespace {

const QVlorAudio kAudio(QString(), 2, 44100, 44100);
const QString kGainCid = QStringLiteral("51000000000000000000000000000001");

class PresetBar : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        setenv("LV2_PATH", VLOR_FIXTURE_LV2_DIR, 1);
        ASSERT_EQ(VLORLV2_Initialize(), 1);
    }
    void SetUp() override
    {
        QDir(QVlorAudioPlugins::UserPresetFolder(QStringLiteral("Fixture Gain"))).removeRecursively();
        QVlorSetting::global().remove(QStringLiteral("vloraudio.plugins.favourites"));
        QVlorPluginLibrary::instance()->reload();
        QVlorDialogs::setAnswerer([this](const QVlorDialogs::Question& q) {
            QVlorDialogs::Answer a;
            a.button = QMessageBox::Yes;
            a.directory = q.kind == QLatin1String("text") ? typed : file;
            return a;
        });
        lv2 = std::make_unique<QVlorLv2::Widget>(kAudio);
        ASSERT_TRUE(lv2->loadPlugin(QStringLiteral("urn:vlor:fixture:gain"))) << lv2->error().toStdString();
        vst3 = std::make_unique<QVlorVst3::Widget>(kAudio);
        ASSERT_TRUE(vst3->loadPlugin(QVlorVst3::Plugin(QStringLiteral(VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3"),
                                                       kGainCid, QStringLiteral("Fixture Gain"),
                                                       QStringLiteral("Vlor Fixtures"), QString(), QString())));
        lv2Bar.reset(QVlorPresetBar::forEffect(lv2.get()));
        vst3Bar.reset(QVlorPresetBar::forEffect(vst3.get()));
        ASSERT_TRUE(lv2Bar && vst3Bar);
    }
    void TearDown() override
    {
        QVlorDialogs::setAnswerer({});
        QVlorDialogs::takeAsked();
    }
    _Lv2Instance* lv2Instance() const { return static_cast<QVlorLv2::MixerEffect*>(lv2->effect())->instance(); }
    _Vst3Instance* vst3Instance() const { return static_cast<QVlorVst3::MixerEffect*>(vst3->effect())->instance(); }
    uint32_t vst3Gain() const
    {
        Vst3ParamInfo info{};
        EXPECT_TRUE(VLORVST3_GetParamInfo(vst3Instance(), 0, &info));
        return info.id;
    }
    void click(QVlorPresetBar* bar, const char* button) const
    {
        bar->findChild<QToolButton*>(QLatin1String(button))->click();
    }

    QString typed, file;
    std::unique_ptr<QVlorLv2::Widget> lv2;
    std::unique_ptr<QVlorVst3::Widget> vst3;
    std::unique_ptr<QVlorPresetBar> lv2Bar, vst3Bar;
};

} // namespace

TEST_F(PresetBar, SaveLoadDeleteExportAndImportOnOneForm)
{
    VLORLV2_SetParam(lv2Instance(), 0, 12.0f);
    typed = QStringLiteral("Loud");
    click(lv2Bar.get(), "presetSaveButton");
    EXPECT_EQ(lv2Bar->presetEntries(), QStringList{QStringLiteral("user:Loud")});
    VLORLV2_SetParam(lv2Instance(), 0, -3.0f);
    ASSERT_TRUE(lv2Bar->loadEntry(QStringLiteral("user:Loud")));
    EXPECT_FLOAT_EQ(VLORLV2_GetParam(lv2Instance(), 0), 12.0f);
    EXPECT_TRUE(lv2Bar->lastReport().isEmpty()) << "its own state: nothing to report";

    vlortest::TempDir dir;
    file = QString::fromStdString(dir.file("loud.vlorpreset"));
    lv2Bar->findChild<QAction*>(QStringLiteral("presetExport"))->trigger();
    ASSERT_TRUE(QFile::exists(file));
    click(lv2Bar.get(), "presetDeleteButton");
    EXPECT_TRUE(lv2Bar->presetEntries().isEmpty());
    VLORLV2_SetParam(lv2Instance(), 0, 0.0f);
    lv2Bar->findChild<QAction*>(QStringLiteral("presetImport"))->trigger();
    EXPECT_EQ(lv2Bar->presetEntries(), QStringList{QStringLiteral("user:Loud")});
    EXPECT_FLOAT_EQ(VLORLV2_GetParam(lv2Instance(), 0), 12.0f) << "an imported preset is loaded";

    // A file that is no preset is told, and nothing is kept.
    QFile junk(QString::fromStdString(dir.file("junk.vlorpreset")));
    ASSERT_TRUE(junk.open(QIODevice::WriteOnly) && junk.write("{ not json") > 0);
    junk.close();
    file = junk.fileName();
    QVlorDialogs::takeAsked();
    lv2Bar->findChild<QAction*>(QStringLiteral("presetImport"))->trigger();
    const QList<QVlorDialogs::Question> asked = QVlorDialogs::takeAsked();
    ASSERT_EQ(asked.size(), 2);
    EXPECT_EQ(asked[1].kind, QStringLiteral("warning"));
    EXPECT_EQ(lv2Bar->presetEntries(), QStringList{QStringLiteral("user:Loud")});
    // A cancelled name saves nothing.
    typed.clear();
    click(lv2Bar.get(), "presetSaveButton");
    EXPECT_EQ(lv2Bar->presetEntries(), QStringList{QStringLiteral("user:Loud")});
}

TEST_F(PresetBar, APresetOfOneFormLoadsIntoTheOtherByNameAndSaysWhatDidNotMatch)
{
    VLORVST3_SetParamNormalized(vst3Instance(), vst3Gain(), 0.75);
    typed = QStringLiteral("Three Quarters");
    click(vst3Bar.get(), "presetSaveButton");
    // Another dialog of the product finds it on opening.
    std::unique_ptr<QVlorPresetBar> again(QVlorPresetBar::forEffect(lv2.get()));
    ASSERT_TRUE(again->presetEntries().contains(QStringLiteral("user:Three Quarters")));
    ASSERT_TRUE(again->loadEntry(QStringLiteral("user:Three Quarters")));
    EXPECT_NEAR(VLORLV2_GetParam(lv2Instance(), 0), -20.0f + 0.75f * 40.0f, 1e-4) << "across the LV2 range";
    EXPECT_TRUE(again->lastReport().isEmpty());

    VLORLV2_SetParam(lv2Instance(), 0, -10.0f);
    typed = QStringLiteral("Quiet");
    click(lv2Bar.get(), "presetSaveButton");
    std::unique_ptr<QVlorPresetBar> vst3Again(QVlorPresetBar::forEffect(vst3.get()));
    ASSERT_TRUE(vst3Again->loadEntry(QStringLiteral("user:Quiet")));
    EXPECT_NEAR(VLORVST3_GetParamNormalized(vst3Instance(), vst3Gain()), 0.25, 1e-6);
    EXPECT_EQ(vst3Again->lastReport(), QStringLiteral("Not in this form: Mode, Mute"));
    EXPECT_FALSE(vst3Again->loadEntry(QStringLiteral("user:Gone")));
    EXPECT_TRUE(vst3Again->lastReport().startsWith(QStringLiteral("Not loaded:")));
}

TEST_F(PresetBar, TheStarIsTheProductsFavouriteMark)
{
    auto* star = lv2Bar->findChild<QToolButton*>(QStringLiteral("favouriteButton"));
    ASSERT_NE(star, nullptr);
    EXPECT_FALSE(star->isChecked());
    star->click();
    EXPECT_TRUE(QVlorPluginLibrary::instance()->isFavourite({QStringLiteral("urn:vlor:fixture:gain")}));
    // Marked elsewhere (the page, the other form's dialog): the star follows.
    QVlorPluginLibrary::instance()->setFavourite({QStringLiteral("urn:vlor:fixture:gain")}, false);
    EXPECT_FALSE(star->isChecked());
    QVlorPluginLibrary::instance()->setFavourite({QStringLiteral("urn:vlor:fixture:gain"), kGainCid}, true);
    EXPECT_TRUE(star->isChecked());
    EXPECT_TRUE(vst3Bar->findChild<QToolButton*>(QStringLiteral("favouriteButton"))->isChecked()) << "one product";
}

// A .vstpreset read by the ids of its chunks: the component's state from
// "Comp", the controller's from "Cont", any other chunk passed over; a file
// of another class, or whose list points outside it, is refused.
TEST(PresetFiles, Vst3ChunksAreFoundByTheirIdsAndBrokenFilesRefused)
{
    auto le = [](qint64 v, int size) {
        QByteArray b(size, '\0');
        for (int i = 0; i < size; ++i)
            b[i] = char((v >> (8 * i)) & 0xff);
        return b;
    };
    const QByteArray comp("COMPONENT"), info("<info/>"), cont("CONTROLLER");
    auto make = [&](const QByteArray& cid, qint64 contSize) {
        QByteArray body = comp + info + cont;
        QByteArray file = "VST3" + le(1, 4) + cid + le(48 + body.size(), 8) + body + "List" + le(3, 4);
        file += "Comp" + le(48, 8) + le(comp.size(), 8);
        file += "Info" + le(48 + comp.size(), 8) + le(info.size(), 8);
        file += "Cont" + le(48 + comp.size() + info.size(), 8) + le(contSize, 8);
        return file;
    };
    vlortest::TempDir dir;
    auto write = [&](const char* name, const QByteArray& bytes) {
        QFile f(QString::fromStdString(dir.file(name)));
        EXPECT_TRUE(f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size());
        return f.fileName();
    };
    const QByteArray cid = kGainCid.toLatin1();
    QString state, why;
    ASSERT_TRUE(QVlorAudioPlugins::Vst3PresetFileState(write("good.vstpreset", make(cid, cont.size())), kGainCid.toLower(),
                                                       &state, &why))
        << why.toStdString();
    EXPECT_EQ(state, QStringLiteral("presetsize=%1,presetdata=\"%2\",ctrlsize=%3,ctrldata=\"%4\"")
                         .arg(comp.toBase64().size())
                         .arg(QString::fromLatin1(comp.toBase64()))
                         .arg(cont.toBase64().size())
                         .arg(QString::fromLatin1(cont.toBase64())));
    struct Case {
        const char* what;
        QByteArray bytes;
        const char* says;
    } cases[] = {
        {"another class", make(QByteArray(32, 'A'), cont.size()), "a preset of another plugin"},
        {"a chunk past the end", make(cid, 1 << 20), "no VST3 preset file"},
        {"a chunk of negative size", make(cid, -1), "no VST3 preset file"},
        {"cut short", make(cid, cont.size()).left(60), "no VST3 preset file"},
        {"a list counting more chunks than it holds", make(cid, cont.size()).replace("List" + le(3, 4), "List" + le(900, 4)),
         "no VST3 preset file"},
        {"no preset at all", QByteArray("RIFF....WAVE"), "no VST3 preset file"},
    };
    for (const Case& c : cases) {
        EXPECT_FALSE(QVlorAudioPlugins::Vst3PresetFileState(write("bad.vstpreset", c.bytes), kGainCid, &state, &why))
            << c.what;
        EXPECT_TRUE(why.contains(QLatin1String(c.says))) << c.what << ": " << why.toStdString();
    }
}

// Both forms' dialogs as a screen reader meets them: the bar and the panel
// named throughout, each parameter a slider of its name whose value reads as
// the plugin shows it, and follows a change made from the keyboard.
TEST_F(PresetBar, EveryControlIsNamedAndASliderReadsThePluginsValueText)
{
    const std::pair<QWidget*, QWidget*> dialogs[] = {{lv2.get(), lv2Bar.get()}, {vst3.get(), vst3Bar.get()}};
    int ownEditors = 0;
    for (const auto& [widget, bar] : dialogs) {
        widget->show();
        bar->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(widget));
        for (QWidget* window : {widget, bar}) {
            const vlortest::AccessWalk walk = vlortest::walkAccessible(window);
            EXPECT_TRUE(walk.problems.isEmpty()) << walk.problems.join(QLatin1Char('\n')).toStdString();
        }
        auto* slider = widget->findChild<QSlider*>();
        if (!slider) {
            // Under X11 the plugin draws its own editor: the window says whose it is.
            EXPECT_TRUE(widget->accessibleName().endsWith(QStringLiteral("the plugin's own editor")))
                << widget->accessibleName().toStdString();
            EXPECT_FALSE(widget->accessibleDescription().isEmpty());
            ++ownEditors;
            continue;
        }
        QLineEdit* field = nullptr;
        for (QLineEdit* f : widget->findChildren<QLineEdit*>())
            if (f->accessibleName() == slider->accessibleName())
                field = f;
        ASSERT_NE(field, nullptr) << "the value field beside the slider";
        QAccessibleInterface* reader = QAccessible::queryAccessibleInterface(slider);
        ASSERT_NE(reader, nullptr);
        EXPECT_EQ(reader->role(), QAccessible::Slider);
        EXPECT_EQ(reader->text(QAccessible::Name), QStringLiteral("Gain"));
        ASSERT_NE(reader->valueInterface(), nullptr);
        const QString before = reader->text(QAccessible::Value);
        // The field's text, and its units where the plugin has them.
        EXPECT_TRUE(before == field->text() || before.startsWith(field->text() + QLatin1Char(' '))) << before.toStdString();
        slider->setFocus();
        QTest::keyClick(slider, Qt::Key_PageUp);
        const QString after = reader->text(QAccessible::Value);
        EXPECT_NE(after, before);
        EXPECT_TRUE(after.startsWith(field->text())) << after.toStdString() << " / " << field->text().toStdString();
        EXPECT_EQ(reader->valueInterface()->currentValue().toInt(), slider->value());
        // The star says what it sets.
        auto* star = bar->findChild<QToolButton*>(QStringLiteral("favouriteButton"));
        EXPECT_EQ(QAccessible::queryAccessibleInterface(star)->text(QAccessible::Name), QStringLiteral("Favourite"));
    }
    // The fixture gain's VST3 form draws its own editor where editors embed (X11); off screen none does.
    EXPECT_EQ(ownEditors, QGuiApplication::platformName() == QLatin1String("xcb") ? 1 : 0);
}
