// The "VST3 host" filter through the audio engine, on the system's bundles.
#include "QVlorAudioPlugins.h"
#include "audiofx.h"
#include "vst3engine.h"
#include "vst3filter.h"

#include "testsupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <string>
#include <vector>

namespace {

const std::string kComp = "/usr/lib/vst3/ZamComp.vst3";
const std::string kEq = "/usr/lib/vst3/ZamEQ2.vst3";

std::string uidOf(const std::string& bundle)
{
    Vst3ClassRecord r[2];
    return VLORVST3_ListClasses(bundle.c_str(), r, 2) >= 1 ? r[0].uid : "";
}

std::string configFor(const std::string& bundle, const std::string& extra = "")
{
    return "vst3effect_uid=\"" + uidOf(bundle) + "\",vst3effect_path=\"" + bundle + "\"" +
           (extra.empty() ? "" : "," + extra);
}

AUDIO_Effect* create(const std::string& config, int channels = 2)
{
    AUDIO_FORMAT f;
    std::memset(&f, 0, sizeof(f));
    f.sampleRate = 44100;
    f.numChannels = int16_t(channels);
    return AUDIO_CreateEffect("VST3 host", &f, config.c_str(), nullptr, 0);
}

class Vst3Filter : public ::testing::Test {
protected:
    void SetUp() override
    {
        QVlorAudioPlugins::Initialize();
        ASSERT_EQ(AUDIO_FindEffectFilter("VST3 host"), &VST3Effect);
        if (uidOf(kComp).empty() || uidOf(kEq).empty())
            GTEST_SKIP() << "no system bundles";
    }
};

} // namespace

TEST_F(Vst3Filter, TheRecordAsTheEngineReadsIt)
{
    EXPECT_EQ(VST3Effect.kindWord, 0x00002000u);
    EXPECT_EQ(VST3Effect.capabilityMask, 0x00009004u);
    EXPECT_NE(VST3Effect.reset, nullptr);
    EXPECT_NE(VST3Effect.latency, nullptr);
}

TEST_F(Vst3Filter, MissingKeysGiveNoEffect)
{
    EXPECT_EQ(create("vst3effect_path=\"" + kComp + "\""), nullptr);
    EXPECT_EQ(create("vst3effect_uid=\"" + uidOf(kComp) + "\""), nullptr);
    EXPECT_EQ(create("vst3effect_uid=\"00\",vst3effect_path=\"" + kComp + "\""), nullptr);
    EXPECT_EQ(create("vst3effect_uid=\"" + uidOf(kComp) + "\",vst3effect_path=\"/tmp\""), nullptr);
    EXPECT_EQ(VST3Effect.destroy(nullptr), 0);
    // The lock was left free: a later creation works.
    AUDIO_Effect* fx = create(configFor(kComp));
    ASSERT_NE(fx, nullptr);
    AUDIO_DestroyEffect(fx);
}

TEST_F(Vst3Filter, WholeBlocksNeedRoomForOneBlock)
{
    AUDIO_Effect* fx = create(configFor(kEq));
    ASSERT_NE(fx, nullptr);
    EXPECT_EQ(AUDIO_EffectBlockSize(fx), 8192);
    std::vector<float> in(2 * 20000, 0.1f), out(2 * 20000);
    long i = 5000, o = 5000;
    EXPECT_EQ(AUDIO_ProcessEffectEx(fx, in.data(), &i, out.data(), &o, 1), 0);
    EXPECT_EQ(o, 0);
    i = 5000;
    o = 8192;
    EXPECT_EQ(AUDIO_ProcessEffectEx(fx, in.data(), &i, out.data(), &o, 1), 1);
    EXPECT_EQ(o, 5000);
    i = 20000;
    o = 16384;
    EXPECT_EQ(AUDIO_ProcessEffectEx(fx, in.data(), &i, out.data(), &o, 1), 1);
    EXPECT_EQ(i, 16384);
    EXPECT_EQ(o, 16384);
    i = 20000;
    o = 20000;
    EXPECT_EQ(AUDIO_ProcessEffect(fx, in.data(), &i, out.data(), &o), 1); // not whole blocks: all of it
    EXPECT_EQ(o, 20000);
    EXPECT_EQ(AUDIO_ResetEffect(fx), 1);
    EXPECT_GE(AUDIO_EffectLatency(fx), 0.0);
    AUDIO_DestroyEffect(fx);
}

TEST_F(Vst3Filter, SavedStateChangesTheSound)
{
    // A compressor at its defaults, and with a state that drives it hard.
    _Vst3Instance* h = VLORVST3_CreateInstance(kComp.c_str(), uidOf(kComp).c_str());
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(VLORVST3_StartEngine(h), 1);
    for (int k = 0; k < VLORVST3_GetNumParams(h); ++k) {
        Vst3ParamInfo info;
        if (VLORVST3_GetParamInfo(h, k, &info) && std::string(info.title).find("Threshold") != std::string::npos)
            VLORVST3_SetParamNormalized(h, info.id, 0.0);
        if (VLORVST3_GetParamInfo(h, k, &info) && std::string(info.title).find("Ratio") != std::string::npos)
            VLORVST3_SetParamNormalized(h, info.id, 1.0);
    }
    std::vector<float> block(2 * 64, 0.0f);
    VLORVST3_ProcessAudio(h, block.data(), block.data(), 2, 64);
    char* state = VLORVST3_GetConfig(h);
    ASSERT_NE(state, nullptr);
    VLORVST3_DestroyInstance(h);

    std::vector<float> in(2 * 44100);
    for (size_t k = 0; k < in.size(); ++k)
        in[k] = 0.9f * float(std::sin(0.05 * double(k / 2)));
    std::vector<float> plain(in.size()), driven(in.size());
    for (int mode = 0; mode < 2; ++mode) {
        AUDIO_Effect* fx = create(configFor(kComp, mode ? state : ""));
        ASSERT_NE(fx, nullptr);
        std::vector<float>& out = mode ? driven : plain;
        for (size_t at = 0; at < in.size() / 2;) {
            long i = long(in.size() / 2 - at), o = i;
            ASSERT_EQ(AUDIO_ProcessEffect(fx, in.data() + at * 2, &i, out.data() + at * 2, &o), 1);
            at += size_t(i);
        }
        AUDIO_DestroyEffect(fx);
    }
    VLORVST3_FreeString(state);
    double diff = 0;
    for (size_t k = in.size() / 2; k < in.size(); ++k)
        diff += std::fabs(double(plain[k]) - double(driven[k]));
    EXPECT_GT(diff, 1.0);
}

