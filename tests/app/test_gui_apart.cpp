// The reference editor's window survives a VST3 or LV2 plugin that crashes
// at open, in process, in its editor or at close, when the plugin runs in a
// host program of its own: because every plugin does ("always"), or because
// it crashed once before ("after_crash"). An edit applied before stays in
// the undo history, the audio is as that edit left it, the selection as it was.
#include "gui_fixture.h"

#include "QVlorAudioPlugins.h"
#include "QVlorDialogs.h"
#include "QVlorLv2_Widget.h"
#include "QVlorPluginOpening.h"
#include "QVlorSetting.h"
#include "QVlorVst3_MixerEffect.h"
#include "QVlorVst3_Widget.h"

#include "blsettings.h"
#include "fxisolation.h"
#include "lv2engine.h"
#include "vst3engine.h"
#include "testsupport.h"

#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QUndoStack>

#include <gtest/gtest.h>

#include <sndfile.h>

#include <cmath>
#include <memory>

using namespace vlortest;

namespace {

const QString kBundle = QStringLiteral(VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3");
const QString kGain = QStringLiteral("51000000000000000000000000000001");

enum class At { Open, Process, Editor, Close };

struct ApartCase {
    const char* name;
    const char* vst3Fault; // VLOR_FIXTURE_FAULT of the VST3 fixture's gain
    const char* lv2;       // or an LV2 fixture
    At at;
};

const ApartCase kCases[] = {
    {"vst3 at open", "open", nullptr, At::Open},         {"vst3 in process", "process", nullptr, At::Process},
    {"vst3 in editor", "editor", nullptr, At::Editor},   {"vst3 at close", "close", nullptr, At::Close},
    {"lv2 at open", nullptr, "crash-instantiate", At::Open}, {"lv2 in process", nullptr, "crash-run", At::Process},
    {"lv2 in editor", nullptr, "crash-ui", At::Editor},  {"lv2 at close", nullptr, "crash-cleanup", At::Close},
};

class GuiApart : public ::testing::TestWithParam<const char*> {
protected:
    static void SetUpTestSuite() { QVlorAudioPlugins::Initialize(); }
    static void TearDownTestSuite() { QVlorAudioPlugins::Finalize(); }
    void SetUp() override
    {
        VLORLV2_Initialize();
        VLORLV2_AddBundle(VLOR_FIXTURE_LV2_DIR "/vlor-lv2-fixtures.lv2");
        BLSETTINGS_ChangeEx(nullptr, "vloraudio.plugins.isolation=%s", GetParam());
        window = std::make_unique<vlorfx::MainWindow>();
        QVlorAudioPlugins::UI::install(window.get());
        writeWav(dir.file("in.wav"));
        ASSERT_TRUE(window->openFile(QString::fromStdString(dir.file("in.wav"))));
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        QVlorDialogs::setAnswerer([](const QVlorDialogs::Question&) { return QVlorDialogs::Answer{QMessageBox::Ok, {}}; });
    }
    void TearDown() override
    {
        unsetenv("VLOR_FIXTURE_FAULT");
        QVlorDialogs::setAnswerer({});
        BLSETTINGS_DeleteEx(nullptr, "vloraudio.plugins.isolation");
        if (!window)
            return;
        QVlorAudioPlugins::UI::uninstall(window.get());
        window.reset();
    }
    QVlorFxWidget* load(const ApartCase& c, bool* loaded)
    {
        const QVlorAudio audio = window->currentAudio();
        if (c.vst3Fault) {
            auto* w = new QVlorVst3::Widget(audio);
            *loaded = w->loadPlugin(QVlorVst3::Plugin(kBundle, kGain, QStringLiteral("Fixture Gain"),
                                                      QStringLiteral("Vlor Fixtures"), QString(), QString()));
            return w;
        }
        auto* w = new QVlorLv2::Widget(audio);
        *loaded = w->loadPlugin(QStringLiteral("urn:vlor:fixture:") + QLatin1String(c.lv2));
        return w;
    }
    // The dialog of the gain, applied: one edit in the history.
    void applyAnEdit()
    {
        ApartCase gain{"gain", "none", nullptr, At::Process};
        bool loaded = false;
        QVlorFxWidget* w = load(gain, &loaded);
        ASSERT_TRUE(loaded);
        // Louder, so that the edit shows in the samples.
        VLORVST3_SetParamNormalized(static_cast<QVlorVst3::MixerEffect*>(w->effect())->instance(), 1, 0.8);
        window->presentEffectWidget(w, nullptr, QString(), QStringLiteral("vst3"));
        QTest::mouseClick(window->effectDialog()->findChild<QPushButton*>(QStringLiteral("applyButton")),
                          Qt::LeftButton);
        ASSERT_TRUE(window->document()->undoStack()->canUndo());
    }

    TempDir dir;
    std::unique_ptr<vlorfx::MainWindow> window;
};

TEST_P(GuiApart, TheWindowAndItsUndoHistorySurviveEachCrash)
{
    const bool xcb = QVlorAudioPlugins::PluginEditorsWanted();
    for (const ApartCase& c : kCases) {
        SCOPED_TRACE(c.name);
        const QByteArray id = c.vst3Fault ? kGain.toUtf8() : QByteArray("urn:vlor:fixture:") + c.lv2;
        const char* format = c.vst3Fault ? "vst3" : "lv2";
        // As the start after a crash in this process marks it.
        if (!std::strcmp(GetParam(), "after_crash"))
            VLORFX_MarkCrashed(format, id.constData());
        ASSERT_EQ(VLORFX_RunsInOwnProcess(format, id.constData()), 1);
        window->document()->undoStack()->clear();
        const double before = rms(window->document()->samples());
        applyAnEdit();
        EXPECT_GT(rms(window->document()->samples()), before) << "the gain made it louder";
        const int edits = window->document()->undoStack()->count();
        const QVector<float> edited = window->document()->samples();
        window->waveform()->setSelection(100, 900);
        if (c.at == At::Editor && !xcb) {
            VLORFX_SetOwnProcess(format, id.constData(), 0);
            continue; // a plugin's own editor needs an X display: the run under xvfb covers it
        }
        if (c.vst3Fault)
            setenv("VLOR_FIXTURE_FAULT", c.vst3Fault, 1);
        bool loaded = false;
        QVlorFxWidget* w = load(c, &loaded);
        if (c.at == At::Open) {
            EXPECT_FALSE(loaded);
            delete w;
        } else {
            ASSERT_TRUE(loaded);
            QSignalSpy crashed(w, &QVlorFxWidget::fxCrashed);
            window->presentEffectWidget(w, nullptr, QString(), QLatin1String(format));
            vlorfx::EffectDialog* dialog = window->effectDialog();
            if (c.at == At::Process)
                QTest::mouseClick(dialog->findChild<QPushButton*>(QStringLiteral("applyButton")), Qt::LeftButton);
            if (c.at == At::Editor) {
                EXPECT_TRUE(crashed.wait(3000)) << "the crash box did not come";
            }
            dialog->close();
            QTest::qWait(50);
        }
        unsetenv("VLOR_FIXTURE_FAULT");
        EXPECT_TRUE(window->isVisible());
        EXPECT_EQ(window->document()->undoStack()->count(), edits);
        EXPECT_EQ(window->document()->samples(), edited);
        EXPECT_EQ(window->waveform()->selectionStart(), 100);
        EXPECT_EQ(window->waveform()->selectionEnd(), 900);
        window->waveform()->setSelection(0, 0);
        window->document()->undoStack()->undo();
        EXPECT_NE(window->document()->samples(), edited) << "the edit before the crash undoes";
        VLORFX_SetOwnProcess(format, id.constData(), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, GuiApart, ::testing::Values("always", "after_crash"));

} // namespace
