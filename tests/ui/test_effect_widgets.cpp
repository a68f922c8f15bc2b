// The effect dialogs of both formats on fixtures and real plugins: the
// generated editor and the generic panel driven by QTest events, the crash of
// a VST2 host program reaching the user, and, where an X display is there,
// plugins' own editors embedded and painted.
#include "QVlorApplication.h"
#include "QVlorDialogs.h"
#include "QVlorMixer.h"
#include "QVlorSetting.h"
#include "QVlorUtils.h"
#include "QVlorVst3_MixerEffect.h"
#include "QVlorVst3_Widget.h"
#include "QVlorVst_MixerEffect.h"
#include "QVlorVst_Widget.h"

#include "audiovst_testing.h"
#include "vst3engine.h"

#include "testsupport.h"

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QScreen>
#include <QSignalSpy>
#include <QSlider>
#include <QTest>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <csignal>
#include <cmath>
#include <sstream>

using namespace vlortest;

namespace {

const QString kFixtures = QStringLiteral(VLOR_FIXTURE_VST_DIR);
const QString kEffects = QStringLiteral(VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3");
const QString kGainCid = QStringLiteral("51000000000000000000000000000001");
const QString kNoViewCid = QStringLiteral("51000000000000000000000000000004"); // "Fixture Fails": no editor
const QVlorAudio kStereoAudio(QString(), 2, 44100, 44100);

QVlorVst::Plugin vst2Plugin(const QString& file)
{
    QVlorVst::Plugin p(file);
    if (_VSTEFFECT* e = AUDIOVST_FindPluginEx(file.toUtf8().constData(), 0, false)) {
        p.setUniqueId(AUDIOVST_GetUniqueID(e));
        p.setName(QString::fromUtf8(AUDIOVST_GetEffectName(e)));
    }
    return p;
}

QVlorVst3::Plugin vst3Plugin(const QString& bundle, const QString& cid, const QString& name = QStringLiteral("Fixture"))
{
    return QVlorVst3::Plugin(bundle, cid, name, QStringLiteral("Vlor Fixtures"), QString(), QString());
}

// The values of the setParameter calls the stereo fixture has heard for its first parameter.
std::vector<float> stereoSetParameterValues()
{
    std::vector<float> values;
    void* lib = dlopen(VLOR_FIXTURE_VST_DIR "/vlor-fixture-stereo.so", RTLD_NOW | RTLD_NOLOAD);
    if (!lib)
        return values;
    auto count = reinterpret_cast<int (*)()>(dlsym(lib, "vlorfixture_log_count"));
    auto get = reinterpret_cast<int (*)(int, int*, int*, long*, float*)>(dlsym(lib, "vlorfixture_log_get"));
    for (int i = 0; i < count(); ++i) {
        int op = 0, index = 0;
        long value = 0;
        float opt = 0;
        if (get(i, &op, &index, &value, &opt) && op == -1 && index == 0)
            values.push_back(opt);
    }
    dlclose(lib);
    return values;
}

std::vector<float> sine(int frames)
{
    std::vector<float> v(size_t(frames) * 2);
    for (size_t i = 0; i < v.size(); ++i)
        v[i] = 0.05f * float(std::sin(0.03 * double(i / 2)));
    return v;
}

float rms(const std::vector<float>& v)
{
    double sum = 0;
    for (float x : v)
        sum += double(x) * double(x);
    return float(std::sqrt(sum / double(v.size())));
}

// The level of a sine played through a fresh effect set up from a configuration.
template <typename Effect, typename Plugin>
float levelThrough(const Plugin& plugin, const QString& config)
{
    Effect fx(plugin, 44100, 2);
    EXPECT_TRUE(fx.powerOn(512));
    fx.setParams(config);
    std::vector<float> in = sine(512 * 40), out(in.size());
    for (int b = 0; b < 40; ++b)
        fx.process(in.data() + b * 1024, out.data() + b * 1024, 2, 512);
    return rms(std::vector<float>(out.begin() + long(out.size() / 2), out.end()));
}

class EffectWidgets : public ::testing::Test {
protected:
    void SetUp() override
    {
        AUDIOVST_Initialize();
        ASSERT_EQ(AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR), 1);
        VLORVST3_Initialize();
        QVlorDialogs::setAnswerer([](const QVlorDialogs::Question&) {
            return QVlorDialogs::Answer{QMessageBox::Ok, QString()};
        });
        QVlorDialogs::takeAsked();
    }
    void TearDown() override { QVlorDialogs::setAnswerer({}); }
};

bool embedding() { return QVlorVst::Widget::CanEmbedEditors(); }

// The picture of a window with what plugins drew into their own windows.
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

TEST_F(EffectWidgets, Vst2GeneratedEditorEditsReachThePluginAndThePluginsChangesReachTheRows)
{
    QVlorSetting::global().change(QStringLiteral("vloraudio.fx.vst.use_fallback_editor"), true);
    QVlorVst::Widget w(kStereoAudio);
    ASSERT_TRUE(w.loadPlugin(vst2Plugin(kFixtures + QStringLiteral("/vlor-fixture-stereo.so"))));
    QVlorSetting::global().remove(QStringLiteral("vloraudio.fx.vst.use_fallback_editor"));
    EXPECT_FALSE(w.hasPluginEditor()); // the fallback switch wins over the plugin's own editor
    EXPECT_EQ(w.title(), QStringLiteral("Vlor Fixture Stereo"));
    EXPECT_EQ(w.windowTitle(), QStringLiteral("VST / Vlor Test Vendor / Vlor Fixture Stereo"));
    EXPECT_TRUE(w.uniqId().startsWith(QStringLiteral("vloraudio.fx.vst.")));
    EXPECT_EQ(w.fxLabel(), QStringLiteral("Applying Vlor Fixture Stereo|Vlor Fixture Stereo"));
    const QStringList presets = w.builtinPresets();
    ASSERT_EQ(presets.size(), 3);
    EXPECT_EQ(presets.mid(0, 2), (QStringList{QStringLiteral("Init"), QStringLiteral("LEAD")}));
    EXPECT_TRUE(presets[2].startsWith(QStringLiteral("A Program Name")));
    w.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&w));
    const QList<QVlorVst::ParameterWidget*> rows = w.parameterWidgets();
    ASSERT_EQ(rows.size(), 4);
    ASSERT_NE(rows[0]->slider(), nullptr);
    auto* fx = static_cast<QVlorVst::MixerEffect*>(w.effect());

    // A drag of the slider sets the parameter and shows the plugin's text.
    rows[0]->slider()->setFocus();
    QTest::keyClick(rows[0]->slider(), Qt::Key_End);
    EXPECT_FLOAT_EQ(fx->parameterValue(0), 1.0f);
    EXPECT_EQ(rows[0]->lineEdit()->text(), QStringLiteral("24")) << "the plugin's \"24.0\" without its zero";
    // Typed text goes to the plugin first, which reads it as it likes.
    rows[0]->lineEdit()->setFocus();
    rows[0]->lineEdit()->selectAll();
    QTest::keyClicks(rows[0]->lineEdit(), QStringLiteral("0.25"));
    QTest::keyClick(rows[0]->lineEdit(), Qt::Key_Return);
    EXPECT_FLOAT_EQ(fx->parameterValue(0), 0.25f);
    EXPECT_EQ(rows[0]->slider()->value(), 2500);
    // The configuration has it at once, with no audio in between.
    EXPECT_TRUE(w.fxParam(false).startsWith(QStringLiteral("vsteffect_hash=\"")));
    EXPECT_EQ(QVlor::getFloatVectorFromString(w.fxParam(false), QStringLiteral("params")).value(0), 0.25f)
        << w.fxParam(false).toStdString();
    EXPECT_EQ(w.fxParam(true), QString());

    // The plugin's own change reaches the rows and is not sent back: the
    // plugin hears no other value (its display is read by setting the value
    // it has, and back).
    fx->setParameterValue(0, 0.75f);
    const std::vector<float> before = stereoSetParameterValues();
    w.updateWidgets();
    EXPECT_EQ(rows[0]->slider()->value(), 7500);
    const std::vector<float> after = stereoSetParameterValues();
    for (size_t i = before.size(); i < after.size(); ++i)
        EXPECT_FLOAT_EQ(after[i], 0.75f);

    // Presets and reset.
    EXPECT_TRUE(w.setPresetConfig(QStringLiteral("LEAD"), QStringLiteral("params=[0.75,0,0.5,0.5]")));
    EXPECT_EQ(rows[2]->slider() ? rows[2]->slider()->value() : -1, 5000);
    w.reset();
    EXPECT_FLOAT_EQ(fx->parameterValue(0), 0.5f);
    EXPECT_EQ(rows[0]->slider()->value(), 5000);
    EXPECT_TRUE(QVlorDialogs::takeAsked().isEmpty());
}