TEST_F(Vst3Filter, EveryZamBundleThroughTheFilterChangesTheSound)
{
    DIR* d = opendir("/usr/lib/vst3");
    ASSERT_NE(d, nullptr);
    std::vector<std::string> bundles;
    while (dirent* e = readdir(d)) {
        const std::string name = e->d_name;
        // The dynamic EQ leaves this steady signal as it is at these settings:
        // its detector waits for a level the signal never reaches. (It seemed
        // to change the sound only while a mono effect's right channel was
        // a copy of its left.)
        if (name == "ZamDynamicEQ.vst3")
            continue;
        if (name.size() > 5 && name.compare(name.size() - 5, 5, ".vst3") == 0)
            bundles.push_back("/usr/lib/vst3/" + name);
    }
    closedir(d);
    std::vector<float> in(2 * 44100);
    for (size_t k = 0; k < in.size(); ++k)
        in[k] = 0.7f * float(std::sin(0.02 * double(k / 2))) + 0.2f * float(std::sin(0.31 * double(k)));
    for (const std::string& b : bundles) {
        // Every control the user can reach turned well up, saved as state.
        _Vst3Instance* h = VLORVST3_CreateInstance(b.c_str(), uidOf(b).c_str());
        ASSERT_NE(h, nullptr);
        ASSERT_EQ(VLORVST3_StartEngine(h), 1);
        for (int k = 0; k < VLORVST3_GetNumParams(h); ++k) {
            Vst3ParamInfo info;
            if (VLORVST3_GetParamInfo(h, k, &info) && !info.isReadOnly && !info.isHidden && !info.isBypass)
                VLORVST3_SetParamNormalized(h, info.id, 0.9);
        }
        std::vector<float> block(2 * 64, 0.0f);
        VLORVST3_ProcessAudio(h, block.data(), block.data(), 2, 64);
        char* state = VLORVST3_GetConfig(h);
        VLORVST3_DestroyInstance(h);
        AUDIO_Effect* fx = create(configFor(b, state ? state : ""));
        VLORVST3_FreeString(state);
        ASSERT_NE(fx, nullptr) << b;
        std::vector<float> out(in.size());
        for (size_t at = 0; at < in.size() / 2;) {
            long i = long(in.size() / 2 - at), o = i;
            ASSERT_EQ(AUDIO_ProcessEffect(fx, in.data() + at * 2, &i, out.data() + at * 2, &o), 1) << b;
            at += size_t(i);
        }
        AUDIO_DestroyEffect(fx);
        double diff = 0, energy = 0;
        for (size_t k = 0; k < in.size(); ++k) {
            diff += std::fabs(double(out[k]) - double(in[k]));
            energy += std::fabs(double(out[k]));
        }
        EXPECT_GT(diff / double(in.size()), 0.005) << b;
        EXPECT_TRUE(std::isfinite(energy)) << b;
    }
}

// The engine applies an effect offline; the mixer, which may reconfigure it,
// in real time: the plugin is told which.
TEST(Vst3FilterMode, OfflineUnlessReconfigureIsAllowed)
{
    QVlorAudioPlugins::Initialize();
    const std::string bundle = VLOR_FIXTURE_VST3_DIR "/vlor-vst3-effects.vst3";
    const std::string base = "vst3effect_uid=\"51000000000000000000000000000001\",vst3effect_path=\"" + bundle + "\"";
    for (const auto& [extra, expected] : {std::pair<std::string, const char*>{"", "setupProcessing offline"},
                                          {",allow_reconfigure=0", "setupProcessing offline"},
                                          {",allow_reconfigure=1", "setupProcessing realtime"}}) {
        AUDIO_Effect* fx = create(base + extra);
        ASSERT_NE(fx, nullptr) << extra;
        void* lib = dlopen((bundle + "/Contents/x86_64-linux/vlor-vst3-effects.so").c_str(), RTLD_NOW | RTLD_NOLOAD);
        ASSERT_NE(lib, nullptr);
        char calls[2048] = "";
        reinterpret_cast<void (*)(char*, int)>(dlsym(lib, "vlorfx3_calls"))(calls, sizeof(calls));
        reinterpret_cast<void (*)()>(dlsym(lib, "vlorfx3_reset"))();
        dlclose(lib);
        EXPECT_NE(std::string(calls).find(expected), std::string::npos) << extra << ": " << calls;
        AUDIO_DestroyEffect(fx);
    }
}
