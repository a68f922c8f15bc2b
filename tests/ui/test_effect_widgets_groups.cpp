// A VST2 dialog whose plugin shares its host program with another plugin
// that crashes: the user hears which plugin failed, and only that one is
// checked again.
#include "QVlorDialogs.h"
#include "QVlorMixer.h"
#include "QVlorVst_MixerEffect.h"
#include "QVlorVst_Widget.h"

#include "audiovst_testing.h"
#include "blsettings.h"

#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

namespace {

QVlorVst::Plugin plugin(const char* file, _VSTEFFECT** record)
{
    QVlorVst::Plugin p(QString::fromUtf8(file));
    *record = AUDIOVST_FindPluginEx(file, 0, false);
    if (*record) {
        p.setUniqueId(AUDIOVST_GetUniqueID(*record));
        p.setName(QString::fromUtf8(AUDIOVST_GetEffectName(*record)));
    }
    return p;
}

} // namespace

TEST(EffectWidgetGroups, AVst2DialogWhoseHostAnotherPluginCrashedBlamesThatOne)
{
    AUDIOVST_Initialize();
    ASSERT_EQ(AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR), 1);
    QVlorDialogs::setAnswerer([](const QVlorDialogs::Question&) { return QVlorDialogs::Answer{QMessageBox::Ok, QString()}; });
    QVlorDialogs::takeAsked();
    BLSETTINGS_ChangeEx(nullptr, "vloraudio.plugins.host_groups=one");
    setenv("VLOR_FIXTURE_CRASH_AFTER", "0", 1);
    _VSTEFFECT *stereoRecord = nullptr, *crashRecord = nullptr;
    QVlorVst::Plugin stereo = plugin(VLOR_FIXTURE_VST_DIR "/vlor-fixture-stereo.so", &stereoRecord);
    QVlorVst::Plugin crash = plugin(VLOR_FIXTURE_VST_DIR "/vlor-fault-crash-process.so", &crashRecord);
    ASSERT_TRUE(stereoRecord && crashRecord);
    // Taken for plugins of another architecture, both run in the host program.
    const int32_t architectures[] = {stereoRecord->architecture, crashRecord->architecture};
    stereoRecord->architecture = crashRecord->architecture = 32;
    {
        QVlorVst::Widget w(QVlorAudio(QString(), 2, 44100, 44100));
        ASSERT_TRUE(w.loadPlugin(stereo));
        QSignalSpy crashed(&w, &QVlorFxWidget::fxCrashed);
        w.show();
        QVlorVst::MixerEffect other(crash, 44100, 2);
        ASSERT_TRUE(other.powerOn(256));
        std::vector<float> block(512, 0.1f);
        EXPECT_EQ(other.process(block.data(), block.data(), 2, 256), 0);
        EXPECT_TRUE(other.crashedItself());
        EXPECT_TRUE(QTest::qWaitFor([&] { return crashed.count() > 0; }, 5000));
        const QList<QVlorDialogs::Question> asked = QVlorDialogs::takeAsked();
        ASSERT_EQ(asked.size(), 1);
        EXPECT_EQ(asked[0].text, QStringLiteral("The plugin Vlor Fixture Stereo stopped: another plugin crashed the host "
                                                "program they shared."));
        EXPECT_FALSE(stereo.needRecheck());
        other.powerOff();
    }
    stereoRecord->architecture = architectures[0];
    crashRecord->architecture = architectures[1];
    unsetenv("VLOR_FIXTURE_CRASH_AFTER");
    BLSETTINGS_DeleteEx(nullptr, "vloraudio.plugins.host_groups");
    QVlorDialogs::setAnswerer({});
}
