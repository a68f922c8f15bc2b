// The LV2 effect dialog: the generic panel of the fixture driven by QTest
// (a slider, a typed value, a list of labelled values, a toggle), its
// configuration carried to a fresh dialog, and, where an X display is there,
// the fixture's editor and real plugins' editors embedded and painted.
#include "QVlorApplication.h"
#include "QVlorLv2_MixerEffect.h"
#include "QVlorLv2_Widget.h"
#include "QVlorMixer.h"
#include "QVlorPluginFormat.h"
#include "QVlorPluginOpening.h"
#include "QVlorSetting.h"

#include "lv2engine.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QScreen>
#include <QSet>
#include <QSignalSpy>
#include <QSlider>
#include <QTest>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

namespace {

const QVlorAudio kStereoAudio(QString(), 2, 44100, 44100);
const QString kFixture = QStringLiteral("urn:vlor:fixture:");

class Lv2Widgets : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        setenv("LV2_PATH", VLOR_FIXTURE_LV2_DIR ":/usr/lib/lv2", 1);
        ASSERT_EQ(VLORLV2_Initialize(), 1);
    }

    static std::unique_ptr<QVlorLv2::Widget> load(const QString& uri)
    {
        auto w = std::make_unique<QVlorLv2::Widget>(kStereoAudio);
        EXPECT_TRUE(w->loadPlugin(uri)) << uri.toStdString() << ": " << w->error().toStdString();
        return w;
    }

    static QVlorLv2::ParameterRow* row(QVlorLv2::Widget* w, const char* title)
    {
        for (QVlorLv2::ParameterRow* r : w->parameterRows())
            if (r->label()->text() == QLatin1String(title))
                return r;
        return nullptr;
    }

    static float value(QVlorLv2::Widget* w, QVlorLv2::ParameterRow* r)
    {
        auto* fx = static_cast<QVlorLv2::MixerEffect*>(w->effect());
        return VLORLV2_GetParam(fx->instance(), r->index());
    }
};

bool onX11() { return QVlorAudioPlugins::CanEmbedEditors(); }

QImage shot(QWidget* w) { return w->screen()->grabWindow(w->winId()).toImage(); }

int colours(const QImage& image)
{
    QSet<QRgb> seen;
    for (int y = 0; y < image.height(); y += 3)
        for (int x = 0; x < image.width(); x += 3)
            seen.insert(image.pixel(x, y));
    return int(seen.size());
}

} // namespace

TEST_F(Lv2Widgets, ThePanelsRowsEditTheirPortsEachInItsKind)
{
    auto w = load(kFixture + "gain");
    ASSERT_FALSE(w->hasEditor());
    w->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(w.get()));
    QSignalSpy changed(w.get(), &QVlorFxWidget::fxConfigChanged);
    QVlorLv2::ParameterRow* gain = row(w.get(), "Gain:");
    QVlorLv2::ParameterRow* mode = row(w.get(), "Mode:");
    QVlorLv2::ParameterRow* mute = row(w.get(), "Mute:");
    ASSERT_TRUE(gain && mode && mute);
    ASSERT_TRUE(gain->slider() && gain->valueField());
    ASSERT_TRUE(mode->comboBox() && !mode->slider());
    ASSERT_TRUE(mute->checkBox() && !mute->valueField());

    // A number: the slider walks the range, the field shows and takes values.
    EXPECT_EQ(gain->valueField()->text(), QStringLiteral("0"));
    gain->slider()->setValue(gain->slider()->maximum());
    EXPECT_FLOAT_EQ(value(w.get(), gain), 20.0f);
    EXPECT_EQ(gain->valueField()->text(), QStringLiteral("20"));
    struct Typed {
        const char* text;
        float value;
    } typed[] = {{"-6.5", -6.5f}, {"3 dB", 3.0f}, {"99", 20.0f}, {"loud", 20.0f}};
    for (const Typed& t : typed) {
        gain->valueField()->setFocus();
        gain->valueField()->selectAll();
        QTest::keyClicks(gain->valueField(), QString::fromLatin1(t.text));
        QTest::keyClick(gain->valueField(), Qt::Key_Return);
        EXPECT_FLOAT_EQ(value(w.get(), gain), t.value) << t.text;
    }
    EXPECT_EQ(gain->valueField()->text(), QStringLiteral("20"));
    EXPECT_EQ(gain->slider()->value(), gain->slider()->maximum());

    // An enumeration lists its labels in value order; a toggle is a box.
    ASSERT_EQ(mode->comboBox()->count(), 3);
    EXPECT_EQ(mode->comboBox()->itemText(0), QStringLiteral("Plain"));
    EXPECT_EQ(mode->comboBox()->itemText(2), QStringLiteral("Half"));
    mode->comboBox()->setCurrentIndex(2);
    EXPECT_FLOAT_EQ(value(w.get(), mode), 2.0f);
    QTest::mouseClick(mute->checkBox(), Qt::LeftButton);
    EXPECT_FLOAT_EQ(value(w.get(), mute), 1.0f);
    EXPECT_GE(changed.count(), 6);

    // The configuration carries every value to a fresh dialog, whose rows follow.
    auto other = load(kFixture + "gain");
    ASSERT_TRUE(other->setPresetConfig(QString(), w->presetConfig(0, QString())));
    EXPECT_EQ(row(other.get(), "Gain:")->valueField()->text(), QStringLiteral("20"));
    EXPECT_EQ(row(other.get(), "Mode:")->comboBox()->currentText(), QStringLiteral("Half"));
    EXPECT_TRUE(row(other.get(), "Mute:")->checkBox()->isChecked());
    EXPECT_TRUE(w->fxParam().startsWith(QStringLiteral("lv2effect_uri=\"urn:vlor:fixture:gain\",lv2effect_state=\"")));
    EXPECT_EQ(w->uniqId(), QStringLiteral("vloraudio.fx.lv2.urn%3Avlor%3Afixture%3Again"));
    EXPECT_EQ(w->windowTitle(), QStringLiteral("LV2 / Vlor fixtures / Fixture Gain"));
}

