// Both formats as real-time effects of the mixer, on the fixtures and on
// real plugins, played block by block through a chain as playback does.
#include "QVlorMixer.h"
#include "QVlorUtils.h"
#include "QVlorVst3_MixerEffect.h"
#include "QVlorVst_MixerEffect.h"

#include "audiovst_testing.h"
#include "vst3engine.h"

#include "blio.h"
#include "blsettings.h"

#include "testsupport.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cmath>
#include <sstream>
#include <string>
#include <vector>

using namespace vlortest;

namespace {

const std::string kStereo = VLOR_FIXTURE_VST_DIR "/vlor-fixture-stereo.so";
const QString kEffects = QStringLiteral(VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3");
const QString kGainCid = QStringLiteral("51000000000000000000000000000001");
const QString kEndlessCid = QStringLiteral("51000000000000000000000000000002");
constexpr int kRate = 48000;

QVlorVst::Plugin vst2Plugin(const std::string& file)
{
    _VSTEFFECT* e = AUDIOVST_FindPluginEx(file.c_str(), 0, false);
    QVlorVst::Plugin p(QString::fromStdString(file));
    if (e)
        p.setUniqueId(AUDIOVST_GetUniqueID(e));
    return p;
}

QVlorVst3::Plugin vst3Plugin(const QString& bundle, const QString& cid)
{
    return QVlorVst3::Plugin(bundle, cid, QStringLiteral("Fixture"), QString(), QString(), QString());
}

std::vector<float> sine(int frames, float amplitude = 0.25f)
{
    std::vector<float> v(size_t(frames) * 2);
    for (size_t i = 0; i < v.size(); ++i)
        v[i] = amplitude * float(std::sin(0.02 * double(i / 2)));
    return v;
}

float peak(const std::vector<float>& v, size_t from = 0)
{
    float p = 0;
    for (size_t i = from; i < v.size(); ++i)
        p = std::max(p, std::fabs(v[i]));
    return p;
}

class Mixer : public ::testing::Test {
protected:
    void SetUp() override
    {
        AUDIOVST_Initialize();
        ASSERT_EQ(AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR), 1);
        VLORVST3_Initialize();
    }
};

} // namespace

TEST(MixerToolkit, VectorsOfFloatsRoundTripThroughConfigurationStrings)
{
    const QList<float> values{0.0f, 0.25f, 1.0f};
    const QString text = QStringLiteral("a=1,params=%1,b=\"x\"").arg(QVlorUtils::vec2str(values));
    EXPECT_EQ(QVlor::getFloatVectorFromString(text, QStringLiteral("params")), values) << text.toStdString();
    EXPECT_TRUE(QVlor::getFloatVectorFromString(text, QStringLiteral("other")).isEmpty());
    EXPECT_TRUE(QVlor::getFloatVectorFromString(QString(), QStringLiteral("params")).isEmpty());
}