TEST_F(EffectWidgets, Vst2AHundredsOfParametersShowTwentyRowsWithTheirTextsAndInfinities)
{
    QVlorVst::Widget w(kStereoAudio);
    ASSERT_TRUE(w.loadPlugin(vst2Plugin(kFixtures + QStringLiteral("/vlor-fault-many-params.so"))));
    ASSERT_EQ(static_cast<QVlorVst::MixerEffect*>(w.effect())->numParams(), 300);
    const QList<QVlorVst::ParameterWidget*> rows = w.parameterWidgets();
    ASSERT_EQ(rows.size(), QVlorVst::Widget::MaxParameterRows);
    const QList<QLabel*> labels = w.findChildren<QLabel*>();
    QStringList texts;
    for (QLabel* l : labels)
        texts << l->text();
    EXPECT_TRUE(texts.contains(QString::fromUtf8("Pégel Ä 0:"))) << texts.join(QLatin1Char('|')).toUtf8().toStdString();
    EXPECT_TRUE(texts.contains(QString::fromUtf8("Pégel Ä 19:")));
    EXPECT_FALSE(texts.contains(QString::fromUtf8("Pégel Ä 20:")));
    EXPECT_TRUE(texts.contains(QString::fromUtf8("µs"))) << texts.join(QLatin1Char('|')).toUtf8().toStdString();
    // Numbers by turns with words: sliders with the plugin's texts, and lists of its words.
    int sliders = 0, lists = 0;
    for (QVlorVst::ParameterWidget* row : rows) {
        sliders += row->slider() ? 1 : 0;
        if (QComboBox* box = row->comboBox()) {
            ++lists;
            EXPECT_EQ(box->count(), 2);
            EXPECT_EQ(box->itemText(0), QStringLiteral("Off"));
        }
    }
    EXPECT_EQ(sliders, 10);
    EXPECT_EQ(lists, 10);
    EXPECT_EQ(QVlorVst::ParameterWidget::displayString(QStringLiteral("+inf")), QStringLiteral("+%1").arg(QChar(0x221E)));
    EXPECT_EQ(QVlorVst::ParameterWidget::displayString(QStringLiteral("-INF")), QStringLiteral("-INF"));
    EXPECT_GT(w.sizeHint().height(), 20 * 20);
}