// A port from zero to a hundred marked logarithmic: the slider walks the
// ratio from a hundred-thousandth of the top, and its first step is zero.
TEST_F(Lv2Widgets, ALogarithmicSliderWalksTheRatioAndItsFirstStepIsZero)
{
    const QString key = QLatin1String(QVlorAudioPlugins::kFallbackEditorSettingKey);
    QVlorSetting::global().setForThisRun(key, true);
    auto w = load(kFixture + "atom");
    QVlorSetting::global().setForThisRun(key, false);
    QVlorLv2::ParameterRow* seen = row(w.get(), "Seen:");
    ASSERT_TRUE(seen && seen->slider());
    struct Step {
        int position;
        float value;
    } steps[] = {{1000, 100.0f}, {500, 0.316228f}, {800, 10.0f}, {1, 0.00101158f}, {0, 0.0f}};
    for (const Step& s : steps) {
        seen->slider()->setValue(s.position);
        EXPECT_NEAR(value(w.get(), seen), s.value, s.value * 1e-4f) << s.position;
    }
    seen->valueField()->setFocus();
    seen->valueField()->selectAll();
    QTest::keyClicks(seen->valueField(), QStringLiteral("1"));
    QTest::keyClick(seen->valueField(), Qt::Key_Return);
    EXPECT_EQ(seen->slider()->value(), 600);
}

// What an editor asks is heard only while it is open, and only within bounds.
TEST_F(Lv2Widgets, ResizeRequestsWithoutAnOpenEditorOrOutOfBoundsAreIgnored)
{
    auto w = load(kFixture + "gain");
    QSignalSpy resized(w.get(), &QVlorFxWidget::fxResized);
    const QSize before = w->size();
    for (const QSize asked : {QSize(320, 180), QSize(0, 100), QSize(99999, 100)})
        w->onUiEvent(kLv2UiResize, asked.width(), asked.height());
    EXPECT_EQ(resized.count(), 0);
    EXPECT_EQ(w->size(), before);
    // A parameter the editor set reaches the configuration's listeners.
    QSignalSpy changed(w.get(), &QVlorFxWidget::fxConfigChanged);
    w->onUiEvent(kLv2UiParamEdited, 0, 0);
    EXPECT_EQ(changed.count(), 1);
}

// A change of theme reaches the panel's fields: their ground follows the palette.
TEST_F(Lv2Widgets, ThePanelsFieldsFollowAChangeOfTheme)
{
    QVlorApplication::applyTheme(QVlorApplication::Light);
    auto w = load(kFixture + "gain");
    QLineEdit* field = row(w.get(), "Gain:")->valueField();
    const QString light = field->styleSheet();
    QVlorApplication::applyTheme(QVlorApplication::Dark);
    QCoreApplication::processEvents();
    EXPECT_NE(field->styleSheet(), light);
    EXPECT_TRUE(field->styleSheet().contains(w->palette().color(QPalette::Base).name())) << field->styleSheet().toStdString();
    QVlorApplication::applyTheme(QVlorApplication::Light);
}