TEST_F(Mixer, Vst2PowerInEveryOrderProcessParametersAndPrograms)
{
    QVlorVst::MixerEffect fx(vst2Plugin(kStereo), kRate, 2);
    EXPECT_FALSE(fx.isOk());
    EXPECT_FALSE(fx.powerOff()); // already off
    std::vector<float> buf = sine(256);
    EXPECT_EQ(fx.process(buf.data(), buf.data(), 2, 256), 0); // off: no audio
    ASSERT_TRUE(fx.powerOn(256));
    EXPECT_TRUE(fx.isOk());
    EXPECT_FALSE(fx.powerOn(256)); // already on
    // One config instance a plugin: a second effect of it cannot power on.
    QVlorVst::MixerEffect second(vst2Plugin(kStereo), kRate, 2);
    EXPECT_FALSE(second.powerOn(256));
    EXPECT_TRUE(fx.checkState(false));

    EXPECT_EQ(fx.name(), QStringLiteral("Vlor Fixture Stereo"));
    ASSERT_EQ(fx.numParams(), 4);
    EXPECT_EQ(fx.numPrograms(), 3);

    // params() and setParams() round trip; a list one short changes nothing.
    fx.setParams(QStringLiteral("params=[0.75,0,0.5,0]"));
    EXPECT_EQ(QVlor::getFloatVectorFromString(fx.params(), QStringLiteral("params")),
              (QList<float>{0.75f, 0.0f, 0.5f, 0.0f}));
    fx.setParams(QStringLiteral("params=[0.1,0.1,0.1]"));
    EXPECT_FLOAT_EQ(fx.parameterValue(0), 0.75f);
    fx.reset(); // the default program
    EXPECT_FLOAT_EQ(fx.parameterValue(0), 0.5f);

    // A stored preset wins over the plugin's own program of that name; an unchanged one leaves the program.
    const QPair<QString, QString> lead = fx.program(1);
    EXPECT_EQ(lead.first, QStringLiteral("LEAD"));
    fx.setProgram(lead.first, lead.second);
    EXPECT_FLOAT_EQ(fx.parameterValue(3), 0.5f);
    fx.setProgram(lead.first, QStringLiteral("params=[0.6,0,0.5,0.5]"));
    EXPECT_FLOAT_EQ(fx.parameterValue(0), 0.6f);
    EXPECT_TRUE(fx.program(7).first.isEmpty());

    // Displays: a number on the line through the range keeps *ok; "Off", or a range the text strays from, clears it.
    bool ok = true;
    EXPECT_EQ(fx.parameterValueString(0, 24.0f, -24.0f, 0.75f, &ok).trimmed(), QStringLiteral("12.0"));
    EXPECT_TRUE(ok);
    EXPECT_EQ(fx.parameterValueString(0, 1.0f, 0.0f, 0.75f, &ok).trimmed(), QStringLiteral("12.0"));
    EXPECT_FALSE(ok);
    ok = true;
    EXPECT_EQ(fx.parameterValueString(1, 1.0f, 0.0f, 0.0f, &ok), QStringLiteral("Off"));
    EXPECT_FALSE(ok);

    // Unity gain passes the sine through (after the fixture's delay line).
    fx.setParams(QStringLiteral("params=[0.5,0,0,0]"));
    std::vector<float> out(buf.size());
    EXPECT_EQ(fx.process(buf.data(), out.data(), 2, 256), 256);
    EXPECT_GE(fx.tailSize(), 0);
    EXPECT_TRUE(fx.powerOff());
    EXPECT_FALSE(fx.isOk());
    EXPECT_FALSE(fx.powerOff());
    // Off, the plugin is free for another effect.
    EXPECT_TRUE(second.powerOn(64));
    EXPECT_TRUE(second.powerOff());
}

TEST_F(Mixer, Vst3PowerProcessTailAndStateWithAndWithoutTheEvent)
{
    QVlorVst3::MixerEffect invalid(vst3Plugin(kEffects, QStringLiteral("00000000000000000000000000000000")), kRate, 2);
    EXPECT_FALSE(invalid.isOk());
    EXPECT_FALSE(invalid.powerOn(256));
    EXPECT_TRUE(invalid.params().isEmpty());

    QVlorVst3::MixerEffect fx(vst3Plugin(kEffects, kGainCid), kRate, 2);
    ASSERT_TRUE(fx.isOk());
    std::vector<float> buf = sine(512);
    std::vector<float> out(buf.size());
    EXPECT_EQ(fx.process(buf.data(), out.data(), 2, 512), 0); // not powered
    ASSERT_TRUE(fx.powerOn(512));
    EXPECT_EQ(fx.process(buf.data(), out.data(), 2, 512), 512);
    EXPECT_EQ(fx.tailSize(), 4410); // the plugin's own frames, at the rate it was given

    int events = 0;
    VLORVST3_SetEventCallback(
        fx.instance(), [](void* user, Vst3HostEvent e, int32_t, int32_t) {
            if (e == kVst3EventParamChanged)
                ++*static_cast<int*>(user);
        },
        &events);
    const QString state = fx.params();
    ASSERT_FALSE(state.isEmpty());
    EXPECT_TRUE(fx.reconfigure(state));
    EXPECT_EQ(events, 0);
    EXPECT_TRUE(fx.setParams(state));
    EXPECT_EQ(events, 1);
    VLORVST3_SetEventCallback(fx.instance(), nullptr, nullptr);
    EXPECT_TRUE(fx.powerOff());

    // An endless tail counts as ten seconds of frames.
    QVlorVst3::MixerEffect endless(vst3Plugin(kEffects, kEndlessCid), kRate, 2);
    ASSERT_TRUE(endless.isOk());
    EXPECT_EQ(endless.tailSize(), 10 * kRate);
}