TEST_F(EffectWidgets, Vst2AKilledHostIsReportedOnceAndTheWidgetIsFinished)
{
    // A plugin of another architecture runs in the host program: the fixture is taken for one.
    const QString file = kFixtures + QStringLiteral("/vlor-fixture-stereo.so");
    QVlorVst::Plugin plugin = vst2Plugin(file);
    _VSTEFFECT* record = AUDIOVST_FindPluginByUniqId(int(plugin.uniqueId()));
    ASSERT_NE(record, nullptr);
    const int32_t ownArchitecture = record->architecture;
    record->architecture = 32;
    {
        QVlorVst::Widget w(kStereoAudio);
        ASSERT_TRUE(w.loadPlugin(plugin));
        EXPECT_EQ(w.title(), QStringLiteral("Vlor Fixture Stereo (32 bits)"));
        QSignalSpy crashed(&w, &QVlorFxWidget::fxCrashed);
        w.show();
        const std::vector<long> hosts = instanceHostPids();
        ASSERT_EQ(hosts.size(), 1u);
        const QString before = w.fxParam(false);
        ASSERT_EQ(kill(pid_t(hosts[0]), SIGKILL), 0);
        EXPECT_TRUE(QTest::qWaitFor([&] { return crashed.count() > 0; }, 5000));

        const QList<QVlorDialogs::Question> asked = QVlorDialogs::takeAsked();
        ASSERT_EQ(asked.size(), 1);
        EXPECT_EQ(asked[0].kind, QStringLiteral("warning"));
        EXPECT_EQ(asked[0].title, QStringLiteral("Plugin crashed"));
        EXPECT_EQ(asked[0].text, QStringLiteral("The plugin Vlor Fixture Stereo crashed and will be finalized."));
        EXPECT_EQ(asked[0].informativeText,
                  QStringLiteral("Vloraudio was not affected by this crash and will continue running normally."));
        EXPECT_EQ(asked[0].buttons, QMessageBox::Ok);
        EXPECT_TRUE(w.isCrashed());
        EXPECT_EQ(w.title(), QStringLiteral("Crashed VST Effect"));
        EXPECT_TRUE(plugin.needRecheck());

        // From here on every call does nothing, and nothing asks again.
        EXPECT_EQ(w.presetConfig(0, QString()), QString());
        EXPECT_FALSE(w.setPresetConfig(QStringLiteral("Init"), QStringLiteral("params=[0,0,0,0]")));
        w.reset();
        w.setBypass(true);
        w.updateWidgets();
        EXPECT_TRUE(w.builtinPresets().isEmpty());
        EXPECT_EQ(w.sizeHint(), QSize(-1, -1).expandedTo(w.QVlorFxWidget::sizeHint()));
        for (QVlorVst::ParameterWidget* row : w.parameterWidgets())
            row->update();
        w.hide();
        w.show();
        QTest::qWait(500);
        EXPECT_TRUE(QVlorDialogs::takeAsked().isEmpty());
        EXPECT_EQ(crashed.count(), 1);
        EXPECT_FALSE(before.isEmpty());
    }
    record->architecture = ownArchitecture;
    // The editor goes on: the same plugin opens again, in this process.
    QVlorVst::Widget again(kStereoAudio);
    EXPECT_TRUE(again.loadPlugin(vst2Plugin(file)));
}

