// The "VST host" filter through the audio engine, as the editor applies an
// effect: in the host program and in process, with the latency taken out.
#include "QVlorAudioPlugins.h"
#include "audiofx.h"
#include "audiovst.h"
#include "vstfilter.h"
#include "../channelsplit_p.h"
#include "vsteffect_p.h"

#include "libbase.h"
#include "testsupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <dlfcn.h>
#include <string>
#include <thread>
#include <vector>

using namespace vlortest;

namespace {

const std::string kStereo = VLOR_FIXTURE_VST_DIR "/vlor-fixture-stereo.so";

AUDIO_FORMAT stereo44k()
{
    AUDIO_FORMAT f;
    std::memset(&f, 0, sizeof(f));
    f.sampleRate = 44100;
    f.numChannels = 2;
    return f;
}

std::string configFor(const std::string& file, const std::string& extra = "")
{
    return "vsteffect_filename=\"" + file + "\"" + (extra.empty() ? "" : "," + extra);
}

std::vector<float> ramp(size_t samples)
{
    std::vector<float> v(samples);
    for (size_t i = 0; i < samples; ++i)
        v[i] = float(i % 997) / 997.0f - 0.5f;
    return v;
}

class Filter : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(QVlorAudioPlugins::Initialize(), 1);
        ASSERT_EQ(AUDIO_FindEffectFilter("VST host"), &VSTEffect);
        ASSERT_EQ(AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR), 1);
    }
    AUDIO_Effect* create(const std::string& config)
    {
        const AUDIO_FORMAT f = stereo44k();
        return AUDIO_CreateEffect("VST host", &f, config.c_str(), nullptr, 0);
    }
};

} // namespace

TEST_F(Filter, TheRecordIsRegisteredAsTheEngineReadsIt)
{
    EXPECT_STREQ(VSTEffect.name, "VST host");
    EXPECT_STREQ(VSTEffect.shortName, "VST");
    EXPECT_EQ(VSTEffect.kindWord, 0x00000800u);
    EXPECT_EQ(VSTEffect.formatMask, 0x3BFFFF80u);
    EXPECT_EQ(VSTEffect.capabilityMask, 0x00001004u);
    EXPECT_EQ(VSTEffect.reset, nullptr);
    EXPECT_EQ(VSTEffect.latency, nullptr);
    // Finalize leaves the filter registered.
    QVlorAudioPlugins::Finalize();
    EXPECT_EQ(AUDIO_FindEffectFilter("VST host"), &VSTEffect);
    QVlorAudioPlugins::Initialize();
}

TEST_F(Filter, AnInitialDelayOf3000FramesIsTakenFromTheFirstBlocks)
{
    setenv("VLOR_FIXTURE_INITIAL_DELAY", "3000", 1);
    AUDIO_Effect* fx = create(configFor(kStereo));
    unsetenv("VLOR_FIXTURE_INITIAL_DELAY");
    ASSERT_NE(fx, nullptr);
    const std::vector<float> in = ramp(2048 * 2 * 2);
    std::vector<float> out(2048 * 2);
    long inFrames = 2048, outFrames = 2048;
    ASSERT_EQ(AUDIO_ProcessEffect(fx, in.data(), &inFrames, out.data(), &outFrames), 1);
    EXPECT_EQ(inFrames, 2048);
    EXPECT_EQ(outFrames, 0);
    inFrames = outFrames = 2048;
    ASSERT_EQ(AUDIO_ProcessEffect(fx, in.data() + 4096, &inFrames, out.data(), &outFrames), 1);
    EXPECT_EQ(inFrames, 2048);
    ASSERT_EQ(outFrames, 1096);
    // What comes out lines up with what went in.
    for (long i = 0; i < outFrames * 2; ++i)
        ASSERT_FLOAT_EQ(out[size_t(i)], in[size_t(i)]) << i;
    EXPECT_EQ(AUDIO_DestroyEffect(fx), 1);
}

