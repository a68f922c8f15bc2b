// The VST3 engine's rules, on a test bundle whose effects record what the
// host does to them: blocks, parameter changes, state, events.
#include "vst3engine.h"

#include "blstring.h"
#include "testsupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <dlfcn.h>
#include <string>
#include <vector>

namespace {

const std::string kBundle = VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3";
const char* const kGain = "51000000000000000000000000000001";
const char* const kEndless = "51000000000000000000000000000002";
const char* const kAlone = "51000000000000000000000000000003";
const char* const kFails = "51000000000000000000000000000004";
constexpr uint32_t kGainId = 1, kBypassId = 2;

template <typename T> T fixture(const char* name)
{
    void* h = dlopen((kBundle + "/Contents/x86_64-linux/vlor-vst3-effects.so").c_str(), RTLD_NOW | RTLD_NOLOAD);
    T f = h ? reinterpret_cast<T>(dlsym(h, name)) : nullptr;
    if (h)
        dlclose(h);
    return f;
}

std::vector<int> blocks()
{
    std::vector<int> out;
    for (int i = 0; i < fixture<int (*)()>("vlorfx3_block_count")(); ++i)
        out.push_back(fixture<int (*)(int)>("vlorfx3_block")(i));
    return out;
}

std::vector<std::pair<unsigned, double>> heard()
{
    std::vector<std::pair<unsigned, double>> out;
    for (int i = 0; i < fixture<int (*)()>("vlorfx3_heard_count")(); ++i) {
        unsigned id = 0;
        const double v = fixture<double (*)(int, unsigned*)>("vlorfx3_heard")(i, &id);
        out.emplace_back(id, v);
    }
    return out;
}

// The processor's own two values in a saved configuration.
void statedValues(const char* config, double* gain, double* bypass)
{
    char data[256];
    ASSERT_EQ(BLSTRING_GetStringValueFromString(config, "presetdata", "", data, sizeof(data)), 1);
    int n = 0;
    void* bytes = BLSTRING_FromBase64(data, &n);
    ASSERT_EQ(n, 16);
    double v[2];
    std::memcpy(v, bytes, sizeof(v));
    std::free(bytes);
    *gain = v[0];
    *bypass = v[1];
}

struct Events {
    std::vector<std::pair<int, int>> seen;
    static void callback(void* user, Vst3HostEvent e, int32_t a, int32_t)
    {
        static_cast<Events*>(user)->seen.emplace_back(int(e), a);
    }
};

class Behaviour : public ::testing::Test {
protected:
    void SetUp() override
    {
        VLORVST3_Initialize();
        h = VLORVST3_CreateInstance(kBundle.c_str(), kGain);
        ASSERT_NE(h, nullptr);
        fixture<void (*)()>("vlorfx3_reset")();
    }
    void TearDown() override { VLORVST3_DestroyInstance(h); }
    _Vst3Instance* h = nullptr;
};

} // namespace

TEST_F(Behaviour, FramesAreCutIntoBlocksOfTheBlockSize)
{
    ASSERT_EQ(VLORVST3_StartEngine(h), 1);
    std::vector<float> in(2 * 20000, 0.25f), out(in.size());
    ASSERT_EQ(VLORVST3_ProcessAudio(h, in.data(), out.data(), 2, 20000), 1);
    EXPECT_EQ(blocks(), (std::vector<int>{8192, 8192, 3616}));
    ASSERT_EQ(VLORVST3_ProcessAudio(h, in.data(), out.data(), 2, 0), 1);
    EXPECT_EQ(blocks().size(), 3u); // nothing to do: no call
    EXPECT_FLOAT_EQ(out[100], 0.25f); // unity gain
}

TEST_F(Behaviour, ThreeCallerChannelsOutOfAStereoBusAreLeftRightRight)
{
    ASSERT_EQ(VLORVST3_SetAudioFormat(h, 44100, 3), 1);
    ASSERT_EQ(VLORVST3_StartEngine(h), 1); // the plugin refuses three; it runs in stereo
    std::vector<float> in(3 * 64), out(3 * 64, 9.0f);
    for (int f = 0; f < 64; ++f) {
        in[size_t(f) * 3] = 0.1f;
        in[size_t(f) * 3 + 1] = 0.2f;
        in[size_t(f) * 3 + 2] = 0.3f;
    }
    ASSERT_EQ(VLORVST3_ProcessAudio(h, in.data(), out.data(), 3, 64), 1);
    EXPECT_FLOAT_EQ(out[0], 0.1f);
    EXPECT_FLOAT_EQ(out[1], 0.2f);
    EXPECT_FLOAT_EQ(out[2], 0.2f);
}