TEST_F(EffectWidgets, Vst3GenericPanelLeavesOutReadOnlyAndHiddenAndEditsWithoutEcho)
{
    struct Case {
        const char* params;
        int rows;
    };
    const Case cases[] = {{"300", 240}, {"0", 0}};
    for (const Case& c : cases) {
        setenv("VLOR_FIXTURE_PARAMS", c.params, 1);
        QVlorVst3::Widget w(kStereoAudio);
        ASSERT_TRUE(w.loadPlugin(vst3Plugin(kEffects, kNoViewCid, QString::fromUtf8("Fixture Fails"))));
        unsetenv("VLOR_FIXTURE_PARAMS");
        EXPECT_FALSE(w.hasEditor());
        EXPECT_EQ(w.fxName(), QStringLiteral("VST3"));
        EXPECT_EQ(w.uniqId(), QStringLiteral("vloraudio.fx.vst3.") + kNoViewCid.toLower());
        EXPECT_EQ(w.windowTitle(), QStringLiteral("VST3 / Vlor Fixtures / Fixture Fails"));
        EXPECT_EQ(w.sizeHint(), QSize(460, 240));
        const QList<QVlorVst3::ParameterWidget*> rows = w.parameterWidgets();
        ASSERT_EQ(rows.size(), c.rows) << c.params;
        w.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&w));
        if (c.rows == 0) {
            bool told = false;
            for (QLabel* l : w.findChildren<QLabel*>())
                told = told || l->text().contains(QStringLiteral("no parameters"));
            EXPECT_TRUE(told);
            continue;
        }
        for (QVlorVst3::ParameterWidget* row : rows)
            EXPECT_NE(row->id() % 10, 3u + 100 % 10) << "read-only rows stay out";
        EXPECT_EQ(rows[0]->label()->text(), QString::fromUtf8("Pégel Ä 0:"));
        EXPECT_EQ(rows[0]->valueField()->text(), QStringLiteral("0.25"));
        EXPECT_EQ(rows[0]->unitsLabel()->text(), QString::fromUtf8("µs"));
        EXPECT_EQ(rows[0]->slider()->maximum(), 1000);

        QSignalSpy changed(&w, &QVlorFxWidget::fxConfigChanged);
        rows[0]->slider()->setFocus();
        QTest::keyClick(rows[0]->slider(), Qt::Key_End);
        EXPECT_DOUBLE_EQ(VLORVST3_GetParamNormalized(static_cast<QVlorVst3::MixerEffect*>(w.effect())->instance(), 100), 1.0);
        EXPECT_EQ(rows[0]->valueField()->text(), QStringLiteral("1")) << "the zeros a continuous value needs not";
        EXPECT_EQ(changed.count(), 1);
        // The plugin changes a value itself: the row follows, nothing is sent back.
        _Vst3Instance* instance = static_cast<QVlorVst3::MixerEffect*>(w.effect())->instance();
        VLORVST3_SetParamNormalized(instance, 101, 0.5);
        w.postHostEvent(kVst3EventParamChanged, 101, 0);
        QTest::qWait(50);
        EXPECT_EQ(rows[1]->slider()->value(), 500);
        VLORVST3_SetParamNormalized(instance, 102, 0.75);
        w.postHostEvent(kVst3EventRestart, 1, 0);
        QTest::qWait(50);
        EXPECT_EQ(rows[2]->slider()->value(), 750);
        EXPECT_EQ(changed.count(), 1);
    }
}

