// The generated panels of both formats as a person reads them: the plugin's
// numbers without zeros no value needs, a value typed into a VST3 row through
// the plugin's own reading, the header, and every text readable on its ground
// in the light and the dark theme, measured on the rendered picture.
#include "QVlorApplication.h"
#include "QVlorDialogs.h"
#include "QVlorPanelText_p.h"
#include "QVlorSetting.h"
#include "QVlorVst3_MixerEffect.h"
#include "QVlorVst3_Widget.h"
#include "QVlorVst_MixerEffect.h"
#include "QVlorVst_Widget.h"

#include "audiovst.h"
#include "vst3engine.h"

#include "testsupport.h"

#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>
#include <QLabel>
#include <QLineEdit>
#include <QSignalSpy>
#include <QSlider>
#include <QTest>

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

namespace {

const QString kEffects = QStringLiteral(VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3");
const QString kNoViewCid = QStringLiteral("51000000000000000000000000000004");
const QString kZamComp3 = QStringLiteral("/usr/lib/vst3/ZamComp.vst3");
const QString kZamComp2 = QStringLiteral("/usr/lib/vst/ZamComp-vst.so");
const QVlorAudio kStereoAudio(QString(), 2, 44100, 44100);

class EffectPanels : public ::testing::Test {
protected:
    void SetUp() override
    {
        AUDIOVST_Initialize();
        ASSERT_EQ(AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR), 1);
        VLORVST3_Initialize();
        QVlorDialogs::setAnswerer([](const QVlorDialogs::Question&) {
            return QVlorDialogs::Answer{QMessageBox::Ok, QString()};
        });
        QVlorSetting::global().change(QStringLiteral("vloraudio.fx.vst.use_fallback_editor"), true);
    }
    void TearDown() override
    {
        QVlorSetting::global().remove(QStringLiteral("vloraudio.fx.vst.use_fallback_editor"));
        QVlorApplication::applyTheme(QVlorApplication::Light);
        QVlorDialogs::setAnswerer({});
    }
};

QVlorVst3::Plugin vst3Plugin(const QString& bundle, const QString& cid, const QString& name, const QString& vendor)
{
    return QVlorVst3::Plugin(bundle, cid, name, vendor, QString(), QString());
}

QString firstClass(const QString& bundle)
{
    Vst3ClassRecord record;
    return VLORVST3_ListClasses(bundle.toUtf8().constData(), &record, 1) == 1 ? QString::fromLatin1(record.uid) : QString();
}

QVlorVst::Plugin vst2Plugin(const QString& file)
{
    QVlorVst::Plugin p(file);
    if (_VSTEFFECT* e = AUDIOVST_FindPluginEx(file.toUtf8().constData(), 0, false)) {
        p.setUniqueId(AUDIOVST_GetUniqueID(e));
        p.setName(QString::fromUtf8(AUDIOVST_GetEffectName(e)));
    }
    return p;
}

void type(QLineEdit* field, const QString& text)
{
    field->setFocus();
    field->selectAll();
    QTest::keyClicks(field, text);
    QTest::keyClick(field, Qt::Key_Return);
}

// The worst contrast of a text widget's glyphs on its ground in the picture
// of the whole dialog: the ground is the colour most of its box has, the
// text the pixel furthest from it.
double renderedContrast(const QImage& picture, QWidget* top, QWidget* text)
{
    const QRect box(text->mapTo(top, QPoint(0, 0)) * picture.devicePixelRatio(), text->size() * picture.devicePixelRatio());
    QHash<QRgb, int> counts;
    for (int y = box.top(); y <= box.bottom(); ++y)
        for (int x = box.left(); x <= box.right(); ++x)
            ++counts[picture.pixel(x, y)];
    QRgb ground = 0;
    for (auto it = counts.constBegin(); it != counts.constEnd(); ++it)
        if (it.value() > counts.value(ground))
            ground = it.key();
    double best = 1;
    for (auto it = counts.constBegin(); it != counts.constEnd(); ++it)
        best = std::max(best, ContrastRatio(QColor(it.key()), QColor(ground)));
    return best;
}

} // namespace