TEST_F(Lv2Widgets, WhatDoesNotStartSaysWhy)
{
    struct Case {
        const char* uri;
        const char* why;
    } cases[] = {
        {"urn:vlor:nothing", "no LV2 plugin has this URI"},
        {"urn:vlor:fixture:needs-feature", "requires a feature this host does not offer: urn:vlor:fixture#unoffered"},
    };
    for (const Case& c : cases) {
        QVlorLv2::Widget w(kStereoAudio);
        EXPECT_FALSE(w.loadPlugin(QString::fromLatin1(c.uri)));
        EXPECT_TRUE(w.error().contains(QLatin1String(c.why))) << c.uri << ": " << w.error().toStdString();
        // Nothing started: no configuration to give, none taken.
        EXPECT_TRUE(w.presetConfig(0, QString()).isEmpty());
        EXPECT_FALSE(w.setPresetConfig(QString(), QStringLiteral("lv2effect_state=\"\"")));
    }
}

// ---- with an X display (the suite runs again under xvfb-run) ----------------

TEST_F(Lv2Widgets, TheFixturesEditorIsEmbeddedSizedAndHeardAndTheSwitchToPanelsHolds)
{
    if (!onX11())
        GTEST_SKIP() << "no X display: this runs under xvfb-run";
    auto w = load(kFixture + "atom");
    ASSERT_TRUE(w->hasEditor());
    QSignalSpy resized(w.get(), &QVlorFxWidget::fxResized);
    QSignalSpy changed(w.get(), &QVlorFxWidget::fxConfigChanged);
    w->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(w.get()));
    ASSERT_TRUE(w->editorOpen());
    EXPECT_TRUE(w->parameterRows().isEmpty());
    EXPECT_EQ(w->sizeHint(), QSize(320, 180));
    ASSERT_GE(resized.count(), 1);
    EXPECT_EQ(resized.first().at(0).toInt(), 320);
    // The editor set the gain as it was made: an edit, posted to the widget.
    EXPECT_TRUE(changed.count() >= 1 || changed.wait(1000));
    w->hide();
    EXPECT_FALSE(w->editorOpen());

    // The user's switch to generated panels holds for LV2 too.
    const QString key = QLatin1String(QVlorAudioPlugins::kFallbackEditorSettingKey);
    QVlorSetting::global().setForThisRun(key, true);
    auto panel = load(kFixture + "atom");
    QVlorSetting::global().setForThisRun(key, false);
    EXPECT_FALSE(panel->hasEditor());
    EXPECT_EQ(panel->parameterRows().size(), 4); // gain, mode, mute, seen: the latency is an output
}

// An editor that will not be made leaves the user the panel.
TEST_F(Lv2Widgets, AnEditorThatRefusesToOpenLeavesThePanel)
{
    if (!onX11())
        GTEST_SKIP() << "no X display: this runs under xvfb-run";
    auto w = load(kFixture + "ui-refuses");
    ASSERT_TRUE(w->hasEditor());
    EXPECT_FALSE(w->openEditor());
    EXPECT_FALSE(w->editorOpen());
    EXPECT_FALSE(w->hasEditor());
    EXPECT_EQ(w->parameterRows().size(), 3);
    w->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(w.get()));
    EXPECT_FALSE(w->editorOpen());
}

TEST_F(Lv2Widgets, RealEditorsAreEmbeddedAndPainted)
{
    if (!onX11())
        GTEST_SKIP() << "no X display: this runs under xvfb-run";
    int tried = 0;
    for (const char* uri : {"urn:zamaudio:ZamComp", "http://lsp-plug.in/plugins/lv2/compressor_stereo"}) {
        Lv2PluginRecord record;
        if (VLORLV2_DescribePlugin(uri, &record) != 1)
            continue;
        ++tried;
        auto w = load(QString::fromLatin1(uri));
        ASSERT_TRUE(w->hasEditor()) << uri;
        w->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(w.get()));
        ASSERT_TRUE(w->editorOpen()) << uri;
        EXPECT_GT(w->sizeHint().width(), 100) << uri;
        w->resize(w->sizeHint());
        QTest::qWait(800);
        EXPECT_GT(colours(shot(w.get())), 20) << uri << ": the editor did not paint";
        w->hide();
    }
    if (!tried)
        GTEST_SKIP() << "neither zam-plugins nor lsp-plugins-lv2 is installed";
}