// A value edited in the dialog and applied at once, with no audio in between:
// the configuration carries it, and audio set up from it sounds like it.
TEST_F(EffectWidgets, AnEditAppliedAtOnceIsInTheConfigurationInBothFormats)
{
    const QString vst3Bundle = QStringLiteral("/usr/lib/vst3/ZamComp.vst3");
    const QString vst2File = QStringLiteral("/usr/lib/vst/ZamComp-vst.so");
    if (!QFileInfo::exists(vst3Bundle) || !QFileInfo::exists(vst2File))
        GTEST_SKIP() << "zam-plugins is not installed";
    QVlorSetting::global().change(QStringLiteral("vloraudio.fx.vst.use_fallback_editor"), true);
    AUDIOVST_ForgetVlorVstPath(); // in this process, as the dialog runs it

    Vst3ClassRecord record;
    ASSERT_EQ(VLORVST3_ListClasses(vst3Bundle.toUtf8().constData(), &record, 1), 1);
    const QVlorVst3::Plugin p3 = vst3Plugin(vst3Bundle, QString::fromLatin1(record.uid), QStringLiteral("ZamComp"));
    auto w3 = std::make_unique<QVlorVst3::Widget>(kStereoAudio);
    ASSERT_TRUE(w3->loadPlugin(p3));
    const QString defaults3 = w3->presetConfig(0, QString());
    QVlorVst3::ParameterWidget* makeup3 = nullptr;
    for (QVlorVst3::ParameterWidget* row : w3->parameterWidgets())
        if (row->label()->text() == QStringLiteral("Makeup:"))
            makeup3 = row;
    ASSERT_NE(makeup3, nullptr);
    makeup3->slider()->setValue(1000);
    const QString edited3 = w3->fxParam(false);
    w3.reset();
    ASSERT_TRUE(edited3.startsWith(QStringLiteral("vst3effect_uid=\"") + p3.uid()));
    const QString config3 = edited3.mid(edited3.indexOf(QStringLiteral("presetsize=")));
    const float quiet3 = levelThrough<QVlorVst3::MixerEffect>(p3, defaults3);
    const float loud3 = levelThrough<QVlorVst3::MixerEffect>(p3, config3);
    EXPECT_GT(loud3, quiet3 * 10) << "a makeup of 30 dB is lost on the way";

    auto w2 = std::make_unique<QVlorVst::Widget>(kStereoAudio);
    const QVlorVst::Plugin p2 = vst2Plugin(vst2File);
    ASSERT_TRUE(w2->loadPlugin(p2));
    const QString defaults2 = w2->presetConfig(0, QString());
    QVlorVst::ParameterWidget* makeup2 = nullptr;
    for (QVlorVst::ParameterWidget* row : w2->parameterWidgets())
        if (static_cast<QVlorVst::MixerEffect*>(w2->effect())->parameterName(row->index()) == QStringLiteral("Makeup"))
            makeup2 = row;
    ASSERT_NE(makeup2, nullptr);
    ASSERT_NE(makeup2->slider(), nullptr);
    makeup2->slider()->setValue(10000);
    const QString edited2 = w2->fxParam(false);
    w2.reset(); // one config instance a plugin: the dialog's ends before the applies
    const QString config2 = edited2.mid(edited2.indexOf(QStringLiteral("params=")));
    EXPECT_GT((levelThrough<QVlorVst::MixerEffect>(p2, config2)), (levelThrough<QVlorVst::MixerEffect>(p2, defaults2)) * 10);
    QVlorSetting::global().remove(QStringLiteral("vloraudio.fx.vst.use_fallback_editor"));
    AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR);
}

// ---- with an X display (the suite runs again under xvfb-run) ----------------