TEST(PanelText, NumbersLoseTheZerosNoValueNeedsAndKeepEverythingElse)
{
    struct Case {
        const char* text;
        int keep;
        const char* shown;
    };
    const Case cases[] = {
        {"10.000000 ms", 0, "10 ms"},  {"0.500000", 0, "0.5"},      {"-12.300000 dB", 0, "-12.3 dB"},
        {"0.00000", 0, "0"},           {"1.00000", 0, "1"},         {"  0.0", 0, "0"},
        {"-0.000 dB", 0, "0 dB"},      {"0.500", 2, "0.50"},        {"3.000", 1, "3.0"},
        {"12.345678 Hz", 0, "12.345678 Hz"}, {"100", 0, "100"},     {"1.5e-05", 0, "1.5e-05"},
        {"On", 0, "On"},               {"-inf dB", 0, "-inf dB"},   {"1.0 - 2.0", 0, "1.0 - 2.0"},
        {"2.50%", 0, "2.5%"},          {"440.0kHz", 0, "440kHz"},   {"", 0, ""},
    };
    for (const Case& c : cases)
        EXPECT_EQ(TidyNumberText(QString::fromUtf8(c.text), c.keep), QString::fromUtf8(c.shown)) << c.text;
    const std::pair<double, int> steps[] = {{1, 0}, {0.5, 1}, {0.25, 2}, {0.1, 1}, {2.0 / 3.0, 6}, {0, 0}, {-0.5, 1}};
    for (const auto& s : steps)
        EXPECT_EQ(DecimalsForStep(s.first), s.second) << s.first;
    EXPECT_NEAR(ContrastRatio(Qt::black, Qt::white), 21.0, 0.01);
    for (const QColor& ground : {QColor(0xDE, 0xDE, 0xDE), QColor(0x2A, 0x2A, 0x2A), QColor(Qt::white)}) {
        const QColor text = ground.lightness() > 128 ? QColor(Qt::black) : QColor(0xEE, 0xEE, 0xEE);
        const QColor quiet = QuietTextColor(text, ground);
        EXPECT_GE(ContrastRatio(quiet, ground), 4.5) << ground.name().toStdString();
        EXPECT_LT(ContrastRatio(quiet, ground), ContrastRatio(text, ground)) << "quieter than the text";
    }
    // A palette whose own text does not read gets black or white.
    EXPECT_GE(ContrastRatio(QuietTextColor(QColor(0x80, 0x80, 0x80), QColor(0x70, 0x70, 0x70)), QColor(0x70, 0x70, 0x70)), 4.5);
}

TEST_F(EffectPanels, AValueTypedIntoAVst3RowGoesThroughThePluginsOwnReading)
{
    setenv("VLOR_FIXTURE_PARAMS", "4", 1);
    QVlorVst3::Widget w(kStereoAudio);
    ASSERT_TRUE(w.loadPlugin(vst3Plugin(kEffects, kNoViewCid, QStringLiteral("Fixture Fails"), QStringLiteral("Vlor Fixtures"))));
    unsetenv("VLOR_FIXTURE_PARAMS");
    w.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&w));
    const QList<QVlorVst3::ParameterWidget*> rows = w.parameterWidgets();
    ASSERT_FALSE(rows.isEmpty());
    QVlorVst3::ParameterWidget* row = rows[0];
    _Vst3Instance* instance = static_cast<QVlorVst3::MixerEffect*>(w.effect())->instance();
    QSignalSpy edited(&w, &QVlorFxWidget::fxConfigChanged);
    struct Case {
        QString typed;
        double value; // what the plugin holds after it; -1 for as before
        QString shown;
    };
    const Case cases[] = {
        {QStringLiteral("0.5"), 0.5, QStringLiteral("0.5")},
        {QString::fromUtf8("0.75 µs"), 0.75, QStringLiteral("0.75")}, // the units shown beside may be typed
        {QStringLiteral("loud"), -1, QStringLiteral("0.75")},         // what the plugin refuses changes nothing
        {QStringLiteral("1"), 1.0, QStringLiteral("1")},
    };
    int edits = 0;
    for (const Case& c : cases) {
        const double before = VLORVST3_GetParamNormalized(instance, row->id());
        type(row->valueField(), c.typed);
        const double expected = c.value < 0 ? before : c.value;
        EXPECT_DOUBLE_EQ(VLORVST3_GetParamNormalized(instance, row->id()), expected) << c.typed.toStdString();
        EXPECT_EQ(row->slider()->value(), int(std::lround(expected * 1000))) << c.typed.toStdString();
        EXPECT_EQ(row->valueField()->text(), c.shown) << c.typed.toStdString();
        edits += c.value < 0 ? 0 : 1;
        EXPECT_EQ(edited.count(), edits) << c.typed.toStdString();
    }
    // A value the plugin changes itself while the field has no focus shows at once.
    row->slider()->setFocus();
    VLORVST3_SetParamNormalized(instance, row->id(), 0.25);
    row->update();
    EXPECT_EQ(row->valueField()->text(), QStringLiteral("0.25"));
}