TEST_F(Filter, ABlockIsAtMost2048Frames)
{
    AUDIO_Effect* fx = create(configFor(kStereo));
    ASSERT_NE(fx, nullptr);
    const std::vector<float> in = ramp(5000 * 2);
    std::vector<float> out(5000 * 2);
    long inFrames = 5000, outFrames = 5000;
    ASSERT_EQ(AUDIO_ProcessEffect(fx, in.data(), &inFrames, out.data(), &outFrames), 1);
    EXPECT_EQ(inFrames, 2048);
    EXPECT_EQ(outFrames, 2048);
    inFrames = 100;
    outFrames = 0;
    ASSERT_EQ(AUDIO_ProcessEffect(fx, in.data(), &inFrames, out.data(), &outFrames), 1);
    EXPECT_EQ(inFrames, 0);
    EXPECT_EQ(outFrames, 0);
    AUDIO_DestroyEffect(fx);
}

TEST_F(Filter, AStaleHashWithAValidFileStillOpensAndParamsAreSet)
{
    AUDIO_Effect* fx = create("vsteffect_hash=\"0000000000000000000000000000000000000000\"," + configFor(kStereo) +
                              ",params=[0.75,1,0.5,0]");
    ASSERT_NE(fx, nullptr);
    // Gain 0.75 is +12 dB, and the channels are swapped.
    std::vector<float> in = {0.1f, 0.2f}, out(2);
    long inFrames = 1, outFrames = 1;
    ASSERT_EQ(AUDIO_ProcessEffect(fx, in.data(), &inFrames, out.data(), &outFrames), 1);
    const float gain = std::pow(10.0f, 12.0f / 20.0f);
    EXPECT_NEAR(out[0], 0.2f * gain, 1e-5);
    EXPECT_NEAR(out[1], 0.1f * gain, 1e-5);
    // Reconfigured while it runs.
    ASSERT_EQ(AUDIO_ConfigureEffect(fx, "params=[0.5,0]"), 1);
    ASSERT_EQ(AUDIO_ProcessEffect(fx, in.data(), &inFrames, out.data(), &outFrames), 1);
    EXPECT_NEAR(out[0], 0.1f, 1e-6);
    EXPECT_EQ(AUDIO_ConfigureEffect(fx, "nothing=1"), 1);
    AUDIO_DestroyEffect(fx);
}

TEST_F(Filter, BadConfigurationsGiveNoEffect)
{
    LogCapture log;
    for (const std::string& config :
         {std::string(""), std::string("garbage,,,==="), std::string("vsteffect_filename="),
          std::string("vsteffect_filename=\"/no/such/plugin.so\""), std::string("vsteffect_filename=\"unterminated"),
          std::string("vsteffect_hash=\"abc\""), std::string("filename=\"") + VLOR_FIXTURE_VST_DIR "/vlor-fault-synth.so\"",
          configFor(kStereo, "use_config_instance=1")}) {
        EXPECT_EQ(create(config), nullptr) << config;
    }
    // Vectors of the wrong length and malformed ones do not harm the plugin.
    for (const char* params : {"params=[1,2", "params=[]", "params=[0.1,0.2,0.3,0.4,0.5,0.6,0.7]", "params=x"}) {
        AUDIO_Effect* fx = create(configFor(kStereo, params));
        ASSERT_NE(fx, nullptr) << params;
        AUDIO_DestroyEffect(fx);
    }
}