TEST_F(EffectWidgets, RealEditorsOfBothFormatsAreEmbeddedAndPainted)
{
    if (!embedding())
        GTEST_SKIP() << "no X display: this runs under xvfb-run";
    struct Case {
        const char* file;
        bool vst3;
    };
    const Case cases[] = {{"/usr/lib/vst3/ZamComp.vst3", true}, {"/usr/lib/vst/ZamComp-vst.so", false}};
    AUDIOVST_ForgetVlorVstPath();
    int tried = 0;
    for (const Case& c : cases) {
        if (!QFileInfo::exists(QString::fromUtf8(c.file)))
            continue;
        ++tried;
        std::unique_ptr<QVlorFxWidget> w;
        QSignalSpy* resized = nullptr;
        if (c.vst3) {
            Vst3ClassRecord record;
            ASSERT_EQ(VLORVST3_ListClasses(c.file, &record, 1), 1);
            auto* v = new QVlorVst3::Widget(kStereoAudio);
            w.reset(v);
            resized = new QSignalSpy(v, &QVlorFxWidget::fxResized);
            ASSERT_TRUE(v->loadPlugin(vst3Plugin(QString::fromUtf8(c.file), QString::fromLatin1(record.uid))));
            EXPECT_TRUE(v->hasEditor());
        } else {
            auto* v = new QVlorVst::Widget(kStereoAudio);
            w.reset(v);
            resized = new QSignalSpy(v, &QVlorFxWidget::fxResized);
            ASSERT_TRUE(v->loadPlugin(vst2Plugin(QString::fromUtf8(c.file))));
            EXPECT_TRUE(v->hasPluginEditor());
        }
        const QSize hint = w->sizeHint();
        EXPECT_GT(hint.width(), 100) << c.file;
        EXPECT_GT(hint.height(), 50) << c.file;
        w->resize(hint);
        w->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(w.get()));
        QTest::qWait(800);
        EXPECT_GE(resized->count(), 1) << c.file;
        const QImage image = shot(w.get());
        EXPECT_GT(colours(image), 20) << c.file << ": the editor did not paint";
        w->hide();
        delete resized;
    }
    AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR);
    if (!tried)
        GTEST_SKIP() << "zam-plugins is not installed";
}

TEST_F(EffectWidgets, EditorsThatFailToOpenOrAskForNonsenseSizesAreSurvived)
{
    if (!embedding())
        GTEST_SKIP() << "no X display: this runs under xvfb-run";
    AUDIOVST_ForgetVlorVstPath();
    {
        // Says it has an editor, then fails to open it: the rows stand in.
        QVlorVst::Widget w(kStereoAudio);
        ASSERT_TRUE(w.loadPlugin(vst2Plugin(kFixtures + QStringLiteral("/vlor-fault-editor-fails.so"))));
        EXPECT_TRUE(w.hasPluginEditor());
        w.show();
        QTest::qWait(100);
        EXPECT_FALSE(w.hasPluginEditor());
        EXPECT_EQ(w.parameterWidgets().size(), 2);
    }
    {
        // An editor larger than any screen, and a resize to nothing: neither is passed on.
        QVlorVst::Widget w(kStereoAudio);
        QSignalSpy resized(&w, &QVlorFxWidget::fxResized);
        ASSERT_TRUE(w.loadPlugin(vst2Plugin(kFixtures + QStringLiteral("/vlor-fault-huge-editor.so"))));
        EXPECT_LT(w.sizeHint().width(), 16384);
        w.show();
        QTest::qWait(100);
        for (const QList<QVariant>& r : resized)
            EXPECT_TRUE(r[0].toInt() > 0 && r[0].toInt() <= 16384 && r[1].toInt() > 0) << r[0].toInt();
    }
    {
        // A plugin that asks for a bigger window once its editor is up: asked through the engine's notification.
        QVlorVst::Widget w(kStereoAudio);
        QSignalSpy resized(&w, &QVlorFxWidget::fxResized);
        ASSERT_TRUE(w.loadPlugin(vst2Plugin(kFixtures + QStringLiteral("/vlor-fixture-stereo.so"))));
        ASSERT_TRUE(w.hasPluginEditor());
        EXPECT_EQ(w.sizeHint(), QSize(300, 200));
        w.show();
        QTest::qWait(50);
        bool asked = false;
        for (const QList<QVariant>& r : resized)
            asked = asked || (r[0].toInt() == 400 && r[1].toInt() == 250);
        EXPECT_TRUE(asked);
    }
    AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR);
}