// A VST2 host killed in the middle of playback: that effect answers 0 from
// then on, its state says so, and the chain plays the rest at its pace.
TEST_F(Mixer, AHostKilledInPlaybackStopsOnlyItsEffect)
{
    // A plugin of another architecture than ours runs its config instance in
    // the host program: the fixture is taken for one.
    _VSTEFFECT* record = AUDIOVST_FindPluginEx(kStereo.c_str(), 0, false);
    ASSERT_NE(record, nullptr);
    QVlorVst::MixerEffect vst2(vst2Plugin(kStereo), kRate, 2);
    const int32_t ownArchitecture = record->architecture;
    record->architecture = 32;
    ASSERT_TRUE(vst2.powerOn(256));
    vst2.setParams(QStringLiteral("params=[0.5,0,0,0]"));
    QVlorVst3::MixerEffect vst3(vst3Plugin(kEffects, kGainCid), kRate, 2);
    ASSERT_TRUE(vst3.isOk());
    ASSERT_TRUE(vst3.powerOn(256));
    QVlorMixer::Chain chain(2, 256);
    chain.append(&vst2);
    chain.append(&vst3);

    const std::vector<float> in = sine(256 * 8);
    std::vector<float> out(in.size());
    EXPECT_EQ(chain.render(in.data(), out.data(), 256 * 8), 0);

    const std::vector<long> hosts = instanceHostPids();
    ASSERT_EQ(hosts.size(), 1u);
    ASSERT_EQ(kill(pid_t(hosts[0]), SIGKILL), 0);
    ASSERT_TRUE(waitFor([&] { return !processRuns(hosts[0], 0); }));

    int deaths = 0;
    QObject::connect(&vst2, &QVlorVst::MixerEffect::died, [&] { ++deaths; });
    std::vector<float> after(in.size(), 0.0f);
    // Every block of the dead effect is missed, its audio passed on as it
    // came; the VST3 effect still plays. The death is told once.
    EXPECT_EQ(chain.render(in.data(), after.data(), 256 * 8), 256 * 8);
    EXPECT_GT(peak(after, after.size() / 2), 0.1f);
    QVlorMixer::Chain alone(2, 256);
    alone.append(&vst2);
    EXPECT_EQ(alone.render(in.data(), after.data(), 256 * 8), 256 * 8);
    EXPECT_EQ(after, in);
    EXPECT_EQ(deaths, 1);
    EXPECT_FALSE(vst2.checkState(false));
    std::vector<float> one(512);
    EXPECT_EQ(vst2.process(one.data(), one.data(), 2, 256), 0);
    vst2.powerOff();
    record->architecture = ownArchitecture;
}