TEST_F(Filter, TheConfigInstanceGetsItsSilentBlocksAndLivesOn)
{
    _VSTEFFECT* e = AUDIOVST_FindPluginEx(kStereo.c_str(), 0, false);
    ASSERT_NE(e, nullptr);
    _VSTINSTANCE* config = AUDIOVST_CreateConfigInstance(e);
    ASSERT_NE(config, nullptr);
    EXPECT_EQ(AUDIOVST_IsRemoteInstance(config), 0); // a native plugin's config instance runs here
    EXPECT_EQ(AUDIOVST_CreateConfigInstance(e), nullptr);
    auto count = reinterpret_cast<int (*)()>(dlsym(e->library, "vlorfixture_log_count"));
    auto get = reinterpret_cast<int (*)(int, int*, int*, long*, float*)>(dlsym(e->library, "vlorfixture_log_get"));
    auto reset = reinterpret_cast<void (*)()>(dlsym(e->library, "vlorfixture_log_reset"));
    ASSERT_TRUE(count && get && reset);

    AUDIO_Effect* fx = create(configFor(kStereo, "use_config_instance=1"));
    ASSERT_NE(fx, nullptr);
    reset();
    ASSERT_EQ(AUDIO_DestroyEffect(fx), 1);
    int blocks = 0;
    for (int i = 0; i < count(); ++i) {
        int op, index;
        long value;
        float opt;
        get(i, &op, &index, &value, &opt);
        blocks += op == -2 && value == 2048;
    }
    EXPECT_EQ(blocks, 50);
    EXPECT_EQ(AUDIOVST_GetConfigInstance(e), config);
    EXPECT_EQ(AUDIOVST_CheckState(config), 1);
    EXPECT_EQ(AUDIOVST_DestroyConfigInstance(&config), 1);
    EXPECT_EQ(config, nullptr);
}

TEST_F(Filter, AnInstanceMadeOnAWorkerIsDestroyedOnTheMainThread)
{
    std::atomic<bool> done{false};
    std::atomic<int> created{0};
    std::thread worker([&] {
        AUDIO_Effect* fx = create(configFor(kStereo));
        created = fx ? 1 : -1;
        if (fx) {
            std::vector<float> in = ramp(4096), out(4096);
            long i = 2048, o = 2048;
            AUDIO_ProcessEffect(fx, in.data(), &i, out.data(), &o);
            AUDIO_DestroyEffect(fx); // waits for the main thread
        }
        done = true;
    });
    int ranHere = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!done && std::chrono::steady_clock::now() < deadline)
        ranHere += BLTHREAD_ProcessPendingCalls(20);
    worker.join();
    EXPECT_EQ(created.load(), 1);
    EXPECT_EQ(ranHere, 1);
}

TEST_F(Filter, RealPluginsGiveBitIdenticalOutputInTheHostAndInProcess)
{
    const auto files = {"/usr/lib/vst/ZamCompX2-vst.so", "/usr/lib/vst/3BandEQ-vst.so"};
    if (const std::string missing = missingFile(files); !missing.empty())
        GTEST_SKIP() << missing << " is not installed";
    for (const char* file : files) {
        _VSTEFFECT* e = AUDIOVST_FindPluginEx(file, 0, false);
        ASSERT_NE(e, nullptr) << file;
        const std::string config = "vsteffect_hash=\"" + std::string(AUDIOVST_GetHash(e)) + "\"";
        std::vector<float> results[2];
        for (int mode = 0; mode < 2; ++mode) {
            if (mode == 1)
                AUDIOVST_ForgetVlorVstPath();
            AUDIO_Effect* fx = create(config);
            ASSERT_NE(fx, nullptr) << file;
            const std::vector<float> in = ramp(44100 * 2);
            results[mode].assign(in.size(), 0.0f);
            for (size_t at = 0; at < in.size() / 2;) {
                long i = long(in.size() / 2 - at), o = i;
                ASSERT_EQ(AUDIO_ProcessEffect(fx, in.data() + at * 2, &i, results[mode].data() + at * 2, &o), 1);
                at += size_t(i);
            }
            AUDIO_DestroyEffect(fx);
        }
        ASSERT_EQ(AUDIOVST_SetVlorVstPath(VLOR_BIN_DIR), 1);
        EXPECT_EQ(std::memcmp(results[0].data(), results[1].data(), results[0].size() * sizeof(float)), 0) << file;
    }
}