TEST_F(EffectWidgets, Vst3ViewResizesBothWaysWithoutEchoingThePluginsOwnRequest)
{
    if (!embedding())
        GTEST_SKIP() << "no X display: this runs under xvfb-run";
    QVlorVst3::Widget w(kStereoAudio);
    QSignalSpy resized(&w, &QVlorFxWidget::fxResized);
    ASSERT_TRUE(w.loadPlugin(vst3Plugin(kEffects, kGainCid)));
    ASSERT_TRUE(w.hasEditor());
    EXPECT_EQ(w.sizeHint(), QSize(300, 200));
    w.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&w));
    EXPECT_GE(resized.count(), 1);
    // The plugin asks: the widget follows.
    w.onHostEvent(kVst3EventResize, 420, 260);
    EXPECT_EQ(w.size(), QSize(420, 260));
    EXPECT_EQ(w.sizeHint(), QSize(420, 260));
    // Nonsense is ignored.
    w.onHostEvent(kVst3EventResize, 0, 99999);
    EXPECT_EQ(w.sizeHint(), QSize(420, 260));
    w.hide();
}

// A real plugin with many parameters (a 31-band equaliser) in the panels of both formats.
TEST_F(EffectWidgets, ARealPluginWithManyParametersFillsBothPanels)
{
    const QString vst3Bundle = QStringLiteral("/usr/lib/vst3/ZamGEQ31.vst3");
    const QString vst2File = QStringLiteral("/usr/lib/vst/ZamGEQ31-vst.so");
    if (!QFileInfo::exists(vst3Bundle) || !QFileInfo::exists(vst2File))
        GTEST_SKIP() << "zam-plugins is not installed";
    QVlorSetting::global().change(QStringLiteral("vloraudio.fx.vst.use_fallback_editor"), true);
    AUDIOVST_ForgetVlorVstPath();
    {
        Vst3ClassRecord record;
        ASSERT_EQ(VLORVST3_ListClasses(vst3Bundle.toUtf8().constData(), &record, 1), 1);
        QVlorVst3::Widget w(kStereoAudio);
        ASSERT_TRUE(w.loadPlugin(vst3Plugin(vst3Bundle, QString::fromLatin1(record.uid), QStringLiteral("ZamGEQ31"))));
        const QList<QVlorVst3::ParameterWidget*> rows = w.parameterWidgets();
        EXPECT_GE(rows.size(), 25);
        w.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&w));
        QVlorVst3::ParameterWidget* band = rows.value(5);
        ASSERT_NE(band, nullptr);
        const QString before = band->valueField()->text();
        band->slider()->setFocus();
        QTest::keyClick(band->slider(), Qt::Key_Home);
        EXPECT_EQ(band->slider()->value(), 0);
        EXPECT_NE(band->valueField()->text(), before);
        EXPECT_DOUBLE_EQ(VLORVST3_GetParamNormalized(static_cast<QVlorVst3::MixerEffect*>(w.effect())->instance(), band->id()), 0.0);
    }
    {
        QVlorVst::Widget w(kStereoAudio);
        ASSERT_TRUE(w.loadPlugin(vst2Plugin(vst2File)));
        auto* fx = static_cast<QVlorVst::MixerEffect*>(w.effect());
        EXPECT_GT(fx->numParams(), QVlorVst::Widget::MaxParameterRows);
        const QList<QVlorVst::ParameterWidget*> rows = w.parameterWidgets();
        ASSERT_EQ(rows.size(), QVlorVst::Widget::MaxParameterRows);
        w.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&w));
        // A band's value typed in as a number of its own range lands in the plugin.
        QVlorVst::ParameterWidget* band = nullptr;
        for (QVlorVst::ParameterWidget* row : rows)
            if (!band && row->kind() == 2)
                band = row;
        ASSERT_NE(band, nullptr) << "no linear parameter among the first rows";
        const float low = fx->parameterMinValue(band->index()), high = fx->parameterMaxValue(band->index());
        const float wanted = low + (high - low) * 0.75f;
        band->lineEdit()->setFocus();
        band->lineEdit()->selectAll();
        QTest::keyClicks(band->lineEdit(), QString::number(double(wanted), 'f', 1));
        QTest::keyClick(band->lineEdit(), Qt::Key_Return);
        EXPECT_NEAR(fx->parameterValue(band->index()), 0.75f, 0.02f);
        EXPECT_NEAR(band->slider()->value(), 7500, 200);
    }
    QVlorSetting::global().remove(QStringLiteral("vloraudio.fx.vst.use_fallback_editor"));
    AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR);
}