TEST_F(Behaviour, ChangesQueuedWhileStoppedReachTheFirstBlock)
{
    ASSERT_EQ(VLORVST3_SetParamNormalized(h, kGainId, 0.25), 1);
    EXPECT_TRUE(heard().empty());
    ASSERT_EQ(VLORVST3_StartEngine(h), 1);
    std::vector<float> buf(2 * 16, 1.0f);
    ASSERT_EQ(VLORVST3_ProcessAudio(h, buf.data(), buf.data(), 2, 16), 1);
    ASSERT_EQ(heard().size(), 1u);
    EXPECT_EQ(heard()[0], (std::pair<unsigned, double>(kGainId, 0.25)));
    EXPECT_FLOAT_EQ(buf[0], 0.5f); // gain 0.25 is half
}

TEST_F(Behaviour, EditsInThePluginGoToItsProcessorAndRaiseEvents)
{
    Events events;
    ASSERT_EQ(fixture<int (*)(int)>("vlorfx3_restart")(4), -1 + 1); // no callback: still 0
    VLORVST3_SetEventCallback(h, Events::callback, &events);
    ASSERT_EQ(VLORVST3_StartEngine(h), 1);
    ASSERT_EQ(fixture<int (*)(unsigned, double)>("vlorfx3_edit")(kGainId, 1.0), 1);
    fixture<int (*)(int)>("vlorfx3_restart")(4);
    ASSERT_EQ(events.seen.size(), 2u);
    EXPECT_EQ(events.seen[0], (std::pair<int, int>(kVst3EventParamChanged, int(kGainId))));
    EXPECT_EQ(events.seen[1], (std::pair<int, int>(kVst3EventRestart, 4)));
    std::vector<float> buf(2 * 8, 0.5f);
    VLORVST3_ProcessAudio(h, buf.data(), buf.data(), 2, 8);
    EXPECT_FLOAT_EQ(buf[0], 1.0f); // gain 1.0 doubles
}

TEST_F(Behaviour, HostObjectsThatAPluginKeepsOutliveTheInstanceAndReachNothing)
{
    Events events;
    VLORVST3_SetEventCallback(h, Events::callback, &events);
    ASSERT_EQ(fixture<int (*)()>("vlorfx3_keep_handler")(), 1);
    fixture<void (*)()>("vlorfx3_keep_next_state_stream")();
    VLORVST3_FreeString(VLORVST3_GetConfig(h));
    VLORVST3_DestroyInstance(h);
    h = nullptr;
    // The handler no longer leads to the instance: the edit is refused, not queued.
    const int kResultFalse = 1; // the SDK's
    EXPECT_EQ(fixture<int (*)(unsigned, double)>("vlorfx3_kept_edit")(kGainId, 0.5), kResultFalse);
    EXPECT_TRUE(events.seen.empty());
    // The state's stream is still whole, and a seek before its start reads from it.
    EXPECT_EQ(fixture<int (*)(long long)>("vlorfx3_kept_stream_read_from")(-64), 16);
    EXPECT_EQ(fixture<int (*)(long long)>("vlorfx3_kept_stream_read_from")(1000), 0);
    fixture<void (*)()>("vlorfx3_drop_kept")();
}

TEST_F(Behaviour, StateIsSavedWithTheBypassLiftedAndTheBypassComesBack)
{
    ASSERT_EQ(VLORVST3_StartEngine(h), 1);
    for (const double bypass : {1.0, 0.5}) {
        ASSERT_EQ(VLORVST3_SetBypass(h, 1), 1);
        VLORVST3_SetParamNormalized(h, kBypassId, bypass);
        std::vector<float> buf(2 * 8, 0.5f);
        VLORVST3_ProcessAudio(h, buf.data(), buf.data(), 2, 8);
        char* config = VLORVST3_GetConfig(h);
        ASSERT_NE(config, nullptr);
        EXPECT_EQ(std::strncmp(config, "presetsize=24,presetdata=\"", 26), 0) << config;
        double gain = -1, saved = -1;
        statedValues(config, &gain, &saved);
        EXPECT_EQ(saved, 0.0) << bypass;
        EXPECT_EQ(VLORVST3_GetParamNormalized(h, kBypassId), bypass);
        fixture<void (*)()>("vlorfx3_reset")();
        VLORVST3_ProcessAudio(h, buf.data(), buf.data(), 2, 8);
        VLORVST3_FreeString(config);
    }
    // A flush with nothing queued calls no process.
    fixture<void (*)()>("vlorfx3_reset")();
    VLORVST3_SetBypass(h, 0);
    std::vector<float> buf(2 * 8, 0.5f);
    VLORVST3_ProcessAudio(h, buf.data(), buf.data(), 2, 8);
    fixture<void (*)()>("vlorfx3_reset")();
    char* config = VLORVST3_GetConfig(h);
    EXPECT_TRUE(blocks().empty());
    VLORVST3_FreeString(config);
}