TEST_F(Mixer, RealPluginsOfBothFormatsPlay)
{
    struct Case {
        std::string vst2;
        QString bundle;
    };
    int played = 0;
    for (const Case& c : {Case{"/usr/lib/vst/ZamComp-vst.so", QStringLiteral("/usr/lib/vst3/ZamComp.vst3")},
                          Case{"/usr/lib/vst/ZamDelay-vst.so", QStringLiteral("/usr/lib/vst3/ZamDelay.vst3")}}) {
        if (!BLIO_Exists(c.vst2.c_str()) || !BLIO_Exists(c.bundle.toUtf8().constData()))
            continue;
        const std::vector<float> in = sine(4096, 0.5f);
        QVlorVst::MixerEffect a(vst2Plugin(c.vst2), kRate, 2);
        ASSERT_TRUE(a.powerOn(1024)) << c.vst2;
        std::vector<Vst3ClassRecord> classes(8);
        ASSERT_EQ(VLORVST3_ListClasses(c.bundle.toUtf8().constData(), classes.data(), 8), 1);
        QVlorVst3::MixerEffect b(vst3Plugin(c.bundle, QString::fromLatin1(classes[0].uid)), kRate, 2);
        ASSERT_TRUE(b.powerOn(1024)) << c.bundle.toStdString();
        for (QVlorMixer::Effect* fx : {static_cast<QVlorMixer::Effect*>(&a), static_cast<QVlorMixer::Effect*>(&b)}) {
            QVlorMixer::Chain chain(2, 1024);
            chain.append(fx);
            std::vector<float> out(in.size());
            EXPECT_EQ(chain.render(in.data(), out.data(), 4096), 0) << c.vst2;
            EXPECT_GT(peak(out), 0.01f) << c.vst2;
            EXPECT_TRUE(std::isfinite(peak(out))) << c.vst2;
        }
        // Mono effects on a stereo track run one instance a channel: a bypass
        // answers as one instance on a mono track does (these plugins may refuse it).
        QVlorVst3::MixerEffect one(vst3Plugin(c.bundle, QString::fromLatin1(classes[0].uid)), kRate, 1);
        ASSERT_TRUE(one.powerOn(1024));
        EXPECT_EQ(b.setBypass(true), one.setBypass(true)) << c.vst2;
        EXPECT_EQ(b.setBypass(false), one.setBypass(false)) << c.vst2;
        EXPECT_TRUE(one.powerOff());
        EXPECT_TRUE(a.powerOff());
        EXPECT_TRUE(b.powerOff());
        ++played;
    }
    if (!played)
        GTEST_SKIP() << "zam-plugins in both formats are not installed";
}

// Displays that are no number on the line: an endless value and a huge one
// show the infinity sign; the caller's *ok is cleared and never set.
TEST_F(Mixer, Vst2DisplaysOfEndlessValuesShowTheInfinitySign)
{
    QVlorVst::MixerEffect fx(vst2Plugin(VLOR_FIXTURE_VST_DIR "/vlor-fault-endless-display.so"), kRate, 2);
    ASSERT_TRUE(fx.powerOn(256));
    struct Case {
        float value;
        QString shown;
        bool ok;
    };
    for (const Case& c : {Case{0.995f, QStringLiteral("+\u221E"), false}, Case{0.95f, QStringLiteral("-\u221E"), false},
                          Case{0.5f, QStringLiteral("0.50"), true}}) {
        ASSERT_TRUE(fx.setParameterValue(0, c.value));
        bool ok = true;
        EXPECT_EQ(fx.parameterValueString(0, 1.0f, 0.0f, c.value, &ok), c.shown) << c.value;
        EXPECT_EQ(ok, c.ok) << c.value;
        // Only ever cleared: a false the caller brought stays false.
        bool already = false;
        fx.parameterValueString(0, 1.0f, 0.0f, c.value, &already);
        EXPECT_FALSE(already);
    }
    EXPECT_TRUE(fx.powerOff());
}

// A VST3 class whose processing refuses every block gives no audio; the
// chain passes it over and the next effect still plays.
TEST_F(Mixer, Vst3AnEffectThatRefusesToProcessIsPassedOver)
{
    QVlorVst3::MixerEffect fails(vst3Plugin(kEffects, QStringLiteral("51000000000000000000000000000004")), kRate, 2);
    ASSERT_TRUE(fails.isOk());
    ASSERT_TRUE(fails.powerOn(256));
    QVlorVst3::MixerEffect gain(vst3Plugin(kEffects, kGainCid), kRate, 2);
    ASSERT_TRUE(gain.powerOn(256));
    QVlorMixer::Chain chain(2, 256);
    chain.append(&fails);
    chain.append(&gain);
    const std::vector<float> in = sine(1024);
    std::vector<float> out(in.size());
    EXPECT_EQ(chain.render(in.data(), out.data(), 1024), 1024);
    EXPECT_GT(peak(out, out.size() / 2), 0.05f);
}