// A shell's child is named by its hash alone, as the editor saves it: the
// filter opens that child, not the shell and not another child; when the
// file name says otherwise, the hash wins.
TEST_F(Filter, AShellChildNamedByItsHashOpensThatChild)
{
    TempDir dir;
    const std::string shell = dir.file("shell.so");
    ASSERT_EQ(std::system(("cp '" VLOR_FIXTURE_VST_DIR "/vlor-fixture-shell.so' '" + shell + "'").c_str()), 0);
    const int32_t mono = int32_t(('V' << 24) | ('s' << 16) | ('A' << 8) | '1');
    const int32_t stereo = int32_t(('V' << 24) | ('s' << 16) | ('A' << 8) | '2');
    std::string hash;
    for (const int32_t id : {mono, stereo}) {
        _VSTEFFECT* child = AUDIOVST_FindPluginEx(shell.c_str(), id, false);
        ASSERT_NE(child, nullptr);
        hash = AUDIOVST_GetHash(child);
        AUDIOVST_DeletePlugin(child); // found again through its settings only
    }
    for (const std::string& config : {"vsteffect_hash=\"" + hash + "\"",
                                      "vsteffect_hash=\"" + hash + "\"," + configFor(kStereo)}) {
        AUDIO_Effect* fx = create(config);
        ASSERT_NE(fx, nullptr) << config;
        _VSTEFFECT* opened = AUDIOVST_FindPluginByHash(hash.c_str());
        ASSERT_NE(opened, nullptr) << config;
        EXPECT_EQ(AUDIOVST_GetUniqueID(opened), stereo) << config;
        EXPECT_STREQ(AUDIOVST_GetFileName(opened), shell.c_str()) << config;
        // The stereo child halves both channels.
        std::vector<float> in = {0.4f, -0.8f}, out(2);
        long inFrames = 1, outFrames = 1;
        ASSERT_EQ(AUDIO_ProcessEffect(fx, in.data(), &inFrames, out.data(), &outFrames), 1);
        ASSERT_EQ(outFrames, 1);
        EXPECT_FLOAT_EQ(out[0], 0.2f) << config;
        EXPECT_FLOAT_EQ(out[1], -0.4f) << config;
        AUDIO_DestroyEffect(fx);
        AUDIOVST_DeletePlugin(opened);
    }
}

// How an effect serves a track: whole when it has the track's channels on
// both sides, one instance a channel when it has fewer, not at all without
// audio in or out; the split runs in place, channel by channel.
TEST(ChannelPlans, EachLayoutAgainstEachTrack)
{
    struct Case {
        int track, inputs, outputs;
        int instances, each;
    };
    const Case cases[] = {
        {2, 2, 2, 1, 2}, {2, 1, 1, 2, 1}, {2, 1, 2, 2, 1}, {2, 2, 1, 2, 1}, {1, 2, 2, 1, 1},
        {6, 2, 2, 6, 1}, {6, 8, 8, 1, 6}, {2, 0, 2, 0, 0}, {2, 2, 0, 0, 0}, {0, 2, 2, 0, 0},
    };
    for (const Case& c : cases) {
        const ChannelPlan plan = PlanChannels(c.track, c.inputs, c.outputs);
        EXPECT_EQ(plan.instances, c.instances) << c.track << " " << c.inputs << "-" << c.outputs;
        EXPECT_EQ(plan.channelsEach, c.each) << c.track << " " << c.inputs << "-" << c.outputs;
    }
    EXPECT_NE(WhyNoChannelPlan(0, 2).find("no audio input"), std::string::npos);
    EXPECT_NE(WhyNoChannelPlan(2, 0).find("no audio output"), std::string::npos);

    // In place: instance k doubles its channel and adds k.
    std::vector<float> block{1, 2, 3, 4, 5, 6};
    ChannelSplitter splitter;
    ASSERT_TRUE(splitter.process(block.data(), block.data(), 3, 2, [](int k, const float* in, float* out, int n) {
        for (int f = 0; f < n; ++f)
            out[f] = 2 * in[f] + float(k);
        return true;
    }));
    EXPECT_EQ(block, (std::vector<float>{2, 5, 8, 8, 11, 14}));
    EXPECT_FALSE(splitter.process(block.data(), block.data(), 3, 2, [](int, const float*, float*, int) { return false; }));
}