TEST_F(Behaviour, LatencyTailAndTheVariantClasses)
{
    ASSERT_EQ(VLORVST3_SetAudioFormat(h, 44100, 2), 1);
    EXPECT_EQ(VLORVST3_SetAudioFormat(h, 0, 2), 0);
    EXPECT_EQ(VLORVST3_SetAudioFormat(h, 44100, 0), 0);
    EXPECT_DOUBLE_EQ(VLORVST3_GetLatency(h), 100.0 / 44100.0);
    EXPECT_DOUBLE_EQ(VLORVST3_GetTailTime(h), 4410.0 / 44100.0);

    _Vst3Instance* endless = VLORVST3_CreateInstance(kBundle.c_str(), kEndless);
    ASSERT_NE(endless, nullptr);
    VLORVST3_SetAudioFormat(endless, 96000, 2);
    EXPECT_EQ(VLORVST3_GetTailTime(endless), 10.0);
    VLORVST3_DestroyInstance(endless); // never started: nothing to unprepare

    _Vst3Instance* alone = VLORVST3_CreateInstance(kBundle.c_str(), kAlone);
    ASSERT_NE(alone, nullptr);
    EXPECT_EQ(VLORVST3_GetNumParams(alone), 0);
    EXPECT_EQ(VLORVST3_SetBypass(alone, 1), 0);
    EXPECT_EQ(VLORVST3_SetParamNormalized(alone, kGainId, 0.3), 0);
    ASSERT_EQ(VLORVST3_StartEngine(alone), 1);
    std::vector<float> buf(2 * 8, 0.5f);
    EXPECT_EQ(VLORVST3_ProcessAudio(alone, buf.data(), buf.data(), 2, 8), 1);
    VLORVST3_DestroyInstance(alone);

    _Vst3Instance* fails = VLORVST3_CreateInstance(kBundle.c_str(), kFails);
    ASSERT_NE(fails, nullptr);
    ASSERT_EQ(VLORVST3_StartEngine(fails), 1);
    std::vector<float> out(buf.size(), 7.0f);
    EXPECT_EQ(VLORVST3_ProcessAudio(fails, buf.data(), out.data(), 2, 8), 0);
    EXPECT_EQ(out[0], 7.0f); // what failed was not written
    VLORVST3_DestroyInstance(fails);
}

TEST_F(Behaviour, AMonoSourceFeedsBothChannelsOfAStereoBus)
{
    ASSERT_EQ(VLORVST3_SetAudioFormat(h, 44100, 1), 1);
    ASSERT_EQ(VLORVST3_StartEngine(h), 1); // the plugin insists on stereo
    std::vector<float> mono(64, 0.3f), out(64);
    ASSERT_EQ(VLORVST3_ProcessAudio(h, mono.data(), out.data(), 1, 64), 1);
    EXPECT_FLOAT_EQ(fixture<float (*)(int)>("vlorfx3_last_input")(0), 0.3f);
    EXPECT_FLOAT_EQ(fixture<float (*)(int)>("vlorfx3_last_input")(1), 0.3f);
}

TEST(BehaviourLifecycle, StartStopAndTheOrderOfTheEnd)
{
    VLORVST3_Initialize();
    _Vst3Instance* h = VLORVST3_CreateInstance(kBundle.c_str(), kGain);
    ASSERT_NE(h, nullptr);
    fixture<void (*)()>("vlorfx3_reset")();
    auto calls = [] {
        char text[1024];
        fixture<void (*)(char*, int)>("vlorfx3_calls")(text, sizeof(text));
        fixture<void (*)()>("vlorfx3_reset")();
        return std::string(text);
    };
    ASSERT_EQ(VLORVST3_StartEngine(h), 1); // real time unless told otherwise
    EXPECT_EQ(calls(), "setupProcessing realtime\nsetActive 1\nsetProcessing 1\n");
    EXPECT_EQ(VLORVST3_StopEngine(h), 1);
    EXPECT_EQ(calls(), "setProcessing 0\nsetActive 0\n");
    EXPECT_EQ(VLORVST3_StopEngine(h), 1);
    EXPECT_EQ(calls(), "");
    VLORVST3_SetOffline(h, 1);
    EXPECT_EQ(VLORVST3_Reset(h), 1);
    EXPECT_EQ(calls(), "setupProcessing offline\nsetActive 1\nsetProcessing 1\n");
    EXPECT_EQ(VLORVST3_DestroyInstance(h), 1);
    EXPECT_EQ(calls(), "setProcessing 0\nsetActive 0\ncontroller terminate\ncomponent terminate\n");
}