TEST_F(Mixer, AReverbKeepsSoundingAfterItsInputAndAnUnusablePluginNeverStarts)
{
    // No usable effect: the copy of the record is marked failed, and nothing starts.
    QVlorVst::Plugin synth = vst2Plugin(VLOR_FIXTURE_VST_DIR "/vlor-fault-synth.so");
    QVlorVst::MixerEffect none(synth, kRate, 2);
    EXPECT_FALSE(none.powerOn(256));
    EXPECT_FALSE(none.isOk());

    const std::string mverb = "/usr/lib/vst/MVerb-vst.so";
    if (!BLIO_Exists(mverb.c_str()))
        GTEST_SKIP() << "dpf-plugins-vst (MVerb) is not installed";
    QVlorVst::MixerEffect reverb(vst2Plugin(mverb), kRate, 2);
    ASSERT_TRUE(reverb.powerOn(512)) << mverb;
    QVlorMixer::Chain chain(2, 512);
    chain.append(&reverb);
    // A click, then a second of silence: what comes out after the click is the tail.
    std::vector<float> in(size_t(kRate) * 2, 0.0f);
    for (int k = 0; k < 64; ++k)
        in[size_t(k) * 2] = in[size_t(k) * 2 + 1] = 0.8f;
    std::vector<float> out(in.size());
    EXPECT_EQ(chain.render(in.data(), out.data(), kRate), 0);
    EXPECT_GT(peak(out, size_t(kRate) / 4 * 2), 1e-4f);
    EXPECT_TRUE(reverb.powerOff());
}

TEST_F(Mixer, Vst2EffectsSharingAHostPlayInOneCallAndAllAreToldOfItsCrash)
{
    // The config instances run in the host program when the plugin is taken
    // for one of another architecture; all of them in one program.
    BLSETTINGS_ChangeEx(nullptr, "vloraudio.plugins.host_groups=one");
    setenv("VLOR_FIXTURE_CRASH_AFTER", "6", 1);
    const std::string gain = VLOR_FIXTURE_VST_DIR "/vlor-fault-dup-old.so";
    const std::string crash = VLOR_FIXTURE_VST_DIR "/vlor-fault-crash-process.so";
    QVlorVst::MixerEffect a(vst2Plugin(gain), kRate, 2), b(vst2Plugin(kStereo), kRate, 2), c(vst2Plugin(crash), kRate, 2);
    std::vector<std::pair<_VSTEFFECT*, int32_t>> records;
    for (const std::string& file : {gain, kStereo, crash}) {
        _VSTEFFECT* r = AUDIOVST_FindPluginEx(file.c_str(), 0, false);
        ASSERT_NE(r, nullptr) << file;
        records.emplace_back(r, r->architecture);
        r->architecture = 32;
    }
    int deaths = 0;
    for (QVlorVst::MixerEffect* e : {&a, &b, &c}) {
        ASSERT_TRUE(e->powerOn(256));
        QObject::connect(e, &QVlorVst::MixerEffect::died, [&] { ++deaths; });
    }
    a.setParams(QStringLiteral("params=[0.25,0.25]")); // half
    c.setParams(QStringLiteral("params=[1,0.25]"));    // twice
    EXPECT_EQ(a.joinable({&b, &c}), 2);
    EXPECT_EQ(b.joinable({&c}), 1);
    QVlorMixer::Chain chain(2, 256);
    for (QVlorMixer::Effect* e : {&a, &b, &c})
        chain.append(e);
    const std::vector<float> in = sine(256 * 4);
    std::vector<float> out(in.size());
    EXPECT_EQ(chain.render(in.data(), out.data(), 256 * 4), 0);
    for (size_t i = 0; i < in.size(); i += 61)
        ASSERT_NEAR(out[i], in[i], 1e-6f) << i;

    // The crashing plugin takes its host down in the next blocks: the three
    // are told once each, only it is to blame, and the audio passes.
    EXPECT_GT(chain.render(in.data(), out.data(), 256 * 4), 0);
    EXPECT_EQ(chain.render(in.data(), out.data(), 256 * 4), 3 * 256 * 4);
    EXPECT_EQ(out, in);
    EXPECT_EQ(deaths, 3);
    EXPECT_TRUE(c.crashedItself());
    EXPECT_FALSE(a.crashedItself());
    EXPECT_FALSE(b.crashedItself());
    for (QVlorVst::MixerEffect* e : {&a, &b, &c})
        e->powerOff();
    for (auto& r : records)
        r.first->architecture = r.second;
    unsetenv("VLOR_FIXTURE_CRASH_AFTER");
    BLSETTINGS_DeleteEx(nullptr, "vloraudio.plugins.host_groups");
}