TEST_F(EffectPanels, ARealVst3PanelShowsTidyNumbersAHeaderAndTakesTypedValues)
{
    const QString cid = QFileInfo::exists(kZamComp3) ? firstClass(kZamComp3) : QString();
    if (cid.isEmpty())
        GTEST_SKIP() << "zam-plugins (ZamComp.vst3) is not installed";
    QVlorVst3::Widget w(kStereoAudio);
    ASSERT_TRUE(w.loadPlugin(vst3Plugin(kZamComp3, cid, QStringLiteral("ZamComp"), QStringLiteral("Damien Zammit"))));
    w.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&w));
    QStringList labels;
    for (QLabel* l : w.findChildren<QLabel*>())
        labels << l->text();
    EXPECT_TRUE(labels.contains(QStringLiteral("VST3 Effect:"))) << labels.join(QLatin1Char('|')).toStdString();
    EXPECT_TRUE(labels.contains(QStringLiteral("Damien Zammit")));
    QVlorVst3::ParameterWidget* attack = nullptr;
    for (QVlorVst3::ParameterWidget* row : w.parameterWidgets()) {
        EXPECT_FALSE(row->valueField()->text().contains(QStringLiteral(".000"))) << row->valueField()->text().toStdString();
        if (row->label()->text() == QStringLiteral("Attack:"))
            attack = row;
    }
    ASSERT_NE(attack, nullptr);
    EXPECT_EQ(attack->valueField()->text(), QStringLiteral("10"));
    EXPECT_EQ(attack->unitsLabel()->text(), QStringLiteral("ms"));
    type(attack->valueField(), QStringLiteral("20 ms"));
    EXPECT_EQ(attack->valueField()->text(), QStringLiteral("20"));
    EXPECT_GT(attack->slider()->value(), 100);
}

TEST_F(EffectPanels, Vst2NumbersOfThePluginAndOurOwnLoseTheirTrailingZeros)
{
    if (!QFileInfo::exists(kZamComp2))
        GTEST_SKIP() << "zam-plugins (ZamComp-vst.so) is not installed";
    QVlorVst::Widget w(kStereoAudio);
    ASSERT_TRUE(w.loadPlugin(vst2Plugin(kZamComp2)));
    QStringList shown;
    for (QVlorVst::ParameterWidget* row : w.parameterWidgets()) {
        if (!row->slider())
            continue;
        shown << row->minLabel()->text() << row->maxLabel()->text() << row->lineEdit()->text();
    }
    ASSERT_FALSE(shown.isEmpty());
    for (const QString& text : shown)
        EXPECT_FALSE(text.contains(QRegularExpression(QStringLiteral("\\.\\d*0(\\D|$)")))) << text.toStdString();
    EXPECT_TRUE(shown.contains(QStringLiteral("100"))) << shown.join(QLatin1Char('|')).toStdString();
}

// Every text of both panels, in both themes, on the picture as it is drawn.
TEST_F(EffectPanels, EveryTextOfBothPanelsReadsOnItsGroundInLightAndDark)
{
    for (int theme : {int(QVlorApplication::Light), int(QVlorApplication::Dark)}) {
        QVlorApplication::applyTheme(theme);
        std::vector<std::unique_ptr<QWidget>> panels;
        {
            auto vst2 = std::make_unique<QVlorVst::Widget>(kStereoAudio);
            ASSERT_TRUE(vst2->loadPlugin(vst2Plugin(QStringLiteral(VLOR_FIXTURE_VST_DIR "/vlor-fixture-stereo.so"))));
            panels.push_back(std::move(vst2));
            setenv("VLOR_FIXTURE_PARAMS", "6", 1);
            auto vst3 = std::make_unique<QVlorVst3::Widget>(kStereoAudio);
            ASSERT_TRUE(vst3->loadPlugin(vst3Plugin(kEffects, kNoViewCid, QStringLiteral("Fixture Fails"), QStringLiteral("Vlor Fixtures"))));
            unsetenv("VLOR_FIXTURE_PARAMS");
            panels.push_back(std::move(vst3));
        }
        for (const std::unique_ptr<QWidget>& panel : panels) {
            panel->resize(panel->sizeHint().expandedTo(QSize(520, 300)));
            panel->show();
            ASSERT_TRUE(QTest::qWaitForWindowExposed(panel.get()));
            const QImage picture = panel->grab().toImage();
            int texts = 0;
            for (QWidget* child : panel->findChildren<QWidget*>()) {
                auto* label = qobject_cast<QLabel*>(child);
                auto* field = qobject_cast<QLineEdit*>(child);
                const QString text = label ? label->text() : field ? field->text() : QString();
                if (text.trimmed().isEmpty() || !child->isVisible())
                    continue;
                ++texts;
                EXPECT_GE(renderedContrast(picture, panel.get(), child), 4.5)
                    << (theme == QVlorApplication::Dark ? "dark: " : "light: ") << text.toStdString() << " in "
                    << panel->metaObject()->className();
            }
            EXPECT_GE(texts, 10) << panel->metaObject()->className();
        }
    }
}
