// VST3 and LV2 dialogs whose plugin runs in a host program of its own: a
// crash or a hang there is told once, the dialog goes dead, the plugin is
// marked to run apart, and this process (the user interface included) goes
// on throughout.
#include "QVlorDialogs.h"
#include "QVlorLv2_MixerEffect.h"
#include "QVlorLv2_Widget.h"
#include "QVlorVst3_MixerEffect.h"
#include "QVlorVst3_Widget.h"

#include "blsettings.h"
#include "fxisolation.h"
#include "lv2engine.h"
#include "vst3engine.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <memory>
#include <thread>
#include <vector>

namespace {

const QVlorAudio kApartAudio(QString(), 2, 44100, 44100);
const QString kBundle = QStringLiteral(VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3");
const QString kGain = QStringLiteral("51000000000000000000000000000001");

// Alive and not a zombie waiting to be reaped.
bool running(int pid)
{
    FILE* f = std::fopen(("/proc/" + std::to_string(pid) + "/stat").c_str(), "r");
    if (!f)
        return false;
    char state = 0;
    const int read = std::fscanf(f, "%*d %*s %c", &state);
    std::fclose(f);
    return read == 1 && state != 'Z';
}

struct Dialog {
    std::unique_ptr<QVlorFxWidget> widget;
    std::function<int()> state;
    std::function<int()> pid;
};

// The dialog of a plugin that runs apart (the setting says "always").
Dialog open(bool vst3, const char* lv2Name)
{
    Dialog d;
    if (vst3) {
        auto* w = new QVlorVst3::Widget(kApartAudio);
        d.widget.reset(w);
        EXPECT_TRUE(w->loadPlugin(QVlorVst3::Plugin(kBundle, kGain, QStringLiteral("Fixture Gain"),
                                                   QStringLiteral("Vlor Fixtures"), QString(), QString())));
        _Vst3Instance* i = static_cast<QVlorVst3::MixerEffect*>(w->effect())->instance();
        d.state = [i] { return VLORVST3_GetRemoteState(i); };
        d.pid = [i] { return VLORVST3_GetRemotePid(i); };
    } else {
        auto* w = new QVlorLv2::Widget(kApartAudio);
        d.widget.reset(w);
        EXPECT_TRUE(w->loadPlugin(QStringLiteral("urn:vlor:fixture:") + QLatin1String(lv2Name)));
        _Lv2Instance* i = static_cast<QVlorLv2::MixerEffect*>(w->effect())->instance();
        d.state = [i] { return VLORLV2_GetRemoteState(i); };
        d.pid = [i] { return VLORLV2_GetRemotePid(i); };
    }
    return d;
}

class EffectWidgetsApart : public ::testing::Test {
protected:
    void SetUp() override
    {
        setenv("LV2_PATH", VLOR_FIXTURE_LV2_DIR, 1);
        VLORLV2_Initialize();
        BLSETTINGS_ChangeEx(nullptr, "vloraudio.plugins.isolation=always");
        BLSETTINGS_ChangeEx(nullptr, "vloraudio.plugins.hang_timeout=1");
        QVlorDialogs::takeAsked();
    }
    void TearDown() override
    {
        unsetenv("VLOR_FIXTURE_FAULT");
        BLSETTINGS_DeleteEx(nullptr, "vloraudio.plugins.isolation");
        BLSETTINGS_DeleteEx(nullptr, "vloraudio.plugins.hang_timeout");
        QVlorDialogs::setAnswerer(nullptr);
    }
};

struct CrashCase {
    const char* name;
    bool vst3;
    const char* lv2Plugin;
};

TEST_F(EffectWidgetsApart, ACrashInTheHostProgramIsToldOnceAndTheDialogGoesDead)
{
    QVlorDialogs::setAnswerer([](const QVlorDialogs::Question&) { return QVlorDialogs::Answer{QMessageBox::Ok, {}}; });
    const CrashCase cases[] = {{"vst3", true, nullptr}, {"lv2", false, "crash-run"}};
    for (const CrashCase& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.vst3)
            setenv("VLOR_FIXTURE_FAULT", "process", 1);
        Dialog d = open(c.vst3, c.lv2Plugin);
        unsetenv("VLOR_FIXTURE_FAULT");
        ASSERT_EQ(d.state(), 1);
        QSignalSpy crashed(d.widget.get(), &QVlorFxWidget::fxCrashed);
        QVlorMixer::Effect* fx = d.widget->effect();
        QSignalSpy died(fx, SIGNAL(died()));
        std::vector<float> in(512, 0.25f), out(512);
        // Preview plays on: the block fails, the mixer plays the track without it.
        EXPECT_EQ(fx->process(in.data(), out.data(), 2, 256), 0);
        EXPECT_EQ(fx->process(in.data(), out.data(), 2, 256), 0);
        EXPECT_EQ(died.count(), 1);
        ASSERT_TRUE(crashed.wait(2000));
        QTest::qWait(300);
        EXPECT_EQ(crashed.count(), 1);
        const QList<QVlorDialogs::Question> asked = QVlorDialogs::takeAsked();
        ASSERT_EQ(asked.size(), 1);
        EXPECT_EQ(asked[0].title, QStringLiteral("Plugin crashed"));
        EXPECT_TRUE(asked[0].text.contains(c.vst3 ? QStringLiteral("Fixture Gain") : QStringLiteral("crash")));
        const QByteArray id = c.vst3 ? kGain.toUtf8() : QByteArray("urn:vlor:fixture:") + c.lv2Plugin;
        EXPECT_EQ(VLORFX_HasCrashed(c.vst3 ? "vst3" : "lv2", id.constData()), 1);
        VLORFX_SetOwnProcess(c.vst3 ? "vst3" : "lv2", id.constData(), 0);
    }
}

// A plugin stuck in its host program: the user is asked within the timeout
// and a second, ends it, and the window answers throughout.
TEST_F(EffectWidgetsApart, AHangIsReportedInTimeAndTheUserEndsIt)
{
    QVlorDialogs::setAnswerer([](const QVlorDialogs::Question&) { return QVlorDialogs::Answer{QMessageBox::Yes, {}}; });
    Dialog d = open(false, "hang");
    ASSERT_EQ(d.state(), 1);
    const int pid = d.pid();
    QSignalSpy crashed(d.widget.get(), &QVlorFxWidget::fxCrashed);
    QVlorMixer::Effect* fx = d.widget->effect();
    std::atomic<bool> done{false};
    // The mixer's audio thread, stuck in the block until the timeout.
    std::thread audio([fx, &done] {
        std::vector<float> in(512, 0.25f), out(512);
        fx->process(in.data(), out.data(), 2, 256);
        done = true;
    });
    QElapsedTimer clock, tick;
    clock.start();
    tick.start();
    qint64 longestGap = 0;
    while (crashed.isEmpty() && clock.elapsed() < 5000) {
        QTest::qWait(20);
        longestGap = std::max(longestGap, tick.restart());
    }
    audio.join();
    EXPECT_EQ(crashed.count(), 1);
    EXPECT_LT(clock.elapsed(), 2000 + 250) << "reported later than the timeout and a second";
    EXPECT_LT(longestGap, 250) << "the window stopped answering";
    const QList<QVlorDialogs::Question> asked = QVlorDialogs::takeAsked();
    ASSERT_EQ(asked.size(), 1);
    EXPECT_EQ(asked[0].title, QStringLiteral("Plugin not answering"));
    EXPECT_EQ(d.state(), 3);
    QTest::qWait(100);
    EXPECT_FALSE(running(pid)) << "the user ended it, yet it runs";
    VLORFX_SetOwnProcess("lv2", "urn:vlor:fixture:hang", 0);
}

} // namespace
